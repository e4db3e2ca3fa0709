#include "keel/formula/toplevelcontext.h"
#include "keel/formula/withcontext.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

// A root that writes down what reaches its two helpers, in order, into a journal it may share
// with subscribers.
class JournalRoot : public QTopLevelFormulaContext {
public:
    explicit JournalRoot(std::vector<std::string>* journal = nullptr, int* destroyed = nullptr)
        : m_journal(journal ? journal : &m_ownJournal), m_destroyed(destroyed) {}
    ~JournalRoot() override {
        if (m_destroyed)
            ++*m_destroyed;
    }

    CString SimpleTypeName() const override { return CString(u"Root"); }
    QProperties* Properties() const override { return nullptr; }
    void ProcessPreChangeFromChildHelper() override { m_journal->push_back("pre"); }
    void ProcessChangedFromChildHelper() override { m_journal->push_back("changed"); }

    const std::vector<std::string>& Journal() const { return *m_journal; }
    int Count(const std::string& entry) const {
        return static_cast<int>(std::count(m_journal->begin(), m_journal->end(), entry));
    }

private:
    std::vector<std::string> m_ownJournal;
    std::vector<std::string>* m_journal;
    int* m_destroyed;
};

// A plain context under the root.
class Child : public QFormulaContext {
public:
    explicit Child(QFormulaContext* parent) { DoSetParentContextAlways(parent); }
    CString SimpleTypeName() const override { return CString(u"Child"); }
    QProperties* Properties() const override { return nullptr; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }
    void DoSetParentContextAlways(QFormulaContext* context) override { m_parent = context; }

private:
    QFormulaContext* m_parent = nullptr;
};

class Subscriber : public QFormulaContextChangedSubscriber {
public:
    Subscriber(std::string name, std::vector<std::string>& journal)
        : m_name(std::move(name)), m_journal(journal) {}
    void OnFormulaContextChanged() override { m_journal.push_back(m_name); }

private:
    std::string m_name;
    std::vector<std::string>& m_journal;
};

// What a property does around a change of its value.
void Change(QWithContextConcrete& value) {
    value.PreChange();
    value.Changed();
}

// A root whose own number has caught up with its counter, as after any read below it.
struct RootInStep {
    RootInStep() { reader.MakeUpToDate(); }
    std::uint32_t Number() const { return root.SyncState().Number(); }

    std::vector<std::string> journal;
    JournalRoot root{&journal};
    QWithContextConcrete reader{&root};
    QWithContextConcrete value{&root};
};

// --- The counter ------------------------------------------------------------------------------

TEST(TopLevelCounter, ANewRootHasCountedOnceSoNoNewValueIsUpToDate) {
    JournalRoot root;
    EXPECT_EQ(root.SyncState().Number(), 1u);
    const QWithContextConcrete value(&root);
    EXPECT_EQ(value.State().Number(), 0u);
    EXPECT_FALSE(value.IsUpToDate());
}

TEST(TopLevelCounter, TheRootIsItsOwnTopLevelContextAndItsChildrenFindIt) {
    JournalRoot root;
    Child child(&root);
    const QWithContextConcrete value(&child);
    EXPECT_EQ(root.TopLevelContext(), &root);
    EXPECT_EQ(child.TopLevelContext(), &root);
    EXPECT_EQ(value.TopLevelContext(), &root);
    EXPECT_EQ(value.SyncRoot(), &root);
}

TEST(TopLevelCounter, MarkAsNotUpToDateCountsOne) {
    JournalRoot root;
    root.MarkAsNotUpToDate();
    root.MarkAsNotUpToDate();
    EXPECT_EQ(root.SyncState().Number(), 3u);
}

TEST(TopLevelCounter, AChildMadeUpToDateBringsTheRootsOwnNumberInStep) {
    JournalRoot root;
    root.MarkAsNotUpToDate();
    EXPECT_NE(root.State(), root.SyncState());
    const QWithContextConcrete value(&root);
    value.MakeUpToDate();
    EXPECT_EQ(value.State().Number(), 2u);
    EXPECT_EQ(root.State().Number(), 2u);
}

TEST(TopLevelCounter, ChangesMoveTheCounterOncePerBurst) {
    RootInStep tree;
    Change(tree.value);
    Change(tree.value);
    Change(tree.value);
    EXPECT_EQ(tree.Number(), 2u);
    // Somebody reads: the next change starts a new burst.
    tree.reader.MakeUpToDate();
    Change(tree.value);
    Change(tree.value);
    EXPECT_EQ(tree.Number(), 3u);
    EXPECT_FALSE(tree.reader.IsUpToDate());
}

TEST(TopLevelCounter, AChangeOfARootBehindItsCounterDoesNotMoveIt) {
    JournalRoot root;
    QWithContextConcrete value(&root);
    // Nobody has read since the root was made: its own number (0) is behind its counter (1).
    Change(value);
    EXPECT_EQ(root.SyncState().Number(), 1u);
    EXPECT_FALSE(value.IsUpToDate());
}

TEST(TopLevelCounter, TheRootForgetsWhatItKnowsWhenItsCounterMoves) {
    RootInStep tree;
    const PropId name("height");
    QAnyValue cached;
    tree.root.RememberThisPropIdValueForNextTime(QAnyValue(3), name);
    ASSERT_TRUE(tree.root.HeresAPropIdValueIPreparedEarlier(cached, name));
    // A child catching up puts the root's own number in step, so that the root cannot tell by
    // its own number that it is behind.
    Change(tree.value);
    tree.reader.MakeUpToDate();
    tree.root.EnsureUpToDate();
    EXPECT_FALSE(tree.root.HeresAPropIdValueIPreparedEarlier(cached, name));
}

TEST(TopLevelCounter, AFullRecalcMovesTheCounter) {
    RootInStep tree;
    Child child(&tree.root);
    child.FullRecalc();
    EXPECT_EQ(tree.Number(), 2u);
}

TEST(TopLevelCounter, ACopyIsANewRootWithItsOwnCounter) {
    RootInStep tree;
    tree.root.MarkAsNotUpToDate();
    tree.root.StartBatchingNotifications();
    const JournalRoot& original = tree.root;
    JournalRoot copy(original);
    EXPECT_EQ(copy.SyncState().Number(), 1u);
    EXPECT_FALSE(copy.AreNotificationsBatched());
    tree.root.StopBatchingNotifications();
}

// --- Notices without a batch ------------------------------------------------------------------

TEST(TopLevelUnbatched, EachChangeReachesBothHelpersAtOnce) {
    RootInStep tree;
    tree.value.PreChange();
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre"}));
    tree.value.Changed();
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
    Change(tree.value);
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed", "pre", "changed"}));
    EXPECT_EQ(tree.Number(), 2u);
}

TEST(TopLevelUnbatched, SubscribersHearOnlyAtTheEndOfABatch) {
    RootInStep tree;
    Subscriber subscriber("subscriber", tree.journal);
    tree.root.RegisterChangedSubscriber(&subscriber);
    Change(tree.value);
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
}

TEST(TopLevelUnbatched, AChildContextChangingItsParentTellsTheRoot) {
    RootInStep tree;
    Child child(nullptr);
    child.SetParentContext(&tree.root);
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
    EXPECT_EQ(tree.Number(), 2u);
}

// --- Batches ----------------------------------------------------------------------------------

TEST(TopLevelBatch, TenChangesMoveTheCounterOnceAndAreHeardOnceAtTheEnd) {
    RootInStep tree;
    Subscriber subscriber("subscriber", tree.journal);
    tree.root.RegisterChangedSubscriber(&subscriber);
    {
        QTopLevelFormulaContext::BatchNotifications batch(&tree.root);
        EXPECT_TRUE(tree.root.AreNotificationsBatched());
        for (int i = 0; i < 10; ++i)
            Change(tree.value);
        EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre"}));
        EXPECT_EQ(tree.Number(), 2u);
    }
    EXPECT_FALSE(tree.root.AreNotificationsBatched());
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed", "subscriber"}));
    EXPECT_EQ(tree.Number(), 2u);
}

TEST(TopLevelBatch, OnlyTheOutermostStopDelivers) {
    RootInStep tree;
    Subscriber subscriber("subscriber", tree.journal);
    tree.root.RegisterChangedSubscriber(&subscriber);
    {
        QTopLevelFormulaContext::BatchNotifications outer(&tree.root);
        Change(tree.value);
        {
            QTopLevelFormulaContext::BatchNotifications inner(&tree.root);
            EXPECT_TRUE(tree.root.AreBatchedNotificationsNested());
            Change(tree.value);
        }
        EXPECT_FALSE(tree.root.AreBatchedNotificationsNested());
        EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre"}));
        {
            QTopLevelFormulaContext::BatchNotifications inner(&tree.root);
            Change(tree.value);
        }
        EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre"}));
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed", "subscriber"}));
}

TEST(TopLevelBatch, ABatchWithoutAChangeDeliversNothing) {
    RootInStep tree;
    Subscriber subscriber("subscriber", tree.journal);
    tree.root.RegisterChangedSubscriber(&subscriber);
    { QTopLevelFormulaContext::BatchNotifications batch(&tree.root); }
    EXPECT_TRUE(tree.journal.empty());
    EXPECT_EQ(tree.Number(), 1u);
}

TEST(TopLevelBatch, APreChangeAloneIsSentOnceAndNeverDelivered) {
    RootInStep tree;
    {
        QTopLevelFormulaContext::BatchNotifications batch(&tree.root);
        tree.value.PreChange();
        tree.value.PreChange();
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre"}));
}

TEST(TopLevelBatch, EachBatchSendsItsOwnPreChange) {
    RootInStep tree;
    for (int round = 0; round < 2; ++round) {
        QTopLevelFormulaContext::BatchNotifications batch(&tree.root);
        Change(tree.value);
        Change(tree.value);
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed", "pre", "changed"}));
}

TEST(TopLevelBatch, SubscribersAreToldInTheOrderOfRegistration) {
    RootInStep tree;
    Subscriber first("first", tree.journal);
    Subscriber second("second", tree.journal);
    Subscriber third("third", tree.journal);
    tree.root.RegisterChangedSubscriber(&first);
    tree.root.RegisterChangedSubscriber(&second);
    tree.root.RegisterChangedSubscriber(&third);
    tree.root.DeregisterChangedSubscriber(&second);
    {
        QTopLevelFormulaContext::BatchNotifications batch(&tree.root);
        Change(tree.value);
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed", "first", "third"}));
    EXPECT_EQ(tree.root.ChangedSubscriberCount(), 2);
}

TEST(TopLevelBatch, AContextBelowRegistersWithTheRoot) {
    RootInStep tree;
    Child child(&tree.root);
    Child grandchild(&child);
    Subscriber subscriber("subscriber", tree.journal);
    grandchild.RegisterChangedSubscriber(&subscriber);
    EXPECT_EQ(tree.root.ChangedSubscriberCount(), 1);
    grandchild.DeregisterChangedSubscriber(&subscriber);
    EXPECT_EQ(tree.root.ChangedSubscriberCount(), 0);
}

// Goes away as soon as it has heard once.
class OneShotSubscriber : public QFormulaContextChangedSubscriber {
public:
    OneShotSubscriber(QTopLevelFormulaContext& root, std::vector<std::string>& journal)
        : m_root(root), m_journal(journal) {}
    void OnFormulaContextChanged() override {
        m_journal.push_back("one shot");
        m_root.DeregisterChangedSubscriber(this);
    }

private:
    QTopLevelFormulaContext& m_root;
    std::vector<std::string>& m_journal;
};

TEST(TopLevelBatch, ASubscriberMayDeregisterWhileItIsTold) {
    RootInStep tree;
    OneShotSubscriber oneShot(tree.root, tree.journal);
    Subscriber after("after", tree.journal);
    tree.root.RegisterChangedSubscriber(&oneShot);
    tree.root.RegisterChangedSubscriber(&after);
    for (int round = 0; round < 2; ++round) {
        QTopLevelFormulaContext::BatchNotifications batch(&tree.root);
        Change(tree.value);
        tree.reader.MakeUpToDate();
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed", "one shot", "after", "pre",
                                                      "changed", "after"}));
}

TEST(TopLevelBatch, StopAllBatchingDeliversAndCountsAndRestartKeepsTheNesting) {
    RootInStep tree;
    tree.root.StartBatchingNotifications();
    tree.root.StartBatchingNotifications();
    tree.root.StartBatchingNotifications();
    Change(tree.value);
    EXPECT_EQ(tree.root.StopAllBatching(), 3);
    EXPECT_FALSE(tree.root.AreNotificationsBatched());
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
    tree.root.RestartAllBatching(3);
    EXPECT_TRUE(tree.root.AreBatchedNotificationsNested());
    EXPECT_EQ(tree.root.StopAllBatching(), 3);
    EXPECT_EQ(tree.journal.size(), 2u);
}

TEST(TopLevelBatch, StopAndRestartDeliversInTheMiddleOfALongOperation) {
    RootInStep tree;
    {
        QTopLevelFormulaContext::BatchNotifications outer(&tree.root);
        QTopLevelFormulaContext::BatchNotifications inner(&tree.root);
        Change(tree.value);
        tree.root.StopAndRestartBatching();
        EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
        EXPECT_TRUE(tree.root.AreBatchedNotificationsNested());
        tree.reader.MakeUpToDate();
        Change(tree.value);
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed", "pre", "changed"}));
    EXPECT_EQ(tree.Number(), 3u);
}

TEST(TopLevelBatch, TheGuardKeepsAManagedRootAliveUntilItEnds) {
    int destroyed = 0;
    QSmartPtr<JournalRoot> owner(new JournalRoot(nullptr, &destroyed));
    {
        QTopLevelFormulaContext::BatchNotifications batch(owner.Get());
        owner = nullptr;
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(TopLevelBatch, TheFormWithoutTheSmartPointerServesARootNobodyOwns) {
    RootInStep tree;
    {
        QTopLevelFormulaContext::BatchNotificationsNoSmartPtr batch(&tree.root);
        Change(tree.value);
        Change(tree.value);
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
}

TEST(TopLevelBatch, AGuardOnNoRootDoesNothing) {
    QTopLevelFormulaContext::BatchNotifications batch(nullptr);
    QTopLevelFormulaContext::DisableNotificationsCompletely off(nullptr);
    SUCCEED();
}

// --- Notifications switched off ---------------------------------------------------------------

TEST(TopLevelDisabled, AChangeMovesNothingAndReachesNobody) {
    RootInStep tree;
    Subscriber subscriber("subscriber", tree.journal);
    tree.root.RegisterChangedSubscriber(&subscriber);
    {
        QTopLevelFormulaContext::DisableNotificationsCompletely off(&tree.root);
        EXPECT_FALSE(tree.root.AreNotificationsEnabled());
        QTopLevelFormulaContext::BatchNotifications batch(&tree.root);
        EXPECT_FALSE(tree.root.AreNotificationsBatched());
        Change(tree.value);
        Change(tree.value);
    }
    EXPECT_TRUE(tree.root.AreNotificationsEnabled());
    EXPECT_TRUE(tree.journal.empty());
    EXPECT_EQ(tree.Number(), 1u);
    EXPECT_TRUE(tree.reader.IsUpToDate());
}

TEST(TopLevelDisabled, SwitchesNestAndNotificationsFlowWhenTheLastIsUndone) {
    RootInStep tree;
    tree.root.EnableNotifications(false);
    tree.root.EnableNotifications(false);
    tree.root.EnableNotifications(true);
    Change(tree.value);
    EXPECT_TRUE(tree.journal.empty());
    tree.root.EnableNotifications(true);
    Change(tree.value);
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
}

TEST(TopLevelDisabled, ABatchOpenedBeforehandStillDeliversWhatCameBefore) {
    RootInStep tree;
    {
        QTopLevelFormulaContext::BatchNotifications batch(&tree.root);
        Change(tree.value);
        {
            QTopLevelFormulaContext::DisableNotificationsCompletelyNoSmartPtr off(&tree.root);
            Change(tree.value);
            EXPECT_EQ(tree.root.StopAllBatching(), 0);
        }
    }
    EXPECT_EQ(tree.journal, (std::vector<std::string>{"pre", "changed"}));
}

} // namespace
} // namespace keel
