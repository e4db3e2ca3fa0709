#include "tests/support/environment.h"
#include "tests/support/paths.h"
#include "tests/support/program.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace keel::test {
namespace {

namespace fs = std::filesystem;

// Runs of the program and what they give, from the files of tests/tools/cases/. A case is a
// shell command and its expectations, one a line:
//
//     $ command     the command, run by sh in the test's home folder, with `keel` on the PATH,
//                   $DATA the test data folder and $EXAMPLES the bundled examples
//     < text        a line of its standard input
//     > text        a line of its standard output; without these the output is empty, unless
//     >~ text       the output holds the text somewhere
//     ! text        a line of its standard error; without these the error is empty, unless
//     !~ text       the error holds the text somewhere
//     ? N           its exit status, 0 when not given
//     !2 text       a line of what it says about bad usage: the error ends with the line
//                   "Try 'keel help'." and the exit status is 2
//
// In what the command writes, the path of the home folder reads "$HOME". "#" opens a comment line.
// A file whose first line is "# needs: json" runs only when the program reads JSON, and one whose
// first line is "# needs: no json" only when it does not; the other is skipped, saying why.
// The cases of a file run in turn in one home, so that a case may make the files or options that
// the next ones read.

struct ProgramCase {
    int line = 0;
    std::string command;
    std::string input;
    std::vector<std::string> out, err, outParts, errParts;
    int status = 0;
    bool usage = false;
};

fs::path CasesFolder() {
    return fs::path(TestDataFolder()).parent_path() / "tools" / "cases";
}

std::vector<std::string> CaseFiles() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(CasesFolder()))
        if (entry.path().extension() == ".txt")
            names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<ProgramCase> ReadCases(const std::string& name) {
    std::vector<ProgramCase> cases;
    std::istringstream text(ReadText(CasesFolder() / (name + ".txt")));
    int number = 0;
    for (std::string line; std::getline(text, line);) {
        ++number;
        if (line.empty() || line[0] == '#')
            continue;
        const std::string::size_type space = line.find(' ');
        const std::string marker = line.substr(0, space);
        const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
        if (marker == "$") {
            cases.emplace_back();
            cases.back().line = number;
            cases.back().command = rest;
            continue;
        }
        if (cases.empty()) {
            ADD_FAILURE() << name << ":" << number << ": no command before it";
            continue;
        }
        ProgramCase& c = cases.back();
        if (marker == "<")
            c.input += rest + "\n";
        else if (marker == ">")
            c.out.push_back(rest);
        else if (marker == "!")
            c.err.push_back(rest);
        else if (marker == ">~")
            c.outParts.push_back(rest);
        else if (marker == "!~")
            c.errParts.push_back(rest);
        else if (marker == "!2") {
            c.err.push_back(rest);
            c.usage = true;
            c.status = 2;
        } else if (marker == "?")
            c.status = std::stoi(rest);
        else
            ADD_FAILURE() << name << ":" << number << ": unknown line: " << line;
    }
    return cases;
}

std::string Lines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

void ExpectOutput(const std::string& what, const std::string& actual,
                  const std::vector<std::string>& lines, const std::vector<std::string>& parts) {
    if (!lines.empty() || parts.empty()) {
        EXPECT_EQ(actual, Lines(lines)) << what;
    }
    for (const std::string& part : parts)
        EXPECT_NE(actual.find(part), std::string::npos) << what << " lacks: " << part;
}

class ProgramCases : public KeelProgramTest, public testing::WithParamInterface<std::string> {
protected:
    // The home is named after the test, whose name holds a slash: the folder above it goes too.
    void TearDown() override {
        KeelProgramTest::TearDown();
        std::error_code ignored;
        fs::remove(m_home.parent_path(), ignored);
    }

    ProgramOutcome RunCase(const ProgramCase& c) const {
        const fs::path inFile = m_home / ".stdin";
        const fs::path errFile = m_home / ".stderr";
        WriteText(inFile, c.input);
        const std::string setup =
            "cd " + ShellQuoted(m_home.string()) + " && export " + Environment() +
            " PATH=" + ShellQuoted(fs::path(ProgramPath()).parent_path().string()) +
            ":\"$PATH\" DATA=" + ShellQuoted(TestDataFolder()) +
            " EXAMPLES=" + ShellQuoted((fs::path(TestDataFolder()) / "../../examples").string());
        ProgramOutcome outcome =
            Piped(setup + " && (" + c.command + "\n) <" + ShellQuoted(inFile.string()) + " 2>" +
                  ShellQuoted(errFile.string()));
        outcome.err = ReadText(errFile);
        for (std::string* text : {&outcome.out, &outcome.err})
            for (auto at = text->find(m_home.string()); at != std::string::npos;
                 at = text->find(m_home.string(), at))
                text->replace(at, m_home.string().size(), "$HOME");
        return outcome;
    }
};

TEST_P(ProgramCases, GiveWhatTheFileSays) {
    const std::string firstLine = ReadText(CasesFolder() / (GetParam() + ".txt")).substr(0, 20);
    for (const bool json : {true, false}) {
        const std::string needs = json ? "# needs: json\n" : "# needs: no json\n";
        if (firstLine.starts_with(needs) && ProgramReadsJson() != json)
            GTEST_SKIP() << "the cases need a keel built " << (json ? "with" : "without")
                         << " its JSON reader";
    }
    const std::vector<ProgramCase> cases = ReadCases(GetParam());
    ASSERT_FALSE(cases.empty());
    for (const ProgramCase& c : cases) {
        SCOPED_TRACE(GetParam() + ".txt:" + std::to_string(c.line) + ": " + c.command);
        const ProgramOutcome outcome = RunCase(c);
        ExpectOutput("stdout", outcome.out, c.out, c.outParts);
        std::vector<std::string> err = c.err;
        if (c.usage)
            err.push_back("Try 'keel help'.");
        ExpectOutput("stderr", outcome.err, err, c.errParts);
        EXPECT_EQ(outcome.status, c.status);
    }
}

INSTANTIATE_TEST_SUITE_P(Files, ProgramCases, testing::ValuesIn(CaseFiles()),
                         [](const testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace
} // namespace keel::test
