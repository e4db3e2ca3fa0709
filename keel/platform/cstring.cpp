#include "keel/platform/cstring.h"

#include "keel/platform/exceptions.h"
#include "keel/platform/wchar.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <locale.h>
#include <new>
#include <stdexcept>
#include <utility>

namespace keel {
namespace {

using Traits = std::char_traits<char16_t>;
using Kind = CFormatArg::Kind;

constexpr char16_t kReplacementCharacter = 0xFFFD;
constexpr char32_t kLastCodePoint = 0x10FFFF;
// Lengths are ints; the cap leaves room for geometric growth without overflow.
constexpr int kMaxLength = INT_MAX / 2;
constexpr double kTwoToThe63 = 9223372036854775808.0;
constexpr double kTwoToThe64 = 18446744073709551616.0;

int CheckedLength(size_t length) {
    if (length > static_cast<size_t>(kMaxLength))
        throw std::length_error("CString: text too long");
    return static_cast<int>(length);
}

int ClampToLength(int value, int length) {
    return std::clamp(value, 0, length);
}

std::u16string_view SetView(const char16_t* set) {
    return set ? std::u16string_view(set) : std::u16string_view();
}

bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// ---- UTF-8 -------------------------------------------------------------------------------------

// What a lead byte asks of the rest of its sequence: how many continuation bytes, and the range
// the first of them must fall in. The narrowed ranges rule out overlong forms, encoded surrogates
// and values past U+10FFFF.
struct Utf8Lead {
    int continuations = -1;
    unsigned char firstLow = 0x80;
    unsigned char firstHigh = 0xBF;
    char32_t bits = 0;
};

Utf8Lead ClassifyLead(unsigned char byte) {
    if (byte >= 0xC2 && byte <= 0xDF)
        return {1, 0x80, 0xBF, byte & 0x1Fu};
    if (byte == 0xE0)
        return {2, 0xA0, 0xBF, 0};
    if (byte == 0xED)
        return {2, 0x80, 0x9F, byte & 0x0Fu};
    if (byte >= 0xE1 && byte <= 0xEF)
        return {2, 0x80, 0xBF, byte & 0x0Fu};
    if (byte == 0xF0)
        return {3, 0x90, 0xBF, 0};
    if (byte >= 0xF1 && byte <= 0xF3)
        return {3, 0x80, 0xBF, byte & 0x07u};
    if (byte == 0xF4)
        return {3, 0x80, 0x8F, byte & 0x07u};
    return {};
}

// Reads one sequence at `pos` and moves past it. A sequence that breaks off yields one U+FFFD for
// the valid prefix read so far; the byte that broke it is left to start the next sequence.
char32_t DecodeSequence(std::string_view utf8, size_t& pos) {
    const auto lead = static_cast<unsigned char>(utf8[pos++]);
    if (lead < 0x80)
        return lead;
    const Utf8Lead rule = ClassifyLead(lead);
    if (rule.continuations < 0)
        return kReplacementCharacter;
    char32_t codePoint = rule.bits;
    unsigned char low = rule.firstLow;
    unsigned char high = rule.firstHigh;
    for (int i = 0; i < rule.continuations; ++i) {
        if (pos == utf8.size())
            return kReplacementCharacter;
        const auto byte = static_cast<unsigned char>(utf8[pos]);
        if (byte < low || byte > high)
            return kReplacementCharacter;
        codePoint = (codePoint << 6) | (byte & 0x3Fu);
        ++pos;
        low = 0x80;
        high = 0xBF;
    }
    return codePoint;
}

void AppendUtf16(std::u16string& out, char32_t codePoint) {
    if (codePoint < 0x10000) {
        out.push_back(static_cast<char16_t>(codePoint));
        return;
    }
    codePoint -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (codePoint >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF)));
}

std::u16string DecodeUtf8(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    size_t pos = 0;
    while (pos < utf8.size())
        AppendUtf16(out, DecodeSequence(utf8, pos));
    return out;
}

void AppendUtf8(std::string& out, char32_t codePoint) {
    if (codePoint < 0x80) {
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
}

std::string EncodeUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        if (IsHighSurrogate(unit) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            AppendUtf8(out, 0x10000 + ((unit - 0xD800u) << 10) + (text[i + 1] - 0xDC00u));
            ++i;
        } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
            AppendUtf8(out, kReplacementCharacter);
        } else {
            AppendUtf8(out, unit);
        }
    }
    return out;
}

// ---- Numbers ------------------------------------------------------------------------------------

long long DoubleToSigned(double value) {
    if (std::isnan(value))
        return 0;
    if (value >= kTwoToThe63)
        return LLONG_MAX;
    if (value < -kTwoToThe63)
        return LLONG_MIN;
    return static_cast<long long>(value);
}

unsigned long long DoubleToUnsigned(double value) {
    if (std::isnan(value))
        return 0;
    if (value < 0)
        return static_cast<unsigned long long>(DoubleToSigned(value));
    if (value >= kTwoToThe64)
        return ULLONG_MAX;
    return static_cast<unsigned long long>(value);
}

template <class Number>
std::string PrintNumber(const std::string& printfFormat, Number value) {
    const ClassicLocaleScope classic;
    const int size = std::snprintf(nullptr, 0, printfFormat.c_str(), value);
    if (size <= 0)
        return {};
    std::string out(static_cast<size_t>(size), '\0');
    std::snprintf(out.data(), out.size() + 1, printfFormat.c_str(), value);
    return out;
}

template <class Number>
std::string ShortestDecimal(Number value) {
    char digits[64];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    return std::string(digits, result.ptr);
}

std::string PointerDigits(unsigned long long address) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    const auto value = static_cast<std::uintptr_t>(address);
    std::string out;
    for (int shift = static_cast<int>(sizeof value * CHAR_BIT) - 4; shift >= 0; shift -= 4)
        out.push_back(kHex[(value >> shift) & 0xF]);
    return out;
}

void AppendAscii(std::u16string& out, std::string_view ascii) {
    for (const char ch : ascii)
        out.push_back(static_cast<unsigned char>(ch));
}

// ---- Format -------------------------------------------------------------------------------------

// Widths and precisions above this are taken as this: no message needs more, and a format read
// from a file must not be able to ask for gigabytes.
constexpr int kMaxFieldSize = 4096;

struct Directive {
    std::string flags;
    int width = -1;
    int precision = -1;
    bool wide64 = false;
    char16_t conversion = 0;

    bool LeftAligned() const { return flags.find('-') != std::string::npos; }
};

class Formatter {
public:
    Formatter(std::u16string_view format, const CFormatArg* args, int count)
        : m_format(format), m_args(args), m_count(std::max(count, 0)) {}

    std::u16string Run() {
        size_t pos = 0;
        while (pos < m_format.size()) {
            if (m_format[pos] == u'%') {
                pos = FormatDirective(pos);
            } else {
                m_out.push_back(m_format[pos]);
                ++pos;
            }
        }
        return std::move(m_out);
    }

private:
    const CFormatArg* NextArgument() { return m_next < m_count ? &m_args[m_next++] : nullptr; }

    char16_t At(size_t pos) const { return pos < m_format.size() ? m_format[pos] : u'\0'; }

    // Formats the directive at `percent`; returns the position after it. A directive that is
    // cut short or names no known conversion is copied as written.
    size_t FormatDirective(size_t percent) {
        Directive directive;
        size_t pos = ParseFlags(percent + 1, directive);
        pos = ParseWidth(pos, directive);
        pos = ParsePrecision(pos, directive);
        pos = ParseLength(pos, directive);
        if (pos >= m_format.size()) {
            m_out.append(m_format.substr(percent));
            return m_format.size();
        }
        directive.conversion = m_format[pos++];
        if (!Convert(directive))
            m_out.append(m_format.substr(percent, pos - percent));
        return pos;
    }

    size_t ParseFlags(size_t pos, Directive& directive) const {
        static constexpr std::u16string_view kFlags = u"-+ #0";
        while (pos < m_format.size() && kFlags.find(m_format[pos]) != std::u16string_view::npos)
            directive.flags.push_back(static_cast<char>(m_format[pos++]));
        return pos;
    }

    size_t ParseNumber(size_t pos, int& value) const {
        value = 0;
        while (IsDigit(At(pos))) {
            value = std::min(value * 10 + (At(pos) - u'0'), kMaxFieldSize);
            ++pos;
        }
        return pos;
    }

    int StarArgument() {
        const CFormatArg* arg = NextArgument();
        return arg ? static_cast<int>(
                         std::clamp<long long>(arg->AsSigned(), -kMaxFieldSize, kMaxFieldSize))
                   : 0;
    }

    size_t ParseWidth(size_t pos, Directive& directive) {
        if (At(pos) == u'*') {
            const int width = StarArgument();
            if (width < 0)
                directive.flags.push_back('-');
            directive.width = std::abs(width);
            return pos + 1;
        }
        if (IsDigit(At(pos)))
            return ParseNumber(pos, directive.width);
        return pos;
    }

    // A negative precision from `*` counts as none given.
    size_t ParsePrecision(size_t pos, Directive& directive) {
        if (At(pos) != u'.')
            return pos;
        ++pos;
        if (At(pos) == u'*') {
            directive.precision = std::max(StarArgument(), -1);
            return pos + 1;
        }
        return ParseNumber(pos, directive.precision);
    }

    // Arguments carry their own types, so a size only matters to the unsigned view of a negative
    // integer: ll, I64, I, j, z and t ask for all 64 bits. Longer spellings come first.
    size_t ParseLength(size_t pos, Directive& directive) const {
        struct Modifier {
            std::u16string_view text;
            bool wide64;
        };
        static constexpr Modifier kModifiers[] = {{u"I64", true}, {u"I32", false}, {u"I", true},
                                                  {u"ll", true},  {u"l", false},   {u"hh", false},
                                                  {u"h", false},  {u"L", false},   {u"j", true},
                                                  {u"z", true},   {u"t", true},    {u"w", false}};
        const std::u16string_view rest = m_format.substr(std::min(pos, m_format.size()));
        for (const Modifier& modifier : kModifiers) {
            if (rest.starts_with(modifier.text)) {
                directive.wide64 = modifier.wide64;
                return pos + modifier.text.size();
            }
        }
        return pos;
    }

    bool Convert(const Directive& directive) {
        switch (directive.conversion) {
        case u'%':
            m_out.push_back(u'%');
            return true;
        case u'd':
        case u'i':
            WithArgument(directive, &Formatter::FormatSigned);
            return true;
        case u'u':
        case u'o':
        case u'x':
        case u'X':
            WithArgument(directive, &Formatter::FormatUnsigned);
            return true;
        case u'e':
        case u'E':
        case u'f':
        case u'F':
        case u'g':
        case u'G':
        case u'a':
        case u'A':
            WithArgument(directive, &Formatter::FormatFloating);
            return true;
        case u'c':
        case u'C':
            WithArgument(directive, &Formatter::FormatCharacter);
            return true;
        case u's':
        case u'S':
            WithArgument(directive, &Formatter::FormatText);
            return true;
        case u'p':
            WithArgument(directive, &Formatter::FormatPointer);
            return true;
        default:
            return false;
        }
    }

    void WithArgument(const Directive& directive,
                      void (Formatter::*format)(const Directive&, const CFormatArg&)) {
        if (const CFormatArg* arg = NextArgument())
            (this->*format)(directive, *arg);
    }

    // The directive rebuilt for snprintf; '#' is dropped where C leaves it undefined.
    static std::string PrintfDirective(const Directive& directive, std::string_view length) {
        static constexpr std::u16string_view kAlternateForms = u"oxXeEfFgGaA";
        const bool alternate = kAlternateForms.find(directive.conversion) != std::u16string::npos;
        std::string printfFormat = "%";
        for (const char flag : directive.flags) {
            if (flag != '#' || alternate)
                printfFormat.push_back(flag);
        }
        if (directive.width >= 0)
            printfFormat += std::to_string(directive.width);
        if (directive.precision >= 0) {
            printfFormat.push_back('.');
            printfFormat += std::to_string(directive.precision);
        }
        printfFormat += length;
        printfFormat.push_back(static_cast<char>(directive.conversion));
        return printfFormat;
    }

    void FormatSigned(const Directive& directive, const CFormatArg& arg) {
        AppendAscii(m_out, PrintNumber(PrintfDirective(directive, "ll"), arg.AsSigned()));
    }

    // A negative int shown unsigned gives the 32-bit pattern (%x of -1 is ffffffff) unless the
    // directive asked for 64 bits.
    static unsigned long long UnsignedOperand(const Directive& directive, const CFormatArg& arg) {
        if (arg.GetKind() == Kind::Signed && !directive.wide64) {
            const long long value = arg.AsSigned();
            if (value < 0 && value >= INT_MIN)
                return static_cast<std::uint32_t>(value);
        }
        return arg.AsUnsigned();
    }

    void FormatUnsigned(const Directive& directive, const CFormatArg& arg) {
        AppendAscii(m_out,
                    PrintNumber(PrintfDirective(directive, "ll"), UnsignedOperand(directive, arg)));
    }

    void FormatFloating(const Directive& directive, const CFormatArg& arg) {
        AppendAscii(m_out, PrintNumber(PrintfDirective(directive, ""), arg.AsDouble()));
    }

    void AppendPadded(const Directive& directive, std::u16string_view text) {
        const size_t width = directive.width > 0 ? static_cast<size_t>(directive.width) : 0;
        const size_t padding = width > text.size() ? width - text.size() : 0;
        if (!directive.LeftAligned())
            m_out.append(padding, u' ');
        m_out.append(text);
        if (directive.LeftAligned())
            m_out.append(padding, u' ');
    }

    static char32_t CodePointOperand(const CFormatArg& arg) {
        if (arg.GetKind() == Kind::Signed) {
            const long long value = arg.AsSigned();
            return value < 0 || value > kLastCodePoint ? kReplacementCharacter
                                                       : static_cast<char32_t>(value);
        }
        const unsigned long long value = arg.AsUnsigned();
        return value > kLastCodePoint ? kReplacementCharacter : static_cast<char32_t>(value);
    }

    // A zero unit adds no character: the string would otherwise carry a hidden terminator.
    void FormatCharacter(const Directive& directive, const CFormatArg& arg) {
        std::u16string text;
        if (const char32_t codePoint = CodePointOperand(arg))
            AppendUtf16(text, codePoint);
        AppendPadded(directive, text);
    }

    static std::u16string TextOperand(const CFormatArg& arg) {
        std::u16string text;
        switch (arg.GetKind()) {
        case Kind::Wide:
            return std::u16string(arg.AsWide());
        case Kind::Narrow:
            return DecodeUtf8(arg.AsNarrow());
        case Kind::Signed:
            AppendAscii(text, ShortestDecimal(arg.AsSigned()));
            break;
        case Kind::Unsigned:
            AppendAscii(text, ShortestDecimal(arg.AsUnsigned()));
            break;
        case Kind::Double:
            AppendAscii(text, ShortestDecimal(arg.AsDouble()));
            break;
        case Kind::Pointer:
            AppendAscii(text, PointerDigits(arg.AsUnsigned()));
            break;
        }
        return text;
    }

    void FormatText(const Directive& directive, const CFormatArg& arg) {
        std::u16string text = TextOperand(arg);
        if (directive.precision >= 0 && static_cast<size_t>(directive.precision) < text.size())
            text.resize(static_cast<size_t>(directive.precision));
        AppendPadded(directive, text);
    }

    // Pointers print as the full-width upper-case hexadecimal address, 0000000000A1B2C0.
    void FormatPointer(const Directive& directive, const CFormatArg& arg) {
        std::u16string text;
        AppendAscii(text, PointerDigits(arg.AsUnsigned()));
        AppendPadded(directive, text);
    }

    std::u16string_view m_format;
    const CFormatArg* m_args;
    int m_count;
    int m_next = 0;
    std::u16string m_out;
};

} // namespace

namespace {

locale_t ClassicLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", locale_t{});
    return locale;
}

} // namespace

ClassicLocaleScope::ClassicLocaleScope()
    : m_previous(ClassicLocale() ? uselocale(ClassicLocale()) : locale_t{}) {}

ClassicLocaleScope::~ClassicLocaleScope() {
    if (m_previous)
        uselocale(m_previous);
}

// ---- CFormatArg ---------------------------------------------------------------------------------

CFormatArg::CFormatArg(const CString& text) : m_kind(Kind::Wide), m_wide(text.View()) {}

long long CFormatArg::AsSigned() const {
    switch (m_kind) {
    case Kind::Signed:
        return m_signed;
    case Kind::Unsigned:
        return static_cast<long long>(m_unsigned);
    case Kind::Double:
        return DoubleToSigned(m_double);
    case Kind::Pointer:
        return static_cast<long long>(reinterpret_cast<std::intptr_t>(m_pointer));
    case Kind::Wide:
    case Kind::Narrow:
        break;
    }
    return 0;
}

unsigned long long CFormatArg::AsUnsigned() const {
    switch (m_kind) {
    case Kind::Signed:
        return static_cast<unsigned long long>(m_signed);
    case Kind::Unsigned:
        return m_unsigned;
    case Kind::Double:
        return DoubleToUnsigned(m_double);
    case Kind::Pointer:
        return reinterpret_cast<std::uintptr_t>(m_pointer);
    case Kind::Wide:
    case Kind::Narrow:
        break;
    }
    return 0;
}

double CFormatArg::AsDouble() const {
    switch (m_kind) {
    case Kind::Signed:
        return static_cast<double>(m_signed);
    case Kind::Unsigned:
        return static_cast<double>(m_unsigned);
    case Kind::Double:
        return m_double;
    case Kind::Pointer:
    case Kind::Wide:
    case Kind::Narrow:
        break;
    }
    return 0;
}

// ---- Buffer -------------------------------------------------------------------------------------

CString::Buffer* CString::Allocate(int capacity) {
    void* memory =
        ::operator new(sizeof(Buffer) + (static_cast<size_t>(capacity) + 1) * sizeof(char16_t));
    return new (memory) Buffer{1, 0, capacity};
}

void CString::Release(Buffer* buffer) noexcept {
    if (buffer && buffer->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        buffer->~Buffer();
        ::operator delete(buffer);
    }
}

bool CString::IsUnique() const {
    return m_data && m_data->references.load(std::memory_order_acquire) == 1;
}

bool CString::Overlaps(const char16_t* text, int count) const {
    if (!m_data || !text || count == 0)
        return false;
    const std::less_equal<const char16_t*> notAfter;
    const char16_t* begin = m_data->Chars();
    return notAfter(begin, text + count) && notAfter(text, begin + m_data->capacity);
}

namespace {

int GrownCapacity(int needed, int current) {
    const long long grown = current + current / 2LL;
    return static_cast<int>(std::min<long long>(std::max<long long>(needed, grown), kMaxLength));
}

} // namespace

char16_t* CString::PrepareWrite(int newLength) {
    if (!IsUnique() || newLength > m_data->capacity) {
        const int current = m_data ? m_data->capacity : 0;
        Buffer* fresh =
            Allocate(newLength > current ? GrownCapacity(newLength, current) : newLength);
        const int kept = std::min(GetLength(), newLength);
        if (kept > 0)
            Traits::copy(fresh->Chars(), GetString(), static_cast<size_t>(kept));
        Release(m_data);
        m_data = fresh;
    }
    m_data->length = newLength;
    m_data->Chars()[newLength] = u'\0';
    return m_data->Chars();
}

void CString::Truncate(int length) {
    if (length == 0) {
        Empty();
        return;
    }
    m_data->length = length;
    m_data->Chars()[length] = u'\0';
}

void CString::Assign(const char16_t* text, int count) {
    if (count == 0) {
        Empty();
        return;
    }
    if (IsUnique() && count <= m_data->capacity) {
        Traits::move(m_data->Chars(), text, static_cast<size_t>(count));
    } else {
        // The old buffer goes only after the copy: `text` may lie inside it.
        Buffer* fresh = Allocate(count);
        Traits::copy(fresh->Chars(), text, static_cast<size_t>(count));
        Release(m_data);
        m_data = fresh;
    }
    m_data->length = count;
    m_data->Chars()[count] = u'\0';
}

void CString::Splice(int index, int removeCount, const char16_t* text, int insertCount) {
    const int length = GetLength();
    const int tail = length - index - removeCount;
    const int newLength = CheckedLength(static_cast<size_t>(length) - removeCount + insertCount);
    if (newLength == 0) {
        Empty();
        return;
    }
    if (IsUnique() && newLength <= m_data->capacity && !Overlaps(text, insertCount)) {
        char16_t* chars = m_data->Chars();
        Traits::move(chars + index + insertCount, chars + index + removeCount,
                     static_cast<size_t>(tail));
        Traits::copy(chars + index, text, static_cast<size_t>(insertCount));
    } else {
        const int current = m_data ? m_data->capacity : 0;
        Buffer* fresh =
            Allocate(newLength > current ? GrownCapacity(newLength, current) : newLength);
        char16_t* chars = fresh->Chars();
        const char16_t* old = GetString();
        Traits::copy(chars, old, static_cast<size_t>(index));
        Traits::copy(chars + index, text, static_cast<size_t>(insertCount));
        Traits::copy(chars + index + insertCount, old + index + removeCount,
                     static_cast<size_t>(tail));
        Release(m_data);
        m_data = fresh;
    }
    m_data->length = newLength;
    m_data->Chars()[newLength] = u'\0';
}

// ---- Construction -------------------------------------------------------------------------------

CString::CString(const CString& other) noexcept : m_data(other.m_data) {
    if (m_data)
        m_data->references.fetch_add(1, std::memory_order_relaxed);
}

CString::CString(CString&& other) noexcept : m_data(std::exchange(other.m_data, nullptr)) {}

CString::CString(const char16_t* text) {
    if (text)
        Assign(text, CheckedLength(Traits::length(text)));
}

CString::CString(const char16_t* text, int count) {
    Append(text, count);
}

CString::CString(std::u16string_view text) {
    Assign(text.data(), CheckedLength(text.size()));
}

CString::CString(const char* utf8) {
    if (utf8)
        *this = FromUtf8(utf8);
}

CString::CString(char16_t ch, int repeat) {
    if (repeat <= 0)
        return;
    Traits::assign(PrepareWrite(CheckedLength(static_cast<size_t>(repeat))),
                   static_cast<size_t>(repeat), ch);
}

CString::~CString() {
    Release(m_data);
}

CString& CString::operator=(const CString& other) noexcept {
    if (other.m_data != m_data) {
        if (other.m_data)
            other.m_data->references.fetch_add(1, std::memory_order_relaxed);
        Release(m_data);
        m_data = other.m_data;
    }
    return *this;
}

CString& CString::operator=(CString&& other) noexcept {
    if (this != &other) {
        Release(m_data);
        m_data = std::exchange(other.m_data, nullptr);
    }
    return *this;
}

CString& CString::operator=(const char16_t* text) {
    if (text)
        Assign(text, CheckedLength(Traits::length(text)));
    else
        Empty();
    return *this;
}

CString& CString::operator=(const char* utf8) {
    return *this = CString(utf8);
}

CString& CString::operator=(char16_t ch) {
    Assign(&ch, 1);
    return *this;
}

CString CString::FromUtf8(std::string_view utf8) {
    return CString(DecodeUtf8(utf8));
}

std::string CString::ToUtf8() const {
    return EncodeUtf8(View());
}

// ---- Access -------------------------------------------------------------------------------------

void CString::Empty() {
    Release(m_data);
    m_data = nullptr;
}

char16_t CString::GetAt(int index) const {
    if (index < 0 || index >= GetLength())
        ThrowInvalidArgument("CString::GetAt: index " + std::to_string(index) + " outside [0, " +
                             std::to_string(GetLength()) + ")");
    return m_data->Chars()[index];
}

void CString::SetAt(int index, char16_t ch) {
    if (index < 0 || index >= GetLength())
        ThrowInvalidArgument("CString::SetAt: index " + std::to_string(index) + " outside [0, " +
                             std::to_string(GetLength()) + ")");
    PrepareWrite(GetLength())[index] = ch;
}

const char16_t* CString::GetString() const {
    return m_data ? m_data->Chars() : u"";
}

// ---- Extraction ---------------------------------------------------------------------------------

CString CString::Left(int count) const {
    if (count >= GetLength())
        return *this;
    return CString(View().substr(0, static_cast<size_t>(std::max(count, 0))));
}

CString CString::Mid(int first) const {
    return Mid(first, GetLength());
}

CString CString::Mid(int first, int count) const {
    const int length = GetLength();
    first = ClampToLength(first, length);
    count = std::min(std::max(count, 0), length - first);
    if (first == 0 && count == length)
        return *this;
    return CString(View().substr(static_cast<size_t>(first), static_cast<size_t>(count)));
}

CString CString::Right(int count) const {
    const int length = GetLength();
    if (count >= length)
        return *this;
    return Mid(length - std::max(count, 0));
}

CString CString::SpanIncluding(const char16_t* set) const {
    return Left(static_cast<int>(std::min(View().find_first_not_of(SetView(set)), View().size())));
}

CString CString::SpanExcluding(const char16_t* set) const {
    return Left(static_cast<int>(std::min(View().find_first_of(SetView(set)), View().size())));
}

CString CString::Tokenize(const char16_t* delimiters, int& start) const {
    const std::u16string_view text = View();
    const std::u16string_view set = SetView(delimiters);
    const size_t first = start < 0 ? std::u16string_view::npos
                                   : text.find_first_not_of(set, static_cast<size_t>(start));
    if (first == std::u16string_view::npos) {
        start = -1;
        return {};
    }
    const size_t end = std::min(text.find_first_of(set, first), text.size());
    start = static_cast<int>(end) + 1;
    return CString(text.substr(first, end - first));
}

// ---- Search -------------------------------------------------------------------------------------

namespace {

int PositionOf(size_t found) {
    return found == std::u16string_view::npos ? -1 : static_cast<int>(found);
}

} // namespace

int CString::Find(char16_t ch, int start) const {
    return PositionOf(View().find(ch, static_cast<size_t>(std::max(start, 0))));
}

int CString::Find(const CString& sub, int start) const {
    return PositionOf(View().find(sub.View(), static_cast<size_t>(std::max(start, 0))));
}

int CString::ReverseFind(char16_t ch) const {
    return PositionOf(View().rfind(ch));
}

int CString::FindOneOf(const char16_t* set) const {
    return PositionOf(View().find_first_of(SetView(set)));
}

// ---- Comparison ---------------------------------------------------------------------------------

int CString::Compare(const CString& other) const {
    const int order = View().compare(other.View());
    return (order > 0) - (order < 0);
}

int CString::CompareNoCase(const CString& other) const {
    const std::u16string_view a = View();
    const std::u16string_view b = other.View();
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
        const char16_t lowerA = ToLower(a[i]);
        const char16_t lowerB = ToLower(b[i]);
        if (lowerA != lowerB)
            return lowerA < lowerB ? -1 : 1;
    }
    return (a.size() > b.size()) - (a.size() < b.size());
}

// ---- Transformation -----------------------------------------------------------------------------

CString& CString::MapUnits(char16_t (*map)(char16_t)) {
    const std::u16string_view text = View();
    const auto changes = [map](char16_t unit) { return map(unit) != unit; };
    const auto firstChange = std::find_if(text.begin(), text.end(), changes);
    if (firstChange == text.end())
        return *this;
    const auto offset = firstChange - text.begin();
    char16_t* chars = PrepareWrite(GetLength());
    std::transform(chars + offset, chars + GetLength(), chars + offset, map);
    return *this;
}

CString& CString::MakeLower() {
    return MapUnits(ToLower);
}

CString& CString::MakeUpper() {
    return MapUnits(ToUpper);
}

// Surrogate pairs stay in order so that a reversed string still holds the same characters.
CString& CString::MakeReverse() {
    const int length = GetLength();
    if (length < 2)
        return *this;
    char16_t* chars = PrepareWrite(length);
    std::reverse(chars, chars + length);
    for (int i = 0; i + 1 < length; ++i) {
        if (IsLowSurrogate(chars[i]) && IsHighSurrogate(chars[i + 1])) {
            std::swap(chars[i], chars[i + 1]);
            ++i;
        }
    }
    return *this;
}

namespace {

template <class Predicate>
int LeadingCount(std::u16string_view text, Predicate trimmed) {
    return static_cast<int>(std::find_if_not(text.begin(), text.end(), trimmed) - text.begin());
}

template <class Predicate>
int TrailingCount(std::u16string_view text, Predicate trimmed) {
    return static_cast<int>(std::find_if_not(text.rbegin(), text.rend(), trimmed) - text.rbegin());
}

auto IsOneOf(const char16_t* set) {
    return [set = SetView(set)](char16_t ch) { return set.find(ch) != std::u16string_view::npos; };
}

auto IsUnit(char16_t unit) {
    return [unit](char16_t ch) { return ch == unit; };
}

} // namespace

CString& CString::Trim() {
    return TrimRight().TrimLeft();
}

CString& CString::Trim(char16_t ch) {
    return TrimRight(ch).TrimLeft(ch);
}

CString& CString::Trim(const char16_t* set) {
    return TrimRight(set).TrimLeft(set);
}

CString& CString::TrimLeft() {
    const int count = LeadingCount(View(), IsSpace);
    if (count > 0)
        Assign(GetString() + count, GetLength() - count);
    return *this;
}

CString& CString::TrimLeft(char16_t ch) {
    const int count = LeadingCount(View(), IsUnit(ch));
    if (count > 0)
        Assign(GetString() + count, GetLength() - count);
    return *this;
}

CString& CString::TrimLeft(const char16_t* set) {
    const int count = LeadingCount(View(), IsOneOf(set));
    if (count > 0)
        Assign(GetString() + count, GetLength() - count);
    return *this;
}

CString& CString::TrimRight() {
    const int count = TrailingCount(View(), IsSpace);
    if (count > 0)
        Assign(GetString(), GetLength() - count);
    return *this;
}

CString& CString::TrimRight(char16_t ch) {
    const int count = TrailingCount(View(), IsUnit(ch));
    if (count > 0)
        Assign(GetString(), GetLength() - count);
    return *this;
}

CString& CString::TrimRight(const char16_t* set) {
    const int count = TrailingCount(View(), IsOneOf(set));
    if (count > 0)
        Assign(GetString(), GetLength() - count);
    return *this;
}

// ---- Editing ------------------------------------------------------------------------------------

int CString::Replace(char16_t from, char16_t to) {
    if (from == to)
        return 0;
    const std::u16string_view text = View();
    const auto count = static_cast<int>(std::count(text.begin(), text.end(), from));
    if (count > 0) {
        char16_t* chars = PrepareWrite(GetLength());
        std::replace(chars, chars + GetLength(), from, to);
    }
    return count;
}

int CString::Replace(const CString& from, const CString& to) {
    if (from.IsEmpty())
        return 0;
    const std::u16string_view text = View();
    const std::u16string_view pattern = from.View();
    std::u16string result;
    int count = 0;
    size_t pos = 0;
    for (size_t hit; (hit = text.find(pattern, pos)) != std::u16string_view::npos;
         pos = hit + pattern.size()) {
        result.append(text.substr(pos, hit - pos));
        result.append(to.View());
        ++count;
    }
    if (count > 0) {
        result.append(text.substr(pos));
        Assign(result.data(), CheckedLength(result.size()));
    }
    return count;
}

int CString::Remove(char16_t ch) {
    const std::u16string_view text = View();
    const auto count = static_cast<int>(std::count(text.begin(), text.end(), ch));
    if (count > 0) {
        char16_t* chars = PrepareWrite(GetLength());
        const char16_t* end = std::remove(chars, chars + GetLength(), ch);
        Truncate(static_cast<int>(end - chars));
    }
    return count;
}

int CString::Insert(int index, char16_t ch) {
    Splice(ClampToLength(index, GetLength()), 0, &ch, 1);
    return GetLength();
}

int CString::Insert(int index, const CString& text) {
    Splice(ClampToLength(index, GetLength()), 0, text.GetString(), text.GetLength());
    return GetLength();
}

int CString::Delete(int index, int count) {
    const int length = GetLength();
    index = ClampToLength(index, length);
    count = std::min(std::max(count, 0), length - index);
    if (count > 0)
        Splice(index, count, nullptr, 0);
    return GetLength();
}

CString& CString::operator+=(const CString& text) {
    if (IsEmpty())
        return *this = text;
    Append(text.GetString(), text.GetLength());
    return *this;
}

CString& CString::operator+=(const char16_t* text) {
    if (text)
        Append(text, CheckedLength(Traits::length(text)));
    return *this;
}

CString& CString::operator+=(const char* utf8) {
    if (utf8)
        *this += FromUtf8(utf8);
    return *this;
}

CString& CString::operator+=(char16_t ch) {
    Append(&ch, 1);
    return *this;
}

void CString::Append(const char16_t* text, int count) {
    if (count < 0 || (!text && count > 0))
        ThrowInvalidArgument("CString::Append: " + std::to_string(count) + " units from " +
                             (text ? "text" : "a null pointer"));
    if (count > 0)
        Splice(GetLength(), 0, text, count);
}

// ---- Formatting ---------------------------------------------------------------------------------

void CString::FormatList(const CString& format, const CFormatArg* args, int count) {
    const std::u16string text = Formatter(format.View(), args, count).Run();
    Assign(text.data(), CheckedLength(text.size()));
}

void CString::AppendFormatList(const CString& format, const CFormatArg* args, int count) {
    const std::u16string text = Formatter(format.View(), args, count).Run();
    Append(text.data(), CheckedLength(text.size()));
}

CString operator+(const CString& a, const CString& b) {
    CString result(a);
    result += b;
    return result;
}

CString operator+(const CString& a, const char16_t* b) {
    CString result(a);
    result += b;
    return result;
}

CString operator+(const char16_t* a, const CString& b) {
    CString result(a);
    result += b;
    return result;
}

CString operator+(const CString& a, char16_t b) {
    CString result(a);
    result += b;
    return result;
}

CString operator+(char16_t a, const CString& b) {
    CString result(a);
    result += b;
    return result;
}

} // namespace keel
