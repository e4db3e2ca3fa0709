#include "keel/values/lengths.h"

namespace keel {

void QLengths::Set(const QLength& all) {
    Set(all, all, all, all);
}

void QLengths::Set(const QLength& first, const QLength& second, const QLength& third,
                   const QLength& fourth) {
    m_lengths[0] = first;
    m_lengths[1] = second;
    m_lengths[2] = third;
    m_lengths[3] = fourth;
}

QLengths& QLengths::operator*=(double factor) {
    for (QLength& length : m_lengths)
        length *= factor;
    return *this;
}

QLengths& QLengths::operator/=(double divisor) {
    for (QLength& length : m_lengths)
        length /= divisor;
    return *this;
}

QLengths& QLengths::operator+=(const QLengths& other) {
    for (int i = 0; i < Count; ++i)
        m_lengths[i] += other.m_lengths[i];
    return *this;
}

QLengths& QLengths::operator-=(const QLengths& other) {
    for (int i = 0; i < Count; ++i)
        m_lengths[i] -= other.m_lengths[i];
    return *this;
}

} // namespace keel
