#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/time.h"

#include <cstdint>
#include <ctime>

namespace keel {

// A date and time as an OLE date: days since 30 December 1899 00:00 in a double, with the time
// of day as the fraction. For a negative date the whole part is still the day and the fraction
// counts forward from that day's midnight, so -1.25 is 29 December 1899 06:00; the day after
// it, 30 December 06:00, is 0.25. The valid range runs from 1 January 100 to 31 December 9999;
// anything outside it has the status invalid. Parts of a date are read to the nearest second.
class QDateTime {
public:
    enum DateTimeStatus : int {
        valid = 0,
        invalid = 1,
        null = 2,
    };

    // Two valid dates this close (half a second) are equal.
    static constexpr double HalfSecond = 5.787037037037037e-6;
    // The day numbers of 1 January 100 and 31 December 9999.
    static constexpr double MinDay = -657434.0;
    static constexpr double MaxDay = 2958465.0;

    // Day 0 at midnight, valid.
    QDateTime() = default;
    // Valid within the range, else invalid with the number kept.
    explicit QDateTime(double oleDate) { SetOleDate(oleDate); }
    QDateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
        SetDateTime(year, month, day, hour, minute, second);
    }
    // Only the calendar fields of `parts` count: year, month, day, hour, minute, second.
    explicit QDateTime(const std::tm& parts);

    // The local time of the system clock, to the second, and its day at midnight.
    static QDateTime Now();
    static QDateTime Today();
    // Seconds since 1 January 1970 UTC, as the local time of this system or as UTC.
    static QDateTime FromUnixTime(std::time_t seconds, bool utc = false);
    // False for a date that is not valid or that the local clock cannot represent.
    bool GetAsUnixTime(std::time_t& seconds, bool utc = false) const;
    // Fills the calendar fields, the day of the week and of the year, and tm_isdst -1 (unknown).
    // False, leaving `parts` alone, for a date that is not valid.
    bool GetAsTm(std::tm& parts) const;

    DateTimeStatus GetStatus() const { return m_status; }
    void SetStatus(DateTimeStatus status) { m_status = status; }
    double GetOleDate() const { return m_dt; }
    void SetOleDate(double oleDate);
    // False, with the status invalid, for parts that name no time in the valid range.
    bool SetDateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

    bool IsValid() const { return m_status == valid; }
    bool IsValidAndNotZero() const { return IsValid() && m_dt != 0; }

    // Each part gives -1 for a date that is not valid. The day of the week counts from 1 for
    // Sunday, the day of the year from 1 for 1 January.
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    int GetDayOfWeek() const;
    int GetDayOfYear() const;
    int GetLastDayOfMonth() const;

    static bool IsLeapYear(int year);
    static int DaysInMonth(int year, int month);

    // Each change leaves a date that is not valid alone, keeps the time of day, and makes the
    // date invalid when it leaves the range. A day past the end of the month becomes the last
    // day, and one below 1 the first.
    QDateTime& SetDayOfMonth(int day);
    QDateTime& SetFirstDayOfMonth() { return SetDayOfMonth(1); }
    QDateTime& SetLastDayOfMonth();
    QDateTime& SetZeroTime();
    QDateTime& AddDays(int days);
    // Through SetDayOfMonth, so 31 January plus one month is the last day of February.
    QDateTime& AddMonths(int months);
    QDateTime& AddYears(int years);
    QDateTime& SetNextDay() { return AddDays(1); }
    QDateTime& SetPrevDay() { return AddDays(-1); }
    QDateTime& SetNextMonth() { return AddMonths(1); }
    QDateTime& SetPrevMonth() { return AddMonths(-1); }
    QDateTime& SetNextYear() { return AddYears(1); }
    QDateTime& SetPrevYear() { return AddYears(-1); }

    // Reads the trimmed text, which must hold a digit, as one of: a date of three numbers
    // joined by one of '/', '-' or '.', in the day, month and year order of the locale's date
    // format, or year first when the first number has three or four digits ("2026-11-21"); a
    // date and a time joined by spaces or 'T'; a time alone, on day 0. A time is hours, ':' and
    // two digits of minutes, then optionally ':' and two digits of seconds, then optionally the
    // locale's or the English morning and afternoon words. A year of one or two digits is
    // 2000 to 2029 below 30, else 1930 to 1999. On success the date is set valid and true is
    // returned; otherwise it is left as it was.
    bool Parse(const CString& text);
    // The numeric date in the locale's order and separator, with day and month in two digits
    // and the year in four, then, when the time is not midnight, a space and "%H:%M:%S". Parse
    // reads it back. An invalid date gives "Invalid DateTime", a null one the empty text.
    CString Format() const;
    // strftime conversions under the locale, with these of our own: "%#x" the long date (the
    // weekday, the day, the month's name and the year in the locale's order), "%#X" and "%X"
    // the locale's time, "%#c" the long date and the time, "%x" the locale's date and "%c" the
    // locale's date and time. The '#' flag on a number drops its leading zeros ("%#d").
    CString Format(const CString& format) const;

    // The date and time formats read from the user's locale (its D_FMT and T_FMT) on first use.
    struct LocaleFormats {
        CString dateFormat;
        CString timeFormat;
    };
    static LocaleFormats GetLocaleFormats();
    // Fixes the formats for the process, whatever the locale says; names of days and months
    // still come from the locale.
    static void SetLocaleFormats(const CString& dateFormat, const CString& timeFormat);
    // Forgets fixed or read formats: the next use reads the locale of the environment again.
    static void ResetLocale();

    // 0 for a date that is not valid, else the scalar hash of the whole days.
    unsigned HashKey() const;

    // Moves by a span. A date that is not valid stays as it is.
    QDateTime& operator+=(const QTime& span);
    QDateTime& operator-=(const QTime& span);
    friend QDateTime operator+(QDateTime date, const QTime& span) { return date += span; }
    friend QDateTime operator-(QDateTime date, const QTime& span) { return date -= span; }
    // The span from b to a, to the nearest second; zero unless both dates are valid.
    friend QTime operator-(const QDateTime& a, const QDateTime& b);

    // Equal: both valid and within half a second, or both null.
    friend bool operator==(const QDateTime& a, const QDateTime& b);
    // Ordered by time when not equal; a date that is not valid orders by its stored number.
    friend bool operator<(const QDateTime& a, const QDateTime& b);
    friend bool operator>(const QDateTime& a, const QDateTime& b) { return b < a; }
    friend bool operator<=(const QDateTime& a, const QDateTime& b) { return !(b < a); }
    friend bool operator>=(const QDateTime& a, const QDateTime& b) { return !(a < b); }

private:
    struct Parts {
        int year = 0;
        int month = 0;
        int day = 0;
        int secondOfDay = 0;
    };
    Parts Split() const;
    // Sets the date from a day number and a time of day, invalid outside the range.
    void Assign(std::int64_t dayNumber, int secondOfDay);
    void Assign(int year, int month, int day, int secondOfDay);
    QDateTime& ShiftMonths(std::int64_t months);
    // Days on one straight scale, where the OLE date folds negative days.
    double Linear() const;
    void SetLinear(double days);

    double m_dt = 0;
    DateTimeStatus m_status = valid;
};

inline unsigned HashKey(const QDateTime& date) {
    return date.HashKey();
}

// The status in 4 bytes, then the date as an 8-byte double.
CArchive& operator<<(CArchive& archive, const QDateTime& date);
CArchive& operator>>(CArchive& archive, QDateTime& date);

} // namespace keel
