#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace keel {

// One-shot timers served by a thread of the queue's own: each piece of work runs once, on that
// thread, when its delay has passed, unless it was cancelled before. Work that is due at the same
// moment runs in the order it was scheduled. The thread starts with the first timer and ends
// with the queue, which drops what is still waiting.
class QTimerQueue {
public:
    using TimerId = std::uint64_t;
    using Clock = std::chrono::steady_clock;

    QTimerQueue() = default;
    ~QTimerQueue();
    QTimerQueue(const QTimerQueue&) = delete;
    QTimerQueue& operator=(const QTimerQueue&) = delete;

    // The id is never 0, so 0 can stand for "no timer".
    TimerId Schedule(std::chrono::milliseconds delay, std::function<void()> work);
    // True when the timer was still waiting and now never runs; false when it ran, is running or
    // never existed. Cancelling from inside the work of another timer is allowed.
    bool Cancel(TimerId id);
    // The timers still waiting.
    int PendingCount() const;
    // Waits until nothing is waiting or running, or until the timeout; true when idle.
    bool WaitUntilIdle(std::chrono::milliseconds timeout) const;

    // The process's queue, made on first use.
    static QTimerQueue& Instance();

private:
    // Ordered by due time, then by id, which grows with each Schedule.
    using Key = std::pair<Clock::time_point, TimerId>;

    void Run();

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::map<Key, std::function<void()>> m_waiting;
    TimerId m_lastId = 0;
    bool m_running = false;
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace keel
