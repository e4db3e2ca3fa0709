#pragma once

namespace keel {

inline constexpr int RAND_MAX_VALUE = 32767;

// The C runtime's pseudo-random sequence, reproduced exactly so that seeded sequences match
// across platforms: x = x * 214013 + 2531011 modulo 2^32, result bits 16-30 of x. Each thread
// has its own state, seeded with 1 until srand is called on that thread.
int rand();
void srand(unsigned seed);

} // namespace keel
