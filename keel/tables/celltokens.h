#pragma once

#include "keel/values/anyvalue.h"

#include <string_view>

namespace keel {

// How the cells, labels and headings of a table file are written and read back.

// One token off the front of a tab-separated line made a value: the enclosing quotes undone, the
// text run as a formula in no context, with its own spelling. False when the formula fails; the
// value then holds what the evaluator left. With `quiet` the evaluator reports nothing.
bool ReadCellToken(CString& line, QAnyValue& value, CString& token, bool quiet = false);

// The two ways a token is read. A plain token (see plaincell.h) is read directly, unless
// evaluations are traced, where it would leave no trace; false, with the value untouched, for
// any other token. The formula way reads every token, plain or not, and is the reference that
// the direct way agrees with.
bool ReadPlainCellToken(std::u16string_view token, QAnyValue& value);
bool ReadCellTokenAsFormula(const CString& token, QAnyValue& value, bool quiet = false);

// The token of a value in a place of the given type (0 for none): the value made that type when
// that reads back the same, else the value as it stands, so that a fraction in a column of whole
// numbers, a date in its own spelling or a measure in a column of numbers keeps what it was.
// Numbers keep every digit, and measures are written with unit words (lengths in the current
// units when that is exact), so that the file does not depend on the units of its reader. A
// value that no token gives back (an error, an array of texts) is written as it prints.
CString CellToken(const QAnyValue& value, QAnyValue::TYPE type);

// Whether a value read back gives the original in a place of the given type: formula cells the
// same text; other values the same once made that type, and the original again when made the
// original's type, so that a fraction that a whole-number column rounds away is not the same.
// Texts must match in case; an error value is never the same as anything.
bool IsSameCell(const QAnyValue& read, const QAnyValue& original, QAnyValue::TYPE type);

} // namespace keel
