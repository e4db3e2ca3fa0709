#include "keel/platform/random.h"

#include <cstdint>

namespace keel {

namespace {

thread_local std::uint32_t t_randomState = 1;

} // namespace

int rand() {
    t_randomState = t_randomState * 214013u + 2531011u;
    return static_cast<int>((t_randomState >> 16) & 0x7FFF);
}

void srand(unsigned seed) {
    t_randomState = seed;
}

} // namespace keel
