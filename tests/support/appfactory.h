#pragma once

#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"

#include <filesystem>
#include <map>
#include <string>
#include <utility>

namespace keel::test {

// The application as the layers below it see it: plain evaluators, a table folder of the caller's
// own (the only folder constant it knows), the integer options the caller sets, and database
// access only when given one. Install it with SetEvaluatorFactory.
class TestAppFactory : public QEvaluatorFactory {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        return new QEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder folder) const override {
        return folder == QConstantFolder::Table ? m_tableFolder : CString();
    }
    int ProfileInt(const CString& section, const CString& key, int defaultValue) const override {
        const auto found = m_options.find({section.ToUtf8(), key.ToUtf8()});
        return found == m_options.end() ? defaultValue : found->second;
    }
    QFormulaDatabase* Database() override { return m_database; }

    void SetTableFolder(const std::filesystem::path& folder) {
        m_tableFolder = CString::FromUtf8(folder.string());
    }
    void SetOption(const std::string& section, const std::string& key, int value) {
        m_options[{section, key}] = value;
    }
    // The database access of the `db` functions; nullptr takes it away.
    void SetDatabase(QFormulaDatabase* database) { m_database = database; }

private:
    CString m_tableFolder;
    std::map<std::pair<std::string, std::string>, int> m_options;
    QFormulaDatabase* m_database = nullptr;
};

} // namespace keel::test
