#include "keel/geometry/pageview.h"

#include "keel/document/translate.h"
#include "keel/platform/exceptions.h"
#include "keel/platform/muldiv.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <numbers>

namespace keel {

namespace {

// Device positions a hair away from a whole pixel count as on it.
constexpr double c_pixelSlack = 1e-9;

int ClampToInt(double value) {
    if (std::isnan(value))
        return 0;
    return static_cast<int>(
        std::clamp(value, static_cast<double>(INT_MIN), static_cast<double>(INT_MAX)));
}

QLength FromLogical(double logical) {
    return QLength::FromRaw(logical * 0.01);
}

QLength Absolute(const QLength& length) {
    return QLength::FromRaw(std::fabs(length.GetRaw()));
}

QClientRect LogicalRect(const QPageRect& page) {
    return QClientRect(LogicalUnits(page.left), LogicalUnits(page.top), LogicalUnits(page.right),
                       LogicalUnits(page.bottom));
}

QPageRect PageRect(const QClientRect& logical) {
    return QPageRect(FromLogical(logical.left), FromLogical(logical.top),
                     FromLogical(logical.right), FromLogical(logical.bottom));
}

// The whole device pixel at or beyond `device` in the direction in which logical units grow.
double SnapTowardsLarger(double device, bool increasing) {
    return increasing ? std::ceil(device - c_pixelSlack) : std::floor(device + c_pixelSlack);
}

double SnapTowardsSmaller(double device, bool increasing) {
    return SnapTowardsLarger(device, !increasing);
}

double SnapNearest(double device) {
    return std::floor(device + 0.5);
}

QPagePoint PageOfDevice(double x, double y, const QDeviceContext& dc) {
    return {FromLogical(dc.DeviceToLogicalX(x)), FromLogical(dc.DeviceToLogicalY(y))};
}

bool XIncreases(const QDeviceContext& dc) {
    return (dc.GetViewportExt().x > 0) == (dc.GetWindowExt().x > 0);
}

bool YIncreases(const QDeviceContext& dc) {
    return (dc.GetViewportExt().y > 0) == (dc.GetWindowExt().y > 0);
}

QAngle AngleOfDelta(double dx, double dy) {
    return QAngle::FromRaw(std::atan2(dy, dx) * 180.0 / std::numbers::pi);
}

} // namespace

QClientVector PixelsPerMetre(const QDeviceContext* dc) {
    if (!dc) {
        const int reference = ScaleDimensionForDPI(c_referencePixelsPerMetre);
        return {reference, reference};
    }
    int x = MulDiv(1000, dc->GetDeviceCaps(HORZRES), dc->GetDeviceCaps(HORZSIZE));
    int y = MulDiv(1000, dc->GetDeviceCaps(VERTRES), dc->GetDeviceCaps(VERTSIZE));
    if (x != y) {
        const int mean = (x + y + 1) / 2;
        if (mean > 0 && std::fabs(static_cast<double>(x) / mean - 1) < 0.01)
            x = y = mean;
    }
    return {x, y};
}

QFixedWindow::QFixedWindow(int width, int height, QScreenPoint origin)
    : m_size{width, height}, m_origin(origin) {}

QDeviceCaps QFixedWindow::ScreenCaps() const {
    QDeviceCaps caps;
    caps.widthPixels = m_size.x;
    caps.heightPixels = m_size.y;
    caps.widthMillimetres = MulDiv(m_size.x, 254, c_referenceDpi * 10);
    caps.heightMillimetres = MulDiv(m_size.y, 254, c_referenceDpi * 10);
    return caps;
}

QClientPoint ClientPoint(const QScreenPoint& screen, const IPageWindow& window) {
    const QScreenPoint origin = window.ClientOriginOnScreen();
    return {screen.x - origin.x, screen.y - origin.y};
}

QClientPoint ClientPoint(const QHimetricPoint& himetric, const QDeviceContext* dc) {
    const QClientPoint logical(himetric.x, himetric.y);
    return dc ? dc->LPtoDP(logical) : logical;
}

QClientPoint ClientPoint(const QPagePoint& page, const QDeviceContext* dc) {
    const QClientPoint logical(LogicalUnits(page.x), LogicalUnits(page.y));
    return dc ? dc->LPtoDP(logical) : logical;
}

QClientPoint ClientPoint(const QWorldPoint& world, const QDeviceContext* dc, int scale) {
    return ClientPoint(QPagePoint(world.x / scale, world.y / scale), dc);
}

QScreenPoint ScreenPoint(const QClientPoint& client, const IPageWindow& window) {
    const QScreenPoint origin = window.ClientOriginOnScreen();
    return {client.x + origin.x, client.y + origin.y};
}

QPagePoint PagePoint(const QClientPoint& client, const QDeviceContext* dc) {
    const QClientPoint logical = dc ? dc->DPtoLP(client) : client;
    return {FromLogical(logical.x), FromLogical(logical.y)};
}

QWorldPoint WorldPoint(const QClientPoint& client, const QDeviceContext* dc, int scale) {
    const QPagePoint page = PagePoint(client, dc);
    return {page.x * scale, page.y * scale};
}

QHimetricPoint HIMETRICPoint(const QClientPoint& client, const QDeviceContext* dc) {
    const QClientPoint logical = dc ? dc->DPtoLP(client) : client;
    return {logical.x, logical.y};
}

QPagePoint ClientSnap(const QPagePoint& page, const QDeviceContext& dc) {
    return PageOfDevice(SnapNearest(dc.LogicalToDeviceX(page.x.GetRaw() / 0.01)),
                        SnapNearest(dc.LogicalToDeviceY(page.y.GetRaw() / 0.01)), dc);
}

QPagePoint ClientSnapPlus(const QPagePoint& page, const QDeviceContext& dc) {
    return PageOfDevice(
        SnapTowardsLarger(dc.LogicalToDeviceX(page.x.GetRaw() / 0.01), XIncreases(dc)),
        SnapTowardsLarger(dc.LogicalToDeviceY(page.y.GetRaw() / 0.01), YIncreases(dc)), dc);
}

QPagePoint ClientSnapMinus(const QPagePoint& page, const QDeviceContext& dc) {
    return PageOfDevice(
        SnapTowardsSmaller(dc.LogicalToDeviceX(page.x.GetRaw() / 0.01), XIncreases(dc)),
        SnapTowardsSmaller(dc.LogicalToDeviceY(page.y.GetRaw() / 0.01), YIncreases(dc)), dc);
}

ZoomEntry QZoomPreviousStack::Pop() {
    if (m_entries.empty())
        ThrowInvalidArgument("QZoomPreviousStack::Pop of an empty stack");
    const ZoomEntry top = m_entries.back();
    m_entries.pop_back();
    return top;
}

const ZoomEntry& QZoomPreviousStack::Top() const {
    if (m_entries.empty())
        ThrowInvalidArgument("QZoomPreviousStack::Top of an empty stack");
    return m_entries.back();
}

void QView::SetCaption(const CString& text, bool redraw) {
    m_caption = text;
    if (redraw)
        RedrawAll();
}

QPageView::QPageView(QPageDoc& doc, IPageWindow& window)
    : m_doc(doc), m_window(window), m_pixelsPerMetre(PixelsPerMetre(nullptr)) {
    m_doc.AddFollower(this);
}

QPageView::~QPageView() {
    m_doc.RemoveFollower(this);
}

void QPageView::SetZoom(int percent, bool redraw) {
    if (percent < c_smallestZoom || percent > c_largestZoom)
        ThrowInvalidArgument("a zoom of " + std::to_string(percent) + "% is outside " +
                             std::to_string(c_smallestZoom) + " to " +
                             std::to_string(c_largestZoom) + "%");
    m_zoom = percent;
    if (redraw)
        RedrawAll();
}

void QPageView::SetPixelsPerMetre(const QClientVector& pixels) {
    if (pixels.x < 1 || pixels.y < 1)
        ThrowInvalidArgument("pixels a metre must be positive");
    m_pixelsPerMetre = pixels;
}

void QPageView::GetZoomFactors(double& x, double& y) const {
    const auto dc = ClientDC(false);
    x = std::fabs(dc->GetViewportExt().x / (dc->GetWindowExt().x * 0.01));
    y = std::fabs(dc->GetViewportExt().y / (dc->GetWindowExt().y * 0.01));
}

void QPageView::PrepareDCNoOrigin(QDeviceContext& dc, const QClientVector& pixelsPerMetre) const {
    const double factor = dc.IsPrinting() ? 1.0 : m_containerZoom.value_or(m_zoom / 100.0);
    const int x = std::max(1, ClampToInt(std::lround(factor * pixelsPerMetre.x)));
    const int y = std::max(1, ClampToInt(std::lround(factor * pixelsPerMetre.y)));
    dc.SetMapMode(MM_ANISOTROPIC);
    dc.SetWindowExt(c_logicalUnitsAMetre, c_logicalUnitsAMetre);
    dc.SetViewportExt(x, -y);
    dc.SetWindowOrg(0, 0);
    dc.SetViewportOrg(0, 0);
}

void QPageView::PrepareDC(QDeviceContext& dc, const QClientVector& pixelsPerMetre) const {
    PrepareDCNoOrigin(dc, pixelsPerMetre);
    dc.SetWindowOrg(0, LogicalUnits(m_totalSize.y));
    if (!dc.IsPrinting())
        dc.SetViewportOrg(-m_scroll.x, -m_scroll.y);
}

void QPageView::PrepareDCDefault(QDeviceContext& dc) const {
    PrepareDC(dc, m_pixelsPerMetre);
}

void QPageView::PrepareDCDefaultNoOrigin(QDeviceContext& dc) const {
    PrepareDCNoOrigin(dc, m_pixelsPerMetre);
}

std::unique_ptr<QDeviceContext> QPageView::ClientDC(bool withOrigin) const {
    auto dc = std::make_unique<QInfoDC>(m_window.ScreenCaps());
    if (withOrigin)
        PrepareDCDefault(*dc);
    else
        PrepareDCDefaultNoOrigin(*dc);
    return dc;
}

QClientPoint QPageView::PageToClient(const QPagePoint& page) const {
    return ClientPoint(page, ClientDC(true).get());
}

QClientVector QPageView::PageToClient(const QPageVector& page) const {
    const auto dc = ClientDC(false);
    const QClientVector window = dc->GetWindowExt();
    const QClientVector viewport = dc->GetViewportExt();
    return {ClampToInt(std::floor(page.x.GetRaw() / (window.x * 0.01) * viewport.x + 0.5)),
            ClampToInt(std::floor(page.y.GetRaw() / (window.y * 0.01) * viewport.y + 0.5))};
}

QClientRect QPageView::PageToClient(const QPageRect& page) const {
    return {PageToClient(page.TopLeft()), PageToClient(page.BottomRight())};
}

QPagePoint QPageView::ClientToPage(const QClientPoint& client) const {
    return PagePoint(client, ClientDC(true).get());
}

QPageVector QPageView::ClientToPage(const QClientVector& client) const {
    const auto dc = ClientDC(false);
    const QClientVector window = dc->GetWindowExt();
    const QClientVector viewport = dc->GetViewportExt();
    return {QLength::FromRaw(client.x * (window.x * 0.01) / viewport.x),
            QLength::FromRaw(client.y * (window.y * 0.01) / viewport.y)};
}

QPageRect QPageView::ClientToPage(const QClientRect& client) const {
    return {ClientToPage(client.TopLeft()), ClientToPage(client.BottomRight())};
}

QClientPoint QPageView::WorldToClient(const QWorldPoint& world) const {
    return PageToClient(WorldToPage(world));
}

QClientVector QPageView::WorldToClient(const QWorldVector& world) const {
    return PageToClient(WorldToPage(world));
}

QClientRect QPageView::WorldToClient(const QWorldRect& world) const {
    return PageToClient(WorldToPage(world));
}

QWorldPoint QPageView::ClientToWorld(const QClientPoint& client) const {
    return PageToWorld(ClientToPage(client));
}

QWorldVector QPageView::ClientToWorld(const QClientVector& client) const {
    return PageToWorld(ClientToPage(client));
}

QWorldRect QPageView::ClientToWorld(const QClientRect& client) const {
    return PageToWorld(ClientToPage(client));
}

QWorldPoint3D QPageView::ClientToWorld3D(const QClientPoint& client) const {
    const QWorldPoint world = ClientToWorld(client);
    return {world.x, world.y, QLength::Zero};
}

QScreenPoint QPageView::ClientToScreen(const QClientPoint& client) const {
    return ScreenPoint(client, m_window);
}

QClientPoint QPageView::ScreenToClient(const QScreenPoint& screen) const {
    return ClientPoint(screen, m_window);
}

QPageRect QPageView::SnapRect(const QPageRect& page, Snap snap) const {
    const auto dc = ClientDC(true);
    double xs[] = {dc->LogicalToDeviceX(page.left.GetRaw() / 0.01),
                   dc->LogicalToDeviceX(page.right.GetRaw() / 0.01)};
    double ys[] = {dc->LogicalToDeviceY(page.top.GetRaw() / 0.01),
                   dc->LogicalToDeviceY(page.bottom.GetRaw() / 0.01)};
    for (double* axis : {xs, ys}) {
        double& low = axis[0] < axis[1] ? axis[0] : axis[1];
        double& high = axis[0] < axis[1] ? axis[1] : axis[0];
        switch (snap) {
        case Snap::nearest:
            low = SnapNearest(low);
            high = SnapNearest(high);
            break;
        case Snap::outward:
            low = std::floor(low + c_pixelSlack);
            high = std::ceil(high - c_pixelSlack);
            break;
        case Snap::inward:
            low = std::ceil(low - c_pixelSlack);
            high = std::max(low, std::floor(high + c_pixelSlack));
            break;
        }
    }
    return {PageOfDevice(xs[0], ys[0], *dc), PageOfDevice(xs[1], ys[1], *dc)};
}

QWorldRect QPageView::SnapRect(const QWorldRect& world, Snap snap) const {
    return PageToWorld(SnapRect(WorldToPage(world), snap));
}

QPageRect QPageView::ClientSnap(const QPageRect& page) const {
    return SnapRect(page, Snap::nearest);
}

QPageRect QPageView::ClientSnapPlus(const QPageRect& page) const {
    return SnapRect(page, Snap::outward);
}

QPageRect QPageView::ClientSnapMinus(const QPageRect& page) const {
    return SnapRect(page, Snap::inward);
}

QWorldRect QPageView::ClientSnap(const QWorldRect& world) const {
    return SnapRect(world, Snap::nearest);
}

QWorldRect QPageView::ClientSnapPlus(const QWorldRect& world) const {
    return SnapRect(world, Snap::outward);
}

QWorldRect QPageView::ClientSnapMinus(const QWorldRect& world) const {
    return SnapRect(world, Snap::inward);
}

QPageVector QPageView::GripPage() const {
    const QPageVector grip = ClientToPage(QClientVector{c_handleRadius, c_handleRadius});
    return {Absolute(grip.x), Absolute(grip.y)};
}

QPageRect QPageView::InflateForHandles(const QPageRect& page) const {
    const QPageVector grip = GripPage();
    return {page.left - grip.x, page.top - grip.y, page.right + grip.x, page.bottom + grip.y};
}

QWorldRect QPageView::InflateForHandles(const QWorldRect& world) const {
    return PageToWorld(InflateForHandles(WorldToPage(world)));
}

QWorldRect QPageView::HandleRectAtPoint(const QWorldPoint& world) const {
    return PageToWorld(HandleRectAtPointPage(WorldToPage(world)));
}

QPageRect QPageView::HandleRectAtPointPage(const QPagePoint& page) const {
    const QPageVector grip = GripPage();
    return {page - grip, page + grip};
}

QPageRect QPageView::GetTotalRectPage() const {
    const QPagePoint origin(m_pageOriginOffset.x, m_pageOriginOffset.y);
    return {origin, origin + m_totalSize};
}

void QPageView::SetPageSize(const QPageVector& size, bool redraw) {
    m_totalSize = size;
    if (redraw)
        RedrawAll();
}

int QPageView::CalcZoomToRect(const QPageRect& page) const {
    const double width = std::fabs(page.Width().GetRaw());
    const double height = std::fabs(page.Height().GetRaw());
    if (tolerance::NearZero(width) || tolerance::NearZero(height))
        ThrowInvalidArgument("no zoom fits a rectangle without width or height");
    const QClientVector client = m_window.ClientSize();
    const QPageVector clientPage = ClientToPage(QClientVector{client.x, client.y});
    const double zoomX = std::floor(std::fabs(clientPage.x.GetRaw()) / width * m_zoom + 0.5);
    const double zoomY = std::floor(std::fabs(clientPage.y.GetRaw()) / height * m_zoom + 0.5);
    return static_cast<int>(std::clamp(std::min(zoomX, zoomY), static_cast<double>(c_smallestZoom),
                                       static_cast<double>(c_largestZoom)));
}

void QPageView::ZoomToRect(const QPageRect& page) {
    const int zoom = CalcZoomToRect(page);
    m_zoomStack.Push(m_zoom, GetScrollPositionPage());
    SetZoom(zoom, false);
    const QClientVector client = m_window.ClientSize();
    const QPageVector half = ClientToPage(QClientVector{client.x / 2, client.y / 2});
    const QPagePoint centre((page.left + page.right) / 2, (page.top + page.bottom) / 2);
    ScrollToPosition(centre - half, true);
}

void QPageView::ZoomPrevious() {
    if (m_zoomStack.IsEmpty())
        return;
    const ZoomEntry entry = m_zoomStack.Pop();
    SetZoom(entry.zoom, true);
    ScrollToPosition(entry.position, false);
}

void QPageView::ScrollToPosition(const QPagePoint& page, bool redraw) {
    const QClientPoint device = PageToClient(page);
    m_scroll = {m_scroll.x + device.x, m_scroll.y + device.y};
    if (redraw)
        RedrawAll();
}

void QPageView::DoScrollBy(const QClientVector& pixels, bool redraw) {
    m_scroll = {m_scroll.x + pixels.x, m_scroll.y + pixels.y};
    if (redraw)
        RedrawAll();
}

void QPageView::DoScrollByUnits(const QPageVector& page, bool redraw) {
    DoScrollBy(PageToClient(page), redraw);
}

void QPageView::KeyScroll(ScrollKey key) {
    const QClientVector client = m_window.ClientSize();
    const QClientVector line{std::max(1, client.x / 10), std::max(1, client.y / 10)};
    const QClientVector page{std::max(1, client.x - line.x), std::max(1, client.y - line.y)};
    const QPageRect total = GetTotalRectPage();
    switch (key) {
    case ScrollKey::lineUp:
        return DoScrollBy({0, -line.y}, true);
    case ScrollKey::lineDown:
        return DoScrollBy({0, line.y}, true);
    case ScrollKey::lineLeft:
        return DoScrollBy({-line.x, 0}, true);
    case ScrollKey::lineRight:
        return DoScrollBy({line.x, 0}, true);
    case ScrollKey::pageUp:
        return DoScrollBy({0, -page.y}, true);
    case ScrollKey::pageDown:
        return DoScrollBy({0, page.y}, true);
    case ScrollKey::home:
        return ScrollToPosition(QPagePoint(total.left, total.bottom), true);
    case ScrollKey::end: {
        const QPageVector visible = ClientToPage(client);
        return ScrollToPosition(QPagePoint(total.right - visible.x, total.top - visible.y), true);
    }
    }
}

void QPageView::DoMouseWheel(int delta, bool zoomKey, const QClientPoint& mouse) {
    constexpr int c_notch = 120;
    const int notches = delta / c_notch;
    if (notches == 0)
        return;
    if (!zoomKey) {
        const int line = std::max(1, m_window.ClientSize().y / 10);
        DoScrollBy({0, -3 * line * notches}, true);
        return;
    }
    double zoom = m_zoom;
    for (int i = 0; i < std::abs(notches); ++i)
        zoom = notches > 0 ? zoom * 1.25 : zoom / 1.25;
    const int next =
        static_cast<int>(std::clamp(std::floor(zoom + 0.5), static_cast<double>(c_smallestZoom),
                                    static_cast<double>(c_largestZoom)));
    if (next == m_zoom)
        return;
    const QPagePoint underMouse = ClientToPage(mouse);
    m_zoomStack.Push(m_zoom, GetScrollPositionPage());
    SetZoom(next, false);
    ScrollToPosition(underMouse - ClientToPage(QClientVector{mouse.x, mouse.y}), true);
}

QScrollBars QPageView::UpdateBars() const {
    const QClientVector total = PageToClient(m_totalSize);
    return {{std::abs(total.x), std::abs(total.y)}, m_window.ClientSize(), m_scroll};
}

QPageRect QPageView::GetPaintingRectPage(const QDeviceContext& dc) const {
    return PageRect(dc.GetClipBox());
}

void QPageView::FillInsideRect(QDeviceContext& dc, const QColour& colour,
                               const QPageRect& page) const {
    dc.FillRect(LogicalRect(page), colour);
}

void QPageView::FillOutsideRect(QDeviceContext& dc, const QColour& colour,
                                const QPageRect& page) const {
    const QClientRect paint = dc.GetClipBox();
    const QClientRect inside = LogicalRect(page);
    const int low = std::max(inside.top, paint.top);
    const int high = std::min(inside.bottom, paint.bottom);
    const int bands[4][4] = {
        {paint.left, paint.top, paint.right, std::min(inside.top, paint.bottom)},
        {paint.left, std::max(inside.bottom, paint.top), paint.right, paint.bottom},
        {paint.left, low, std::min(inside.left, paint.right), high},
        {std::max(inside.right, paint.left), low, paint.right, high},
    };
    for (const auto& band : bands)
        if (band[2] > band[0] && band[3] > band[1])
            dc.FillRect(QClientRect(band[0], band[1], band[2], band[3]), colour);
}

void QPageView::InvalidateRect(const QPageRect& page) {
    m_window.Invalidate(PageToClient(page));
}

void QPageView::RedrawAll() {
    const QClientVector size = m_window.ClientSize();
    m_window.Invalidate(QClientRect(0, 0, size.x, size.y));
}

void QPageMainFrame::UpdateMouseStatus(const QPageView& view, const QClientPoint& mouse) {
    if (!view.WantsMouseStatus())
        return;
    MousePointPage = view.ClientToPage(mouse);
    MousePointWorld = view.PageToWorld(MousePointPage);
    static const QTString c_paper(u"Paper:%s %s", u"Status bar (xCoord,yCoord)");
    static const QTString c_model(u"Model:%s %s", u"Status bar (xCoord,yCoord)");
    static const QTString c_delta(u"Delta:%s %s", u"Status bar (xDelta,yDelta)");
    static const QTString c_distance(u"Dist:%s %s", u"Status bar (dist,angle)");
    const QWorldVector delta = MousePointWorld - PrevPointWorld;
    const double dx = delta.x.GetRaw();
    const double dy = delta.y.GetRaw();
    const QLength distance = QLength::FromRaw(std::hypot(dx, dy));
    const QAngle direction = AngleOfDelta(QLength::raw_to_double(dx), QLength::raw_to_double(dy));
    m_statusBar.SetPaneText(pagePane, CString::Formatted(c_paper, MousePointPage.x.Format(),
                                                         MousePointPage.y.Format()));
    m_statusBar.SetPaneText(worldPane, CString::Formatted(c_model, MousePointWorld.x.Format(),
                                                          MousePointWorld.y.Format()));
    m_statusBar.SetPaneText(deltaPane,
                            CString::Formatted(c_delta, delta.x.Format(), delta.y.Format()));
    m_statusBar.SetPaneText(distancePane,
                            CString::Formatted(c_distance, distance.Format(), direction.Format()));
}

int QMapFlat::SetMode(QDeviceContext& dc) const {
    const int old = dc.SetMapMode(MM_ANISOTROPIC);
    if (m_mirrored) {
        dc.SetWindowExt(-m_windowExt.x, m_windowExt.y);
        dc.SetWindowOrg(m_windowOrg.x + m_windowExt.x, m_windowOrg.y);
    } else {
        dc.SetWindowExt(m_windowExt.x, m_windowExt.y);
        dc.SetWindowOrg(m_windowOrg.x, m_windowOrg.y);
    }
    dc.SetViewportExt(m_viewportExt.x, m_viewportExt.y);
    dc.SetViewportOrg(m_viewportOrg.x, m_viewportOrg.y);
    return old;
}

QWorldPoint QMapFlat::Rotate(const QWorldPoint& point) const {
    const double c = m_theta.Cos();
    const double s = m_theta.Sin();
    const double x = point.x.GetRaw();
    const double y = point.y.GetRaw();
    return {QLength::FromRaw(x * c - y * s), QLength::FromRaw(y * c + x * s)};
}

void QMapFlat::Rotate(QWorldPoly& poly) const {
    for (int i = 0; i < poly.GetCount(); ++i)
        poly.ElementAt(i) = Rotate(poly.Vertex(i));
}

bool QMapFlat::MapMouse(QClientPoint& client, const QWorldPoint& world) const {
    if (!m_valid)
        return false;
    const QWorldPoint turned = Rotate(world);
    // 0.01 rather than 0.5: the map's own rounding, which its drawings have always had.
    const int x = ClampToInt(std::floor(turned.x.GetRaw() / m_zoomRatio / 0.01 + 0.01));
    const int y = ClampToInt(std::floor(turned.y.GetRaw() / m_zoomRatio / 0.01 + 0.01));
    client.x = m_viewportOrg.x + MulDiv(m_viewportExt.x, x - m_windowOrg.x, m_windowExt.x);
    client.y = m_viewportOrg.y - MulDiv(m_viewportExt.y, y - m_windowOrg.y, -m_windowExt.y);
    return true;
}

QWorldPoint QMapFlat::UnmapPoint(const QClientPoint& client) const {
    const double x = m_windowOrg.x + static_cast<double>(client.x - m_viewportOrg.x) *
                                         m_windowExt.x / m_viewportExt.x;
    const double y = m_windowOrg.y + static_cast<double>(m_viewportOrg.y - client.y) *
                                         -m_windowExt.y / m_viewportExt.y;
    const QWorldPoint turned(QLength::FromRaw(x * 0.01 * m_zoomRatio),
                             QLength::FromRaw(y * 0.01 * m_zoomRatio));
    const double c = m_theta.Cos();
    const double s = m_theta.Sin();
    const double tx = turned.x.GetRaw();
    const double ty = turned.y.GetRaw();
    return {QLength::FromRaw(tx * c + ty * s), QLength::FromRaw(ty * c - tx * s)};
}

bool QMapFlat::UnMapMouse(QWorldPoint& world, const QClientPoint& client) const {
    if (!m_valid)
        return false;
    world = UnmapPoint(client);
    return true;
}

QWorldRect QMapFlat::UnmapRect(const QClientRect& client) const {
    QWorldRect world(UnmapPoint(client.TopLeft()), UnmapPoint(client.TopLeft()));
    world.ExtendBy(UnmapPoint(client.BottomRight()));
    world.ExtendBy(UnmapPoint({client.left, client.bottom}));
    world.ExtendBy(UnmapPoint({client.right, client.top}));
    return world;
}

bool QMapFlat::SetZoomedWorldMap(const QWorldRect& world, const QClientRect& client, int margin) {
    m_windowOrg = {0, 0};
    m_windowExt = {1, -1};
    m_viewportExt = {1, 1};
    const int width = client.right - client.left - 2 * margin;
    const int height = client.bottom - client.top - 2 * margin;
    m_valid = false;
    if (width < 1 || height < 1)
        return false;
    m_winCentreX = width / 2.0 + margin;
    m_winCentreY = height / 2.0 + margin;
    const QWorldPoint first = Rotate(world.TopLeft());
    QWorldRect turned(first, first);
    turned.ExtendBy(Rotate(world.BottomRight()));
    turned.ExtendBy(Rotate(QWorldPoint(world.left, world.bottom)));
    turned.ExtendBy(Rotate(QWorldPoint(world.right, world.top)));
    const double dx = turned.Width().GetRaw() / 0.01;
    const double dy = turned.Height().GetRaw() / 0.01;
    if (!(dx >= 1) || !(dy >= 1) || !(m_scale > 0))
        return false;
    m_zoomRatio = std::max(dx / width, dy / height) / m_scale;
    const double midX = (turned.left + turned.right).GetRaw() / 2;
    const double midY = (turned.top + turned.bottom).GetRaw() / 2;
    m_viewportOrg = {
        ClampToInt(std::trunc(m_winCentreX - (midX - m_centreX) / 0.01 / m_zoomRatio)),
        ClampToInt(std::trunc(m_winCentreY + (midY - m_centreY) / 0.01 / m_zoomRatio))};
    m_valid = true;
    return true;
}

} // namespace keel
