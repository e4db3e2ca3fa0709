#pragma once

#include "keel/platform/cstring.h"

#include <cstddef>
#include <string_view>

namespace keel {

// A line that so far holds one empty token. Without it the next token would be taken for the
// first, and the empty one would be lost.
inline constexpr const char16_t* c_EmptyFirstTokenMarker = u"#!EMPTY_FIRST_TOKEN!#";

// Appends a token to a tab-separated line: a tab first unless the line is empty, and the token
// unless it is empty. An empty first token leaves the line as the marker above, which the next
// call turns into a single tab.
void PutTabDelimToken(CString& line, const CString& token);
// Takes the text up to the first tab off the front of the line, and that tab too; without a tab
// the whole line is the token and the line becomes empty. Quotes mean nothing here. Returns
// whether a tab ended the token, so that an empty token before a tab tells itself apart from an
// exhausted line.
bool GetTabDelimToken(CString& line, CString& token);
// The same on a line read in place: the token from `at` up to the next tab, with `at` moved past
// that tab, or to the end of the line when there is none. The rest of the line is what is left
// from `at` on.
std::u16string_view TakeTabDelimToken(std::u16string_view line, std::size_t& at);

// At least two characters, a double quote at each end.
bool IsEnclosedByQuotes(const CString& text);
// Doubles each double quote and puts one at each end.
CString DoubleQuotesAndEnclose(const CString& text);
// Drops the quote at each end and turns each doubled quote back into one; a text that is not
// enclosed by quotes comes back as it is.
CString UndoDoubleQuotesAndEnclose(const CString& text);

// Backslash, newline, carriage return and tab become \\, \n, \r and \t.
CString InsertEscapeSequences(const CString& text);
// \\, \n, \r and \t become their characters in one pass from the left; a backslash before any
// other character stays, together with that character, and so does a backslash at the end.
CString UndoInsertEscapeSequences(const CString& text);
CString InsertEscapesDoubleQuotesAndEnclose(const CString& text);
CString UndoInsertEscapesDoubleQuotesAndEnclose(const CString& text);

} // namespace keel
