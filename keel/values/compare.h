#pragma once

#include "keel/platform/cstring.h"

#include <cstdint>
#include <type_traits>

// The key functions of the containers. QArray and QMap call them unqualified, so an overload
// declared beside any other type in namespace keel (interned strings, lengths with their
// tolerance) is found by argument-dependent lookup when the container is instantiated.

namespace keel {

// Keeps the high half of a wide value in the hash instead of dropping it.
constexpr unsigned FoldToUnsigned(std::uint64_t bits) {
    return static_cast<unsigned>(bits ^ (bits >> 32));
}

template <class T>
requires std::is_integral_v<T> || std::is_enum_v<T> || std::is_pointer_v<T>
unsigned HashKey(const T& key) {
    if constexpr (std::is_pointer_v<T>)
        return FoldToUnsigned(reinterpret_cast<std::uintptr_t>(key));
    else if constexpr (sizeof(T) > sizeof(unsigned))
        return FoldToUnsigned(static_cast<std::uint64_t>(key));
    else
        return static_cast<unsigned>(key);
}

// FNV-1 over the 16-bit code units; the empty string hashes to the offset basis.
inline unsigned HashKey(const CString& key) {
    std::uint32_t hash = 0x811c9dc5u;
    for (char16_t unit : key.View()) {
        hash *= 16777619u;
        hash ^= unit;
    }
    return hash;
}

template <class T>
int COMPARE(const T& a, const T& b) {
    if (a < b)
        return -1;
    if (b < a)
        return 1;
    return 0;
}

inline int COMPARE(const CString& a, const CString& b) {
    return a.Compare(b);
}

// A type with no notion of case compares as COMPARE does.
template <class T>
int COMPARENOCASE(const T& a, const T& b) {
    return COMPARE(a, b);
}

inline int COMPARENOCASE(const CString& a, const CString& b) {
    return a.CompareNoCase(b);
}

} // namespace keel
