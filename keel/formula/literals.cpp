#include "keel/formula/literals.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>

namespace keel {

namespace {

// Every integer up to 2^53 is exact in a double, and so is every power of ten up to 10^22.
constexpr double kLargestExactInteger = 9007199254740992.0;
constexpr int kLargestExactPowerOfTen = 22;
// A run of up to 15 digits is below 2^53.
constexpr int kExactDigits = 15;

double PowerOfTen(int exponent) {
    double power = 1.0;
    for (int i = 0; i < exponent; ++i)
        power *= 10.0;
    return power;
}

// Digits with an optional decimal part. A number too large for a double is infinite, one too
// small is 0.
double ParseAscii(const std::string& text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc::result_out_of_range)
        return value;
    const std::size_t firstNonZero = text.find_first_not_of("0");
    const bool large = firstNonZero != std::string::npos && text[firstNonZero] != '.';
    return large ? HUGE_VAL : 0.0;
}

std::string AsciiDigits(const char16_t* digits, int count) {
    std::string text;
    text.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        text += static_cast<char>(digits[i]);
    return text;
}

// The value of a run of digits, the double nearest to it.
double WholeValue(const char16_t* digits, int count) {
    if (count > kExactDigits)
        return ParseAscii(AsciiDigits(digits, count));
    double value = 0;
    for (int i = 0; i < count; ++i)
        value = value * 10 + (digits[i] - u'0');
    return value;
}

// The whole number with the decimal digits behind it, the double nearest to that literal. While
// the digits fit an exact integer, one division by an exact power of ten rounds correctly.
double WithDecimals(double whole, const char16_t* digits, int count) {
    double mantissa = whole;
    int scale = 0;
    for (; scale < count && scale < kLargestExactPowerOfTen; ++scale) {
        const double widened = mantissa * 10 + (digits[scale] - u'0');
        if (widened > kLargestExactInteger)
            break;
        mantissa = widened;
    }
    if (scale == count)
        return mantissa / PowerOfTen(scale);
    char wholeText[400];
    std::snprintf(wholeText, sizeof wholeText, "%.0f", whole);
    return ParseAscii(std::string(wholeText) + '.' + AsciiDigits(digits, count));
}

char16_t AsciiLower(char16_t ch) {
    return ch >= u'A' && ch <= u'Z' ? static_cast<char16_t>(ch - u'A' + u'a') : ch;
}

} // namespace

bool SameWordIgnoringCase(std::u16string_view word, std::u16string_view lower) {
    if (word.size() != lower.size())
        return false;
    for (std::size_t i = 0; i < word.size(); ++i)
        if (AsciiLower(word[i]) != lower[i])
            return false;
    return true;
}

double LiteralWholeValue(std::u16string_view digits) {
    return WholeValue(digits.data(), static_cast<int>(digits.size()));
}

double LiteralWithDecimals(double whole, std::u16string_view decimals) {
    return WithDecimals(whole, decimals.data(), static_cast<int>(decimals.size()));
}

// In the order in which they are tested. The cubic rows leave an area alone, not a volume.
const std::vector<QUnitWord>& UnitWords() {
    static const std::vector<QUnitWord> words{
        {{u"dollar", u"dollars"}, QUnitKind::Dollars, 1, QAnyValue::TYPE_MONEY},
        {{u"c", u"cent", u"cents"}, QUnitKind::Cents, 1, QAnyValue::TYPE_MONEY},
        {{u"in", u"inch", u"inches"},
         QUnitKind::Length,
         25.400000000000002,
         QAnyValue::TYPE_LENGTH},
        {{u"mm", u"millimetre", u"millimetres"}, QUnitKind::Length, 1, QAnyValue::TYPE_LENGTH},
        {{u"cm", u"centimetre", u"centimetres"}, QUnitKind::Length, 10, QAnyValue::TYPE_LENGTH},
        {{u"ft", u"foot", u"feet"}, QUnitKind::Length, 304.8, QAnyValue::TYPE_LENGTH},
        {{u"m", u"metre", u"metres"}, QUnitKind::Length, 1000, QAnyValue::TYPE_LENGTH},
        {{u"sqmm"}, QUnitKind::Area, 1e-6, QAnyValue::TYPE_AREA},
        {{u"sqcm"}, QUnitKind::Area, 1e-4, QAnyValue::TYPE_AREA},
        {{u"sqin"}, QUnitKind::Area, 0.00064516, QAnyValue::TYPE_AREA},
        {{u"sqft"}, QUnitKind::Area, 0.09290304, QAnyValue::TYPE_AREA},
        {{u"sqm"}, QUnitKind::Area, 1, QAnyValue::TYPE_AREA},
        {{u"cbmm"}, QUnitKind::Volume, 1e-9, QAnyValue::TYPE_AREA},
        {{u"cbcm"}, QUnitKind::Volume, 1.0000000000000002e-6, QAnyValue::TYPE_AREA},
        {{u"cbin"}, QUnitKind::Volume, 1.6387064e-5, QAnyValue::TYPE_AREA},
        {{u"cbft"}, QUnitKind::Volume, 0.028316846592000004, QAnyValue::TYPE_AREA},
        {{u"cbm"}, QUnitKind::Volume, 1, QAnyValue::TYPE_AREA},
        {{u"hr", u"hour", u"hours"}, QUnitKind::Hours, 1, QAnyValue::TYPE_TIME},
        {{u"mn", u"minute", u"minutes"}, QUnitKind::Minutes, 1, QAnyValue::TYPE_TIME},
        {{u"s", u"sec", u"second", u"seconds"}, QUnitKind::Seconds, 1, QAnyValue::TYPE_TIME},
        {{u"deg", u"degrees"}, QUnitKind::Degrees, 1, QAnyValue::TYPE_ANGLE},
        {{u"rad", u"radians"}, QUnitKind::Radians, 1, QAnyValue::TYPE_ANGLE},
    };
    return words;
}

const QUnitWord* FindUnitWord(std::u16string_view word) {
    for (const QUnitWord& unit : UnitWords())
        for (const char16_t* spelling : unit.spellings)
            if (spelling != nullptr && SameWordIgnoringCase(word, spelling))
                return &unit;
    return nullptr;
}

QAnyValue ValueInUnit(double number, const QUnitWord& unit) {
    switch (unit.kind) {
    case QUnitKind::Dollars:
        return QAnyValue(QMoney::FromRaw(QMoney::dollar_to_raw(number)));
    case QUnitKind::Cents:
        return QAnyValue(QMoney(number, QMoney::MU_RAW));
    case QUnitKind::Length:
        return QAnyValue(QLength::FromRaw(number * unit.factor));
    case QUnitKind::Area:
        return QAnyValue(QArea::FromRaw(number * unit.factor));
    case QUnitKind::Volume:
        return QAnyValue(QVolume::FromRaw(number * unit.factor));
    case QUnitKind::Hours:
        return QAnyValue(QTime::FromRaw(QTime::hour_to_raw(number)));
    case QUnitKind::Minutes:
        return QAnyValue(QTime::FromRaw(QTime::minute_to_raw(number)));
    case QUnitKind::Seconds:
        return QAnyValue(QTime(number, QTime::TU_RAW));
    case QUnitKind::Degrees:
        return QAnyValue(QAngle(number, QAngle::ANGU_DEG));
    case QUnitKind::Radians:
        return QAnyValue(QAngle(number, QAngle::ANGU_RAD));
    }
    return QAnyValue();
}

} // namespace keel
