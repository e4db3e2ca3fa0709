#include "keel/platform/wchar.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <string>

namespace keel {
namespace {

struct ClassRow {
    char16_t ch;
    bool alpha;
    bool digit;
    bool space;
};

TEST(WCharClasses, ClassifyAsciiAndBeyond) {
    const ClassRow rows[] = {
        {u'a', true, false, false},
        {u'Z', true, false, false},
        {u'0', false, true, false},
        {u'9', false, true, false},
        {u'_', false, false, false},
        {u'-', false, false, false},
        {u' ', false, false, true},
        {u'\t', false, false, true},
        {u'\n', false, false, true},
        {u'\v', false, false, true},
        {u'\f', false, false, true},
        {u'\r', false, false, true},
        {u'\0', false, false, false},
        {u'\u00C9', true, false, false},
        {u'\u00DF', true, false, false},
        {u'\u03A9', true, false, false},
        {u'\u0416', true, false, false},
        {u'\u4E2D', true, false, false},
        {u'\u20AC', false, false, false},
        {u'\u00B2', false, false, false},
        {u'\u0663', true, false, false},
        {u'\u3000', false, false, true},
        {u'\u2003', false, false, true},
        {char16_t(0xD800), false, false, false},
        {char16_t(0xDFFF), false, false, false},
    };
    for (const ClassRow& row : rows) {
        SCOPED_TRACE("U+" + std::to_string(static_cast<unsigned>(row.ch)));
        EXPECT_EQ(IsAlpha(row.ch), row.alpha);
        EXPECT_EQ(IsDigit(row.ch), row.digit);
        EXPECT_EQ(IsSpace(row.ch), row.space);
        EXPECT_EQ(IsAlnum(row.ch), row.alpha || row.digit);
    }
}

struct CaseRow {
    char16_t upper;
    char16_t lower;
};

TEST(WCharClasses, CaseMapsBothWays) {
    const CaseRow rows[] = {
        {u'A', u'a'},           {u'Z', u'z'},           {u'\u00C9', u'\u00E9'},
        {u'\u00C0', u'\u00E0'}, {u'\u0178', u'\u00FF'}, {u'\u03A9', u'\u03C9'},
        {u'\u0394', u'\u03B4'}, {u'\u0416', u'\u0436'}, {u'\u0401', u'\u0451'},
    };
    for (const CaseRow& row : rows) {
        SCOPED_TRACE("U+" + std::to_string(static_cast<unsigned>(row.upper)));
        EXPECT_EQ(ToLower(row.upper), row.lower);
        EXPECT_EQ(ToUpper(row.lower), row.upper);
        EXPECT_EQ(ToLower(row.lower), row.lower);
        EXPECT_EQ(ToUpper(row.upper), row.upper);
    }
}

TEST(WCharClasses, UnitsWithoutSingleUnitCaseStayPut) {
    for (const char16_t ch : {u'5', u' ', u'\u20AC', u'\u4E2D', u'\u00DF', char16_t(0xD83D),
                              char16_t(0xDE00), char16_t(0xDC00)}) {
        SCOPED_TRACE("U+" + std::to_string(static_cast<unsigned>(ch)));
        EXPECT_EQ(ToLower(ch), ch);
        EXPECT_EQ(ToUpper(ch), ch);
    }
}

TEST(WCharClasses, SameAnswersWhateverTheProcessLocale) {
    const locale_t ascii = newlocale(LC_ALL_MASK, "C", locale_t{});
    ASSERT_TRUE(ascii);
    const locale_t previous = uselocale(ascii);
    const bool alpha = IsAlpha(u'\u00C9');
    const char16_t lower = ToLower(u'\u00C9');
    const bool space = IsSpace(u'\u3000');
    uselocale(previous);
    freelocale(ascii);
    EXPECT_TRUE(alpha);
    EXPECT_EQ(lower, u'\u00E9');
    EXPECT_TRUE(space);
}

} // namespace
} // namespace keel
