#include "tests/support/paths.h"
#include "tests/support/program.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace keel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int c_maxArguments = 7;
constexpr const char* c_countMessage = "correct number of values";

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

// Counts inside a function's range that it does not take: the label lists of two tests take
// three, five or seven values.
bool TakesCount(const std::string& name, int count) {
    if (name == "rowlabelsforcol2" || name == "collabelsforrow2")
        return count % 2 == 1;
    return true;
}

class KeelHelpFunctions : public KeelProgramTest {
protected:
    // `keel` run in the test's home, so that what the functions write stays there.
    ProgramOutcome RunAtHome(const std::vector<std::string>& words) const {
        return Run(words, "", "cd " + ShellQuoted(m_home.string()) + " && ");
    }

    // The functions listed, and the size of the known-function map that the list states.
    std::vector<Listed> ListedFunctions(int& knownCount) const {
        const ProgramOutcome outcome = RunAtHome({"help", "functions"});
        EXPECT_EQ(outcome.status, 0);
        static const std::regex function(
            R"(^  ([A-Za-z_0-9]+)\((.*)\) +(\d+)(?:-(\d+)|( or more))?(  action)?(  \(the application's\))?$)");
        static const std::regex known(R"(^== The known-function map: (\d+) names ==$)");
        std::vector<Listed> listed;
        bool ownArguments = false;
        std::istringstream lines(outcome.out);
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
        std::vector<std::string> messages;
        std::istringstream lines(RunAtHome(words).out);
        for (std::string line; std::getline(lines, line);)
            messages.push_back(line.find("\"ok\":true") != std::string::npos ? "" : line);
        return messages;
    }
};

// The list names every group's functions with their counts, and states the size of the map of
// the functions that do not parse their own arguments.
TEST_F(KeelHelpFunctions, ListsEveryGroupWithItsArgumentsAndCountsTheMap) {
    int knownCount = -1;
    const std::vector<Listed> listed = ListedFunctions(knownCount);
    std::set<std::string> names;
    std::set<std::string> inMap;
    for (const Listed& entry : listed) {
        names.insert(entry.name);
        if (!entry.parsesOwnArguments)
            inMap.insert(entry.name);
    }
    EXPECT_EQ(static_cast<int>(inMap.size()), knownCount);
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

// For every listed name, each count it takes gets past the dispatcher's count check, and a count
// it does not take is refused with "correct number of values". A name reserved for applications
// has no body here, so every count is refused.
TEST_F(KeelHelpFunctions, TheListAndTheDispatcherAgreeOnTheCounts) {
    int knownCount = -1;
    const std::vector<Listed> listed = ListedFunctions(knownCount);
    ASSERT_FALSE(listed.empty());
    std::vector<std::string> formulas;
    std::vector<bool> refused;
    const auto probe = [&](const std::string& formula, bool refuses) {
        formulas.push_back(formula);
        refused.push_back(refuses);
    };
    for (const Listed& entry : listed) {
        const int last =
            entry.maxArgs < 0 ? std::min(entry.minArgs + 2, c_maxArguments) : entry.maxArgs;
        for (int count = entry.minArgs; count <= last; ++count)
            probe(CallOf(entry.name, count), entry.application || !TakesCount(entry.name, count));
        if (entry.parsesOwnArguments || entry.maxArgs < 0)
            continue;
        if (entry.maxArgs < c_maxArguments)
            probe(CallOf(entry.name, entry.maxArgs + 1), true);
        if (entry.minArgs > 0)
            probe(CallOf(entry.name, entry.minArgs - 1), true);
    }
    const std::vector<std::string> messages = Messages(formulas);
    ASSERT_EQ(messages.size(), formulas.size());
    for (std::size_t i = 0; i < formulas.size(); ++i) {
        if (refused[i])
            EXPECT_THAT(messages[i], HasSubstr(c_countMessage)) << formulas[i];
        else
            EXPECT_THAT(messages[i], Not(HasSubstr(c_countMessage))) << formulas[i];
    }
}

} // namespace
} // namespace keel::test
