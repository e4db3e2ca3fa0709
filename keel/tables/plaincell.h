#pragma once

#include "keel/values/anyvalue.h"

#include <string_view>

namespace keel {

// The cells of a table file are formula texts, but nearly all of them are plain: blanks, a
// number with signs in front and perhaps a unit word behind, a string literal, true or false.
// These are read here without interning the text or running the evaluator, to the value the
// evaluator gives them: the same type, raw value and spelling.
//
// `token` is the cell as it stands in the file, its enclosing quotes not yet undone. False, with
// `value` untouched, when the text is anything else; that text must be run as a formula.
bool ReadPlainCell(std::u16string_view token, QAnyValue& value);

} // namespace keel
