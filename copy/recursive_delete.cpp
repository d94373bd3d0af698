#include "copy/recursive_delete.h"

#include "platform/iterators.h"
#include "platform/objects.h"

// Clears the lock and deletes. kept: an unlock that fails is not reported; the delete that follows then fails
// with the error that callers are to see.
static OSErr UnlockAndDelete(const FSRef* ref, FSCatalogInfo* info) {
    if (info->nodeFlags & kFSNodeLockedMask) {
        info->nodeFlags &= static_cast<uint16_t>(~kFSNodeLockedMask);
        (void)FSSetCatalogInfo(ref, kFSCatInfoNodeFlags, info);
    }
    return FSDeleteObject(ref);
}

// Deletes one item that the iterator gave, a folder's contents before the folder.
static void DeleteItem(const FSRef* item, FSDeleteObjectGlobals* theGlobals) {
    // A deeper level overwrites the shared record.
    const uint16_t nodeFlags = theGlobals->catalogInfo.nodeFlags;
    if (nodeFlags & kFSNodeIsDirectoryMask) FSDeleteFolderLevel(item, theGlobals);
    if (theGlobals->result != noErr) return;
    theGlobals->catalogInfo.nodeFlags = nodeFlags;
    theGlobals->result = UnlockAndDelete(item, &theGlobals->catalogInfo);
}

// kept: one item a read and one iterator a level, so that nothing is buffered and each item is deleted before
// the next is asked for.
void FSDeleteFolderLevel(const FSRef* container, FSDeleteObjectGlobals* theGlobals) {
    FSIterator iterator;
    theGlobals->result = FSOpenIterator(container, kFSIterateDelete, &iterator);
    if (theGlobals->result != noErr) return;

    do {
        FSRef item;
        theGlobals->result =
            FSGetCatalogInfoBulk(iterator, 1, &theGlobals->actualObjects, nullptr, kFSCatInfoNodeFlags,
                                 &theGlobals->catalogInfo, &item, nullptr, nullptr);
        if (theGlobals->result == noErr && theGlobals->actualObjects == 1) DeleteItem(&item, theGlobals);
    } while (theGlobals->result == noErr);

    // The end of this listing is no error for the level above.
    if (theGlobals->result == errFSNoMoreItems) theGlobals->result = noErr;
    (void)FSCloseIterator(iterator);
}

OSErr FSDeleteFolder(const FSRef* container) {
    if (!container) return paramErr;
    FSDeleteObjectGlobals theGlobals;
    theGlobals.result = noErr;
    PlatformBeginTree();
    FSDeleteFolderLevel(container, &theGlobals);
    PlatformEndTree();
    return theGlobals.result;
}

OSErr FSDeleteObjects(const FSRef* source) {
    if (!source) return paramErr;
    FSCatalogInfo info;
    OSErr result = FSGetCatalogInfo(source, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr);
    if (result == noErr && (info.nodeFlags & kFSNodeIsDirectoryMask)) result = FSDeleteFolder(source);
    if (result == noErr) result = UnlockAndDelete(source, &info);
    return result;
}
