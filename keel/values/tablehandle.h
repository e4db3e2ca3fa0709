#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/compare.h"
#include "keel/values/smartptr.h"

namespace keel {

class QAnyValue;
class QFormulaContext;

// What a value of type lookup table holds: a shared handle on one table. The tables layer
// derives its table class from this; the value layer needs no more of a table than its name,
// its identity and its archive form.
class QTableHandle : public QSmartTarget {
public:
    // The full path of the table's file; empty for a table that lives only in memory.
    virtual CString Name() const = 0;
    // Writes or reads the whole table, as the archive's direction says.
    virtual void Serialize(CArchive& archive) = 0;

    // The edits and transactions that formulas run on a table; each says whether it succeeded.
    // Labels are matched exactly, formula labels evaluated in `context`; indexes count from 0.
    virtual bool UpdateExact(const QAnyValue& rowLabel, const QAnyValue& colLabel,
                             const QAnyValue& value, QFormulaContext* context) = 0;
    virtual bool UpdateByIndex(int row, int col, const QAnyValue& value) = 0;
    virtual bool BeginTrans() = 0;
    virtual bool CommitTrans() = 0;
    virtual bool Rollback() = 0;
    virtual bool Reload() = 0;

    // Two handles name the same table when they are one object or their names match, ignoring
    // case.
    bool IsSameNameAs(const QTableHandle& other) const {
        return this == &other || Name().CompareNoCase(other.Name()) == 0;
    }
    unsigned HashKey() const { return keel::HashKey(Name()); }
};

using QTableHandlePtr = QSmartPtr<QTableHandle>;

// Where tables come from. The tables layer installs one source at start-up; until then no table
// can be opened by name, and a table value can be neither stored nor loaded.
class QTableHandleSource {
public:
    virtual ~QTableHandleSource() = default;

    // The table of that name, or null with `error` set to why it cannot be had. With
    // `reportErrors` false nothing is shown to the user.
    virtual QTableHandlePtr Open(const CString& name, bool reportErrors, CString& error) = 0;
    // A new, nameless table ready to read itself from an archive, or to write itself as the
    // empty table.
    virtual QTableHandlePtr CreateEmpty() = 0;
    // Drops the tables nobody holds and marks the others to be read again on their next use.
    virtual void ReloadAll() = 0;
    // Whether the shipped tables that stand in for missing files hold one for this full path.
    virtual bool ExistsInArchive(const CString& /*path*/) { return false; }
};

// Returns the source it replaces; nullptr uninstalls.
QTableHandleSource* SetTableHandleSource(QTableHandleSource* source);
QTableHandleSource* GetTableHandleSource();

} // namespace keel
