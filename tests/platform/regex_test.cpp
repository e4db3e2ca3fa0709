#include "keel/platform/regex.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace keel {
namespace {

struct MatchCase {
    const char* text;
    const char* pattern;
    bool matches;
};

class RegexMatchTest : public testing::TestWithParam<MatchCase> {};

TEST_P(RegexMatchTest, AnswersAsTheTableSays) {
    const MatchCase& c = GetParam();
    EXPECT_EQ(RegexMatch(CString(c.text), CString(c.pattern)), c.matches)
        << "text \"" << c.text << "\", pattern \"" << c.pattern << "\"";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RegexMatchTest,
    testing::Values(
        // A search: the pattern may match anywhere in the text.
        MatchCase{"Message box (fileName)", "box", true},
        MatchCase{"Message box (fileName)", "Message", true},
        MatchCase{"Message box (fileName)", "fileName\\)", true},
        MatchCase{"Message box", "Dialog", false},
        // Anchors make it a match of the start, the end or the whole text.
        MatchCase{"Message box (fileName)", "^box", false},
        MatchCase{"Message box (fileName)", "^Message", true},
        MatchCase{"Message box (fileName)", "Message$", false},
        MatchCase{"Message box", "^Message box$", true},
        MatchCase{"Message box (x)", "^Message box$", false},
        // Groups are groups, not literal parentheses.
        MatchCase{"Message box (fileName)", "Message box (fileName)", false},
        MatchCase{"Message box fileName", "Message box (fileName)", true},
        // Common syntax: classes, alternation, repetition.
        MatchCase{"Ribbon control label", "Ribbon (panel|control) label", true},
        MatchCase{"Ribbon category label", "Ribbon (panel|control) label", false},
        MatchCase{"Status bar 12", "\\d+$", true}, MatchCase{"Status bar", "\\d", false},
        // Case matters.
        MatchCase{"message box", "Message", false},
        // The empty pattern matches any text, the empty text too.
        MatchCase{"anything", "", true}, MatchCase{"", "", true}, MatchCase{"", "a", false},
        // A pattern that does not compile matches nothing, not even its own text.
        MatchCase{"Message box (", "Message box (", false}, MatchCase{"[", "[", false},
        MatchCase{"a", "a{2,1}", false}, MatchCase{"abc", "(?<", false}));

TEST(RegexMatch, CharactersBeyondTheBasicPlaneCountAsOneCharacter) {
    const CString text(u"x\U0001F600y");
    EXPECT_TRUE(RegexMatch(text, CString(u"^x.y$")));
    EXPECT_TRUE(RegexMatch(text, CString(u"\U0001F600")));
}

TEST(RegexMatch, ALoneSurrogateInTheTextDoesNotStopTheSearch) {
    const char16_t units[] = {u'a', 0xD800, u'b', u'c', 0};
    EXPECT_TRUE(RegexMatch(CString(units), CString(u"bc")));
    EXPECT_FALSE(RegexMatch(CString(units), CString(u"xyz")));
}

TEST(RegexMatch, APatternWithALoneSurrogateMatchesNothing) {
    const char16_t pattern[] = {u'a', 0xDC00, 0};
    EXPECT_FALSE(RegexMatch(CString(pattern), CString(pattern)));
}

TEST(RegexMatch, ABadPatternStaysBadWhenAskedAgain) {
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(RegexMatch(CString("(a"), CString("(a")));
    EXPECT_TRUE(RegexMatch(CString("(a"), CString("\\(a")));
}

TEST(RegexMatch, ManyDistinctPatternsKeepGivingRightAnswers) {
    // More patterns than the cache keeps, so that it is emptied on the way at least once.
    for (int i = 0; i < 3000; ++i) {
        const CString pattern = CString::Formatted(u"^item %d$", i);
        ASSERT_TRUE(RegexMatch(CString::Formatted(u"item %d", i), pattern)) << i;
        ASSERT_FALSE(RegexMatch(CString::Formatted(u"item %d", i + 1), pattern)) << i;
    }
}

TEST(RegexMatch, ThreadsMatchAtTheSameTime) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 2000; ++i) {
                const CString pattern = CString::Formatted(u"context %d", (i + t) % 50);
                const CString context = CString::Formatted(u"A context %d here", (i + t) % 50);
                if (!RegexMatch(context, pattern) || RegexMatch(u"other", pattern))
                    ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

class RegexQuoteTest : public testing::TestWithParam<const char16_t*> {};

TEST_P(RegexQuoteTest, TheQuotedTextMatchesItselfAndNotAVariant) {
    const CString text(GetParam());
    const CString quoted = RegexQuote(text);
    EXPECT_TRUE(RegexMatch(text, quoted));
    EXPECT_TRUE(RegexMatch(CString(u"before ") + text + u" after", quoted));
    EXPECT_TRUE(RegexMatch(text, u"^" + quoted + u"$"));
    const CString lastChanged = text.Left(text.GetLength() - 1) + u'\u00e9';
    EXPECT_FALSE(RegexMatch(lastChanged, quoted));
}

INSTANTIATE_TEST_SUITE_P(Texts, RegexQuoteTest,
                         testing::Values(u"Message box (fileName)", u"Message box (a,b)",
                                         u"a.b*c+d?e", u"[x]{2}", u"^start$", u"a|b",
                                         u"back\\slash\\", u"\\Q(\\E", u"tab\there",
                                         u"caf\u00e9 \U0001F600", u"#hash and - dash"));

TEST(RegexQuote, LeavesOrdinaryCharactersAsTheyAre) {
    EXPECT_EQ(RegexQuote(CString("Dialog item")), CString("Dialog item"));
    EXPECT_EQ(RegexQuote(CString("Message box (a)")), CString("Message box \\(a\\)"));
    EXPECT_EQ(RegexQuote(CString("")), CString(""));
}

} // namespace
} // namespace keel
