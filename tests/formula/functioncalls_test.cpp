#include "tests/support/evaluations.h"
#include "tests/support/namescontext.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::Array;

// An application's own functions: "answer()", "twice(x)", "pair(a, b)", "triple(a, b, c)",
// "sum7(...)" with seven arguments, "refuse(x)" that fails, and "iserror(x)", which the library
// evaluates quietly.
class ApplicationEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;

    bool IsDerivedClassDefined(FullId name) override {
        for (const char* own : {"answer", "twice", "pair", "triple", "sum7", "refuse"})
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
    bool EvaluateTernaryFunctionDerived(QAnyValue& result, FullId, const QAnyValue& a1,
                                        const QAnyValue& a2, const QAnyValue& a3) override {
        ++c_calls;
        result = Array({a1, a2, a3});
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

using ApplicationFactory = test::EvaluatorFactoryOf<ApplicationEvaluator>;
using Outcome = test::Evaluation;

// The calls that need an application's evaluator or more of the evaluator's switches than
// tests/formula/cases/functioncalls.txt has.
class FunctionCallsTest : public testing::Test {
protected:
    void SetUp() override {
        TheErrorLog().DiscardPendingMessages();
        ApplicationEvaluator::c_calls = 0;
    }
    void TearDown() override {
        SetEvaluatorFactory(nullptr);
        TheErrorLog().DiscardPendingMessages();
    }

    static Outcome Run(const char* formula, QFormulaContext* context = nullptr,
                       bool passThrough = false, bool action = false) {
        return test::Evaluated(formula, context,
                               {.report = true, .action = action, .passThrough = passThrough});
    }
};

TEST_F(FunctionCallsTest, AnApplicationsFunctionGetsItsArgumentsInOrderAndGivesTheWholeResult) {
    ApplicationFactory factory;
    SetEvaluatorFactory(&factory);
    const Outcome unevaluated =
        test::Evaluated("twice(nosuchname) + answer()", nullptr, {.report = true, .eval = false});
    EXPECT_TRUE(unevaluated.ok && unevaluated.value.IsEmpty()) << unevaluated.message;
    EXPECT_EQ(ApplicationEvaluator::c_calls, 0) << "with evaluation off nothing is called";

    Outcome outcome = Run("pair(1 + 1, 3)");
    EXPECT_TRUE(outcome.value.Identical(Array({QAnyValue(2), QAnyValue(3)})));
    outcome = Run("triple(1, 2, 3)");
    EXPECT_TRUE(outcome.value.Identical(Array({QAnyValue(1), QAnyValue(2), QAnyValue(3)})));
    outcome = Run("sum7(1, 2, 3, 4, 5, 6, 7)");
    EXPECT_EQ(outcome.value.GetSize(), 7);
    EXPECT_EQ(outcome.value.GETAT(7).MakeInt(), 7);

    EXPECT_EQ(QEvaluator::EvaluateFormulaAsInt(FormulaText("answer() + twice(4)"), nullptr, false,
                                               true, false),
              50);

    const Outcome refused = Run("refuse(1) + 1");
    EXPECT_FALSE(refused.ok) << "its return is the call's success";
    EXPECT_EQ(refused.message, "Error in calling function refuse");
}

// An action evaluates without the context's caches, so that each look-up asks the context again.
TEST_F(FunctionCallsTest, ANameMissedWhenPassedThroughIsTheOneValuesReport) {
    test::NamesContext context;
    context.SetHiddenFromPassThrough("hidden", QAnyValue(u"%1"));
    Outcome outcome = Run("hidden(1)", &context, true, true);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Unknown function taking one values\n\thidden");
    outcome = Run("hidden(1, 2)", &context, true, true);
    EXPECT_EQ(outcome.message, "Unknown function taking two values\n\thidden");

    outcome = Run("hidden(5)", &context);
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.value.MakeInt(), 5);
}

TEST_F(FunctionCallsTest, AUserDefinedFunctionIsNeverAnsweredFromTheCache) {
    test::NamesContext context;
    context.Set("add", QAnyValue(u"%1 + %2"));
    const FormulaText body("%1 + %2");
    context.RememberThisFormulaValueForNextTime(QAnyValue(99), body, QCS_Stable);
    EXPECT_EQ(Run("add(2, 3)", &context).value.MakeInt(), 5);
}

} // namespace
} // namespace keel
