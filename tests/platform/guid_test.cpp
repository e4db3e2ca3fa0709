#include "keel/platform/guid.h"

#include <cmath>
#include <gtest/gtest.h>

namespace keel {
namespace {

TEST(Guid, BytesAreLowByteFirstAndTheTextIsCapitalHex) {
    const GUID::Bytes bytes = {0xE0, 0x85, 0x9F, 0xF2, 0xF9, 0x4F, 0x68, 0x10,
                               0xAB, 0x91, 0x08, 0x00, 0x2B, 0x27, 0xB3, 0xD9};
    const GUID guid = GUID::FromBytes(bytes.data());
    EXPECT_EQ(guid.ToString(), CString(u"{F29F85E0-4FF9-1068-AB91-08002B27B3D9}"));
    EXPECT_EQ(guid.ToBytes(), bytes);
}

// Day 0 is 30 December 1899; before it the fraction still counts forward from the day's midnight.
TEST(FileTime, OleDatesAndTheirBounds) {
    constexpr std::uint64_t day = c_fileTimeTicksPerDay;
    const struct {
        double oleDate;
        std::uint64_t ticks;
    } rows[] = {{1.5, 109206 * day + day / 2},
                {25569.0, c_fileTimeTicksAtUnixEpoch},
                {-1.25, 109204 * day + day / 4},
                {-109205.0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.oleDate);
        EXPECT_EQ(FileTimeToOleDate(FILETIME::FromTicks(row.ticks)), row.oleDate);
        FILETIME time;
        ASSERT_TRUE(OleDateToFileTime(row.oleDate, time));
        EXPECT_EQ(time.Ticks(), row.ticks);
    }
    FILETIME time = FILETIME::FromTicks(7);
    for (const double refused : {std::nan(""), -109206.0, 1e300})
        EXPECT_FALSE(OleDateToFileTime(refused, time)) << refused;
    EXPECT_EQ(time.Ticks(), 7u);
    EXPECT_EQ((FILETIME{0x89ABCDEF, 0x01234567}).Ticks(), 0x0123456789ABCDEFu);
    // Later than November 2023, by the system clock.
    EXPECT_GT(CurrentFileTime().Ticks(),
              c_fileTimeTicksAtUnixEpoch + 1'700'000'000 * c_fileTimeTicksPerSecond);
}

} // namespace
} // namespace keel
