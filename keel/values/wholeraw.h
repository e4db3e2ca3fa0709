#pragma once

#include "keel/platform/archive.h"

#include <compare>
#include <cstdint>

namespace keel {

// The hash that values give their integers: one step of the Lehmer generator (multiplier 16807,
// modulus 2^31 - 1, by Schrage's method).
unsigned ScalarHashKey(std::int32_t value);

// Rounds to a signed 32-bit integer by the floor of the value plus 0.5, or by truncation; a value
// beyond the 32-bit range saturates at its end, and NaN gives 0.
std::int32_t FloorHalfUpToInt32(double value);
std::int32_t TruncateToInt32(double value);
std::int32_t SaturateToInt32(std::int64_t value);

// What money and time spans share: a whole number of raw units in 32 bits, with arithmetic that
// saturates at the ends of the range instead of wrapping. By an integer a product is exact; by a
// double, and for every quotient, the result is the floor of the exact value plus 0.5.
template <class Derived>
class TWholeRaw {
public:
    static constexpr Derived FromRaw(std::int32_t raw) {
        Derived value;
        value.SetRaw(raw);
        return value;
    }
    constexpr std::int32_t GetRaw() const { return m_raw; }
    constexpr void SetRaw(std::int32_t raw) { m_raw = raw; }
    bool IsZero() const { return m_raw == 0; }
    unsigned HashKey() const { return ScalarHashKey(m_raw); }

    Derived& operator+=(const Derived& other) {
        return Assign(SaturateToInt32(std::int64_t{m_raw} + other.GetRaw()));
    }
    Derived& operator-=(const Derived& other) {
        return Assign(SaturateToInt32(std::int64_t{m_raw} - other.GetRaw()));
    }
    Derived& operator*=(int factor) {
        return Assign(SaturateToInt32(std::int64_t{m_raw} * factor));
    }
    Derived& operator*=(double factor) { return Assign(FloorHalfUpToInt32(m_raw * factor)); }
    Derived& operator/=(int divisor) { return *this /= static_cast<double>(divisor); }
    Derived& operator/=(double divisor) { return Assign(FloorHalfUpToInt32(m_raw / divisor)); }

    friend Derived operator+(Derived a, const Derived& b) { return a += b; }
    friend Derived operator-(Derived a, const Derived& b) { return a -= b; }
    friend Derived operator*(Derived a, int factor) { return a *= factor; }
    friend Derived operator*(int factor, Derived a) { return a *= factor; }
    friend Derived operator*(Derived a, double factor) { return a *= factor; }
    friend Derived operator*(double factor, Derived a) { return a *= factor; }
    friend Derived operator/(Derived a, int divisor) { return a /= divisor; }
    friend Derived operator/(Derived a, double divisor) { return a /= divisor; }
    // The ratio of the two amounts.
    friend double operator/(const Derived& a, const Derived& b) {
        return static_cast<double>(a.GetRaw()) / b.GetRaw();
    }
    friend Derived operator-(const Derived& a) {
        return FromRaw(SaturateToInt32(-std::int64_t{a.GetRaw()}));
    }
    friend Derived operator+(const Derived& a) { return a; }
    friend bool operator!(const Derived& a) { return a.IsZero(); }

    friend bool operator==(const Derived& a, const Derived& b) { return a.GetRaw() == b.GetRaw(); }
    friend std::strong_ordering operator<=>(const Derived& a, const Derived& b) {
        return a.GetRaw() <=> b.GetRaw();
    }
    friend unsigned HashKey(const Derived& value) { return value.HashKey(); }

    // The raw number, 4 bytes.
    friend CArchive& operator<<(CArchive& archive, const Derived& value) {
        return archive << value.GetRaw();
    }
    friend CArchive& operator>>(CArchive& archive, Derived& value) {
        std::int32_t raw = 0;
        archive >> raw;
        value.SetRaw(raw);
        return archive;
    }

protected:
    constexpr TWholeRaw() = default;
    constexpr explicit TWholeRaw(std::int32_t raw) : m_raw(raw) {}

private:
    Derived& Assign(std::int32_t raw) {
        m_raw = raw;
        return static_cast<Derived&>(*this);
    }

    std::int32_t m_raw = 0;
};

} // namespace keel
