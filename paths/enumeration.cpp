// Listing folders in the find-first, find-next manner.
#include "paths/enumeration.h"

#include "paths/find_data.h"
#include "paths/items.h"
#include "paths/path_reference.h"

#include <algorithm>
#include <memory>
#include <new>

namespace {

struct Item {
    FSRef ref;
    FSCatalogInfo info = {}; // what the catalog does not fill for an item is 0
    TavChar name[256];

    // The name as the catalog gave it, zero-terminated.
    void SetName(const HFSUniStr255& given) {
        TavChar* end = std::copy_n(given.unicode, std::min<uint16_t>(given.length, 255), name);
        *end = 0;
    }
};

} // namespace

// Whether a path asks for everything in a folder: it is longer than one unit and ends in "/*".
static bool EndsInStar(const TavChar* path) {
    uint32_t length = tav_wcslen(path);
    return length > 1 && path[length - 1] == u'*' && path[length - 2] == u'/';
}

// Copies the path of the object that a search looks at to `target` (kPathBufferSize + kParentGrowth units):
// the path itself, or its folder where the last component begins with "*". Returns the exact name sought,
// else null.
static const TavChar* SplitPath(const TavChar* path, TavChar* target) {
    tav_wcscpy(target, path);
    if (!EndsInStar(path) && TavPathIsDirectory(path)) return nullptr;
    const TavChar* component = TavPathFindFileName(path);
    if (*component == 0) return nullptr;
    if (*component != u'*') return component;
    // kept: whatever follows the star, everything is listed.
    TavPathRemoveFileSpec(target);
    return nullptr;
}

static bool Matches(const TavFindSearch& search, const Item& item) {
    return !search.hasPattern || tav_wcscmpi(item.name, search.pattern) == 0;
}

static bool ReadObject(const TavChar* path, Item& item) {
    HFSUniStr255 name;
    // kept: a link found by its exact name has its target's size and times; a listing shows the link's own.
    if (MakePathRef(path, &item.ref) != noErr) return false;
    if (FSGetCatalogInfo(&item.ref, kReportedInfo, &item.info, &name, nullptr, nullptr) != noErr)
        return false;
    item.SetName(name);
    return true;
}

static bool ReadNext(FSIterator iterator, Item& item) {
    HFSUniStr255 name;
    ItemCount count = 0;
    if (FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kReportedInfo, &item.info, &item.ref, nullptr,
                             &name) != noErr)
        return false;
    if (count == 0) return false;
    item.SetName(name);
    return true;
}

// Opens the search's iterator where that has not been done.
static bool IsListing(TavFindSearch& search) {
    if (search.iterator) return true;
    TavChar target[kPathBufferSize + kParentGrowth];
    SplitPath(search.path, target);
    FSRef ref;
    FSIterator iterator;
    // An exact name ends here, unless it names a package.
    if (MakePathRef(target, &ref) != noErr || FSOpenIterator(&ref, kFSIterateFlat, &iterator) != noErr)
        return false;
    search.iterator = iterator;
    return true;
}

TavFindSearch* TavFindFirstFile(const TavChar* lpFileName, TavFindDataW* lpFindFileData) {
    lpFindFileData->dwFileAttributes = 0;
    if (tav_wcslen(lpFileName) >= kPathBufferSize) return TAV_INVALID_FIND;
    std::unique_ptr<TavFindSearch> search(new (std::nothrow) TavFindSearch());
    if (!search) return TAV_INVALID_FIND;
    tav_wcscpy(search->path, lpFileName);
    TavChar target[kPathBufferSize + kParentGrowth];
    if (const TavChar* name = SplitPath(search->path, target)) {
        tav_wcscpy(search->pattern, name);
        search->hasPattern = 1;
    }
    Item item;
    if (!ReadObject(target, item) || !Matches(*search, item)) return TAV_INVALID_FIND;
    bool isFolder = IsPlainFolder(item.ref, item.info.nodeFlags);
    FillFindData(item.info, isFolder, isFolder ? u"." : item.name, *lpFindFileData);
    return search.release();
}

int32_t TavFindNextFile(TavFindSearch* hFindFile, TavFindDataW* lpFindFileData) {
    lpFindFileData->dwFileAttributes = 0;
    if (!IsListing(*hFindFile)) return 0;
    Item item;
    do {
        if (!ReadNext(hFindFile->iterator, item)) return 0;
    } while (!Matches(*hFindFile, item));
    FillFindData(item.info, IsPlainFolder(item.ref, item.info.nodeFlags), item.name, *lpFindFileData);
    return 1;
}

int32_t TavFindClose(TavFindSearch* hFindFile) {
    if (hFindFile->iterator) FSCloseIterator(hFindFile->iterator);
    delete hFindFile;
    return 1;
}
