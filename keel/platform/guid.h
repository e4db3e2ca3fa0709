#pragma once

#include "keel/platform/cstring.h"

#include <array>
#include <compare>
#include <cstdint>

namespace keel {

// A globally unique id. On disk it is 16 bytes: Data1 as 4 bytes and Data2, Data3 as 2 bytes
// each, all low byte first, then the 8 bytes of Data4 as they stand.
struct GUID {
    std::uint32_t Data1 = 0;
    std::uint16_t Data2 = 0;
    std::uint16_t Data3 = 0;
    std::array<std::uint8_t, 8> Data4{};

    using Bytes = std::array<std::uint8_t, 16>;

    Bytes ToBytes() const;
    static GUID FromBytes(const std::uint8_t* bytes);

    // "{F29F85E0-4FF9-1068-AB91-08002B27B3D9}", capital hex digits.
    CString ToString() const;
    // Reads that form, with or without the braces, in either case; false leaves `guid` alone.
    static bool FromString(const CString& text, GUID& guid);

    bool IsNull() const { return *this == GUID(); }

    friend bool operator==(const GUID& a, const GUID& b) = default;
    // Field by field, Data1 first.
    friend std::strong_ordering operator<=>(const GUID& a, const GUID& b) = default;
};

inline constexpr GUID GUID_NULL{};

// A point in time, or a span, in 100-nanosecond steps; as a point it counts from 1 January 1601
// 00:00 UTC. On disk it is two 32-bit halves, the low one first.
struct FILETIME {
    std::uint32_t dwLowDateTime = 0;
    std::uint32_t dwHighDateTime = 0;

    std::uint64_t Ticks() const {
        return static_cast<std::uint64_t>(dwHighDateTime) << 32 | dwLowDateTime;
    }
    static FILETIME FromTicks(std::uint64_t ticks) {
        return {static_cast<std::uint32_t>(ticks), static_cast<std::uint32_t>(ticks >> 32)};
    }

    friend bool operator==(const FILETIME& a, const FILETIME& b) = default;
};

inline constexpr std::uint64_t c_fileTimeTicksPerSecond = 10'000'000;
inline constexpr std::uint64_t c_fileTimeTicksPerDay = 86'400 * c_fileTimeTicksPerSecond;
// The file time of 1 January 1970 00:00 UTC, where the system's own clock counts from.
inline constexpr std::uint64_t c_fileTimeTicksAtUnixEpoch = 116'444'736'000'000'000;
// The days from 1 January 1601 to 30 December 1899, the day 0 of an OLE date.
inline constexpr std::int64_t c_fileTimeDaysBeforeOleDate = 109'205;

// The OLE date (days since 30 December 1899, a negative date's fraction counting forward from
// its day's midnight) of a file time.
double FileTimeToOleDate(const FILETIME& time);
// False for a date before 1601 or past the range of a file time, or not a number.
bool OleDateToFileTime(double oleDate, FILETIME& time);

// The system clock now, UTC.
FILETIME CurrentFileTime();

} // namespace keel
