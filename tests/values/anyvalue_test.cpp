#include "tests/support/anyvalues.h"
#include "tests/support/samevalue.h"
#include "tests/support/tables.h"
#include "tests/support/valuesettings.h"

#include "keel/platform/fpstatus.h"
#include "keel/values/anyvalue.h"
#include "keel/values/compare.h"
#include "keel/values/formulahook.h"
#include "keel/values/ratevalue.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace keel {

namespace {

using test::Array;
using test::Cents;
using test::Color;
using test::CubicMetres;
using test::Degrees;
using test::Error;
using test::Feet;
using test::MessageOf;
using test::Mm;
using test::NA;
using test::Seconds;
using test::SquareMetres;
using test::Utf8;

using V = QAnyValue;

using test::FakeEvaluator;

// Starts each test with the fake evaluator, "$" money and the built-in options, and puts back
// every process-wide setting the tests change.
class AnyValueTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_previousSource = SetTableHandleSource(&m_tables);
        m_previousReader = QAnyValue::SetProfileIntReader(nullptr);
    }
    void TearDown() override {
        SetTableHandleSource(m_previousSource);
        QAnyValue::SetProfileIntReader(m_previousReader);
        QAnyValue::SetYesNoStrings(u"Yes", u"No");
    }

    test::NamedTableSource m_tables{{"prices", "sizes"}};

private:
    test::ScopedValueSettings m_settings;
    QTableHandleSource* m_previousSource = nullptr;
    QAnyValue::ProfileIntReader m_previousReader = nullptr;
};

TEST_F(AnyValueTest, TypeNamesRoundTripIgnoringCase) {
    const struct {
        int number;
        const char* name;
    } cases[] = {
        {-2, "#N/A"},  {-1, "#ERR!"},         {0, "<none>"},
        {1, "String"}, {12, "Date and Time"}, {15, "Color"},
    };
    for (const auto& c : cases) {
        const auto type = static_cast<QAnyValue::TYPE>(c.number);
        EXPECT_EQ(Utf8(QAnyValue::TypeToString(type)), c.name);
        CString upper(c.name);
        upper.MakeUpper();
        EXPECT_EQ(QAnyValue::StringToType(upper), type) << c.name;
    }
    EXPECT_EQ(Utf8(QAnyValue::TypeToString(static_cast<QAnyValue::TYPE>(16))), "#EMPTY");
    EXPECT_EQ(QAnyValue::StringToType(u"Integer"), QAnyValue::TYPE_EMPTY);
    EXPECT_EQ(QAnyValue::TypeToADOXEnum(QAnyValue::TYPE_STRING), 202);
    EXPECT_EQ(QAnyValue::TypeToADOXEnum(QAnyValue::TYPE_LENGTH), 0);
}

TEST_F(AnyValueTest, SetTypeGivesEachTypeItsDefault) {
    QAnyValue value(u"text");
    value.SetType(QAnyValue::TYPE_STRING);
    EXPECT_EQ(Utf8(value.MakeCString()), "text") << "the same type keeps the content";
    const QAnyValue defaults[] = {
        V(false),        V(0),           V(0.0),     Cents(0),  Seconds(0), Mm(0),
        SquareMetres(0), CubicMetres(0), Degrees(0), Array({}), Color(0),   V(QDateTime(0.0)),
    };
    for (const QAnyValue& expected : defaults) {
        QAnyValue fresh(u"old content");
        fresh.SetType(expected.Type());
        EXPECT_TRUE(fresh.Identical(expected)) << Utf8(expected.TypeName());
    }
}

TEST_F(AnyValueTest, SetTypeOutsideTheRangeAndConstructionFromTextListsAndRates) {
    QAnyValue value(u"text");
    value.SetType(static_cast<QAnyValue::TYPE>(20));
    EXPECT_EQ(static_cast<int>(value.Type()), 20);
    EXPECT_EQ(Utf8(value.TypeName()), "#EMPTY");
    value.SetType(QAnyValue::TYPE_NA);
    EXPECT_TRUE(value.IsNA());
    value.Clear();
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_EQ(Utf8(V("\xc3\xa9t\xc3\xa9").MakeCString()), "\xc3\xa9t\xc3\xa9");
    EXPECT_TRUE(V("narrow").IsString()) << "a narrow literal is text, not a boolean";
    const QAnyValue items[] = {V(1), V(u"b")};
    EXPECT_TRUE(V(items, 2).Identical(Array({1, u"b"})));
    EXPECT_TRUE(V(QRateValue(Cents(600), V(3))).Identical(Cents(200)));
    EXPECT_TRUE(V(QRateValue(Mm(10), Mm(4))).Identical(V(2.5)));
    EXPECT_TRUE(V(QRateValue(Cents(200), Mm(304.8))).IsRate())
        << "money over a length stays a rate";
    EXPECT_TRUE(V(QRateValue(V(5), V(0))).IsRate()) << "a zero denominator cannot be divided";
    EXPECT_TRUE(V(QRateValue(V(QRateValue(Cents(1), Mm(1))), V(2))).IsRate())
        << "a half that is a rate keeps the rate";
}

TEST_F(AnyValueTest, CopiesAreDeepAndAssignmentIsSafeFromInsideItselfAndFromNarrowTypes) {
    QAnyValue original = Array({1, Array({2})});
    QAnyValue copy = original;
    copy.MakeArray()[1].MakeArray()[0] = 99;
    EXPECT_TRUE(original.Identical(Array({1, Array({2})})));

    QAnyValue rate(QRateValue(Cents(100), Mm(10)));
    QAnyValue rateCopy = rate;
    rateCopy.MakeRate().Num() = Cents(500);
    EXPECT_TRUE(rate.MakeRate().Num().Identical(Cents(100)));

    QAnyValue table(QTableHandlePtr(new test::NamedTable(u"shared")));
    QAnyValue tableCopy = table;
    EXPECT_EQ(table.MakeLookupTable().Get(), tableCopy.MakeLookupTable().Get())
        << "a table handle is shared, not copied";
    QAnyValue nested = Array({Array({1, 2}), 3});
    nested = nested.MakeArray()[0];
    EXPECT_TRUE(nested.Identical(Array({1, 2})));
    nested = std::move(nested.MakeArray()[1]);
    EXPECT_TRUE(nested.Identical(V(2)));
    QAnyValue self = Mm(3);
    QAnyValue& alias = self;
    self = alias;
    EXPECT_TRUE(self.Identical(Mm(3)));
}

TEST_F(AnyValueTest, GroupTests) {
    const struct {
        QAnyValue value;
        bool simple;
        bool withUnits;
    } cases[] = {
        {V(1), true, false},     {Cents(1), false, true},
        {Mm(1), false, true},    {V(QRateValue(Cents(1), Mm(1))), false, true},
        {V(true), false, false}, {V(), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.value.IsSimpleNumeric(), c.simple) << Utf8(c.value.TypeName());
        EXPECT_EQ(c.value.IsNumericWithUnits(), c.withUnits) << Utf8(c.value.TypeName());
        EXPECT_EQ(c.value.IsNumeric(), c.simple || c.withUnits) << Utf8(c.value.TypeName());
    }
    EXPECT_TRUE(V().IsEmptyOrEmptyString());
    EXPECT_TRUE(V(u"").IsEmptyOrEmptyString());
    EXPECT_FALSE(V(u" ").IsEmptyOrEmptyString());
}

TEST_F(AnyValueTest, MakeErrorKeepsOrComposesTheMessageAndTheLeftStateWinsInEveryOperation) {
    QAnyValue value(5);
    EXPECT_EQ(Utf8(value.MakeError(u"broken")), "broken");
    EXPECT_EQ(Utf8(value.MakeError()), "broken") << "an error keeps its message";
    QAnyValue text(u"from a string");
    EXPECT_EQ(Utf8(text.MakeError()), "from a string");
    EXPECT_EQ(MessageOf(text), "from a string");
    QAnyValue number(5);
    EXPECT_EQ(Utf8(number.MakeError()), "");
    EXPECT_TRUE(number.IsError());

    CString message = u"stale";
    EXPECT_FALSE(V(1).IsErrorAndGetMessage(message));
    EXPECT_TRUE(message.IsEmpty());

    QAnyValue na = NA();
    EXPECT_EQ(Utf8(na.MakeError()), "");
    EXPECT_TRUE(na.IsError());
    using Op = std::function<V(QAnyValue, const QAnyValue&)>;
    const std::vector<std::pair<const char*, Op>> operations = {
        {"+", [](QAnyValue a, const QAnyValue& b) { return a += b; }},
        {"-", [](QAnyValue a, const QAnyValue& b) { return a -= b; }},
        {"*", [](QAnyValue a, const QAnyValue& b) { return a *= b; }},
        {"/", [](QAnyValue a, const QAnyValue& b) { return a /= b; }},
        {"EQ", [](QAnyValue a, const QAnyValue& b) { return a.EQit(b); }},
        {"LT", [](QAnyValue a, const QAnyValue& b) { return a.LTit(b); }},
    };
    for (const auto& [name, op] : operations) {
        EXPECT_EQ(MessageOf(op(Error("left"), V(1))), "left") << name;
        EXPECT_EQ(MessageOf(op(V(1), Error("right"))), "right") << name;
        EXPECT_TRUE(op(NA(), Error("right")).IsNA()) << name;
        EXPECT_EQ(MessageOf(op(Error("left"), NA())), "left") << name;
        EXPECT_TRUE(op(V(1), NA()).IsNA()) << name;
        EXPECT_EQ(MessageOf(op(Array({1, 2}), Error("whole"))), "whole")
            << name << ": an error operand replaces a whole array";
        EXPECT_EQ(MessageOf(op(Error("left"), Array({1, 2}))), "left") << name;
    }
}

TEST_F(AnyValueTest, ShorterArraysArePaddedWithTheirLastElementAndExtendArraysOverThreeAndFour) {
    EXPECT_TRUE((Array({1, 2}) + Array({1, 2, 3})).Identical(Array({2, 4, 5})));
    EXPECT_TRUE((Array({1, 2, 3}) + Array({10})).Identical(Array({11, 12, 13})));
    EXPECT_TRUE((V(10) - Array({1, 2})).Identical(Array({9, 8})));
    EXPECT_TRUE((Array({Array({1, 2}), 3}) + V(1)).Identical(Array({Array({2, 3}), 4})))
        << "element by element, recursively";
    EXPECT_TRUE((Array({}) + V(1)).Identical(Array({})));
    EXPECT_TRUE((Array({1, 2}) + Array({})).Identical(Array({})));
    QAnyValue a = Array({1});
    QAnyValue b(7);
    QAnyValue c = Array({1, 2, 3});
    EXPECT_EQ(QAnyValue::ExtendArrays(a, b, c), 3);
    EXPECT_TRUE(a.Identical(Array({1, 1, 1})));
    EXPECT_TRUE(b.Identical(Array({7, 7, 7})));
    QAnyValue d(u"x");
    EXPECT_EQ(QAnyValue::ExtendArrays(a, b, c, d), 3);
    EXPECT_TRUE(d.Identical(Array({u"x", u"x", u"x"})));

    QAnyValue scalar(4);
    scalar.ExtendArray(0);
    EXPECT_TRUE(scalar.IsInt()) << "a count of 0 does nothing";
    scalar.ExtendArray(1);
    EXPECT_TRUE(scalar.Identical(Array({4})));
}

TEST_F(AnyValueTest, ArithmeticByTypePairAndItsFailures) {
    const int largest = std::numeric_limits<int>::max();
    using Assign = QAnyValue& (QAnyValue::*)(const QAnyValue&);
    const Assign plus = &V::operator+=, times = &V::operator*=, over = &V::operator/=;
    const struct {
        Assign op;
        const char* what;
        QAnyValue a;
        QAnyValue b;
        QAnyValue result;
    } cases[] = {
        {plus, "int+int", V(2), V(3), V(5)},
        {plus, "int+number", V(2), V(0.5), V(2.5)},
        {plus, "money+int is dollars", Cents(150), V(2), Cents(350)},
        {plus, "length+int in mm", Mm(100), V(3), Mm(103)},
        {plus, "angle+angle", Degrees(350), Degrees(20), Degrees(370)},
        {plus, "empty+int", V(), V(1), V(1)},
        {plus, "bool+int", V(true), V(1), V(2.0)},
        {plus, "string+int", V(u"2"), V(1), V(3)},
        {plus, "whole numbers wrap", V(largest), V(1), V(std::numeric_limits<int>::min())},
        {times, "number*int", V(0.5), V(3), V(1.5)},
        {times, "money*number rounds", Cents(3), V(0.5), Cents(2)},
        {times, "negative half rounds up", Cents(-1), V(1.5), Cents(-1)},
        {times, "time*number", Seconds(3), V(1.5), Seconds(5)},
        {times, "length*length", Mm(2000), Mm(3000), SquareMetres(6)},
        {times, "length*area", Mm(2000), SquareMetres(3), CubicMetres(6)},
        {times, "money*money", Cents(200), Cents(300), V(6.0)},
        {times, "angle*int normalises", Degrees(200), V(2), Degrees(40)},
        {over, "1/2 is no integer division", V(1), V(2), V(0.5)},
        {over, "area/length", SquareMetres(6), Mm(2000), Mm(3000)},
        {over, "length/length", Mm(10), Mm(4), V(2.5)},
        {over, "money/int rounds", Cents(5), V(2), Cents(3)},
        {over, "money/number rounds", Cents(-5), V(2.0), Cents(-2)},
        {over, "angle/int normalises", Degrees(-90), V(2), Degrees(315)},
        {plus, "area+length", SquareMetres(1), Mm(1), Error("Units not compatible")},
        {plus, "string that fails", V(u"abc"), V(1), Error("Could not evaluate formula\nabc")},
        {plus, "rate+int", V(QRateValue(Cents(1), Mm(1))), V(1),
         Error("Cannot + when types do not match")},
        {plus, "empty+empty", V(), V(), Error("Cannot + when not numeric")},
        {times, "empty*int", V(), V(3), Error("Cannot * when not numeric")},
        {times, "int*empty", V(3), V(), Error("Cannot * when not numeric")},
        {over, "3/0", V(3), V(0), Error("Division by zero")},
        {over, "by a length within its tolerance", V(3), Mm(0.005), Error("Division by zero")},
        {over, "number over a unit", V(1), Mm(2), Error("Cannot / when not same type")},
        {over, "empty over a number", V(), V(2), Error("Cannot / when not numeric")},
        {over, "overflow", V(1e300), V(1e-300), Error("Cannot /, result was too big")},
    };
    for (const auto& c : cases) {
        QAnyValue value = c.a;
        EXPECT_TRUE(test::Same((value.*c.op)(c.b), c.result)) << c.what;
    }
    EXPECT_TRUE((V(QTableHandlePtr(new test::NamedTable(u"a"))) + V(2)).Identical(V(2.0)))
        << "anything else counts as a number: a table as 0";
    EXPECT_TRUE((V(u"missing") + V(1)).IsNA()) << "a formula giving N/A makes the sum N/A";
}

void ExpectHalves(const QRateValue& rate, const QAnyValue& num, const QAnyValue& den) {
    EXPECT_TRUE(test::Same(rate.Num(), num)) << "numerator";
    EXPECT_TRUE(test::Same(rate.Den(), den)) << "denominator";
}

TEST_F(AnyValueTest, DatesAddSpansRatesMultiplyTheirHalvesAndDivisionLeavesNoFault) {
    const QDateTime noon(2026, 3, 1, 12, 0, 0);
    const QDateTime evening(2026, 3, 1, 18, 30, 0);
    const QAnyValue later = V(noon) + V(6.5);
    ASSERT_TRUE(later.IsDateTime());
    EXPECT_TRUE(later.Identical(V(evening))) << "6.5 is hours by the default";
    EXPECT_TRUE((V(evening) - Seconds(6 * 3600 + 1800)).Identical(V(noon)));
    EXPECT_TRUE((V(evening) - V(noon)).Identical(Seconds(6 * 3600 + 1800)));
    const QAnyValue twoDates = V(QDateTime(2.0)) + V(QDateTime(1.0));
    ASSERT_TRUE(twoDates.IsDateTime()) << "the second date is taken as a span of 1 hour";
    EXPECT_TRUE(twoDates.Identical(V(QDateTime(2.0 + 1.0 / 24))));
    EXPECT_EQ(MessageOf(V(noon) + V(u"abc")), "Could not evaluate formula\nabc")
        << "the span that cannot be made is the error";

    QLength::SetDefaultUnits(QLength::LU_FOOT);
    QAnyValue product = V(QRateValue(Cents(200), Feet(1))) * Feet(2);
    ASSERT_TRUE(product.IsRate());
    ExpectHalves(product.MakeRate(), V(4.0), Feet(1)); // money by length is a plain number
    QAnyValue perLength = Cents(500) / Mm(2);
    ASSERT_TRUE(perLength.IsRate());
    ExpectHalves(perLength.MakeRate(), Cents(500), Mm(2));
    QAnyValue halved = perLength / V(2);
    ASSERT_TRUE(halved.IsRate());
    ExpectHalves(halved.MakeRate(), Cents(500), Mm(4)); // through the reciprocal
    ClearFPStatus();
    EXPECT_TRUE((V(1e300) / V(1e-300)).IsError());
    EXPECT_EQ(ReadFPStatus() & (SW_OVERFLOW | SW_ZERODIVIDE | SW_INVALID), 0u);
}

TEST_F(AnyValueTest, PercentNotAndNegation) {
    EXPECT_TRUE(V(50).PERCENT().Identical(V(0.5)));
    EXPECT_TRUE(Array({100, 200}).PERCENT().Identical(Array({1.0, 2.0})));
    EXPECT_EQ(MessageOf(V(u"abc").PERCENT()), "Cannot PERCENT() when not numeric");
    EXPECT_EQ(MessageOf(Error("kept").PERCENT()), "kept");
    EXPECT_TRUE(NA().PERCENT().IsNA());
    EXPECT_TRUE((!V(true)).Identical(V(false)));
    EXPECT_TRUE((!V(0)).Identical(V(true)));
    EXPECT_TRUE((!Array({true, 0})).Identical(Array({false, true})));
    EXPECT_EQ(MessageOf(!Error("kept")), "kept");
    EXPECT_TRUE((!NA()).IsNA());
    EXPECT_TRUE((-V(3)).Identical(V(-3)));
    EXPECT_TRUE((-Cents(5)).Identical(Cents(-5)));
    EXPECT_TRUE((-Array({1, 2})).Identical(Array({-1, -2})));
    QAnyValue rate = -V(QRateValue(Cents(5), Mm(1)));
    ASSERT_TRUE(rate.IsRate());
    EXPECT_TRUE(rate.MakeRate().Num().Identical(Cents(-5)));
    EXPECT_EQ(MessageOf(-V(u"5")), "Cannot negate when not numeric");
    EXPECT_EQ(MessageOf(-Error("kept")), "kept");
}

TEST_F(AnyValueTest, PromotionStepsAndCanDivDecidesWhatARateReducesTo) {
    const QAnyValue rate(QRateValue(Cents(1), Mm(1)));
    const QAnyValue dateFails = Error("Invalid DateTime");
    const QAnyValue formulaFails = Error("Could not evaluate formula\nabc");
    const struct {
        const char* what;
        QAnyValue a, b;
        QAnyValue promotedA, promotedB;
    } cases[] = {
        {"an error spreads", Error("why"), V(1), Error("why"), Error("why")},
        {"N/A spreads", V(1), NA(), NA(), NA()},
        {"empty takes the other type", V(), Mm(3), Mm(0), Mm(3)},
        {"rates are left as they are", rate, V(1), rate, V(1)},
        {"units that do not match", Cents(1), Mm(1), Error("Units not compatible"),
         Error("Units not compatible")},
        {"the string runs as a formula", V(1), V(u"2+3"), V(1.0), V(5.0)},
        {"the other side takes the unit", V(u"4"), Mm(1), Mm(4), Mm(1)},
        {"the lower rank goes up", V(true), V(u"no"), V(true), V(false)},
        {"equal ranks: the right side takes the left type, and fails", V(QDateTime(2.0)), V(u"x"),
         dateFails, dateFails},
        {"a conversion that fails makes both errors", V(true), V(u"abc"), formulaFails,
         formulaFails},
        {"arrays", Array({1, 2}), V(0.5), Array({1.0, 2.0}), Array({0.5, 0.5})},
    };
    for (const auto& c : cases) {
        QAnyValue a = c.a;
        QAnyValue b = c.b;
        QAnyValue::PromoteToSameType(a, b);
        EXPECT_TRUE(a.Identical(c.promotedA) && MessageOf(a) == MessageOf(c.promotedA)) << c.what;
        EXPECT_TRUE(b.Identical(c.promotedB) && MessageOf(b) == MessageOf(c.promotedB)) << c.what;
    }
    EXPECT_TRUE(QAnyValue::CanDiv(Cents(1), V(2)));
    EXPECT_TRUE(QAnyValue::CanDiv(SquareMetres(1), Mm(2)));
    EXPECT_TRUE(QAnyValue::CanDiv(CubicMetres(1), SquareMetres(2)));
    EXPECT_FALSE(QAnyValue::CanDiv(Cents(1), Mm(2)));
    EXPECT_FALSE(QAnyValue::CanDiv(Mm(1), SquareMetres(2)));
    EXPECT_FALSE(QAnyValue::CanDiv(V(1), V(0)));
}

TEST_F(AnyValueTest, CompareAfterPromotionOrFail) {
    const struct {
        const char* what;
        QAnyValue a;
        QAnyValue b;
        int sign;
        bool fails = false;
    } cases[] = {
        {"1 and 1.0", V(1), V(1.0), 0},
        {"strings ignore case", V(u"abc"), V(u"ABC"), 0},
        {"length and a number in the default unit", Mm(3), V(3), 0},
        {"lengths within the tolerance", Mm(1), Mm(1.005), 0},
        {"angles the short way", Degrees(350), Degrees(10), -1},
        {"colours as unsigned", Color(0xFFFFFFFFul), Color(1), 1},
        {"dates half a second apart", V(QDateTime(1.0)), V(QDateTime(1.0 + 5.7e-6)), 0},
        {"array element by element", Array({1, 2}), Array({1, 3}), -1},
        {"the shorter array is less", Array({1, 2}), Array({1, 2, 0}), -1},
        {"array and scalar", Array({2, 2}), V(2), 0},
        {"tables of one name", V(QTableHandlePtr(new test::NamedTable(u"T"))),
         V(QTableHandlePtr(new test::NamedTable(u"t"))), 0},
        {"rates by their quotients", V(QRateValue(Cents(100), Mm(2))),
         V(QRateValue(Cents(100), Mm(4))), 1},
        {"error and number", Error("a"), V(1), 0, true},
        {"different units", Cents(1), Mm(1), 0, true},
        {"rate and number", V(QRateValue(Cents(1), Mm(1))), V(1), 0, true},
        {"an element that fails", Array({Cents(1)}), Array({Mm(1)}), 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        bool failed = !c.fails;
        const int result = c.a.Compare(c.b, failed);
        EXPECT_EQ(failed, c.fails);
        EXPECT_EQ((result > 0) - (result < 0), c.sign);
        EXPECT_EQ(c.a < c.b, !c.fails && c.sign < 0);
        EXPECT_EQ(c.a <= c.b, !c.fails && c.sign <= 0);
        EXPECT_EQ(c.a > c.b, !c.fails && c.sign > 0);
        EXPECT_EQ(c.a >= c.b, !c.fails && c.sign >= 0);
    }
}

TEST_F(AnyValueTest, TheOptionsDecideWhetherStringsCompareWithCaseAndTheLengthTolerance) {
    QAnyValue::SetProfileIntReader([](const CString& section, const CString& key, int dflt) {
        if (section != u"Options")
            return dflt;
        return key == u"UseCompareNoCase" ? 0 : key == u"LengthDisplayEps" ? 200 : dflt;
    });
    bool failed = false;
    EXPECT_NE(V(u"abc").Compare(V(u"ABC"), failed), 0);
    EXPECT_FALSE(V(u"abc").Identical(V(u"ABC")));
    EXPECT_DOUBLE_EQ(QAnyValue::LengthDisplayEps(), 2.0);
    QAnyValue::SetProfileIntReader(nullptr);
    EXPECT_EQ(V(u"abc").Compare(V(u"ABC"), failed), 0);
    EXPECT_TRUE(V(u"abc").Identical(V(u"ABC")));
    EXPECT_DOUBLE_EQ(QAnyValue::LengthDisplayEps(), 0.8)
        << "the built-in tolerance without options";
}

TEST_F(AnyValueTest, IdenticalDoesNotPromoteEquivalentWidensAndComparisonMembersGiveBooleans) {
    EXPECT_FALSE(V(1).Identical(V(1.0)));
    EXPECT_TRUE(V(1) != V(1.0));
    EXPECT_TRUE(Error("a").Identical(Error("b"))) << "errors are identical whatever the message";
    EXPECT_TRUE(NA() == NA());
    EXPECT_FALSE(Error("a") == NA());
    EXPECT_TRUE(Mm(1) == Mm(1.005)) << "units with their tolerance";
    EXPECT_FALSE(Mm(1) == Mm(1.02));
    EXPECT_FALSE(Mm(3) == V(3));
    EXPECT_TRUE(Array({1, u"a"}) == Array({1, u"A"}));
    EXPECT_FALSE(Array({1}) == Array({1.0}));
    EXPECT_TRUE(V(QTableHandlePtr(new test::NamedTable(u"x"))) ==
                V(QTableHandlePtr(new test::NamedTable(u"X"))));
    EXPECT_TRUE(V(QDateTime(1.0)) == V(QDateTime(1.0 + 5e-6)));
    EXPECT_TRUE(Mm(10).Equivalent(Mm(10.78)));
    EXPECT_FALSE(Mm(10).Equivalent(Mm(10.8))) << "within 0.8 less the length's own 0.01";
    EXPECT_TRUE(Mm(10).Equivalent(V(10.5))) << "after promotion";
    EXPECT_TRUE(V(1).Equivalent(V(1.0)));
    EXPECT_FALSE(Error("a").Equivalent(Error("a")));
    const struct {
        const char* what;
        QAnyValue result;
        QAnyValue expected;
    } cases[] = {
        {"EQ", V(1).EQ(V(1.0)), V(true)},
        {"NE", V(1).NE(V(1.0)), V(false)},
        {"LT", V(1).LT(V(2)), V(true)},
        {"LE", V(2).LE(V(2)), V(true)},
        {"GT", V(1).GT(V(2)), V(false)},
        {"GE", V(2).GE(V(3)), V(false)},
        {"EQ over arrays", Array({1, 2, 3}).EQ(V(2)), Array({false, true, false})},
        {"LT over two arrays", Array({1, 5}).LT(Array({2, 2, 9})), Array({true, false, true})},
    };
    for (const auto& c : cases)
        EXPECT_TRUE(c.result.Identical(c.expected)) << c.what << ": " << Utf8(c.result.Format());
    EXPECT_EQ(MessageOf(Cents(1).EQ(Mm(1))), "Cannot compare");
    EXPECT_EQ(MessageOf(V(1).GT(Error("kept"))), "kept");
}

TEST_F(AnyValueTest, TruthTableAndTheMembersThatSetBooleans) {
    const struct {
        const char* what;
        QAnyValue value;
        bool isTrue;
        bool isFalse;
        bool isZero;
    } cases[] = {
        {"error", Error("e"), false, false, false},
        {"N/A", NA(), false, false, false},
        {"empty", V(), false, true, true},
        {"true", V(true), true, false, false},
        {"all true", Array({true, 1}), true, false, false},
        {"all false", Array({false, 0}), false, true, true},
        {"mixed", Array({true, 0}), false, false, false},
        {"empty array", Array({}), true, true, true},
        {"the string 0", V(u"0"), false, true, true},
        {"an unknown word", V(u"abc"), false, false, false},
        {"0.0001", V(0.0001), true, false, false},
        {"a length within the tolerance", Mm(0.005), false, true, true},
        {"a length", Mm(1), true, false, false},
        {"colour", Color(0), false, true, true},
        {"rate with a zero numerator", V(QRateValue(Cents(0), Mm(1))), false, true, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.value.IsTRUE(), c.isTrue) << c.what;
        EXPECT_EQ(c.value.IsFALSE(), c.isFalse) << c.what;
        EXPECT_EQ(c.value.IsZero(), c.isZero) << c.what;
        EXPECT_EQ(c.value.IsNotZero(), !c.isZero) << c.what;
    }
    QAnyValue value(5);
    EXPECT_TRUE(value.TRUEit().Identical(V(true)));
    QAnyValue zero(0);
    EXPECT_TRUE(zero.FALSEit().Identical(V(true)));
    QAnyValue error = Error("kept");
    EXPECT_EQ(MessageOf(error.TRUEit()), "kept");
    QAnyValue array = Array({1, NA(), u"x"});
    array.TRUEFALSEit(0);
    ASSERT_EQ(array.GetSize(), 3);
    EXPECT_TRUE(array.MakeArray()[0].Identical(V(false)));
    EXPECT_TRUE(array.MakeArray()[1].IsNA());
    EXPECT_TRUE(array.MakeArray()[2].Identical(V(false)));
    QAnyValue scalar(u"x");
    EXPECT_TRUE(scalar.TRUEFALSEit(7).Identical(V(true)));
}

TEST_F(AnyValueTest, MakeFamilyGivesDefaultsForErrorsAndGoesDownIntoArrays) {
    QAnyValue error = Error("kept");
    EXPECT_FALSE(error.MakeBool());
    EXPECT_EQ(Utf8(error.MakeCString()), "#ERR!");
    const std::vector<double> zeros = {
        double(error.MakeInt()),
        error.MakeDouble(),
        double(error.MakeMoney().GetRaw()),
        double(error.MakeTime().GetRaw()),
        error.MakeLength().GetRaw(),
        error.MakeAngle().GetRaw(),
        error.MakeDateTime().GetOleDate(),
        double(error.MakeColor()),
    };
    EXPECT_EQ(zeros, std::vector<double>(zeros.size(), 0.0));
    EXPECT_EQ(MessageOf(error), "kept") << "the error survives every conversion";
    QAnyValue na = NA();
    EXPECT_EQ(Utf8(na.MakeCString()), "#N/A");
    EXPECT_TRUE(na.IsNA());
    QAnyValue notAvailable = NA();
    const QRateValue& rate = notAvailable.MakeRate();
    EXPECT_EQ(MessageOf(notAvailable), "Cannot convert to a rate");
    EXPECT_TRUE(rate.Num().IsEmpty());
    EXPECT_TRUE(rate.Den().IsEmpty());
    QAnyValue value(2.9);
    EXPECT_EQ(value.Make<int>(), 2);
    EXPECT_TRUE(value.IsInt());
    EXPECT_EQ(Utf8(value.Make<CString>()), "2");
    QAnyValue numbers = Array({u"3", Array({u"1+1"})});
    EXPECT_TRUE(test::Same(numbers.MakeAllNumeric(), Array({3, Array({2})})));
}

TEST_F(AnyValueTest, MakeNumericRunsStringsAsFormulasAndMakesOtherTypesNumbers) {
    const struct {
        const char* what;
        QAnyValue value;
        QAnyValue numeric;
    } cases[] = {
        {"a formula", V(u"1+1"), V(2)},
        {"an empty formula is the whole number 0", V(u"   "), V(0)},
        {"again while the result is a string", V(u"\"7\""), V(7)},
        {"a formula that fails", V(u"  abc "), Error("Could not evaluate formula\nabc")},
        {"a formula that gives itself", V(u"selfie"),
         Error("Could not evaluate formula (looping)\nselfie")},
        {"boolean", V(true), V(1.0)},
        {"date", V(QDateTime(3.5)), V(3.5)},
        {"length", Mm(2), Mm(2)},
        {"empty", V(), V()},
    };
    for (const auto& c : cases) {
        QAnyValue value = c.value;
        value.MakeNumeric();
        EXPECT_TRUE(test::Same(value, c.numeric)) << c.what;
    }
    EXPECT_EQ(FakeEvaluator::asked.front(), "1+1");
}

TEST_F(AnyValueTest, TheEvaluatorSeamPassesTextAndContextAndWithoutItEveryFormulaFails) {
    static QFormulaContext* seenContext = nullptr;
    static std::string seenText;
    const auto capture = [](const FormulaText& formula, QFormulaContext* context,
                            QAnyValue& result) {
        seenContext = context;
        seenText = formula.ToString().ToUtf8();
        result = 11;
        return true;
    };
    SetFormulaEvaluatorHook(capture);
    auto* const context = reinterpret_cast<QFormulaContext*>(&seenText);
    QAnyValue direct;
    EXPECT_TRUE(EvaluateFormula(FormulaText(u"a + b"), context, direct));
    EXPECT_EQ(seenContext, context);
    EXPECT_EQ(seenText, "a + b");
    EXPECT_TRUE(direct.Identical(V(11)));

    QAnyValue text(u" width * 2 ");
    text.MakeNumeric();
    EXPECT_EQ(seenContext, nullptr) << "a string made numeric runs in no context";
    EXPECT_EQ(seenText, "width * 2");
    EXPECT_TRUE(text.Identical(V(11)));

    SetFormulaEvaluatorHook(nullptr);
    QAnyValue none;
    EXPECT_FALSE(EvaluateFormula(FormulaText(u"1"), nullptr, none));
    QAnyValue unevaluated(u"1+1");
    unevaluated.MakeNumeric();
    EXPECT_EQ(MessageOf(unevaluated), "Could not evaluate formula\n1+1");
}

TEST_F(AnyValueTest, TextFormsEvaluateBackAndTablesOpenByNameThroughTheSource) {
    QDateTime::SetLocaleFormats(u"%d/%m/%Y", u"%H:%M:%S");
    EXPECT_EQ(Utf8(V(u"say \"hi\"\\\n\r\t").AsFormula().ToString()),
              "\"say \"\"hi\"\"\\\\\\n\\r\\t\"");
    EXPECT_EQ(Utf8(V(2.5).AsFormula().ToString()), "2.5");
    EXPECT_EQ(Utf8(V(QDateTime(2026, 11, 21)).AsFormula().ToString()), "\"21/11/2026\"");
    EXPECT_EQ(Utf8(Array({1, V(), u"a"}).AsFormula().ToString()), "[1,,\"a\"]");
    EXPECT_EQ(Utf8(Error("x").AsFormula().ToString()), "#ERR!");
    EXPECT_EQ(Utf8(NA().AsFormula().ToString()), "#N/A");
    EXPECT_EQ(Utf8(V(u"plain \"text\"").AsStringOrFormula()), "plain \"text\"");
    const QAnyValue number(0.25);
    EXPECT_EQ(Utf8(number.Format()), "0.25");
    EXPECT_TRUE(number.IsDouble()) << "Format leaves the value alone";
    EXPECT_EQ(Utf8(NA().AsCrystalFormula()), "\"#N/A\"");
    EXPECT_EQ(Utf8(V(u"a\"b").AsCrystalFormula()), "\"a\"\"b\"");
    QAnyValue::SetYesNoStrings(u"Ja", u"Nein");
    EXPECT_EQ(Utf8(V(true).Format()), "Ja");
    EXPECT_EQ(Utf8(V(false).Format()), "Nein");
    bool yes = false;
    EXPECT_EQ(QAnyValue::ParseBool(yes, u"ja"), PARSE_EXACT);
    EXPECT_TRUE(yes);
    QAnyValue name(u"prices");
    const QTableHandlePtr table = name.MakeLookupTable();
    ASSERT_TRUE(table);
    EXPECT_TRUE(name.IsLookupTable());
    EXPECT_EQ(Utf8(table->Name()), "prices");
    EXPECT_TRUE(m_tables.m_lastReportErrors);
    EXPECT_EQ(Utf8(name.Format()), "prices") << "a table shows as its name";

    QAnyValue unknown(u"nowhere");
    EXPECT_FALSE(unknown.MakeLookupTable());
    EXPECT_EQ(MessageOf(unknown), "Cannot find lookup table nowhere");

    QAnyValue quiet(u"nowhere");
    EXPECT_FALSE(quiet.MakeLookupTableNoError());
    EXPECT_TRUE(quiet.Identical(V(u"nowhere"))) << "the value stays as it was";
    EXPECT_FALSE(m_tables.m_lastReportErrors);

    QAnyValue failed(u"nowhere");
    failed.ChangeType(QAnyValue::TYPE_LOOKUPTABLE);
    EXPECT_EQ(MessageOf(failed), "Error with lookup table named nowhere");
}

class RateValueTest : public AnyValueTest {};

TEST_F(RateValueTest, ConstructionAndArithmeticWorkOnTheHalves) {
    QRateValue assigned(Cents(5), Mm(2));
    assigned = 4;
    const QRateValue half(V(1), V(2));
    const QRateValue third(V(1), V(3));
    const QRateValue perFoot(Cents(200), Feet(1));
    const struct {
        const char* what;
        QRateValue rate;
        QAnyValue num, den;
    } cases[] = {
        {"empty", QRateValue(), V(), V()},
        {"whole number", QRateValue(3), V(3), V(1)},
        {"money", QRateValue(Cents(5)), Cents(5), V(1)},
        {"two halves", QRateValue(Cents(5), Mm(2)), Cents(5), Mm(2)},
        {"assigned a whole number", assigned, V(4), V(1)},
        {"sum cross-multiplies", half + third, V(5), V(6)},
        {"difference cross-multiplies", half - third, V(1), V(6)},
        {"product", perFoot * QRateValue(V(3), V(1)), Cents(600), Feet(1)},
        {"quotient", QRateValue(V(6), V(1)) / QRateValue(V(2), V(1)), V(6), V(2)},
        {"times a whole number", perFoot * 3, Cents(600), Feet(1)},
        {"over a whole number", perFoot / 4, Cents(50), Feet(1)},
        {"negated", -perFoot, Cents(-200), Feet(1)},
        {"reciprocal", perFoot.Reciprocal(), Feet(1), Cents(200)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ExpectHalves(c.rate, c.num, c.den);
    }
    QRateValue perHour(Cents(100), Seconds(3600));
    perHour += QRateValue(Cents(50), Seconds(3600));
    EXPECT_DOUBLE_EQ(Double(perHour), 1.5) << "dollars per hour";
    EXPECT_TRUE(!QRateValue(Cents(0), Feet(1)));
    EXPECT_FALSE(!QRateValue(Cents(1), Feet(1)));
}

TEST_F(RateValueTest, ComparisonByQuotientAndDoubleInTheDefaultUnits) {
    const QRateValue half(V(1), V(2));
    const QRateValue twoQuarters(V(2), V(4));
    const QRateValue twoThirds(V(2), V(3));
    EXPECT_TRUE(half == twoQuarters);
    EXPECT_TRUE(half < twoThirds);
    EXPECT_TRUE(twoThirds > half);
    EXPECT_EQ(half.Compare(twoThirds), -1);
    EXPECT_DOUBLE_EQ(Double(QRateValue(V(3), V(2))), 1.5);
    EXPECT_DOUBLE_EQ(Double(QRateValue(Cents(300), Mm(2))), 1.5);
    QLength::SetDefaultUnits(QLength::LU_FOOT);
    EXPECT_DOUBLE_EQ(Double(QRateValue(Cents(300), Feet(2))), 1.5);
    EXPECT_EQ(Double(QRateValue(V(3), V(0))), 0.0);
}

TEST_F(RateValueTest, ParseSplitsAtTheStrokeUnitWordsAndTheTextForm) {
    QRateValue rate;
    EXPECT_EQ(rate.Parse(u"$5 / hr"), PARSE_EXACT);
    ExpectHalves(rate, Cents(500), Seconds(3600));
    EXPECT_EQ(rate.Parse(u"$5/3 s"), PARSE_EXACT);
    ExpectHalves(rate, Cents(500), Seconds(3));
    EXPECT_EQ(rate.Parse(u"1 1/2' / 3 s"), PARSE_EXACT) << "the first stroke is a fraction";
    ExpectHalves(rate, Feet(1.5), Seconds(3));
    EXPECT_EQ(rate.Parse(u"3 sqm / SQFT"), PARSE_EXACT);
    ExpectHalves(rate, V(QArea(3, QArea::AU_SQM)), V(QArea(1, QArea::AU_SQFT)));
    EXPECT_EQ(rate.Parse(u"1 1/2 / sec"), PARSE_DEFAULTED) << "a length without its unit";
    ExpectHalves(rate, Mm(1.5), Seconds(1));
    rate = QRateValue(Cents(1), Mm(1));
    for (const char16_t* text : {u"$5", u"abc / def", u"$5 / xyz", u"$5 /", u"/ sec"}) {
        EXPECT_EQ(rate.Parse(text), PARSE_NONE) << Utf8(text);
        ExpectHalves(rate, Cents(1), Mm(1));
    }
    const struct {
        const char16_t* word;
        QAnyValue one;
    } cases[] = {
        {u"mm", Mm(1)},
        {u"sqm", V(QArea(1, QArea::AU_SQM))},
        {u"min", Seconds(60)},
    };
    for (const auto& c : cases) {
        QAnyValue one;
        ASSERT_TRUE(QRateValue::UnitWordValue(c.word, one)) << Utf8(c.word);
        EXPECT_TRUE(one.Identical(c.one)) << Utf8(c.word);
        EXPECT_EQ(Utf8(QRateValue::UnitWordOf(c.one)), Utf8(c.word));
    }
    QAnyValue none;
    EXPECT_FALSE(QRateValue::UnitWordValue(u"parsec", none));
    EXPECT_EQ(Utf8(QRateValue::UnitWordOf(Mm(2))), "");
    EXPECT_EQ(Utf8(QRateValue(Cents(500), Seconds(3600)).Format()), "$5.00/hr");
    EXPECT_EQ(Utf8(QRateValue(Cents(0), V(QArea(1, QArea::AU_SQFT))).Format()), "$0.00/sqft");
    EXPECT_EQ(Utf8(QRateValue(Cents(300), Mm(2)).Format()), "$3.00/2");
    EXPECT_EQ(Utf8(QRateValue(V(4.0), Feet(1)).Format()), "4/ft");
    QRateValue back;
    EXPECT_EQ(back.Parse(QRateValue(Cents(500), Seconds(3600)).Format()), PARSE_EXACT);
    ExpectHalves(back, Cents(500), Seconds(3600));
}

} // namespace

} // namespace keel
