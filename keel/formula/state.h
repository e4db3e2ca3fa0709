#pragma once

#include "keel/platform/cstring.h"

#include <algorithm>
#include <cstdint>

namespace keel {

// How long an evaluated value stays true; evaluation combines states by their maximum.
enum QCacheState : int {
    QCS_Stable = 0,
    QCS_BySeq = 1,
    QCS_ByAcceptor = 2,
    QCS_NotCacheable = 3,
};

inline void RaiseCacheState(QCacheState& state, QCacheState other) {
    state = std::max(state, other);
}

// A synchronisation number in the low 29 bits, a cache state in bits 29 and 30, an error bit on
// top. Only the number takes part in comparisons, assignment and copying. Counting skips 0, so
// a fresh object (number 0) is never up to date with a root that has counted.
class QState {
public:
    static constexpr std::uint32_t c_numberMask = (1u << 29) - 1;
    static constexpr std::uint32_t c_cacheStateShift = 29;
    static constexpr std::uint32_t c_cacheStateMask = 3u << c_cacheStateShift;
    static constexpr std::uint32_t c_errorBit = 1u << 31;

    QState() = default;
    QState(const QState& other) : m_word(other.m_word & c_numberMask) {}
    QState& operator=(const QState& other) {
        m_word = (m_word & ~c_numberMask) | (other.m_word & c_numberMask);
        return *this;
    }
    QState& operator^=(const QState& other) {
        m_word ^= other.m_word & c_numberMask;
        return *this;
    }
    QState& operator++() {
        std::uint32_t number = (m_word + 1) & c_numberMask;
        if (number == 0)
            number = 1;
        m_word = (m_word & ~c_numberMask) | number;
        return *this;
    }
    friend bool operator==(const QState& a, const QState& b) {
        return ((a.m_word ^ b.m_word) & c_numberMask) == 0;
    }
    friend bool operator!=(const QState& a, const QState& b) { return !(a == b); }

    void Reset() { m_word = 0; }
    std::uint32_t Number() const { return m_word & c_numberMask; }
    std::uint32_t Word() const { return m_word; }

    QCacheState CacheState() const {
        return static_cast<QCacheState>((m_word & c_cacheStateMask) >> c_cacheStateShift);
    }
    void SetCacheState(QCacheState state) {
        m_word = (m_word & ~c_cacheStateMask) |
                 ((static_cast<std::uint32_t>(state) << c_cacheStateShift) & c_cacheStateMask);
    }
    bool IsErrorBit() const { return (m_word & c_errorBit) != 0; }
    void SetErrorBit(bool error) {
        m_word = error ? (m_word | c_errorBit) : (m_word & ~c_errorBit);
    }

    CString ToString() const {
        return CString::Formatted(CString(u"%d"), static_cast<int>(Number()));
    }

private:
    std::uint32_t m_word = 0;
};

// Anything that is brought up to date against a root's number. The state is mutable so that a
// const object can be brought up to date when it is read.
class QDelayedBase {
public:
    const QState& State() const { return m_state; }
    void SetState(const QState& state) const { m_state = state; }
    bool IsState(const QState& state) const { return m_state == state; }
    bool IsSameStateAs(const QDelayedBase& other) const { return m_state == other.m_state; }
    bool IsErrorBit() const { return m_state.IsErrorBit(); }
    void SetErrorBit(bool error = true) const { m_state.SetErrorBit(error); }
    QCacheState CacheState() const { return m_state.CacheState(); }
    void SetCacheState(QCacheState state) const { m_state.SetCacheState(state); }
    bool NeedsReevaluation() const { return CacheState() != QCS_Stable; }

protected:
    QState& MutableState() const { return m_state; }

private:
    mutable QState m_state;
};

} // namespace keel
