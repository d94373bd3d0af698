#include "paths/items.h"

#include "platform/catalog.h"
#include "platform/launch_services.h"

int32_t IsPlainFolder(const FSRef& ref, uint16_t nodeFlags) {
    if (!(nodeFlags & kFSNodeIsDirectoryMask)) return 0;
    LSItemInfoRecord item = {};
    // What cannot be asked about is no package.
    LSCopyItemInfoForRef(&ref, kLSRequestBasicFlagsOnly, &item);
    return !(item.flags & kLSItemInfoIsPackage);
}

int32_t TavMacIsInvisibleFile(const TavChar* name) {
    return name[0] == 0 || name[0] == u'.';
}
