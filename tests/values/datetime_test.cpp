#include "tests/support/environment.h"
#include "tests/support/quantities.h"

#include "keel/platform/file.h"
#include "keel/values/datetime.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace keel {
namespace {

constexpr double kSecond = 1.0 / 86400;

using test::Bytes;
using test::ScopedEnvironment;

// Every test runs under the "C" locale, whose date format is "%m/%d/%y" and time "%H:%M:%S",
// so that names of days and months are English whatever the machine is set to.
class DateTimeTest : public ::testing::Test {
protected:
    void SetUp() override { QDateTime::ResetLocale(); }
    void TearDown() override { QDateTime::ResetLocale(); }

    static void UseDayMonthYear() { QDateTime::SetLocaleFormats(u"%d/%m/%Y", u"%H:%M:%S"); }
    static void UseYearMonthDay() { QDateTime::SetLocaleFormats(u"%Y-%m-%d", u"%H:%M:%S"); }

private:
    ScopedEnvironment m_locale{"LC_ALL", "C"};
};

// The parts as "YYYY-MM-DD HH:MM:SS", for readable comparisons.
std::string Parts(int year, int month, int day, int hour, int minute, int second) {
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour,
                  minute, second);
    return text;
}

std::string PartsOf(const QDateTime& date) {
    return Parts(date.GetYear(), date.GetMonth(), date.GetDay(), date.GetHour(), date.GetMinute(),
                 date.GetSecond());
}

TEST_F(DateTimeTest, DayNumbersMatchTheKnownOleDates) {
    const struct {
        int year, month, day, hour, minute;
        double oleDate;
    } rows[] = {
        {1899, 12, 30, 0, 0, 0.0},   {1900, 3, 1, 0, 0, 61.0},     {2000, 1, 1, 12, 0, 36526.5},
        {1899, 12, 29, 6, 0, -1.25}, {100, 1, 1, 0, 0, -657434.0}, {9999, 12, 31, 0, 0, 2958465.0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.oleDate);
        const QDateTime built(row.year, row.month, row.day, row.hour, row.minute);
        EXPECT_TRUE(built.IsValid());
        EXPECT_DOUBLE_EQ(built.GetOleDate(), row.oleDate);
        EXPECT_EQ(PartsOf(QDateTime(row.oleDate)),
                  Parts(row.year, row.month, row.day, row.hour, row.minute, 0));
    }
}

TEST_F(DateTimeTest, PartsAreReadToTheNearestSecondAndPartsThatNameNoTimeMakeAnInvalidDate) {
    const double base = QDateTime(2026, 11, 21, 14, 30, 5).GetOleDate();
    EXPECT_EQ(PartsOf(QDateTime(-0.25)), "1899-12-30 06:00:00") << "a fraction above -1 is day 0";
    EXPECT_EQ(PartsOf(QDateTime(base + 0.4 * kSecond)), "2026-11-21 14:30:05");
    EXPECT_EQ(PartsOf(QDateTime(base + 0.6 * kSecond)), "2026-11-21 14:30:06");
    const double lastSecond = QDateTime(2026, 12, 31, 23, 59, 59).GetOleDate();
    EXPECT_EQ(PartsOf(QDateTime(lastSecond + 0.6 * kSecond)), "2027-01-01 00:00:00");
    EXPECT_EQ(PartsOf(QDateTime(-1.0 - 0.9999999)), "1899-12-30 00:00:00");
    EXPECT_EQ(PartsOf(QDateTime(QDateTime::MaxDay + 0.9999999)), "9999-12-31 23:59:59");
    const struct {
        int year, month, day, hour, minute, second;
        bool valid;
    } rows[] = {
        {100, 1, 1, 0, 0, 0, true},       {99, 12, 31, 23, 59, 59, false},
        {9999, 12, 31, 23, 59, 59, true}, {10000, 1, 1, 0, 0, 0, false},
        {1900, 2, 29, 0, 0, 0, false},    {2000, 2, 29, 0, 0, 0, true},
        {2026, 4, 31, 0, 0, 0, false},    {2026, 13, 1, 0, 0, 0, false},
        {2026, 0, 1, 0, 0, 0, false},     {2026, 1, 0, 0, 0, 0, false},
        {2026, 1, 1, 24, 0, 0, false},    {2026, 1, 1, 0, 60, 0, false},
        {2026, 1, 1, 0, 0, 60, false},    {2026, 1, 1, -1, 0, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.year << "-" << row.month << "-" << row.day << " "
                                        << row.hour << ":" << row.minute << ":" << row.second);
        QDateTime date;
        EXPECT_EQ(date.SetDateTime(row.year, row.month, row.day, row.hour, row.minute, row.second),
                  row.valid);
        EXPECT_EQ(date.IsValid(), row.valid);
    }
}

TEST_F(DateTimeTest, LeapYearsFollowTheGregorianRule) {
    for (const auto& [year, days] : {std::pair{1900, 28}, {2000, 29}, {2023, 28}}) {
        SCOPED_TRACE(year);
        EXPECT_EQ(QDateTime::IsLeapYear(year), days == 29);
        EXPECT_EQ(QDateTime::DaysInMonth(year, 2), days);
        EXPECT_EQ(QDateTime(year, 2, 1).GetLastDayOfMonth(), days);
    }
    EXPECT_EQ(QDateTime::DaysInMonth(2026, 4), 30);
    EXPECT_THROW(QDateTime::DaysInMonth(2026, 13), InvalidArgumentException);
}

TEST_F(DateTimeTest, StatusTellsValidNullAndInvalidAndTheRangeRunsFromTheYear100To9999) {
    EXPECT_TRUE(QDateTime().IsValid());
    QDateTime date(1.0);
    date.SetStatus(QDateTime::null);
    EXPECT_FALSE(date.IsValid());
    EXPECT_EQ(date.GetStatus(), 2);
    const QDateTime invalid(1e9);
    EXPECT_EQ(invalid.GetStatus(), 1);
    EXPECT_EQ(PartsOf(invalid), "-001--1--1 -1:-1:-1") << "every part of an invalid date is -1";
    EXPECT_EQ(invalid.GetDayOfWeek(), -1);
    const struct {
        double oleDate;
        bool valid;
    } rows[] = {
        {-657434.99, true}, {-657435.0, false},    {2958465.99, true},
        {2958466.0, false}, {std::nan(""), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.oleDate);
        const QDateTime date(row.oleDate);
        EXPECT_EQ(date.IsValid(), row.valid);
        EXPECT_EQ(date.GetStatus(), row.valid ? QDateTime::valid : QDateTime::invalid);
    }
}

TEST_F(DateTimeTest, DayOfWeekFromSundayDayOfYearFromTheFirstAndDayStepsCrossMonthYearAndDayZero) {
    const struct {
        int year, month, day;
        int dayOfWeek, dayOfYear;
    } rows[] = {
        {1899, 12, 30, 7, 364}, {1899, 12, 29, 6, 363}, {100, 1, 1, 6, 1},
        {2024, 3, 1, 6, 61},    {2024, 12, 31, 3, 366},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.year << "-" << row.month << "-" << row.day);
        EXPECT_EQ(QDateTime(row.year, row.month, row.day).GetDayOfWeek(), row.dayOfWeek);
        EXPECT_EQ(QDateTime(row.year, row.month, row.day).GetDayOfYear(), row.dayOfYear);
    }
    EXPECT_EQ(QDateTime(-1.75).GetDayOfWeek(), 6);
    EXPECT_EQ(PartsOf(QDateTime(2026, 12, 31, 23).AddDays(1)), "2027-01-01 23:00:00");
    QDateTime sixAm(0.25);
    EXPECT_DOUBLE_EQ(sixAm.AddDays(-1).GetOleDate(), -1.25);
    EXPECT_DOUBLE_EQ(sixAm.AddDays(-1).GetOleDate(), -2.25);
    EXPECT_DOUBLE_EQ(sixAm.AddDays(2).GetOleDate(), 0.25);
    EXPECT_FALSE(QDateTime(9999, 12, 31).AddDays(1).IsValid());
    EXPECT_FALSE(QDateTime(100, 1, 1).AddDays(-1).IsValid());
    EXPECT_FALSE(QDateTime(9999, 12, 15).AddMonths(1).IsValid());
    EXPECT_FALSE(QDateTime(2026, 1, 1).AddYears(2000000000).IsValid());
    QDateTime date(1e9);
    date.SetDayOfMonth(3).AddDays(1).AddMonths(1).AddYears(1).SetZeroTime().SetLastDayOfMonth();
    date += QTime::FromRaw(60);
    EXPECT_EQ(date.GetStatus(), QDateTime::invalid);
    EXPECT_EQ(date.GetOleDate(), 1e9);
    EXPECT_DOUBLE_EQ(QDateTime(-1.25).SetZeroTime().GetOleDate(), -1.0);
    EXPECT_DOUBLE_EQ(QDateTime(-0.25).SetZeroTime().GetOleDate(), 0.0);
}

TEST_F(DateTimeTest, SetDayOfMonthStopsAtTheLastDayAndFirstAndLastDayKeepTheTime) {
    const struct {
        int year, month, wanted;
        int day;
    } rows[] = {{2026, 2, 31, 28}, {2024, 2, 31, 29}, {2026, 4, 31, 30}, {2026, 2, 0, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.year << "-" << row.month << " day " << row.wanted);
        QDateTime date(row.year, row.month, 10, 14, 30, 5);
        date.SetDayOfMonth(row.wanted);
        EXPECT_EQ(PartsOf(date), PartsOf(QDateTime(row.year, row.month, row.day, 14, 30, 5)));
    }
    QDateTime date(2024, 2, 10, 8, 15);
    EXPECT_EQ(PartsOf(date.SetLastDayOfMonth()), "2024-02-29 08:15:00");
    QDateTime before(1899, 12, 29, 6);
    EXPECT_EQ(PartsOf(before.SetDayOfMonth(1)), "1899-12-01 06:00:00");
}

TEST_F(DateTimeTest, MonthAndYearArithmeticGoesThroughSetDayOfMonth) {
    const struct {
        int year, month, day;
        int months;
        const char* expected;
    } rows[] = {
        {2026, 1, 31, 1, "2026-02-28 12:00:00"},  {2024, 1, 31, 1, "2024-02-29 12:00:00"},
        {2026, 3, 31, -1, "2026-02-28 12:00:00"}, {2026, 12, 15, 1, "2027-01-15 12:00:00"},
        {1899, 12, 29, 2, "1900-02-28 12:00:00"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expected);
        QDateTime date(row.year, row.month, row.day, 12);
        EXPECT_EQ(PartsOf(date.AddMonths(row.months)), row.expected);
    }
    QDateTime leapDay(2024, 2, 29);
    EXPECT_EQ(PartsOf(QDateTime(leapDay).AddYears(1)), "2025-02-28 00:00:00");
    EXPECT_EQ(PartsOf(QDateTime(leapDay).AddYears(4)), "2028-02-29 00:00:00");
}

TEST_F(DateTimeTest, SpansMoveAlongOneStraightScaleAndDatesWithinHalfASecondAreEqual) {
    const QTime hour = QTime::FromRaw(3600);
    EXPECT_EQ(PartsOf(QDateTime(2026, 11, 21, 23) + hour * 2), "2026-11-22 01:00:00");
    EXPECT_NEAR((QDateTime(-1.75) + hour * 12).GetOleDate(), 0.25, 1e-12);
    EXPECT_FALSE((QDateTime(9999, 12, 31, 23) + hour).IsValid());
    EXPECT_FALSE((QDateTime(100, 1, 1) - QTime::FromRaw(1)).IsValid());
    EXPECT_EQ((QDateTime(2026, 11, 22, 1) - QDateTime(2026, 11, 21, 23)).GetRaw(), 7200);
    EXPECT_EQ((QDateTime(0.25) - QDateTime(-1.25)).GetRaw(), 86400);
    EXPECT_EQ((QDateTime(1e9) - QDateTime(1.0)).GetRaw(), 0);
    EXPECT_EQ((QDateTime(9999, 1, 1) - QDateTime(100, 1, 1)).GetRaw(),
              std::numeric_limits<std::int32_t>::max());
    const double base = 46347.6;
    EXPECT_TRUE(QDateTime(base) == QDateTime(base + 0.4 * kSecond));
    EXPECT_FALSE(QDateTime(base) == QDateTime(base + 0.6 * kSecond));
    EXPECT_TRUE(QDateTime(0.0) == QDateTime(-1.9999999));
    EXPECT_TRUE(QDateTime(-0.25) == QDateTime(0.25));
    QDateTime null1(5.0);
    QDateTime null2(7.0);
    null1.SetStatus(QDateTime::null);
    null2.SetStatus(QDateTime::null);
    EXPECT_TRUE(null1 == null2);
    EXPECT_FALSE(null1 == QDateTime(5.0));
    EXPECT_FALSE(QDateTime(1e9) == QDateTime(1e9));
    EXPECT_TRUE(QDateTime(-1.25) < QDateTime(-1.75));
    EXPECT_TRUE(QDateTime(36526.0) < QDateTime(36526.5));
    EXPECT_FALSE(QDateTime(36526.0) < QDateTime(36526.0 + 0.4 * kSecond));
}

TEST_F(DateTimeTest, DefaultFormatIsTheNumericDateInTheLocaleOrderAndBadStatusHasItsOwnText) {
    const QDateTime afternoon(2026, 11, 21, 14, 30, 5);
    const QDateTime midnight(2026, 3, 5);
    EXPECT_EQ(afternoon.Format().ToUtf8(), "11/21/2026 14:30:05");
    EXPECT_EQ(midnight.Format().ToUtf8(), "03/05/2026");
    EXPECT_EQ(QDateTime(-1.25).Format().ToUtf8(), "12/29/1899 06:00:00");
    QDateTime::SetLocaleFormats(u"%d.%m.%Y", u"%H:%M:%S");
    EXPECT_EQ(afternoon.Format().ToUtf8(), "21.11.2026 14:30:05");
    UseYearMonthDay();
    EXPECT_EQ(midnight.Format().ToUtf8(), "2026-03-05");
    QDateTime::SetLocaleFormats(u"%e %B %Y", u"%H:%M:%S");
    EXPECT_EQ(midnight.Format().ToUtf8(), "05/03/2026");
    EXPECT_EQ(QDateTime(1e9).Format().ToUtf8(), "Invalid DateTime");
    QDateTime date;
    date.SetDateTime(2026, 2, 30);
    EXPECT_EQ(date.Format(u"%Y").ToUtf8(), "Invalid DateTime");
    date.SetStatus(QDateTime::null);
    EXPECT_EQ(date.Format().ToUtf8(), "");
}

TEST_F(DateTimeTest, FormatExpandsTheLongAndLocaleForms) {
    const QDateTime date(2026, 11, 21, 14, 30, 5);
    const struct {
        const char* format;
        const char* text;
    } rows[] = {
        {"%#x", "Saturday, November 21, 2026"},
        {"%#X", "14:30:05"},
        {"%#c", "Saturday, November 21, 2026 14:30:05"},
        {"%x", "11/21/26"},
        {"%c", "11/21/26 14:30:05"},
        {"%A %a %B %b", "Saturday Sat November Nov"},
        {"100%%", "100%"},
        {"50%", "50%"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(date.Format(CString::FromUtf8(row.format)).ToUtf8(), row.text);
    }
}

TEST_F(DateTimeTest, TheHashFlagDropsLeadingZerosAndTheLongDateFollowsTheLocaleOrder) {
    const QDateTime date(2026, 3, 5, 7, 8, 9);
    EXPECT_EQ(date.Format(u"%#d/%#m %#H:%#M:%#S").ToUtf8(), "5/3 7:8:9");
    EXPECT_EQ(QDateTime(2026, 1, 1).Format(u"%#M").ToUtf8(), "0");
    UseDayMonthYear();
    EXPECT_EQ(date.Format(u"%#x").ToUtf8(), "Thursday 5 March 2026");
    UseYearMonthDay();
    EXPECT_EQ(date.Format(u"%#x").ToUtf8(), "Thursday, 2026 March 5");
    QDateTime::SetLocaleFormats(u"%m/%d/%Y", u"%I:%M:%S %p");
    EXPECT_EQ(date.Format(u"%#X").ToUtf8(), "07:08:09 AM");
    EXPECT_EQ(QDateTime(-1.25).Format(u"%#c").ToUtf8(), "Friday, December 29, 1899 06:00:00 AM");
    QDateTime::SetLocaleFormats(u"%x", u"%X");
    EXPECT_EQ(QDateTime(2026, 11, 21, 14, 30, 5).Format(u"%c").ToUtf8(), "11/21/26 14:30:05");
}

struct ParseRow {
    const char* text;
    const char* parts;
};

// Each text reads as the date of its parts; each of `notDates` leaves a date, valid or not, as
// it was.
void ExpectParses(std::span<const ParseRow> rows, std::span<const char* const> notDates) {
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        QDateTime date(1e9);
        EXPECT_TRUE(date.Parse(CString::FromUtf8(row.text)));
        EXPECT_TRUE(date.IsValid());
        EXPECT_EQ(PartsOf(date), row.parts);
    }
    for (const char* text : notDates) {
        SCOPED_TRACE(text);
        for (const QDateTime& before : {QDateTime(1e9), QDateTime(2026, 1, 1)}) {
            QDateTime date = before;
            EXPECT_FALSE(date.Parse(CString::FromUtf8(text)));
            EXPECT_EQ(date.GetStatus(), before.GetStatus());
            EXPECT_EQ(date.GetOleDate(), before.GetOleDate());
        }
    }
}

TEST_F(DateTimeTest, ParseReadsMonthFirstDatesUnderTheCLocale) {
    const ParseRow dates[] = {
        {"11/21/2026", "2026-11-21 00:00:00"},
        {"  3/5/2026  ", "2026-03-05 00:00:00"},
        {"1/2/29", "2029-01-02 00:00:00"},
        {"1/2/30", "1930-01-02 00:00:00"},
        {"1/1/100", "0100-01-01 00:00:00"},
        {"12/31/9999 23:59:59", "9999-12-31 23:59:59"},
        {"11/21/2026 2:30:15pm", "2026-11-21 14:30:15"},
        {"11/21/2026 12:00 AM", "2026-11-21 00:00:00"},
        {"11/21/2026 12:00 pm", "2026-11-21 12:00:00"},
        {"14:30", "1899-12-30 14:30:00"},
    };
    const char* const notDates[] = {
        "21/11/2026",          "2/29/2026",          "11/21",
        "11/21-2026",          "11/21/2026x",        "11/21/12345",
        "11/21/2026 13:00 PM", "11/21/2026 0:30 AM", "14:30 11/21/2026"};
    ExpectParses(dates, notDates);
    QDateTime date;
    ASSERT_TRUE(date.Parse(u"18:00"));
    EXPECT_DOUBLE_EQ(date.GetOleDate(), 0.75) << "a time alone falls on day zero";
}

TEST_F(DateTimeTest, ParseReadsIsoDatesWhateverTheLocale) {
    const ParseRow rows[] = {
        {"2026-11-21", "2026-11-21 00:00:00"},          {"2026-11-21T14:30", "2026-11-21 14:30:00"},
        {"2026-11-21 14:30:05", "2026-11-21 14:30:05"}, {"0100-01-01", "0100-01-01 00:00:00"},
        {"1899-12-29T06:00", "1899-12-29 06:00:00"},
    };
    const char* const notDates[] = {
        "2026-11-21T",        "2026-11-21t14:30",      "2026-11-21 24:00", "2026-11-21 14:3",
        "2026-11-21 14:30:5", "2026-11-21 14:30:05.5", "2026-02-29",       "0099-12-31",
        "10000-01-01",        "2026-11-21 14"};
    ExpectParses(rows, notDates);
    UseDayMonthYear();
    ExpectParses(rows, notDates);
}

TEST_F(DateTimeTest, ParseFollowsTheDayFirstOrYearFirstOrderOfTheLocale) {
    UseDayMonthYear();
    const ParseRow dates[] = {
        {"21/11/2026", "2026-11-21 00:00:00"},
        {"21.11.2026 14:30", "2026-11-21 14:30:00"},
        {"5-3-26", "2026-03-05 00:00:00"},
    };
    const char* const notDates[] = {"11/21/2026", "31/4/2026", ""};
    ExpectParses(dates, notDates);
    UseYearMonthDay();
    const ParseRow yearFirst[] = {
        {"26-11-21", "2026-11-21 00:00:00"},
        {"99.1.2", "1999-01-02 00:00:00"},
    };
    ExpectParses(yearFirst, std::span(notDates, 1));
}

TEST_F(DateTimeTest, FormattedDatesParseBackInEveryOrder) {
    const std::vector<QDateTime> dates = {
        QDateTime(2026, 11, 21, 14, 30, 5),  QDateTime(2026, 3, 5), QDateTime(100, 1, 1, 0, 0, 1),
        QDateTime(9999, 12, 31, 23, 59, 59), QDateTime(-1.25),      QDateTime(1930, 1, 2),
    };
    for (const auto& formats : std::vector<std::pair<const char16_t*, const char16_t*>>{
             {u"%m/%d/%y", u"%H:%M:%S"}, {u"%d.%m.%Y", u"%H:%M"}, {u"%Y-%m-%d", u"%T"}}) {
        QDateTime::SetLocaleFormats(formats.first, formats.second);
        for (const QDateTime& date : dates) {
            SCOPED_TRACE(date.Format().ToUtf8());
            QDateTime read;
            ASSERT_TRUE(read.Parse(date.Format()));
            EXPECT_TRUE(read == date);
        }
    }
    QDateTime date;
    ASSERT_TRUE(date.Parse(u"2026-11-21 02:30:00 PM"));
    EXPECT_EQ(date.GetHour(), 14);
    ASSERT_TRUE(date.Parse(date.Format(u"%Y-%m-%d %I:%M:%S %p")));
    EXPECT_EQ(PartsOf(date), "2026-11-21 14:30:00");
}

TEST_F(DateTimeTest, UnixTimeIsReadInLocalTimeAndGoesBack) {
    std::time_t invalid = 0;
    EXPECT_FALSE(QDateTime(1e9).GetAsUnixTime(invalid));
    for (std::time_t seconds : {std::time_t{0}, std::time_t{1700000000}, std::time_t{1795271405}}) {
        SCOPED_TRACE(seconds);
        const QDateTime date = QDateTime::FromUnixTime(seconds);
        ASSERT_TRUE(date.IsValid());
        std::time_t back = 0;
        ASSERT_TRUE(date.GetAsUnixTime(back));
        EXPECT_EQ(back, seconds);
        std::tm local{};
        ASSERT_NE(localtime_r(&seconds, &local), nullptr);
        EXPECT_EQ(date.GetHour(), local.tm_hour);
        EXPECT_EQ(date.GetDay(), local.tm_mday);
    }
}

TEST_F(DateTimeTest, ConvertsToAndFromTheCalendarFieldsOfATm) {
    std::tm parts{};
    ASSERT_TRUE(QDateTime(2026, 11, 21, 14, 30, 5).GetAsTm(parts));
    EXPECT_EQ(
        (std::vector<int>{parts.tm_year, parts.tm_mon, parts.tm_mday, parts.tm_hour, parts.tm_min,
                          parts.tm_sec, parts.tm_wday, parts.tm_yday, parts.tm_isdst}),
        (std::vector<int>{126, 10, 21, 14, 30, 5, 6, 324, -1}));
    EXPECT_EQ(PartsOf(QDateTime(parts)), "2026-11-21 14:30:05");
    parts.tm_mday = 31;
    EXPECT_FALSE(QDateTime(parts).IsValid());
    parts.tm_mday = 21;
    parts.tm_sec = 60;
    EXPECT_EQ(PartsOf(QDateTime(parts)), "2026-11-21 14:30:59");
}

TEST_F(DateTimeTest, NowIsTheLocalClockAndTodayItsMidnight) {
    const std::time_t before = std::time(nullptr);
    const QDateTime now = QDateTime::Now();
    const QDateTime today = QDateTime::Today();
    std::time_t seconds = 0;
    ASSERT_TRUE(now.GetAsUnixTime(seconds));
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, std::time(nullptr));
    EXPECT_EQ(PartsOf(today).substr(11), "00:00:00");
    EXPECT_TRUE(today <= now);
    EXPECT_LT((now - today).GetRaw(), 86400 + 2);
}

TEST_F(DateTimeTest, ArchiveHoldsTheStatusThenTheDouble) {
    Bytes expected = test::Int32Bytes(0);
    const Bytes date = test::DoubleBytes(-1.25);
    expected.insert(expected.end(), date.begin(), date.end());
    EXPECT_EQ(test::Stored(QDateTime(-1.25)), expected);
    const QDateTime read = test::Loaded<QDateTime>(expected);
    EXPECT_TRUE(read.IsValid());
    EXPECT_EQ(read.GetOleDate(), -1.25);
    QDateTime null(3.0);
    null.SetStatus(QDateTime::null);
    for (const QDateTime& odd : {QDateTime(1e9), null}) {
        const Bytes bytes = test::Stored(odd);
        EXPECT_EQ(bytes[0], odd.GetStatus());
        const QDateTime back = test::Loaded<QDateTime>(bytes);
        EXPECT_EQ(back.GetStatus(), odd.GetStatus());
        EXPECT_EQ(back.GetOleDate(), odd.GetOleDate());
    }
}

} // namespace
} // namespace keel
