#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"
#include "keel/values/array.h"
#include "keel/values/smartptr.h"
#include "keel/values/stringunique.h"

#include <atomic>
#include <vector>

namespace keel {

class QCompiledFormula;
enum class QFormulaCompilation;

// One token of a formula. There are no operator tokens beyond single characters: ">=" is the
// character tokens '>' and '='. `m_cursor` is the offset of the token's first character.
class QToken : public QSmartTarget {
public:
    explicit QToken(short cursor) : m_cursor(cursor) {}

    virtual bool Empty() const { return true; }
    virtual bool IsChar() const { return false; }
    virtual bool IsId() const { return false; }
    virtual bool IsValue() const { return false; }
    virtual char16_t Char() const { return 0; }
    virtual PropId Id() const { return PropId(); }
    virtual const QAnyValue& Value() const;

    short Cursor() const { return m_cursor; }

private:
    short m_cursor;
};

class QCharToken : public QToken {
public:
    QCharToken(short cursor, char16_t character) : QToken(cursor), m_char(character) {}
    bool Empty() const override { return false; }
    bool IsChar() const override { return true; }
    char16_t Char() const override { return m_char; }

private:
    char16_t m_char;
};

class QIdToken : public QToken {
public:
    QIdToken(short cursor, PropId id) : QToken(cursor), m_id(id) {}
    bool Empty() const override { return false; }
    bool IsId() const override { return true; }
    PropId Id() const override { return m_id; }

private:
    PropId m_id;
};

class QValueToken : public QToken {
public:
    QValueToken(short cursor, const QAnyValue& value) : QToken(cursor), m_value(value) {}
    bool Empty() const override { return false; }
    bool IsValue() const override { return true; }
    const QAnyValue& Value() const override { return m_value; }

private:
    QAnyValue m_value;
};

// The token stream of one formula text, made once and shared by every evaluation of it.
class QTokenStream : public QSmartTarget {
public:
    explicit QTokenStream(FormulaText formula);
    ~QTokenStream() override;

    // Tokenises the whole text; false with ErrorText() set when it cannot. `escapes` turns the
    // backslash sequences of string literals into their characters.
    bool Create(bool escapes);

    FormulaText Formula() const { return m_formula; }
    short Count() const { return m_count; }
    const CString& ErrorText() const { return m_error; }

    // Null past the end.
    QToken* GetToken(short position) const;
    bool PastEOF(short position) const { return position >= m_count; }

    // What a match compares, one integer a token, so that an operator or keyword test reads no
    // token object: a character token's character, an identifier's interned index plus
    // c_idKeyBase, -1 for a value, and -2 past the end.
    static constexpr int c_idKeyBase = 0x10000;
    int MatchKeyAt(short position) const {
        return position >= 0 && position < m_count ? m_keys[static_cast<std::size_t>(position)]
                                                   : -2;
    }
    // The source text from the first token's offset to the offset of the token after `last`
    // (to the end of the text when there is none), cut to `maxLength` characters.
    CString FormulaStringBetween(short first, short last, int maxLength) const;
    CString ThisCharPlus(short position, int maxLength) const;

    // The formula compiled, made once when `mode` says it is due (counting the calls); null
    // before then, when the mode is Off and when the formula has constructs left to the walk.
    const QCompiledFormula* Compiled(QFormulaCompilation mode);

private:
    FormulaText m_formula;
    QSmartPtrArray<QToken> m_tokens;
    std::vector<int> m_keys;
    short m_count = 0;
    CString m_error;
    // A stream may be shared by evaluations on several threads: the compiled form is made by
    // one and published whole.
    std::atomic<const QCompiledFormula*> m_compiled{nullptr};
    std::atomic<int> m_uses{0};
    std::atomic<bool> m_compileTried{false};
};

// A position in a token stream. It does not own the stream: whoever creates it keeps the stream
// alive (the tokeniser holds it), which spares two reference counts an evaluation.
class QTokenStreamIterator {
public:
    void Create(QTokenStream* stream);
    bool IsEmpty() const;
    bool PastEOF() const;
    // Null at the end.
    QToken* ThisToken() const;
    void NextToken() { ++m_position; }
    short SaveCursor() const { return m_position; }
    void RestoreCursor(short position) { m_position = position; }
    CString FormulaStringBetween(short first, short last, int maxLength) const;
    CString ThisCharPlus(int maxLength) const;
    QTokenStream* Stream() const { return m_stream; }

    // Puts the position back on destruction unless told not to.
    class SaveRestoreCursor {
    public:
        explicit SaveRestoreCursor(QTokenStreamIterator& iterator)
            : m_iterator(iterator), m_saved(iterator.SaveCursor()) {}
        ~SaveRestoreCursor() {
            if (m_restore)
                m_iterator.RestoreCursor(m_saved);
        }
        SaveRestoreCursor(const SaveRestoreCursor&) = delete;
        SaveRestoreCursor& operator=(const SaveRestoreCursor&) = delete;
        void DoNoRestore() { m_restore = false; }

    private:
        QTokenStreamIterator& m_iterator;
        short m_saved;
        bool m_restore = true;
    };

private:
    QTokenStream* m_stream = nullptr;
    short m_position = 0;
};

// The characters of one formula being cut into tokens. The cursor is 16 bits wide, so a formula
// longer than 32767 characters cannot be tokenised.
class QTokenInput {
public:
    QTokenInput(FormulaText formula, bool escapes);

    // 0 past the end.
    char16_t ThisChar() const;
    char16_t CharAt(int offset) const;
    short Cursor() const { return m_cursor; }
    short Length() const { return m_length; }
    bool TooLong() const { return m_tooLong; }

    // The next token, or null at the end of the input or on a failure (then `error` is set).
    QToken* GetNewToken(CString& error);

    // Unquotes a string literal's escapes: \\, \n, \r, \t; any other backslash stays, with the
    // character behind it passed over.
    static CString UndoInsertEscapeSequences(const CString& text);

private:
    bool TokeniseComment();
    QToken* TokeniseString(CString& error);
    QToken* TokeniseDollars();
    QToken* TokeniseNumeric(CString& error);
    QToken* TokeniseId();
    bool TokeniseWhole(double& value, bool& isWhole);
    bool TokeniseDecimal(double& value);
    bool TokeniseDouble(double& value, bool& isWhole, bool& sawFeetOrInches, bool allowMixed,
                        bool fractionOnly, CString& error);

    FormulaText m_formula;
    CString m_text;
    short m_cursor = 0;
    short m_length = 0;
    bool m_escapes;
    bool m_tooLong = false;
};

// The token half of the evaluator: the formula, its cached stream and a position in it.
class QTokeniser {
public:
    explicit QTokeniser(FormulaText formula) : m_formula(formula) {}
    virtual ~QTokeniser() = default;
    QTokeniser(const QTokeniser&) = delete;
    QTokeniser& operator=(const QTokeniser&) = delete;

    // Takes the cached stream of the formula, or makes and caches it; false with the
    // tokeniser's message when the text cannot be tokenised (a failed text is not cached).
    bool Create(CString& error);
    // Drops the cached stream of the formula with that interned index; called when the
    // interned text is respelt.
    static void ForceRetokenise(int index);
    // Drops every cached stream.
    static void ForgetAllTokenStreams();

    FormulaText Formula() const { return m_formula; }
    QTokenStream* Stream() const { return m_stream; }
    QTokenStreamIterator& Iterator() { return m_iterator; }

    bool IsEmpty() const { return m_iterator.IsEmpty(); }
    bool PastEOF() const { return m_iterator.PastEOF(); }
    QToken* ThisToken() const { return m_iterator.ThisToken(); }
    void NextToken() { m_iterator.NextToken(); }
    short SaveCursor() const { return m_iterator.SaveCursor(); }
    void RestoreCursor(short position) { m_iterator.RestoreCursor(position); }
    CString FormulaStringBetween(short first, short last, int maxLength = 20) const {
        return m_iterator.FormulaStringBetween(first, last, maxLength);
    }
    // The text from the current token on, at most `maxLength` characters.
    CString ThisCharPlus(int maxLength = 20) const { return m_iterator.ThisCharPlus(maxLength); }

    bool TestChar(char16_t character) const { return KeyAt(0) == character; }
    bool MatchChar(char16_t character) { return MatchKey(character); }
    bool TestCharPair(char16_t first, char16_t second) const {
        return KeyAt(0) == first && KeyAt(1) == second;
    }
    bool MatchCharPair(char16_t first, char16_t second);
    bool TestId(PropId id) const { return KeyAt(0) == IdKey(id); }
    bool MatchId(PropId id) { return MatchKey(IdKey(id)); }
    bool TestIdPair(PropId first, PropId second) const {
        return KeyAt(0) == IdKey(first) && KeyAt(1) == IdKey(second);
    }
    bool MatchIdPair(PropId first, PropId second);
    // MatchId on a token the caller fetched, so that one fetch serves a list of tests.
    bool MatchIdWithToken(PropId id, const QToken* token);
    bool ParseChar(char16_t& character);
    bool ParseId(PropId& id);
    bool ParseValue(QAnyValue& value);

    using SaveRestoreCursor = QTokenStreamIterator::SaveRestoreCursor;

    // The cache, indexed by the formula's interned index.
    static QSmartPtrArray<QTokenStream> c_tokenstreams;

protected:
    FormulaText m_formula;
    QSmartPtr<QTokenStream> m_stream;
    QTokenStreamIterator m_iterator;

private:
    static int IdKey(PropId id) {
        return id.IsEmpty() ? -3 : QTokenStream::c_idKeyBase + id.UniqueId();
    }
    int KeyAt(short ahead) const {
        return m_stream ? m_stream->MatchKeyAt(static_cast<short>(SaveCursor() + ahead)) : -2;
    }
    bool MatchKey(int key) {
        if (KeyAt(0) != key)
            return false;
        NextToken();
        return true;
    }
};

} // namespace keel
