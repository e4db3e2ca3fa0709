#include "keel/geometry/drawpoly.h"

#include <cmath>
#include <vector>

namespace keel {

namespace {

std::span<const QClientPoint> Span(const QArray<QLogicalPoint>& points) {
    return {points.GetData(), static_cast<std::size_t>(points.GetCount())};
}

QClientPoint Logical(const QPagePoint& page) {
    return {LogicalUnits(page.x), LogicalUnits(page.y)};
}

void Edges(QDeviceContext& dc, const QArray<QLogicalPoint>& points,
           std::span<const std::uint8_t> types) {
    if (types.empty())
        dc.Polyline(Span(points));
    else
        dc.PolyDraw(Span(points), types);
}

void Curved(QDeviceContext& dc, const QArray<QLogicalPoint>& points) {
    const int count = points.GetCount();
    if (count < 2)
        return;
    const int drawn = (count - 1) / 3 * 3 + 1;
    if (drawn >= 4)
        dc.PolyBezier(Span(points).first(static_cast<std::size_t>(drawn)));
    const QClientPoint last = points[drawn - 1];
    if (count - drawn == 1) {
        const QClientPoint line[] = {last, points[drawn]};
        dc.Polyline(line);
    } else if (count - drawn == 2) {
        const QClientPoint curve[] = {last, points[drawn], points[drawn], points[drawn + 1]};
        dc.PolyBezier(curve);
    }
}

// The three corners of an arrow head in raw units: tip, and the two base corners.
struct ArrowHead {
    double tipX, tipY, leftX, leftY, rightX, rightY;
};

ArrowHead HeadOf(double tipX, double tipY, double tailX, double tailY, double length,
                 double width) {
    const double angle = std::atan2(tipY - tailY, tipX - tailX);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double baseX = tipX - length * c;
    const double baseY = tipY - length * s;
    const double half = width / 2;
    // Plus90 of the direction is (-sin, cos), Minus90 (sin, -cos).
    return {tipX, tipY, baseX - half * s, baseY + half * c, baseX + half * s, baseY - half * c};
}

void StrokeHead(QDeviceContext& dc, const ArrowHead& head, double divisor) {
    const auto point = [divisor](double x, double y) {
        return Logical(QPagePoint(QLength::FromRaw(x / divisor), QLength::FromRaw(y / divisor)));
    };
    dc.MoveTo(point(head.tipX, head.tipY));
    dc.LineTo(point(head.leftX, head.leftY));
    dc.LineTo(point(head.rightX, head.rightY));
    dc.LineTo(point(head.tipX, head.tipY));
}

void Arrows(QDeviceContext& dc, const QPagePoly& poly, bool atStart, bool atEnd,
            const QLength& length, const QLength& width) {
    const int count = poly.GetCount();
    if (count < 2)
        return;
    if (atStart)
        DrawArrow(dc, poly.Vertex(0), poly.Vertex(1), length, width);
    if (atEnd)
        DrawArrow(dc, poly.Vertex(count - 1), poly.Vertex(count - 2), length, width);
}

} // namespace

void DrawPoly(QDeviceContext& dc, const QPagePoly& poly) {
    dc.Polygon(Span(LogicalPoints(poly)));
}

void DrawPoly(QDeviceContext& dc, const QWorldPoly& poly, double scale) {
    dc.Polygon(Span(LogicalPoints(poly, scale)));
}

void DrawPoly(QDeviceContext& dc, const QWorldPoly& poly, double scaleX, double scaleY) {
    dc.Polygon(Span(LogicalPoints(poly, scaleX, scaleY)));
}

void DrawEdges(QDeviceContext& dc, const QPagePoly& poly, std::span<const std::uint8_t> types) {
    Edges(dc, LogicalPoints(poly), types);
}

void DrawEdges(QDeviceContext& dc, const QWorldPoly& poly, double scale,
               std::span<const std::uint8_t> types) {
    Edges(dc, LogicalPoints(poly, scale), types);
}

void DrawCurved(QDeviceContext& dc, const QPagePoly& poly) {
    Curved(dc, LogicalPoints(poly));
}

void DrawCurved(QDeviceContext& dc, const QWorldPoly& poly, double scale) {
    Curved(dc, LogicalPoints(poly, scale));
}

void DrawArrow(QDeviceContext& dc, const QPagePoint& tip, const QPagePoint& tail,
               const QLength& length, const QLength& width) {
    StrokeHead(dc,
               HeadOf(tip.x.GetRaw(), tip.y.GetRaw(), tail.x.GetRaw(), tail.y.GetRaw(),
                      length.GetRaw(), width.GetRaw()),
               1.0);
}

void DrawArrow(QDeviceContext& dc, const QWorldPoint& tip, const QWorldPoint& tail,
               const QLength& length, const QLength& width, double scale) {
    StrokeHead(dc,
               HeadOf(tip.x.GetRaw(), tip.y.GetRaw(), tail.x.GetRaw(), tail.y.GetRaw(),
                      length.GetRaw(), width.GetRaw()),
               scale);
}

void DrawEdgesWithArrows(QDeviceContext& dc, const QPagePoly& poly, bool atStart, bool atEnd,
                         const QLength& length, const QLength& width) {
    DrawEdges(dc, poly);
    Arrows(dc, poly, atStart, atEnd, length, width);
}

void DrawCurvedWithArrows(QDeviceContext& dc, const QPagePoly& poly, bool atStart, bool atEnd,
                          const QLength& length, const QLength& width) {
    DrawCurved(dc, poly);
    Arrows(dc, poly, atStart, atEnd, length, width);
}

} // namespace keel
