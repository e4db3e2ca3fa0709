#include "keel/geometry/worldpolywithheightrangeset.h"

#include "keel/geometry/classify.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
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

// A present element's box, for the sweep along x, and the bands down the page it lies in.
struct Span {
    double left;
    double right;
    double top;
    double bottom;
    double low;
    double high;
    int index;
    bool inFirst;
    int firstBand = 0;
    int lastBand = 0;
};

void AddPresentSpans(const QWorldPolyWithHeightRangeSet& set, bool inFirst,
                     std::vector<Span>& spans) {
    for (int i = 0; i < set.GetCount(); ++i) {
        if (!set[i].IsPresent())
            continue;
        const QWorldPoly::Rect& plan = set[i].Poly().GetBounds();
        spans.push_back({plan.left.GetRaw(), plan.right.GetRaw(), plan.top.GetRaw(),
                         plan.bottom.GetRaw(), set[i].Bottom.GetRaw(), set[i].Top.GetRaw(), i,
                         inFirst});
    }
}

// Whether the prism test could find a crossing: the heights overlap by Eps, and the plans'
// bounds are not apart by Eps down the page (a point apart from a polygon's bounds is outside it
// too). Across the page the sweep has seen to that.
bool MayCross(const Span& a, const Span& b) {
    using tolerance::Less;
    return Less(a.low, b.high) && Less(b.low, a.high) && !Less(b.bottom, a.top) &&
           !Less(a.bottom, b.top);
}

// Horizontal bands of equal height over all the spans, about twice as high as a span on
// average, so that a span meets only the others of the bands it lies in. Each span is given the
// bands its extent, widened by Eps, lies in; there are fewer bands when the spans would lie in
// more than eight bands each on average.
int AssignBands(std::vector<Span>& spans) {
    double top = spans.front().top, bottom = spans.front().bottom, heights = 0;
    for (const Span& span : spans) {
        top = std::min(top, span.top);
        bottom = std::max(bottom, span.bottom);
        heights += span.bottom - span.top;
    }
    const double extent = bottom - top + 2 * QLength::Eps;
    const double wanted = 2 * heights / static_cast<double>(spans.size()) + QLength::Eps;
    int count = static_cast<int>(std::clamp(extent / wanted, 1.0, 4096.0));
    for (;; count = std::max(1, count / 2)) {
        const double height = extent / count;
        const auto band = [&](double y) {
            return std::clamp(static_cast<int>((y - top + QLength::Eps) / height), 0, count - 1);
        };
        std::size_t covered = 0;
        for (Span& span : spans) {
            span.firstBand = band(span.top - QLength::Eps);
            span.lastBand = band(span.bottom + QLength::Eps);
            covered += static_cast<std::size_t>(span.lastBand - span.firstBand + 1);
        }
        if (count == 1 || covered <= 8 * spans.size())
            return count;
    }
}

using Collision = QWorldPolyWithHeightRangeSet::Collision;

// Two spans are candidates unless one ends before the other begins by Eps or more, which is
// when the polygon test would find their bounds apart, or MayCross rules them out. The spans
// are swept along x; each band keeps the spans of each set that may still meet what comes (in
// no order: the pairs are sorted at the end), thinned as it is read. A pair that shares several
// bands is taken in the first of them.
std::vector<Collision> CandidatePairs(const QWorldPolyWithHeightRangeSet& a,
                                      const QWorldPolyWithHeightRangeSet& b) {
    std::vector<Span> spans;
    spans.reserve(static_cast<std::size_t>(a.GetCount() + b.GetCount()));
    AddPresentSpans(a, true, spans);
    AddPresentSpans(b, false, spans);
    std::vector<Collision> pairs;
    if (spans.empty())
        return pairs;
    const int bands = AssignBands(spans);
    std::vector<std::uint32_t> order(spans.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](std::uint32_t x, std::uint32_t y) {
        return spans[x].left != spans[y].left ? spans[x].left < spans[y].left : x < y;
    });
    std::vector<std::vector<const Span*>> open[2];
    open[0].resize(static_cast<std::size_t>(bands));
    open[1].resize(static_cast<std::size_t>(bands));
    for (const std::uint32_t position : order) {
        const Span& span = spans[position];
        for (int band = span.firstBand; band <= span.lastBand; ++band) {
            std::vector<const Span*>& others = open[span.inFirst ? 1 : 0][band];
            for (std::size_t k = 0; k < others.size();) {
                const Span& other = *others[k];
                if (tolerance::Less(other.right, span.left)) {
                    others[k] = others.back();
                    others.pop_back();
                    continue;
                }
                if (band == std::max(span.firstBand, other.firstBand) && MayCross(span, other))
                    pairs.push_back(span.inFirst ? Collision{span.index, other.index}
                                                 : Collision{other.index, span.index});
                ++k;
            }
            open[span.inFirst ? 0 : 1][band].push_back(&span);
        }
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
