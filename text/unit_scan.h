// What the text functions search and compare with: each operation as a plain loop, and by blocks of 16 units
// where the processor has registers of 32 bytes. Both give the same results.
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

#if defined(__x86_64__) && !defined(TAV_SANITIZED)
#define TAV_UNIT_BLOCKS 1
#else
#define TAV_UNIT_BLOCKS 0
#endif

// How much a search for a text may compare in vain before one that never looks back is the better one.
class Patience {
public:
    explicit Patience(const TavChar* start) : start_(start) {}

    // Whether it is over at `place`, where as many more units were compared.
    bool IsOver(const TavChar* place, size_t compared) {
        compared_ += compared;
        return isOver_ = compared_ > kSpare + static_cast<size_t>(place - start_);
    }
    bool IsOver() const { return isOver_; }

private:
    static constexpr size_t kSpare = 256;

    const TavChar* start_;
    size_t compared_ = 0;
    bool isOver_ = false;
};

enum class Fold { None, Ascii };

namespace plain {

// The address of the first unit equal to `unit`, or of the terminator when that comes first.
const TavChar* FindOrEnd(const TavChar* s, TavChar unit);

// The last unit before the terminator that equals `unit`, null if none.
const TavChar* FindLast(const TavChar* s, TavChar unit);

// The first place where a needle of at least two units stands, null if there is none; or, when that takes more
// than patience allows, a place in front of which there is none.
const TavChar* FindNeedle(const TavChar* s, const TavChar* needle, size_t length, Patience& patience);

// How many units the texts have in common before they differ, end, or reach `limit`; with Fold::Ascii the
// capitals A to Z count as small letters.
template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit);

} // namespace plain

#if TAV_UNIT_BLOCKS
namespace blocks {

// Whether this processor can run the functions below.
inline bool Available() {
    return __builtin_cpu_supports("avx2");
}

const TavChar* FindOrEnd(const TavChar* s, TavChar unit);
const TavChar* FindLast(const TavChar* s, TavChar unit);
const TavChar* FindNeedle(const TavChar* s, const TavChar* needle, size_t length, Patience& patience);
template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit);

// The address of the terminator.
const TavChar* FindEnd(const TavChar* s);

} // namespace blocks
#endif

// The fastest form that this processor has.
namespace scan {

inline const TavChar* FindOrEnd(const TavChar* s, TavChar unit) {
#if TAV_UNIT_BLOCKS
    if (blocks::Available()) return blocks::FindOrEnd(s, unit);
#endif
    return plain::FindOrEnd(s, unit);
}

inline const TavChar* FindLast(const TavChar* s, TavChar unit) {
#if TAV_UNIT_BLOCKS
    if (blocks::Available()) return blocks::FindLast(s, unit);
#endif
    return plain::FindLast(s, unit);
}

inline const TavChar* FindNeedle(const TavChar* s, const TavChar* needle, size_t length, Patience& patience) {
#if TAV_UNIT_BLOCKS
    if (blocks::Available()) return blocks::FindNeedle(s, needle, length, patience);
#endif
    return plain::FindNeedle(s, needle, length, patience);
}

template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit) {
#if TAV_UNIT_BLOCKS
    if (blocks::Available()) return blocks::CommonLength<fold>(a, b, limit);
#endif
    return plain::CommonLength<fold>(a, b, limit);
}

// Units before the terminator.
inline size_t Length(const TavChar* s) {
#if TAV_UNIT_BLOCKS
    if (blocks::Available()) return static_cast<size_t>(blocks::FindEnd(s) - s);
#endif
    return static_cast<size_t>(plain::FindOrEnd(s, 0) - s);
}

} // namespace scan
