#include "keel/formula/toplevelcontext.h"
#include "keel/formula/withcontext.h"

#include <gtest/gtest.h>
#include <memory>
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
    Subscriber(std::string name, std::vector<std::string>& journal,
               QTopLevelFormulaContext* oneShotRoot = nullptr)
        : m_name(std::move(name)), m_journal(journal), m_oneShotRoot(oneShotRoot) {}
    // A one-shot subscriber goes away as soon as it has heard once.
    void OnFormulaContextChanged() override {
        m_journal.push_back(m_name);
        if (m_oneShotRoot)
            m_oneShotRoot->DeregisterChangedSubscriber(this);
    }

private:
    std::string m_name;
    std::vector<std::string>& m_journal;
    QTopLevelFormulaContext* m_oneShotRoot;
};

// A root with a value that changes and a reader that catches up with the counter, as after any
// read below it.
struct Tree {
    std::uint32_t Number() const { return root.SyncState().Number(); }
    void Change() {
        value.PreChange();
        value.Changed();
    }

    std::vector<std::string> journal;
    JournalRoot root{&journal};
    QWithContextConcrete reader{&root};
    QWithContextConcrete value{&root};
};

TEST(TopLevelCounter, TheRootForgetsWhatItKnowsWhenItsCounterMoves) {
    Tree tree;
    tree.reader.MakeUpToDate();
    const PropId name("height");
    QAnyValue cached;
    tree.root.RememberThisPropIdValueForNextTime(QAnyValue(3), name);
    ASSERT_TRUE(tree.root.HeresAPropIdValueIPreparedEarlier(cached, name));
    // A child catching up puts the root's own number in step, so that the root cannot tell by
    // its own number that it is behind.
    tree.Change();
    tree.reader.MakeUpToDate();
    tree.root.EnsureUpToDate();
    EXPECT_FALSE(tree.root.HeresAPropIdValueIPreparedEarlier(cached, name));
}

TEST(TopLevelCounter, FullRecalcMovesTheCounter) {
    Tree tree;
    tree.reader.MakeUpToDate();
    Child child(&tree.root);
    child.FullRecalc();
    EXPECT_EQ(tree.Number(), 2u);
}

// One character a step: r the reader catches up, c a change (pre-change and changed), p a
// pre-change alone, ( and ) open and close a batch guard, { and } a guard that switches
// notifications off, - and + switch them off and on by hand, ! stops and restarts all batches,
// ? writes down the batch state ("batched", "nested" or "plain", after "off" when notifications
// are off) and u whether the reader is up to date ("fresh" or "stale"). A subscriber "s" writes
// into the same journal as the root.
struct ScriptCase {
    const char* script;
    const char* journal;
    std::uint32_t number;
};

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

void Play(Tree& tree, const std::string& script) {
    std::vector<std::shared_ptr<void>> guards;
    for (const char step : script) {
        QTopLevelFormulaContext& root = tree.root;
        switch (step) {
        case 'r':
            tree.reader.MakeUpToDate();
            break;
        case 'c':
            tree.Change();
            break;
        case 'p':
            tree.value.PreChange();
            break;
        case '(':
            guards.push_back(std::make_shared<QTopLevelFormulaContext::BatchNotifications>(&root));
            break;
        case '{':
            guards.push_back(
                std::make_shared<QTopLevelFormulaContext::DisableNotificationsCompletely>(&root));
            break;
        case ')':
        case '}':
            guards.pop_back();
            break;
        case '-':
        case '+':
            root.EnableNotifications(step == '+');
            break;
        case '!':
            root.StopAndRestartBatching();
            break;
        case 'u':
            tree.journal.push_back(tree.reader.IsUpToDate() ? "fresh" : "stale");
            break;
        case '?':
            if (!root.AreNotificationsEnabled())
                tree.journal.push_back("off");
            tree.journal.push_back(root.AreBatchedNotificationsNested() ? "nested"
                                   : root.AreNotificationsBatched()     ? "batched"
                                                                        : "plain");
            break;
        default:
            FAIL() << "unknown step " << step;
        }
    }
}

TEST(TopLevelScript, GivesTheseNoticesAndThisCount) {
    const ScriptCase cases[] = {
        // Without a batch each change reaches both helpers at once, and no subscriber.
        {"rp", "pre", 1},
        // The counter moves once per burst: a read starts a new one.
        {"rcccrccu", "pre changed pre changed pre changed pre changed pre changed stale", 3},
        // Nobody has read since the root was made: its own number is behind its counter.
        {"cu", "pre changed stale", 1},
        // A batch moves the counter once and is heard once, at its end.
        {"r(?cccccccccc)?", "batched pre changed s plain", 2},
        {"r(c(?c)?(c)c)", "pre nested batched changed s", 2},
        {"r()", "", 1},
        {"r(pp)", "pre", 1},
        {"r((c!?rc))", "pre changed s nested pre changed s", 3},
        // Switched off, a change moves nothing and reaches nobody, and no batch opens.
        {"r{?(?cc)}?u", "off plain off plain plain fresh", 1},
        {"r--+c+c", "pre changed", 2},
        // A batch opened beforehand still delivers what came before.
        {"r(c{c})", "pre changed s", 2},
    };
    for (const ScriptCase& c : cases) {
        SCOPED_TRACE(c.script);
        Tree tree;
        Subscriber subscriber("s", tree.journal);
        tree.root.RegisterChangedSubscriber(&subscriber);
        Play(tree, c.script);
        EXPECT_EQ(Joined(tree.journal), c.journal);
        EXPECT_EQ(tree.Number(), c.number);
    }
}

TEST(TopLevelBatch, SubscribersAreToldInTheOrderOfRegistrationAndMayLeaveWhileTold) {
    Tree tree;
    Subscriber oneShot("one shot", tree.journal, &tree.root);
    Subscriber first("first", tree.journal);
    Subscriber second("second", tree.journal);
    Subscriber third("third", tree.journal);
    for (Subscriber* subscriber : {&oneShot, &first, &second, &third})
        tree.root.RegisterChangedSubscriber(subscriber);
    tree.root.DeregisterChangedSubscriber(&second);
    Play(tree, "r(cr)(cr)");
    EXPECT_EQ(Joined(tree.journal), "pre changed one shot first third pre changed first third");
    EXPECT_EQ(tree.root.ChangedSubscriberCount(), 2);
}

TEST(TopLevelBatch, AContextBelowRegistersWithTheRoot) {
    Tree tree;
    Child child(&tree.root);
    Child grandchild(&child);
    Subscriber subscriber("s", tree.journal);
    grandchild.RegisterChangedSubscriber(&subscriber);
    EXPECT_EQ(tree.root.ChangedSubscriberCount(), 1);
    grandchild.DeregisterChangedSubscriber(&subscriber);
    EXPECT_EQ(tree.root.ChangedSubscriberCount(), 0);
}

TEST(TopLevelBatch, StopAllBatchingDeliversAndCountsAndRestartKeepsTheNesting) {
    Tree tree;
    tree.reader.MakeUpToDate();
    for (int i = 0; i < 3; ++i)
        tree.root.StartBatchingNotifications();
    tree.Change();
    EXPECT_EQ(tree.root.StopAllBatching(), 3);
    EXPECT_FALSE(tree.root.AreNotificationsBatched());
    EXPECT_EQ(Joined(tree.journal), "pre changed");
    tree.root.RestartAllBatching(3);
    EXPECT_TRUE(tree.root.AreBatchedNotificationsNested());
    EXPECT_EQ(tree.root.StopAllBatching(), 3);
    EXPECT_EQ(tree.journal.size(), 2u);

    tree.root.StartBatchingNotifications();
    tree.root.EnableNotifications(false);
    EXPECT_EQ(tree.root.StopAllBatching(), 0) << "nothing stops while notifications are off";
    tree.root.EnableNotifications(true);
    EXPECT_EQ(tree.root.StopAllBatching(), 1);
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
    // On no root the guards do nothing.
    QTopLevelFormulaContext::BatchNotifications noBatch(nullptr);
    QTopLevelFormulaContext::DisableNotificationsCompletely noSwitch(nullptr);
}

} // namespace
} // namespace keel
