#include "keel/platform/fpstatus.h"

#include <cfloat>
#include <functional>
#include <gtest/gtest.h>

namespace keel {
namespace {

// Volatile operands keep the compiler from folding the operations at build time.
volatile double g_one = 1.0;
volatile double g_zero = 0.0;
volatile double g_three = 3.0;
volatile double g_max = DBL_MAX;
volatile double g_tiny = 1e-308;
volatile double g_large = 1e10;
volatile double g_sink = 0.0;

TEST(FPStatus, EachFaultRaisesItsBitsUntilCleared) {
    const struct {
        const char* name;
        std::function<void()> compute;
        unsigned expected;
    } cases[] = {{"exact", [] { g_sink = g_one + g_three; }, 0},
                 {"1/0", [] { g_sink = g_one / g_zero; }, SW_ZERODIVIDE},
                 {"0/0", [] { g_sink = g_zero / g_zero; }, SW_INVALID},
                 {"DBL_MAX*2", [] { g_sink = g_max * 2.0; }, SW_OVERFLOW | SW_INEXACT},
                 {"1e-308/1e10", [] { g_sink = g_tiny / g_large; }, SW_UNDERFLOW | SW_INEXACT},
                 {"1/0 and 1/3", [] { g_sink = g_one / g_zero + g_one / g_three; },
                  SW_ZERODIVIDE | SW_INEXACT}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ClearFPStatus();
        test.compute();
        // Reading leaves the bits; clearing gives them and leaves none.
        EXPECT_EQ(ReadFPStatus(), test.expected);
        EXPECT_EQ(ClearFPStatus(), test.expected);
        EXPECT_EQ(ReadFPStatus() | ClearFPStatus(), 0u);
    }
}

} // namespace
} // namespace keel
