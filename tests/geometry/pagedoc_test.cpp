#include "tests/support/archivebytes.h"
#include "tests/support/pagescene.h"

#include "keel/platform/exceptions.h"

#include <gtest/gtest.h>

namespace keel::test {
namespace {

TEST(PageDocTest, DefaultScaleIsAMultipleOfFiveFromTheSmallerSide) {
    const struct {
        double width, height;
        int scale;
    } cases[] = {
        {210, 297, 30},  // A4 either way round
        {297, 210, 30},  //
        {420, 297, 20},  // A3: 6*210/297 = 4.24
        {841, 594, 10},  // A1: 2.12
        {105, 148, 60},  // A6
        {0, 0, 30},      // no size: 210 is taken
        {210, 0.005, 30} // a side near zero counts as none
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.width) + " x " + std::to_string(c.height));
        PageStaticsScope statics;
        QPageDoc::SetManualPageSize(PageSize(c.width, c.height));
        const QPageDoc doc;
        EXPECT_EQ(doc.GetScale(), c.scale);
        EXPECT_EQ(doc.GetPageSize(), PageSize(c.width, c.height));
        EXPECT_EQ(QPageDoc::DefaultScaleFor(PageSize(c.width, c.height)), c.scale);
    }
}

TEST(PageDocTest, WorldAndPageConvertBothWaysForAnyScale) {
    for (const int scale : {1, 7, 50, 1250}) {
        SCOPED_TRACE(scale);
        PageSetup setup(210, 297, scale);
        const QPageDoc& doc = *setup.doc;
        const QWorldPoint world = WorldPt(1234.5, -987.25);
        EXPECT_EQ(doc.PageToWorld(doc.WorldToPage(world)), world);
        EXPECT_DOUBLE_EQ(doc.WorldToPage(world).x.GetRaw(), 1234.5 / scale);
        const QWorldRect rect(WorldPt(500, 800), WorldPt(-100, 200));
        const QPageRect page = doc.WorldToPage(rect);
        EXPECT_LE(page.left.GetRaw(), page.right.GetRaw()) << "stays normalised";
        EXPECT_EQ(doc.PageToWorld(page), rect);
        QWorldPoly poly;
        poly.Add(WorldPt(0, 0));
        poly.Add(WorldPt(scale * 10.0, scale * 20.0));
        QPagePoly pagePoly;
        doc.WorldToPage(poly, pagePoly);
        ASSERT_EQ(pagePoly.GetCount(), 2);
        EXPECT_EQ(pagePoly.Vertex(1), PagePt(10, 20));
        QWorldPoly back;
        doc.PageToWorld(pagePoly, back);
        EXPECT_TRUE(back == poly);
        EXPECT_EQ(doc.GetWorldRect(),
                  QWorldRect(WorldPt(0, 0), WorldPt(210.0 * scale, 297.0 * scale)));
    }
}

TEST(PageDocTest, HimetricSizeRoundsHundredthsHalfUp) {
    PageSetup setup(210.004, 296.996, 50);
    EXPECT_EQ(setup.doc->GetHIMETRICSize().x, 21000);
    EXPECT_EQ(setup.doc->GetHIMETRICSize().y, 29700);
}

// The document header before the page header sets the schema; from this one on, lengths are
// doubles.
constexpr unsigned c_lengthsAsDoubles = 18;

Bytes StoredHeader(QPageDoc& doc) {
    return Stored([&](CArchive& archive) { doc.SerializeHeader(archive); });
}

TEST(PageDocTest, HeaderIsScaleThenSizeThenEndTag) {
    PageSetup setup(210, 297, 50);
    const Bytes expected = Hex("01 32 00 00 00 "                                     // scale 50
                               "02 00 00 00 00 00 40 6A 40 00 00 00 00 00 90 72 40 " // 210, 297
                               "00");
    EXPECT_EQ(StoredHeader(*setup.doc), expected);

    PageSetup other(100, 100, 5);
    Loading loading(expected, 4096, CString(), c_lengthsAsDoubles);
    other.doc->SerializeHeader(loading.archive);
    EXPECT_EQ(other.doc->GetScale(), 50);
    EXPECT_EQ(other.doc->GetPageSize(), PageSize(210, 297));
    EXPECT_TRUE(loading.archive.IsBufferEmpty());
    EXPECT_EQ(StoredHeader(*other.doc), expected) << "byte for byte again";
}

TEST(PageDocTest, HeaderReadingFollowsTheTags) {
    QPageDoc::SetFallbackPageSizes(PageSize(297, 210), PageSize(841, 594));
    const struct {
        const char* name;
        const char* bytes;
        int scale;
        QPageVector size;
    } cases[] = {
        {"size before scale",
         "02 00 00 00 00 00 00 59 40 00 00 00 00 00 00 49 40 01 0A 00 00 00 00", 10,
         PageSize(100, 50)},
        {"no size below 25 takes the standard size", "01 18 00 00 00 00", 24, PageSize(297, 210)},
        {"no size from 25 takes the other size", "01 19 00 00 00 00", 25, PageSize(841, 594)},
        {"a scale of zero is ignored", "01 00 00 00 00 00", 40, PageSize(841, 594)},
        {"a negative scale is ignored", "01 FF FF FF FF 00", 40, PageSize(841, 594)},
        {"an empty list keeps the scale", "00", 40, PageSize(841, 594)},
        {"the last of two scales wins", "01 05 00 00 00 01 07 00 00 00 00", 7, PageSize(297, 210)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        PageSetup setup(10, 10, 40);
        QPageDoc::SetFallbackPageSizes(PageSize(297, 210), PageSize(841, 594));
        Loading loading(Hex(c.bytes), 4096, CString(), c_lengthsAsDoubles);
        setup.doc->SerializeHeader(loading.archive);
        EXPECT_EQ(setup.doc->GetScale(), c.scale);
        EXPECT_EQ(setup.doc->GetPageSize(), c.size);
    }
}

TEST(PageDocTest, HeaderFailsOnAnUnknownTagOrAShortStream) {
    const struct {
        const char* bytes;
        int cause;
    } cases[] = {
        {"03 00", CArchiveException::writeOnly},
        {"01 32 00 00 00 FF 00", CArchiveException::writeOnly},
        {"01 32 00", CArchiveException::endOfFile},
        {"01 32 00 00 00", CArchiveException::endOfFile},
        {"02 00 00 00 00 00 00 59 40", CArchiveException::endOfFile},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        PageSetup setup(210, 297, 30);
        Loading loading(Hex(c.bytes), 4096, u"page.doc", c_lengthsAsDoubles);
        try {
            setup.doc->SerializeHeader(loading.archive);
            ADD_FAILURE() << "no exception";
        } catch (const CArchiveException& failure) {
            EXPECT_EQ(failure.m_cause, c.cause);
            EXPECT_EQ(failure.m_strFileName, CString(u"page.doc"));
        }
    }
    EXPECT_EQ(CArchiveException::writeOnly, 4);
}

// A printer that reports a page and counts the contexts asked of it.
class FakePrinter : public IPrinter {
public:
    FakePrinter(int widthMm, int heightMm, const char* driver = "HPPCL.DLL",
                const char* version = "1.0")
        : m_widthMm(widthMm), m_heightMm(heightMm), m_driver(CString::FromUtf8(driver)),
          m_version(CString::FromUtf8(version)) {}
    CString DriverName() const override { return m_driver; }
    CString DriverVersion() const override { return m_version; }
    std::unique_ptr<QDeviceContext> CreateDC() override {
        ++asked;
        QDeviceCaps caps;
        caps.widthMillimetres = m_widthMm;
        caps.heightMillimetres = m_heightMm;
        caps.widthPixels = m_widthMm * 24;
        caps.heightPixels = m_heightMm * 24;
        return std::make_unique<QInfoDC>(caps, true);
    }
    int asked = 0;

private:
    int m_widthMm, m_heightMm;
    CString m_driver, m_version;
};

// A view that follows the page size and records what it was given.
struct FollowingView : IPageSizeFollower {
    void SetPageSize(const QPageVector& size, bool redraw) override {
        sizes.push_back(size);
        redraws.push_back(redraw);
    }
    std::vector<QPageVector> sizes;
    std::vector<bool> redraws;
};

TEST(PageDocTest, ComputePageSizeAsksThePrinterAndKeepsTheDrawingOnPaper) {
    PageStaticsScope statics;
    QPageDoc::SetManualPageSize({});
    QPageDoc doc;
    FollowingView follower;
    doc.AddFollower(&follower);
    FakePrinter printer(210, 297);
    SetDefaultPrinter(&printer);
    ASSERT_EQ(doc.GetScale(), 30);

    EXPECT_TRUE(doc.ComputePageSize(nullptr, false, true));
    EXPECT_EQ(printer.asked, 1);
    EXPECT_EQ(doc.GetPageSize(), PageSize(210, 297));
    EXPECT_EQ(doc.GetScale(), 30) << "kept";
    ASSERT_EQ(follower.sizes.size(), 1u);
    EXPECT_TRUE(follower.redraws[0]);

    FakePrinter bigger(420, 594);
    SetDefaultPrinter(&bigger);
    EXPECT_TRUE(doc.ComputePageSize(nullptr, false, false));
    EXPECT_EQ(doc.GetPageSize(), PageSize(420, 594));
    EXPECT_EQ(doc.GetScale(), 15) << "30 * 210 / 420";

    EXPECT_TRUE(doc.ComputePageSize(nullptr, false, false));
    EXPECT_EQ(follower.sizes.size(), 2u) << "nothing changed, nobody told";

    QPageDoc::SetManualPageSizeA4();
    EXPECT_TRUE(QPageDoc::IsManualPageSizeA4());
    EXPECT_TRUE(doc.ComputePageSize(nullptr, false, false));
    EXPECT_EQ(bigger.asked, 2) << "a manual size is not asked of the printer";
    EXPECT_EQ(doc.GetPageSize(), PageSize(210, 297));
    EXPECT_EQ(doc.GetScale(), 15) << "a manual size keeps the scale";
    doc.RemoveFollower(&follower);
}

TEST(PageDocTest, ComputePageSizeMeasuresAGivenContextAndRefusesNesting) {
    PageStaticsScope statics;
    QPageDoc::SetManualPageSize({});

    class NestingDoc : public QPageDoc {
    public:
        bool nestedResult = true;

    protected:
        void ScaleChanged(int) override { nestedResult = ComputePageSize(nullptr, false, true); }
    } doc;
    QDeviceCaps caps;
    caps.widthMillimetres = 210;
    caps.heightMillimetres = 297;
    QInfoDC a4(caps, true);
    caps.widthMillimetres = 297;
    caps.heightMillimetres = 420;
    QInfoDC a3(caps, true);
    EXPECT_TRUE(doc.ComputePageSize(&a4, false, false));
    EXPECT_EQ(doc.GetScale(), 30);
    EXPECT_TRUE(doc.nestedResult) << "no notification yet";
    EXPECT_TRUE(doc.ComputePageSize(&a3, false, false));
    EXPECT_EQ(doc.GetPageSize(), PageSize(297, 420));
    EXPECT_EQ(doc.GetScale(), 21) << "30 * 210 / 297";
    EXPECT_FALSE(doc.nestedResult) << "the scale notification ran inside the computation";
}

TEST(PageDocTest, VersionsCompareNumberByNumber) {
    EXPECT_TRUE(IsVersionAtLeast(u"0.3.1296.1", u"0.3.1296.1"));
    EXPECT_TRUE(IsVersionAtLeast(u"0.3.6000.16386", u"0.3.1296.1"));
    EXPECT_TRUE(IsVersionAtLeast(u"0.4", u"0.3.1296.1"));
    EXPECT_FALSE(IsVersionAtLeast(u"0.3.999.9", u"0.3.1296.1"));
    EXPECT_FALSE(IsVersionAtLeast(u"0.3.1296", u"0.3.1296.1"));
}

TEST(PageDocTest, SetScaleRefusesAScaleThatIsNotPositive) {
    PageSetup setup(210, 297, 30);
    EXPECT_THROW(setup.doc->SetScaleAndComputePageSize(0), InvalidArgumentException);
    EXPECT_EQ(setup.doc->GetScale(), 30);
}

} // namespace
} // namespace keel::test
