#pragma once

#include "keel/geometry/crosstouchdisjoint.h"
#include "keel/geometry/tpoint.h"
#include "keel/geometry/tpoly.h"
#include "keel/platform/cstring.h"
#include "keel/values/length.h"

namespace keel {

class QWorldPolyWithHeightRangeSet;

// A solid reduced to a prism: a plan polygon of the world with the heights of its bottom and top.
// The present flag is a scratch mark for the search of collisions, which writes it through const
// references; it is set by every constructor.
class QWorldPolyWithHeightRange {
public:
    QWorldPolyWithHeightRange(const QWorldPoly& poly, const QLength& top, const QLength& bottom)
        : m_poly(poly), Top(top), Bottom(bottom) {}
    QWorldPolyWithHeightRange(const QWorldPolyWithHeightRange& other)
        : m_poly(other.m_poly), Top(other.Top), Bottom(other.Bottom), m_present(other.m_present) {}
    QWorldPolyWithHeightRange& operator=(const QWorldPolyWithHeightRange&) = default;

    // Two prisms that meet only at a height never touch: the height ranges must overlap strictly
    // before the plans are compared.
    static CROSSTOUCHDISJOINT CrossTouchDisjoint(const QWorldPolyWithHeightRange& a,
                                                 const QWorldPolyWithHeightRange& b);
    // Heights of `other` strictly within these, and its plan within this one as
    // QWorldPoly::Contains finds it, not strictly.
    bool FullyContains(const QWorldPolyWithHeightRange& other) const;
    // The plan's bounds, with Bottom as the lowest height and Top as the highest.
    TRect3D<QLength, c_worldSpace> GetBoundingBox() const;

    const QWorldPoly& Poly() const { return m_poly; }
    // Plan, heights within tolerance, and the present flags exactly.
    bool operator==(const QWorldPolyWithHeightRange& other) const;

    // Room for a diagnostic text; this one shows nothing.
    CString DumpPoly(const CString& prefix) const { return prefix; }
    void TracePoly(const CString&) const {}

    bool IsPresent() const { return m_present; }
    void SetPresent(bool present) const { m_present = present; }

protected:
    QWorldPolyWithHeightRange() = default;

    QWorldPoly m_poly;

public:
    QLength Top;
    QLength Bottom;

private:
    friend class QWorldPolyWithHeightRangeSet;

    mutable bool m_present = true;
};

} // namespace keel
