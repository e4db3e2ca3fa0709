#pragma once

#include "keel/platform/archive.h"
#include "keel/values/anyvalue.h"
#include "keel/values/tablehandle.h"

#include <string>
#include <vector>

namespace keel::test {

// A table known by its name alone, which archives its name and writes down each edit and
// transaction asked of it. `m_succeed` says what the edits answer.
class NamedTable : public QTableHandle {
public:
    explicit NamedTable(const CString& name) : m_name(name) {}
    CString Name() const override { return m_name; }
    void Serialize(CArchive& archive) override {
        if (archive.IsStoring())
            archive << m_name;
        else
            archive >> m_name;
    }

    bool UpdateExact(const QAnyValue& row, const QAnyValue& col, const QAnyValue& value,
                     QFormulaContext*) override {
        return Note("UpdateExact " + Text(row) + " " + Text(col) + " " + Text(value));
    }
    bool UpdateByIndex(int row, int col, const QAnyValue& value) override {
        return Note("UpdateByIndex " + std::to_string(row) + " " + std::to_string(col) + " " +
                    Text(value));
    }
    bool BeginTrans() override { return Note("BeginTrans"); }
    bool CommitTrans() override { return Note("CommitTrans"); }
    bool Rollback() override { return Note("Rollback"); }
    bool Reload() override { return Note("Reload"); }

    std::vector<std::string> m_journal;
    bool m_succeed = true;

private:
    static std::string Text(const QAnyValue& value) { return value.Format().ToUtf8(); }
    bool Note(const std::string& entry) {
        m_journal.push_back(entry);
        return m_succeed;
    }

    CString m_name;
};

// Opens a NamedTable for any name, or only for the names it was given; remembers whether the
// last caller wanted errors reported and keeps the tables it made, so tests can read their
// journals.
class NamedTableSource : public QTableHandleSource {
public:
    NamedTableSource() = default;
    explicit NamedTableSource(std::vector<std::string> known) : m_known(std::move(known)) {}

    QTableHandlePtr Open(const CString& name, bool reportErrors, CString& error) override {
        m_lastReportErrors = reportErrors;
        if (!Knows(name)) {
            error = u"no such table";
            return QTableHandlePtr();
        }
        NamedTable* table = new NamedTable(name);
        m_opened.push_back(QSmartPtr<NamedTable>(table));
        return QTableHandlePtr(table);
    }
    QTableHandlePtr CreateEmpty() override { return QTableHandlePtr(new NamedTable(CString())); }
    void ReloadAll() override { ++m_reloadAllCount; }

    bool m_lastReportErrors = true;
    int m_reloadAllCount = 0;
    std::vector<QSmartPtr<NamedTable>> m_opened;

private:
    bool Knows(const CString& name) const {
        if (m_known.empty())
            return true;
        for (const std::string& known : m_known)
            if (name.CompareNoCase(CString(known.c_str())) == 0)
                return true;
        return false;
    }

    std::vector<std::string> m_known;
};

} // namespace keel::test
