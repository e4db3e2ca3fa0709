#include "keel/geometry/matrix.h"

#include "keel/platform/uiservices.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <utility>

namespace keel {

namespace {

constexpr double c_identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

bool AllWithin(const double* a, const double* b) {
    for (int i = 0; i < 16; ++i) {
        const double difference = a[i] - b[i];
        if (difference > QMatrix::c_equalWithin || difference < -QMatrix::c_equalWithin)
            return false;
    }
    return true;
}

void MultiplyInto(double* result, const double* a, const double* b) {
    for (int column = 0; column < 4; ++column) {
        for (int row = 0; row < 4; ++row) {
            double sum = 0;
            for (int k = 0; k < 4; ++k)
                sum += a[k * 4 + row] * b[column * 4 + k];
            result[column * 4 + row] = sum;
        }
    }
}

double InUnits(const QLength& length) {
    return length.GetRaw() / QMatrix::c_unit;
}

QLength FromUnits(double value) {
    return QLength::FromRaw(value * QMatrix::c_unit);
}

} // namespace

void QMatrix::SetZero() {
    std::fill(std::begin(m), std::end(m), 0.0);
}

void QMatrix::SetIdentity() {
    LoadMatrix(c_identity);
}

bool QMatrix::IsZero() const {
    constexpr double zero[16] = {};
    return AllWithin(m, zero);
}

bool QMatrix::IsIdentity() const {
    return AllWithin(m, c_identity);
}

void QMatrix::LoadMatrix(const double* values) {
    std::copy(values, values + 16, m);
}

void QMatrix::Translate(double x, double y, double z) {
    for (int row = 0; row < 4; ++row)
        m[12 + row] += m[row] * x + m[4 + row] * y + m[8 + row] * z;
}

void QMatrix::Translate(const Point3D& by) {
    Translate(InUnits(by.x), InUnits(by.y), InUnits(by.z));
}

void QMatrix::Translate(const Point& by) {
    Translate(InUnits(by.x), InUnits(by.y), 0);
}

void QMatrix::Translate(const Vector& by) {
    Translate(InUnits(by.x), InUnits(by.y), 0);
}

void QMatrix::PostTranslate(double x, double y, double z) {
    m[12] += x;
    m[13] += y;
    m[14] += z;
}

void QMatrix::PostTranslate(const Point3D& by) {
    PostTranslate(InUnits(by.x), InUnits(by.y), InUnits(by.z));
}

void QMatrix::Scale(double x, double y, double z) {
    ScaleColumn(0, x);
    ScaleColumn(1, y);
    ScaleColumn(2, z);
}

void QMatrix::ScaleColumn(int column, double factor) {
    for (int row = 0; row < 4; ++row)
        m[column * 4 + row] *= factor;
}

void QMatrix::TurnColumns(int first, int second, double c, double s) {
    for (int row = 0; row < 4; ++row) {
        const double a = m[first * 4 + row];
        const double b = m[second * 4 + row];
        m[first * 4 + row] = c * a + s * b;
        m[second * 4 + row] = c * b - s * a;
    }
}

void QMatrix::RotateX(const QAngle& angle) {
    TurnColumns(1, 2, angle.Cos(), angle.Sin());
}

void QMatrix::RotateY(const QAngle& angle) {
    TurnColumns(2, 0, angle.Cos(), angle.Sin());
}

void QMatrix::RotateZ(const QAngle& angle) {
    TurnColumns(0, 1, angle.Cos(), angle.Sin());
}

void QMatrix::Rotate(const QAngle& angle, double ax, double ay, double az) {
    const double lengthSquared = ax * ax + ay * ay + az * az;
    if (lengthSquared == 0)
        return;
    if (lengthSquared != 1) {
        const double length = std::sqrt(lengthSquared);
        ax /= length;
        ay /= length;
        az /= length;
    }
    if (ay == 0 && az == 0 && (ax == 1 || ax == -1))
        return RotateX(ax == 1 ? angle : -angle);
    if (ax == 0 && az == 0 && (ay == 1 || ay == -1))
        return RotateY(ay == 1 ? angle : -angle);
    if (ax == 0 && ay == 0 && (az == 1 || az == -1))
        return RotateZ(az == 1 ? angle : -angle);

    const double c = angle.Cos();
    const double s = angle.Sin();
    const double t = 1 - c;
    QMatrix rotation;
    rotation.Set(0, 0, ax * ax * t + c);
    rotation.Set(0, 1, ax * ay * t - az * s);
    rotation.Set(0, 2, ax * az * t + ay * s);
    rotation.Set(1, 0, ay * ax * t + az * s);
    rotation.Set(1, 1, ay * ay * t + c);
    rotation.Set(1, 2, ay * az * t - ax * s);
    rotation.Set(2, 0, az * ax * t - ay * s);
    rotation.Set(2, 1, az * ay * t + ax * s);
    rotation.Set(2, 2, az * az * t + c);
    *this *= rotation;
}

void QMatrix::RotateAboutAxis(const QAngle& angle, double x1, double y1, double z1, double x2,
                              double y2, double z2) {
    if (angle.IsZero() || (x1 == x2 && y1 == y2 && z1 == z2))
        return;
    Translate(x1, y1, z1);
    Rotate(angle, x2 - x1, y2 - y1, z2 - z1);
    Translate(-x1, -y1, -z1);
}

void QMatrix::RotateAboutAxis(const QAngle& angle, const Point3D& p1, const Point3D& p2) {
    RotateAboutAxis(angle, InUnits(p1.x), InUnits(p1.y), InUnits(p1.z), InUnits(p2.x),
                    InUnits(p2.y), InUnits(p2.z));
}

void QMatrix::RotateAboutZAxis(const QAngle& angle, const Point3D& through) {
    const double x = InUnits(through.x);
    const double y = InUnits(through.y);
    const double z = InUnits(through.z);
    RotateAboutAxis(angle, x, y, z, x, y, z + 10000);
}

void QMatrix::RotateAboutZAxis(const QAngle& angle, const Point& through) {
    RotateAboutZAxis(angle, Point3D{through.x, through.y, QLength::Zero});
}

void QMatrix::Invert() {
    std::swap(m[1], m[4]);
    std::swap(m[2], m[8]);
    std::swap(m[6], m[9]);
    const double tx = m[12];
    const double ty = m[13];
    const double tz = m[14];
    for (int row = 0; row < 3; ++row)
        m[12 + row] = -(m[row] * tx + m[4 + row] * ty + m[8 + row] * tz);
}

void QMatrix::Invert(QMatrix& result, const QMatrix& source) {
    result = source;
    result.Invert();
}

void QMatrix::Multiply(double* result, const double* a, const double* b) {
    if (result != a && result != b)
        return MultiplyInto(result, a, b);
    double product[16];
    MultiplyInto(product, a, b);
    std::copy(std::begin(product), std::end(product), result);
}

void QMatrix::Multiply(QMatrix& result, const QMatrix& a, const QMatrix& b) {
    Multiply(result.m, a.m, b.m);
}

void QMatrix::Multiply2(QMatrix& result, const QMatrix* a, const QMatrix* b) {
    if (a != nullptr && b != nullptr)
        Multiply(result, *a, *b);
    else if (a != nullptr)
        result = *a;
    else if (b != nullptr)
        result = *b;
    else
        result.SetIdentity();
}

QMatrix& QMatrix::operator*=(const QMatrix& other) {
    Multiply(*this, *this, other);
    return *this;
}

bool operator==(const QMatrix& a, const QMatrix& b) {
    return AllWithin(a.m, b.m);
}

void QMatrix::Apply(double& x, double& y, double& z, double inX, double inY, double inZ) const {
    x = m[0] * inX + m[4] * inY + m[8] * inZ + m[12];
    y = m[1] * inX + m[5] * inY + m[9] * inZ + m[13];
    z = m[2] * inX + m[6] * inY + m[10] * inZ + m[14];
}

void QMatrix::Apply(Point3D& point) const {
    double x = 0;
    double y = 0;
    double z = 0;
    Apply(x, y, z, InUnits(point.x), InUnits(point.y), InUnits(point.z));
    point = {FromUnits(x), FromUnits(y), FromUnits(z)};
}

void QMatrix::ApplyInverse(Point3D& point) const {
    QMatrix inverse;
    Invert(inverse, *this);
    inverse.Apply(point);
}

void QMatrix::Apply(Poly3D& poly) const {
    for (int i = 0; i < poly.GetCount(); ++i)
        Apply(poly.ElementAt(i));
}

void QMatrix::ApplyInverse(Poly3D& poly) const {
    QMatrix inverse;
    Invert(inverse, *this);
    inverse.Apply(poly);
}

void QMatrix::Apply(QWorldPoly& poly) const {
    for (int i = 0; i < poly.GetCount(); ++i) {
        Point& vertex = poly.ElementAt(i);
        Point3D point{vertex.x, vertex.y, QLength::Zero};
        Apply(point);
        vertex = Point(point.x, point.y);
    }
}

void QMatrix::ApplyInverse(QWorldPoly& poly) const {
    QMatrix inverse;
    Invert(inverse, *this);
    inverse.Apply(poly);
}

bool QMatrix::TurnAngle(QAngle& angle, double sign) const {
    double angles[3];
    double translation[3];
    if (!ToEuler(angles, translation))
        return false;
    if (std::abs(angles[0]) > c_offZAxis || std::abs(angles[1]) > c_offZAxis)
        return false;
    angle += QAngle::FromRaw(sign * QAngle::rad_to_deg(angles[2]));
    return true;
}

bool QMatrix::Apply(QAngle& angle) const {
    return TurnAngle(angle, 1);
}

bool QMatrix::ApplyInverse(QAngle& angle) const {
    return TurnAngle(angle, -1);
}

bool QMatrix::ToEuler(double angles[3], double translation[3]) const {
    for (int i = 0; i < 3; ++i)
        translation[i] = m[12 + i] * c_unit;
    if (m[8] > 1) {
        angles[0] = std::atan2(m[1], m[5]);
        angles[1] = std::numbers::pi / 2;
        angles[2] = 0;
        return false;
    }
    if (m[8] < -1) {
        angles[0] = -std::atan2(-m[1], m[5]);
        angles[1] = -std::numbers::pi / 2;
        angles[2] = 0;
        return false;
    }
    angles[0] = std::atan2(-m[9], m[10]);
    angles[1] = std::asin(m[8]);
    angles[2] = std::atan2(-m[4], m[0]);
    return true;
}

void QMatrix::Dump(const CString&) const {}

void QMatrix::Trace(const CString& text, const QMatrix& matrix) {
    CString lines = text + u" " + QMatrix2Euler(&matrix) + u"\n";
    for (int row = 0; row < 4; ++row) {
        lines.AppendFormat(u"  %12.6f %12.6f %12.6f %12.6f\n", matrix.GetMatrix(row, 0),
                           matrix.GetMatrix(row, 1), matrix.GetMatrix(row, 2),
                           matrix.GetMatrix(row, 3));
    }
    OutputDebugText(lines);
}

CString QMatrix2Euler(const QMatrix* matrix) {
    if (matrix == nullptr)
        return u"=NULL";
    CString text = CString::Formatted(
        u"[0x%8.8x]", static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(matrix)));
    if (matrix->IsIdentity())
        return text + u"=Identity";
    double angles[3];
    double translation[3];
    if (!matrix->ToEuler(angles, translation))
        return text + u"=ToEuler ***fails***";
    text.AppendFormat(u"=eangs: %.4f %.4f %.4f deg, xlate: %.2f %.2f %.2f",
                      QAngle::rad_to_deg(angles[0]), QAngle::rad_to_deg(angles[1]),
                      QAngle::rad_to_deg(angles[2]), translation[0], translation[1],
                      translation[2]);
    return text;
}

} // namespace keel
