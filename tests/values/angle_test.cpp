#include "tests/support/quantities.h"

#include "keel/platform/file.h"
#include "keel/values/angle.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace keel {
namespace {

using test::DoubleBytes;
using test::Int32Bytes;
using test::LoadInto;
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

TEST(QAngle, IsBetweenCCWFollowsTheSweepAndInclusiveTheShortWayOrder) {
    const struct {
        double angle, from, to;
        bool ccw;
    } rows[] = {
        {0, 350, 10, true},  {180, 350, 10, false}, {350, 350, 10, true},
        {10, 350, 10, true}, {-100, 0, 270, true},  {720, 0, 90, true},
        {45, 45, 45, true},  {46, 45, 45, false},   {359.999999, 0, 90, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.angle) + " from " + std::to_string(row.from) + " to " +
                     std::to_string(row.to));
        EXPECT_EQ(Degrees(row.angle).IsBetweenCCW(Degrees(row.from), Degrees(row.to)), row.ccw);
    }
    EXPECT_TRUE(Degrees(10).IsBetweenInclusive(Degrees(350), Degrees(10)));
    EXPECT_FALSE(Degrees(180).IsBetweenInclusive(Degrees(350), Degrees(10)));
}

// The cosine and sine are kept once worked out, so the callers ask for them before a change too.
void ExpectCosAndSinOf(const QAngle& angle, double degrees) {
    EXPECT_DOUBLE_EQ(angle.GetRaw(), degrees);
    EXPECT_NEAR(angle.Cos(), std::cos(QAngle::deg_to_rad(degrees)), 1e-15);
    EXPECT_NEAR(angle.Sin(), std::sin(QAngle::deg_to_rad(degrees)), 1e-15);
}

TEST(QAngle, CosineAndSineFollowEveryChangeOfTheValue) {
    EXPECT_EQ(QAngle().Cos(), 1);
    EXPECT_EQ(QAngle().Sin(), 0);
    const struct {
        const char* name;
        void (*change)(QAngle&);
        double degrees;
    } rows[] = {
        {"+=", [](QAngle& a) { a += Degrees(1); }, 31},
        {"-=", [](QAngle& a) { a -= Degrees(1); }, 29},
        {"*=", [](QAngle& a) { a *= 2; }, 60},
        {"/=", [](QAngle& a) { a /= 2; }, 15},
        {"SetRaw", [](QAngle& a) { a.SetRaw(10); }, 10},
        {"Parse", [](QAngle& a) { a.Parse(u"90 deg"); }, 90},
        {"negation", [](QAngle& a) { a = -a; }, -30},
        {"Plus90", [](QAngle& a) { a.Plus90(); }, 120},
        {"Minus90", [](QAngle& a) { a.Minus90(); }, -60},
        {"Reverse", [](QAngle& a) { a.Reverse(); }, 210},
        {"Complement", [](QAngle& a) { a.Complement(); }, 60},
        {"Supplement", [](QAngle& a) { a.Supplement(); }, 150},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        QAngle asked = Degrees(30);
        asked.CalcCosAndSinIfRequired();
        row.change(asked);
        ExpectCosAndSinOf(asked, row.degrees);
        QAngle notAsked = Degrees(30);
        row.change(notAsked);
        ExpectCosAndSinOf(notAsked, row.degrees);
    }
}

TEST(QAngle, LoadingOrClampingForgetsTheCosineAndSineOfTheOldValue) {
    for (const unsigned schema : {107u, 108u}) {
        SCOPED_TRACE(schema);
        QAngle angle = Degrees(30);
        angle.CalcCosAndSinIfRequired();
        LoadInto(schema == 107 ? Int32Bytes(905) : DoubleBytes(90.5), schema, angle);
        ExpectCosAndSinOf(angle, 90.5);
    }
    QAngle bad = QAngle::FromRaw(std::numeric_limits<double>::quiet_NaN());
    bad.CalcCosAndSinIfRequired();
    EXPECT_TRUE(QAngle::LimitDoubleAlways(bad, u"test"));
    ExpectCosAndSinOf(bad, 0);
}

} // namespace
} // namespace keel
