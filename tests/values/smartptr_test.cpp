#include "keel/values/smartptr.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace keel {
namespace {

// Reports its deletion to a counter owned by the test.
class Tracked : public QSmartTarget {
public:
    explicit Tracked(int* deletions) : m_deletions(deletions) {}
    ~Tracked() override { ++*m_deletions; }

private:
    int* m_deletions;
};

// Owns another object by smart pointer.
class Link : public Tracked {
public:
    using Tracked::Tracked;

    QSmartPtr<Link> next;
};

TEST(QSmartTarget, ACopyStartsUnreferencedButAssignmentCopiesTheOtherCount) {
    int deletions = 0;
    QSmartPtr<Tracked> first(new Tracked(&deletions));
    QSmartPtr<Tracked> second(first);
    Tracked copy(*first);
    EXPECT_FALSE(copy.IsReferenced());
    Tracked* assigned = new Tracked(&deletions);
    QSmartPtr<Tracked> holder(assigned);
    *assigned = *first;
    EXPECT_FALSE(assigned->IsSinglyReferenced());

    // The count taken over is 2, so letting go of the one real holder does not delete.
    holder = nullptr;
    EXPECT_EQ(deletions, 0);
    EXPECT_TRUE(assigned->IsSinglyReferenced());
    assigned->DestructorNotSmart();
    EXPECT_FALSE(assigned->IsReferenced());
    assigned->DeleteThis();
    EXPECT_EQ(deletions, 1);
}

TEST(QSmartPtr, TheLastReleaseDeletesAndAssignmentAndMoveHandTheReferencesOver) {
    int deletions = 0;
    QSmartPtr<Tracked> a(new Tracked(&deletions));
    {
        QSmartPtr<Tracked> copy(a);
        EXPECT_FALSE(a->IsSinglyReferenced());
    }
    QSmartPtr<Tracked>& same = a;
    a = same;
    a = a.Get();
    EXPECT_TRUE(a->IsSinglyReferenced()) << "self-assignment keeps the count";
    QSmartPtr<Tracked> b(new Tracked(&deletions));
    b = a;
    EXPECT_EQ(deletions, 1) << "b let go of its only target";
    QSmartPtr<Tracked> moved(std::move(b));
    EXPECT_FALSE(b);
    a = nullptr;
    EXPECT_TRUE(moved->IsSinglyReferenced());
    QSmartPtr<Tracked> other(new Tracked(&deletions));
    other = std::move(moved);
    EXPECT_EQ(deletions, 2);
    EXPECT_TRUE(other->IsSinglyReferenced());
    QSmartPtr<QSmartTarget> base(other);
    other = nullptr;
    EXPECT_EQ(deletions, 2) << "a pointer to the base shares the count";
    base = nullptr;
    EXPECT_EQ(deletions, 3);
}

TEST(QSmartPtr, AssigningWhatTheOldTargetOwnsKeepsIt) {
    int deletions = 0;
    QSmartPtr<Link> head(new Link(&deletions));
    head->next = new Link(&deletions);
    head->next->next = new Link(&deletions);
    Link* third = head->next->next;

    // head holds the last reference to its target, which owns the one assigned.
    head = head->next;
    EXPECT_EQ(deletions, 1);
    EXPECT_TRUE(head->IsSinglyReferenced());
    head = head->next.Get();
    EXPECT_EQ(deletions, 2);
    EXPECT_EQ(head.Get(), third);
    EXPECT_TRUE(head->IsSinglyReferenced());
}

TEST(QSmartPtr, CountsStayExactAcrossThreads) {
    int deletions = 0;
    QSmartPtr<Tracked> shared(new Tracked(&deletions));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&shared] {
            for (int i = 0; i < 20000; ++i) {
                QSmartPtr<Tracked> copy(shared);
                QSmartPtr<Tracked> another(copy);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(shared->IsSinglyReferenced());
    EXPECT_EQ(deletions, 0);
}

// Records the calls the guards make.
class Batch : public QSmartTarget {
public:
    void Begin() { ++begun; }
    void End() { ++ended; }
    void SetNotify(bool on) { switches.push_back(on); }

    int begun = 0;
    int ended = 0;
    std::vector<bool> switches;
};

TEST(QCallAtStartAndFinish, CallsAtStartAndFinishAndKeepsAManagedTargetAliveButNotANullOne) {
    {
        // A call through the null target would crash.
        QCallAtStartAndFinishForSmartPtr<Batch> guard(nullptr, &Batch::Begin, &Batch::End);
        QCallAtStartAndFinishForSmartPtr<Batch> copy(guard);
        QOffAndOnForSmartPtr<Batch> offAndOn(nullptr, &Batch::SetNotify);
        QOffAndOnNoSmartPtr<Batch> raw(nullptr, &Batch::SetNotify);
    }
    Batch onStack;
    {
        QCallAtStartAndFinishForSmartPtr<Batch> guard(&onStack, &Batch::Begin, &Batch::End);
        EXPECT_EQ(onStack.begun, 1);
        EXPECT_EQ(onStack.ended, 0);
        EXPECT_FALSE(onStack.IsReferenced()) << "an object on the stack is left alone";
    }
    EXPECT_EQ(onStack.ended, 1);
    QSmartPtr<Batch> batch(new Batch);
    Batch* raw = batch.Get();
    {
        QCallAtStartAndFinishForSmartPtr<Batch> guard(raw, &Batch::Begin, &Batch::End);
        {
            QCallAtStartAndFinishForSmartPtr<Batch> copy(guard);
            batch = nullptr;
            EXPECT_FALSE(raw->IsSinglyReferenced()) << "the guard and its copy hold it";
        }
        EXPECT_EQ(raw->ended, 1);
        EXPECT_TRUE(raw->IsSinglyReferenced());
        batch = raw;
    }
    EXPECT_EQ(batch->begun, 1);
    EXPECT_EQ(batch->ended, 2);
    EXPECT_TRUE(batch->IsSinglyReferenced());
}

TEST(QOffAndOn, SwitchesOffThenOnAndOnlyTheSmartFormCounts) {
    QSmartPtr<Batch> batch(new Batch);
    {
        QOffAndOnForSmartPtr<Batch> guard(batch.Get(), &Batch::SetNotify);
        EXPECT_EQ(batch->switches, std::vector<bool>{false});
        QOffAndOnForSmartPtr<Batch> copy(guard);
        EXPECT_EQ(batch->switches, std::vector<bool>{false});
        EXPECT_FALSE(batch->IsSinglyReferenced());
    }
    EXPECT_EQ(batch->switches, (std::vector<bool>{false, true, true}));
    EXPECT_TRUE(batch->IsSinglyReferenced());
    {
        QOffAndOnNoSmartPtr<Batch> guard(batch.Get(), &Batch::SetNotify);
        QOffAndOnNoSmartPtr<Batch> copy(guard);
        EXPECT_TRUE(batch->IsSinglyReferenced());
    }
    EXPECT_EQ(batch->switches, (std::vector<bool>{false, true, true, false, true, true}));
}

} // namespace
} // namespace keel
