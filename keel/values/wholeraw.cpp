#include "keel/values/wholeraw.h"

#include <cmath>
#include <limits>

namespace keel {

namespace {

using Int32Limits = std::numeric_limits<std::int32_t>;

std::int32_t ClampWholeToInt32(double whole) {
    if (std::isnan(whole))
        return 0;
    if (whole <= static_cast<double>(Int32Limits::min()))
        return Int32Limits::min();
    if (whole >= static_cast<double>(Int32Limits::max()))
        return Int32Limits::max();
    return static_cast<std::int32_t>(whole);
}

} // namespace

unsigned ScalarHashKey(std::int32_t value) {
    const std::int64_t quotient = value / 127773;
    const std::int64_t remainder = value % 127773;
    std::int64_t next = 16807 * remainder - 2836 * quotient;
    if (next < 0)
        next += 0x7fffffff;
    return static_cast<unsigned>(next);
}

std::int32_t FloorHalfUpToInt32(double value) {
    return ClampWholeToInt32(std::floor(value + 0.5));
}

std::int32_t TruncateToInt32(double value) {
    return ClampWholeToInt32(std::trunc(value));
}

std::int32_t SaturateToInt32(std::int64_t value) {
    if (value < Int32Limits::min())
        return Int32Limits::min();
    if (value > Int32Limits::max())
        return Int32Limits::max();
    return static_cast<std::int32_t>(value);
}

} // namespace keel
