#include "tests/support/geometry.h"

#include "keel/geometry/classify.h"
#include "keel/geometry/tpoly.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

using test::GridPolygons;
using test::Poly;
using test::PolyOf;
using test::Pt;
using test::Reversed;
using test::Text;
using test::XY;

const char* Name(CROSSTOUCHDISJOINT value) {
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

const char* const c_square = "0,0 100,0 100,100 0,100";
const char* const c_ell = "0,0 100,0 100,50 50,50 50,100 0,100";
const char* const c_triangle = "0,0 100,0 0,100";

TEST(ClassifyPointTest, InsideOnOrOutsideRings) {
    const struct {
        const char* poly;
        double x;
        double y;
        CROSSTOUCHDISJOINT expected;
    } rows[] = {
        {c_square, 50, 50, CROSS},
        {c_square, 0, 0, TOUCH},          // a vertex
        {c_square, 100, 100, TOUCH},      // the last vertex's neighbour
        {c_square, 50, 0, TOUCH},         // a horizontal edge
        {c_square, 50, 100, TOUCH},       // the closing side's horizontal neighbour
        {c_square, 100, 50, TOUCH},       // a vertical edge
        {c_square, 0, 50, TOUCH},         // the closing edge
        {c_square, 50, 0.0099, TOUCH},    // within the tolerance of the edge
        {c_square, 50, 0.011, CROSS},     // just beyond it, inside
        {c_square, 50, -0.0099, TOUCH},   // within the tolerance, outside the bounds by less
        {c_square, 50, -0.011, DISJOINT}, // outside the bounds
        {c_square, 150, 50, DISJOINT},
        {c_ell, 25, 25, CROSS},
        {c_ell, 75, 25, CROSS},
        {c_ell, 75, 75, DISJOINT}, // in the bounds, in the notch
        {c_ell, 50, 75, TOUCH},
        {c_ell, 75, 50, TOUCH},
        {c_ell, 50, 50, TOUCH}, // the inner corner
        {c_triangle, 30, 30, CROSS},
        {c_triangle, 50, 50, TOUCH}, // on the slanting edge: the diagonal step decides
        {c_triangle, 60, 60, DISJOINT},
        {c_triangle, 70, 10, CROSS},
        {c_triangle, 70, 40, DISJOINT},
    };
    for (const auto& row : rows) {
        const QWorldPoly poly = PolyOf(row.poly);
        const std::string where =
            std::string(row.poly) + " at " + std::to_string(row.x) + "," + std::to_string(row.y);
        EXPECT_STREQ(Name(poly.ClassifyPoint(Pt(row.x, row.y))), Name(row.expected)) << where;
        EXPECT_STREQ(Name(Reversed(poly).ClassifyPoint(Pt(row.x, row.y))), Name(row.expected))
            << where << " reversed";
    }
}

TEST(ClassifyPointTest, PolygonsOfFewerThanThreeVertices) {
    const QWorldPoly none;
    const QWorldPoly one = Poly({{10, 10}});
    const QWorldPoly two = Poly({{0, 0}, {100, 0}});
    const QWorldPoly slanted = Poly({{0, 0}, {100, 50}});
    const struct {
        const QWorldPoly* poly;
        double x;
        double y;
        CROSSTOUCHDISJOINT expected;
    } rows[] = {
        {&none, 0, 0, DISJOINT},        {&one, 10, 10, TOUCH},     {&one, 10.0099, 10, TOUCH},
        {&one, 10.011, 10, DISJOINT},   {&two, 50, 0, TOUCH},      {&two, 0, 0, TOUCH},
        {&two, 100, 0, TOUCH},          {&two, 150, 0, DISJOINT},  {&two, -0.011, 0, DISJOINT},
        {&two, 50, 1, DISJOINT},        {&slanted, 50, 25, TOUCH}, {&slanted, 50, 26, DISJOINT},
        {&slanted, 200, 100, DISJOINT},
    };
    for (const auto& row : rows)
        EXPECT_STREQ(Name(row.poly->ClassifyPoint(Pt(row.x, row.y))), Name(row.expected))
            << Text(*row.poly) << " at " << row.x << "," << row.y;
}

TEST(PositionOnSegmentTest, EndsBetweenAndBeyondAlongEitherAxis) {
    const struct {
        XY p, a, b;
        int expected;
    } rows[] = {
        {{0, 0}, {0, 0}, {100, 0}, 0},        {{100, 0}, {0, 0}, {100, 0}, 0},
        {{50, 0}, {0, 0}, {100, 0}, -1},      {{50, 0}, {100, 0}, {0, 0}, -1},
        {{150, 0}, {0, 0}, {100, 0}, 1},      {{-50, 0}, {0, 0}, {100, 0}, 1},
        {{-50, 0}, {100, 0}, {0, 0}, 1},      {{0, 50}, {0, 0}, {0, 100}, -1}, // by y
        {{0, 150}, {0, 0}, {0, 100}, 1},      {{0, -0.011}, {0, 0}, {0, 100}, 1},
        {{100.0099, 0}, {0, 0}, {100, 0}, 0}, {{100.011, 0}, {0, 0}, {100, 0}, 1},
    };
    for (const auto& row : rows)
        EXPECT_EQ(PositionOnSegment(Pt(row.p.first, row.p.second), Pt(row.a.first, row.a.second),
                                    Pt(row.b.first, row.b.second)),
                  row.expected)
            << row.p.first << "," << row.p.second << " on " << row.a.first << "," << row.a.second
            << " to " << row.b.first << "," << row.b.second;
}

TEST(ClassifySegmentsTest, CrossingTouchingAndApart) {
    const struct {
        const char* name;
        XY a, b, c, d;
        CROSSTOUCHDISJOINT expected;
    } rows[] = {
        {"an X", {0, 0}, {100, 100}, {0, 100}, {100, 0}, CROSS},
        {"a T", {0, 0}, {100, 0}, {50, 0}, {50, 100}, TOUCH},
        {"a T upside down", {50, 0}, {50, 100}, {0, 0}, {100, 0}, TOUCH},
        {"a shared end", {0, 0}, {100, 0}, {100, 0}, {100, 100}, TOUCH},
        {"collinear, overlapping", {0, 0}, {100, 0}, {50, 0}, {150, 0}, TOUCH},
        {"collinear, apart", {0, 0}, {100, 0}, {150, 0}, {200, 0}, DISJOINT},
        {"parallel", {0, 0}, {100, 0}, {0, 10}, {100, 10}, DISJOINT},
        {"lines cross beyond the ends", {0, 0}, {10, 10}, {30, 0}, {20, 10}, DISJOINT},
        {"a T within the tolerance", {0, 0}, {100, 0}, {50, 0.0099}, {50, 100}, TOUCH},
        {"a T just short", {0, 0}, {100, 0}, {50, 0.011}, {50, 100}, DISJOINT},
    };
    for (const auto& row : rows) {
        const auto pt = [](const XY& xy) { return Pt(xy.first, xy.second); };
        EXPECT_STREQ(Name(ClassifySegments(pt(row.a), pt(row.b), pt(row.c), pt(row.d))),
                     Name(row.expected))
            << row.name;
        EXPECT_STREQ(Name(ClassifySegments(pt(row.c), pt(row.d), pt(row.b), pt(row.a))),
                     Name(row.expected))
            << row.name << ", the other way round";
    }
}

TEST(ClassifySegmentTest, AgainstBoundsThenEdgesThenInside) {
    const QWorldPoly::Rect bounds(QLength::FromRaw(0), QLength::FromRaw(0), QLength::FromRaw(100),
                                  QLength::FromRaw(100));
    const struct {
        const char* poly; // empty: the bounds alone
        XY a, b;
        CROSSTOUCHDISJOINT expected;
    } rows[] = {
        {"", {-10, 50}, {110, 50}, CROSS},  // across
        {"", {50, -10}, {50, 110}, CROSS},  // down
        {"", {-10, 0}, {110, 0}, TOUCH},    // along a side: undecided
        {"", {-10, 50}, {50, 50}, TOUCH},   // ends inside: undecided
        {"", {200, 0}, {300, 0}, DISJOINT}, //
        {"", {-10, -10}, {110, -10}, DISJOINT},
        {c_square, {50, 50}, {60, 60}, CROSS}, // wholly inside
        {c_square, {0, 0}, {100, 100}, CROSS}, // a diagonal: ends on vertices, middle inside
        {c_square, {0, 0}, {100, 0}, TOUCH},   // along an edge
        {c_square, {100, 50}, {150, 50}, TOUCH},
        {c_square, {50, 150}, {150, 50}, TOUCH}, // past the corner, meeting it
        {c_square, {60, 150}, {150, 60}, DISJOINT},
        {c_ell, {0, 100}, {100, 0}, TOUCH},   // a chord through the inner corner only
        {c_ell, {50, 100}, {100, 50}, TOUCH}, // across the notch, outside
        {c_ell, {25, 100}, {100, 25}, CROSS}, // crosses the inner edges
        {c_ell, {0, 50}, {50, 50}, CROSS},    // a chord: ends on the boundary, middle inside
    };
    for (const auto& row : rows) {
        const auto pt = [](const XY& xy) { return Pt(xy.first, xy.second); };
        const std::string name = std::string(row.poly) + ", segment " +
                                 std::to_string(row.a.first) + "," + std::to_string(row.a.second);
        if (*row.poly == '\0') {
            EXPECT_STREQ(Name(ClassifySegmentAndBounds(pt(row.a), pt(row.b), bounds)),
                         Name(row.expected))
                << name;
            continue;
        }
        const QWorldPoly poly = PolyOf(row.poly);
        EXPECT_STREQ(Name(poly.ClassifySegment(pt(row.a), pt(row.b))), Name(row.expected)) << name;
        EXPECT_STREQ(Name(poly.ClassifySegment(pt(row.b), pt(row.a))), Name(row.expected))
            << name << " reversed";
    }
}

TEST(ClassifySegmentTest, AgainstPolygonsOfNoneOrOneVertex) {
    const QWorldPoly one = Poly({{50, 0}});
    EXPECT_EQ(QWorldPoly().ClassifySegment(Pt(0, 0), Pt(100, 0)), DISJOINT);
    EXPECT_EQ(one.ClassifySegment(Pt(0, 0), Pt(100, 0)), TOUCH);
    EXPECT_EQ(one.ClassifySegment(Pt(50, 0), Pt(100, 0)), TOUCH);
    EXPECT_EQ(one.ClassifySegment(Pt(60, 0), Pt(100, 0)), DISJOINT);
    EXPECT_EQ(one.ClassifySegment(Pt(0, 10), Pt(100, 10)), DISJOINT);
}

TEST(ClassifyPolygonsTest, TheCasesThatDecide) {
    const struct {
        const char* name;
        const char* a;
        const char* b;
        CROSSTOUCHDISJOINT expected;
    } rows[] = {
        {"overlapping squares", c_square, "50,50 150,50 150,150 50,150", CROSS},
        {"a shared edge", c_square, "100,0 200,0 200,100 100,100", TOUCH},
        {"a shared vertex", c_square, "100,100 200,100 200,200 100,200", TOUCH},
        {"a gap of 0.0099", c_square, "100.0099,0 200,0 200,100 100.0099,100", TOUCH},
        {"a gap of 0.011", c_square, "100.011,0 200,0 200,100 100.011,100", DISJOINT},
        {"an overlap of 0.011", c_square, "99.989,0 200,0 200,100 99.989,100", CROSS},
        {"far apart", c_square, "300,0 400,0 400,100 300,100", DISJOINT},
        {"bounds meet, shapes apart", c_triangle, "100,100 100,50 50,100", DISJOINT},
        {"equal", c_square, c_square, CROSS},
        {"equal, reversed", c_square, "0,100 100,100 100,0 0,0", CROSS},
        {"contained, no edge touching", c_square, "25,25 75,25 75,75 25,75", CROSS},
        {"contained in the notch's bounds only", c_ell, "60,60 90,60 90,90 60,90", DISJOINT},
        {"a plus sign", "0,40 100,40 100,60 0,60", "40,0 60,0 60,100 40,100", CROSS},
        {"half of it along three edges", c_square, "0,0 100,0 100,50 0,50", CROSS},
        {"a quarter in the corner", c_square, "0,0 50,0 50,50 0,50", CROSS},
        {"equal thin Ls, vertex centre outside", "0,0 100,0 100,10 10,10 10,100 0,100",
         "0,0 100,0 100,10 10,10 10,100 0,100", TOUCH},
        {"a triangle in the notch", c_ell, "50,50 100,50 50,100", TOUCH},
        {"a point inside", c_square, "50,50", CROSS},
        {"a point on an edge", c_square, "50,0", TOUCH},
        {"a point outside", c_square, "150,50", DISJOINT},
        {"a segment through", c_square, "-50,50 150,50", CROSS},
        {"a segment along an edge", c_square, "0,100 100,100", TOUCH},
    };
    for (const auto& row : rows) {
        const QWorldPoly a = PolyOf(row.a);
        const QWorldPoly b = PolyOf(row.b);
        EXPECT_STREQ(Name(ClassifyPolygons(a, b)), Name(row.expected)) << row.name;
        EXPECT_STREQ(Name(ClassifyPolygons(b, a)), Name(row.expected)) << row.name << ", swapped";
    }
    EXPECT_EQ(ClassifyPolygons(QWorldPoly(), PolyOf(c_square)), DISJOINT);
}

// For two axis-parallel rectangles the answer is known without the algorithm: they cross when
// both ranges overlap by more than a point, touch when the ranges meet without that.
TEST(ClassifyPolygonsTest, RectanglesAgreeWithTheirRanges) {
    GridPolygons grid(11);
    int counts[3] = {};
    for (int i = 0; i < 3000; ++i) {
        const QWorldPoly a = grid.NextRectangle();
        const QWorldPoly b = grid.NextRectangle();
        const QWorldPoly::Rect& ra = a.GetBounds();
        const QWorldPoly::Rect& rb = b.GetBounds();
        const double overlapX = std::min(ra.right.GetRaw(), rb.right.GetRaw()) -
                                std::max(ra.left.GetRaw(), rb.left.GetRaw());
        const double overlapY = std::min(ra.bottom.GetRaw(), rb.bottom.GetRaw()) -
                                std::max(ra.top.GetRaw(), rb.top.GetRaw());
        const CROSSTOUCHDISJOINT expected = overlapX < 0 || overlapY < 0     ? DISJOINT
                                            : overlapX == 0 || overlapY == 0 ? TOUCH
                                                                             : CROSS;
        ++counts[expected + 1];
        ASSERT_STREQ(Name(ClassifyPolygons(a, b)), Name(expected)) << Text(a) << " | " << Text(b);
    }
    for (int count : counts)
        EXPECT_GT(count, 100);
}

// Which polygon is named first, and which way round either runs, changes nothing.
TEST(ClassifyPolygonsTest, SymmetricAndBlindToDirection) {
    GridPolygons grid(7);
    int counts[3] = {};
    for (int i = 0; i < 4000; ++i) {
        const QWorldPoly a = grid.Next();
        const QWorldPoly b =
            grid.Next(10.0 * (grid.Coordinate() - 6), 10.0 * (grid.Coordinate() - 6));
        const CROSSTOUCHDISJOINT forward = ClassifyPolygons(a, b);
        ++counts[forward + 1];
        const std::string pair = Text(a) + " | " + Text(b);
        ASSERT_EQ(ClassifyPolygons(b, a), forward) << pair;
        ASSERT_EQ(ClassifyPolygons(Reversed(a), b), forward) << pair;
        ASSERT_EQ(ClassifyPolygons(a, Reversed(b)), forward) << pair;
        ASSERT_EQ(ClassifyPolygons(Reversed(b), Reversed(a)), forward) << pair;
    }
    for (int count : counts)
        EXPECT_GT(count, 100);
}

TEST(ClassifyPointTest, BlindToDirectionOnGeneratedPolygons) {
    GridPolygons grid(3);
    for (int i = 0; i < 2000; ++i) {
        const QWorldPoly poly = grid.Next();
        const QWorldPoly reversed = Reversed(poly);
        for (int k = 0; k < 10; ++k) {
            const auto point =
                Pt(5.0 * (2 * grid.Coordinate() - 1), 5.0 * (2 * grid.Coordinate() - 1));
            ASSERT_EQ(reversed.ClassifyPoint(point), poly.ClassifyPoint(point)) << Text(poly);
        }
    }
}

TEST(ContainsTest, ByVerticesOnly) {
    const char* const u = "0,0 100,0 100,100 70,100 70,30 30,30 30,100 0,100";
    const struct {
        const char* name;
        const char* outer;
        const char* inner;
        bool loose;
        bool strict;
    } rows[] = {
        {"well inside", c_square, "10,10 50,10 50,50 10,50", true, true},
        {"equal", c_square, c_square, false, false},
        {"sharing a corner", c_square, "0,0 50,0 50,50 0,50", false, false},
        {"sharing an edge's line", c_square, "10,0 50,0 50,50 10,50", true, false},
        {"overlapping", c_square, "50,50 150,50 150,150 50,150", false, false},
        {"around it", "10,10 50,10 50,50 10,50", c_square, false, false},
        {"a bar across the gap of a U", u, "10,80 90,80 90,90 10,90", true, true},
        {"a bar below the gap of a U", u, "10,10 90,10 90,20 10,20", true, true},
    };
    for (const auto& row : rows) {
        const QWorldPoly outer = PolyOf(row.outer);
        const QWorldPoly inner = PolyOf(row.inner);
        EXPECT_EQ(outer.Contains(inner, false), row.loose) << row.name;
        EXPECT_EQ(outer.Contains(inner, true), row.strict) << row.name << ", strict";
    }
    const QWorldPoly square = PolyOf(c_square);
    EXPECT_TRUE(square.Contains(Poly({{50, 50}}), true));
    EXPECT_TRUE(square.Contains(Poly({{50, 0}}), false));
    EXPECT_FALSE(square.Contains(Poly({{50, 0}}), true));
    EXPECT_FALSE(square.Contains(Poly({{150, 0}}), false));
    EXPECT_FALSE(square.Contains(QWorldPoly(), false));
    EXPECT_FALSE(QWorldPoly().Contains(square, false));
}

TEST(ClassifyBoxesTest, FacesEdgesAndCornersTouch) {
    using Box = TRect3D<QLength, c_worldSpace>;
    const auto box = [](double x0, double y0, double z0, double x1, double y1, double z1) {
        const auto l = [](double v) { return QLength::FromRaw(v); };
        return Box({l(x0), l(y0), l(z0)}, {l(x1), l(y1), l(z1)});
    };
    const Box a = box(0, 0, 0, 10, 10, 10);
    const struct {
        const char* name;
        Box b;
        CROSSTOUCHDISJOINT expected;
    } rows[] = {
        {"overlapping", box(5, 5, 5, 15, 15, 15), CROSS},
        {"inside", box(2, 2, 2, 8, 8, 8), CROSS},
        {"a face in x", box(10, 0, 0, 20, 10, 10), TOUCH},
        {"a face in y", box(0, -10, 0, 10, 0, 10), TOUCH},
        {"a face in z, stacked", box(0, 0, 10, 10, 10, 20), TOUCH},
        {"a corner", box(10, 10, 10, 20, 20, 20), TOUCH},
        {"a face within the tolerance", box(10.0099, 0, 0, 20, 10, 10), TOUCH},
        {"overlapping by 0.011", box(9.989, 0, 0, 20, 10, 10), CROSS},
        {"a face's plane, apart in y", box(10, 20, 0, 20, 30, 10), DISJOINT},
        {"apart", box(20, 0, 0, 30, 10, 10), DISJOINT},
        {"a gap of 0.011", box(10.011, 0, 0, 20, 10, 10), DISJOINT},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(Name(ClassifyBoxes(a, row.b)), Name(row.expected)) << row.name;
        EXPECT_STREQ(Name(ClassifyBoxes(row.b, a)), Name(row.expected)) << row.name << ", swapped";
    }
}

} // namespace

} // namespace keel
