#include "keel/formula/tokeniser.h"
#include "keel/values/stringunique.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

// The shortest text that reads back as the same double.
std::string Shortest(double value) {
    char buffer[40];
    for (int precision = 1; precision <= 17; ++precision) {
        std::snprintf(buffer, sizeof buffer, "%.*g", precision, value);
        if (std::strtod(buffer, nullptr) == value)
            break;
    }
    return buffer;
}

std::string Lowered(const CString& text) {
    CString lowered(text);
    return lowered.MakeLower().ToUtf8();
}

// One token as "kind:content": c: for a character, id: for a name (lower-cased, since the table
// shows whichever spelling came first), and int:, num:, len: (raw mm), money: (cents), str: for
// the values.
std::string Describe(const QToken& token) {
    if (token.IsChar())
        return "c:" + CString(token.Char()).ToUtf8();
    if (token.IsId())
        return "id:" + Lowered(token.Id().ToString());
    if (!token.IsValue())
        return "empty";
    QAnyValue value = token.Value();
    switch (value.Type()) {
    case QAnyValue::TYPE_INT:
        return "int:" + std::to_string(value.MakeInt());
    case QAnyValue::TYPE_DOUBLE:
        return "num:" + Shortest(value.MakeDouble());
    case QAnyValue::TYPE_LENGTH: {
        char buffer[40];
        std::snprintf(buffer, sizeof buffer, "%.10g", value.MakeLength().GetRaw());
        return std::string("len:") + buffer;
    }
    case QAnyValue::TYPE_MONEY:
        return "money:" + std::to_string(value.MakeMoney().GetRaw());
    case QAnyValue::TYPE_STRING:
        return "str:" + value.MakeCString().ToUtf8();
    default:
        return "type " + std::to_string(value.Type());
    }
}

std::vector<std::string> DescribeAll(const QTokenStream& stream) {
    std::vector<std::string> tokens;
    for (short position = 0; !stream.PastEOF(position); ++position)
        tokens.push_back(Describe(*stream.GetToken(position)));
    return tokens;
}

struct TokenCase {
    const char* formula;
    std::vector<std::string> tokens;
};

void PrintTo(const TokenCase& tokenCase, std::ostream* out) {
    *out << '"' << tokenCase.formula << '"';
}

class TokeniserTokens : public testing::TestWithParam<TokenCase> {};

TEST_P(TokeniserTokens, CutsTheTextIntoTheseTokens) {
    QTokenStream stream{FormulaText(GetParam().formula)};
    ASSERT_TRUE(stream.Create(true)) << stream.ErrorText().ToUtf8();
    EXPECT_EQ(DescribeAll(stream), GetParam().tokens);
    EXPECT_EQ(stream.ErrorText().ToUtf8(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Operators, TokeniserTokens,
    testing::Values(
        TokenCase{"1+2*3", {"int:1", "c:+", "int:2", "c:*", "int:3"}},
        TokenCase{"a>=b", {"id:a", "c:>", "c:=", "id:b"}},
        TokenCase{"x&&y||!z", {"id:x", "c:&", "c:&", "id:y", "c:|", "c:|", "c:!", "id:z"}},
        TokenCase{"#N/A", {"c:#", "id:n", "c:/", "id:a"}}, TokenCase{"%1", {"c:%", "int:1"}},
        TokenCase{"[1,,2]", {"c:[", "int:1", "c:,", "c:,", "int:2", "c:]"}},
        TokenCase{" \t1\r\n+\n2 ", {"int:1", "c:+", "int:2"}}, TokenCase{"/", {"c:/"}}));

INSTANTIATE_TEST_SUITE_P(Comments, TokeniserTokens,
                         testing::Values(TokenCase{"// nothing but a note", {}},
                                         TokenCase{"1 // rest\n+ 2", {"int:1", "c:+", "int:2"}},
                                         TokenCase{"1/**/2", {"int:1", "int:2"}},
                                         TokenCase{"1 /* open", {"int:1", "c:/", "c:*", "id:open"}},
                                         TokenCase{"/*/", {"c:/", "c:*", "c:/"}},
                                         TokenCase{"1 /", {"int:1", "c:/"}}));

INSTANTIATE_TEST_SUITE_P(
    Strings, TokeniserTokens,
    testing::Values(TokenCase{"\"abc\"", {"str:abc"}}, TokenCase{"'abc'", {"str:abc"}},
                    TokenCase{"'it''s'", {"str:it's"}}, TokenCase{"'a\"b'", {"str:a\"b"}},
                    TokenCase{"''''", {"str:'"}}, TokenCase{"\"a\\tb\"", {"str:a\tb"}},
                    TokenCase{"\"a\\\\b\"", {"str:a\\b"}},
                    TokenCase{"\"a\\\" & 1", {"str:a\\", "c:&", "int:1"}},
                    TokenCase{"\"/* not a comment */\"", {"str:/* not a comment */"}}));

INSTANTIATE_TEST_SUITE_P(
    Money, TokeniserTokens,
    testing::Values(TokenCase{"$5", {"money:500"}}, TokenCase{"$1,234.50", {"money:123450"}},
                    TokenCase{"$5.", {"money:500"}}, TokenCase{"$1,", {"money:100", "c:,"}},
                    TokenCase{"$ 5", {"c:$", "int:5"}}, TokenCase{"$.5", {"c:$", "num:0.5"}},
                    TokenCase{"$", {"c:$"}},
                    // Cents are rounded from the dollars.
                    TokenCase{"$19.99 $0.125 $1,000,000.01",
                              {"money:1999", "money:13", "money:100000001"}}));

INSTANTIATE_TEST_SUITE_P(Numbers, TokeniserTokens,
                         testing::Values(TokenCase{"7", {"int:7"}}, TokenCase{"007", {"int:7"}},
                                         TokenCase{"2147483647", {"int:2147483647"}},
                                         TokenCase{"2147483648", {"num:2147483648"}},
                                         TokenCase{"5.", {"num:5"}}, TokenCase{".5", {"num:0.5"}},
                                         TokenCase{".", {"c:."}},
                                         TokenCase{"..5", {"c:.", "num:0.5"}},
                                         TokenCase{"1.2.3", {"num:1.2", "num:0.3"}},
                                         TokenCase{"2x", {"int:2", "id:x"}}));

INSTANTIATE_TEST_SUITE_P(
    Fractions, TokeniserTokens,
    testing::Values(TokenCase{"6/2", {"num:3"}}, TokenCase{"1.5/2", {"num:0.75"}},
                    TokenCase{"3   1/4", {"num:3.25"}}, TokenCase{"3 4/2", {"num:5"}},
                    TokenCase{"3 1", {"int:3", "int:1"}},
                    TokenCase{"3 1/2 1/4", {"num:3.5", "num:0.25"}},
                    TokenCase{"3 1.5", {"int:3", "num:1.5"}}, TokenCase{"6/", {"int:6", "c:/"}},
                    TokenCase{"6/.5", {"int:6", "c:/", "num:0.5"}},
                    // A fraction needs only the '/' behind its numerator: with no digit behind
                    // the '/', the numerator alone is added.
                    TokenCase{"3 1/x", {"int:4", "c:/", "id:x"}}));

INSTANTIATE_TEST_SUITE_P(DenominatorZero, TokeniserTokens,
                         testing::Values(TokenCase{"1/0", {"c:1", "c:/", "int:0"}},
                                         TokenCase{"12/0+1",
                                                   {"c:1", "c:2", "c:/", "int:0", "c:+", "int:1"}},
                                         TokenCase{"3 1/0", {"int:3", "c:1", "c:/", "int:0"}},
                                         TokenCase{"1 / 0", {"int:1", "c:/", "int:0"}}));

INSTANTIATE_TEST_SUITE_P(
    FeetAndInches, TokeniserTokens,
    testing::Values(TokenCase{"5'", {"len:1524"}}, TokenCase{"5\"", {"len:127"}},
                    TokenCase{"5'6", {"len:1676.4"}}, TokenCase{"5'6\"", {"len:1676.4"}},
                    TokenCase{"5'6 1/2\"", {"len:1689.1"}},
                    TokenCase{"5' 6\"", {"len:1524", "len:152.4"}},
                    TokenCase{"5.5'", {"len:1676.4"}}, TokenCase{"1/2\"", {"len:12.7"}},
                    TokenCase{"3 1/2\"", {"len:88.9"}}, TokenCase{".5\"", {"len:12.7"}},
                    TokenCase{"5'abc", {"len:1524", "id:abc"}}));

INSTANTIATE_TEST_SUITE_P(Names, TokeniserTokens,
                         testing::Values(TokenCase{"tokWidth", {"id:tokwidth"}},
                                         TokenCase{"a.b", {"id:a", "c:.", "id:b"}},
                                         TokenCase{"a[2]", {"id:a", "c:[", "int:2", "c:]"}},
                                         TokenCase{"caf\xc3\xa9", {"id:caf\xc3\xa9"}},
                                         TokenCase{"@x", {"c:@", "id:x"}}));

struct EscapeCase {
    const char16_t* text;
    const char16_t* expected;
};

class TokeniserEscapes : public testing::TestWithParam<EscapeCase> {};

TEST_P(TokeniserEscapes, UnquotesBackslashSequences) {
    EXPECT_EQ(QTokenInput::UndoInsertEscapeSequences(GetParam().text).ToUtf8(),
              CString(GetParam().expected).ToUtf8());
}

INSTANTIATE_TEST_SUITE_P(
    Sequences, TokeniserEscapes,
    testing::Values(EscapeCase{u"a\\\\b", u"a\\b"}, EscapeCase{u"\\n", u"\n"},
                    EscapeCase{u"\\t", u"\t"}, EscapeCase{u"\\q", u"\\q"},
                    EscapeCase{u"\\N", u"\\N"}, EscapeCase{u"\\\"", u"\\\""},
                    EscapeCase{u"end\\", u"end\\"}, EscapeCase{u"\\", u"\\"},
                    // One pass: the escaped backslash does not start a further sequence.
                    EscapeCase{u"\\\\n", u"\\n"}, EscapeCase{u"\\\\\\n", u"\\\n"},
                    EscapeCase{u"", u""}));

struct FailureCase {
    const char16_t* formula;
    const char16_t* message;
};

class TokeniserFailures : public testing::TestWithParam<FailureCase> {};

TEST_P(TokeniserFailures, StopsWithThisMessage) {
    QTokenStream stream{FormulaText(GetParam().formula)};
    EXPECT_FALSE(stream.Create(true));
    EXPECT_EQ(stream.ErrorText().ToUtf8(), CString(GetParam().message).ToUtf8());
}

INSTANTIATE_TEST_SUITE_P(Quotes, TokeniserFailures,
                         testing::Values(FailureCase{u"'abc", u"Mismatched quotes"},
                                         FailureCase{u"\"abc'", u"Mismatched quotes"},
                                         FailureCase{u"\"unit\x1f\"", u"Mismatched quotes"},
                                         FailureCase{u"\"a\\\"b\"", u"Mismatched quotes"},
                                         FailureCase{u"5'6 '", u"Mismatched quotes"}));

TEST(TokeniserFailuresText, ASpaceIsTheLowestCharacterAStringMayHold) {
    QTokenStream stream{FormulaText("\" \x7f\"")};
    EXPECT_TRUE(stream.Create(true));
    EXPECT_EQ(DescribeAll(stream), std::vector<std::string>{"str: \x7f"});
}

std::u16string Repeated(std::u16string_view unit, int count) {
    std::u16string text;
    for (int i = 0; i < count; ++i)
        text += unit;
    return text;
}

TEST(TokeniserLength, AFormulaOfTheLongestLengthIsTokenisedAndALongerOneRefused) {
    // "1+1+...+1" of 32767 characters: as many tokens as the cursor can count.
    const CString text(std::u16string_view(u"1" + Repeated(u"+1", 16383)));
    ASSERT_EQ(text.GetLength(), 32767);
    QTokenStream stream{FormulaText(text)};
    ASSERT_TRUE(stream.Create(true));
    EXPECT_EQ(stream.Count(), 32767);
    EXPECT_EQ(stream.GetToken(32766)->Cursor(), 32766);
    EXPECT_EQ(stream.ThisCharPlus(32766, 20).ToUtf8(), "1");
    EXPECT_EQ(stream.FormulaStringBetween(32765, 32766, 20).ToUtf8(), "+1");
    // The trailing space is trimmed by the interned formula, so this one still fits.
    QTokenStream trimmed{FormulaText(CString(std::u16string_view(text.GetString()) + u" "))};
    EXPECT_TRUE(trimmed.Create(true));

    const CString longer(std::u16string_view(u"1" + Repeated(u"+1", 16383) + u"+"));
    ASSERT_EQ(longer.GetLength(), 32768);
    QTokenInput input(FormulaText(longer), true);
    EXPECT_TRUE(input.TooLong());
    QTokenStream refused{FormulaText(longer)};
    EXPECT_FALSE(refused.Create(true));
    EXPECT_EQ(refused.ErrorText().ToUtf8(),
              "Formula too long to evaluate (more than 32767 characters)");
    EXPECT_EQ(refused.Count(), 0);
}

TEST(TokeniserFragments, BetweenAndThisCharPlusRunFromTheTokenCutToTheLongestLength) {
    // Tokens: 0 alpha, 1 +, 2 beta, 3 *, 4 gamma, 5 -, 6 delta, 7 /, 8 epsilon.
    QTokenStream stream{FormulaText("alpha + beta * gamma - delta / epsilon")};
    ASSERT_TRUE(stream.Create(true));
    const struct {
        short first;
        short last;
        int length;
        const char* between;
    } cases[] = {
        // To the token after the last, or to the end after the last token.
        {2, 4, 20, "beta * gamma "},
        {6, 30, 20, "delta / epsilon"},
        {0, 4, 19, "alpha + beta * gamm"},
        {0, 8, 0, ""},
        // Empty past the end or backwards.
        {9, 9, 20, ""},
        {4, 2, 20, ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(stream.FormulaStringBetween(c.first, c.last, c.length).ToUtf8(), c.between)
            << c.first << " " << c.last << " " << c.length;
    EXPECT_EQ(stream.ThisCharPlus(8, 3).ToUtf8(), "eps");
    EXPECT_EQ(stream.ThisCharPlus(9, 20).ToUtf8(), "");
    QTokenStream comments{FormulaText("1 /* one */ + 2")};
    ASSERT_TRUE(comments.Create(true));
    EXPECT_EQ(comments.FormulaStringBetween(0, 0, 20).ToUtf8(), "1 /* one */ ");
    EXPECT_EQ(comments.ThisCharPlus(1, 20).ToUtf8(), "+ 2");
}

QSmartPtr<QTokenStream> StreamOf(const char* formula) {
    QTokeniser tokeniser{FormulaText(formula)};
    CString error;
    EXPECT_TRUE(tokeniser.Create(error)) << formula;
    return tokeniser.Stream();
}

TEST(TokeniserCache, RespellingTokenisesTheNewSpellingAgain) {
    const QSmartPtr<QTokenStream> before = StreamOf("'tokRespell' & 1");
    ASSERT_EQ(DescribeAll(*before)[0], "str:tokRespell");
    const FormulaText respelt("'TOKRESPELL' & 1", false, true);
    EXPECT_EQ(respelt, FormulaText("'tokRespell' & 1"));
    const QSmartPtr<QTokenStream> after = StreamOf("'tokRespell' & 1");
    EXPECT_NE(before.Get(), after.Get());
    EXPECT_EQ(DescribeAll(*after)[0], "str:TOKRESPELL");
    EXPECT_EQ(after->ThisCharPlus(0, 20).ToUtf8(), "'TOKRESPELL' & 1");
}

} // namespace
} // namespace keel
