#pragma once

#include "keel/formula/state.h"
#include "keel/platform/cstring.h"
#include "keel/values/stringunique.h"

namespace keel {

class QAnyValue;
class QFormulaContext;

// A stored text made a value: the text runs as a formula in `context` and `value` takes the
// result. An empty text is the empty value. With `quiet` the evaluator reports nothing. The cache
// state of the evaluation is raised into `state` when one is given. False when the formula fails,
// with `value` holding what the evaluator left.
bool StringToValue(QAnyValue& value, const CString& text, QFormulaContext* context, bool quiet,
                   QCacheState* state);

// The stored text interned as a formula with its own spelling. Interned formula texts fold case,
// so that without this the string "a" of one file could come back as the "A" of another text
// read before.
FormulaText FormulaTextAsSpelled(const CString& text);

// The text of a value in lists and label comparisons: its display text.
CString ValueToString(const QAnyValue& value);

} // namespace keel
