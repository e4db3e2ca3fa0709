#include "tests/support/anyvalues.h"
#include "tests/support/samevalue.h"
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
using test::NA;
using test::Same;

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
        QAnyValue expected;
    };
    const Case cases[] = {
        {Error("t"), NA(), Error("c"), Error("t")},
        {QAnyValue(), Error("r"), Error("c"), QAnyValue()},
        {Table(), NA(), Error("c"), NA()},
        {Table(), Error("r"), NA(), Error("r")},
        {Table(), 7, Error("c"), Error("c")},
        {Table(), 7, QAnyValue(), QAnyValue()},
        {u"nosuchtable", NA(), 1, NA()},
    };
    for (const Case& c : cases) {
        QAnyValue value(c.table);
        EXPECT_TRUE(Same(value.LOOKUPit(c.row, c.col, nullptr, nullptr), c.expected));
    }
}

// A name that opens no table is an error; a table of another kind answers not available.
TEST_F(AnyValueTablesTest, ANameThatIsNoTableIsAnError) {
    const QAnyValue notFound = Error("Cannot find lookup table prices");
    EXPECT_TRUE(Same(QAnyValue(u"prices").LOOKUPit(5, u"x", nullptr, nullptr), notFound));
    test::NamedTableSource known({"costs"});
    SetTableHandleSource(&known);
    EXPECT_TRUE(Same(QAnyValue(u"prices").ROWCOUNTit(), notFound));
    EXPECT_TRUE(Same(QAnyValue(u"costs").LOOKUPit(5, u"x", nullptr, nullptr), NA()));
    EXPECT_TRUE(Same(QAnyValue(u"costs").ROWCOUNTit(), NA()));
}

// Look-ups give the cell or not available, lists are strings.
TEST_F(AnyValueTablesTest, EachCallGivesWhatItsTableGives) {
    struct Case {
        QAnyValue (*run)(QAnyValue table);
        QAnyValue expected;
    };
    const Case cases[] = {
        {[](QAnyValue t) { return t.LOOKUPit(7, u"Y", nullptr, nullptr); }, 4},
        {[](QAnyValue t) { return t.LOOKUPEXACTit(10, u"x", nullptr, nullptr); }, 3},
        {[](QAnyValue t) { return t.LOOKUPEXACTit(7, u"x", nullptr, nullptr); }, NA()},
        {[](QAnyValue t) { return t.LOOKUPBYINDEXit(3, 2, nullptr, nullptr); }, 6},
        {[](QAnyValue t) { return t.LOOKUPBYINDEXit(0, 1, nullptr, nullptr); }, NA()},
        {[](QAnyValue t) { return t.LOOKUPBYINDEXit(4, 1, nullptr, nullptr); }, NA()},
        {[](QAnyValue t) { return t.ROWLABELit(2, nullptr, nullptr); }, 10},
        {[](QAnyValue t) { return t.COLLABELit(2, nullptr, nullptr); }, u"y"},
        {[](QAnyValue t) { return t.ROWCOUNTit(); }, 3},
        {[](QAnyValue t) { return t.COLCOUNTit(); }, 2},
        {[](QAnyValue t) { return t.ROWLABELSit(nullptr, nullptr); }, u"5|10|c"},
        {[](QAnyValue t) { return t.COLLABELSit(nullptr, nullptr); }, u"x|y"},
        {[](QAnyValue t) { return t.ROWVALUESit(10, nullptr, nullptr); }, u"3|4"},
        {[](QAnyValue t) { return t.ROWVALUESit(11, nullptr, nullptr); }, NA()},
        {[](QAnyValue t) { return t.COLVALUESit(u"Y", nullptr, nullptr); }, u"2|4|6"},
        {[](QAnyValue t) { return t.ROWVALUESBYINDEXit(1, nullptr, nullptr); }, u"1|2"},
        {[](QAnyValue t) { return t.ROWLABELSFORVALit(4, true, nullptr, nullptr); }, u"10"},
        {[](QAnyValue t) { return t.ROWLABELSFORCOLit(u"x", 1, false, nullptr, nullptr); },
         u"10|c"},
        {[](QAnyValue t) {
             return t.ROWLABELSFORCOL2it(u"x", 1, false, u"y", 4, true, nullptr, nullptr);
         },
         u"10"},
        {[](QAnyValue t) {
             return t.COLLABELSFORROW2it(5, 1, false, 10, 3, false, nullptr, nullptr);
         },
         u"y"},
        {[](QAnyValue t) { return t.ROWVALUESFILTERBYROW2it(u"c", 5, 1, false, nullptr, nullptr); },
         u"6"},
        {[](QAnyValue t) {
             return t.COLVALUESFILTERBYCOL2it(u"x", u"y", 6, false, nullptr, nullptr);
         },
         u"1|3"},
    };
    for (const Case& c : cases)
        EXPECT_TRUE(Same(c.run(Table()), c.expected));
}

TEST_F(AnyValueTablesTest, ArraysSpreadPositionByPosition) {
    EXPECT_TRUE(
        Same(Table().LOOKUPit(Array({1, 7, 99}), u"x", nullptr, nullptr), Array({1, 3, NA()})));
    EXPECT_TRUE(Same(Table().LOOKUPBYINDEXit(Array({1, 2}), Array({1, 2, 2}), nullptr, nullptr),
                     Array({1, 4, 4})))
        << "the shorter array repeats its last element";
    EXPECT_TRUE(Same(Table().ROWLABELit(Array({1, Error("bad"), QAnyValue()}), nullptr, nullptr),
                     Array({5, Error("bad"), QAnyValue()})));
    EXPECT_TRUE(Same(Array({Table(), Error("t")}).ROWCOUNTit(), Array({3, Error("t")})));
}

TEST_F(AnyValueTablesTest, EditsGiveTrueOrNotAvailable) {
    const QAnyValue t = Table();
    const QAnyValue yes(true);
    EXPECT_TRUE(Same(QAnyValue(t).ADDROWit(u"d"), yes));
    EXPECT_TRUE(Same(QAnyValue(t).ADDCOLit(u"z", QAnyValue::TYPE_MONEY), yes));
    EXPECT_TRUE(Same(QAnyValue(t).ADDCOLit(u"bad", 16), NA()));
    QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
    ASSERT_TRUE(m_table.ColType(2, type));
    EXPECT_EQ(type, QAnyValue::TYPE_MONEY);
    EXPECT_TRUE(Same(QAnyValue(t).REMOVEROWit(u"C", nullptr), yes));
    EXPECT_TRUE(Same(QAnyValue(t).REMOVEROWBYINDEXit(1), yes));
    EXPECT_TRUE(Same(QAnyValue(t).REMOVECOLit(u"x", nullptr), yes));
    EXPECT_TRUE(Same(QAnyValue(t).REMOVECOLBYINDEXit(3), NA()));
    EXPECT_TRUE(Same(QAnyValue(t).REMOVECOLBYINDEXit(2), yes));
    EXPECT_EQ(test::Shape(m_table), "10|d / y / 4 / ");
}

TEST_F(AnyValueTablesTest, UpdatesGiveTrueOrNotAvailable) {
    const QAnyValue t = Table();
    const QAnyValue yes(true);
    EXPECT_TRUE(Same(QAnyValue(t).UPDATEEXACTit(10, u"y", 40, nullptr), yes));
    EXPECT_TRUE(Same(QAnyValue(t).UPDATEBYINDEXit(1, 2, 20, nullptr), yes));
    EXPECT_TRUE(Same(QAnyValue(t).UPDATEBYINDEXit(0, 2, 20, nullptr), NA()));
    EXPECT_EQ(test::StoredText(m_table, 1, 1), "40");
    EXPECT_EQ(test::StoredText(m_table, 0, 1), "20");
    QAnyValue both = Table();
    EXPECT_TRUE(Same(both.UPDATEBYINDEXit(Array({1, 2}), 1, u"new", nullptr), Array({yes, yes})));
    EXPECT_EQ(test::StoredText(m_table, 1, 0), "new");
}

} // namespace
} // namespace keel
