// Small helpers that are private to each source file that uses them.
#pragma once

#include "platform/atomics.h"
#include "platform/strings.h"

// The next unit's address. The unit itself is not looked at: this steps past a terminator too.
static inline const TavChar* CharNextW(const TavChar* p) {
    return p + 1;
}

// Units before the terminator; 0 for null.
static inline uint32_t lstrlenW(const TavChar* s) {
    return tav_wcslen(s);
}

// Decrements and gives the new value.
static inline int32_t InterlockedDecrement(int32_t* value) {
    return DecrementAtomic(value) - 1;
}

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    return {location, length};
}
