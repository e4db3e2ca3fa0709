#include "keel/platform/wchar.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <string>
#include <utility>

namespace keel {
namespace {

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
    const std::u16string alpha = u"aZ\u00C9\u00DF\u03A9\u0416\u4E2D\u0663";
    const std::u16string digit = u"09";
    const std::u16string space = u" \t\n\v\f\r\u3000\u2003";
    const std::u16string neither{u'_', u'-', u'\0', u'\u20AC', u'\u00B2', 0xD800, 0xDFFF};
    for (const char16_t ch : alpha + digit + space + neither) {
        SCOPED_TRACE(static_cast<unsigned>(ch));
        EXPECT_EQ(IsAlpha(ch), alpha.find(ch) != std::u16string::npos);
        EXPECT_EQ(IsDigit(ch), digit.find(ch) != std::u16string::npos);
        EXPECT_EQ(IsSpace(ch), space.find(ch) != std::u16string::npos);
        EXPECT_EQ(IsAlnum(ch), IsAlpha(ch) || IsDigit(ch));
    }
}

TEST_P(WCharClasses, CaseMapsBothWaysAndLeavesUnitsWithoutSingleUnitCase) {
    // Pairs at the same place; the last units have no case of their own as single units.
    const std::u16string noCase{0xD83D, 0xDE00, 0xDC00};
    const std::u16string upper =
        u"AZ\u00C9\u00C0\u0178\u03A9\u0394\u0416\u04015 \u20AC\u4E2D\u00DF" + noCase;
    const std::u16string lower =
        u"az\u00E9\u00E0\u00FF\u03C9\u03B4\u0436\u04515 \u20AC\u4E2D\u00DF" + noCase;
    for (std::size_t i = 0; i < upper.size(); ++i) {
        SCOPED_TRACE(static_cast<unsigned>(upper[i]));
        EXPECT_EQ(ToLower(upper[i]), lower[i]);
        EXPECT_EQ(ToUpper(lower[i]), upper[i]);
        EXPECT_EQ(ToLower(lower[i]), lower[i]);
        EXPECT_EQ(ToUpper(upper[i]), upper[i]);
    }
}

TEST(HexDigitValue, TakesBothCasesAndNothingAroundThem) {
    const std::pair<char16_t, int> cases[] = {
        {u'0', 0},  {u'9', 9},   {u'a', 10}, {u'f', 15},      {u'A', 10},      {u'F', 15},
        {u'/', -1}, {u':', -1},  {u'@', -1}, {u'G', -1},      {u'`', -1},      {u'g', -1},
        {u' ', -1}, {u'\0', -1}, {u'x', -1}, {u'\uFF10', -1}, {u'\uFF21', -1}, {0x0130, -1},
    };
    for (const auto& [ch, value] : cases)
        EXPECT_EQ(HexDigitValue(ch), value) << static_cast<unsigned>(ch);
}

} // namespace
} // namespace keel
