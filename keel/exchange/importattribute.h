#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

#include <type_traits>

namespace keel {

// The receiving end of one attribute on import: the name to look for, and where its value and
// formula go. Returns false only when the object cannot take what it was given.
class QImportAttribute {
public:
    virtual ~QImportAttribute() = default;
    virtual CString Name() const = 0;
    virtual bool SetValue(const QAnyValue& value) const = 0;
    virtual bool SetFormula(FormulaText formula) const = 0;
};

// The value converted to U, as the value's own Make does: a value that cannot be one gives the
// type's default and no error. Interned kinds take the value's text.
template <class U>
U ConvertImportedValue(const QAnyValue& value) {
    QAnyValue copy(value);
    if constexpr (std::is_same_v<U, ControlId> || std::is_same_v<U, FormulaText> ||
                  std::is_same_v<U, PropId>) {
        CString message;
        if (copy.IsErrorAndGetMessage(message))
            return U();
        return U(copy.MakeCString());
    } else {
        return copy.Make<U>();
    }
}

// Stores the converted value into a variable; the formula, when a place for it is given, into a
// second one.
template <class T, class U = T>
class QByValImportAttribute : public QImportAttribute {
public:
    QByValImportAttribute(const CString& name, T& target, FormulaText* formula = nullptr)
        : m_name(name), m_target(target), m_formula(formula) {}

    CString Name() const override { return m_name; }
    bool SetValue(const QAnyValue& value) const override {
        m_target = static_cast<T>(ConvertImportedValue<U>(value));
        return true;
    }
    bool SetFormula(FormulaText formula) const override {
        if (m_formula)
            *m_formula = formula;
        return true;
    }

private:
    CString m_name;
    T& m_target;
    FormulaText* m_formula;
};

// Hands the converted value to a member function of an object; the formula is not taken.
template <class Object, class T, class U = std::remove_cvref_t<T>>
class QSetterImportAttribute : public QImportAttribute {
public:
    using Setter = void (Object::*)(T);

    QSetterImportAttribute(const CString& name, Object* object, Setter setter)
        : m_name(name), m_object(object), m_setter(setter) {}

    CString Name() const override { return m_name; }
    bool SetValue(const QAnyValue& value) const override {
        (m_object->*m_setter)(ConvertImportedValue<U>(value));
        return true;
    }
    bool SetFormula(FormulaText) const override { return true; }

private:
    CString m_name;
    Object* m_object;
    Setter m_setter;
};

// Stores like QByValImportAttribute, but first runs the text of the value, when it is a string,
// and the text of the formula through `substitute`: the parameters of a file that was read with
// values to put in. An empty formula leaves the formula's place alone, so that the formula and
// the value may share one place. `found`, when given, is set once the file held the attribute.
template <class T, class U = T>
class QImportAttrWithSubstitutions : public QImportAttribute {
public:
    using Substitution = CString (*)(const CString& text);

    QImportAttrWithSubstitutions(const CString& name, T& target, Substitution substitute,
                                 FormulaText* formula = nullptr, bool* found = nullptr)
        : m_name(name), m_target(target), m_substitute(substitute), m_formula(formula),
          m_found(found) {}

    CString Name() const override { return m_name; }
    bool SetValue(const QAnyValue& value) const override {
        if (value.IsString())
            m_target = static_cast<T>(
                ConvertImportedValue<U>(QAnyValue(m_substitute(value.AsStringOrFormula()))));
        else
            m_target = static_cast<T>(ConvertImportedValue<U>(value));
        if (m_found)
            *m_found = true;
        return true;
    }
    bool SetFormula(FormulaText formula) const override {
        if (m_formula)
            *m_formula =
                formula.IsEmpty() ? formula : FormulaText(m_substitute(formula.ToString()));
        return true;
    }

private:
    CString m_name;
    T& m_target;
    Substitution m_substitute;
    FormulaText* m_formula;
    bool* m_found;
};

} // namespace keel
