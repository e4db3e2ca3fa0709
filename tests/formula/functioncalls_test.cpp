#include "tests/support/anyvalues.h"
#include "tests/support/namescontext.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::Array;
using test::MessageOf;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

using CallsContext = test::NamesContext;

// An application's own functions: "answer()", "twice(x)", "pair(a, b)", "sum7(...)" with seven
// arguments, "refuse(x)" that fails, and "iserror(x)", which the library evaluates quietly.
class ApplicationEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;

    bool IsDerivedClassDefined(FullId name) override {
        for (const char* own : {"answer", "twice", "pair", "sum7", "refuse"})
            if (name == FullId(own))
                return true;
        return false;
    }
    bool EvaluateSimpleFunctionDerived(QAnyValue& result, FullId) override {
        ++c_calls;
        result = QAnyValue(42);
        return true;
    }
    bool EvaluateUnaryFunctionDerived(QAnyValue& result, FullId name,
                                      const QAnyValue& a1) override {
        ++c_calls;
        if (name == FullId("refuse"))
            return ErrorEvaluatingFunction(name.ToString());
        result = a1 * QAnyValue(2);
        return true;
    }
    bool EvaluateBinaryFunctionDerived(QAnyValue& result, FullId, const QAnyValue& a1,
                                       const QAnyValue& a2) override {
        ++c_calls;
        result = Array({a1, a2});
        return true;
    }
    bool EvaluateSeptaryFunctionDerived(QAnyValue& result, FullId, const QAnyValue& a1,
                                        const QAnyValue& a2, const QAnyValue& a3,
                                        const QAnyValue& a4, const QAnyValue& a5,
                                        const QAnyValue& a6, const QAnyValue& a7) override {
        ++c_calls;
        result = Array({a1, a2, a3, a4, a5, a6, a7});
        return true;
    }

    static inline int c_calls = 0;
};

class ApplicationFactory : public QEvaluatorFactory {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        return new ApplicationEvaluator(result, formula, context, passThrough, reportErrors,
                                        isAction);
    }
    CString FolderForConstant(QConstantFolder) const override { return CString(); }
};

struct Outcome {
    bool ok = false;
    QAnyValue result;
    std::string message;
    QCacheState state = QCS_Stable;
};

class FunctionCallsTest : public testing::Test {
protected:
    void SetUp() override {
        TheErrorLog().SetFilename(CString::FromUtf8(LogPath().string()));
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(false);
        ApplicationEvaluator::c_calls = 0;
    }
    void TearDown() override {
        SetEvaluatorFactory(nullptr);
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(false);
        std::error_code ignored;
        fs::remove(LogPath(), ignored);
    }

    static fs::path LogPath() {
        return fs::temp_directory_path() /
               ("keel-functioncalls-" + std::to_string(::getpid()) + ".txt");
    }

    static Outcome Run(const char* formula, QFormulaContext* context = nullptr, bool report = true,
                       bool passThrough = false, bool action = false) {
        Outcome outcome;
        std::unique_ptr<QEvaluator> evaluator(QEvaluator::New(
            outcome.result, FormulaText(formula), context, passThrough, report, action));
        outcome.ok = evaluator->Evaluate();
        outcome.message = U8(evaluator->Message());
        outcome.state = evaluator->CacheState();
        return outcome;
    }

    static int Pending() { return TheErrorLog().GetSize(); }
};

// ---------------------------------------------------------------------------------------------
// iff and if

TEST_F(FunctionCallsTest, IffGivesTheBranchThatTheConditionChooses) {
    const std::pair<const char*, int> cases[] = {
        {"iff(1 < 2, 10, 20)", 10},     {"if(1 > 2, 10, 20)", 20}, {"IFF(2 = 2, 1 + 1, 0)", 2},
        {"iff(1, iff(0, 1, 2), 3)", 2}, {"iff(#err!, 1, 2)", 2},   {"iff(1, 5, nosuchname)", 5},
        {"iff(0, nosuchname, 6)", 6},
    };
    for (const auto& [formula, expected] : cases) {
        Outcome outcome = Run(formula);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        EXPECT_EQ(outcome.result.MakeInt(), expected) << formula;
    }
    EXPECT_EQ(Pending(), 0) << "the branch not taken looks nothing up";
}

TEST_F(FunctionCallsTest, IffWithoutItsPartsSaysWhatIsMissing) {
    const std::pair<const char*, const char*> cases[] = {
        {"iff(1 2, 3)",
         "Expecting ',' between condition and then-clause in IFF function\nbut found\n\t2, 3)"},
        {"iff(1, 2)",
         "Expecting ',' between then-clause and else-clause in IFF function\nbut found\n\t)"},
        {"if(1, 2, 3",
         "Expecting a matching ')' for the '(' in IFF function\nbut found end of formula"},
        {"iff(1, 2, 3]", "Expecting a matching ')' for the '(' in IFF function\nbut found\n\t]"},
    };
    for (const auto& [formula, message] : cases) {
        const Outcome outcome = Run(formula);
        EXPECT_FALSE(outcome.ok) << formula;
        EXPECT_EQ(outcome.message, message) << formula;
    }
}

TEST_F(FunctionCallsTest, WithEvaluationOffIffOnlyParsesBothBranches) {
    QAnyValue result;
    QEvaluator names(result, FormulaText("iff(nosuch1, nosuch2, nosuch3)"), nullptr, false, true,
                     false);
    EXPECT_TRUE(names.EvaluateNoEval());
    EXPECT_TRUE(result.IsEmpty());

    // A branch that is not taken is still checked.
    const Outcome outcome = Run("iff(1, 2, 3 +)");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Expecting a number, string, name or (expression)\nbut found\n\t)");
}

// ---------------------------------------------------------------------------------------------
// Arguments

TEST_F(FunctionCallsTest, AnUnknownFunctionIsToldByItsCountOfValues) {
    const char* const words[] = {"no values",   "one value",   "two values", "three values",
                                 "four values", "five values", "six values", "seven values"};
    std::string arguments;
    for (int count = 0; count <= 7; ++count) {
        const std::string formula = "f(" + arguments + ")";
        const Outcome outcome = Run(formula.c_str());
        EXPECT_FALSE(outcome.ok) << formula;
        EXPECT_EQ(outcome.message,
                  std::string("Unknown function taking ") + words[count] + "\n\tf");
        arguments += (count == 0 ? "" : ", ") + std::to_string(count + 1);
    }
}

TEST_F(FunctionCallsTest, ArgumentsEndInACommaOrAParenthesisUpToSeven) {
    const Outcome eight = Run("f(1, 2, 3, 4, 5, 6, 7, 8)");
    EXPECT_FALSE(eight.ok);
    EXPECT_EQ(eight.message, "Expecting ')' in f\nbut found\n\t, 8)");

    const Outcome other = Run("f(1]");
    EXPECT_FALSE(other.ok);
    EXPECT_EQ(other.message, "Expecting a ',' or ')' in ]\nbut found\n\tf");

    const Outcome failing = Run("f(1, 2 +)");
    EXPECT_FALSE(failing.ok);
    EXPECT_EQ(failing.message, "Expecting a number, string, name or (expression)\nbut found\n\t)");
}

TEST_F(FunctionCallsTest, ArgumentsAreEvaluatedLeftToRightAndHandedOnInOrder) {
    ApplicationFactory factory;
    SetEvaluatorFactory(&factory);
    Outcome outcome = Run("pair(1 + 1, 3)");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_TRUE(outcome.result.Identical(Array({QAnyValue(2), QAnyValue(3)})));

    outcome = Run("sum7(1, 2, 3, 4, 5, 6, 7)");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.result.GetSize(), 7);
    EXPECT_EQ(outcome.result.GETAT(7).MakeInt(), 7);
}

// ---------------------------------------------------------------------------------------------
// The application's own functions

TEST_F(FunctionCallsTest, AnApplicationsFunctionGivesTheWholeResult) {
    ApplicationFactory factory;
    SetEvaluatorFactory(&factory);
    EXPECT_EQ(QEvaluator::EvaluateFormulaAsInt(FormulaText("answer() + twice(4)"), nullptr, false,
                                               true, false),
              50);
    EXPECT_EQ(ApplicationEvaluator::c_calls, 2);

    const Outcome refused = Run("refuse(1) + 1");
    EXPECT_FALSE(refused.ok) << "its return is the call's success";
    EXPECT_EQ(refused.message, "Error in calling function refuse");
}

TEST_F(FunctionCallsTest, WithEvaluationOffNothingIsCalled) {
    ApplicationFactory factory;
    SetEvaluatorFactory(&factory);
    QAnyValue result;
    std::unique_ptr<QEvaluator> evaluator(QEvaluator::New(
        result, FormulaText("twice(nosuchname) + answer()"), nullptr, false, true, false));
    EXPECT_TRUE(evaluator->EvaluateNoEval());
    EXPECT_EQ(ApplicationEvaluator::c_calls, 0);
    EXPECT_TRUE(result.IsEmpty());
}

// ---------------------------------------------------------------------------------------------
// Names that are no function

TEST_F(FunctionCallsTest, ANameCalledInAContextIsLookedUp) {
    CallsContext context;
    Outcome outcome = Run("nosuch(1)", &context);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Unknown function taking one value\n\tnosuch");

    outcome = Run("nosuch()", &context);
    EXPECT_EQ(outcome.message, "Unknown function taking no values\n\tnosuch");

    context.SetFailing("broken");
    outcome = Run("broken(1)", &context);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Error in calling function broken");
    context.SetFailing("failing");
    outcome = Run("failing()", &context);
    EXPECT_EQ(outcome.message, "Error in calling function failing");

    outcome = Run("nosuch(1)", &context, false);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "") << "an unknown name is only told with the report flag";
}

// An action evaluates without the context's caches, so that each look-up asks the context again.
TEST_F(FunctionCallsTest, ANameMissedWhenPassedThroughIsTheOneValuesReport) {
    CallsContext context;
    context.SetHiddenFromPassThrough("hidden", QAnyValue(u"%1"));
    Outcome outcome = Run("hidden(1)", &context, true, true, true);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Unknown function taking one values\n\thidden");
    outcome = Run("hidden(1, 2)", &context, true, true, true);
    EXPECT_EQ(outcome.message, "Unknown function taking two values\n\thidden");

    outcome = Run("hidden(5)", &context, true, false);
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.result.MakeInt(), 5);
}

TEST_F(FunctionCallsTest, AnArrayCalledWithOneValueIsSubscripted) {
    CallsContext context;
    context.Set("list", Array({QAnyValue(10), QAnyValue(20), QAnyValue(30)}));
    Outcome outcome = Run("list(2)", &context);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.result.MakeInt(), 20);

    outcome = Run("list([3, 1])", &context);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_TRUE(outcome.result.Identical(Array({QAnyValue(30), QAnyValue(10)})));

    outcome = Run("list(#N/A)", &context);
    EXPECT_TRUE(outcome.result.IsNA());

    outcome = Run("a := [10, 20, 30]; a(3)");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.result.MakeInt(), 30);
}

TEST_F(FunctionCallsTest, AConstantOrVariableThatIsNoArrayNeedsAContextToBeCalled) {
    Outcome outcome = Run("pi(1)");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Unknown function taking one value\n\tpi");
}

TEST_F(FunctionCallsTest, AUserDefinedFunctionReadsItsArgumentsAsPercentNumbers) {
    CallsContext context;
    context.Set("add", QAnyValue(u"%1 + %2"));
    context.Set("mul", QAnyValue(u"=%1 * %2"));
    context.Set("dec", QAnyValue(u":%1 - 1"));
    context.Set("all", QAnyValue(u"%1 + %2 + %3 + %4 + %5 + %6 + %7"));
    const std::pair<const char*, int> cases[] = {
        {"add(2, 3)", 5},
        {"mul(4, 5)", 20},
        {"dec(10)", 9},
        {"all(1, 2, 3, 4, 5, 6, 7)", 28},
        {"add(add(1, 2), mul(2, 2))", 7},
    };
    for (const auto& [formula, expected] : cases) {
        Outcome outcome = Run(formula, &context);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        EXPECT_EQ(outcome.result.MakeInt(), expected) << formula;
    }
}

TEST_F(FunctionCallsTest, AUserDefinedFunctionIsNeverAnsweredFromTheCache) {
    CallsContext context;
    context.Set("add", QAnyValue(u"%1 + %2"));
    const FormulaText body("%1 + %2");
    context.RememberThisFormulaValueForNextTime(QAnyValue(99), body, QCS_Stable);
    Outcome outcome = Run("add(2, 3)", &context);
    EXPECT_EQ(outcome.result.MakeInt(), 5);
    outcome = Run("add(4, 4)", &context);
    EXPECT_EQ(outcome.result.MakeInt(), 8);
    QAnyValue kept;
    QCacheState state = QCS_Stable;
    EXPECT_FALSE(context.HeresAFormulaValueIPreparedEarlier(kept, state, body));
}

TEST_F(FunctionCallsTest, AUserDefinedFunctionRaisesTheCacheStateAndFailsWithItsBody) {
    CallsContext context;
    context.Set("scaled", QAnyValue(u"%1 * scale"));
    context.Set("scale", QAnyValue(3), QCS_BySeq);
    Outcome outcome = Run("scaled(2)", &context);
    EXPECT_EQ(outcome.result.MakeInt(), 6);
    EXPECT_EQ(outcome.state, QCS_BySeq);

    context.Set("bad", QAnyValue(u"%1 +"));
    outcome = Run("bad(1)", &context);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Error in calling function bad");
}

} // namespace
} // namespace keel
