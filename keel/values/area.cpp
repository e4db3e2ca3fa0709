#include "keel/values/area.h"

namespace keel {

namespace {

CString SuffixOfAreaUnit(int unit) {
    return QArea::AreaUnitSuffix(static_cast<QArea::AREAUNITS>(unit));
}

} // namespace

void QArea::SetDefaultUnits(AREAUNITS unit) {
    Factor(unit);
    c_defunits = unit;
}

bool QArea::DefaultUnitsAreMetric() {
    return c_defunits == AU_SQMM || c_defunits == AU_SQCM || c_defunits == AU_SQM;
}

CString QArea::AreaUnitSuffix(AREAUNITS unit) {
    const AREAUNITS resolved = Resolve(unit);
    Factor(resolved);
    switch (resolved) {
    case AU_SQMM:
        return u"sqmm";
    case AU_SQCM:
        return u"sqcm";
    case AU_SQIN:
        return u"sqin";
    case AU_SQFT:
        return u"sqft";
    case AU_SQM:
        return u"sqm";
    default:
        return CString();
    }
}

PARSERESULT QArea::Parse(const CString& text, AREAUNITS unit) {
    const quantity_text::ScannedQuantity scanned = quantity_text::ScanNumberAndUnitWord(
        text, " %f %4[sqcminft] %1s", AU_SQMM, AU_SQM, SuffixOfAreaUnit);
    if (scanned.result != PARSE_NONE)
        SetRaw(double_to_raw(scanned.value,
                             scanned.unit < 0 ? unit : static_cast<AREAUNITS>(scanned.unit)));
    return scanned.result;
}

CString QArea::Format(AREAUNITS unit, bool showUnit) const {
    const AREAUNITS resolved = Resolve(unit);
    CString text = CString::Formatted(u"%.2f", raw_to_double(GetRaw(), resolved));
    const CString suffix = AreaUnitSuffix(resolved);
    if (showUnit && !suffix.IsEmpty())
        text += u" " + suffix;
    return text;
}

bool QArea::LimitDoubleAlways(QArea& area, const CString& where) {
    double raw = area.GetRaw();
    const bool clamped = keel::LimitDoubleAlways(raw, where);
    area.SetRaw(raw);
    return clamped;
}

CArchive& operator<<(CArchive& archive, const QArea& area) {
    return archive << area.GetRaw();
}

CArchive& operator>>(CArchive& archive, QArea& area) {
    double raw = 0;
    archive >> raw;
    area.SetRaw(raw);
    if (QArea::LimitDoubleAlways(area, u"Area CArchive>> reading"))
        QMessageBoxOrLog_LimitDoubleFailed(archive, u"area");
    return archive;
}

} // namespace keel
