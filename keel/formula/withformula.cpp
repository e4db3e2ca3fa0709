#include "keel/formula/withformula.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/formula/deferredeval.h"
#include "keel/formula/formulacontext.h"
#include "keel/platform/archive.h"

#include <algorithm>
#include <vector>

namespace keel {

// --- QWithFormulaBase -------------------------------------------------------------------------

void QWithFormulaBase::SetFormula(FormulaText formula) {
    PreChange();
    SetFormulaNoChange(formula);
    Changed();
}

void QWithFormulaBase::SetFormulaNoChange(FormulaText formula) {
    if (!(formula == m_formula))
        ClearErrorBit();
    m_formula = formula;
}

void QWithFormulaBase::SetFormulaAndContext(FormulaText formula, QFormulaContext* context) {
    DoSetParentContext(context);
    SetFormula(formula);
}

void QWithFormulaBase::StoreIntoArchive(CArchive& archive) const {
    archive << m_formula.ToString();
}

void QWithFormulaBase::LoadFromArchive(CArchive& archive) {
    CString text;
    archive >> text;
    m_formula = text.IsEmpty() ? FormulaText() : FormulaText(text);
}

unsigned long QWithFormulaBase::DisplayColor(unsigned long normal, bool selected) const {
    if (IsErrorBit())
        return c_errorColor;
    if (!IsFormulaEmpty())
        return selected ? c_formulaSelectedColor : c_formulaColor;
    return normal;
}

// --- QWithFormula<QAnyValue, 0> ---------------------------------------------------------------

QWithFormula<QAnyValue, 0>::QWithFormula(const QWithFormula& other)
    : QWithFormulaBase(other), m_value(other.m_value) {}

QWithFormula<QAnyValue, 0>::QWithFormula(const QWithFormula& other, QFormulaContext* context)
    : QWithFormulaBase(other, context), m_value(other.m_value) {}

QWithFormula<QAnyValue, 0>& QWithFormula<QAnyValue, 0>::operator=(const QWithFormula& other) {
    if (this == &other)
        return *this;
    if (IsParentContextEmpty())
        DoSetParentContext(const_cast<QFormulaContext*>(other.ParentContext()));
    Assign(other.m_value, other.Formula());
    return *this;
}

QWithFormula<QAnyValue, 0>::~QWithFormula() {
    QDeferredEval::RemovePendingEvaluation(this);
}

const QAnyValue& QWithFormula<QAnyValue, 0>::Value(bool report) const {
    EnsureUpToDate(report);
    return m_value;
}

void QWithFormula<QAnyValue, 0>::Assign(const QAnyValue& value, FormulaText formula) {
    if (!formula.IsEmpty()) {
        PreChange();
        SetFormulaNoChange(formula);
        m_value = value;
        Changed();
        return;
    }
    if (m_value.Identical(value)) {
        ClearErrorBit();
        ClearFormulaNoChange();
        return;
    }
    PreChange();
    m_value = value;
    ClearErrorBit();
    ClearFormulaNoChange();
    Changed();
}

QWithFormula<QAnyValue, 0>& QWithFormula<QAnyValue, 0>::operator=(const QAnyValue& value) {
    Assign(value, FormulaText());
    return *this;
}

bool QWithFormula<QAnyValue, 0>::IsBehindRoot() const {
    const QWithContextVirtual* root = SyncRoot();
    if (!root)
        return false;
    return !IsState(*root->SyncStateIfRoot()) || NeedsReevaluation();
}

void QWithFormula<QAnyValue, 0>::EnsureUpToDate(bool report) const {
    if (m_bEvaluatingNow) {
        EvaluateNow(report);
        return;
    }
    if (!IsBehindRoot())
        return;
    if (QDeferredEval::IsDeferred() && !NoEvaluationPossible()) {
        QDeferredEval::AddPendingEvaluation(this);
        return;
    }
    BringUpToDateOnce(report);
    // The evaluation may itself have moved the root.
    if (!IsState(TopLevelSyncState()))
        BringUpToDateOnce(report);
}

void QWithFormula<QAnyValue, 0>::BringUpToDateOnce(bool report) const {
    MakeUpToDate();
    SetCacheState(QCS_Stable);
    if (!NoEvaluationPossible())
        EvaluateNow(report);
}

namespace {

using ValueWithFormula = QWithFormula<QAnyValue, 0>;

// The values evaluating on this thread, innermost last: when one of them is read again, the
// values from it to the end form the loop.
thread_local std::vector<const ValueWithFormula*> t_evaluating;

// Sets the evaluating-now flag for the length of one evaluation, on every way out, and keeps the
// value on the thread's list meanwhile.
class EvaluatingNow {
public:
    EvaluatingNow(bool& flag, const ValueWithFormula* value) : m_flag(flag) {
        m_flag = true;
        t_evaluating.push_back(value);
    }
    ~EvaluatingNow() {
        m_flag = false;
        t_evaluating.pop_back();
    }
    EvaluatingNow(const EvaluatingNow&) = delete;
    EvaluatingNow& operator=(const EvaluatingNow&) = delete;

private:
    bool& m_flag;
};

const QTString& RecursiveFormulaText() {
    static const QTString text(u"Recursive formula\n\t%s", u"Message box (formula)");
    return text;
}

const QTString& RecursiveFormulaInContextText() {
    static const QTString text(u"Recursive formula\n\t%s\nin\n\t%s",
                               u"Message box (formula,context)");
    return text;
}

// The text of a translated form up to its first argument.
CString TextBeforeArgument(const CString& form) {
    const int argument = form.Find(u"%s");
    return argument < 0 ? form : form.Left(argument);
}

} // namespace

bool QWithFormula<QAnyValue, 0>::EvaluateNow(bool report) const {
    ClearErrorBit();
    if (NoEvaluationPossible())
        return true;
    const bool reportNow = report || (SyncRoot() && !NoEvalReportErrors());
    if (m_bEvaluatingNow) {
        FailAsRecursive(reportNow);
        return false;
    }
    QAnyValue result = m_value;
    QCacheState state = QCS_Stable;
    bool succeeded;
    {
        EvaluatingNow evaluating(m_bEvaluatingNow, this);
        QFormulaContext* context = const_cast<QFormulaContext*>(ParentContext());
        succeeded = context->Evaluate(result, state, Formula(), false, reportNow, false);
    }
    SetCacheState(state);
    if (m_bInLoop) {
        m_bInLoop = false;
        m_value.MakeError(RecursiveFormulaMessage());
        SetErrorBit();
        return false;
    }
    m_value = result;
    if (!succeeded)
        SetErrorBit();
    return succeeded;
}

// The values from this one to the innermost evaluating make the loop; each fails when its
// evaluation ends. Until then this value reads as the failure.
void QWithFormula<QAnyValue, 0>::FailAsRecursive(bool report) const {
    const auto first = std::find(t_evaluating.begin(), t_evaluating.end(), this);
    for (auto it = first; it != t_evaluating.end(); ++it)
        (*it)->m_bInLoop = true;
    const CString message = RecursiveFormulaMessage();
    m_value.MakeError(message);
    SetErrorBit();
    if (report)
        QMessageBoxOrLog(message, CString(u"Formula"), true);
}

CString QWithFormula<QAnyValue, 0>::RecursiveFormulaMessage() const {
    const CString formula = Formula().ToString();
    const CString context = ParentContext()->WhoAmI();
    return context.IsEmpty()
               ? CString::Formatted(RecursiveFormulaText(), formula)
               : CString::Formatted(RecursiveFormulaInContextText(), formula, context);
}

bool QWithFormula<QAnyValue, 0>::IsRecursiveFormulaError(const QAnyValue& value) {
    CString message;
    if (!value.IsErrorAndGetMessage(message))
        return false;
    for (const QTString* form : {&RecursiveFormulaText(), &RecursiveFormulaInContextText()}) {
        const CString start = TextBeforeArgument(*form);
        if (!start.IsEmpty() && message.Left(start.GetLength()) == start)
            return true;
    }
    return false;
}

} // namespace keel
