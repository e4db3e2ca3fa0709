#include "tests/support/geometry.h"

#include "keel/geometry/polytext.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

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

TEST(PolyTextTest, AnyWhiteSpaceSeparatesPointsAndOtherBytesShowAsQuestionMarks) {
    QWorldPoly poly;
    std::string message;
    ASSERT_TRUE(ReadPolyText("  \t0,0\n100,0\r\n  100,50   ", poly, message)) << message;
    EXPECT_EQ(test::Text(poly), "0,0 100,0 100,50");
    EXPECT_FALSE(ReadPolyText("0,0 1,1 2,\xC3\xA9", poly, message));
    EXPECT_EQ(message, "point 3: y \"??\" is not a number");
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
