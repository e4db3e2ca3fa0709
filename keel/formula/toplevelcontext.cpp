#include "keel/formula/toplevelcontext.h"

#include "keel/document/usertrace.h"

namespace keel {

namespace {

void TraceChangeNotice(const char16_t* text) {
    if (IsTracing(USER_TRACE_CHANGE_NOTICES))
        UserTraceWriteLine(CString(text));
}

} // namespace

QTopLevelFormulaContext::BatchNotifications::BatchNotifications(QTopLevelFormulaContext* context)
    : QCallAtStartAndFinishForSmartPtr<QTopLevelFormulaContext>(
          context, &QTopLevelFormulaContext::StartBatchingNotifications,
          &QTopLevelFormulaContext::StopBatchingNotifications) {}

QTopLevelFormulaContext::BatchNotificationsNoSmartPtr::BatchNotificationsNoSmartPtr(
    QTopLevelFormulaContext* context)
    : QCallAtStartAndFinish<QTopLevelFormulaContext, QTopLevelFormulaContext*>(
          context, &QTopLevelFormulaContext::StartBatchingNotifications,
          &QTopLevelFormulaContext::StopBatchingNotifications) {}

QTopLevelFormulaContext::DisableNotificationsCompletely::DisableNotificationsCompletely(
    QTopLevelFormulaContext* context)
    : QOffAndOnForSmartPtr<QTopLevelFormulaContext>(context,
                                                    &QTopLevelFormulaContext::EnableNotifications) {
}

QTopLevelFormulaContext::DisableNotificationsCompletelyNoSmartPtr::
    DisableNotificationsCompletelyNoSmartPtr(QTopLevelFormulaContext* context)
    : QOffAndOnNoSmartPtr<QTopLevelFormulaContext>(context,
                                                   &QTopLevelFormulaContext::EnableNotifications) {}

QTopLevelFormulaContext::QTopLevelFormulaContext() {
    ++m_syncState;
}

// A copy is a new root: its own counter, no batches and no subscribers.
QTopLevelFormulaContext::QTopLevelFormulaContext(const QTopLevelFormulaContext& other)
    : QFormulaContext(other) {
    ++m_syncState;
}

QTopLevelFormulaContext::~QTopLevelFormulaContext() = default;

bool QTopLevelFormulaContext::AreNotificationsEnabled() const {
    return m_nNotificationsEnabled > 0;
}

void QTopLevelFormulaContext::EnableNotifications(bool enable) {
    m_nNotificationsEnabled += enable ? 1 : -1;
}

void QTopLevelFormulaContext::OnNotifyPreChangeFromChild() {
    if (!AreNotificationsEnabled())
        return;
    if (AreNotificationsBatched()) {
        if (m_bPreChangeSent)
            return;
        m_bPreChangeSent = true;
        TraceChangeNotice(
            u"QTopLevelFormulaContext::OnNotifyPreChangeFromChild ProcessPreChangeFromChildHelper");
    } else {
        TraceChangeNotice(u"QTopLevelFormulaContext::OnNotifyPreChangeFromChild "
                          u"ProcessPreChangeFromChildHelper NOT BATCHED !!");
    }
    ProcessPreChangeFromChildHelper();
}

void QTopLevelFormulaContext::OnNotifyChangedFromChild() {
    if (!AreNotificationsEnabled())
        return;
    // The counter moves only when somebody has caught up with it since it last moved.
    if (IsState(m_syncState)) {
        TraceChangeNotice(u"QTopLevelFormulaContext::OnNotifyChangedFromChild MarkAsNotUpToDate");
        MarkAsNotUpToDate();
    }
    if (AreNotificationsBatched()) {
        m_bChangedPending = true;
        return;
    }
    TraceChangeNotice(u"QTopLevelFormulaContext::OnNotifyChangedFromChild "
                      u"ProcessChangedFromChildHelper NOT BATCHED");
    ProcessChangedFromChildHelper();
}

void QTopLevelFormulaContext::OnNotifyChildMadeUpToDate() const {
    SetState(m_syncState);
}

void QTopLevelFormulaContext::OnNotifyChangedFromChildAfterBatching() {
    if (!AreNotificationsEnabled() || AreBatchedNotificationsNested())
        return;
    TraceChangeNotice(u"QTopLevelFormulaContext::OnNotifyChangedFromChildAfterBatching "
                      u"ProcessChangedFromChildHelper");
    ProcessChangedFromChildHelper();
    NotifySubscribers();
}

// The root's own number is moved by its children as they catch up, so EnsureUpToDate would not
// find the root behind: it forgets what it knows whenever the counter moves.
void QTopLevelFormulaContext::MarkAsNotUpToDate() {
    ++m_syncState;
    ForgetEverythingIKnow();
}

bool QTopLevelFormulaContext::AreNotificationsBatched() const {
    return m_nBatchCount > 0;
}

bool QTopLevelFormulaContext::AreBatchedNotificationsNested() const {
    return m_nBatchCount > 1;
}

void QTopLevelFormulaContext::StartBatchingNotifications() {
    if (!AreNotificationsEnabled())
        return;
    if (!AreNotificationsBatched()) {
        m_bPreChangeSent = false;
        m_bChangedPending = false;
    }
    ++m_nBatchCount;
}

void QTopLevelFormulaContext::StopBatchingNotifications() {
    if (!AreNotificationsEnabled() || !AreNotificationsBatched())
        return;
    if (!AreBatchedNotificationsNested()) {
        if (m_bChangedPending) {
            m_bChangedPending = false;
            OnNotifyChangedFromChildAfterBatching();
        }
        m_bPreChangeSent = false;
    }
    --m_nBatchCount;
}

int QTopLevelFormulaContext::StopAllBatching() {
    int stopped = 0;
    while (AreNotificationsEnabled() && AreNotificationsBatched()) {
        StopBatchingNotifications();
        ++stopped;
    }
    return stopped;
}

void QTopLevelFormulaContext::RestartAllBatching(int count) {
    for (int i = 0; i < count; ++i)
        StartBatchingNotifications();
}

void QTopLevelFormulaContext::StopAndRestartBatching() {
    RestartAllBatching(StopAllBatching());
}

void QTopLevelFormulaContext::RegisterChangedSubscriber(
    QFormulaContextChangedSubscriber* subscriber) {
    m_subscribers.Add(subscriber);
}

void QTopLevelFormulaContext::DeregisterChangedSubscriber(
    QFormulaContextChangedSubscriber* subscriber) {
    const int index = m_subscribers.Find(subscriber);
    if (index >= 0)
        m_subscribers.RemoveAt(index);
}

// A subscriber may deregister while it is told.
void QTopLevelFormulaContext::NotifySubscribers() {
    const QArray<QFormulaContextChangedSubscriber*> subscribers = m_subscribers;
    for (QFormulaContextChangedSubscriber* subscriber : subscribers)
        subscriber->OnFormulaContextChanged();
}

} // namespace keel
