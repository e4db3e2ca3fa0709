#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

namespace {

struct Outcome {
    std::string out;
    int status = -1;
};

// Runs the built program with a shell; `env` holds assignments put before it.
Outcome RunKeel(const std::string& args, const std::string& env = "") {
    const std::string command = env + " '" KEEL_PROGRAM "' " + args + " 2>&1";
    Outcome outcome;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return outcome;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        outcome.out.append(buffer, n);
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

class KeelProgram : public testing::Test {
protected:
    void SetUp() override {
        m_home = std::filesystem::temp_directory_path() /
                 ("keel-program-" + std::to_string(::getpid()) + "-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(m_home);
        std::filesystem::create_directories(m_home / "config" / "keel");
    }
    void TearDown() override { std::filesystem::remove_all(m_home); }

    std::string Env() const {
        return "HOME='" + m_home.string() + "' XDG_CONFIG_HOME='" + (m_home / "config").string() +
               "' XDG_DATA_HOME='" + (m_home / "data").string() + "' LC_ALL=C";
    }
    void StoreOptions(const std::string& text) const {
        std::ofstream(m_home / "config" / "keel" / "Keel.ini") << text;
    }

    std::filesystem::path m_home;
};

const std::string c_data = KEEL_TEST_DATA;

TEST_F(KeelProgram, HelpListsTheCommandsAndBadUsageExitsWithTwo) {
    const Outcome help = RunKeel("help", Env());
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"complete", "options", "translate", "demo", "--version"})
        EXPECT_NE(help.out.find(command), std::string::npos) << command;
    EXPECT_EQ(RunKeel("", Env()).status, 2);
    const Outcome unknown = RunKeel("frobnicate", Env());
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.out.find("unknown command 'frobnicate'"), std::string::npos);
    EXPECT_EQ(RunKeel("--version", Env()).out.rfind("keel ", 0), 0u);
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
        const Outcome outcome = RunKeel("complete " + c.args, Env());
        EXPECT_EQ(outcome.status, c.status) << c.args;
        if (c.status != 2) {
            EXPECT_EQ(outcome.out, c.out) << c.args;
        }
    }
}

TEST_F(KeelProgram, OptionsShowStoredValuesAndDefaults) {
    StoreOptions("[Options]\nLengthUnits=5\nIconNum=4\n[View]\nZoom=150%\n");
    const Outcome outcome = RunKeel("options", Env());
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
        const Outcome outcome = RunKeel("translate" + c.args + " 2>/dev/null", Env());
        EXPECT_EQ(outcome.status, 0) << c.args;
        EXPECT_EQ(outcome.out, c.out) << c.args;
    }
}

TEST_F(KeelProgram, ABadTranslationIsReportedAndTheOriginalUsed) {
    const Outcome outcome = RunKeel("translate --file '" + c_data +
                                        "/translations/translations_fr.txt' 'Too many %s' x",
                                    Env());
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.rfind("Too many %s\n", 0), 0u) << outcome.out;
    EXPECT_NE(outcome.out.find("Invalid translation - wrong number of format specifiers"),
              std::string::npos)
        << outcome.out;
    EXPECT_TRUE(std::filesystem::exists(m_home / "data" / "keel" / "Logs"));
}

TEST_F(KeelProgram, DemoInternsCompletesAndCombinesUnits) {
    const Outcome outcome =
        RunKeel("demo --words '" + c_data + "/../../examples/estimating-words.txt'", Env());
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    for (const char* line : {"PropId My_Var_2", "wi     Width Window_Count Window_Height",
                             "Length 2400 * Length 3500 = Area 8.40",
                             "Whole Number 1 / Whole Number 0 = #ERR! \"Division by zero\""})
        EXPECT_NE(outcome.out.find(line), std::string::npos) << line << "\n" << outcome.out;
}

TEST_F(KeelProgram, TranslateRefusesAMissingFile) {
    const Outcome outcome = RunKeel("translate --file /no/such/file Open x", Env());
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("cannot read the translation file"), std::string::npos);
    EXPECT_EQ(RunKeel("translate Open x", Env()).status, 2);
}

} // namespace
