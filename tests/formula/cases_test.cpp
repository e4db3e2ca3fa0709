#include "tests/support/anyvalues.h"
#include "tests/support/formulacases.h"
#include "tests/support/functioncalls.h"
#include "tests/support/namescontext.h"
#include "tests/support/paths.h"

#include "keel/formula/compiledformula.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::CaseFiles;
using test::CasesFolder;
using test::Columns;

// Formulas and what they give, from the files of tests/formula/cases/, one case a line:
//
//     formula <TAB> type <TAB> display text    the formula gives a value of that type and text
//     formula <TAB> error <TAB> message        it gives an error value with that message
//     formula <TAB> fails <TAB> message        it fails with that message, left as its result
//                                              (when failures are not reported, the message
//                                              alone is checked)
//
// "//" opens a comment line, "%%" a directive, which holds for the formulas below it:
//
//     %% action / %% value                  action formulas, or value formulas again
//     %% quiet / %% report                  failures are not reported, or reported again
//     %% noeval / %% eval                   formulas are only parsed, or evaluated again
//     %% debug / %% nodebug                 each statement run is shown in the log, or not
//     %% context                            a new empty context; no local variables or arguments
//     %% set NAME <TAB> formula [<TAB> s]   the context gets a property holding the formula's
//                                           value, with the cache state s (Stable when not given)
//     %% failing NAME                       the context gets a property whose value fails
//     %% var NAME <TAB> formula             a local variable of the formulas, holding the value
//     %% args <TAB> formula                 the elements of the array the formula gives are the
//                                           arguments %1, %2, ... of the formulas
//
//     %% counts NAME <TAB> min <TAB> max [<TAB> first]
//                                           NAME takes from min to max values: calls with one
//                                           too few (when there can be fewer) and one too many
//                                           fail with the count report, and calls with min and
//                                           max values do not; the values are 1 but the first,
//                                           given as text
//
// and these check what the formulas above did:
//
//     %% lookups NAME <TAB> count           the context was asked for NAME so often ("*": any)
//     %% asked <TAB> a|b|c                  the names the context was asked for, in order
//     %% state <TAB> s                      the cache state of the last formula
//     %% holds NAME <TAB> type <TAB> text   the context's property NAME (type "absent": none)
//     %% formula NAME <TAB> text            the formula set on the context for NAME
//     %% sets <TAB> count                   the values set on the context, one by one
//     %% logged <TAB> a|b                    the messages the last formula put in the log
//
// Until the first "%% set", "%% failing" or "%% context" the formulas have no context. In every
// column \n, \t and \\ stand for a newline, a tab and a backslash.
//
// Every file runs twice: with the walk alone, and with each formula compiled at its first
// evaluation, so that whatever the compiled form covers must give what the walk gives.

const char* const c_states[] = {"Stable", "BySeq", "ByAcceptor", "NotCacheable"};

std::string Joined(const std::vector<std::string>& parts) {
    std::string joined;
    for (const std::string& part : parts)
        joined += (joined.empty() ? "" : "|") + part;
    return joined;
}

using CaseFile = std::tuple<std::string, QFormulaCompilation>;

class FormulaCases : public test::FunctionCallTest, public testing::WithParamInterface<CaseFile> {
protected:
    void SetUp() override {
        test::FunctionCallTest::SetUp();
        SetFormulaCompilation(std::get<1>(GetParam()));
    }
    void TearDown() override {
        SetFormulaCompilation(QFormulaCompilation::Repeated);
        test::FunctionCallTest::TearDown();
    }

    test::CallOutcome RunCase(const std::string& formula) {
        test::CallOutcome outcome;
        const std::unique_ptr<QEvaluator> evaluator(
            QEvaluator::New(outcome.result, FormulaText(CString::FromUtf8(formula)), m_names.get(),
                            false, m_report, m_action));
        for (std::size_t i = 0; i < m_args.size(); ++i)
            evaluator->SetArg(static_cast<int>(i) + 1, m_args[i]);
        evaluator->SetDebug(m_debug);
        for (const auto& [name, value] : m_vars)
            evaluator->SetVar(PropId(name.c_str()), value);
        outcome.ok = m_eval ? evaluator->Evaluate() : evaluator->EvaluateNoEval();
        outcome.message = evaluator->Message().ToUtf8();
        m_state = evaluator->CacheState();
        return outcome;
    }

    // Checks one case; the failure names the file and line of the case.
    void Check(const std::string& path, int line, const std::vector<std::string>& columns) {
        const std::string& formula = columns[0];
        const std::string& kind = columns[1];
        const std::string& expected = columns[2];
        const test::CallOutcome outcome = RunCase(formula);
        const std::string shown = test::DescribeValue(outcome.result);
        if (kind == "fails") {
            if (outcome.ok)
                ADD_FAILURE_AT(path.c_str(), line) << formula << " gave " << shown;
            else if (outcome.message != expected ||
                     (m_report && test::MessageOf(outcome.result) != expected))
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
        CheckValue(path, line, formula, outcome.result, kind, expected);
    }

    static void CheckValue(const std::string& path, int line, const std::string& what,
                           const QAnyValue& value, const std::string& type,
                           const std::string& text) {
        if (value.TypeName().ToUtf8() != type || value.Format().ToUtf8() != text)
            ADD_FAILURE_AT(path.c_str(), line) << what << " gave " << value.TypeName().ToUtf8()
                                               << " \"" << value.Format().ToUtf8() << "\"";
    }

    QAnyValue ValueOf(const std::string& path, int line, const std::string& formula) {
        const bool eval = std::exchange(m_eval, true);
        const test::CallOutcome outcome = RunCase(formula);
        m_eval = eval;
        if (!outcome.ok)
            ADD_FAILURE_AT(path.c_str(), line) << formula << ": " << outcome.message;
        return outcome.result;
    }

    test::NamesContext& Names() {
        if (!m_names)
            m_names = std::make_unique<test::NamesContext>();
        return *m_names;
    }

    // The switches and the set-up of the formulas below; false when the directive is none of
    // them.
    bool Setting(const std::string& path, int line, const std::vector<std::string>& columns) {
        const std::string& word = columns[0];
        if (word == "%% action" || word == "%% value") {
            m_action = word == "%% action";
        } else if (word == "%% quiet" || word == "%% report") {
            m_report = word == "%% report";
        } else if (word == "%% noeval" || word == "%% eval") {
            m_eval = word == "%% eval";
        } else if (word == "%% debug" || word == "%% nodebug") {
            m_debug = word == "%% debug";
        } else if (word == "%% context") {
            m_names = std::make_unique<test::NamesContext>();
            m_vars.clear();
            m_args.clear();
        } else if (word.starts_with("%% set ") && columns.size() >= 2) {
            const QAnyValue value = ValueOf(path, line, columns[1]);
            const std::string state = columns.size() > 2 ? columns[2] : "Stable";
            const auto* found = std::find(std::begin(c_states), std::end(c_states), state);
            if (found == std::end(c_states))
                ADD_FAILURE_AT(path.c_str(), line) << "no cache state " << state;
            else
                Names().Set(word.substr(7).c_str(), value,
                            static_cast<QCacheState>(found - std::begin(c_states)));
        } else if (word.starts_with("%% failing ")) {
            Names().SetFailing(word.substr(11).c_str());
        } else if (word.starts_with("%% var ") && columns.size() == 2) {
            m_vars[word.substr(7)] = ValueOf(path, line, columns[1]);
        } else if (word.starts_with("%% counts ") && columns.size() >= 3) {
            CheckCounts(path, line, columns);
        } else if (word == "%% args" && columns.size() == 2) {
            QAnyValue array = ValueOf(path, line, columns[1]);
            m_args.clear();
            for (int i = 1; i <= array.GetSize(); ++i)
                m_args.push_back(array.GETAT(i));
        } else {
            return false;
        }
        return true;
    }

    void CheckCounts(const std::string& path, int line, const std::vector<std::string>& columns) {
        static const char* const words[] = {"no value",     "one value",   "two values",
                                            "three values", "four values", "five values",
                                            "six values",   "seven values"};
        const std::string name = columns[0].substr(10);
        const int least = std::stoi(columns.at(1));
        const int most = std::stoi(columns.at(2));
        const std::string first = columns.size() > 3 ? columns[3] : "1";
        for (int count = std::max(least - 1, 0); count <= std::min(most + 1, 7); ++count) {
            if (count > least && count < most)
                continue;
            std::string formula = name + "(";
            for (int i = 0; i < count; ++i)
                formula += i == 0 ? first : ", 1";
            formula += ")";
            TheErrorLog().DiscardPendingMessages();
            const test::CallOutcome outcome = RunCase(formula);
            const std::string report =
                "Expecting " + name + " in correct number of values\nbut found\n\t" + words[count];
            const bool refused = !outcome.ok && outcome.message == report;
            if (refused != (count < least || count > most))
                ADD_FAILURE_AT(path.c_str(), line)
                    << formula << (refused ? " was refused: " : " was not refused: ")
                    << outcome.message;
        }
    }

    // The checks of what the formulas above did; false when the directive is none of them.
    bool Inspection(const std::string& path, int line, const std::vector<std::string>& columns) {
        const std::string& word = columns[0];
        const std::string expected = columns.size() > 1 ? columns.back() : "";
        std::string found;
        const bool ofTheContext = word.starts_with("%% lookups ") || word == "%% asked" ||
                                  word.starts_with("%% formula ") ||
                                  word.starts_with("%% holds ") || word == "%% sets";
        if (ofTheContext && !m_names) {
            ADD_FAILURE_AT(path.c_str(), line) << word << " without a context";
            return true;
        }
        if (word.starts_with("%% lookups ")) {
            const std::string name = word.substr(11);
            found = std::to_string(name == "*" ? Names().AllLookups()
                                               : Names().LookupsOf(name.c_str()));
        } else if (word == "%% asked") {
            found = Joined(Names().Asked());
        } else if (word == "%% logged") {
            for (int i = 0; i < TheErrorLog().GetSize(); ++i)
                found += (i ? "|" : "") + TheErrorLog().Message(i).ToUtf8();
        } else if (word == "%% sets") {
            found = std::to_string(Names().Sets());
        } else if (word == "%% state") {
            found = c_states[m_state];
        } else if (word.starts_with("%% formula ")) {
            found = Names().Formula(word.substr(11).c_str());
        } else if (word.starts_with("%% holds ") && columns.size() == 3) {
            const std::string name = word.substr(9);
            if (Names().Has(name.c_str()))
                CheckValue(path, line, name, Names().Get(name.c_str()), columns[1], expected);
            else if (columns[1] != "absent")
                ADD_FAILURE_AT(path.c_str(), line) << "the context holds no " << name;
            return true;
        } else {
            return false;
        }
        if (found != expected)
            ADD_FAILURE_AT(path.c_str(), line) << word << " gave \"" << found << "\"";
        return true;
    }

    void Directive(const std::string& path, int line, const std::vector<std::string>& columns) {
        if (!Setting(path, line, columns) && !Inspection(path, line, columns))
            ADD_FAILURE_AT(path.c_str(), line) << "unknown directive " << columns[0];
    }

    bool m_action = false;
    bool m_report = true;
    bool m_eval = true;
    bool m_debug = false;
    std::unique_ptr<test::NamesContext> m_names;
    std::map<std::string, QAnyValue> m_vars;
    std::vector<QAnyValue> m_args;
    QCacheState m_state = QCS_Stable;
};

TEST_P(FormulaCases, EachLineGivesWhatItSays) {
    const fs::path path = CasesFolder() / std::get<0>(GetParam());
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
            TheErrorLog().DiscardPendingMessages();
            Check(path.string(), number, columns);
            ++cases;
        }
    }
    EXPECT_GT(cases, 0) << path;
}

INSTANTIATE_TEST_SUITE_P(
    Files, FormulaCases,
    testing::Combine(testing::ValuesIn(CaseFiles()),
                     testing::Values(QFormulaCompilation::Off, QFormulaCompilation::Always)),
    [](const testing::TestParamInfo<CaseFile>& info) {
        const bool compiled = std::get<1>(info.param) == QFormulaCompilation::Always;
        return fs::path(std::get<0>(info.param)).stem().string() + (compiled ? "_compiled" : "");
    });

TEST(FormulaCaseFiles, AreThere) {
    EXPECT_FALSE(CaseFiles().empty()) << CasesFolder();
}

} // namespace
} // namespace keel
