#pragma once

#include "keel/geometry/devicecontext.h"
#include "keel/geometry/pagedoc.h"
#include "keel/geometry/tpoly.h"

#include <cstdint>
#include <span>

namespace keel {

// Polygons go to a context as integer logical points: hundredths of a page millimetre, a world
// polygon divided by its scale first (or x and y by one scale each).

// Closed and filled; an empty polygon draws nothing.
void DrawPoly(QDeviceContext& dc, const QPagePoly& poly);
void DrawPoly(QDeviceContext& dc, const QWorldPoly& poly, double scale);
void DrawPoly(QDeviceContext& dc, const QWorldPoly& poly, double scaleX, double scaleY);
// The open path; with types, one PT_ type a vertex.
void DrawEdges(QDeviceContext& dc, const QPagePoly& poly, std::span<const std::uint8_t> types = {});
void DrawEdges(QDeviceContext& dc, const QWorldPoly& poly, double scale,
               std::span<const std::uint8_t> types = {});
// Cubic curves through the first ((n-1)/3)*3+1 vertices; one vertex left over is joined by a
// straight line, two by one more curve.
void DrawCurved(QDeviceContext& dc, const QPagePoly& poly);
void DrawCurved(QDeviceContext& dc, const QWorldPoly& poly, double scale);
// The outline tip, corner, corner, tip of an arrow head `length` long and `width` wide.
void DrawArrow(QDeviceContext& dc, const QPagePoint& tip, const QPagePoint& tail,
               const QLength& length, const QLength& width);
// The same measured in world units, each point then taken to the page.
void DrawArrow(QDeviceContext& dc, const QWorldPoint& tip, const QWorldPoint& tail,
               const QLength& length, const QLength& width, double scale);
// The shape and, with two vertices or more, an arrow at the start along the first edge and at
// the end along the last, as asked.
void DrawEdgesWithArrows(QDeviceContext& dc, const QPagePoly& poly, bool atStart, bool atEnd,
                         const QLength& length, const QLength& width);
void DrawCurvedWithArrows(QDeviceContext& dc, const QPagePoly& poly, bool atStart, bool atEnd,
                          const QLength& length, const QLength& width);

} // namespace keel
