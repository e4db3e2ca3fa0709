// A filled and outlined polygon of 100 000 vertices drawn into a 4 000 by 3 000 image: through a
// page view and Keel's Cairo context (world millimetres to pixels with MulDiv, then the path),
// and, as the peer, the same pixel path given to Cairo directly.
#include "keel/geometry/cairodc.h"
#include "keel/geometry/drawpoly.h"
#include "keel/geometry/pagedoc.h"
#include "keel/geometry/pageview.h"

#include <benchmark/benchmark.h>
#include <cairo.h>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

using namespace keel;

namespace {

constexpr int c_vertices = 100000;
constexpr int c_width = 4000;
constexpr int c_height = 3000;

// A star of many points on the page of a 1:50 plan.
QWorldPoly Star() {
    QWorldPoly poly;
    for (int i = 0; i < c_vertices; ++i) {
        const double angle = 2 * std::numbers::pi * i / c_vertices;
        const double radius = i % 2 == 0 ? 4000 : 3600;
        poly.Add({QLength::FromRaw(5000 + radius * std::cos(angle)),
                  QLength::FromRaw(3800 + radius * std::sin(angle))});
    }
    return poly;
}

// The page and a view that shows it at the size of the image.
struct Page {
    Page() {
        QPageDoc::SetManualPageSize({QLength::FromRaw(297), QLength::FromRaw(210)});
        doc = std::make_unique<QPageDoc>();
        doc->SetScaleAndComputePageSize(50);
        window = std::make_unique<QFixedWindow>(c_width, c_height, QScreenPoint(0, 0));
        view = std::make_unique<QPageView>(*doc, *window);
        view->SetPageSize(doc->GetPageSize(), false);
        view->SetZoom(100, false);
        const QClientVector page = view->PageToClient(doc->GetPageSize());
        const double factor = std::min(static_cast<double>(c_width) / page.x,
                                       static_cast<double>(c_height) / -page.y);
        view->SetZoom(static_cast<int>(100 * factor), false);
    }
    std::unique_ptr<QPageDoc> doc;
    std::unique_ptr<QFixedWindow> window;
    std::unique_ptr<QPageView> view;
};

void DrawThroughKeel(benchmark::State& state) {
    const QWorldPoly star = Star();
    Page page;
    for (auto _ : state) {
        auto dc = QCairoDC::CreateImage(c_width, c_height, 96, false);
        page.view->PrepareDCDefault(*dc);
        dc->SetPen({0, 0, 0}, 1);
        dc->SetBrush(QColour{200, 120, 40});
        DrawPoly(*dc, star, page.doc->GetScale());
        benchmark::DoNotOptimize(dc.get());
    }
}

// The pixel centres Keel's context ends with, given to Cairo in one path.
void DrawThroughCairo(benchmark::State& state) {
    const QWorldPoly star = Star();
    Page page;
    std::vector<QClientPoint> pixels;
    {
        const std::unique_ptr<QDeviceContext> dc = page.view->ClientDC(true);
        for (const QLogicalPoint& point : LogicalPoints(star, page.doc->GetScale()))
            pixels.push_back(dc->LPtoDP(point));
    }
    for (auto _ : state) {
        cairo_surface_t* surface =
            cairo_image_surface_create(CAIRO_FORMAT_RGB24, c_width, c_height);
        cairo_t* cairo = cairo_create(surface);
        cairo_set_antialias(cairo, CAIRO_ANTIALIAS_NONE);
        cairo_set_source_rgb(cairo, 1, 1, 1);
        cairo_paint(cairo);
        cairo_move_to(cairo, pixels[0].x + 0.5, pixels[0].y + 0.5);
        for (std::size_t i = 1; i < pixels.size(); ++i)
            cairo_line_to(cairo, pixels[i].x + 0.5, pixels[i].y + 0.5);
        cairo_close_path(cairo);
        cairo_set_source_rgb(cairo, 200 / 255.0, 120 / 255.0, 40 / 255.0);
        cairo_fill_preserve(cairo);
        cairo_set_source_rgb(cairo, 0, 0, 0);
        cairo_set_line_width(cairo, 1);
        cairo_stroke(cairo);
        cairo_destroy(cairo);
        cairo_surface_destroy(surface);
        benchmark::DoNotOptimize(pixels.data());
    }
}

} // namespace

BENCHMARK(DrawThroughKeel)->Name("Polygon100000/keel")->Unit(benchmark::kMillisecond);
BENCHMARK(DrawThroughCairo)->Name("Polygon100000/cairo")->Unit(benchmark::kMillisecond);
