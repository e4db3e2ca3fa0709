#pragma once

#include "keel/platform/cstring.h"

namespace keel {

// Makes a text safe for one tab-separated column: backslash, newline, carriage return and tab
// become escape sequences, and a text that does not start with a letter or digit, or that holds
// a double quote, is put between double quotes with its own quotes doubled.
CString ODBCFixup(const CString& text);
// Undoes ODBCFixup.
CString ODBCUnFixup(const CString& text);

} // namespace keel
