#include "tests/support/anyvalues.h"
#include "tests/support/errorreports.h"
#include "tests/support/evaluations.h"
#include "tests/support/namescontext.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/values/formulahook.h"

#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace keel {
namespace {

using test::MessageOf;

// Functions that fail in each of the ways an evaluation can: with no message and no value
// ("quiet"), leaving an error value without a message ("broken") or with one ("refused"), by
// throwing ("thrown", "runaway"), or after turning the process-wide report switch off
// ("silenced"). They take no arguments.
class FailingEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;

    bool IsDerivedClassDefined(FullId name) override {
        for (const char* known : {"quiet", "broken", "refused", "thrown", "runaway", "silenced"})
            if (name == FullId(known))
                return true;
        return false;
    }

    bool EvaluateSimpleFunctionDerived(QAnyValue& result, FullId name) override {
        const std::string called = name.ToString().ToUtf8();
        if (called == "quiet")
            return false;
        if (called == "broken") {
            result.MakeError(u"broken");
            return false;
        }
        if (called == "refused") {
            result.MakeError(u"refused");
            return ErrorEvaluatingFunction(name.ToString());
        }
        if (called == "thrown")
            ThrowInvalidArgument("thrown on purpose");
        if (called == "runaway")
            throw std::runtime_error("runaway evaluation");
        SetNoEvalReportErrors(true);
        return ErrorEvaluatingFunction(name.ToString());
    }
};

struct Outcome {
    bool ok = false;
    QAnyValue result;
    std::string message;
};

class EvaluatorTest : public test::ErrorReportsTest {
protected:
    void SetUp() override {
        ErrorReportsTest::SetUp();
        SetNoEvalReportErrors(false);
    }
    void TearDown() override {
        SetEvaluatorFactory(nullptr);
        ErrorReportsTest::TearDown();
    }

    static Outcome Run(const char* formula, bool report = true,
                       QFormulaContext* context = nullptr) {
        Outcome outcome;
        FailingEvaluator evaluator(outcome.result, FormulaText(formula), context, false, report,
                                   false);
        outcome.ok = evaluator.Evaluate();
        outcome.message = evaluator.Message().ToUtf8();
        return outcome;
    }
    // The one report a run left, or a failure.
    static std::string OnlyReport() {
        const std::vector<test::Report> reports = test::PendingReports();
        EXPECT_EQ(reports.size(), 1u);
        return reports.empty() ? std::string() : reports[0].heading + ": " + reports[0].message;
    }
};

struct FailureCase {
    const char* formula;
    std::string shown;
};

// A failure is told in one of eight forms: a syntax failure or an error value, each with or
// without a message, each with or without the fragment from the last good position on.
const FailureCase c_failureForms[] = {
    {"quiet()", "Error in formula\n\tquiet()"},
    {"1; quiet()", "Error in formula\n\t1; quiet()\nnear\n\tquiet()"},
    {"1 +", "Expecting a number, string, name or (expression)\nbut found end of formula"
            "\nin formula\n\t1 +"},
    {"1; 2 +", "Expecting a number, string, name or (expression)\nbut found end of formula"
               "\nin formula\n\t1; 2 +\nnear\n\t2 +"},
    {"broken()", "Error evaluating\n\tbroken()"},
    {"1; broken()", "Error evaluating\n\t1; broken()\nwhile evaluating\n\tbroken()"},
    {"refused()", "Error in calling function refused\nevaluating\n\trefused()"},
    {"1; refused()", "Error in calling function refused\nevaluating\n\t1; refused()"
                     "\nwhile evaluating\n\trefused()"},
};

TEST_F(EvaluatorTest, AFailureIsShownUnderFormulaInTheFormThatFitsIt) {
    for (const FailureCase& c : c_failureForms) {
        TheErrorLog().DiscardPendingMessages();
        EXPECT_FALSE(Run(c.formula).ok) << c.formula;
        EXPECT_EQ(OnlyReport(), "Formula: " + c.shown) << c.formula;
    }
}

// How a run ends: whether it succeeds, its message, the message of the error value it leaves
// (empty when it leaves none) and the one report shown (empty when none is).
struct RunCase {
    const char* formula;
    bool report;
    bool ok;
    const char* message;
    const char* valueMessage;
    const char* shown;
};

TEST_F(EvaluatorTest, ARunEndsWithTheseMessagesAndReports) {
    const char* const incomplete =
        "Expecting a number, string, name or (expression)\nbut found end of formula";
    const RunCase cases[] = {
        // An error value left by the failing part is replaced by the message too.
        {"refused()", true, false, "Error in calling function refused",
         "Error in calling function refused",
         "Error in calling function refused\nevaluating\n\trefused()"},
        {"1 +", false, false, incomplete, incomplete, ""},
        // The process-wide switch, turned off by the function, silences the report.
        {"silenced()", true, false, "Error in calling function silenced",
         "Error in calling function silenced", ""},
        {"(1)) * 2", true, false, "Expecting end of formula\nbut found\n\t) * 2",
         "Expecting end of formula\nbut found\n\t) * 2",
         "Expecting end of formula\nbut found\n\t) * 2\nin formula\n\t(1)) * 2\nnear\n\t1)) "},
        {"'abc", true, false, "Mismatched quotes", "Mismatched quotes",
         "Mismatched quotes\nin formula\n\t'abc"},
        // Exceptions of the platform are caught and count as failure.
        {"thrown()", true, false, "Invalid argument: thrown on purpose",
         "Invalid argument: thrown on purpose",
         "Invalid argument: thrown on purpose\nin formula\n\tthrown()"},
        {"runaway()", true, false, "runaway evaluation", "runaway evaluation",
         "runaway evaluation\nin formula\n\trunaway()"},
        {"1 + 2 * 3", true, true, "", "", ""},
        // A formula with no tokens succeeds with an empty result.
        {"", true, true, "", "", ""},
        {"// only a remark", true, true, "", "", ""},
    };
    for (const RunCase& c : cases) {
        SCOPED_TRACE(c.formula);
        TheErrorLog().DiscardPendingMessages();
        const Outcome outcome = Run(c.formula, c.report);
        EXPECT_EQ(outcome.ok, c.ok);
        EXPECT_EQ(outcome.message, c.message);
        EXPECT_EQ(outcome.result.IsError() ? MessageOf(outcome.result) : "", c.valueMessage);
        const std::vector<test::Report> reports = test::PendingReports();
        EXPECT_EQ(reports.size(), *c.shown ? 1u : 0u);
        for (const test::Report& report : reports)
            EXPECT_EQ(report.heading + ": " + report.message, std::string("Formula: ") + c.shown);
    }
    EXPECT_FALSE(NoEvalReportErrors()) << "the evaluator put the switch back as it found it";
}

TEST_F(EvaluatorTest, ContextInfoHasALineForEachGuardInForceInnermostLast) {
    EXPECT_EQ(QEvaluator::ContextInfo(true).ToUtf8(), "");
    {
        QEvaluator::ExtraContextInfoForErrors outer(u"reading table doors.vlt");
        {
            QEvaluator::ExtraContextInfoForErrors inner(u"UPDATE VLT", u"row 3");
            EXPECT_EQ(QEvaluator::ContextInfo(true).ToUtf8(),
                      "\nin\n\treading table doors.vlt\nin\n\tUPDATE VLT\n\trow 3");
            EXPECT_EQ(QEvaluator::ContextInfo(false).ToUtf8(), "");
        }
        EXPECT_EQ(QEvaluator::ContextInfo(true).ToUtf8(), "\nin\n\treading table doors.vlt");
        // A shown failure ends with the context lines.
        Run("1 +");
        EXPECT_EQ(OnlyReport(), "Formula: Expecting a number, string, name or (expression)\nbut "
                                "found end of formula\nin formula\n\t1 +\nin\n\treading table "
                                "doors.vlt");
    }
    EXPECT_EQ(QEvaluator::ContextInfo(true).ToUtf8(), "");
}

TEST_F(EvaluatorTest, AValueKeptByTheContextAnswersAtOnceUnlessDebugOrAction) {
    test::NamesContext context;
    context.RememberThisFormulaValueForNextTime(QAnyValue(42), FormulaText("40 + 1"), QCS_Stable);
    const Outcome cached = Run("40 + 1", true, &context);
    EXPECT_TRUE(cached.ok);
    EXPECT_EQ(QAnyValue(cached.result).MakeInt(), 42);
    for (const bool action : {false, true}) {
        QAnyValue result;
        QEvaluator e(result, FormulaText("40 + 1"), &context, false, true, action);
        e.SetDebug(!action);
        EXPECT_TRUE(e.Evaluate());
        EXPECT_EQ(result.MakeInt(), 41);
    }
}

TEST_F(EvaluatorTest, TheReverseIntIsTheNumberThatEndsAName) {
    const std::pair<const char*, int> cases[] = {
        {"frame12", 12}, {"frame", -1}, {"7", 7}, {"", -1}, {"x99999999999", 2147483647},
    };
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(QEvaluator::FindReverseInt(CString(name)), expected) << name;
}

TEST_F(EvaluatorTest, NewMakesEvaluatorsThroughTheInstalledFactory) {
    QAnyValue result;
    std::unique_ptr<QEvaluator> plain(
        QEvaluator::New(result, FormulaText("refused()"), nullptr, false, true, false));
    EXPECT_FALSE(plain->Evaluate());
    EXPECT_EQ(plain->Message().ToUtf8(), "Unknown function taking no values\n\trefused") << "plain";

    test::EvaluatorFactoryOf<FailingEvaluator> factory;
    EXPECT_EQ(SetEvaluatorFactory(&factory), nullptr);
    std::unique_ptr<QEvaluator> derived(
        QEvaluator::New(result, FormulaText("refused()"), nullptr, true, false, true));
    EXPECT_TRUE(derived->IsPassThrough());
    EXPECT_FALSE(derived->Evaluate());
    EXPECT_EQ(derived->Message().ToUtf8(), "Error in calling function refused");
    EXPECT_EQ(SetEvaluatorFactory(nullptr), &factory);
}

TEST_F(EvaluatorTest, TheFormulaHookRunsFormulasQuietly) {
    const QFormulaEvaluatorHook previous = GetFormulaEvaluatorHook();
    QEvaluator::InstallAsFormulaHook();
    QAnyValue value;
    EXPECT_TRUE(EvaluateFormula(FormulaText("2 + 3"), nullptr, value));
    EXPECT_EQ(value.MakeInt(), 5);
    EXPECT_FALSE(EvaluateFormula(FormulaText("2 +"), nullptr, value));
    EXPECT_TRUE(value.IsError());
    EXPECT_TRUE(test::PendingReports().empty());

    test::NamesContext context;
    context.Set("depth", QAnyValue(8));
    EXPECT_TRUE(EvaluateFormula(FormulaText("depth + 1"), &context, value));
    EXPECT_EQ(value.MakeInt(), 9);
    EXPECT_FALSE(EvaluateFormula(FormulaText("set value w = 1"), &context, value))
        << "not an action";
    EXPECT_FALSE(context.Has("w"));
    SetFormulaEvaluatorHook(previous);
}

} // namespace
} // namespace keel
