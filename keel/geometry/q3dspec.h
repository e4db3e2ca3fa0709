#pragma once

#include "keel/geometry/tpoint.h"
#include "keel/platform/archive.h"
#include "keel/values/angle.h"
#include "keel/values/length.h"

namespace keel {

// The camera of a 3-D view: an eye with two angles, a focal length and a centre to orbit about.
// With theta and phi both 0 the camera looks along +y; a growing phi looks down and a growing
// theta turns to the left, seen from above. Pan commands step by a length, or by a count of
// position steps; rotate commands by an angle, or by the theta or phi step.
class Q3DSpec {
public:
    using Point3D = TPoint3D<QLength, c_worldSpace>;
    using LogicalPoint3D = TPoint3D<double, c_logical3DSpace>;

    // Every camera circles an object, and keeps to the front of it.
    static inline bool c_bObject3DExaminationMode = false;

    static inline const QAngle MinFOV = QAngle::FromRaw(5);
    static inline const QAngle DefaultFOV = QAngle::FromRaw(30);
    static inline const QAngle MaxFOV = QAngle::FromRaw(120);

    // As Reset() leaves it.
    Q3DSpec() { Reset(); }

    const QAngle& Theta() const { return m_theta; }
    void SetTheta(const QAngle& theta) { m_theta = theta; }
    const QAngle& ThetaStep() const { return m_thetaStep; }
    void SetThetaStep(const QAngle& step) { m_thetaStep = step; }
    const QAngle& Phi() const { return m_phi; }
    void SetPhi(const QAngle& phi) { m_phi = phi; }
    const QAngle& PhiStep() const { return m_phiStep; }
    void SetPhiStep(const QAngle& step) { m_phiStep = step; }
    const QAngle& FOV() const { return m_fov; }
    void SetFOV(const QAngle& fov) { m_fov = fov; }
    const QLength& PosStep() const { return m_posStep; }
    void SetPosStep(const QLength& step) { m_posStep = step; }
    const QLength& FocalLength() const { return m_focalLength; }
    void SetFocalLength(const QLength& length) { m_focalLength = length; }
    const Point3D& CenterOfRotation() const { return m_centerOfRotation; }
    void SetCenterOfRotation(const Point3D& centre) { m_centerOfRotation = centre; }

    void SetPos(const QLength& x, const QLength& y, const QLength& z);
    void SetPos(const Point3D& eye) { SetPos(eye.x, eye.y, eye.z); }
    void GetEye(QLength& x, QLength& y, QLength& z) const;
    Point3D GetEye() const { return {m_eyeX, m_eyeY, m_eyeZ}; }
    // The eye plus the focal length along the look.
    void GetFocus(QLength& x, QLength& y, QLength& z) const;
    Point3D GetFocus() const;
    // A direction 100 long, square to the look and upward on the screen.
    void GetUp(QLength& x, QLength& y, QLength& z) const;
    Point3D GetUp() const;
    // In hundredths of a raw length unit, as a model drawn through QMatrix takes them.
    void GetEyeLogical(double& x, double& y, double& z) const;
    LogicalPoint3D GetEyeLogical() const;
    void GetFocusLogical(double& x, double& y, double& z) const;
    LogicalPoint3D GetFocusLogical() const;
    void GetEyeToFocusUnitVector(double& x, double& y, double& z) const;

    // In moves the eye alone; the others move the centre of rotation with it.
    void PanIn(const QLength& distance);
    void PanIn(int steps) { PanIn(StepsOf(steps)); }
    void PanOut(const QLength& distance) { PanIn(-distance); }
    void PanOut(int steps) { PanOut(StepsOf(steps)); }
    void PanLeft(const QLength& distance);
    void PanLeft(int steps) { PanLeft(StepsOf(steps)); }
    void PanRight(const QLength& distance) { PanLeft(-distance); }
    void PanRight(int steps) { PanRight(StepsOf(steps)); }
    void PanUp(const QLength& distance);
    void PanUp(int steps) { PanUp(StepsOf(steps)); }
    void PanDown(const QLength& distance) { PanUp(-distance); }
    void PanDown(int steps) { PanDown(StepsOf(steps)); }

    // Orbits about the centre of rotation. Outside examination mode a turn to the left is shared
    // between theta and phi by the elevation, so that it is a pure turn at 30 degrees.
    void RotateLeft(const QAngle& angle);
    void RotateLeft() { RotateLeft(m_thetaStep); }
    void RotateRight(const QAngle& angle) { RotateLeft(-angle); }
    void RotateRight() { RotateRight(m_thetaStep); }
    void RotateUp(const QAngle& angle) { RotatePhi(-angle); }
    void RotateUp() { RotateUp(m_phiStep); }
    void RotateDown(const QAngle& angle) { RotatePhi(angle); }
    void RotateDown() { RotateDown(m_phiStep); }

    // Sets the angles, both steps to 5 degrees and the field of view to its default.
    void RotateReset(const QAngle& theta, const QAngle& phi);
    // The eye, the centre of rotation with it, the position step and the focal length.
    void PosReset();
    // Both, then the eye backs off by the focal length to look at where it stood, or at `focus`.
    void Reset();
    void Reset(const Point3D& focus);
    void ResetGivenFocusAndFocalLength(const Point3D& focus, const QLength& focalLength,
                                       const QAngle& theta, const QAngle& phi);
    // The one angle serves as theta and as phi.
    void ResetGivenFocusAndFocalLength(const Point3D& focus, const QLength& focalLength,
                                       const QAngle& angle) {
        ResetGivenFocusAndFocalLength(focus, focalLength, angle, angle);
    }

    QLength DistanceFromEyeToCenterOfRotation() const;

    // The centre of rotation is not kept. Files before schema 92 have no field of view, and the
    // camera keeps its own when reading them.
    void Serialize(CArchive& archive);

    // The angles by QAngle::Eps, the eye and the focal length by QLength::Eps; the steps and the
    // centre of rotation do not count.
    friend bool operator==(const Q3DSpec& a, const Q3DSpec& b);
    friend bool operator!=(const Q3DSpec& a, const Q3DSpec& b) { return !(a == b); }

private:
    struct Direction {
        double x;
        double y;
        double z;
    };

    QLength StepsOf(int steps) const { return m_posStep * steps; }
    Direction Look() const;
    Direction Up() const;
    void MoveEye(const Direction& along, const QLength& distance);
    void MoveCentre(const Direction& along, const QLength& distance);
    void RotateTheta(const QAngle& angle) { Orbit(angle, QAngle::Zero, false); }
    void RotatePhi(const QAngle& angle) { Orbit(QAngle::Zero, angle, true); }
    void RotateThetaAndPhi(const QAngle& theta, const QAngle& phi) { Orbit(theta, phi, true); }
    // Into the centre of rotation, turn, and back out as far; a turn of phi in examination mode
    // keeps the eye in front.
    void Orbit(const QAngle& theta, const QAngle& phi, bool turnsPhi);
    void KeepPhiInFront();
    void BackOffByFocalLength();

    QAngle m_theta;
    QAngle m_thetaStep;
    QAngle m_phi;
    QAngle m_phiStep;
    QAngle m_fov;
    QLength m_eyeX;
    QLength m_eyeY;
    QLength m_eyeZ;
    QLength m_posStep;
    QLength m_focalLength;
    Point3D m_centerOfRotation;
};

} // namespace keel
