#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/length.h"
#include "keel/values/wholeraw.h"

#include <compare>
#include <cstdint>

namespace keel {

// A span of time; raw unit the second, held in 32 bits. Results that leave the 32-bit range
// saturate at its ends instead of wrapping.
class QTime : public TWholeRaw<QTime> {
public:
    enum TIMEUNITS : int {
        TU_DEFAULT = -1,
        TU_RAW = 0,
        TU_SECONDS = 1,
        TU_MINUTES = 2,
        TU_HOURS = 3,
    };

    static const QTime Zero;

    constexpr QTime() = default;
    explicit QTime(double value, TIMEUNITS unit = TU_DEFAULT)
        : TWholeRaw(double_to_raw(value, unit)) {}

    double AsDouble(TIMEUNITS unit = TU_DEFAULT) const { return raw_to_double(GetRaw(), unit); }

    static TIMEUNITS DefaultUnits() { return c_defunits; }
    // Only 0 to 3 can be the default; anything else is an invalid argument.
    static void SetDefaultUnits(TIMEUNITS unit);
    static TIMEUNITS Resolve(TIMEUNITS unit) { return unit == TU_DEFAULT ? c_defunits : unit; }

    // Raw and seconds: the floor of the value plus 0.5; minutes and hours through
    // minute_to_raw and hour_to_raw. Any other unit truncates.
    static std::int32_t double_to_raw(double value, TIMEUNITS unit);
    static std::int32_t double_to_raw(double value) { return double_to_raw(value, TU_DEFAULT); }
    // The floor of the value times 60, or times 3600, plus 0.5.
    static std::int32_t minute_to_raw(double minutes);
    static std::int32_t hour_to_raw(double hours);
    // Minutes divide by 60, hours by 3600; every other unit is the raw number itself.
    static double raw_to_double(std::int32_t raw, TIMEUNITS unit);
    static double raw_to_double(std::int32_t raw) { return raw_to_double(raw, TU_DEFAULT); }

    // "s", "mn", "hr", and empty for the raw unit.
    static CString TimeUnitSuffix(TIMEUNITS unit = TU_DEFAULT);

    // Whole units of the span, truncated toward zero.
    std::int32_t GetTotalHours() const { return GetRaw() / 3600; }
    std::int32_t GetTotalMinutes() const { return GetRaw() / 60; }
    std::int32_t GetTotalSeconds() const { return GetRaw(); }
    // The span cut into days, hours (0 to 23), minutes and seconds (0 to 59); a negative span
    // gives each part with the minus sign.
    std::int32_t GetDays() const { return GetRaw() / 86400; }
    std::int32_t GetHours() const { return GetTotalHours() % 24; }
    std::int32_t GetMinutes() const { return GetTotalMinutes() % 60; }
    std::int32_t GetSeconds() const { return GetRaw() % 60; }

    // " %f %2[smnhr] %1s" on the trimmed text: a number alone is taken in `unit`, a number and
    // one of the words "s", "mn", "hr" in that unit; both give PARSE_EXACT. A further non-blank
    // character fails. On success the span is set; otherwise it is left as it was.
    PARSERESULT Parse(const CString& text, TIMEUNITS unit = TU_DEFAULT);
    // The number in the unit by "%f" without redundant decimal places, so that whole seconds
    // read back exactly, then, if asked, a space and the unit word.
    CString Format(TIMEUNITS unit = TU_DEFAULT, bool showUnit = false) const;

private:
    static inline TIMEUNITS c_defunits = TU_HOURS;
};

inline constexpr QTime QTime::Zero{};

} // namespace keel
