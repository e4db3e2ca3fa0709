#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace keel {

template <class T>
class QSmartPtr;
template <class T>
class QHoldSmartPtr;

// Base of every reference-counted object. The count is the only thing about the object that is
// safe to touch from two threads, and it only ever changes by atomic increment and decrement.
class QSmartTarget {
public:
    QSmartTarget() = default;
    // A copy is a new object: nobody holds it yet.
    QSmartTarget(const QSmartTarget&) noexcept {}
    // Overwrites this object's count with the other one's. The asymmetry with the copy
    // constructor is deliberate: callers of the framework rely on it as it is.
    QSmartTarget& operator=(const QSmartTarget& other) noexcept {
        m_count.store(other.m_count.load());
        return *this;
    }
    // Leaves -1 behind so that IsValid can tell a dead object from a live one.
    virtual ~QSmartTarget() { m_count.store(-1); }
    virtual void DeleteThis() { delete this; }

    bool IsReferenced() const { return m_count.load() > 0; }
    bool IsSinglyReferenced() const { return m_count.load() == 1; }
    bool IsValid() const { return m_count.load() != -1; }

    // An object on the stack or inside another one calls these from its constructor and
    // destructor, so that no smart pointer taken to it can bring its count to 0 and delete it.
    void ConstructorNotSmart() { AddReference(); }
    void DestructorNotSmart() { m_count.fetch_sub(1); }

private:
    template <class T>
    friend class QSmartPtr;
    template <class T>
    friend class QHoldSmartPtr;

    void AddReference() { m_count.fetch_add(1); }
    // Drops one reference and deletes the object when it was the last one.
    void ReleaseReference() {
        if (m_count.fetch_sub(1) == 1)
            DeleteThis();
    }

    std::atomic<std::int32_t> m_count{0};
};

// Owns one reference to a T derived from QSmartTarget; the last one to let go deletes it.
template <class T>
class QSmartPtr {
public:
    QSmartPtr() noexcept = default;
    QSmartPtr(T* target) noexcept : m_target(target) { Acquire(m_target); }
    QSmartPtr(const QSmartPtr& other) noexcept : QSmartPtr(other.m_target) {}
    template <class U>
    QSmartPtr(const QSmartPtr<U>& other) noexcept requires std::is_convertible_v<U*, T*>
        : QSmartPtr(other.Get()) {}
    QSmartPtr(QSmartPtr&& other) noexcept : m_target(std::exchange(other.m_target, nullptr)) {}
    ~QSmartPtr() { Release(m_target); }

    // The new target is taken before the old one is let go: the old one may own the new one.
    QSmartPtr& operator=(T* target) noexcept {
        if (target != m_target) {
            Acquire(target);
            Release(std::exchange(m_target, target));
        }
        return *this;
    }
    QSmartPtr& operator=(const QSmartPtr& other) noexcept { return *this = other.m_target; }
    QSmartPtr& operator=(QSmartPtr&& other) noexcept {
        if (this != &other)
            Release(std::exchange(m_target, std::exchange(other.m_target, nullptr)));
        return *this;
    }

    T* Get() const { return m_target; }
    T* operator->() const { return m_target; }
    T& operator*() const { return *m_target; }
    operator T*() const { return m_target; }
    explicit operator bool() const { return m_target != nullptr; }

private:
    static void Acquire(T* target) {
        if (target)
            target->AddReference();
    }
    static void Release(T* target) {
        if (target)
            target->ReleaseReference();
    }

    T* m_target = nullptr;
};

// A QSmartPtr that touches the count only of an object that is already reference-managed
// (count above 0), so it never deletes an object that lives on the stack or inside another.
template <class T>
class QHoldSmartPtr {
public:
    QHoldSmartPtr() noexcept = default;
    QHoldSmartPtr(T* target) noexcept { Hold(target); }
    QHoldSmartPtr(const QHoldSmartPtr& other) noexcept { Hold(other.m_target); }
    QHoldSmartPtr(QHoldSmartPtr&& other) noexcept
        : m_target(std::exchange(other.m_target, nullptr)),
          m_holds(std::exchange(other.m_holds, false)) {}
    ~QHoldSmartPtr() { LetGo(); }

    QHoldSmartPtr& operator=(T* target) noexcept {
        if (target != m_target) {
            QHoldSmartPtr previous(std::move(*this));
            Hold(target);
        }
        return *this;
    }
    QHoldSmartPtr& operator=(const QHoldSmartPtr& other) noexcept { return *this = other.m_target; }

    T* Get() const { return m_target; }
    T* operator->() const { return m_target; }
    T& operator*() const { return *m_target; }
    operator T*() const { return m_target; }
    explicit operator bool() const { return m_target != nullptr; }

private:
    void Hold(T* target) {
        m_target = target;
        m_holds = target && target->IsReferenced();
        if (m_holds)
            target->AddReference();
    }
    void LetGo() {
        if (m_holds)
            m_target->ReleaseReference();
    }

    T* m_target = nullptr;
    bool m_holds = false;
};

// Calls one member function of the target now and another when the guard goes out of scope.
// A null target is allowed and does nothing. A copy calls nothing at construction, takes a
// further reference on the target through Hold, and calls the finishing function again when it
// is destroyed.
template <class T, class Hold>
class QCallAtStartAndFinish {
public:
    using Action = void (T::*)();

    QCallAtStartAndFinish(T* target, Action atStart, Action atFinish)
        : m_target(target), m_atFinish(atFinish) {
        if (target)
            (target->*atStart)();
    }
    QCallAtStartAndFinish(const QCallAtStartAndFinish&) = default;
    QCallAtStartAndFinish& operator=(const QCallAtStartAndFinish&) = delete;
    ~QCallAtStartAndFinish() {
        if (T* target = m_target)
            (target->*m_atFinish)();
    }

private:
    Hold m_target;
    Action m_atFinish;
};

// Switches something of the target off now (the member function called with false) and on
// again (with true) when the guard goes out of scope; what QCallAtStartAndFinish does, for a
// switch taking a bool.
template <class T, class Hold>
class QOffAndOn {
public:
    using Switch = void (T::*)(bool);

    QOffAndOn(T* target, Switch setOn) : m_target(target), m_setOn(setOn) {
        if (target)
            (target->*setOn)(false);
    }
    QOffAndOn(const QOffAndOn&) = default;
    QOffAndOn& operator=(const QOffAndOn&) = delete;
    ~QOffAndOn() {
        if (T* target = m_target)
            (target->*m_setOn)(true);
    }

private:
    Hold m_target;
    Switch m_setOn;
};

template <class T>
using QCallAtStartAndFinishForSmartPtr = QCallAtStartAndFinish<T, QHoldSmartPtr<T>>;
template <class T>
using QOffAndOnForSmartPtr = QOffAndOn<T, QHoldSmartPtr<T>>;
template <class T>
using QOffAndOnNoSmartPtr = QOffAndOn<T, T*>;

} // namespace keel
