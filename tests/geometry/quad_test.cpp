#include "tests/support/geometry.h"

#include "keel/geometry/tpoly.h"
#include "keel/platform/exceptions.h"

#include <cmath>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

namespace keel {

namespace {

using test::Poly;
using test::Pt;
using test::Text;
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

struct OrthoCase {
    const char* name;
    XY a, b;
    double w1, w2;
    std::vector<XY> corners;
};

// A third of the way in from each end, the widths to the left of a→b; a and b closer than the
// length tolerance give no direction, so the widths move nothing.
const OrthoCase c_orthoCases[] = {
    {"across the line", {0, 0}, {30, 0}, -5, 5, {{10, -5}, {10, 5}, {20, 5}, {20, -5}}},
    {"reversed line", {30, 0}, {0, 0}, -5, 5, {{20, 5}, {20, -5}, {10, -5}, {10, 5}}},
    {"one side, upwards", {0, 0}, {0, 30}, 0, 6, {{0, 10}, {-6, 10}, {-6, 20}, {0, 20}}},
    {"slanted",
     {0, 0},
     {6, 8},
     5,
     10,
     {{-2, 17.0 / 3}, {-6, 26.0 / 3}, {-4, 34.0 / 3}, {0, 25.0 / 3}}},
    {"zero widths", {0, 0}, {30, 0}, 0, 0, {{10, 0}, {10, 0}, {20, 0}, {20, 0}}},
    {"a equals b", {7, 7}, {7, 7}, 5, 10, {{7, 7}, {7, 7}, {7, 7}, {7, 7}}},
    {"a and b within tolerance",
     {0, 0},
     {0.009, 0},
     -5,
     5,
     {{0.003, 0}, {0.003, 0}, {0.006, 0}, {0.006, 0}}},
    {"a and b just beyond tolerance",
     {0, 0},
     {0.015, 0},
     -5,
     5,
     {{0.005, -5}, {0.005, 5}, {0.01, 5}, {0.01, -5}}},
};

TEST(MakeOrthoQuadTest, CornersSitOnTheThirdsAtTheWidths) {
    for (const OrthoCase& c : c_orthoCases) {
        SCOPED_TRACE(c.name);
        QWorldPoly poly = Poly({{100, 100}});
        MakeOrthoQuad(poly, Pt(c.a.first, c.a.second), Pt(c.b.first, c.b.second), Raw(c.w1),
                      Raw(c.w2));
        ASSERT_EQ(poly.GetCount(), 4) << Text(poly);
        for (int i = 0; i < 4; ++i) {
            EXPECT_NEAR(poly.Vertex(i).x.GetRaw(), c.corners[i].first, 1e-9) << "vertex " << i;
            EXPECT_NEAR(poly.Vertex(i).y.GetRaw(), c.corners[i].second, 1e-9) << "vertex " << i;
        }
    }
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

struct RunCase {
    const char* name;
    double l1, l2, l3;
    std::vector<double> cuts;
    XY origin;
    double degrees;
    bool left;
    std::vector<XY> corners;
    int orientation;
};

// Vertex 0 starts the run and 1 ends it; 2 and 3 are the far side's end and start. To the left
// entry 0 moves the run's end on; to the right entries 1 and 2 move its start back.
const RunCase c_runCases[] = {
    {"left, square ends",
     60,
     20,
     30,
     {0},
     {100, 50},
     0,
     true,
     {{100, 50}, {160, 50}, {160, 80}, {100, 70}},
     1},
    {"left, end lengthened",
     60,
     20,
     20,
     {15},
     {100, 50},
     0,
     true,
     {{100, 50}, {175, 50}, {160, 70}, {100, 70}},
     1},
    {"left, end shortened; the other entries unread",
     60,
     20,
     20,
     {-10, 99, 99},
     {100, 50},
     0,
     true,
     {{100, 50}, {150, 50}, {160, 70}, {100, 70}},
     1},
    {"left, upwards", 40, 10, 10, {2}, {0, 0}, 90, true, {{0, 0}, {0, 42}, {-10, 40}, {-10, 0}}, 1},
    {"right, start cut on both lines; entry 0 unread",
     60,
     20,
     30,
     {99, 5, 8},
     {100, 50},
     0,
     false,
     {{95, 50}, {160, 50}, {160, 20}, {92, 30}},
     -1},
    {"right, start shortened",
     60,
     20,
     20,
     {0, -5, -5},
     {100, 50},
     0,
     false,
     {{105, 50}, {160, 50}, {160, 30}, {105, 30}},
     -1},
    {"right, at 45 degrees",
     10 * std::sqrt(2.0),
     5 * std::sqrt(2.0),
     5 * std::sqrt(2.0),
     {0, 0, 0},
     {0, 0},
     45,
     false,
     {{0, 0}, {10, 10}, {15, 5}, {5, -5}},
     -1},
    {"right, backwards",
     30,
     10,
     10,
     {0, 0, 0},
     {0, 0},
     180,
     false,
     {{0, 0}, {-30, 0}, {-30, 10}, {0, 10}},
     -1},
    {"zero lengths", 0, 0, 0, {0}, {3, 4}, 30, true, {{3, 4}, {3, 4}, {3, 4}, {3, 4}}, 0},
    {"zero run, depths only",
     0,
     10,
     10,
     {0, 0, 0},
     {0, 0},
     0,
     false,
     {{0, 0}, {0, 0}, {0, -10}, {0, -10}},
     0},
};

TEST(MakeQuadFromLengthsTest, RunDepthsAndCutsPlaceTheCorners) {
    for (const RunCase& c : c_runCases) {
        SCOPED_TRACE(c.name);
        QArray<QLength> cuts;
        for (double cut : c.cuts)
            cuts.Add(Raw(cut));
        QWorldPoly poly = Poly({{-1, -1}, {-2, -2}});
        MakeQuadFromLengths(poly, Raw(c.l1), Raw(c.l2), Raw(c.l3), cuts,
                            Pt(c.origin.first, c.origin.second), QAngle::FromRaw(c.degrees),
                            c.left);
        ASSERT_EQ(poly.GetCount(), 4) << Text(poly);
        for (int i = 0; i < 4; ++i) {
            EXPECT_NEAR(poly.Vertex(i).x.GetRaw(), c.corners[i].first, 1e-9) << "vertex " << i;
            EXPECT_NEAR(poly.Vertex(i).y.GetRaw(), c.corners[i].second, 1e-9) << "vertex " << i;
        }
        EXPECT_EQ(poly.Orientation(), c.orientation);
    }
}

TEST(MakeQuadFromLengthsTest, AnArrayTooShortForItsSideIsRefusedAndChangesNothing) {
    const struct {
        std::vector<double> cuts;
        bool left;
        const char* message; // empty when the array is long enough
    } cases[] = {
        {{}, true, "MakeQuadFromLengths: the array holds 0 lengths, a run to the left needs 1"},
        {{1}, true, ""},
        {{}, false, "MakeQuadFromLengths: the array holds 0 lengths, a run to the right needs 3"},
        {{1, 2},
         false,
         "MakeQuadFromLengths: the array holds 2 lengths, a run to the right needs 3"},
        {{1, 2, 3}, false, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.cuts.size() << (c.left ? " left" : " right"));
        QArray<QLength> cuts;
        for (double cut : c.cuts)
            cuts.Add(Raw(cut));
        QWorldPoly poly = Poly({{9, 9}, {8, 8}, {7, 9}});
        const std::string before = Text(poly);
        const auto make = [&] {
            MakeQuadFromLengths(poly, Raw(10), Raw(5), Raw(5), cuts, Pt(0, 0), QAngle::Zero,
                                c.left);
        };
        if (std::string(c.message).empty()) {
            EXPECT_NO_THROW(make());
            EXPECT_EQ(poly.GetCount(), 4);
            continue;
        }
        try {
            make();
            ADD_FAILURE() << "no exception";
        } catch (const InvalidArgumentException& failure) {
            EXPECT_EQ(std::string(failure.what()), std::string("Invalid argument: ") + c.message);
        }
        EXPECT_EQ(Text(poly), before);
    }
}

} // namespace

} // namespace keel
