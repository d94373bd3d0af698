// What a search among paths compares instead of the paths: sixteen of their units in two numbers.
#pragma once

#include "TavPort.h"

#include <cstddef>
#include <cstdint>

// Orders as the paths do of which it is made. A unit that does not fit in a byte ends it with the highest
// byte, so that different paths may have the same key.
struct PathKey {
    static constexpr size_t kUnits = 16;

    PathKey() = default;

    // Of the units of a path from `from` on, of which it has `length` altogether, at least `from`.
    PathKey(const TavChar* path, size_t length, size_t from);

    uint64_t first = 0;
    uint64_t second = 0;
};

inline bool operator==(const PathKey& a, const PathKey& b) {
    return a.first == b.first && a.second == b.second;
}

// Without branches: in a search half of them would be foreseen wrongly.
inline bool operator<(const PathKey& a, const PathKey& b) {
#ifdef __SIZEOF_INT128__
    __extension__ typedef unsigned __int128 Whole;
    return (Whole{a.first} << 64 | a.second) < (Whole{b.first} << 64 | b.second);
#else
    return (a.first < b.first) | ((a.first == b.first) & (a.second < b.second));
#endif
}
