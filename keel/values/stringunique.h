#pragma once

#include "keel/platform/cstring.h"

#include <functional>

namespace keel {

// An interned string: one index into the process-wide table of spellings. Equality, hashing and
// copying touch only the index; reading the text takes the table's lock. Spellings are folded for
// case: "Width" and "WIDTH" share one index, and the spelling that came first is the one shown.
// Entries are never removed.
class QStringUniqueCommon {
public:
    struct KnownString {
        CString m_spelling;
        bool m_inSorted = false;
    };

    // Called with the index whose spelling was replaced, so that whatever was cached under that
    // index (the formula layer keeps token streams there) can be dropped.
    using RespellHook = void (*)(int index);

    QStringUniqueCommon() = default;

    void Empty() { m_index = -1; }
    bool IsEmpty() const { return m_index < 0; }
    int UniqueId() const { return m_index; }

    CString ToString() const;
    // The characters of the spelling; they stay valid because the table shares the buffer, until
    // the entry is respelt.
    const char16_t* ToLPCTSTR() const;

    int GetLength() const;
    char16_t GetAt(int index) const;
    char16_t operator[](int index) const { return GetAt(index); }
    CString Left(int count) const;
    CString Mid(int first) const;
    CString Mid(int first, int count) const;
    CString Right(int count) const;

    // The strings offered for completion, in case-insensitive order.
    static int StringsCount();
    static CString StringAt(int position);
    // Completes `text` with the n-th string of the table that starts with it (ignoring case):
    // `text` becomes the part to be added and the result is the position in the sorted list, or
    // -1 (and `text` unchanged) when nothing matches.
    static int SuggestCompletion(CString& text, int n);

    static void SetRespellHook(RespellHook hook);

protected:
    void FromString(const CString& text, bool addToSorted, bool respell);

private:
    int m_index = -1;
};

// The canonical-form steps of the interned kinds.
CString IdentifierCanonicalForm(const CString& text, bool allowDot, bool allowTilde);
CString FormulaCanonicalForm(const CString& text);

struct PropIdClass {
    static CString CanonicalForm(const CString& text) {
        return IdentifierCanonicalForm(text, false, false);
    }
};
struct ControlIdClass {
    static CString CanonicalForm(const CString& text) {
        return IdentifierCanonicalForm(text, false, true);
    }
};
struct QFullIdClass {
    static CString CanonicalForm(const CString& text) {
        return IdentifierCanonicalForm(text, true, false);
    }
};
struct QFormulaClass {
    static CString CanonicalForm(const CString& text) { return FormulaCanonicalForm(text); }
};
struct QStringUniqueClass {
    static CString CanonicalForm(const CString& text) { return text; }
};

// One kind of interned string. The tag keeps kinds apart at compile time; all kinds share the
// one table, so a FullId "a" and a PropId "a" have the same index.
template <class Tag, int AddToSorted>
class QStringUniqueTemplate : public QStringUniqueCommon {
public:
    QStringUniqueTemplate() = default;
    explicit QStringUniqueTemplate(const CString& text, bool addToSorted = AddToSorted != 0,
                                   bool respell = false) {
        Build(text, addToSorted, respell);
    }
    explicit QStringUniqueTemplate(const char16_t* text, bool addToSorted = AddToSorted != 0,
                                   bool respell = false) {
        Build(CString(text), addToSorted, respell);
    }
    explicit QStringUniqueTemplate(const char* utf8, bool addToSorted = AddToSorted != 0,
                                   bool respell = false) {
        Build(CString(utf8), addToSorted, respell);
    }

    friend bool operator==(const QStringUniqueTemplate& a, const QStringUniqueTemplate& b) {
        return a.UniqueId() == b.UniqueId();
    }

private:
    void Build(const CString& text, bool addToSorted, bool respell) {
        const CString canonical = Tag::CanonicalForm(text);
        if (!canonical.IsEmpty())
            FromString(canonical, addToSorted, respell);
    }
};

using PropId = QStringUniqueTemplate<PropIdClass, 1>;
using ControlId = QStringUniqueTemplate<ControlIdClass, 1>;
using FullId = QStringUniqueTemplate<QFullIdClass, 0>;
using FormulaText = QStringUniqueTemplate<QFormulaClass, 0>;
using QStringUnique = QStringUniqueTemplate<QStringUniqueClass, 0>;

template <class Tag, int N>
unsigned HashKey(const QStringUniqueTemplate<Tag, N>& key) {
    return static_cast<unsigned>(key.UniqueId());
}

// Equal indexes are equal strings; any other order goes through the spellings.
template <class Tag, int N>
int COMPARE(const QStringUniqueTemplate<Tag, N>& a, const QStringUniqueTemplate<Tag, N>& b) {
    return a == b ? 0 : a.ToString().Compare(b.ToString());
}

template <class Tag, int N>
int COMPARENOCASE(const QStringUniqueTemplate<Tag, N>& a, const QStringUniqueTemplate<Tag, N>& b) {
    return a == b ? 0 : a.ToString().CompareNoCase(b.ToString());
}

} // namespace keel

template <class Tag, int N>
struct std::hash<keel::QStringUniqueTemplate<Tag, N>> {
    size_t operator()(const keel::QStringUniqueTemplate<Tag, N>& key) const noexcept {
        return static_cast<size_t>(key.UniqueId());
    }
};
