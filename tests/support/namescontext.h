#pragma once

#include "keel/formula/formulacontext.h"
#include "keel/values/map.h"

namespace keel::test {

// A context that answers the names it was given and nothing else.
class NamesContext : public QFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Panel"; }
    QProperties* Properties() const override { return nullptr; }
    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool&, QCacheState&,
                                 bool) override {
        const auto* entry = m_values.PLookup(name);
        if (!entry)
            return false;
        value = entry->value;
        return true;
    }
    void Set(const char* name, const QAnyValue& value) { m_values[PropId(name)] = value; }

private:
    QMap<PropId, QAnyValue> m_values;
};

} // namespace keel::test
