#include "keel/geometry/tpoly.h"

#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importattribute.h"
#include "keel/exchange/importformatlevel.h"
#include "keel/geometry/classify.h"
#include "keel/values/anyvalue.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <numbers>
#include <string>

namespace keel {

namespace {

// A joint whose two edge directions nearly cancel folds back on itself.
constexpr double c_foldBack = 0.0002;
// The arc's own tolerances, in the default units.
constexpr double c_chordNearZero = 0.0002;
constexpr double c_sagittaNearZero = 4e-08;
// The largest angle one segment of a rounded edge may span.
constexpr double c_segmentRadians = 9.0 * std::numbers::pi / 180.0;

struct Unit {
    double x = 0;
    double y = 0;
};

// The vector scaled to length 1; a vector near zero in both components gives the zero vector.
Unit UnitOf(double dx, double dy) {
    if (tolerance::NearZero(dx) && tolerance::NearZero(dy))
        return {};
    const double length = std::hypot(dx, dy);
    return {dx / length, dy / length};
}

// The tangent, with a cosine of exactly 0 giving the largest double of the sine's sign.
double Tangent(const QAngle& angle) {
    if (angle.Cos() == 0.0)
        return angle.Sin() < 0 ? -DBL_MAX : DBL_MAX;
    return angle.Sin() / angle.Cos();
}

QAngle AngleOf(double dx, double dy) {
    return QAngle::FromRaw(std::atan2(dy, dx) * 180.0 / std::numbers::pi);
}

// The direction along which SortAlong compares; one sort at a time on a thread.
thread_local double t_sortDx = 0;
thread_local double t_sortDy = 0;

int CompareRaw(double a, double b) {
    if (tolerance::Equal(a, b))
        return 0;
    return a < b ? -1 : 1;
}

template <class Point>
int ByXAscending(const Point* a, const Point* b) {
    return CompareRaw(a->x.GetRaw(), b->x.GetRaw());
}
template <class Point>
int ByXDescending(const Point* a, const Point* b) {
    return -ByXAscending(a, b);
}
template <class Point>
int ByYAscending(const Point* a, const Point* b) {
    return CompareRaw(a->y.GetRaw(), b->y.GetRaw());
}
template <class Point>
int ByYDescending(const Point* a, const Point* b) {
    return -ByYAscending(a, b);
}
template <class Point>
int ByDirection(const Point* a, const Point* b) {
    const double dot =
        (a->x.GetRaw() - b->x.GetRaw()) * t_sortDx + (a->y.GetRaw() - b->y.GetRaw()) * t_sortDy;
    if (tolerance::NearZero(dot))
        return 0;
    return dot < 0 ? -1 : 1;
}

int LogicalUnit(double hundredths) {
    const double rounded = std::floor(hundredths + 0.5);
    if (std::isnan(rounded))
        return 0;
    if (rounded >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (rounded <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(rounded);
}

template <char tag>
QArray<QLogicalPoint> ScaledLogicalPoints(const TPoly<QLength, tag>& poly, double scaleX,
                                          double scaleY) {
    QArray<QLogicalPoint> points;
    points.SetSize(poly.GetCount());
    for (int i = 0; i < poly.GetCount(); ++i) {
        const TPoint<QLength, tag>& vertex = poly.Vertex(i);
        points[i] = QLogicalPoint(LogicalUnit(vertex.x.GetRaw() / scaleX / 0.01),
                                  LogicalUnit(vertex.y.GetRaw() / scaleY / 0.01));
    }
    return points;
}

} // namespace

template <class T, char tag>
void TPoly<T, tag>::AssignFrom(const TPoly& other) {
    m_points.SetSize(other.GetCount());
    for (int i = 0; i < other.GetCount(); ++i)
        m_points[i] = other.m_points[i];
    m_flags = other.m_flags;
    if (other.m_flags & c_orientationValid)
        m_orientation = other.m_orientation;
    if (other.m_flags & c_secondSignValid)
        m_secondSign = other.m_secondSign;
    if (other.m_flags & c_boundsValid)
        m_bounds = other.m_bounds;
}

template <class T, char tag>
TPoly<T, tag>& TPoly<T, tag>::operator=(const TPoly& other) {
    if (&other != this)
        AssignFrom(other);
    return *this;
}

template <class T, char tag>
bool TPoly<T, tag>::operator==(const TPoly& other) const {
    if (GetCount() != other.GetCount())
        return false;
    for (int i = 0; i < GetCount(); ++i)
        if (!(Vertex(i) == other.Vertex(i)))
            return false;
    return true;
}

template <class T, char tag>
bool TPoly<T, tag>::IsSameOutline(const TPoly& other, bool thisIsClosed, bool otherIsClosed) const {
    int count = GetCount();
    if (!thisIsClosed && IsClosed()) {
        thisIsClosed = true;
        --count;
    }
    int otherCount = other.GetCount();
    if (!otherIsClosed && other.IsClosed()) {
        otherIsClosed = true;
        --otherCount;
    }
    if (thisIsClosed != otherIsClosed || count != otherCount)
        return false;
    if (count < 1)
        return true;
    bool same = true;
    for (int i = 0; i < count && same; ++i)
        same = Vertex(i) == other.Vertex(i);
    if (same)
        return true;
    for (int i = 0; i < count; ++i)
        if (!(Vertex(i) == other.Vertex(count - 1 - i)))
            return false;
    return true;
}

template <class T, char tag>
std::unique_ptr<TPoly<T, tag>> TPoly<T, tag>::Clone() const {
    auto copy = std::make_unique<TPoly>();
    copy->AssignFrom(*this);
    return copy;
}

template <class T, char tag>
void TPoly<T, tag>::EnsureSize(int count) {
    if (GetCount() < count)
        SetSize(count);
}

template <class T, char tag>
int TPoly<T, tag>::Wrap(int index) const {
    const int count = GetCount();
    const int wrapped = index % count;
    return wrapped < 0 ? wrapped + count : wrapped;
}

template <class T, char tag>
int TPoly<T, tag>::NormaliseInsertIndex(int index) const {
    if (index >= 0)
        return index;
    if (IsEmpty())
        return 0;
    return Wrap(index);
}

template <class T, char tag>
const typename TPoly<T, tag>::Point& TPoly<T, tag>::GetAt(int index) const {
    if (IsEmpty()) {
        static const Point empty;
        return empty;
    }
    return m_points[Wrap(index)];
}

template <class T, char tag>
typename TPoly<T, tag>::Point& TPoly<T, tag>::ElementAtWrapped(int index) {
    if (IsEmpty())
        ThrowInvalidArgument("TPoly::ElementAtWrapped on an empty polygon");
    ClearFlags();
    return m_points[Wrap(index)];
}

template <class T, char tag>
typename TPoly<T, tag>::Point& TPoly<T, tag>::ElementAtGrow(int index) {
    index = NormaliseInsertIndex(index);
    if (index == INT_MAX)
        ThrowInvalidArgument("TPoly::ElementAtGrow: no room for index " + std::to_string(index));
    EnsureSize(index + 1);
    ClearFlags();
    return m_points[index];
}

template <class T, char tag>
typename TPoly<T, tag>::Point& TPoly<T, tag>::ElementAt(int index) {
    if (index < 0 || index >= GetCount())
        ThrowInvalidArgument("TPoly::ElementAt: index " + std::to_string(index) +
                             " outside a polygon of " + std::to_string(GetCount()));
    ClearFlags();
    return m_points[index];
}

template <class T, char tag>
void TPoly<T, tag>::InsertPolyAt(int index, const TPoly& other) {
    m_points.InsertAt(NormaliseInsertIndex(index), other.m_points);
    ClearFlags();
}

template <class T, char tag>
void TPoly<T, tag>::InsertAt(int index, const Point& point) {
    m_points.InsertAt(NormaliseInsertIndex(index), point);
    ClearFlags();
}

template <class T, char tag>
void TPoly<T, tag>::InsertPolyAfter(int index, const TPoly& other) {
    InsertPolyAt(IsEmpty() ? 0 : Wrap(index) + 1, other);
}

template <class T, char tag>
void TPoly<T, tag>::InsertAfter(int index, const Point& point) {
    InsertAt(IsEmpty() ? 0 : Wrap(index) + 1, point);
}

template <class T, char tag>
int TPoly<T, tag>::Add(const Point& point) {
    ClearFlags();
    return m_points.Add(point);
}

template <class T, char tag>
void TPoly<T, tag>::MergeBoundsOrClear(const TPoly& other) {
    if ((m_flags & c_boundsValid) && (other.m_flags & c_boundsValid)) {
        m_bounds.Merge(other.m_bounds);
        m_flags = c_boundsValid;
    } else {
        m_flags = 0;
    }
}

template <class T, char tag>
void TPoly<T, tag>::Append(const TPoly& other, bool closeLoops) {
    if (&other == this)
        ThrowInvalidArgument("TPoly::Append: a polygon cannot be appended to itself");
    if (other.IsEmpty())
        return;
    const std::uint8_t flags = m_flags;
    MergeBoundsOrClear(other);
    const std::uint8_t merged = m_flags;
    m_flags = flags;
    if (closeLoops && GetCount() >= 2)
        m_points.Add(Point(Vertex(0)));
    for (int i = 0; i < other.GetCount(); ++i)
        m_points.Add(other.Vertex(i));
    if (closeLoops && other.GetCount() >= 2)
        m_points.Add(other.Vertex(0));
    m_flags = merged;
}

template <class T, char tag>
void TPoly<T, tag>::AppendReversed(const TPoly& other) {
    if (other.IsEmpty())
        return;
    const TPoly source(other);
    const std::uint8_t flags = m_flags;
    MergeBoundsOrClear(source);
    const std::uint8_t merged = m_flags;
    m_flags = flags;
    for (int i = source.GetCount() - 1; i >= 0; --i)
        if (IsEmpty() || !(source.Vertex(i) == Vertex(GetCount() - 1)))
            m_points.Add(source.Vertex(i));
    m_flags = merged;
}

template <class T, char tag>
void TPoly<T, tag>::RemoveWrapped(int index, int count) {
    const int total = GetCount();
    if (total == 0 || count <= 0)
        return;
    ClearFlags();
    if (count >= total) {
        m_points.RemoveAll();
        return;
    }
    const int start = Wrap(index);
    const int tail = std::min(count, total - start);
    m_points.RemoveAt(start, tail);
    if (count > tail)
        m_points.RemoveAt(0, count - tail);
}

template <class T, char tag>
void TPoly<T, tag>::RemoveAll() {
    m_points.RemoveAll();
    m_bounds = Rect();
    m_flags = c_boundsValid;
}

template <class T, char tag>
void TPoly<T, tag>::RemoveAt(int index, int count) {
    m_points.RemoveAt(index, count);
    ClearFlags();
}

template <class T, char tag>
void TPoly<T, tag>::Serialize(CArchive& archive) {
    if (archive.IsLoading())
        ClearFlags();
    m_points.Serialize(archive);
}

template <class T, char tag>
void TPoly<T, tag>::SetSize(int count) {
    if (count != GetCount())
        ClearFlags();
    m_points.SetSize(count);
}

template <class T, char tag>
void TPoly<T, tag>::FitToRect(const Rect& rect) {
    const Rect bounds = GetBounds();
    if (bounds == rect)
        return;
    const double width = RawOf(bounds.Width());
    const double height = RawOf(bounds.Height());
    if (tolerance::Equal(width, RawOf(rect.Width())) &&
        tolerance::Equal(height, RawOf(rect.Height()))) {
        const Vector by = rect.TopLeft() - bounds.TopLeft();
        for (Point& point : m_points)
            point += by;
        m_bounds.Offset(by);
        return;
    }
    if (tolerance::NearZero(width) || tolerance::NearZero(height))
        return;
    const double xRatio = RawOf(rect.Width()) / width;
    const double yRatio = RawOf(rect.Height()) / height;
    for (Point& point : m_points) {
        point.x = rect.left + (point.x - bounds.left) * xRatio;
        point.y = rect.top + (point.y - bounds.top) * yRatio;
    }
    ClearFlags();
}

template <class T, char tag>
void TPoly<T, tag>::Move(const Vector& by) {
    for (Point& point : m_points)
        point += by;
    if (m_flags & c_boundsValid)
        m_bounds.Offset(by);
}

template <class T, char tag>
void TPoly<T, tag>::RebuildBand(const QArray<QLength>& widths, bool uniform) {
    const int count = GetCount();
    if (count < 2)
        return;
    if (count == 2) {
        ElementAt(1) = Vertex(0);
        return;
    }
    SetSize(count / 2);
    TPoly offset(*this);
    const bool closed = offset.IsClosed();
    if (closed)
        offset.RemoveLast();
    if (uniform && !widths.IsEmpty())
        offset.OffsetUniform(widths[0], closed);
    else
        offset.OffsetEdges(widths, uniform, 1, closed);
    if (closed)
        offset.Add(Point(offset.Vertex(0)));
    offset.Reverse();
    Append(offset, false);
}

template <class T, char tag>
bool TPoly<T, tag>::OffsetKeepsClosingVertex(bool closed) const {
    return closed && GetCount() >= 3 && IsClosed();
}

template <class T, char tag>
void TPoly<T, tag>::OffsetEdges(const QArray<QLength>& widths, bool uniform, int direction,
                                bool closed) {
    m_flags &= static_cast<std::uint8_t>(~c_boundsValid);
    if (GetCount() < 2)
        return;
    if (widths.IsEmpty())
        ThrowInvalidArgument("TPoly::OffsetEdges: no widths for the edges");
    if (uniform && widths[0].IsZero())
        return;
    if (!OffsetKeepsClosingVertex(closed)) {
        OffsetOpenOrRing(widths, uniform, direction, closed);
        return;
    }
    // The repeated vertex would make a closing edge of no length: the ring is offset without it,
    // and the moved first vertex closes it again.
    const std::uint8_t flags = m_flags;
    m_points.RemoveAt(GetCount() - 1);
    OffsetOpenOrRing(widths, uniform, direction, true);
    m_points.Add(Point(m_points[0]));
    m_flags = flags;
}

template <class T, char tag>
void TPoly<T, tag>::OffsetOpenOrRing(const QArray<QLength>& widths, bool uniform, int direction,
                                     bool closed) {
    const int n = GetCount();
    const int edgesUsed = closed ? n : n - 1;
    if (!uniform && widths.GetCount() < edgesUsed)
        ThrowInvalidArgument("TPoly::OffsetEdges: " + std::to_string(widths.GetCount()) +
                             " widths for " + std::to_string(edgesUsed) + " edges");
    const std::uint8_t flags = m_flags;
    const auto width = [&](int edge) { return direction * widths[uniform ? 0 : edge].GetRaw(); };
    const Point first = Vertex(0);
    const Point last = Vertex(n - 1);
    Unit u = closed ? UnitOf(RawOf(last.x - first.x), RawOf(last.y - first.y)) : Unit{};
    for (int i = n - 1; i >= 0; --i) {
        const int j = (i + n - 1) % n;
        const Point a = Vertex(i);
        const Point b = i == 0 ? last : Vertex(j);
        const Unit uOld = u;
        u = (i == 0 && !closed) ? Unit{} : UnitOf(RawOf(b.x - a.x), RawOf(b.y - a.y));
        double dx = 0;
        double dy = 0;
        if (i == 0 && !closed) {
            const double w = width(0);
            dx = w * uOld.y;
            dy = -w * uOld.x;
        } else if (i == n - 1 && !closed) {
            const double w = width(j);
            dx = w * u.y;
            dy = -w * u.x;
        } else {
            const double wi = width(i);
            const double wj = width(j);
            const double d = 1.0 + uOld.x * u.x + uOld.y * u.y;
            if (d <= c_foldBack && d >= -c_foldBack)
                continue;
            dx = (wj * u.y + wi * uOld.y) / d;
            dy = -(wj * u.x + wi * uOld.x) / d;
        }
        m_points[i] = Point(a.x + T::FromRaw(dx), a.y + T::FromRaw(dy));
    }
    m_flags = flags;
}

template <class T, char tag>
void TPoly<T, tag>::NegateValidSigns() {
    if (m_flags & c_orientationValid)
        m_orientation = -m_orientation;
    if (m_flags & c_secondSignValid)
        m_secondSign = -m_secondSign;
}

template <class T, char tag>
void TPoly<T, tag>::Reverse() {
    for (int i = 0, j = GetCount() - 1; i < j; ++i, --j)
        std::swap(m_points[i], m_points[j]);
    NegateValidSigns();
}

template <class T, char tag>
void TPoly<T, tag>::MirrorX(const Point& about) {
    for (Point& point : m_points)
        point.x = about.x + about.x - point.x;
    NegateValidSigns();
    m_flags &= static_cast<std::uint8_t>(~c_boundsValid);
}

template <class T, char tag>
void TPoly<T, tag>::MirrorY(const Point& about) {
    for (Point& point : m_points)
        point.y = about.y + about.y - point.y;
    NegateValidSigns();
    m_flags &= static_cast<std::uint8_t>(~c_boundsValid);
}

template <class T, char tag>
void TPoly<T, tag>::SortAlong(double dx, double dy) {
    m_flags &= static_cast<std::uint8_t>(~c_boundsValid);
    if (IsEmpty())
        return;
    int (*compare)(const Point*, const Point*) = nullptr;
    if (dy == 0 && dx > 0)
        compare = ByXAscending<Point>;
    else if (dx == 0 && dy > 0)
        compare = ByYAscending<Point>;
    else if (dy == 0 && dx < 0)
        compare = ByXDescending<Point>;
    else if (dx == 0 && dy < 0)
        compare = ByYDescending<Point>;
    else
        compare = ByDirection<Point>;
    t_sortDx = dx;
    t_sortDy = dy;
    m_points.SortUsing(compare);
}

template <class T, char tag>
typename TPoly<T, tag>::Point TPoly<T, tag>::EdgeMidpoint(int index) const {
    const Point& a = Vertex(index);
    const Point& b = Vertex(index + 1);
    return Point((a.x + b.x) / 2.0, (a.y + b.y) / 2.0);
}

template <class T, char tag>
bool TPoly<T, tag>::ChamferCorner(int index, const QLength& distance) {
    if (IsEmpty())
        return false;
    index = Wrap(index);
    const double cut = distance.GetRaw();
    if (!(tolerance::NonNegative(EdgeLength(index - 1).GetRaw() - cut) &&
          tolerance::NonNegative(EdgeLength(index).GetRaw() - cut) && !distance.IsZero()))
        return false;
    const Point corner = Vertex(index);
    const auto along = [&](const Point& towards) {
        const QAngle angle = AngleOf(RawOf(towards.x - corner.x), RawOf(towards.y - corner.y));
        return Point(corner.x + T::FromRaw(cut * angle.Cos()),
                     corner.y + T::FromRaw(cut * angle.Sin()));
    };
    const Point a = along(Vertex(index - 1));
    const Point b = along(Vertex(index + 1));
    InsertAfter(index, corner);
    ElementAt(index) = a;
    ElementAt(index + 1) = b;
    return true;
}

template <class T, char tag>
bool TPoly<T, tag>::FilletCorner(int index, const QLength& radius, int minSegments) {
    if (IsEmpty())
        return false;
    index = Wrap(index);
    QAngle previousReversed = EdgeAngle(index - 1);
    previousReversed.Reverse();
    QAngle half = EdgeAngle(index) - previousReversed;
    if (half.IsZero())
        return false;
    // The turn between the edges becomes half the corner's inner angle.
    half.Supplement();
    half /= 2.0;
    half.Normalize();
    double distance = radius.GetRaw() * Tangent(half);
    if (distance <= -QLength::Eps)
        distance = -distance;
    if (!ChamferCorner(index, QLength::FromRaw(distance)))
        return false;
    ArcEdge(index, radius, minSegments);
    return true;
}

template <class T, char tag>
void TPoly<T, tag>::ArcEdge(int index, const QLength& radius, int minSegments) {
    if (IsEmpty())
        return;
    index = Wrap(index);
    const Point a = Vertex(index);
    const Point b = Vertex(index + 1);
    const QLength signedRadius = Orientation() == 1 ? -radius : radius;
    const double q = std::fabs(EdgeLength(index).GetRaw() / (2.0 * signedRadius.GetRaw()));
    int segments = minSegments;
    if (q <= 1.0)
        segments =
            std::max(segments, static_cast<int>(std::ceil(2.0 * std::asin(q) / c_segmentRadians)));
    const TPolyArc<T, tag> arc(a, b, segments, signedRadius);
    InsertPolyAt(index + 1, arc);
    RemoveDuplicates(false);
}

template <class T, char tag>
const typename TPoly<T, tag>::Rect& TPoly<T, tag>::GetBounds() const {
    if (!(m_flags & c_boundsValid)) {
        m_bounds = IsEmpty() ? Rect() : Rect(Vertex(0), Vertex(0));
        for (int i = 1; i < GetCount(); ++i)
            m_bounds.ExtendBy(Vertex(i));
        m_flags |= c_boundsValid;
    }
    return m_bounds;
}

template <class T, char tag>
int TPoly<T, tag>::Orientation() const {
    if (!(m_flags & c_orientationValid)) {
        m_orientation = ComputeOrientation();
        m_flags |= c_orientationValid;
    }
    return m_orientation;
}

template <class T, char tag>
int TPoly<T, tag>::ComputeOrientation() const {
    const int n = GetCount();
    if (n < 3)
        return 0;
    const Rect bounds = GetBounds();
    const auto onSide = [](double value, double side) {
        return std::fabs(value - side) < QLength::Eps;
    };
    for (int i = 0; i < n; ++i) {
        const int at = Wrap(i + 1);
        const Point& vertex = Vertex(at);
        const double x = RawOf(vertex.x);
        const double y = RawOf(vertex.y);
        if (!onSide(x, RawOf(bounds.left)) && !onSide(x, RawOf(bounds.right)) &&
            !onSide(y, RawOf(bounds.top)) && !onSide(y, RawOf(bounds.bottom)))
            continue;
        int previous = at - 1;
        for (int step = 0; step < n - 3 && Vertex(previous) == vertex; ++step)
            --previous;
        int next = at + 1;
        for (int step = 0; step < n - 3 && Vertex(next) == vertex; ++step)
            ++next;
        const Point& before = Vertex(previous);
        const int sense = Sense(vertex - before, Vertex(next) - before);
        if (sense != 0)
            return sense;
    }
    return 0;
}

template <class T, char tag>
bool TPoly<T, tag>::IsClosed() const {
    return GetCount() >= 2 && Vertex(GetCount() - 1) == Vertex(0);
}

template <class T, char tag>
void TPoly<T, tag>::RemoveDuplicates(bool closed) {
    const std::uint8_t flags = m_flags;
    for (int i = 0; i + 1 < GetCount();) {
        if (Vertex(i) == Vertex(i + 1))
            m_points.RemoveAt(i);
        else
            ++i;
    }
    if (closed && IsClosed())
        m_points.RemoveAt(GetCount() - 1);
    m_flags = flags;
}

template <class T, char tag>
void TPoly<T, tag>::OffsetUniform(const QLength& width, bool closed) {
    OffsetEdges(QArray<QLength>{width}, true, 1, closed);
}

template <class T, char tag>
QLength TPoly<T, tag>::EdgeLength(int index) const {
    if (IsEmpty())
        return QLength::Zero;
    const Vector edge = Vertex(index + 1) - Vertex(index);
    return QLength::FromRaw(std::hypot(RawOf(edge.x), RawOf(edge.y)));
}

template <class T, char tag>
QAngle TPoly<T, tag>::EdgeAngle(int index) const {
    const Vector edge = Vertex(index + 1) - Vertex(index);
    return AngleOf(QLength::raw_to_double(RawOf(edge.x)), QLength::raw_to_double(RawOf(edge.y)));
}

template <class T, char tag>
void TPoly<T, tag>::SetTwoPoints(const Point& a, const Point& b) {
    m_points.SetSize(2);
    m_points[0] = a;
    m_points[1] = b;
    m_orientation = 0;
    m_secondSign = 0;
    m_bounds = Rect(a, b);
    m_flags = c_orientationValid | c_secondSignValid | c_boundsValid;
}

namespace {

// The quadrant of a vector from the point a polygon is classified against: 0 for the point
// itself, 1 to 4 counter-clockwise from the positive x axis, each axis counted with the quadrant
// it leads into.
int QuadrantOf(double x, double y) {
    using tolerance::NearZero;
    if (NearZero(x) && NearZero(y))
        return 0;
    if (NearZero(y))
        return x >= QLength::Eps ? 1 : 3;
    if (y < QLength::Eps)
        return x <= -QLength::Eps ? 3 : 4;
    return x >= QLength::Eps ? 1 : 2;
}

} // namespace

template <class T, char tag>
CROSSTOUCHDISJOINT TPoly<T, tag>::ClassifyPoint(const Point& point) const {
    const int count = GetCount();
    if (count == 0)
        return DISJOINT;
    if (count == 1)
        return Vertex(0) == point ? TOUCH : DISJOINT;
    if (count == 2) {
        if (Sense(Vertex(0) - point, Vertex(1) - point) != 0)
            return DISJOINT;
        return PositionOnSegment(point, Vertex(0), Vertex(1)) == 1 ? DISJOINT : TOUCH;
    }
    const Rect& bounds = GetBounds();
    using tolerance::NonNegative;
    if (!(NonNegative(RawOf(point.x) - RawOf(bounds.left)) &&
          NonNegative(RawOf(bounds.right) - RawOf(point.x)) &&
          NonNegative(RawOf(point.y) - RawOf(bounds.top)) &&
          NonNegative(RawOf(bounds.bottom) - RawOf(point.y))))
        return DISJOINT;
    Vector previous = Vertex(count - 1) - point;
    int previousQuadrant = QuadrantOf(RawOf(previous.x), RawOf(previous.y));
    if (previousQuadrant == 0)
        return TOUCH;
    int winding = 0;
    for (int i = 0; i < count; ++i) {
        const Vector current = Vertex(i) - point;
        const int quadrant = QuadrantOf(RawOf(current.x), RawOf(current.y));
        if (quadrant == 0)
            return TOUCH;
        const bool turned = quadrant != previousQuadrant;
        if (turned && tolerance::NearZero(RawOf(current.x)) &&
            tolerance::NearZero(RawOf(previous.x)))
            return TOUCH;
        if (turned && tolerance::NearZero(RawOf(current.y)) &&
            tolerance::NearZero(RawOf(previous.y)))
            return TOUCH;
        int step = quadrant - previousQuadrant;
        if (step == 3)
            step = -1;
        else if (step == -3)
            step = 1;
        else if (step == 2 || step == -2) {
            // The edge passes the point diagonally; the side it passes on sets the direction.
            const int side = Sense(current, previous);
            if (side == 0)
                return TOUCH;
            step = side < 0 ? 2 : -2;
        }
        winding += step;
        previous = current;
        previousQuadrant = quadrant;
    }
    return winding == 0 ? DISJOINT : CROSS;
}

template <class T, char tag>
CROSSTOUCHDISJOINT TPoly<T, tag>::ClassifySegment(const Point& a, const Point& b,
                                                  const Rect& bounds) const {
    const int count = GetCount();
    if (count == 0)
        return DISJOINT;
    if (count == 1) {
        if (Sense(b - a, Vertex(0) - a) != 0)
            return DISJOINT;
        return PositionOnSegment(Vertex(0), a, b) == 1 ? DISJOINT : TOUCH;
    }
    const CROSSTOUCHDISJOINT byBounds = ClassifySegmentAndBounds(a, b, bounds);
    if (byBounds != TOUCH)
        return byBounds;
    bool touched = false;
    for (int i = 0; i < count; ++i) {
        const CROSSTOUCHDISJOINT edge = ClassifySegments(a, b, Vertex(i), Vertex(i + 1));
        if (edge == CROSS)
            return CROSS;
        touched = touched || edge == TOUCH;
    }
    const Point middle((a.x + b.x) / 2.0, (a.y + b.y) / 2.0);
    if (ClassifyPoint(a) == CROSS || ClassifyPoint(b) == CROSS || ClassifyPoint(middle) == CROSS)
        return CROSS;
    return touched ? TOUCH : DISJOINT;
}

template <class T, char tag>
bool TPoly<T, tag>::Contains(const TPoly& other, bool strict) const {
    if (IsEmpty() || other.IsEmpty())
        return false;
    if (other.GetCount() == 1) {
        const CROSSTOUCHDISJOINT vertex = ClassifyPoint(other.Vertex(0));
        return strict ? vertex == CROSS : vertex != DISJOINT;
    }
    using tolerance::Less;
    using tolerance::NonNegative;
    const Rect& outer = GetBounds();
    const Rect& inner = other.GetBounds();
    if (!(NonNegative(RawOf(inner.left) - RawOf(outer.left)) &&
          NonNegative(RawOf(outer.right) - RawOf(inner.right)) &&
          !Less(RawOf(inner.top), RawOf(outer.top)) &&
          !Less(RawOf(outer.bottom), RawOf(inner.bottom))))
        return false;
    for (int i = 0; i < GetCount(); ++i) {
        const CROSSTOUCHDISJOINT vertex = other.ClassifyPoint(Vertex(i));
        if (strict ? vertex == CROSS : vertex != DISJOINT)
            return false;
    }
    for (int i = 0; i < other.GetCount(); ++i) {
        const CROSSTOUCHDISJOINT vertex = ClassifyPoint(other.Vertex(i));
        if (strict ? vertex != CROSS : vertex == DISJOINT)
            return false;
    }
    return true;
}

template <class T, char tag>
typename TPoly<T, tag>::Point TPoly<T, tag>::VertexCentre() const {
    if (IsEmpty())
        return Point();
    double x = 0;
    double y = 0;
    for (int i = 0; i < GetCount(); ++i) {
        x += RawOf(Vertex(i).x);
        y += RawOf(Vertex(i).y);
    }
    return Point(T::FromRaw(x / GetCount()), T::FromRaw(y / GetCount()));
}

template <class T, char tag>
bool TPoly<T, tag>::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    bool ok = level.AddExportableAttribute(QExportAttribute(u"npoints", QAnyValue(GetCount())));
    for (int i = 0; i < GetCount(); ++i) {
        level.SetArrayMode(true, i);
        ok = level.AddExportable(&m_points[i], false) && ok;
    }
    level.SetArrayMode(false);
    return ok;
}

template <class T, char tag>
bool TPoly<T, tag>::ImportAttributesAndChildren(QImportFormatLevel& level) {
    int count = GetCount();
    bool ok = level.ImportAttributeIfPresent(QByValImportAttribute<int>(u"npoints", count));
    if (count < 0 || count > c_mostImportedPoints)
        return false;
    SetSize(count);
    for (int i = 0; i < count; ++i) {
        level.SetArrayMode(true, i);
        ok = level.MergeImportableIfPresent(&m_points[i]) && ok;
    }
    level.SetArrayMode(false);
    ClearFlags();
    return ok;
}

template <class T, char tag>
TPolyArc<T, tag>::TPolyArc(const Point& start, const Point& end, int segments,
                           const QLength& radius)
    : m_nSegments(segments), m_radius(radius) {
    if (segments < 2 || radius.IsZero()) {
        BuildChord(start, end);
        return;
    }
    this->SetSize(segments + 1);
    this->ElementAt(0) = start;
    this->ElementAt(segments) = end;
    const auto inUnits = [](const T& value) { return QLength::raw_to_double(RawOf(value)); };
    const auto toRaw = [](double value) { return T::FromRaw(QLength::double_to_raw(value)); };
    const double r = std::fabs(inUnits(radius));
    const double signedR = inUnits(radius);
    const double dx = inUnits(end.x - start.x) / 2.0;
    const double dy = inUnits(end.y - start.y) / 2.0;
    const double c = std::hypot(dx, dy);
    m_chordLength = toRaw(2.0 * c);
    if (c <= c_chordNearZero && c >= -c_chordNearZero) {
        BuildChord(start, end);
        return;
    }
    const double e = r * r - c * c;
    double h = 0;
    if (e < -c_sagittaNearZero) {
        BuildChord(start, end);
        return;
    }
    if (e > c_sagittaNearZero)
        h = std::sqrt(e);
    const double k = h / r;
    const double a = std::acos(k);
    const double midX = inUnits(start.x) + dx;
    const double midY = inUnits(start.y) + dy;
    const Unit chord{dx / c, dy / c};
    const Unit normal{-dy / c, dx / c};
    for (int j = 1; j < segments; ++j) {
        const double theta = -a + j * (2.0 * a / segments);
        const double s = radius.GetRaw() < 0 ? -std::sin(theta) : std::sin(theta);
        const double bend = std::cos(theta) - k;
        this->ElementAt(j) = Point(toRaw(midX + signedR * (s * chord.x + bend * normal.x)),
                                   toRaw(midY + signedR * (s * chord.y + bend * normal.y)));
    }
    m_arcLength = toRaw(2.0 * a * r);
    m_centre = Point(toRaw(midX - signedR * k * normal.x), toRaw(midY - signedR * k * normal.y));
}

template <class T, char tag>
void TPolyArc<T, tag>::BuildChord(const Point& start, const Point& end) {
    this->SetSize(2);
    this->ElementAt(0) = start;
    this->ElementAt(1) = end;
    m_chordLength = this->EdgeLength(0);
    m_arcLength = m_chordLength;
    m_centre = Point(T::FromRaw((RawOf(start.x) + RawOf(end.x)) / 2.0),
                     T::FromRaw((RawOf(start.y) + RawOf(end.y)) / 2.0));
}

template <class T, char tag>
void TPolyArc<T, tag>::FitToRect(const Rect& rect) {
    if (this->IsEmpty()) {
        Base::FitToRect(rect);
        return;
    }
    const Point firstBefore = this->Vertex(0);
    const Point lastBefore = this->Vertex(this->GetCount() - 1);
    Base::FitToRect(rect);
    const Vector firstMoved = this->Vertex(0) - firstBefore;
    const Vector lastMoved = this->Vertex(this->GetCount() - 1) - lastBefore;
    m_centre += Vector{(firstMoved.x + lastMoved.x) / 2.0, (firstMoved.y + lastMoved.y) / 2.0};
}

template <class T, char tag>
void TPolyArc<T, tag>::Move(const Vector& by) {
    Base::Move(by);
    m_centre += by;
}

template <class T, char tag>
void TPolyArc<T, tag>::MirrorX(const Point& about) {
    Base::MirrorX(about);
    m_centre.x = about.x + about.x - m_centre.x;
}

template <class T, char tag>
void TPolyArc<T, tag>::MirrorY(const Point& about) {
    Base::MirrorY(about);
    m_centre.y = about.y + about.y - m_centre.y;
}

template <class T, char tag>
void TPolyArc<T, tag>::Rotate(const QAngle& angle) {
    if (angle.IsZero())
        return;
    Rotate(angle.Cos(), angle.Sin());
}

template <class T, char tag>
void TPolyArc<T, tag>::Rotate(double cosine, double sine) {
    RotateAbout(Point(), cosine, sine);
}

template <class T, char tag>
void TPolyArc<T, tag>::RotateAbout(const Point& about, const QAngle& angle) {
    if (angle.IsZero())
        return;
    RotateAbout(about, angle.Cos(), angle.Sin());
}

template <class T, char tag>
void TPolyArc<T, tag>::RotateAbout(const Point& about, double cosine, double sine) {
    if (cosine == 1.0 && sine == 0.0)
        return;
    const auto turned = [&](const Point& point) {
        const double x = RawOf(point.x) - RawOf(about.x);
        const double y = RawOf(point.y) - RawOf(about.y);
        return Point(about.x + T::FromRaw(x * cosine - y * sine),
                     about.y + T::FromRaw(y * cosine + x * sine));
    };
    const std::uint8_t flags = this->CacheFlags();
    for (int i = 0; i < this->GetCount(); ++i)
        this->RawVertex(i) = turned(this->RawVertex(i));
    this->SetFlags(flags & static_cast<std::uint8_t>(~Base::c_boundsValid));
    m_centre = turned(m_centre);
}

template class TPoly<QLength, c_worldSpace>;
template class TPoly<QLength, c_pageSpace>;
template class TPolyArc<QLength, c_worldSpace>;
template class TPolyArc<QLength, c_pageSpace>;

template <class T, char tag>
void MakeQuad(TPoly<T, tag>& poly, const TPoint<T, tag>& p0, const TPoint<T, tag>& p1,
              const TPoint<T, tag>& p2, const TPoint<T, tag>& p3) {
    poly.RemoveAll();
    for (const TPoint<T, tag>* corner : {&p0, &p1, &p2, &p3})
        poly.Add(*corner);
}

template <class T, char tag>
void MakeOrthoQuad(TPoly<T, tag>& poly, const TPoint<T, tag>& a, const TPoint<T, tag>& b,
                   const T& w1, const T& w2) {
    const double ax = RawOf(a.x);
    const double ay = RawOf(a.y);
    const double bx = RawOf(b.x);
    const double by = RawOf(b.y);
    const Unit along = UnitOf(bx - ax, by - ay);
    // The mean (p+2q)/3 lies a third of the way from q towards p, moved to the left of a→b.
    const auto corner = [&](double px, double py, double qx, double qy, const T& width) {
        const double offset = RawOf(width);
        return TPoint<T, tag>(T::FromRaw((px + 2 * qx) / 3 - offset * along.y),
                              T::FromRaw((py + 2 * qy) / 3 + offset * along.x));
    };
    MakeQuad(poly, corner(bx, by, ax, ay, w1), corner(bx, by, ax, ay, w2),
             corner(ax, ay, bx, by, w2), corner(ax, ay, bx, by, w1));
}

template <class T, char tag>
void MakeQuadFromLengths(TPoly<T, tag>& poly, const T& l1, const T& l2, const T& l3,
                         const QArray<T>& lengths, const TPoint<T, tag>& origin,
                         const QAngle& angle, bool left) {
    const int needed = left ? 1 : 3;
    if (lengths.GetCount() < needed)
        ThrowInvalidArgument("MakeQuadFromLengths: the array holds " +
                             std::to_string(lengths.GetCount()) + " lengths, a run to the " +
                             (left ? "left" : "right") + " needs " + std::to_string(needed));
    QAngle side = angle;
    if (left)
        side.Plus90();
    else
        side.Minus90();
    const auto moved = [](const TPoint<T, tag>& from, const QAngle& direction, const T& by) {
        const double distance = RawOf(by);
        return TPoint<T, tag>(from.x + T::FromRaw(distance * direction.Cos()),
                              from.y + T::FromRaw(distance * direction.Sin()));
    };
    const TPoint<T, tag> end = moved(origin, angle, l1);
    const TPoint<T, tag> farEnd = moved(end, side, l3);
    const TPoint<T, tag> farStart = moved(origin, side, l2);
    if (left) {
        MakeQuad(poly, origin, moved(end, angle, lengths[0]), farEnd, farStart);
        return;
    }
    MakeQuad(poly, moved(origin, angle, -lengths[1]), end, farEnd,
             moved(farStart, angle, -lengths[2]));
}

template void MakeQuad(QWorldPoly&, const QWorldPoly::Point&, const QWorldPoly::Point&,
                       const QWorldPoly::Point&, const QWorldPoly::Point&);
template void MakeQuad(QPagePoly&, const QPagePoly::Point&, const QPagePoly::Point&,
                       const QPagePoly::Point&, const QPagePoly::Point&);
template void MakeOrthoQuad(QWorldPoly&, const QWorldPoly::Point&, const QWorldPoly::Point&,
                            const QLength&, const QLength&);
template void MakeOrthoQuad(QPagePoly&, const QPagePoly::Point&, const QPagePoly::Point&,
                            const QLength&, const QLength&);
template void MakeQuadFromLengths(QWorldPoly&, const QLength&, const QLength&, const QLength&,
                                  const QArray<QLength>&, const QWorldPoly::Point&, const QAngle&,
                                  bool);
template void MakeQuadFromLengths(QPagePoly&, const QLength&, const QLength&, const QLength&,
                                  const QArray<QLength>&, const QPagePoly::Point&, const QAngle&,
                                  bool);

QArray<QLogicalPoint> LogicalPoints(const QPagePoly& poly) {
    return ScaledLogicalPoints(poly, 1.0, 1.0);
}

QArray<QLogicalPoint> LogicalPoints(const QWorldPoly& poly, double scale) {
    return ScaledLogicalPoints(poly, scale, scale);
}

QArray<QLogicalPoint> LogicalPoints(const QWorldPoly& poly, double scaleX, double scaleY) {
    return ScaledLogicalPoints(poly, scaleX, scaleY);
}

} // namespace keel
