#pragma once

#include "tests/support/exchangetests.h"
#include "tests/support/paths.h"

#include "keel/geometry/cairodc.h"
#include "keel/geometry/drawpoly.h"
#include "keel/geometry/pagedoc.h"
#include "keel/geometry/pageview.h"
#include "keel/geometry/recordingdc.h"

#include <cairo.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

namespace keel::test {

inline QLength Mm(double millimetres) {
    return QLength::FromRaw(millimetres);
}
inline QPagePoint PagePt(double x, double y) {
    return {Mm(x), Mm(y)};
}
inline QWorldPoint WorldPt(double x, double y) {
    return {Mm(x), Mm(y)};
}
inline QPageVector PageSize(double width, double height) {
    return {Mm(width), Mm(height)};
}

// The page statics as a test found them, given back when it ends.
class PageStaticsScope {
public:
    PageStaticsScope()
        : m_manual(QPageDoc::ManualPageSize()), m_ask(QPageDoc::IsAlwaysAskForPageSize()) {}
    ~PageStaticsScope() {
        QPageDoc::SetManualPageSize(m_manual);
        QPageDoc::SetAlwaysAskForPageSize(m_ask);
        QPageDoc::SetFallbackPageSizes({}, {});
        SetDefaultPrinter(nullptr);
    }
    PageStaticsScope(const PageStaticsScope&) = delete;
    PageStaticsScope& operator=(const PageStaticsScope&) = delete;

private:
    QPageVector m_manual;
    bool m_ask;
};

// A page document of a size and scale, with a view in a window of a size.
struct PageSetup {
    PageSetup(double width, double height, int scale, int clientWidth = 800,
              int clientHeight = 600) {
        QPageDoc::SetManualPageSize(PageSize(width, height));
        doc = std::make_unique<QPageDoc>();
        doc->SetScaleAndComputePageSize(scale);
        window = std::make_unique<QFixedWindow>(clientWidth, clientHeight, QScreenPoint(100, 50));
        view = std::make_unique<QPageView>(*doc, *window);
        view->SetPageSize(doc->GetPageSize(), false);
    }
    PageStaticsScope statics;
    std::unique_ptr<QPageDoc> doc;
    std::unique_ptr<QFixedWindow> window;
    std::unique_ptr<QPageView> view;
};

// The test page, in world units at the document's scale: a filled square, a triangle, an open
// arc, a curve with arrows and a line of text; on a page of 200 by 150 mm at 1:50 it fills most
// of the page.
inline void DrawScene(QDeviceContext& dc, const QPageDoc& doc) {
    const double scale = doc.GetScale();
    dc.SetPen({0, 0, 0}, 1);
    dc.SetBrush(QColour{255, 0, 0});
    QWorldPoly square;
    for (const auto& [x, y] : {std::pair{1000.0, 1000.0}, {4000, 1000}, {4000, 4000}, {1000, 4000}})
        square.Add(WorldPt(x, y));
    DrawPoly(dc, square, scale);
    dc.SetBrush(QColour{0, 0, 255});
    QWorldPoly triangle;
    for (const auto& [x, y] : {std::pair{5000.0, 1000.0}, {9000, 1000}, {7000, 5000}})
        triangle.Add(WorldPt(x, y));
    DrawPoly(dc, triangle, scale);
    dc.SetBrush(std::nullopt);
    dc.SetPen({0, 128, 0}, 2);
    const TPolyArc<QLength, c_worldSpace> arc(WorldPt(1000, 5500), WorldPt(5000, 5500), 8,
                                              Mm(2000));
    DrawEdges(dc, arc, scale);
    QWorldPoly wave;
    for (const auto& [x, y] :
         {std::pair{5500.0, 6000.0}, {6500, 7000}, {7500, 5000}, {8500, 6000}, {9000, 6500}})
        wave.Add(WorldPt(x, y));
    QPagePoly wavePage;
    doc.WorldToPage(wave, wavePage);
    DrawCurvedWithArrows(dc, wavePage, true, true, Mm(4), Mm(2));
    dc.SetPen({0, 0, 0}, 1);
    dc.SetTextHeight(500);
    dc.TextOut(ClientPoint(doc.WorldToPage(WorldPt(1000, 7000)), nullptr), u"Keel page");
}

// The drawing calls of the scene on a view's screen context at a zoom.
inline std::string RecordScene(PageSetup& setup, int zoom) {
    setup.view->SetZoom(zoom, false);
    QRecordingDC dc(setup.window->ScreenCaps());
    setup.view->PrepareDCDefault(dc);
    DrawScene(dc, *setup.doc);
    return dc.Text();
}

// A PNG read back by Cairo, with its pixels as 0xRRGGBB.
class PngImage {
public:
    explicit PngImage(const std::string& path)
        : m_surface(cairo_image_surface_create_from_png(path.c_str())) {}
    ~PngImage() { cairo_surface_destroy(m_surface); }
    PngImage(const PngImage&) = delete;
    PngImage& operator=(const PngImage&) = delete;

    bool IsRead() const { return cairo_surface_status(m_surface) == CAIRO_STATUS_SUCCESS; }
    int Width() const { return cairo_image_surface_get_width(m_surface); }
    int Height() const { return cairo_image_surface_get_height(m_surface); }
    std::uint32_t Pixel(int x, int y) const {
        const unsigned char* row =
            cairo_image_surface_get_data(m_surface) +
            static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(m_surface);
        std::uint32_t value = 0;
        std::memcpy(&value, row + 4 * x, 4);
        return value & 0xFFFFFF;
    }

private:
    cairo_surface_t* m_surface;
};

// The numbers of the "d" attribute of every drawn path (not the glyphs defined for text) in an SVG
// file, read with libxml2; nothing when the file is not XML.
inline std::optional<std::vector<std::vector<double>>> SvgPathNumbers(const std::string& path) {
    xmlDocPtr doc = xmlReadFile(path.c_str(), nullptr, XML_PARSE_NONET);
    if (!doc)
        return std::nullopt;
    std::vector<std::vector<double>> paths;
    xmlXPathContextPtr context = xmlXPathNewContext(doc);
    xmlXPathRegisterNs(context, BAD_CAST "s", BAD_CAST "http://www.w3.org/2000/svg");
    xmlXPathObjectPtr found =
        xmlXPathEvalExpression(BAD_CAST "//s:path[not(ancestor::s:defs)]/@d", context);
    if (found && found->nodesetval) {
        for (int i = 0; i < found->nodesetval->nodeNr; ++i) {
            xmlChar* text = xmlNodeGetContent(found->nodesetval->nodeTab[i]);
            const std::string d(reinterpret_cast<const char*>(text));
            xmlFree(text);
            std::vector<double> numbers;
            const std::regex number(R"(-?[0-9]+(\.[0-9]+)?)");
            for (auto it = std::sregex_iterator(d.begin(), d.end(), number);
                 it != std::sregex_iterator(); ++it)
                numbers.push_back(std::stod(it->str()));
            paths.push_back(numbers);
        }
    }
    xmlXPathFreeObject(found);
    xmlXPathFreeContext(context);
    xmlFreeDoc(doc);
    return paths;
}

// The four numbers of the first /MediaBox of a PDF file, in points.
inline std::optional<std::vector<double>> PdfMediaBox(const std::string& path) {
    const std::string bytes = ReadFileBytes(path);
    const std::regex box(
        R"(/MediaBox\s*\[\s*([-0-9.]+)\s+([-0-9.]+)\s+([-0-9.]+)\s+([-0-9.]+)\s*\])");
    std::smatch match;
    if (!std::regex_search(bytes, match, box))
        return std::nullopt;
    return std::vector<double>{std::stod(match[1]), std::stod(match[2]), std::stod(match[3]),
                               std::stod(match[4])};
}

// The scene drawn on an image of the whole page at a resolution, at zoom 100: the image is as
// large as the page is at that many dots an inch.
inline std::unique_ptr<QCairoDC> RenderSceneImage(PageSetup& setup, int dpi, bool antialias) {
    const int pixels = ScaleDimensionForDPI(c_referencePixelsPerMetre, dpi);
    setup.view->SetPixelsPerMetre({pixels, pixels});
    setup.view->SetZoom(100, false);
    const QClientVector size = setup.view->PageToClient(setup.doc->GetPageSize());
    auto dc = QCairoDC::CreateImage(size.x, -size.y, dpi, antialias);
    setup.view->PrepareDCDefault(*dc);
    DrawScene(*dc, *setup.doc);
    return dc;
}

// Text is drawn with the tests' own font configuration, as the program's tests draw it: a
// machine's own may choose other faces, and Fontconfig leaks what some of them load. Cairo keeps
// its fonts for the life of the process; the leak check at exit must not count them.
class CairoStaticData : public testing::Environment {
public:
    void SetUp() override {
        const std::filesystem::path fonts =
            std::filesystem::path(TestDataFolder()) / "render/fonts.conf";
        ::setenv("FONTCONFIG_FILE", fonts.c_str(), 1);
    }
    void TearDown() override { cairo_debug_reset_static_data(); }
};
inline testing::Environment* const g_cairoStaticData =
    testing::AddGlobalTestEnvironment(new CairoStaticData);

} // namespace keel::test
