#pragma once

#include <atomic>
#include <compare>
#include <cstdint>
#include <initializer_list>
#include <locale.h>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace keel {

using TCHAR = char16_t;
using LPCTSTR = const char16_t*;

class CString;

// One argument of CString::Format, captured by type so that a mismatch never reads garbage.
class CFormatArg {
public:
    enum class Kind { Signed, Unsigned, Double, Wide, Narrow, Pointer };

    // clang-format off
    template <class T>
        requires std::is_integral_v<T> && std::is_signed_v<T>
    CFormatArg(T value) : m_kind(Kind::Signed), m_signed(value) {}
    template <class T>
        requires std::is_integral_v<T> && std::is_unsigned_v<T> && (!std::is_same_v<T, bool>)
    CFormatArg(T value) : m_kind(Kind::Unsigned), m_unsigned(value) {}
    // clang-format on
    CFormatArg(bool value) : m_kind(Kind::Signed), m_signed(value ? 1 : 0) {}
    CFormatArg(double value) : m_kind(Kind::Double), m_double(value) {}
    CFormatArg(float value) : m_kind(Kind::Double), m_double(value) {}
    CFormatArg(const char16_t* text) : m_kind(Kind::Wide), m_wide(text ? text : u"(null)") {}
    CFormatArg(std::u16string_view text) : m_kind(Kind::Wide), m_wide(text) {}
    CFormatArg(const CString& text);
    CFormatArg(const char* text) : m_kind(Kind::Narrow), m_narrow(text ? text : "(null)") {}
    CFormatArg(const std::string& text) : m_kind(Kind::Narrow), m_narrow(text) {}
    CFormatArg(const void* pointer) : m_kind(Kind::Pointer), m_pointer(pointer) {}

    Kind GetKind() const { return m_kind; }
    long long AsSigned() const;
    unsigned long long AsUnsigned() const;
    double AsDouble() const;
    std::u16string_view AsWide() const { return m_wide; }
    std::string_view AsNarrow() const { return m_narrow; }
    const void* AsPointer() const { return m_pointer; }

private:
    Kind m_kind;
    long long m_signed = 0;
    unsigned long long m_unsigned = 0;
    double m_double = 0;
    std::u16string_view m_wide;
    std::string_view m_narrow;
    const void* m_pointer = nullptr;
};

// A string of 16-bit code units with a shared, copy-on-write buffer: copying costs one atomic
// increment, and the first change of a shared string makes it a buffer of its own.
class CString {
public:
    CString() = default;
    CString(const CString& other) noexcept;
    CString(CString&& other) noexcept;
    CString(const char16_t* text);
    CString(const char16_t* text, int count);
    CString(std::u16string_view text);
    CString(const char* utf8);
    CString(char16_t ch, int repeat = 1);
    ~CString();

    CString& operator=(const CString& other) noexcept;
    CString& operator=(CString&& other) noexcept;
    CString& operator=(const char16_t* text);
    CString& operator=(const char* utf8);
    CString& operator=(char16_t ch);

    // UTF-8 at the edges; malformed input becomes U+FFFD, never a failure.
    static CString FromUtf8(std::string_view utf8);
    std::string ToUtf8() const;

    int GetLength() const { return m_data ? m_data->length : 0; }
    bool IsEmpty() const { return GetLength() == 0; }
    void Empty();
    // A character by position; a position outside the string is an invalid-argument failure.
    char16_t GetAt(int index) const;
    char16_t operator[](int index) const { return GetAt(index); }
    void SetAt(int index, char16_t ch);
    // Always null-terminated; an empty string gives u"".
    const char16_t* GetString() const;
    std::u16string_view View() const { return {GetString(), static_cast<size_t>(GetLength())}; }

    CString Left(int count) const;
    CString Mid(int first) const;
    CString Mid(int first, int count) const;
    CString Right(int count) const;
    CString SpanIncluding(const char16_t* set) const;
    CString SpanExcluding(const char16_t* set) const;
    // The next token delimited by any of `delimiters`, starting at `start`, which moves past it;
    // at the end `start` becomes -1 and the result is empty.
    CString Tokenize(const char16_t* delimiters, int& start) const;

    int Find(char16_t ch, int start = 0) const;
    int Find(const CString& sub, int start = 0) const;
    int ReverseFind(char16_t ch) const;
    int FindOneOf(const char16_t* set) const;

    // Ordinal comparison of code units; CompareNoCase lowers both sides first.
    int Compare(const CString& other) const;
    int CompareNoCase(const CString& other) const;

    CString& MakeLower();
    CString& MakeUpper();
    CString& MakeReverse();
    CString& Trim();
    CString& Trim(char16_t ch);
    CString& Trim(const char16_t* set);
    CString& TrimLeft();
    CString& TrimLeft(char16_t ch);
    CString& TrimLeft(const char16_t* set);
    CString& TrimRight();
    CString& TrimRight(char16_t ch);
    CString& TrimRight(const char16_t* set);

    int Replace(char16_t from, char16_t to);
    int Replace(const CString& from, const CString& to);
    int Remove(char16_t ch);
    int Insert(int index, char16_t ch);
    int Insert(int index, const CString& text);
    int Delete(int index, int count = 1);

    CString& operator+=(const CString& text);
    CString& operator+=(const char16_t* text);
    CString& operator+=(const char* utf8);
    CString& operator+=(char16_t ch);
    void Append(const char16_t* text, int count);

    // printf-style: flags, width, precision and `*`; %d %i %u %o %x %X %c %e %E %f %F %g %G %a
    // %A %p %%; %s and %ls take wide text (CString, char16_t*), %hs and %S narrow UTF-8, and each
    // also takes the other kind; h, hh, l, ll, L, I64, I32, z, j, t length modifiers are accepted.
    // Numbers always use '.' as the decimal point. A missing argument formats as nothing, and an
    // argument of the wrong kind is converted (text as a number is 0, a number as text its digits).
    // Widths and precisions stop at 4096.
    template <class... Args>
    void Format(const CString& format, const Args&... args) {
        const CFormatArg list[] = {CFormatArg(args)..., CFormatArg(0)};
        FormatList(format, list, sizeof...(Args));
    }
    template <class... Args>
    void AppendFormat(const CString& format, const Args&... args) {
        const CFormatArg list[] = {CFormatArg(args)..., CFormatArg(0)};
        AppendFormatList(format, list, sizeof...(Args));
    }
    template <class... Args>
    static CString Formatted(const CString& format, const Args&... args) {
        CString result;
        result.Format(format, args...);
        return result;
    }
    void FormatList(const CString& format, const CFormatArg* args, int count);
    void AppendFormatList(const CString& format, const CFormatArg* args, int count);

    friend bool operator==(const CString& a, const CString& b) {
        return a.GetLength() == b.GetLength() && a.View() == b.View();
    }
    friend std::strong_ordering operator<=>(const CString& a, const CString& b) {
        return a.View() <=> b.View();
    }
    friend bool operator==(const CString& a, const char16_t* b) { return a.View() == b; }

private:
    struct Buffer {
        std::atomic<int> references;
        int length;
        int capacity;
        char16_t* Chars() { return reinterpret_cast<char16_t*>(this + 1); }
    };

    static Buffer* Allocate(int capacity);
    static void Release(Buffer* buffer) noexcept;
    bool IsUnique() const;
    bool Overlaps(const char16_t* text, int count) const;
    // A buffer of this string's own holding `newLength` (> 0) units, the first ones kept.
    char16_t* PrepareWrite(int newLength);
    void Assign(const char16_t* text, int count);
    // Replaces `removeCount` units at `index` by `insertCount` units of `text`.
    void Splice(int index, int removeCount, const char16_t* text, int insertCount);
    void Truncate(int length);
    CString& MapUnits(char16_t (*map)(char16_t));

    Buffer* m_data = nullptr;
};

CString operator+(const CString& a, const CString& b);
CString operator+(const CString& a, const char16_t* b);
CString operator+(const char16_t* a, const CString& b);
CString operator+(const CString& a, char16_t b);
CString operator+(char16_t a, const CString& b);

// The calling thread reads and writes numbers under the "C" locale while this lives, so the
// decimal point is '.' whatever the user's locale.
class ClassicLocaleScope {
public:
    ClassicLocaleScope();
    ~ClassicLocaleScope();
    ClassicLocaleScope(const ClassicLocaleScope&) = delete;
    ClassicLocaleScope& operator=(const ClassicLocaleScope&) = delete;

private:
    locale_t m_previous;
};

} // namespace keel
