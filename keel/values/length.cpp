#include "keel/values/length.h"

#include "keel/platform/schema.h"
#include "keel/platform/wchar.h"
#include "keel/values/anyvalue.h"
#include "keel/values/formulahook.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <optional>

namespace keel {

namespace {

std::atomic<bool> g_limitDoubleEnabled{true};
std::atomic<LimitDoubleTrace> g_limitDoubleTrace{nullptr};
std::atomic<LimitDoubleFailedReporter> g_limitDoubleFailedReporter{nullptr};

constexpr int kLimitBinaryExponent = 60;

int BinaryExponent(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    return static_cast<int>((bits >> 52) & 0x7FF) - 1023;
}

} // namespace

bool LimitDoubleAlways(double& value, const CString& where) {
    if (value == 0.0)
        return false;
    const int exponent = BinaryExponent(value);
    if (exponent <= kLimitBinaryExponent && exponent >= -kLimitBinaryExponent)
        return false;
    if (const LimitDoubleTrace trace = g_limitDoubleTrace.load())
        trace(where, value);
    value = 0.0;
    return true;
}

bool LimitDouble(double& value, const CString& where) {
    return IsLimitDouble() && LimitDoubleAlways(value, where);
}

void DoLimitDouble(bool enable) {
    g_limitDoubleEnabled = enable;
}

bool IsLimitDouble() {
    return g_limitDoubleEnabled;
}

LimitDoubleTrace SetLimitDoubleTrace(LimitDoubleTrace trace) {
    return g_limitDoubleTrace.exchange(trace);
}

LimitDoubleFailedReporter SetLimitDoubleFailedReporter(LimitDoubleFailedReporter reporter) {
    return g_limitDoubleFailedReporter.exchange(reporter);
}

void QMessageBoxOrLog_LimitDoubleFailed(CArchive& archive, const CString& what) {
    if (const LimitDoubleFailedReporter reporter = g_limitDoubleFailedReporter.load())
        reporter(archive, what);
}

CString& StripRedundantDecimalPlaces(CString& text) {
    if (text.Find(u'.') < 0)
        return text;
    text.TrimRight(u'0');
    if (!text.IsEmpty() && text[text.GetLength() - 1] == u'.')
        text.Delete(text.GetLength() - 1);
    return text;
}

namespace quantity_text {

int Scan(const std::string& text, const char* format, ...) {
    const ClassicLocaleScope classic;
    va_list args;
    va_start(args, format);
    const int result = std::vsscanf(text.c_str(), format, args);
    va_end(args);
    return result;
}

std::string TrimmedUtf8(const CString& text) {
    CString trimmed = text;
    return trimmed.Trim().ToUtf8();
}

int UnitBySuffix(const char* word, int first, int last, CString (*suffix)(int unit)) {
    const CString candidate = CString::FromUtf8(word);
    for (int unit = first; unit <= last; ++unit) {
        const CString unitSuffix = suffix(unit);
        if (!unitSuffix.IsEmpty() && candidate.CompareNoCase(unitSuffix) == 0)
            return unit;
    }
    return -1;
}

ScannedQuantity ScanNumberAndUnitWord(const CString& text, const char* pattern, int first, int last,
                                      CString (*suffix)(int unit)) {
    const std::string utf8 = TrimmedUtf8(text);
    float number = 0;
    char word[8] = {};
    char extra[2] = {};
    const int got = Scan(utf8, pattern, &number, word, extra);
    if (got < 1 || got > 2 || !std::isfinite(number))
        return {};
    if (got == 1)
        return Scan(utf8, " %f %1s", &number, extra) == 1
                   ? ScannedQuantity{PARSE_DEFAULTED, number, -1}
                   : ScannedQuantity{};
    const int unit = UnitBySuffix(word, first, last, suffix);
    if (unit < 0)
        return {};
    return {PARSE_EXACT, number, unit};
}

} // namespace quantity_text

namespace {

using quantity_text::Scan;
using LENGTHUNITS = QLength::LENGTHUNITS;

// A number read from a text, in `unit` (LU_DEFAULT: the unit the caller assumes).
struct ScannedLength {
    PARSERESULT result = PARSE_NONE;
    double value = 0;
    LENGTHUNITS unit = QLength::LU_DEFAULT;
};

const ScannedLength kNotALength{};

LENGTHUNITS QuoteUnit(char quote) {
    return quote == '\'' ? QLength::LU_FOOT : QLength::LU_INCH;
}

ScannedLength Scanned(double value, int quoteCount, const char* quote) {
    if (quoteCount == 0)
        return {PARSE_DEFAULTED, value, QLength::LU_DEFAULT};
    return {PARSE_EXACT, value, QuoteUnit(quote[0])};
}

// "3/4", optionally with ' or ". Nothing when the text does not start as a fraction.
std::optional<ScannedLength> ScanFraction(const std::string& text) {
    int numerator = 0;
    int denominator = 0;
    char quote[2] = {};
    char extra[2] = {};
    const int got = Scan(text, "%d / %d %1['\"] %1s", &numerator, &denominator, quote, extra);
    if (got < 2)
        return std::nullopt;
    if (got == 4 || (got == 2 && Scan(text, "%d / %d %1s", &numerator, &denominator, extra) != 2))
        return kNotALength;
    if (denominator == 0)
        return kNotALength;
    return Scanned(static_cast<double>(numerator) / denominator, got - 2, quote);
}

// "1 3/4", optionally with ' or "; the fraction takes the sign of the whole part.
std::optional<ScannedLength> ScanMixedFraction(const std::string& text) {
    int whole = 0;
    int numerator = 0;
    int denominator = 0;
    char quote[2] = {};
    char extra[2] = {};
    const int got =
        Scan(text, " %d %d / %d %1['\"] %1s", &whole, &numerator, &denominator, quote, extra);
    if (got < 3)
        return std::nullopt;
    if (got == 5 ||
        (got == 3 && Scan(text, " %d %d / %d %1s", &whole, &numerator, &denominator, extra) != 3))
        return kNotALength;
    if (denominator == 0)
        return kNotALength;
    const double fraction = static_cast<double>(numerator) / denominator;
    return Scanned(whole + (whole < 0 ? -fraction : fraction), got - 3, quote);
}

CString SuffixOfLengthUnit(int unit) {
    return QLength::LengthUnitSuffix(static_cast<LENGTHUNITS>(unit));
}

// A decimal number, alone or followed by a unit suffix.
ScannedLength ScanDecimal(const std::string& text) {
    double value = 0;
    char word[3] = {};
    char extra[2] = {};
    const int got = Scan(text, "%lf %2[cm'\"] %1s", &value, word, extra);
    if (got < 1 || got == 3 || !std::isfinite(value))
        return kNotALength;
    if (got == 1)
        return Scan(text, "%lf %1s", &value, extra) == 1 ? Scanned(value, 0, nullptr) : kNotALength;
    const int unit =
        quantity_text::UnitBySuffix(word, QLength::LU_MM, QLength::LU_METRE, SuffixOfLengthUnit);
    if (unit < 0)
        return kNotALength;
    return {PARSE_EXACT, value, static_cast<LENGTHUNITS>(unit)};
}

ScannedLength ScanLength(const std::string& text) {
    if (const auto fraction = ScanFraction(text))
        return *fraction;
    if (const auto mixed = ScanMixedFraction(text))
        return *mixed;
    return ScanDecimal(text);
}

bool IsPrecisionRunCharacter(char16_t ch) {
    return ch == u'/' || ch == u'+' || ch == u'-' || IsDigit(ch);
}

// Past a precision that starts at `at`: the run of '/', '+', '-' and digits, then '.' and digits.
std::size_t SkipPrecision(std::u16string_view text, std::size_t at) {
    while (at < text.size() && IsPrecisionRunCharacter(text[at]))
        ++at;
    if (at < text.size() && text[at] == u'.') {
        ++at;
        while (at < text.size() && IsDigit(text[at]))
            ++at;
    }
    return at;
}

CString DefaultPrecision(LENGTHUNITS unit) {
    switch (unit) {
    case QLength::LU_HIMETRIC:
    case QLength::LU_LOMETRIC:
        return u".0";
    case QLength::LU_MM:
        return u".1";
    case QLength::LU_CM:
        return u".2";
    case QLength::LU_INCH:
        switch (QLength::InchAsFraction()) {
        case 0:
            return u".4";
        case 16:
            return u"/16";
        case 32:
            return u"/32";
        default:
            return CString();
        }
    case QLength::LU_FOOT:
        return u"/384";
    case QLength::LU_METRE:
        return u".4";
    default:
        return CString();
    }
}

// The number behind the stroke of a fractional precision, read as atoi would; below 1 means 96.
long long FractionDenominator(std::u16string_view precision) {
    std::size_t at = 1;
    const bool negative = at < precision.size() && precision[at] == u'-';
    if (at < precision.size() && (precision[at] == u'-' || precision[at] == u'+'))
        ++at;
    long long denominator = 0;
    for (; at < precision.size() && IsDigit(precision[at]); ++at)
        denominator = std::min<long long>(denominator * 10 + (precision[at] - u'0'), INT_MAX);
    if (negative || denominator < 1)
        return 96;
    return denominator;
}

// The value rounded to the nearest 1/denominator: "w n/d", "n/d" or "w", reduced.
CString FormatFraction(double value, long long denominator) {
    if (!std::isfinite(value))
        return CString::Formatted(u"%f", value);
    const double d = static_cast<double>(denominator);
    const double units = std::floor(d * std::fabs(value) + 0.5);
    const double rest = std::fmod(units, d);
    const double whole = (units - rest) / d;
    const char16_t* sign = value < 0 && units > 0 ? u"-" : u"";
    if (rest == 0)
        return CString::Formatted(u"%s%.0f", sign, whole);
    const long long numerator = static_cast<long long>(rest);
    const long long divisor = std::gcd(numerator, denominator);
    if (whole == 0)
        return CString::Formatted(u"%s%lld/%lld", sign, numerator / divisor, denominator / divisor);
    return CString::Formatted(u"%s%.0f %lld/%lld", sign, whole, numerator / divisor,
                              denominator / divisor);
}

CString FormatNumber(double value, const CString& precision) {
    if (precision == u"-")
        return CString();
    if (!precision.IsEmpty() && precision[0] == u'/')
        return FormatFraction(value, FractionDenominator(precision.View()));
    CString text = CString::Formatted(u"%" + precision + u"f", value);
    if (!precision.IsEmpty() && precision[0] == u'.')
        StripRedundantDecimalPlaces(text);
    return text;
}

} // namespace

void QLength::SetDefaultUnits(LENGTHUNITS unit) {
    Factor(unit);
    c_defunits = unit;
}

bool QLength::DefaultUnitsAreMetric() {
    return c_defunits == LU_MM || c_defunits == LU_CM || c_defunits == LU_METRE;
}

CString QLength::LengthUnitSuffix(LENGTHUNITS unit) {
    const LENGTHUNITS resolved = Resolve(unit);
    Factor(resolved);
    switch (resolved) {
    case LU_MM:
        return u"mm";
    case LU_CM:
        return u"cm";
    case LU_INCH:
        return u"\"";
    case LU_FOOT:
        return u"'";
    case LU_METRE:
        return u"m";
    default:
        return CString();
    }
}

PARSERESULT QLength::Parse(const CString& text, LENGTHUNITS unit) {
    const ScannedLength scanned = ScanLength(quantity_text::TrimmedUtf8(text));
    if (scanned.result != PARSE_NONE)
        SetRaw(double_to_raw(scanned.value, scanned.unit == LU_DEFAULT ? unit : scanned.unit));
    return scanned.result;
}

bool QLength::SetFromFormula(const FormulaText& formula) {
    QAnyValue value;
    if (!EvaluateFormula(formula, nullptr, value) || value.IsEmpty() || value.IsErrorOrNA())
        return false;
    *this = value.MakeLength();
    return true;
}

QLength::FormatSpec QLength::ParseFormatSpecifier(const CString& specifier) {
    const std::u16string_view text = specifier.View();
    FormatSpec parts;
    for (std::size_t percent = text.find(u'%'); percent != std::u16string_view::npos;
         percent = text.find(u'%', percent + 1)) {
        const std::size_t end = SkipPrecision(text, percent + 1);
        if (end < text.size() && (text[end] == u'f' || text[end] == u'F')) {
            parts.prefix = CString(text.substr(0, percent));
            parts.precision = CString(text.substr(percent + 1, end - percent - 1));
            parts.suffix = CString(text.substr(end + 1));
            parts.showUnit = text[end] == u'F';
            return parts;
        }
    }
    parts.suffix = specifier;
    return parts;
}

CString QLength::Format(const FormatSpec& parts, LENGTHUNITS unit) const {
    const LENGTHUNITS resolved = Resolve(unit);
    const CString precision =
        parts.precision.IsEmpty() ? DefaultPrecision(resolved) : parts.precision;
    CString text = parts.prefix;
    text += FormatNumber(raw_to_double(GetRaw(), resolved), precision);
    if (parts.showUnit)
        text += LengthUnitSuffix(resolved);
    text += parts.suffix;
    return text;
}

bool QLength::LimitDoubleAlways(QLength& length, const CString& where) {
    double raw = length.GetRaw();
    const bool clamped = keel::LimitDoubleAlways(raw, where);
    length.SetRaw(raw);
    return clamped;
}

CArchive& operator<<(CArchive& archive, const QLength& length) {
    QLength stored = length;
    if (QLength::LimitDoubleAlways(stored, u"Length CArchive<< storing"))
        QMessageBoxOrLog_LimitDoubleFailed(archive, u"length storing");
    return archive << stored.GetRaw();
}

CArchive& operator>>(CArchive& archive, QLength& length) {
    const int version = QSchema::Version(archive);
    if (version < 18) {
        std::int32_t stored = 0;
        archive >> stored;
        length.SetRaw(version < 17 ? stored * 0.1 : stored / 320.0);
    } else {
        double raw = 0;
        archive >> raw;
        length.SetRaw(raw);
    }
    if (QLength::LimitDoubleAlways(length, u"Length CArchive>> reading"))
        QMessageBoxOrLog_LimitDoubleFailed(archive, u"length");
    return archive;
}

} // namespace keel
