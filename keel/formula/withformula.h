#pragma once

#include "keel/formula/withcontext.h"
#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

namespace keel {

class CArchive;
class QFormulaContext;

// A formula and the context it is evaluated in. The context is the holder's parent context; a
// formula that is empty (index -1) stands for "no formula".
class QWithFormulaBase : public QWithContextConcrete {
public:
    QWithFormulaBase() = default;
    explicit QWithFormulaBase(QFormulaContext* context, FormulaText formula = FormulaText())
        : QWithContextConcrete(context), m_formula(formula) {}
    QWithFormulaBase(const QWithFormulaBase& other, QFormulaContext* context)
        : QWithContextConcrete(other, context), m_formula(other.m_formula) {}
    QWithFormulaBase(const QWithFormulaBase&) = default;
    QWithFormulaBase& operator=(const QWithFormulaBase&) = default;

    FormulaText Formula() const { return m_formula; }
    bool IsFormulaEmpty() const { return m_formula.IsEmpty(); }
    // Nothing to evaluate: no formula, or no context to evaluate it in.
    bool NoEvaluationPossible() const { return IsFormulaEmpty() || IsParentContextEmpty(); }

    // With the root told before and after; a different formula clears the error bit.
    void SetFormula(FormulaText formula);
    // The same without telling the root.
    void SetFormulaNoChange(FormulaText formula);
    void ClearFormulaNoChange() { m_formula.Empty(); }
    // Sets the context first (without notices), then the formula as SetFormula does.
    void SetFormulaAndContext(FormulaText formula, QFormulaContext* context);

    // The formula's text as a counted string; no formula is the empty string.
    void StoreIntoArchive(CArchive& archive) const;
    void LoadFromArchive(CArchive& archive);

    // The colour to show the value in: a value in error is red, a value that comes from a
    // formula is blue (dark blue when `selected`), any other keeps `normal`.
    unsigned long DisplayColor(unsigned long normal, bool selected) const;

    static constexpr unsigned long c_errorColor = 0x0000FF;
    static constexpr unsigned long c_formulaColor = 0xFF0000;
    static constexpr unsigned long c_formulaSelectedColor = 0x800000;

private:
    FormulaText m_formula;
};

template <class T, int N = 0>
class QWithFormula;

// A value with its own formula, evaluated lazily: a read brings it up to date when the root's
// sync number has moved since the last read, or when the last evaluation gave a value that may
// not be kept.
template <>
class QWithFormula<QAnyValue, 0> : public QWithFormulaBase {
public:
    QWithFormula() = default;
    explicit QWithFormula(QFormulaContext* context) : QWithFormulaBase(context) {}
    QWithFormula(QFormulaContext* context, const QAnyValue& value,
                 FormulaText formula = FormulaText())
        : QWithFormulaBase(context, formula), m_value(value) {}
    explicit QWithFormula(const QAnyValue& value) : m_value(value) {}
    // A copy is not evaluating, whatever the original is doing.
    QWithFormula(const QWithFormula& other);
    QWithFormula(const QWithFormula& other, QFormulaContext* context);
    // Keeps this value's context, unless it has none; see Assign.
    QWithFormula& operator=(const QWithFormula& other);
    // A value that dies while its evaluation is pending is taken off the worker's list.
    ~QWithFormula();

    // Brought up to date first.
    const QAnyValue& Value(bool report = false) const;
    operator const QAnyValue&() const { return Value(); }
    // The stored value as it stands.
    const QAnyValue& ValueNoEnsureUpToDate() const { return m_value; }
    bool IsEvaluatingNow() const { return m_bEvaluatingNow; }

    // Takes value and formula with the notices of a change: with a formula, the root hears of
    // it (when there is one) and a different formula clears the error bit; without a formula a
    // value identical to the stored one only clears the error bit and the formula, silently.
    void Assign(const QAnyValue& value, FormulaText formula);
    QWithFormula& operator=(const QAnyValue& value);

    // Sets the value without notices.
    void SetValueNoChange(const QAnyValue& value) { m_value = value; }

    // The read-side steps: when the value is behind the root, or its last value may not be kept,
    // it takes the root's number and evaluates its formula; if the root moved meanwhile, once
    // more. In a deferred stretch the evaluation is left to the worker instead.
    void EnsureUpToDate(bool report = false) const;
    // Runs the formula into the value now. False on a failure, which sets the error bit. A value
    // read while it is evaluating fails as recursive, and so does every value whose evaluation
    // led to that read: each value of the loop holds the error "Recursive formula" with its own
    // formula, whichever of them was read first.
    bool EvaluateNow(bool report) const;

    // Whether an error value is the report of a formula that reads itself.
    static bool IsRecursiveFormulaError(const QAnyValue& value);

private:
    bool IsBehindRoot() const;
    void BringUpToDateOnce(bool report) const;
    void FailAsRecursive(bool report) const;
    CString RecursiveFormulaMessage() const;

    mutable QAnyValue m_value;
    mutable bool m_bEvaluatingNow = false;
    // Set on each value of a loop found while they evaluate, for the end of their evaluation.
    mutable bool m_bInLoop = false;
};

} // namespace keel
