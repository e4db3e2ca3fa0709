#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/platform/exceptions.h"
#include "keel/values/stringunique.h"

#include <string>

// The measured quantities share what is in this header: the parse result, the range guard on
// stored doubles, the text helpers, and the tolerance-compared base of lengths, areas and
// volumes. Raw units are fixed (mm, m², m³, degrees); each class converts to and from a
// process-wide default unit at the edges.

namespace keel {

// How well a text fits a type.
enum PARSERESULT : int {
    PARSE_NONE = 0,      // not of this type
    PARSE_DEFAULTED = 1, // fits, with a default assumed (a number without its unit)
    PARSE_EXACT = 2,     // fits exactly
};

// Guards against corrupt numbers. Zero passes; a value whose binary exponent lies more than 60
// away from zero either way (and so every infinity, NaN and denormal) is set to 0.0 and true is
// returned. `where` names the place for the trace.
bool LimitDoubleAlways(double& value, const CString& where);
// LimitDoubleAlways while the ordinary check is switched on (it is at start), else false.
bool LimitDouble(double& value, const CString& where);
void DoLimitDouble(bool enable);
bool IsLimitDouble();

// The error log and the document layer install these at start-up; until then a clamped value
// is neither traced nor reported. Each setter returns the one it replaces.
using LimitDoubleTrace = void (*)(const CString& where, double rejected);
LimitDoubleTrace SetLimitDoubleTrace(LimitDoubleTrace trace);
using LimitDoubleFailedReporter = void (*)(CArchive& archive, const CString& what);
LimitDoubleFailedReporter SetLimitDoubleFailedReporter(LimitDoubleFailedReporter reporter);
// Tells the user that a bad `what` ("length", "area", ...) was found in the archive's file.
void QMessageBoxOrLog_LimitDoubleFailed(CArchive& archive, const CString& what);

// When the text holds a decimal point: cuts trailing zeros, then a point left at the end.
CString& StripRedundantDecimalPlaces(CString& text);

namespace quantity_text {

// sscanf under the "C" locale, so that the decimal point is '.' whatever the user's locale.
int Scan(const std::string& text, const char* format, ...) __attribute__((format(scanf, 2, 3)));
// The text without surrounding white space, as UTF-8 for Scan.
std::string TrimmedUtf8(const CString& text);
// Each unit number from `first` to `last` in turn: the first whose suffix is `word`, ignoring
// case, or -1.
int UnitBySuffix(const char* word, int first, int last, CString (*suffix)(int unit));

// A number read with " %f" (a float) and then an optional unit word.
struct ScannedQuantity {
    PARSERESULT result = PARSE_NONE;
    double value = 0;
    int unit = -1; // -1 when no unit word was given
};
// Runs `pattern`, which is " %f %<width>[<letters>] %1s": a number alone is PARSE_DEFAULTED, a
// number and a word that is one of the suffixes from `first` to `last` PARSE_EXACT. Anything
// else, and a number that is not finite, is PARSE_NONE.
ScannedQuantity ScanNumberAndUnitWord(const CString& text, const char* pattern, int first, int last,
                                      CString (*suffix)(int unit));

} // namespace quantity_text

// What a length, an area and a volume share: one raw double, compared within Derived::Eps,
// with arithmetic that never allocates. Two values closer than Eps are equal and neither is
// less than the other, so equality is not transitive.
template <class Derived>
class TMeasured {
public:
    constexpr double GetRaw() const { return m_raw; }
    constexpr void SetRaw(double raw) { m_raw = raw; }
    static constexpr Derived FromRaw(double raw) {
        Derived value;
        value.SetRaw(raw);
        return value;
    }

    bool IsZero() const { return Within(m_raw); }

    Derived& operator+=(const Derived& other) {
        m_raw += other.m_raw;
        return Self();
    }
    Derived& operator-=(const Derived& other) {
        m_raw -= other.m_raw;
        return Self();
    }
    Derived& operator*=(double factor) {
        m_raw *= factor;
        return Self();
    }
    Derived& operator/=(double divisor) {
        m_raw /= divisor;
        return Self();
    }

    friend Derived operator+(Derived a, const Derived& b) { return a += b; }
    friend Derived operator-(Derived a, const Derived& b) { return a -= b; }
    friend Derived operator*(Derived a, double factor) { return a *= factor; }
    friend Derived operator*(double factor, Derived a) { return a *= factor; }
    friend Derived operator/(Derived a, double divisor) { return a /= divisor; }
    friend double operator/(const Derived& a, const Derived& b) { return a.m_raw / b.m_raw; }
    friend Derived operator-(const Derived& a) { return FromRaw(-a.m_raw); }
    friend Derived operator+(const Derived& a) { return a; }
    friend bool operator!(const Derived& a) { return a.IsZero(); }

    friend bool operator==(const Derived& a, const Derived& b) { return Within(a.m_raw - b.m_raw); }
    friend bool operator<(const Derived& a, const Derived& b) {
        return a.m_raw - b.m_raw <= -Derived::Eps;
    }
    friend bool operator>(const Derived& a, const Derived& b) {
        return a.m_raw - b.m_raw >= Derived::Eps;
    }
    friend bool operator<=(const Derived& a, const Derived& b) { return !(a > b); }
    friend bool operator>=(const Derived& a, const Derived& b) { return !(a < b); }

protected:
    constexpr TMeasured() = default;
    constexpr explicit TMeasured(double raw) : m_raw(raw) {}

private:
    static bool Within(double difference) {
        return difference <= Derived::Eps && difference >= -Derived::Eps;
    }
    Derived& Self() { return static_cast<Derived&>(*this); }

    double m_raw = 0;
};

// A length; raw unit the millimetre.
class QLength : public TMeasured<QLength> {
public:
    enum LENGTHUNITS : int {
        LU_DEFAULT = -1,
        LU_RAW = 0,
        LU_HIMETRIC = 1,
        LU_LOMETRIC = 2,
        LU_MM = 3,
        LU_CM = 4,
        LU_INCH = 5,
        LU_FOOT = 6,
        LU_METRE = 7,
    };

    static constexpr double Eps = 0.01;
    static const QLength Zero;

    // How lengths in inches are written: 0 as decimals, 16 and 32 as fractions of that
    // denominator; the options store 1 for 32.
    static inline int c_InchHandlerType = 0x20;
    static int InchAsFraction() { return c_InchHandlerType; }

    constexpr QLength() = default;
    explicit QLength(double value, LENGTHUNITS unit = LU_DEFAULT)
        : TMeasured(double_to_raw(value, unit)) {}

    double AsDouble(LENGTHUNITS unit = LU_DEFAULT) const { return raw_to_double(GetRaw(), unit); }

    // A unit of -1 (LU_DEFAULT) is an invalid argument here.
    static constexpr double Factor(LENGTHUNITS unit) {
        constexpr double factors[] = {1, 0.01, 0.1, 1, 10, 25.400000000000002, 304.8, 1000};
        if (unit < LU_RAW || unit > LU_METRE)
            ThrowInvalidArgument("length unit " + std::to_string(unit));
        return factors[unit];
    }
    static LENGTHUNITS DefaultUnits() { return c_defunits; }
    static void SetDefaultUnits(LENGTHUNITS unit);
    // Millimetres, centimetres and metres.
    static bool DefaultUnitsAreMetric();
    static LENGTHUNITS Resolve(LENGTHUNITS unit) { return unit == LU_DEFAULT ? c_defunits : unit; }

    static double double_to_raw(double value, LENGTHUNITS unit) {
        return value * Factor(Resolve(unit));
    }
    static double double_to_raw(double value) { return double_to_raw(value, LU_DEFAULT); }
    static double raw_to_double(double raw, LENGTHUNITS unit) {
        return raw / Factor(Resolve(unit));
    }
    static double raw_to_double(double raw) { return raw_to_double(raw, LU_DEFAULT); }
    static constexpr double Convert(double value, LENGTHUNITS from, LENGTHUNITS to) {
        return value * Factor(from) / Factor(to);
    }

    // clang-format off
    static constexpr double himetric_to_lometric(double value) { return Convert(value, LU_HIMETRIC, LU_LOMETRIC); }
    static constexpr double himetric_to_mm(double value) { return Convert(value, LU_HIMETRIC, LU_MM); }
    static constexpr double himetric_to_cm(double value) { return Convert(value, LU_HIMETRIC, LU_CM); }
    static constexpr double himetric_to_inch(double value) { return Convert(value, LU_HIMETRIC, LU_INCH); }
    static constexpr double himetric_to_foot(double value) { return Convert(value, LU_HIMETRIC, LU_FOOT); }
    static constexpr double himetric_to_m(double value) { return Convert(value, LU_HIMETRIC, LU_METRE); }
    static constexpr double lometric_to_himetric(double value) { return Convert(value, LU_LOMETRIC, LU_HIMETRIC); }
    static constexpr double lometric_to_mm(double value) { return Convert(value, LU_LOMETRIC, LU_MM); }
    static constexpr double lometric_to_cm(double value) { return Convert(value, LU_LOMETRIC, LU_CM); }
    static constexpr double lometric_to_inch(double value) { return Convert(value, LU_LOMETRIC, LU_INCH); }
    static constexpr double lometric_to_foot(double value) { return Convert(value, LU_LOMETRIC, LU_FOOT); }
    static constexpr double lometric_to_m(double value) { return Convert(value, LU_LOMETRIC, LU_METRE); }
    static constexpr double mm_to_himetric(double value) { return Convert(value, LU_MM, LU_HIMETRIC); }
    static constexpr double mm_to_lometric(double value) { return Convert(value, LU_MM, LU_LOMETRIC); }
    static constexpr double mm_to_cm(double value) { return Convert(value, LU_MM, LU_CM); }
    static constexpr double mm_to_inch(double value) { return Convert(value, LU_MM, LU_INCH); }
    static constexpr double mm_to_foot(double value) { return Convert(value, LU_MM, LU_FOOT); }
    static constexpr double mm_to_m(double value) { return Convert(value, LU_MM, LU_METRE); }
    static constexpr double cm_to_himetric(double value) { return Convert(value, LU_CM, LU_HIMETRIC); }
    static constexpr double cm_to_lometric(double value) { return Convert(value, LU_CM, LU_LOMETRIC); }
    static constexpr double cm_to_mm(double value) { return Convert(value, LU_CM, LU_MM); }
    static constexpr double cm_to_inch(double value) { return Convert(value, LU_CM, LU_INCH); }
    static constexpr double cm_to_foot(double value) { return Convert(value, LU_CM, LU_FOOT); }
    static constexpr double cm_to_m(double value) { return Convert(value, LU_CM, LU_METRE); }
    static constexpr double inch_to_himetric(double value) { return Convert(value, LU_INCH, LU_HIMETRIC); }
    static constexpr double inch_to_lometric(double value) { return Convert(value, LU_INCH, LU_LOMETRIC); }
    static constexpr double inch_to_mm(double value) { return Convert(value, LU_INCH, LU_MM); }
    static constexpr double inch_to_cm(double value) { return Convert(value, LU_INCH, LU_CM); }
    static constexpr double inch_to_foot(double value) { return Convert(value, LU_INCH, LU_FOOT); }
    static constexpr double inch_to_m(double value) { return Convert(value, LU_INCH, LU_METRE); }
    static constexpr double foot_to_himetric(double value) { return Convert(value, LU_FOOT, LU_HIMETRIC); }
    static constexpr double foot_to_lometric(double value) { return Convert(value, LU_FOOT, LU_LOMETRIC); }
    static constexpr double foot_to_mm(double value) { return Convert(value, LU_FOOT, LU_MM); }
    static constexpr double foot_to_cm(double value) { return Convert(value, LU_FOOT, LU_CM); }
    static constexpr double foot_to_inch(double value) { return Convert(value, LU_FOOT, LU_INCH); }
    static constexpr double foot_to_m(double value) { return Convert(value, LU_FOOT, LU_METRE); }
    static constexpr double m_to_himetric(double value) { return Convert(value, LU_METRE, LU_HIMETRIC); }
    static constexpr double m_to_lometric(double value) { return Convert(value, LU_METRE, LU_LOMETRIC); }
    static constexpr double m_to_mm(double value) { return Convert(value, LU_METRE, LU_MM); }
    static constexpr double m_to_cm(double value) { return Convert(value, LU_METRE, LU_CM); }
    static constexpr double m_to_inch(double value) { return Convert(value, LU_METRE, LU_INCH); }
    static constexpr double m_to_foot(double value) { return Convert(value, LU_METRE, LU_FOOT); }
    // clang-format on

    // "mm", "cm", "\"", "'", "m", and empty for the other units.
    static CString LengthUnitSuffix(LENGTHUNITS unit = LU_DEFAULT);

    // Reads "3/4", "1 3/4", a number, each optionally followed by ' (feet) or " (inches), and
    // a number followed by a unit suffix. A number without a unit is taken in `unit`. On
    // success the length is set; otherwise it is left as it was.
    PARSERESULT Parse(const CString& text, LENGTHUNITS unit = LU_DEFAULT);
    // Evaluates the formula, in no context, through the evaluator the formula layer installs,
    // and takes its value as a length: a number is in the default unit. False, with the length
    // left as it was, when the formula fails or its value is empty, an error or not available.
    bool SetFromFormula(const FormulaText& formula);

    // A format specifier cut into its parts: prefix, "%", precision, 'f' or 'F', suffix.
    struct FormatSpec {
        CString prefix;
        CString precision; // a run of '/', '+', '-' and digits, then '.' and digits
        CString suffix;
        bool showUnit = false; // 'F'
    };
    // A text without such a shape counts as "%f" followed by the text.
    static FormatSpec ParseFormatSpecifier(const CString& specifier);
    // An empty precision takes the unit's default; "-" writes no number; "/d" a fraction with
    // denominator d (96 if d is below 1); anything else a decimal through "%<precision>f".
    CString Format(const FormatSpec& parts, LENGTHUNITS unit = LU_DEFAULT) const;
    CString Format(const CString& specifier = CString(), LENGTHUNITS unit = LU_DEFAULT) const {
        return Format(ParseFormatSpecifier(specifier), unit);
    }
    // The text a dimension of this length shows before anyone edits it.
    CString DefaultDimText() const { return Format(u"%F"); }

    static bool LimitDoubleAlways(QLength& length, const CString& where);

private:
    static inline LENGTHUNITS c_defunits = LU_MM;
};

inline constexpr QLength QLength::Zero{};

// 8 bytes of double. Reading follows the archive's schema: below 17 a 32-bit integer in tenths
// of a millimetre, at 17 a 32-bit integer in 320ths, from 18 the double.
CArchive& operator<<(CArchive& archive, const QLength& length);
CArchive& operator>>(CArchive& archive, QLength& length);

} // namespace keel
