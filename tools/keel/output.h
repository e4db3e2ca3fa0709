#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"

#include <string>
#include <string_view>
#include <unordered_map>

namespace keel::tool {

// The display texts of a value and of the arrays inside it. An array's text is made from the
// texts of its elements, and each nested array's text is made once and kept, so that the text
// of every level of a deep array costs no more than the text itself.
class QDisplayTexts {
public:
    // The text MakeCString gives, without converting the value.
    const CString& Of(QAnyValue& value);

private:
    // How an element shows inside its array's text: strings quoted, empty elements blank.
    CString ElementText(QAnyValue& element);

    std::unordered_map<const QArray<QAnyValue>*, CString> m_arrays;
    CString m_scalar;
};

// The plain line of a result, without its line break: the type name, a tab and the display
// text; an error value shows its message instead, on one line.
std::string PlainLine(QAnyValue& value);

// The JSON line of a result, without its line break: "formula", "ok", "error" (only when the
// value is an error value), "message", then the value's "type", "typeNumber", "text" and "raw".
std::string JsonLine(std::string_view formula, bool ok, const CString& message, QAnyValue& value);

// A JSON string of UTF-8 text: bytes that are not UTF-8 become U+FFFD, and quotes, backslashes
// and control characters are escaped.
void AppendJsonString(std::string& out, std::string_view utf8);

} // namespace keel::tool
