#pragma once

#include "keel/formula/withformula.h"
#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

namespace keel {

// One attribute of an object on its way to a file: a name, a value, perhaps a default (a minimal
// export leaves out a value equal to it) and perhaps a formula. An empty formula (index -1) is
// no formula.
class QExportAttribute {
public:
    QExportAttribute(const CString& name, const QAnyValue& value);
    QExportAttribute(const CString& name, const QAnyValue& value, const QAnyValue& defaultValue);
    // An attribute whose content is formula text: the value is the formula's text as a string,
    // the default the default formula's text.
    QExportAttribute(const CString& name, FormulaText formula, FormulaText defaultFormula);
    QExportAttribute(const CString& name, const QAnyValue& value, FormulaText formula);
    QExportAttribute(const CString& name, const QAnyValue& value, FormulaText formula,
                     const QAnyValue& defaultValue);
    QExportAttribute(const CString& name, const QWithFormula<QAnyValue>& valueWithFormula);
    QExportAttribute(const CString& name, const QWithFormula<QAnyValue>& valueWithFormula,
                     const QAnyValue& defaultValue);
    virtual ~QExportAttribute() = default;
    QExportAttribute(const QExportAttribute&) = default;
    QExportAttribute& operator=(const QExportAttribute&) = default;

    const CString& GetName() const { return m_name; }
    const QAnyValue& GetValue() const { return m_value; }
    bool HasDefaultValue() const { return m_hasDefaultValue; }
    const QAnyValue& GetDefaultValue() const { return m_defaultValue; }
    bool HasFormula() const { return m_hasFormula; }
    FormulaText GetFormula() const { return m_formula; }

    // Whether the writer must keep the value's type, because a reader has no other way of
    // knowing it.
    virtual bool IsVariableType() const { return false; }

    void SetName(const CString& name) { m_name = name; }

private:
    void SetFormula(FormulaText formula);
    void SetDefaultValue(const QAnyValue& defaultValue);

    CString m_name;
    QAnyValue m_value;
    bool m_hasDefaultValue = false;
    QAnyValue m_defaultValue;
    bool m_hasFormula = false;
    FormulaText m_formula;
};

// An attribute whose value may be of any type, such as a property's answer.
class QVariableTypeExportAttribute : public QExportAttribute {
public:
    using QExportAttribute::QExportAttribute;
    bool IsVariableType() const override { return true; }
};

} // namespace keel
