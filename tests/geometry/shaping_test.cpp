#include "tests/support/geometry.h"

#include "keel/geometry/tpoly.h"

#include <cmath>
#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

using test::Pt;
using test::VerticesNear;
using Arc = TPolyArc<QLength, 'W'>;

TEST(ArcTest, VerticesLieOnTheCircleAndBulgeToTheRadiusSide) {
    const test::XY ends[] = {{10, 0}, {-3, 7}, {0.5, -40}, {123.4, 56.7}};
    const double radii[] = {0.5, 1, 3, 25, 1000};
    const int counts[] = {2, 3, 8, 33};
    for (const auto& [ex, ey] : ends)
        for (double magnitude : radii)
            for (int count : counts)
                for (double sign : {1.0, -1.0}) {
                    const double radius = sign * magnitude * std::hypot(ex, ey);
                    const Arc arc(Pt(0, 0), Pt(ex, ey), count, QLength::FromRaw(radius));
                    ASSERT_EQ(arc.GetCount(), count + 1);
                    const double cx = arc.Centre().x.GetRaw();
                    const double cy = arc.Centre().y.GetRaw();
                    for (int i = 0; i < arc.GetCount(); ++i)
                        EXPECT_NEAR(std::hypot(arc.Vertex(i).x.GetRaw() - cx,
                                               arc.Vertex(i).y.GetRaw() - cy),
                                    std::fabs(radius), 1e-7 * std::fabs(radius))
                            << ex << "," << ey << " r " << radius << " vertex " << i;
                    const test::RawXY middle(arc.Vertex(count / 2 + count % 2));
                    EXPECT_GT(sign * (ex * middle.y - ey * middle.x), 0)
                        << "bulges to the left for a positive radius";
                    const double halfAngle =
                        std::asin(std::min(1.0, std::hypot(ex, ey) / 2 / std::fabs(radius)));
                    EXPECT_NEAR(arc.ArcLength().GetRaw(), 2 * halfAngle * std::fabs(radius),
                                1e-9 * std::fabs(radius));
                }
}

TEST(ArcTest, MovingMirroringRotatingAndFittingTakeTheCentreAlong) {
    const auto make = [] { return Arc(Pt(0, 0), Pt(10, 0), 4, QLength::FromRaw(5)); };
    Arc moved = make();
    moved.Move({QLength::FromRaw(1), QLength::FromRaw(2)});
    EXPECT_EQ(moved.Centre(), Pt(6, 2));
    Arc mirrored = make();
    mirrored.MirrorX(Pt(20, 0));
    EXPECT_EQ(mirrored.Centre(), Pt(35, 0));
    Arc turned = make();
    turned.Rotate(QAngle(90, QAngle::ANGU_DEG));
    EXPECT_TRUE(VerticesNear(turned, {{0, 0},
                                      {-5 * std::sqrt(0.5), 5 - 5 * std::sqrt(0.5)},
                                      {-5, 5},
                                      {-5 * std::sqrt(0.5), 5 + 5 * std::sqrt(0.5)},
                                      {0, 10}}));
    EXPECT_EQ(turned.Centre(), Pt(0, 5));
    Arc about = make();
    about.RotateAbout(Pt(5, 0), -1.0, 0.0);
    EXPECT_EQ(about.Vertex(0), Pt(10, 0));
    EXPECT_EQ(about.Vertex(2), Pt(5, -5));
    EXPECT_EQ(about.Centre(), Pt(5, 0));
    Arc fitted = make();
    fitted.FitToRect({Pt(0, 0), Pt(20, 5)});
    EXPECT_EQ(fitted.Vertex(4), Pt(20, 0));
    EXPECT_EQ(fitted.Centre(), Pt(10, 0)) << "the mean of the first and last vertex's moves";
    fitted.FitToRect({Pt(3, 4), Pt(23, 9)});
    EXPECT_EQ(fitted.Centre(), Pt(13, 4));
}

} // namespace

} // namespace keel
