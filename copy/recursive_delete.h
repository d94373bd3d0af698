// The one delete engine: a file, or a folder with everything inside it. Locked items are unlocked just before
// they go.
#pragma once

#include "platform/catalog.h"

// What every level of one folder delete shares, so that a deep recursion does not carry a catalog record a
// level.
struct FSDeleteObjectGlobals {
    FSCatalogInfo catalogInfo; // the item in hand; only its node flags are ever asked for
    ItemCount actualObjects;   // how many items the last bulk read gave, 0 or 1
    OSErr result;              // the first error stops every level
};

// Deletes the object, a folder with its contents. -50 for null, or the first error met; what was deleted
// before it stays deleted.
OSErr FSDeleteObjects(const FSRef* source);

// Deletes everything inside a folder but not the folder itself. -50 for null, or the first error met.
OSErr FSDeleteFolder(const FSRef* container);

// Deletes the contents of one folder, sub-folders first, and reports through `theGlobals->result`.
void FSDeleteFolderLevel(const FSRef* container, FSDeleteObjectGlobals* theGlobals);
