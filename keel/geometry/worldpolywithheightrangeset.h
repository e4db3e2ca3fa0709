#pragma once

#include "keel/geometry/tpoint.h"
#include "keel/geometry/worldpolywithheightrange.h"
#include "keel/values/angle.h"
#include "keel/values/array.h"

namespace keel {

// A set of prisms, tested for collisions with another set. Only a true overlap of two prisms is a
// collision; prisms side by side or stacked touch and do not collide.
class QWorldPolyWithHeightRangeSet : public QArray<QWorldPolyWithHeightRange> {
public:
    // The index in the first set, then the index in the second.
    struct Collision {
        int first = 0;
        int second = 0;
    };

    QWorldPolyWithHeightRangeSet() = default;
    QWorldPolyWithHeightRangeSet(const QWorldPolyWithHeightRangeSet&) = default;
    QWorldPolyWithHeightRangeSet& operator=(const QWorldPolyWithHeightRangeSet&) = default;
    virtual ~QWorldPolyWithHeightRangeSet() = default;

    // Zeros for an empty set; otherwise the box of the first element, widened by each other one
    // where it lies beyond by Eps or more.
    TRect3D<QLength, c_worldSpace> GetOverallBoundingBox() const;

    // Every pair of prisms, one of each set, that cross, ordered by the first index and then by
    // the second. The sets are first culled to the elements whose boxes cross the other set's
    // box, which leaves the present flags of both marking those; candidate pairs are then found by
    // sweeping the boxes along x in horizontal bands, so that prisms whose boxes or heights are
    // apart are never compared.
    static QArray<Collision> GetCollisions(const QWorldPolyWithHeightRangeSet& a,
                                           const QWorldPolyWithHeightRangeSet& b);
    // The same pairs in the same order, with every present pair compared.
    static QArray<Collision> GetCollisionsPairwise(const QWorldPolyWithHeightRangeSet& a,
                                                   const QWorldPolyWithHeightRangeSet& b);
    static bool IsAnyCollisions(const QWorldPolyWithHeightRangeSet& a,
                                const QWorldPolyWithHeightRangeSet& b);

    bool IsAnyPresent() const;
    void SetAllPresent() const;

    // Whether any one element fully contains `poly`.
    bool FullyContains(const QWorldPolyWithHeightRange& poly) const;
    // Removes each element that `poly` fully contains; the others keep their order.
    void RemoveFullyContainedBy(const QWorldPolyWithHeightRange& poly);
    // Adds a copy of each element of `other` that has no equal here.
    void Merge(const QWorldPolyWithHeightRangeSet& other);
    // Moves each plan by x and y and each height by z.
    void Move(const TPoint3D<QLength, c_worldSpace>& by);
    // A copy with each plan turned about the origin.
    QWorldPolyWithHeightRangeSet Rotated2D(const QAngle& angle) const;

private:
    void SetNotPresentIfOutside(const TRect3D<QLength, c_worldSpace>& box) const;
    // Culls both sets against each other's overall box; false when either is left with nothing
    // present, or was empty.
    static bool CullToPossibleCollisions(const QWorldPolyWithHeightRangeSet& a,
                                         const QWorldPolyWithHeightRangeSet& b);
};

} // namespace keel
