#include "vpath/segments.h"

uint32_t SegLen(const TavChar* s) { return tav_wcslen(s); }

int32_t SegCmp(const TavChar* a, const TavChar* b) {
    if (!a || !b) return (b ? 1 : 0) - (a ? 1 : 0);
    while (*a && *a == *b) ++a, ++b;
    return (*a > *b) - (*a < *b);
}
