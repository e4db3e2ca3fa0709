#include "tests/support/geometry.h"

#include "keel/geometry/tpoly.h"

#include <cmath>
#include <gtest/gtest.h>

namespace keel {

namespace {

using test::Poly;
using test::Pt;
using test::VerticesNear;
using test::XY;

QLength Raw(double value) {
    return QLength::FromRaw(value);
}

TEST(MakeQuadTest, ReplacesWhatThePolygonHeldAndItsBounds) {
    QWorldPoly poly = Poly({{-50, -50}, {90, 0}, {0, 90}, {1, 1}, {2, 2}});
    ASSERT_EQ(poly.GetBounds().left.GetRaw(), -50);
    MakeQuad(poly, Pt(1, 2), Pt(3, 2), Pt(3, 4), Pt(1, 4));
    EXPECT_TRUE(VerticesNear(poly, {{1, 2}, {3, 2}, {3, 4}, {1, 4}}, 0));
    EXPECT_EQ(poly.GetBounds().left.GetRaw(), 1) << "bounds of the old vertices were kept";
    EXPECT_EQ(poly.GetBounds().right.GetRaw(), 3);
    EXPECT_EQ(poly.Orientation(), 1);
}

// For any line, each corner lies at its width to the left of the line and a third of the way in
// from its end, and the quad turns clockwise when w1 is the smaller width.
TEST(MakeOrthoQuadTest, EveryLineGivesARectangleOnItsMiddleThird) {
    const std::pair<XY, XY> lines[] = {{{0, 0}, {100, 0}},
                                       {{-20, 35}, {41, -7}},
                                       {{5, 5}, {5, -300}},
                                       {{1e4, 2e4}, {1e4 + 3, 2e4 + 4}},
                                       {{-60, -60}, {-90, 80}}};
    for (const auto& [a, b] : lines) {
        for (const auto& [w1, w2] : {std::pair{-3.0, 4.5}, {12.0, 2.0}}) {
            SCOPED_TRACE(testing::Message() << a.first << "," << a.second << " w1 " << w1);
            QWorldPoly poly;
            MakeOrthoQuad(poly, Pt(a.first, a.second), Pt(b.first, b.second), Raw(w1), Raw(w2));
            const double dx = b.first - a.first;
            const double dy = b.second - a.second;
            const double length = std::hypot(dx, dy);
            const double widths[] = {w1, w2, w2, w1};
            const double along[] = {1.0 / 3, 1.0 / 3, 2.0 / 3, 2.0 / 3};
            for (int i = 0; i < 4; ++i) {
                const double px = poly.Vertex(i).x.GetRaw() - a.first;
                const double py = poly.Vertex(i).y.GetRaw() - a.second;
                EXPECT_NEAR((dx * py - dy * px) / length, widths[i], 1e-9) << "vertex " << i;
                EXPECT_NEAR((dx * px + dy * py) / (length * length), along[i], 1e-9)
                    << "vertex " << i;
            }
            EXPECT_EQ(poly.Orientation(), w1 < w2 ? -1 : 1);
        }
    }
}

} // namespace

} // namespace keel
