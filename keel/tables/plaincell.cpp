#include "keel/tables/plaincell.h"

#include "keel/formula/literals.h"
#include "keel/formula/tokeniser.h"

#include <cmath>
#include <string>

namespace keel {

namespace {

// The longest formula the tokeniser takes; a longer text fails there.
constexpr std::size_t c_longestFormula = 32767;
// Each sign is a level of the evaluator's descent; a few are plenty for data.
constexpr int c_mostSigns = 16;

// The largest literal that is a whole number rather than a double, as the tokeniser has it.
constexpr double c_largestWhole = 2147483647.0;

bool IsAsciiDigit(char16_t ch) {
    return ch >= u'0' && ch <= u'9';
}

bool IsAsciiLetter(char16_t ch) {
    return (ch >= u'a' && ch <= u'z') || (ch >= u'A' && ch <= u'Z');
}

// --- The text ------------------------------------------------------------------------------------

// A cursor over the formula text; 0 past the end, as the tokeniser sees it.
class PlainText {
public:
    explicit PlainText(std::u16string_view text) : m_text(text) {}

    char16_t Here() const { return m_at < m_text.size() ? m_text[m_at] : char16_t(0); }
    char16_t Ahead(std::size_t offset) const {
        return m_at + offset < m_text.size() ? m_text[m_at + offset] : char16_t(0);
    }
    void Skip(std::size_t count = 1) { m_at += count; }
    bool AtEnd() const { return m_at >= m_text.size(); }
    std::size_t At() const { return m_at; }
    std::u16string_view Between(std::size_t first, std::size_t end) const {
        return m_text.substr(first, end - first);
    }
    // Only the plain space counts as a blank here; other white space is left to the formula.
    void SkipBlanks() {
        while (Here() == u' ')
            ++m_at;
    }
    std::u16string_view TakeWhile(bool (*test)(char16_t)) {
        const std::size_t start = m_at;
        while (m_at < m_text.size() && test(m_text[m_at]))
            ++m_at;
        return m_text.substr(start, m_at - start);
    }

private:
    std::u16string_view m_text;
    std::size_t m_at = 0;
};

// The text with each doubled quote made one.
CString Undoubled(std::u16string_view text, char16_t quote) {
    std::u16string single;
    single.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        single += text[i];
        if (text[i] == quote && i + 1 < text.size() && text[i + 1] == quote)
            ++i;
    }
    return CString(std::u16string_view(single));
}

// A string literal at the cursor to the end of the text: a doubled quote is one quote, and the
// escapes are undone as the tokeniser undoes them. Control characters fail there.
bool ReadStringLiteral(PlainText& text, QAnyValue& value) {
    const char16_t quote = text.Here();
    text.Skip();
    const std::size_t start = text.At();
    bool doubled = false;
    for (;;) {
        const char16_t ch = text.Here();
        if (ch < 32)
            return false;
        text.Skip();
        if (ch != quote)
            continue;
        if (text.Here() != quote)
            break;
        doubled = true;
        text.Skip();
    }
    const std::u16string_view body = text.Between(start, text.At() - 1);
    text.SkipBlanks();
    if (!text.AtEnd())
        return false;
    const CString literal = doubled ? Undoubled(body, quote) : CString(body);
    value = QAnyValue(QTokenInput::UndoInsertEscapeSequences(literal));
    return true;
}

// "true" or "false" in any case and nothing else.
bool ReadTruth(PlainText& text, QAnyValue& value) {
    const std::u16string_view word = text.TakeWhile(&IsAsciiLetter);
    text.SkipBlanks();
    if (!text.AtEnd())
        return false;
    if (SameWordIgnoringCase(word, u"true"))
        value = QAnyValue(true);
    else if (SameWordIgnoringCase(word, u"false"))
        value = QAnyValue(false);
    else
        return false;
    return true;
}

// A literal number: the double the tokeniser makes of it, and whether that is a whole number.
struct PlainNumber {
    double value = 0;
    bool isWhole = true;
};

// Digits with an optional decimal part, as the tokeniser reads a number. False for what it
// would read as more: feet and inches, a fraction, a mixed number.
bool ReadNumber(PlainText& text, PlainNumber& number) {
    const std::u16string_view whole = text.TakeWhile(&IsAsciiDigit);
    if (whole.empty() && !(text.Here() == u'.' && IsAsciiDigit(text.Ahead(1))))
        return false;
    number.value = whole.empty() ? 0.0 : LiteralWholeValue(whole);
    number.isWhole = number.value <= c_largestWhole;
    if (text.Here() == u'.') {
        text.Skip();
        const std::u16string_view decimals = text.TakeWhile(&IsAsciiDigit);
        if (!decimals.empty())
            number.value = LiteralWithDecimals(number.value, decimals);
        number.isWhole = false;
    }
    const char16_t next = text.Here();
    if (next == u'"' || next == u'\'' || next == u'/')
        return false;
    text.SkipBlanks();
    return !IsAsciiDigit(text.Here());
}

// "$" and digits, with commas between them and perhaps decimals: an amount of money in dollars,
// the digits summed as the tokeniser sums them.
double ReadDollars(PlainText& text) {
    text.Skip();
    double dollars = 0;
    for (;;) {
        const char16_t ch = text.Here();
        if (IsAsciiDigit(ch)) {
            dollars = dollars * 10 + (ch - u'0');
            text.Skip();
        } else if (ch == u',' && IsAsciiDigit(text.Ahead(1))) {
            text.Skip();
        } else {
            break;
        }
    }
    if (text.Here() == u'.') {
        text.Skip();
        const std::u16string_view decimals = text.TakeWhile(&IsAsciiDigit);
        if (!decimals.empty())
            dollars = LiteralWithDecimals(dollars, decimals);
    }
    return dollars;
}

// A unit word, or none, and then the end of the text; false for anything else.
bool ReadUnitToTheEnd(PlainText& text, const QUnitWord*& unit) {
    unit = nullptr;
    if (text.AtEnd())
        return true;
    unit = FindUnitWord(text.TakeWhile(&IsAsciiLetter));
    text.SkipBlanks();
    return unit && text.AtEnd();
}

// Signs, then a number with perhaps a unit word behind it, or an amount of dollars. The unit
// applies to the number and the signs to that, as the evaluator nests them. The whole text is
// checked before the value is set.
bool ReadMeasure(PlainText& text, QAnyValue& value) {
    int minuses = 0;
    for (int signs = 0; text.Here() == u'-' || text.Here() == u'+'; ++signs) {
        if (signs == c_mostSigns)
            return false;
        if (text.Here() == u'-')
            ++minuses;
        text.Skip();
        text.SkipBlanks();
    }
    if (text.Here() == u'$' && IsAsciiDigit(text.Ahead(1))) {
        const double dollars = ReadDollars(text);
        text.SkipBlanks();
        if (!text.AtEnd())
            return false;
        value = QAnyValue(QMoney::FromRaw(QMoney::dollar_to_raw(dollars)));
    } else {
        PlainNumber number;
        const QUnitWord* unit = nullptr;
        if (!ReadNumber(text, number) || !ReadUnitToTheEnd(text, unit))
            return false;
        if (number.isWhole)
            value.SetInt(static_cast<int>(std::floor(number.value + 0.5)));
        else
            value.SetDouble(number.value);
        if (unit)
            value = ValueInUnit(value.MakeDouble(), *unit);
    }
    for (int i = 0; i < minuses; ++i)
        value.NEGit();
    return true;
}

bool ReadPlainFormula(std::u16string_view formula, QAnyValue& value) {
    if (formula.size() > c_longestFormula)
        return false;
    PlainText text(formula);
    text.SkipBlanks();
    const char16_t first = text.Here();
    if (text.AtEnd()) {
        value = QAnyValue();
        return true;
    }
    if (first == u'"' || first == u'\'')
        return ReadStringLiteral(text, value);
    if (IsAsciiLetter(first))
        return ReadTruth(text, value);
    return ReadMeasure(text, value);
}

} // namespace

bool ReadPlainCell(std::u16string_view token, QAnyValue& value) {
    const bool enclosed = token.size() >= 2 && token.front() == u'"' && token.back() == u'"';
    if (!enclosed)
        return ReadPlainFormula(token, value);
    // The file's own quoting: the enclosing quotes go and each doubled quote is one. The buffer
    // is kept, so that a whole table is read without an allocation for it.
    thread_local std::u16string formula;
    formula.clear();
    const std::u16string_view inner = token.substr(1, token.size() - 2);
    for (std::size_t at = 0; at < inner.size();) {
        const std::size_t quote = inner.find(u'"', at);
        if (quote == std::u16string_view::npos) {
            formula.append(inner.substr(at));
            break;
        }
        formula.append(inner.substr(at, quote + 1 - at));
        at = quote + 1 < inner.size() && inner[quote + 1] == u'"' ? quote + 2 : quote + 1;
    }
    return ReadPlainFormula(formula, value);
}

} // namespace keel
