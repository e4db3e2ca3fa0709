#include "keel/platform/guid.h"

#include "keel/platform/wchar.h"

#include <chrono>
#include <cmath>

namespace keel {

GUID::Bytes GUID::ToBytes() const {
    Bytes bytes{};
    for (int index = 0; index < 4; ++index)
        bytes[index] = static_cast<std::uint8_t>(Data1 >> (8 * index));
    for (int index = 0; index < 2; ++index) {
        bytes[4 + index] = static_cast<std::uint8_t>(Data2 >> (8 * index));
        bytes[6 + index] = static_cast<std::uint8_t>(Data3 >> (8 * index));
    }
    for (int index = 0; index < 8; ++index)
        bytes[8 + index] = Data4[index];
    return bytes;
}

GUID GUID::FromBytes(const std::uint8_t* bytes) {
    GUID guid;
    for (int index = 0; index < 4; ++index)
        guid.Data1 |= static_cast<std::uint32_t>(bytes[index]) << (8 * index);
    guid.Data2 = static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8);
    guid.Data3 = static_cast<std::uint16_t>(bytes[6] | bytes[7] << 8);
    for (int index = 0; index < 8; ++index)
        guid.Data4[index] = bytes[8 + index];
    return guid;
}

CString GUID::ToString() const {
    return CString::Formatted(u"{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", Data1, Data2,
                              Data3, Data4[0], Data4[1], Data4[2], Data4[3], Data4[4], Data4[5],
                              Data4[6], Data4[7]);
}

bool GUID::FromString(const CString& text, GUID& guid) {
    std::u16string_view view = text.View();
    if (view.size() == 38 && view.front() == u'{' && view.back() == u'}')
        view = view.substr(1, 36);
    if (view.size() != 36)
        return false;
    // The positions of the dashes, and the 32 digits between them.
    std::array<std::uint8_t, 16> digits{};
    int nibble = 0;
    for (std::size_t index = 0; index < view.size(); ++index) {
        const bool dashPlace = index == 8 || index == 13 || index == 18 || index == 23;
        if (dashPlace) {
            if (view[index] != u'-')
                return false;
            continue;
        }
        const int value = HexDigitValue(view[index]);
        if (value < 0)
            return false;
        digits[nibble / 2] = static_cast<std::uint8_t>(digits[nibble / 2] << 4 | value);
        ++nibble;
    }
    GUID parsed;
    parsed.Data1 =
        static_cast<std::uint32_t>(digits[0]) << 24 | digits[1] << 16 | digits[2] << 8 | digits[3];
    parsed.Data2 = static_cast<std::uint16_t>(digits[4] << 8 | digits[5]);
    parsed.Data3 = static_cast<std::uint16_t>(digits[6] << 8 | digits[7]);
    for (int index = 0; index < 8; ++index)
        parsed.Data4[index] = digits[8 + index];
    guid = parsed;
    return true;
}

double FileTimeToOleDate(const FILETIME& time) {
    const std::uint64_t ticks = time.Ticks();
    const auto wholeDays = static_cast<std::int64_t>(ticks / c_fileTimeTicksPerDay);
    const double fraction =
        static_cast<double>(ticks % c_fileTimeTicksPerDay) / c_fileTimeTicksPerDay;
    const std::int64_t day = wholeDays - c_fileTimeDaysBeforeOleDate;
    if (day >= 0)
        return static_cast<double>(day) + fraction;
    // Before day 0 the whole part is the day and the fraction still counts forward.
    return static_cast<double>(day) - fraction;
}

bool OleDateToFileTime(double oleDate, FILETIME& time) {
    if (!std::isfinite(oleDate))
        return false;
    const double day = std::trunc(oleDate);
    const double fraction = std::fabs(oleDate - day);
    const double linearDays = day + fraction + static_cast<double>(c_fileTimeDaysBeforeOleDate);
    const double ticks = std::round(linearDays * static_cast<double>(c_fileTimeTicksPerDay));
    if (ticks < 0 || ticks >= 18446744073709551616.0)
        return false;
    time = FILETIME::FromTicks(static_cast<std::uint64_t>(ticks));
    return true;
}

FILETIME CurrentFileTime() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto steps =
        std::chrono::duration_cast<std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>(
            sinceEpoch)
            .count();
    return FILETIME::FromTicks(c_fileTimeTicksAtUnixEpoch + static_cast<std::uint64_t>(steps));
}

} // namespace keel
