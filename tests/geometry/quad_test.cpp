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

// Each vertex of `poly` within 1e-9 of the points of `expected`, "x,y x,y ...", in order.
testing::AssertionResult CornersNear(const QWorldPoly& poly, const std::string& expected) {
    const QWorldPoly corners = test::PolyOf(expected);
    if (poly.GetCount() != corners.GetCount())
        return testing::AssertionFailure() << poly.GetCount() << " vertices: " << Text(poly);
    for (int i = 0; i < corners.GetCount(); ++i) {
        const test::RawXY got{poly.Vertex(i)};
        const test::RawXY want{corners.Vertex(i)};
        if (std::fabs(got.x - want.x) > 1e-9 || std::fabs(got.y - want.y) > 1e-9)
            return testing::AssertionFailure() << "vertex " << i << " of " << Text(poly);
    }
    return testing::AssertionSuccess();
}

// A third of the way in from each end, the widths to the left of a→b; a and b closer than the
// length tolerance give no direction, so the widths move nothing.
TEST(MakeOrthoQuadTest, CornersSitOnTheThirdsAtTheWidths) {
    const struct {
        const char* name;
        const char* ends;
        double w1, w2;
        const char* corners;
    } cases[] = {
        {"across the line", "0,0 30,0", -5, 5, "10,-5 10,5 20,5 20,-5"},
        {"reversed line", "30,0 0,0", -5, 5, "20,5 20,-5 10,-5 10,5"},
        {"one side, upwards", "0,0 0,30", 0, 6, "0,10 -6,10 -6,20 0,20"},
        {"slanted", "0,0 9,12", 5, 10, "-1,7 -5,10 -2,14 2,11"},
        {"zero widths", "0,0 30,0", 0, 0, "10,0 10,0 20,0 20,0"},
        {"a equals b", "7,7 7,7", 5, 10, "7,7 7,7 7,7 7,7"},
        {"a and b within tolerance", "0,0 0.009,0", -5, 5, "0.003,0 0.003,0 0.006,0 0.006,0"},
        {"a and b beyond tolerance", "0,0 0.015,0", -5, 5, "0.005,-5 0.005,5 0.01,5 0.01,-5"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QWorldPoly ends = test::PolyOf(c.ends);
        QWorldPoly poly = Poly({{100, 100}});
        MakeOrthoQuad(poly, ends.Vertex(0), ends.Vertex(1), Raw(c.w1), Raw(c.w2));
        EXPECT_TRUE(CornersNear(poly, c.corners));
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

// A run from 100,50: vertex 0 starts it and 1 ends it; 2 and 3 are the far side's end and start.
// To the left entry 0 moves the run's end on; to the right entries 1 and 2 move its start back.
TEST(MakeQuadFromLengthsTest, RunDepthsAndCutsPlaceTheCorners) {
    const struct {
        const char* name;
        double l1, l2, l3;
        std::vector<double> cuts;
        double degrees;
        bool left;
        const char* corners;
        int orientation;
    } cases[] = {
        {"left, square ends", 60, 20, 30, {0}, 0, true, "100,50 160,50 160,80 100,70", 1},
        {"left, end lengthened", 60, 20, 20, {15}, 0, true, "100,50 175,50 160,70 100,70", 1},
        {"left, end shortened, entries 1 and 2 unread",
         60,
         20,
         20,
         {-10, 99, 99},
         0,
         true,
         "100,50 150,50 160,70 100,70",
         1},
        {"left, upwards", 40, 10, 10, {2}, 90, true, "100,50 100,92 90,90 90,50", 1},
        {"right, start lengthened, entry 0 unread",
         60,
         20,
         30,
         {99, 5, 8},
         0,
         false,
         "95,50 160,50 160,20 92,30",
         -1},
        {"right, start shortened",
         60,
         20,
         20,
         {0, -5, -5},
         0,
         false,
         "105,50 160,50 160,30 105,30",
         -1},
        {"right, at 45 degrees",
         10 * std::sqrt(2.0),
         5 * std::sqrt(2.0),
         5 * std::sqrt(2.0),
         {0, 0, 0},
         45,
         false,
         "100,50 110,60 115,55 105,45",
         -1},
        {"right, backwards", 30, 10, 10, {0, 0, 0}, 180, false, "100,50 70,50 70,60 100,60", -1},
        {"zero lengths", 0, 0, 0, {0}, 30, true, "100,50 100,50 100,50 100,50", 0},
        {"zero run", 0, 10, 10, {0, 0, 0}, 0, false, "100,50 100,50 100,40 100,40", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QArray<QLength> cuts;
        for (double cut : c.cuts)
            cuts.Add(Raw(cut));
        QWorldPoly poly = Poly({{-1, -1}, {-2, -2}});
        MakeQuadFromLengths(poly, Raw(c.l1), Raw(c.l2), Raw(c.l3), cuts, Pt(100, 50),
                            QAngle::FromRaw(c.degrees), c.left);
        EXPECT_TRUE(CornersNear(poly, c.corners));
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
