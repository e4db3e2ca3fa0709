#include "tools/keel/commands.h"
#include "tools/keel/scene.h"
#include "tools/keel/wholefile.h"

#include "keel/geometry/cairodc.h"
#include "keel/geometry/drawpoly.h"
#include "keel/geometry/pagedoc.h"
#include "keel/geometry/pageview.h"
#include "keel/platform/exceptions.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace keel::tool {

namespace {

constexpr std::string_view c_renderUsage =
    "usage: keel render SCENE.json --out FILE.png|FILE.svg|FILE.pdf [--scale N] [--zoom Z] "
    "[--page WxH] [--dpi D]";
// A4 landscape.
constexpr double c_defaultPageWidth = 297;
constexpr double c_defaultPageHeight = 210;
// The page sides taken, in millimetres, and the largest scale and resolution.
constexpr double c_smallestPage = 1;
constexpr double c_largestPage = 100000;
constexpr int c_largestScale = 1000000;
constexpr int c_largestDpi = 10000;
// The view's window is never shown; the page is drawn whole whatever its size.
constexpr int c_windowWidth = 800;
constexpr int c_windowHeight = 600;

enum class Format { png, svg, pdf };

struct RenderOptions {
    std::string scene;
    std::string out;
    Format format = Format::png;
    // The page's default scale when not given.
    std::optional<int> scale;
    int zoom = 100;
    double pageWidth = c_defaultPageWidth;
    double pageHeight = c_defaultPageHeight;
    int dpi = c_referenceDpi;
};

std::optional<double> ReadNumber(std::string_view text) {
    const std::string copy(text);
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(copy.c_str(), &end);
    if (copy.empty() || *end != '\0' || !std::isfinite(value) || errno == ERANGE)
        return std::nullopt;
    return value;
}

// A whole number from `least` to `most`.
std::optional<int> ReadWhole(std::string_view text, int least, int most) {
    const std::optional<double> number = ReadNumber(text);
    if (!number || *number != std::floor(*number) || *number < least || *number > most)
        return std::nullopt;
    return static_cast<int>(*number);
}

// "WxH" in millimetres, each side within the pages taken.
bool ReadPage(std::string_view text, double& width, double& height) {
    const std::size_t times = text.find('x');
    if (times == std::string_view::npos)
        return false;
    const std::optional<double> w = ReadNumber(text.substr(0, times));
    const std::optional<double> h = ReadNumber(text.substr(times + 1));
    if (!w || !h || *w < c_smallestPage || *w > c_largestPage || *h < c_smallestPage ||
        *h > c_largestPage)
        return false;
    width = *w;
    height = *h;
    return true;
}

std::optional<Format> FormatOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".png")
        return Format::png;
    if (extension == ".svg")
        return Format::svg;
    if (extension == ".pdf")
        return Format::pdf;
    return std::nullopt;
}

int BadValue(std::string_view option, std::string_view value, std::string_view wanted) {
    return UsageError("render", std::string(option) + " '" + std::string(value) + "' is not " +
                                    std::string(wanted));
}

int ParseRender(std::span<const std::string_view> args, RenderOptions& options) {
    std::vector<std::string_view> files;
    bool out = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view arg = args[i];
        if (!arg.starts_with("--") || arg == "--") {
            files.push_back(arg);
            continue;
        }
        if (arg != "--out" && arg != "--scale" && arg != "--zoom" && arg != "--page" &&
            arg != "--dpi")
            return UsageError("render", "unknown option '" + std::string(arg) + "'");
        if (i + 1 >= args.size())
            return UsageError("render", std::string(arg) + " needs a value");
        const std::string_view value = args[++i];
        if (arg == "--out") {
            options.out = value;
            out = true;
        } else if (arg == "--scale") {
            options.scale = ReadWhole(value, 1, c_largestScale);
            if (!options.scale)
                return BadValue(arg, value, "a whole number from 1 to 1000000");
        } else if (arg == "--zoom") {
            const auto zoom = ReadWhole(value, QPageView::c_smallestZoom, QPageView::c_largestZoom);
            if (!zoom)
                return BadValue(arg, value, "a zoom from 1 to 100000 %");
            options.zoom = *zoom;
        } else if (arg == "--dpi") {
            const auto dpi = ReadWhole(value, 1, c_largestDpi);
            if (!dpi)
                return BadValue(arg, value, "a resolution from 1 to 10000 dpi");
            options.dpi = *dpi;
        } else if (!ReadPage(value, options.pageWidth, options.pageHeight)) {
            return BadValue(arg, value, "a page WxH of 1 to 100000 mm a side");
        }
    }
    if (files.size() != 1 || !out)
        return UsageError("render", c_renderUsage);
    options.scene = files.front();
    const std::optional<Format> format = FormatOf(options.out);
    if (!format)
        return UsageError("render", "--out '" + options.out + "' does not end .png, .svg or .pdf");
    options.format = *format;
    return 0;
}

std::string Decimal(double value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.10g", value);
    return digits;
}

// Text taller than any image may be is refused before Cairo is asked for glyphs of that size.
void CheckTextHeights(const QDeviceContext& dc, const Scene& scene, double scale) {
    for (std::size_t i = 0; i < scene.texts.size(); ++i) {
        const double logical = LogicalUnits(QLength(scene.texts[i].height / scale, QLength::LU_MM));
        const double pixels = std::fabs(dc.LogicalToDeviceY(logical) - dc.LogicalToDeviceY(0));
        if (pixels > QCairoDC::c_longestSide)
            throw CException("text " + std::to_string(i + 1) + " would be " +
                             Decimal(std::round(pixels)) + " pixels tall, more than " +
                             std::to_string(QCairoDC::c_longestSide));
    }
}

void DrawScene(QDeviceContext& dc, const Scene& scene, const QPageDoc& doc) {
    const double scale = doc.GetScale();
    CheckTextHeights(dc, scene, scale);
    for (const ScenePolygon& polygon : scene.polygons) {
        dc.SetBrush(polygon.fill);
        dc.SetPen(polygon.stroke.value_or(polygon.fill.value_or(QColour{})), 1);
        DrawPoly(dc, polygon.points, scale);
    }
    dc.SetPen(QColour{}, 1);
    for (const SceneText& text : scene.texts) {
        dc.SetTextHeight(LogicalUnits(QLength(text.height / scale, QLength::LU_MM)));
        dc.TextOut(ClientPoint(doc.WorldToPage(text.at), nullptr), CString::FromUtf8(text.utf8));
    }
}

// The image of the page at the zoom and resolution, measured in doubles first: a side the view's
// integer arithmetic cannot hold is refused as any image too large is.
QClientVector ImageSize(const QPageView& view, const RenderOptions& options, int pixelsPerMetre) {
    const double factor = pixelsPerMetre / 1000.0 * options.zoom / 100;
    const double width = std::ceil(options.pageWidth * factor);
    const double height = std::ceil(options.pageHeight * factor);
    if (width > INT_MAX / 2 || height > INT_MAX / 2)
        CheckImageSize(static_cast<long long>(width), static_cast<long long>(height));
    const QClientVector size = view.PageToClient(view.GetDoc().GetPageSize());
    return {size.x, -size.y};
}

// Draws the scene to `path` in the options' format and says what was drawn; a failure throws
// with the reason.
std::string DrawToFile(const Scene& scene, const RenderOptions& options, const CString& path) {
    QPageDoc::SetManualPageSize(
        {QLength(options.pageWidth, QLength::LU_MM), QLength(options.pageHeight, QLength::LU_MM)});
    QPageDoc doc;
    doc.SetScaleAndComputePageSize(options.scale.value_or(doc.GetScale()));
    QFixedWindow window(c_windowWidth, c_windowHeight);
    QPageView view(doc, window);
    view.SetPageSize(doc.GetPageSize(), false);
    const std::string page = "a page of " + Decimal(options.pageWidth) + " by " +
                             Decimal(options.pageHeight) +
                             " mm at 1:" + std::to_string(doc.GetScale());
    if (options.format == Format::pdf) {
        const auto dc = QCairoDC::CreatePdf(path, options.pageWidth, options.pageHeight);
        view.PrepareDC(*dc, PixelsPerMetre(dc.get()));
        DrawScene(*dc, scene, doc);
        dc->Finish();
        return "PDF of " + page;
    }
    const int pixels = ScaleDimensionForDPI(c_referencePixelsPerMetre, options.dpi);
    view.SetPixelsPerMetre({pixels, pixels});
    view.SetZoom(options.zoom, false);
    const QClientVector size = ImageSize(view, options, pixels);
    const bool png = options.format == Format::png;
    const auto dc = png ? QCairoDC::CreateImage(size.x, size.y, options.dpi, true)
                        : QCairoDC::CreateSvg(path, size.x, size.y, options.dpi);
    view.PrepareDCDefault(*dc);
    DrawScene(*dc, scene, doc);
    if (png)
        dc->WritePng(path);
    else
        dc->Finish();
    return std::string(png ? "PNG" : "SVG") + " of " + std::to_string(size.x) + " by " +
           std::to_string(size.y) + " pixels, " + page + ", zoom " + std::to_string(options.zoom) +
           "%, " + std::to_string(options.dpi) + " dpi";
}

int Failed(const std::string& message) {
    std::fprintf(stderr, "keel render: %s\n", message.c_str());
    return 1;
}

// The drawing goes to a new file beside the target, renamed over it once complete, so that a
// render that fails leaves the target as it was.
int RenderToFile(const Scene& scene, const RenderOptions& options) {
    const CString target = QFSFile::FollowLinks(CString::FromUtf8(options.out));
    const CString folder = QPathOp::PathWithoutFileSpec(target);
    const CString temporary = QFSFile::GenerateTempPath(folder.IsEmpty() ? CString(u".") : folder);
    const std::string temporaryPath = temporary.ToUtf8();
    if (FILE* probe = std::fopen(temporaryPath.c_str(), "wb"))
        std::fclose(probe);
    else
        return Failed("cannot write '" + options.out + "': " + std::strerror(errno));
    std::string drawn;
    CString reason;
    try {
        drawn = DrawToFile(scene, options, temporary);
        QCairoDC::ReleaseCaches();
        if (QFSFile::ReplaceWithWritten(temporary, target, reason)) {
            std::printf("%s: %s\n", options.out.c_str(), drawn.c_str());
            return 0;
        }
        reason = u"cannot write '" + CString::FromUtf8(options.out) + u"': " + reason;
    } catch (const std::exception& failure) {
        QCairoDC::ReleaseCaches();
        reason = CString::FromUtf8(failure.what());
    }
    std::error_code ignored;
    std::filesystem::remove(temporaryPath, ignored);
    return Failed(reason.ToUtf8());
}

} // namespace

int RunRender(std::span<const std::string_view> args) {
    RenderOptions options;
    if (const int status = ParseRender(args, options))
        return status;
    if (const int status = RefuseWithoutJsonReader("render"))
        return status;
    std::string json;
    std::string message;
    if (!ReadWholeFile(options.scene, json, message, c_mostJsonBytes))
        return Failed("cannot read the scene '" + options.scene + "': " + message);
    Scene scene;
    if (!ReadScene(json, scene, message))
        return Failed(options.scene + ": " + message);
    return RenderToFile(scene, options);
}

} // namespace keel::tool
