#pragma once

#include <condition_variable>
#include <mutex>

namespace keel {

// An event that one thread signals and others wait for. A manual-reset event stays signalled
// until it is reset; an automatic one lets one waiter through and resets itself.
class CEvent {
public:
    explicit CEvent(bool initiallySignalled = false, bool manualReset = true)
        : m_signalled(initiallySignalled), m_manualReset(manualReset) {}
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    void SetEvent();
    void ResetEvent();
    // Waits up to `milliseconds` (0 only tests, a negative value waits without end) and tells
    // whether the event was signalled.
    bool Lock(int milliseconds);

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_signalled;
    bool m_manualReset;
};

} // namespace keel
