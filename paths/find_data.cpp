#include "paths/find_data.h"

#include "paths/items.h"

constexpr uint16_t kFinderInvisible = 0x4000;

// Big-endian bytes on every host: records compare with memcmp and may be stored.
static void StoreTime(const UTCDateTime& time, TavFileTime& stored) {
    uint64_t bits = uint64_t(time.highSeconds) << 48 | uint64_t(time.lowSeconds) << 16 | time.fraction;
    for (int i = 7; i >= 0; --i, bits >>= 8) stored.bytes[i] = static_cast<uint8_t>(bits);
}

static bool IsNoTime(const UTCDateTime& time) {
    return time.highSeconds == 0 && time.lowSeconds == 0 && time.fraction == 0;
}

static bool IsFinderInvisible(const FSCatalogInfo& info) {
    // Files and folders keep the Finder's flags in the same place.
    uint16_t flags = static_cast<uint16_t>(info.finderInfo[8] << 8 | info.finderInfo[9]);
    return flags & kFinderInvisible;
}

static void StoreTimesAndSize(const FSCatalogInfo& info, TavFindDataW& data) {
    StoreTime(IsNoTime(info.createDate) ? info.contentModDate : info.createDate, data.ftCreationTime);
    StoreTime(info.accessDate, data.ftLastAccessTime);
    StoreTime(info.contentModDate, data.ftLastWriteTime);
    // kept: the space that the data takes, not its length.
    data.nFileSizeHigh = static_cast<uint32_t>(info.dataPhysicalSize >> 32);
    data.nFileSizeLow = static_cast<uint32_t>(info.dataPhysicalSize);
}

void FillFindData(const FSCatalogInfo& info, bool isFolder, const TavChar* name, TavFindDataW& data) {
    bool isHidden = IsFinderInvisible(info) || TavMacIsInvisibleFile(name);
    data.dwFileAttributes =
        (isFolder ? TAV_FILE_ATTRIBUTE_DIRECTORY : 0) | (isHidden ? TAV_FILE_ATTRIBUTE_HIDDEN : 0);
    StoreTimesAndSize(info, data);
    tav_wcscpy(data.cFileName, name);
}
