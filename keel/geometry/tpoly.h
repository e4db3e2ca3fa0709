#pragma once

#include "keel/exchange/importexport.h"
#include "keel/geometry/crosstouchdisjoint.h"
#include "keel/geometry/tpoint.h"
#include "keel/platform/archive.h"
#include "keel/values/angle.h"
#include "keel/values/array.h"
#include "keel/values/length.h"

#include <cstdint>
#include <memory>

namespace keel {

// A polygon or polyline of lengths, with its bounds and orientation cached. Every mutable access
// to a vertex clears the caches; operations that move all vertices alike keep what stays true.
// Algorithms read vertices through the virtual Vertex, so that a subclass may present others.
// Indices of the wrapped operations are taken modulo the vertex count, made non-negative.
template <class T, char tag>
class TPoly : public QImportableExportable {
public:
    using Point = TPoint<T, tag>;
    using Vector = TVector<T, tag>;
    using Rect = TRect<T, tag>;

    // The bits of the cache flags.
    static constexpr std::uint8_t c_orientationValid = 1;
    static constexpr std::uint8_t c_secondSignValid = 2;
    static constexpr std::uint8_t c_boundsValid = 4;

    // An import refuses a larger "npoints", which would only come from a damaged file.
    static constexpr int c_mostImportedPoints = 100000;

    TPoly() = default;
    TPoly(const TPoly& other) : QImportableExportable(other) { AssignFrom(other); }
    ~TPoly() override = default;

    virtual TPoly& operator=(const TPoly& other);
    virtual bool operator==(const TPoly& other) const;
    virtual bool operator!=(const TPoly& other) const { return !(*this == other); }
    // Whether both trace the same vertices, either way round, from the same start. A polygon not
    // declared closed counts as closed, without its last vertex, when that repeats the first.
    virtual bool IsSameOutline(const TPoly& other, bool thisIsClosed, bool otherIsClosed) const;
    // A plain polygon with the same vertices, also for a subclass.
    virtual std::unique_ptr<TPoly> Clone() const;
    virtual void EnsureSize(int count);
    virtual void Resize(int count) { SetSize(count); }
    virtual const Point& GetAt(int index) const;
    virtual Point& ElementAtWrapped(int index);
    virtual Point& ElementAtGrow(int index);
    virtual Point& ElementAt(int index);
    virtual void InsertPolyAt(int index, const TPoly& other);
    virtual void InsertAt(int index, const Point& point);
    virtual void InsertPolyAfter(int index, const TPoly& other);
    virtual void InsertAfter(int index, const Point& point);
    virtual int Add(const Point& point);
    // Appends the vertices of `other`; with `closeLoops` each polygon of two or more vertices is
    // closed by a copy of its first vertex. Appending a polygon to itself is an invalid argument.
    virtual void Append(const TPoly& other, bool closeLoops);
    // Appends the vertices of `other` from its last to its first, leaving out one that equals the
    // vertex then last, so that a shared joint is not doubled.
    virtual void AppendReversed(const TPoly& other);
    // `count` vertices from wrapped `index` on, running on from the end to the head.
    virtual void RemoveWrapped(int index, int count);
    // Leaves valid zero bounds.
    virtual void RemoveAll();
    virtual void RemoveLast() { RemoveWrapped(GetCount() - 1, 1); }
    virtual void RemoveAt(int index, int count = 1);
    virtual void Serialize(CArchive& archive);
    virtual void SetSize(int count);
    // Moves, or moves and scales, the polygon so that its bounds become `rect`; nothing happens
    // to a polygon whose bounds have no width or no height.
    virtual void FitToRect(const Rect& rect);
    virtual void Move(const Vector& by);
    // Treats the polygon as a band, a path followed by its offset path reversed: keeps the path
    // (the first half of the vertices) and builds the offset half again.
    virtual void RebuildBand(const QArray<QLength>& widths, bool uniform);
    // Moves each edge to the left of the direction of the vertices by its width (times
    // `direction`): entry 0 for all edges when `uniform`, else entry i for the edge from vertex i.
    // When `closed`, a last vertex that repeats the first is kept on the first.
    virtual void OffsetEdges(const QArray<QLength>& widths, bool uniform, int direction,
                             bool closed);
    virtual void Reverse();
    virtual void MirrorX(const Point& about);
    virtual void MirrorY(const Point& about);
    // Sorts the vertices by their position along the direction; equal positions keep no order.
    virtual void SortAlong(double dx, double dy);
    virtual void SortAlong(const QAngle& angle) { SortAlong(angle.Cos(), angle.Sin()); }
    virtual const Point& Vertex(int index) const { return GetAt(index); }
    virtual Point EdgeMidpoint(int index) const;
    // Cuts the corner at vertex `index` by a straight edge `distance` from it along both edges;
    // false, with nothing changed, when an edge is too short or the distance near zero.
    virtual bool ChamferCorner(int index, const QLength& distance);
    // Rounds the corner at vertex `index` with an arc of the radius; false, with nothing changed,
    // when the corner is straight or an edge is too short.
    virtual bool FilletCorner(int index, const QLength& radius, int minSegments);
    // Replaces edge `index` by an arc of the radius, bulging out of the polygon for a positive
    // radius, in pieces of 9 degrees at most and at least `minSegments` of them.
    virtual void ArcEdge(int index, const QLength& radius, int minSegments);

    int GetCount() const { return m_points.GetCount(); }
    bool IsEmpty() const { return m_points.IsEmpty(); }
    std::uint8_t CacheFlags() const { return m_flags; }
    const QArray<Point>& Points() const { return m_points; }

    const Rect& GetBounds() const;
    // +1 when the vertices run counter-clockwise in a plane with y upward, -1 clockwise, 0 when no
    // corner on the bounds decides it.
    int Orientation() const;
    // At least two vertices, the last equal to the first.
    bool IsClosed() const;
    // Removes the first of each pair of equal neighbours and, when `closed`, a last vertex that
    // repeats the first. The caches stay as they were.
    void RemoveDuplicates(bool closed);
    void OffsetUniform(const QLength& width, bool closed);
    QLength EdgeLength(int index) const;
    QAngle EdgeAngle(int index) const;
    void SetTwoPoints(const Point& a, const Point& b);
    // The plain average of the vertices.
    Point VertexCentre() const;
    // CROSS inside, TOUCH on the boundary, DISJOINT outside. One vertex is a point, two a
    // segment whose points are all on it; more make a ring whose winding round the point is
    // counted by quadrants.
    CROSSTOUCHDISJOINT ClassifyPoint(const Point& point) const;
    // The segment from a to b: CROSS when it passes through the interior, also as a chord between
    // two points of the boundary; TOUCH when it only meets the boundary. `bounds` stands for the
    // polygon's own, which a caller may already hold.
    CROSSTOUCHDISJOINT ClassifySegment(const Point& a, const Point& b) const {
        return ClassifySegment(a, b, GetBounds());
    }
    CROSSTOUCHDISJOINT ClassifySegment(const Point& a, const Point& b, const Rect& bounds) const;
    // Whether `other` lies within this polygon, tried by vertices only: none of this polygon's
    // may lie in or on `other` (strictly in, with `strict`), and all of other's must lie in or on
    // this one (strictly in, with `strict`). So an equal polygon is never contained, and a concave
    // container may hold a polygon whose edges leave it between the vertices.
    bool Contains(const TPoly& other, bool strict) const;

    // "npoints", then each vertex with its index, as x[i] and y[i].
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;

protected:
    // Wrapped index; the count must not be 0.
    int Wrap(int index) const;
    // Negative indices have the count added until they are not; 0 for an empty polygon.
    int NormaliseInsertIndex(int index) const;
    void ClearFlags() { m_flags = 0; }
    void NegateValidSigns();
    // Vertices as stored, without clearing the caches: for operations that keep them true.
    Point& RawVertex(int index) { return m_points[index]; }
    void AssignFrom(const TPoly& other);
    void SetFlags(std::uint8_t flags) { m_flags = flags; }

private:
    int ComputeOrientation() const;
    bool OffsetKeepsClosingVertex(bool closed) const;
    void OffsetOpenOrRing(const QArray<QLength>& widths, bool uniform, int direction, bool closed);
    void MergeBoundsOrClear(const TPoly& other);

    QArray<Point> m_points;
    mutable int m_orientation : 2 = 0;
    int m_secondSign : 2 = 0;
    mutable Rect m_bounds;
    mutable std::uint8_t m_flags = 0;
};

// An arc from a start to an end point held as a polyline of `m_nSegments` segments. A positive
// radius bulges to the left of the direction from start to end (y upward), a negative one to the
// right. An arc that cannot exist (a radius smaller than half the chord, too few segments, a
// radius or chord near zero) is the straight chord.
template <class T, char tag>
class TPolyArc : public TPoly<T, tag> {
public:
    using Base = TPoly<T, tag>;
    using Point = typename Base::Point;
    using Vector = typename Base::Vector;
    using Rect = typename Base::Rect;

    TPolyArc() = default;
    TPolyArc(const Point& start, const Point& end, int segments, const QLength& radius);
    TPolyArc(const TPolyArc&) = default;

    // An arc keeps its shape: assigning into it does nothing.
    TPolyArc& operator=(const TPoly<T, tag>&) override { return *this; }
    TPolyArc& operator=(const TPolyArc&) { return *this; }

    void FitToRect(const Rect& rect) override;
    void Move(const Vector& by) override;
    void MirrorX(const Point& about) override;
    void MirrorY(const Point& about) override;
    // About the origin or a point; the vertices and the centre turn by the angle's cosine and
    // sine. An angle near zero, or a cosine of 1 with a sine of 0, changes nothing.
    virtual void Rotate(const QAngle& angle);
    virtual void Rotate(double cosine, double sine);
    virtual void RotateAbout(const Point& about, const QAngle& angle);
    virtual void RotateAbout(const Point& about, double cosine, double sine);

    int Segments() const { return m_nSegments; }
    const QLength& Radius() const { return m_radius; }
    const QLength& ArcLength() const { return m_arcLength; }
    const QLength& ChordLength() const { return m_chordLength; }
    const Point& Centre() const { return m_centre; }

private:
    void BuildChord(const Point& start, const Point& end);

    int m_nSegments = 0;
    QLength m_radius;
    QLength m_arcLength;
    QLength m_chordLength;
    Point m_centre;
};

extern template class TPoly<QLength, c_worldSpace>;
extern template class TPoly<QLength, c_pageSpace>;
extern template class TPolyArc<QLength, c_worldSpace>;
extern template class TPolyArc<QLength, c_pageSpace>;

using QWorldPoly = TPoly<QLength, c_worldSpace>;
using QPagePoly = TPoly<QLength, c_pageSpace>;

// Makes `poly` the four corners in order, whatever it held.
template <class T, char tag>
void MakeQuad(TPoly<T, tag>& poly, const TPoint<T, tag>& p0, const TPoint<T, tag>& p1,
              const TPoint<T, tag>& p2, const TPoint<T, tag>& p3);

// The rectangle over the middle third of the line from a to b, between its parallels at `w1` and
// `w2`, as a grip drawn on an edge: the weighted means (b+2a)/3 and (a+2b)/3 of the end points,
// each moved at right angles to a→b by a width, to the left (y upward) when it is positive. The
// corners run a's third at w1, a's third at w2, b's third at w2, b's third at w1. When a and b
// are equal all four are at a.
template <class T, char tag>
void MakeOrthoQuad(TPoly<T, tag>& poly, const TPoint<T, tag>& a, const TPoint<T, tag>& b,
                   const T& w1, const T& w2);

// A run of length `l1` from `origin` along `angle`, `l2` deep at its start and `l3` at its end,
// to the left of the run (Plus90 of the angle) when `left`, else to the right (Minus90). Vertex
// 0 is the start of the run, 1 its end, 2 the end of the far side, 3 its start: counter-clockwise
// to the left, clockwise to the right (y upward). The array then cuts one end of the run along
// it, a positive length lengthening it: to the left, vertex 1 moves on by `lengths[0]`; to the
// right, vertices 0 and 3 move back by `lengths[1]` and `lengths[2]`. An array too short for its
// side is an invalid argument, and `poly` is left as it was.
template <class T, char tag>
void MakeQuadFromLengths(TPoly<T, tag>& poly, const T& l1, const T& l2, const T& l3,
                         const QArray<T>& lengths, const TPoint<T, tag>& origin,
                         const QAngle& angle, bool left);

using QLogicalPoint = TPoint<int, c_clientSpace>;

// The integer logical points a polygon is drawn with: hundredths of a raw unit, rounded half up
// (floor(v/0.01+0.5)); a world polygon is first divided by its scale, or x and y by one scale
// each. A value beyond the range of int is held at its end, and one that is not a number is 0.
QArray<QLogicalPoint> LogicalPoints(const QPagePoly& poly);
QArray<QLogicalPoint> LogicalPoints(const QWorldPoly& poly, double scale);
QArray<QLogicalPoint> LogicalPoints(const QWorldPoly& poly, double scaleX, double scaleY);

} // namespace keel
