#include "tests/support/anyvalues.h"
#include "tests/support/functioncalls.h"
#include "tests/support/namescontext.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;

// Formulas and what they give, from the files of tests/formula/cases/, one case a line:
//
//     formula <TAB> type <TAB> display text    the formula gives a value of that type and text
//     formula <TAB> error <TAB> message        it gives an error value with that message
//     formula <TAB> fails <TAB> message        it fails with that message, left as its result
//
// "//" opens a comment line, "%%" a directive: "%% action" makes the formulas below action
// formulas, "%% value" value formulas again, and "%% set NAME <TAB> formula" gives the context of
// the file's formulas a property holding the formula's value (until the first of these the
// formulas have no context). In every column \n, \t and \\ stand for a newline, a tab and a
// backslash.

fs::path CasesFolder() {
    return fs::path(KEEL_TEST_DATA).parent_path() / "formula" / "cases";
}

std::vector<std::string> CaseFiles() {
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(CasesFolder(), error))
        if (entry.path().extension() == ".txt")
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string Unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            plain += text[i];
            continue;
        }
        const char next = text[++i];
        plain += next == 'n' ? '\n' : next == 't' ? '\t' : next == 'r' ? '\r' : next;
    }
    return plain;
}

std::vector<std::string> Columns(const std::string& line) {
    std::vector<std::string> columns;
    std::size_t start = 0;
    for (std::size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
        columns.push_back(Unescaped(line.substr(start, tab - start)));
    columns.push_back(Unescaped(line.substr(start)));
    return columns;
}

class FormulaCases : public test::FunctionCallTest,
                     public testing::WithParamInterface<std::string> {
protected:
    test::CallOutcome RunCase(const std::string& formula) const {
        test::CallOutcome outcome;
        const std::unique_ptr<QEvaluator> evaluator(
            QEvaluator::New(outcome.result, FormulaText(CString::FromUtf8(formula)), m_context,
                            false, true, m_action));
        outcome.ok = evaluator->Evaluate();
        outcome.message = evaluator->Message().ToUtf8();
        return outcome;
    }

    // Checks one case; the failure names the file and line of the case.
    void Check(const std::string& path, int line, const std::vector<std::string>& columns) const {
        const std::string& formula = columns[0];
        const std::string& kind = columns[1];
        const std::string& expected = columns[2];
        const test::CallOutcome outcome = RunCase(formula);
        const std::string shown = test::DescribeValue(outcome.result);
        if (kind == "fails") {
            if (outcome.ok)
                ADD_FAILURE_AT(path.c_str(), line) << formula << " gave " << shown;
            else if (outcome.message != expected || test::MessageOf(outcome.result) != expected)
                ADD_FAILURE_AT(path.c_str(), line)
                    << formula << " failed with \"" << outcome.message << "\", leaving " << shown;
            return;
        }
        if (!outcome.ok) {
            ADD_FAILURE_AT(path.c_str(), line)
                << formula << " failed with \"" << outcome.message << "\"";
            return;
        }
        if (kind == "error") {
            if (test::MessageOf(outcome.result) != expected)
                ADD_FAILURE_AT(path.c_str(), line) << formula << " gave " << shown;
            return;
        }
        if (outcome.result.TypeName().ToUtf8() != kind ||
            outcome.result.Format().ToUtf8() != expected)
            ADD_FAILURE_AT(path.c_str(), line)
                << formula << " gave " << outcome.result.TypeName().ToUtf8() << " \""
                << outcome.result.Format().ToUtf8() << "\"";
    }

    void Directive(const std::string& path, int line, const std::vector<std::string>& columns) {
        if (columns[0] == "%% action" || columns[0] == "%% value") {
            m_action = columns[0] == "%% action";
        } else if (columns[0].rfind("%% set ", 0) == 0 && columns.size() == 2) {
            const test::CallOutcome outcome = RunCase(columns[1]);
            if (!outcome.ok)
                ADD_FAILURE_AT(path.c_str(), line) << columns[1] << ": " << outcome.message;
            m_names.Set(columns[0].substr(7).c_str(), outcome.result);
            m_context = &m_names;
        } else {
            ADD_FAILURE_AT(path.c_str(), line) << "unknown directive " << columns[0];
        }
    }

    bool m_action = false;
    test::NamesContext m_names;
    QFormulaContext* m_context = nullptr;
};

TEST_P(FormulaCases, EachLineGivesWhatItSays) {
    const fs::path path = CasesFolder() / GetParam();
    std::ifstream file(path);
    ASSERT_TRUE(file) << path;
    int number = 0;
    int cases = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.empty() || line.starts_with("//"))
            continue;
        const std::vector<std::string> columns = Columns(line);
        if (line.starts_with("%%")) {
            Directive(path.string(), number, columns);
        } else if (columns.size() != 3) {
            ADD_FAILURE_AT(path.string().c_str(), number) << "a case needs three columns";
        } else {
            Check(path.string(), number, columns);
            ++cases;
        }
        TheErrorLog().DiscardPendingMessages();
    }
    EXPECT_GT(cases, 0) << path;
}

INSTANTIATE_TEST_SUITE_P(Files, FormulaCases, testing::ValuesIn(CaseFiles()),
                         [](const testing::TestParamInfo<std::string>& info) {
                             return fs::path(info.param).stem().string();
                         });

TEST(FormulaCaseFiles, AreThere) {
    EXPECT_FALSE(CaseFiles().empty()) << CasesFolder();
}

} // namespace
} // namespace keel
