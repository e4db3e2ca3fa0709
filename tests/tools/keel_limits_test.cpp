#include "tests/support/program.h"

#include <gtest/gtest.h>
#include <string>

// Runs under a memory limit cannot start a program built with a sanitizer, which reserves
// terabytes of address space for its shadow memory, and a sanitizer's build is too slow to time.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool c_sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool c_sanitized = true;
#else
constexpr bool c_sanitized = false;
#endif
#else
constexpr bool c_sanitized = false;
#endif

namespace keel::test {
namespace {

// Memory that runs out while a formula runs is a failure in the program's own words.
TEST_F(KeelProgramTest, RunningOutOfMemoryIsSaidInTheProgramsWords) {
    if (c_sanitized)
        GTEST_SKIP() << "a sanitizer's shadow memory does not fit under the limit";
    const ProgramOutcome outcome =
        Run({"eval", "len(rept(\"abcdefghij\", 100000000))"}, "", "ulimit -v 400000; ");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "keel: cannot evaluate 'len(rept(\"abcdefghij\", 100000000))'\n"
                           "Out of memory\n");
}

// Every level of a deep array is written once, so that it takes no more time than its text. Ten
// seconds of CPU are more than ten times what one pass takes, and a fraction of what writing each
// level's text again from its elements takes.
TEST_F(KeelProgramTest, DeepArraysAreWrittenInOnePass) {
    const int depth = 1000;
    const std::string nest =
        "a := 1; for i = 1 to " + std::to_string(depth) + " do a := [a] next; a";
    const ProgramOutcome deep =
        Run({"eval", "--json", "--action", nest}, "", c_sanitized ? "" : "ulimit -t 10; ");
    ASSERT_EQ(deep.status, 0) << deep.err;
    int elements = 0;
    for (auto at = deep.out.find("\"elements\""); at != std::string::npos;
         at = deep.out.find("\"elements\"", at + 1))
        ++elements;
    EXPECT_EQ(elements, depth);
    const std::string text = std::string(depth, '[') + "1" + std::string(depth, ']');
    EXPECT_NE(deep.out.find("\"text\":\"" + text + "\""), std::string::npos);
    EXPECT_NE(deep.out.find(R"("text":"[1]","raw":{"elements":[{"type":"Whole Number",)"
                            R"("typeNumber":3,"text":"1","raw":1}]})"),
              std::string::npos);
}

} // namespace
} // namespace keel::test
