#pragma once

#include "keel/formula/formulacontext.h"
#include "keel/values/map.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace keel::test {

// A context that answers the names it was given and nothing else, the shared fake of the tests.
// It may have a parent and a name; it counts the look-ups it is asked, keeps what is set on it
// (a value, or a formula's text), and refuses to set the name "locked". An entry may fail to give
// its value, raise the cache state, or hide from look-ups passed through from a child.
class NamesContext : public QFormulaContext {
public:
    explicit NamesContext(const char* typeName = "Panel", QFormulaContext* parent = nullptr,
                          bool named = false)
        : m_typeName(typeName), m_parent(parent), m_named(named) {}

    CString SimpleTypeName() const override { return m_typeName; }
    CString SimpleWhoAmI() const override {
        if (m_nameless)
            return CString();
        return m_named ? m_typeName : QFormulaContext::SimpleWhoAmI();
    }
    bool IsAbleToHaveName() const override {
        return m_named || QFormulaContext::IsAbleToHaveName();
    }
    QProperties* Properties() const override { return nullptr; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                 bool passthrough) override {
        const std::lock_guard lock(m_mutex);
        ++m_lookups[name.UniqueId()];
        const auto* pair = m_entries.PLookup(name);
        if (!pair || (passthrough && pair->value.hiddenFromPassThrough))
            return false;
        value = pair->value.value;
        error = pair->value.failing;
        keel::RaiseCacheState(state, pair->value.state);
        return true;
    }
    bool GetPropertyValue(PropId name, QAnyValue& value, bool& error, QCacheState*) override {
        const std::lock_guard lock(m_mutex);
        const auto* pair = m_entries.PLookup(name);
        if (!pair)
            return false;
        value = pair->value.value;
        error = value.IsError();
        return true;
    }
    bool LookupValue(FullId name, QAnyValue& value, bool& error, QCacheState& state,
                     bool passthrough, bool debug, bool useCache) override {
        {
            const std::lock_guard lock(m_mutex);
            m_asked.push_back(name.ToString().ToUtf8());
        }
        return QFormulaContext::LookupValue(name, value, error, state, passthrough, debug,
                                            useCache);
    }
    bool SimpleSetValueInThis(PropId name, const QAnyValue& value) override {
        const std::lock_guard lock(m_mutex);
        m_entries[name] = Entry{value};
        ++m_sets;
        return true;
    }
    bool SimpleSetFormulaInThis(PropId name, FormulaText formula) override {
        const std::lock_guard lock(m_mutex);
        m_formulas[name] = formula;
        return true;
    }
    bool SetValue(FullId name, const QAnyValue& value) override {
        return name != FullId(u"locked") && QFormulaContext::SetValue(name, value);
    }
    bool SetFormula(FullId name, FormulaText formula) override {
        return name != FullId(u"locked") && QFormulaContext::SetFormula(name, formula);
    }
    void RemoveProperty(PropId name) override {
        const std::lock_guard lock(m_mutex);
        m_entries.RemoveKey(name);
    }

    // Without a name of its own, not even its type name.
    void MakeNameless() { m_nameless = true; }

    void Set(const char* name, const QAnyValue& value, QCacheState state = QCS_Stable) {
        const std::lock_guard lock(m_mutex);
        m_entries[PropId(name)] = Entry{value, state};
    }
    void SetFailing(const char* name) {
        const std::lock_guard lock(m_mutex);
        m_entries[PropId(name)] = Entry{{}, QCS_Stable, true};
    }
    void SetHiddenFromPassThrough(const char* name, const QAnyValue& value) {
        const std::lock_guard lock(m_mutex);
        m_entries[PropId(name)] = Entry{value, QCS_Stable, false, true};
    }

    bool Has(const char* name) const {
        const std::lock_guard lock(m_mutex);
        return m_entries.PLookup(PropId(name)) != nullptr;
    }
    QAnyValue Get(const char* name) const {
        const std::lock_guard lock(m_mutex);
        const auto* pair = m_entries.PLookup(PropId(name));
        return pair ? pair->value.value : QAnyValue();
    }
    std::string Text(const char* name) const { return QAnyValue(Get(name)).MakeCString().ToUtf8(); }
    std::string Formula(const char* name) const {
        const std::lock_guard lock(m_mutex);
        const auto* pair = m_formulas.PLookup(PropId(name));
        return pair ? pair->value.ToString().ToUtf8() : std::string();
    }
    int Sets() const {
        const std::lock_guard lock(m_mutex);
        return m_sets;
    }
    int LookupsOf(const char* name) const {
        const std::lock_guard lock(m_mutex);
        const auto count = m_lookups.find(PropId(name).UniqueId());
        return count == m_lookups.end() ? 0 : count->second;
    }
    int AllLookups() const {
        const std::lock_guard lock(m_mutex);
        int total = 0;
        for (const auto& [id, count] : m_lookups)
            total += count;
        return total;
    }
    std::vector<std::string> Asked() const {
        const std::lock_guard lock(m_mutex);
        return m_asked;
    }

private:
    struct Entry {
        QAnyValue value;
        QCacheState state = QCS_Stable;
        bool failing = false;
        bool hiddenFromPassThrough = false;
    };

    CString m_typeName;
    QFormulaContext* m_parent;
    bool m_named;
    bool m_nameless = false;
    mutable std::mutex m_mutex;
    QMap<PropId, Entry> m_entries;
    QMap<PropId, FormulaText> m_formulas;
    std::map<int, int> m_lookups;
    std::vector<std::string> m_asked;
    int m_sets = 0;
};

} // namespace keel::test
