#include "keel/geometry/cairodc.h"

#include "keel/platform/exceptions.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <numbers>
#include <string>

namespace keel {

namespace {

constexpr double c_millimetresAnInch = 25.4;
constexpr double c_pointsAnInch = 72;

[[noreturn]] void Fail(const std::string& message) {
    throw CException(message);
}

void CheckStatus(cairo_status_t status, const std::string& what) {
    if (status != CAIRO_STATUS_SUCCESS)
        Fail(what + ": " + cairo_status_to_string(status));
}

QDeviceCaps ImageCaps(int widthPixels, int heightPixels, int dpi) {
    QDeviceCaps caps;
    caps.widthPixels = widthPixels;
    caps.heightPixels = heightPixels;
    caps.widthMillimetres = static_cast<int>(std::lround(widthPixels * c_millimetresAnInch / dpi));
    caps.heightMillimetres =
        static_cast<int>(std::lround(heightPixels * c_millimetresAnInch / dpi));
    caps.dpiX = caps.dpiY = dpi;
    return caps;
}

void CheckDpi(int dpi) {
    if (dpi < 1 || dpi > 10000)
        Fail("A resolution of " + std::to_string(dpi) + " dpi is outside 1 to 10000");
}

double PixelCentre(int coordinate) {
    return coordinate + 0.5;
}

} // namespace

void CheckImageSize(long long widthPixels, long long heightPixels) {
    const std::string size = std::to_string(widthPixels) + " by " + std::to_string(heightPixels);
    if (widthPixels < 1 || heightPixels < 1)
        Fail("An image of " + size + " pixels is empty");
    if (widthPixels > QCairoDC::c_longestSide || heightPixels > QCairoDC::c_longestSide)
        Fail("An image of " + size + " pixels has a side longer than " +
             std::to_string(QCairoDC::c_longestSide) + " pixels");
    if (widthPixels * heightPixels > QCairoDC::c_mostPixels)
        Fail("An image of " + size + " pixels is larger than the limit of " +
             std::to_string(QCairoDC::c_mostPixels / 1'000'000) + " megapixels");
}

std::unique_ptr<QCairoDC> QCairoDC::CreateImage(int widthPixels, int heightPixels, int dpi,
                                                bool antialias) {
    CheckImageSize(widthPixels, heightPixels);
    CheckDpi(dpi);
    cairo_surface_t* surface =
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, widthPixels, heightPixels);
    std::unique_ptr<QCairoDC> dc(
        new QCairoDC(surface, ImageCaps(widthPixels, heightPixels, dpi), false, 1.0));
    cairo_set_antialias(dc->m_cairo, antialias ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
    dc->SetSource({255, 255, 255});
    cairo_paint(dc->m_cairo);
    return dc;
}

std::unique_ptr<QCairoDC> QCairoDC::CreateSvg(const CString& path, int widthPixels,
                                              int heightPixels, int dpi) {
    CheckImageSize(widthPixels, heightPixels);
    CheckDpi(dpi);
    cairo_surface_t* surface =
        cairo_svg_surface_create(path.ToUtf8().c_str(), widthPixels, heightPixels);
    cairo_svg_surface_set_document_unit(surface, CAIRO_SVG_UNIT_PX);
    return std::unique_ptr<QCairoDC>(
        new QCairoDC(surface, ImageCaps(widthPixels, heightPixels, dpi), false, 1.0));
}

std::unique_ptr<QCairoDC> QCairoDC::CreatePdf(const CString& path, double widthMillimetres,
                                              double heightMillimetres) {
    for (const double side : {widthMillimetres, heightMillimetres})
        if (!(side >= c_smallestPageMillimetres && side <= c_largestPageMillimetres))
            Fail("A printed page of " + std::to_string(widthMillimetres) + " by " +
                 std::to_string(heightMillimetres) + " mm is outside 1 to 5000 mm a side");
    const double pointsAMillimetre = c_pointsAnInch / c_millimetresAnInch;
    cairo_surface_t* surface =
        cairo_pdf_surface_create(path.ToUtf8().c_str(), widthMillimetres * pointsAMillimetre,
                                 heightMillimetres * pointsAMillimetre);
    QDeviceCaps caps;
    caps.widthPixels =
        static_cast<int>(std::lround(widthMillimetres / c_millimetresAnInch * c_printerDpi));
    caps.heightPixels =
        static_cast<int>(std::lround(heightMillimetres / c_millimetresAnInch * c_printerDpi));
    caps.widthMillimetres = static_cast<int>(std::lround(widthMillimetres));
    caps.heightMillimetres = static_cast<int>(std::lround(heightMillimetres));
    caps.dpiX = caps.dpiY = c_printerDpi;
    return std::unique_ptr<QCairoDC>(
        new QCairoDC(surface, caps, true, c_pointsAnInch / c_printerDpi));
}

QCairoDC::QCairoDC(cairo_surface_t* surface, const QDeviceCaps& caps, bool printing,
                   double unitScale)
    : QDeviceContext(caps), m_surface(surface), m_cairo(cairo_create(surface)),
      m_printing(printing) {
    const cairo_status_t status = cairo_status(m_cairo);
    if (status != CAIRO_STATUS_SUCCESS) {
        cairo_destroy(m_cairo);
        cairo_surface_destroy(m_surface);
        CheckStatus(status, "Cannot make the drawing surface");
    }
    cairo_scale(m_cairo, unitScale, unitScale);
    cairo_set_line_cap(m_cairo, CAIRO_LINE_CAP_SQUARE);
    cairo_set_line_join(m_cairo, CAIRO_LINE_JOIN_MITER);
}

QCairoDC::~QCairoDC() {
    cairo_destroy(m_cairo);
    cairo_surface_destroy(m_surface);
}

void QCairoDC::ReleaseCaches() {
    cairo_debug_reset_static_data();
}

void QCairoDC::WritePng(const CString& path) {
    if (cairo_surface_get_type(m_surface) != CAIRO_SURFACE_TYPE_IMAGE)
        Fail("Only an image is written as PNG");
    cairo_surface_flush(m_surface);
    CheckStatus(cairo_surface_write_to_png(m_surface, path.ToUtf8().c_str()),
                "Cannot write the PNG file " + path.ToUtf8());
}

void QCairoDC::Finish() {
    Check();
    cairo_surface_finish(m_surface);
    m_finished = true;
    CheckStatus(cairo_surface_status(m_surface), "Cannot write the drawing");
}

void QCairoDC::Check() const {
    if (m_finished)
        Fail("The drawing is finished");
    CheckStatus(cairo_status(m_cairo), "Cannot draw");
}

void QCairoDC::SetSource(const QColour& colour) {
    cairo_set_source_rgb(m_cairo, colour.red / 255.0, colour.green / 255.0, colour.blue / 255.0);
}

void QCairoDC::Stroke() {
    SetSource(m_pen);
    cairo_set_line_width(m_cairo, m_penWidth);
    cairo_stroke(m_cairo);
}

void QCairoDC::FillAndStroke() {
    if (m_brush) {
        SetSource(*m_brush);
        cairo_fill_preserve(m_cairo);
    }
    Stroke();
}

void QCairoDC::DevicePen(const QColour& colour, int widthPixels) {
    m_pen = colour;
    m_penWidth = widthPixels;
}

void QCairoDC::DeviceBrush(std::optional<QColour> colour) {
    m_brush = colour;
}

void QCairoDC::DeviceLines(std::span<const QClientPoint> points) {
    Check();
    cairo_move_to(m_cairo, PixelCentre(points[0].x), PixelCentre(points[0].y));
    for (std::size_t i = 1; i < points.size(); ++i)
        cairo_line_to(m_cairo, PixelCentre(points[i].x), PixelCentre(points[i].y));
    Stroke();
}

void QCairoDC::DevicePolygon(std::span<const QClientPoint> points) {
    Check();
    cairo_move_to(m_cairo, PixelCentre(points[0].x), PixelCentre(points[0].y));
    for (std::size_t i = 1; i < points.size(); ++i)
        cairo_line_to(m_cairo, PixelCentre(points[i].x), PixelCentre(points[i].y));
    cairo_close_path(m_cairo);
    FillAndStroke();
}

void QCairoDC::DeviceBeziers(std::span<const QClientPoint> points) {
    Check();
    cairo_move_to(m_cairo, PixelCentre(points[0].x), PixelCentre(points[0].y));
    for (std::size_t i = 1; i + 2 < points.size(); i += 3)
        cairo_curve_to(m_cairo, PixelCentre(points[i].x), PixelCentre(points[i].y),
                       PixelCentre(points[i + 1].x), PixelCentre(points[i + 1].y),
                       PixelCentre(points[i + 2].x), PixelCentre(points[i + 2].y));
    Stroke();
}

void QCairoDC::DeviceEllipse(const QClientRect& bounds) {
    Check();
    const double radiusX = (bounds.right - bounds.left) / 2.0;
    const double radiusY = (bounds.bottom - bounds.top) / 2.0;
    if (radiusX <= 0 || radiusY <= 0)
        return;
    cairo_save(m_cairo);
    cairo_translate(m_cairo, bounds.left + radiusX + 0.5, bounds.top + radiusY + 0.5);
    cairo_scale(m_cairo, radiusX, radiusY);
    cairo_new_path(m_cairo);
    cairo_arc(m_cairo, 0, 0, 1, 0, 2 * std::numbers::pi);
    cairo_restore(m_cairo);
    FillAndStroke();
}

void QCairoDC::DeviceText(const QClientPoint& topLeft, int heightPixels, const CString& text) {
    Check();
    if (heightPixels < 1)
        return;
    cairo_select_font_face(m_cairo, "sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(m_cairo, heightPixels);
    cairo_font_extents_t extents;
    cairo_font_extents(m_cairo, &extents);
    SetSource(m_pen);
    cairo_move_to(m_cairo, topLeft.x, topLeft.y + extents.ascent);
    cairo_show_text(m_cairo, text.ToUtf8().c_str());
}

void QCairoDC::DeviceFill(const QClientRect& rect, const QColour& colour) {
    Check();
    SetSource(colour);
    cairo_rectangle(m_cairo, rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top);
    cairo_fill(m_cairo);
}

} // namespace keel
