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

struct PutCase {
    std::vector<const char*> tokens;
    const char* line;
};

class PutTabDelimTokenTest : public testing::TestWithParam<PutCase> {};

TEST_P(PutTabDelimTokenTest, JoinsTokensWithSingleTabs) {
    EXPECT_EQ(U8(Line(GetParam().tokens)), GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(Lines, PutTabDelimTokenTest,
                         testing::Values(PutCase{{}, ""}, PutCase{{"a"}, "a"},
                                         PutCase{{"a", "b", "c"}, "a\tb\tc"},
                                         PutCase{{"a", "", "c"}, "a\t\tc"},
                                         PutCase{{"a", ""}, "a\t"}, PutCase{{"a", "", ""}, "a\t\t"},
                                         // An empty first token survives through the marker.
                                         PutCase{{"", "b"}, "\tb"}, PutCase{{"", "", "c"}, "\t\tc"},
                                         PutCase{{"", ""}, "\t"},
                                         // A lone empty token is the marker itself.
                                         PutCase{{""}, "#!EMPTY_FIRST_TOKEN!#"}));

TEST(PutTabDelimToken, AppendsToALineAlreadyHoldingText) {
    CString line(u"x\ty");
    PutTabDelimToken(line, CString(u"z"));
    EXPECT_EQ(U8(line), "x\ty\tz");
}

struct GetCase {
    const char* line;
    const char* token;
    const char* rest;
    bool tabFollowed;
};

class GetTabDelimTokenTest : public testing::TestWithParam<GetCase> {};

TEST_P(GetTabDelimTokenTest, TakesTheTextUpToTheFirstTab) {
    CString line(GetParam().line);
    CString token(u"stale");
    EXPECT_EQ(GetTabDelimToken(line, token), GetParam().tabFollowed);
    EXPECT_EQ(U8(token), GetParam().token);
    EXPECT_EQ(U8(line), GetParam().rest);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, GetTabDelimTokenTest,
    testing::Values(GetCase{"", "", "", false}, GetCase{"abc", "abc", "", false},
                    GetCase{"a\tb\tc", "a", "b\tc", true}, GetCase{"\tb", "", "b", true},
                    GetCase{"a\t", "a", "", true}, GetCase{"\t\t", "", "\t", true},
                    // Quotes do not protect a tab.
                    GetCase{"\"x\ty\"\tz", "\"x", "y\"\tz", true},
                    GetCase{"  a  \tb", "  a  ", "b", true}));

TEST(GetTabDelimToken, ReadsBackWhatPutWrote) {
    const std::vector<const char*> tokens = {"", "one", "", "\"two\"", "three", ""};
    CString line = Line(tokens);
    std::vector<std::string> read;
    while (!line.IsEmpty()) {
        CString token;
        GetTabDelimToken(line, token);
        read.push_back(U8(token));
    }
    // The last empty token left no text behind its tab, so the line ran out before it.
    EXPECT_EQ(read, (std::vector<std::string>{"", "one", "", "\"two\"", "three"}));
}

struct QuoteCase {
    const char* text;
    bool enclosed;
};

class IsEnclosedByQuotesTest : public testing::TestWithParam<QuoteCase> {};

TEST_P(IsEnclosedByQuotesTest, NeedsAQuoteAtEachEndOfTwoOrMoreCharacters) {
    EXPECT_EQ(IsEnclosedByQuotes(CString(GetParam().text)), GetParam().enclosed);
}

INSTANTIATE_TEST_SUITE_P(Texts, IsEnclosedByQuotesTest,
                         testing::Values(QuoteCase{"", false}, QuoteCase{"\"", false},
                                         QuoteCase{"\"\"", true}, QuoteCase{"\"a\"", true},
                                         QuoteCase{"\"a", false}, QuoteCase{"a\"", false},
                                         QuoteCase{"'a'", false}, QuoteCase{" \"a\"", false}));

struct QuotingCase {
    const char* plain;
    const char* quoted;
};

class DoubleQuotesTest : public testing::TestWithParam<QuotingCase> {};

TEST_P(DoubleQuotesTest, DoublesAndEncloses) {
    EXPECT_EQ(U8(DoubleQuotesAndEnclose(CString(GetParam().plain))), GetParam().quoted);
}

TEST_P(DoubleQuotesTest, UndoGivesThePlainTextBack) {
    EXPECT_EQ(U8(UndoDoubleQuotesAndEnclose(CString(GetParam().quoted))), GetParam().plain);
}

INSTANTIATE_TEST_SUITE_P(Texts, DoubleQuotesTest,
                         testing::Values(QuotingCase{"", "\"\""}, QuotingCase{"abc", "\"abc\""},
                                         QuotingCase{"\"abc\"", "\"\"\"abc\"\"\""},
                                         QuotingCase{"a\"b", "\"a\"\"b\""},
                                         QuotingCase{"\"a\"\"b\"", "\"\"\"a\"\"\"\"b\"\"\""},
                                         QuotingCase{"\"", "\"\"\"\""},
                                         QuotingCase{"a\tb", "\"a\tb\""}));

TEST(UndoDoubleQuotesAndEnclose, LeavesATextWithoutEnclosingQuotesAlone) {
    for (const char* text : {"", "\"", "abc", "a\"\"b", "\"a\"\"b", "'x'"})
        EXPECT_EQ(U8(UndoDoubleQuotesAndEnclose(CString(text))), text) << text;
}

TEST(UndoDoubleQuotesAndEnclose, HalvesDoubledQuotesFromTheLeft) {
    // Three quotes inside: the first two make one, the third stays.
    EXPECT_EQ(U8(UndoDoubleQuotesAndEnclose(CString(u"\"a\"\"\"b\""))), "a\"\"b");
}

struct EscapeCase {
    const char* plain;
    const char* escaped;
};

class EscapeSequencesTest : public testing::TestWithParam<EscapeCase> {};

TEST_P(EscapeSequencesTest, InsertWritesTwoCharacterEscapes) {
    EXPECT_EQ(U8(InsertEscapeSequences(CString(GetParam().plain))), GetParam().escaped);
}

TEST_P(EscapeSequencesTest, UndoGivesThePlainTextBack) {
    EXPECT_EQ(U8(UndoInsertEscapeSequences(CString(GetParam().escaped))), GetParam().plain);
}

INSTANTIATE_TEST_SUITE_P(Texts, EscapeSequencesTest,
                         testing::Values(EscapeCase{"", ""}, EscapeCase{"plain", "plain"},
                                         EscapeCase{"a\\b", "a\\\\b"}, EscapeCase{"a\nb", "a\\nb"},
                                         EscapeCase{"a\rb", "a\\rb"}, EscapeCase{"a\tb", "a\\tb"},
                                         EscapeCase{"\\n", "\\\\n"},
                                         EscapeCase{"\r\n\t\\", "\\r\\n\\t\\\\"},
                                         EscapeCase{"\"q\"", "\"q\""}));

TEST(UndoInsertEscapeSequences, KeepsUnknownPairsAndATrailingBackslash) {
    EXPECT_EQ(U8(UndoInsertEscapeSequences(CString(u"a\\xb"))), "a\\xb");
    EXPECT_EQ(U8(UndoInsertEscapeSequences(CString(u"end\\"))), "end\\");
    // The character behind an unknown escape is passed over: "\q\n" keeps "\q" and then
    // still turns "\n" into a line feed.
    EXPECT_EQ(U8(UndoInsertEscapeSequences(CString(u"\\q\\n"))), "\\q\n");
    // "\\n" is a backslash and an n, not a line feed after a backslash.
    EXPECT_EQ(U8(UndoInsertEscapeSequences(CString(u"\\\\n"))), "\\n");
}

TEST(EscapesDoubleQuotesAndEnclose, EscapesFirstThenQuotes) {
    const CString plain(u"say \"hi\"\tthen\\go\n");
    const CString quoted = InsertEscapesDoubleQuotesAndEnclose(plain);
    EXPECT_EQ(U8(quoted), "\"say \"\"hi\"\"\\tthen\\\\go\\n\"");
    EXPECT_EQ(quoted.Find(u'\t'), -1);
    EXPECT_EQ(quoted.Find(u'\n'), -1);
    EXPECT_EQ(U8(UndoInsertEscapesDoubleQuotesAndEnclose(quoted)), U8(plain));
}

TEST(EscapesDoubleQuotesAndEnclose, UndoOnUnquotedTextOnlyUndoesEscapes) {
    EXPECT_EQ(U8(UndoInsertEscapesDoubleQuotesAndEnclose(CString(u"a\\tb"))), "a\tb");
}

} // namespace
} // namespace keel
