#include "tests/support/evaluations.h"
#include "tests/support/formulacases.h"
#include "tests/support/formularuns.h"
#include "tests/support/functioncalls.h"

#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::FormulaRun;

// Which way an edge formula must run, where that matters: the walk keeps statements, functions
// that parse their own arguments (but for "iff", "min" and "max"), a quiet argument that may
// fail before its end, and what does not parse; calls of functions that take their arguments
// evaluated compile, quiet ones among them, and at the end of a formula "=" compares.
enum class Route { Either, Compiled, Walked };

struct EdgeFormula {
    const char* text;
    Route route = Route::Either;
};

// Formulas at the edges of what is compiled: names found in each place and in none, "it", the
// forms of "is", short circuits over arrays, folded values that fail or clear the flags, and what
// the walk keeps to itself.
const EdgeFormula c_edgeFormulas[] = {
    {"a * 2 + b", Route::Compiled},
    {"nothing + 1", Route::Compiled},
    {"a + broken"},
    {"deferred + 1"},
    {"width of frame"},
    {"rnd * 1 & 90 deg - 1 rad"},
    {"a > 2 ? w : s"},
    {"1 / 0 ? 1 : 2"},
    {"a = 3", Route::Compiled},
    {"a = 3; b", Route::Walked},
    {"a := 3", Route::Walked},
    {"a is between 1 and it + 5"},
    {"false and nothing"},
    {"-a % + 3"},
    {"$a + 1 dollar"},
    {"17 * 2 + 4 - 9 / 3"},
    {"a plus b minus 1 less 2"},
    {"a where a > 1", Route::Walked},
    {"#a", Route::Walked},
    {"nothing(1)", Route::Compiled},
    {"abs(a - 5) + round(b)", Route::Compiled},
    {"abs(,1)", Route::Walked},
    {"abs(a", Route::Walked},
    {"mid(s, 2, 1, 1, 1, 1, 1, 1)", Route::Walked},
    {"iserror(nothing)", Route::Compiled},
    {"iserror(%3) + iserr(1 / 0)", Route::Compiled},
    {"iserror(w.nothing)", Route::Compiled},
    {"iserror((nothing))", Route::Walked},
    {"iserror(nothing; 1)", Route::Walked},
    {"isna(nothing + 1)", Route::Walked},
    {"min(a, b)", Route::Compiled},
    {"1 + if(a > 1, 2, 3)", Route::Compiled},
    {"iff(a > 1, w, nothing) & iff(a < 1, nothing, s)"},
    {"iff(a, , 2)", Route::Walked},
    {"iff(a, 1)", Route::Walked},
    {"max(a, b, 2.5) - min(b; a, 1 / 3)", Route::Compiled},
    {"min()", Route::Walked},
    {"sum(a, b)", Route::Walked},
    {"[a, b]", Route::Walked},
    {"{a}", Route::Walked},
    {"x = 5", Route::Compiled},
    {"if a > 1 then 2 else 3 endif", Route::Walked},
    {"a +", Route::Walked},
    {"a.", Route::Walked},
    {"", Route::Walked},
};

class CompiledFormulas : public test::FunctionCallTest {
protected:
    // Runs the formula both ways and says so when they differ; true when the compiled form ran.
    bool ExpectSameBothWays(const std::string& formula, bool report = true) {
        const FormulaRun walked = m_runner.Run(formula, QFormulaCompilation::Off, report);
        const FormulaRun compiled = m_runner.Run(formula, QFormulaCompilation::Always, report);
        EXPECT_FALSE(walked.compiled) << formula;
        EXPECT_EQ(walked, compiled) << formula << "\nwalked:   " << test::Describe(walked)
                                    << "\ncompiled: " << test::Describe(compiled);
        return compiled.compiled;
    }

    test::FormulaRunner m_runner;
};

TEST_F(CompiledFormulas, EveryCaseFormulaGivesWhatTheWalkGives) {
    const std::vector<std::string> formulas = test::AllCaseFormulas();
    ASSERT_GT(formulas.size(), 800u);
    int compiled = 0;
    for (const std::string& formula : formulas)
        compiled += ExpectSameBothWays(formula) ? 1 : 0;
    // Many of the cases run statements or functions that parse their own arguments, which stay
    // with the walk.
    EXPECT_GT(compiled, 495) << "of " << formulas.size();
    std::cout << compiled << " of " << formulas.size() << " case formulas ran compiled\n";
}

TEST_F(CompiledFormulas, QuietFormulasGiveWhatTheWalkGives) {
    for (const std::string& formula : test::AllCaseFormulas())
        ExpectSameBothWays(formula, false);
}

TEST_F(CompiledFormulas, EdgeFormulasGiveWhatTheWalkGives) {
    for (const EdgeFormula& edge : c_edgeFormulas) {
        const bool compiled = ExpectSameBothWays(edge.text);
        if (edge.route != Route::Either) {
            EXPECT_EQ(compiled, edge.route == Route::Compiled) << edge.text;
        }
    }
}

// Nesting past the limit fails, however deep, and by any of the constructs that nest; the
// compiled form leaves it to the walk rather than going deeper itself.
TEST_F(CompiledFormulas, FormulasNestedPastTheLimitFailAsTheWalkSays) {
    for (const int depth : {197, 198, 199, 200, 5000}) {
        for (const char* const opener : {"(", "-", "not ", "!", "a of "}) {
            std::string formula;
            for (int i = 0; i < depth; ++i)
                formula += opener;
            formula += "1";
            if (std::string(opener) == "(")
                formula += std::string(depth, ')');
            ExpectSameBothWays(formula);
        }
    }
    EXPECT_FALSE(
        m_runner.Run(std::string(5000, '(') + std::string(5000, ')'), QFormulaCompilation::Always)
            .ok);
}

// A formula run from inside another, through a name, counts its levels of nesting on top of the
// outer one's: the inner formula fails once the two together pass the limit, compiled or not.
TEST_F(CompiledFormulas, LevelsOfNestingCountAcrossAFormulaRunFromALookUp) {
    const int inner = 196;
    const std::string deep = "=" + std::string(inner, '(') + "1" + std::string(inner, ')');
    int failed = 0;
    for (int outer = 0; outer <= 4; ++outer) {
        const std::string formula = std::string(outer, '(') + "deep" + std::string(outer, ')');
        for (const QFormulaCompilation mode :
             {QFormulaCompilation::Off, QFormulaCompilation::Always}) {
            SetFormulaCompilation(mode);
            test::NamesContext context;
            context.Set("deep", QAnyValue(CString::FromUtf8(deep)));
            const test::CallOutcome outcome = Run(formula, &context);
            if (outer <= 2)
                EXPECT_TRUE(outcome.ok) << outer << ": " << outcome.message;
            else
                failed += outcome.ok ? 0 : 1;
        }
    }
    SetFormulaCompilation(QFormulaCompilation::Repeated);
    EXPECT_EQ(failed, 4);
}

// By default a formula is compiled when it is evaluated the second time; switched off, never.
TEST_F(CompiledFormulas, TheSecondEvaluationRunsCompiledUnlessSwitchedOff) {
    struct Case {
        QFormulaCompilation mode;
        const char* formula;
        std::vector<bool> compiled;
    };
    const Case cases[] = {
        {QFormulaCompilation::Repeated, "a * 2 + 1001", {false, true, true}},
        {QFormulaCompilation::Always, "a * 2 + 1002", {true, true}},
        {QFormulaCompilation::Off, "a * 2 + 1003", {false, false, false}},
        {QFormulaCompilation::Repeated, "sum(a, 1) + 1004", {false, false, false}},
    };
    for (const Case& c : cases) {
        std::vector<bool> compiled;
        for (std::size_t i = 0; i < c.compiled.size(); ++i)
            compiled.push_back(m_runner.Run(c.formula, c.mode).compiled);
        EXPECT_EQ(compiled, c.compiled) << c.formula;
    }
}

// An application's evaluator may parse names its own way: it always walks.
class NamingEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;
    bool ParseVarnameWithContext(PropId& name) override {
        return QEvaluator::ParseVarnameWithContext(name);
    }
};

class NamingFactory : public QEvaluatorFactory {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        return new NamingEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder) const override { return CString(); }
};

TEST_F(CompiledFormulas, AnEvaluatorOfADerivedClassWalks) {
    NamingFactory factory;
    QEvaluatorFactory* previous = SetEvaluatorFactory(&factory);
    const FormulaRun run = m_runner.Run("a * 2 + b", QFormulaCompilation::Always);
    SetEvaluatorFactory(previous);
    EXPECT_TRUE(run.ok);
    EXPECT_FALSE(run.compiled);
}

} // namespace
} // namespace keel
