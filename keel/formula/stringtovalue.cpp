#include "keel/formula/stringtovalue.h"

#include "keel/formula/evaluator.h"
#include "keel/values/anyvalue.h"

#include <memory>

namespace keel {

bool StringToValue(QAnyValue& value, const CString& text, QFormulaContext* context, bool quiet,
                   QCacheState* state) {
    if (text.IsEmpty()) {
        value = QAnyValue();
        return true;
    }
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(value, FormulaText(text), context, false, !quiet, false));
    const bool ok = evaluator->Evaluate();
    if (state)
        RaiseCacheState(*state, evaluator->CacheState());
    return ok;
}

FormulaText FormulaTextAsSpelled(const CString& text) {
    const FormulaText formula(text);
    if (formula.ToString() == FormulaCanonicalForm(text))
        return formula;
    return FormulaText(text, false, true);
}

CString ValueToString(const QAnyValue& value) {
    QAnyValue copy(value);
    return copy.MakeCString();
}

} // namespace keel
