#include "keel/platform/regex.h"

#include <gtest/gtest.h>

namespace keel {
namespace {

TEST(RegexMatch, AnswersAsTheTableSays) {
    const struct {
        CString text;
        CString pattern;
        bool matches;
    } cases[] = {
        // A search: the pattern may match anywhere in the text; anchors make it a match of the
        // start, the end or the whole text.
        {u"Message box (fileName)", u"box", true},
        {u"Message box (fileName)", u"^box", false},
        {u"Message box (fileName)", u"Message$", false},
        {u"Message box", u"^Message box$", true},
        // Groups are groups, not literal parentheses; the usual syntax; case matters.
        {u"Message box (fileName)", u"Message box (fileName)", false},
        {u"Message box fileName", u"Message box (fileName)", true},
        {u"Status bar 12", u"\\d+$", true},
        {u"message box", u"Message", false},
        // The empty pattern matches any text, the empty text too.
        {u"anything", u"", true},
        // A pattern that does not compile matches nothing, not even its own text, each time.
        {u"Message box (", u"Message box (", false},
        {u"a", u"a{2,1}", false},
        {u"(a", u"(a", false},
        {u"(a", u"(a", false},
        // A character beyond the basic plane is one character.
        {u"x\U0001F600y", u"^x.y$", true},
        {u"x\U0001F600y", u"\U0001F600", true}};
    for (const auto& c : cases) {
        EXPECT_EQ(RegexMatch(c.text, c.pattern), c.matches)
            << "text \"" << c.text.ToUtf8() << "\", pattern \"" << c.pattern.ToUtf8() << "\"";
    }
}

TEST(RegexQuote, TheQuotedTextMatchesItselfAndNotAVariant) {
    EXPECT_EQ(RegexQuote(CString("Message box (a)")), CString("Message box \\(a\\)"));
    EXPECT_EQ(RegexQuote(CString("")), CString(""));
    for (const char16_t* original : {u"a.b*c+d?e", u"[x]{2}", u"^start$", u"a|b", u"back\\slash\\",
                                     u"\\Q(\\E", u"caf\u00e9 \U0001F600", u"#hash and - dash"}) {
        const CString text(original);
        const CString quoted = RegexQuote(text);
        SCOPED_TRACE(text.ToUtf8());
        EXPECT_TRUE(RegexMatch(text, quoted));
        EXPECT_TRUE(RegexMatch(CString(u"before ") + text + u" after", quoted));
        EXPECT_TRUE(RegexMatch(text, u"^" + quoted + u"$"));
        EXPECT_FALSE(RegexMatch(text.Left(text.GetLength() - 1) + u'\u00e9', quoted));
    }
}

} // namespace
} // namespace keel
