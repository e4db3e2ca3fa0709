#pragma once

namespace keel {

// Character classes and case mapping of 16-bit code units, the same whatever the process locale.
// Letters outside ASCII count (U+00C9 is a letter and lowers to U+00E9); surrogate units are
// never letters and map to themselves.
bool IsAlpha(char16_t ch);
// Only '0'..'9': other scripts' digits are not digits here.
bool IsDigit(char16_t ch);
bool IsSpace(char16_t ch);
bool IsAlnum(char16_t ch);
char16_t ToLower(char16_t ch);
char16_t ToUpper(char16_t ch);
// The value of a hexadecimal digit, '0'..'9', 'a'..'f' or 'A'..'F'; -1 for any other unit.
int HexDigitValue(char16_t ch);

} // namespace keel
