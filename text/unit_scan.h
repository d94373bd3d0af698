// What the text functions search and compare with: each operation as a plain loop, and by blocks of eight
// units where the machine has vector registers of 16 bytes. Both give the same results.
//
// The block forms read beyond a text's end, but never into a page that the text does not touch. Sanitizers
// would call that an error, so their builds use the plain loops.
#pragma once

#include "TavPort.h"

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define TAV_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAV_SANITIZED 1
#endif

#if defined(__SSE2__) && !defined(TAV_SANITIZED)
#define TAV_UNIT_BLOCKS 1
#else
#define TAV_UNIT_BLOCKS 0
#endif

enum class Fold { None, Ascii };

namespace plain {

// The address of the first unit equal to `unit`, or of the terminator when that comes first.
const TavChar* FindOrEnd(const TavChar* s, TavChar unit);

// The last unit before the terminator that equals `unit`, null if none.
const TavChar* FindLast(const TavChar* s, TavChar unit);

// How many units the texts have in common before they differ, end, or reach `limit`; with Fold::Ascii the
// capitals A to Z count as small letters.
template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit);

} // namespace plain

#if TAV_UNIT_BLOCKS
namespace blocks {

const TavChar* FindOrEnd(const TavChar* s, TavChar unit);
const TavChar* FindLast(const TavChar* s, TavChar unit);
template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit);

// The address of the terminator.
const TavChar* FindEnd(const TavChar* s);

} // namespace blocks
#endif

namespace scan {

#if TAV_UNIT_BLOCKS
using blocks::CommonLength;
using blocks::FindLast;
using blocks::FindOrEnd;
#else
using plain::CommonLength;
using plain::FindLast;
using plain::FindOrEnd;
#endif

// Units before the terminator.
inline size_t Length(const TavChar* s) {
#if TAV_UNIT_BLOCKS
    return static_cast<size_t>(blocks::FindEnd(s) - s);
#else
    return static_cast<size_t>(plain::FindOrEnd(s, 0) - s);
#endif
}

} // namespace scan
