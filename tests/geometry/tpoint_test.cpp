#include "tests/support/archivebytes.h"
#include "tests/support/geometry.h"
#include "tests/support/matrices.h"

#include "keel/geometry/tpoint.h"
#include "keel/platform/schema.h"

#include <gtest/gtest.h>

namespace keel {

namespace {

using test::Bytes;
using test::Pt;
using test::Stored;

TEST(SenseTest, SwappingTheVectorsFlipsTheSign) {
    const double values[] = {-7, -1, -0.02, 0, 0.5, 3, 250};
    for (double ux : values)
        for (double uy : values)
            for (double vx : values)
                for (double vy : values)
                    EXPECT_EQ(SenseOfRaw(ux, uy, vx, vy), -SenseOfRaw(vx, vy, ux, uy))
                        << ux << "," << uy << " " << vx << "," << vy;
}

TEST(RectTest, ExtendingTakesInOnlyPointsBeyondASideByEps) {
    TRect<QLength, 'W'> rect(Pt(0, 0), Pt(10, 10));
    rect.ExtendBy(Pt(-0.009, 10.009));
    EXPECT_EQ(rect.left.GetRaw(), 0);
    EXPECT_EQ(rect.bottom.GetRaw(), 10);
    rect.ExtendBy(Pt(-0.01, 12));
    EXPECT_EQ(rect.left.GetRaw(), -0.01);
    EXPECT_EQ(rect.bottom.GetRaw(), 12);
}

using test::P3;

TEST(SpaceTest, DistanceIsEuclideanAndABoxNormalisesEachPairAndGrowsByPoints) {
    EXPECT_DOUBLE_EQ(Distance(P3(1, 1, 1), P3(3, 4, 7)).GetRaw(), 7);
    EXPECT_EQ(test::BoxText({P3(5, 0, 9), P3(0, 4, 1)}), "0,0,1 5,4,9");
    TPoly3D<QLength, 'W'> path;
    EXPECT_EQ(test::BoxText(path.GetBounds()), "0,0,0 0,0,0");
    path.Add(P3(1, 2, 3));
    path.Add(P3(-1, 5, 2));
    EXPECT_EQ(test::BoxText(path.GetBounds()), "-1,2,2 1,5,3");
}

TEST(PointArchiveTest, ALengthPointIsTwoDoublesAndAWholePointTwoInt32) {
    EXPECT_EQ(Stored([](CArchive& ar) { ar << Pt(1.0, 2.5); }),
              (Bytes{0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 0, 0, 0, 0, 0, 0, 0x04, 0x40}));
    EXPECT_EQ(Stored([](CArchive& ar) { ar << TPoint<int, 'C'>(-1, 258); }),
              (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0x01, 0, 0}));
    test::Loading loading(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0x01, 0, 0});
    TPoint<int, 'S'> read;
    loading.archive >> read;
    EXPECT_EQ(read.x, -1);
    EXPECT_EQ(read.y, 258);
}

} // namespace

} // namespace keel
