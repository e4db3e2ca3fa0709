#pragma once

#include "keel/geometry/tpoint.h"
#include "keel/geometry/tpoly.h"
#include "keel/platform/cstring.h"
#include "keel/values/angle.h"
#include "keel/values/length.h"

namespace keel {

// A 4 by 4 transform of solid objects, kept as OpenGL takes it: column after column, so that
// element (row r, column c) is at c·4+r and the translation at 12, 13 and 14. Rotations and
// scales are plain numbers; the translation is in hundredths of a raw length unit. Operations on
// plain doubles take those units; those on world points, vectors and polygons convert on the way
// in and out. Every operation that changes the matrix multiplies on the right, so the last one
// applied is the first to act on a point.
class QMatrix {
public:
    using Point3D = TPoint3D<QLength, c_worldSpace>;
    using Point = TPoint<QLength, c_worldSpace>;
    using Vector = TVector<QLength, c_worldSpace>;
    using Poly3D = TPoly3D<QLength, c_worldSpace>;

    // The size of a matrix unit of translation in raw length units.
    static constexpr double c_unit = 0.01;
    // How far two elements may differ in matrices that compare equal.
    static constexpr double c_equalWithin = 0.0002;
    // A first or second Euler angle above this, in radians, is a turn off the z axis.
    static constexpr double c_offZAxis = 1e-10;

    QMatrix() { SetIdentity(); }

    void SetZero();
    void SetIdentity();
    // Both within the tolerance of operator==.
    bool IsZero() const;
    bool IsIdentity() const;
    void Set(int row, int column, double value) { m[column * 4 + row] = value; }
    const double* GetMatrix() const { return m; }
    double GetMatrix(int row, int column) const { return m[column * 4 + row]; }
    void LoadMatrix(const double* values);

    // The new translation is this matrix applied to the offset.
    void Translate(double x, double y, double z);
    void Translate(const Point3D& by);
    void Translate(const Point& by);
    void Translate(const Vector& by);
    // Adds to the translation column alone.
    void PostTranslate(double x, double y, double z);
    void PostTranslate(const Point3D& by);

    void Scale(double x, double y, double z);
    void ScaleX(double factor) { ScaleColumn(0, factor); }
    void ScaleY(double factor) { ScaleColumn(1, factor); }
    void ScaleZ(double factor) { ScaleColumn(2, factor); }

    void RotateX(const QAngle& angle);
    void RotateY(const QAngle& angle);
    void RotateZ(const QAngle& angle);
    // About an axis through the origin, which need not be of unit length; a zero axis does
    // nothing. The six signed unit axes take the short forms above.
    void Rotate(const QAngle& angle, double ax, double ay, double az);
    // About the line from the first point to the second; nothing when the angle is near zero or
    // the points are exactly the same.
    void RotateAboutAxis(const QAngle& angle, double x1, double y1, double z1, double x2, double y2,
                         double z2);
    void RotateAboutAxis(const QAngle& angle, const Point3D& p1, const Point3D& p2);
    // About the vertical line through the point.
    void RotateAboutZAxis(const QAngle& angle, const Point3D& through);
    void RotateAboutZAxis(const QAngle& angle, const Point& through);

    // The inverse of a rotation plus a translation. Any scale or shear makes the result wrong:
    // no general inversion is offered.
    void Invert();
    static void Invert(QMatrix& result, const QMatrix& source);

    // result = a·b; the result may be either input.
    static void Multiply(double* result, const double* a, const double* b);
    static void Multiply(QMatrix& result, const QMatrix& a, const QMatrix& b);
    // As Multiply, where a null input stands for identity and nothing is multiplied.
    static void Multiply2(QMatrix& result, const QMatrix* a, const QMatrix* b);
    QMatrix& operator*=(const QMatrix& other);
    friend QMatrix operator*(const QMatrix& a, const QMatrix& b) {
        QMatrix product;
        Multiply(product, a, b);
        return product;
    }

    // Every element within c_equalWithin.
    friend bool operator==(const QMatrix& a, const QMatrix& b);
    friend bool operator!=(const QMatrix& a, const QMatrix& b) { return !(a == b); }

    // The bottom row is not applied: these are affine transforms.
    void Apply(double& x, double& y, double& z, double inX, double inY, double inZ) const;
    void Apply(Point3D& point) const;
    void ApplyInverse(Point3D& point) const;
    void Apply(Poly3D& poly) const;
    void ApplyInverse(Poly3D& poly) const;
    // A plan polygon is taken at height zero, and the height it gets is dropped.
    void Apply(QWorldPoly& poly) const;
    void ApplyInverse(QWorldPoly& poly) const;
    // Turns a plan angle by the matrix when it is a rotation about z alone; false, with the angle
    // unchanged, otherwise.
    bool Apply(QAngle& angle) const;
    bool ApplyInverse(QAngle& angle) const;

    // The angles, in radians, of rotations about x, y and z whose product RotateX·RotateY·RotateZ
    // gives the rotation part, and the translation in raw length units. False where the element
    // that holds the sine of the y angle lies beyond ±1: the angles are then a guess.
    bool ToEuler(double angles[3], double translation[3]) const;

    void Dump(const CString& text) const;
    void Trace(const CString& text) const { Trace(text, *this); }
    static void Trace(const CString& text, const QMatrix& matrix);

private:
    void ScaleColumn(int column, double factor);
    // Columns `first` and `second` become c·first+s·second and c·second-s·first.
    void TurnColumns(int first, int second, double c, double s);
    bool TurnAngle(QAngle& angle, double sign) const;

    double m[16];
};

// "[0x…]" with the address, then "=Identity", the Euler angles in degrees and the translation,
// or "=ToEuler ***fails***"; "=NULL" for no matrix.
CString QMatrix2Euler(const QMatrix* matrix);

} // namespace keel
