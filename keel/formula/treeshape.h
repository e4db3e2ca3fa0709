#pragma once

#include <atomic>
#include <cstdint>

namespace keel {

// One number for the whole process that moves whenever something that a property handle points
// at may have moved or died: a context is destroyed or gets another parent, a value with a
// formula gets another context, an answer leaves its bag or a bag is destroyed. A handle that
// finds the number where it left it knows that its pointers are still good; any other number
// sends it back to a look-up by name. Edits of values do not move it: the root's change counter
// covers those.
class QTreeShape {
public:
    static std::uint64_t Number() { return s_number.load(std::memory_order_relaxed); }
    static void Changed() { s_number.fetch_add(1, std::memory_order_relaxed); }

private:
    static inline std::atomic<std::uint64_t> s_number{0};
};

} // namespace keel
