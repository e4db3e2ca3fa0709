#pragma once

#include "keel/geometry/matrix.h"

namespace keel {

// A transform owned by an object that computes it when first asked after a change. The reading
// operations are const and may still recompute: an object of this kind must not be defined
// const, and its flag and Refresh are not guarded against other threads.
class ObjectTransformBase : public QMatrix {
public:
    ObjectTransformBase() = default;
    ObjectTransformBase(const ObjectTransformBase&) = default;
    ObjectTransformBase& operator=(const ObjectTransformBase&) = default;
    virtual ~ObjectTransformBase() = default;

    // Recomputes the matrix; a subclass says from what.
    virtual void Refresh() {}

    bool IsUpToDate() const { return m_upToDate; }
    void Invalidate() { m_upToDate = false; }
    void EnsureUpToDate() const;
    // Copies the matrix, which is then up to date.
    void Set(const QMatrix& matrix);

    const double* SafeGetMatrixPtr() const;
    double SafeGetMatrix(int row, int column) const;
    const QMatrix& SafeEval() const;
    void SafeApply(Point3D& point) const;
    void SafeApplyInverse(Point3D& point) const;

private:
    mutable bool m_upToDate = false;
};

} // namespace keel
