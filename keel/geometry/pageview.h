#pragma once

#include "keel/geometry/devicecontext.h"
#include "keel/geometry/pagedoc.h"
#include "keel/values/angle.h"

#include <memory>
#include <optional>
#include <vector>

// The chain of spaces a drawing passes through on its way to the screen:
//   world --(divide by the scale)--> page --(hundredths of a millimetre)--> logical units
//   --(the context's map mode)--> client pixels --(the window's place)--> screen pixels.
// World and page have y upward, client and screen y downward. A view's context maps one metre
// of logical units (100000) to the pixels of a metre at the zoom, y inverted, with page y equal
// to the page height at the top of the client area.

namespace keel {

using QScreenPoint = TPoint<int, c_screenSpace>;
using QHimetricPoint = TPoint<int, c_himetricSpace>;
using QWorldPoint3D = TPoint3D<QLength, c_worldSpace>;

// One metre in logical units: the window extent of a view's map mode.
inline constexpr int c_logicalUnitsAMetre = 100000;

// The pixels a metre of the device: from its pixels and millimetres on each axis. Two values
// that differ by less than 1 % of their mean both become the mean, so pixels stay square.
// Without a context, the reference 3779 at the display's resolution on both axes.
QClientVector PixelsPerMetre(const QDeviceContext* dc);

// The window a view draws in: the size of its client area and where that lies on the screen.
class IPageWindow {
public:
    virtual ~IPageWindow() = default;
    virtual QClientVector ClientSize() const = 0;
    virtual QScreenPoint ClientOriginOnScreen() const = 0;
    // What the screen the window is on measures.
    virtual QDeviceCaps ScreenCaps() const = 0;
    // Asks for the client rectangle to be painted again.
    virtual void Invalidate(const QClientRect& rect) = 0;
};

// A window that is not shown: a client area of a fixed size at a place on a screen of 96 dots
// an inch. It counts the rectangles it is asked to paint again.
class QFixedWindow final : public IPageWindow {
public:
    QFixedWindow(int width, int height, QScreenPoint origin = {});
    QClientVector ClientSize() const override { return m_size; }
    QScreenPoint ClientOriginOnScreen() const override { return m_origin; }
    QDeviceCaps ScreenCaps() const override;
    void Invalidate(const QClientRect& rect) override { m_invalidated.push_back(rect); }
    const std::vector<QClientRect>& Invalidated() const { return m_invalidated; }
    void Resize(int width, int height) { m_size = {width, height}; }

private:
    QClientVector m_size;
    QScreenPoint m_origin;
    std::vector<QClientRect> m_invalidated;
};

// Free functions of the chain, for loops over many points with one prepared context.
QClientPoint ClientPoint(const QScreenPoint& screen, const IPageWindow& window);
QClientPoint ClientPoint(const QHimetricPoint& himetric, const QDeviceContext* dc);
// With no context, plain logical units.
QClientPoint ClientPoint(const QPagePoint& page, const QDeviceContext* dc);
QClientPoint ClientPoint(const QWorldPoint& world, const QDeviceContext* dc, int scale);
QScreenPoint ScreenPoint(const QClientPoint& client, const IPageWindow& window);
QPagePoint PagePoint(const QClientPoint& client, const QDeviceContext* dc);
QWorldPoint WorldPoint(const QClientPoint& client, const QDeviceContext* dc, int scale);
QHimetricPoint HIMETRICPoint(const QClientPoint& client, const QDeviceContext* dc);
// A page point moved onto the nearest pixel, or the pixel above and right of it (Plus, away
// from the page origin) or below and left (Minus).
QPagePoint ClientSnap(const QPagePoint& page, const QDeviceContext& dc);
QPagePoint ClientSnapPlus(const QPagePoint& page, const QDeviceContext& dc);
QPagePoint ClientSnapMinus(const QPagePoint& page, const QDeviceContext& dc);

// The zoom and top-left page point a view had, to go back to.
struct ZoomEntry {
    int zoom = 100;
    QPagePoint position;
};

class QZoomPreviousStack {
public:
    void Push(int zoom, const QPagePoint& position) { m_entries.push_back({zoom, position}); }
    // Both fail with an invalid argument on an empty stack.
    ZoomEntry Pop();
    const ZoomEntry& Top() const;
    bool IsEmpty() const { return m_entries.empty(); }
    int GetCount() const { return static_cast<int>(m_entries.size()); }

private:
    std::vector<ZoomEntry> m_entries;
};

// The keys that scroll a view.
enum class ScrollKey { lineUp, lineDown, lineLeft, lineRight, pageUp, pageDown, home, end };

// What a view's scroll bars show, in client pixels: the whole page, the part the client area
// shows and where that part starts.
struct QScrollBars {
    QClientVector total;
    QClientVector visible;
    QClientPoint position;
};

// A view with a caption over its drawing.
class QView {
public:
    virtual ~QView() = default;
    const CString& Caption() const { return m_caption; }
    void SetCaption(const CString& text, bool redraw);
    int CaptionHeight() const { return m_captionHeight; }
    void SetCaptionHeight(int height) { m_captionHeight = height; }
    virtual bool IsViewGL() const { return false; }
    virtual bool IsViewDrawAllowed() const { return true; }

protected:
    virtual void RedrawAll() {}

private:
    CString m_caption;
    int m_captionHeight = 0;
};

// A page shown in a window at a zoom in percent, scrolled. Conversions between page and client
// prepare a context of the window each time; loops take one with PrepareDCDefault and use the
// free functions.
class QPageView : public QView, public IPageSizeFollower {
public:
    static constexpr int c_smallestZoom = 1;
    static constexpr int c_largestZoom = 100000;
    // The grip around a selected point, in client pixels each way.
    static constexpr int c_handleRadius = 3;

    // Follows the document's page size while it lives.
    QPageView(QPageDoc& doc, IPageWindow& window);
    ~QPageView() override;
    QPageView(const QPageView&) = delete;
    QPageView& operator=(const QPageView&) = delete;

    QPageDoc& GetDoc() const { return m_doc; }
    IPageWindow& Window() const { return m_window; }
    int GetZoom() const { return m_zoom; }
    // A zoom outside 1 to 100000 percent is an invalid argument.
    virtual void SetZoom(int percent, bool redraw);
    const QClientVector& GetPixelsPerMetre() const { return m_pixelsPerMetre; }
    void SetPixelsPerMetre(const QClientVector& pixels);
    // A view embedded in another application's document shows at that container's factor in
    // place of zoom/100; nothing ends that.
    void SetContainerZoomFactor(std::optional<double> factor) { m_containerZoom = factor; }
    // Pixels a millimetre of page across and down at this zoom.
    void GetZoomFactors(double& x, double& y) const;
    static int HandleRadius() { return c_handleRadius; }

    // The map mode: one metre of logical units to its pixels at the zoom (not on a printer), y
    // inverted. With the origin, the page's top at the client's top, scrolled.
    virtual void PrepareDCNoOrigin(QDeviceContext& dc, const QClientVector& pixelsPerMetre) const;
    virtual void PrepareDC(QDeviceContext& dc, const QClientVector& pixelsPerMetre) const;
    virtual void PrepareDCDefault(QDeviceContext& dc) const;
    virtual void PrepareDCDefaultNoOrigin(QDeviceContext& dc) const;
    // A context of the window with the view's mode.
    std::unique_ptr<QDeviceContext> ClientDC(bool withOrigin) const;

    QClientPoint PageToClient(const QPagePoint& page) const;
    QClientVector PageToClient(const QPageVector& page) const;
    QClientRect PageToClient(const QPageRect& page) const;
    QPagePoint ClientToPage(const QClientPoint& client) const;
    QPageVector ClientToPage(const QClientVector& client) const;
    QPageRect ClientToPage(const QClientRect& client) const;
    QClientPoint WorldToClient(const QWorldPoint& world) const;
    QClientVector WorldToClient(const QWorldVector& world) const;
    QClientRect WorldToClient(const QWorldRect& world) const;
    QWorldPoint ClientToWorld(const QClientPoint& client) const;
    QWorldVector ClientToWorld(const QClientVector& client) const;
    QWorldRect ClientToWorld(const QClientRect& client) const;
    virtual QWorldPoint3D ClientToWorld3D(const QClientPoint& client) const;
    QScreenPoint ClientToScreen(const QClientPoint& client) const;
    QClientPoint ScreenToClient(const QScreenPoint& screen) const;
    QPagePoint WorldToPage(const QWorldPoint& world) const { return m_doc.WorldToPage(world); }
    QPageVector WorldToPage(const QWorldVector& world) const { return m_doc.WorldToPage(world); }
    QPageRect WorldToPage(const QWorldRect& world) const { return m_doc.WorldToPage(world); }
    QWorldPoint PageToWorld(const QPagePoint& page) const { return m_doc.PageToWorld(page); }
    QWorldVector PageToWorld(const QPageVector& page) const { return m_doc.PageToWorld(page); }
    QWorldRect PageToWorld(const QPageRect& page) const { return m_doc.PageToWorld(page); }

    // The rectangle on whole pixels: the nearest, the smallest that holds it, the largest it
    // holds.
    QPageRect ClientSnap(const QPageRect& page) const;
    QPageRect ClientSnapPlus(const QPageRect& page) const;
    QPageRect ClientSnapMinus(const QPageRect& page) const;
    QWorldRect ClientSnap(const QWorldRect& world) const;
    QWorldRect ClientSnapPlus(const QWorldRect& world) const;
    QWorldRect ClientSnapMinus(const QWorldRect& world) const;

    // Widened by the grip on each side.
    QPageRect InflateForHandles(const QPageRect& page) const;
    QWorldRect InflateForHandles(const QWorldRect& world) const;
    virtual QWorldRect HandleRectAtPoint(const QWorldPoint& world) const;
    virtual QPageRect HandleRectAtPointPage(const QPagePoint& page) const;

    const QPageVector& GetTotalSizePage() const { return m_totalSize; }
    QWorldVector GetTotalSizeWorld() const { return PageToWorld(m_totalSize); }
    QPageRect GetTotalRectPage() const;
    QWorldRect GetTotalRectWorld() const { return PageToWorld(GetTotalRectPage()); }
    void SetPageOriginOffset(const QPageVector& offset) { m_pageOriginOffset = offset; }
    void SetPageSize(const QPageVector& size, bool redraw) override;

    // The zoom at which the rectangle fills the client area on its tighter axis. The rectangle
    // must have a width and a height.
    int CalcZoomToRect(const QPageRect& page) const;
    int CalcZoomToPage() const { return CalcZoomToRect(GetTotalRectPage()); }
    int CalcZoomToRectWorld(const QWorldRect& world) const {
        return CalcZoomToRect(WorldToPage(world));
    }
    // Each remembers the zoom and position before it, for ZoomPrevious, and centres the
    // rectangle.
    void ZoomToRect(const QPageRect& page);
    void ZoomToPage() { ZoomToRect(GetTotalRectPage()); }
    void ZoomToRectWorld(const QWorldRect& world) { ZoomToRect(WorldToPage(world)); }
    // Back to the zoom and position before the last zoom to a rectangle; nothing when there was
    // none.
    void ZoomPrevious();
    const QZoomPreviousStack& ZoomStack() const { return m_zoomStack; }

    // The page point at the client's top-left corner.
    void ScrollToPosition(const QPagePoint& page, bool redraw);
    QPagePoint GetScrollPositionPage() const { return ClientToPage(QClientPoint(0, 0)); }
    void SetScrollPositionPage(const QPagePoint& page) { ScrollToPosition(page, false); }
    void ScrollToPositionWorld(const QWorldPoint& world, bool redraw) {
        ScrollToPosition(WorldToPage(world), redraw);
    }
    QWorldPoint GetScrollPositionWorld() const { return PageToWorld(GetScrollPositionPage()); }

    // Scrolling by the person. A line is a tenth of the client area, a page the client area less
    // a line; pixels move the client area over the page, y down the page.
    void DoScrollBy(const QClientVector& pixels, bool redraw);
    // By a distance on the page, y up the page.
    void DoScrollByUnits(const QPageVector& page, bool redraw);
    // Home and end go to the page's top-left and bottom-right corners.
    void KeyScroll(ScrollKey key);
    // Each notch of 120 scrolls three lines down for a negative delta. With the zoom key it zooms
    // in by a quarter for each notch up (out for each down), keeping the page point under the
    // mouse where it is, and remembers the zoom before for ZoomPrevious.
    void DoMouseWheel(int delta, bool zoomKey, const QClientPoint& mouse);
    QScrollBars UpdateBars() const;

    // The painting rectangle of the context in page units.
    QPageRect GetPaintingRectPage(const QDeviceContext& dc) const;
    void FillInsideRect(QDeviceContext& dc, const QColour& colour, const QPageRect& page) const;
    // The four bands around the rectangle within the painting rectangle.
    void FillOutsideRect(QDeviceContext& dc, const QColour& colour, const QPageRect& page) const;
    void InvalidateRect(const QPageRect& page);

    // Whether the frame shows where the mouse is in this view.
    virtual bool WantsMouseStatus() const { return true; }

protected:
    void RedrawAll() override;

private:
    enum class Snap { nearest, outward, inward };
    QPageRect SnapRect(const QPageRect& page, Snap snap) const;
    QWorldRect SnapRect(const QWorldRect& world, Snap snap) const;
    QPageVector GripPage() const;

    QPageDoc& m_doc;
    IPageWindow& m_window;
    QPageVector m_totalSize{QLength::FromRaw(1000), QLength::FromRaw(1000)};
    QPageVector m_pageOriginOffset;
    QClientPoint m_scroll{0, 0};
    QClientVector m_pixelsPerMetre;
    int m_zoom = 100;
    std::optional<double> m_containerZoom;
    QZoomPreviousStack m_zoomStack;
};

// Where the status texts of the mouse go.
class IStatusBar {
public:
    virtual ~IStatusBar() = default;
    virtual void SetPaneText(int pane, const CString& text) = 0;
};

// The main window's memory of world points, and the status of the mouse.
class QPageMainFrame {
public:
    enum Pane { pagePane = 0, worldPane = 1, deltaPane = 2, distancePane = 3 };

    explicit QPageMainFrame(IStatusBar& statusBar) : m_statusBar(statusBar) {}

    QWorldPoint LastPointWorld;
    QWorldPoint PrevPointWorld;
    QWorldPoint SecondPointWorld;
    QWorldPoint OriginalPointWorld;
    QPagePoint MousePointPage;
    QWorldPoint MousePointWorld;

    // Takes the mouse at a client point of the view and, if the view asks for it, writes
    // "Paper:x y", "Model:x y", "Delta:dx dy" from the previous point and "Dist:d angle".
    void UpdateMouseStatus(const QPageView& view, const QClientPoint& mouse);

private:
    IStatusBar& m_statusBar;
};

// A map from a world rectangle to a small client rectangle, held by value: a preview's map. Its
// own integer mode maps world points to client pixels.
class QMapFlat {
public:
    void SetScale(double scale) { m_scale = scale; }
    double Scale() const { return m_scale; }
    void SetCentre(double x, double y) {
        m_centreX = x;
        m_centreY = y;
    }
    void SetMirrored(bool mirrored) { m_mirrored = mirrored; }
    bool Mirrored() const { return m_mirrored; }
    void SetWindowExt(int x, int y) { m_windowExt = {x, y}; }
    void SetWindowOrg(int x, int y) { m_windowOrg = {x, y}; }
    void SetViewportExt(int x, int y) { m_viewportExt = {x, y}; }
    void SetViewportOrg(int x, int y) { m_viewportOrg = {x, y}; }
    const QClientVector& WindowExt() const { return m_windowExt; }
    const QClientPoint& WindowOrg() const { return m_windowOrg; }
    const QClientVector& ViewportExt() const { return m_viewportExt; }
    const QClientPoint& ViewportOrg() const { return m_viewportOrg; }
    void SetValid(bool valid) { m_valid = valid; }
    bool IsValid() const { return m_valid; }
    double ClipRatio() const { return m_clipRatio; }
    void SetClipRatio(double ratio) { m_clipRatio = ratio; }
    double ClipRatioAuto() const { return m_clipRatioAuto; }
    void SetClipRatioAuto(double ratio) { m_clipRatioAuto = ratio; }
    const QAngle& Theta() const { return m_theta; }
    void SetTheta(const QAngle& theta) { m_theta = theta; }
    const QAngle& AngleStep() const { return m_angleStep; }
    double ZoomRatio() const { return m_zoomRatio; }
    void GetWinCentre(double& x, double& y) const {
        x = m_winCentreX;
        y = m_winCentreY;
    }

    // Anisotropic, the window extent negated on x when mirrored with the origin moved by it;
    // gives the mode it replaces.
    int SetMode(QDeviceContext& dc) const;
    QWorldPoint Rotate(const QWorldPoint& point) const;
    void Rotate(QWorldPoly& poly) const;
    // The client pixel of a world point; false when the map is not valid.
    bool MapMouse(QClientPoint& client, const QWorldPoint& world) const;
    // The world point of a client pixel; false when the map is not valid.
    bool UnMapMouse(QWorldPoint& world, const QClientPoint& client) const;
    QWorldPoint UnmapPoint(const QClientPoint& client) const;
    QWorldRect UnmapRect(const QClientRect& client) const;
    // Fits the rotated world rectangle into the client rectangle less the margin, centred;
    // false, leaving the map invalid, when no pixel is left or the world has no width or height.
    bool SetZoomedWorldMap(const QWorldRect& world, const QClientRect& client, int margin);

private:
    double m_scale = 1.0;
    double m_centreX = 0;
    double m_centreY = 0;
    bool m_valid = false;
    double m_winCentreX = 0;
    double m_winCentreY = 0;
    QClientVector m_windowExt{1, 1};
    QClientPoint m_windowOrg{0, 0};
    QClientVector m_viewportExt{1, 1};
    QClientPoint m_viewportOrg{0, 0};
    double m_zoomRatio = 1.0;
    bool m_mirrored = false;
    QAngle m_theta;
    QAngle m_angleStep = QAngle::Deg15;
    double m_clipRatio = 100.0;
    double m_clipRatioAuto = 100.0;
};

} // namespace keel
