#include "tests/tables/tablefixture.h"

#include "keel/tables/lookuptable.h"

#include <gtest/gtest.h>
#include <string>

// Cells that the file holds well but that cannot take their column's type: reading them gives an
// error value in that cell, and writing the table keeps them as they stand.

namespace keel {
namespace {

// An empty array cannot be made a number or a length: it has no first element.
const std::string c_emptyArrays = "Odd cells\tVltFormat=2.1\t\n"
                                  "2\t2\n"
                                  "Key\t\"\"\"Count\"\"\"\t\"\"\"Size\"\"\"\n"
                                  "String\\String\tNumber\tLength\n"
                                  "\"\"\"a\"\"\"\t[]\t5\n"
                                  "\"\"\"b\"\"\"\t2\t[]\n";

class BadCells : public test::TableFixture {};

TEST_F(BadCells, ACellThatCannotTakeItsTypeReadsAsAnErrorAndTheOthersAreUntouched) {
    WriteTable("odd", c_emptyArrays);
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"odd")) << table.LastError().ToUtf8();
    struct Case {
        const char16_t* row;
        const char16_t* col;
        bool error;
    };
    for (const Case& c : {Case{u"a", u"Count", true}, Case{u"a", u"Size", false},
                          Case{u"b", u"Count", false}, Case{u"b", u"Size", true}}) {
        QAnyValue cell;
        ASSERT_TRUE(table.LookupExact(QAnyValue(c.row), QAnyValue(c.col), cell, nullptr, nullptr));
        CString message;
        EXPECT_EQ(cell.IsErrorAndGetMessage(message), c.error)
            << CString(c.row).ToUtf8() << " " << CString(c.col).ToUtf8();
        if (c.error) {
            EXPECT_NE(message.ToUtf8().find("empty array"), std::string::npos) << message.ToUtf8();
        }
    }
}

TEST_F(BadCells, WritingKeepsACellThatCannotTakeItsType) {
    WriteTable("odd", c_emptyArrays);
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"odd"));
    ASSERT_TRUE(table.BeginTrans());
    ASSERT_TRUE(table.CommitTrans()) << table.LastError().ToUtf8();
    EXPECT_EQ(ReadTable("odd"), c_emptyArrays);
}

} // namespace
} // namespace keel
