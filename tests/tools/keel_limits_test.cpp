#include "tests/support/program.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using Outcome = keel::test::ProgramOutcome;

std::string Nested(const std::string& open, const std::string& core, const std::string& close,
                   int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += open;
    text += core;
    for (int i = 0; i < depth; ++i)
        text += close;
    return text;
}

using KeelLimits = keel::test::KeelProgramTest;

struct DeepProgramCase {
    const char* what;
    std::vector<std::string> words;
    int status;
};

// What nests too deeply fails with the evaluator's message and the program's status: a failed
// formula is 1, a --set whose formula cannot be stored is bad usage.
TEST_F(KeelLimits, DeeplyNestedFormulasFailWithoutCrashing) {
    const std::string parentheses = Nested("(", "1", ")", 4000);
    const std::string calls = Nested("abs(", "1", ")", 3000);
    const std::string arrays = Nested("[", "1", "]", 10000);
    const DeepProgramCase cases[] = {
        {"parentheses", {"eval", parentheses}, 1},
        {"calls", {"eval", calls}, 1},
        {"array file", {"run", FileOfTest("deep.keel", arrays)}, 1},
        {"set parentheses", {"eval", "--set", "x=" + parentheses, "1"}, 2},
        {"set calls", {"eval", "--set", "x=" + calls, "1"}, 2},
    };
    for (const DeepProgramCase& c : cases) {
        const Outcome outcome = Run(c.words);
        EXPECT_EQ(outcome.status, c.status) << c.what << "\n" << outcome.err;
        EXPECT_NE(outcome.err.find("Formula nested too deeply"), std::string::npos)
            << c.what << "\n"
            << outcome.err;
    }
}

TEST_F(KeelLimits, PropertiesInALoopAreRecursiveWhicheverIsReadFirst) {
    const std::string a = "\"message\":\"Recursive formula\\n\\tb\\nin\\n\\tRoot\"";
    const std::string b = "\"message\":\"Recursive formula\\n\\ta\\nin\\n\\tRoot\"";
    for (const auto& [first, second] : {std::pair{"a", "b"}, std::pair{"b", "a"}}) {
        const Outcome outcome =
            Run({"eval", "--json", "--set", "a=b", "--set", "b=a", first, second, first});
        EXPECT_EQ(outcome.status, 1);
        const std::string& firstMessage = std::string(first) == "a" ? a : b;
        const std::string& secondMessage = std::string(first) == "a" ? b : a;
        const std::size_t one = outcome.out.find(firstMessage);
        const std::size_t two = outcome.out.find(secondMessage);
        ASSERT_NE(one, std::string::npos) << outcome.out;
        ASSERT_NE(two, std::string::npos) << outcome.out;
        EXPECT_LT(one, two) << outcome.out;
        EXPECT_NE(outcome.out.find(firstMessage, two), std::string::npos) << outcome.out;
        EXPECT_EQ(outcome.out.find("\"ok\":true"), std::string::npos) << outcome.out;
    }
}

TEST_F(KeelLimits, AFunctionCallingItselfWithoutEndGivesAnErrorValue) {
    const Outcome outcome = Run(
        {"eval", "--set", "f=\"function(n) if n <= 0 then 0 else n + f(n - 1) endif end function\"",
         "f(10)", "f(2000)"});
    EXPECT_NE(outcome.out.find("Whole Number\t55\n"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("#ERR!"), std::string::npos) << outcome.out;
}

} // namespace
