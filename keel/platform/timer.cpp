#include "keel/platform/timer.h"

#include <algorithm>

namespace keel {

QTimerQueue::~QTimerQueue() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_waiting.clear();
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

QTimerQueue::TimerId QTimerQueue::Schedule(std::chrono::milliseconds delay,
                                           std::function<void()> work) {
    const Clock::time_point due = Clock::now() + std::max(delay, std::chrono::milliseconds(0));
    TimerId id = 0;
    {
        const std::lock_guard lock(m_mutex);
        id = ++m_lastId;
        m_waiting.emplace(Key{due, id}, std::move(work));
        if (!m_thread.joinable())
            m_thread = std::thread(&QTimerQueue::Run, this);
    }
    m_changed.notify_all();
    return id;
}

bool QTimerQueue::Cancel(TimerId id) {
    {
        const std::lock_guard lock(m_mutex);
        const auto found =
            std::find_if(m_waiting.begin(), m_waiting.end(),
                         [id](const auto& entry) { return entry.first.second == id; });
        if (found == m_waiting.end())
            return false;
        m_waiting.erase(found);
    }
    m_changed.notify_all();
    return true;
}

int QTimerQueue::PendingCount() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(m_waiting.size());
}

bool QTimerQueue::WaitUntilIdle(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [this] { return m_waiting.empty() && !m_running; });
}

QTimerQueue& QTimerQueue::Instance() {
    static QTimerQueue queue;
    return queue;
}

void QTimerQueue::Run() {
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        if (m_waiting.empty()) {
            m_changed.wait(lock);
            continue;
        }
        const auto first = m_waiting.begin();
        const Clock::time_point due = first->first.first;
        if (Clock::now() < due) {
            m_changed.wait_until(lock, due);
            continue;
        }
        std::function<void()> work = std::move(first->second);
        m_waiting.erase(first);
        m_running = true;
        lock.unlock();
        work();
        lock.lock();
        m_running = false;
        m_changed.notify_all();
    }
}

} // namespace keel
