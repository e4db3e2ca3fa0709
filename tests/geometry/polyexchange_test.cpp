#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"
#include "tests/support/geometry.h"

#include "keel/geometry/tpoly.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace keel {

namespace {

using test::Poly;
using test::Pt;
using test::Text;

class PolyExportTest : public test::ExchangeFileTest {};

TEST_F(PolyExportTest, TheCountAndEachVertexUnderItsIndex) {
    const QWorldPoly poly = Poly({{1.5, -2}, {0, 30}});
    EXPECT_EQ(test::GatheredLines(poly).ToUtf8(), "npoints\t2\t\t\n"
                                                  "x[0]\t1.5 mm\t\t\n"
                                                  "y[0]\t\"-2 mm\"\t\t\n"
                                                  "x[1]\t0 mm\t\t\n"
                                                  "y[1]\t30 mm\t\t\n");
    EXPECT_EQ(test::GatheredLines(Pt(4, 5)).ToUtf8(), "x\t4 mm\t\t\ny\t5 mm\t\t\n");
}

TEST_F(PolyExportTest, ImportReadsBackWhatWasExported) {
    const QWorldPoly original = Poly({{1.5, -2}, {0, 30}, {123.456789, 1e-3}});
    QWorldPoly read = Poly({{9, 9}});
    EXPECT_TRUE(Import(read, test::GatheredLines(original).ToUtf8()));
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
    const auto text = [](const QArray<QLogicalPoint>& points) {
        std::string all;
        for (const QLogicalPoint& point : points)
            all += std::to_string(point.x) + "," + std::to_string(point.y) + " ";
        return all;
    };
    EXPECT_EQ(text(LogicalPoints(page)), "123,-1 235,0 2147483647,-2147483648 0,0 ");
    const QWorldPoly world = Poly({{10, 10}, {-3, 0.5}});
    EXPECT_EQ(text(LogicalPoints(world, 2, 4)), "500,250 -150,13 ");
}

} // namespace

} // namespace keel
