#include "keel/values/volume.h"

namespace keel {

namespace {

CString SuffixOfVolumeUnit(int unit) {
    return QVolume::VolumeUnitSuffix(static_cast<QVolume::VOLUMEUNITS>(unit));
}

} // namespace

void QVolume::SetDefaultUnits(VOLUMEUNITS unit) {
    Factor(unit);
    c_defunits = unit;
}

bool QVolume::DefaultUnitsAreMetric() {
    return c_defunits == VU_CBMM || c_defunits == VU_CBCM || c_defunits == VU_CBM;
}

CString QVolume::VolumeUnitSuffix(VOLUMEUNITS unit) {
    const VOLUMEUNITS resolved = Resolve(unit);
    Factor(resolved);
    switch (resolved) {
    case VU_CBMM:
        return u"cbmm";
    case VU_CBCM:
        return u"cbcm";
    case VU_CBIN:
        return u"cbin";
    case VU_CBFT:
        return u"cbft";
    case VU_CBM:
        return u"cbm";
    default:
        return CString();
    }
}

PARSERESULT QVolume::Parse(const CString& text, VOLUMEUNITS unit) {
    const quantity_text::ScannedQuantity scanned = quantity_text::ScanNumberAndUnitWord(
        text, " %f %4[cbminft] %1s", VU_CBMM, VU_CBM, SuffixOfVolumeUnit);
    if (scanned.result != PARSE_NONE)
        SetRaw(double_to_raw(scanned.value,
                             scanned.unit < 0 ? unit : static_cast<VOLUMEUNITS>(scanned.unit)));
    return scanned.result;
}

CString QVolume::Format(VOLUMEUNITS unit, bool showUnit) const {
    const VOLUMEUNITS resolved = Resolve(unit);
    CString text = CString::Formatted(u"%.2f", raw_to_double(GetRaw(), resolved));
    const CString suffix = VolumeUnitSuffix(resolved);
    if (showUnit && !suffix.IsEmpty())
        text += u" " + suffix;
    return text;
}

bool QVolume::LimitDoubleAlways(QVolume& volume, const CString& where) {
    double raw = volume.GetRaw();
    const bool clamped = keel::LimitDoubleAlways(raw, where);
    volume.SetRaw(raw);
    return clamped;
}

CArchive& operator<<(CArchive& archive, const QVolume& volume) {
    return archive << volume.GetRaw();
}

CArchive& operator>>(CArchive& archive, QVolume& volume) {
    double raw = 0;
    archive >> raw;
    volume.SetRaw(raw);
    if (QVolume::LimitDoubleAlways(volume, u"Volume CArchive>> reading"))
        QMessageBoxOrLog_LimitDoubleFailed(archive, u"volume");
    return archive;
}

} // namespace keel
