#include "tests/support/functioncalls.h"

#include <gtest/gtest.h>

namespace keel {
namespace {

class FunctionsMathTest : public test::FunctionCallTest {};

TEST_F(FunctionsMathTest, RandBetweenStaysWithinItsLimits) {
    for (int i = 0; i < 100; ++i) {
        const test::CallOutcome outcome = Run("randbetween(1, 6)");
        ASSERT_TRUE(outcome.result.IsInt());
        const int value = QAnyValue(outcome.result).MakeInt();
        EXPECT_GE(value, 1);
        EXPECT_LE(value, 6);
    }
}

} // namespace
} // namespace keel
