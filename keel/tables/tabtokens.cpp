#include "keel/tables/tabtokens.h"

#include "keel/formula/tokeniser.h"
#include "keel/values/anyvalue.h"

#include <algorithm>

namespace keel {

void PutTabDelimToken(CString& line, const CString& token) {
    if (line == c_EmptyFirstTokenMarker)
        line = u"\t";
    else if (!line.IsEmpty())
        line += u'\t';
    if (!token.IsEmpty())
        line += token;
    else if (line.IsEmpty())
        line = c_EmptyFirstTokenMarker;
}

bool GetTabDelimToken(CString& line, CString& token) {
    const int tab = line.Find(u'\t');
    if (tab < 0) {
        token = line;
        line.Empty();
        return false;
    }
    token = line.Left(tab);
    line = line.Mid(tab + 1);
    return true;
}

std::u16string_view TakeTabDelimToken(std::u16string_view line, std::size_t& at) {
    const std::size_t start = std::min(at, line.size());
    const std::size_t tab = line.find(u'\t', start);
    if (tab == std::u16string_view::npos) {
        at = line.size();
        return line.substr(start);
    }
    at = tab + 1;
    return line.substr(start, tab - start);
}

bool IsEnclosedByQuotes(const CString& text) {
    const int length = text.GetLength();
    return length >= 2 && text[0] == u'"' && text[length - 1] == u'"';
}

CString DoubleQuotesAndEnclose(const CString& text) {
    CString doubled = text;
    doubled.Replace(CString(u"\""), CString(u"\"\""));
    return u'"' + doubled + u'"';
}

CString UndoDoubleQuotesAndEnclose(const CString& text) {
    if (!IsEnclosedByQuotes(text))
        return text;
    CString inner = text.Mid(1, text.GetLength() - 2);
    inner.Replace(CString(u"\"\""), CString(u"\""));
    return inner;
}

CString InsertEscapeSequences(const CString& text) {
    return QAnyValue::InsertEscapeSequences(text);
}

CString UndoInsertEscapeSequences(const CString& text) {
    return QTokenInput::UndoInsertEscapeSequences(text);
}

CString InsertEscapesDoubleQuotesAndEnclose(const CString& text) {
    return QAnyValue::InsertEscapesDoubleQuotesAndEnclose(text);
}

CString UndoInsertEscapesDoubleQuotesAndEnclose(const CString& text) {
    return UndoInsertEscapeSequences(UndoDoubleQuotesAndEnclose(text));
}

} // namespace keel
