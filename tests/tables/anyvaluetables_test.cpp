#include "tests/support/anyvalues.h"
#include "tests/support/tables.h"
#include "tests/tables/memorytable.h"

#include "keel/formula/state.h"
#include "keel/tables/lookuptable.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

using test::Array;
using test::Error;
using test::MemoryTable;
using test::MessageOf;
using test::NA;

std::string Text(const QAnyValue& value) {
    return QAnyValue(value).MakeCString().ToUtf8();
}

// "error <message>", "N/A", or the type number and the text.
std::string Describe(const QAnyValue& value) {
    if (value.IsError())
        return "error " + MessageOf(value);
    if (value.IsNA())
        return "N/A";
    if (value.IsArray()) {
        std::string text = "(";
        QAnyValue copy(value);
        for (const QAnyValue& element : copy.MakeArray())
            text += Describe(element) + ";";
        return text + ")";
    }
    return std::to_string(value.Type()) + " " + Text(value);
}

class AnyValueTablesTest : public testing::Test {
protected:
    AnyValueTablesTest()
        : m_table(MemoryTable({5, 10, u"c"}, {u"x", u"y"}, {{1, 2}, {3, 4}, {u"=v", 6}})),
          m_value(m_table.AsHandle()) {}
    ~AnyValueTablesTest() override {
        SetTableHandleSource(nullptr);
        QLookupTableData::CleanupCache();
    }

    QAnyValue Table() const { return m_value; }

    QLookupTable m_table;
    QAnyValue m_value;
};

TEST_F(AnyValueTablesTest, ErrorsNotAvailableAndEmptyPassThroughInOrder) {
    struct Case {
        QAnyValue table;
        QAnyValue row;
        QAnyValue col;
        std::string expected;
    };
    const Case cases[] = {
        {Error("t"), NA(), Error("c"), "error t"}, {QAnyValue(), Error("r"), Error("c"), "0 "},
        {Table(), NA(), Error("c"), "N/A"},        {Table(), Error("r"), NA(), "error r"},
        {Table(), 7, Error("c"), "error c"},       {Table(), 7, QAnyValue(), "0 "},
        {u"nosuchtable", NA(), 1, "N/A"},
    };
    for (const Case& c : cases) {
        QAnyValue value(c.table);
        EXPECT_EQ(Describe(value.LOOKUPit(c.row, c.col, nullptr, nullptr)), c.expected);
    }
}

// A name that opens no table is an error; a table of another kind answers not available.
TEST_F(AnyValueTablesTest, ANameThatIsNoTableIsAnError) {
    QAnyValue name(u"prices");
    EXPECT_EQ(Describe(name.LOOKUPit(5, u"x", nullptr, nullptr)),
              "error Cannot find lookup table prices");
    test::NamedTableSource known({"costs"});
    SetTableHandleSource(&known);
    QAnyValue missing(u"prices");
    EXPECT_EQ(Describe(missing.ROWCOUNTit()), "error Cannot find lookup table prices");
    QAnyValue named(u"costs");
    EXPECT_EQ(Describe(named.LOOKUPit(5, u"x", nullptr, nullptr)), "N/A");
    QAnyValue counted(u"costs");
    EXPECT_EQ(Describe(counted.ROWCOUNTit()), "N/A");
}

// Look-ups give the cell or not available, lists are strings.
TEST_F(AnyValueTablesTest, EachCallGivesWhatItsTableGives) {
    struct Case {
        QAnyValue (*run)(QAnyValue table);
        std::string expected;
    };
    const Case cases[] = {
        {[](QAnyValue t) { return t.LOOKUPit(7, u"Y", nullptr, nullptr); }, "3 4"},
        {[](QAnyValue t) { return t.LOOKUPEXACTit(10, u"x", nullptr, nullptr); }, "3 3"},
        {[](QAnyValue t) { return t.LOOKUPEXACTit(7, u"x", nullptr, nullptr); }, "N/A"},
        {[](QAnyValue t) { return t.LOOKUPBYINDEXit(3, 2, nullptr, nullptr); }, "3 6"},
        {[](QAnyValue t) { return t.LOOKUPBYINDEXit(0, 1, nullptr, nullptr); }, "N/A"},
        {[](QAnyValue t) { return t.LOOKUPBYINDEXit(4, 1, nullptr, nullptr); }, "N/A"},
        {[](QAnyValue t) { return t.ROWLABELit(2, nullptr, nullptr); }, "3 10"},
        {[](QAnyValue t) { return t.COLLABELit(2, nullptr, nullptr); }, "1 y"},
        {[](QAnyValue t) { return t.ROWCOUNTit(); }, "3 3"},
        {[](QAnyValue t) { return t.COLCOUNTit(); }, "3 2"},
        {[](QAnyValue t) { return t.ROWLABELSit(nullptr, nullptr); }, "1 5|10|c"},
        {[](QAnyValue t) { return t.COLLABELSit(nullptr, nullptr); }, "1 x|y"},
        {[](QAnyValue t) { return t.ROWVALUESit(10, nullptr, nullptr); }, "1 3|4"},
        {[](QAnyValue t) { return t.ROWVALUESit(11, nullptr, nullptr); }, "N/A"},
        {[](QAnyValue t) { return t.COLVALUESit(u"Y", nullptr, nullptr); }, "1 2|4|6"},
        {[](QAnyValue t) { return t.ROWVALUESBYINDEXit(1, nullptr, nullptr); }, "1 1|2"},
        {[](QAnyValue t) { return t.ROWLABELSFORVALit(4, true, nullptr, nullptr); }, "1 10"},
        {[](QAnyValue t) { return t.ROWLABELSFORCOLit(u"x", 1, false, nullptr, nullptr); },
         "1 10|c"},
        {[](QAnyValue t) {
             return t.ROWLABELSFORCOL2it(u"x", 1, false, u"y", 4, true, nullptr, nullptr);
         },
         "1 10"},
        {[](QAnyValue t) {
             return t.COLLABELSFORROW2it(5, 1, false, 10, 3, false, nullptr, nullptr);
         },
         "1 y"},
        {[](QAnyValue t) { return t.ROWVALUESFILTERBYROW2it(u"c", 5, 1, false, nullptr, nullptr); },
         "1 6"},
        {[](QAnyValue t) {
             return t.COLVALUESFILTERBYCOL2it(u"x", u"y", 6, false, nullptr, nullptr);
         },
         "1 1|3"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Describe(c.run(Table())), c.expected);
}

TEST_F(AnyValueTablesTest, ArraysSpreadPositionByPosition) {
    QAnyValue value = Table();
    EXPECT_EQ(Describe(value.LOOKUPit(Array({1, 7, 99}), u"x", nullptr, nullptr)),
              "(3 1;3 3;N/A;)");
    QAnyValue padded = Table();
    EXPECT_EQ(Describe(padded.LOOKUPBYINDEXit(Array({1, 2}), Array({1, 2, 2}), nullptr, nullptr)),
              "(3 1;3 4;3 4;)")
        << "the shorter array repeats its last element";
    QAnyValue withError = Table();
    EXPECT_EQ(
        Describe(withError.ROWLABELit(Array({1, Error("bad"), QAnyValue()}), nullptr, nullptr)),
        "(3 5;error bad;0 ;)");
    QAnyValue tables(Array({Table(), Error("t")}));
    EXPECT_EQ(Describe(tables.ROWCOUNTit()), "(3 3;error t;)");
}

TEST_F(AnyValueTablesTest, EditsGiveTrueOrNotAvailable) {
    QAnyValue t = Table();
    EXPECT_EQ(Describe(QAnyValue(t).ADDROWit(u"d")), "2 " + Text(true));
    EXPECT_EQ(Describe(QAnyValue(t).ADDCOLit(u"z", QAnyValue::TYPE_MONEY)), "2 " + Text(true));
    EXPECT_EQ(Describe(QAnyValue(t).ADDCOLit(u"bad", 16)), "N/A");
    QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
    ASSERT_TRUE(m_table.ColType(2, type));
    EXPECT_EQ(type, QAnyValue::TYPE_MONEY);
    EXPECT_EQ(Describe(QAnyValue(t).REMOVEROWit(u"C", nullptr)), "2 " + Text(true));
    EXPECT_EQ(Describe(QAnyValue(t).REMOVEROWBYINDEXit(1)), "2 " + Text(true));
    EXPECT_EQ(Describe(QAnyValue(t).REMOVECOLit(u"x", nullptr)), "2 " + Text(true));
    EXPECT_EQ(Describe(QAnyValue(t).REMOVECOLBYINDEXit(3)), "N/A");
    EXPECT_EQ(Describe(QAnyValue(t).REMOVECOLBYINDEXit(2)), "2 " + Text(true));
    EXPECT_EQ(test::Shape(m_table), "10|d / y / 4 / ");
}

TEST_F(AnyValueTablesTest, UpdatesGiveTrueOrNotAvailable) {
    QAnyValue t = Table();
    EXPECT_EQ(Describe(QAnyValue(t).UPDATEEXACTit(10, u"y", 40, nullptr)), "2 " + Text(true));
    EXPECT_EQ(Describe(QAnyValue(t).UPDATEBYINDEXit(1, 2, 20, nullptr)), "2 " + Text(true));
    EXPECT_EQ(Describe(QAnyValue(t).UPDATEBYINDEXit(0, 2, 20, nullptr)), "N/A");
    EXPECT_EQ(test::StoredText(m_table, 1, 1), "40");
    EXPECT_EQ(test::StoredText(m_table, 0, 1), "20");
    QAnyValue both = Table();
    EXPECT_EQ(Describe(both.UPDATEBYINDEXit(Array({1, 2}), 1, u"new", nullptr)),
              "(2 " + Text(true) + ";2 " + Text(true) + ";)");
    EXPECT_EQ(test::StoredText(m_table, 1, 0), "new");
}

} // namespace
} // namespace keel
