#pragma once

#include "keel/platform/cstring.h"

namespace keel {

// Whether `pattern` (the common Perl-like syntax, case-sensitive) matches anywhere in `text`: a
// search, not a whole-string match; anchor the pattern with "^" and "$" to match the whole text.
// A pattern that does not compile matches nothing. Compiled patterns are kept for reuse, and the
// function may be called from several threads at once.
bool RegexMatch(const CString& text, const CString& pattern);

// A pattern that matches `text` literally: each character with a meaning in a pattern is preceded
// by a backslash.
CString RegexQuote(const CString& text);

} // namespace keel
