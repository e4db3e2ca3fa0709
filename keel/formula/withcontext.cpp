#include "keel/formula/withcontext.h"

#include "keel/formula/deferredeval.h"
#include "keel/formula/formulacontext.h"
#include "keel/formula/treeshape.h"

#include <utility>

namespace keel {

namespace {

const QState& ZeroState() {
    static const QState zero;
    return zero;
}

const QState& SyncStateOf(const QWithContextVirtual* root) {
    return root ? *root->SyncStateIfRoot() : ZeroState();
}

} // namespace

// --- Operations of both holders ---------------------------------------------------------------

template <class Holder>
bool QWithContextOperations<Holder>::IsParentContextEmpty() const {
    return Self().ParentContext() == nullptr;
}

template <class Holder>
void QWithContextOperations<Holder>::SetParentContext(QFormulaContext* context) {
    if (context == Self().ParentContext())
        return;
    Self().DoSetParentContext(context);
    ClearErrorBit();
    if (context) {
        NotifyTopLevelOfPreChangeFromChild();
        NotifyTopLevelOfChangedFromChild();
    }
}

template <class Holder>
bool QWithContextOperations<Holder>::IsUpToDate() const {
    return IsState(Self().TopLevelSyncState());
}

template <class Holder>
void QWithContextOperations<Holder>::MakeUpToDate() const {
    SetState(Self().TopLevelSyncState());
    NotifyTopLevelOfChildMadeUpToDate();
}

template <class Holder>
void QWithContextOperations<Holder>::EnsureUpToDate() const {
    if (!Self().SyncRoot() || IsUpToDate())
        return;
    MakeUpToDate();
    Self().OnEnsureUpToDate();
    if (!IsUpToDate())
        MakeUpToDate();
}

template <class Holder>
void QWithContextOperations<Holder>::NotifyTopLevelOfPreChangeFromChild() {
    if (QWithContextVirtual* root = Self().SyncRoot())
        root->OnNotifyPreChangeFromChild();
}

template <class Holder>
void QWithContextOperations<Holder>::NotifyTopLevelOfChangedFromChild() {
    if (QWithContextVirtual* root = Self().SyncRoot())
        root->OnNotifyChangedFromChild();
}

template <class Holder>
void QWithContextOperations<Holder>::NotifyTopLevelOfChildMadeUpToDate() const {
    if (const QWithContextVirtual* root = Self().SyncRoot())
        root->OnNotifyChildMadeUpToDate();
}

template class QWithContextOperations<QWithContextVirtual>;
template class QWithContextOperations<QWithContextConcrete>;

// --- QWithContextVirtual ----------------------------------------------------------------------

QFormulaContext* QWithContextVirtual::ParentContext() {
    return nullptr;
}

const QFormulaContext* QWithContextVirtual::ParentContext() const {
    return nullptr;
}

void QWithContextVirtual::DoSetParentContext(QFormulaContext* context) {
    if (!context) {
        DoSetParentContextAlwaysNull();
        return;
    }
    QTreeShape::Changed();
    DoSetParentContextAlways(context);
}

void QWithContextVirtual::DoSetParentContextAlways(QFormulaContext*) {}

// Nothing may be evaluated while the object is detached.
void QWithContextVirtual::DoSetParentContextAlwaysNull() {
    QTreeShape::Changed();
    QDeferEnsureUpToDateEvaluation deferred;
    DoSetParentContextAlways(nullptr);
}

QTopLevelFormulaContext* QWithContextVirtual::TopLevelContext() {
    QFormulaContext* parent = ParentContext();
    return parent ? parent->TopLevelContext() : nullptr;
}

const QTopLevelFormulaContext* QWithContextVirtual::TopLevelContext() const {
    const QFormulaContext* parent = ParentContext();
    return parent ? parent->TopLevelContext() : nullptr;
}

const QState& QWithContextVirtual::TopLevelSyncState() const {
    return SyncStateOf(SyncRoot());
}

void QWithContextVirtual::OnEnsureUpToDate() const {}

const QState* QWithContextVirtual::SyncStateIfRoot() const {
    return nullptr;
}

void QWithContextVirtual::OnNotifyPreChangeFromChild() {}

void QWithContextVirtual::OnNotifyChangedFromChild() {}

void QWithContextVirtual::OnNotifyChildMadeUpToDate() const {}

QWithContextVirtual* QWithContextVirtual::SyncRoot() {
    return const_cast<QWithContextVirtual*>(std::as_const(*this).SyncRoot());
}

const QWithContextVirtual* QWithContextVirtual::SyncRoot() const {
    const QWithContextVirtual* node = this;
    while (node && !node->SyncStateIfRoot())
        node = node->ParentContext();
    return node;
}

// --- QWithContextConcrete ---------------------------------------------------------------------

QWithContextConcrete::QWithContextConcrete(const QWithContextConcrete& other,
                                           QFormulaContext* parent)
    : QWithContextOperations(other), m_pParentContext(parent) {}

void QWithContextConcrete::DoSetParentContext(QFormulaContext* context) {
    if (!context) {
        DoSetParentContextAlwaysNull();
        return;
    }
    if (m_pParentContext && context != m_pParentContext)
        QTreeShape::Changed();
    DoSetParentContextAlways(context);
}

// Nothing may be evaluated while the object is detached.
void QWithContextConcrete::DoSetParentContextAlwaysNull() {
    if (m_pParentContext)
        QTreeShape::Changed();
    QDeferEnsureUpToDateEvaluation deferred;
    m_pParentContext = nullptr;
}

QTopLevelFormulaContext* QWithContextConcrete::TopLevelContext() {
    return m_pParentContext ? m_pParentContext->TopLevelContext() : nullptr;
}

const QTopLevelFormulaContext* QWithContextConcrete::TopLevelContext() const {
    const QFormulaContext* parent = m_pParentContext;
    return parent ? parent->TopLevelContext() : nullptr;
}

const QState& QWithContextConcrete::TopLevelSyncState() const {
    return SyncStateOf(SyncRoot());
}

QWithContextVirtual* QWithContextConcrete::SyncRoot() const {
    return m_pParentContext ? m_pParentContext->SyncRoot() : nullptr;
}

} // namespace keel
