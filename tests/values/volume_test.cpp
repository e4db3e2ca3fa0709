#include "tests/support/quantities.h"

#include "keel/platform/file.h"
#include "keel/values/volume.h"

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
using Units = QVolume::VOLUMEUNITS;

class VolumeTest : public ::testing::Test {
protected:
    void TearDown() override {
        QVolume::SetDefaultUnits(m_units);
        SetLimitDoubleTrace(m_trace);
        SetLimitDoubleFailedReporter(m_reporter);
    }

private:
    Units m_units = QVolume::DefaultUnits();
    LimitDoubleTrace m_trace = SetLimitDoubleTrace(nullptr);
    LimitDoubleFailedReporter m_reporter = SetLimitDoubleFailedReporter(nullptr);
};

TEST_F(VolumeTest, StartsInCubicMetres) {
    EXPECT_EQ(QVolume::DefaultUnits(), QVolume::VU_CBM);
    EXPECT_EQ(QVolume::DefaultUnits(), 7);
}

TEST_F(VolumeTest, EachUnitFactorMatchesItsKnownSize) {
    const struct {
        Units unit;
        double cubicMetres;
    } rows[] = {
        {QVolume::VU_RAW, 1},
        {QVolume::VU_CBHIMETRIC, 0.00001 * 0.00001 * 0.00001},
        {QVolume::VU_CBLOMETRIC, 0.0001 * 0.0001 * 0.0001},
        {QVolume::VU_CBMM, 0.001 * 0.001 * 0.001},
        {QVolume::VU_CBCM, 0.01 * 0.01 * 0.01},
        {QVolume::VU_CBIN, 0.0254 * 0.0254 * 0.0254},
        {QVolume::VU_CBFT, 0.3048 * 0.3048 * 0.3048},
        {QVolume::VU_CBM, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.unit);
        EXPECT_DOUBLE_EQ(QVolume::Factor(row.unit), row.cubicMetres);
        EXPECT_DOUBLE_EQ(QVolume::double_to_raw(3, row.unit), 3 * row.cubicMetres);
        EXPECT_DOUBLE_EQ(QVolume::raw_to_double(3 * row.cubicMetres, row.unit), 3);
    }
}

TEST_F(VolumeTest, NamedConversionsFollowFromTheFactors) {
    EXPECT_DOUBLE_EQ(QVolume::cbft_to_cbin(1), 1728);
    EXPECT_DOUBLE_EQ(QVolume::cbm_to_cbcm(1), 1e6);
    EXPECT_DOUBLE_EQ(QVolume::cbin_to_cbcm(1), 16.387064);
    EXPECT_DOUBLE_EQ(QVolume::cbft_to_cbm(1), 0.028316846592);
    EXPECT_DOUBLE_EQ(QVolume::cbhimetric_to_cblometric(1000), 1);
    EXPECT_DOUBLE_EQ(QVolume::cbm_to_cbmm(1), 1e9);
}

TEST_F(VolumeTest, TheDefaultUnitServesWhereNoneIsGiven) {
    QVolume::SetDefaultUnits(QVolume::VU_CBFT);
    EXPECT_DOUBLE_EQ(QVolume(2).GetRaw(), 2 * 0.028316846592);
    EXPECT_DOUBLE_EQ(QVolume::double_to_raw(2), 2 * 0.028316846592);
    EXPECT_DOUBLE_EQ(QVolume::raw_to_double(0.028316846592), 1);
    EXPECT_DOUBLE_EQ(QVolume::FromRaw(0.028316846592).AsDouble(), 1);
    EXPECT_EQ(QVolume::VolumeUnitSuffix(), u"cbft");
}

TEST_F(VolumeTest, DefaultUnitsAreMetricForTheMetricWords) {
    const struct {
        Units unit;
        bool metric;
    } rows[] = {
        {QVolume::VU_RAW, false},  {QVolume::VU_CBHIMETRIC, false}, {QVolume::VU_CBLOMETRIC, false},
        {QVolume::VU_CBMM, true},  {QVolume::VU_CBCM, true},        {QVolume::VU_CBIN, false},
        {QVolume::VU_CBFT, false}, {QVolume::VU_CBM, true},
    };
    for (const auto& row : rows) {
        QVolume::SetDefaultUnits(row.unit);
        EXPECT_EQ(QVolume::DefaultUnitsAreMetric(), row.metric) << row.unit;
    }
    EXPECT_THROW(QVolume::SetDefaultUnits(QVolume::VU_DEFAULT), InvalidArgumentException);
    EXPECT_THROW(QVolume::SetDefaultUnits(static_cast<Units>(8)), InvalidArgumentException);
}

TEST_F(VolumeTest, ComparisonsHoldWithinItsTolerance) {
    const double eps = 1e-06;
    EXPECT_EQ(QVolume::Eps, eps);
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
        const QVolume a = QVolume::FromRaw(row.difference);
        EXPECT_EQ(a == QVolume::Zero, row.equal);
        EXPECT_EQ(a < QVolume::Zero, row.less);
        EXPECT_EQ(a > QVolume::Zero, row.greater);
        EXPECT_EQ(a <= QVolume::Zero, !row.greater);
        EXPECT_EQ(a >= QVolume::Zero, !row.less);
        EXPECT_EQ(!a, row.equal);
    }
}

TEST_F(VolumeTest, ArithmeticWorksOnTheRawValue) {
    const QVolume a = QVolume::FromRaw(6);
    const QVolume b = QVolume::FromRaw(4);
    EXPECT_DOUBLE_EQ((a + b).GetRaw(), 10);
    EXPECT_DOUBLE_EQ((a - b).GetRaw(), 2);
    EXPECT_DOUBLE_EQ((a * 2).GetRaw(), 12);
    EXPECT_DOUBLE_EQ((0.5 * a).GetRaw(), 3);
    EXPECT_DOUBLE_EQ((a / 4).GetRaw(), 1.5);
    EXPECT_DOUBLE_EQ(a / b, 1.5);
    EXPECT_DOUBLE_EQ((-a).GetRaw(), -6);
}

TEST_F(VolumeTest, ParseReadsANumberAndAUnitWord) {
    const struct {
        const char* text;
        Units defaultUnit;
        PARSERESULT result;
        double raw;
    } rows[] = {
        {"2", QVolume::VU_CBM, PARSE_DEFAULTED, 2},
        {"  2.5  ", QVolume::VU_CBM, PARSE_DEFAULTED, 2.5},
        {"2", QVolume::VU_CBFT, PARSE_DEFAULTED, 0.056633693184},
        {"2 cbm", QVolume::VU_CBFT, PARSE_EXACT, 2},
        {"2cbm", QVolume::VU_CBFT, PARSE_EXACT, 2},
        {"2 cbft", QVolume::VU_CBM, PARSE_EXACT, 0.056633693184},
        {"500 cbcm", QVolume::VU_CBM, PARSE_EXACT, 0.0005},
        {"4 cbmm", QVolume::VU_CBM, PARSE_EXACT, 4e-9},
        {"-2 cbin", QVolume::VU_CBM, PARSE_EXACT, -3.2774128e-5},
        {"", QVolume::VU_CBM, PARSE_NONE, 0},
        {"cbm", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 CBM", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 cb", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 sqm", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 cbmmx", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 cbm 3", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 m3", QVolume::VU_CBM, PARSE_NONE, 0},
        {"1e39", QVolume::VU_CBM, PARSE_NONE, 0},
        {"inf cbm", QVolume::VU_CBM, PARSE_NONE, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        QVolume::SetDefaultUnits(row.defaultUnit);
        QVolume value = QVolume::FromRaw(42);
        EXPECT_EQ(value.Parse(CString(row.text)), row.result);
        EXPECT_DOUBLE_EQ(value.GetRaw(), row.result == PARSE_NONE ? 42 : row.raw);
    }
}

TEST_F(VolumeTest, ParseReadsTheNumberAsAFloat) {
    QVolume value;
    EXPECT_EQ(value.Parse(u"1.1 cbm"), PARSE_EXACT);
    EXPECT_EQ(value.GetRaw(), static_cast<double>(1.1f));
    EXPECT_NE(value.GetRaw(), 1.1);
}

TEST_F(VolumeTest, ParseTakesABareNumberInTheUnitGiven) {
    QVolume value;
    EXPECT_EQ(value.Parse(u"2", QVolume::VU_CBCM), PARSE_DEFAULTED);
    EXPECT_DOUBLE_EQ(value.GetRaw(), 2 * 1e-6);
}

TEST_F(VolumeTest, FormatWritesTwoDecimalsAndTheUnitWordWhenAsked) {
    const struct {
        double raw;
        Units unit;
        bool showUnit;
        const char* text;
    } rows[] = {
        {1.5, QVolume::VU_CBM, false, "1.50"},
        {1.5, QVolume::VU_CBM, true, "1.50 cbm"},
        {1.005, QVolume::VU_CBM, false, "1.00"},
        {0.028316846592 * 2.5, QVolume::VU_CBFT, true, "2.50 cbft"},
        {1e-6, QVolume::VU_CBCM, true, "1.00 cbcm"},
        {1.5, QVolume::VU_RAW, true, "1.50"},
        {-3, QVolume::VU_CBM, false, "-3.00"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(QVolume::FromRaw(row.raw).Format(row.unit, row.showUnit).ToUtf8(), row.text);
}

TEST_F(VolumeTest, UnitSuffixesAreTheUnitWords) {
    const char* const words[] = {"", "", "", "cbmm", "cbcm", "cbin", "cbft", "cbm"};
    for (int unit = 0; unit <= 7; ++unit)
        EXPECT_EQ(QVolume::VolumeUnitSuffix(static_cast<Units>(unit)).ToUtf8(), words[unit])
            << unit;
}

TEST_F(VolumeTest, StoresAndReadsEightBytesOfDoubleUnderAnySchema) {
    EXPECT_EQ(Stored(QVolume::FromRaw(1.5)), (Bytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
    EXPECT_EQ(Stored(QVolume::FromRaw(-0.25)), DoubleBytes(-0.25));
    for (const unsigned schema : {0u, 16u, 17u, 107u, 108u, CArchive::noSchema}) {
        EXPECT_DOUBLE_EQ(Loaded<QVolume>({0, 0, 0, 0, 0, 0, 0xF8, 0x3F}, schema).GetRaw(), 1.5);
        EXPECT_DOUBLE_EQ(Loaded<QVolume>(DoubleBytes(-0.25), schema).GetRaw(), -0.25);
    }
}

TEST_F(VolumeTest, AStoredValueOutOfRangeReadsAsZeroWithAReport) {
    Reports::Install();
    EXPECT_EQ(Loaded<QVolume>(DoubleBytes(1e30)).GetRaw(), 0.0);
    EXPECT_EQ(Reports::traced, std::vector<std::string>{"Volume CArchive>> reading"});
    EXPECT_EQ(Reports::reported, std::vector<std::string>{"volume"});
}

TEST_F(VolumeTest, StoringWritesTheValueAsItIs) {
    Reports::Install();
    EXPECT_EQ(Stored(QVolume::FromRaw(1e30)), DoubleBytes(1e30));
    EXPECT_TRUE(Reports::reported.empty());
}

TEST_F(VolumeTest, LimitDoubleAlwaysZeroesTheRawValue) {
    QVolume value = QVolume::FromRaw(-1e-25);
    EXPECT_TRUE(QVolume::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 0.0);
    value = QVolume::FromRaw(1e-6);
    EXPECT_FALSE(QVolume::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 1e-6);
}

} // namespace
} // namespace keel
