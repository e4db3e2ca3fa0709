#pragma once

#include "keel/formula/state.h"

namespace keel {

class QFormulaContext;
class QTopLevelFormulaContext;

// The operations that both holders below share. `Holder` says how its parent and its root are
// reached (ParentContext, DoSetParentContext, SyncRoot, TopLevelSyncState, OnEnsureUpToDate);
// the members are instantiated for the two holders only.
template <class Holder>
class QWithContextOperations : public QDelayedBase {
public:
    bool IsParentContextEmpty() const;
    // Nothing when `context` is the parent already. Otherwise sets it, clears the error bit and,
    // for a non-null context, tells the root of a change.
    void SetParentContext(QFormulaContext* context);
    // Whether the number of this object equals the root's; a missing root counts as number 0.
    bool IsUpToDate() const;
    // Takes the root's number and tells the root, without OnEnsureUpToDate.
    void MakeUpToDate() const;
    // Nothing without a root or when in step with it. Otherwise takes the root's number before
    // calling OnEnsureUpToDate, so that a look-up made from there does not recurse, and takes it
    // again if the update itself moved the root.
    void EnsureUpToDate() const;
    void ClearErrorBit() const { SetErrorBit(false); }
    void PreChange() { NotifyTopLevelOfPreChangeFromChild(); }
    void Changed() { NotifyTopLevelOfChangedFromChild(); }
    void NotifyTopLevelOfPreChangeFromChild();
    void NotifyTopLevelOfChangedFromChild();
    void NotifyTopLevelOfChildMadeUpToDate() const;
    void Refresh() {}

private:
    Holder& Self() { return static_cast<Holder&>(*this); }
    const Holder& Self() const { return static_cast<const Holder&>(*this); }
};

// Anything that lives under a formula context without knowing how its parent is stored. This base
// keeps no parent: ParentContext gives null and DoSetParentContextAlways does nothing, so a
// derived class that wants a parent overrides that pair and stores the pointer itself.
//
// The root of a tree is the object that keeps the sync state: it answers SyncStateIfRoot and
// hears the notifications of its descendants through the OnNotify... members, which do nothing
// here.
class QWithContextVirtual : public QWithContextOperations<QWithContextVirtual> {
public:
    QWithContextVirtual() = default;
    QWithContextVirtual(const QWithContextVirtual&) = default;
    QWithContextVirtual& operator=(const QWithContextVirtual&) = default;
    virtual ~QWithContextVirtual() = default;

    virtual QFormulaContext* ParentContext();
    virtual const QFormulaContext* ParentContext() const;
    // A non-null context goes to DoSetParentContextAlways, null to DoSetParentContextAlwaysNull.
    virtual void DoSetParentContext(QFormulaContext* context);
    virtual void DoSetParentContextAlways(QFormulaContext* context);
    // Calls DoSetParentContextAlways(nullptr) in a deferred stretch.
    virtual void DoSetParentContextAlwaysNull();
    // The parent's, null without a parent; the top-level class answers itself.
    virtual QTopLevelFormulaContext* TopLevelContext();
    virtual const QTopLevelFormulaContext* TopLevelContext() const;
    // The root's sync state, or a zero state when there is no root.
    virtual const QState& TopLevelSyncState() const;
    // Called by EnsureUpToDate when this object was behind the root; nothing here.
    virtual void OnEnsureUpToDate() const;

    // --- The root's side ---------------------------------------------------------------------

    // The sync state of an object that is a root; null for everything else.
    virtual const QState* SyncStateIfRoot() const;
    virtual void OnNotifyPreChangeFromChild();
    virtual void OnNotifyChangedFromChild();
    virtual void OnNotifyChildMadeUpToDate() const;

    // The nearest of this object and its ancestors that is a root; null when there is none.
    QWithContextVirtual* SyncRoot();
    const QWithContextVirtual* SyncRoot() const;
};

// The same without virtuals, the parent stored in one pointer: the base of question definitions
// and property sets.
class QWithContextConcrete : public QWithContextOperations<QWithContextConcrete> {
public:
    QWithContextConcrete() = default;
    QWithContextConcrete(const QWithContextConcrete&) = default;
    // The state of `other` with a parent of its own.
    QWithContextConcrete(const QWithContextConcrete& other, QFormulaContext* parent);
    explicit QWithContextConcrete(QFormulaContext* parent) : m_pParentContext(parent) {}
    QWithContextConcrete& operator=(const QWithContextConcrete&) = default;

    QFormulaContext* ParentContext() { return m_pParentContext; }
    const QFormulaContext* ParentContext() const { return m_pParentContext; }
    // Null is taken in a deferred stretch, so that nothing is evaluated while detached.
    void DoSetParentContext(QFormulaContext* context);
    void DoSetParentContextAlways(QFormulaContext* context) { m_pParentContext = context; }
    void DoSetParentContextAlwaysNull();
    QTopLevelFormulaContext* TopLevelContext();
    const QTopLevelFormulaContext* TopLevelContext() const;
    const QState& TopLevelSyncState() const;
    void OnEnsureUpToDate() const {}

    QWithContextVirtual* SyncRoot() const;

private:
    QFormulaContext* m_pParentContext = nullptr;
};

extern template class QWithContextOperations<QWithContextVirtual>;
extern template class QWithContextOperations<QWithContextConcrete>;

} // namespace keel
