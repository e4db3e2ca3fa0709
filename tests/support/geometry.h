#pragma once

#include "keel/geometry/polytext.h"
#include "keel/geometry/tpoly.h"

#include <cmath>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <utility>

namespace keel::test {

using XY = std::pair<double, double>;
using WPoint = QWorldPoly::Point;

inline WPoint Pt(double x, double y) {
    return WPoint(QLength::FromRaw(x), QLength::FromRaw(y));
}

// A vertex's raw coordinates.
struct RawXY {
    explicit RawXY(const WPoint& point) : x(point.x.GetRaw()), y(point.y.GetRaw()) {}
    double x;
    double y;
};

// A world polygon of raw coordinates (millimetres).
inline QWorldPoly Poly(std::initializer_list<XY> vertices) {
    QWorldPoly poly;
    for (const auto& [x, y] : vertices)
        poly.Add(Pt(x, y));
    return poly;
}

// The vertices as text, for messages and for comparing whole polygons.
inline std::string Text(const QWorldPoly& poly) {
    return WritePolyText(poly);
}

// Twice the signed area by the shoelace sum: positive when the vertices run counter-clockwise
// with y upward.
inline double TwiceSignedArea(const QWorldPoly& poly) {
    double sum = 0;
    for (int i = 0; i < poly.GetCount(); ++i) {
        const WPoint& a = poly.Vertex(i);
        const WPoint& b = poly.Vertex(i + 1);
        sum += a.x.GetRaw() * b.y.GetRaw() - b.x.GetRaw() * a.y.GetRaw();
    }
    return sum;
}

// Every vertex within `tolerance` of the expected one, in order.
inline ::testing::AssertionResult
VerticesNear(const QWorldPoly& poly, std::initializer_list<XY> expected, double tolerance = 1e-9) {
    if (poly.GetCount() != static_cast<int>(expected.size()))
        return ::testing::AssertionFailure()
               << poly.GetCount() << " vertices, not " << expected.size() << ": " << Text(poly);
    int i = 0;
    for (const auto& [x, y] : expected) {
        const WPoint& vertex = poly.Vertex(i);
        if (std::abs(vertex.x.GetRaw() - x) > tolerance ||
            std::abs(vertex.y.GetRaw() - y) > tolerance)
            return ::testing::AssertionFailure()
                   << "vertex " << i << " is " << vertex.x.GetRaw() << "," << vertex.y.GetRaw()
                   << ", not " << x << "," << y << ": " << Text(poly);
        ++i;
    }
    return ::testing::AssertionSuccess();
}

} // namespace keel::test
