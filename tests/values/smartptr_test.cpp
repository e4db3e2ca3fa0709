#include "keel/values/smartptr.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <new>
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
class Link : public QSmartTarget {
public:
    explicit Link(int* deletions) : m_deletions(deletions) {}
    ~Link() override { ++*m_deletions; }

    QSmartPtr<Link> next;

private:
    int* m_deletions;
};

// Looks at an object after its destructor ran, which is what IsValid is for. Its storage still
// belongs to the caller; the sanitizer's check of the dynamic type would only object that the
// object is dead.
__attribute__((no_sanitize("vptr"))) bool IsValidAfterDestruction(QSmartTarget* target) {
    target->~QSmartTarget();
    return target->IsValid();
}

TEST(QSmartTarget, StartsUnreferencedAndValidAndACopyStartsUnreferencedToo) {
    alignas(QSmartTarget) std::byte storage[sizeof(QSmartTarget)];
    QSmartTarget* target = new (storage) QSmartTarget;
    EXPECT_FALSE(target->IsReferenced());
    EXPECT_TRUE(target->IsValid());
    EXPECT_FALSE(IsValidAfterDestruction(target));
    int deletions = 0;
    QSmartPtr<Tracked> held(new Tracked(&deletions));
    Tracked copy(*held);
    EXPECT_FALSE(copy.IsReferenced());
    EXPECT_TRUE(held->IsSinglyReferenced());
}

TEST(QSmartTarget, AssignmentCopiesTheOtherCount) {
    int deletions = 0;
    QSmartPtr<Tracked> first(new Tracked(&deletions));
    QSmartPtr<Tracked> second(first);
    Tracked* assigned = new Tracked(&deletions);
    QSmartPtr<Tracked> holder(assigned);
    ASSERT_TRUE(assigned->IsSinglyReferenced());

    *assigned = *first;
    EXPECT_TRUE(assigned->IsReferenced());
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

TEST(QSmartTarget, NotSmartObjectSurvivesItsSmartPointers) {
    int deletions = 0;
    // Owned here, as a member or a stack object would be owned by its scope.
    auto owned = std::make_unique<Tracked>(&deletions);
    owned->ConstructorNotSmart();
    {
        QSmartPtr<Tracked> pointer(owned.get());
        EXPECT_FALSE(owned->IsSinglyReferenced());
    }
    EXPECT_EQ(deletions, 0);
    EXPECT_TRUE(owned->IsSinglyReferenced());
    owned->DestructorNotSmart();
    EXPECT_FALSE(owned->IsReferenced());
    owned.reset();
    EXPECT_EQ(deletions, 1);
}

TEST(QSmartPtr, LastReleaseDeletesAndSelfAssignmentKeeps) {
    int deletions = 0;
    QSmartPtr<Tracked> pointer(new Tracked(&deletions));
    EXPECT_TRUE(pointer->IsSinglyReferenced());
    {
        QSmartPtr<Tracked> copy(pointer);
        EXPECT_FALSE(pointer->IsSinglyReferenced());
        EXPECT_EQ(copy.Get(), pointer.Get());
    }
    QSmartPtr<Tracked>& same = pointer;
    pointer = same;
    pointer = pointer.Get();
    EXPECT_TRUE(pointer->IsSinglyReferenced()) << "self-assignment keeps the count";
    EXPECT_EQ(deletions, 0);
    pointer = nullptr;
    EXPECT_EQ(deletions, 1);
    EXPECT_FALSE(pointer);
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

TEST(QSmartPtr, AssignmentAndMoveHandTheReferencesOver) {
    int deletions = 0;
    Tracked* first = new Tracked(&deletions);
    Tracked* second = new Tracked(&deletions);
    QSmartPtr<Tracked> a(first);
    QSmartPtr<Tracked> b(second);
    QSmartPtr<Tracked> keepSecond(second);
    b = a;
    EXPECT_FALSE(first->IsSinglyReferenced());
    EXPECT_TRUE(second->IsSinglyReferenced());
    EXPECT_EQ(deletions, 0);
    keepSecond = nullptr;
    EXPECT_EQ(deletions, 1);

    QSmartPtr<Tracked> source(new Tracked(&deletions));
    QSmartPtr<Tracked> target(std::move(source));
    EXPECT_FALSE(source);
    EXPECT_TRUE(target->IsSinglyReferenced());

    QSmartPtr<Tracked> other(new Tracked(&deletions));
    other = std::move(target);
    EXPECT_EQ(deletions, 2);
    EXPECT_TRUE(other->IsSinglyReferenced());
    QSmartPtr<QSmartTarget> base(other);
    EXPECT_FALSE(other->IsSinglyReferenced()) << "a pointer to the base shares the count";
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

TEST(QHoldSmartPtr, LeavesAnUnreferencedObjectAloneAndHoldsAReferencedOne) {
    int deletions = 0;
    {
        Tracked onStack(&deletions);
        {
            QHoldSmartPtr<Tracked> hold(&onStack);
            QHoldSmartPtr<Tracked> copy(hold);
            EXPECT_FALSE(onStack.IsReferenced());
            EXPECT_EQ(copy.Get(), &onStack);
        }
        EXPECT_FALSE(onStack.IsReferenced());
        EXPECT_EQ(deletions, 0);
    }
    EXPECT_EQ(deletions, 1);
    QSmartPtr<Tracked> owner(new Tracked(&deletions));
    {
        QHoldSmartPtr<Tracked> hold(owner.Get());
        EXPECT_FALSE(owner->IsSinglyReferenced());
    }
    EXPECT_TRUE(owner->IsSinglyReferenced());

    QHoldSmartPtr<Tracked> outliving(owner.Get());
    owner = nullptr;
    EXPECT_EQ(deletions, 1);
    EXPECT_TRUE(outliving->IsSinglyReferenced());
    outliving = nullptr;
    EXPECT_EQ(deletions, 2);

    Tracked onStack(&deletions);
    QSmartPtr<Tracked> managed(new Tracked(&deletions));

    QHoldSmartPtr<Tracked> hold(&onStack);
    hold = managed.Get();
    EXPECT_FALSE(onStack.IsReferenced());
    EXPECT_FALSE(managed->IsSinglyReferenced());
    hold = &onStack;
    EXPECT_TRUE(managed->IsSinglyReferenced());
    EXPECT_FALSE(onStack.IsReferenced());
    EXPECT_EQ(deletions, 2);
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

// Counts calls in a static, so that a call through a null target would still be seen.
class StaticCounter : public QSmartTarget {
public:
    void Begin() { ++calls; }
    void End() { ++calls; }
    void Set(bool) { ++calls; }

    static inline int calls = 0;
};

TEST(QCallAtStartAndFinish, CallsAtStartAndAtFinishAndANullTargetDoesNothing) {
    StaticCounter::calls = 0;
    {
        QCallAtStartAndFinishForSmartPtr<StaticCounter> guard(nullptr, &StaticCounter::Begin,
                                                              &StaticCounter::End);
        QCallAtStartAndFinishForSmartPtr<StaticCounter> copy(guard);
        QOffAndOnForSmartPtr<StaticCounter> offAndOn(nullptr, &StaticCounter::Set);
        QOffAndOnNoSmartPtr<StaticCounter> raw(nullptr, &StaticCounter::Set);
    }
    EXPECT_EQ(StaticCounter::calls, 0);
    Batch batch;
    {
        QCallAtStartAndFinishForSmartPtr<Batch> guard(&batch, &Batch::Begin, &Batch::End);
        EXPECT_EQ(batch.begun, 1);
        EXPECT_EQ(batch.ended, 0);
        EXPECT_FALSE(batch.IsReferenced()) << "an object on the stack is left alone";
    }
    EXPECT_EQ(batch.ended, 1);
}

TEST(QCallAtStartAndFinish, KeepsAManagedTargetAliveAndCopiesTakeReferences) {
    QSmartPtr<Batch> batch(new Batch);
    Batch* raw = batch.Get();
    {
        QCallAtStartAndFinishForSmartPtr<Batch> guard(raw, &Batch::Begin, &Batch::End);
        EXPECT_FALSE(raw->IsSinglyReferenced());
        {
            QCallAtStartAndFinishForSmartPtr<Batch> copy(guard);
            EXPECT_EQ(raw->begun, 1);
            batch = nullptr;
            EXPECT_TRUE(raw->IsValid());
            EXPECT_FALSE(raw->IsSinglyReferenced());
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
        EXPECT_FALSE(batch->IsSinglyReferenced());
        QOffAndOnForSmartPtr<Batch> copy(guard);
        EXPECT_EQ(batch->switches, std::vector<bool>{false});
    }
    EXPECT_EQ(batch->switches, (std::vector<bool>{false, true, true}));
    EXPECT_TRUE(batch->IsSinglyReferenced());
    batch->switches.clear();
    {
        QOffAndOnNoSmartPtr<Batch> guard(batch.Get(), &Batch::SetNotify);
        EXPECT_TRUE(batch->IsSinglyReferenced());
        QOffAndOnNoSmartPtr<Batch> copy(guard);
        EXPECT_TRUE(batch->IsSinglyReferenced());
    }
    EXPECT_EQ(batch->switches, (std::vector<bool>{false, true, true}));
}

} // namespace
} // namespace keel
