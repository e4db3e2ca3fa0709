#pragma once

#include "keel/geometry/devicecontext.h"

#include <memory>

typedef struct _cairo_surface cairo_surface_t;
typedef struct _cairo cairo_t;

namespace keel {

// A context over a Cairo surface: an image to be written as PNG, an SVG file, or a PDF file that
// stands for a printer. Device pixels are the image's pixels, the SVG's px units, or dots of
// 600 an inch on the PDF page. Strokes run along pixel centres, so that a one-pixel line at x
// covers exactly column x when antialiasing is off.
class QCairoDC final : public QDeviceContext {
public:
    // Larger surfaces are refused before anything is allocated.
    static constexpr long long c_mostPixels = 100'000'000;
    // The largest side an image may have.
    static constexpr int c_longestSide = 32767;
    // The page sizes a printer takes, in millimetres.
    static constexpr double c_smallestPageMillimetres = 1;
    static constexpr double c_largestPageMillimetres = 5000;
    static constexpr int c_printerDpi = 600;

    // An image of the size at the resolution, white, with or without antialiasing.
    static std::unique_ptr<QCairoDC> CreateImage(int widthPixels, int heightPixels, int dpi,
                                                 bool antialias);
    static std::unique_ptr<QCairoDC> CreateSvg(const CString& path, int widthPixels,
                                               int heightPixels, int dpi);
    // One page of the size in millimetres, measured as a printer is.
    static std::unique_ptr<QCairoDC> CreatePdf(const CString& path, double widthMillimetres,
                                               double heightMillimetres);

    ~QCairoDC() override;

    // Cairo keeps the fonts it has drawn with for the life of the process. A program that has
    // destroyed its last context may let them go, so that nothing is left for a leak check.
    static void ReleaseCaches();

    bool IsPrinting() const override { return m_printing; }
    // The image as a PNG file; only for an image.
    void WritePng(const CString& path);
    // Completes an SVG or PDF file; drawing afterwards is refused.
    void Finish();

protected:
    void DevicePen(const QColour& colour, int widthPixels) override;
    void DeviceBrush(std::optional<QColour> colour) override;
    void DeviceLines(std::span<const QClientPoint> points) override;
    void DevicePolygon(std::span<const QClientPoint> points) override;
    void DeviceBeziers(std::span<const QClientPoint> points) override;
    void DeviceEllipse(const QClientRect& bounds) override;
    void DeviceText(const QClientPoint& topLeft, int heightPixels, const CString& text) override;
    void DeviceFill(const QClientRect& rect, const QColour& colour) override;

private:
    QCairoDC(cairo_surface_t* surface, const QDeviceCaps& caps, bool printing, double unitScale);
    void Check() const;
    void SetSource(const QColour& colour);
    void Stroke();
    void FillAndStroke();

    cairo_surface_t* m_surface;
    cairo_t* m_cairo;
    bool m_printing;
    bool m_finished = false;
    QColour m_pen;
    int m_penWidth = 1;
    std::optional<QColour> m_brush;
};

// Refuses, with the reason, an image that is empty or larger than QCairoDC takes.
void CheckImageSize(long long widthPixels, long long heightPixels);

} // namespace keel
