#include "keel/geometry/worldpolywithheightrange.h"

#include "keel/geometry/classify.h"

namespace keel {

CROSSTOUCHDISJOINT
QWorldPolyWithHeightRange::CrossTouchDisjoint(const QWorldPolyWithHeightRange& a,
                                              const QWorldPolyWithHeightRange& b) {
    using tolerance::Less;
    if (!(Less(a.Bottom.GetRaw(), b.Top.GetRaw()) && Less(b.Bottom.GetRaw(), a.Top.GetRaw())))
        return DISJOINT;
    return ClassifyPolygons(a.m_poly, b.m_poly);
}

bool QWorldPolyWithHeightRange::FullyContains(const QWorldPolyWithHeightRange& other) const {
    const bool bottomBelow = Bottom.GetRaw() < other.Bottom.GetRaw() + QLength::Eps;
    const bool topAbove = Top.GetRaw() > other.Top.GetRaw() - QLength::Eps;
    return bottomBelow && topAbove && m_poly.Contains(other.m_poly, false);
}

TRect3D<QLength, c_worldSpace> QWorldPolyWithHeightRange::GetBoundingBox() const {
    const QWorldPoly::Rect& plan = m_poly.GetBounds();
    return TRect3D<QLength, c_worldSpace>({plan.left, plan.top, Bottom},
                                          {plan.right, plan.bottom, Top});
}

bool QWorldPolyWithHeightRange::operator==(const QWorldPolyWithHeightRange& other) const {
    return m_poly == other.m_poly && tolerance::Equal(Top.GetRaw(), other.Top.GetRaw()) &&
           tolerance::Equal(Bottom.GetRaw(), other.Bottom.GetRaw()) && m_present == other.m_present;
}

} // namespace keel
