#pragma once

#include "keel/values/stringunique.h"

namespace keel {

class QAnyValue;
class QFormulaContext;

// The values layer runs formulas (a string made numeric, a text typed for a number) without
// knowing the evaluator, which lives above it. The evaluator layer installs one hook at start-up
// that evaluates a formula in a context (null: no context) into `result` and says whether it
// succeeded. Without a hook every formula fails, so a string that needs evaluating becomes the
// error of a formula that could not be evaluated.
using QFormulaEvaluatorHook = bool (*)(const FormulaText& formula, QFormulaContext* context,
                                       QAnyValue& result);

// Returns the hook it replaces; nullptr uninstalls. Safe to call while other threads evaluate.
QFormulaEvaluatorHook SetFormulaEvaluatorHook(QFormulaEvaluatorHook hook);
QFormulaEvaluatorHook GetFormulaEvaluatorHook();

// Runs the formula through the installed hook; false when there is none or it failed.
bool EvaluateFormula(const FormulaText& formula, QFormulaContext* context, QAnyValue& result);

} // namespace keel
