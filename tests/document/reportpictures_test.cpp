#include "tests/support/reports.h"

#include "keel/document/ado.h"
#include "keel/document/reportpictures.h"

#include <cairo.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace keel {
namespace {

using test::Report;

// A PNG of that size, one colour.
void WritePNG(const std::string& path, int width, int height) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    cairo_t* context = cairo_create(surface);
    cairo_set_source_rgb(context, 0.2, 0.4, 0.6);
    cairo_paint(context);
    cairo_destroy(context);
    ASSERT_EQ(cairo_surface_write_to_png(surface, path.c_str()), CAIRO_STATUS_SUCCESS);
    cairo_surface_destroy(surface);
}

// The width and height that a PNG's header gives.
std::pair<int, int> PNGSize(const QBlob& png) {
    if (png.size() < 24)
        return {0, 0};
    const auto at = [&](std::size_t offset) {
        return png[offset] << 24 | png[offset + 1] << 16 | png[offset + 2] << 8 | png[offset + 3];
    };
    return {at(16), at(20)};
}

class ReportPicturesTest : public test::ReportsTest {
protected:
    void SetUp() override {
        test::ReportsTest::SetUp();
        ASSERT_TRUE(ado.SetConnection(PathOf("report.mdb")));
        ASSERT_TRUE(ado.Execute(u"create table Pictures (ID text, Picture blob)"))
            << ado.GetLastError().ToUtf8();
        ASSERT_TRUE(ado.OpenTable(u"Pictures")) << ado.GetLastError().ToUtf8();
    }
    void TearDown() override {
        ado.Close();
        QADOConnection::FreeAll();
        test::ReportsTest::TearDown();
    }

    std::vector<std::pair<std::string, QBlob>> Stored() {
        std::vector<std::pair<std::string, QBlob>> stored;
        QAdo reader(ado.GetConnection());
        EXPECT_TRUE(reader.OpenQuery(u"select ID, Picture from Pictures order by rowid"));
        for (; !reader.IsEOF(); reader.MoveNext())
            stored.emplace_back(reader.GetString(u"ID").ToUtf8(), reader.GetBlob(u"Picture"));
        return stored;
    }

    QAdo ado;
};

TEST_F(ReportPicturesTest, LargePicturesAreReducedToTheSquareWithOneWarningAType) {
    const struct {
        const char* id;
        const char* type;
        int width, height;
        std::pair<int, int> stored;
    } cases[] = {
        {"fits", "Plan", 100, 50, {100, 50}}, {"wide", "Plan", 400, 100, {100, 25}},
        {"tall", "Plan", 50, 300, {17, 100}}, {"onemore", "Photo", 101, 101, {100, 100}},
        {"small", "Photo", 1, 1, {1, 1}},     {"thin", "Photo", 1000, 1, {100, 1}},
    };
    QReportPictures pictures(ado, u"/reports/stock.rdl", 100);
    for (const auto& c : cases) {
        const std::string path = Path(std::string(c.id) + ".png");
        WritePNG(path, c.width, c.height);
        EXPECT_TRUE(pictures.Add(CString::FromUtf8(c.id), CString::FromUtf8(c.type),
                                 CString::FromUtf8(path)))
            << c.id;
    }
    const auto stored = Stored();
    ASSERT_EQ(stored.size(), std::size(cases));
    for (std::size_t i = 0; i < stored.size(); ++i) {
        EXPECT_EQ(stored[i].first, cases[i].id);
        EXPECT_EQ(PNGSize(stored[i].second), cases[i].stored) << cases[i].id;
    }
    // A picture that fits goes in as the file is.
    EXPECT_EQ(stored[0].second, ReadBytes("fits.png"));
    const std::string tail = " pixels square for performance in report [/reports/stock.rdl]";
    EXPECT_EQ(
        test::PendingReports(),
        (std::vector<Report>{
            {"Report", "Report pictures of type Plan will be reduced from 400 to 100" + tail},
            {"Report", "Report pictures of type Photo will be reduced from 101 to 100" + tail}}));
}

TEST_F(ReportPicturesTest, OtherFilesGoInAsTheyAreAndFailuresAreReported) {
    WriteBytes("logo.bmp", {'B', 'M', 0, 1, 2, 0xFF});
    QReportPictures pictures(ado, u"stock.rdl", 10);
    EXPECT_TRUE(pictures.Add(u"logo", u"Logo", PathOf("logo.bmp")));
    EXPECT_FALSE(pictures.Add(u"gone", u"Logo", PathOf("missing.png")));
    const auto stored = Stored();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].second, ReadBytes("logo.bmp"));
    const std::vector<Report> reports = test::PendingReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message, ado.GetLastError().ToUtf8());
    EXPECT_FALSE(reports[0].message.empty());
}

} // namespace
} // namespace keel
