#pragma once

#include "keel/formula/toplevelcontext.h"
#include "keel/formula/withformula.h"

#include <map>
#include <memory>

namespace keel::test {

// A root whose names are values with formulas of their own, as properties are: each is brought
// up to date when it is read, and a read reports the value's error bit.
class FormulaValuesRoot : public QTopLevelFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Sheet"; }
    QProperties* Properties() const override { return nullptr; }
    void ProcessPreChangeFromChildHelper() override {}
    void ProcessChangedFromChildHelper() override {}

    QWithFormula<QAnyValue>& Set(const char* name, const char* formula) {
        auto& slot = m_values[PropId(name).UniqueId()];
        slot = std::make_unique<QWithFormula<QAnyValue>>(this, QAnyValue(), FormulaText(formula));
        MarkAsNotUpToDate();
        return *slot;
    }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error, QCacheState&,
                                 bool) override {
        const auto found = m_values.find(name.UniqueId());
        if (found == m_values.end())
            return false;
        value = found->second->Value();
        error = found->second->IsErrorBit();
        return true;
    }

private:
    std::map<int, std::unique_ptr<QWithFormula<QAnyValue>>> m_values;
};

} // namespace keel::test
