// Conversion between UTF-8 and UTF-16 by blocks of 32 bytes, whatever characters they hold, for processors
// that have registers of that size.
#pragma once

#include "TavPort.h"

#include <cstddef>
#include <cstdint>

#if defined(__x86_64__)
#define TAV_UTF_BLOCKS 1
#else
#define TAV_UTF_BLOCKS 0
#endif

#if TAV_UTF_BLOCKS
namespace utf {

// Whether this processor can run the functions below.
bool HasBlocks();

// How much converted text must stand in front of what the functions below are given.
constexpr size_t kBytesBefore = 3;
constexpr size_t kUnitsBefore = 1;

// Each converts a text from the beginning of a character to its end, and gives the end of what it wrote; null
// for malformed text. What they write needs the room of the worst case: a unit a byte, or three bytes a unit
// and one for the terminator. Of the memory behind a text they read its terminator only.
TavChar* DecodeBlocks(const uint8_t* in, const uint8_t* end, TavChar* out);
uint8_t* EncodeBlocks(const TavChar* in, const TavChar* end, uint8_t* out);

} // namespace utf
#endif
