#include "keel/platform/random.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace keel {
namespace {

std::vector<int> Draw(int count) {
    std::vector<int> values;
    for (int i = 0; i < count; ++i)
        values.push_back(keel::rand());
    return values;
}

TEST(Random, TheSequenceOfASeedRepeats) {
    keel::srand(1);
    const std::vector<int> seedOne = {41, 18467, 6334, 26500, 19169};
    EXPECT_EQ(Draw(5), seedOne);
    keel::srand(2024);
    const std::vector<int> first = Draw(50);
    keel::srand(2024);
    EXPECT_EQ(Draw(50), first);
    keel::srand(2025);
    EXPECT_NE(Draw(50), first);
}

TEST(Random, ValuesStayInRangeAndReachBothEnds) {
    keel::srand(7);
    const std::vector<int> values = Draw(200000);
    EXPECT_EQ(*std::min_element(values.begin(), values.end()), 0);
    EXPECT_EQ(*std::max_element(values.begin(), values.end()), RAND_MAX_VALUE);
}

} // namespace
} // namespace keel
