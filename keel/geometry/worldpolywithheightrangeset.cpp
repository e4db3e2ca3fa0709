#include "keel/geometry/worldpolywithheightrangeset.h"

#include "keel/geometry/classify.h"

#include <algorithm>
#include <vector>

namespace keel {

namespace {

using Box = TRect3D<QLength, c_worldSpace>;

void WidenBy(Box& box, const Box& other) {
    using tolerance::Greater;
    using tolerance::Less;
    if (Less(other.left.GetRaw(), box.left.GetRaw()))
        box.left = other.left;
    if (Less(other.top.GetRaw(), box.top.GetRaw()))
        box.top = other.top;
    if (Less(other.low.GetRaw(), box.low.GetRaw()))
        box.low = other.low;
    if (Greater(other.right.GetRaw(), box.right.GetRaw()))
        box.right = other.right;
    if (Greater(other.bottom.GetRaw(), box.bottom.GetRaw()))
        box.bottom = other.bottom;
    if (Greater(other.high.GetRaw(), box.high.GetRaw()))
        box.high = other.high;
}

bool IsCollision(const QWorldPolyWithHeightRange& a, const QWorldPolyWithHeightRange& b) {
    return QWorldPolyWithHeightRange::CrossTouchDisjoint(a, b) == CROSS;
}

// A present element's extent along x, for the sweep.
struct Span {
    double left;
    double right;
    int index;
    bool inFirst;
};

std::vector<Span> PresentSpans(const QWorldPolyWithHeightRangeSet& set, bool inFirst) {
    std::vector<Span> spans;
    for (int i = 0; i < set.GetCount(); ++i) {
        if (!set[i].IsPresent())
            continue;
        const Box box = set[i].GetBoundingBox();
        spans.push_back({box.left.GetRaw(), box.right.GetRaw(), i, inFirst});
    }
    return spans;
}

// Two spans are candidates unless one ends before the other begins by Eps or more, which is
// when the polygon test would find their bounds apart.
std::vector<QWorldPolyWithHeightRangeSet::Collision>
CandidatePairs(const QWorldPolyWithHeightRangeSet& a, const QWorldPolyWithHeightRangeSet& b) {
    std::vector<Span> spans = PresentSpans(a, true);
    const std::vector<Span> second = PresentSpans(b, false);
    spans.insert(spans.end(), second.begin(), second.end());
    std::stable_sort(spans.begin(), spans.end(),
                     [](const Span& x, const Span& y) { return x.left < y.left; });
    std::vector<QWorldPolyWithHeightRangeSet::Collision> pairs;
    std::vector<Span> open[2];
    for (const Span& span : spans) {
        for (std::vector<Span>& list : open)
            std::erase_if(list,
                          [&](const Span& o) { return o.right - span.left <= -QLength::Eps; });
        for (const Span& other : open[span.inFirst ? 1 : 0])
            pairs.push_back(span.inFirst
                                ? QWorldPolyWithHeightRangeSet::Collision{span.index, other.index}
                                : QWorldPolyWithHeightRangeSet::Collision{other.index, span.index});
        open[span.inFirst ? 0 : 1].push_back(span);
    }
    std::sort(pairs.begin(), pairs.end(), [](const auto& x, const auto& y) {
        return x.first != y.first ? x.first < y.first : x.second < y.second;
    });
    return pairs;
}

} // namespace

TRect3D<QLength, c_worldSpace> QWorldPolyWithHeightRangeSet::GetOverallBoundingBox() const {
    if (IsEmpty())
        return {};
    Box box = GetAt(0).GetBoundingBox();
    for (int i = 1; i < GetCount(); ++i)
        WidenBy(box, GetAt(i).GetBoundingBox());
    return box;
}

void QWorldPolyWithHeightRangeSet::SetNotPresentIfOutside(const Box& box) const {
    for (const QWorldPolyWithHeightRange& element : *this)
        element.SetPresent(ClassifyBoxes(element.GetBoundingBox(), box) == CROSS);
}

bool QWorldPolyWithHeightRangeSet::CullToPossibleCollisions(const QWorldPolyWithHeightRangeSet& a,
                                                            const QWorldPolyWithHeightRangeSet& b) {
    if (a.IsEmpty() || b.IsEmpty())
        return false;
    const Box boxA = a.GetOverallBoundingBox();
    const Box boxB = b.GetOverallBoundingBox();
    a.SetNotPresentIfOutside(boxB);
    b.SetNotPresentIfOutside(boxA);
    return a.IsAnyPresent() && b.IsAnyPresent();
}

QArray<QWorldPolyWithHeightRangeSet::Collision>
QWorldPolyWithHeightRangeSet::GetCollisions(const QWorldPolyWithHeightRangeSet& a,
                                            const QWorldPolyWithHeightRangeSet& b) {
    a.SetAllPresent();
    b.SetAllPresent();
    QArray<Collision> collisions;
    if (!CullToPossibleCollisions(a, b))
        return collisions;
    for (const Collision& pair : CandidatePairs(a, b))
        if (IsCollision(a[pair.first], b[pair.second]))
            collisions.Add(pair);
    return collisions;
}

QArray<QWorldPolyWithHeightRangeSet::Collision>
QWorldPolyWithHeightRangeSet::GetCollisionsPairwise(const QWorldPolyWithHeightRangeSet& a,
                                                    const QWorldPolyWithHeightRangeSet& b) {
    a.SetAllPresent();
    b.SetAllPresent();
    QArray<Collision> collisions;
    if (!CullToPossibleCollisions(a, b))
        return collisions;
    for (int i = 0; i < a.GetCount(); ++i) {
        if (!a[i].IsPresent())
            continue;
        for (int j = 0; j < b.GetCount(); ++j)
            if (b[j].IsPresent() && IsCollision(a[i], b[j]))
                collisions.Add({i, j});
    }
    return collisions;
}

bool QWorldPolyWithHeightRangeSet::IsAnyCollisions(const QWorldPolyWithHeightRangeSet& a,
                                                   const QWorldPolyWithHeightRangeSet& b) {
    return !GetCollisions(a, b).IsEmpty();
}

bool QWorldPolyWithHeightRangeSet::IsAnyPresent() const {
    return std::any_of(begin(), end(), [](const auto& element) { return element.IsPresent(); });
}

void QWorldPolyWithHeightRangeSet::SetAllPresent() const {
    for (const QWorldPolyWithHeightRange& element : *this)
        element.SetPresent(true);
}

bool QWorldPolyWithHeightRangeSet::FullyContains(const QWorldPolyWithHeightRange& poly) const {
    return std::any_of(begin(), end(),
                       [&](const auto& element) { return element.FullyContains(poly); });
}

void QWorldPolyWithHeightRangeSet::RemoveFullyContainedBy(const QWorldPolyWithHeightRange& poly) {
    for (int i = GetCount() - 1; i >= 0; --i)
        if (poly.FullyContains(GetAt(i)))
            RemoveAt(i);
}

void QWorldPolyWithHeightRangeSet::Merge(const QWorldPolyWithHeightRangeSet& other) {
    for (const QWorldPolyWithHeightRange& element : other)
        if (std::none_of(begin(), end(), [&](const auto& mine) { return mine == element; }))
            Add(element);
}

void QWorldPolyWithHeightRangeSet::Move(const TPoint3D<QLength, c_worldSpace>& by) {
    for (QWorldPolyWithHeightRange& element : *this) {
        element.m_poly.Move({by.x, by.y});
        element.Top += by.z;
        element.Bottom += by.z;
    }
}

QWorldPolyWithHeightRangeSet QWorldPolyWithHeightRangeSet::Rotated2D(const QAngle& angle) const {
    const double c = angle.Cos();
    const double s = angle.Sin();
    QWorldPolyWithHeightRangeSet rotated(*this);
    for (QWorldPolyWithHeightRange& element : rotated) {
        QWorldPoly& poly = element.m_poly;
        for (int i = 0; i < poly.GetCount(); ++i) {
            QWorldPoly::Point& vertex = poly.ElementAt(i);
            const QWorldPoly::Point turned(vertex.x * c - vertex.y * s,
                                           vertex.y * c + vertex.x * s);
            vertex = turned;
        }
    }
    return rotated;
}

} // namespace keel
