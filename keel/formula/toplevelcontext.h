#pragma once

#include "keel/formula/formulacontext.h"
#include "keel/formula/state.h"
#include "keel/values/array.h"
#include "keel/values/smartptr.h"

namespace keel {

// Told once after each batch of changes under the root it registered with.
class QFormulaContextChangedSubscriber {
public:
    virtual ~QFormulaContextChangedSubscriber() = default;
    virtual void OnFormulaContextChanged() = 0;
};

// The root of a tree of contexts. It keeps the one change counter of the tree (the sync state):
// a change below moves it, once per burst of changes, and every value compares its own number
// with it when read. Notifications of changes may be batched, so that the application hears of
// many changes once; they may also be switched off.
class QTopLevelFormulaContext : public QFormulaContext {
public:
    // Starts a batch now and stops it at the end of the scope.
    class BatchNotifications : public QCallAtStartAndFinishForSmartPtr<QTopLevelFormulaContext> {
    public:
        explicit BatchNotifications(QTopLevelFormulaContext* context);
    };
    // The same for a context under construction, which no smart pointer may touch yet.
    class BatchNotificationsNoSmartPtr
        : public QCallAtStartAndFinish<QTopLevelFormulaContext, QTopLevelFormulaContext*> {
    public:
        explicit BatchNotificationsNoSmartPtr(QTopLevelFormulaContext* context);
    };
    // Notifications off for the length of the scope.
    class DisableNotificationsCompletely : public QOffAndOnForSmartPtr<QTopLevelFormulaContext> {
    public:
        explicit DisableNotificationsCompletely(QTopLevelFormulaContext* context);
    };
    class DisableNotificationsCompletelyNoSmartPtr
        : public QOffAndOnNoSmartPtr<QTopLevelFormulaContext> {
    public:
        explicit DisableNotificationsCompletelyNoSmartPtr(QTopLevelFormulaContext* context);
    };

    // Counts once, so that no value built from now on (number 0) is taken as up to date.
    QTopLevelFormulaContext();
    QTopLevelFormulaContext(const QTopLevelFormulaContext& other);
    ~QTopLevelFormulaContext() override;

    virtual bool AreNotificationsEnabled() const;
    // Off counts down and on counts up; notifications flow while no "off" is outstanding.
    virtual void EnableNotifications(bool enable);
    void OnNotifyPreChangeFromChild() override;
    void OnNotifyChangedFromChild() override;
    void OnNotifyChildMadeUpToDate() const override;
    virtual void OnNotifyChangedFromChildAfterBatching();
    virtual void ProcessPreChangeFromChildHelper() = 0;
    virtual void ProcessChangedFromChildHelper() = 0;
    virtual void MarkAsNotUpToDate();
    virtual bool AreNotificationsBatched() const;
    virtual bool AreBatchedNotificationsNested() const;
    virtual void StartBatchingNotifications();
    virtual void StopBatchingNotifications();
    // Stops every open batch and says how many there were.
    virtual int StopAllBatching();
    virtual void RestartAllBatching(int count);
    // Lets a long operation deliver what is pending without losing its nesting.
    virtual void StopAndRestartBatching();

    // --- Root of the tree --------------------------------------------------------------------

    const QState* SyncStateIfRoot() const override { return &m_syncState; }
    const QState& SyncState() const { return m_syncState; }
    QTopLevelFormulaContext* TopLevelContext() override { return this; }
    const QTopLevelFormulaContext* TopLevelContext() const override { return this; }

    void RegisterChangedSubscriber(QFormulaContextChangedSubscriber* subscriber) override;
    void DeregisterChangedSubscriber(QFormulaContextChangedSubscriber* subscriber) override;
    int ChangedSubscriberCount() const { return m_subscribers.GetCount(); }

private:
    void NotifySubscribers();

    int m_nNotificationsEnabled = 1;
    int m_nBatchCount = 0;
    bool m_bPreChangeSent = false;
    bool m_bChangedPending = false;
    QState m_syncState;
    QArray<QFormulaContextChangedSubscriber*> m_subscribers;
};

} // namespace keel
