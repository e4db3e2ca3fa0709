#include "tests/support/geometry.h"

#include "keel/geometry/polytext.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

using test::Text;

TEST(PolyTextTest, ReadsPointsSeparatedByWhiteSpace) {
    const struct {
        const char* text;
        const char* vertices;
    } rows[] = {
        {"0,0 100,0 100,50", "0,0 100,0 100,50"},
        {"  \t0,0\n100,0\r\n  100,50  ", "0,0 100,0 100,50"},
        {"+1.5,-2e1 3.25e-1,.5 -0,7.", "1.5,-20 0.325,0.5 -0,7"},
        {"1000000000,-1000000000 0,0 1,1", "1e+09,-1e+09 0,0 1,1"},
        {"0,0 1,0 1,1 0,1 0,0", "0,0 1,0 1,1 0,1 0,0"},
    };
    for (const auto& row : rows) {
        QWorldPoly poly;
        std::string message;
        EXPECT_TRUE(ReadPolyText(row.text, poly, message)) << row.text << ": " << message;
        EXPECT_EQ(Text(poly), row.vertices) << row.text;
        EXPECT_TRUE(message.empty());
    }
}

TEST(PolyTextTest, CoordinatesAreMillimetresWhateverTheDefaultUnits) {
    const QLength::LENGTHUNITS units = QLength::DefaultUnits();
    QLength::SetDefaultUnits(QLength::LU_INCH);
    QWorldPoly poly;
    std::string message;
    const bool read = ReadPolyText("0,0 25.4,0 0,2", poly, message);
    QLength::SetDefaultUnits(units);
    ASSERT_TRUE(read) << message;
    EXPECT_EQ(poly.Vertex(1).x.GetRaw(), 25.4);
    EXPECT_EQ(poly.Vertex(2).y.GetRaw(), 2);
}

TEST(PolyTextTest, BadInputIsNamedAndLeavesThePolygonAlone) {
    const struct {
        const char* text;
        const char* message;
    } rows[] = {
        {"", "a polygon needs at least 3 points, not 0"},
        {"   \n ", "a polygon needs at least 3 points, not 0"},
        {"0,0 1,1", "a polygon needs at least 3 points, not 2"},
        {"0,0 1 1,1", "point 2: \"1\" is not of the form x,y"},
        {"0,0 1,1,1 2,2", "point 2: \"1,1,1\" is not of the form x,y"},
        {"0,0 1, 1 2,2", "point 2: y \"\" is not a number"},
        {"0,0 ,1 2,2", "point 2: x \"\" is not a number"},
        {"0,0 1,1 2x,2", "point 3: x \"2x\" is not a number"},
        {"0,0 1,1 2,0x10", "point 3: y \"0x10\" is not a number"},
        {"0,0 1,1 2,++2", "point 3: y \"++2\" is not a number"},
        {"nan,0 1,1 2,2", "point 1: x \"nan\" is not a finite number"},
        {"0,0 1,-inf 2,2", "point 2: y \"-inf\" is not a finite number"},
        {"0,0 1,1 2,1e999", "point 3: y \"1e999\" is not a finite number"},
        {"0,0 1,1 1000000000.5,0", "point 3: x \"1000000000.5\" lies beyond 1e9 mm"},
        {"0,0 1;1 2,2", "point 2: \"1;1\" is not of the form x,y"},
        {"0,0 1,1 2,\xC3\xA9", "point 3: y \"??\" is not a number"},
        {"0,0 1,1 2,123456789012345678901234",
         "point 3: y \"12345678901234567890...\" lies beyond 1e9 mm"},
    };
    for (const auto& row : rows) {
        QWorldPoly poly = test::Poly({{5, 5}});
        std::string message;
        EXPECT_FALSE(ReadPolyText(row.text, poly, message)) << row.text;
        EXPECT_EQ(message, row.message) << row.text;
        EXPECT_EQ(Text(poly), "5,5") << row.text;
    }
}

TEST(PolyTextTest, WrittenTextReadsBackToTheSameDoubles) {
    const QWorldPoly original =
        test::Poly({{0.1, 1.0 / 3}, {-123456.789, 2e-7}, {987654321.5, -0.0}, {1e-300, 5}});
    QWorldPoly read;
    std::string message;
    ASSERT_TRUE(ReadPolyText(WritePolyText(original), read, message)) << message;
    ASSERT_EQ(read.GetCount(), original.GetCount());
    for (int i = 0; i < read.GetCount(); ++i) {
        EXPECT_EQ(read.Vertex(i).x.GetRaw(), original.Vertex(i).x.GetRaw()) << i;
        EXPECT_EQ(read.Vertex(i).y.GetRaw(), original.Vertex(i).y.GetRaw()) << i;
    }
}

} // namespace

} // namespace keel
