#include "tests/support/program.h"

#include <GlobalParams.h>
#include <PDFDoc.h>
#include <Page.h>
#include <TextOutputDev.h>
#include <filesystem>
#include <goo/GooString.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel::test {
namespace {

// PDF pages written by `keel render`, opened with poppler: a reader that shares nothing with
// Cairo, which wrote them.

constexpr double c_pointsAMillimetre = 72 / 25.4;

// What poppler reads of a PDF file: whether it opened, its pages, the first page's media box in
// points and the text on it.
struct PdfReading {
    bool ok = false;
    int pages = 0;
    PDFRectangle mediaBox;
    int rotate = 0;
    std::string text;
};

PdfReading ReadPdf(const std::string& path) {
    if (!globalParams)
        globalParams = std::make_unique<GlobalParams>();
    PDFDoc doc(std::make_unique<GooString>(path));
    PdfReading reading;
    reading.ok = doc.isOk();
    if (!reading.ok)
        return reading;
    reading.pages = doc.getNumPages();
    Page* page = doc.getPage(1);
    if (!page)
        return reading;
    reading.mediaBox = *page->getMediaBox();
    reading.rotate = page->getRotate();
    TextOutputDev text(nullptr, false, 0, false, false);
    doc.displayPage(&text, 1, 72, 72, 0, true, false, false);
    const std::unique_ptr<GooString> words(
        text.getText(0, 0, page->getMediaWidth(), page->getMediaHeight()));
    if (words)
        reading.text = words->toStr();
    return reading;
}

// The page size given in millimetres, as poppler found it.
void ExpectPageOf(const PdfReading& reading, double width, double height) {
    ASSERT_TRUE(reading.ok);
    EXPECT_EQ(reading.pages, 1);
    EXPECT_EQ(reading.rotate, 0);
    EXPECT_NEAR(reading.mediaBox.x1, 0, 0.01);
    EXPECT_NEAR(reading.mediaBox.y1, 0, 0.01);
    EXPECT_NEAR(reading.mediaBox.x2, width * c_pointsAMillimetre, 0.01);
    EXPECT_NEAR(reading.mediaBox.y2, height * c_pointsAMillimetre, 0.01);
}

class PopplerReadsRenderedPdf : public KeelProgramTest {
protected:
    void SetUp() override {
        KeelProgramTest::SetUp();
        if (!ProgramReadsJson())
            GTEST_SKIP() << "this keel was built without a JSON reader";
        m_scene = FileOfTest("scene.json", R"({
  "polygons": [{"points": "0,0 3000,0 3000,2000 0,2000", "fill": "#ff0000", "stroke": "#000000"}],
  "texts": [{"at": "500,5500", "text": "Kitchen", "height": 400}]})");
    }

    ProgramOutcome Render(const std::vector<std::string>& options) const {
        std::vector<std::string> words = {"render", m_scene, "--out", Out()};
        words.insert(words.end(), options.begin(), options.end());
        return Run(words);
    }
    std::string Out() const { return (m_home / "page.pdf").string(); }

    std::string m_scene;
};

TEST_F(PopplerReadsRenderedPdf, PageIsTheSizeGivenInMillimetres) {
    const struct {
        std::vector<std::string> options;
        double width, height;
    } cases[] = {
        {{}, 297, 210}, // A4 landscape unless told
        {{"--page", "1x1"}, 1, 1},
        {{"--page", "5000x5000"}, 5000, 5000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        const ProgramOutcome outcome = Render(c.options);
        ASSERT_EQ(outcome.status, 0) << outcome.err;
        ExpectPageOf(ReadPdf(Out()), c.width, c.height);
    }
}

TEST_F(PopplerReadsRenderedPdf, TextDrawnIsTextOnThePage) {
    const ProgramOutcome outcome = Render({"--scale", "30"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const PdfReading reading = ReadPdf(Out());
    ASSERT_TRUE(reading.ok);
    EXPECT_NE(reading.text.find("Kitchen"), std::string::npos) << reading.text;
}

// A page larger than the printer surface takes is refused, and no PDF is left behind.
TEST_F(PopplerReadsRenderedPdf, PageBeyondThePrinterLimitWritesNothing) {
    const ProgramOutcome outcome = Render({"--page", "5001x100"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("outside 1 to 5000 mm a side"), std::string::npos) << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(Out()));
}

} // namespace
} // namespace keel::test
