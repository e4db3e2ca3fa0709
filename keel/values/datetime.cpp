#include "keel/values/datetime.h"

#include "keel/platform/wchar.h"

#include <cmath>
#include <langinfo.h>
#include <locale.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keel {

namespace {

constexpr int kSecondsPerDay = 86400;
constexpr std::int64_t kUnixEpochDay = 25569; // 1 January 1970
constexpr int kMinYear = 100;
constexpr int kMaxYear = 9999;

// Whole days and remainders that round toward minus infinity.
std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
    return a / b - (a % b != 0 && (a < 0) != (b < 0) ? 1 : 0);
}
std::int64_t FloorMod(std::int64_t a, std::int64_t b) {
    return a - FloorDiv(a, b) * b;
}

// Days from 1 January 1970 of a date of the proleptic Gregorian calendar, in eras of 400 years.
std::int64_t DaysFromCivil(std::int64_t year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = FloorDiv(year, 400);
    const std::int64_t yearOfEra = year - era * 400;
    const int shiftedMonth = month > 2 ? month - 3 : month + 9;
    const std::int64_t dayOfYear = (153 * shiftedMonth + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

struct CivilDate {
    std::int64_t year;
    int month;
    int day;
};

CivilDate CivilFromDays(std::int64_t days) {
    days += 719468;
    const std::int64_t era = FloorDiv(days, 146097);
    const std::int64_t dayOfEra = days - era * 146097;
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const int day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    const int month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

std::int64_t OleDayNumber(std::int64_t year, int month, int day) {
    return DaysFromCivil(year, month, day) + kUnixEpochDay;
}

bool IsInRange(double oleDate) {
    return oleDate > QDateTime::MinDay - 1 && oleDate < QDateTime::MaxDay + 1;
}

double OleDate(std::int64_t dayNumber, int secondOfDay) {
    const double fraction = static_cast<double>(secondOfDay) / kSecondsPerDay;
    const auto day = static_cast<double>(dayNumber);
    return dayNumber >= 0 ? day + fraction : day - fraction;
}

struct DayAndSecond {
    std::int64_t dayNumber;
    int secondOfDay;
};

// The day is the whole part toward zero; the fraction, whatever the sign, is the time of day,
// rounded to the second. A time that rounds up to midnight moves to the next day, except on
// the last day of the range.
DayAndSecond SplitOleDate(double oleDate) {
    const double whole = std::trunc(oleDate);
    auto dayNumber = static_cast<std::int64_t>(whole);
    auto second = static_cast<int>(std::floor(std::fabs(oleDate - whole) * kSecondsPerDay + 0.5));
    if (second >= kSecondsPerDay) {
        if (dayNumber < static_cast<std::int64_t>(QDateTime::MaxDay)) {
            ++dayNumber;
            second = 0;
        } else {
            second = kSecondsPerDay - 1;
        }
    }
    return {dayNumber, second};
}

int SecondOfDay(int hour, int minute, int second) {
    return (hour * 60 + minute) * 60 + second;
}

// The locale's date order and the character between the numbers.
enum class DateOrder { MonthDayYear, DayMonthYear, YearMonthDay };

struct DateShape {
    DateOrder order = DateOrder::MonthDayYear;
    char16_t separator = u'/';
};

bool IsDateSeparator(char16_t ch) {
    return ch == u'/' || ch == u'-' || ch == u'.';
}

bool IsConversionFlag(char16_t ch) {
    return ch == u'#' || ch == u'-' || ch == u'_' || ch == u'0' || ch == u'^' || ch == u'E' ||
           ch == u'O' || IsDigit(ch);
}

// Where the flags, width and modifiers that follow a '%' end: at the conversion character.
std::size_t SkipConversionFlags(std::u16string_view format, std::size_t at) {
    while (at < format.size() && IsConversionFlag(format[at]))
        ++at;
    return at;
}

// The order of the day, month and year conversions in a strftime date format, a month's name
// counting as the month, and the first separator outside a conversion. "%D" is month/day/year
// and "%F" year-month-day.
DateShape ShapeOfDateFormat(std::u16string_view format) {
    std::u16string fields;
    std::optional<char16_t> separator;
    for (std::size_t at = 0; at < format.size(); ++at) {
        if (format[at] != u'%') {
            if (!separator && IsDateSeparator(format[at]))
                separator = format[at];
            continue;
        }
        at = SkipConversionFlags(format, at + 1);
        if (at >= format.size())
            break;
        switch (format[at]) {
        case u'd':
        case u'e':
            fields += u'd';
            break;
        case u'm':
        case u'b':
        case u'B':
        case u'h':
            fields += u'm';
            break;
        case u'y':
        case u'Y':
            fields += u'y';
            break;
        case u'D':
            fields += u"mdy";
            separator = separator.value_or(u'/');
            break;
        case u'F':
            fields += u"ymd";
            separator = separator.value_or(u'-');
            break;
        default:
            break;
        }
    }
    DateShape shape;
    shape.separator = separator.value_or(u'/');
    const std::size_t day = fields.find(u'd');
    const std::size_t month = fields.find(u'm');
    if (!fields.empty() && fields[0] == u'y')
        shape.order = DateOrder::YearMonthDay;
    else if (day != std::u16string::npos && month != std::u16string::npos && day < month)
        shape.order = DateOrder::DayMonthYear;
    return shape;
}

CString LongDatePattern(DateOrder order) {
    switch (order) {
    case DateOrder::DayMonthYear:
        return u"%A %#d %B %Y";
    case DateOrder::YearMonthDay:
        return u"%A, %Y %B %#d";
    default:
        return u"%A, %B %#d, %Y";
    }
}

// What the date texts take from the locale. The locale object gives the names of days and
// months to strftime_l; it is freed with the last user of these settings.
struct DateLocale {
    locale_t locale = locale_t{};
    CString dateFormat;
    CString timeFormat;
    CString morning;
    CString afternoon;

    DateLocale() = default;
    DateLocale(const DateLocale&) = delete;
    DateLocale& operator=(const DateLocale&) = delete;
    ~DateLocale() {
        if (locale)
            freelocale(locale);
    }
};

std::mutex g_localeLock;
std::shared_ptr<const DateLocale> g_locale;

// Locale texts are taken as UTF-8, the code set of the locales in use on this platform.
CString LocaleText(nl_item item, locale_t locale) {
    return CString::FromUtf8(nl_langinfo_l(item, locale));
}

std::shared_ptr<DateLocale> DateLocaleFrom(locale_t locale) {
    auto settings = std::make_shared<DateLocale>();
    settings->locale = locale;
    settings->dateFormat = LocaleText(D_FMT, locale);
    settings->timeFormat = LocaleText(T_FMT, locale);
    settings->morning = LocaleText(AM_STR, locale);
    settings->afternoon = LocaleText(PM_STR, locale);
    return settings;
}

std::shared_ptr<DateLocale> ReadUserDateLocale() {
    locale_t locale = newlocale(LC_ALL_MASK, "", locale_t{});
    if (!locale)
        locale = newlocale(LC_ALL_MASK, "C", locale_t{});
    return DateLocaleFrom(locale);
}

std::shared_ptr<const DateLocale> CurrentDateLocale() {
    const std::lock_guard lock(g_localeLock);
    if (!g_locale)
        g_locale = ReadUserDateLocale();
    return g_locale;
}

std::string Strftime(const std::string& format, const std::tm& parts, locale_t locale) {
    if (format.empty())
        return {};
    std::vector<char> buffer(256);
    for (int attempt = 0; attempt < 4; ++attempt) {
        const std::size_t length =
            strftime_l(buffer.data(), buffer.size(), format.c_str(), &parts, locale);
        if (length > 0)
            return std::string(buffer.data(), length);
        buffer.resize(buffer.size() * 8);
    }
    return {}; // a conversion whose text is empty, such as "%p" where the locale has none
}

class DateFormatter {
public:
    DateFormatter(const std::tm& parts, const DateLocale& locale)
        : m_parts(parts), m_locale(locale) {}

    // The locale's own formats are expanded once: a "%c", "%x" or "%X" inside them goes to
    // strftime_l as it is.
    CString Expand(std::u16string_view format, bool expandLocaleForms = true) const {
        CString text;
        for (std::size_t at = 0; at < format.size(); ++at) {
            if (format[at] != u'%' || at + 1 == format.size()) {
                text += format[at];
                continue;
            }
            const std::size_t conversion = SkipConversionFlags(format, at + 1);
            if (conversion >= format.size()) {
                text += CString(format.substr(at));
                break;
            }
            text += Conversion(format.substr(at + 1, conversion - at - 1), format[conversion],
                               expandLocaleForms);
            at = conversion;
        }
        return text;
    }

private:
    CString Conversion(std::u16string_view flags, char16_t conversion,
                       bool expandLocaleForms) const {
        if (conversion == u'%')
            return u"%";
        const bool alternate = flags.find(u'#') != std::u16string_view::npos;
        if (expandLocaleForms && (conversion == u'c' || conversion == u'x' || conversion == u'X'))
            return Expand(LocalePattern(conversion, alternate).View(), false);
        std::u16string conversionText = u"%";
        for (char16_t flag : flags)
            if (flag != u'#')
                conversionText += flag;
        conversionText += conversion;
        CString text =
            CString::FromUtf8(Strftime(CString(conversionText).ToUtf8(), m_parts, m_locale.locale));
        if (alternate)
            DropLeadingZeros(text);
        return text;
    }

    CString LocalePattern(char16_t conversion, bool alternate) const {
        const CString date =
            alternate ? LongDatePattern(ShapeOfDateFormat(m_locale.dateFormat.View()).order)
                      : m_locale.dateFormat;
        if (conversion == u'x')
            return date;
        if (conversion == u'X')
            return m_locale.timeFormat;
        return date + u" " + m_locale.timeFormat;
    }

    static void DropLeadingZeros(CString& text) {
        int zeros = 0;
        while (zeros + 1 < text.GetLength() && text[zeros] == u'0')
            ++zeros;
        text.Delete(0, zeros);
    }

    const std::tm& m_parts;
    const DateLocale& m_locale;
};

// A cursor over the text of a date.
class DateReader {
public:
    explicit DateReader(std::u16string_view text) : m_text(text) {}

    bool AtEnd() const { return m_at == m_text.size(); }
    std::size_t Position() const { return m_at; }
    void Rewind(std::size_t position) { m_at = position; }

    // A run of digits of at most `maxDigits`; the count read goes to `digits`.
    bool ReadNumber(int maxDigits, int& value, int& digits) {
        value = 0;
        digits = 0;
        while (m_at < m_text.size() && IsDigit(m_text[m_at])) {
            if (++digits > maxDigits)
                return false;
            value = value * 10 + (m_text[m_at++] - u'0');
        }
        return digits > 0;
    }
    bool ReadNumber(int maxDigits, int& value) {
        int digits = 0;
        return ReadNumber(maxDigits, value, digits);
    }
    bool ReadExactDigits(int count, int& value) {
        int digits = 0;
        return ReadNumber(count, value, digits) && digits == count;
    }
    bool Accept(char16_t ch) {
        if (m_at >= m_text.size() || m_text[m_at] != ch)
            return false;
        ++m_at;
        return true;
    }
    std::optional<char16_t> AcceptDateSeparator() {
        if (m_at >= m_text.size() || !IsDateSeparator(m_text[m_at]))
            return std::nullopt;
        return m_text[m_at++];
    }
    int SkipSpaces() {
        int count = 0;
        for (; m_at < m_text.size() && IsSpace(m_text[m_at]); ++m_at)
            ++count;
        return count;
    }
    bool AcceptWordNoCase(const CString& word) {
        const auto length = static_cast<std::size_t>(word.GetLength());
        if (word.IsEmpty() || m_text.size() - m_at < length)
            return false;
        if (CString(m_text.substr(m_at, length)).CompareNoCase(word) != 0)
            return false;
        m_at += length;
        return true;
    }

private:
    std::u16string_view m_text;
    std::size_t m_at = 0;
};

struct CalendarDate {
    int year;
    int month;
    int day;
};

int WindowedYear(int year, int digits) {
    if (digits > 2)
        return year;
    return year < 30 ? 2000 + year : 1900 + year;
}

std::optional<CalendarDate> ReadNumericDate(DateReader& reader, DateOrder order) {
    int first = 0;
    int second = 0;
    int third = 0;
    int firstDigits = 0;
    int thirdDigits = 0;
    if (!reader.ReadNumber(4, first, firstDigits))
        return std::nullopt;
    const std::optional<char16_t> separator = reader.AcceptDateSeparator();
    if (!separator || !reader.ReadNumber(2, second) || !reader.Accept(*separator) ||
        !reader.ReadNumber(4, third, thirdDigits))
        return std::nullopt;
    if (firstDigits > 2 || order == DateOrder::YearMonthDay)
        return CalendarDate{WindowedYear(first, firstDigits), second, third};
    const int year = WindowedYear(third, thirdDigits);
    if (order == DateOrder::DayMonthYear)
        return CalendarDate{year, second, first};
    return CalendarDate{year, first, second};
}

struct TimeOfDay {
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// The morning and afternoon words; false when neither follows. An hour of 12 in the morning is
// 0, and the afternoon adds 12 to the hours 1 to 11.
bool ReadHalfOfDay(DateReader& reader, const DateLocale& locale, int& hour) {
    const bool morning = reader.AcceptWordNoCase(locale.morning) || reader.AcceptWordNoCase(u"AM");
    const bool afternoon =
        !morning && (reader.AcceptWordNoCase(locale.afternoon) || reader.AcceptWordNoCase(u"PM"));
    if (!morning && !afternoon)
        return false;
    if (hour < 1 || hour > 12)
        hour = -1;
    else
        hour = hour % 12 + (afternoon ? 12 : 0);
    return true;
}

std::optional<TimeOfDay> ReadTimeOfDay(DateReader& reader, const DateLocale& locale) {
    TimeOfDay time;
    if (!reader.ReadNumber(2, time.hour) || !reader.Accept(u':') ||
        !reader.ReadExactDigits(2, time.minute))
        return std::nullopt;
    if (reader.Accept(u':') && !reader.ReadExactDigits(2, time.second))
        return std::nullopt;
    const std::size_t beforeWord = reader.Position();
    reader.SkipSpaces();
    if (!ReadHalfOfDay(reader, locale, time.hour))
        reader.Rewind(beforeWord);
    return time;
}

bool IsWithinADay(const TimeOfDay& time) {
    return time.hour >= 0 && time.hour <= 23 && time.minute >= 0 && time.minute <= 59 &&
           time.second >= 0 && time.second <= 59;
}

} // namespace

QDateTime::QDateTime(const std::tm& parts) {
    SetDateTime(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                parts.tm_sec == 60 ? 59 : parts.tm_sec);
}

QDateTime QDateTime::Now() {
    return FromUnixTime(std::time(nullptr));
}

QDateTime QDateTime::Today() {
    QDateTime today = Now();
    return today.SetZeroTime();
}

QDateTime QDateTime::FromUnixTime(std::time_t seconds, bool utc) {
    if (utc) {
        QDateTime date;
        date.Assign(FloorDiv(seconds, kSecondsPerDay) + kUnixEpochDay,
                    static_cast<int>(FloorMod(seconds, kSecondsPerDay)));
        return date;
    }
    std::tm parts{};
    if (!localtime_r(&seconds, &parts)) {
        QDateTime date;
        date.SetStatus(invalid);
        return date;
    }
    return QDateTime(parts);
}

bool QDateTime::GetAsUnixTime(std::time_t& seconds, bool utc) const {
    if (!IsValid())
        return false;
    if (utc) {
        const DayAndSecond split = SplitOleDate(m_dt);
        seconds = static_cast<std::time_t>((split.dayNumber - kUnixEpochDay) * kSecondsPerDay +
                                           split.secondOfDay);
        return true;
    }
    std::tm parts{};
    GetAsTm(parts);
    parts.tm_wday = -1; // mktime sets it only when it succeeds
    const std::time_t local = std::mktime(&parts);
    if (parts.tm_wday < 0)
        return false;
    seconds = local;
    return true;
}

bool QDateTime::GetAsTm(std::tm& parts) const {
    if (!IsValid())
        return false;
    const Parts split = Split();
    parts = std::tm{};
    parts.tm_year = split.year - 1900;
    parts.tm_mon = split.month - 1;
    parts.tm_mday = split.day;
    parts.tm_hour = split.secondOfDay / 3600;
    parts.tm_min = split.secondOfDay / 60 % 60;
    parts.tm_sec = split.secondOfDay % 60;
    parts.tm_wday = GetDayOfWeek() - 1;
    parts.tm_yday = GetDayOfYear() - 1;
    parts.tm_isdst = -1;
    return true;
}

void QDateTime::SetOleDate(double oleDate) {
    m_dt = oleDate;
    m_status = IsInRange(oleDate) ? valid : invalid;
}

bool QDateTime::SetDateTime(int year, int month, int day, int hour, int minute, int second) {
    const bool fits = year >= kMinYear && year <= kMaxYear && month >= 1 && month <= 12 &&
                      day >= 1 && day <= DaysInMonth(year, month) &&
                      IsWithinADay(TimeOfDay{hour, minute, second});
    if (!fits) {
        m_dt = 0;
        m_status = invalid;
        return false;
    }
    Assign(year, month, day, SecondOfDay(hour, minute, second));
    return true;
}

int QDateTime::GetYear() const {
    return IsValid() ? Split().year : -1;
}

int QDateTime::GetMonth() const {
    return IsValid() ? Split().month : -1;
}

int QDateTime::GetDay() const {
    return IsValid() ? Split().day : -1;
}

int QDateTime::GetHour() const {
    return IsValid() ? Split().secondOfDay / 3600 : -1;
}

int QDateTime::GetMinute() const {
    return IsValid() ? Split().secondOfDay / 60 % 60 : -1;
}

int QDateTime::GetSecond() const {
    return IsValid() ? Split().secondOfDay % 60 : -1;
}

int QDateTime::GetDayOfWeek() const {
    if (!IsValid())
        return -1;
    // Day 0 was a Saturday, the seventh day.
    return static_cast<int>(FloorMod(SplitOleDate(m_dt).dayNumber + 6, 7)) + 1;
}

int QDateTime::GetDayOfYear() const {
    if (!IsValid())
        return -1;
    const std::int64_t dayNumber = SplitOleDate(m_dt).dayNumber;
    return static_cast<int>(dayNumber - OleDayNumber(Split().year, 1, 1)) + 1;
}

int QDateTime::GetLastDayOfMonth() const {
    if (!IsValid())
        return -1;
    const Parts split = Split();
    return DaysInMonth(split.year, split.month);
}

bool QDateTime::IsLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int QDateTime::DaysInMonth(int year, int month) {
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12)
        ThrowInvalidArgument("month " + std::to_string(month));
    return month == 2 && IsLeapYear(year) ? 29 : days[month - 1];
}

QDateTime& QDateTime::SetDayOfMonth(int day) {
    if (!IsValid())
        return *this;
    const Parts split = Split();
    const int last = DaysInMonth(split.year, split.month);
    Assign(split.year, split.month, day < 1 ? 1 : (day > last ? last : day), split.secondOfDay);
    return *this;
}

QDateTime& QDateTime::SetLastDayOfMonth() {
    return SetDayOfMonth(GetLastDayOfMonth());
}

QDateTime& QDateTime::SetZeroTime() {
    if (IsValid())
        Assign(SplitOleDate(m_dt).dayNumber, 0);
    return *this;
}

QDateTime& QDateTime::AddDays(int days) {
    if (IsValid()) {
        const DayAndSecond split = SplitOleDate(m_dt);
        Assign(split.dayNumber + days, split.secondOfDay);
    }
    return *this;
}

QDateTime& QDateTime::AddMonths(int months) {
    return ShiftMonths(months);
}

QDateTime& QDateTime::AddYears(int years) {
    return ShiftMonths(static_cast<std::int64_t>(years) * 12);
}

QDateTime& QDateTime::ShiftMonths(std::int64_t months) {
    if (!IsValid())
        return *this;
    const Parts split = Split();
    const std::int64_t monthIndex =
        static_cast<std::int64_t>(split.year) * 12 + split.month - 1 + months;
    const std::int64_t year = FloorDiv(monthIndex, 12);
    if (year < kMinYear || year > kMaxYear) {
        m_status = invalid;
        return *this;
    }
    Assign(static_cast<int>(year), static_cast<int>(FloorMod(monthIndex, 12)) + 1, 1,
           split.secondOfDay);
    return SetDayOfMonth(split.day);
}

bool QDateTime::Parse(const CString& text) {
    if (text.FindOneOf(u"0123456789") < 0)
        return false;
    const std::shared_ptr<const DateLocale> locale = CurrentDateLocale();
    CString trimmed = text;
    trimmed.Trim();
    DateReader reader(trimmed.View());
    std::optional<CalendarDate> date =
        ReadNumericDate(reader, ShapeOfDateFormat(locale->dateFormat.View()).order);
    std::optional<TimeOfDay> time = TimeOfDay{};
    if (date && !reader.AtEnd()) {
        const bool joined = reader.Accept(u'T') || reader.SkipSpaces() > 0;
        time = joined ? ReadTimeOfDay(reader, *locale) : std::nullopt;
    } else if (!date) {
        reader.Rewind(0);
        date = CalendarDate{1899, 12, 30};
        time = ReadTimeOfDay(reader, *locale);
    }
    if (!time || !reader.AtEnd() || !IsWithinADay(*time))
        return false;
    if (date->year < kMinYear || date->year > kMaxYear || date->month < 1 || date->month > 12 ||
        date->day < 1 || date->day > DaysInMonth(date->year, date->month))
        return false;
    Assign(date->year, date->month, date->day, SecondOfDay(time->hour, time->minute, time->second));
    return true;
}

CString QDateTime::Format() const {
    if (m_status == invalid)
        return u"Invalid DateTime";
    if (m_status == null)
        return CString();
    const DateShape shape = ShapeOfDateFormat(CurrentDateLocale()->dateFormat.View());
    const Parts split = Split();
    const CString day = CString::Formatted(u"%02d", split.day);
    const CString month = CString::Formatted(u"%02d", split.month);
    const CString year = CString::Formatted(u"%04d", split.year);
    const CString separator(shape.separator);
    CString text;
    switch (shape.order) {
    case DateOrder::DayMonthYear:
        text = day + separator + month + separator + year;
        break;
    case DateOrder::YearMonthDay:
        text = year + separator + month + separator + day;
        break;
    default:
        text = month + separator + day + separator + year;
        break;
    }
    if (split.secondOfDay != 0)
        text.AppendFormat(u" %02d:%02d:%02d", split.secondOfDay / 3600, split.secondOfDay / 60 % 60,
                          split.secondOfDay % 60);
    return text;
}

CString QDateTime::Format(const CString& format) const {
    if (m_status == invalid)
        return u"Invalid DateTime";
    if (m_status == null)
        return CString();
    std::tm parts{};
    GetAsTm(parts);
    parts.tm_isdst = 0;
    const std::shared_ptr<const DateLocale> locale = CurrentDateLocale();
    return DateFormatter(parts, *locale).Expand(format.View());
}

QDateTime::LocaleFormats QDateTime::GetLocaleFormats() {
    const std::shared_ptr<const DateLocale> locale = CurrentDateLocale();
    return {locale->dateFormat, locale->timeFormat};
}

void QDateTime::SetLocaleFormats(const CString& dateFormat, const CString& timeFormat) {
    const std::shared_ptr<const DateLocale> current = CurrentDateLocale();
    const std::shared_ptr<DateLocale> fixed = DateLocaleFrom(duplocale(current->locale));
    fixed->dateFormat = dateFormat;
    fixed->timeFormat = timeFormat;
    const std::lock_guard lock(g_localeLock);
    g_locale = fixed;
}

void QDateTime::ResetLocale() {
    const std::lock_guard lock(g_localeLock);
    g_locale.reset();
}

unsigned QDateTime::HashKey() const {
    return IsValid() ? ScalarHashKey(TruncateToInt32(m_dt)) : 0;
}

QDateTime& QDateTime::operator+=(const QTime& span) {
    if (IsValid())
        SetLinear(Linear() + static_cast<double>(span.GetRaw()) / kSecondsPerDay);
    return *this;
}

QDateTime& QDateTime::operator-=(const QTime& span) {
    if (IsValid())
        SetLinear(Linear() - static_cast<double>(span.GetRaw()) / kSecondsPerDay);
    return *this;
}

QTime operator-(const QDateTime& a, const QDateTime& b) {
    if (!a.IsValid() || !b.IsValid())
        return QTime::Zero;
    return QTime::FromRaw(FloorHalfUpToInt32((a.Linear() - b.Linear()) * kSecondsPerDay));
}

bool operator==(const QDateTime& a, const QDateTime& b) {
    if (a.IsValid() && b.IsValid())
        return std::fabs(a.Linear() - b.Linear()) <= QDateTime::HalfSecond;
    return a.m_status == QDateTime::null && b.m_status == QDateTime::null;
}

bool operator<(const QDateTime& a, const QDateTime& b) {
    if (a == b)
        return false;
    const double left = a.IsValid() ? a.Linear() : a.m_dt;
    const double right = b.IsValid() ? b.Linear() : b.m_dt;
    return left < right;
}

QDateTime::Parts QDateTime::Split() const {
    const DayAndSecond split = SplitOleDate(m_dt);
    const CivilDate civil = CivilFromDays(split.dayNumber - kUnixEpochDay);
    return {static_cast<int>(civil.year), civil.month, civil.day, split.secondOfDay};
}

void QDateTime::Assign(std::int64_t dayNumber, int secondOfDay) {
    if (dayNumber < static_cast<std::int64_t>(MinDay) ||
        dayNumber > static_cast<std::int64_t>(MaxDay)) {
        m_dt = static_cast<double>(dayNumber);
        m_status = invalid;
        return;
    }
    m_dt = OleDate(dayNumber, secondOfDay);
    m_status = valid;
}

void QDateTime::Assign(int year, int month, int day, int secondOfDay) {
    Assign(OleDayNumber(year, month, day), secondOfDay);
}

double QDateTime::Linear() const {
    if (m_dt >= 0)
        return m_dt;
    const double day = std::trunc(m_dt);
    return day + (day - m_dt);
}

void QDateTime::SetLinear(double days) {
    if (!std::isfinite(days) || days < MinDay || days >= MaxDay + 1) {
        m_dt = days;
        m_status = invalid;
        return;
    }
    const double day = std::floor(days);
    m_dt = day >= 0 ? days : day - (days - day);
    m_status = valid;
}

CArchive& operator<<(CArchive& archive, const QDateTime& date) {
    return archive << static_cast<std::int32_t>(date.GetStatus()) << date.GetOleDate();
}

CArchive& operator>>(CArchive& archive, QDateTime& date) {
    std::int32_t status = 0;
    double oleDate = 0;
    archive >> status >> oleDate;
    date.SetOleDate(oleDate);
    date.SetStatus(static_cast<QDateTime::DateTimeStatus>(status));
    return archive;
}

} // namespace keel
