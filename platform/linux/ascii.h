// ASCII among 16-bit units, by blocks: every machine has a lowering for the compiler's own vectors.
#pragma once

#include "platform/types.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ascii {

constexpr size_t kBlock = 8; // units
using Block = uint16_t __attribute__((vector_size(kBlock * sizeof(UniChar))));

inline void Load(Block& block, const UniChar* units) {
    memcpy(&block, units, sizeof block);
}

inline bool IsZero(const Block& block) {
    uint64_t halves[2];
    memcpy(halves, &block, sizeof halves);
    return (halves[0] | halves[1]) == 0;
}

// Turns the ASCII letters from `first` to `first` + 25 into the other case.
inline void SwitchCase(Block& block, UniChar first) {
    // A character type would not do as the other operand: Clang 14 falls over it.
    const Block place = block - static_cast<uint16_t>(first);
    const Block isLetter = reinterpret_cast<Block>(place < Block{} + uint16_t{26});
    block ^= isLetter & 0x20;
}

inline bool IsAscii(const UniChar* units, size_t n) {
    Block seen = {};
    size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        Block block;
        Load(block, units + i);
        seen |= block;
    }
    UniChar rest = 0;
    for (; i < n; ++i) rest |= units[i];
    return IsZero(seen & 0xFF80) && rest < 0x80;
}

} // namespace ascii
