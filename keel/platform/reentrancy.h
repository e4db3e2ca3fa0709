#pragma once

namespace keel {

// Counts how many times a piece of code is running at once on the one thread that uses it: a
// count above one means that it was re-entered, from a message loop or from a report made while
// it was working. It guards against re-entry, not between threads.
class QReentrancyCounter {
public:
    QReentrancyCounter() = default;
    QReentrancyCounter(const QReentrancyCounter&) = delete;
    QReentrancyCounter& operator=(const QReentrancyCounter&) = delete;

    int Count() const { return m_count; }
    bool IsEntered() const { return m_count > 0; }

private:
    friend class QReentrancyWriter;

    int m_count = 0;
};

// Enters a counter for a scope. A writer that finds the counter already entered reports the
// re-entry, under its name, to the debug output; the code it guards asks IsReentered to decide
// what to do.
class QReentrancyWriter {
public:
    QReentrancyWriter(QReentrancyCounter& counter, const char* name);
    ~QReentrancyWriter();
    QReentrancyWriter(const QReentrancyWriter&) = delete;
    QReentrancyWriter& operator=(const QReentrancyWriter&) = delete;

    bool IsReentered() const { return m_reentered; }
    const char* Name() const { return m_name; }

private:
    QReentrancyCounter& m_counter;
    const char* m_name;
    bool m_reentered;
};

} // namespace keel
