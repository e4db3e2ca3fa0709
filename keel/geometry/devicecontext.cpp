#include "keel/geometry/devicecontext.h"

#include "keel/platform/exceptions.h"
#include "keel/platform/muldiv.h"

namespace keel {

namespace {

int g_displayDpi = c_referenceDpi;

} // namespace

int ScaleDimensionForDPI(int value) {
    return ScaleDimensionForDPI(value, g_displayDpi);
}

int ScaleDimensionForDPI(int value, int dpi) {
    return MulDiv(value, dpi, c_referenceDpi);
}

void SetDisplayDpi(int dpi) {
    if (dpi <= 0)
        ThrowInvalidArgument("a display resolution must be positive");
    g_displayDpi = dpi;
}

int DisplayDpi() {
    return g_displayDpi;
}

int QDeviceContext::GetDeviceCaps(int index) const {
    switch (index) {
    case HORZSIZE:
        return m_caps.widthMillimetres;
    case VERTSIZE:
        return m_caps.heightMillimetres;
    case HORZRES:
        return m_caps.widthPixels;
    case VERTRES:
        return m_caps.heightPixels;
    case LOGPIXELSX:
        return m_caps.dpiX;
    case LOGPIXELSY:
        return m_caps.dpiY;
    default:
        return 0;
    }
}

int QDeviceContext::SetMapMode(int mode) {
    if (mode != MM_TEXT && mode != MM_ANISOTROPIC)
        ThrowInvalidArgument("map mode " + std::to_string(mode));
    const int old = m_mapMode;
    m_mapMode = mode;
    return old;
}

// In MM_TEXT the extents are fixed at 1; those set are kept for a later anisotropic mode.
QClientVector QDeviceContext::SetWindowExt(int x, int y) {
    if (x == 0 || y == 0)
        ThrowInvalidArgument("a window extent of 0");
    const QClientVector old = m_windowExt;
    m_windowExt = {x, y};
    return old;
}

QClientPoint QDeviceContext::SetWindowOrg(int x, int y) {
    const QClientPoint old = m_windowOrg;
    m_windowOrg = {x, y};
    return old;
}

QClientVector QDeviceContext::SetViewportExt(int x, int y) {
    if (x == 0 || y == 0)
        ThrowInvalidArgument("a viewport extent of 0");
    const QClientVector old = m_viewportExt;
    m_viewportExt = {x, y};
    return old;
}

QClientPoint QDeviceContext::SetViewportOrg(int x, int y) {
    const QClientPoint old = m_viewportOrg;
    m_viewportOrg = {x, y};
    return old;
}

QClientVector QDeviceContext::GetWindowExt() const {
    return m_mapMode == MM_TEXT ? QClientVector{1, 1} : m_windowExt;
}

QClientVector QDeviceContext::GetViewportExt() const {
    return m_mapMode == MM_TEXT ? QClientVector{1, 1} : m_viewportExt;
}

QClientPoint QDeviceContext::LPtoDP(const QClientPoint& logical) const {
    const QClientVector window = GetWindowExt();
    const QClientVector viewport = GetViewportExt();
    return {m_viewportOrg.x + MulDiv(logical.x - m_windowOrg.x, viewport.x, window.x),
            m_viewportOrg.y + MulDiv(logical.y - m_windowOrg.y, viewport.y, window.y)};
}

QClientPoint QDeviceContext::DPtoLP(const QClientPoint& device) const {
    const QClientVector window = GetWindowExt();
    const QClientVector viewport = GetViewportExt();
    return {m_windowOrg.x + MulDiv(device.x - m_viewportOrg.x, window.x, viewport.x),
            m_windowOrg.y + MulDiv(device.y - m_viewportOrg.y, window.y, viewport.y)};
}

double QDeviceContext::LogicalToDeviceX(double logical) const {
    return m_viewportOrg.x +
           (logical - m_windowOrg.x) * GetViewportExt().x / static_cast<double>(GetWindowExt().x);
}

double QDeviceContext::LogicalToDeviceY(double logical) const {
    return m_viewportOrg.y +
           (logical - m_windowOrg.y) * GetViewportExt().y / static_cast<double>(GetWindowExt().y);
}

double QDeviceContext::DeviceToLogicalX(double device) const {
    return m_windowOrg.x +
           (device - m_viewportOrg.x) * GetWindowExt().x / static_cast<double>(GetViewportExt().x);
}

double QDeviceContext::DeviceToLogicalY(double device) const {
    return m_windowOrg.y +
           (device - m_viewportOrg.y) * GetWindowExt().y / static_cast<double>(GetViewportExt().y);
}

QClientRect QDeviceContext::GetClipBox() const {
    return QClientRect(DPtoLP({0, 0}), DPtoLP({m_caps.widthPixels, m_caps.heightPixels}));
}

void QDeviceContext::SetPen(const QColour& colour, int widthPixels) {
    DevicePen(colour, widthPixels < 1 ? 1 : widthPixels);
}

void QDeviceContext::SetBrush(std::optional<QColour> colour) {
    DeviceBrush(colour);
}

void QDeviceContext::SetTextHeight(int logicalHeight) {
    m_textHeight = logicalHeight;
}

void QDeviceContext::MoveTo(const QClientPoint& point) {
    m_current = point;
}

void QDeviceContext::LineTo(const QClientPoint& point) {
    const QClientPoint line[] = {LPtoDP(m_current), LPtoDP(point)};
    DeviceLines(line);
    m_current = point;
}

void QDeviceContext::Polyline(std::span<const QClientPoint> points) {
    if (points.size() >= 2)
        DeviceLines(ToDevice(points));
}

void QDeviceContext::Polygon(std::span<const QClientPoint> points) {
    if (!points.empty())
        DevicePolygon(ToDevice(points));
}

void QDeviceContext::PolyBezier(std::span<const QClientPoint> points) {
    if (points.size() < 4 || (points.size() - 1) % 3 != 0)
        ThrowInvalidArgument("PolyBezier takes a start point and three points a curve, not " +
                             std::to_string(points.size()));
    DeviceBeziers(ToDevice(points));
}

void QDeviceContext::PolyDraw(std::span<const QClientPoint> points,
                              std::span<const std::uint8_t> types) {
    if (points.size() != types.size())
        ThrowInvalidArgument("PolyDraw needs one type a point");
    std::vector<QClientPoint> path;
    bool beziers = false;
    QClientPoint figureStart = m_current;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const std::uint8_t kind = types[i] & static_cast<std::uint8_t>(~PT_CLOSEFIGURE);
        if (kind == PT_MOVETO) {
            FlushPath(path, beziers);
            figureStart = m_current = points[i];
            continue;
        }
        const bool bezier = kind == PT_BEZIERTO;
        if (!bezier && kind != PT_LINETO)
            ThrowInvalidArgument("PolyDraw point type " + std::to_string(types[i]));
        if (bezier && i + 2 >= points.size())
            ThrowInvalidArgument("PolyDraw ends inside a curve");
        if (path.empty() || bezier != beziers) {
            FlushPath(path, beziers);
            path.push_back(m_current);
            beziers = bezier;
        }
        const std::size_t taken = bezier ? 3 : 1;
        for (std::size_t k = 0; k < taken; ++k)
            path.push_back(points[i + k]);
        i += taken - 1;
        m_current = points[i];
        if (types[i] & PT_CLOSEFIGURE) {
            FlushPath(path, beziers);
            const QClientPoint closing[] = {m_current, figureStart};
            Polyline(closing);
            m_current = figureStart;
        }
    }
    FlushPath(path, beziers);
}

void QDeviceContext::FlushPath(std::vector<QClientPoint>& path, bool beziers) {
    if (path.size() >= 2) {
        if (beziers)
            DeviceBeziers(ToDevice(path));
        else
            DeviceLines(ToDevice(path));
    }
    path.clear();
}

void QDeviceContext::Ellipse(const QClientRect& bounds) {
    DeviceEllipse(QClientRect(LPtoDP(bounds.TopLeft()), LPtoDP(bounds.BottomRight())));
}

void QDeviceContext::TextOut(const QClientPoint& point, const CString& text) {
    const QClientPoint origin = LPtoDP(point);
    const QClientPoint below = LPtoDP({point.x, point.y + m_textHeight});
    const int height = below.y > origin.y ? below.y - origin.y : origin.y - below.y;
    DeviceText(origin, height, text);
}

void QDeviceContext::FillRect(const QClientRect& rect, const QColour& colour) {
    DeviceFill(QClientRect(LPtoDP(rect.TopLeft()), LPtoDP(rect.BottomRight())), colour);
}

std::vector<QClientPoint> QDeviceContext::ToDevice(std::span<const QClientPoint> points) const {
    std::vector<QClientPoint> device;
    device.reserve(points.size());
    for (const QClientPoint& point : points)
        device.push_back(LPtoDP(point));
    return device;
}

} // namespace keel
