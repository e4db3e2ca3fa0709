#include "tests/support/program.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

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
