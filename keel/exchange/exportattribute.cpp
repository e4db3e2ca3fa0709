#include "keel/exchange/exportattribute.h"

namespace keel {

QExportAttribute::QExportAttribute(const CString& name, const QAnyValue& value)
    : m_name(name), m_value(value) {}

QExportAttribute::QExportAttribute(const CString& name, const QAnyValue& value,
                                   const QAnyValue& defaultValue)
    : QExportAttribute(name, value) {
    SetDefaultValue(defaultValue);
}

QExportAttribute::QExportAttribute(const CString& name, FormulaText formula,
                                   FormulaText defaultFormula)
    : QExportAttribute(name, QAnyValue(formula.ToString()), QAnyValue(defaultFormula.ToString())) {
    SetFormula(formula);
}

QExportAttribute::QExportAttribute(const CString& name, const QAnyValue& value, FormulaText formula)
    : QExportAttribute(name, value) {
    SetFormula(formula);
}

QExportAttribute::QExportAttribute(const CString& name, const QAnyValue& value, FormulaText formula,
                                   const QAnyValue& defaultValue)
    : QExportAttribute(name, value, defaultValue) {
    SetFormula(formula);
}

QExportAttribute::QExportAttribute(const CString& name,
                                   const QWithFormula<QAnyValue>& valueWithFormula)
    : QExportAttribute(name, valueWithFormula.Value(), valueWithFormula.Formula()) {}

QExportAttribute::QExportAttribute(const CString& name,
                                   const QWithFormula<QAnyValue>& valueWithFormula,
                                   const QAnyValue& defaultValue)
    : QExportAttribute(name, valueWithFormula.Value(), valueWithFormula.Formula(), defaultValue) {}

void QExportAttribute::SetFormula(FormulaText formula) {
    m_formula = formula;
    m_hasFormula = !formula.IsEmpty();
}

void QExportAttribute::SetDefaultValue(const QAnyValue& defaultValue) {
    m_defaultValue = defaultValue;
    m_hasDefaultValue = true;
}

} // namespace keel
