#include "tests/tables/tablefixture.h"

#include "keel/document/errorlog.h"
#include "keel/platform/uiservices.h"
#include "keel/tables/lookuptable.h"
#include "keel/values/length.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using TYPE = QAnyValue::TYPE;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

constexpr const char* c_madeInImperial =
    "The current table appears to have been created using imperial units, and may be damaged "
    "if resaved using the current settings.\n\nSave using imperial instead?";
constexpr const char* c_madeInMetric =
    "The current table appears to have been created using metric units, and may be damaged if "
    "resaved using the current settings.\n\nSave using metric instead?";
constexpr const char* c_madeInEither =
    "The current table appears to have been created using different units (metric/imperial), "
    "and may be damaged if resaved using the current settings.\n\nContinue?";

using test::ScriptedHost;

class VltFile : public test::TableFixture {
protected:
    void SetUp() override {
        TheErrorLog().SetFilename(CString::FromUtf8(LogPath().string()));
        QErrorLog::DiscardThePendingMessages();
        m_savedUnits = QLength::DefaultUnits();
    }
    void TearDown() override {
        SetUIServices(nullptr);
        QLength::SetDefaultUnits(m_savedUnits);
        QErrorLog::DiscardThePendingMessages();
        std::error_code ignored;
        fs::remove(LogPath(), ignored);
    }
    static fs::path LogPath() {
        return fs::temp_directory_path() / ("keel-vltfile-" + std::to_string(::getpid()) + ".log");
    }

    QLookupTable Open(const std::string& name, bool sortRows = false, bool repairCounts = false) {
        QLookupTable table;
        m_opened = table.SetName(TableCString(name), false, sortRows, repairCounts);
        return table;
    }
    // The message of the table's last error, without the name that leads it.
    std::string Message(const QLookupTable& table, const std::string& name) const {
        const std::string error = U8(table.LastError());
        const std::string lead = TablePath(name).string() + "\n";
        if (error.rfind(lead, 0) != 0)
            return "<not led by the name> " + error;
        return error.substr(lead.size());
    }
    static QAnyValue Stored(const QLookupTable& table, int row, int col) {
        QAnyValue value;
        EXPECT_TRUE(table.LookupByIndexNoEval(row, col, value)) << row << "," << col;
        return value;
    }
    static std::string StoredText(const QLookupTable& table, int row, int col) {
        return U8(Stored(table, row, col).Format());
    }
    static QAnyValue RowLabel(const QLookupTable& table, int row) {
        QAnyValue label;
        EXPECT_TRUE(table.RowLabel(row, label, nullptr, nullptr));
        return label;
    }
    static QAnyValue ColLabel(const QLookupTable& table, int col) {
        QAnyValue label;
        EXPECT_TRUE(table.ColLabel(col, label, nullptr, nullptr));
        return label;
    }
    static TYPE ColType(const QLookupTable& table, int col) {
        TYPE type = TYPE(-99);
        EXPECT_TRUE(table.ColType(col, type));
        return type;
    }
    // The table written by the public writer into a file of the table folder.
    std::string WriteCopy(const QLookupTable& table, const std::string& name) {
        CStdioFileEx file;
        EXPECT_TRUE(
            file.Open(TableCString(name), CFile::modeCreate | CFile::modeWrite | CFile::typeText));
        EXPECT_TRUE(table.WriteToFile(file));
        file.Close();
        QFSFile::ClearFileStatusCache();
        return ReadTable(name);
    }
    std::vector<std::string> FolderEntries() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    bool m_opened = false;

private:
    QLength::LENGTHUNITS m_savedUnits = QLength::LU_MM;
};

// --- Reading the three forms ---------------------------------------------------------------------

TEST_F(VltFile, ReadsTheCurrentForm) {
    WriteTable("prices", "Prices\tVltFormat=2.1\tsecond note\n"
                         "3\t2\n"
                         "Size\t\"\"\"Colour\"\"\"\t\"\"\"Cost\"\"\"\n"
                         "String\\String\tString\tNumber\n"
                         "\"\"\"Alder\"\"\"\t\"\"\"red\"\"\"\t1.5\n"
                         "\"\"\"Beech\"\"\"\t\"\"\"=1+1\"\"\"\t2+3\n"
                         "\"\"\"Cherry\"\"\"\t\t7\n");
    const QLookupTable table = Open("prices");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_EQ(U8(table.LastError()), "");
    EXPECT_EQ(U8(table.Comment()), "Prices");
    EXPECT_EQ(U8(table.Data()->SecondComment()), "second note");
    EXPECT_EQ(U8(table.TLDesc()), "Size");
    EXPECT_EQ(table.Data()->RowCount(), 3);
    EXPECT_EQ(table.Data()->ColCount(), 2);
    EXPECT_EQ(table.Data()->RowLabelType(), QAnyValue::TYPE_STRING);
    EXPECT_EQ(table.Data()->ColLabelType(), QAnyValue::TYPE_STRING);
    EXPECT_EQ(ColType(table, 0), QAnyValue::TYPE_STRING);
    EXPECT_EQ(ColType(table, 1), QAnyValue::TYPE_DOUBLE);
    EXPECT_EQ(U8(ColLabel(table, 0).Format()), "Colour");
    EXPECT_EQ(U8(RowLabel(table, 2).Format()), "Cherry");
    EXPECT_EQ(StoredText(table, 0, 0), "red");
    EXPECT_EQ(StoredText(table, 0, 1), "1.5");
    // A formula cell keeps its text; a constant expression is evaluated on reading.
    EXPECT_EQ(StoredText(table, 1, 0), "=1+1");
    EXPECT_TRUE(table.IsValueFormulaControlled(1, 0));
    EXPECT_EQ(StoredText(table, 1, 1), "5");
    EXPECT_TRUE(Stored(table, 2, 0).IsEmpty());
    EXPECT_TRUE(table.IsSorted());
    EXPECT_TRUE(table.Data()->AreAllRowsLoaded());
}

TEST_F(VltFile, ReadsForm20WithTheColumnLabelTypeDeduced) {
    WriteTable("t20", "note\tVltFormat=2.0\n"
                      "2\t2\n"
                      "\t10\t20\n"
                      "Length\tString\tWhole Number\n"
                      "5\t\"\"\"xylem\"\"\"\t1\n"
                      "3\t\"\"\"yew\"\"\"\t2\n");
    const QLookupTable table = Open("t20");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_EQ(table.Data()->RowLabelType(), QAnyValue::TYPE_LENGTH);
    EXPECT_EQ(table.Data()->ColLabelType(), QAnyValue::TYPE_INT);
    EXPECT_EQ(ColType(table, 0), QAnyValue::TYPE_STRING);
    EXPECT_EQ(ColType(table, 1), QAnyValue::TYPE_INT);
    EXPECT_EQ(U8(table.TLDesc()), "");
    // 5 then 3: not in order.
    EXPECT_FALSE(table.IsSorted());
}

TEST_F(VltFile, OlderFormDeducesEveryTypeAndMarkupColumnsAreNumbers) {
    WriteTable("old",
               "Old prices\n"
               "3\t4\n"
               "Item\t\"\"\"Markup %\"\"\"\t\"\"\"Qty\"\"\"\t\"\"\"Mixed\"\"\"\t\"\"\"Rate\"\"\"\n"
               "\"\"\"ash\"\"\"\t10\t1\t1\t1.5\n"
               "\"\"\"birch\"\"\"\t20\t2\t\"\"\"xylem\"\"\"\t\"\"\"=2\"\"\"\n"
               "\"\"\"cedar\"\"\"\t\"\"\"=5\"\"\"\t3\t\t\n");
    const QLookupTable table = Open("old");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_EQ(U8(table.Comment()), "Old prices");
    EXPECT_EQ(table.Data()->RowLabelType(), QAnyValue::TYPE_STRING);
    EXPECT_EQ(table.Data()->ColLabelType(), QAnyValue::TYPE_STRING);
    // Whole numbers under a markup heading are percentages.
    EXPECT_EQ(ColType(table, 0), QAnyValue::TYPE_DOUBLE);
    EXPECT_EQ(ColType(table, 1), QAnyValue::TYPE_INT);
    EXPECT_EQ(ColType(table, 2), QAnyValue::TYPE_EMPTY);
    // The formula cell does not count.
    EXPECT_EQ(ColType(table, 3), QAnyValue::TYPE_DOUBLE);
}

TEST_F(VltFile, OlderFormOfALazyTableIsLoadedInFullToDeduceTypes) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    WriteTable("oldlazy", "\n3\t1\n\t\"\"\"num\"\"\"\n1\t4\n2\t5\n3\t6\n");
    const QLookupTable table = Open("oldlazy");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_TRUE(table.Data()->AreAllRowsLoaded());
    EXPECT_EQ(table.Data()->RowLabelType(), QAnyValue::TYPE_INT);
    EXPECT_EQ(ColType(table, 0), QAnyValue::TYPE_INT);
    EXPECT_TRUE(table.Data()->HasRowIndex());
}

TEST_F(VltFile, AByteOrderMarkIsNoPartOfTheComment) {
    const std::string text = "Marked\tVltFormat=2.1\n1\t1\n\t\"\"\"col\u00e9\"\"\"\n"
                             "String\\String\tString\n\"\"\"rowan\"\"\"\t1\n";
    WriteTable("utf8", "\xef\xbb\xbf" + text);
    std::string utf16 = "\xff\xfe";
    const std::u16string wide = CString::FromUtf8(text).View().data();
    for (const char16_t unit : wide) {
        utf16 += static_cast<char>(unit & 0xff);
        utf16 += static_cast<char>(unit >> 8);
    }
    WriteTable("utf16", utf16);
    for (const char* name : {"utf8", "utf16"}) {
        const QLookupTable table = Open(name);
        ASSERT_TRUE(m_opened) << name << ": " << U8(table.LastError());
        EXPECT_EQ(U8(table.Comment()), "Marked") << name;
        EXPECT_EQ(U8(ColLabel(table, 0).Format()), "col\u00e9") << name;
    }
}

// Small files read whole: whether each opens, the last message it leaves, and stored cells
// ("" for an empty cell, "#ERR" for an error value).
TEST_F(VltFile, SmallFilesReadAsTheirVersionWordAndTokensSay) {
    const std::string current =
        "\n1\t1\n\t\"\"\"col\"\"\"\nString\\String\tString\n\"\"\"r\"\"\"\t1\n";
    const std::string twoRows =
        "\n2\t1\n\t\"\"\"cedar\"\"\"\n\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t2\n";
    struct Cell {
        int row;
        int col;
        const char* text;
    };
    struct Case {
        std::string text;
        bool opens;
        const char* message;
        std::vector<Cell> cells;
    };
    const Case cases[] = {
        // Read as an older file the types line would be a row; read as 2.x it is the types line.
        {"c\tVltFormat=2.1" + current, true, "", {{0, 0, "1"}}},
        {"c\tvltformat=2.1" + current, true, "", {}},
        {"c\tVltFormat=2.0" + current, true, "", {}},
        {"c\tVltFormat=3.0" + current, false, "Unsupported VLT format version string", {}},
        // The writer's form of the string a"b reads back; with the inner quote doubled only once
        // the text is the formula "a"b", whose quotes do not match: reported and kept.
        {"\n1\t2\n\t\"\"\"c1\"\"\"\t\"\"\"c2\"\"\"\n"
         "\"\"\"r\"\"\"\t\"\"\"a\"\"\"\"b\"\"\"\t\"\"\"a\"\"b\"\"\"\n",
         true,
         "Bad value at row 1 column 2",
         {{0, 0, "a\"b"}, {0, 1, "#ERR"}}},
        // One pair of quotes makes a formula name.
        {"\n1\t1\n\t\"\"\"cedar\"\"\"\n\"\"\"r\"\"\"\t\"abc\"\n",
         true,
         "Bad value at row 1 column 1",
         {{0, 0, "#ERR"}}},
        {"\n1\t1\n\t\"\"\"cedar\"\"\"\n\"\"\"r\"\"\"\t\"\"\"a\\tb\\nc\\\\d\"\"\"\n",
         true,
         "",
         {{0, 0, "a\tb\nc\\d"}}},
        // Harmless tails.
        {twoRows + "\n\n\n", true, "", {}},
        {twoRows + "    \n", true, "", {}},
        {twoRows + "  \t  ", true, "", {}},
        {twoRows + "\r\n\r\n", true, "", {}},
        // A short row gives empty cells without a message; one trailing tab is no extra column.
        {"\n2\t3\n\t\"\"\"x\"\"\"\t\"\"\"y\"\"\"\t\"\"\"z\"\"\"\n\"\"\"ash\"\"\"\t1\n\"\"\"birch\""
         "\"\"\n",
         true,
         "",
         {{0, 0, "1"}, {0, 1, ""}, {0, 2, ""}, {1, 0, ""}}},
        {"\n1\t2\n\t\"\"\"x\"\"\"\t\"\"\"y\"\"\"\n\"\"\"ash\"\"\"\t1\t2\t\n",
         true,
         "",
         {{0, 1, "2"}}},
    };
    for (const Case& c : cases) {
        QLookupTableData::CleanupCache();
        WriteTable("small", c.text);
        const QLookupTable table = Open("small");
        EXPECT_EQ(m_opened, c.opens) << c.text;
        EXPECT_EQ(table.LastError().IsEmpty() ? std::string() : Message(table, "small"), c.message)
            << c.text;
        for (const Cell& cell : c.cells) {
            const QAnyValue stored = Stored(table, cell.row, cell.col);
            EXPECT_EQ(stored.IsError() ? "#ERR" : U8(stored.Format()), cell.text) << c.text;
        }
    }
}

TEST_F(VltFile, AnyOtherVersionWordReadsAsOlderForm) {
    WriteTable("word", "c\tFormat=2.1\tz\n1\t1\n\t\"\"\"col\"\"\"\n\"\"\"rowan\"\"\"\t4\n");
    const QLookupTable table = Open("word");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_EQ(U8(table.Data()->SecondComment()), "z");
    EXPECT_EQ(ColType(table, 0), QAnyValue::TYPE_INT);
}

TEST_F(VltFile, ALongRowFailsTheReadOfASmallTable) {
    WriteTable("long",
               "\n2\t1\n\t\"\"\"xylem\"\"\"\n\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t2\t3\n");
    const QLookupTable table = Open("long");
    EXPECT_FALSE(m_opened);
    EXPECT_EQ(Message(table, "long"), "Too many columns for row 2");
}

// --- Rows read on demand -------------------------------------------------------------------------

TEST_F(VltFile, ALongRowOfALazyTableFailsAtFirstTouch) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    WriteTable("lazy", "c\tVltFormat=2.1\n3\t1\n\t\"\"\"xylem\"\"\"\nString\\String\tString\n"
                       "\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t2\t3\n\"\"\"cedar\"\"\"\t4\n");
    const QLookupTable table = Open("lazy");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_EQ(U8(table.LastError()), "");
    EXPECT_FALSE(table.Data()->AreAllRowsLoaded());
    EXPECT_EQ(StoredText(table, 0, 0), "1");
    QAnyValue value;
    EXPECT_FALSE(table.LookupByIndexNoEval(1, 0, value));
    EXPECT_EQ(Message(table, "lazy"), "Too many columns for row 2");
    // The table stays valid, but no further row is parsed.
    EXPECT_TRUE(table.IsValid());
    EXPECT_FALSE(table.LookupByIndexNoEval(2, 0, value));
    EXPECT_EQ(StoredText(table, 0, 0), "1");
}

TEST_F(VltFile, LazyRowsAreParsedWhenTouched) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    WriteTable("touch", "c\tVltFormat=2.1\n2\t1\n\t\"\"\"xylem\"\"\"\nString\\String\tString\n"
                        "\"\"\"ash\"\"\"\tnosuchname\n\"\"\"birch\"\"\"\t2\n");
    const QLookupTable table = Open("touch");
    ASSERT_TRUE(m_opened);
    // The bad cell has not been looked at yet.
    EXPECT_EQ(U8(table.LastError()), "");
    EXPECT_EQ(StoredText(table, 1, 0), "2");
    EXPECT_EQ(U8(table.LastError()), "");
    EXPECT_TRUE(Stored(table, 0, 0).IsError());
    EXPECT_EQ(Message(table, "touch"), "Bad value at row 1 column 1");
}

TEST_F(VltFile, SortingOnReadCarriesTheRowsWithTheirLabels) {
    const std::string text = "\n3\t1\n\t\"\"\"num\"\"\"\n"
                             "\"\"\"cedar\"\"\"\t3\n\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t2\n";
    WriteTable("unsorted", text);
    const QLookupTable unsorted = Open("unsorted");
    ASSERT_TRUE(m_opened);
    EXPECT_FALSE(unsorted.IsSorted());
    EXPECT_EQ(U8(RowLabel(unsorted, 0).Format()), "cedar");

    WriteTable("sorted", text);
    const QLookupTable table = Open("sorted", true);
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_TRUE(table.IsSorted());
    const std::vector<std::string> labels = {"ash", "birch", "cedar"};
    for (int row = 0; row < 3; ++row) {
        EXPECT_EQ(U8(RowLabel(table, row).Format()), labels[static_cast<std::size_t>(row)]);
        EXPECT_EQ(StoredText(table, row, 0), std::to_string(row + 1));
    }
}

// --- Repair --------------------------------------------------------------------------------------

struct RepairCase {
    const char* name;
    const char* text;
    int rows;
    int cols;
    const char* unrepaired;
};

class VltRepair : public VltFile, public testing::WithParamInterface<RepairCase> {};

TEST_P(VltRepair, FixesTheCountsSilently) {
    WriteTable("plain", GetParam().text);
    const QLookupTable plain = Open("plain");
    EXPECT_FALSE(m_opened);
    EXPECT_EQ(Message(plain, "plain"), GetParam().unrepaired);

    QErrorLog::DiscardThePendingMessages();
    WriteTable("fixed", GetParam().text);
    const QLookupTable table = Open("fixed", false, true);
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_EQ(U8(table.LastError()), "");
    EXPECT_EQ(table.Data()->RowCount(), GetParam().rows);
    EXPECT_EQ(table.Data()->ColCount(), GetParam().cols);
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());
}

std::string RowsOfOneColumn(int claimed, int present) {
    std::string text = "\n" + std::to_string(claimed) + "\t1\n\t\"\"\"num\"\"\"\n";
    for (int row = 0; row < present; ++row)
        text += std::to_string(row) + "\t" + std::to_string(row * 10) + "\n";
    return text;
}

const std::string c_tenClaimedEightPresent = RowsOfOneColumn(10, 8);
const std::string c_twoClaimedFourPresent = RowsOfOneColumn(2, 4) + "\n\n";

INSTANTIATE_TEST_SUITE_P(
    Counts, VltRepair,
    testing::Values(
        RepairCase{"FewerRows", c_tenClaimedEightPresent.c_str(), 8, 1, "Not enough rows of data"},
        RepairCase{"MoreRows", c_twoClaimedFourPresent.c_str(), 4, 1, "Too many rows of data"},
        RepairCase{"FewerColumns",
                   "\n1\t3\n\t\"\"\"xylem\"\"\"\t\"\"\"yew\"\"\"\n\"\"\"rowan\"\"\"\t1\t2\n", 1, 2,
                   "Not enough column headings"},
        RepairCase{"MoreColumns",
                   "\n1\t1\n\t\"\"\"xylem\"\"\"\t\"\"\"yew\"\"\"\t\"\"\"zelkova\"\"\"\n"
                   "\"\"\"rowan\"\"\"\t1\t2\t3\n",
                   1, 3, "Too many column headings"},
        RepairCase{"BothCounts",
                   "\n5\t1\n\t\"\"\"xylem\"\"\"\t\"\"\"yew\"\"\"\n\"\"\"rowan\"\"\"\t1\t2\n", 1, 2,
                   "Too many column headings"}),
    [](const testing::TestParamInfo<RepairCase>& info) { return std::string(info.param.name); });

TEST_F(VltFile, RepairCountsOnlyTheHeadingsUpToAnEmptyOne) {
    WriteTable("gap", "\n1\t1\n\t\"\"\"xylem\"\"\"\t\"\"\"yew\"\"\"\t\t\"\"\"zelkova\"\"\"\n\"\"\"r"
                      "owan\"\"\"\t1\t2\n");
    const QLookupTable table = Open("gap", false, true);
    // One heading counted past the first: the second read still finds more headings and, with
    // the column count already forced, fails.
    EXPECT_FALSE(m_opened);
    EXPECT_EQ(Message(table, "gap"), "Too many column headings");
}

// --- Every failure of the reader -----------------------------------------------------------------

struct FailureCase {
    const char* name;
    const char* text;
    const char* message;
    bool opens;
};

class VltFailure : public VltFile, public testing::WithParamInterface<FailureCase> {};

TEST_P(VltFailure, ReportsItsMessage) {
    WriteTable("bad", GetParam().text);
    const QLookupTable table = Open("bad");
    EXPECT_EQ(m_opened, GetParam().opens);
    EXPECT_EQ(Message(table, "bad"), GetParam().message);
    EXPECT_EQ(table.IsValid(), GetParam().opens);
}

constexpr const char* c_good21Head =
    "c\tVltFormat=2.1\n2\t2\n\t\"\"\"xylem\"\"\"\t\"\"\"yew\"\"\"\n";

const std::string c_noTypesLine = std::string(c_good21Head);
const std::string c_firstTypeEmpty = std::string(c_good21Head) + "\tString\tString\n";
const std::string c_columnTypeMissing = std::string(c_good21Head) + "String\\String\tString\n";
const std::string c_columnTypeEmpty = std::string(c_good21Head) + "String\\String\t\tString\n";
const std::string c_extraColumnType =
    std::string(c_good21Head) + "String\\String\tString\tString\tString\n";
const std::string c_goodTypes = std::string(c_good21Head) + "String\\String\tString\tString\n";
const std::string c_badRowLabel = c_goodTypes + "nosuchname\t1\t2\n\"\"\"birch\"\"\"\t3\t4\n";
const std::string c_emptyRowLabel = c_goodTypes + "\"\"\"ash\"\"\"\t1\t2\n\t3\t4\n";
const std::string c_badCell = c_goodTypes + "\"\"\"ash\"\"\"\t1\t2\n\"\"\"birch\"\"\"\t3\t1+\n";
const std::string c_blankLineInRows =
    c_goodTypes + "\"\"\"ash\"\"\"\t1\t2\n   \n\"\"\"birch\"\"\"\t3\t4\n";
const std::string c_rowsMissing = c_goodTypes + "\"\"\"ash\"\"\"\t1\t2\n";
const std::string c_rowTooMany =
    c_goodTypes + "\"\"\"ash\"\"\"\t1\t2\n\"\"\"birch\"\"\"\t3\t4\nmore\n";
const std::string c_rowTooLong =
    c_goodTypes + "\"\"\"ash\"\"\"\t1\t2\t3\n\"\"\"birch\"\"\"\t3\t4\n";

INSTANTIATE_TEST_SUITE_P(
    Messages, VltFailure,
    testing::Values(
        FailureCase{"Empty", "", "Cannot read description line", false},
        FailureCase{"OnlyDescription", "c\tVltFormat=2.1\n", "Cannot read row/col counts line",
                    false},
        FailureCase{"NegativeRows", "c\n-1\t2\n", "Row/col counts invalid", false},
        FailureCase{"NegativeColumns", "c\n1\t-2\n", "Row/col counts invalid", false},
        FailureCase{"TooManyCells", "c\n100000\t100000\n", "Out of memory", false},
        FailureCase{"NoHeadings", "c\n1\t1\n", "No column headings line", false},
        FailureCase{"FewHeadings", "c\n1\t3\n\t\"\"\"xylem\"\"\"\n", "Not enough column headings",
                    false},
        FailureCase{"ManyHeadings", "c\n1\t1\n\t\"\"\"xylem\"\"\"\t\"\"\"yew\"\"\"\n",
                    "Too many column headings", false},
        FailureCase{
            "BadHeading",
            "c\n1\t3\n\t\"\"\"xylem\"\"\"\tnosuchname\t\"\"\"zelkova\"\"\"\n\"\"\"rowan\"\"\"\n",
            "Bad column 2 label", true},
        FailureCase{"EmptyHeading",
                    "c\n1\t3\n\t\"\"\"xylem\"\"\"\t\t\"\"\"zelkova\"\"\"\n\"\"\"rowan\"\"\"\n",
                    "Bad column 2 label", true},
        FailureCase{"NoTypesLine", c_noTypesLine.c_str(), "No column types line", false},
        FailureCase{"FirstTypeEmpty", c_firstTypeEmpty.c_str(), "Not enough column types", false},
        FailureCase{"ColumnTypeMissing", c_columnTypeMissing.c_str(), "Not enough column types",
                    false},
        FailureCase{"ColumnTypeEmpty", c_columnTypeEmpty.c_str(), "Not enough column types", false},
        FailureCase{"ExtraColumnType", c_extraColumnType.c_str(), "Too many column types", false},
        FailureCase{"BadRowLabel", c_badRowLabel.c_str(), "Bad row 1 label", true},
        FailureCase{"EmptyRowLabel", c_emptyRowLabel.c_str(), "Bad row 2 label", true},
        FailureCase{"BadCell", c_badCell.c_str(), "Bad value at row 2 column 2", true},
        FailureCase{"BlankLineInRows", c_blankLineInRows.c_str(), "Not enough rows of data", false},
        FailureCase{"RowsMissing", c_rowsMissing.c_str(), "Not enough rows of data", false},
        FailureCase{"ExtraRow", c_rowTooMany.c_str(), "Too many rows of data", false},
        FailureCase{"LongRow", c_rowTooLong.c_str(), "Too many columns for row 1", false}),
    [](const testing::TestParamInfo<FailureCase>& info) { return std::string(info.param.name); });

TEST_F(VltFile, AMissingFileCannotBeOpened) {
    const QLookupTable table = Open("absent");
    EXPECT_FALSE(m_opened);
    EXPECT_EQ(Message(table, "absent"), "Could not open");
}

TEST_F(VltFile, ANamelessTableCannotBeRead) {
    QLookupTable table;
    EXPECT_FALSE(table.SetName(CString()));
    EXPECT_EQ(U8(table.LastError()), "\nNo name supplied");
}

TEST_F(VltFile, ATruncatedOrBinaryFileFailsCleanly) {
    const std::string whole = c_goodTypes + "\"\"\"ash\"\"\"\t1\t2\n\"\"\"birch\"\"\"\t3\t4\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        WriteTable("cut", whole.substr(0, length));
        {
            QLookupTable table;
            const bool opened = table.SetName(TableCString("cut"));
            EXPECT_EQ(opened, table.IsValid()) << length;
            EXPECT_TRUE(opened || !table.LastError().IsEmpty()) << length;
        }
        QLookupTableData::CleanupCache();
    }
    std::string binary;
    for (int byte = 0; byte < 256; ++byte)
        binary += static_cast<char>(byte * 7 + 3);
    WriteTable("binary", binary + "\t\n\xff\xfe\x00\x01" + binary);
    const QLookupTable table = Open("binary");
    EXPECT_FALSE(m_opened);
    EXPECT_FALSE(table.IsValid());
    EXPECT_FALSE(table.LastError().IsEmpty());
}

// --- Writing -------------------------------------------------------------------------------------

TEST_F(VltFile, WritesTheCurrentFormByteForByte) {
    QLookupTable table;
    table.CreateNewFile();
    ASSERT_TRUE(table.IsValid());
    table.SetComment(u"My table");
    table.Data()->SetSecondComment(u"more");
    ASSERT_TRUE(table.UpdateByIndex(0, 0, QAnyValue(u"say \"hi\"\tthere")));
    EXPECT_EQ(WriteCopy(table, "new"),
              "My table\tVltFormat=2.1\tmore\n"
              "1\t1\n"
              "\t\"\"\"New Column\"\"\"\n"
              "String\\String\tString\n"
              "\"\"\"New Row\"\"\"\t\"\"\"say \"\"\"\"hi\"\"\"\"\\tthere\"\"\"\n");
}

TEST_F(VltFile, WritesEmptyCellsAsEmptyTokensAndConvertsToTheColumnType) {
    WriteTable("types",
               "c\tVltFormat=2.1\n2\t3\n\t\"\"\"num\"\"\"\t\"\"\"str\"\"\"\t\"\"\"fml\"\"\"\n"
               "String\\String\tNumber\tString\tWhole Number\n"
               "\"\"\"ash\"\"\"\t2.5\t5\t\"\"\"=1.5\"\"\"\n"
               "\"\"\"birch\"\"\"\t\t\"\"\"\"\"\"\t\n");
    const QLookupTable table = Open("types");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    const std::string written = WriteCopy(table, "types-copy");
    // 5 made a string, the formula cell left a formula; the empty string is written as an
    // empty token.
    EXPECT_NE(written.find("\"\"\"ash\"\"\"\t2.5\t\"\"\"5\"\"\"\t\"\"\"=1.5\"\"\"\n"),
              std::string::npos)
        << written;
    EXPECT_NE(written.find("\"\"\"birch\"\"\"\t\t\t\n"), std::string::npos) << written;
    // The table itself is not converted.
    EXPECT_TRUE(Stored(table, 0, 1).IsType(QAnyValue::TYPE_INT));
}

TEST_F(VltFile, AnEmptyTopLeftDescriptionStartsTheHeadingLineWithATab) {
    QLookupTable table;
    table.CreateNewFile();
    table.SetTLDesc(CString());
    const std::string written = WriteCopy(table, "tl");
    EXPECT_NE(written.find("\n\t\"\"\"New Column\"\"\"\n"), std::string::npos) << written;
    EXPECT_EQ(written.find("#!EMPTY"), std::string::npos);
}

TEST_F(VltFile, WritingTruncatesAFileOpenedWithoutTruncation) {
    WriteTable("over", std::string(5000, 'x'));
    QLookupTable table;
    table.CreateNewFile();
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(TableCString("over"), CFile::modeReadWrite | CFile::modeCreate |
                                                    CFile::modeNoTruncate | CFile::typeText));
    ASSERT_TRUE(table.WriteToFile(file));
    file.Close();
    const std::string written = ReadTable("over");
    EXPECT_EQ(written.find('x'), std::string::npos);
    EXPECT_EQ(written.rfind("\tVltFormat=2.1\t\n", 0), 0u) << written;
}

TEST_F(VltFile, WritesUtf8UnlessForcedToTheNarrowCodePage) {
    QLookupTable table;
    table.CreateNewFile();
    table.SetComment(u"caf\u00e9");
    const auto writeIn1252 = [&](const std::string& name) {
        CStdioFileEx file;
        file.SetCodePage(CStdioFileEx::c_codePageWindowsWestern);
        EXPECT_TRUE(file.Open(TableCString(name), CFile::modeCreate | CFile::modeWrite |
                                                      CFile::typeText |
                                                      CStdioFileEx::modeUseCodePage));
        EXPECT_TRUE(table.WriteToFile(file));
        file.Close();
        return ReadTable(name);
    };
    EXPECT_EQ(writeIn1252("utf8").substr(0, 5), "caf\xc3\xa9");

    m_factory.SetOption("Options", "VltForceAscii", 1);
    QLookupTableDataStatics::ForgetForceAsciiWrite();
    ASSERT_TRUE(QLookupTableDataStatics::IsForceAsciiWrite());
    EXPECT_EQ(writeIn1252("narrow").substr(0, 5), "caf\xe9\t");
}

TEST_F(VltFile, AnInvalidTableWritesNothing) {
    WriteTable("zero", "c\n0\t0\n\n");
    QLookupTable table = Open("zero");
    EXPECT_FALSE(m_opened);
    CStdioFileEx file;
    ASSERT_TRUE(
        file.Open(TableCString("out"), CFile::modeCreate | CFile::modeWrite | CFile::typeText));
    ASSERT_NE(table.Data(), nullptr);
    EXPECT_FALSE(table.WriteToFile(file));
}

// --- Round trips ---------------------------------------------------------------------------------

void ExpectSameTable(const QLookupTable& a, const QLookupTable& b) {
    ASSERT_EQ(a.Data()->RowCount(), b.Data()->RowCount());
    ASSERT_EQ(a.Data()->ColCount(), b.Data()->ColCount());
    EXPECT_EQ(a.Data()->RowLabelType(), b.Data()->RowLabelType());
    EXPECT_EQ(a.Data()->ColLabelType(), b.Data()->ColLabelType());
    EXPECT_EQ(U8(a.Comment()), U8(b.Comment()));
    EXPECT_EQ(U8(a.Data()->SecondComment()), U8(b.Data()->SecondComment()));
    EXPECT_EQ(U8(a.TLDesc()), U8(b.TLDesc()));
    for (int col = 0; col < a.Data()->ColCount(); ++col) {
        QAnyValue labelA;
        QAnyValue labelB;
        a.ColLabel(col, labelA, nullptr, nullptr);
        b.ColLabel(col, labelB, nullptr, nullptr);
        EXPECT_TRUE(labelA.Identical(labelB)) << col;
        TYPE typeA = TYPE(0);
        TYPE typeB = TYPE(1);
        a.ColType(col, typeA);
        b.ColType(col, typeB);
        EXPECT_EQ(typeA, typeB) << col;
    }
    for (int row = 0; row < a.Data()->RowCount(); ++row) {
        QAnyValue labelA;
        QAnyValue labelB;
        a.RowLabel(row, labelA, nullptr, nullptr);
        b.RowLabel(row, labelB, nullptr, nullptr);
        EXPECT_TRUE(labelA.Identical(labelB)) << row;
        for (int col = 0; col < a.Data()->ColCount(); ++col) {
            QAnyValue cellA;
            QAnyValue cellB;
            EXPECT_TRUE(a.LookupByIndex(row, col, cellA, nullptr, nullptr));
            EXPECT_TRUE(b.LookupByIndex(row, col, cellB, nullptr, nullptr));
            EXPECT_TRUE(cellA.Identical(cellB))
                << row << "," << col << ": " << U8(cellA.Format()) << " / " << U8(cellB.Format());
        }
    }
}

struct FormCase {
    const char* name;
    const char* text;
};

class VltRoundTrip : public VltFile, public testing::WithParamInterface<FormCase> {};

TEST_P(VltRoundTrip, TheCurrentFormReadsBackTheSameTable) {
    WriteTable("source", GetParam().text);
    const QLookupTable source = Open("source");
    ASSERT_TRUE(m_opened) << U8(source.LastError());
    const std::string first = WriteCopy(source, "copy");
    EXPECT_NE(first.find("\tVltFormat=2.1\t"), std::string::npos);

    const QLookupTable copy = Open("copy");
    ASSERT_TRUE(m_opened) << U8(copy.LastError());
    EXPECT_EQ(U8(copy.LastError()), "");
    ExpectSameTable(source, copy);
    // Once in the current form, writing again changes no byte.
    EXPECT_EQ(WriteCopy(copy, "again"), first);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, VltRoundTrip,
    testing::Values(FormCase{"Older",
                             "Old\n2\t3\n"
                             "Item\t\"\"\"Markup %\"\"\"\t\"\"\"Text\"\"\"\t\"\"\"When\"\"\"\n"
                             "\"\"\"bolt\"\"\"\t10\t\"\"\"say \"\"\"\"hi\"\"\"\"\"\"\"\t1.25\n"
                             "\"\"\"nut\"\"\"\t15\t\"\"\"=1+2\"\"\"\t\n"},
                    FormCase{"Form20", "c\tVltFormat=2.0\tsecond\n2\t2\n"
                                       "Size\t1\t2\n"
                                       "Whole Number\tString\tNumber\n"
                                       "3\t\"\"\"a\\tb\"\"\"\t0.5\n"
                                       "4\t\t-2\n"},
                    FormCase{"Form21", "c\tVltFormat=2.1\t\n2\t2\n"
                                       "\t\"\"\"xylem\"\"\"\t\"\"\"yew\"\"\"\n"
                                       "String\\String\tYes or No\tNumber\n"
                                       "\"\"\"ash\"\"\"\tYes\t1e3\n"
                                       "\"\"\"birch\"\"\"\tNo\t\"\"\"=2*3\"\"\"\n"}),
    [](const testing::TestParamInfo<FormCase>& info) { return std::string(info.param.name); });

// --- The write of a transaction ------------------------------------------------------------------

constexpr const char* c_smallTable = "c\tVltFormat=2.1\n2\t1\n\t\"\"\"num\"\"\"\n"
                                     "String\\String\tWhole Number\n"
                                     "\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t2\n";

TEST_F(VltFile, CommitWritesTheTableIntoItsFile) {
    WriteTable("commit", c_smallTable);
    QLookupTable table = Open("commit");
    ASSERT_TRUE(m_opened);
    ASSERT_TRUE(table.BeginTrans());
    ASSERT_TRUE(table.UpdateByIndex(1, 0, QAnyValue(u"42")));
    ASSERT_TRUE(table.CommitTrans()) << U8(table.LastError());
    EXPECT_EQ(ReadTable("commit"), "c\tVltFormat=2.1\t\n2\t1\n\t\"\"\"num\"\"\"\n"
                                   "String\\String\tWhole Number\n"
                                   "\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t42\n");
    EXPECT_EQ(FolderEntries(), std::vector<std::string>{"commit.vlt"});
    EXPECT_FALSE(table.Data()->IsFileOpen());
}

TEST_F(VltFile, ALockHeldAroundTheWriteHoldsTheNewFile) {
    WriteTable("held", c_smallTable);
    QLookupTable table = Open("held");
    ASSERT_TRUE(table.BeginTrans());
    ASSERT_TRUE(table.Data()->Lock(true));
    ASSERT_TRUE(table.UpdateByIndex(0, 0, QAnyValue(u"7")));
    ASSERT_TRUE(table.CommitTrans());
    EXPECT_TRUE(table.Data()->IsFileOpen());
    // Read through the lock that is still held: the new contents.
    QLookupTableData::CleanupCache();
    ASSERT_TRUE(table.Reload());
    EXPECT_EQ(StoredText(table, 0, 0), "7");
    table.Data()->Unlock();
    EXPECT_FALSE(table.Data()->IsFileOpen());
}

TEST_F(VltFile, AFailedWriteLeavesTheOldFileAsItWas) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    const std::string text = "c\tVltFormat=2.1\n2\t1\n\t\"\"\"num\"\"\"\nString\\String\tString\n"
                             "\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t2\t3\n";
    WriteTable("keep", text);
    QLookupTable table = Open("keep");
    ASSERT_TRUE(m_opened);
    ASSERT_TRUE(table.BeginTrans());
    // The second row cannot be parsed, so the whole table cannot be written.
    EXPECT_FALSE(table.CommitTrans());
    EXPECT_EQ(ReadTable("keep"), text);
    EXPECT_EQ(FolderEntries(), std::vector<std::string>{"keep.vlt"});
}

TEST_F(VltFile, AWriteThatCannotOpenTheFileSaysSo) {
    WriteTable("gone", c_smallTable);
    QLookupTable table = Open("gone");
    ASSERT_TRUE(table.BeginTrans());
    ASSERT_TRUE(table.CommitTrans());
    // The table stays writable after its transaction; its file is now a folder.
    fs::remove(TablePath("gone"));
    fs::create_directory(TablePath("gone"));
    QFSFile::ClearFileStatusCache();
    EXPECT_FALSE(table.CommitTrans());
    EXPECT_EQ(Message(table, "gone"), "Could not open for writing");
    EXPECT_FALSE(table.Data()->IsFileOpen());
}

// --- Units of lengths at the write ---------------------------------------------------------------

// A table whose row labels are lengths, given with their units so that they read the same in any
// default units.
std::string LengthLabels(const std::string& first, const std::string& second) {
    return "c\tVltFormat=2.1\n2\t1\n\t\"\"\"num\"\"\"\nLength\\String\tWhole Number\n" + first +
           "\t1\n" + second + "\t2\n";
}

std::string FirstRowLabelToken(const std::string& file) {
    std::size_t start = 0;
    for (int line = 0; line < 4; ++line)
        start = file.find('\n', start) + 1;
    return file.substr(start, file.find('\t', start) - start);
}

struct UnitsCase {
    const char* name;
    QLength::LENGTHUNITS current;
    const char* labels;
    int answer;
    const char* question;
    bool written;
    const char* token;
};

class VltUnits : public VltFile, public testing::WithParamInterface<UnitsCase> {};

TEST_P(VltUnits, AsksWhenTheLengthsDoNotSurviveTheCurrentUnits) {
    const UnitsCase& param = GetParam();
    QLength::SetDefaultUnits(param.current);
    const std::string labels = param.labels;
    const std::string text = labels == "inch"  ? LengthLabels("0.03125 in", "0.0625 in")
                             : labels == "mm"  ? LengthLabels("10 mm", "20 mm")
                             : labels == "odd" ? LengthLabels("1.015625 in", "10.05 mm")
                                               : LengthLabels("0.0625 in", "10 mm");
    WriteTable("units", text);
    ScriptedHost host;
    host.answers = {param.answer};
    SetUIServices(&host);
    QLookupTable table = Open("units");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    ASSERT_TRUE(table.BeginTrans());
    EXPECT_EQ(table.CommitTrans(), param.written);
    if (std::string(param.question).empty()) {
        EXPECT_TRUE(host.questions.empty());
    } else {
        ASSERT_EQ(host.questions.size(), 1u);
        EXPECT_EQ(host.questions[0], param.question);
        EXPECT_EQ(host.flags[0] & MB_ICONEXCLAMATION, MB_ICONEXCLAMATION);
    }
    EXPECT_EQ(QLength::DefaultUnits(), param.current);
    const std::string file = ReadTable("units");
    if (param.written)
        EXPECT_EQ(FirstRowLabelToken(file), param.token);
    else
        EXPECT_EQ(file, text);
}

INSTANTIATE_TEST_SUITE_P(
    Questions, VltUnits,
    testing::Values(
        UnitsCase{"InchesInInches", QLength::LU_INCH, "inch", IDCANCEL, "", true, "0.03125 in"},
        UnitsCase{"MillimetresInMillimetres", QLength::LU_MM, "mm", IDCANCEL, "", true, "10 mm"},
        UnitsCase{"InchesInMillimetresYes", QLength::LU_MM, "inch", IDYES, c_madeInImperial, true,
                  "0.03125 in"},
        UnitsCase{"InchesInMillimetresNo", QLength::LU_MM, "inch", IDNO, c_madeInImperial, true,
                  "0.7937500000000001 mm"},
        UnitsCase{"InchesInMillimetresCancel", QLength::LU_MM, "inch", IDCANCEL, c_madeInImperial,
                  false, ""},
        UnitsCase{"MillimetresInInchesYes", QLength::LU_INCH, "mm", IDYES, c_madeInMetric, true,
                  "10 mm"},
        UnitsCase{"MillimetresInFeetNo", QLength::LU_FOOT, "mm", IDNO, c_madeInMetric, true,
                  "0.03280839895013123 ft"},
        UnitsCase{"MixedYes", QLength::LU_MM, "mixed", IDYES, c_madeInEither, true,
                  "1.5875000000000001 mm"},
        UnitsCase{"MixedNo", QLength::LU_CM, "mixed", IDNO, c_madeInEither, false, ""},
        UnitsCase{"OddYes", QLength::LU_INCH, "odd", IDYES, c_madeInEither, true, "1.015625 in"}),
    [](const testing::TestParamInfo<UnitsCase>& info) { return std::string(info.param.name); });

TEST_F(VltFile, WithoutADisplayTheQuestionsTakeTheirDefaultAnswers) {
    QLength::SetDefaultUnits(QLength::LU_MM);
    WriteTable("inch", LengthLabels("0.03125 in", "0.0625 in"));
    QLookupTable inches = Open("inch");
    ASSERT_TRUE(inches.BeginTrans());
    // Yes: written in the units the table was made in.
    EXPECT_TRUE(inches.CommitTrans());
    EXPECT_EQ(FirstRowLabelToken(ReadTable("inch")), "0.03125 in");

    const std::string mixed = LengthLabels("0.0625 in", "10 mm");
    WriteTable("mixed", mixed);
    QLookupTable either = Open("mixed");
    ASSERT_TRUE(either.BeginTrans());
    // No, the second button: nothing is written.
    EXPECT_FALSE(either.CommitTrans());
    EXPECT_EQ(ReadTable("mixed"), mixed);
    EXPECT_EQ(QLength::DefaultUnits(), QLength::LU_MM);
}

TEST_F(VltFile, LengthCellsAndColumnLabelsAreCheckedToo) {
    QLength::SetDefaultUnits(QLength::LU_MM);
    ScriptedHost host;
    host.answers = {IDNO, IDNO};
    SetUIServices(&host);
    WriteTable("cells", "c\tVltFormat=2.1\n1\t1\n\t\"\"\"num\"\"\"\nString\\String\tLength\n"
                        "\"\"\"ash\"\"\"\t0.0625 in\n");
    QLookupTable cells = Open("cells");
    ASSERT_TRUE(cells.BeginTrans());
    EXPECT_TRUE(cells.CommitTrans());
    WriteTable("heads", "c\tVltFormat=2.1\n1\t1\n\t0.0625 in\nString\\Length\tString\n"
                        "\"\"\"ash\"\"\"\t1\n");
    QLookupTable heads = Open("heads");
    ASSERT_TRUE(heads.BeginTrans());
    EXPECT_TRUE(heads.CommitTrans());
    EXPECT_EQ(host.questions, (std::vector<std::string>{c_madeInImperial, c_madeInImperial}));
}

} // namespace
} // namespace keel
