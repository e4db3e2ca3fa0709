#pragma once

#include "keel/geometry/polytext.h"
#include "keel/geometry/tpoly.h"
#include "keel/geometry/worldpolywithheightrange.h"

#include <cmath>
#include <gtest/gtest.h>
#include <initializer_list>
#include <random>
#include <sstream>
#include <string>
#include <utility>

namespace keel::test {

using XY = std::pair<double, double>;
using WPoint = QWorldPoly::Point;

inline const char* ClassName(CROSSTOUCHDISJOINT value) {
    switch (value) {
    case CROSS:
        return "cross";
    case TOUCH:
        return "touch";
    case DISJOINT:
        return "disjoint";
    }
    return "?";
}

inline WPoint Pt(double x, double y) {
    return WPoint(QLength::FromRaw(x), QLength::FromRaw(y));
}

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

// A box as "left,top,low right,bottom,high", raw.
inline std::string BoxText(const TRect3D<QLength, c_worldSpace>& box) {
    std::ostringstream text;
    text << box.left.GetRaw() << "," << box.top.GetRaw() << "," << box.low.GetRaw() << " "
         << box.right.GetRaw() << "," << box.bottom.GetRaw() << "," << box.high.GetRaw();
    return text.str();
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

// A polygon of points "x,y" separated by spaces, of any count: "0,0 100,0 100,100".
inline QWorldPoly PolyOf(const std::string& text) {
    QWorldPoly poly;
    std::istringstream points(text);
    double x = 0;
    double y = 0;
    char comma = 0;
    while (points >> x >> comma >> y)
        poly.Add(Pt(x, y));
    EXPECT_TRUE(points.eof() && comma == ',') << "not a list of points: " << text;
    return poly;
}

inline QWorldPoly Reversed(QWorldPoly poly) {
    poly.Reverse();
    return poly;
}

inline QWorldPolyWithHeightRange Prism(const QWorldPoly& plan, double bottom, double top) {
    return QWorldPolyWithHeightRange(plan, QLength::FromRaw(top), QLength::FromRaw(bottom));
}

// Polygons of 3 to 6 vertices on a grid of 10 mm, 13 lines each way from `origin`, often
// self-crossing. On so small a grid no two directions between grid points are near enough to be
// taken as parallel, so every answer is a plain geometric one.
class GridPolygons {
public:
    explicit GridPolygons(unsigned seed) : m_random(seed) {}

    QWorldPoly Next(double originX = 0, double originY = 0) {
        const int count = std::uniform_int_distribution<int>(3, 6)(m_random);
        QWorldPoly poly;
        for (int i = 0; i < count; ++i)
            poly.Add(Pt(originX + 10.0 * Coordinate(), originY + 10.0 * Coordinate()));
        return poly;
    }
    // An axis-parallel rectangle at least one step wide and high.
    QWorldPoly NextRectangle() {
        const int left = Coordinate() % 12;
        const int top = Coordinate() % 12;
        const int right = left + 1 + Coordinate() % (12 - left);
        const int bottom = top + 1 + Coordinate() % (12 - top);
        return Poly({{10.0 * left, 10.0 * top},
                     {10.0 * right, 10.0 * top},
                     {10.0 * right, 10.0 * bottom},
                     {10.0 * left, 10.0 * bottom}});
    }
    int Coordinate() { return std::uniform_int_distribution<int>(0, 12)(m_random); }
    std::mt19937& Random() { return m_random; }

private:
    std::mt19937 m_random;
};

} // namespace keel::test
