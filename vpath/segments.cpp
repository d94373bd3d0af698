#include "vpath/segments.h"

#include "text/unit_scan.h"

uint32_t SegLen(const TavChar* s) {
    return tav_wcslen(s);
}

int32_t SegCmp(const TavChar* a, const TavChar* b) {
    if (!a || !b) return (b ? 1 : 0) - (a ? 1 : 0);
    const size_t common = scan::CommonLength<Fold::None>(a, b, SIZE_MAX);
    return (a[common] > b[common]) - (a[common] < b[common]);
}
