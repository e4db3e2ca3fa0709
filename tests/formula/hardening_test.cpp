#include "tests/support/evaluations.h"
#include "tests/support/formulavalues.h"
#include "tests/support/functioncalls.h"
#include "tests/support/namescontext.h"

#include "keel/formula/evaluator.h"
#include "keel/values/formulahook.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace keel {
namespace {

using test::CallOutcome;
using test::DescribeValue;
using test::MessageOf;

std::string Repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

// `open` repeated, then the core, then `close` repeated, as deep as asked.
std::string Nested(const std::string& open, const std::string& core, const std::string& close,
                   int depth) {
    return Repeated(open, depth) + core + Repeated(close, depth);
}

using Hardening = test::FunctionCallTest;

struct DeepCase {
    const char* what;
    std::string formula;
};

TEST_F(Hardening, FormulasNestedBeyondTheStackFailWithAMessageAndLeaveNoLevelBehind) {
    const DeepCase cases[] = {
        {"parentheses", Nested("(", "1", ")", 4000)},
        {"calls", Nested("abs(", "1", ")", 3000)},
        {"array literals", Nested("[", "1", "]", 10000)},
        {"braces", Nested("{", "1", "}", 5000)},
        {"subscripts", "x" + Nested("(", "1", ")", 3000)},
        {"minus signs", Repeated("-", 20000) + "1"},
        {"not", Repeated("not ", 6000) + "1"},
        {"conditionals", Repeated("1 ? ", 3000) + "1" + Repeated(" : 2", 3000)},
        {"where", "1" + Repeated(" where 1", 3000)},
        {"of", "a" + Repeated(" of a", 5000)},
        {"if statements", Nested("if 1 then ", "1", " endif", 1000)},
        {"iff conditions", Nested("iff(", "1", ", 1, 1)", 2000)},
    };
    for (const DeepCase& c : cases) {
        for (const bool evaluating : {true, false}) {
            const test::Evaluation outcome =
                test::Evaluated(c.formula, nullptr, {.report = true, .eval = evaluating});
            EXPECT_FALSE(outcome.ok) << c.what;
            EXPECT_EQ(outcome.message, "Formula nested too deeply") << c.what;
            EXPECT_EQ(MessageOf(outcome.value), "Formula nested too deeply") << c.what;
            EXPECT_EQ(QEvaluator::NestingDepth(), 0) << c.what;
        }
    }
}

// The formula's statement and conditional take two levels, and each parenthesis two more.
TEST_F(Hardening, TheLimitFallsBetweenTheDeepestParenthesesThatFitAndOneMore) {
    const int deepest = (QEvaluator::c_maxNestingDepth - 2) / 2;
    ExpectValues({{Nested("(", "7", ")", deepest).c_str(), QAnyValue(7)}});
    const CallOutcome beyond = Run(Nested("(", "7", ")", deepest + 1));
    EXPECT_FALSE(beyond.ok);
    EXPECT_EQ(beyond.message, "Formula nested too deeply");
}

constexpr const char* c_sumTo = "function(n) if n <= 0 then 0 else n + f(n - 1) endif end function";

TEST_F(Hardening, AUserFunctionRecursesUpToTheLimitAndBeyondItGivesAnErrorValue) {
    test::NamesContext context;
    context.Set("f", QAnyValue(CString::FromUtf8(c_sumTo)));
    const int deepest = QEvaluator::c_maxRoutineDepth - 1; // f(n) runs n + 1 calls
    ExpectValues(
        {{("f(" + std::to_string(deepest) + ")").c_str(), QAnyValue(deepest * (deepest + 1) / 2)}},
        &context);

    for (const int n : {deepest + 1, 2000}) {
        const CallOutcome outcome = Run("f(" + std::to_string(n) + ")", &context);
        EXPECT_TRUE(outcome.ok) << n << ": " << outcome.message;
        EXPECT_EQ(MessageOf(outcome.result),
                  std::string("Stack depth exceeded, formula looping calling function [f]:\n") +
                      c_sumTo)
            << n;
        EXPECT_EQ(QEvaluator::RoutineDepth(), 0);
    }
}

TEST_F(Hardening, ASubroutineCallingItselfStopsAtTheLimit) {
    test::NamesContext context;
    context.Set("s", QAnyValue(CString(u"sub(n) s(n + 1) end sub")));
    const CallOutcome outcome = Run("s(1)", &context);
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_TRUE(outcome.result.IsEmpty()) << DescribeValue(outcome.result);
    EXPECT_EQ(QEvaluator::RoutineDepth(), 0);
}

TEST_F(Hardening, AFileThatCallsItselfGivesAnErrorValue) {
    const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                       ("keel-calls-itself-" + std::to_string(::getpid()) + ".txt");
    const std::string call = "call(\"" + path.string() + "\")";
    std::ofstream(path) << "1 + " << call;
    const CallOutcome outcome = Run(call);
    std::filesystem::remove(path);
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(MessageOf(outcome.result),
              "Stack depth exceeded, formula looping calling file [" + path.string() + "]");
    EXPECT_EQ(QEvaluator::RoutineDepth(), 0);
}

TEST_F(Hardening, ANumberTooLargeForAWholeNumberIsANumberAndInfiniteBeyondADouble) {
    const double infinity = HUGE_VAL;
    ExpectValues({
        {("1" + Repeated("0", 300)).c_str(), QAnyValue(1e300)},
        {Repeated("9", 309).c_str(), QAnyValue(infinity)},
        {("1" + Repeated("0", 400) + ".5").c_str(), QAnyValue(infinity)},
        {("0." + Repeated("0", 400) + "1").c_str(), QAnyValue(0.0)},
    });
}

struct LoopRead {
    const char* name;
    const char* message;
};

// Each value of a loop says it is recursive, with its own formula, whichever is read first, and
// says it again on the next read; a value outside the loop that reads it gives the report of the
// value it read.
TEST_F(Hardening, EveryValueOfALoopIsARecursiveFormulaInAnyOrder) {
    const LoopRead a{"alpha", "Recursive formula\n\tbeta\nin\n\tSheet"};
    const LoopRead b{"beta", "Recursive formula\n\talpha\nin\n\tSheet"};
    const LoopRead c{"gamma", "Recursive formula\n\tbeta\nin\n\tSheet"};
    const std::vector<std::vector<LoopRead>> orders{{a, b, a, b}, {b, a, b, a}, {c, a, b, c}};
    for (const auto& order : orders) {
        test::FormulaValuesRoot root;
        root.Set("alpha", "beta");
        root.Set("beta", "alpha");
        root.Set("gamma", "alpha + 1");
        for (const LoopRead& read : order) {
            const CallOutcome outcome = Run(read.name, &root);
            EXPECT_FALSE(outcome.ok) << read.name;
            EXPECT_EQ(outcome.message, read.message) << "reading " << read.name;
        }
    }
}

TEST_F(Hardening, ALengthTakesAFormulasValueOrStaysAsItWas) {
    struct Case {
        const char* formula;
        bool taken;
        double mm;
    };
    const Case cases[] = {
        {"2 ft + 3 in", true, 685.8}, {"250", true, 250},
        {"1 m / 4", true, 250},       {"1 +", false, 5},
        {"#N/A", false, 5},           {"1 / 0", false, 5},
        {"#empty", false, 5},
    };
    QLength::SetDefaultUnits(QLength::LU_MM);
    for (const Case& c : cases) {
        QLength length(5, QLength::LU_MM);
        EXPECT_EQ(length.SetFromFormula(FormulaText(c.formula)), c.taken) << c.formula;
        EXPECT_NEAR(length.AsDouble(QLength::LU_MM), c.mm, 1e-9) << c.formula;
    }
}

} // namespace
} // namespace keel
