#pragma once

#include "keel/geometry/tpoint.h"
#include "keel/platform/cstring.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace keel {

using QClientPoint = TPoint<int, c_clientSpace>;
using QClientVector = TVector<int, c_clientSpace>;
using QClientRect = TRect<int, c_clientSpace>;

// The map modes a device context knows: logical units are device pixels, or any two extents.
inline constexpr int MM_TEXT = 1;
inline constexpr int MM_ANISOTROPIC = 8;

// The device capabilities a context answers, by the desktop platform's indices.
inline constexpr int HORZSIZE = 4;    // width in millimetres
inline constexpr int VERTSIZE = 6;    // height in millimetres
inline constexpr int HORZRES = 8;     // width in pixels
inline constexpr int VERTRES = 10;    // height in pixels
inline constexpr int LOGPIXELSX = 88; // pixels an inch across
inline constexpr int LOGPIXELSY = 90; // pixels an inch down

// The resolution the program's own pixel sizes are given for.
inline constexpr int c_referenceDpi = 96;
// 96 dots an inch, in pixels a metre.
inline constexpr int c_referencePixelsPerMetre = 3779;

// A size given for the reference resolution, at the resolution of the display the program runs on
// (SetDisplayDpi, 96 unless set).
int ScaleDimensionForDPI(int value);
// The same for a given resolution.
int ScaleDimensionForDPI(int value, int dpi);
void SetDisplayDpi(int dpi);
int DisplayDpi();

// What a device measures: its size in pixels and in millimetres and its pixels an inch.
struct QDeviceCaps {
    int widthPixels = 0;
    int heightPixels = 0;
    int widthMillimetres = 0;
    int heightMillimetres = 0;
    int dpiX = c_referenceDpi;
    int dpiY = c_referenceDpi;
};

struct QColour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    friend bool operator==(const QColour&, const QColour&) = default;
};

// The point types of PolyDraw.
inline constexpr std::uint8_t PT_MOVETO = 6;
inline constexpr std::uint8_t PT_LINETO = 2;
inline constexpr std::uint8_t PT_BEZIERTO = 4;
inline constexpr std::uint8_t PT_CLOSEFIGURE = 1;

// A surface to draw on in integer logical units. The context holds the map mode and turns every
// logical point into device pixels with MulDiv, as the desktop platform does, before a back end
// draws it: device = viewport origin + MulDiv(logical - window origin, viewport extent, window
// extent), for x and for y. In MM_TEXT both extents are 1. A back end sees only device pixels,
// so what it draws is the integer arithmetic of the mapping exactly.
class QDeviceContext {
public:
    virtual ~QDeviceContext() = default;
    QDeviceContext(const QDeviceContext&) = delete;
    QDeviceContext& operator=(const QDeviceContext&) = delete;

    // A printer takes no zoom: a page prints at its own size.
    virtual bool IsPrinting() const { return false; }
    int GetDeviceCaps(int index) const;
    const QDeviceCaps& DeviceCaps() const { return m_caps; }

    // Each returns what it replaces.
    int SetMapMode(int mode);
    QClientVector SetWindowExt(int x, int y);
    QClientPoint SetWindowOrg(int x, int y);
    QClientVector SetViewportExt(int x, int y);
    QClientPoint SetViewportOrg(int x, int y);
    int GetMapMode() const { return m_mapMode; }
    QClientVector GetWindowExt() const;
    QClientPoint GetWindowOrg() const { return m_windowOrg; }
    QClientVector GetViewportExt() const;
    QClientPoint GetViewportOrg() const { return m_viewportOrg; }

    QClientPoint LPtoDP(const QClientPoint& logical) const;
    QClientPoint DPtoLP(const QClientPoint& device) const;
    // Logical units to device pixels and back, without rounding.
    double LogicalToDeviceX(double logical) const;
    double LogicalToDeviceY(double logical) const;
    double DeviceToLogicalX(double device) const;
    double DeviceToLogicalY(double device) const;
    // The whole device in logical units, normalised.
    QClientRect GetClipBox() const;

    // Pen and brush. A width of 0 is one pixel; no brush leaves shapes unfilled.
    void SetPen(const QColour& colour, int widthPixels);
    void SetBrush(std::optional<QColour> colour);
    // Text height in logical units; its placement point is the top-left of the text.
    void SetTextHeight(int logicalHeight);

    void MoveTo(const QClientPoint& point);
    void LineTo(const QClientPoint& point);
    void Polyline(std::span<const QClientPoint> points);
    // Closed and filled with the brush. Nothing is drawn for no points.
    void Polygon(std::span<const QClientPoint> points);
    // A start point and three more for each cubic.
    void PolyBezier(std::span<const QClientPoint> points);
    // Points with a PT_ type each.
    void PolyDraw(std::span<const QClientPoint> points, std::span<const std::uint8_t> types);
    void Ellipse(const QClientRect& bounds);
    void TextOut(const QClientPoint& point, const CString& text);
    void FillRect(const QClientRect& rect, const QColour& colour);

protected:
    explicit QDeviceContext(const QDeviceCaps& caps) : m_caps(caps) {}
    void SetDeviceCaps(const QDeviceCaps& caps) { m_caps = caps; }

    // The back end, in device pixels.
    virtual void DevicePen(const QColour& colour, int widthPixels) = 0;
    virtual void DeviceBrush(std::optional<QColour> colour) = 0;
    virtual void DeviceLines(std::span<const QClientPoint> points) = 0;
    virtual void DevicePolygon(std::span<const QClientPoint> points) = 0;
    virtual void DeviceBeziers(std::span<const QClientPoint> points) = 0;
    virtual void DeviceEllipse(const QClientRect& bounds) = 0;
    virtual void DeviceText(const QClientPoint& topLeft, int heightPixels, const CString& text) = 0;
    virtual void DeviceFill(const QClientRect& rect, const QColour& colour) = 0;

private:
    std::vector<QClientPoint> ToDevice(std::span<const QClientPoint> points) const;
    void FlushPath(std::vector<QClientPoint>& path, bool beziers);

    QDeviceCaps m_caps;
    int m_mapMode = MM_TEXT;
    QClientVector m_windowExt{1, 1};
    QClientPoint m_windowOrg{0, 0};
    QClientVector m_viewportExt{1, 1};
    QClientPoint m_viewportOrg{0, 0};
    QClientPoint m_current{0, 0};
    int m_textHeight = 12;
};

// A context that measures and maps but has nothing to draw on, for conversions: what a window's
// temporary context is when only its mode matters.
class QInfoDC final : public QDeviceContext {
public:
    explicit QInfoDC(const QDeviceCaps& caps, bool printing = false)
        : QDeviceContext(caps), m_printing(printing) {}
    bool IsPrinting() const override { return m_printing; }

protected:
    void DevicePen(const QColour&, int) override {}
    void DeviceBrush(std::optional<QColour>) override {}
    void DeviceLines(std::span<const QClientPoint>) override {}
    void DevicePolygon(std::span<const QClientPoint>) override {}
    void DeviceBeziers(std::span<const QClientPoint>) override {}
    void DeviceEllipse(const QClientRect&) override {}
    void DeviceText(const QClientPoint&, int, const CString&) override {}
    void DeviceFill(const QClientRect&, const QColour&) override {}

private:
    bool m_printing;
};

} // namespace keel
