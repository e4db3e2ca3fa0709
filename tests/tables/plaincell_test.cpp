#include "tests/support/environment.h"
#include "tests/support/formulacases.h"
#include "tests/support/paths.h"
#include "tests/support/plaincells.h"
#include "tests/tables/tablefixture.h"

#include "keel/tables/celltokens.h"
#include "keel/tables/tabtokens.h"
#include "keel/values/datetime.h"

#include <bit>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::CellReading;
using test::DescribeCell;
using test::ReadCellBothWays;

// Every token read both ways must agree; a run of cases stops reporting after a few failures.
class AgreementCount {
public:
    void Check(const CString& token) {
        const CellReading reading = ReadCellBothWays(token);
        ++m_tokens;
        if (reading.plain)
            ++m_plain;
        if (reading.difference.empty())
            return;
        if (++m_failures <= 20)
            ADD_FAILURE() << reading.difference;
    }
    int Tokens() const { return m_tokens; }
    int Plain() const { return m_plain; }

private:
    int m_tokens = 0;
    int m_plain = 0;
    int m_failures = 0;
};

// --- Texts with known values -----------------------------------------------------------------

QAnyValue Inches(double inches) {
    return QAnyValue(QLength::FromRaw(inches * 25.400000000000002));
}

TEST(PlainCells, ReadToTheValuesOfTheFormulaLanguage) {
    const struct {
        const char16_t* token;
        QAnyValue expected;
    } cases[] = {
        {u"42", QAnyValue(42)},
        {u"007", QAnyValue(7)},
        {u"2147483647", QAnyValue(2147483647)},
        // Past the largest int a whole number is a double.
        {u"2147483648", QAnyValue(2147483648.0)},
        {u"5.", QAnyValue(5.0)},
        {u".5", QAnyValue(0.5)},
        {u"0.1", QAnyValue(0.1)},
        {u"123456789012345678901234567890", QAnyValue(1.2345678901234568e29)},
        {u"-0", QAnyValue(0)},
        {u"-0.0", QAnyValue(-0.0)},
        {u"--3", QAnyValue(3)},
        {u" - 3 ", QAnyValue(-3)},
        {u"+-2.5", QAnyValue(-2.5)},
        {u"5 mm", QAnyValue(QLength::FromRaw(5))},
        {u"5MM", QAnyValue(QLength::FromRaw(5))},
        {u"2 Inches", Inches(2)},
        {u"-1.5 ft", QAnyValue(QLength::FromRaw(-(1.5 * 304.8)))},
        {u"2 sqm", QAnyValue(QArea::FromRaw(2))},
        {u"3 cbm", QAnyValue(QVolume::FromRaw(3))},
        {u"30 deg", QAnyValue(QAngle(30, QAngle::ANGU_DEG))},
        {u"5400 seconds", QAnyValue(QTime(5400, QTime::TU_RAW))},
        {u"1.5 hours", QAnyValue(QTime::FromRaw(QTime::hour_to_raw(1.5)))},
        {u"250 cents", QAnyValue(QMoney::FromRaw(250))},
        {u"$12.50", QAnyValue(QMoney::FromRaw(QMoney::dollar_to_raw(12.5)))},
        {u"$1,000", QAnyValue(QMoney::FromRaw(QMoney::dollar_to_raw(1000)))},
        {u"-$0.05", QAnyValue(QMoney::FromRaw(-QMoney::dollar_to_raw(0.05)))},
        {u"\"\"\"Board 1\"\"\"", QAnyValue(u"Board 1")},
        {u"\"\"\"a\"\"\"\"b\"\"\"", QAnyValue(u"a\"b")},
        {u"'it''s'", QAnyValue(u"it's")},
        {u"\"\"\"tab\\there\\\\\\q\"\"\"", QAnyValue(u"tab\there\\\\q")},
        {u"\"\"\"\u00e9t\u00e9 \U0001F600\"\"\"", QAnyValue(u"\u00e9t\u00e9 \U0001F600")},
        {u"\"\"\"=1+1\"\"\"", QAnyValue(u"=1+1")},
        {u"TRUE", QAnyValue(true)},
        {u"false", QAnyValue(false)},
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
    const char16_t* const tokens[] = {
        u"1..2",     u"12 mmm",    u"1e",      u"1e5",     u"-",
        u".",        u"+",         u"5'",      u"5'6\"",   u"3 1/2",
        u"1/2",      u"5 /2",      u"5%",      u"$",       u"$-5",
        u"$5 mm",    u"5 mm 2",    u"5 mm;",   u"5 // x",  u"/* a */ 5",
        u"(5)",      u"!5",        u"5 5",     u"5mm2",    u"5 m_",
        u"5 \u00e9", u"5\u00a0mm", u"5\u2003", u"x",       u"pi",
        u"true 1",   u"truex",     u"'open",   u"'a' 'b'", u"'a' mm",
        u"'a\x01'",  u"5\x01",     u"1,000",   u"$1,,000", u"--------------------5",
    };
    for (const char16_t* text : tokens) {
        const CString token(text);
        QAnyValue direct(u"untouched");
        EXPECT_FALSE(ReadPlainCellToken(token.View(), direct)) << token.ToUtf8();
        EXPECT_EQ(DescribeCell(direct), DescribeCell(QAnyValue(u"untouched"))) << token.ToUtf8();
    }
}

// --- Generated texts -------------------------------------------------------------------------

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

    std::u16string Unit() {
        static const char16_t* const words[] = {
            u"dollar",     u"dollars",     u"c",      u"cent",       u"cents",       u"in",
            u"inch",       u"inches",      u"mm",     u"millimetre", u"millimetres", u"cm",
            u"centimetre", u"centimetres", u"ft",     u"foot",       u"feet",        u"m",
            u"metre",      u"metres",      u"sqmm",   u"sqcm",       u"sqin",        u"sqft",
            u"sqm",        u"cbmm",        u"cbcm",   u"cbin",       u"cbft",        u"cbm",
            u"hr",         u"hour",        u"hours",  u"mn",         u"minute",      u"minutes",
            u"s",          u"sec",         u"second", u"seconds",    u"deg",         u"degrees",
            u"rad",        u"radians"};
        if (Below(5) < 2)
            return u"";
        std::u16string word = words[Below(static_cast<int>(std::size(words)))];
        for (char16_t& ch : word)
            if (Below(4) == 0)
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
    EXPECT_GT(count.Plain(), count.Tokens() / 3);
    EXPECT_LT(count.Plain(), count.Tokens() * 9 / 10);
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
    EXPECT_GT(count.Plain(), count.Tokens() * 9 / 10);
}

// --- The tables of the test suites -------------------------------------------------------------

// The text of an escape sequence of a C++ literal starting at `at`, past the backslash; `at` moves
// past the sequence.
std::string EscapedText(const std::string& source, std::size_t& at) {
    const char escape = source[at++];
    const auto hex = [&](std::size_t most) {
        std::size_t length = 0;
        while (length < most && std::isxdigit(static_cast<unsigned char>(source[at + length])))
            ++length;
        const unsigned code = length ? std::stoul(source.substr(at, length), nullptr, 16) : 0;
        at += length;
        return code;
    };
    switch (escape) {
    case 't':
        return "\t";
    case 'n':
        return "\n";
    case 'r':
        return "\r";
    case '0':
        return std::string(1, '\0');
    case 'x':
        return std::string(1, static_cast<char>(hex(2)));
    case 'u':
        return CString(std::u16string(1, static_cast<char16_t>(hex(4)))).ToUtf8();
    default:
        return std::string(1, escape);
    }
}

// The string literals of a C++ source, each run of adjacent literals joined, escapes undone.
// Comments and character literals are passed over so that their quotes start nothing; raw
// literals are not told apart, the table tests having none.
std::vector<std::string> StringLiterals(const std::string& source) {
    std::vector<std::string> literals;
    bool joining = false;
    for (std::size_t at = 0; at < source.size();) {
        const char ch = source[at];
        const char next = at + 1 < source.size() ? source[at + 1] : '\0';
        if (ch == '/' && (next == '/' || next == '*')) {
            const std::size_t end = source.find(next == '/' ? "\n" : "*/", at + 2);
            at = end == std::string::npos ? source.size() : end + (next == '/' ? 1 : 2);
        } else if (ch == '"' ||
                   (ch == '\'' &&
                    (at == 0 || !std::isdigit(static_cast<unsigned char>(source[at - 1]))))) {
            std::string text;
            for (++at; at < source.size() && source[at] != ch;)
                text +=
                    source[at] == '\\' ? EscapedText(source, ++at) : std::string(1, source[at++]);
            ++at;
            if (ch == '\'')
                joining = false;
            else if (joining && !literals.empty())
                literals.back() += text;
            else
                literals.push_back(text);
            joining = ch == '"';
        } else {
            // The encoding prefixes u, u8, U and L in front of a literal keep a run going.
            const bool prefix =
                std::string("uUL8").find(ch) != std::string::npos && (next == '"' || next == '8');
            if (!std::isspace(static_cast<unsigned char>(ch)) && !prefix)
                joining = false;
            ++at;
        }
    }
    return literals;
}

// The text of a shell printf format, as the cases of the program give table files.
std::vector<std::string> PrintfFormats(const std::string& text) {
    std::vector<std::string> formats;
    for (std::size_t at = text.find("printf '"); at != std::string::npos;
         at = text.find("printf '", at)) {
        at += 8;
        const std::size_t end = text.find('\'', at);
        formats.push_back(test::Unescaped(text.substr(at, end - at)));
        at = end;
    }
    return formats;
}

// The texts of the table files the tests write or keep: the literals with a tab in them of every
// source that names a table file, the program's cases that print one, the files of the table
// cases, and the tab-separated files among the fixtures.
std::vector<std::string> TableTextsOfTheTests() {
    const std::filesystem::path tests = std::filesystem::path(test::TestDataFolder()).parent_path();
    std::vector<std::string> texts;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tests)) {
        if (!entry.is_regular_file())
            continue;
        const std::string extension = entry.path().extension().string();
        const std::string text = test::ReadText(entry.path());
        if (extension == ".vlt" || extension == ".tab") {
            texts.push_back(text);
        } else if (extension == ".txt" && entry.path().parent_path().filename() == "tables") {
            for (const std::vector<std::string>& c : test::TableCases(entry.path().filename()))
                texts.push_back(c[0]);
        } else if (extension == ".txt") {
            for (const std::string& format : PrintfFormats(text))
                texts.push_back(format);
        } else if ((extension == ".cpp" || extension == ".h") &&
                   (text.find("VltFormat") != std::string::npos ||
                    text.find(".vlt") != std::string::npos)) {
            for (const std::string& literal : StringLiterals(text))
                if (literal.find('\t') != std::string::npos)
                    texts.push_back(literal);
        }
    }
    return texts;
}

std::set<std::string> TokensOf(const std::vector<std::string>& texts) {
    std::set<std::string> tokens;
    for (const std::string& text : texts) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream cells(line);
            for (std::string cell; std::getline(cells, cell, '\t');)
                tokens.insert(cell);
        }
    }
    return tokens;
}

TEST(PlainCells, EveryCellOfTheTestTablesReadsAlikeBothWays) {
    const std::set<std::string> tokens = TokensOf(TableTextsOfTheTests());
    AgreementCount count;
    for (const std::string& token : tokens)
        count.Check(CString::FromUtf8(token));
    // The suites hold hundreds of different table cells, a good part of them plain.
    EXPECT_GT(count.Tokens(), 400);
    EXPECT_GT(count.Plain(), 120);
}

} // namespace
} // namespace keel
