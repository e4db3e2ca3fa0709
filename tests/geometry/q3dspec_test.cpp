#include "tests/support/matrices.h"

#include "keel/geometry/q3dspec.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <string>

namespace keel {

namespace {

using test::Of;
using test::P3;
using test::Plus;
using test::Point3D;
using test::PointNear;
using test::Triple;

QLength L(double raw) {
    return QLength::FromRaw(raw);
}
QAngle Deg(double degrees) {
    return QAngle::FromRaw(degrees);
}
// The unit look of a camera, from its angles in degrees.
Triple LookOf(double theta, double phi) {
    const double t = theta * std::numbers::pi / 180;
    const double p = phi * std::numbers::pi / 180;
    return {-std::sin(t) * std::cos(p), std::cos(t) * std::cos(p), -std::sin(p)};
}

// A camera at the eye with the angles, looking 1000 ahead at its centre of rotation.
Q3DSpec Looking(double theta, double phi, const Point3D& eye = P3(100, 200, 300)) {
    Q3DSpec spec;
    spec.RotateReset(Deg(theta), Deg(phi));
    spec.SetPos(eye);
    spec.SetFocalLength(L(1000));
    spec.SetCenterOfRotation(spec.GetFocus());
    return spec;
}

TEST(CameraTest, FocusAndUpFollowTheLookOverManyAngles) {
    for (double theta = -170; theta < 360; theta += 37) {
        for (double phi = -85; phi < 90; phi += 17) {
            const Q3DSpec spec = Looking(theta, phi);
            const Triple look = LookOf(theta, phi);
            double x = 0, y = 0, z = 0;
            spec.GetEyeToFocusUnitVector(x, y, z);
            ASSERT_TRUE(PointNear(P3(x, y, z), look, 1e-12));
            ASSERT_TRUE(PointNear(spec.GetFocus(), Plus(P3(100, 200, 300), look, 1000)));

            const Point3D up = spec.GetUp();
            const Triple u = Of(up);
            ASSERT_NEAR(u.x * u.x + u.y * u.y + u.z * u.z, 100 * 100, 1e-9) << "up is 100 long";
            ASSERT_NEAR(u.x * look.x + u.y * look.y + u.z * look.z, 0, 1e-12) << "square to look";
            ASSERT_NEAR(u.z, 100 * std::cos(phi * std::numbers::pi / 180), 1e-12);
        }
    }
}

TEST(CameraTest, PanningInMovesTheEyeAloneAndSidewaysMovesTheCentreToo) {
    const double theta = 40;
    const double phi = 25;
    const double t = theta * std::numbers::pi / 180;
    const double p = phi * std::numbers::pi / 180;
    const Triple left{-std::cos(t), -std::sin(t), 0};
    const Triple up{-std::sin(t) * std::sin(p), std::cos(t) * std::sin(p), std::cos(p)};
    const Triple look = LookOf(theta, phi);
    const struct {
        void (*pan)(Q3DSpec&);
        Triple direction;
        double distance;
        bool movesCentre;
        const char* what;
    } cases[] = {
        {[](Q3DSpec& s) { s.PanIn(L(70)); }, look, 70, false, "in"},
        {[](Q3DSpec& s) { s.PanLeft(L(70)); }, left, 70, true, "left"},
        {[](Q3DSpec& s) { s.PanDown(4); }, up, -200, true, "down by steps"},
    };
    for (const auto& c : cases) {
        Q3DSpec spec = Looking(theta, phi);
        spec.SetPosStep(L(50));
        const Point3D eye = spec.GetEye();
        const Point3D centre = spec.CenterOfRotation();
        c.pan(spec);
        EXPECT_TRUE(PointNear(spec.GetEye(), Plus(eye, c.direction, c.distance))) << c.what;
        EXPECT_TRUE(PointNear(spec.CenterOfRotation(),
                              Plus(centre, c.direction, c.movesCentre ? c.distance : 0)))
            << c.what;
    }
}

// A turn keeps the camera looking at its centre of rotation. Outside examination mode a turn left
// is a pure turn at an elevation of 30 degrees and is shared with phi elsewhere, and phi is free;
// in it a turn left changes theta alone and phi stays in front.
TEST(CameraTest, TurnsOrbitTheCentreOfRotation) {
    const double c = 12 * std::cos(std::numbers::pi / 3);
    const double s = 12 * std::sin(std::numbers::pi / 3);
    constexpr void (Q3DSpec::*left)(const QAngle&) = &Q3DSpec::RotateLeft;
    constexpr void (Q3DSpec::*down)(const QAngle&) = &Q3DSpec::RotateDown;
    const struct {
        bool examination;
        double theta, phi;
        void (Q3DSpec::*turn)(const QAngle&);
        double by, newTheta, newPhi;
    } cases[] = {
        {false, 20, 10, down, 15, 20, 25},   {false, 20, 30, left, -10, 370, 30},
        {false, 20, 120, left, 10, 20, 130}, {false, 20, 90, left, 12, 20 + c, 90 + s},
        {false, 20, -60, left, 10, 20, 290}, {false, 20, 50, left, 0.000001, 20, 50},
        {true, 20, 60, left, 10, 30, 60},    {true, 0, 80, down, 9.99, 0, 89.99},
        {true, 0, 80, down, 10, 0, 90},      {true, 0, 170, down, 9.99, 0, 90},
        {true, 0, 170, down, 10, 0, 270},    {true, 0, 260, down, 10, 0, 270},
        {true, 0, -150, down, 10, 0, 270},   {true, 0, 300, down, 70, 0, 370},
    };
    for (const auto& c : cases) {
        test::ExaminationMode mode(c.examination);
        Q3DSpec spec = Looking(c.theta, c.phi);
        const Point3D centre = spec.CenterOfRotation();
        (spec.*c.turn)(Deg(c.by));
        const std::string what = std::to_string(c.theta) + " " + std::to_string(c.phi) + " by " +
                                 std::to_string(c.by) + (c.examination ? " examining" : "");
        EXPECT_NEAR(spec.Theta().GetRaw(), c.newTheta, 1e-9) << what;
        EXPECT_NEAR(spec.Phi().GetRaw(), c.newPhi, 1e-9) << what;
        EXPECT_TRUE(PointNear(spec.GetFocus(), Of(centre), 1e-8)) << what;
        EXPECT_NEAR(spec.DistanceFromEyeToCenterOfRotation().GetRaw(), 1000, 1e-9) << what;
    }
}

TEST(CameraTest, ResetsLookAtWhereTheEyeWasOrAtTheFocusGiven) {
    const struct {
        bool examination;
        double angle;
        Triple focus;
    } modes[] = {{false, 30, {3000, 2000, 1500}}, {true, 0, {0, 0, 0}}};
    for (const auto& mode : modes) {
        test::ExaminationMode examination(mode.examination);
        Q3DSpec spec;
        spec.SetFOV(Deg(100));
        spec.Reset();
        EXPECT_EQ(spec.Theta(), Deg(mode.angle));
        EXPECT_EQ(spec.Phi(), Deg(mode.angle));
        EXPECT_EQ(spec.FOV(), Q3DSpec::DefaultFOV);
        EXPECT_EQ(spec.PosStep(), L(200));
        const Point3D focus = P3(mode.focus.x, mode.focus.y, mode.focus.z);
        EXPECT_TRUE(PointNear(spec.GetEye(), Plus(focus, LookOf(mode.angle, mode.angle), -5000)));
        EXPECT_TRUE(PointNear(spec.CenterOfRotation(), mode.focus, 0));

        spec.Reset(P3(-10, 20, 30));
        EXPECT_TRUE(PointNear(spec.CenterOfRotation(), {-10, 20, 30}, 0));
        EXPECT_TRUE(PointNear(spec.GetFocus(), {-10, 20, 30}, 1e-9));
        EXPECT_NEAR(spec.DistanceFromEyeToCenterOfRotation().GetRaw(), 5000, 1e-9);
    }

    Q3DSpec given;
    given.ResetGivenFocusAndFocalLength(P3(1, 2, 3), L(2500), Deg(45), Deg(-10));
    EXPECT_EQ(given.Theta(), Deg(45));
    EXPECT_EQ(given.Phi(), Deg(-10));
    EXPECT_EQ(given.PosStep(), L(100));
    EXPECT_TRUE(PointNear(given.GetEye(), Plus(P3(1, 2, 3), LookOf(45, -10), -2500)));
    EXPECT_TRUE(PointNear(given.CenterOfRotation(), {1, 2, 3}, 0));
}

} // namespace

} // namespace keel
