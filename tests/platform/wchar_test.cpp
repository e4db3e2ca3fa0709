#include "keel/platform/wchar.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <string>

namespace keel {
namespace {

std::string Hex(char16_t ch) {
    return "U+" + std::to_string(static_cast<unsigned>(ch));
}

// The answers are the same whatever the process locale: each check runs in the C locale too.
class WCharClasses : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        m_locale = newlocale(LC_ALL_MASK, GetParam(), locale_t{});
        ASSERT_TRUE(m_locale);
        m_previous = uselocale(m_locale);
    }
    void TearDown() override {
        uselocale(m_previous);
        freelocale(m_locale);
    }
    locale_t m_locale{};
    locale_t m_previous{};
};

INSTANTIATE_TEST_SUITE_P(Locales, WCharClasses, testing::Values("C", "C.UTF-8"));

TEST_P(WCharClasses, ClassifyAsciiAndBeyond) {
    const struct {
        char16_t ch;
        bool alpha, digit, space;
    } rows[] = {{u'a', true, false, false},
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
                {char16_t(0xDFFF), false, false, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(Hex(row.ch));
        EXPECT_EQ(IsAlpha(row.ch), row.alpha);
        EXPECT_EQ(IsDigit(row.ch), row.digit);
        EXPECT_EQ(IsSpace(row.ch), row.space);
        EXPECT_EQ(IsAlnum(row.ch), row.alpha || row.digit);
    }
}

TEST_P(WCharClasses, CaseMapsBothWaysAndLeavesUnitsWithoutSingleUnitCase) {
    const struct {
        char16_t upper, lower;
    } rows[] = {{u'A', u'a'},           {u'Z', u'z'},           {u'\u00C9', u'\u00E9'},
                {u'\u00C0', u'\u00E0'}, {u'\u0178', u'\u00FF'}, {u'\u03A9', u'\u03C9'},
                {u'\u0394', u'\u03B4'}, {u'\u0416', u'\u0436'}, {u'\u0401', u'\u0451'},
                {u'5', u'5'},           {u' ', u' '},           {u'\u20AC', u'\u20AC'},
                {u'\u4E2D', u'\u4E2D'}, {u'\u00DF', u'\u00DF'}, {0xD83D, 0xD83D},
                {0xDE00, 0xDE00},       {0xDC00, 0xDC00}};
    for (const auto& row : rows) {
        SCOPED_TRACE(Hex(row.upper));
        EXPECT_EQ(ToLower(row.upper), row.lower);
        EXPECT_EQ(ToUpper(row.lower), row.upper);
        EXPECT_EQ(ToLower(row.lower), row.lower);
        EXPECT_EQ(ToUpper(row.upper), row.upper);
    }
}

} // namespace
} // namespace keel
