#include "tests/support/pagescene.h"
#include "tests/support/program.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {
namespace {

// What `keel render` writes, read back: the image's size and pixels and the PDF's page, each
// against the chain of spaces worked out here from millimetres and dots an inch.

// A red square with a black outline, a blue triangle and a line of text, in world millimetres.
constexpr const char* c_scene = R"({
  "polygons": [
    {"points": "0,0 3000,0 3000,2000 0,2000", "fill": "#ff0000", "stroke": "#000000"},
    {"points": "4000,1000 8000,1000 6000,5000", "fill": "#0000ff"}],
  "texts": [{"at": "500,5500", "text": "Kitchen", "height": 400}]})";

constexpr std::uint32_t c_red = 0xFF0000;
constexpr std::uint32_t c_blue = 0x0000FF;
constexpr std::uint32_t c_white = 0xFFFFFF;
constexpr std::uint32_t c_black = 0x000000;

// A page, its scale, zoom and resolution, and where a world point falls on the image: pixels
// from the left, and from the top of a page whose world y runs upward.
struct PageCase {
    int width;
    int height;
    int scale;
    int zoom;
    int dpi;

    double PixelsAMillimetre() const { return dpi / 25.4 * zoom / 100; }
    double X(double worldX) const { return worldX / scale * PixelsAMillimetre(); }
    double Y(double worldY) const { return (height - worldY / scale) * PixelsAMillimetre(); }
    std::vector<std::string> Options() const {
        return {"--page",  std::to_string(width) + "x" + std::to_string(height),
                "--scale", std::to_string(scale),
                "--zoom",  std::to_string(zoom),
                "--dpi",   std::to_string(dpi)};
    }
};

// Each page holds the whole scene.
const PageCase c_pages[] = {
    {297, 210, 30, 100, 96}, {297, 210, 30, 100, 192}, {297, 210, 60, 50, 96},
    {210, 297, 40, 150, 72}, {420, 297, 40, 100, 150}, {120, 90, 70, 200, 300},
};

class RenderProgram : public KeelProgramTest {
protected:
    void SetUp() override {
        KeelProgramTest::SetUp();
        if (!ProgramReadsJson())
            GTEST_SKIP() << "this keel was built without a JSON reader";
        m_scene = FileOfTest("scene.json", c_scene);
    }

    // Renders the scene to `name` in the test's home with the options; the path of the file.
    std::string Render(const std::string& name, const std::vector<std::string>& options) {
        std::vector<std::string> words = {"render", m_scene, "--out", (m_home / name).string()};
        words.insert(words.end(), options.begin(), options.end());
        const ProgramOutcome outcome = Run(words);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "");
        return (m_home / name).string();
    }

    std::string m_scene;
};

// The pixel at a place worked out in doubles; a place off the image fails the test.
std::uint32_t PixelAt(const PngImage& image, double x, double y) {
    const long px = std::lround(x);
    const long py = std::lround(y);
    if (px < 0 || py < 0 || px >= image.Width() || py >= image.Height()) {
        ADD_FAILURE() << "(" << px << ", " << py << ") is off the image";
        return 0xFFFFFFFF;
    }
    return image.Pixel(static_cast<int>(px), static_cast<int>(py));
}

// Whether the pixel is `colour` somewhere within a pixel either way of (x, y): a place worked
// out in doubles may round to the next pixel.
bool NearPixel(const PngImage& image, double x, double y, std::uint32_t colour) {
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const int px = static_cast<int>(std::lround(x)) + dx;
            const int py = static_cast<int>(std::lround(y)) + dy;
            if (px >= 0 && py >= 0 && px < image.Width() && py < image.Height() &&
                image.Pixel(px, py) == colour)
                return true;
        }
    return false;
}

TEST_F(RenderProgram, PngSizeAndPixelsFollowThePageScaleZoomAndResolution) {
    for (const PageCase& page : c_pages) {
        SCOPED_TRACE(testing::Message() << page.width << "x" << page.height << " 1:" << page.scale
                                        << " zoom " << page.zoom << " " << page.dpi << " dpi");
        const PngImage image(Render("page.png", page.Options()));
        ASSERT_TRUE(image.IsRead());
        EXPECT_NEAR(image.Width(), page.width * page.PixelsAMillimetre(), 1.0);
        EXPECT_NEAR(image.Height(), page.height * page.PixelsAMillimetre(), 1.0);
        // Inside each shape, far from the edges, and outside both.
        EXPECT_EQ(PixelAt(image, page.X(1500), page.Y(1000)), c_red);
        EXPECT_EQ(PixelAt(image, page.X(6000), page.Y(2000)), c_blue);
        EXPECT_EQ(PixelAt(image, page.X(3500), page.Y(3500)), c_white);
        // The square's outline is black along its top edge; the triangle's follows its fill.
        EXPECT_TRUE(NearPixel(image, page.X(1500), page.Y(2000), c_black));
        EXPECT_FALSE(NearPixel(image, page.X(6000), page.Y(1000), c_black));
    }
}

// The text hangs from its point: dark pixels below it within the height, none above.
TEST_F(RenderProgram, TextHangsFromItsPointAtItsHeight) {
    const PageCase page = c_pages[0];
    const PngImage image(Render("text.png", page.Options()));
    ASSERT_TRUE(image.IsRead());
    const auto darkIn = [&](double top, double bottom) {
        int dark = 0;
        for (int y = std::lround(top); y < std::lround(bottom); ++y)
            for (int x = std::lround(page.X(500)); x < std::lround(page.X(2500)); ++x)
                dark += image.Pixel(x, y) == c_black;
        return dark;
    };
    EXPECT_GT(darkIn(page.Y(5500), page.Y(5100)), 20);
    EXPECT_EQ(darkIn(page.Y(5500) - 40, page.Y(5500) - 2), 0);
    EXPECT_EQ(darkIn(page.Y(5100) + 2, page.Y(5100) + 40), 0);
}

TEST_F(RenderProgram, PdfPageHasThePageSizeWhateverTheZoom) {
    for (const PageCase& page : c_pages) {
        SCOPED_TRACE(testing::Message() << page.width << "x" << page.height);
        const auto box = PdfMediaBox(Render("page.pdf", page.Options()));
        ASSERT_TRUE(box.has_value());
        EXPECT_NEAR((*box)[2] - (*box)[0], page.width / 25.4 * 72, 0.01);
        EXPECT_NEAR((*box)[3] - (*box)[1], page.height / 25.4 * 72, 0.01);
    }
}

} // namespace
} // namespace keel::test
