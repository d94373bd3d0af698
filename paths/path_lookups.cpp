// The helpers that look at what stands at a path.
#include "paths/items.h"
#include "paths/path_reference.h"
#include "platform/catalog.h"

int32_t TavPathIsDirectory(const TavChar* path) {
    FSRef ref;
    Boolean isDirectory;
    if (MakePathRef(path, &ref, &isDirectory) != noErr || !isDirectory) return 0;
    FSCatalogInfo info;
    if (FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr) != noErr) return 0;
    return IsPlainFolder(ref, info.nodeFlags);
}

int32_t TavPathFileExists(const TavChar* path) {
    return MakePathRef(path, nullptr) == noErr;
}
