#include "keel/tables/tabtokens.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

std::string U8(const CString& text) {
    return text.ToUtf8();
}

CString Line(const std::vector<const char*>& tokens) {
    CString line;
    for (const char* token : tokens)
        PutTabDelimToken(line, CString(token));
    return line;
}

TEST(TabTokens, PutJoinsTokensWithSingleTabs) {
    const struct {
        std::vector<const char*> tokens;
        const char* line;
    } cases[] = {
        {{}, ""},
        {{"a"}, "a"},
        {{"a", "", "c"}, "a\t\tc"},
        {{"a", ""}, "a\t"},
        // An empty first token survives through the marker.
        {{"", "b"}, "\tb"},
        {{"", ""}, "\t"},
        // A lone empty token is the marker itself.
        {{""}, "#!EMPTY_FIRST_TOKEN!#"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(U8(Line(c.tokens)), c.line);
}

// The token is the text up to the first tab; quotes do not protect a tab.
TEST(TabTokens, GetTakesTheTextUpToTheFirstTab) {
    const struct {
        const char* line;
        const char* token;
        const char* rest;
        bool tabFollowed;
    } cases[] = {
        {"", "", "", false},
        {"abc", "abc", "", false},
        {"a\tb\tc", "a", "b\tc", true},
        {"\tb", "", "b", true},
        {"a\t", "a", "", true},
        {"\t\t", "", "\t", true},
        {"\"x\ty\"\tz", "\"x", "y\"\tz", true},
        {"  a  \tb", "  a  ", "b", true},
    };
    for (const auto& c : cases) {
        CString line(c.line);
        CString token(u"stale");
        EXPECT_EQ(GetTabDelimToken(line, token), c.tabFollowed) << c.line;
        EXPECT_EQ(U8(token), c.token) << c.line;
        EXPECT_EQ(U8(line), c.rest) << c.line;
    }
}

TEST(TabTokens, DoubledQuotesAndEscapesGoBothWays) {
    const struct {
        const char* plain;
        const char* quoted;
    } quotes[] = {{"", "\"\""},           {"\"abc\"", "\"\"\"abc\"\"\""},
                  {"a\"b", "\"a\"\"b\""}, {"\"a\"\"b\"", "\"\"\"a\"\"\"\"b\"\"\""},
                  {"\"", "\"\"\"\""},     {"a\tb", "\"a\tb\""}};
    for (const auto& c : quotes) {
        EXPECT_EQ(U8(DoubleQuotesAndEnclose(CString(c.plain))), c.quoted);
        EXPECT_EQ(U8(UndoDoubleQuotesAndEnclose(CString(c.quoted))), c.plain);
    }
    const struct {
        const char* plain;
        const char* escaped;
    } escapes[] = {{"\\n", "\\\\n"}, {"\"q\"", "\"q\""}, {"\r\n\t\\", "\\r\\n\\t\\\\"}};
    for (const auto& c : escapes) {
        EXPECT_EQ(U8(InsertEscapeSequences(CString(c.plain))), c.escaped);
        EXPECT_EQ(U8(UndoInsertEscapeSequences(CString(c.escaped))), c.plain);
    }
}

TEST(TabTokens, UndoingLeavesWhatItDoesNotKnow) {
    // A quote at each end of two or more characters encloses a text; anything else is left alone.
    for (const char* text : {"\"", "\"a\"\"b", "a\"", "'x'", " \"a\""})
        EXPECT_EQ(U8(UndoDoubleQuotesAndEnclose(CString(text))), text) << text;
    // Doubled quotes are halved from the left: of three, the first two make one.
    EXPECT_EQ(U8(UndoDoubleQuotesAndEnclose(CString(u"\"a\"\"\"b\""))), "a\"\"b");
    // Unquoted text only has its escapes undone.
    EXPECT_EQ(U8(UndoInsertEscapesDoubleQuotesAndEnclose(CString(u"a\\tb"))), "a\tb");
}

} // namespace
} // namespace keel
