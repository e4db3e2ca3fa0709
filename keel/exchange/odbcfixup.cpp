#include "keel/exchange/odbcfixup.h"

#include "keel/platform/wchar.h"
#include "keel/tables/tabtokens.h"

namespace keel {

CString ODBCFixup(const CString& text) {
    const CString escaped = InsertEscapeSequences(text);
    if (!escaped.IsEmpty() && (!IsAlnum(escaped[0]) || escaped.Find(u'"') >= 0))
        return DoubleQuotesAndEnclose(escaped);
    return escaped;
}

CString ODBCUnFixup(const CString& text) {
    const CString unquoted = IsEnclosedByQuotes(text) ? UndoDoubleQuotesAndEnclose(text) : text;
    return UndoInsertEscapeSequences(unquoted);
}

} // namespace keel
