#include "tests/support/anyvalues.h"
#include "tests/support/samevalue.h"
#include "tests/tables/memorytable.h"
#include "tests/tables/tablefixture.h"

#include "keel/tables/lookuptable.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::Cells;
using test::MemoryTable;
using TYPE = QAnyValue::TYPE;

std::string Text(const QAnyValue& value) {
    return QAnyValue(value).MakeCString().ToUtf8();
}

// The fixture puts the index threshold back and drops the tables after each test.
using LookupsTest = test::TableFixture;

// Numbers find the first label at or above the key, so that sorted labels are upper bounds;
// texts find the first label that begins the key, in row order. Exact matches ignore case and
// need the whole label, numbers matching by value. An empty label catches every key that reaches
// it, in both forms.
TEST_F(LookupsTest, RowKeysFindTheirRowByNearestOrExactMatch) {
    const QLookupTable bounds = MemoryTable({5, 10, 15}, {u"x"});
    const QLookupTable texts = MemoryTable({u"A", u"AB", u"B"}, {u"x"});
    const QLookupTable mixed = MemoryTable({u"A", u"AB", 10}, {u"x"});
    const QLookupTable catchAll = MemoryTable({5, QAnyValue(), 10}, {u"x"});
    struct Case {
        const QLookupTable* table;
        QAnyValue key;
        bool exact;
        int row;
    };
    const Case cases[] = {
        {&bounds, 5, false, 0},
        {&bounds, 10.5, false, 2},
        {&bounds, 15, false, 2},
        {&bounds, u"A", false, -1},
        {&bounds, 15.0001, false, -1},
        {&texts, u"ABC", false, 0},
        {&texts, u"b", false, 2},
        {&texts, u"C", false, -1},
        {&texts, u"", false, -1},
        {&mixed, u"ab", true, 1},
        {&mixed, u"ABC", true, -1},
        {&mixed, 10.0, true, 2},
        {&catchAll, 99, false, 1},
        {&catchAll, 5, true, 0},
        {&catchAll, u"anything", true, 1},
    };
    for (const Case& c : cases) {
        const int row =
            c.exact ? c.table->FindRowExact(c.key, nullptr) : c.table->FindRow(c.key, nullptr);
        EXPECT_EQ(row, c.row) << Text(c.key) << (c.exact ? " exact" : " nearest");
    }
}

// A look-up gives the cell where the row and the column found meet, and nothing when either
// is missing.
TEST_F(LookupsTest, LookupsGiveTheCellWhereRowAndColumnMeet) {
    const QLookupTable table =
        MemoryTable({u"A", u"AB", 10}, {u"x", u"y"}, {{1, 2}, {3, 4}, {5, 6}});
    struct Case {
        QAnyValue row;
        QAnyValue col;
        bool exact;
        const char* cell; // "-" for a miss
    };
    const Case cases[] = {
        {u"ab", u"Y", true, "4"},   {u"abc", u"y", true, "-"}, {u"ab", u"z", true, "-"},
        {u"ABC", u"X", false, "1"}, {7, u"y", false, "6"},     {11, u"x", false, "-"},
    };
    for (const Case& c : cases) {
        QAnyValue value;
        const bool found = c.exact ? table.LookupExact(c.row, c.col, value, nullptr, nullptr)
                                   : table.Lookup(c.row, c.col, value, nullptr, nullptr);
        EXPECT_EQ(found ? Text(value) : "-", c.cell) << Text(c.row) << " " << Text(c.col);
    }
}

TEST_F(LookupsTest, AFormulaCellGivesItsResultInAContextAndItsTextWithout) {
    QLookupTable table = MemoryTable({u"a"}, {u"x", u"y", u"z"}, {{u"=price * 2", u":1 + 2", 5}});
    test::NamesContext context;
    context.Set("price", 21);
    QAnyValue value;
    ASSERT_TRUE(table.LookupByIndex(0, 0, value, &context, nullptr));
    EXPECT_TRUE(test::Same(value, 42));
    ASSERT_TRUE(table.LookupByIndex(0, 0, value, nullptr, nullptr));
    EXPECT_EQ(Text(value), "=price * 2");
    ASSERT_TRUE(table.LookupByIndexNoEval(0, 0, value));
    EXPECT_EQ(Text(value), "=price * 2");
    EXPECT_TRUE(table.IsValueFormulaControlled(0, 0));
    EXPECT_FALSE(table.IsValueFormulaControlled(0, 2));
    // With a context, a formula that fails is a failed read.
    test::NamesContext empty;
    EXPECT_FALSE(table.LookupByIndex(0, 0, value, &empty, nullptr));
}

TEST_F(LookupsTest, EvaluationAppliesTheTypeAfterTheFormula) {
    struct Case {
        QAnyValue stored;
        TYPE type;
        bool withContext;
        QAnyValue expected;
    };
    // A formula is a text that begins with "=" or ":".
    const Case cases[] = {
        {u"12", QAnyValue::TYPE_INT, false, 12},
        {u"=5 + 5", QAnyValue::TYPE_STRING, true, u"10"},
        {u"=5 + 5", QAnyValue::TYPE_STRING, false, 10},
        {u":5 + 5", QAnyValue::TYPE_EMPTY, true, 10},
        {u" =5 + 5", QAnyValue::TYPE_EMPTY, true, u" =5 + 5"},
        {u"1=1", QAnyValue::TYPE_EMPTY, true, u"1=1"},
        {u"=nosuchname", QAnyValue::TYPE_INT, false, u"=nosuchname"},
        {QAnyValue(), QAnyValue::TYPE_INT, true, QAnyValue()},
        {3, QAnyValue::TYPE_EMPTY, false, 3},
    };
    test::NamesContext context;
    for (const Case& c : cases) {
        SCOPED_TRACE(Text(c.stored));
        QAnyValue value(c.stored);
        ASSERT_TRUE(QLookupTableData::EvaluateCell(value, c.type,
                                                   c.withContext ? &context : nullptr, nullptr));
        EXPECT_TRUE(test::Same(value, c.expected));
    }
}

TEST_F(LookupsTest, LabelsAndCellsReadWithTheirTypes) {
    QLookupTable table = MemoryTable({u"10", u"20"}, {u"cost"}, {{u"5"}, {u"7"}});
    table.UpdateRowLabelType(QAnyValue::TYPE_INT);
    table.UpdateColType(0, QAnyValue::TYPE_INT);
    QAnyValue label;
    ASSERT_TRUE(table.RowLabel(1, label, nullptr, nullptr));
    EXPECT_TRUE(test::Same(label, 20));
    QAnyValue cell;
    ASSERT_TRUE(table.Lookup(15, u"cost", cell, nullptr, nullptr));
    EXPECT_TRUE(test::Same(cell, 7));
    EXPECT_FALSE(table.RowLabel(2, label, nullptr, nullptr));
    EXPECT_FALSE(table.ColLabel(-1, label, nullptr, nullptr));
}

TEST_F(LookupsTest, UpdatesStoreWithoutChangingTheType) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x", u"y"});
    EXPECT_TRUE(table.UpdateByIndex(1, 1, 2.5));
    EXPECT_EQ(test::StoredText(table, 1, 1), "2.5");
    EXPECT_TRUE(table.UpdateExact(u"A", u"Y", u"text", nullptr));
    EXPECT_EQ(test::StoredText(table, 0, 1), "text");
    EXPECT_FALSE(table.UpdateExact(u"c", u"y", 1, nullptr));
    for (const auto& [row, col] : {std::pair{2, 0}, std::pair{0, 2}, std::pair{-1, 0}})
        EXPECT_FALSE(table.UpdateByIndex(row, col, 1)) << row << "," << col;
}

TEST_F(LookupsTest, ANewLabelIsFoundAtOnce) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    QLookupTable table = MemoryTable({u"a", u"b", u"c"}, {u"x"}, {{1}, {2}, {3}});
    ASSERT_TRUE(table.Data()->HasRowIndex());
    ASSERT_TRUE(table.UpdateRowLabel(1, u"Beta"));
    EXPECT_EQ(table.FindRowExact(u"BETA", nullptr), 1);
    EXPECT_EQ(table.FindRowExact(u"b", nullptr), -1);
    ASSERT_TRUE(table.UpdateColLabel(0, u"Z"));
    EXPECT_EQ(table.FindColExact(u"z", nullptr), 0);
}

TEST_F(LookupsTest, TheLabelIndexGivesTheAnswersOfTheWalk) {
    const std::vector<QAnyValue> keys = {u"a",  u"B", 10,  10.0, 7,      20,
                                         u"zz", 3,    u"", 99,   u"bcd", u"10"};
    auto answers = [&](QLookupTable& table) {
        std::vector<int> found;
        for (const QAnyValue& key : keys) {
            found.push_back(table.FindRowExact(key, nullptr));
            found.push_back(table.FindRow(key, nullptr));
        }
        return found;
    };
    QLookupTableDataStatics::c_TableCacheOverSize = 0;
    QLookupTable table = MemoryTable({u"a", u"b", 10, 20, u"c"}, {u"x"});
    ASSERT_FALSE(table.Data()->HasRowIndex());
    const std::vector<int> walked = answers(table);
    QLookupTableDataStatics::c_TableCacheOverSize = 3;
    // A new label rebuilds the index under the present threshold.
    table.UpdateRowLabel(0, u"a");
    ASSERT_TRUE(table.Data()->HasRowIndex());
    EXPECT_EQ(answers(table), walked);
}

// In a context a formula label is its formula's value, though the label index keeps its text.
TEST_F(LookupsTest, AnIndexHitIsCheckedAgainInAContext) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    QLookupTable table = MemoryTable({u"=label", u"b"}, {u"x"}, {{1}, {2}});
    test::NamesContext context;
    context.Set("label", u"real");
    EXPECT_EQ(table.FindRowExact(u"=label", &context), -1);
    EXPECT_EQ(table.FindRowExact(u"real", &context), 0);
}

TEST_F(LookupsTest, ListsJoinTheTextsWithBars) {
    QLookupTable table =
        MemoryTable({u"a", u"b", 3}, {u"x", u"y"}, {{1, 2.5}, {u"t", QAnyValue()}, {true, -4}});
    CString list = u"left over";
    ASSERT_TRUE(table.RowLabels(list, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "a|b|3");
    ASSERT_TRUE(table.ColLabels(list, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "x|y");
    ASSERT_TRUE(table.RowValues(u"A", list, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "1|2.5");
    ASSERT_TRUE(table.ColValues(u"Y", list, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "2.5||-4");
    ASSERT_TRUE(table.ColValuesByIndex(0, list, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "1|t|" + Text(true));
    EXPECT_FALSE(table.RowValues(u"c", list, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "") << "a list is emptied first";
    EXPECT_FALSE(table.RowValuesByIndex(3, list, nullptr, nullptr));
    EXPECT_FALSE(table.ColValuesByIndex(-1, list, nullptr, nullptr));
}

TEST_F(LookupsTest, LabelsForAValueListEachRowOnce) {
    QLookupTable table = MemoryTable({u"a", u"b", u"c"}, {u"x", u"y"}, {{1, 2}, {1, 1}, {2, 2}});
    CString list;
    ASSERT_TRUE(table.RowLabelsForVal(list, 1, true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "a|b");
    ASSERT_TRUE(table.RowLabelsForVal(list, 1, false, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "a|c") << "a row with one differing cell counts";
    ASSERT_TRUE(table.ColLabelsForVal(list, 2, true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "x|y");
    ASSERT_TRUE(table.RowLabelsForVal(list, 9, true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "");
}

TEST_F(LookupsTest, LabelsForOneOrTwoTests) {
    QLookupTable table = MemoryTable({u"a", u"b", u"c"}, {u"kind", u"size"},
                                     {{u"Oak", 1}, {u"oak", 2}, {u"pine", 2}});
    CString list;
    ASSERT_TRUE(table.RowLabelsForCol(list, u"KIND", u"OAK", true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "a|b") << "texts compare ignoring case";
    ASSERT_TRUE(table.RowLabelsForCol(list, u"kind", u"oak", false, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "c");
    EXPECT_FALSE(table.RowLabelsForCol(list, u"colour", u"oak", true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "");
    ASSERT_TRUE(
        table.RowLabelsForCol2(list, u"kind", u"oak", true, u"size", 2, true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "b");
    EXPECT_FALSE(
        table.RowLabelsForCol2(list, u"kind", u"oak", true, u"none", 2, true, nullptr, nullptr));
    ASSERT_TRUE(table.ColLabelsForRow(list, u"b", 2, true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "size");
}

TEST_F(LookupsTest, FilteredValuesGiveEachTextOnce) {
    QLookupTable table =
        MemoryTable({u"name", u"keep", 10}, {u"c1", u"c2", u"c3", u"c4", u"c5", u"c6"},
                    {{u"x", u"y", u"x", u"", u"X", u"z"}, {1, 1, 1, 1, 1, 0}, {1, 2, 3, 4, 5, 6}});
    CString list;
    ASSERT_TRUE(table.RowValuesFilterByRow2(u"name", list, u"keep", 1, true, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "x|y|X") << "empty texts and repeats are left out, with case";
    ASSERT_TRUE(table.RowValuesFilterByRow2(u"name", list, u"keep", 1, false, nullptr, nullptr));
    EXPECT_EQ(list.ToUtf8(), "z");
    EXPECT_FALSE(table.RowValuesFilterByRow2(u"nothing", list, u"keep", 1, true, nullptr, nullptr));
    EXPECT_FALSE(table.RowValuesFilterByRow2(u"name", list, 11, 1, true, nullptr, nullptr));
}

} // namespace
} // namespace keel
