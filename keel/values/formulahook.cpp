#include "keel/values/formulahook.h"

#include <atomic>

namespace keel {

namespace {

std::atomic<QFormulaEvaluatorHook> g_evaluatorHook{nullptr};

} // namespace

QFormulaEvaluatorHook SetFormulaEvaluatorHook(QFormulaEvaluatorHook hook) {
    return g_evaluatorHook.exchange(hook);
}

QFormulaEvaluatorHook GetFormulaEvaluatorHook() {
    return g_evaluatorHook.load();
}

bool EvaluateFormula(const FormulaText& formula, QFormulaContext* context, QAnyValue& result) {
    const QFormulaEvaluatorHook hook = g_evaluatorHook.load();
    return hook != nullptr && hook(formula, context, result);
}

} // namespace keel
