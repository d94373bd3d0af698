// Copying a folder with everything in it: folder by folder, each read in batches, without recursion.
#pragma once

#include "copy/linked_list.h"
#include "copy/object_copy.h"

constexpr ItemCount kItemsPerBatch = 80;
constexpr uint32_t kParentOfRoot = 1; // the folder number above "/", where no folder is

// What all levels of one folder copy share.
struct FSCopyFolderGlobals {
    const FSRef* sourceDir; // the folder being processed, and its copy
    const FSRef* destDir;
    FSCatalogInfo* catalogInfos; // one batch
    FSRef* refs;
    HFSUniStr255* names;
    GenLinkedList folderList; // FolderListItem: the folders still to visit
    ListPosition position;    // the one being processed
    CopyParams* copyParams;
    FilterParams* filterParams;
    ItemCount maxLevels;   // 0 for no limit
    ItemCount level;       // of the folder being processed; the top one has 0
    const FSRef* newTop;   // the copy's own top folder, which is not entered where the walk meets it
    FSVolumeRefNum volume; // the source's; what is mounted inside it is not part of it
};

// A folder to visit and its copy, already made.
struct FolderListItem {
    FSRef sourceDir;
    FSRef destDir;
    ItemCount level;
};
static_assert(sizeof(FolderListItem) == 164);

// Copies the folder into `destDir`. After a failure the new top folder stays, marked as busy; its reference
// is handed out then, too.
OSErr FSCopyFolder(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                   const HFSUniStr255* newName, CopyParams* params, FilterParams* filter, ItemCount maxLevels,
                   FSRef* newRef, FSSpec* newSpec);

// -1234 when `destDir` is the source or lies inside it.
OSErr CheckForDestInsideSrc(const FSRef* source, const FSRef* destDir);

// Visits the folders of the list, and those that they add to it, to the end or the first error.
OSErr ProcessFolderList(FSCopyFolderGlobals* globals);

// Copies what is in the current folder and puts its sub-folders into the list right behind it.
OSErr CopyFolder(FSCopyFolderGlobals* globals);

// Makes the copy of a sub-folder, with the source's permissions (not in a drop box).
OSErr CreateFolder(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                   const HFSUniStr255* name, CopyParams* params, FSRef* newRef, FSSpec* newSpec);

// Makes a folder that can be filled, with the source's facts and forks.
OSErr DoCreateFolder(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                     const HFSUniStr255* name, CopyParams* params, FSRef* newRef, FSSpec* newSpec);

// The creation date that makes the Finder show a folder as busy. -50 for null.
OSErr GetMagicBusyCreateDate(UTCDateTime* date);

// Disposes of an item that is one block.
void MyDisposeDataProc(void* data);
