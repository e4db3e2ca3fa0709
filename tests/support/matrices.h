#pragma once

#include "keel/geometry/matrix.h"
#include "keel/geometry/objecttransformbase.h"
#include "keel/geometry/q3dspec.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

// Matrix arithmetic written apart from the library, row by row, to check it against.

namespace keel::test {

// Rows of four; element [r][c].
using Rows = std::array<std::array<double, 4>, 4>;

inline Rows IdentityRows() {
    Rows rows{};
    for (int i = 0; i < 4; ++i)
        rows[i][i] = 1;
    return rows;
}

inline Rows Product(const Rows& a, const Rows& b) {
    Rows product{};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 4; ++k)
                product[r][c] += a[r][k] * b[k][c];
    return product;
}

// The right-handed turn by `radians` about the unit axis (x, y, z): I + sin·K + (1-cos)·K², with
// K the matrix of the cross product by the axis.
inline Rows TurnAbout(double x, double y, double z, double radians) {
    const double k[3][3] = {{0, -z, y}, {z, 0, -x}, {-y, x, 0}};
    Rows rows = IdentityRows();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            double kk = 0;
            for (int i = 0; i < 3; ++i)
                kk += k[r][i] * k[i][c];
            rows[r][c] += std::sin(radians) * k[r][c] + (1 - std::cos(radians)) * kk;
        }
    }
    return rows;
}

inline Rows TurnZ(double radians) {
    return TurnAbout(0, 0, 1, radians);
}

inline Rows Shift(double x, double y, double z) {
    Rows rows = IdentityRows();
    rows[0][3] = x;
    rows[1][3] = y;
    rows[2][3] = z;
    return rows;
}

inline Rows RowsOf(const QMatrix& matrix) {
    Rows rows{};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            rows[r][c] = matrix.GetMatrix()[c * 4 + r];
    return rows;
}

inline QMatrix MatrixOf(const Rows& rows) {
    QMatrix matrix;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            matrix.Set(r, c, rows[r][c]);
    return matrix;
}

// Every element within `tolerance`, naming the first that is not.
inline ::testing::AssertionResult MatrixNear(const QMatrix& matrix, const Rows& expected,
                                             double tolerance = 1e-12) {
    const Rows actual = RowsOf(matrix);
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) {
            if (!(std::abs(actual[r][c] - expected[r][c]) <= tolerance))
                return ::testing::AssertionFailure() << "element (" << r << ", " << c << ") is "
                                                     << actual[r][c] << ", not " << expected[r][c];
        }
    }
    return ::testing::AssertionSuccess();
}

// A matrix of values in [-2, 2] with no structure, so that every element of a product counts.
inline Rows ArbitraryRows(std::mt19937& random) {
    std::uniform_real_distribution<double> value(-2, 2);
    Rows rows{};
    for (auto& row : rows)
        for (double& element : row)
            element = value(random);
    return rows;
}

using Point3D = QMatrix::Point3D;

inline Point3D P3(double x, double y, double z) {
    return {QLength::FromRaw(x), QLength::FromRaw(y), QLength::FromRaw(z)};
}

// Raw coordinates of a point in space, or a direction.
struct Triple {
    double x, y, z;
};

inline Triple Of(const Point3D& point) {
    return {point.x.GetRaw(), point.y.GetRaw(), point.z.GetRaw()};
}

// The point that lies `times` along the direction from `from`.
inline Triple Plus(const Point3D& from, const Triple& direction, double times) {
    return {from.x.GetRaw() + direction.x * times, from.y.GetRaw() + direction.y * times,
            from.z.GetRaw() + direction.z * times};
}

inline ::testing::AssertionResult PointNear(const Point3D& point, const Triple& expected,
                                            double tolerance = 1e-9) {
    const Triple actual = Of(point);
    if (std::abs(actual.x - expected.x) <= tolerance &&
        std::abs(actual.y - expected.y) <= tolerance &&
        std::abs(actual.z - expected.z) <= tolerance)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << actual.x << "," << actual.y << "," << actual.z << " is not " << expected.x << ","
           << expected.y << "," << expected.z;
}

// A transform whose Refresh loads a matrix chosen beforehand.
class PresetTransform : public ObjectTransformBase {
public:
    void Refresh() override { LoadMatrix(MatrixOf(next).GetMatrix()); }
    Rows next = IdentityRows();
};

// Sets the examination mode of all cameras for one test and puts it back after.
class ExaminationMode {
public:
    explicit ExaminationMode(bool on) : m_was(Q3DSpec::c_bObject3DExaminationMode) {
        Q3DSpec::c_bObject3DExaminationMode = on;
    }
    ~ExaminationMode() { Q3DSpec::c_bObject3DExaminationMode = m_was; }
    ExaminationMode(const ExaminationMode&) = delete;
    ExaminationMode& operator=(const ExaminationMode&) = delete;

private:
    bool m_was;
};

} // namespace keel::test
