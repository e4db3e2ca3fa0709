#include "tests/support/archivebytes.h"
#include "tests/support/geometry.h"

#include "keel/geometry/tpoint.h"
#include "keel/platform/schema.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

using test::Bytes;
using test::Pt;
using test::Stored;

TEST(SenseTest, SignOfTheCrossProductWithTolerance) {
    const struct {
        double ux, uy, vx, vy;
        int sense;
        const char* why;
    } rows[] = {
        {0, 0, 1, 1, 0, "u is zero"},
        {0.01, -0.01, 5, 3, 0, "u is near zero, both ends of Eps included"},
        {3, 4, 0.01, 0, 0, "v is near zero"},
        {1, 1, 1, 1, 0, "equal vectors"},
        {1, 1, 1.005, 1, 0, "equal within Eps"},
        {1, 1000, 1.005, 1000, 0, "equal within Eps although steep"},
        {1, 2, -1, -2, 0, "opposite vectors"},
        {0, 5, 0.005, -3, 0, "both x near zero"},
        {5, 0, -3, 0.01, 0, "both y near zero"},
        {0, 1, 1, 0, -1, "u along y, v along x"},
        {0, 1, -1, 0, 1, "u along y, v against x"},
        {0, -1, 1, 1, 1, "u against y"},
        {1, 0, 0, 1, 1, "v along y"},
        {1, 1, 0, -1, -1, "v against y"},
        {2, 0, 1, 1, 1, "u along x"},
        {-2, 0, 1, 1, -1, "u against x"},
        {1, 1, 2, 0, -1, "v along x"},
        {1, 1, -2, 0, 1, "v against x"},
        {1, 2, 2, 1, -1, "general, clockwise"},
        {2, 1, 1, 2, 1, "general, counter-clockwise"},
        {1, 2, -2, -1, 1, "y components on opposite sides"},
        {1000, 1, 1000.1, 1, 0, "slopes 0.0001 apart relative to the flatter are parallel"},
        {1000, 1, 1000.3, 1, -1, "slopes 0.0003 apart are not"},
        {1000.3, 1, 1000, 1, 1, "and the other way round"},
    };
    for (const auto& row : rows) {
        const TVector<QLength, 'W'> u{QLength::FromRaw(row.ux), QLength::FromRaw(row.uy)};
        const TVector<QLength, 'W'> v{QLength::FromRaw(row.vx), QLength::FromRaw(row.vy)};
        EXPECT_EQ(Sense(u, v), row.sense) << row.why;
    }
}

TEST(SenseTest, SwappingTheVectorsFlipsTheSign) {
    const double values[] = {-7, -1, -0.02, 0, 0.5, 3, 250};
    for (double ux : values)
        for (double uy : values)
            for (double vx : values)
                for (double vy : values)
                    EXPECT_EQ(SenseOfRaw(ux, uy, vx, vy), -SenseOfRaw(vx, vy, ux, uy))
                        << ux << "," << uy << " " << vx << "," << vy;
}

TEST(PointTest, CoordinatesCompareWithinEpsBothEndsIncluded) {
    const struct {
        double dx, dy;
        bool equal;
    } rows[] = {
        {0, 0, true},          {0.01, 0, true},        {0, -0.01, true},     {0.01, 0.01, true},
        {0.0100001, 0, false}, {0, -0.0100001, false}, {0.008, 0.008, true}, {0.02, 0, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Pt(5, 7) == Pt(5 + row.dx, 7 + row.dy), row.equal) << row.dx << "," << row.dy;
        EXPECT_EQ(Pt(5, 7) != Pt(5 + row.dx, 7 + row.dy), !row.equal);
    }
}

TEST(RectTest, APairIsSwappedOnlyWhenInvertedByEpsOrMore) {
    const struct {
        double left, top, right, bottom;
        double wantLeft, wantTop, wantRight, wantBottom;
    } rows[] = {
        {0, 0, 10, 5, 0, 0, 10, 5},       {10, 0, 0, 5, 0, 0, 10, 5},
        {0, 5, 10, 0, 0, 0, 10, 5},       {0.01, 0, 0, 5, 0, 0, 0.01, 5},
        {0.005, 0, 0, 5, 0.005, 0, 0, 5}, {0, 3.009, 10, 3, 0, 3.009, 10, 3},
    };
    for (const auto& row : rows) {
        const TRect<QLength, 'W'> rect(QLength::FromRaw(row.left), QLength::FromRaw(row.top),
                                       QLength::FromRaw(row.right), QLength::FromRaw(row.bottom));
        EXPECT_DOUBLE_EQ(rect.left.GetRaw(), row.wantLeft) << row.left << " " << row.right;
        EXPECT_DOUBLE_EQ(rect.top.GetRaw(), row.wantTop);
        EXPECT_DOUBLE_EQ(rect.right.GetRaw(), row.wantRight);
        EXPECT_DOUBLE_EQ(rect.bottom.GetRaw(), row.wantBottom) << row.top << " " << row.bottom;
    }
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

class SpaceTest : public ::testing::Test {
protected:
    void TearDown() override { QLength::SetDefaultUnits(m_units); }

private:
    QLength::LENGTHUNITS m_units = QLength::DefaultUnits();
};

using W3 = TPoint3D<QLength, 'W'>;

W3 P3(double x, double y, double z) {
    return {QLength::FromRaw(x), QLength::FromRaw(y), QLength::FromRaw(z)};
}

TEST_F(SpaceTest, CrossProductTakesTheRightOperandInTheDefaultUnits) {
    const W3 inMillimetres = P3(1, 2, 3) ^ P3(4, 5, 6);
    EXPECT_EQ(inMillimetres, P3(-3, 6, -3));
    QLength::SetDefaultUnits(QLength::LU_CM);
    const W3 inCentimetres = P3(1, 2, 3) ^ P3(4, 5, 6);
    EXPECT_DOUBLE_EQ(inCentimetres.x.GetRaw(), -0.3);
    EXPECT_DOUBLE_EQ(inCentimetres.y.GetRaw(), 0.6);
    EXPECT_DOUBLE_EQ(inCentimetres.z.GetRaw(), -0.3);
}

TEST_F(SpaceTest, DistanceIsEuclideanAndHopsAreSemicolonTerminated) {
    EXPECT_DOUBLE_EQ(Distance(P3(1, 1, 1), P3(3, 4, 7)).GetRaw(), 7);
    EXPECT_EQ(FormatHops(P3(1.5, -2, 0)).ToUtf8(), "1.5;-2;0;");
}

TEST_F(SpaceTest, BoxNormalisesEachPairAndGrowsByPoints) {
    TRect3D<QLength, 'W'> box(P3(5, 0, 9), P3(0, 4, 1));
    EXPECT_EQ(box.left.GetRaw(), 0);
    EXPECT_EQ(box.right.GetRaw(), 5);
    EXPECT_EQ(box.low.GetRaw(), 1);
    EXPECT_EQ(box.high.GetRaw(), 9);
    TPoly3D<QLength, 'W'> path;
    EXPECT_EQ(path.GetBounds().high.GetRaw(), 0);
    path.Add(P3(1, 2, 3));
    path.Add(P3(-1, 5, 2));
    const TRect3D<QLength, 'W'> bounds = path.GetBounds();
    EXPECT_EQ(bounds.left.GetRaw(), -1);
    EXPECT_EQ(bounds.top.GetRaw(), 2);
    EXPECT_EQ(bounds.low.GetRaw(), 2);
    EXPECT_EQ(bounds.right.GetRaw(), 1);
    EXPECT_EQ(bounds.bottom.GetRaw(), 5);
    EXPECT_EQ(bounds.high.GetRaw(), 3);
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
