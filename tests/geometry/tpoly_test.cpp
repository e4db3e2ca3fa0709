#include "tests/support/geometry.h"

#include "keel/geometry/tpoly.h"

#include <gtest/gtest.h>

namespace keel {

namespace {

using test::Poly;
using test::Pt;
using test::Text;
using test::VerticesNear;

// Random simple polygons are compared with the sign of their area elsewhere, and reversing and
// mirroring a square are in the cases; these are the corners that repeat or lie on a line.
TEST(PolyOrientationTest, RepeatedAndCollinearCornersStillGiveTheSignOfTheArea) {
    const QWorldPoly polys[] = {
        Poly({{0, 0}, {0, 0}, {10, 0}, {10, 0}, {10, 10}, {0, 10}}),
        Poly({{0, 0}, {5, 0}, {10, 0}, {10, 5}, {10, 10}, {5, 10}, {0, 10}, {0, 5}}),
        Poly({{0, 0}, {1000, 1}, {2000, 0}, {1000, 500}}),
    };
    for (const QWorldPoly& original : polys) {
        const int sign = test::TwiceSignedArea(original) > 0 ? 1 : -1;
        EXPECT_EQ(original.Orientation(), sign) << Text(original);
        QWorldPoly reversed = original;
        reversed.Reverse();
        QWorldPoly fresh = Poly({});
        fresh.Append(reversed, false);
        EXPECT_EQ(fresh.Orientation(), -sign) << "computed again, " << Text(original);
    }
}

TEST(PolyTest, EdgeMeasuresAndTheCentreOfVertices) {
    const QWorldPoly poly = Poly({{0, 0}, {3, 4}, {3, 10}, {-2, 10}});
    EXPECT_DOUBLE_EQ(poly.EdgeLength(0).GetRaw(), 5);
    EXPECT_DOUBLE_EQ(poly.EdgeLength(-1).GetRaw(), std::hypot(2, 10));
    EXPECT_DOUBLE_EQ(poly.EdgeAngle(1).GetRaw(), 90);
    EXPECT_DOUBLE_EQ(poly.EdgeAngle(2).GetRaw(), 180);
    EXPECT_EQ(poly.EdgeMidpoint(3), Pt(-1, 5));
    EXPECT_EQ(poly.VertexCentre(), Pt(1, 6));
    EXPECT_EQ(QWorldPoly().EdgeLength(3), QLength::Zero);
    EXPECT_EQ(QWorldPoly().VertexCentre(), Pt(0, 0));
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

} // namespace

} // namespace keel
