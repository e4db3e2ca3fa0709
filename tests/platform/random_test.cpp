#include "keel/platform/random.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace keel {
namespace {

// The generator written out again, step by step, to check the library against.
std::vector<int> ExpectedSequence(std::uint32_t seed, int count) {
    std::vector<int> values;
    std::uint32_t state = seed;
    for (int i = 0; i < count; ++i) {
        state = static_cast<std::uint32_t>(state * 214013ull + 2531011ull);
        values.push_back(static_cast<int>(state >> 16) & 0x7FFF);
    }
    return values;
}

std::vector<int> Draw(int count) {
    std::vector<int> values;
    for (int i = 0; i < count; ++i)
        values.push_back(keel::rand());
    return values;
}

TEST(Random, FirstValuesForSeedOne) {
    // 1 * 214013 + 2531011 = 2745024, and 2745024 >> 16 = 41.
    keel::srand(1);
    EXPECT_EQ(Draw(5), (std::vector<int>{41, 18467, 6334, 26500, 19169}));
}

TEST(Random, SequencesFollowTheFormulaForManySeeds) {
    for (const unsigned seed : {0u, 1u, 2u, 42u, 12345u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        SCOPED_TRACE(seed);
        keel::srand(seed);
        EXPECT_EQ(Draw(1000), ExpectedSequence(seed, 1000));
    }
}

TEST(Random, ReseedingRepeatsTheSequence) {
    keel::srand(2024);
    const std::vector<int> first = Draw(50);
    keel::srand(2024);
    EXPECT_EQ(Draw(50), first);
    keel::srand(2025);
    EXPECT_NE(Draw(50), first);
}

TEST(Random, ValuesStayInRange) {
    EXPECT_EQ(RAND_MAX_VALUE, 32767);
    keel::srand(7);
    int lowest = RAND_MAX_VALUE;
    int highest = 0;
    for (int i = 0; i < 200000; ++i) {
        const int value = keel::rand();
        ASSERT_GE(value, 0);
        ASSERT_LE(value, RAND_MAX_VALUE);
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
    }
    EXPECT_EQ(lowest, 0);
    EXPECT_EQ(highest, RAND_MAX_VALUE);
}

TEST(Random, EachThreadStartsFromSeedOne) {
    keel::srand(99);
    keel::rand();
    std::vector<int> inThread;
    std::thread worker([&] { inThread = Draw(3); });
    worker.join();
    EXPECT_EQ(inThread, (std::vector<int>{41, 18467, 6334}));
    keel::srand(99);
    EXPECT_EQ(Draw(3), ExpectedSequence(99, 3));
}

} // namespace
} // namespace keel
