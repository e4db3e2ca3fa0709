#include "tests/support/geometry.h"
#include "tests/support/pagescene.h"
#include "tests/support/paths.h"
#include "tests/support/tempfolder.h"

#include "keel/platform/exceptions.h"

#include <gtest/gtest.h>

namespace keel::test {
namespace {

TEST(DeviceContextTest, MappingRoundsHalvesAwayFromZeroBothWays) {
    QRecordingDC dc(QDeviceCaps{});
    dc.SetMapMode(MM_ANISOTROPIC);
    dc.SetWindowExt(2, 4);
    dc.SetViewportExt(1, -3);
    dc.SetWindowOrg(10, 20);
    dc.SetViewportOrg(100, 200);
    const struct {
        QClientPoint logical, device;
    } cases[] = {
        {{10, 20}, {100, 200}}, {{11, 22}, {101, 198}},  // 0.5 up, -1.5 away from zero
        {{9, 18}, {99, 202}},   {{13, 21}, {102, 199}},  // -0.5 down, 1.5 and -0.75
        {{12, 24}, {101, 197}}, {{-10, -20}, {90, 230}}, //
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.logical.x) + "," + std::to_string(c.logical.y));
        EXPECT_EQ(dc.LPtoDP(c.logical), c.device);
    }
    EXPECT_EQ(dc.DPtoLP(QClientPoint(101, 197)), QClientPoint(12, 24));
    EXPECT_EQ(dc.DPtoLP(QClientPoint(100, 201)), QClientPoint(10, 19)) << "-1.33 to -1";
    EXPECT_DOUBLE_EQ(dc.LogicalToDeviceY(21), 199.25);
    EXPECT_DOUBLE_EQ(dc.DeviceToLogicalY(199.25), 21);

    EXPECT_EQ(dc.SetMapMode(MM_TEXT), MM_ANISOTROPIC);
    EXPECT_EQ(dc.LPtoDP(QClientPoint(11, 22)), QClientPoint(101, 202))
        << "text mode keeps the origins and drops the extents";
}

TEST(DeviceContextTest, BadModesAndExtentsAreRefused) {
    QRecordingDC dc(QDeviceCaps{});
    EXPECT_THROW(dc.SetMapMode(3), InvalidArgumentException);
    EXPECT_THROW(dc.SetWindowExt(0, 1), InvalidArgumentException);
    EXPECT_THROW(dc.SetViewportExt(1, 0), InvalidArgumentException);
    EXPECT_EQ(dc.GetMapMode(), MM_TEXT);
    const QClientPoint three[] = {{0, 0}, {1, 1}, {2, 2}};
    try {
        dc.PolyBezier(three);
        ADD_FAILURE();
    } catch (const InvalidArgumentException& failure) {
        EXPECT_STREQ(failure.what(), "Invalid argument: PolyBezier takes a start point and three "
                                     "points a curve, not 3");
    }
    const std::uint8_t types[] = {PT_MOVETO, PT_BEZIERTO, PT_BEZIERTO};
    EXPECT_THROW(dc.PolyDraw(three, types), InvalidArgumentException);
    const std::uint8_t unknown[] = {PT_MOVETO, 9, PT_LINETO};
    EXPECT_THROW(dc.PolyDraw(three, unknown), InvalidArgumentException);
}

// A page polygon of points "x,y ..." in millimetres.
QPagePoly PagePolyOf(const std::string& text) {
    const QWorldPoly points = PolyOf(text);
    QPagePoly poly;
    for (int i = 0; i < points.GetCount(); ++i)
        poly.Add(PagePt(points.Vertex(i).x.GetRaw(), points.Vertex(i).y.GetRaw()));
    return poly;
}

// Each shape drawn on a context in text mode, where logical units are the recorded pixels.
TEST(DeviceContextTest, ShapesBecomeTheirPlatformCalls) {
    using Dc = QDeviceContext;
    const struct {
        const char* name;
        std::function<void(QDeviceContext&)> draw;
        std::vector<std::string> lines;
    } cases[] = {
        {"world polygon over two scales",
         [](Dc& dc) { DrawPoly(dc, PolyOf("100,100 300,50"), 10, 5); },
         {"polygon 1000,2000 3000,1000"}},
        {"edges with types",
         [](Dc& dc) {
             const std::uint8_t types[] = {PT_MOVETO,   PT_LINETO | PT_CLOSEFIGURE,
                                           PT_MOVETO,   PT_BEZIERTO,
                                           PT_BEZIERTO, PT_BEZIERTO,
                                           PT_LINETO};
             DrawEdges(dc, PagePolyOf("0,0 1,0 2,2 3,3 4,3 5,2 6,0"), types);
         },
         {"lines 0,0 100,0", "lines 100,0 0,0", "beziers 200,200 300,300 400,300 500,200",
          "lines 500,200 600,0"}},
        {"curve of 5: a line for the one left",
         [](Dc& dc) { DrawCurved(dc, PagePolyOf("0,0 1,1 2,1 3,0 4,0")); },
         {"beziers 0,0 100,100 200,100 300,0", "lines 300,0 400,0"}},
        {"curve of 6: one more cubic for the two left",
         [](Dc& dc) { DrawCurved(dc, PagePolyOf("0,0 1,1 2,1 3,0 4,0 5,1")); },
         {"beziers 0,0 100,100 200,100 300,0", "beziers 300,0 400,0 400,0 500,100"}},
        {"edges with an arrow at the end",
         [](Dc& dc) { DrawEdgesWithArrows(dc, PagePolyOf("0,0 10,0"), false, true, Mm(2), Mm(2)); },
         {"lines 0,0 1000,0", "lines 1000,0 800,100", "lines 800,100 800,-100",
          "lines 800,-100 1000,0"}},
        {"no arrows on one vertex",
         [](Dc& dc) { DrawCurvedWithArrows(dc, PagePolyOf("0,0"), true, true, Mm(2), Mm(2)); },
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QRecordingDC dc(QDeviceCaps{});
        c.draw(dc);
        EXPECT_EQ(dc.Lines(), c.lines);
    }
}

std::string GoldenPath(const std::string& name) {
    return TestDataFolder() + "/geometry/scenes/" + name;
}

// The whole test page at two scales and zooms, against the drawing calls kept
// beside the tests. KEEL_WRITE_GOLDEN=1 writes them anew.
TEST(DeviceContextTest, ScenePagesMatchTheirRecordedCalls) {
    for (const auto& [scale, zoom] : {std::pair{50, 100}, {100, 50}}) {
        const std::string name =
            "scene-scale" + std::to_string(scale) + "-zoom" + std::to_string(zoom) + ".txt";
        SCOPED_TRACE(name);
        PageSetup setup(200, 150, scale);
        const std::string recorded = RecordScene(setup, zoom);
        if (std::getenv("KEEL_WRITE_GOLDEN"))
            WriteFileBytes(GoldenPath(name), recorded);
        EXPECT_EQ(recorded, ReadFileBytes(GoldenPath(name)));
    }
}

class CairoDCTest : public TempFolderTest {};

constexpr std::uint32_t c_white = 0xFFFFFF;
constexpr std::uint32_t c_black = 0x000000;
constexpr std::uint32_t c_red = 0xFF0000;

TEST_F(CairoDCTest, PngOfThePageHasItsSizeAtTheResolution) {
    const struct {
        double width, height;
        int scale, dpi, pixelsWide, pixelsHigh;
    } cases[] = {
        {200, 150, 50, 96, 756, 567},    // 3779 px a metre
        {100, 100, 50, 300, 1181, 1181}, // 11809
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.dpi) + " dpi " + std::to_string(c.width));
        PageSetup setup(c.width, c.height, c.scale);
        auto dc = RenderSceneImage(setup, c.dpi, false);
        dc->WritePng(PathOf("page.png"));
        const PngImage image(Path("page.png"));
        ASSERT_TRUE(image.IsRead());
        EXPECT_EQ(image.Width(), c.pixelsWide);
        EXPECT_EQ(image.Height(), c.pixelsHigh);
    }
}

TEST_F(CairoDCTest, PngPixelsWithoutAntialiasingLieWhereTheMappingPutsThem) {
    const struct {
        int scale, x, y;
        std::uint32_t colour;
        const char* where;
    } cases[] = {
        // At 1:50 the square runs from 76 to 302 across and 265 to 491 down.
        {50, 76, 378, c_black, "on its left edge"},
        {50, 75, 378, c_white, "just outside it"},
        {50, 302, 300, c_black, "on its right edge"},
        {50, 150, 491, c_black, "on its bottom edge"},
        {50, 150, 492, c_white, "below it"},
        // At 1:100 the same square is half as large: 38 to 151, 378 to 491.
        {100, 100, 450, c_red, "inside the smaller square"},
        {100, 189, 378, c_white, "where the larger one was"},
    };
    PageSetup fifty(200, 150, 50);
    PageSetup hundred(200, 150, 100);
    RenderSceneImage(fifty, 96, false)->WritePng(PathOf("fifty.png"));
    RenderSceneImage(hundred, 96, false)->WritePng(PathOf("hundred.png"));
    const PngImage images[] = {PngImage(Path("fifty.png")), PngImage(Path("hundred.png"))};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        const PngImage& image = images[c.scale == 50 ? 0 : 1];
        EXPECT_EQ(image.Pixel(c.x, c.y), c.colour);
    }
}

// Each curve of a run of Beziers starts where the one before it ends, three points on.
TEST_F(CairoDCTest, SvgBeziersFollowOneAnother) {
    {
        auto dc = QCairoDC::CreateSvg(PathOf("curves.svg"), 100, 100, 96);
        const QClientPoint points[] = {{0, 0},   {10, 20}, {30, 20}, {40, 0},
                                       {50, 10}, {60, 30}, {70, 0}};
        dc->PolyBezier(points);
        dc->Finish();
    }
    const auto paths = SvgPathNumbers(Path("curves.svg"));
    ASSERT_TRUE(paths.has_value());
    ASSERT_EQ(paths->size(), 1u);
    EXPECT_EQ((*paths)[0], (std::vector<double>{0.5, 0.5, 10.5, 20.5, 30.5, 20.5, 40.5, 0.5, 50.5,
                                                10.5, 60.5, 30.5, 70.5, 0.5}));
}

TEST_F(CairoDCTest, PdfPrinterPageHasTheSizeInMillimetres) {
    const struct { double width, height; } cases[] = {{210, 297}, {1000, 50}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.width);
        PageSetup setup(c.width, c.height, 50);
        {
            auto dc = QCairoDC::CreatePdf(PathOf("page.pdf"), c.width, c.height);
            EXPECT_TRUE(dc->IsPrinting());
            setup.view->SetZoom(400, false);
            setup.view->PrepareDC(*dc, PixelsPerMetre(dc.get()));
            EXPECT_NEAR(dc->GetViewportExt().x, 23622, 3) << "600 dpi, and no zoom on paper";
            DrawScene(*dc, *setup.doc);
            dc->Finish();
        }
        const auto box = PdfMediaBox(Path("page.pdf"));
        ASSERT_TRUE(box.has_value());
        EXPECT_NEAR((*box)[2] - (*box)[0], c.width / 25.4 * 72, 0.01);
        EXPECT_NEAR((*box)[3] - (*box)[1], c.height / 25.4 * 72, 0.01);
    }
}

TEST_F(CairoDCTest, SurfacesOutsideTheLimitsAreRefusedWithTheReason) {
    const struct {
        std::function<void()> make;
        const char* message;
    } cases[] = {
        {[] { QCairoDC::CreateImage(0, 0, 96, false); }, "An image of 0 by 0 pixels is empty"},
        {[] { QCairoDC::CreateImage(20000, 20000, 96, false); },
         "An image of 20000 by 20000 pixels is larger than the limit of 100 megapixels"},
        {[] { QCairoDC::CreateImage(3779000, 3779000, 96, false); },
         "An image of 3779000 by 3779000 pixels has a side longer than 32767 pixels"},
        {[] { QCairoDC::CreateImage(100, 100, 0, false); },
         "A resolution of 0 dpi is outside 1 to 10000"},
        {[this] { QCairoDC::CreatePdf(PathOf("a.pdf"), 0, 0); },
         "A printed page of 0.000000 by 0.000000 mm is outside 1 to 5000 mm a side"},
        {[this] { QCairoDC::CreatePdf(PathOf("a.pdf"), 1e6, 1e6); },
         "A printed page of 1000000.000000 by 1000000.000000 mm is outside 1 to 5000 mm a side"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        try {
            c.make();
            ADD_FAILURE() << "made";
        } catch (const CException& failure) {
            EXPECT_STREQ(failure.what(), c.message);
        }
    }
}

TEST_F(CairoDCTest, DegenerateShapesDrawWithoutFailing) {
    auto dc = QCairoDC::CreateImage(10, 10, 96, false);
    const QClientPoint one[] = {{5, 5}};
    dc->Polygon(one);
    dc->Ellipse(QClientRect(3, 3, 3, 3));
    dc->TextOut(QClientPoint(0, 0), u"");
    dc->WritePng(PathOf("tiny.png"));
    EXPECT_TRUE(PngImage(Path("tiny.png")).IsRead());
    auto svg = QCairoDC::CreateSvg(PathOf("tiny.svg"), 10, 10, 96);
    svg->Finish();
    EXPECT_THROW(svg->Polygon(one), CException) << "a finished drawing takes no more";
    EXPECT_THROW(svg->WritePng(PathOf("no.png")), CException);
}

} // namespace
} // namespace keel::test
