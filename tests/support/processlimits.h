#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace keel::test {

// Files may grow no larger than `bytes` while it lives, as on a full disk: a write beyond fails
// with EFBIG instead of raising SIGXFSZ.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        m_oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_old);
        rlimit limited = m_old;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_oldHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_old{};
    void (*m_oldHandler)(int);
};

// Permission bits do not stop the superuser, so a test run as root does what it must be refused
// with the rights of an ordinary user while this lives.
class UnprivilegedScope {
public:
    UnprivilegedScope() {
        if (geteuid() == 0)
            m_dropped = seteuid(65534) == 0;
    }
    ~UnprivilegedScope() {
        if (m_dropped) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    UnprivilegedScope(const UnprivilegedScope&) = delete;
    UnprivilegedScope& operator=(const UnprivilegedScope&) = delete;

private:
    bool m_dropped = false;
};

} // namespace keel::test
