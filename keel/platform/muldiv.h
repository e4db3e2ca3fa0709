#pragma once

#include <cstdint>
#include <limits>

namespace keel {

// `number` * `numerator` / `denominator` with the product held in 64 bits, rounded to the nearest
// whole number, halves away from zero. -1 when `denominator` is 0 or the result does not fit in
// 32 bits, as the desktop platform's own MulDiv answers.
inline int MulDiv(int number, int numerator, int denominator) {
    if (denominator == 0)
        return -1;
    const std::int64_t product = std::int64_t{number} * numerator;
    std::int64_t quotient = product / denominator;
    const std::int64_t remainder = product % denominator;
    const std::int64_t magnitude = remainder < 0 ? -remainder : remainder;
    const std::int64_t divisorMagnitude =
        denominator < 0 ? -std::int64_t{denominator} : std::int64_t{denominator};
    if (2 * magnitude >= divisorMagnitude)
        quotient += (product < 0) == (denominator < 0) ? 1 : -1;
    if (quotient < std::numeric_limits<int>::min() || quotient > std::numeric_limits<int>::max())
        return -1;
    return static_cast<int>(quotient);
}

} // namespace keel
