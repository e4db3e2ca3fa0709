#include "keel/platform/file.h"
#include "keel/values/time.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace keel {
namespace {

using Units = QTime::TIMEUNITS;
constexpr std::int32_t kMaxRaw = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMinRaw = std::numeric_limits<std::int32_t>::min();

class TimeTest : public ::testing::Test {
protected:
    void TearDown() override { QTime::SetDefaultUnits(m_units); }

private:
    Units m_units = QTime::DefaultUnits();
};

TEST_F(TimeTest, StartsInHours) {
    EXPECT_EQ(QTime::DefaultUnits(), QTime::TU_HOURS);
    EXPECT_EQ(QTime(1.5).GetRaw(), 5400);
}

TEST_F(TimeTest, RawToDoubleDividesMinutesAndHours) {
    const struct {
        Units unit;
        double expected;
    } rows[] = {
        {QTime::TU_RAW, 5400},  {QTime::TU_SECONDS, 5400},     {QTime::TU_MINUTES, 90},
        {QTime::TU_HOURS, 1.5}, {static_cast<Units>(8), 5400},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.unit);
        EXPECT_DOUBLE_EQ(QTime::raw_to_double(5400, row.unit), row.expected);
        EXPECT_DOUBLE_EQ(QTime::FromRaw(5400).AsDouble(row.unit), row.expected);
    }
}

TEST_F(TimeTest, DoubleToRawRoundsByTheFloorOfValuePlusAHalf) {
    const struct {
        double value;
        Units unit;
        std::int32_t raw;
    } rows[] = {
        {2.5, QTime::TU_RAW, 3},
        {2.5, QTime::TU_SECONDS, 3},
        {-2.5, QTime::TU_SECONDS, -2},
        {-2.5001, QTime::TU_SECONDS, -3},
        {0.125, QTime::TU_MINUTES, 8},   // 7.5 s
        {-0.125, QTime::TU_MINUTES, -7}, // -7.5 s
        {0.375, QTime::TU_MINUTES, 23},  // 22.5 s
        {1.5, QTime::TU_HOURS, 5400},
        {-0.25, QTime::TU_HOURS, -900},
        {1.0 / 7200 + 1e-9, QTime::TU_HOURS, 1},
        {1.0 / 7200 - 1e-9, QTime::TU_HOURS, 0},
        {2.9, static_cast<Units>(8), 2},
        {-2.9, static_cast<Units>(8), -2},
        {1e12, QTime::TU_HOURS, kMaxRaw},
        {-1e12, QTime::TU_MINUTES, kMinRaw},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.value << " in unit " << row.unit);
        EXPECT_EQ(QTime::double_to_raw(row.value, row.unit), row.raw);
    }
    EXPECT_EQ(QTime::minute_to_raw(0.125), 8);
    EXPECT_EQ(QTime::minute_to_raw(-0.125), -7);
    EXPECT_EQ(QTime::hour_to_raw(0.5), 1800);
    EXPECT_EQ(QTime::hour_to_raw(-0.5), -1800);
}

TEST_F(TimeTest, TheDefaultUnitServesWhereNoneIsGiven) {
    QTime::SetDefaultUnits(QTime::TU_MINUTES);
    EXPECT_EQ(QTime(1.5).GetRaw(), 90);
    EXPECT_EQ(QTime::double_to_raw(2), 120);
    EXPECT_DOUBLE_EQ(QTime::raw_to_double(90), 1.5);
    EXPECT_EQ(QTime::TimeUnitSuffix().ToUtf8(), "mn");
    EXPECT_THROW(QTime::SetDefaultUnits(QTime::TU_DEFAULT), InvalidArgumentException);
    EXPECT_THROW(QTime::SetDefaultUnits(static_cast<Units>(4)), InvalidArgumentException);
    EXPECT_EQ(QTime::DefaultUnits(), QTime::TU_MINUTES);
}

TEST_F(TimeTest, TotalsAndPartsCutTheSpan) {
    const struct {
        std::int32_t raw;
        std::int32_t totalHours, totalMinutes;
        std::int32_t days, hours, minutes, seconds;
    } rows[] = {
        {0, 0, 0, 0, 0, 0, 0},         {59, 0, 0, 0, 0, 0, 59},
        {60, 0, 1, 0, 0, 1, 0},        {3599, 0, 59, 0, 0, 59, 59},
        {3600, 1, 60, 0, 1, 0, 0},     {86399, 23, 1439, 0, 23, 59, 59},
        {90061, 25, 1501, 1, 1, 1, 1}, {-3661, -1, -61, 0, -1, -1, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.raw);
        const QTime time = QTime::FromRaw(row.raw);
        EXPECT_EQ(time.GetTotalHours(), row.totalHours);
        EXPECT_EQ(time.GetTotalMinutes(), row.totalMinutes);
        EXPECT_EQ(time.GetTotalSeconds(), row.raw);
        EXPECT_EQ(time.GetDays(), row.days);
        EXPECT_EQ(time.GetHours(), row.hours);
        EXPECT_EQ(time.GetMinutes(), row.minutes);
        EXPECT_EQ(time.GetSeconds(), row.seconds);
    }
}

TEST_F(TimeTest, ArithmeticFollowsTheFloorRuleAndSaturates) {
    const QTime a = QTime::FromRaw(90);
    const QTime b = QTime::FromRaw(-30);
    EXPECT_EQ((a + b).GetRaw(), 60);
    EXPECT_EQ((a - b).GetRaw(), 120);
    EXPECT_EQ((a * 3).GetRaw(), 270);
    EXPECT_EQ((2 * b).GetRaw(), -60);
    EXPECT_EQ((QTime::FromRaw(3) * 0.5).GetRaw(), 2);
    EXPECT_EQ((QTime::FromRaw(-3) * 0.5).GetRaw(), -1);
    EXPECT_EQ((0.5 * QTime::FromRaw(5)).GetRaw(), 3);
    EXPECT_EQ((QTime::FromRaw(5) / 2).GetRaw(), 3);
    EXPECT_EQ((QTime::FromRaw(-5) / 2).GetRaw(), -2);
    EXPECT_EQ((QTime::FromRaw(9) / 4.0).GetRaw(), 2);
    EXPECT_DOUBLE_EQ(a / QTime::FromRaw(60), 1.5);
    EXPECT_EQ((-a).GetRaw(), -90);
    EXPECT_EQ((+b).GetRaw(), -30);
    EXPECT_EQ((QTime::FromRaw(kMaxRaw) + QTime::FromRaw(1)).GetRaw(), kMaxRaw);
    EXPECT_EQ((QTime::FromRaw(kMinRaw) * 2).GetRaw(), kMinRaw);
    EXPECT_EQ((-QTime::FromRaw(kMinRaw)).GetRaw(), kMaxRaw);
}

TEST_F(TimeTest, ComparesAndHashesBySeconds) {
    EXPECT_TRUE(QTime::FromRaw(59) < QTime::FromRaw(60));
    EXPECT_TRUE(QTime(1, QTime::TU_MINUTES) == QTime::FromRaw(60));
    EXPECT_TRUE(QTime::FromRaw(61) >= QTime(1, QTime::TU_MINUTES));
    EXPECT_TRUE(QTime::FromRaw(1) != QTime::Zero);
    EXPECT_TRUE(!QTime::Zero);
    EXPECT_FALSE(!QTime::FromRaw(1));
    EXPECT_EQ(QTime::FromRaw(1).HashKey(), 16807u);
    EXPECT_EQ(QTime::FromRaw(-1).HashKey(), 2147466840u);
    EXPECT_EQ(HashKey(QTime::FromRaw(127773)), 2147480811u);
    EXPECT_EQ(QTime::Zero.HashKey(), 0u);
}

TEST_F(TimeTest, ParseReadsANumberAndAUnitWord) {
    const struct {
        const char* text;
        Units defaultUnit;
        PARSERESULT result;
        std::int32_t raw;
    } rows[] = {
        {"2", QTime::TU_HOURS, PARSE_EXACT, 7200},
        {"  1.5  ", QTime::TU_HOURS, PARSE_EXACT, 5400},
        {"2", QTime::TU_MINUTES, PARSE_EXACT, 120},
        {"-2", QTime::TU_SECONDS, PARSE_EXACT, -2},
        {"90 s", QTime::TU_HOURS, PARSE_EXACT, 90},
        {"90s", QTime::TU_HOURS, PARSE_EXACT, 90},
        {"2 mn", QTime::TU_HOURS, PARSE_EXACT, 120},
        {"2mn", QTime::TU_SECONDS, PARSE_EXACT, 120},
        {"1.5 hr", QTime::TU_SECONDS, PARSE_EXACT, 5400},
        {"0.25hr", QTime::TU_MINUTES, PARSE_EXACT, 900},
        {"", QTime::TU_HOURS, PARSE_NONE, 0},
        {"hr", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 HR", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 Mn", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 m", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 h", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 ms", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 hrs", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 sec", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 hr 3", QTime::TU_HOURS, PARSE_NONE, 0},
        {"2 x", QTime::TU_HOURS, PARSE_NONE, 0},
        {"nan", QTime::TU_HOURS, PARSE_NONE, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        QTime::SetDefaultUnits(row.defaultUnit);
        QTime time = QTime::FromRaw(-42);
        EXPECT_EQ(time.Parse(CString::FromUtf8(row.text)), row.result);
        EXPECT_EQ(time.GetRaw(), row.result == PARSE_NONE ? -42 : row.raw);
    }
}

TEST_F(TimeTest, ParseTakesABareNumberInTheUnitAsked) {
    QTime time;
    EXPECT_EQ(time.Parse(u"2", QTime::TU_SECONDS), PARSE_EXACT);
    EXPECT_EQ(time.GetRaw(), 2);
    EXPECT_EQ(time.Parse(u"2 hr", QTime::TU_SECONDS), PARSE_EXACT);
    EXPECT_EQ(time.GetRaw(), 7200);
}

TEST_F(TimeTest, FormatWritesTheNumberWithoutRedundantDecimalsAndTheUnitWordWhenAsked) {
    const struct {
        std::int32_t raw;
        Units unit;
        bool showUnit;
        const char* text;
    } rows[] = {
        {5400, QTime::TU_HOURS, false, "1.5"},     {5400, QTime::TU_HOURS, true, "1.5 hr"},
        {5400, QTime::TU_MINUTES, true, "90 mn"},  {5400, QTime::TU_SECONDS, true, "5400 s"},
        {5400, QTime::TU_RAW, true, "5400"},       {-45, QTime::TU_MINUTES, false, "-0.75"},
        {1, QTime::TU_HOURS, true, "0.000278 hr"}, {0, QTime::TU_HOURS, true, "0 hr"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(QTime::FromRaw(row.raw).Format(row.unit, row.showUnit).ToUtf8(), row.text);
    }
    EXPECT_EQ(QTime::FromRaw(7200).Format().ToUtf8(), "2");
}

TEST_F(TimeTest, FormattedSpansParseBackToTheSameSecond) {
    for (Units unit : {QTime::TU_SECONDS, QTime::TU_MINUTES, QTime::TU_HOURS}) {
        for (std::int32_t raw : {0, 1, 59, 61, 3599, 3601, 86399, -1, -7261, 1000003}) {
            SCOPED_TRACE(testing::Message() << raw << " in unit " << unit);
            QTime time;
            EXPECT_EQ(time.Parse(QTime::FromRaw(raw).Format(unit, true)), PARSE_EXACT);
            EXPECT_EQ(time.GetRaw(), raw);
        }
    }
}

TEST_F(TimeTest, ArchiveHoldsTheSecondsInFourLittleEndianBytes) {
    CMemFile file;
    {
        CArchive archive(&file, CArchive::store);
        archive << QTime::FromRaw(-2) << QTime::FromRaw(0x0A0B0C0D);
        archive.Close();
    }
    const std::vector<std::uint8_t> expected = {0xFE, 0xFF, 0xFF, 0xFF, 0x0D, 0x0C, 0x0B, 0x0A};
    EXPECT_EQ(file.Bytes(), expected);
    CMemFile input(expected);
    CArchive archive(&input, CArchive::load);
    QTime first;
    QTime second;
    archive >> first >> second;
    EXPECT_EQ(first.GetRaw(), -2);
    EXPECT_EQ(second.GetRaw(), 0x0A0B0C0D);
}

} // namespace
} // namespace keel
