// Launch Services: what an item is to a person.
#pragma once

#include "platform/types.h"

using LSRequestedInfo = uint32_t;
using LSItemInfoFlags = uint32_t;

constexpr LSRequestedInfo kLSRequestBasicFlagsOnly = 4;
constexpr LSItemInfoFlags kLSItemInfoIsPackage = 0x00000002;

struct LSItemInfoRecord {
    LSItemInfoFlags flags;
};

extern "C" {

// Tells packages, folders that show as one file, from other items. `info` is all zero for others and after a
// failure (-43 when the object is gone, -50 for a null argument).
OSStatus LSCopyItemInfoForRef(const FSRef* itemRef, LSRequestedInfo whichInfo, LSItemInfoRecord* info);

} // extern "C"
