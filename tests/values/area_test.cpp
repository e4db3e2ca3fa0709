#include "tests/support/quantities.h"

#include "keel/platform/file.h"
#include "keel/values/area.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::Bytes;
using test::DoubleBytes;
using test::Loaded;
using test::Stored;
using Reports = test::LimitDoubleReports;
using Units = QArea::AREAUNITS;

class AreaTest : public ::testing::Test {
protected:
    void TearDown() override {
        QArea::SetDefaultUnits(m_units);
        SetLimitDoubleTrace(m_trace);
        SetLimitDoubleFailedReporter(m_reporter);
    }

private:
    Units m_units = QArea::DefaultUnits();
    LimitDoubleTrace m_trace = SetLimitDoubleTrace(nullptr);
    LimitDoubleFailedReporter m_reporter = SetLimitDoubleFailedReporter(nullptr);
};

TEST_F(AreaTest, StartsInSquareMetres) {
    EXPECT_EQ(QArea::DefaultUnits(), QArea::AU_SQM);
    EXPECT_EQ(QArea::DefaultUnits(), 7);
}

TEST_F(AreaTest, EachUnitFactorMatchesItsKnownSize) {
    const struct {
        Units unit;
        double squareMetres;
    } rows[] = {
        {QArea::AU_RAW, 1},
        {QArea::AU_SQHIMETRIC, 0.00001 * 0.00001},
        {QArea::AU_SQLOMETRIC, 0.0001 * 0.0001},
        {QArea::AU_SQMM, 0.001 * 0.001},
        {QArea::AU_SQCM, 0.01 * 0.01},
        {QArea::AU_SQIN, 0.0254 * 0.0254},
        {QArea::AU_SQFT, 0.3048 * 0.3048},
        {QArea::AU_SQM, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.unit);
        EXPECT_DOUBLE_EQ(QArea::Factor(row.unit), row.squareMetres);
        EXPECT_DOUBLE_EQ(QArea::double_to_raw(3, row.unit), 3 * row.squareMetres);
        EXPECT_DOUBLE_EQ(QArea::raw_to_double(3 * row.squareMetres, row.unit), 3);
    }
}

TEST_F(AreaTest, NamedConversionsFollowFromTheFactors) {
    EXPECT_DOUBLE_EQ(QArea::sqft_to_sqin(1), 144);
    EXPECT_DOUBLE_EQ(QArea::sqm_to_sqcm(1), 10000);
    EXPECT_DOUBLE_EQ(QArea::sqin_to_sqmm(1), 645.16);
    EXPECT_DOUBLE_EQ(QArea::sqft_to_sqm(1), 0.09290304);
    EXPECT_DOUBLE_EQ(QArea::sqhimetric_to_sqlometric(100), 1);
    EXPECT_DOUBLE_EQ(QArea::sqm_to_sqft(0.09290304), 1);
}

TEST_F(AreaTest, TheDefaultUnitServesWhereNoneIsGiven) {
    QArea::SetDefaultUnits(QArea::AU_SQFT);
    EXPECT_DOUBLE_EQ(QArea(2).GetRaw(), 2 * 0.09290304);
    EXPECT_DOUBLE_EQ(QArea::double_to_raw(2), 2 * 0.09290304);
    EXPECT_DOUBLE_EQ(QArea::raw_to_double(0.09290304), 1);
    EXPECT_DOUBLE_EQ(QArea::FromRaw(0.09290304).AsDouble(), 1);
    EXPECT_EQ(QArea::AreaUnitSuffix(), u"sqft");
}

TEST_F(AreaTest, DefaultUnitsAreMetricForTheMetricWords) {
    const struct {
        Units unit;
        bool metric;
    } rows[] = {
        {QArea::AU_RAW, false},  {QArea::AU_SQHIMETRIC, false}, {QArea::AU_SQLOMETRIC, false},
        {QArea::AU_SQMM, true},  {QArea::AU_SQCM, true},        {QArea::AU_SQIN, false},
        {QArea::AU_SQFT, false}, {QArea::AU_SQM, true},
    };
    for (const auto& row : rows) {
        QArea::SetDefaultUnits(row.unit);
        EXPECT_EQ(QArea::DefaultUnitsAreMetric(), row.metric) << row.unit;
    }
    EXPECT_THROW(QArea::SetDefaultUnits(QArea::AU_DEFAULT), InvalidArgumentException);
    EXPECT_THROW(QArea::SetDefaultUnits(static_cast<Units>(8)), InvalidArgumentException);
}

TEST_F(AreaTest, ComparisonsHoldWithinItsTolerance) {
    const double eps = 0.0001;
    EXPECT_EQ(QArea::Eps, eps);
    const struct {
        double difference;
        bool equal, less, greater;
    } rows[] = {
        {0, true, false, false},           {0.99 * eps, true, false, false},
        {eps, true, false, true},          {1.01 * eps, false, false, true},
        {-0.99 * eps, true, false, false}, {-eps, true, true, false},
        {-1.01 * eps, false, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.difference);
        const QArea a = QArea::FromRaw(row.difference);
        EXPECT_EQ(a == QArea::Zero, row.equal);
        EXPECT_EQ(a < QArea::Zero, row.less);
        EXPECT_EQ(a > QArea::Zero, row.greater);
        EXPECT_EQ(a <= QArea::Zero, !row.greater);
        EXPECT_EQ(a >= QArea::Zero, !row.less);
        EXPECT_EQ(!a, row.equal);
    }
}

TEST_F(AreaTest, ArithmeticWorksOnTheRawValue) {
    const QArea a = QArea::FromRaw(6);
    const QArea b = QArea::FromRaw(4);
    EXPECT_DOUBLE_EQ((a + b).GetRaw(), 10);
    EXPECT_DOUBLE_EQ((a - b).GetRaw(), 2);
    EXPECT_DOUBLE_EQ((a * 2).GetRaw(), 12);
    EXPECT_DOUBLE_EQ((0.5 * a).GetRaw(), 3);
    EXPECT_DOUBLE_EQ((a / 4).GetRaw(), 1.5);
    EXPECT_DOUBLE_EQ(a / b, 1.5);
    EXPECT_DOUBLE_EQ((-a).GetRaw(), -6);
}

TEST_F(AreaTest, ParseReadsANumberAndAUnitWord) {
    const struct {
        const char* text;
        Units defaultUnit;
        PARSERESULT result;
        double raw;
    } rows[] = {
        {"2", QArea::AU_SQM, PARSE_DEFAULTED, 2},
        {"  2.5  ", QArea::AU_SQM, PARSE_DEFAULTED, 2.5},
        {"2", QArea::AU_SQFT, PARSE_DEFAULTED, 0.18580608},
        {"2 sqm", QArea::AU_SQFT, PARSE_EXACT, 2},
        {"2sqm", QArea::AU_SQFT, PARSE_EXACT, 2},
        {"2 sqft", QArea::AU_SQM, PARSE_EXACT, 0.18580608},
        {"150 sqcm", QArea::AU_SQM, PARSE_EXACT, 0.015},
        {"4 sqmm", QArea::AU_SQM, PARSE_EXACT, 4e-6},
        {"-2 sqin", QArea::AU_SQM, PARSE_EXACT, -0.00129032},
        {"", QArea::AU_SQM, PARSE_NONE, 0},
        {"sqm", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 SQM", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sq", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 cm", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sqmmx", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sqm 3", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sqyd", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 m2", QArea::AU_SQM, PARSE_NONE, 0},
        {"1e39", QArea::AU_SQM, PARSE_NONE, 0},
        {"nan", QArea::AU_SQM, PARSE_NONE, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        QArea::SetDefaultUnits(row.defaultUnit);
        QArea value = QArea::FromRaw(42);
        EXPECT_EQ(value.Parse(CString(row.text)), row.result);
        EXPECT_DOUBLE_EQ(value.GetRaw(), row.result == PARSE_NONE ? 42 : row.raw);
    }
}

TEST_F(AreaTest, ParseReadsTheNumberAsAFloat) {
    QArea value;
    EXPECT_EQ(value.Parse(u"1.1 sqm"), PARSE_EXACT);
    EXPECT_EQ(value.GetRaw(), static_cast<double>(1.1f));
    EXPECT_NE(value.GetRaw(), 1.1);
}

TEST_F(AreaTest, ParseTakesABareNumberInTheUnitGiven) {
    QArea value;
    EXPECT_EQ(value.Parse(u"2", QArea::AU_SQCM), PARSE_DEFAULTED);
    EXPECT_DOUBLE_EQ(value.GetRaw(), 2 * 1e-4);
}

TEST_F(AreaTest, FormatWritesTwoDecimalsAndTheUnitWordWhenAsked) {
    const struct {
        double raw;
        Units unit;
        bool showUnit;
        const char* text;
    } rows[] = {
        {1.5, QArea::AU_SQM, false, "1.50"},
        {1.5, QArea::AU_SQM, true, "1.50 sqm"},
        {1.005, QArea::AU_SQM, false, "1.00"},
        {0.09290304 * 2.5, QArea::AU_SQFT, true, "2.50 sqft"},
        {0.0001, QArea::AU_SQCM, true, "1.00 sqcm"},
        {1.5, QArea::AU_RAW, true, "1.50"},
        {-3, QArea::AU_SQM, false, "-3.00"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(QArea::FromRaw(row.raw).Format(row.unit, row.showUnit).ToUtf8(), row.text);
}

TEST_F(AreaTest, UnitSuffixesAreTheUnitWords) {
    const char* const words[] = {"", "", "", "sqmm", "sqcm", "sqin", "sqft", "sqm"};
    for (int unit = 0; unit <= 7; ++unit)
        EXPECT_EQ(QArea::AreaUnitSuffix(static_cast<Units>(unit)).ToUtf8(), words[unit]) << unit;
}

TEST_F(AreaTest, StoresAndReadsEightBytesOfDoubleUnderAnySchema) {
    EXPECT_EQ(Stored(QArea::FromRaw(1.5)), (Bytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
    EXPECT_EQ(Stored(QArea::FromRaw(-0.25)), DoubleBytes(-0.25));
    for (const unsigned schema : {0u, 16u, 17u, 107u, 108u, CArchive::noSchema}) {
        EXPECT_DOUBLE_EQ(Loaded<QArea>({0, 0, 0, 0, 0, 0, 0xF8, 0x3F}, schema).GetRaw(), 1.5);
        EXPECT_DOUBLE_EQ(Loaded<QArea>(DoubleBytes(-0.25), schema).GetRaw(), -0.25);
    }
}

TEST_F(AreaTest, AStoredValueOutOfRangeReadsAsZeroWithAReport) {
    Reports::Install();
    EXPECT_EQ(Loaded<QArea>(DoubleBytes(1e30)).GetRaw(), 0.0);
    EXPECT_EQ(Reports::traced, std::vector<std::string>{"Area CArchive>> reading"});
    EXPECT_EQ(Reports::reported, std::vector<std::string>{"area"});
}

TEST_F(AreaTest, StoringWritesTheValueAsItIs) {
    Reports::Install();
    EXPECT_EQ(Stored(QArea::FromRaw(1e30)), DoubleBytes(1e30));
    EXPECT_TRUE(Reports::reported.empty());
}

TEST_F(AreaTest, LimitDoubleAlwaysZeroesTheRawValue) {
    QArea value = QArea::FromRaw(-1e-25);
    EXPECT_TRUE(QArea::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 0.0);
    value = QArea::FromRaw(1e-6);
    EXPECT_FALSE(QArea::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 1e-6);
}

} // namespace
} // namespace keel
