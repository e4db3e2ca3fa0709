#include "keel/geometry/objecttransformbase.h"

namespace keel {

void ObjectTransformBase::EnsureUpToDate() const {
    if (m_upToDate)
        return;
    // Recomputing on read is the point of the class; see the note on defining one const.
    const_cast<ObjectTransformBase*>(this)->Refresh();
    m_upToDate = true;
}

void ObjectTransformBase::Set(const QMatrix& matrix) {
    QMatrix::operator=(matrix);
    m_upToDate = true;
}

const double* ObjectTransformBase::SafeGetMatrixPtr() const {
    EnsureUpToDate();
    return GetMatrix();
}

double ObjectTransformBase::SafeGetMatrix(int row, int column) const {
    EnsureUpToDate();
    return GetMatrix(row, column);
}

const QMatrix& ObjectTransformBase::SafeEval() const {
    EnsureUpToDate();
    return *this;
}

void ObjectTransformBase::SafeApply(Point3D& point) const {
    EnsureUpToDate();
    Apply(point);
}

void ObjectTransformBase::SafeApplyInverse(Point3D& point) const {
    EnsureUpToDate();
    ApplyInverse(point);
}

} // namespace keel
