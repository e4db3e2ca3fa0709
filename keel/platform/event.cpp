#include "keel/platform/event.h"

#include <chrono>

namespace keel {

void CEvent::SetEvent() {
    {
        std::lock_guard lock(m_mutex);
        m_signalled = true;
    }
    m_changed.notify_all();
}

void CEvent::ResetEvent() {
    std::lock_guard lock(m_mutex);
    m_signalled = false;
}

bool CEvent::Lock(int milliseconds) {
    std::unique_lock lock(m_mutex);
    const auto signalled = [this] { return m_signalled; };
    if (milliseconds < 0)
        m_changed.wait(lock, signalled);
    else if (!m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), signalled))
        return false;
    if (!m_manualReset)
        m_signalled = false;
    return true;
}

} // namespace keel
