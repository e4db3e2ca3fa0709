#pragma once

#include "keel/values/length.h"

namespace keel {

// An angle; raw unit the degree. The cosine and sine are kept once computed, also in a const
// angle: both zero means not computed, so an angle of exactly 0 with reset caches computes them
// again. Only one thread may read an angle for the first time.
class QAngle {
public:
    enum ANGLEUNITS : int {
        ANGU_DEFAULT = -1,
        ANGU_RAW = 0,
        ANGU_TENTHDEG = 1,
        ANGU_DEG = 2,
        ANGU_RAD = 3,
    };

    static constexpr double Eps = 1e-05;
    static const QAngle Zero;
    static const QAngle Deg15;

    QAngle() = default;
    explicit QAngle(double value, ANGLEUNITS unit = ANGU_DEFAULT)
        : m_value(double_to_raw(value, unit)), m_cos(0), m_sin(0) {}
    static QAngle FromRaw(double degrees) { return QAngle(degrees, ANGU_RAW); }

    double GetRaw() const { return m_value; }
    void SetRaw(double degrees) {
        m_value = degrees;
        ResetCosAndSin();
    }
    double AsDouble(ANGLEUNITS unit = ANGU_DEFAULT) const { return raw_to_double(m_value, unit); }

    bool HasCosAndSin() const { return m_cos != 0 || m_sin != 0; }
    void CalcCosAndSinIfRequired() const {
        if (!HasCosAndSin())
            CalcCosAndSin();
    }
    void ResetCosAndSin() { m_cos = m_sin = 0; }
    double Cos() const {
        CalcCosAndSinIfRequired();
        return m_cos;
    }
    double Sin() const {
        CalcCosAndSinIfRequired();
        return m_sin;
    }

    // A finite value is brought into [0, 360); one that is not finite is left as it is.
    static double Normalized(double degrees);
    QAngle& Normalize() {
        m_value = Normalized(m_value);
        return *this;
    }

    // Each keeps a computed cosine and sine up to date by exchange and sign.
    QAngle& Plus90();
    QAngle& Minus90();
    QAngle& Reverse();
    QAngle& Complement(); // 90 minus the angle
    QAngle& Supplement(); // 180 minus the angle

    // Between by the short-way order below: low <= this <= high, or low < this < high.
    bool IsBetweenInclusive(const QAngle& low, const QAngle& high) const {
        return *this >= low && *this <= high;
    }
    bool IsBetweenExclusive(const QAngle& low, const QAngle& high) const {
        return *this > low && *this < high;
    }
    // On the arc swept from `from` to `to` counter-clockwise (increasing degrees) or clockwise,
    // ends included within Eps.
    bool IsBetweenCCW(const QAngle& from, const QAngle& to) const;
    bool IsBetweenCW(const QAngle& from, const QAngle& to) const { return IsBetweenCCW(to, from); }
    bool IsBetweenInDirection(const QAngle& from, const QAngle& to, bool counterClockwise) const {
        return counterClockwise ? IsBetweenCCW(from, to) : IsBetweenCW(from, to);
    }

    bool IsZero() const { return m_value <= Eps && m_value >= -Eps; }

    QAngle& operator+=(const QAngle& other) {
        SetRaw(m_value + other.m_value);
        return *this;
    }
    QAngle& operator-=(const QAngle& other) {
        SetRaw(m_value - other.m_value);
        return *this;
    }
    QAngle& operator*=(double factor) {
        SetRaw(m_value * factor);
        return *this;
    }
    QAngle& operator/=(double divisor) {
        SetRaw(m_value / divisor);
        return *this;
    }
    friend QAngle operator+(QAngle a, const QAngle& b) { return a += b; }
    friend QAngle operator-(QAngle a, const QAngle& b) { return a -= b; }
    friend QAngle operator*(QAngle a, double factor) { return a *= factor; }
    friend QAngle operator*(double factor, QAngle a) { return a *= factor; }
    friend QAngle operator/(QAngle a, double divisor) { return a /= divisor; }
    friend double operator/(const QAngle& a, const QAngle& b) { return a.m_value / b.m_value; }
    friend QAngle operator-(QAngle a) {
        a.m_value = -a.m_value;
        a.m_sin = -a.m_sin;
        return a;
    }
    friend QAngle operator+(const QAngle& a) { return a; }
    friend bool operator!(const QAngle& a) { return a.IsZero(); }

    friend bool operator==(const QAngle& a, const QAngle& b) {
        const double difference = a.m_value - b.m_value;
        return difference <= Eps && difference >= -Eps;
    }
    // The short way round: a is greater when, going from b, it lies less than 180 degrees ahead.
    // Two angles within Eps are neither greater nor less.
    friend bool operator>(const QAngle& a, const QAngle& b) {
        if (a == b)
            return false;
        return a.m_value > b.m_value ? 180 > a.m_value - b.m_value : b.m_value - a.m_value > 180;
    }
    friend bool operator<(const QAngle& a, const QAngle& b) { return b > a; }
    friend bool operator>=(const QAngle& a, const QAngle& b) { return !(a < b); }
    friend bool operator<=(const QAngle& a, const QAngle& b) { return !(a > b); }

    // A unit of -1 (ANGU_DEFAULT) is an invalid argument here.
    static constexpr double Factor(ANGLEUNITS unit) {
        constexpr double factors[] = {1, 0.1, 1, 1.0 / 0.0017453292519943296 * 0.1};
        if (unit < ANGU_RAW || unit > ANGU_RAD)
            ThrowInvalidArgument("angle unit " + std::to_string(unit));
        return factors[unit];
    }
    static ANGLEUNITS DefaultUnits() { return c_defunits; }
    static void SetDefaultUnits(ANGLEUNITS unit);
    // Angles read the same in either system: always true.
    static bool DefaultUnitsAreMetric() { return true; }
    static ANGLEUNITS Resolve(ANGLEUNITS unit) { return unit == ANGU_DEFAULT ? c_defunits : unit; }

    static double double_to_raw(double value, ANGLEUNITS unit) {
        return value * Factor(Resolve(unit));
    }
    static double double_to_raw(double value) { return double_to_raw(value, ANGU_DEFAULT); }
    static double raw_to_double(double raw, ANGLEUNITS unit) { return raw / Factor(Resolve(unit)); }
    static double raw_to_double(double raw) { return raw_to_double(raw, ANGU_DEFAULT); }
    static constexpr double Convert(double value, ANGLEUNITS from, ANGLEUNITS to) {
        return value * Factor(from) / Factor(to);
    }

    // clang-format off
    static constexpr double tenthdeg_to_deg(double value) { return Convert(value, ANGU_TENTHDEG, ANGU_DEG); }
    static constexpr double tenthdeg_to_rad(double value) { return Convert(value, ANGU_TENTHDEG, ANGU_RAD); }
    static constexpr double deg_to_tenthdeg(double value) { return Convert(value, ANGU_DEG, ANGU_TENTHDEG); }
    static constexpr double deg_to_rad(double value) { return Convert(value, ANGU_DEG, ANGU_RAD); }
    static constexpr double rad_to_tenthdeg(double value) { return Convert(value, ANGU_RAD, ANGU_TENTHDEG); }
    static constexpr double rad_to_deg(double value) { return Convert(value, ANGU_RAD, ANGU_DEG); }
    // clang-format on

    // "deg", "rad", and empty for the other units.
    static CString AngleUnitSuffix(ANGLEUNITS unit = ANGU_DEFAULT);

    // A number, optionally followed by "deg" or "rad"; a number alone is taken in `unit`. On
    // success the angle is set, with its cosine and sine to be computed; otherwise it is left as
    // it was.
    PARSERESULT Parse(const CString& text, ANGLEUNITS unit = ANGU_DEFAULT);
    // Two decimals ("%.2f"), then, if asked, a space and the unit word.
    CString Format(ANGLEUNITS unit = ANGU_DEFAULT, bool showUnit = false) const;

    static bool LimitDoubleAlways(QAngle& angle, const CString& where);

private:
    void CalcCosAndSin() const;
    // Sets the value and, if they were computed, the cosine and sine as given.
    QAngle& Turned(double degrees, double cosine, double sine);

    static inline ANGLEUNITS c_defunits = ANGU_DEG;

    double m_value = 0;
    mutable double m_cos = 1;
    mutable double m_sin = 0;
};

// 8 bytes of double, the value alone. Reading follows the archive's schema: below 108 a 32-bit
// integer in tenths of a degree. The cosine and sine are computed again when asked for.
CArchive& operator<<(CArchive& archive, const QAngle& angle);
CArchive& operator>>(CArchive& archive, QAngle& angle);

} // namespace keel
