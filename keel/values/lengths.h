#pragma once

#include "keel/values/length.h"

namespace keel {

// Four lengths, one for each side of a four-sided shape in turn, used as one.
class QLengths {
public:
    static constexpr int Count = 4;

    QLengths() = default;

    void Set(const QLength& all);
    void Set(const QLength& first, const QLength& second, const QLength& third,
             const QLength& fourth);
    // Width for the first and third, depth for the second and fourth.
    void SetWD(const QLength& width, const QLength& depth) { Set(width, depth, width, depth); }

    operator QLength*() { return m_lengths; }
    operator const QLength*() const { return m_lengths; }

    QLengths& operator*=(double factor);
    QLengths& operator/=(double divisor);
    QLengths& operator+=(const QLengths& other);
    QLengths& operator-=(const QLengths& other);

private:
    QLength m_lengths[Count];
};

} // namespace keel
