#pragma once

#include "keel/geometry/crosstouchdisjoint.h"
#include "keel/geometry/tpoint.h"
#include "keel/geometry/tpoly.h"

#include <tuple>

// The classifications of shapes against each other: a point on a line, two segments, a segment
// and a rectangle, two polygons, two boxes. All compare within QLength::Eps.

namespace keel {

// Where p lies on the line through a and b, to which it is known to be collinear: 0 at an end, -1
// between the ends, 1 beyond them. Reads x, or y when p and a share their x.
template <class T, char tag>
int PositionOnSegment(const TPoint<T, tag>& p, const TPoint<T, tag>& a, const TPoint<T, tag>& b) {
    const bool byY = tolerance::Equal(RawOf(p.x), RawOf(a.x));
    const double pv = RawOf(byY ? p.y : p.x);
    const double av = RawOf(byY ? a.y : a.x);
    const double bv = RawOf(byY ? b.y : b.x);
    if (tolerance::Equal(pv, av) || tolerance::Equal(pv, bv))
        return 0;
    if (tolerance::Less(pv, av))
        return pv - bv > -QLength::Eps ? -1 : 1;
    return pv - bv < QLength::Eps ? -1 : 1;
}

// The segment from a to b against the one from c to d. Any meeting that involves an end lying on
// the other segment is a touch; only a proper crossing of both is CROSS.
template <class T, char tag>
CROSSTOUCHDISJOINT ClassifySegments(const TPoint<T, tag>& a, const TPoint<T, tag>& b,
                                    const TPoint<T, tag>& c, const TPoint<T, tag>& d) {
    const int s1 = Sense(b - a, c - a);
    if (s1 == 0 && PositionOnSegment(c, a, b) != 1)
        return TOUCH;
    const int s2 = Sense(b - a, d - a);
    if (s2 == 0 && PositionOnSegment(d, a, b) != 1)
        return TOUCH;
    const int s3 = Sense(c - a, d - a);
    if (s3 == 0 && PositionOnSegment(a, c, d) != 1)
        return TOUCH;
    const int s4 = Sense(c - b, d - b);
    if (s4 == 0 && PositionOnSegment(b, c, d) != 1)
        return TOUCH;
    if (s1 == s2 || s3 == s4)
        return DISJOINT;
    return CROSS;
}

// The segment against the bounds of a polygon. DISJOINT when their rectangles do not meet, CROSS
// when the segment passes right through the bounds, across or down, since every side of the
// bounds is touched by the polygon; TOUCH when this cannot decide.
template <class T, char tag>
CROSSTOUCHDISJOINT ClassifySegmentAndBounds(const TPoint<T, tag>& a, const TPoint<T, tag>& b,
                                            const TRect<T, tag>& r) {
    using tolerance::Less;
    using tolerance::NonNegative;
    const TRect<T, tag> s(a, b);
    if (!(NonNegative(RawOf(s.right) - RawOf(r.left)) &&
          NonNegative(RawOf(r.right) - RawOf(s.left)) &&
          NonNegative(RawOf(s.bottom) - RawOf(r.top)) &&
          NonNegative(RawOf(r.bottom) - RawOf(s.top))))
        return DISJOINT;
    const bool across = Less(RawOf(s.left), RawOf(r.left)) &&
                        Less(RawOf(r.right), RawOf(s.right)) && Less(RawOf(r.top), RawOf(s.top)) &&
                        Less(RawOf(s.bottom), RawOf(r.bottom));
    const bool down = Less(RawOf(s.top), RawOf(r.top)) && Less(RawOf(r.bottom), RawOf(s.bottom)) &&
                      Less(RawOf(r.left), RawOf(s.left)) && Less(RawOf(s.right), RawOf(r.right));
    return across || down ? CROSS : TOUCH;
}

// Two polygons. The one with fewer vertices is tried against the other, the first when the counts
// are equal; a single vertex is a point. Bounds apart, or crossing as a plus sign, decide at
// once; then every edge of each against the other. Edges that only touch leave it to the vertex
// centres: either one strictly inside both is a crossing, which is how two equal polygons cross.
// No meeting of edges at all leaves only one polygon wholly inside the other.
template <class T, char tag>
CROSSTOUCHDISJOINT ClassifyPolygons(const TPoly<T, tag>& first, const TPoly<T, tag>& second) {
    using tolerance::Less;
    const bool swap = second.GetCount() < first.GetCount();
    const TPoly<T, tag>& a = swap ? second : first;
    const TPoly<T, tag>& b = swap ? first : second;
    if (a.IsEmpty() || b.IsEmpty())
        return DISJOINT;
    if (a.GetCount() == 1)
        return b.ClassifyPoint(a.Vertex(0));
    const TRect<T, tag>& ra = a.GetBounds();
    const TRect<T, tag>& rb = b.GetBounds();
    if (Less(RawOf(rb.right), RawOf(ra.left)) || Less(RawOf(ra.right), RawOf(rb.left)) ||
        Less(RawOf(rb.bottom), RawOf(ra.top)) || Less(RawOf(ra.bottom), RawOf(rb.top)))
        return DISJOINT;
    auto plus_sign = [](const TRect<T, tag>& wide, const TRect<T, tag>& tall) {
        return Less(RawOf(wide.left), RawOf(tall.left)) &&
               Less(RawOf(tall.right), RawOf(wide.right)) &&
               Less(RawOf(tall.top), RawOf(wide.top)) &&
               Less(RawOf(wide.bottom), RawOf(tall.bottom));
    };
    if (plus_sign(ra, rb) || plus_sign(rb, ra))
        return CROSS;
    bool touched = false;
    for (const auto& [edges, other, bounds] : {std::tie(a, b, rb), std::tie(b, a, ra)}) {
        for (int i = 0; i < edges.GetCount(); ++i) {
            const CROSSTOUCHDISJOINT edge =
                other.ClassifySegment(edges.Vertex(i), edges.Vertex(i + 1), bounds);
            if (edge == CROSS)
                return CROSS;
            touched = touched || edge == TOUCH;
        }
    }
    auto inside_both = [&](const TPoint<T, tag>& point) {
        return a.ClassifyPoint(point) == CROSS && b.ClassifyPoint(point) == CROSS;
    };
    if (touched)
        return inside_both(a.VertexCentre()) || inside_both(b.VertexCentre()) ? CROSS : TOUCH;
    return b.ClassifyPoint(a.Vertex(0)) == CROSS || a.ClassifyPoint(b.Vertex(0)) == CROSS
               ? CROSS
               : DISJOINT;
}

// Two boxes of space: TOUCH when they meet on a face, edge or corner (a pair of sides equal while
// the other two ranges meet), CROSS when they overlap by Eps in all three ranges.
template <class T, char tag>
CROSSTOUCHDISJOINT ClassifyBoxes(const TRect3D<T, tag>& a, const TRect3D<T, tag>& b) {
    struct Range {
        double min;
        double max;
    };
    const Range ranges[2][3] = {{{RawOf(a.left), RawOf(a.right)},
                                 {RawOf(a.top), RawOf(a.bottom)},
                                 {RawOf(a.low), RawOf(a.high)}},
                                {{RawOf(b.left), RawOf(b.right)},
                                 {RawOf(b.top), RawOf(b.bottom)},
                                 {RawOf(b.low), RawOf(b.high)}}};
    auto ends_meet = [&](int axis) {
        return tolerance::Equal(ranges[0][axis].min, ranges[1][axis].max) ||
               tolerance::Equal(ranges[0][axis].max, ranges[1][axis].min);
    };
    auto overlap = [&](int axis) {
        return tolerance::NonNegative(ranges[1][axis].max - ranges[0][axis].min) &&
               tolerance::NonNegative(ranges[0][axis].max - ranges[1][axis].min);
    };
    for (int axis = 0; axis < 3; ++axis)
        if (ends_meet(axis) && overlap((axis + 1) % 3) && overlap((axis + 2) % 3))
            return TOUCH;
    for (int axis = 0; axis < 3; ++axis)
        if (!(ranges[1][axis].max - ranges[0][axis].min >= QLength::Eps &&
              ranges[0][axis].max - ranges[1][axis].min >= QLength::Eps))
            return DISJOINT;
    return CROSS;
}

} // namespace keel
