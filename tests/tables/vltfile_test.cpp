#include "tests/support/uihosts.h"
#include "tests/tables/memorytable.h"
#include "tests/tables/tablefixture.h"

#include "keel/document/errorlog.h"
#include "keel/platform/uiservices.h"
#include "keel/tables/lookuptable.h"
#include "keel/values/length.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::Shape;
using test::StoredText;
using test::Types;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

// The most memory the process has held, in kilobytes: counts far beyond what a file holds must
// not have anything allocated for them.
long PeakKilobytes() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// The comment, the second comment and the top-left description, between bars.
std::string Comments(const QLookupTable& table) {
    return U8(table.Comment() + u"|" + table.Data()->SecondComment() + u"|" + table.TLDesc());
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

class VltFile : public test::TableFixture {
protected:
    void SetUp() override { m_savedUnits = QLength::DefaultUnits(); }
    void TearDown() override {
        SetUIServices(nullptr);
        QLength::SetDefaultUnits(m_savedUnits);
    }

    QLookupTable Open(const std::string& name, bool sortRows = false, bool repairCounts = false) {
        QLookupTable table;
        m_opened = table.SetName(TableCString(name), false, sortRows, repairCounts);
        return table;
    }
    long FilesInFolder() const {
        return std::distance(fs::directory_iterator(m_folder), fs::directory_iterator());
    }
    // The message of the table's last error, without the name that leads it.
    std::string Message(const QLookupTable& table, const std::string& name) const {
        const std::string error = U8(table.LastError());
        const std::string lead = TablePath(name).string() + "\n";
        if (error.rfind(lead, 0) != 0)
            return error.empty() ? "" : "<not led by the name> " + error;
        return error.substr(lead.size());
    }
    bool m_opened = false;

private:
    QLength::LENGTHUNITS m_savedUnits = QLength::LU_MM;
};

// The cases of reading.txt, whose header tells its columns.
TEST_F(VltFile, EachFileReadsAsItsCaseSays) {
    bool sortRows = false;
    for (const std::vector<std::string>& c : test::TableCases("reading.txt")) {
        SCOPED_TRACE(c[0]);
        if (c[0] == "%% sort") {
            sortRows = true;
            continue;
        }
        QLookupTableData::CleanupCache();
        WriteTable("read", c[0]);
        const QLookupTable table = Open("read", sortRows);
        EXPECT_EQ(m_opened, c.at(1) == "opens");
        EXPECT_EQ(table.IsValid(), m_opened);
        EXPECT_EQ(Message(table, "read"), c.at(2));
        if (c.size() > 3) {
            EXPECT_EQ(Shape(table), c[3]);
        }
        if (c.size() > 4) {
            EXPECT_EQ(Types(table), c[4]);
            EXPECT_EQ(Comments(table), c.at(5));
            EXPECT_EQ(table.IsSorted(), c.at(6) == "sorted");
            EXPECT_TRUE(table.Data()->AreAllRowsLoaded());
        }
    }
    EXPECT_LT(PeakKilobytes(), 1024L * 1024L) << "kilobytes at most, about a gigabyte";
}

TEST_F(VltFile, ALazyRowIsParsedWhenTouchedAndALongOneFailsThen) {
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    WriteTable("lazy",
               "c\tVltFormat=2.1\n4\t1\n\t\"\"\"xylem\"\"\"\nString\\String\tString\n"
               "\"\"\"ash\"\"\"\tnosuchname\n\"\"\"birch\"\"\"\t2\n\"\"\"cedar\"\"\"\t2\t3\n"
               "\"\"\"damson\"\"\"\t4\n");
    const QLookupTable table = Open("lazy");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    EXPECT_FALSE(table.Data()->AreAllRowsLoaded());
    // The bad cell has not been looked at yet.
    EXPECT_EQ(StoredText(table, 1, 0), "2");
    EXPECT_EQ(U8(table.LastError()), "");
    QAnyValue value;
    EXPECT_TRUE(table.LookupByIndexNoEval(0, 0, value));
    EXPECT_TRUE(value.IsError());
    EXPECT_EQ(Message(table, "lazy"), "Bad value at row 1 column 1");
    EXPECT_FALSE(table.LookupByIndexNoEval(2, 0, value));
    EXPECT_EQ(Message(table, "lazy"), "Too many columns for row 3");
    // The table stays valid, but no further row is parsed.
    EXPECT_TRUE(table.IsValid());
    EXPECT_FALSE(table.LookupByIndexNoEval(3, 0, value));
    EXPECT_EQ(StoredText(table, 1, 0), "2");
}

// The cases of repairs.txt: the counts fail the read unless repair is asked for, and are then
// fixed silently.
TEST_F(VltFile, RepairFixesTheCountsSilently) {
    for (const std::vector<std::string>& c : test::TableCases("repairs.txt")) {
        SCOPED_TRACE(c[0]);
        QLookupTableData::CleanupCache();
        WriteTable("plain", c[0]);
        const QLookupTable plain = Open("plain");
        EXPECT_FALSE(m_opened);
        EXPECT_EQ(Message(plain, "plain"), c.at(1));

        QErrorLog::DiscardThePendingMessages();
        WriteTable("fixed", c[0]);
        const QLookupTable table = Open("fixed", false, true);
        const std::string outcome = m_opened ? std::to_string(table.Data()->RowCount()) + " " +
                                                   std::to_string(table.Data()->ColCount()) +
                                                   Message(table, "fixed")
                                             : Message(table, "fixed");
        EXPECT_EQ(outcome, c.at(2));
        EXPECT_FALSE(m_opened && QErrorLog::TheLogHasPendingMessages());
    }
    EXPECT_LT(PeakKilobytes(), 1024L * 1024L) << "kilobytes at most, about a gigabyte";
}

// Cells that the file holds well but that cannot take their column's type (an empty array has no
// first element to make a number or a length of) read as error values, and writing the table
// keeps them as they stand.
TEST_F(VltFile, ACellThatCannotTakeItsTypeReadsAsAnErrorAndIsWrittenBackAsItWas) {
    const std::string text = "Odd cells\tVltFormat=2.1\t\n2\t2\nKey\t\"\"\"Count\"\"\"\t"
                             "\"\"\"Size\"\"\"\nString\\String\tNumber\tLength\n"
                             "\"\"\"a\"\"\"\t[]\t5\n\"\"\"b\"\"\"\t2\t[]\n";
    WriteTable("odd", text);
    QLookupTable table = Open("odd");
    ASSERT_TRUE(m_opened) << U8(table.LastError());
    std::string errors;
    for (const char16_t* row : {u"a", u"b"})
        for (const char16_t* col : {u"Count", u"Size"}) {
            QAnyValue cell;
            ASSERT_TRUE(table.LookupExact(QAnyValue(row), QAnyValue(col), cell, nullptr, nullptr));
            CString message;
            const bool error = cell.IsErrorAndGetMessage(message);
            errors += !error ? "-" : message.Find(u"empty array") >= 0 ? "E" : U8(message);
        }
    EXPECT_EQ(errors, "E--E");
    ASSERT_TRUE(table.BeginTrans());
    ASSERT_TRUE(table.CommitTrans()) << U8(table.LastError());
    EXPECT_EQ(ReadTable("odd"), text);
}

TEST_F(VltFile, WritesTheCurrentFormByteForByte) {
    QLookupTable table;
    table.CreateNewFile();
    table.SetComment(u"My tabl\u00e9");
    table.Data()->SetSecondComment(u"more");
    ASSERT_TRUE(table.UpdateByIndex(0, 0, QAnyValue(u"say \"hi\"\tthere")));
    // In UTF-8, though the file was opened in a narrow code page.
    EXPECT_EQ(WriteCopy(table, "new", true),
              "My tabl\xc3\xa9\tVltFormat=2.1\tmore\n"
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
    QAnyValue stored;
    ASSERT_TRUE(table.LookupByIndexNoEval(0, 1, stored));
    EXPECT_TRUE(stored.IsType(QAnyValue::TYPE_INT));
}

// The files of roundtrips.txt, written in the current form, read back the same table, and once in
// the current form writing again changes no byte.
TEST_F(VltFile, EachFormRoundTripsThroughTheCurrentForm) {
    for (const std::vector<std::string>& c : test::TableCases("roundtrips.txt")) {
        SCOPED_TRACE(c[0]);
        QLookupTableData::CleanupCache();
        WriteTable("source", c[0]);
        const QLookupTable source = Open("source");
        ASSERT_TRUE(m_opened) << U8(source.LastError());
        const std::string first = WriteCopy(source, "copy");
        EXPECT_NE(first.find("\tVltFormat=2.1\t"), std::string::npos);
        const QLookupTable copy = Open("copy");
        ASSERT_TRUE(m_opened) << U8(copy.LastError());
        EXPECT_EQ(U8(copy.LastError()), "");
        EXPECT_EQ(Types(copy), Types(source));
        EXPECT_EQ(Shape(copy), Shape(source));
        EXPECT_EQ(Comments(copy), Comments(source));
        for (int row = 0; row < 2; ++row)
            for (int col = 0; col < source.Data()->ColCount(); ++col) {
                QAnyValue a;
                QAnyValue b;
                EXPECT_TRUE(source.LookupByIndex(row, col, a, nullptr, nullptr));
                EXPECT_TRUE(copy.LookupByIndex(row, col, b, nullptr, nullptr));
                EXPECT_TRUE(a.Identical(b)) << row << "," << col;
            }
        EXPECT_EQ(WriteCopy(copy, "again"), first);
    }
}

TEST_F(VltFile, CommitWritesTheTableIntoItsFile) {
    WriteTable("commit", "c\tVltFormat=2.1\n2\t1\n\t\"\"\"num\"\"\"\nString\\String\tWhole Number\n"
                         "\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t2\n");
    QLookupTable table = Open("commit");
    ASSERT_TRUE(table.BeginTrans());
    ASSERT_TRUE(table.UpdateByIndex(1, 0, QAnyValue(u"42")));
    ASSERT_TRUE(table.CommitTrans()) << U8(table.LastError());
    EXPECT_EQ(ReadTable("commit"), "c\tVltFormat=2.1\t\n2\t1\n\t\"\"\"num\"\"\"\n"
                                   "String\\String\tWhole Number\n"
                                   "\"\"\"ash\"\"\"\t1\n\"\"\"birch\"\"\"\t42\n");
    EXPECT_EQ(FilesInFolder(), 1) << "nothing is left beside the file";
    EXPECT_FALSE(table.Data()->IsFileOpen());

    // The table stays writable after its transaction; a file that cannot be opened fails the write.
    fs::remove(TablePath("commit"));
    fs::create_directory(TablePath("commit"));
    QFSFile::ClearFileStatusCache();
    EXPECT_FALSE(table.CommitTrans());
    EXPECT_EQ(Message(table, "commit"), "Could not open for writing");
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
    EXPECT_EQ(FilesInFolder(), 1) << "nothing is left beside the file";
}

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

// Lengths that do not survive the current units make the writer ask; without a display the
// questions take their default answers (yes, and the second button: no).
TEST_F(VltFile, AsksWhenTheLengthsDoNotSurviveTheCurrentUnits) {
    const std::string inch = LengthLabels("0.03125 in", "0.0625 in");
    const std::string mm = LengthLabels("10 mm", "20 mm");
    const std::string mixed = LengthLabels("0.0625 in", "10 mm");
    const std::string odd = LengthLabels("1.015625 in", "10.05 mm");
    // Lengths in cells and in column labels count too.
    const std::string cells = "c\tVltFormat=2.1\n1\t1\n\t\"\"\"num\"\"\"\nString\\String\tLength\n"
                              "\"\"\"ash\"\"\"\t0.0625 in\n";
    const std::string heads = "c\tVltFormat=2.1\n1\t1\n\t0.0625 in\nString\\Length\tString\n"
                              "\"\"\"ash\"\"\"\t1\n";
    const struct {
        QLength::LENGTHUNITS current;
        const std::string& text;
        int answer; // 0 for no display
        const char* question;
        const char* token; // empty when nothing is written
    } cases[] = {
        {QLength::LU_INCH, inch, IDCANCEL, "", "0.03125 in"},
        {QLength::LU_MM, inch, IDYES, c_madeInImperial, "0.03125 in"},
        {QLength::LU_MM, inch, IDNO, c_madeInImperial, "0.7937500000000001 mm"},
        {QLength::LU_MM, inch, IDCANCEL, c_madeInImperial, ""},
        {QLength::LU_FOOT, mm, IDNO, c_madeInMetric, "0.03280839895013123 ft"},
        {QLength::LU_MM, mixed, IDYES, c_madeInEither, "1.5875000000000001 mm"},
        {QLength::LU_INCH, odd, IDYES, c_madeInEither, "1.015625 in"},
        {QLength::LU_MM, inch, 0, "", "0.03125 in"},
        {QLength::LU_MM, mixed, 0, "", ""},
        {QLength::LU_MM, cells, IDCANCEL, c_madeInImperial, ""},
        {QLength::LU_MM, heads, IDCANCEL, c_madeInImperial, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text + " answered " + std::to_string(c.answer));
        QLookupTableData::CleanupCache();
        QLength::SetDefaultUnits(c.current);
        WriteTable("units", c.text);
        test::RecordingHost host(c.answer);
        if (c.answer != 0)
            SetUIServices(&host);
        QLookupTable table = Open("units");
        ASSERT_TRUE(m_opened) << U8(table.LastError());
        ASSERT_TRUE(table.BeginTrans());
        EXPECT_EQ(table.CommitTrans(), *c.token != 0);
        SetUIServices(nullptr);
        EXPECT_EQ(host.boxes, std::vector<std::string>(*c.question ? 1 : 0, c.question));
        EXPECT_EQ(QLength::DefaultUnits(), c.current);
        const std::string file = ReadTable("units");
        if (*c.token)
            EXPECT_EQ(FirstRowLabelToken(file), c.token);
        else
            EXPECT_EQ(file, c.text);
    }
}

} // namespace
} // namespace keel
