#include "tests/support/anyvalues.h"
#include "tests/support/samevalue.h"
#include "tests/support/valuesettings.h"

#include "keel/platform/exceptions.h"
#include "keel/platform/fpstatus.h"
#include "keel/platform/muldiv.h"
#include "keel/platform/random.h"
#include "keel/values/anyvalue.h"
#include "keel/values/formulahook.h"
#include "keel/values/ratevalue.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace keel {

namespace {

using test::Array;
using test::Describe;
using test::Error;
using test::MessageOf;
using test::Mm;
using test::NA;
using test::Same;

using V = QAnyValue;
using Binary = QAnyValue& (QAnyValue::*)(const QAnyValue&);
using Unary = QAnyValue& (QAnyValue::*)();
using Action = std::function<void(QAnyValue&)>;

constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr int kIntMax = std::numeric_limits<int>::max();

V Text(const char* text) {
    return V(CString(text));
}

V Dollars(double value) {
    return V(QMoney(value, QMoney::MU_DOLLARS));
}

// Millimetres, square and cubic metres, degrees, dollars and hours, and a fake evaluator that
// reads numbers and can throw.
class AnyValueFunctionsTest : public ::testing::Test {
    test::ScopedValueSettings m_settings;
};

struct BinaryCase {
    const char* label;
    Binary member;
    V value;
    V argument;
    V expected;
};

void ExpectBinaryCases(const std::vector<BinaryCase>& cases) {
    for (const BinaryCase& c : cases) {
        SCOPED_TRACE(c.label);
        V value = c.value;
        EXPECT_TRUE(Same((value.*c.member)(c.argument), c.expected));
        EXPECT_TRUE(Same(value, c.expected)) << "the receiver is the result";
    }
}

struct UnaryCase {
    const char* label;
    Unary member;
    V value;
    V expected;
};

void ExpectUnaryCases(const std::vector<UnaryCase>& cases) {
    for (const UnaryCase& c : cases) {
        SCOPED_TRACE(c.label);
        V value = c.value;
        EXPECT_TRUE(Same((value.*c.member)(), c.expected));
        EXPECT_TRUE(Same(value, c.expected)) << "the receiver is the result";
    }
}

struct ActionCase {
    const char* label;
    Action action;
    V value;
    V expected;
};

void ExpectActionCases(const std::vector<ActionCase>& cases) {
    for (const ActionCase& c : cases) {
        SCOPED_TRACE(c.label);
        V value = c.value;
        c.action(value);
        EXPECT_TRUE(Same(value, c.expected));
    }
}

// A zero divisor or a result beyond 32 bits gives -1.
TEST(MulDivTest, RoundsTheWideQuotientHalfAwayFromZero) {
    struct Case {
        int number;
        int numerator;
        int denominator;
        int expected;
    };
    const Case cases[] = {
        {7, 1, 3, 2},
        {8, 1, 3, 3},
        {5, 1, 2, 3},
        {-5, 1, 2, -3},
        {-5, -1, 2, 3},
        {kIntMax, kIntMax, kIntMax, kIntMax},
        {kIntMin, 2, 2, kIntMin},
        {5, 7, 0, -1},
        {kIntMax, 2, 1, -1},
        {kIntMin, 1, -1, -1},
        {kIntMin, -1, 2, 1073741824},
    };
    for (const Case& c : cases)
        EXPECT_EQ(MulDiv(c.number, c.numerator, c.denominator), c.expected)
            << c.number << " * " << c.numerator << " / " << c.denominator;
}

TEST_F(AnyValueFunctionsTest, DivModCeilingFloorMroundAndPowKeepTheirTypesAndNameTheirFailures) {
    ExpectBinaryCases({
        {"DIV 7.5 by 2", &V::DIVit, V(7.5), V(2), V(3)},
        {"DIV lengths", &V::DIVit, Mm(1000), Mm(300), V(3)},
        {"DIV beyond 32 bits saturates", &V::DIVit, V(1e20), V(1), V(kIntMax)},
        {"DIV by zero", &V::DIVit, V(7), V(0), Error("Cannot DIV() due to division by zero")},
        {"DIV zero by zero", &V::DIVit, V(0), V(0.0),
         Error("Cannot DIV() due to result was not a number")},
        {"MOD whole numbers", &V::MODit, V(10), V(3), V(1)},
        {"MOD whole divisor cuts the remainder", &V::MODit, V(10.5), V(3), V(1)},
        {"MOD sign of the dividend", &V::MODit, V(-7), V(3), V(-1)},
        {"MOD lengths", &V::MODit, Mm(1000), Mm(300), Mm(100)},
        {"MOD string divisor", &V::MODit, V(10), Text("3"), Text("1")},
        {"MOD by zero", &V::MODit, V(10), V(0),
         Error("Cannot MOD() due to result was not a number")},
        {"CEILING inside the nudge", &V::CEILINGit, V(2.0000009), V(1.0), V(2.0)},
        {"CEILING beyond the nudge", &V::CEILINGit, V(2.0000011), V(1.0), V(3.0)},
        {"CEILING negative exact multiple moves toward zero", &V::CEILINGit, V(-2.0), V(1.0),
         V(-1.0)},
        {"CEILING negative multiple", &V::CEILINGit, V(7.0), V(-2.0), V(6.0)},
        {"CEILING length multiple", &V::CEILINGit, Mm(10), V(QLength(1, QLength::LU_INCH)),
         Mm(25.4)},
        {"CEILING by zero", &V::CEILINGit, V(5.0), V(0.0),
         Error("Cannot CEILING() due to division by zero")},
        {"FLOOR inside the nudge", &V::FLOORit, V(1.9999995), V(1.0), V(2.0)},
        {"FLOOR beyond the nudge", &V::FLOORit, V(1.9999985), V(1.0), V(1.0)},
        {"FLOOR negative exact multiple moves away from zero", &V::FLOORit, V(-2.0), V(1.0),
         V(-3.0)},
        {"FLOOR whole negative multiple", &V::FLOORit, V(7), V(-2), V(8)},
        {"FLOOR by zero", &V::FLOORit, V(5), V(0), Error("Cannot FLOOR() due to division by zero")},
        {"MROUND half up", &V::MROUNDit, V(2.5), V(1.0), V(3.0)},
        {"MROUND negative half", &V::MROUNDit, V(-2.5), V(1.0), V(-3.0)},
        {"MROUND lengths", &V::MROUNDit, Mm(1234), Mm(100), Mm(1200)},
        {"MROUND money by a number", &V::MROUNDit, Dollars(7.3), V(0.5), V(7.5)},
        {"POW whole base", &V::POWit, V(2), V(10), V(1024)},
        {"POW whole base, fractional result", &V::POWit, V(2), V(-1), V(0)},
        {"POW length base", &V::POWit, Mm(3), V(2), Mm(9)},
        {"POW zero to a negative power", &V::POWit, V(0.0), V(-1.0),
         Error("Cannot POW() due to division by zero")},
        {"POW negative to a fraction", &V::POWit, V(-8.0), V(1.0 / 3),
         Error("Cannot POW() due to result was not a number")},
        {"POW overflow", &V::POWit, V(10.0), V(400.0),
         Error("Cannot POW() due to result was too big")},
    });
}

TEST_F(AnyValueFunctionsTest, AZeroResultCarriesNoSign) {
    const V ceiling = V(0.0).CEILING(V(1.0));
    const V floor = V(-0.0).FLOOR(V(1.0));
    const V mod = V(-6.0).MOD(V(3.0));
    const V trunc = V(-0.5).TRUNC();
    for (const V* value : {&ceiling, &floor, &mod, &trunc}) {
        ASSERT_TRUE(value->IsDouble()) << Describe(*value);
        EXPECT_FALSE(std::signbit(V(*value).MakeDouble())) << Describe(*value);
    }
}

TEST_F(AnyValueFunctionsTest, AFaultLeavesNoPendingStatusBehind) {
    ClearFPStatus();
    V(7).DIV(V(0));
    V(-1.0).SQRT();
    V(10.0).POW(V(400.0));
    EXPECT_EQ(ReadFPStatus() & (SW_OVERFLOW | SW_ZERODIVIDE | SW_INVALID), 0u);
}

TEST_F(AnyValueFunctionsTest, FailuresInsideTheGuardNameTheMemberAndNoNumberGivesItsOwn) {
    const V boomRate(QRateValue(Text("boom"), V(1)));
    const V silentRate(QRateValue(Text("silent"), V(1)));
    ASSERT_TRUE(boomRate.IsRate());
    ExpectBinaryCases({
        {"DIV", &V::DIVit, Text("boom"), V(2), Error("Cannot DIV() due to evaluator broke")},
        {"POW", &V::POWit, Text("boom"), V(2), Error("Cannot POW() due to evaluator broke")},
        {"DIV, no message", &V::DIVit, Text("silent"), V(2), Error("Cannot DIV(), unknown error")},
        {"CEILING, no message", &V::CEILINGit, V(2), Text("silent"),
         Error("Cannot CEILING(), unknown error")},
        {"DIV both", &V::DIVit, Text("abc"), Text("xyz"), Error("Could not evaluate formula\nabc")},
        {"POW not-available text", &V::POWit, V(2), Text("#N/A"), NA()},
    });
    ExpectUnaryCases({
        {"SQRT", &V::SQRTit, boomRate, Error("Cannot SQRT() due to evaluator broke")},
        {"SQRT, no message", &V::SQRTit, silentRate, Error("Cannot SQRT(), unknown error")},
    });
}

TEST_F(AnyValueFunctionsTest, RandBetweenFollowsTheSeededGenerator) {
    // rand() after srand(1) gives 41, 18467, 6334: 1 + 41*5/32767 rounds to 1,
    // 1 + 18467*5/32767 (2.82) to 4, 1 + 6334*5/32767 (0.97) to 2.
    keel::srand(1);
    EXPECT_TRUE(Same(V(1).RANDBETWEEN(V(6)), V(1)));
    EXPECT_TRUE(Same(V(1).RANDBETWEEN(V(6)), V(4)));
    EXPECT_TRUE(Same(V(1).RANDBETWEEN(V(6)), V(2)));

    // 10 - 41*10/32767 (0.01) rounds to 10, 10 - 18467*10/32767 (5.64) to 4.
    keel::srand(1);
    EXPECT_TRUE(Same(V(10).RANDBETWEEN(V(0)), V(10)));
    EXPECT_TRUE(Same(V(10).RANDBETWEEN(V(0)), V(4)));

    keel::srand(1);
    EXPECT_TRUE(Same(Text("1").RANDBETWEEN(V(6.9)), V(1))) << "both read as whole numbers";
    EXPECT_TRUE(Same(V(1.5).RANDBETWEEN(V(6)), V(4)));
}

TEST_F(AnyValueFunctionsTest, ErrorsAndNotAvailableFlowThroughEveryBinaryMember) {
    const struct {
        const char* name;
        Binary member;
    } members[] = {
        {"DIV", &V::DIVit},     {"MOD", &V::MODit},       {"CEILING", &V::CEILINGit},
        {"FLOOR", &V::FLOORit}, {"MROUND", &V::MROUNDit}, {"RANDBETWEEN", &V::RANDBETWEENit},
        {"POW", &V::POWit},     {"AND", &V::ANDit},       {"OR", &V::ORit},
        {"XOR", &V::XORit},     {"EQV", &V::EQVit},       {"IMP", &V::IMPit},
        {"MIN", &V::MINit},     {"MAX", &V::MAXit},       {"CONCAT", &V::CONCATit},
        {"JOIN", &V::JOINit},
    };
    const struct {
        const char* label;
        V value;
        V argument;
        V expected;
    } situations[] = {
        {"error receiver", Error("left"), V(5), Error("left")},
        {"N/A receiver", NA(), V(5), NA()},
        {"error argument", V(5), Error("right"), Error("right")},
        {"N/A argument", V(5), NA(), NA()},
        {"both errors: the receiver's wins", Error("left"), Error("right"), Error("left")},
        {"N/A receiver before an error argument", NA(), Error("right"), NA()},
        {"an error argument replaces a whole array", Array({V(1), V(2)}), Error("right"),
         Error("right")},
    };
    for (const auto& member : members) {
        for (const auto& situation : situations) {
            SCOPED_TRACE(std::string(member.name) + ": " + situation.label);
            V value = situation.value;
            (value.*member.member)(situation.argument);
            EXPECT_TRUE(Same(value, situation.expected));
        }
    }
}

// Members of one value leave an error and N/A as they are; the members of arrays leave an empty
// value too, and the folding members anything that is not an array. A few of each kind show it.
TEST_F(AnyValueFunctionsTest, MembersOfOneValueLeaveWhatTheyDoNotWorkOnAlone) {
    const std::vector<V> states = {Error("kept"), NA()};
    const std::vector<V> statesAndEmpty = {Error("kept"), NA(), V()};
    const std::vector<V> notArrays = {Error("kept"), NA(), V(), V(5), Text("x")};
    const struct {
        const char* name;
        Action action;
        const std::vector<V>& untouched;
    } members[] = {
        {"ABS", [](V& v) { v.ABSit(); }, states},
        {"DOLLAR", [](V& v) { v.DOLLARit(2, false); }, states},
        {"LOWERNOCVT", [](V& v) { v.LOWERNOCVTit(); }, states},
        {"SUMOVER", [](V& v) { v.SUMOVERit(); }, notArrays},
        {"AVERAGEOVER", [](V& v) { v.AVERAGEOVERit(); }, notArrays},
        {"CONCATENATEOVER", [](V& v) { v.CONCATENATEOVERit(); }, notArrays},
        {"GETSIZE", [](V& v) { v.GETSIZEit(); }, statesAndEmpty},
        {"SETARRAYVALUE", [](V& v) { v.SETARRAYVALUEit(1, V(5)); }, statesAndEmpty},
        {"MIDDLE", [](V& v) { v.MIDDLEit(1, 1); }, statesAndEmpty},
        {"UNIQ", [](V& v) { v.UNIQit(); }, statesAndEmpty},
    };
    for (const auto& member : members) {
        for (const V& original : member.untouched) {
            SCOPED_TRACE(std::string(member.name) + " of " + Describe(original));
            V value = original;
            member.action(value);
            EXPECT_TRUE(Same(value, original));
        }
    }
}

TEST_F(AnyValueFunctionsTest, ArraysGoPositionByPosition) {
    ExpectBinaryCases({
        {"DIV an array by a scalar", &V::DIVit, Array({V(7), V(9)}), V(2), Array({V(3), V(4)})},
        {"MOD a scalar by an array", &V::MODit, V(10), Array({V(3), V(4)}), Array({V(1), V(2)})},
        {"the shorter repeats its last element", &V::POWit, Array({V(1.0), V(2.0)}),
         Array({V(1), V(2), V(3)}), Array({V(1.0), V(4.0), V(8.0)})},
        {"an element error stays in its place", &V::MODit, Array({V(10), Error("bad")}), V(3),
         Array({V(1), Error("bad")})},
        {"an empty array has no work", &V::MODit, Array({}), V(3), Array({})},
    });
    ExpectUnaryCases({
        {"ABS", &V::ABSit, Array({V(-1), V(2.5), Error("bad")}),
         Array({V(1), V(2.5), Error("bad")})},
        {"nested", &V::SIGNit, Array({Array({V(-3), V(0)}), V(4.0)}),
         Array({Array({V(-1), V(0)}), V(1)})},
    });
    ExpectActionCases({{"LENGTH", [](V& v) { v.LENGTHit(0, false); }, Array({V(1), Text("abc")}),
                        Array({Mm(1), Error("Cannot LENGTH() when not numeric")})}});
}

TEST_F(AnyValueFunctionsTest, AbsSignSqrtAndTruncKeepOrMakeTheirTypes) {
    const V negativeRate(QRateValue(Dollars(-10), Mm(1000)));
    const V positiveRate(QRateValue(Dollars(10), Mm(1000)));
    ASSERT_TRUE(negativeRate.IsRate());
    const V rate(QRateValue(Dollars(2.75), Mm(1000)));
    const V truncatedRate(QRateValue(Dollars(2), Mm(1000)));
    ExpectUnaryCases({
        {"ABS whole number", &V::ABSit, V(-3), V(3)},
        {"ABS length", &V::ABSit, Mm(-5), Mm(5)},
        {"ABS rate", &V::ABSit, negativeRate, positiveRate},
        {"ABS string", &V::ABSit, Text("-3"), Error("Cannot ABS() value when not numeric")},
        {"SIGN negative whole", &V::SIGNit, V(-3), V(-1)},
        {"SIGN zero", &V::SIGNit, V(0.0), V(0)},
        {"SIGN positive number", &V::SIGNit, V(2.5), V(1)},
        {"SIGN tiny negative length", &V::SIGNit, Mm(-0.001), V(-1)},
        {"SIGN string", &V::SIGNit, Text("x"), Error("Cannot SIGN() when not numeric")},
        {"SQRT whole number", &V::SQRTit, V(9), V(3.0)},
        {"SQRT area in its default unit", &V::SQRTit, V(QArea(4, QArea::AU_SQM)), V(2.0)},
        {"SQRT negative", &V::SQRTit, V(-1.0),
         Error("Cannot SQRT() due to result was not a number")},
        {"SQRT string", &V::SQRTit, Text("9"), Error("Cannot SQRT() when not numeric")},
        {"TRUNC negative number", &V::TRUNCit, V(-2.9), V(-2.0)},
        {"TRUNC numeric string", &V::TRUNCit, Text("2.9"), V(2.0)},
        {"TRUNC length in mm", &V::TRUNCit, Mm(2.7), Mm(2)},
        {"TRUNC rate cuts its numerator", &V::TRUNCit, rate, truncatedRate},
        {"TRUNC empty", &V::TRUNCit, V(), Error("Cannot TRUNC() when not numeric")},
        {"TRUNC not a formula", &V::TRUNCit, Text("abc"), Error("Could not evaluate formula\nabc")},
        {"LOWERNOCVT lower", &V::LOWERNOCVTit, Text("MiXed"), Text("mixed")},
        {"UPPERNOCVT upper", &V::UPPERNOCVTit, Text("MiXed"), Text("MIXED")},
        {"UPPERNOCVT a length stays", &V::UPPERNOCVTit, Mm(5), Mm(5)},
        {"LOWERNOCVT arrays by element", &V::LOWERNOCVTit, Array({Text("A"), V(5)}),
         Array({Text("a"), V(5)})},
    });
}

TEST_F(AnyValueFunctionsTest, ConversionsAndArrayMembersByPositionCountFromOneAndCutToWhatExists) {
    const V tens = Array({V(10), V(20), V(30)});
    const V three = Array({V(1), V(2), V(3)});
    const V four = Array({V(1), V(2), V(3), V(4)});
    const V pair = Array({V(2), V(3)});
    ExpectActionCases({
        {"DOLLAR of a number", [](V& v) { v.DOLLARit(2, false); }, V(2.5), Dollars(2.5)},
        {"DOLLAR without unit", [](V& v) { v.DOLLARit(2, true); }, Dollars(2), V(2.0)},
        {"DOLLAR of an empty value", [](V& v) { v.DOLLARit(0, false); }, V(), Dollars(0)},
        {"DOLLAR of a word", [](V& v) { v.DOLLARit(2, false); }, Text("abc"),
         Error("Cannot DOLLAR() when not numeric")},
        {"LENGTH of a number", [](V& v) { v.LENGTHit(0, false); }, V(12.5), Mm(12.5)},
        {"LENGTH without unit", [](V& v) { v.LENGTHit(0, true); }, V(QLength(1, QLength::LU_METRE)),
         V(1000.0)},
        {"LENGTH of a word", [](V& v) { v.LENGTHit(0, false); }, Text("abc"),
         Error("Cannot LENGTH() when not numeric")},
        {"GETSIZE size", [](V& v) { v.GETSIZEit(); }, tens, V(3)},
        {"GETSIZE size of an empty array", [](V& v) { v.GETSIZEit(); }, Array({}), V(0)},
        {"GETAT first", [](V& v) { v.GETATit(1); }, tens, V(10)},
        {"GETAT last", [](V& v) { v.GETATit(3); }, tens, V(30)},
        {"GETAT below", [](V& v) { v.GETATit(0); }, tens,
         Error("Array subscript out of bounds [0] but should be in range [1 to 3]")},
        {"GETAT above", [](V& v) { v.GETATit(4); }, tens,
         Error("Array subscript out of bounds [4] but should be in range [1 to 3]")},
        {"SETARRAYVALUE inside", [](V& v) { v.SETARRAYVALUEit(2, Text("x")); }, three,
         Array({V(1), Text("x"), V(3)})},
        {"SETARRAYVALUE a scalar becomes an array", [](V& v) { v.SETARRAYVALUEit(1, V(6)); }, V(5),
         Array({V(6)})},
        {"SETARRAYVALUE past the end", [](V& v) { v.SETARRAYVALUEit(4, V(9)); }, three,
         Error("Array subscript out of bounds [4] but should be in range [1 to 3]")},
        {"SETARRAYVALUE the array itself", [](V& v) { v.SETARRAYVALUEit(1, v); },
         Array({V(1), V(2)}), Array({Array({V(1), V(2)}), V(2)})},
        {"APPENDITEM an array as one element", [&](V& v) { v.APPENDITEMit(pair); }, Array({V(1)}),
         Array({V(1), pair})},
        {"MIDDLE inside", [](V& v) { v.MIDDLEit(2, 2); }, four, Array({V(2), V(3)})},
        {"MIDDLE from 0 takes one", [](V& v) { v.MIDDLEit(0, 2); }, three, Array({V(1)})},
        {"MIDDLE from -1, nothing left", [](V& v) { v.MIDDLEit(-1, 2); }, four, Array({})},
        {"MIDDLE past the end", [](V& v) { v.MIDDLEit(3, 10); }, four, Array({V(3), V(4)})},
        {"MIDDLE at the extremes", [](V& v) { v.MIDDLEit(kIntMin, kIntMax); }, four, Array({})},
        {"FIRST", [](V& v) { v.FIRSTit(2); }, three, Array({V(1), V(2)})},
        {"FIRST more than there are", [](V& v) { v.FIRSTit(5); }, three, three},
        {"LAST", [](V& v) { v.LASTit(2); }, three, Array({V(2), V(3)})},
        {"LAST of the smallest count", [](V& v) { v.LASTit(kIntMin); }, three, Array({})},
        {"LAST of the largest count", [](V& v) { v.LASTit(kIntMax); }, three, three},
    });
    V value = Array({V(1)});
    value.APPENDITEMit(value);
    EXPECT_TRUE(Same(value, Array({V(1), Array({V(1)})})));
}

TEST_F(AnyValueFunctionsTest, LogicMembersFollowTheirTruthTables) {
    const struct {
        const char* name;
        Binary member;
        bool tt, tf, ft, ff;
    } members[] = {
        {"AND", &V::ANDit, true, false, false, false}, {"OR", &V::ORit, true, true, true, false},
        {"XOR", &V::XORit, false, true, true, false},  {"EQV", &V::EQVit, true, false, false, true},
        {"IMP", &V::IMPit, true, false, true, true},
    };
    for (const auto& m : members) {
        SCOPED_TRACE(m.name);
        ExpectBinaryCases({
            {"true, true", m.member, V(true), V(true), V(m.tt)},
            {"true, false", m.member, V(true), V(false), V(m.tf)},
            {"false, true", m.member, V(false), V(true), V(m.ft)},
            {"false, false", m.member, V(false), V(false), V(m.ff)},
        });
    }
}

TEST_F(AnyValueFunctionsTest, LogicMinMaxJoinAndConcatOfTwoValues) {
    ExpectBinaryCases({
        {"AND numbers", &V::ANDit, V(1), V(2.5), V(true)},
        {"AND a word that is no truth", &V::ANDit, Text("maybe"), V(true),
         Error("Could not evaluate formula\nmaybe")},
        {"MIN takes the smaller", &V::MINit, V(3), V(2.5), V(2.5)},
        {"MIN keeps the receiver on a tie", &V::MINit, V(2), V(2.0), V(2)},
        {"MAX keeps the larger", &V::MAXit, V(3), V(2.5), V(3)},
        {"MIN cannot compare", &V::MINit, Mm(1), Dollars(1), Error("Cannot compare in MIN()")},
        {"MAX cannot compare", &V::MAXit, Mm(1), Dollars(1), Error("Cannot compare in MAX()")},
        {"JOIN arrays", &V::JOINit, Array({V(1)}), Array({V(2), V(3)}), Array({V(1), V(2), V(3)})},
        {"JOIN scalars", &V::JOINit, V(1), V(2), Array({V(1), V(2)})},
        {"JOIN an empty receiver takes the argument", &V::JOINit, V(), V(5), V(5)},
        {"JOIN an empty argument is an element", &V::JOINit, Array({V(1)}), V(),
         Array({V(1), V()})},
        {"CONCAT text and number", &V::CONCATit, Text("a"), V(1), Text("a1")},
        {"CONCAT an empty value is no text", &V::CONCATit, V(), Text("x"), Text("x")},
        {"CONCAT a boolean", &V::CONCATit, Text("is "), V(true), Text("is Yes")},
    });
}

TEST_F(AnyValueFunctionsTest, FoldingStartsFromTheFirstElementAndReverseSortAndUniq) {
    ExpectUnaryCases({
        {"SUMOVER", &V::SUMOVERit, Array({V(1), V(2), V(3)}), V(6)},
        {"SUMOVER of units", &V::SUMOVERit, Array({Mm(1), V(2)}), Mm(3)},
        {"SUMOVER stops at an error", &V::SUMOVERit, Array({V(1), Error("bad"), V(3)}),
         Error("bad")},
        {"AVERAGEOVER", &V::AVERAGEOVERit, Array({V(1), V(2)}), V(1.5)},
        {"MINOVER", &V::MINOVERit, Array({V(3), V(1), V(2)}), V(1)},
        {"MAXOVER", &V::MAXOVERit, Array({V(3), V(1), V(2)}), V(3)},
        {"ANDOVER false", &V::ANDOVERit, Array({V(true), V(false), V(true)}), V(false)},
        {"OROVER true", &V::OROVERit, Array({V(false), V(true)}), V(true)},
        {"CONCATENATEOVER", &V::CONCATENATEOVERit, Array({Text("a"), V(1), Text("b")}),
         Text("a1b")},
        {"SUMOVER", &V::SUMOVERit, Array({}), V(0)},
        {"AVERAGEOVER", &V::AVERAGEOVERit, Array({}), V()},
        {"MINOVER", &V::MINOVERit, Array({}), V()},
        {"MAXOVER", &V::MAXOVERit, Array({}), V()},
        {"ANDOVER", &V::ANDOVERit, Array({}), V(true)},
        {"OROVER", &V::OROVERit, Array({}), V(false)},
        {"CONCATENATEOVER", &V::CONCATENATEOVERit, Array({}), Text("")},
        {"REVERSE", &V::REVERSEit, Array({V(1), Text("a"), V(2.5)}),
         Array({V(2.5), Text("a"), V(1)})},
        {"REVERSE of a scalar", &V::REVERSEit, V(5), Array({V(5)})},
        {"SORT numbers", &V::SORTit, Array({V(3), V(1), V(2)}), Array({V(1), V(2), V(3)})},
        {"UNIQ keeps what is apart", &V::UNIQit, Array({V(1), V(2), V(1)}),
         Array({V(1), V(2), V(1)})},
        {"UNIQ keeps the first of equals", &V::UNIQit, Array({V(1), V(1.0), V(2)}),
         Array({V(1), V(2)})},
        {"UNIQ keeps what cannot be compared", &V::UNIQit, Array({Mm(1), Dollars(1), Dollars(1)}),
         Array({Mm(1), Dollars(1)})},
    });
}

TEST_F(AnyValueFunctionsTest, SortKeepsEveryElementWhenSomeCannotBeCompared) {
    V value = Array({Mm(3), Dollars(1), Mm(1), Dollars(2), Mm(2)});
    value.SORTit();
    const QArray<QAnyValue>& sorted = value.MakeArray();
    ASSERT_EQ(sorted.GetCount(), 5);
    EXPECT_EQ(std::count_if(sorted.begin(), sorted.end(), [](const V& v) { return v.IsLength(); }),
              3);
    EXPECT_EQ(std::count_if(sorted.begin(), sorted.end(), [](const V& v) { return v.IsMoney(); }),
              2);
}

TEST_F(AnyValueFunctionsTest, EquivalentNoCase) {
    EXPECT_TRUE(QAnyValue::EquivalentNoCase(Text("ABC"), Text("abc")));
    EXPECT_FALSE(QAnyValue::EquivalentNoCase(Text("abc"), Text("abd")));
    EXPECT_TRUE(QAnyValue::EquivalentNoCase(Text("5"), V(5)));
}

} // namespace

} // namespace keel
