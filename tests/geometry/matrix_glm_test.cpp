// Transforms compared with glm, which builds the same matrices on its own: random chains of turns,
// translations and scales, products, rigid inverses, applied points and Euler angles.
#define GLM_ENABLE_EXPERIMENTAL

#include "keel/geometry/matrix.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <glm/gtx/euler_angles.hpp>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <sstream>
#include <string>

namespace keel {
namespace {

constexpr int c_cases = 10000;

double Degrees(double radians) {
    return radians * 180 / std::numbers::pi;
}

// Every element within 1e-12 of glm's, relative to the larger of 1 and the largest element of its
// column: a translation summed from large terms keeps their rounding however small it ends.
::testing::AssertionResult SameMatrix(const QMatrix& ours, const glm::dmat4& theirs) {
    const double* expected = glm::value_ptr(theirs);
    for (int i = 0; i < 16; ++i) {
        const double* column = expected + i / 4 * 4;
        const double largest = std::max({1.0, std::fabs(column[0]), std::fabs(column[1]),
                                         std::fabs(column[2]), std::fabs(column[3])});
        const double tolerance = 1e-12 * largest;
        if (std::fabs(ours.GetMatrix()[i] - expected[i]) > tolerance)
            return ::testing::AssertionFailure()
                   << "element " << i << ": " << ours.GetMatrix()[i] << " against " << expected[i];
    }
    return ::testing::AssertionSuccess();
}

// Applies the same random operations to a QMatrix and a glm matrix, and describes them.
class TwinTransforms {
public:
    explicit TwinTransforms(unsigned seed) : m_random(seed) {}

    // A few turns about the axes and about any axis, translations and, when `scales`, scales.
    void RandomChain(QMatrix& ours, glm::dmat4& theirs, bool scales, std::string& steps) {
        std::ostringstream text;
        text.precision(17);
        const int count = std::uniform_int_distribution<int>(1, 6)(m_random);
        for (int i = 0; i < count; ++i) {
            const double angle = Uniform(-2 * std::numbers::pi, 2 * std::numbers::pi);
            const QAngle turn = QAngle::FromRaw(Degrees(angle));
            const int step = std::uniform_int_distribution<int>(0, scales ? 5 : 4)(m_random);
            if (step < 3) {
                constexpr void (QMatrix::*c_turns[])(const QAngle&) = {
                    &QMatrix::RotateX, &QMatrix::RotateY, &QMatrix::RotateZ};
                (ours.*c_turns[step])(turn);
                glm::dvec3 axis(0);
                axis[step] = 1;
                theirs = glm::rotate(theirs, angle, axis);
                text << "xyz"[step] << " " << angle << "; ";
                continue;
            }
            switch (step) {
            case 3: {
                const glm::dvec3 axis(Uniform(-3, 3), Uniform(-3, 3), Uniform(-3, 3));
                ours.Rotate(turn, axis.x, axis.y, axis.z);
                theirs = glm::rotate(theirs, angle, axis);
                text << "about " << axis.x << "," << axis.y << "," << axis.z << " " << angle
                     << "; ";
                break;
            }
            case 4: {
                const glm::dvec3 by(Uniform(-1e5, 1e5), Uniform(-1e5, 1e5), Uniform(-1e5, 1e5));
                ours.Translate(by.x, by.y, by.z);
                theirs = glm::translate(theirs, by);
                text << "move " << by.x << "," << by.y << "," << by.z << "; ";
                break;
            }
            default: {
                const glm::dvec3 by(Uniform(0.1, 10), Uniform(0.1, 10), Uniform(0.1, 10));
                ours.Scale(by.x, by.y, by.z);
                theirs = glm::scale(theirs, by);
                text << "scale " << by.x << "," << by.y << "," << by.z << "; ";
                break;
            }
            }
        }
        steps = text.str();
    }

    double Uniform(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(m_random);
    }

private:
    std::mt19937 m_random;
};

TEST(MatrixAgainstGlmTest, ChainsOfTurnsMovesAndScalesGiveGlmsMatrix) {
    TwinTransforms twins(1);
    for (int i = 0; i < c_cases; ++i) {
        QMatrix ours;
        glm::dmat4 theirs(1.0);
        std::string steps;
        twins.RandomChain(ours, theirs, true, steps);
        ASSERT_TRUE(SameMatrix(ours, theirs)) << steps;
    }
}

TEST(MatrixAgainstGlmTest, ProductsAndAppliedPointsAgree) {
    TwinTransforms twins(2);
    for (int i = 0; i < c_cases; ++i) {
        QMatrix a, b;
        glm::dmat4 ga(1.0), gb(1.0);
        std::string stepsA, stepsB;
        twins.RandomChain(a, ga, true, stepsA);
        twins.RandomChain(b, gb, true, stepsB);
        const std::string steps = stepsA + " times " + stepsB;
        ASSERT_TRUE(SameMatrix(a * b, ga * gb)) << steps;
        QMatrix inPlace = a;
        QMatrix::Multiply(inPlace, inPlace, b);
        ASSERT_TRUE(SameMatrix(inPlace, ga * gb)) << steps;

        const glm::dvec4 point(twins.Uniform(-1e4, 1e4), twins.Uniform(-1e4, 1e4),
                               twins.Uniform(-1e4, 1e4), 1);
        const glm::dvec4 expected = ga * point;
        double x = 0, y = 0, z = 0;
        a.Apply(x, y, z, point.x, point.y, point.z);
        const double tolerance = 1e-12 * std::max({1.0, std::fabs(expected.x),
                                                   std::fabs(expected.y), std::fabs(expected.z)});
        ASSERT_NEAR(x, expected.x, tolerance) << stepsA;
        ASSERT_NEAR(y, expected.y, tolerance) << stepsA;
        ASSERT_NEAR(z, expected.z, tolerance) << stepsA;
    }
}

// The rigid inverse is exact for turns and moves; glm inverts in general.
TEST(MatrixAgainstGlmTest, RigidInverseIsGlmsInverse) {
    TwinTransforms twins(3);
    for (int i = 0; i < c_cases; ++i) {
        QMatrix ours;
        glm::dmat4 theirs(1.0);
        std::string steps;
        twins.RandomChain(ours, theirs, false, steps);
        QMatrix inverse;
        QMatrix::Invert(inverse, ours);
        const glm::dmat4 expected = glm::inverse(theirs);
        // glm's general inverse divides by the determinant: allow its own rounding on the
        // translations, which reach 1e5 and more.
        const double* e = glm::value_ptr(expected);
        for (int k = 0; k < 16; ++k)
            ASSERT_NEAR(inverse.GetMatrix()[k], e[k], 1e-10 * std::max(1.0, std::fabs(e[k])))
                << "element " << k << " of " << steps;
        ours.Invert();
        ASSERT_TRUE(ours == inverse) << steps;
    }
}

// Turns about x, then y, then z, as glm's eulerAngleXYZ makes them: ToEuler gives the three angles
// back, with the y angle within a right angle either way.
TEST(MatrixAgainstGlmTest, EulerAnglesOfRxRyRzComeBack) {
    TwinTransforms twins(4);
    const double half = std::numbers::pi / 2;
    for (int i = 0; i < c_cases; ++i) {
        const double x = twins.Uniform(-std::numbers::pi + 1e-9, std::numbers::pi - 1e-9);
        const double y = twins.Uniform(-half + 1e-6, half - 1e-6);
        const double z = twins.Uniform(-std::numbers::pi + 1e-9, std::numbers::pi - 1e-9);
        const glm::dmat4 turned = glm::eulerAngleXYZ(x, y, z);
        QMatrix ours;
        ours.RotateX(QAngle::FromRaw(Degrees(x)));
        ours.RotateY(QAngle::FromRaw(Degrees(y)));
        ours.RotateZ(QAngle::FromRaw(Degrees(z)));
        ASSERT_TRUE(SameMatrix(ours, turned)) << x << " " << y << " " << z;

        QMatrix loaded;
        loaded.LoadMatrix(glm::value_ptr(turned));
        double angles[3], translation[3];
        ASSERT_TRUE(loaded.ToEuler(angles, translation));
        EXPECT_NEAR(angles[0], x, 1e-12 / std::cos(y)) << x << " " << y << " " << z;
        EXPECT_NEAR(angles[1], y, 1e-12 / std::cos(y)) << x << " " << y << " " << z;
        EXPECT_NEAR(angles[2], z, 1e-12 / std::cos(y)) << x << " " << y << " " << z;
        for (double t : translation)
            EXPECT_EQ(t, 0);
    }
}

} // namespace
} // namespace keel
