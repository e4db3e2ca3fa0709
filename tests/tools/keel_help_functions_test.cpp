#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr int c_maxArguments = 7;
constexpr const char* c_countMessage = "correct number of values";

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char ch : text)
        quoted += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
    return quoted + "'";
}

// One function as `keel help functions` lists it.
struct Listed {
    std::string name;
    int minArgs = 0;
    int maxArgs = 0; // -1: any number
    bool action = false;
    bool application = false;
    bool parsesOwnArguments = false;
};

// A call of the function with `count` arguments, each 1.
std::string CallOf(const std::string& name, int count) {
    std::string call = name + "(";
    for (int i = 0; i < count; ++i)
        call += i == 0 ? "1" : ", 1";
    return call + ")";
}

// Runs `keel` in a home of its own, so that what the functions write stays there.
class KeelHelpFunctions : public testing::Test {
protected:
    void SetUp() override {
        m_home = fs::temp_directory_path() /
                 ("keel-help-functions-" + std::to_string(::getpid()) + "-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_home);
        fs::create_directories(m_home / "config");
    }
    void TearDown() override { fs::remove_all(m_home); }

    std::string Run(const std::vector<std::string>& words, int& status) const {
        std::string command = "cd " + Quoted(m_home.string()) +
                              " && HOME=" + Quoted(m_home.string()) +
                              " XDG_CONFIG_HOME=" + Quoted((m_home / "config").string()) +
                              " XDG_DATA_HOME=" + Quoted((m_home / "data").string()) +
                              " LC_ALL=C " + Quoted(KEEL_PROGRAM);
        for (const std::string& word : words)
            command += " " + Quoted(word);
        command += " </dev/null 2>/dev/null";
        std::string out;
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe)
            return out;
        char buffer[4096];
        for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            out.append(buffer, n);
        const int result = pclose(pipe);
        status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
        return out;
    }

    // The functions listed, and the size of the known-function map that the list states.
    std::vector<Listed> ListedFunctions(int& knownCount) const {
        int status = -1;
        const std::string out = Run({"help", "functions"}, status);
        EXPECT_EQ(status, 0);
        static const std::regex function(
            R"(^  ([A-Za-z_0-9]+)\((.*)\) +(\d+)(?:-(\d+)|( or more))?(  action)?(  \(the application's\))?$)");
        static const std::regex known(R"(^== The known-function map: (\d+) names ==$)");
        std::vector<Listed> listed;
        bool ownArguments = false;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            std::smatch match;
            if (line == "== Parsing their own arguments ==") {
                ownArguments = true;
            } else if (std::regex_match(line, match, known)) {
                ownArguments = false;
                knownCount = std::stoi(match[1]);
            } else if (std::regex_match(line, match, function)) {
                Listed entry;
                entry.name = match[1];
                entry.minArgs = std::stoi(match[3]);
                entry.maxArgs = match[4].matched   ? std::stoi(match[4])
                                : match[5].matched ? -1
                                                   : entry.minArgs;
                entry.action = match[6].matched;
                entry.application = match[7].matched;
                entry.parsesOwnArguments = ownArguments;
                listed.push_back(entry);
            } else {
                EXPECT_TRUE(line.empty() || line[0] != ' ') << "unread line: " << line;
            }
        }
        return listed;
    }

    // The messages of `keel eval --json`, one a formula, in order; "" for a formula that
    // evaluated.
    std::vector<std::string> Messages(const std::vector<std::string>& formulas) const {
        std::vector<std::string> words = {"eval", "--json", "--"};
        words.insert(words.end(), formulas.begin(), formulas.end());
        int status = -1;
        const std::string out = Run(words, status);
        std::vector<std::string> messages;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);)
            messages.push_back(line.find("\"ok\":true") != std::string::npos ? "" : line);
        return messages;
    }

    fs::path m_home;
};

TEST_F(KeelHelpFunctions, ListsEveryGroupWithItsArguments) {
    int knownCount = -1;
    const std::vector<Listed> listed = ListedFunctions(knownCount);
    std::set<std::string> names;
    for (const Listed& entry : listed)
        names.insert(entry.name);
    for (const char* name : {"iff", "sum", "count", "setarrayvalue", "readfile", "setvalue",
                             "shellwait", "msgbox", "edittext", "report", "writehostdxf"})
        EXPECT_TRUE(names.contains(name)) << name;
    const auto setvalue = std::find_if(
        listed.begin(), listed.end(), [](const Listed& entry) { return entry.name == "setvalue"; });
    ASSERT_NE(setvalue, listed.end());
    EXPECT_TRUE(setvalue->action);
    EXPECT_EQ(setvalue->minArgs, 2);
    EXPECT_EQ(setvalue->maxArgs, 2);
}

TEST_F(KeelHelpFunctions, TheStatedCountIsTheNumberOfNamesInTheMap) {
    int knownCount = -1;
    const std::vector<Listed> listed = ListedFunctions(knownCount);
    std::set<std::string> inMap;
    for (const Listed& entry : listed)
        if (!entry.parsesOwnArguments)
            inMap.insert(entry.name);
    EXPECT_EQ(static_cast<int>(inMap.size()), knownCount);
}

// Counts inside a function's range that it does not take: the label lists of two tests take
// three, five or seven values.
bool TakesCount(const std::string& name, int count) {
    if (name == "rowlabelsforcol2" || name == "collabelsforrow2")
        return count % 2 == 1;
    return true;
}

// For every listed name, each count it takes gets past the dispatcher's count check, and a count
// it does not take is refused with "correct number of values". A name reserved for applications
// has no body here, so every count is refused.
TEST_F(KeelHelpFunctions, TheListAndTheDispatcherAgreeOnTheCounts) {
    int knownCount = -1;
    const std::vector<Listed> listed = ListedFunctions(knownCount);
    ASSERT_FALSE(listed.empty());
    struct Probe {
        std::string formula;
        bool refused;
    };
    std::vector<Probe> probes;
    for (const Listed& entry : listed) {
        const int last =
            entry.maxArgs < 0 ? std::min(entry.minArgs + 2, c_maxArguments) : entry.maxArgs;
        for (int count = entry.minArgs; count <= last; ++count)
            probes.push_back(
                {CallOf(entry.name, count), entry.application || !TakesCount(entry.name, count)});
        if (entry.parsesOwnArguments || entry.maxArgs < 0)
            continue;
        if (entry.maxArgs < c_maxArguments)
            probes.push_back({CallOf(entry.name, entry.maxArgs + 1), true});
        if (entry.minArgs > 0)
            probes.push_back({CallOf(entry.name, entry.minArgs - 1), true});
    }
    std::vector<std::string> formulas;
    for (const Probe& probe : probes)
        formulas.push_back(probe.formula);
    const std::vector<std::string> messages = Messages(formulas);
    ASSERT_EQ(messages.size(), probes.size());
    for (std::size_t i = 0; i < probes.size(); ++i) {
        if (probes[i].refused)
            EXPECT_THAT(messages[i], HasSubstr(c_countMessage)) << probes[i].formula;
        else
            EXPECT_THAT(messages[i], Not(HasSubstr(c_countMessage))) << probes[i].formula;
    }
}

TEST_F(KeelHelpFunctions, TakesNoFurtherArguments) {
    int status = -1;
    Run({"help", "functions", "extra"}, status);
    EXPECT_EQ(status, 2);
}

} // namespace
