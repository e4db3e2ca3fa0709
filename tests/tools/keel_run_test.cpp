#include "tests/support/environment.h"
#include "tests/support/program.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using keel::test::ReadText;
using keel::test::WriteText;

using Outcome = keel::test::ProgramOutcome;

const std::string c_examples = std::string(KEEL_TEST_DATA) + "/../../examples/";

// Runs `keel run` on the given words in a home of its own.
class KeelRunProgram : public keel::test::KeelProgramTest {
protected:
    Outcome Run(std::vector<std::string> words) const {
        words.insert(words.begin(), "run");
        return KeelProgramTest::Run(words);
    }

    // A formula file of this test's own.
    std::string Script(const std::string& text) const {
        const std::filesystem::path path = m_home / "script.keel";
        WriteText(path, text);
        return path.string();
    }
};

TEST_F(KeelRunProgram, TheFileIsOneBlockOfStatementsAndItsValueIsTheLastOne) {
    const Outcome outcome = Run({Script("// a board in three\n"
                                        "board := 2.4 m;\n"
                                        "piece := board / 3;\n"
                                        "\n"
                                        "piece * 2\n")});
    EXPECT_EQ(outcome.out, "Length\t1600\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
}

TEST_F(KeelRunProgram, LoopsAndConditionsRunAcrossLines) {
    const Outcome outcome = Run({Script("total := 0;\n"
                                        "for i = 1 to 4 do\n"
                                        "    if i > 2 then total := total + i endif\n"
                                        "next;\n"
                                        "total\n")});
    EXPECT_EQ(outcome.out, "Whole Number\t7\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelRunProgram, AnEmptyFileHasAnEmptyValue) {
    const Outcome outcome = Run({Script("")});
    EXPECT_EQ(outcome.out, "<none>\t\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelRunProgram, SetGivesTheFileItsProperties) {
    const Outcome outcome =
        Run({c_examples + "room-estimate.keel", "--set", "length=5.2 m", "--set", "width=3.8 m"});
    EXPECT_EQ(outcome.out, "Money\t$1,000.87\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelRunProgram, OptionsMayComeBeforeTheFile) {
    const Outcome outcome = Run({"--set", "length=4 m", "--set", "width=length / 2",
                                 "--length-units", "7", c_examples + "room-estimate.keel"});
    EXPECT_EQ(outcome.out, "Money\t$432.67\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelRunProgram, AFailureNamesTheFileAndExitsWithOne) {
    const std::string path = c_examples + "room-estimate.keel";
    const Outcome outcome = Run({path, "--set", "length=5.2 m"});
    EXPECT_EQ(outcome.out, "#ERR!\t#ERR!\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "keel: cannot evaluate '" + path + "'\nUnknown name\n\twidth\n");
}

TEST_F(KeelRunProgram, ActionStatementsNeedTheActionOption) {
    const std::vector<std::string> words = {c_examples + "board-cutting.keel", "--set",
                                            "board=2.4 m", "--set",
                                            "pieces=[700 mm, 1.2 m, 900 mm, 650 mm, 2 m]"};
    const Outcome refused = Run(words);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "#ERR!\t#ERR!\n");
    EXPECT_NE(refused.err.find("Only allowed in an action field"), std::string::npos)
        << refused.err;

    std::vector<std::string> action = words;
    action.push_back("--action");
    const Outcome cut = Run(action);
    EXPECT_EQ(cut.out, "Whole Number\t3\n") << cut.err;
    EXPECT_EQ(cut.status, 0);
}

TEST_F(KeelRunProgram, UnitOptionsApplyAsInEval) {
    const std::string script = Script("2 ft + 3.5 in");
    EXPECT_EQ(Run({script}).out, "Length\t698.5\n");
    EXPECT_EQ(Run({"--length-units", "5", script}).out, "Length\t27 1/2\n");
}

TEST_F(KeelRunProgram, JsonCarriesTheFileTextAsTheFormula) {
    const Outcome outcome = Run({"--json", Script("x := 2;\nx * 3")});
    EXPECT_EQ(outcome.out, R"({"formula":"x := 2;\nx * 3","ok":true,"message":"",)"
                           R"("type":"Whole Number","typeNumber":3,"text":"6","raw":6})"
                           "\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelRunProgram, AFileThatCannotBeReadExitsWithTwo) {
    const std::string missing = (m_home / "no-such.keel").string();
    const Outcome absent = Run({missing});
    EXPECT_EQ(absent.status, 2);
    EXPECT_EQ(absent.out, "");
    EXPECT_EQ(absent.err,
              "keel: cannot read the formula file '" + missing + "': No such file or directory\n");

    const std::string folder = m_home.string();
    const Outcome notAFile = Run({folder});
    EXPECT_EQ(notAFile.status, 2);
    EXPECT_EQ(notAFile.err,
              "keel: cannot read the formula file '" + folder + "': Is a directory\n");
}

TEST_F(KeelRunProgram, BadUsageExitsWithTwo) {
    const std::string script = Script("1");
    const std::vector<std::vector<std::string>> cases = {
        {},
        {"--action"},
        {script, script},
    };
    for (const std::vector<std::string>& words : cases) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.status, 2) << words.size();
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err.rfind("keel run: usage: keel run FILE [--json] [--action]", 0), 0u)
            << outcome.err;
    }
    const Outcome badSet = Run({script, "--set", "2x=1"});
    EXPECT_EQ(badSet.status, 2);
    EXPECT_EQ(badSet.err.rfind("keel run: --set takes NAME=FORMULA, and '2x' is not a name\n", 0),
              0u)
        << badSet.err;
}

} // namespace
