#include "keel/formula/withcontext.h"

#include "keel/formula/formulacontext.h"

namespace keel {

namespace {

const QState& ZeroState() {
    static const QState zero;
    return zero;
}

const QState& SyncStateOf(const QWithContextVirtual* root) {
    return root ? *root->SyncStateIfRoot() : ZeroState();
}

// The walk of EnsureUpToDate, shared by both holders.
template <class Holder>
void BringUpToDate(const Holder& holder) {
    if (!holder.SyncRoot() || holder.IsState(holder.TopLevelSyncState()))
        return;
    holder.MakeUpToDate();
    holder.OnEnsureUpToDate();
    if (!holder.IsState(holder.TopLevelSyncState()))
        holder.MakeUpToDate();
}

} // namespace

// --- QWithContextVirtual ----------------------------------------------------------------------

QFormulaContext* QWithContextVirtual::ParentContext() {
    return nullptr;
}

const QFormulaContext* QWithContextVirtual::ParentContext() const {
    return nullptr;
}

void QWithContextVirtual::DoSetParentContext(QFormulaContext* context) {
    if (context)
        DoSetParentContextAlways(context);
    else
        DoSetParentContextAlwaysNull();
}

void QWithContextVirtual::DoSetParentContextAlways(QFormulaContext*) {}

void QWithContextVirtual::DoSetParentContextAlwaysNull() {
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
    QWithContextVirtual* node = this;
    while (node && !node->SyncStateIfRoot())
        node = node->ParentContext();
    return node;
}

const QWithContextVirtual* QWithContextVirtual::SyncRoot() const {
    const QWithContextVirtual* node = this;
    while (node && !node->SyncStateIfRoot())
        node = node->ParentContext();
    return node;
}

bool QWithContextVirtual::IsParentContextEmpty() const {
    return ParentContext() == nullptr;
}

void QWithContextVirtual::SetParentContext(QFormulaContext* context) {
    if (context == ParentContext())
        return;
    DoSetParentContext(context);
    ClearErrorBit();
    if (context) {
        NotifyTopLevelOfPreChangeFromChild();
        NotifyTopLevelOfChangedFromChild();
    }
}

bool QWithContextVirtual::IsUpToDate() const {
    return IsState(TopLevelSyncState());
}

void QWithContextVirtual::MakeUpToDate() const {
    SetState(TopLevelSyncState());
    NotifyTopLevelOfChildMadeUpToDate();
}

void QWithContextVirtual::EnsureUpToDate() const {
    BringUpToDate(*this);
}

void QWithContextVirtual::ClearErrorBit() const {
    SetErrorBit(false);
}

void QWithContextVirtual::PreChange() {
    NotifyTopLevelOfPreChangeFromChild();
}

void QWithContextVirtual::Changed() {
    NotifyTopLevelOfChangedFromChild();
}

void QWithContextVirtual::NotifyTopLevelOfPreChangeFromChild() {
    if (QWithContextVirtual* root = SyncRoot())
        root->OnNotifyPreChangeFromChild();
}

void QWithContextVirtual::NotifyTopLevelOfChangedFromChild() {
    if (QWithContextVirtual* root = SyncRoot())
        root->OnNotifyChangedFromChild();
}

void QWithContextVirtual::NotifyTopLevelOfChildMadeUpToDate() const {
    if (const QWithContextVirtual* root = SyncRoot())
        root->OnNotifyChildMadeUpToDate();
}

// --- QWithContextConcrete ---------------------------------------------------------------------

QWithContextConcrete::QWithContextConcrete(const QWithContextConcrete& other,
                                           QFormulaContext* parent)
    : QDelayedBase(other), m_pParentContext(parent) {}

void QWithContextConcrete::DoSetParentContext(QFormulaContext* context) {
    m_pParentContext = context;
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

void QWithContextConcrete::SetParentContext(QFormulaContext* context) {
    if (context == m_pParentContext)
        return;
    DoSetParentContext(context);
    ClearErrorBit();
    if (context) {
        NotifyTopLevelOfPreChangeFromChild();
        NotifyTopLevelOfChangedFromChild();
    }
}

bool QWithContextConcrete::IsUpToDate() const {
    return IsState(TopLevelSyncState());
}

void QWithContextConcrete::MakeUpToDate() const {
    SetState(TopLevelSyncState());
    NotifyTopLevelOfChildMadeUpToDate();
}

void QWithContextConcrete::EnsureUpToDate() const {
    BringUpToDate(*this);
}

void QWithContextConcrete::ClearErrorBit() const {
    SetErrorBit(false);
}

void QWithContextConcrete::PreChange() {
    NotifyTopLevelOfPreChangeFromChild();
}

void QWithContextConcrete::Changed() {
    NotifyTopLevelOfChangedFromChild();
}

void QWithContextConcrete::NotifyTopLevelOfPreChangeFromChild() {
    if (QWithContextVirtual* root = SyncRoot())
        root->OnNotifyPreChangeFromChild();
}

void QWithContextConcrete::NotifyTopLevelOfChangedFromChild() {
    if (QWithContextVirtual* root = SyncRoot())
        root->OnNotifyChangedFromChild();
}

void QWithContextConcrete::NotifyTopLevelOfChildMadeUpToDate() const {
    if (const QWithContextVirtual* root = SyncRoot())
        root->OnNotifyChildMadeUpToDate();
}

} // namespace keel
