#include "tests/support/anyvalues.h"
#include "tests/support/samevalue.h"
#include "tests/tables/memorytable.h"
#include "tests/tables/tablefixture.h"

#include "keel/platform/uiservices.h"
#include "keel/tables/tableediting.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::MemoryTable;
using test::Shape;
using Texts = std::vector<std::string>;
using TYPE = QAnyValue::TYPE;
constexpr QMarkup Fixed = QMarkup::FixedAmount;
constexpr QMarkup Times = QMarkup::Multiplier;
constexpr QMarkup Percent = QMarkup::Percentage;

std::string Text(const QAnyValue& value) {
    return QAnyValue(value).MakeCString().ToUtf8();
}

TYPE ColTypeOf(const QLookupTable& table, int col) {
    TYPE type = QAnyValue::TYPE_NA;
    table.ColType(col, type);
    return type;
}

class TableEditing : public test::TableFixture {
protected:
    TableEditing() {
        m_host.otherwise = IDOK;
        SetUIServices(&m_host);
    }
    ~TableEditing() override { SetUIServices(nullptr); }

    static std::string Numbers(const std::string& counts, const std::string& rows) {
        return "c\tVltFormat=2.1\t\n" + counts + "\nd\t\"\"\"P\"\"\"\nString\\String\tNumber\n" +
               rows;
    }

    test::ScriptedHost m_host;
};

// A sorted table puts a new label in its place and refuses one already there, in any case; an
// unsorted one appends, repeats and all. A new column appends empty cells of its type.
TEST_F(TableEditing, AddingPutsTheLabelInItsPlaceOrAtTheEnd) {
    QLookupTable sorted = MemoryTable({u"b", u"d"}, {u"x"}, {{1}, {2}});
    sorted.SetIsSorted(true);
    QLookupTable unsorted = MemoryTable({u"b", u"d"}, {u"x", u"y"}, {{1, 2}, {3, 4}});
    const struct {
        QLookupTable* table;
        const char16_t* label;
        int index; // -7 when refused
    } cases[] = {{&sorted, u"c", 1},  {&sorted, u"a", 0},   {&sorted, u"e", 4},
                 {&sorted, u"D", -7}, {&unsorted, u"a", 2}, {&unsorted, u"b", 3}};
    for (const auto& c : cases) {
        int index = -7;
        EXPECT_EQ(c.table->AddRow(c.label, index), c.index != -7) << Text(c.label);
        EXPECT_EQ(index, c.index) << Text(c.label);
    }
    EXPECT_EQ(Shape(sorted), "a|b|c|d|e / x /  / 1 /  / 2 / ");
    EXPECT_EQ(Shape(unsorted), "b|d|a|b / x|y / 1 2 / 3 4 /   /  ");

    int index = -1;
    ASSERT_TRUE(unsorted.AddCol(u"price", QAnyValue::TYPE_MONEY, index));
    EXPECT_EQ(index, 2);
    EXPECT_EQ(ColTypeOf(unsorted, 2), QAnyValue::TYPE_MONEY);
    EXPECT_EQ(Shape(unsorted), "b|d|a|b / x|y|price / 1 2  / 3 4  /    /   ");
    EXPECT_EQ(unsorted.FindColExact(u"PRICE", nullptr), 2);
}

TEST_F(TableEditing, RemovingShiftsTheRest) {
    QLookupTable table =
        MemoryTable({u"a", u"b", u"c"}, {u"x", u"y", u"z"}, {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
    ASSERT_TRUE(table.RemoveRowByIndex(1));
    EXPECT_EQ(Shape(table), "a|c / x|y|z / 1 2 3 / 7 8 9");
    ASSERT_TRUE(table.RemoveColByIndex(0));
    EXPECT_EQ(Shape(table), "a|c / y|z / 2 3 / 8 9");
    ASSERT_TRUE(table.RemoveRow(u"C", nullptr));
    ASSERT_TRUE(table.RemoveCol(u"Z", nullptr));
    EXPECT_EQ(Shape(table), "a / y / 2");
    EXPECT_FALSE(table.RemoveRow(u"nothing", nullptr));
    EXPECT_FALSE(table.RemoveCol(u"nothing", nullptr));
    EXPECT_FALSE(table.RemoveRowByIndex(1));
    EXPECT_FALSE(table.RemoveColByIndex(-1));
    EXPECT_EQ(Shape(table), "a / y / 2");
}

// Moves swap labels and cells, a column's type going with it, and keep the label index up to
// date; a move past an edge fails.
TEST_F(TableEditing, MovingSwapsLabelsAndCells) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    QLookupTable table = MemoryTable({u"a", u"b", u"c"}, {u"x", u"y"}, {{1, 2}, {3, 4}, {5, 6}});
    ASSERT_TRUE(table.Data()->HasRowIndex());
    table.UpdateColType(1, QAnyValue::TYPE_MONEY);
    ASSERT_TRUE(table.MoveRowUp(2));
    EXPECT_EQ(Shape(table), "a|c|b / x|y / 1 2 / 5 6 / 3 4");
    ASSERT_TRUE(table.MoveRowDown(0));
    EXPECT_EQ(Shape(table), "c|a|b / x|y / 5 6 / 1 2 / 3 4");
    EXPECT_EQ(table.Data()->FindRowExactInCache(u"a", nullptr), 1);
    ASSERT_TRUE(table.MoveColRight(0));
    EXPECT_EQ(Shape(table), "c|a|b / y|x / 6 5 / 2 1 / 4 3");
    EXPECT_EQ(ColTypeOf(table, 0), QAnyValue::TYPE_MONEY);
    EXPECT_EQ(table.Data()->FindColExactInCache(u"x", nullptr), 1);
    ASSERT_TRUE(table.MoveColLeft(1));
    EXPECT_EQ(Shape(table), "c|a|b / x|y / 5 6 / 1 2 / 3 4");
    EXPECT_EQ(table.FindRowExact(u"c", nullptr), 0);
    ASSERT_TRUE(table.RemoveRowByIndex(0));
    EXPECT_EQ(table.Data()->FindRowExactInCache(u"b", nullptr), 1);
    int index = 0;
    table.AddRow(u"d", index);
    EXPECT_EQ(table.Data()->FindRowExactInCache(u"d", nullptr), 2);

    const std::string before = Shape(table);
    EXPECT_FALSE(table.MoveRowUp(0));
    EXPECT_FALSE(table.MoveRowDown(2));
    EXPECT_FALSE(table.MoveColLeft(0));
    EXPECT_FALSE(table.MoveColRight(1));
    EXPECT_EQ(Shape(table), before);
}

TEST_F(TableEditing, MarkupArithmeticKeepsTheCellType) {
    const struct {
        QAnyValue cell;
        QMarkup markup;
        QAnyValue amount;
        bool taken;
        QAnyValue expected;
    } cases[] = {
        {10, Fixed, 5, true, 15},
        {10, Times, 1.26, true, 13},
        {test::Cents(1000), Percent, 15, true, test::Cents(1150)},
        {test::Mm(100), Times, 3, true, test::Mm(300)},
        {u"text", Fixed, 1, false, u"text"},
        {QAnyValue(), Fixed, 2, false, QAnyValue()},
        {10, Fixed, u"x", false, 10},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Text(c.cell) + " by " + Text(c.amount));
        QAnyValue cell(c.cell);
        EXPECT_EQ(MarkupValue(cell, c.markup, c.amount), c.taken);
        EXPECT_TRUE(test::Same(cell, c.expected));
    }
}

// The amount is asked under the markup's title; a bad amount, a selection that takes no markup
// and a cancelled question change no cell.
TEST_F(TableEditing, MarkupAsksTheAmountUnderItsTitle) {
    const char* const invalid = "Invalid markup amount.";
    const char* const none = "None of the selection could be marked up by that amount.";
    const struct {
        std::optional<std::string> amount;
        QMarkup markup;
        std::vector<QTableCell> selection;
        bool done;
        const char* title;
        const char* box;
        const char* after;
    } cases[] = {
        {" 10 ", Percent, {{0, 0}, {0, 1}, {1, 0}}, true, "percentage", "", "110 t / 55 7"},
        {"abc", Fixed, {{0, 0}}, false, "fixed amount", invalid, "100 t / 50 7"},
        {"2", Times, {{0, 1}, {5, 5}}, false, "multiplier", none, "100 t / 50 7"},
        {std::nullopt, Times, {{0, 0}}, false, "multiplier", "", "100 t / 50 7"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.amount.value_or("cancelled"));
        QLookupTable table = MemoryTable({u"a", u"b"}, {u"x", u"y"}, {{100, u"t"}, {50, 7}});
        m_host.editAnswer = c.amount;
        m_host.titles.clear();
        m_host.questions.clear();
        EXPECT_EQ(MarkupHelper(table, c.markup, c.selection), c.done);
        EXPECT_EQ(m_host.titles, Texts{std::string("Markup by ") + c.title});
        EXPECT_EQ(m_host.questions, Texts(*c.box ? 1 : 0, c.box));
        EXPECT_EQ(Shape(table), std::string("a|b / x|y / ") + c.after);
    }
}

TEST_F(TableEditing, ADuplicateNeedsAUniqueLabelAndCopiesTheRightRowOrColumn) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x", u"y"}, {{1, 2}, {3, 4}});
    table.UpdateColType(0, QAnyValue::TYPE_INT);
    int index = -1;
    for (int outside : {-1, 2}) {
        EXPECT_FALSE(DuplicateRow(table, outside, u"q", index)) << outside;
        EXPECT_FALSE(DuplicateCol(table, outside, u"q", index)) << outside;
    }
    EXPECT_EQ(index, -1);
    EXPECT_FALSE(DuplicateRow(table, 0, u"B", index));
    EXPECT_FALSE(DuplicateCol(table, 0, u"Y", index));
    EXPECT_EQ(m_host.questions, (Texts{"Please specify a unique row label.",
                                       "Please specify a unique column label."}));
    ASSERT_TRUE(DuplicateRow(table, 0, u"c", index));
    EXPECT_EQ(index, 2);
    ASSERT_TRUE(DuplicateCol(table, 0, u"z", index));
    EXPECT_EQ(index, 2);
    EXPECT_EQ(Shape(table), "a|b|c / x|y|z / 1 2 1 / 3 4 3 / 1 2 1");
    EXPECT_EQ(ColTypeOf(table, 2), QAnyValue::TYPE_INT);

    QLookupTable sorted = MemoryTable({u"b", u"d"}, {u"x"}, {{1}, {2}});
    sorted.SetIsSorted(true);
    ASSERT_TRUE(DuplicateRow(sorted, 1, u"a", index));
    EXPECT_EQ(index, 0);
    EXPECT_EQ(Shape(sorted), "a|b|d / x / 2 / 1 / 2");
}

TEST_F(TableEditing, RowsStillHeldAsTextMoveWithTheirLabels) {
    QLookupTable made =
        MemoryTable({u"a", u"c", u"e", u"g"}, {u"x", u"y"},
                    {{u"a1", u"a2"}, {u"c1", u"c2"}, {u"e1", u"e2"}, {u"g1", u"g2"}});
    made.UpdateColType(0, QAnyValue::TYPE_STRING);
    made.UpdateColType(1, QAnyValue::TYPE_STRING);
    WriteCopy(made, "lazy");
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"lazy"));
    table.SetIsSorted(true);
    ASSERT_FALSE(table.Data()->AreAllRowsLoaded());
    int index = -1;
    ASSERT_TRUE(table.AddRow(u"b", index));
    EXPECT_EQ(index, 1);
    ASSERT_TRUE(table.MoveRowDown(2));
    ASSERT_TRUE(table.RemoveRowByIndex(0));
    ASSERT_FALSE(table.Data()->AreAllRowsLoaded()) << "the edits parse no row";
    EXPECT_EQ(Shape(table), "b|e|c|g / x|y /   / e1 e2 / c1 c2 / g1 g2");
    ASSERT_TRUE(table.AddCol(u"z", QAnyValue::TYPE_STRING, index));
    EXPECT_EQ(Shape(table), "b|e|c|g / x|y|z /    / e1 e2  / c1 c2  / g1 g2 ");
}

// One unreadable file fails and the others are converted, found in every folder below.
TEST_F(TableEditing, BatchConversionConvertsEveryTableFileBelowTheFolder) {
    const std::string written = WriteCopy(MemoryTable({u"a", u"b"}, {u"x"}, {{1}, {2}}), "good");
    ASSERT_FALSE(written.empty());
    test::WriteText(m_folder / "sub" / "deeper" / "also.VLT", written);
    test::WriteText(m_folder / "sub" / "broken.vlt", "this is no table\n");
    test::WriteText(m_folder / "sub" / "notes.txt", "not a table and not looked at\n");
    QFSFile::ClearFileStatusCache();
    Texts statuses;
    const QBatchConversion result =
        BatchConvertTables(CString::FromUtf8(m_folder.string()),
                           [&](const CString& status) { statuses.push_back(status.ToUtf8()); });
    EXPECT_EQ(result.converted, 2);
    ASSERT_EQ(result.failed, 1);
    EXPECT_EQ(result.failures.at(0).path.ToUtf8(), (m_folder / "sub" / "broken.vlt").string());
    EXPECT_EQ(result.failures.at(0).reason.ToUtf8(), "Cannot read row/col counts line");
    EXPECT_EQ(statuses.back(), "Failed to convert 1 files.\nSee error log for details");
    EXPECT_EQ(test::ReadText(m_folder / "sub" / "broken.vlt"), "this is no table\n");
    EXPECT_EQ(test::ReadText(m_folder / "good.vlt"), written);
    EXPECT_EQ(QLookupTableData::ListCount(), 0) << "no converted table stays held";
}

TEST_F(TableEditing, TryOpenRepairsCountsOrSaysWhyItFailed) {
    const std::string rows = "\"\"\"b\"\"\"\t2\n\"\"\"a\"\"\"\t1\n";
    const struct {
        std::string text;
        bool opens;
        std::string box; // the start of the one box shown, or none
    } cases[] = {
        {Numbers("2\t1", rows), true, ""},
        {Numbers("5\t1", rows), true,
         "This table contained an incorrect row or column count "
         "which has now been fixed.\nYou should save the table"},
        {Numbers("-1\t1", rows), false,
         "Failed to open file: \n\t" + TablePath("t").string() + "\nRow/col counts invalid"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        QLookupTableData::CleanupCache();
        m_host.questions.clear();
        WriteTable("t", c.text);
        QLookupTable table;
        EXPECT_EQ(TryOpen(table, TableCString("t")), c.opens);
        ASSERT_EQ(m_host.questions.size(), c.box.empty() ? 0u : 1u);
        EXPECT_EQ(c.box.empty() ? "" : m_host.questions[0].substr(0, c.box.size()), c.box);
        EXPECT_EQ(c.opens && table.Data()->IsWritable(), c.opens);
        if (c.opens)
            table.Rollback();
    }
}

TEST_F(TableEditing, SortRowsReadsAgainSortedAndBackInFileOrder) {
    WriteTable("t", Numbers("3\t1", "\"\"\"b\"\"\"\t2\n\"\"\"c\"\"\"\t3\n\"\"\"a\"\"\"\t1\n"));
    const struct {
        int answer;
        bool result;
        const char* labels;
        bool sorted;
    } steps[] = {
        {IDCANCEL, false, "b|c|a", false},
        {IDNO, true, "a|b|c", true},
        {IDOK, true, "b|c|a", false},
    };
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"t"));
    for (const auto& step : steps) {
        m_host.otherwise = step.answer;
        m_host.questions.clear();
        const bool wasSorted = table.IsSorted();
        EXPECT_EQ(ToggleSortRows(table), step.result);
        EXPECT_EQ(m_host.questions.size(), wasSorted ? 0u : 1u);
        CString labels;
        table.RowLabels(labels, nullptr, nullptr);
        EXPECT_EQ(labels.ToUtf8(), step.labels);
        EXPECT_EQ(table.IsSorted(), step.sorted);
    }
}

TEST_F(TableEditing, MakingFractionsWholeNumbersAsksFirst) {
    const struct {
        std::vector<QAnyValue> cells;
        TYPE type;
        int answer;
        bool asked;
        bool changed;
    } cases[] = {
        {{1, 2.5}, QAnyValue::TYPE_INT, IDNO, true, false},
        {{1, 2.5}, QAnyValue::TYPE_INT, IDYES, true, true},
        {{1, 2.0}, QAnyValue::TYPE_INT, IDNO, false, true},
        {{1, 2.5}, QAnyValue::TYPE_MONEY, IDNO, false, true},
        {{u"x", 3}, QAnyValue::TYPE_INT, IDNO, false, true},
    };
    const Texts asked = {"Type conversion will lose some fractional amounts. Continue anyway?"};
    for (const auto& c : cases) {
        SCOPED_TRACE(Text(c.cells[1]) + " as " + std::to_string(c.type));
        m_host.otherwise = c.answer;
        m_host.questions.clear();
        QLookupTable table = MemoryTable({u"r1", u"r2"}, {u"c"}, {{c.cells[0]}, {c.cells[1]}});
        EXPECT_EQ(SelectColumnType(table, 0, c.type), c.changed);
        EXPECT_EQ(ColTypeOf(table, 0) == c.type, c.changed);
        EXPECT_EQ(m_host.questions, c.asked ? asked : Texts());

        QLookupTable headings = MemoryTable({u"r"}, {c.cells[0], c.cells[1]});
        m_host.questions.clear();
        EXPECT_EQ(SelectColumnHeadingType(headings, c.type), c.changed);
        EXPECT_EQ(m_host.questions.size(), c.asked ? 1u : 0u);
    }
}

} // namespace
} // namespace keel
