#include "keel/geometry/q3dspec.h"

#include "keel/platform/schema.h"

#include <cmath>

namespace keel {

namespace {

// The first schema whose files keep the field of view.
constexpr int c_schemaWithFieldOfView = 92;

// A logical unit in raw length units, as transforms take lengths.
constexpr double c_logicalUnit = 0.01;

const QAngle c_resetStep = QAngle::FromRaw(5);
const QAngle c_elevationOfPureTurn = QAngle::FromRaw(30);
const QAngle c_resetAngle = QAngle::FromRaw(30);

QLength Along(double component, const QLength& distance) {
    return distance * component;
}

} // namespace

void Q3DSpec::SetPos(const QLength& x, const QLength& y, const QLength& z) {
    m_eyeX = x;
    m_eyeY = y;
    m_eyeZ = z;
}

void Q3DSpec::GetEye(QLength& x, QLength& y, QLength& z) const {
    x = m_eyeX;
    y = m_eyeY;
    z = m_eyeZ;
}

Q3DSpec::Direction Q3DSpec::Look() const {
    const double ct = m_theta.Cos();
    const double st = m_theta.Sin();
    const double cp = m_phi.Cos();
    const double sp = m_phi.Sin();
    return {-st * cp, ct * cp, -sp};
}

Q3DSpec::Direction Q3DSpec::Up() const {
    const double ct = m_theta.Cos();
    const double st = m_theta.Sin();
    const double cp = m_phi.Cos();
    const double sp = m_phi.Sin();
    return {-st * sp, ct * sp, cp};
}

Q3DSpec::Point3D Q3DSpec::GetFocus() const {
    const Direction look = Look();
    return {m_eyeX + Along(look.x, m_focalLength), m_eyeY + Along(look.y, m_focalLength),
            m_eyeZ + Along(look.z, m_focalLength)};
}

void Q3DSpec::GetFocus(QLength& x, QLength& y, QLength& z) const {
    const Point3D focus = GetFocus();
    x = focus.x;
    y = focus.y;
    z = focus.z;
}

Q3DSpec::Point3D Q3DSpec::GetUp() const {
    const Direction up = Up();
    const QLength length = QLength::FromRaw(100);
    return {Along(up.x, length), Along(up.y, length), Along(up.z, length)};
}

void Q3DSpec::GetUp(QLength& x, QLength& y, QLength& z) const {
    const Point3D up = GetUp();
    x = up.x;
    y = up.y;
    z = up.z;
}

void Q3DSpec::GetEyeLogical(double& x, double& y, double& z) const {
    const LogicalPoint3D eye = GetEyeLogical();
    x = eye.x;
    y = eye.y;
    z = eye.z;
}

Q3DSpec::LogicalPoint3D Q3DSpec::GetEyeLogical() const {
    return {m_eyeX.GetRaw() / c_logicalUnit, m_eyeY.GetRaw() / c_logicalUnit,
            m_eyeZ.GetRaw() / c_logicalUnit};
}

void Q3DSpec::GetFocusLogical(double& x, double& y, double& z) const {
    const LogicalPoint3D focus = GetFocusLogical();
    x = focus.x;
    y = focus.y;
    z = focus.z;
}

Q3DSpec::LogicalPoint3D Q3DSpec::GetFocusLogical() const {
    const Point3D focus = GetFocus();
    return {focus.x.GetRaw() / c_logicalUnit, focus.y.GetRaw() / c_logicalUnit,
            focus.z.GetRaw() / c_logicalUnit};
}

void Q3DSpec::GetEyeToFocusUnitVector(double& x, double& y, double& z) const {
    const Direction look = Look();
    x = look.x;
    y = look.y;
    z = look.z;
}

void Q3DSpec::MoveEye(const Direction& along, const QLength& distance) {
    m_eyeX += Along(along.x, distance);
    m_eyeY += Along(along.y, distance);
    m_eyeZ += Along(along.z, distance);
}

void Q3DSpec::MoveCentre(const Direction& along, const QLength& distance) {
    m_centerOfRotation.x += Along(along.x, distance);
    m_centerOfRotation.y += Along(along.y, distance);
    m_centerOfRotation.z += Along(along.z, distance);
}

void Q3DSpec::PanIn(const QLength& distance) {
    MoveEye(Look(), distance);
}

void Q3DSpec::PanLeft(const QLength& distance) {
    const Direction left{-m_theta.Cos(), -m_theta.Sin(), 0};
    MoveEye(left, distance);
    MoveCentre(left, distance);
}

void Q3DSpec::PanUp(const QLength& distance) {
    const Direction up = Up();
    MoveEye(up, distance);
    MoveCentre(up, distance);
}

void Q3DSpec::Orbit(const QAngle& theta, const QAngle& phi, bool turnsPhi) {
    const QLength radius = DistanceFromEyeToCenterOfRotation();
    PanIn(radius);
    m_theta += theta;
    m_phi += phi;
    if (turnsPhi && c_bObject3DExaminationMode)
        KeepPhiInFront();
    PanOut(radius);
}

void Q3DSpec::KeepPhiInFront() {
    const double degrees = QAngle::Normalized(m_phi.GetRaw());
    if (degrees >= 90 && degrees < 180)
        m_phi = QAngle::FromRaw(90);
    else if (degrees >= 180 && degrees < 270)
        m_phi = QAngle::FromRaw(270);
}

void Q3DSpec::RotateLeft(const QAngle& angle) {
    if (c_bObject3DExaminationMode)
        return RotateTheta(angle);
    if (angle.IsZero())
        return;
    // Turning by more than half a circle the other way, with the share negated too, gives the
    // same two products, so the size of the angle needs no case of its own.
    const QAngle fromPureTurn = m_phi - c_elevationOfPureTurn;
    QAngle theta = angle * fromPureTurn.Cos();
    QAngle phi = angle * fromPureTurn.Sin();
    RotateThetaAndPhi(theta.Normalize(), phi.Normalize());
}

void Q3DSpec::RotateReset(const QAngle& theta, const QAngle& phi) {
    m_theta = theta;
    m_phi = phi;
    m_thetaStep = c_resetStep;
    m_phiStep = c_resetStep;
    m_fov = DefaultFOV;
}

void Q3DSpec::PosReset() {
    if (c_bObject3DExaminationMode)
        SetPos(QLength::Zero, QLength::Zero, QLength::Zero);
    else
        SetPos(QLength::FromRaw(3000), QLength::FromRaw(2000), QLength::FromRaw(1500));
    m_posStep = QLength::FromRaw(200);
    m_focalLength = QLength::FromRaw(5000);
    m_centerOfRotation = GetEye();
}

void Q3DSpec::BackOffByFocalLength() {
    PanOut(m_focalLength);
}

void Q3DSpec::Reset() {
    if (c_bObject3DExaminationMode)
        RotateReset(QAngle::Zero, QAngle::Zero);
    else
        RotateReset(c_resetAngle, c_resetAngle);
    PosReset();
    BackOffByFocalLength();
}

void Q3DSpec::Reset(const Point3D& focus) {
    if (c_bObject3DExaminationMode)
        RotateReset(QAngle::Zero, QAngle::Zero);
    else
        RotateReset(c_resetAngle, c_resetAngle);
    PosReset();
    SetPos(focus);
    m_centerOfRotation = focus;
    BackOffByFocalLength();
}

void Q3DSpec::ResetGivenFocusAndFocalLength(const Point3D& focus, const QLength& focalLength,
                                            const QAngle& theta, const QAngle& phi) {
    RotateReset(theta, phi);
    SetPos(focus);
    m_centerOfRotation = focus;
    m_posStep = focalLength / 25;
    m_focalLength = focalLength;
    BackOffByFocalLength();
}

QLength Q3DSpec::DistanceFromEyeToCenterOfRotation() const {
    return Distance(GetEye(), m_centerOfRotation);
}

void Q3DSpec::Serialize(CArchive& archive) {
    if (archive.IsStoring()) {
        archive << m_theta << m_thetaStep << m_phi << m_phiStep << m_fov;
        archive << m_eyeX << m_eyeY << m_eyeZ << m_posStep << m_focalLength;
        return;
    }
    archive >> m_theta >> m_thetaStep >> m_phi >> m_phiStep;
    if (QSchema::Version(archive) >= c_schemaWithFieldOfView)
        archive >> m_fov;
    archive >> m_eyeX >> m_eyeY >> m_eyeZ >> m_posStep >> m_focalLength;
}

bool operator==(const Q3DSpec& a, const Q3DSpec& b) {
    return a.m_theta == b.m_theta && a.m_phi == b.m_phi && a.m_fov == b.m_fov &&
           a.m_eyeX == b.m_eyeX && a.m_eyeY == b.m_eyeY && a.m_eyeZ == b.m_eyeZ &&
           a.m_focalLength == b.m_focalLength;
}

} // namespace keel
