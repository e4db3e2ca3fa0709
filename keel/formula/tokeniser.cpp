#include "keel/formula/tokeniser.h"

#include "keel/formula/compiledformula.h"
#include "keel/formula/literals.h"
#include "keel/platform/wchar.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>

namespace keel {

namespace {

// The cursor is a signed 16-bit offset.
constexpr int kLongestFormula = 32767;
constexpr double kLargestWhole = 2147483647.0;
constexpr double kRawPerInch = 25.400000000000002;
constexpr double kInchesPerFoot = 12.0;

bool IsIdStart(char16_t ch) {
    return IsAlpha(ch) || ch == u'_';
}

bool IsIdChar(char16_t ch) {
    return IsIdStart(ch) || IsDigit(ch);
}

QAnyValue NumericValue(double value, bool isWhole, bool sawFeetOrInches) {
    if (sawFeetOrInches)
        return QAnyValue(QLength::FromRaw(value * kRawPerInch));
    if (isWhole)
        return QAnyValue(static_cast<int>(std::floor(value + 0.5)));
    return QAnyValue(value);
}

// The offset of the token at `position`, or the end of the text when there is none.
int OffsetOf(const QTokenStream& stream, int position, int textLength) {
    if (position < 0 || position >= stream.Count())
        return textLength;
    return stream.GetToken(static_cast<short>(position))->Cursor();
}

CString TextBetweenOffsets(const CString& text, int start, int end, int maxLength) {
    int count = end - start;
    if (count <= 0)
        return CString();
    if (maxLength >= 0 && count > maxLength)
        count = maxLength;
    return text.Mid(start, count);
}

void InstallRespellHookOnce() {
    static const bool installed = [] {
        QStringUniqueCommon::SetRespellHook(&QTokeniser::ForceRetokenise);
        return true;
    }();
    (void)installed;
}

int MatchKeyOf(const QToken& token) {
    if (token.IsChar())
        return token.Char();
    if (token.IsId())
        return QTokenStream::c_idKeyBase + token.Id().UniqueId();
    return -1;
}

} // namespace

// --- Tokens and streams ------------------------------------------------------------------------

const QAnyValue& QToken::Value() const {
    static const QAnyValue empty;
    return empty;
}

QTokenStream::QTokenStream(FormulaText formula) : m_formula(formula) {}

QTokenStream::~QTokenStream() {
    delete m_compiled.load();
}

bool QTokenStream::Create(bool escapes) {
    QTokenInput input(m_formula, escapes);
    m_tokens.RemoveAll();
    m_keys.clear();
    m_error.Empty();
    delete m_compiled.exchange(nullptr);
    m_compileTried = false;
    m_uses = 0;
    while (QToken* token = input.GetNewToken(m_error)) {
        m_tokens.Add(QSmartPtr<QToken>(token));
        m_keys.push_back(MatchKeyOf(*token));
    }
    m_count = static_cast<short>(m_tokens.GetCount());
    return m_error.IsEmpty();
}

const QCompiledFormula* QTokenStream::Compiled(QFormulaCompilation mode) {
    if (mode == QFormulaCompilation::Off)
        return nullptr;
    if (const QCompiledFormula* compiled = m_compiled.load(std::memory_order_acquire))
        return compiled;
    if (m_compileTried.load(std::memory_order_relaxed))
        return nullptr;
    if (mode == QFormulaCompilation::Repeated && m_uses.fetch_add(1) < 1)
        return nullptr;
    if (m_compileTried.exchange(true))
        return nullptr;
    const QCompiledFormula* compiled = QCompiledFormula::Compile(*this).release();
    m_compiled.store(compiled, std::memory_order_release);
    return compiled;
}

QToken* QTokenStream::GetToken(short position) const {
    if (position < 0 || position >= m_count)
        return nullptr;
    return m_tokens.GetData()[position].Get();
}

CString QTokenStream::FormulaStringBetween(short first, short last, int maxLength) const {
    const CString text = m_formula.ToString();
    const int start = OffsetOf(*this, first, text.GetLength());
    const int end = OffsetOf(*this, last + 1, text.GetLength());
    return TextBetweenOffsets(text, start, end, maxLength);
}

CString QTokenStream::ThisCharPlus(short position, int maxLength) const {
    const CString text = m_formula.ToString();
    const int start = OffsetOf(*this, position, text.GetLength());
    return TextBetweenOffsets(text, start, text.GetLength(), maxLength);
}

void QTokenStreamIterator::Create(QTokenStream* stream) {
    m_stream = stream;
    m_position = 0;
}

bool QTokenStreamIterator::IsEmpty() const {
    return !m_stream || m_stream->Count() == 0;
}

bool QTokenStreamIterator::PastEOF() const {
    return !m_stream || m_stream->PastEOF(m_position);
}

QToken* QTokenStreamIterator::ThisToken() const {
    return m_stream ? m_stream->GetToken(m_position) : nullptr;
}

CString QTokenStreamIterator::FormulaStringBetween(short first, short last, int maxLength) const {
    return m_stream ? m_stream->FormulaStringBetween(first, last, maxLength) : CString();
}

CString QTokenStreamIterator::ThisCharPlus(int maxLength) const {
    return m_stream ? m_stream->ThisCharPlus(m_position, maxLength) : CString();
}

// --- Cutting the text into tokens --------------------------------------------------------------

QTokenInput::QTokenInput(FormulaText formula, bool escapes)
    : m_formula(formula), m_text(formula.ToString()), m_escapes(escapes) {
    if (m_text.GetLength() > kLongestFormula)
        m_tooLong = true;
    else
        m_length = static_cast<short>(m_text.GetLength());
}

char16_t QTokenInput::ThisChar() const {
    return m_cursor < m_length ? m_text.GetString()[m_cursor] : char16_t(0);
}

char16_t QTokenInput::CharAt(int offset) const {
    const int at = m_cursor + offset;
    return at >= 0 && at < m_length ? m_text.GetString()[at] : char16_t(0);
}

QToken* QTokenInput::GetNewToken(CString& error) {
    error.Empty();
    if (m_tooLong) {
        error = CString::Formatted(u"Formula too long to evaluate (more than %d characters)",
                                   kLongestFormula);
        return nullptr;
    }
    for (;;) {
        while (IsSpace(ThisChar()))
            ++m_cursor;
        if (ThisChar() != u'/' || !TokeniseComment())
            break;
    }
    const char16_t ch = ThisChar();
    if (ch == 0)
        return nullptr;
    if (ch == u'"' || ch == u'\'')
        return TokeniseString(error);

    QToken* token = nullptr;
    if (ch == u'$')
        token = TokeniseDollars();
    else if (IsDigit(ch) || ch == u'.')
        token = TokeniseNumeric(error);
    else if (IsIdStart(ch))
        token = TokeniseId();
    if (token)
        return token;
    // Whatever did not make a token of its own, a failed number included, is one character.
    token = new QCharToken(m_cursor, ch);
    ++m_cursor;
    return token;
}

bool QTokenInput::TokeniseComment() {
    const char16_t next = CharAt(1);
    if (next == u'/') {
        m_cursor = static_cast<short>(m_cursor + 2);
        while (ThisChar() != u'\n' && ThisChar() != 0)
            ++m_cursor;
        return true;
    }
    if (next != u'*')
        return false;
    const char16_t* chars = m_text.GetString();
    for (int at = m_cursor + 2; at + 1 < m_length; ++at) {
        if (chars[at] == u'*' && chars[at + 1] == u'/') {
            m_cursor = static_cast<short>(at + 2);
            return true;
        }
    }
    return false;
}

QToken* QTokenInput::TokeniseString(CString& error) {
    const short start = m_cursor;
    const char16_t quote = ThisChar();
    const char16_t* chars = m_text.GetString();
    ++m_cursor;
    CString text;
    int runStart = m_cursor;
    for (;;) {
        const char16_t ch = ThisChar();
        if (ch < 32) {
            error = u"Mismatched quotes";
            return nullptr;
        }
        ++m_cursor;
        if (ch != quote)
            continue;
        text.Append(chars + runStart, m_cursor - 1 - runStart);
        if (ThisChar() != quote)
            break;
        // A doubled quote: the second one starts the next run of text.
        runStart = m_cursor;
        ++m_cursor;
    }
    return new QValueToken(start, QAnyValue(m_escapes ? UndoInsertEscapeSequences(text) : text));
}

CString QTokenInput::UndoInsertEscapeSequences(const CString& text) {
    if (text.Find(u'\\') < 0)
        return text;
    const std::u16string_view chars = text.View();
    std::u16string result;
    result.reserve(chars.size());
    for (size_t i = 0; i < chars.size(); ++i) {
        const char16_t ch = chars[i];
        if (ch != u'\\' || i + 1 == chars.size()) {
            result += ch;
            continue;
        }
        const char16_t next = chars[++i];
        switch (next) {
        case u'\\':
            result += u'\\';
            break;
        case u'n':
            result += u'\n';
            break;
        case u'r':
            result += u'\r';
            break;
        case u't':
            result += u'\t';
            break;
        default:
            result += u'\\';
            result += next;
            break;
        }
    }
    return CString(std::u16string_view(result));
}

QToken* QTokenInput::TokeniseDollars() {
    if (!IsDigit(CharAt(1)))
        return nullptr;
    const short start = m_cursor;
    ++m_cursor;
    double dollars = 0;
    for (;;) {
        const char16_t ch = ThisChar();
        if (IsDigit(ch)) {
            dollars = dollars * 10 + (ch - u'0');
            ++m_cursor;
        } else if (ch == u',' && IsDigit(CharAt(1))) {
            ++m_cursor;
        } else {
            break;
        }
    }
    TokeniseDecimal(dollars);
    return new QValueToken(start, QAnyValue(QMoney::FromRaw(QMoney::dollar_to_raw(dollars))));
}

QToken* QTokenInput::TokeniseNumeric(CString& error) {
    const short start = m_cursor;
    double value = 0;
    bool isWhole = true;
    bool sawFeetOrInches = false;
    if (!TokeniseDouble(value, isWhole, sawFeetOrInches, true, false, error)) {
        m_cursor = start;
        return nullptr;
    }
    return new QValueToken(start, NumericValue(value, isWhole, sawFeetOrInches));
}

QToken* QTokenInput::TokeniseId() {
    const short start = m_cursor;
    while (IsIdChar(ThisChar()))
        ++m_cursor;
    const CString word(m_text.GetString() + start, m_cursor - start);
    return new QIdToken(start, PropId(word, true));
}

bool QTokenInput::TokeniseWhole(double& value, bool& isWhole) {
    const short first = m_cursor;
    while (IsDigit(ThisChar()))
        ++m_cursor;
    if (m_cursor == first)
        return false;
    value =
        LiteralWholeValue({m_text.GetString() + first, static_cast<std::size_t>(m_cursor - first)});
    if (value > kLargestWhole)
        isWhole = false;
    return true;
}

// Adds the decimal part at the cursor to the whole number in `value`; a '.' with no digit
// behind it adds nothing.
bool QTokenInput::TokeniseDecimal(double& value) {
    if (ThisChar() != u'.')
        return false;
    ++m_cursor;
    const short first = m_cursor;
    while (IsDigit(ThisChar()))
        ++m_cursor;
    if (m_cursor > first)
        value = LiteralWithDecimals(
            value, {m_text.GetString() + first, static_cast<std::size_t>(m_cursor - first)});
    return true;
}

bool QTokenInput::TokeniseDouble(double& value, bool& isWhole, bool& sawFeetOrInches,
                                 bool allowMixed, bool fractionOnly, CString& error) {
    const auto endAsInches = [&] {
        ++m_cursor;
        sawFeetOrInches = true;
        return true;
    };
    // 5' is feet; 5'6, 5'6" and 5'6 1/2 carry on with the inches.
    const auto endAsFeet = [&] {
        ++m_cursor;
        value *= kInchesPerFoot;
        sawFeetOrInches = true;
        if (!IsDigit(ThisChar()))
            return true;
        double inches = 0;
        if (!TokeniseDouble(inches, isWhole, sawFeetOrInches, true, false, error))
            return false;
        value += inches;
        return true;
    };

    if (!TokeniseWhole(value, isWhole)) {
        if (ThisChar() != u'.' || !IsDigit(CharAt(1)))
            return false;
        value = 0;
    }
    if (fractionOnly) {
        if (ThisChar() != u'/') {
            error = u"Not a fraction";
            return false;
        }
    } else {
        if (ThisChar() == u'"')
            return endAsInches();
        if (ThisChar() == u'\'')
            return endAsFeet();
        if (ThisChar() == u'.') {
            TokeniseDecimal(value);
            isWhole = false;
            if (ThisChar() == u'"')
                return endAsInches();
            if (ThisChar() == u'\'')
                return endAsFeet();
        }
        if (allowMixed && IsSpace(ThisChar())) {
            // "3 1/2": a fraction behind white space is added; anything else ends the number.
            const short beforeSpace = m_cursor;
            while (IsSpace(ThisChar()))
                ++m_cursor;
            double fraction = 0;
            bool fractionWhole = true;
            bool fractionInches = false;
            if (IsDigit(ThisChar()) &&
                TokeniseDouble(fraction, fractionWhole, fractionInches, false, true, error)) {
                value += fraction;
                isWhole = isWhole && fractionWhole;
                sawFeetOrInches = sawFeetOrInches || fractionInches;
            } else {
                error.Empty();
                m_cursor = beforeSpace;
            }
        }
    }

    if (ThisChar() == u'/' && IsDigit(CharAt(1))) {
        ++m_cursor;
        double denominator = 0;
        bool denominatorWhole = true;
        if (!TokeniseDouble(denominator, denominatorWhole, sawFeetOrInches, false, false, error))
            return false;
        if (denominator == 0) {
            error = u"Denominator zero in fraction";
            return false;
        }
        value /= denominator;
        isWhole = false;
    }
    return true;
}

// --- The token cache and matching --------------------------------------------------------------

QSmartPtrArray<QTokenStream> QTokeniser::c_tokenstreams;

bool QTokeniser::Create(CString& error) {
    InstallRespellHookOnce();
    const int index = m_formula.UniqueId();
    if (index >= 0 && index < c_tokenstreams.GetCount() && c_tokenstreams[index]) {
        m_stream = c_tokenstreams[index];
    } else {
        QSmartPtr<QTokenStream> stream(new QTokenStream(m_formula));
        if (!stream->Create(true)) {
            error = stream->ErrorText();
            return false;
        }
        if (index >= 0)
            c_tokenstreams.SetAtGrow(index, stream);
        m_stream = stream;
    }
    error = m_stream->ErrorText();
    m_iterator.Create(m_stream);
    return true;
}

void QTokeniser::ForceRetokenise(int index) {
    if (index >= 0 && index < c_tokenstreams.GetCount())
        c_tokenstreams[index] = nullptr;
}

void QTokeniser::ForgetAllTokenStreams() {
    c_tokenstreams.RemoveAll();
}

bool QTokeniser::MatchCharPair(char16_t first, char16_t second) {
    if (!TestCharPair(first, second))
        return false;
    NextToken();
    NextToken();
    return true;
}

bool QTokeniser::MatchIdPair(PropId first, PropId second) {
    if (!TestIdPair(first, second))
        return false;
    NextToken();
    NextToken();
    return true;
}

bool QTokeniser::MatchIdWithToken(PropId id, const QToken* token) {
    if (!token || !token->IsId() || !(token->Id() == id))
        return false;
    NextToken();
    return true;
}

bool QTokeniser::ParseChar(char16_t& character) {
    const QToken* token = ThisToken();
    if (!token || !token->IsChar())
        return false;
    character = token->Char();
    NextToken();
    return true;
}

bool QTokeniser::ParseId(PropId& id) {
    const QToken* token = ThisToken();
    if (!token || !token->IsId())
        return false;
    id = token->Id();
    NextToken();
    return true;
}

bool QTokeniser::ParseValue(QAnyValue& value) {
    const QToken* token = ThisToken();
    if (!token || !token->IsValue())
        return false;
    value = token->Value();
    NextToken();
    return true;
}

} // namespace keel
