// The leading folders that two paths share.
#include "paths/buffers.h"
#include "paths/drives.h"

#include <algorithm>

// Whether both paths lie on the same volume, or neither on any.
static bool OnSameRoot(const TavChar* path1, const TavChar* path2) {
    TavChar root1[kPathBufferSize + 1];
    TavChar root2[kPathBufferSize + 1];
    int32_t found1 = TavPathGetRoot(path1, root1);
    int32_t found2 = TavPathGetRoot(path2, root2);
    if (!found1 && !found2) return true;
    return found1 && found2 && tav_wcscmpi(root1, root2) == 0;
}

// Whether the common part ends where the shorter path does and a component ends there too.
static bool EndsComponent(const TavChar* path1, uint32_t length1, const TavChar* path2, uint32_t length2) {
    if (length1 > length2) return path1[length2] == u'/';
    if (length2 > length1) return path2[length1] == u'/';
    return true;
}

// Copies what both paths begin with, letter case aside, as the first one has it. Returns its length, and in
// `last` where its last "/" stands (-1 for none).
static int32_t CopyCommon(const TavChar* path1, const TavChar* path2, int32_t limit, TavChar* out,
                          int32_t& last) {
    last = -1;
    int32_t i = 0;
    for (; i < limit && tav_towlower(path1[i]) == tav_towlower(path2[i]); ++i) {
        out[i] = path1[i];
        if (out[i] == u'/') last = i;
    }
    return i;
}

int32_t TavPathCommonPrefix(const TavChar* path1, const TavChar* path2, TavChar* out) {
    if (!OnSameRoot(path1, path2)) {
        out[0] = 0;
        return 0;
    }
    uint32_t length1 = tav_wcslen(path1);
    uint32_t length2 = tav_wcslen(path2);
    int32_t shorter = static_cast<int32_t>(std::min(length1, length2));
    int32_t last;
    int32_t common = CopyCommon(path1, path2, shorter, out, last);
    if (common == shorter && EndsComponent(path1, length1, path2, length2)) last = shorter;
    if (last < 1) {
        // kept: two empty paths give the empty text and yet 1.
        if (common == 0) out[0] = 0;
        out[last + 1] = 0;
        return last + 1;
    }
    out[last] = 0;
    return static_cast<int32_t>(TavPathAddSlash(out) - out);
}
