// Classification compared with Boost.Geometry on random shapes in general position: no vertex
// lies within 0.1 mm of the other shape's boundary, so touching cannot arise and the two libraries
// must agree on inside, crossing and apart. Touching and the deliberate departures from the usual
// rules are in the hand-written cases.
#include "tests/support/geometry.h"

#include "keel/geometry/classify.h"

#include <boost/geometry.hpp>
#include <boost/geometry/geometries/linestring.hpp>
#include <boost/geometry/geometries/point_xy.hpp>
#include <boost/geometry/geometries/polygon.hpp>
#include <boost/geometry/geometries/segment.hpp>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <vector>

namespace keel {
namespace {

namespace bg = boost::geometry;
using BPoint = bg::model::d2::point_xy<double>;
// Counter-clockwise and open, as our polygons are kept; `bg::correct` turns a clockwise one.
using BPolygon = bg::model::polygon<BPoint, false, false>;
using BRing = bg::model::ring<BPoint, false, false>;
using BSegment = bg::model::segment<BPoint>;
using BLine = bg::model::linestring<BPoint>;

using test::Pt;
using test::Text;

constexpr int c_cases = 10000;
// How close to the other shape's boundary a vertex may come before the case is not general.
constexpr double c_clearance = 0.1;

struct Shape {
    QWorldPoly ours;
    BPolygon theirs;
    BLine boundary;
};

Shape MakeShape(const std::vector<BPoint>& vertices) {
    Shape shape;
    for (const BPoint& p : vertices) {
        shape.ours.Add(Pt(p.x(), p.y()));
        bg::append(shape.theirs.outer(), p);
        bg::append(shape.boundary, p);
    }
    bg::append(shape.boundary, vertices.front());
    bg::correct(shape.theirs);
    return shape;
}

// Simple polygons: vertices at increasing angles round a centre, each sector less than a half
// turn, at random distances from it, run one way or the other.
class RandomShapes {
public:
    explicit RandomShapes(unsigned seed) : m_random(seed) {}

    std::vector<BPoint> Vertices(double spread) {
        return Around(BPoint(Uniform(0, spread), Uniform(0, spread)), 50, 400);
    }
    std::vector<BPoint> Around(const BPoint& centre, double nearest, double farthest) {
        const int count = std::uniform_int_distribution<int>(3, 12)(m_random);
        const double step = 2 * std::numbers::pi / count;
        std::vector<BPoint> vertices;
        for (int i = 0; i < count; ++i) {
            const double angle = step * (i + Uniform(0, 0.4));
            const double radius = Uniform(nearest, farthest);
            vertices.emplace_back(centre.x() + radius * std::cos(angle),
                                  centre.y() + radius * std::sin(angle));
        }
        if (Uniform(0, 1) < 0.5)
            std::reverse(vertices.begin(), vertices.end());
        return vertices;
    }
    Shape Next(double spread = 1000) { return MakeShape(Vertices(spread)); }
    BPoint Point(double spread = 1400) { return {Uniform(-200, spread), Uniform(-200, spread)}; }
    double Uniform(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(m_random);
    }

private:
    std::mt19937 m_random;
};

bool ClearOf(const BLine& boundary, const std::vector<BPoint>& points) {
    for (const BPoint& p : points)
        if (bg::distance(p, boundary) <= c_clearance)
            return false;
    return true;
}

std::vector<BPoint> VerticesOf(const BLine& boundary) {
    return std::vector<BPoint>(boundary.begin(), boundary.end() - 1);
}

// Counts the outcomes, so that a run where nearly every case came out one way fails.
struct Outcomes {
    int yes = 0;
    int no = 0;
    void Count(bool outcome) { ++(outcome ? yes : no); }
    void ExpectBothSeen() const {
        EXPECT_GT(yes, c_cases / 10);
        EXPECT_GT(no, c_cases / 10);
    }
};

const char* Word(bool crosses) {
    return crosses ? "cross" : "disjoint";
}

TEST(ClassifyAgainstBoostTest, PointsInsideAndOutsideAgreeWithWithin) {
    RandomShapes random(11);
    Outcomes outcomes;
    while (outcomes.yes + outcomes.no < c_cases) {
        const BPoint centre = random.Point(1000);
        const Shape shape = MakeShape(random.Around(centre, 50, 400));
        const BPoint point(centre.x() + random.Uniform(-400, 400),
                           centre.y() + random.Uniform(-400, 400));
        if (!ClearOf(shape.boundary, {point}))
            continue;
        const bool inside = bg::within(point, shape.theirs);
        outcomes.Count(inside);
        ASSERT_STREQ(test::ClassName(shape.ours.ClassifyPoint(Pt(point.x(), point.y()))),
                     inside ? "cross" : "disjoint")
            << Text(shape.ours) << " at " << point.x() << "," << point.y();
    }
    outcomes.ExpectBothSeen();
}

TEST(ClassifyAgainstBoostTest, SegmentsAgreeWithIntersects) {
    RandomShapes random(12);
    Outcomes outcomes;
    while (outcomes.yes + outcomes.no < c_cases) {
        const BPoint a = random.Point(), b = random.Point(), c = random.Point(), d = random.Point();
        const BSegment first(a, b), second(c, d);
        if (bg::distance(a, second) <= c_clearance || bg::distance(b, second) <= c_clearance ||
            bg::distance(c, first) <= c_clearance || bg::distance(d, first) <= c_clearance)
            continue;
        const bool crosses = bg::intersects(first, second);
        outcomes.Count(crosses);
        ASSERT_STREQ(test::ClassName(ClassifySegments(Pt(a.x(), a.y()), Pt(b.x(), b.y()),
                                                      Pt(c.x(), c.y()), Pt(d.x(), d.y()))),
                     Word(crosses))
            << a.x() << "," << a.y() << " " << b.x() << "," << b.y() << " against " << c.x() << ","
            << c.y() << " " << d.x() << "," << d.y();
    }
    outcomes.ExpectBothSeen();
}

TEST(ClassifyAgainstBoostTest, SegmentsAgainstPolygonsAgreeWithIntersects) {
    RandomShapes random(13);
    Outcomes outcomes;
    while (outcomes.yes + outcomes.no < c_cases) {
        const Shape shape = random.Next();
        const BPoint a = random.Point(), b = random.Point();
        const BSegment segment(a, b);
        if (!ClearOf(shape.boundary, {a, b}))
            continue;
        bool clear = true;
        for (const BPoint& vertex : VerticesOf(shape.boundary))
            clear = clear && bg::distance(vertex, segment) > c_clearance;
        if (!clear)
            continue;
        const bool crosses = bg::intersects(segment, shape.theirs);
        outcomes.Count(crosses);
        ASSERT_STREQ(
            test::ClassName(shape.ours.ClassifySegment(Pt(a.x(), a.y()), Pt(b.x(), b.y()))),
            Word(crosses))
            << Text(shape.ours) << " against " << a.x() << "," << a.y() << " " << b.x() << ","
            << b.y();
    }
    outcomes.ExpectBothSeen();
}

TEST(ClassifyAgainstBoostTest, PolygonsAgreeWithIntersectsEitherWayRound) {
    RandomShapes random(14);
    Outcomes outcomes;
    while (outcomes.yes + outcomes.no < c_cases) {
        const Shape a = random.Next(), b = random.Next();
        if (!ClearOf(a.boundary, VerticesOf(b.boundary)) ||
            !ClearOf(b.boundary, VerticesOf(a.boundary)))
            continue;
        const bool crosses = bg::intersects(a.theirs, b.theirs);
        outcomes.Count(crosses);
        ASSERT_STREQ(test::ClassName(ClassifyPolygons(a.ours, b.ours)), Word(crosses))
            << Text(a.ours) << " | " << Text(b.ours);
        ASSERT_STREQ(test::ClassName(ClassifyPolygons(b.ours, a.ours)), Word(crosses))
            << Text(a.ours) << " | " << Text(b.ours);
    }
    outcomes.ExpectBothSeen();
}

// One polygon wholly inside the other meets no edge: the vertex tests decide.
TEST(ClassifyAgainstBoostTest, PolygonsInsideOthersCross) {
    RandomShapes random(15);
    int seen = 0;
    for (int i = 0; seen < c_cases / 10 && i < 100 * c_cases; ++i) {
        const BPoint centre = random.Point(1000);
        const Shape outer = MakeShape(random.Around(centre, 50, 400));
        const Shape small = MakeShape(random.Around(centre, 1, 40));
        if (!bg::within(small.theirs, outer.theirs) ||
            !ClearOf(outer.boundary, VerticesOf(small.boundary)))
            continue;
        ++seen;
        ASSERT_EQ(ClassifyPolygons(outer.ours, small.ours), CROSS) << Text(outer.ours);
        ASSERT_EQ(ClassifyPolygons(small.ours, outer.ours), CROSS) << Text(outer.ours);
    }
    EXPECT_EQ(seen, c_cases / 10);
}

TEST(ClassifyAgainstBoostTest, OrientationIsTheSignOfTheArea) {
    RandomShapes random(16);
    Outcomes outcomes;
    for (int i = 0; i < c_cases; ++i) {
        const std::vector<BPoint> vertices = random.Vertices(1000);
        const Shape shape = MakeShape(vertices);
        BRing ring(vertices.begin(), vertices.end());
        const double area = bg::area(ring);
        outcomes.Count(area > 0);
        ASSERT_EQ(shape.ours.Orientation(), area > 0 ? 1 : -1) << Text(shape.ours);
    }
    outcomes.ExpectBothSeen();
}

} // namespace
} // namespace keel
