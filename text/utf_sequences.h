// Strict conversion of counted texts between UTF-8 and UTF-16, one character after the other but for runs of
// ASCII; with blocks of other characters where the machine has them. Both ways give the same results.
#pragma once

#include "TavPort.h"

#include <cstddef>
#include <cstdint>

namespace utf {

constexpr bool IsContinuation(uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}
constexpr bool IsLowSurrogate(uint32_t v) {
    return (v & 0xFFFFFC00) == 0xDC00;
}

enum class Way { Plain, Blocks };

// The fastest way that this machine has.
Way BestWay();

// Converts n bytes, behind which stands a terminator, into at most n units; how many, or -1 for malformed
// text. Room for n units is all that is written to.
ptrdiff_t Decode(const uint8_t* in, size_t n, TavChar* out, Way way);

// Converts n units into at most 3n bytes; how many, or -1 for malformed text. Room for 3n + 1 bytes is all
// that is written to.
ptrdiff_t Encode(const TavChar* in, size_t n, uint8_t* out, Way way);

} // namespace utf
