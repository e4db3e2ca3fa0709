#include "keel/values/area.h"

#include "keel/values/unitquantity.h"

namespace keel {

namespace {

struct AreaWords {
    using Quantity = QArea;
    using Units = QArea::AREAUNITS;
    static constexpr const char16_t* kWords[] = {u"",     u"",     u"",     u"sqmm",
                                                 u"sqcm", u"sqin", u"sqft", u"sqm"};
    static constexpr const char* kPattern = " %f %4[sqcminft] %1s";
    static constexpr Units kFirst = QArea::AU_SQMM;
    static constexpr Units kLast = QArea::AU_SQM;
};

} // namespace

void QArea::SetDefaultUnits(AREAUNITS unit) {
    Factor(unit);
    c_defunits = unit;
}

bool QArea::DefaultUnitsAreMetric() {
    return c_defunits == AU_SQMM || c_defunits == AU_SQCM || c_defunits == AU_SQM;
}

CString QArea::AreaUnitSuffix(AREAUNITS unit) {
    return unit_quantity::UnitWord<AreaWords>(unit);
}

PARSERESULT QArea::Parse(const CString& text, AREAUNITS unit) {
    return unit_quantity::Parse<AreaWords>(*this, text, unit);
}

CString QArea::Format(AREAUNITS unit, bool showUnit) const {
    return unit_quantity::Format<AreaWords>(*this, unit, showUnit);
}

bool QArea::LimitDoubleAlways(QArea& area, const CString& where) {
    return unit_quantity::LimitDoubleAlways(area, where);
}

CArchive& operator<<(CArchive& archive, const QArea& area) {
    return archive << area.GetRaw();
}

CArchive& operator>>(CArchive& archive, QArea& area) {
    return unit_quantity::ReadRaw(archive, area, u"Area CArchive>> reading", u"area");
}

} // namespace keel
