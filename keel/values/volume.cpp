#include "keel/values/volume.h"

#include "keel/values/unitquantity.h"

namespace keel {

namespace {

struct VolumeWords {
    using Quantity = QVolume;
    using Units = QVolume::VOLUMEUNITS;
    static constexpr const char16_t* kWords[] = {u"",     u"",     u"",     u"cbmm",
                                                 u"cbcm", u"cbin", u"cbft", u"cbm"};
    static constexpr const char* kPattern = " %f %4[cbminft] %1s";
    static constexpr Units kFirst = QVolume::VU_CBMM;
    static constexpr Units kLast = QVolume::VU_CBM;
};

} // namespace

void QVolume::SetDefaultUnits(VOLUMEUNITS unit) {
    Factor(unit);
    c_defunits = unit;
}

bool QVolume::DefaultUnitsAreMetric() {
    return c_defunits == VU_CBMM || c_defunits == VU_CBCM || c_defunits == VU_CBM;
}

CString QVolume::VolumeUnitSuffix(VOLUMEUNITS unit) {
    return unit_quantity::UnitWord<VolumeWords>(unit);
}

PARSERESULT QVolume::Parse(const CString& text, VOLUMEUNITS unit) {
    return unit_quantity::Parse<VolumeWords>(*this, text, unit);
}

CString QVolume::Format(VOLUMEUNITS unit, bool showUnit) const {
    return unit_quantity::Format<VolumeWords>(*this, unit, showUnit);
}

bool QVolume::LimitDoubleAlways(QVolume& volume, const CString& where) {
    return unit_quantity::LimitDoubleAlways(volume, where);
}

CArchive& operator<<(CArchive& archive, const QVolume& volume) {
    return archive << volume.GetRaw();
}

CArchive& operator>>(CArchive& archive, QVolume& volume) {
    return unit_quantity::ReadRaw(archive, volume, u"Volume CArchive>> reading", u"volume");
}

} // namespace keel
