#include "tests/support/anyvalues.h"
#include "tests/support/functioncalls.h"

#include "keel/document/errorlog.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/platform/random.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>

namespace keel {
namespace {

using test::Array;
using test::MessageOf;
using Outcome = test::CallOutcome;

class FunctionsMathTest : public test::FunctionCallTest {
protected:
    // A number of the given type, within a rounding error of the expected one.
    struct NearCase {
        const char* formula;
        QAnyValue::TYPE type;
        double expected;
    };
    static void ExpectNear(std::initializer_list<NearCase> cases) {
        for (const NearCase& c : cases) {
            const Outcome outcome = Run(c.formula);
            EXPECT_TRUE(outcome.ok) << c.formula << ": " << outcome.message;
            EXPECT_EQ(outcome.result.Type(), c.type)
                << c.formula << ": " << test::DescribeValue(outcome.result);
            EXPECT_NEAR(QAnyValue(outcome.result).MakeDouble(), c.expected, 1e-9) << c.formula;
        }
    }
};

TEST_F(FunctionsMathTest, MagnitudeSignAndTruncation) {
    ExpectValues({
        {"abs(-3)", QAnyValue(3)},
        {"abs(-2 ft)", test::Mm(609.6)},
        {"abs(array(-1, 2))", Array({QAnyValue(1), QAnyValue(2)})},
        {"sign(-2.5)", QAnyValue(-1)},
        {"sgn(0)", QAnyValue(0)},
        {"sgn(3 mm)", QAnyValue(1)},
        {"trunc(2.7)", QAnyValue(2.0)},
        {"trunc(-2.7)", QAnyValue(-2.0)},
        {"trunc(\"3.5\")", QAnyValue(3.0)},
        {"abs(#N/A)", test::NA()},
    });
    ExpectErrors({
        {"abs(\"x\")", "Cannot ABS() value when not numeric"},
        {"sign(\"x\")", "Cannot SIGN() when not numeric"},
        {"sgn(cverr(\"passed\"))", "passed"},
        {"trunc(cverr(\"passed\"))", "passed"},
    });
    ExpectCountsTaken({{"abs", 1, 1}, {"sign", 1, 1}, {"sgn", 1, 1}, {"trunc", 1, 1}});
}

TEST_F(FunctionsMathTest, MultiplesDefaultToOne) {
    ExpectValues({
        {"ceiling(2.01)", QAnyValue(3)},
        {"ceiling(2.0000000001)", QAnyValue(2)},
        {"ceiling(7, 5)", QAnyValue(10)},
        {"ceiling(10 mm, 1 in)", test::Mm(25.4)},
        {"floor(1.99)", QAnyValue(1)},
        {"floor(1.9999999)", QAnyValue(2)},
        {"floor(7, 5)", QAnyValue(5)},
        {"mround(7.5)", QAnyValue(8)},
        {"mround(-7.5)", QAnyValue(-8)},
        {"mround(7, 5)", QAnyValue(5)},
        {"even(3)", QAnyValue(4)},
        {"even(4)", QAnyValue(4)},
        {"even(-3)", QAnyValue(-2)},
        {"odd(2)", QAnyValue(3)},
        {"odd(3)", QAnyValue(3)},
        {"odd(0)", QAnyValue(1)},
        {"odd(1.5)", QAnyValue(3)},
        {"odd(-2)", QAnyValue(-3)},
        {"odd(-1)", QAnyValue(-1)},
        {"floor(array(1.5, 2.5))", Array({QAnyValue(1), QAnyValue(2)})},
    });
    ExpectErrors({
        {"ceiling(1, 0)", "Cannot CEILING() due to division by zero"},
        {"floor(cverr(\"passed\"))", "passed"},
        {"mround(1, #err!)", "#ERR!"},
        {"even(cverr(\"passed\"))", "passed"},
        {"odd(cverr(\"passed\"))", "passed"},
        {"odd(\"x\")", "Could not evaluate formula\nx"},
    });
    ExpectCountsTaken(
        {{"ceiling", 1, 2}, {"floor", 1, 2}, {"mround", 1, 2}, {"even", 1, 1}, {"odd", 1, 1}});
}

TEST_F(FunctionsMathTest, PowersRootsAndQuotients) {
    ExpectValues({
        {"sqrt(16)", QAnyValue(4.0)},
        {"sqr(2.25)", QAnyValue(1.5)},
        {"sqrt(9 mm)", QAnyValue(3.0)},
        {"power(2, 10)", QAnyValue(1024)},
        {"power(2.5, 2)", QAnyValue(6.25)},
        {"mod(10, 3)", QAnyValue(1)},
        {"mod(10.5, 3)", QAnyValue(1)},
        {"mod(10, 3.5)", QAnyValue(3.0)},
        {"quotient(7.5, 2)", QAnyValue(3)},
        {"quotient(-7, 2)", QAnyValue(-3)},
        {"randbetween(4, 4)", QAnyValue(4)},
    });
    ExpectErrors({
        {"sqrt(-4)", "Cannot SQRT() due to result was not a number"},
        {"sqr(\"x\")", "Could not evaluate formula\nx"},
        {"mod(10, 0)", "Cannot MOD() due to result was not a number"},
        {"quotient(1, 0)", "Cannot DIV() due to division by zero"},
        {"power(cverr(\"passed\"), 2)", "passed"},
        {"randbetween(1, cverr(\"passed\"))", "passed"},
    });
    for (int i = 0; i < 100; ++i) {
        const Outcome outcome = Run("randbetween(1, 6)");
        ASSERT_TRUE(outcome.result.IsInt());
        const int value = QAnyValue(outcome.result).MakeInt();
        EXPECT_GE(value, 1);
        EXPECT_LE(value, 6);
    }
    ExpectCountsTaken({{"sqrt", 1, 1},
                       {"sqr", 1, 1},
                       {"power", 2, 2},
                       {"mod", 2, 2},
                       {"quotient", 2, 2},
                       {"randbetween", 2, 2}});
}

TEST_F(FunctionsMathTest, TrigonometryTakesAndGivesAngles) {
    ExpectNear({
        {"sin(90 deg)", QAnyValue::TYPE_DOUBLE, 1.0},
        {"sin(30)", QAnyValue::TYPE_DOUBLE, 0.5},
        {"cos(60 deg)", QAnyValue::TYPE_DOUBLE, 0.5},
        {"cos(3.141592653589793 rad)", QAnyValue::TYPE_DOUBLE, -1.0},
        {"tan(45 deg)", QAnyValue::TYPE_DOUBLE, 1.0},
        {"tan(-45)", QAnyValue::TYPE_DOUBLE, -1.0},
        {"asin(1)", QAnyValue::TYPE_ANGLE, 90.0},
        {"acos(0.5)", QAnyValue::TYPE_ANGLE, 60.0},
        {"atan(1)", QAnyValue::TYPE_ANGLE, 45.0},
        {"atn(-1)", QAnyValue::TYPE_ANGLE, -45.0},
        {"atan2(1, 1)", QAnyValue::TYPE_ANGLE, 45.0},
        {"atan2(1, -1)", QAnyValue::TYPE_ANGLE, 135.0},
        {"atan2(0, -1)", QAnyValue::TYPE_ANGLE, 180.0},
    });
    ExpectErrors({
        {"tan(90 deg)", "Cannot take tan of 90.00"},
        {"tan(270)", "Cannot take tan of 270.00"},
        {"asin(2)", "Cannot ASIN() due to result was not a number"},
        {"acos(-1.5)", "Cannot ACOS() due to result was not a number"},
        {"sin(\"x\")", "Could not evaluate formula\nx"},
        {"cos(cverr(\"passed\"))", "passed"},
        {"atan(cverr(\"passed\"))", "passed"},
        {"atan2(0, cverr(\"passed\"))", "passed"},
    });
    ExpectValues({{"sin(#N/A)", test::NA()}, {"atn(#N/A)", test::NA()}});
    ExpectCountsTaken({{"sin", 1, 1},
                       {"cos", 1, 1},
                       {"tan", 1, 1},
                       {"asin", 1, 1},
                       {"acos", 1, 1},
                       {"atan", 1, 1},
                       {"atn", 1, 1},
                       {"atan2", 2, 2}});
}

TEST_F(FunctionsMathTest, LengthsAreaAndColour) {
    ExpectValues({
        {"hypot(3, 4)", QAnyValue(5.0)},
        {"hypot(3 mm, 4 mm)", test::Mm(5)},
        {"hypot(3, 4 mm)", test::Mm(5)},
        {"area(2 m, 3 m)", QAnyValue(QArea::FromRaw(6.0))},
        {"area(1000, 500)", QAnyValue(QArea::FromRaw(0.5))},
        {"rgb(255, 0, 0)", QAnyValue(255)},
        {"rgb(0, 0, 1)", QAnyValue(65536)},
        {"rgb(1, 2, 3)", QAnyValue(0x030201)},
        {"rgb(256, 1, 0)", QAnyValue(256)},
    });
    ExpectErrors({
        {"hypot(\"x\", 1)", "Could not evaluate formula\nx"},
        {"area(1 m, cverr(\"passed\"))", "passed"},
        {"rgb(1, 2, cverr(\"passed\"))", "passed"},
    });
    ExpectCountsTaken({{"hypot", 2, 2}, {"area", 2, 2}, {"rgb", 3, 3}});
}

TEST_F(FunctionsMathTest, BetweenTakesItsLimitsByMode) {
    const QAnyValue yes(true);
    const QAnyValue no(false);
    ExpectValues({
        {"between(2, 1, 3)", yes},
        {"between(3, 1, 3)", yes},
        {"between(1, 1, 3)", no},
        {"between(4, 1, 3)", no},
        {"between(1, 1, 3, 0)", no},
        {"between(3, 1, 3, 0)", no},
        {"between(2, 1, 3, 0)", yes},
        {"between(1, 1, 3, 1)", no},
        {"between(3, 1, 3, 1)", yes},
        {"between(1, 1, 3, 2)", yes},
        {"between(3, 1, 3, 2)", no},
        {"between(1, 1, 3, 3)", yes},
        {"between(3, 1, 3, 3)", yes},
        {"between(1, 1, 3, 7)", no},
        {"between(3, 1, 3, -1)", yes},
        {"between(\"b\", \"a\", \"c\")", yes},
        {"between(1 ft, 1 mm, 1 m)", yes},
        {"between(#N/A, 1, 2)", test::NA()},
    });
    ExpectErrors({{"between(2, 1, 3, cverr(\"passed\"))", "passed"}});
    ExpectCountsTaken({{"between", 3, 4}});
}

} // namespace
} // namespace keel
