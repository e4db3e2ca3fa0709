#include "tests/support/plaincells.h"

#include "keel/formula/literals.h"
#include "keel/tables/celltokens.h"
#include "keel/tables/tabtokens.h"
#include "keel/values/datetime.h"

#include <bit>
#include <climits>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::CellReading;
using test::DescribeCell;
using test::ReadCellBothWays;

// Every token read both ways must agree; a run of cases stops reporting after a few failures.
struct AgreementCount {
    void Check(const CString& token) {
        const CellReading reading = ReadCellBothWays(token);
        ++tokens;
        if (reading.plain)
            ++plain;
        if (!reading.difference.empty() && ++failures <= 20)
            ADD_FAILURE() << reading.difference;
    }

    int tokens = 0;
    int plain = 0;
    int failures = 0;
};

TEST(PlainCells, ReadToTheValuesOfTheFormulaLanguage) {
    const struct {
        const char16_t* token;
        QAnyValue expected;
    } cases[] = {
        {u"2147483647", QAnyValue(2147483647)},
        // Past the largest int a whole number is a double.
        {u"2147483648", QAnyValue(2147483648.0)},
        {u"-0.0", QAnyValue(-0.0)},
        {u" +- 3 ", QAnyValue(-3)},
        {u"5 mm", QAnyValue(QLength::FromRaw(5))},
        {u"$1,000", QAnyValue(QMoney::FromRaw(QMoney::dollar_to_raw(1000)))},
        {u"-$0.05", QAnyValue(QMoney::FromRaw(-QMoney::dollar_to_raw(0.05)))},
        {u"\"\"\"a\"\"\"\"b\\t\\\\\\q\"\"\"", QAnyValue(u"a\"b\t\\\\q")},
        {u"'it''s'", QAnyValue(u"it's")},
        {u"TRUE", QAnyValue(true)},
        {u"   ", QAnyValue()},
        {u"\"\"", QAnyValue()},
    };
    for (const auto& c : cases) {
        const CString token(c.token);
        QAnyValue direct;
        ASSERT_TRUE(ReadPlainCellToken(token.View(), direct)) << token.ToUtf8();
        EXPECT_EQ(DescribeCell(direct), DescribeCell(c.expected)) << token.ToUtf8();
        EXPECT_EQ(ReadCellBothWays(token).difference, "");
    }
}

// Whatever the tokeniser reads as more than one plain literal, or not at all, is left to it:
// feet and inches, fractions, operators, comments, names, unknown words and broken literals.
TEST(PlainCells, LeaveWhatIsNotPlainToTheFormula) {
    const char16_t* const tokens[] = {u"1e5", u"-",      u"5'6\"", u"3 1/2",
                                      u"$-5", u"5 mm 2", u"1,000"};
    for (const char16_t* text : tokens) {
        const CString token(text);
        QAnyValue direct(u"untouched");
        EXPECT_FALSE(ReadPlainCellToken(token.View(), direct)) << token.ToUtf8();
        EXPECT_EQ(DescribeCell(direct), DescribeCell(QAnyValue(u"untouched"))) << token.ToUtf8();
    }
}

// Texts near the plain ones: numbers in every form the tokeniser takes, with signs and unit
// words, amounts of money, string literals with quotes and escapes, truth values, each now and
// then spoiled by what makes it something else.
class CellGenerator {
public:
    explicit CellGenerator(unsigned seed) : m_random(seed) {}

    CString Next() {
        std::u16string text = Pick({u"", u"", u"", u" "}) + Prefix();
        switch (Below(20)) {
        case 0:
            text += Truth();
            break;
        case 1:
            text += Pick({u"", u" ", u"   "});
            break;
        case 2:
        case 3:
            text += Signs() + Money();
            break;
        case 4:
        case 5:
        case 6:
        case 7:
        case 8:
            text += StringLiteral();
            break;
        default:
            text += Signs() + Number() + Unit();
            break;
        }
        if (Below(6) == 0)
            text += Spoiler();
        text += Pick({u"", u"", u"", u" ", u"  "});
        const CString formula{std::u16string_view(text)};
        return Below(2) == 0 ? DoubleQuotesAndEnclose(formula) : formula;
    }

private:
    int Below(int count) { return std::uniform_int_distribution<int>(0, count - 1)(m_random); }

    std::u16string Pick(std::initializer_list<const char16_t*> choices) {
        return *(choices.begin() + Below(static_cast<int>(choices.size())));
    }

    std::u16string Digits(int count) {
        std::u16string digits;
        for (int i = 0; i < count; ++i)
            digits += static_cast<char16_t>(u'0' + Below(10));
        return digits;
    }

    std::u16string Prefix() {
        if (Below(25) != 0)
            return u"";
        return Pick({u"!", u"$", u"(", u"#", u"@", u"%", u"/* c */", u"the ", u"_"});
    }

    std::u16string Signs() {
        return Pick({u"", u"", u"", u"", u"-", u"+", u"--", u"- ", u"+-", u"-+-", u"- - -"});
    }

    std::u16string Whole() {
        switch (Below(12)) {
        case 0:
            return u"";
        case 1:
            return u"0";
        case 2:
            return Pick({u"2147483647", u"2147483648", u"4294967295", u"9007199254740993"});
        case 3:
            return u"000" + Digits(1 + Below(4));
        case 4:
            return Digits(10 + Below(6));
        case 5:
            return Digits(16 + Below(10));
        case 6:
            return std::u16string(310 + Below(100), u'9');
        case 7:
            return Digits(4 + Below(6));
        default:
            return Digits(1 + Below(3));
        }
    }

    std::u16string Number() {
        const std::u16string whole = Whole();
        switch (Below(6)) {
        case 0:
            return whole + u".";
        case 1:
            return whole + u"." + Digits(10 + Below(21));
        case 2:
        case 3:
            return whole + u"." + Digits(1 + Below(5));
        default:
            return whole.empty() ? u"." + Digits(1 + Below(3)) : whole;
        }
    }

    // Any spelling of any unit word the formula language knows, in any case.
    std::u16string Unit() {
        if (Below(5) < 2)
            return u"";
        const QUnitWord& unit = UnitWords()[Below(static_cast<int>(UnitWords().size()))];
        int spellings = 0;
        while (spellings < 4 && unit.spellings[spellings])
            ++spellings;
        std::u16string word = unit.spellings[Below(spellings)];
        for (char16_t& ch : word)
            if (Below(4) == 0 && ch >= u'a' && ch <= u'z')
                ch = static_cast<char16_t>(ch - u'a' + u'A');
        return Pick({u"", u" ", u"  "}) + word;
    }

    std::u16string Money() {
        std::u16string amount = u"$" + Digits(1 + Below(3));
        for (int groups = Below(3); groups > 0; --groups)
            amount += u"," + Digits(3);
        if (Below(2) == 0)
            amount += u"." + Digits(Below(4));
        return amount;
    }

    std::u16string StringLiteral() {
        const char16_t quote = Below(3) == 0 ? u'\'' : u'"';
        static const char16_t* const pieces[] = {
            u"a", u"Board",  u" ",          u"\\", u"\\n", u"\\t", u"\\r", u"\\\\", u"\\q", u"\"",
            u"'", u"\u00e9", u"\U0001F600", u"/",  u"=",   u":",   u"7",   u"mm",   u"\"\""};
        std::u16string literal(1, quote);
        for (int count = Below(8); count > 0; --count) {
            const std::u16string piece = pieces[Below(static_cast<int>(std::size(pieces)))];
            for (const char16_t ch : piece) {
                literal += ch;
                // A quote of the literal's own kind is doubled, but not always.
                if (ch == quote && Below(15) != 0)
                    literal += ch;
            }
        }
        if (Below(40) == 0)
            literal += u'\x01';
        if (Below(20) != 0)
            literal += quote;
        return literal;
    }

    std::u16string Truth() {
        return Pick({u"true", u"false", u"TRUE", u"False", u"tRuE", u"truex", u"fals"});
    }

    std::u16string Spoiler() {
        return Pick({u"e",      u"e5",     u"E-3", u".",  u"..2",    u" mmm", u"'",
                     u"\"",     u" 1/2",   u"/2",  u"%",  u" // c",  u"x",    u"_",
                     u"\u00e9", u" 5",     u";",   u"-",  u" mm mm", u"(1)",  u"\x01",
                     u"\u00a0", u"\u2003", u" mm", u"in", u" +1",    u",000"});
    }

    std::mt19937 m_random;
};

TEST(PlainCells, GeneratedTextsReadAlikeBothWays) {
    CellGenerator generator(20261126);
    AgreementCount count;
    for (int i = 0; i < 30000; ++i)
        count.Check(generator.Next());
    // Both ways are taken often: the generator is no test of one of them alone.
    EXPECT_GT(count.plain, count.tokens / 3);
    EXPECT_LT(count.plain, count.tokens * 9 / 10);
}

// The tokens the table writer makes, for values of every type in columns of every type.
TEST(PlainCells, WrittenTokensReadAlikeBothWays) {
    std::mt19937 random(7);
    const auto anyInt = [&] { return static_cast<int>(random()); };
    const auto anyDouble = [&] {
        double number = 0;
        do
            number = std::bit_cast<double>((static_cast<std::uint64_t>(random()) << 32) | random());
        while (!std::isfinite(number));
        return number;
    };
    const auto smallDouble = [&] {
        return (static_cast<int>(random() % 2000001) - 1000000) / 64.0;
    };
    std::vector<QAnyValue> values = {
        QAnyValue(INT_MIN), QAnyValue(INT_MAX),
        QAnyValue(0),       QAnyValue(-0.0),
        QAnyValue(5e-324),  QAnyValue(1e308),
        QAnyValue(0.1),     QAnyValue(true),
        QAnyValue(false),   QAnyValue(u"a\"b'c\\d\te\nf"),
        QAnyValue(u"=1+2"), QAnyValue(QDateTime(2020, 2, 1, 13, 5, 9))};
    for (int i = 0; i < 300; ++i) {
        values.emplace_back(anyInt());
        values.emplace_back(anyDouble());
        values.emplace_back(smallDouble());
        values.emplace_back(QMoney::FromRaw(anyInt()));
        values.emplace_back(QTime::FromRaw(anyInt()));
        values.emplace_back(QLength::FromRaw(smallDouble()));
        values.emplace_back(QLength::FromRaw(anyDouble()));
        values.emplace_back(QArea::FromRaw(smallDouble()));
        values.emplace_back(QVolume::FromRaw(smallDouble()));
        values.emplace_back(QAngle::FromRaw(smallDouble()));
    }
    const QAnyValue::TYPE columnTypes[] = {QAnyValue::TYPE_EMPTY, QAnyValue::TYPE_INT,
                                           QAnyValue::TYPE_DOUBLE, QAnyValue::TYPE_LENGTH,
                                           QAnyValue::TYPE_STRING};
    AgreementCount count;
    for (const QAnyValue& value : values) {
        count.Check(CellToken(value, value.Type()));
        for (const QAnyValue::TYPE type : columnTypes)
            count.Check(CellToken(value, type));
    }
    EXPECT_GT(count.plain, count.tokens * 9 / 10);
}

} // namespace
} // namespace keel
