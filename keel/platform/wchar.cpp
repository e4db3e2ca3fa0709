#include "keel/platform/wchar.h"

#include <locale.h>
#include <wctype.h>

namespace keel {
namespace {

// The Unicode character tables of the C library, independent of the process locale. Null when the
// system lacks the locale, and the ASCII rules below take over.
locale_t UnicodeLocale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
    return locale;
}

bool IsSurrogate(char16_t ch) {
    return ch >= 0xD800 && ch <= 0xDFFF;
}

bool IsAsciiUpper(char16_t ch) {
    return ch >= u'A' && ch <= u'Z';
}

bool IsAsciiLower(char16_t ch) {
    return ch >= u'a' && ch <= u'z';
}

bool IsAsciiSpace(char16_t ch) {
    return ch == u' ' || (ch >= u'\t' && ch <= u'\r');
}

// A case mapping that leaves the 16-bit range or lands on a surrogate cannot be held in one unit.
char16_t FitsOneUnit(wint_t mapped, char16_t original) {
    if (mapped > 0xFFFF || IsSurrogate(static_cast<char16_t>(mapped)))
        return original;
    return static_cast<char16_t>(mapped);
}

} // namespace

bool IsAlpha(char16_t ch) {
    if (IsSurrogate(ch))
        return false;
    if (const locale_t locale = UnicodeLocale())
        return iswalpha_l(ch, locale) != 0;
    return IsAsciiUpper(ch) || IsAsciiLower(ch);
}

bool IsDigit(char16_t ch) {
    return ch >= u'0' && ch <= u'9';
}

bool IsSpace(char16_t ch) {
    if (IsSurrogate(ch))
        return false;
    if (const locale_t locale = UnicodeLocale())
        return iswspace_l(ch, locale) != 0;
    return IsAsciiSpace(ch);
}

bool IsAlnum(char16_t ch) {
    return IsDigit(ch) || IsAlpha(ch);
}

char16_t ToLower(char16_t ch) {
    if (IsSurrogate(ch))
        return ch;
    if (const locale_t locale = UnicodeLocale())
        return FitsOneUnit(towlower_l(ch, locale), ch);
    return IsAsciiUpper(ch) ? static_cast<char16_t>(ch - u'A' + u'a') : ch;
}

char16_t ToUpper(char16_t ch) {
    if (IsSurrogate(ch))
        return ch;
    if (const locale_t locale = UnicodeLocale())
        return FitsOneUnit(towupper_l(ch, locale), ch);
    return IsAsciiLower(ch) ? static_cast<char16_t>(ch - u'a' + u'A') : ch;
}

int HexDigitValue(char16_t ch) {
    if (ch >= u'0' && ch <= u'9')
        return ch - u'0';
    if (ch >= u'a' && ch <= u'f')
        return ch - u'a' + 10;
    if (ch >= u'A' && ch <= u'F')
        return ch - u'A' + 10;
    return -1;
}

} // namespace keel
