#pragma once

#include "keel/formula/state.h"
#include "keel/formula/withcontext.h"
#include "keel/platform/cstring.h"
#include "keel/values/angle.h"
#include "keel/values/anyvalue.h"
#include "keel/values/length.h"
#include "keel/values/map.h"
#include "keel/values/smartptr.h"
#include "keel/values/stringunique.h"

#include <cstdint>

namespace keel {

class QDoc;
class QFormulaContextChangedSubscriber;
struct QProp;
class QProperties;
class QPropDefTab;
class QPropDefTabGroup;
class QPropDefTabGroupSet;
class QPropertySheetSubject;
class QTopLevelFormulaContext;

// The key of a value cache: an interned name or formula and a key number (0, the sequence
// number, or the sequence number plus the acceptor).
template <class Id>
struct QValueCacheKey {
    Id m_id;
    std::uint32_t m_key = 0;
};

template <class Id>
unsigned HashKey(const QValueCacheKey<Id>& key) {
    return static_cast<unsigned>(key.m_id.UniqueId()) ^ (key.m_key * 0x9E3779B1u);
}

template <class Id>
int COMPARE(const QValueCacheKey<Id>& a, const QValueCacheKey<Id>& b) {
    if (a.m_id.UniqueId() != b.m_id.UniqueId())
        return a.m_id.UniqueId() < b.m_id.UniqueId() ? -1 : 1;
    if (a.m_key != b.m_key)
        return a.m_key < b.m_key ? -1 : 1;
    return 0;
}

// A named scope: it answers what a name in a formula means. It may own properties, it may have
// children, it may have a parent, and it looks a name up in itself, its children and then its
// parents, nearest first. Derived classes say what they hold through the InThis and InChildren
// hooks and the property operations.
//
// Every context keeps three value caches, emptied whenever it is found behind the root's change
// number. A shared context (one used by several owners, without a parent) keeps no caches and
// evaluates nothing, and neither does a context that is being destroyed.
class QFormulaContext : public QSmartTarget, public QWithContextVirtual {
public:
    // The number of hops a look-up may take before it gives up.
    static constexpr int c_lookupTries = 256;

    QFormulaContext();
    // A context is identity, not value: a copy starts as a new context.
    QFormulaContext(const QFormulaContext& other);
    ~QFormulaContext() override;
    // Copies nothing.
    QFormulaContext& operator=(const QFormulaContext&) { return *this; }

    // Sets the destructing flag, calls PreDeleteThis and destroys the object.
    void DeleteThis() override;
    virtual void PreDeleteThis();

    // --- Values ------------------------------------------------------------------------------

    // `name` may be a dotted path, "frame.width". `error` tells that the name exists but its
    // evaluation failed; `state` is only ever raised. `passthrough` is handed on to the hooks.
    virtual bool LookupValue(FullId name, QAnyValue& value, bool& error, QCacheState& state,
                             bool passthrough, bool debug, bool useCache);
    virtual bool SimpleLookupValue(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                   const QFormulaContext* excluded, bool passthrough, bool debug,
                                   bool useCache);
    virtual bool SimpleLookupValueInThisAndChildren(PropId name, QAnyValue& value, bool& error,
                                                    QCacheState& state,
                                                    const QFormulaContext* excluded,
                                                    bool passthrough, int tries);
    virtual bool SimpleLookupValueInParent(PropId name, QAnyValue& value, bool& error,
                                           QCacheState& state, bool passthrough, bool debug,
                                           bool useCache, int tries);
    virtual bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error,
                                         QCacheState& state, bool passthrough);
    virtual bool SimpleLookupValueInChildren(PropId name, QAnyValue& value, bool& error,
                                             QCacheState& state, const QFormulaContext* excluded,
                                             bool passthrough, int tries);
    virtual bool SimpleLookupValueWithTries(PropId name, QAnyValue& value, bool& error,
                                            QCacheState& state, const QFormulaContext* excluded,
                                            bool passthrough, bool debug, bool useCache, int tries);

    // --- Formulas ----------------------------------------------------------------------------

    virtual bool LookupFormula(FullId name, FormulaText& formula);
    virtual bool SimpleLookupFormula(PropId name, FormulaText& formula,
                                     const QFormulaContext* excluded);
    virtual bool SimpleLookupFormulaInThisAndChildren(PropId name, FormulaText& formula,
                                                      const QFormulaContext* excluded, int tries);
    virtual bool SimpleLookupFormulaInParent(PropId name, FormulaText& formula, int tries);
    virtual bool SimpleLookupFormulaInThis(PropId name, FormulaText& formula);
    virtual bool SimpleLookupFormulaInChildren(PropId name, FormulaText& formula,
                                               const QFormulaContext* excluded, int tries);
    virtual bool SimpleLookupFormulaWithTries(PropId name, FormulaText& formula,
                                              const QFormulaContext* excluded, int tries);

    // --- Setting values ----------------------------------------------------------------------

    // Empties this context's caches. A path sets on the context its head names; a simple name is
    // set here, or on a hook that accepts it, and never on a parent.
    virtual bool SetValue(FullId name, const QAnyValue& value);
    virtual bool SimpleSetValue(PropId name, const QAnyValue& value, QFormulaContext* excluded);
    virtual bool SimpleSetValueInThisAndChildren(PropId name, const QAnyValue& value,
                                                 QFormulaContext* excluded);
    virtual bool SimpleSetValueInThis(PropId name, const QAnyValue& value);
    virtual bool SimpleSetValueInChildren(PropId name, const QAnyValue& value,
                                          QFormulaContext* excluded);

    // --- Setting formulas --------------------------------------------------------------------

    virtual bool SetFormula(FullId name, FormulaText formula);
    virtual bool SimpleSetFormula(PropId name, FormulaText formula, QFormulaContext* excluded);
    virtual bool SimpleSetFormulaInThisAndChildren(PropId name, FormulaText formula,
                                                   QFormulaContext* excluded);
    virtual bool SimpleSetFormulaInThis(PropId name, FormulaText formula);
    virtual bool SimpleSetFormulaInChildren(PropId name, FormulaText formula,
                                            QFormulaContext* excluded);

    // --- Contexts ----------------------------------------------------------------------------

    // A context is found by its type name (IsNamed) or by what the hooks answer. `context`
    // starts as this context.
    virtual bool LookupContext(FullId name, QFormulaContext*& context, QCacheState& state) const;
    virtual bool LookupContext(FullId name, QFormulaContext*& context, QCacheState& state);
    virtual bool SimpleLookupContext(PropId name, QFormulaContext*& context, QCacheState& state,
                                     const QFormulaContext* excluded) const;
    virtual bool SimpleLookupContext(PropId name, QFormulaContext*& context, QCacheState& state,
                                     const QFormulaContext* excluded);
    virtual bool SimpleLookupContextInThisAndChildren(PropId name, QFormulaContext*& context,
                                                      QCacheState& state,
                                                      const QFormulaContext* excluded,
                                                      int tries) const;
    virtual bool SimpleLookupContextInParent(PropId name, QFormulaContext*& context,
                                             QCacheState& state, int tries) const;
    virtual bool SimpleLookupContextInThis(PropId name, QFormulaContext*& context,
                                           QCacheState& state) const;
    virtual bool SimpleLookupContextInChildren(PropId name, QFormulaContext*& context,
                                               QCacheState& state, const QFormulaContext* excluded,
                                               int tries) const;
    virtual bool LookupContextWithTries(FullId name, QFormulaContext*& context, QCacheState& state,
                                        int tries) const;
    virtual bool SimpleLookupContextWithTries(PropId name, QFormulaContext*& context,
                                              QCacheState& state, const QFormulaContext* excluded,
                                              int tries) const;

    // --- Identity ----------------------------------------------------------------------------

    virtual bool IsNamed(PropId name) const;
    virtual CString SimpleTypeName() const = 0;
    virtual CString TypeName() const;
    virtual bool IsAbleToHaveName() const;
    virtual CString SimpleWhoAmI() const;
    virtual bool IsWithinDocument() const;
    virtual void SetCanBeShared(bool canBeShared);
    virtual QDoc* GetDoc();
    virtual const QDoc* GetDoc() const;
    // The context's document, or else the active one of the application services.
    virtual QDoc* GetDocOrActive();
    virtual const QDoc* GetDocOrActive() const;

    // The type name as an identifier.
    PropId Prefix() const;
    // This context's text after its parents', root first, one blank between.
    CString WhoAmI() const;

    // --- Hooks -------------------------------------------------------------------------------

    virtual bool DoNamedUpdates(CString name);
    virtual int ConstructionAnswerCheck(CString name);
    virtual void NotifyChildrenFullRecalc();
    virtual void OnNotifyFullRecalcFromParent();
    // Tells the root of a change around a recalculation of this context and its children.
    virtual void FullRecalc();

    // --- Question definitions ----------------------------------------------------------------

    // The question definitions that this context holds: none here. The group is the set's
    // current one and the tab that group's current one; each is null when the step before is.
    virtual QPropDefTabGroupSet* PropDefTabGroupSet();
    virtual QPropDefTabGroup* PropDefTabGroup();
    virtual QPropDefTab* PropDefTab();
    virtual QProperties* Properties() const = 0;

    // --- Properties --------------------------------------------------------------------------
    //
    // Each goes to the QProperties object of Properties(). Without one the count is 0, finding
    // gives -1, the getters and HasProperty give false and the setters and removers do nothing.

    virtual int PropertyCount() const;
    virtual int FindProperty(PropId name) const;
    virtual bool HasProperty(PropId name) const;
    virtual bool GetProperty(PropId name, QProp& property) const;
    virtual bool GetPropertyValueWithFormula(PropId name, QAnyValue& value, FormulaText& formula,
                                             bool& error, QCacheState* state);
    virtual bool GetPropertyValueWithFormulaWithNoEnsureUpToDate(PropId name, QAnyValue& value,
                                                                 FormulaText& formula) const;
    virtual bool GetPropertyValue(PropId name, QAnyValue& value, bool& error, QCacheState* state);
    virtual bool GetPropertyFormula(PropId name, FormulaText& formula) const;
    virtual bool GetPropertyDesc(PropId name, QStringUnique& desc) const;
    virtual void SetProperty(PropId name, const QProp& property);
    virtual void SetPropertyValueWithFormula(PropId name, const QAnyValue& value,
                                             FormulaText formula);
    virtual void SetPropertyValue(PropId name, const QAnyValue& value);
    virtual void SetPropertyFormula(PropId name, FormulaText formula);
    virtual void SetPropertyDesc(PropId name, QStringUnique desc);

    virtual bool GetAtProperty(int index, QProp& property) const;
    virtual bool GetAtPropertyValueWithFormula(int index, PropId& name, QAnyValue& value,
                                               FormulaText& formula, bool& error,
                                               QCacheState* state);
    virtual bool GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(int index, PropId& name,
                                                                   QAnyValue& value,
                                                                   FormulaText& formula) const;
    virtual bool GetAtPropertyValue(int index, PropId& name, QAnyValue& value, bool& error,
                                    QCacheState* state);
    virtual bool GetAtPropertyFormula(int index, PropId& name, FormulaText& formula) const;
    virtual bool GetAtPropertyDesc(int index, PropId& name, QStringUnique& desc) const;
    virtual void SetAtProperty(int index, const QProp& property);
    virtual void SetAtPropertyValueWithFormula(int index, PropId name, const QAnyValue& value,
                                               FormulaText formula);
    virtual void SetAtPropertyValue(int index, PropId name, const QAnyValue& value);
    virtual void SetAtPropertyFormula(int index, PropId name, FormulaText formula);
    virtual void SetAtPropertyDesc(int index, PropId name, QStringUnique desc);

    virtual void RemoveProperty(PropId name);
    virtual void RemoveAllProperties();
    virtual void RemoveAtProperty(int index);

    // --- Inspector and subscribers -----------------------------------------------------------

    // Both go to the parent.
    virtual void SetAsPropertyInspectorSubject();
    virtual QPropertySheetSubject* PropertySheetSubject();
    // Both go up to the root, which keeps the subscribers.
    virtual void RegisterChangedSubscriber(QFormulaContextChangedSubscriber* subscriber);
    virtual void DeregisterChangedSubscriber(QFormulaContextChangedSubscriber* subscriber);

    // --- Cache keys --------------------------------------------------------------------------

    virtual bool HasSeqForValueCache() const;
    virtual std::uint32_t SeqForValueCache() const;
    virtual const void* AcceptorForValueCache() const;
    virtual void ForgetEverythingIKnowInThisAndParents();

    // --- Parent ------------------------------------------------------------------------------

    // A shared context, or a null one, gets no parent this way.
    void DoSetParentContext(QFormulaContext* context) override;
    void DoSetParentContextIfNotShared(QFormulaContext* context);
    // Empties the caches and clears the error bit.
    void OnEnsureUpToDate() const override;

    // --- Flags -------------------------------------------------------------------------------

    bool CanBeShared() const { return m_bCanBeShared; }
    bool IsDestructing() const { return m_bIsDestructing; }
    bool CanBeSharedOrIsDestructing() const { return m_bCanBeShared || m_bIsDestructing; }
    // Called by a destructor that wants the caches out of use while it runs.
    void Destructing() { m_bIsDestructing = true; }
    bool AreNamedUpdatesOn() const { return m_bNamedUpdates; }
    // While on, SimpleSetValue calls DoNamedUpdates after storing.
    void SetNamedUpdates(bool on) { m_bNamedUpdates = on; }

    // --- Value caches ------------------------------------------------------------------------

    // A formula's value kept under (formula, seq + acceptor), (formula, seq) or (formula, 0), the
    // first found wins; `state` is raised to what the key stands for.
    bool HeresAFormulaValueIPreparedEarlier(QAnyValue& out, QCacheState& state,
                                            const FormulaText& formula) const;
    // Kept under the key of `state`: 0, seq, or seq + acceptor when there is an acceptor.
    void RememberThisFormulaValueForNextTime(const QAnyValue& value, const FormulaText& formula,
                                             QCacheState state);
    // Removes (formula, seq) and (formula, 0); a value kept under seq + acceptor stays.
    void ForgetThisFormulaValueForNextTime(const FormulaText& formula);

    bool HeresAPropIdValueIPreparedEarlier(QAnyValue& out, const PropId& name) const;
    void RememberThisPropIdValueForNextTime(const QAnyValue& value, const PropId& name);
    void ForgetThisPropIdValueForNextTime(const PropId& name);
    bool HeresAFullIdValueIPreparedEarlier(QAnyValue& out, const FullId& name) const;
    void RememberThisFullIdValueForNextTime(const QAnyValue& value, const FullId& name);
    void ForgetThisFullIdValueForNextTime(const FullId& name);

    void ForgetEverythingIKnow();

    // --- Evaluation --------------------------------------------------------------------------

    // Runs `formula` in this context into `out`; `state` is raised to the evaluator's. A shared
    // or destructing context returns true and leaves both alone.
    bool Evaluate(QAnyValue& out, QCacheState& state, FormulaText formula, bool passthrough,
                  bool report, bool action);

    // `formula` is an identifier or any formula text.
    bool EvaluateVarAsBool(const CString& formula, bool report);
    int EvaluateVarAsInt(const CString& formula, bool report);
    double EvaluateVarAsDouble(const CString& formula, bool report);
    QAngle EvaluateVarAsAngle(const CString& formula, bool report);
    QLength EvaluateVarAsLength(const CString& formula, bool report);

private:
    using QFormulaValueCache = QMap<QValueCacheKey<FormulaText>, QAnyValue>;
    using QPropIdValueCache = QMap<QValueCacheKey<PropId>, QAnyValue>;
    using QFullIdValueCache = QMap<QValueCacheKey<FullId>, QAnyValue>;

    void ClearValueCaches() const;

    bool m_bCanBeShared : 1 = false;
    bool m_bIsDestructing : 1 = false;
    bool m_bNamedUpdates = false;
    // Emptied by EnsureUpToDate, which works on const objects.
    mutable QFormulaValueCache m_formulaValueCache;
    mutable QPropIdValueCache m_propIdValueCache;
    mutable QFullIdValueCache m_fullIdValueCache;
};

} // namespace keel
