#include "copy/mounted_source.h"

#include "copy/folder_copy.h"
#include "copy/volume_facts.h"
#include "platform/catalog.h"
#include "platform/iterators.h"
#include "platform/memory.h"
#include "platform/references.h"

// The outermost folder above `ref` that is seen through the same mount.
static OSErr FindTopOfMount(const FSRef* ref, FSVolumeRefNum volume, FSRef* top) {
    *top = *ref;
    for (;;) {
        FSCatalogInfo info;
        FSRef parent;
        OSErr result = FSGetCatalogInfo(top, kFSCatInfoParentDirID, &info, nullptr, nullptr, &parent);
        if (result != noErr || info.parentDirID == kParentOfRoot) return result;
        FSVolumeRefNum above;
        result = FSGetVRefNum(&parent, &above);
        if (result != noErr || above != volume) return result;
        *top = parent;
    }
}

static OSErr AddFolder(GenLinkedList* folders, const FSRef& folder) {
    Ptr copy = NewPtr(sizeof(FSRef));
    if (!copy) return MemError();
    *reinterpret_cast<FSRef*>(copy) = folder;
    const OSErr result = AddToTail(folders, copy);
    if (result != noErr) DisposePtr(copy);
    return result;
}

// Adds the folders in a folder, unless one of them is the one that is looked for.
static OSErr AddFoldersIn(const FSRef& folder, const FSRef* wanted, GenLinkedList* folders) {
    FSIterator iterator;
    OSErr result = FSOpenIterator(&folder, kFSIterateFlat, &iterator);
    if (result != noErr) return result;
    while (result == noErr) {
        ItemCount count;
        FSCatalogInfo info;
        FSRef item;
        result = FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNodeFlags, &info, &item,
                                      nullptr, nullptr);
        if (result != noErr || !(info.nodeFlags & kFSNodeIsDirectoryMask)) continue;
        const OSErr compared = FSCompareFSRefs(&item, wanted);
        if (compared == errFSRefsDifferent)
            result = AddFolder(folders, item);
        else if (compared == noErr)
            result = kDestInsideSourceErr;
        else if (compared != diffVolErr && compared != fnfErr) // another volume's, gone meanwhile
            result = compared;
    }
    FSCloseIterator(iterator);
    return result == errFSNoMoreItems ? OSErr{noErr} : result;
}

static OSErr CheckForFolderInTree(const FSRef* tree, const FSRef* wanted) {
    OSErr result = FSCompareFSRefs(tree, wanted);
    if (result != errFSRefsDifferent) return result == noErr ? kDestInsideSourceErr : result;
    GenLinkedList folders;
    InitLinkedList(&folders, MyDisposeDataProc);
    result = AddFolder(&folders, *tree);
    while (result == noErr && folders.head) {
        const FSRef folder = *static_cast<const FSRef*>(GetData(folders.head));
        RemoveHead(&folders);
        result = AddFoldersIn(folder, wanted, &folders);
    }
    DestroyList(&folders);
    return result;
}

OSErr CheckForMountedSource(const FSRef* source, const FSRef* replaced) {
    FSVolumeRefNum sourceVolume, replacedVolume;
    OSErr result = FSGetVRefNum(source, &sourceVolume);
    if (result == noErr) result = FSGetVRefNum(replaced, &replacedVolume);
    if (result != noErr || sourceVolume == replacedVolume) return result;
    FSRef top;
    result = FindTopOfMount(source, sourceVolume, &top);
    return result == noErr ? CheckForFolderInTree(replaced, &top) : result;
}
