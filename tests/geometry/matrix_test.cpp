#include "tests/support/geometry.h"
#include "tests/support/matrices.h"

#include "keel/geometry/matrix.h"
#include "keel/geometry/objecttransformbase.h"
#include "keel/geometry/texturexform.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <string>

namespace keel {

namespace {

using test::MatrixNear;
using test::MatrixOf;
using test::P3;
using test::Point3D;
using test::PointNear;
using test::Product;
using test::Rows;

constexpr double c_pi = std::numbers::pi;

class MatrixTest : public ::testing::Test {
protected:
    std::mt19937 random{20261126};
};

TEST_F(MatrixTest, EqualityAllowsTwoTenThousandthsInEachElement) {
    const struct {
        int index;
        double by;
        bool equal;
    } cases[] = {{0, 0.0001, true},   {14, -0.0001, true},  {5, 0.00019, true},
                 {5, 0.00021, false}, {12, -0.0003, false}, {15, 1, false}};
    for (const auto& c : cases) {
        double values[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        values[c.index] += c.by;
        QMatrix changed;
        changed.LoadMatrix(values);
        EXPECT_EQ(changed == QMatrix(), c.equal) << c.index << " by " << c.by;
        EXPECT_EQ(changed != QMatrix(), !c.equal) << c.index << " by " << c.by;
        EXPECT_EQ(changed.IsIdentity(), c.equal) << c.index << " by " << c.by;
    }
}

// Each operation multiplies an arbitrary matrix on the right by the transform it stands for;
// lengths enter in hundredths of a millimetre. Turns about any axis, moves and scales are
// compared with glm in their random chains.
TEST_F(MatrixTest, OperationsMultiplyOnTheRightByTheirTransform) {
    const double tiny = 0.00002 * c_pi / 180;
    const double length = std::sqrt(30.0 * 30 + 35 * 35 + 30 * 30);
    Rows scale = test::IdentityRows();
    scale[0][0] = 2;
    scale[1][1] = -3;
    scale[2][2] = 0.5;
    const Rows identity = test::IdentityRows();
    const struct {
        const char* name;
        std::function<void(QMatrix&)> apply;
        Rows by;
    } rows[] = {
        {"a zero axis", [](QMatrix& m) { m.Rotate(QAngle::FromRaw(37), 0, 0, 0); }, identity},
        {"Translate a point in space", [](QMatrix& m) { m.Translate(P3(1, -2, 0.5)); },
         test::Shift(100, -200, 50)},
        {"Translate a point", [](QMatrix& m) { m.Translate(test::Pt(1, -2)); },
         test::Shift(100, -200, 0)},
        {"ScaleX, ScaleY, ScaleZ",
         [](QMatrix& m) {
             m.ScaleX(2);
             m.ScaleY(-3);
             m.ScaleZ(0.5);
         },
         scale},
        {"about a line",
         [](QMatrix& m) {
             m.RotateAboutAxis(QAngle::FromRaw(73), P3(10, -20, 5), P3(40, 15, -25));
         },
         Product(test::Shift(1000, -2000, 500),
                 Product(test::TurnAbout(30 / length, 35 / length, -30 / length, 73 * c_pi / 180),
                         test::Shift(-1000, 2000, -500)))},
        {"about a vertical line",
         [](QMatrix& m) { m.RotateAboutZAxis(QAngle::FromRaw(90), test::Pt(10, 0)); },
         Product(test::Shift(1000, 0, 0),
                 Product(test::TurnZ(c_pi / 2), test::Shift(-1000, 0, 0)))},
        {"about no line",
         [](QMatrix& m) { m.RotateAboutAxis(QAngle::FromRaw(45), P3(1, 2, 3), P3(1, 2, 3)); },
         identity},
        {"by an angle below the tolerance",
         [](QMatrix& m) { m.RotateAboutAxis(QAngle::FromRaw(0.000001), P3(0, 0, 0), P3(0, 0, 1)); },
         identity},
        {"by an angle just above the tolerance",
         [](QMatrix& m) { m.RotateAboutAxis(QAngle::FromRaw(0.00002), 0, 0, 0, 0, 0, 1); },
         test::TurnZ(tiny)},
    };
    for (const auto& row : rows) {
        const Rows start = test::ArbitraryRows(random);
        QMatrix matrix = MatrixOf(start);
        row.apply(matrix);
        EXPECT_TRUE(MatrixNear(matrix, Product(start, row.by), 1e-9)) << row.name;
    }
    const Rows start = test::ArbitraryRows(random);
    QMatrix post = MatrixOf(start);
    post.PostTranslate(3, -4, 5);
    Rows added = start;
    added[0][3] += 3;
    added[1][3] -= 4;
    added[2][3] += 5;
    EXPECT_TRUE(MatrixNear(post, added)) << "PostTranslate adds to the translation alone";
    QMatrix posted;
    posted.PostTranslate(P3(1, -2, 0.5));
    EXPECT_TRUE(MatrixNear(posted, test::Shift(100, -200, 50)));
}

TEST_F(MatrixTest, MultiplyGivesTheProductIntoAnInputAndTakesNullForIdentity) {
    const Rows a = test::ArbitraryRows(random);
    const Rows b = test::ArbitraryRows(random);
    const QMatrix ma = MatrixOf(a);
    const QMatrix mb = MatrixOf(b);
    QMatrix right = mb;
    QMatrix::Multiply(right, ma, right);
    EXPECT_TRUE(MatrixNear(right, Product(a, b))) << "into the right input";
    QMatrix square = ma;
    QMatrix::Multiply(square, square, square);
    EXPECT_TRUE(MatrixNear(square, Product(a, a))) << "into both";
    QMatrix accumulated = ma;
    accumulated *= mb;
    EXPECT_TRUE(MatrixNear(accumulated, Product(a, b)));

    QMatrix result = square;
    QMatrix::Multiply2(result, nullptr, nullptr);
    EXPECT_TRUE(MatrixNear(result, test::IdentityRows(), 0));
    QMatrix::Multiply2(result, &ma, nullptr);
    EXPECT_TRUE(MatrixNear(result, a, 0));
    QMatrix::Multiply2(result, nullptr, &mb);
    EXPECT_TRUE(MatrixNear(result, b, 0));
    QMatrix::Multiply2(result, &ma, &mb);
    EXPECT_TRUE(MatrixNear(result, Product(a, b)));
}

TEST_F(MatrixTest, EulerAnglesFailOnlyBeyondASineOfOne) {
    const struct {
        double m8, m1, m5;
        bool ok;
        double a0, a1;
    } cases[] = {
        {1.0000000001, 0.5, 0.5, false, std::atan2(0.5, 0.5), c_pi / 2},
        {-1.0000000001, 0.5, -0.5, false, -std::atan2(-0.5, -0.5), -c_pi / 2},
        {1, 0, 1, true, 0, c_pi / 2},
        {-1, 0, 1, true, 0, -c_pi / 2},
    };
    for (const auto& c : cases) {
        QMatrix matrix;
        matrix.Set(0, 2, c.m8);
        matrix.Set(1, 0, c.m1);
        matrix.Set(1, 1, c.m5);
        matrix.Set(0, 3, 250);
        double angles[3] = {9, 9, 9};
        double translation[3];
        EXPECT_EQ(matrix.ToEuler(angles, translation), c.ok) << c.m8;
        EXPECT_DOUBLE_EQ(angles[1], c.a1) << c.m8;
        if (!c.ok) {
            EXPECT_DOUBLE_EQ(angles[0], c.a0) << c.m8;
            EXPECT_EQ(angles[2], 0) << c.m8;
        }
        EXPECT_DOUBLE_EQ(translation[0], 2.5) << "translation is given also on failure";
    }
}

TEST_F(MatrixTest, APlanPolygonIsTakenAtHeightZeroAndItsNewHeightDropped) {
    QMatrix matrix;
    matrix.Translate(1000, 0, 0);
    matrix.RotateZ(QAngle::FromRaw(90));
    matrix.RotateX(QAngle::FromRaw(90));
    QWorldPoly poly = test::Poly({{0, 0}, {10, 0}, {0, 5}});
    poly.GetBounds();
    matrix.Apply(poly);
    // (x, y, 0) turns about x to (x, 0, y), then about z to (0, x, y), then moves 10 mm along x.
    EXPECT_TRUE(test::VerticesNear(poly, {{10, 0}, {10, 10}, {10, 0}}));
    EXPECT_EQ(poly.GetBounds(), (QWorldPoly::Rect(test::Pt(10, 0), test::Pt(10, 10))))
        << "the bounds known before are not kept";

    QMatrix turn;
    turn.RotateAboutZAxis(QAngle::FromRaw(90), test::Pt(5, 5));
    QWorldPoly square = test::Poly({{0, 0}, {10, 0}, {10, 10}});
    turn.ApplyInverse(square);
    EXPECT_TRUE(test::VerticesNear(square, {{0, 10}, {0, 0}, {10, 0}}));
}

TEST_F(MatrixTest, AnObjectTransformRefreshesOnlyWhenInvalidated) {
    test::PresetTransform transform;
    transform.next = test::Shift(100, 200, 300);
    const test::PresetTransform& reader = transform;
    Point3D point = P3(0, 0, 0);
    reader.SafeApply(point);
    EXPECT_TRUE(PointNear(point, {1, 2, 3}));
    transform.next = test::Shift(5, 0, 0);
    EXPECT_EQ(reader.SafeGetMatrix(0, 3), 100) << "still the matrix of the last refresh";
    transform.Invalidate();
    EXPECT_EQ(reader.SafeGetMatrix(0, 3), 5);
    transform.Invalidate();
    QMatrix given;
    given.Translate(7, 0, 0);
    transform.Set(given);
    EXPECT_TRUE(transform.IsUpToDate());
    EXPECT_EQ(reader.SafeGetMatrix(0, 3), 7);
}

TEST_F(MatrixTest, ATextureMapScalesByTheRatiosTurnsAndShiftsByAFraction) {
    using Rect = TextureXform::Rect;
    const auto rect = [](double l, double t, double r, double b) {
        return Rect(QLength::FromRaw(l), QLength::FromRaw(t), QLength::FromRaw(r),
                    QLength::FromRaw(b));
    };
    const double c = std::cos(c_pi / 6);
    const double s = std::sin(c_pi / 6);
    const TextureXform map(rect(0, 0, 50, 20), rect(100, 100, 300, 500), test::Pt(40, 80),
                           QAngle::FromRaw(30));
    Rows expected = test::IdentityRows();
    expected[0][0] = 50.0 / 200 * c;
    expected[0][1] = -(20.0 / 200) * s;
    expected[0][3] = 40.0 / 200;
    expected[1][0] = 50.0 / 400 * s;
    expected[1][1] = 20.0 / 400 * c;
    expected[1][3] = 80.0 / 400;
    EXPECT_TRUE(MatrixNear(map, expected, 1e-15));

    for (const Rect& flat : {rect(0, 0, 0.005, 10), rect(0, 0, 10, 0), rect(3, 3, 3, 3)}) {
        const TextureXform none(rect(0, 0, 50, 20), flat, test::Pt(40, 80), QAngle::FromRaw(30));
        EXPECT_TRUE(MatrixNear(none, test::IdentityRows(), 0));
    }
}

} // namespace

} // namespace keel
