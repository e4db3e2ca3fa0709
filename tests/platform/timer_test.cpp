#include "keel/platform/timer.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <vector>

namespace keel {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class Journal {
public:
    std::function<void()> Note(std::string text) {
        return [this, text] {
            const std::lock_guard lock(m_mutex);
            m_entries.push_back(text);
        };
    }
    std::vector<std::string> Entries() const {
        const std::lock_guard lock(m_mutex);
        return m_entries;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_entries;
};

TEST(TimerQueue, RunsTheWorkOnceAfterItsDelay) {
    EXPECT_TRUE(QTimerQueue().WaitUntilIdle(0ms));
    QTimerQueue queue;
    const auto start = QTimerQueue::Clock::now();
    std::atomic<QTimerQueue::Clock::time_point> ranAt{};
    queue.Schedule(80ms, [&ranAt] { ranAt = QTimerQueue::Clock::now(); });
    EXPECT_EQ(queue.PendingCount(), 1);
    ASSERT_TRUE(queue.WaitUntilIdle(5s));
    EXPECT_GE(ranAt.load() - start, 80ms);
    EXPECT_EQ(queue.PendingCount(), 0);
}

TEST(TimerQueue, ACancelledTimerNeverRunsEvenWhenWorkCancelsIt) {
    QTimerQueue queue;
    Journal journal;
    const QTimerQueue::TimerId dropped = queue.Schedule(100ms, journal.Note("dropped"));
    const QTimerQueue::TimerId kept = queue.Schedule(150ms, journal.Note("kept"));
    const QTimerQueue::TimerId later = queue.Schedule(200ms, journal.Note("later"));
    EXPECT_NE(dropped, 0u);
    EXPECT_NE(dropped, kept);
    EXPECT_TRUE(queue.Cancel(dropped));
    EXPECT_FALSE(queue.Cancel(dropped));
    EXPECT_EQ(queue.PendingCount(), 2);
    queue.Schedule(10ms, [&] { journal.Note(queue.Cancel(later) ? "cancelled" : "missed")(); });
    ASSERT_TRUE(queue.WaitUntilIdle(5s));
    EXPECT_THAT(journal.Entries(), ElementsAre("cancelled", "kept"));
    EXPECT_FALSE(queue.Cancel(kept));
    EXPECT_FALSE(queue.Cancel(12345));
}

} // namespace
} // namespace keel
