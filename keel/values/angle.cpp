#include "keel/values/angle.h"

#include "keel/platform/schema.h"
#include "keel/values/unitquantity.h"

#include <cmath>
#include <cstdint>

namespace keel {

namespace {

QAngle WithCosAndSin(const QAngle& angle) {
    angle.CalcCosAndSinIfRequired();
    return angle;
}

struct AngleWords {
    using Quantity = QAngle;
    using Units = QAngle::ANGLEUNITS;
    static constexpr const char16_t* kWords[] = {u"", u"", u"deg", u"rad"};
    static constexpr const char* kPattern = " %f %3[degrad] %1s";
    static constexpr Units kFirst = QAngle::ANGU_DEG;
    static constexpr Units kLast = QAngle::ANGU_RAD;
};

bool SameDirection(double a, double b) {
    const double apart = QAngle::Normalized(a - b);
    return apart <= QAngle::Eps || apart >= 360 - QAngle::Eps;
}

} // namespace

const QAngle QAngle::Zero{};
const QAngle QAngle::Deg15 = WithCosAndSin(QAngle(15, ANGU_DEG));

void QAngle::CalcCosAndSin() const {
    const double radians = deg_to_rad(m_value);
    m_cos = std::cos(radians);
    m_sin = std::sin(radians);
}

double QAngle::Normalized(double degrees) {
    if (!std::isfinite(degrees))
        return degrees;
    double normalized = std::fmod(degrees, 360.0);
    if (normalized < 0)
        normalized += 360.0;
    // A negative value too small to show beside 360 rounds up to it.
    if (normalized >= 360.0)
        normalized -= 360.0;
    return normalized;
}

QAngle& QAngle::Turned(double degrees, double cosine, double sine) {
    const bool computed = HasCosAndSin();
    m_value = degrees;
    if (computed) {
        m_cos = cosine;
        m_sin = sine;
    }
    return *this;
}

QAngle& QAngle::Plus90() {
    return Turned(m_value + 90, -m_sin, m_cos);
}

QAngle& QAngle::Minus90() {
    return Turned(m_value - 90, m_sin, -m_cos);
}

QAngle& QAngle::Reverse() {
    return Turned(m_value + 180, -m_cos, -m_sin);
}

QAngle& QAngle::Complement() {
    return Turned(90 - m_value, m_sin, m_cos);
}

QAngle& QAngle::Supplement() {
    return Turned(180 - m_value, -m_cos, m_sin);
}

bool QAngle::IsBetweenCCW(const QAngle& from, const QAngle& to) const {
    if (SameDirection(m_value, from.m_value) || SameDirection(m_value, to.m_value))
        return true;
    return Normalized(m_value - from.m_value) <= Normalized(to.m_value - from.m_value);
}

void QAngle::SetDefaultUnits(ANGLEUNITS unit) {
    Factor(unit);
    c_defunits = unit;
}

CString QAngle::AngleUnitSuffix(ANGLEUNITS unit) {
    return unit_quantity::UnitWord<AngleWords>(unit);
}

PARSERESULT QAngle::Parse(const CString& text, ANGLEUNITS unit) {
    return unit_quantity::Parse<AngleWords>(*this, text, unit);
}

CString QAngle::Format(ANGLEUNITS unit, bool showUnit) const {
    return unit_quantity::Format<AngleWords>(*this, unit, showUnit);
}

bool QAngle::LimitDoubleAlways(QAngle& angle, const CString& where) {
    return unit_quantity::LimitDoubleAlways(angle, where);
}

CArchive& operator<<(CArchive& archive, const QAngle& angle) {
    QAngle stored = angle;
    if (QAngle::LimitDoubleAlways(stored, u"Angle CArchive<< storing"))
        QMessageBoxOrLog_LimitDoubleFailed(archive, u"angle storing");
    return archive << stored.GetRaw();
}

CArchive& operator>>(CArchive& archive, QAngle& angle) {
    if (QSchema::Version(archive) < 108) {
        std::int32_t tenths = 0;
        archive >> tenths;
        angle.SetRaw(tenths / 10.0);
    } else {
        double degrees = 0;
        archive >> degrees;
        angle.SetRaw(degrees);
    }
    if (QAngle::LimitDoubleAlways(angle, u"Angle CArchive>> loading"))
        QMessageBoxOrLog_LimitDoubleFailed(archive, u"angle");
    return archive;
}

} // namespace keel
