// Folder iterators.
#pragma once

#include "platform/catalog.h"

using FSIterator = struct OpaqueFSIterator*;
using FSIteratorFlags = uint32_t;

constexpr FSIteratorFlags kFSIterateFlat = 0;
constexpr FSIteratorFlags kFSIterateDelete = 2;

extern "C" {

// Opens an iterator over the direct children of a folder. -1407 when `container` is not a folder. A delete
// iterator on a link yields nothing, and one on a mount point is refused with -47.
OSErr FSOpenIterator(const FSRef* container, FSIteratorFlags iteratorFlags, FSIterator* iterator);

// The next at most `maximumObjects` children, with the facts that `whichInfo` selects; arrays that are not
// asked for are null. -1417 when none is left (`actualObjects` may then still count some that came with it).
// Entries that are there throughout are neither missed nor repeated while others come and go; "." and ".."
// are never shown.
OSErr FSGetCatalogInfoBulk(FSIterator iterator, ItemCount maximumObjects, ItemCount* actualObjects,
                           Boolean* containerChanged, FSCatalogInfoBitmap whichInfo,
                           FSCatalogInfo* catalogInfos, FSRef* refs, FSSpec* specs, HFSUniStr255* names);

OSErr FSCloseIterator(FSIterator iterator);

} // extern "C"
