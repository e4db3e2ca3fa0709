#include "keel/values/time.h"

#include <string>

namespace keel {

namespace {

CString SuffixOfTimeUnit(int unit) {
    return QTime::TimeUnitSuffix(static_cast<QTime::TIMEUNITS>(unit));
}

} // namespace

void QTime::SetDefaultUnits(TIMEUNITS unit) {
    if (unit < TU_RAW || unit > TU_HOURS)
        ThrowInvalidArgument("time unit " + std::to_string(unit));
    c_defunits = unit;
}

std::int32_t QTime::double_to_raw(double value, TIMEUNITS unit) {
    switch (Resolve(unit)) {
    case TU_RAW:
    case TU_SECONDS:
        return FloorHalfUpToInt32(value);
    case TU_MINUTES:
        return minute_to_raw(value);
    case TU_HOURS:
        return hour_to_raw(value);
    default:
        return TruncateToInt32(value);
    }
}

std::int32_t QTime::minute_to_raw(double minutes) {
    return FloorHalfUpToInt32(minutes * 60);
}

std::int32_t QTime::hour_to_raw(double hours) {
    return FloorHalfUpToInt32(hours * 3600);
}

double QTime::raw_to_double(std::int32_t raw, TIMEUNITS unit) {
    switch (Resolve(unit)) {
    case TU_MINUTES:
        return raw / 60.0;
    case TU_HOURS:
        return raw / 3600.0;
    default:
        return raw;
    }
}

CString QTime::TimeUnitSuffix(TIMEUNITS unit) {
    switch (Resolve(unit)) {
    case TU_SECONDS:
        return u"s";
    case TU_MINUTES:
        return u"mn";
    case TU_HOURS:
        return u"hr";
    default:
        return CString();
    }
}

PARSERESULT QTime::Parse(const CString& text, TIMEUNITS unit) {
    const quantity_text::ScannedQuantity scanned = quantity_text::ScanNumberAndUnitWord(
        text, " %f %2[smnhr] %1s", TU_SECONDS, TU_HOURS, SuffixOfTimeUnit);
    if (scanned.result == PARSE_NONE)
        return PARSE_NONE;
    SetRaw(double_to_raw(scanned.value,
                         scanned.unit < 0 ? unit : static_cast<TIMEUNITS>(scanned.unit)));
    return PARSE_EXACT;
}

CString QTime::Format(TIMEUNITS unit, bool showUnit) const {
    const TIMEUNITS resolved = Resolve(unit);
    CString text = CString::Formatted(u"%f", raw_to_double(GetRaw(), resolved));
    StripRedundantDecimalPlaces(text);
    const CString suffix = TimeUnitSuffix(resolved);
    if (showUnit && !suffix.IsEmpty())
        text += u" " + suffix;
    return text;
}

} // namespace keel
