#pragma once

#include <mutex>

namespace keel {

// A re-entrant lock: the thread that holds it may take it again.
class CCriticalSection {
public:
    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
};

// Holds a CCriticalSection for a scope and releases it on every path out, exceptions included.
class CSingleLock {
public:
    explicit CSingleLock(CCriticalSection* section, bool lockNow = false) : m_section(section) {
        if (lockNow)
            Lock();
    }
    ~CSingleLock() { Unlock(); }
    CSingleLock(const CSingleLock&) = delete;
    CSingleLock& operator=(const CSingleLock&) = delete;

    void Lock() {
        if (!m_locked) {
            m_section->Lock();
            m_locked = true;
        }
    }
    void Unlock() {
        if (m_locked) {
            m_locked = false;
            m_section->Unlock();
        }
    }
    bool IsLocked() const { return m_locked; }

private:
    CCriticalSection* m_section;
    bool m_locked = false;
};

} // namespace keel
