#include "tests/support/program.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

namespace {

using Outcome = keel::test::ProgramOutcome;

class KeelProgram : public keel::test::KeelProgramTest {};

const std::string c_data = KEEL_TEST_DATA;

TEST_F(KeelProgram, HelpListsTheCommandsAndBadUsageExitsWithTwo) {
    const Outcome help = RunMerged("help");
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"complete", "options", "translate", "demo", "--version"})
        EXPECT_NE(help.out.find(command), std::string::npos) << command;
    EXPECT_EQ(RunMerged("").status, 2);
    const Outcome unknown = RunMerged("frobnicate");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.out.find("unknown command 'frobnicate'"), std::string::npos);
    EXPECT_EQ(RunMerged("--version").out.rfind("keel ", 0), 0u);
}

TEST_F(KeelProgram, CompleteOffersTheNthNameOfTheWordsFile) {
    const std::string words = " --words '" + c_data + "/words/estimating.txt'";
    struct Case {
        std::string args;
        std::string out;
        int status;
    };
    const Case cases[] = {
        {"wi" + words, "Width\n", 0},
        {"WI 1" + words, "Window_Height\n", 0},
        {"wi 2" + words, "Window_Width\n", 0},
        {"wi 3" + words, "Width\n", 0}, // wraps round the three matches
        {"win" + words, "Window_Height\n", 0},
        {"zz" + words, "keel: no completion for 'zz'\n", 1},
        {"9a" + words, "keel: no completion for '9a'\n", 1},
        {"wi -1" + words, "", 2},
        {"wi", "", 2},
        {"wi --words /no/such/file", "keel: cannot read the words file '/no/such/file'\n", 1},
    };
    for (const Case& c : cases) {
        const Outcome outcome = RunMerged("complete " + c.args);
        EXPECT_EQ(outcome.status, c.status) << c.args;
        if (c.status != 2) {
            EXPECT_EQ(outcome.out, c.out) << c.args;
        }
    }
}

TEST_F(KeelProgram, OptionsShowStoredValuesAndDefaults) {
    StoreOptions("[Options]\nLengthUnits=5\nIconNum=4\n[View]\nZoom=150%\n");
    const Outcome outcome = RunMerged("options");
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    for (const char* line :
         {"[Options] IconNum = 4 (stored)", "[View] ShowGrid = 0 (default)",
          "[View] Zoom = \"150%\" (stored)",
          "length 5 (stored), area 6 (default), volume 6 (default)", "Table Folder"})
        EXPECT_NE(outcome.out.find(line), std::string::npos) << line << "\n" << outcome.out;
}

TEST_F(KeelProgram, TranslateUsesTheFileAndItsContexts) {
    const std::string file = " --file '" + c_data + "/translations/translations_fr.txt' ";
    struct Case {
        std::string args;
        std::string out;
    };
    const Case cases[] = {
        {file + "Open 'Anything'", "Ouvrir\n"},
        {file + "Close 'Dialog item'", "Fermer\n"},
        {file + "Close 'Message box (fileName)'", "Fermeture\n"},
        {file + "--qualifier coil Spring x", "Ressort\n"},
        {file + "Untranslated x", "Untranslated\n"},
    };
    for (const Case& c : cases) {
        const Outcome outcome = RunMerged("translate" + c.args + " 2>/dev/null");
        EXPECT_EQ(outcome.status, 0) << c.args;
        EXPECT_EQ(outcome.out, c.out) << c.args;
    }
}

TEST_F(KeelProgram, ABadTranslationIsReportedAndTheOriginalUsed) {
    const Outcome outcome = RunMerged("translate --file '" + c_data +
                                      "/translations/translations_fr.txt' 'Too many %s' x");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.rfind("Too many %s\n", 0), 0u) << outcome.out;
    EXPECT_NE(outcome.out.find("Invalid translation - wrong number of format specifiers"),
              std::string::npos)
        << outcome.out;
    EXPECT_TRUE(std::filesystem::exists(m_home / "data" / "keel" / "Logs"));
}

TEST_F(KeelProgram, DemoInternsCompletesAndCombinesUnits) {
    const Outcome outcome =
        RunMerged("demo --words '" + c_data + "/../../examples/estimating-words.txt'");
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    for (const char* line : {"PropId My_Var_2", "wi     Width Window_Count Window_Height",
                             "Length 2400 * Length 3500 = Area 8.40",
                             "Whole Number 1 / Whole Number 0 = #ERR! \"Division by zero\""})
        EXPECT_NE(outcome.out.find(line), std::string::npos) << line << "\n" << outcome.out;
}

TEST_F(KeelProgram, TranslateRefusesAMissingFile) {
    const Outcome outcome = RunMerged("translate --file /no/such/file Open x");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("cannot read the translation file"), std::string::npos);
    EXPECT_EQ(RunMerged("translate Open x").status, 2);
}

} // namespace
