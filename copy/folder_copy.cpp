#include "copy/folder_copy.h"

#include "copy/file_copy.h"
#include "copy/finder_info.h"
#include "copy/fork_copy.h"
#include "copy/volume_facts.h"
#include "platform/clock.h"
#include "platform/iterators.h"
#include "platform/objects.h"
#include "platform/references.h"

#include <atomic>

OSErr GetMagicBusyCreateDate(UTCDateTime* date) {
    // 14 February 1946, 00:34:56 local time, in seconds since 1904.
    constexpr uint32_t kBusyLocalSeconds = 1329266096;
    constexpr uint32_t kNotComputed = 0xDEADBEEF;
    static std::atomic<uint32_t> lowSeconds = kNotComputed;

    if (!date) return paramErr;
    uint32_t seconds = lowSeconds.load(std::memory_order_relaxed);
    if (seconds == kNotComputed) {
        LocalDateTime local{0, kBusyLocalSeconds, 0};
        UTCDateTime utc;
        OSStatus result = ConvertLocalTimeToUTC(&local, &utc);
        if (result != noErr) return static_cast<OSErr>(result);
        seconds = utc.lowSeconds;
        lowSeconds.store(seconds, std::memory_order_relaxed);
    }
    *date = {0, seconds, 0};
    return noErr;
}

OSErr CheckForDestInsideSrc(const FSRef* source, const FSRef* destDir) {
    FSRef current = *destDir;
    uint32_t parentID = 0;
    do {
        OSErr compared = FSCompareFSRefs(source, &current);
        if (compared == noErr) return kDestInsideSourceErr;
        if (compared == diffVolErr) return noErr;
        if (compared != errFSRefsDifferent) return compared;

        FSCatalogInfo info;
        FSRef parent;
        OSErr result = FSGetCatalogInfo(&current, kFSCatInfoParentDirID, &info, nullptr, nullptr, &parent);
        if (result != noErr) return result;
        current = parent;
        parentID = info.parentDirID;
    } while (parentID != kParentOfRoot);
    return noErr;
}

void MyDisposeDataProc(void* data) {
    if (data) DisposePtr(static_cast<Ptr>(data));
}

OSErr DoCreateFolder(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                     const HFSUniStr255* name, CopyParams* params, FSRef* newRef, FSSpec* newSpec) {
    FSCatalogInfo info = *sourceInfo;
    ClearHasBeenPlaced(info);
    info.permissions.mode |= kOwnerAccess;
    OSErr result = FSCreateDirectoryUnicode(destDir, name->length, name->unicode, kFSCatInfoSettableInfo,
                                            &info, newRef, newSpec, nullptr);
    return result == noErr ? CopyForks(source, newRef, params) : result;
}

OSErr CreateFolder(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                   const HFSUniStr255* name, CopyParams* params, FSRef* newRef, FSSpec* newSpec) {
    OSErr result = DoCreateFolder(source, destDir, sourceInfo, name, params, newRef, newSpec);
    if (result == noErr && !params->copyingToDropBox)
        result = FSSetCatalogInfo(newRef, kFSCatInfoPermissions, sourceInfo);
    return result;
}

// Appends a folder to visit; the item is the list's afterwards.
static OSErr AddFolder(GenLinkedList* list, const FSRef& source, const FSRef& dest, ItemCount level) {
    auto item = reinterpret_cast<FolderListItem*>(NewPtr(sizeof(FolderListItem)));
    if (!item) return MemError();
    *item = {source, dest, level};
    OSErr result = AddToTail(list, item);
    if (result != noErr) DisposePtr(reinterpret_cast<Ptr>(item));
    return result;
}

// Whether the walk goes into a sub-folder: not at the depth limit, and not where another volume is mounted on
// it.
static OSErr IsEntered(const FSCopyFolderGlobals* globals, const FSRef& folder, bool* isEntered) {
    *isEntered = globals->maxLevels == 0 || globals->level + 1 < globals->maxLevels;
    if (!*isEntered) return noErr;
    FSVolumeRefNum volume;
    OSErr result = FSGetVRefNum(&folder, &volume);
    *isEntered = result == noErr && volume == globals->volume;
    return result;
}

// Makes the copy of a sub-folder and remembers to visit it where it is to be entered.
static OSErr CopySubFolder(FSCopyFolderGlobals* globals, ItemCount index, GenLinkedList* subFolders,
                           FSRef* newRef, FSSpec* newSpec) {
    const FSRef& source = globals->refs[index];
    // The new top folder may lie in the source by way of another mount of the same folder; a copy of it would
    // never end.
    if (FSCompareFSRefs(&source, globals->newTop) == noErr) return kDestInsideSourceErr;
    OSErr result = CreateFolder(&source, globals->destDir, &globals->catalogInfos[index],
                                &globals->names[index], globals->copyParams, newRef, newSpec);
    bool isEntered = false;
    if (result == noErr) result = IsEntered(globals, source, &isEntered);
    if (result != noErr || !isEntered) return result;
    return AddFolder(subFolders, source, *newRef, globals->level + 1);
}

// Copies one item of the batch. kept: an item that fails is skipped; only a filter can make it stop the copy.
static OSErr CopyItem(FSCopyFolderGlobals* globals, ItemCount index, GenLinkedList* subFolders) {
    const FilterParams* filter = globals->filterParams;
    const FSCatalogInfo* info = &globals->catalogInfos[index];
    const HFSUniStr255* name = &globals->names[index];
    Boolean isFolder = (info->nodeFlags & kFSNodeIsDirectoryMask) != 0;
    FSRef copy{};
    FSSpec spec{};
    FSSpec* wantedSpec = filter->wantFSSpec ? &spec : nullptr;
    OSErr result = isFolder ? CopySubFolder(globals, index, subFolders, &copy, wantedSpec)
                            : CopyFile(&globals->refs[index], info, globals->destDir, name,
                                       globals->copyParams, &copy, wantedSpec);
    if (!filter->filterProc) return noErr;
    return AskFilter(filter, isFolder, globals->level + 1, result, info, &copy, &spec, name,
                     globals->destDir);
}

// What the end of a listing means: a folder that may not be read is copied as far as it was listed.
static OSErr EndOfListing(OSErr result) {
    return result == errFSNoMoreItems || result == afpAccessDenied ? noErr : result;
}

// Reads the current folder in batches and copies each item.
static OSErr CopyItems(FSCopyFolderGlobals* globals, FSIterator iterator, GenLinkedList* subFolders) {
    for (;;) {
        ItemCount count = 0;
        OSErr listing =
            FSGetCatalogInfoBulk(iterator, kItemsPerBatch, &count, nullptr, kFSCatInfoSettableInfo,
                                 globals->catalogInfos, globals->refs, nullptr, globals->names);
        if (listing != noErr && listing != errFSNoMoreItems) return EndOfListing(listing);
        for (ItemCount i = 0; i < count; ++i) {
            OSErr result = CopyItem(globals, i, subFolders);
            if (result != noErr) return result;
        }
        if (listing != noErr) return noErr;
    }
}

OSErr CopyFolder(FSCopyFolderGlobals* globals) {
    GenLinkedList subFolders;
    InitLinkedList(&subFolders, MyDisposeDataProc);
    FSIterator iterator;
    OSErr result = FSOpenIterator(globals->sourceDir, kFSIterateFlat, &iterator);
    if (result != noErr) return EndOfListing(result);
    result = CopyItems(globals, iterator, &subFolders);
    InsertList(&globals->folderList, &subFolders, globals->position);
    FSCloseIterator(iterator);
    return result;
}

// What has been visited goes from the head, so that the list never holds more than what is still to visit.
OSErr ProcessFolderList(FSCopyFolderGlobals* globals) {
    for (;;) {
        InitIterator(&globals->folderList, &globals->position);
        if (!globals->position) return noErr;
        auto item = static_cast<const FolderListItem*>(GetData(globals->position));
        globals->sourceDir = &item->sourceDir;
        globals->destDir = &item->destDir;
        globals->level = item->level;
        OSErr result = CopyFolder(globals);
        if (result != noErr) return result;
        RemoveHead(&globals->folderList);
    }
}

// One block for each of the batch's arrays; the memory error when one cannot be had.
static OSErr AllocateBatch(FSCopyFolderGlobals* globals) {
    globals->catalogInfos = reinterpret_cast<FSCatalogInfo*>(NewPtr(kItemsPerBatch * sizeof(FSCatalogInfo)));
    if (!globals->catalogInfos) return MemError();
    globals->refs = reinterpret_cast<FSRef*>(NewPtr(kItemsPerBatch * sizeof(FSRef)));
    if (!globals->refs) return MemError();
    globals->names = reinterpret_cast<HFSUniStr255*>(NewPtr(kItemsPerBatch * sizeof(HFSUniStr255)));
    return globals->names ? noErr : MemError();
}

static void DisposeBatch(FSCopyFolderGlobals* globals) {
    DisposePtr(reinterpret_cast<Ptr>(globals->catalogInfos));
    DisposePtr(reinterpret_cast<Ptr>(globals->refs));
    DisposePtr(reinterpret_cast<Ptr>(globals->names));
}

// Makes the top folder, marked as busy, and asks the filter about it.
static OSErr CreateTopFolder(FSCopyFolderGlobals* globals, const FSRef* source, const FSRef* destDir,
                             const FSCatalogInfo* sourceInfo, const HFSUniStr255* newName, FSRef* newTop,
                             FSSpec* newSpec) {
    FSCatalogInfo info = *sourceInfo;
    OSErr result = noErr;
    if (!globals->copyParams->copyingToDropBox) result = GetMagicBusyCreateDate(&info.createDate);
    if (result == noErr)
        result = DoCreateFolder(source, destDir, &info, newName, globals->copyParams, newTop, newSpec);
    return AskFilter(globals->filterParams, true, 0, result, sourceInfo, newTop, newSpec, newName, destDir);
}

OSErr FSCopyFolder(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                   const HFSUniStr255* newName, CopyParams* params, FilterParams* filter, ItemCount maxLevels,
                   FSRef* newRef, FSSpec* newSpec) {
    if (!source || !destDir || !sourceInfo || !newName || !params || !filter) return paramErr;
    FSRef newTop{};
    FSSpec spec{};
    FSCopyFolderGlobals globals{};
    globals.copyParams = params;
    globals.filterParams = filter;
    globals.maxLevels = maxLevels;
    globals.newTop = &newTop;
    InitLinkedList(&globals.folderList, MyDisposeDataProc);

    OSErr result = AllocateBatch(&globals);
    if (result == noErr) result = FSGetVRefNum(source, &globals.volume);
    if (!filter->filterProc) PlatformBeginTree(); // a filter may put anything there between the items
    bool wantSpec = newSpec || filter->wantFSSpec;
    if (result == noErr)
        result = CreateTopFolder(&globals, source, destDir, sourceInfo, newName, &newTop,
                                 wantSpec ? &spec : nullptr);
    if (result == noErr) result = AddFolder(&globals.folderList, *source, newTop, 0);
    if (result == noErr) result = ProcessFolderList(&globals);
    DestroyList(&globals.folderList);
    PlatformEndTree();

    // The real creation date takes the busy mark away; after a failure the mark stays on what was copied.
    if (result == noErr && !params->copyingToDropBox)
        result = FSSetCatalogInfo(&newTop, kFSCatInfoCreateDate | kFSCatInfoPermissions, sourceInfo);
    if (newRef) *newRef = newTop;
    if (result == noErr && newSpec) *newSpec = spec;
    DisposeBatch(&globals);
    return result;
}
