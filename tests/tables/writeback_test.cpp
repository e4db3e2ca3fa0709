#include "keel/formula/stringtovalue.h"
#include "keel/tables/celltokens.h"
#include "keel/values/stringunique.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using TYPE = QAnyValue::TYPE;

// The value of a formula, its texts in the case they are given.
QAnyValue Evaluated(const char16_t* formula, bool good = true) {
    FormulaText(CString(formula), false, true);
    QAnyValue value;
    EXPECT_EQ(StringToValue(value, formula, nullptr, true, nullptr), good)
        << CString(formula).ToUtf8();
    return value;
}

// The token of each value, and that it reads back as the same value in its place.
TEST(CellToken, KeepsEveryDigitUnitAndCaseAndReadsBack) {
    // A text in another case interned first must not change the case of the one written.
    const FormulaText upper(u"\"ABC\"");
    struct Case {
        const char16_t* formula;
        TYPE type;
        const char16_t* token;
    };
    const Case cases[] = {
        {u"3.14159265358979", QAnyValue::TYPE_DOUBLE, u"3.14159265358979"},
        {u"0.00000012", QAnyValue::TYPE_DOUBLE, u"0.00000012"},
        {u"2.5", QAnyValue::TYPE_INT, u"2.5"},
        {u"1 ft", QAnyValue::TYPE_LENGTH, u"304.8 mm"},
        {u"1 ft", QAnyValue::TYPE_DOUBLE, u"304.8 mm"},
        {u"2 sqm", QAnyValue::TYPE_AREA, u"2 sqm"},
        {u"1.5 hours", QAnyValue::TYPE_TIME, u"5400 seconds"},
        {u"$12.50", QAnyValue::TYPE_MONEY, u"$12.50"},
        {u"\"abc\"", QAnyValue::TYPE_STRING, u"\"\"\"abc\"\"\""},
        {u"\"a\"\"b\"", QAnyValue::TYPE_STRING, u"\"\"\"a\"\"\"\"b\"\"\""},
        {u"\"2020-02-01\"", QAnyValue::TYPE_DATETIME, u"\"\"\"2020-02-01\"\"\""},
        {u"\"=1+2\"", QAnyValue::TYPE_INT, u"\"\"\"=1+2\"\"\""},
        {u"\"\"", QAnyValue::TYPE_STRING, u""},
    };
    for (const Case& c : cases) {
        const QAnyValue value = Evaluated(c.formula);
        const CString token = CellToken(value, c.type);
        EXPECT_EQ(token.ToUtf8(), CString(c.token).ToUtf8()) << CString(c.formula).ToUtf8();
        CString line = token;
        CString taken;
        QAnyValue read;
        EXPECT_TRUE(ReadCellToken(line, read, taken, true)) << token.ToUtf8();
        EXPECT_TRUE(IsSameCell(read, value, c.type)) << token.ToUtf8();
    }
}

TEST(CellToken, ReadsTheTextOfTheFileInItsOwnCase) {
    const FormulaText upper(u"\"XYZ\"");
    CString line = u"\"\"\"xyz\"\"\"\tnext";
    CString token;
    QAnyValue value;
    ASSERT_TRUE(ReadCellToken(line, value, token, true));
    EXPECT_EQ(value.Format().ToUtf8(), "xyz");
    EXPECT_EQ(line.ToUtf8(), "next");
}

TEST(CellToken, SameCellTellsWhatAReaderWouldSeeDifferently) {
    struct Case {
        const char16_t* read;
        const char16_t* original;
        TYPE type;
        bool same;
    };
    const Case cases[] = {
        {u"\"A\"", u"\"a\"", QAnyValue::TYPE_STRING, false},
        {u"2", u"2.5", QAnyValue::TYPE_INT, false},
        {u"3", u"3", QAnyValue::TYPE_DOUBLE, true},
        {u"3.141593", u"3.14159265358979", QAnyValue::TYPE_DOUBLE, false},
        {u"304.8 mm", u"1 ft", QAnyValue::TYPE_LENGTH, true},
        {u"\"02/01/2020\"", u"\"2020-02-01\"", QAnyValue::TYPE_DATETIME, false},
        {u"\"=A+1\"", u"\"=a+1\"", QAnyValue::TYPE_EMPTY, false},
        {u"\"=a+1\"", u"\"=a+1\"", QAnyValue::TYPE_INT, true},
        {u"\"\"", u"\"\"", QAnyValue::TYPE_INT, true},
        {u"1/0", u"1/0", QAnyValue::TYPE_EMPTY, false},
    };
    for (const Case& c : cases) {
        const bool good = std::u16string_view(c.read) != u"1/0";
        const QAnyValue read = Evaluated(c.read, good);
        const QAnyValue original = Evaluated(c.original, good);
        EXPECT_EQ(IsSameCell(read, original, c.type), c.same)
            << CString(c.read).ToUtf8() << " / " << CString(c.original).ToUtf8();
    }
}

} // namespace
} // namespace keel
