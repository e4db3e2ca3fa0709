#include "tests/support/archivebytes.h"
#include "tests/support/exchangetests.h"
#include "tests/support/geometry.h"

#include "keel/exchange/exportformatascii.h"
#include "keel/geometry/tpoly.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace keel {

namespace {

using test::Bytes;
using test::Poly;
using test::Pt;
using test::Stored;
using test::Text;

// The doubles 1.0, 2.5, -1.0 and 0.0 as the archive writes them.
const Bytes c_one{0, 0, 0, 0, 0, 0, 0xF0, 0x3F};
const Bytes c_twoAndAHalf{0, 0, 0, 0, 0, 0, 0x04, 0x40};
const Bytes c_minusOne{0, 0, 0, 0, 0, 0, 0xF0, 0xBF};
const Bytes c_zero{0, 0, 0, 0, 0, 0, 0, 0};

QWorldPoly Square() {
    return Poly({{0, 0}, {10, 0}, {10, 10}, {0, 10}});
}

QWorldPoly LoadedPoly(const Bytes& bytes, unsigned schema) {
    test::Loading loading(bytes, 4096, u"poly.drw", schema);
    QWorldPoly poly = Square();
    poly.GetBounds();
    poly.Serialize(loading.archive);
    EXPECT_TRUE(loading.archive.IsBufferEmpty()) << "bytes left behind";
    EXPECT_EQ(poly.CacheFlags(), 0) << "loading clears the caches";
    return poly;
}

TEST(PolyArchiveTest, ACountAndThenEachVertexAsTwoDoubles) {
    const Bytes bytes = test::Concat({{0x02, 0x00}, c_one, c_twoAndAHalf, c_minusOne, c_zero});
    QWorldPoly poly = Poly({{1, 2.5}, {-1, 0}});
    EXPECT_EQ(Stored([&](CArchive& ar) { poly.Serialize(ar); }), bytes);
    const QWorldPoly loaded = LoadedPoly(bytes, 18);
    EXPECT_EQ(Text(loaded), "1,2.5 -1,0");
    QWorldPoly again = loaded;
    EXPECT_EQ(Stored([&](CArchive& ar) { again.Serialize(ar); }), bytes);
    EXPECT_EQ(Stored([](CArchive& ar) {
                  QWorldPoly empty;
                  empty.Serialize(ar);
              }),
              (Bytes{0x00, 0x00}));
}

TEST(PolyArchiveTest, OlderSchemasKeepVerticesInTenthsOfAMillimetre) {
    const Bytes bytes{0x01, 0x00, 0x19, 0, 0, 0, 0xF6, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(Text(LoadedPoly(bytes, 16)), "2.5,-1");
}

TEST(PolyArchiveTest, ADamagedCountRunsIntoTheEndOfTheData) {
    const Bytes cases[] = {
        {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F},
        test::Concat({{0x02, 0x00}, c_one, c_one, c_one}),
        {0x01},
    };
    for (const Bytes& bytes : cases) {
        test::Loading loading(bytes, 4096, u"poly.drw", 18);
        QWorldPoly poly;
        try {
            poly.Serialize(loading.archive);
            ADD_FAILURE() << "no failure for " << bytes.size() << " bytes";
        } catch (const CArchiveException& error) {
            EXPECT_EQ(error.m_cause, CArchiveException::endOfFile);
            EXPECT_EQ(error.m_strFileName.ToUtf8(), "poly.drw");
        }
    }
}

CString ExportLines(const QExportable& object) {
    QExportFormatASCII format(object, false, nullptr);
    EXPECT_TRUE(format.GatherLines());
    CString all;
    for (const CString& line : format.GatheredLines())
        all += line;
    return all;
}

class PolyExportTest : public test::ExchangeFileTest {};

TEST_F(PolyExportTest, TheCountAndEachVertexUnderItsIndex) {
    const QWorldPoly poly = Poly({{1.5, -2}, {0, 30}});
    EXPECT_EQ(ExportLines(poly).ToUtf8(), "npoints\t2\t\t\n"
                                          "x[0]\t1.5 mm\t\t\n"
                                          "y[0]\t\"-2 mm\"\t\t\n"
                                          "x[1]\t0 mm\t\t\n"
                                          "y[1]\t30 mm\t\t\n");
    EXPECT_EQ(ExportLines(QWorldPoly()).ToUtf8(), "npoints\t0\t\t\n");
    EXPECT_EQ(ExportLines(Pt(4, 5)).ToUtf8(), "x\t4 mm\t\t\ny\t5 mm\t\t\n");
}

TEST_F(PolyExportTest, ImportReadsBackWhatWasExported) {
    const QWorldPoly original = Poly({{1.5, -2}, {0, 30}, {123.456789, 1e-3}});
    QWorldPoly read = Poly({{9, 9}});
    EXPECT_TRUE(Import(read, ExportLines(original).ToUtf8()));
    EXPECT_EQ(Text(read), Text(original));
    EXPECT_EQ(read.CacheFlags(), 0);
}

TEST_F(PolyExportTest, ImportResizesToTheCountAndRefusesOneBeyondTheLimit) {
    const struct {
        const char* file;
        bool ok;
        const char* result;
    } rows[] = {
        {"npoints\t-1\t\t\n", false, "9,9"}, {"npoints\t100001\t\t\n", false, "9,9"},
        {"npoints\t100000\t\t\n", true, ""}, {"npoints\t2\t\t\nx[1]\t4\t\t\n", true, "9,9 4,0"},
        {"x[0]\t7\t\t\n", true, "7,9"},
    };
    for (const auto& row : rows) {
        QWorldPoly read = Poly({{9, 9}});
        EXPECT_EQ(Import(read, row.file), row.ok) << row.file;
        if (*row.result)
            EXPECT_EQ(Text(read), row.result) << row.file;
        else
            EXPECT_EQ(read.GetCount(), 100000);
        TheErrorLog().DiscardPendingMessages();
    }
}

TEST(LogicalPointsTest, HundredthsOfARawUnitRoundedHalfUp) {
    const QPagePoly page = [] {
        QPagePoly poly;
        poly.Add({QLength::FromRaw(1.234), QLength::FromRaw(-0.006)});
        poly.Add({QLength::FromRaw(2.346), QLength::FromRaw(-0.004)});
        poly.Add({QLength::FromRaw(1e300), QLength::FromRaw(-1e300)});
        poly.Add({QLength::FromRaw(std::numeric_limits<double>::quiet_NaN()), QLength::Zero});
        return poly;
    }();
    const QArray<QLogicalPoint> points = LogicalPoints(page);
    ASSERT_EQ(points.GetCount(), 4);
    const int expected[][2] = {{123, -1}, {235, 0}, {INT_MAX, INT_MIN}, {0, 0}};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(points[i].x, expected[i][0]) << i;
        EXPECT_EQ(points[i].y, expected[i][1]) << i;
    }
    const QWorldPoly world = Poly({{10, 10}, {-3, 0.5}});
    const QArray<QLogicalPoint> scaled = LogicalPoints(world, 2);
    EXPECT_EQ(scaled[0].x, 500);
    EXPECT_EQ(scaled[1].x, -150);
    EXPECT_EQ(scaled[1].y, 25);
    const QArray<QLogicalPoint> twoScales = LogicalPoints(world, 2, 4);
    EXPECT_EQ(twoScales[0].x, 500);
    EXPECT_EQ(twoScales[0].y, 250);
    EXPECT_TRUE(LogicalPoints(QPagePoly()).IsEmpty());
}

} // namespace

} // namespace keel
