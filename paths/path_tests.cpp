// The helpers that answer questions about the text of a path.
#include "TavPort.h"
#include "paths/buffers.h"

#include <algorithm>

int32_t TavPathIsRoot(const TavChar* path) {
    uint32_t length = tav_wcslen(path);
    if (length == 1) return path[0] == u'/';
    // No volume has a root path that fills the buffer.
    if (length <= 9 || length >= kPathBufferSize) return 0;
    TavChar parent[kPathBufferSize + kParentGrowth];
    tav_wcscpy(parent, path);
    TavPathRemoveFileSpec(parent);
    return tav_wcslen(parent) == 8 && tav_wcscmpi(parent, u"/Volumes") == 0;
}

int32_t TavPathIsUNC(const TavChar*) {
    return 0;
}

int32_t TavPathIsSubOnPath(const TavChar* path, const TavChar* prefix) {
    uint32_t length = tav_wcslen(prefix);
    if (length > tav_wcslen(path) || length >= kPathBufferSize) return 0;
    TavChar start[kPathBufferSize];
    std::copy_n(path, length, start);
    start[length] = 0;
    // kept: the prefix may end inside a component.
    return tav_wcscmpi(start, prefix) == 0;
}
