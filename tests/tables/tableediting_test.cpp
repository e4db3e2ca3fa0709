#include "tests/support/anyvalues.h"
#include "tests/tables/memorytable.h"
#include "tests/tables/tablefixture.h"

#include "keel/document/errorlog.h"
#include "keel/platform/uiservices.h"
#include "keel/tables/tableediting.h"

#include <gtest/gtest.h>
#include <optional>
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

// Every label of the rows, then "/", then the columns, then each row's stored cells.
std::string Shape(const QLookupTable& table) {
    std::string shape;
    CString list;
    table.RowLabels(list, nullptr, nullptr);
    shape += list.ToUtf8() + " / ";
    table.ColLabels(list, nullptr, nullptr);
    shape += list.ToUtf8();
    int rows = 0;
    int cols = 0;
    table.RowCount(rows);
    table.ColCount(cols);
    for (int r = 0; r < rows; ++r) {
        shape += " /";
        for (int c = 0; c < cols; ++c)
            shape += " " + test::StoredText(table, r, c);
    }
    return shape;
}

using test::ScriptedHost;

class TableEditingTest : public testing::Test {
protected:
    TableEditingTest() {
        m_host.otherwise = IDOK;
        SetUIServices(&m_host);
    }
    ~TableEditingTest() override {
        SetUIServices(nullptr);
        QLookupTableData::CleanupCache();
    }

    ScriptedHost m_host;
};

// --- Rows and columns ----------------------------------------------------------------------------

TEST_F(TableEditingTest, AddRowPutsALabelInItsPlaceInASortedTable) {
    QLookupTable table = MemoryTable({u"b", u"d"}, {u"x"}, {{1}, {2}});
    table.SetIsSorted(true);
    struct Case {
        const char16_t* label;
        int index;
    };
    for (const Case& c : {Case{u"c", 1}, Case{u"a", 0}, Case{u"e", 4}}) {
        int index = -1;
        ASSERT_TRUE(table.AddRow(c.label, index)) << CString(c.label).ToUtf8();
        EXPECT_EQ(index, c.index);
    }
    EXPECT_EQ(Shape(table), "a|b|c|d|e / x /  / 1 /  / 2 / ");
}

TEST_F(TableEditingTest, AddRowOfALabelAlreadyThereInASortedTableChangesNothing) {
    QLookupTable table = MemoryTable({u"b", u"d"}, {u"x"}, {{1}, {2}});
    table.SetIsSorted(true);
    const std::string before = Shape(table);
    int index = -7;
    EXPECT_FALSE(table.AddRow(u"D", index));
    EXPECT_EQ(index, -7);
    EXPECT_EQ(Shape(table), before);
}

TEST_F(TableEditingTest, AddRowAppendsInAnUnsortedTable) {
    QLookupTable table = MemoryTable({u"b", u"d"}, {u"x", u"y"}, {{1, 2}, {3, 4}});
    int index = -1;
    ASSERT_TRUE(table.AddRow(u"a", index));
    EXPECT_EQ(index, 2);
    ASSERT_TRUE(table.AddRow(u"b", index)) << "a repeat is no obstacle when unsorted";
    EXPECT_EQ(index, 3);
    EXPECT_EQ(Shape(table), "b|d|a|b / x|y / 1 2 / 3 4 /   /  ");
    EXPECT_EQ(table.FindRowExact(u"a", nullptr), 2);
}

TEST_F(TableEditingTest, AddColAppendsEmptyCellsOfItsType) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x"}, {{1}, {2}});
    int index = -1;
    ASSERT_TRUE(table.AddCol(u"price", QAnyValue::TYPE_MONEY, index));
    EXPECT_EQ(index, 1);
    QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
    ASSERT_TRUE(table.ColType(1, type));
    EXPECT_EQ(type, QAnyValue::TYPE_MONEY);
    EXPECT_EQ(Shape(table), "a|b / x|price / 1  / 2 ");
    EXPECT_EQ(table.FindColExact(u"PRICE", nullptr), 1);
}

TEST_F(TableEditingTest, RemovingShiftsTheRest) {
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

TEST_F(TableEditingTest, MovingSwapsLabelsAndCells) {
    QLookupTable table = MemoryTable({u"a", u"b", u"c"}, {u"x", u"y"}, {{1, 2}, {3, 4}, {5, 6}});
    table.UpdateColType(1, QAnyValue::TYPE_MONEY);
    ASSERT_TRUE(table.MoveRowUp(2));
    EXPECT_EQ(Shape(table), "a|c|b / x|y / 1 2 / 5 6 / 3 4");
    ASSERT_TRUE(table.MoveRowDown(0));
    EXPECT_EQ(Shape(table), "c|a|b / x|y / 5 6 / 1 2 / 3 4");
    ASSERT_TRUE(table.MoveColRight(0));
    EXPECT_EQ(Shape(table), "c|a|b / y|x / 6 5 / 2 1 / 4 3");
    QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
    ASSERT_TRUE(table.ColType(0, type));
    EXPECT_EQ(type, QAnyValue::TYPE_MONEY) << "the type goes with its column";
    ASSERT_TRUE(table.MoveColLeft(1));
    EXPECT_EQ(Shape(table), "c|a|b / x|y / 5 6 / 1 2 / 3 4");
    EXPECT_EQ(table.FindRowExact(u"c", nullptr), 0);
}

TEST_F(TableEditingTest, MovingPastAnEdgeFails) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x", u"y"}, {{1, 2}, {3, 4}});
    const std::string before = Shape(table);
    EXPECT_FALSE(table.MoveRowUp(0));
    EXPECT_FALSE(table.MoveRowDown(1));
    EXPECT_FALSE(table.MoveColLeft(0));
    EXPECT_FALSE(table.MoveColRight(1));
    EXPECT_FALSE(table.MoveRowUp(2));
    EXPECT_FALSE(table.MoveRowDown(-1));
    EXPECT_EQ(Shape(table), before);
}

TEST_F(TableEditingTest, EditsKeepTheLabelIndexUpToDate) {
    const int saved = QLookupTableDataStatics::c_TableCacheOverSize;
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    QLookupTable table = MemoryTable({u"a", u"b", u"c"}, {u"x", u"y"}, {{1, 2}, {3, 4}, {5, 6}});
    ASSERT_TRUE(table.Data()->HasRowIndex());
    table.MoveRowDown(0);
    EXPECT_EQ(table.Data()->FindRowExactInCache(u"a", nullptr), 1);
    table.RemoveRowByIndex(0);
    EXPECT_EQ(table.Data()->FindRowExactInCache(u"c", nullptr), 1);
    int index = 0;
    table.AddRow(u"d", index);
    EXPECT_EQ(table.Data()->FindRowExactInCache(u"d", nullptr), 2);
    table.MoveColRight(0);
    EXPECT_EQ(table.Data()->FindColExactInCache(u"x", nullptr), 1);
    QLookupTableDataStatics::c_TableCacheOverSize = saved;
}

// --- Markup
// ---------------------------------------------------------------------------------------

struct MarkupCase {
    QAnyValue cell;
    QMarkup markup;
    QAnyValue amount;
    bool taken;
    QAnyValue expected;
};

TEST_F(TableEditingTest, MarkupArithmeticKeepsTheCellType) {
    const MarkupCase cases[] = {
        {10, QMarkup::FixedAmount, 5, true, 15},
        {10, QMarkup::Multiplier, 1.26, true, 13},
        {200, QMarkup::Percentage, 10, true, 220},
        {2.5, QMarkup::Multiplier, 2, true, 5.0},
        {test::Cents(1000), QMarkup::Percentage, 15, true, test::Cents(1150)},
        {test::Cents(1000), QMarkup::FixedAmount, test::Cents(250), true, test::Cents(1250)},
        {test::Mm(100), QMarkup::Multiplier, 3, true, test::Mm(300)},
        {u"text", QMarkup::FixedAmount, 1, false, u"text"},
        {u"=1 + 1", QMarkup::Multiplier, 2, false, u"=1 + 1"},
        {true, QMarkup::Multiplier, 2, false, true},
        {QAnyValue(), QMarkup::FixedAmount, 2, false, QAnyValue()},
        {10, QMarkup::FixedAmount, u"x", false, 10},
    };
    for (const MarkupCase& c : cases) {
        SCOPED_TRACE(Text(c.cell) + " by " + Text(c.amount));
        QAnyValue cell(c.cell);
        EXPECT_EQ(MarkupValue(cell, c.markup, c.amount), c.taken);
        EXPECT_EQ(cell.Type(), c.expected.Type());
        EXPECT_EQ(Text(cell), Text(c.expected));
    }
}

TEST_F(TableEditingTest, MarkupAsksTheAmountUnderItsTitle) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x", u"y"}, {{100, u"t"}, {50, 7}});
    m_host.editAnswer = " 10 ";
    ASSERT_TRUE(MarkupHelper(table, QMarkup::Percentage, {{0, 0}, {0, 1}, {1, 0}}));
    EXPECT_EQ(m_host.titles, std::vector<std::string>{"Markup by percentage"});
    EXPECT_TRUE(m_host.questions.empty());
    EXPECT_EQ(Shape(table), "a|b / x|y / 110 t / 55 7");
    m_host.editAnswer = "3";
    ASSERT_TRUE(MarkupHelper(table, QMarkup::FixedAmount, {{1, 1}}));
    ASSERT_TRUE(MarkupHelper(table, QMarkup::Multiplier, {{1, 1}}));
    EXPECT_EQ(m_host.titles,
              (std::vector<std::string>{"Markup by percentage", "Markup by fixed amount",
                                        "Markup by multiplier"}));
    EXPECT_EQ(test::StoredText(table, 1, 1), "30");
}

TEST_F(TableEditingTest, ABadAmountChangesNoCell) {
    QLookupTable table = MemoryTable({u"a"}, {u"x"}, {{100}});
    m_host.editAnswer = "abc";
    EXPECT_FALSE(MarkupHelper(table, QMarkup::FixedAmount, {{0, 0}}));
    EXPECT_EQ(m_host.questions, std::vector<std::string>{"Invalid markup amount."});
    EXPECT_EQ(test::StoredText(table, 0, 0), "100");
}

TEST_F(TableEditingTest, ASelectionThatTakesNoMarkupIsReported) {
    QLookupTable table = MemoryTable({u"a"}, {u"x", u"y"}, {{u"t", QAnyValue()}});
    m_host.editAnswer = "2";
    EXPECT_FALSE(MarkupHelper(table, QMarkup::Multiplier, {{0, 0}, {0, 1}, {5, 5}}));
    EXPECT_EQ(m_host.questions,
              std::vector<std::string>{"None of the selection could be marked up by that amount."});
    EXPECT_EQ(Shape(table), "a / x|y / t ");
}

TEST_F(TableEditingTest, ACancelledAmountDoesNothing) {
    QLookupTable table = MemoryTable({u"a"}, {u"x"}, {{100}});
    m_host.editAnswer.reset();
    EXPECT_FALSE(MarkupHelper(table, QMarkup::Multiplier, {{0, 0}}));
    EXPECT_TRUE(m_host.questions.empty());
    EXPECT_EQ(test::StoredText(table, 0, 0), "100");
}

TEST_F(TableEditingTest, DoForEachSelectedCellCountsWhatTookTheChange) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x"}, {{1}, {2}});
    const int changed = DoForEachSelectedCell(table, {{0, 0}, {1, 0}, {2, 0}}, [](QAnyValue& cell) {
        if (QAnyValue(cell).MakeInt() == 2)
            return false;
        cell = u"changed";
        return true;
    });
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(Shape(table), "a|b / x / changed / 2");
}

// --- Duplicates
// -----------------------------------------------------------------------------------

TEST_F(TableEditingTest, ADuplicateRowNeedsAUniqueLabel) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x", u"y"}, {{1, 2}, {3, 4}});
    int index = -1;
    EXPECT_FALSE(DuplicateRow(table, 0, u"B", index));
    EXPECT_EQ(m_host.questions, std::vector<std::string>{"Please specify a unique row label."});
    ASSERT_TRUE(DuplicateRow(table, 0, u"c", index));
    EXPECT_EQ(index, 2);
    EXPECT_EQ(Shape(table), "a|b|c / x|y / 1 2 / 3 4 / 1 2");
}

TEST_F(TableEditingTest, ADuplicateRowInASortedTableCopiesTheRightRow) {
    QLookupTable table = MemoryTable({u"b", u"d"}, {u"x"}, {{1}, {2}});
    table.SetIsSorted(true);
    int index = -1;
    ASSERT_TRUE(DuplicateRow(table, 1, u"a", index));
    EXPECT_EQ(index, 0);
    EXPECT_EQ(Shape(table), "a|b|d / x / 2 / 1 / 2");
}

TEST_F(TableEditingTest, ADuplicateColumnNeedsAUniqueLabel) {
    QLookupTable table = MemoryTable({u"a", u"b"}, {u"x", u"y"}, {{1, 2}, {3, 4}});
    table.UpdateColType(0, QAnyValue::TYPE_INT);
    int index = -1;
    EXPECT_FALSE(DuplicateCol(table, 0, u"Y", index));
    EXPECT_EQ(m_host.questions, std::vector<std::string>{"Please specify a unique column label."});
    ASSERT_TRUE(DuplicateCol(table, 0, u"z", index));
    EXPECT_EQ(index, 2);
    EXPECT_EQ(Shape(table), "a|b / x|y|z / 1 2 1 / 3 4 3");
    QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
    ASSERT_TRUE(table.ColType(2, type));
    EXPECT_EQ(type, QAnyValue::TYPE_INT);
}

// --- Tables read from files ----------------------------------------------------------------------

class TableEditingFileTest : public test::TableFixture {
protected:
    void WriteMemoryTable(QLookupTable table, const std::string& name) {
        CStdioFileEx file;
        ASSERT_TRUE(
            file.Open(TableCString(name), CFile::modeCreate | CFile::modeWrite | CFile::typeText));
        ASSERT_TRUE(table.WriteToFile(file));
        file.Close();
        QFSFile::ClearFileStatusCache();
    }
};

TEST_F(TableEditingFileTest, RowsStillHeldAsTextMoveWithTheirLabels) {
    QLookupTable made =
        MemoryTable({u"a", u"c", u"e", u"g"}, {u"x", u"y"},
                    {{u"a1", u"a2"}, {u"c1", u"c2"}, {u"e1", u"e2"}, {u"g1", u"g2"}});
    made.UpdateColType(0, QAnyValue::TYPE_STRING);
    made.UpdateColType(1, QAnyValue::TYPE_STRING);
    WriteMemoryTable(made, "lazy");
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

// --- Batch conversion ----------------------------------------------------------------------------

class BatchConversionTest : public test::TableFixture {};

TEST_F(BatchConversionTest, OneUnreadableFileFailsAndTheOthersAreConverted) {
    QLookupTable made = MemoryTable({u"a", u"b"}, {u"x"}, {{1}, {2}});
    CStdioFileEx file;
    const CString good = CString::FromUtf8((m_folder / "good.vlt").string());
    ASSERT_TRUE(file.Open(good, CFile::modeCreate | CFile::modeWrite | CFile::typeText));
    ASSERT_TRUE(made.WriteToFile(file));
    file.Close();
    const std::string written = test::ReadText(m_folder / "good.vlt");
    ASSERT_FALSE(written.empty());
    test::WriteText(m_folder / "sub" / "deeper" / "also.VLT", written);
    test::WriteText(m_folder / "sub" / "broken.vlt", "this is no table\n");
    test::WriteText(m_folder / "sub" / "notes.txt", "not a table and not looked at\n");
    QFSFile::ClearFileStatusCache();

    std::vector<std::string> statuses;
    const QBatchConversion result =
        BatchConvertTables(CString::FromUtf8(m_folder.string()),
                           [&](const CString& status) { statuses.push_back(status.ToUtf8()); });
    EXPECT_EQ(result.converted, 2);
    EXPECT_EQ(result.failed, 1);
    ASSERT_EQ(statuses.size(), 6u);
    EXPECT_EQ(statuses[0], "Finding files...");
    EXPECT_EQ(statuses[1], "Converting 1/3 " + (m_folder / "good.vlt").string());
    EXPECT_EQ(statuses[2], "Converting 2/3 " + (m_folder / "sub" / "broken.vlt").string());
    EXPECT_EQ(statuses[3], "Converting 3/3 " + (m_folder / "sub" / "deeper" / "also.VLT").string());
    EXPECT_EQ(statuses[4], "Converted 2 files");
    EXPECT_EQ(statuses[5], "Failed to convert 1 files.\nSee error log for details");
    EXPECT_EQ(test::ReadText(m_folder / "sub" / "broken.vlt"), "this is no table\n");
    EXPECT_EQ(test::ReadText(m_folder / "good.vlt"), written);
    EXPECT_EQ(QLookupTableData::ListCount(), 1) << "only the table made here is held";
}

TEST_F(BatchConversionTest, AnEmptyFolderConvertsNothing) {
    std::vector<std::string> statuses;
    const QBatchConversion result =
        BatchConvertTables(CString::FromUtf8(m_folder.string()),
                           [&](const CString& status) { statuses.push_back(status.ToUtf8()); });
    EXPECT_EQ(result.converted, 0);
    EXPECT_EQ(result.failed, 0);
    EXPECT_EQ(statuses, (std::vector<std::string>{"Finding files...", "Converted 0 files"}));
}

// --- Opening, sorting and column types in the editor ------------------------------------------

class TableEditorFiles : public test::TableFixture {
protected:
    TableEditorFiles() {
        m_host.otherwise = IDOK;
        SetUIServices(&m_host);
        TheErrorLog().SetFilename(CString::FromUtf8((m_folder / "errors.log").string()));
    }
    ~TableEditorFiles() override { SetUIServices(nullptr); }

    static std::string Numbers(const std::string& counts, const std::string& rows) {
        return "c\tVltFormat=2.1\t\n" + counts + "\nd\t\"\"\"P\"\"\"\nString\\String\tNumber\n" +
               rows;
    }

    ScriptedHost m_host;
};

TEST_F(TableEditorFiles, TryOpenRepairsCountsOrSaysWhyItFailed) {
    const std::string rows = "\"\"\"b\"\"\"\t2\n\"\"\"a\"\"\"\t1\n";
    struct Case {
        std::string text;
        bool opens;
        std::string box; // the start of the one box shown, or none
    };
    const Case cases[] = {
        {Numbers("2\t1", rows), true, ""},
        {Numbers("5\t1", rows), true,
         "This table contained an incorrect row or column count "
         "which has now been fixed.\nYou should save the table"},
        {Numbers("-1\t1", rows), false,
         "Failed to open file: \n\t" + TablePath("t").string() + "\nRow/col counts invalid"},
    };
    for (const Case& c : cases) {
        QLookupTableData::CleanupCache();
        m_host.questions.clear();
        WriteTable("t", c.text);
        QLookupTable table;
        EXPECT_EQ(TryOpen(table, TableCString("t")), c.opens) << c.text;
        if (c.box.empty()) {
            EXPECT_TRUE(m_host.questions.empty()) << m_host.questions.front();
        } else {
            ASSERT_EQ(m_host.questions.size(), 1u) << c.text;
            EXPECT_EQ(m_host.questions[0].rfind(c.box, 0), 0u) << m_host.questions[0];
        }
        if (c.opens) {
            EXPECT_TRUE(table.Data()->IsWritable());
            table.Rollback();
        }
    }
}

TEST_F(TableEditorFiles, SortRowsReadsAgainSortedAndBackInFileOrder) {
    WriteTable("t", Numbers("3\t1", "\"\"\"b\"\"\"\t2\n\"\"\"c\"\"\"\t3\n\"\"\"a\"\"\"\t1\n"));
    struct Step {
        int answer;
        bool result;
        const char* labels;
        bool sorted;
    };
    const Step steps[] = {
        {IDCANCEL, false, "b|c|a", false},
        {IDNO, true, "a|b|c", true},
        {IDOK, true, "b|c|a", false},
    };
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"t"));
    for (const Step& step : steps) {
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

TEST_F(TableEditorFiles, MakingFractionsWholeNumbersAsksFirst) {
    struct Case {
        std::vector<QAnyValue> cells;
        TYPE type;
        int answer;
        bool asked;
        bool changed;
    };
    const Case cases[] = {
        {{1, 2.5}, QAnyValue::TYPE_INT, IDNO, true, false},
        {{1, 2.5}, QAnyValue::TYPE_INT, IDYES, true, true},
        {{1, 2.0}, QAnyValue::TYPE_INT, IDNO, false, true},
        {{1, 2.5}, QAnyValue::TYPE_MONEY, IDNO, false, true},
        {{u"x", 3}, QAnyValue::TYPE_INT, IDNO, false, true},
    };
    for (const Case& c : cases) {
        m_host.otherwise = c.answer;
        m_host.questions.clear();
        QLookupTable table = MemoryTable({u"r1", u"r2"}, {u"c"}, {{c.cells[0]}, {c.cells[1]}});
        EXPECT_EQ(SelectColumnType(table, 0, c.type), c.changed);
        QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
        table.ColType(0, type);
        EXPECT_EQ(type == c.type, c.changed);
        EXPECT_EQ(m_host.questions.size(), c.asked ? 1u : 0u);
        if (c.asked) {
            EXPECT_EQ(m_host.questions[0],
                      "Type conversion will lose some fractional amounts. Continue anyway?");
        }

        QLookupTable headings = MemoryTable({u"r"}, {c.cells[0], c.cells[1]});
        m_host.questions.clear();
        EXPECT_EQ(SelectColumnHeadingType(headings, c.type), c.changed);
        EXPECT_EQ(m_host.questions.size(), c.asked ? 1u : 0u);
    }
}

} // namespace
} // namespace keel
