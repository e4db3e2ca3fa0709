#include "keel/geometry/tpoint.h"

#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importattribute.h"
#include "keel/exchange/importformatlevel.h"
#include "keel/values/anyvalue.h"

#include <algorithm>
#include <cmath>

namespace keel {

namespace {

// Two inverse slopes this close, relative to the flatter one, are parallel.
constexpr double c_parallelSlopes = 0.0002;

} // namespace

int SenseOfRaw(double ux, double uy, double vx, double vy) {
    using tolerance::Equal;
    using tolerance::NearZero;
    using tolerance::NonNegative;
    const bool uxZero = NearZero(ux);
    const bool uyZero = NearZero(uy);
    const bool vxZero = NearZero(vx);
    const bool vyZero = NearZero(vy);
    if ((uxZero && uyZero) || (vxZero && vyZero))
        return 0;
    if ((Equal(ux, vx) && Equal(uy, vy)) || (Equal(ux, -vx) && Equal(uy, -vy)))
        return 0;
    if ((uxZero && vxZero) || (uyZero && vyZero))
        return 0;
    if (uxZero)
        return NonNegative(uy) != NonNegative(vx) ? 1 : -1;
    if (vxZero)
        return NonNegative(vy) == NonNegative(ux) ? 1 : -1;
    if (uyZero)
        return NonNegative(vy) == NonNegative(ux) ? 1 : -1;
    if (vyZero)
        return NonNegative(uy) != NonNegative(vx) ? 1 : -1;
    const double uSlope = ux / uy;
    const double vSlope = vx / vy;
    const double sameSide = (uy > QLength::Eps) == (vy > QLength::Eps) ? 1.0 : -1.0;
    const double relative =
        sameSide * (uSlope - vSlope) / std::min(std::fabs(uSlope), std::fabs(vSlope));
    if (relative <= c_parallelSlopes && relative >= -c_parallelSlopes)
        return 0;
    return relative > 0 ? 1 : -1;
}

template <class T>
bool TPointShared<T>::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    const bool xAdded = level.AddExportableAttribute(QExportAttribute(u"x", QAnyValue(x)));
    const bool yAdded = level.AddExportableAttribute(QExportAttribute(u"y", QAnyValue(y)));
    return xAdded && yAdded;
}

template <class T>
bool TPointShared<T>::ImportAttributesAndChildren(QImportFormatLevel& level) {
    const bool xRead = level.ImportAttributeIfPresent(QByValImportAttribute<T>(u"x", x));
    const bool yRead = level.ImportAttributeIfPresent(QByValImportAttribute<T>(u"y", y));
    return xRead && yRead;
}

template class TPointShared<QLength>;
template class TPointShared<int>;
template class TPointShared<double>;

QLength Distance(const TPoint3D<QLength, c_worldSpace>& a,
                 const TPoint3D<QLength, c_worldSpace>& b) {
    const double dx = a.x.GetRaw() - b.x.GetRaw();
    const double dy = a.y.GetRaw() - b.y.GetRaw();
    const double dz = a.z.GetRaw() - b.z.GetRaw();
    return QLength::FromRaw(std::sqrt(dx * dx + dy * dy + dz * dz));
}

CString FormatHops(const TPoint3D<QLength, c_worldSpace>& point) {
    CString text;
    for (const QLength* coordinate : {&point.x, &point.y, &point.z}) {
        text += coordinate->Format();
        text += u';';
    }
    return text;
}

} // namespace keel
