#include "tests/support/anyvalues.h"
#include "tests/support/samevalue.h"
#include "tests/support/valuesettings.h"

#include "keel/values/ratevalue.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

using test::Cents;
using test::Feet;
using test::Mm;
using test::Seconds;

std::string Utf8(const CString& text) {
    return text.ToUtf8();
}

void ExpectHalves(const QRateValue& rate, const QAnyValue& num, const QAnyValue& den) {
    EXPECT_TRUE(test::Same(rate.Num(), num)) << "numerator";
    EXPECT_TRUE(test::Same(rate.Den(), den)) << "denominator";
}

class RateValueTest : public ::testing::Test {
    test::ScopedValueSettings m_settings;
};

TEST_F(RateValueTest, ConstructionAndArithmeticWorkOnTheHalves) {
    QRateValue assigned(Cents(5), Mm(2));
    assigned = 4;
    QRateValue assignedDouble(Cents(5), Mm(2));
    assignedDouble = 0.5;
    const QRateValue half(QAnyValue(1), QAnyValue(2));
    const QRateValue third(QAnyValue(1), QAnyValue(3));
    const QRateValue perFoot(Cents(200), Feet(1));
    const struct {
        const char* what;
        QRateValue rate;
        QAnyValue num, den;
    } cases[] = {
        {"empty", QRateValue(), QAnyValue(), QAnyValue()},
        {"whole number", QRateValue(3), QAnyValue(3), QAnyValue(1)},
        {"number", QRateValue(2.5), QAnyValue(2.5), QAnyValue(1)},
        {"money", QRateValue(Cents(5)), Cents(5), QAnyValue(1)},
        {"two halves", QRateValue(Cents(5), Mm(2)), Cents(5), Mm(2)},
        {"assigned a whole number", assigned, QAnyValue(4), QAnyValue(1)},
        {"assigned a number", assignedDouble, QAnyValue(0.5), QAnyValue(1)},
        {"sum cross-multiplies", half + third, QAnyValue(5), QAnyValue(6)},
        {"difference cross-multiplies", half - third, QAnyValue(1), QAnyValue(6)},
        {"product", perFoot * QRateValue(QAnyValue(3), QAnyValue(1)), Cents(600), Feet(1)},
        {"quotient",
         QRateValue(QAnyValue(6), QAnyValue(1)) / QRateValue(QAnyValue(2), QAnyValue(1)),
         QAnyValue(6), QAnyValue(2)},
        {"times a whole number", perFoot * 3, Cents(600), Feet(1)},
        {"times a number", perFoot * 1.5, Cents(300), Feet(1)},
        {"over a whole number", perFoot / 4, Cents(50), Feet(1)},
        {"over a number", perFoot / 0.5, Cents(400), Feet(1)},
        {"negated", -perFoot, Cents(-200), Feet(1)},
        {"plus", +perFoot, Cents(200), Feet(1)},
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
    EXPECT_TRUE(QRateValue(Cents(0), Feet(1)).IsZero());
}

TEST_F(RateValueTest, ComparisonByQuotientAndDoubleInTheDefaultUnits) {
    const QRateValue half(QAnyValue(1), QAnyValue(2));
    const QRateValue twoQuarters(QAnyValue(2), QAnyValue(4));
    const QRateValue twoThirds(QAnyValue(2), QAnyValue(3));
    EXPECT_TRUE(half == twoQuarters);
    EXPECT_FALSE(half != twoQuarters);
    EXPECT_TRUE(half < twoThirds);
    EXPECT_TRUE(half <= twoQuarters);
    EXPECT_TRUE(twoThirds > half);
    EXPECT_TRUE(twoThirds >= half);
    EXPECT_EQ(half.Compare(twoThirds), -1);
    EXPECT_EQ(twoThirds.Compare(half), 1);
    EXPECT_DOUBLE_EQ(Double(QRateValue(QAnyValue(3), QAnyValue(2))), 1.5);
    EXPECT_DOUBLE_EQ(Double(QRateValue(Cents(300), Mm(2))), 1.5);
    QLength::SetDefaultUnits(QLength::LU_FOOT);
    EXPECT_DOUBLE_EQ(Double(QRateValue(Cents(300), Feet(2))), 1.5);
    EXPECT_EQ(Double(QRateValue(QAnyValue(3), QAnyValue(0))), 0.0);
    EXPECT_EQ(Double(QRateValue()), 0.0);
}

TEST_F(RateValueTest, ParseSplitsAtTheStrokeAndAFailureLeavesTheRate) {
    QRateValue rate;
    EXPECT_EQ(rate.Parse(u"$5 / hr"), PARSE_EXACT);
    ExpectHalves(rate, Cents(500), Seconds(3600));
    EXPECT_EQ(rate.Parse(u"$5/3 s"), PARSE_EXACT);
    ExpectHalves(rate, Cents(500), Seconds(3));
    EXPECT_EQ(rate.Parse(u"1 1/2' / 3 s"), PARSE_EXACT) << "the first stroke is a fraction";
    ExpectHalves(rate, Feet(1.5), Seconds(3));
    EXPECT_EQ(rate.Parse(u"3 sqm / SQFT"), PARSE_EXACT);
    ExpectHalves(rate, QAnyValue(QArea(3, QArea::AU_SQM)), QAnyValue(QArea(1, QArea::AU_SQFT)));
    EXPECT_EQ(rate.Parse(u"2.5 / cbm"), PARSE_EXACT);
    ExpectHalves(rate, QAnyValue(2.5), QAnyValue(QVolume(1, QVolume::VU_CBM)));
    EXPECT_EQ(rate.Parse(u"1 1/2 / sec"), PARSE_DEFAULTED) << "a length without its unit";
    ExpectHalves(rate, Mm(1.5), Seconds(1));
    rate = QRateValue(Cents(1), Mm(1));
    for (const char16_t* text : {u"$5", u"abc / def", u"$5 / xyz", u"$5 /", u"/ sec"}) {
        EXPECT_EQ(rate.Parse(text), PARSE_NONE) << Utf8(text);
        ExpectHalves(rate, Cents(1), Mm(1));
    }
}

TEST_F(RateValueTest, UnitWords) {
    const struct {
        const char16_t* word;
        QAnyValue one;
    } cases[] = {
        {u"mm", Mm(1)},
        {u"cm", Mm(10)},
        {u"m", Mm(1000)},
        {u"in", Mm(25.4)},
        {u"ft", Mm(304.8)},
        {u"sqmm", QAnyValue(QArea(1, QArea::AU_SQMM))},
        {u"sqcm", QAnyValue(QArea(1, QArea::AU_SQCM))},
        {u"sqin", QAnyValue(QArea(1, QArea::AU_SQIN))},
        {u"sqft", QAnyValue(QArea(1, QArea::AU_SQFT))},
        {u"sqm", QAnyValue(QArea(1, QArea::AU_SQM))},
        {u"cbmm", QAnyValue(QVolume(1, QVolume::VU_CBMM))},
        {u"cbcm", QAnyValue(QVolume(1, QVolume::VU_CBCM))},
        {u"cbin", QAnyValue(QVolume(1, QVolume::VU_CBIN))},
        {u"cbft", QAnyValue(QVolume(1, QVolume::VU_CBFT))},
        {u"cbm", QAnyValue(QVolume(1, QVolume::VU_CBM))},
        {u"sec", Seconds(1)},
        {u"min", Seconds(60)},
        {u"hr", Seconds(3600)},
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
}

TEST_F(RateValueTest, TextForm) {
    EXPECT_EQ(Utf8(QRateValue(Cents(500), Seconds(3600)).Format()), "$5.00/hr");
    EXPECT_EQ(Utf8(QRateValue(Cents(0), QAnyValue(QArea(1, QArea::AU_SQFT))).Format()),
              "$0.00/sqft");
    EXPECT_EQ(Utf8(QRateValue(Cents(300), Mm(2)).Format()), "$3.00/2");
    EXPECT_EQ(Utf8(QRateValue(QAnyValue(4.0), Feet(1)).Format()), "4/ft");
    QRateValue back;
    EXPECT_EQ(back.Parse(QRateValue(Cents(500), Seconds(3600)).Format()), PARSE_EXACT);
    ExpectHalves(back, Cents(500), Seconds(3600));
}

} // namespace

} // namespace keel
