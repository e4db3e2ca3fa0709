#include "tests/support/quantities.h"

#include "keel/platform/file.h"
#include "keel/values/angle.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace keel {
namespace {

using test::Bytes;
using test::DoubleBytes;
using test::Int32Bytes;
using test::LoadInto;
using test::Stored;
QAngle Degrees(double degrees) {
    return QAngle(degrees, QAngle::ANGU_DEG);
}

TEST(QAngle, NormalizeBringsFiniteValuesIntoOneTurnAndEndsOnHugeOnes) {
    const struct {
        double in, out;
    } rows[] = {
        {0, 0}, {-10, 350}, {360, 0}, {-360, 0}, {359.5, 359.5}, {-1e-20, 0}, {370.25, 10.25},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.in);
        EXPECT_DOUBLE_EQ(QAngle::Normalized(row.in), row.out);
        EXPECT_DOUBLE_EQ(Degrees(row.in).Normalize().GetRaw(), row.out);
    }
    for (const double huge : {1e17, -1e17, 1e300, -1e300, std::numeric_limits<double>::max()}) {
        SCOPED_TRACE(huge);
        const double normalized = QAngle::Normalized(huge);
        EXPECT_GE(normalized, 0);
        EXPECT_LT(normalized, 360);
        EXPECT_DOUBLE_EQ(std::fmod(normalized - std::fmod(huge, 360.0), 360.0), 0);
    }
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(QAngle::Normalized(inf), inf);
    EXPECT_EQ(QAngle::Normalized(-inf), -inf);
    EXPECT_TRUE(std::isnan(QAngle::Normalized(std::numeric_limits<double>::quiet_NaN())));
}

TEST(QAngle, IsBetweenCCWAndCWFollowTheSweepAndInclusiveAndExclusiveTheShortWayOrder) {
    const struct {
        double angle, from, to;
        bool ccw, cw;
    } rows[] = {
        {0, 350, 10, true, false}, {180, 350, 10, false, true}, {350, 350, 10, true, true},
        {10, 350, 10, true, true}, {-100, 0, 270, true, false}, {720, 0, 90, true, true},
        {45, 45, 45, true, true},  {46, 45, 45, false, false},  {359.999999, 0, 90, true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.angle) + " from " + std::to_string(row.from) + " to " +
                     std::to_string(row.to));
        const QAngle angle = Degrees(row.angle);
        EXPECT_EQ(angle.IsBetweenCCW(Degrees(row.from), Degrees(row.to)), row.ccw);
        EXPECT_EQ(angle.IsBetweenCW(Degrees(row.from), Degrees(row.to)), row.cw);
        EXPECT_EQ(angle.IsBetweenInDirection(Degrees(row.from), Degrees(row.to), true), row.ccw);
        EXPECT_EQ(angle.IsBetweenInDirection(Degrees(row.from), Degrees(row.to), false), row.cw);
    }
    EXPECT_TRUE(Degrees(0).IsBetweenInclusive(Degrees(350), Degrees(10)));
    EXPECT_TRUE(Degrees(0).IsBetweenExclusive(Degrees(350), Degrees(10)));
    EXPECT_TRUE(Degrees(10).IsBetweenInclusive(Degrees(350), Degrees(10)));
    EXPECT_FALSE(Degrees(10).IsBetweenExclusive(Degrees(350), Degrees(10)));
    EXPECT_FALSE(Degrees(180).IsBetweenInclusive(Degrees(350), Degrees(10)));
}

TEST(QAngle, CosineAndSineAreComputedWhenFirstAskedForAndChangingTheValueResetsThem) {
    const QAngle angle = Degrees(60);
    EXPECT_FALSE(angle.HasCosAndSin());
    EXPECT_DOUBLE_EQ(angle.Cos(), 0.5);
    EXPECT_TRUE(angle.HasCosAndSin());
    EXPECT_DOUBLE_EQ(angle.Sin(), std::sqrt(3.0) / 2);
    QAngle zero = Degrees(0);
    EXPECT_FALSE(zero.HasCosAndSin());
    zero.CalcCosAndSinIfRequired();
    EXPECT_TRUE(zero.HasCosAndSin());
    EXPECT_EQ(zero.Cos(), 1);
    EXPECT_EQ(zero.Sin(), 0);
    zero.ResetCosAndSin();
    EXPECT_FALSE(zero.HasCosAndSin());
    const QAngle byDefault;
    EXPECT_EQ(byDefault.GetRaw(), 0);
    EXPECT_TRUE(byDefault.HasCosAndSin());
    EXPECT_EQ(byDefault.Cos(), 1);
    EXPECT_EQ(byDefault.Sin(), 0);
    const auto changes = {
        +[](QAngle& a) { a += Degrees(1); }, +[](QAngle& a) { a -= Degrees(1); },
        +[](QAngle& a) { a *= 2; },          +[](QAngle& a) { a /= 2; },
        +[](QAngle& a) { a.SetRaw(10); },    +[](QAngle& a) { a.Parse(u"90 deg"); },
    };
    for (const auto change : changes) {
        QAngle angle = Degrees(30);
        angle.CalcCosAndSinIfRequired();
        change(angle);
        EXPECT_FALSE(angle.HasCosAndSin());
    }
}

TEST(QAngle, NegationKeepsAComputedCosineAndSine) {
    QAngle angle = Degrees(30);
    angle.CalcCosAndSinIfRequired();
    const QAngle negated = -angle;
    EXPECT_EQ(negated.GetRaw(), -30);
    EXPECT_TRUE(negated.HasCosAndSin());
    EXPECT_EQ(negated.Cos(), angle.Cos());
    EXPECT_EQ(negated.Sin(), -angle.Sin());
    EXPECT_FALSE((-Degrees(30)).HasCosAndSin());
}

struct TurnRow {
    const char* name;
    QAngle& (QAngle::*turn)();
    double value;
};

TEST(QAngle, TurnsUpdateAComputedCosineAndSineByExchangeAndSignAndLeaveOneNotYetComputed) {
    const TurnRow rows[] = {
        {"Plus90", &QAngle::Plus90, 120},         {"Minus90", &QAngle::Minus90, -60},
        {"Reverse", &QAngle::Reverse, 210},       {"Complement", &QAngle::Complement, 60},
        {"Supplement", &QAngle::Supplement, 150},
    };
    for (const TurnRow& row : rows) {
        SCOPED_TRACE(row.name);
        QAngle angle = Degrees(30);
        const double cosine = angle.Cos();
        const double sine = angle.Sin();
        (angle.*row.turn)();
        EXPECT_DOUBLE_EQ(angle.GetRaw(), row.value);
        EXPECT_TRUE(angle.HasCosAndSin());
        EXPECT_NEAR(angle.Cos(), std::cos(QAngle::deg_to_rad(row.value)), 1e-15);
        EXPECT_NEAR(angle.Sin(), std::sin(QAngle::deg_to_rad(row.value)), 1e-15);
        // Exchanged, not recomputed: each is exactly one of the old pair, signed.
        EXPECT_TRUE(std::fabs(angle.Cos()) == std::fabs(cosine) ||
                    std::fabs(angle.Cos()) == std::fabs(sine));
        EXPECT_TRUE(std::fabs(angle.Sin()) == std::fabs(cosine) ||
                    std::fabs(angle.Sin()) == std::fabs(sine));
        if (row.turn == &QAngle::Plus90) {
            EXPECT_EQ(angle.Cos(), -sine);
            EXPECT_EQ(angle.Sin(), cosine);
        }
    }
    const TurnRow notComputed[] = {
        {"Plus90", &QAngle::Plus90, 100},         {"Minus90", &QAngle::Minus90, -80},
        {"Reverse", &QAngle::Reverse, 190},       {"Complement", &QAngle::Complement, 80},
        {"Supplement", &QAngle::Supplement, 170},
    };
    for (const TurnRow& row : notComputed) {
        SCOPED_TRACE(row.name);
        QAngle angle = Degrees(10);
        (angle.*row.turn)();
        EXPECT_DOUBLE_EQ(angle.GetRaw(), row.value);
        EXPECT_FALSE(angle.HasCosAndSin());
    }
}

TEST(QAngle, ArchiveKeepsTheValueAloneAndLoadingOrClampingForgetsTheCosineAndSine) {
    QAngle right = Degrees(90);
    right.CalcCosAndSinIfRequired();
    EXPECT_EQ(Stored(right), (Bytes{0, 0, 0, 0, 0, 0x80, 0x56, 0x40}));
    for (const unsigned schema : {107u, 108u}) {
        SCOPED_TRACE(schema);
        QAngle angle = Degrees(30);
        angle.CalcCosAndSinIfRequired();
        LoadInto(schema == 107 ? Int32Bytes(905) : DoubleBytes(90.5), schema, angle);
        EXPECT_DOUBLE_EQ(angle.GetRaw(), 90.5);
        EXPECT_FALSE(angle.HasCosAndSin()) << "the cosine and sine of the old value were kept";
    }
    QAngle good = Degrees(30);
    good.CalcCosAndSinIfRequired();
    EXPECT_FALSE(QAngle::LimitDoubleAlways(good, u"test"));
    EXPECT_TRUE(good.HasCosAndSin());
    QAngle bad = QAngle::FromRaw(std::numeric_limits<double>::quiet_NaN());
    EXPECT_TRUE(QAngle::LimitDoubleAlways(bad, u"test"));
    EXPECT_EQ(bad.GetRaw(), 0);
    EXPECT_EQ(bad.Cos(), 1);
}

} // namespace
} // namespace keel
