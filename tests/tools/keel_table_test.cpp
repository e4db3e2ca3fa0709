#include "tests/support/environment.h"
#include "tests/support/program.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Outcome = keel::test::ProgramOutcome;

// Sizes 5, 10 and 15 with a price and a grade each.
const std::string c_prices = "Board prices\tVltFormat=2.1\tsecond\n"
                             "3\t2\n"
                             "Size\t\"\"\"Price\"\"\"\t\"\"\"Grade\"\"\"\n"
                             "Whole Number\\String\tMoney\tString\n"
                             "5\t$2.50\t\"\"\"A\"\"\"\n"
                             "10\t$4.00\t\"\"\"B\"\"\"\n"
                             "15\t$5.75\t\"\"\"A\"\"\"\n";

class KeelTableProgram : public keel::test::KeelProgramTest {
protected:
    std::string Table(const std::string& name, const std::string& text) const {
        return FileOfTest("tables/" + name, text);
    }
    std::string TablesFolder() const { return (m_home / "tables").string(); }
};

TEST_F(KeelTableProgram, ShowPrintsTheCommentCountsHeadingsTypesAndRows) {
    const Outcome outcome = Run({"table", "show", Table("prices.vlt", c_prices)});
    EXPECT_EQ(outcome.out, "Board prices\n"
                           "3 rows, 2 columns, rows sorted\n"
                           "Size\tPrice\tGrade\n"
                           "Whole Number\\String\tMoney\tString\n"
                           "5\t$2.50\tA\n"
                           "10\t$4.00\tB\n"
                           "15\t$5.75\tA\n")
        << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelTableProgram, LookupFindsByNearestMatchUnlessExactIsAsked) {
    const std::string file = Table("prices.vlt", c_prices);
    struct Case {
        std::vector<std::string> words;
        std::string out;
        int status;
    };
    const Case cases[] = {
        {{"7", "Price"}, "Money\t$4.00\n", 0}, {{"15", "Grade"}, "String\tA\n", 0},
        {{"5", "price"}, "Money\t$2.50\n", 0}, {{"16", "Price"}, "", 1},
        {{"7", "Price", "--exact"}, "", 1},    {{"10", "Price", "--exact"}, "Money\t$4.00\n", 0},
    };
    for (const Case& c : cases) {
        std::vector<std::string> words = {"table", "lookup", file};
        words.insert(words.end(), c.words.begin(), c.words.end());
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.out, c.out) << c.words[0] << " " << c.words[1] << "\n" << outcome.err;
        EXPECT_EQ(outcome.status, c.status) << c.words[0] << " " << c.words[1];
        if (c.status == 1) {
            EXPECT_NE(outcome.err.find("no cell at row"), std::string::npos) << outcome.err;
        }
    }
}

TEST_F(KeelTableProgram, CheckReadsEveryRowAndFailsOnlyOnAFatalMessage) {
    const Outcome good = Run({"table", "check", Table("prices.vlt", c_prices)});
    EXPECT_EQ(good.out, "3 rows, 2 columns: readable\n") << good.err;
    EXPECT_EQ(good.status, 0);

    std::string badCell = c_prices;
    badCell.replace(badCell.find("$4.00"), 5, "nosuchname");
    const Outcome reported = Run({"table", "check", Table("badcell.vlt", badCell)});
    EXPECT_EQ(reported.status, 0) << reported.err;
    EXPECT_NE(reported.err.find("Bad value at row 2 column 1"), std::string::npos) << reported.err;

    std::string extraHeading = c_prices;
    extraHeading.replace(extraHeading.find("\"\"\"Grade\"\"\""), 11,
                         "\"\"\"Grade\"\"\"\t\"\"\"Colour\"\"\"");
    const Outcome fatal = Run({"table", "check", Table("headings.vlt", extraHeading)});
    EXPECT_EQ(fatal.status, 1);
    EXPECT_EQ(fatal.out, "");
    EXPECT_NE(fatal.err.find("Too many column headings"), std::string::npos) << fatal.err;

    const Outcome missing = Run({"table", "check", (m_home / "none.vlt").string()});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("cannot read the table"), std::string::npos) << missing.err;
}

TEST_F(KeelTableProgram, ConvertRewritesEveryTableOfTheFolderAndCountsFailures) {
    // The older form: no version word, no line of types.
    Table("old/plain.vlt", "Old prices\n2\t1\nSize\t\"\"\"Price\"\"\"\n1\t$1.00\n2\t$2.00\n");
    Table("current.vlt", c_prices);
    const Outcome outcome = Run({"table", "convert", TablesFolder()});
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_NE(outcome.out.find("Converted 2 files"), std::string::npos) << outcome.out;
    const Outcome shown = Run({"table", "show", TablesFolder() + "/old/plain.vlt"});
    EXPECT_NE(shown.out.find("Whole Number\\String\tMoney\n"), std::string::npos) << shown.out;

    Table("broken.vlt", "Broken\n-1\t1\n");
    const Outcome withFailure = Run({"table", "convert", TablesFolder()});
    EXPECT_EQ(withFailure.status, 1);
    EXPECT_NE(withFailure.out.find("Failed to convert 1 files."), std::string::npos)
        << withFailure.out;
}

std::string Vlt(const std::string& headings, const std::string& types, const std::string& rows,
                int rowCount) {
    return "c\tVltFormat=2.1\t\n" + std::to_string(rowCount) + "\t1\nd\t" + headings + "\n" +
           types + "\n" + rows;
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Each table is converted three times in a batch after a table with the same labels in another
// case; what `show` prints must not change, and what the file holds afterwards is checked.
TEST_F(KeelTableProgram, ConvertKeepsEveryValueAsItWasRead) {
    struct Case {
        std::string name;
        std::string text;
        std::string written; // a part of the file after conversion
    };
    const Case cases[] = {
        {"date",
         Vlt("\"\"\"When\"\"\"", "String\\String\tDate and Time",
             "\"\"\"a\"\"\"\t\"\"\"2020-02-01\"\"\"\n", 1),
         "\"\"\"2020-02-01\"\"\""},
        {"lower",
         Vlt("\"\"\"P\"\"\"", "String\\String\tNumber", "\"\"\"a\"\"\"\t1\n\"\"\"b\"\"\"\t2\n", 2),
         "\"\"\"a\"\"\"\t1\n\"\"\"b\"\"\""},
        {"pi",
         Vlt("\"\"\"P\"\"\"", "String\\String\tNumber", "\"\"\"x\"\"\"\t3.14159265358979\n", 1),
         "\t3.14159265358979\n"},
        {"tiny", Vlt("\"\"\"P\"\"\"", "String\\String\tNumber", "\"\"\"x\"\"\"\t0.00000012\n", 1),
         "\t0.00000012\n"},
        {"feet", Vlt("\"\"\"P\"\"\"", "String\\String\tLength", "\"\"\"x\"\"\"\t1 ft\n", 1),
         "\t304.8 mm\n"},
        {"feetinnumbers",
         Vlt("\"\"\"P\"\"\"", "String\\String\tNumber", "\"\"\"x\"\"\"\t1 ft\n", 1),
         "\t304.8 mm\n"},
        {"fraction",
         Vlt("\"\"\"P\"\"\"", "String\\String\tWhole Number", "\"\"\"x\"\"\"\t2.5\n", 1),
         "\t2.5\n"},
    };
    for (const Case& c : cases) {
        std::filesystem::remove_all(TablesFolder());
        Table("a/upper.vlt", Vlt("\"\"\"P\"\"\"", "String\\String\tNumber",
                                 "\"\"\"A\"\"\"\t1\n\"\"\"B\"\"\"\t2\n", 2));
        const std::string file = Table("b/" + c.name + ".vlt", c.text);
        const Outcome before = Run({"table", "show", file});
        for (int run = 0; run < 3; ++run) {
            const Outcome converted = Run({"table", "convert", TablesFolder()});
            EXPECT_EQ(converted.status, 0) << c.name << "\n" << converted.out << converted.err;
        }
        const Outcome after = Run({"table", "show", file});
        EXPECT_EQ(after.out, before.out) << c.name;
        EXPECT_TRUE(Has(keel::test::ReadText(file), c.written)) << c.name << "\n"
                                                                << keel::test::ReadText(file);
    }
}

TEST_F(KeelTableProgram, ConvertLeavesATableWithCellsThatDoNotReadByteForByte) {
    const std::string cells[] = {"foo", "(", "\xff\xfe\x80", "1 +* ]] junk"};
    for (const std::string& cell : cells) {
        std::filesystem::remove_all(TablesFolder());
        const std::string text =
            Vlt("\"\"\"P\"\"\"", "String\\String\tNumber", "\"\"\"x\"\"\"\t" + cell + "\n", 1);
        const std::string file = Table("junk.vlt", text);
        Table("good.vlt", c_prices);
        const Outcome outcome = Run({"table", "convert", TablesFolder()});
        EXPECT_EQ(outcome.status, 1) << cell;
        EXPECT_EQ(keel::test::ReadText(file), text) << cell;
        EXPECT_TRUE(Has(outcome.out, "Converted 1 files")) << cell << "\n" << outcome.out;
        EXPECT_TRUE(Has(outcome.err, "not converted: " + file + ": Bad value at row 1 column 1"))
            << cell << "\n"
            << outcome.err;
        EXPECT_TRUE(Has(outcome.err, "error log: " + (m_home / "data/keel/Logs/").string()))
            << outcome.err;
    }
}

TEST_F(KeelTableProgram, ConvertWritesThroughASymbolicLinkKeepingModeAndOwner) {
    const std::string real = Table("real/prices.vlt", c_prices);
    ASSERT_EQ(::chmod(real.c_str(), 0640), 0);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(real.c_str(), 12345, 23456), 0);
    }
    std::filesystem::create_directories(TablesFolder() + "/links");
    const std::filesystem::path link = TablesFolder() + "/links/prices.vlt";
    std::filesystem::create_symlink(real, link);
    std::filesystem::remove(TablesFolder() + "/real/prices.vlt.bak");
    const Outcome outcome = Run({"table", "convert", TablesFolder() + "/links"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(std::filesystem::read_symlink(link), real);
    struct stat status {};
    ASSERT_EQ(::stat(real.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    if (root) {
        EXPECT_EQ(status.st_uid, 12345u);
        EXPECT_EQ(status.st_gid, 23456u);
    }
    EXPECT_TRUE(Has(keel::test::ReadText(real), "\t\"\"\"Grade\"\"\"\n"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(TablesFolder() + "/real"),
                            std::filesystem::directory_iterator()),
              1);
}

TEST_F(KeelTableProgram, ConvertOfSomethingThatIsNoFolderIsBadUsage) {
    const std::string file = Table("prices.vlt", c_prices);
    for (const std::string& folder : {TablesFolder() + "/nosuch", file}) {
        const Outcome outcome = Run({"table", "convert", folder});
        EXPECT_EQ(outcome.status, 2) << folder;
        EXPECT_FALSE(Has(outcome.out, "Converted")) << outcome.out;
    }
}

// Every message once, on one line, without the wording of a box.
TEST_F(KeelTableProgram, MessagesArePrintedOnceOnOneLineWithTheirReason) {
    const std::string badLabel =
        Table("badlabel.vlt", Vlt("P", "String\\String\tNumber", "\"\"\"x\"\"\"\tfoo\n", 1));
    Table("folder.vlt/inside.vlt", c_prices);
    const std::string locked = Table("locked.vlt", c_prices);
    struct Case {
        std::vector<std::string> words;
        std::string message;
        int status;
    };
    const Case cases[] = {
        {{"table", "check", badLabel}, "keel: " + badLabel + ": Bad column 1 label\n", 0},
        {{"table", "show", TablesFolder() + "/folder.vlt"}, "Could not open (it is a folder)", 1},
        {{"table", "check", locked}, "Could not open (it is locked by another process)", 1},
        {{"table", "show", Table("tabs.vlt", "a\tb\tc")}, "Cannot read row/col counts line", 1},
    };
    const int holder = ::open(locked.c_str(), O_RDWR);
    ASSERT_GE(holder, 0);
    ASSERT_EQ(::flock(holder, LOCK_EX), 0);
    for (const Case& c : cases) {
        const Outcome outcome = Run(c.words);
        EXPECT_EQ(outcome.status, c.status) << c.words[2];
        const std::size_t first = outcome.err.find(c.message);
        EXPECT_NE(first, std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.err.find(c.message, first + 1), std::string::npos) << outcome.err;
        EXPECT_FALSE(Has(outcome.err, "Change error reporting")) << outcome.err;
        EXPECT_FALSE(Has(outcome.err, "\\n")) << outcome.err;
        EXPECT_FALSE(Has(outcome.err, "\t")) << outcome.err;
    }
    ::close(holder);
}

// A tab in a cell, or in the message of a cell that did not read, is shown as \t.
TEST_F(KeelTableProgram, ShowEscapesTabsInItsCells) {
    const Outcome outcome =
        Run({"table", "show",
             Table("tabs.vlt", Vlt("\"\"\"P\"\"\"", "String\\String\tString",
                                   "\"\"\"x\"\"\"\t\"\"\"a\\tb\"\"\"\n\"\"\"y\"\"\"\tfoo\n", 2))});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(Has(outcome.out, "x\ta\\tb\ny\tUnknown name foo")) << outcome.out;
}

TEST_F(KeelTableProgram, FormulasFindTablesByNameInTheTableFolder) {
    Table("prices.vlt", c_prices);
    const Outcome outcome =
        Run({"eval", "--table-dir", TablesFolder(), "lookup(\"prices\", 7, \"Price\")",
             "rowcount(\"prices\")", "lookup(\"nosuch\", 7, \"Price\", 0)"});
    EXPECT_EQ(outcome.out, "Money\t$4.00\nWhole Number\t3\nWhole Number\t0\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelTableProgram, BadUsageSaysHowTableIsCalled) {
    for (const std::vector<std::string>& words : {std::vector<std::string>{"table"},
                                                  {"table", "show"},
                                                  {"table", "lookup", "a.vlt", "1"},
                                                  {"table", "frobnicate", "x"}}) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_NE(outcome.err.find("table takes: show FILE"), std::string::npos) << outcome.err;
    }
}

} // namespace
