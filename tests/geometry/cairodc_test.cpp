#include "tests/support/pagescene.h"
#include "tests/support/tempfolder.h"

#include <gtest/gtest.h>

namespace keel::test {
namespace {

class CairoDCTest : public TempFolderTest {};

constexpr std::uint32_t c_white = 0xFFFFFF;
constexpr std::uint32_t c_black = 0x000000;
constexpr std::uint32_t c_red = 0xFF0000;
constexpr std::uint32_t c_blue = 0x0000FF;

TEST_F(CairoDCTest, PngOfThePageHasItsSizeAtTheResolution) {
    const struct {
        double width, height;
        int scale, dpi, pixelsWide, pixelsHigh;
    } cases[] = {
        {200, 150, 50, 96, 756, 567},    // 3779 px a metre
        {200, 150, 100, 96, 756, 567},   // the scale moves the drawing, not the page
        {200, 150, 50, 192, 1512, 1134}, // 7558
        {100, 100, 50, 300, 1181, 1181}, // 11809
        {1000, 10, 50, 96, 3779, 38},
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
        {50, 189, 378, c_red, "inside the square"},
        {50, 76, 378, c_black, "on its left edge"},
        {50, 75, 378, c_white, "just outside it"},
        {50, 77, 378, c_red, "just inside it"},
        {50, 302, 300, c_black, "on its right edge"},
        {50, 303, 300, c_white, "right of it"},
        {50, 150, 265, c_black, "on its top edge"},
        {50, 150, 264, c_white, "above it"},
        {50, 150, 491, c_black, "on its bottom edge"},
        {50, 150, 492, c_white, "below it"},
        {50, 529, 400, c_blue, "inside the triangle"},
        {50, 10, 10, c_white, "the empty corner"},
        // At 1:100 the same square is half as large: 38 to 151, 378 to 491.
        {100, 100, 450, c_red, "inside the smaller square"},
        {100, 189, 378, c_white, "where the larger one was"},
        {100, 38, 450, c_black, "on the smaller square's edge"},
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

TEST_F(CairoDCTest, SvgPathsHoldTheMappedPixelCentres) {
    PageSetup setup(200, 150, 50);
    setup.view->SetZoom(100, false);
    {
        auto dc = QCairoDC::CreateSvg(PathOf("page.svg"), 756, 567, 96);
        setup.view->PrepareDCDefault(*dc);
        DrawScene(*dc, *setup.doc);
        dc->Finish();
    }
    const auto paths = SvgPathNumbers(Path("page.svg"));
    ASSERT_TRUE(paths.has_value());
    ASSERT_GE(paths->size(), 2u);
    const std::vector<double> square{76.5, 491.5, 302.5, 491.5, 302.5, 265.5, 76.5, 265.5};
    const std::vector<double> triangle{378.5, 491.5, 680.5, 491.5, 529.5, 189.5};
    const auto startsWith = [](const std::vector<double>& path, const std::vector<double>& head) {
        return path.size() >= head.size() && std::equal(head.begin(), head.end(), path.begin());
    };
    EXPECT_TRUE(startsWith((*paths)[0], square));
    EXPECT_EQ(std::count_if(paths->begin(), paths->end(),
                            [&](const auto& path) { return startsWith(path, triangle); }),
              1);
}

TEST_F(CairoDCTest, PdfPrinterPageHasTheSizeInMillimetres) {
    const struct { double width, height; } cases[] = {{210, 297}, {297, 210}, {1000, 50}};
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
        {[this] { QCairoDC::CreateSvg(PathOf("a.svg"), 1, 0, 96); },
         "An image of 1 by 0 pixels is empty"},
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

TEST_F(CairoDCTest, APageTooLargeForAnImageIsRefusedNotAllocated) {
    PageSetup setup(1e6, 1e6, 50);
    try {
        RenderSceneImage(setup, 96, false);
        ADD_FAILURE();
    } catch (const CException& failure) {
        EXPECT_STREQ(failure.what(),
                     "An image of 3779000 by 3779000 pixels has a side longer than 32767 pixels");
    }
    PageSetup empty(0, 0, 50);
    EXPECT_THROW(RenderSceneImage(empty, 96, false), CException);
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
