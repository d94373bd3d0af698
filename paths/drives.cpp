// Drive functions for a system without drive letters: a drive is a mounted volume, named by its root folder.
#include "paths/drives.h"

#include "paths/buffers.h"
#include "paths/released.h"
#include "platform/references.h"

#include <cstring>

namespace {

// A volume's root path, zero-terminated, with room for a "/".
struct RootText {
    TavChar units[kPathBufferSize + 1] = {};
    uint32_t length = 0;
};

} // namespace

// Converts a root folder's path to units, without a terminator; the number of units, 0 when there is no path.
static uint32_t RootUnits(const FSRef& root, TavChar* out) {
    char path[kPathBufferSize];
    if (FSRefMakePath(&root, reinterpret_cast<uint8_t*>(path), sizeof path) != noErr) return 0;
    Released<CFStringRef> text(CFStringCreateWithCString(nullptr, path, kCFStringEncodingUTF8));
    if (!text) return 0;
    CFIndex length = CFStringGetLength(text.get());
    CFStringGetCharacters(text.get(), {0, length}, out);
    return static_cast<uint32_t>(length);
}

static bool MakeRootText(const FSRef& root, RootText& text) {
    text.length = RootUnits(root, text.units);
    return text.length > 0;
}

static bool LiesOn(const TavChar* path, const RootText& root) {
    if (tav_wcsnicmp(path, root.units, root.length) != 0) return false;
    return path[root.length] == 0 || path[root.length] == u'/';
}

uint32_t TavGetLogicalDriveStrings(uint32_t length, TavChar* buffer) {
    // kept: the length counts units but clears bytes, so only half of a buffer of that length; the list's end
    // is there because callers zero the rest or look at the result.
    if (length > 0) memset(buffer, 0, length);
    uint32_t written = 0;
    FSRef root;
    for (ItemCount index = 1;; ++index) {
        FSVolumeInfo info;
        if (FSGetVolumeInfo(kFSInvalidVolumeRefNum, index, nullptr, kFSVolInfoNone, &info, nullptr, &root) !=
            noErr)
            return written;
        RootText text;
        if (!MakeRootText(root, text)) continue;
        TavPathAddSlash(text.units);
        uint32_t n = tav_wcslen(text.units);
        // kept: a short buffer stops only the volume that does not fit. With length 0 the subtraction wraps,
        // and later volumes are written at their places: callers pass a buffer that holds the whole list.
        if (length - written < n) {
            length = 0;
        } else {
            tav_wcscpy(buffer + written, text.units);
        }
        written += n + 1;
    }
}

int32_t TavPathGetRoot(const TavChar* path, TavChar* out) {
    FSRef root;
    FSVolumeInfoParam block{};
    block.ref = &root;
    for (block.volumeIndex = 1; PBGetVolumeInfoSync(&block) == noErr;
         ++block.volumeIndex, block.ioVRefNum = 0) {
        RootText text;
        if (!MakeRootText(root, text)) continue;
        bool isStartup = text.length == 1 && text.units[0] == u'/';
        if (isStartup || !LiesOn(path, text)) continue;
        tav_wcscpy(out, text.units);
        TavPathAddSlash(out);
        return 1;
    }
    if (path[0] != u'/' && path[0] != u'~') return 0;
    out[0] = u'/';
    out[1] = 0;
    return 1;
}

int32_t TavGetPathDriver(const TavChar* path, TavChar* out) {
    return TavPathGetRoot(path, out);
}

int32_t TavPathIsSameRoot(const TavChar* path1, const TavChar* path2) {
    TavChar root1[kPathBufferSize + 1] = {};
    TavChar root2[kPathBufferSize + 1] = {};
    if (!TavPathGetRoot(path1, root1) || !TavPathGetRoot(path2, root2)) return 0;
    return tav_wcscmpi(root1, root2) == 0;
}

int32_t GetMountPointPath(FSVolumeRefNum volume, TavChar* out) {
    FSRef root;
    FSVolumeInfoParam block{};
    block.ioVRefNum = volume;
    block.ref = &root;
    return PBGetVolumeInfoSync(&block) == noErr && RootUnits(root, out) > 0;
}

OSErr FSVolumeGetVInfo(FSVolumeRefNum volume, HFSUniStr255* name, uint64_t* freeBytes, uint64_t* totalBytes,
                       FSRef* root) {
    FSVolumeInfo info;
    FSVolumeInfoBitmap whichInfo = freeBytes || totalBytes ? kFSVolInfoSizes : kFSVolInfoNone;
    OSErr result = FSGetVolumeInfo(volume, 0, nullptr, whichInfo, &info, name, root);
    if (result != noErr) return result;
    if (freeBytes) *freeBytes = info.freeBytes;
    if (totalBytes) *totalBytes = info.totalBytes;
    return noErr;
}

// ---- Kinds of media ----

static int32_t DriveTypeOf(FSVolumeRefNum volume) {
    VolumeInfo info{};
    if (FSGetVolumeDriverType(volume, &info) != noErr) return TAV_DRIVE_UNKNOWN;
    switch (info.mediaType) {
    case kMediaFixed:
        return TAV_DRIVE_FIXED;
    case kMediaRemovable:
        return TAV_DRIVE_REMOVABLE;
    case kMediaCD:
    case kMediaDVD:
        return TAV_DRIVE_CDROM;
    default:
        return TAV_DRIVE_UNKNOWN;
    }
}

static bool IsRootOf(FSVolumeRefNum volume, const TavChar* path) {
    FSRef root;
    RootText text;
    return FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoNone, nullptr, nullptr, &root) == noErr &&
           MakeRootText(root, text) && tav_wcscmpi(text.units, path) == 0;
}

int32_t TavGetDriveType(const TavChar* root) {
    TavChar path[kPathBufferSize] = {};
    uint32_t length = tav_wcslen(root);
    if (length >= kPathBufferSize) return TAV_DRIVE_UNKNOWN;
    tav_wcscpy(path, root);
    if (length > 1) TavPathRemoveSlash(path);
    uint8_t name[256];
    HParamBlockRec block{};
    block.ioNamePtr = name;
    // The index has 16 bits, and a negative one would ask for the same volume for ever.
    for (block.ioVolIndex = 1; block.ioVolIndex > 0 && PBHGetVInfoSync(&block) == noErr; ++block.ioVolIndex) {
        if (IsRootOf(block.ioVRefNum, path)) return DriveTypeOf(block.ioVRefNum);
    }
    return TAV_DRIVE_UNKNOWN;
}

OSErr FSGetVolumeDriverType(FSVolumeRefNum volume, VolumeInfo* info) {
    mach_port_t masterPort;
    kern_return_t opened = IOMasterPort(MACH_PORT_NULL, &masterPort);
    if (opened != 0) return static_cast<OSErr>(opened);
    info->mediaType = kMediaNone;

    FSVolumeInfo volumeInfo;
    HFSUniStr255 name;
    OSErr result = FSGetVolumeInfo(volume, 0, nullptr, kFSVolInfoFSInfo, &volumeInfo, &name, nullptr);
    GetVolParmsInfoBuffer parameters{};
    if (result == noErr) {
        HParamBlockRec block{};
        block.ioVRefNum = volume;
        block.ioBuffer = &parameters;
        block.ioReqCount = 32;
        result = PBHGetVolParmsSync(&block);
    }
    if (result == noErr)
        result = GetAdditionalVolumeInfo(masterPort, static_cast<const char*>(parameters.vMDeviceID), info);
    mach_port_deallocate(mach_task_self(), masterPort);
    return result;
}

OSErr GetAdditionalVolumeInfo(mach_port_t masterPort, const char* bsdName, VolumeInfo* info) {
    CFMutableDictionaryRef matching = IOBSDNameMatching(masterPort, 0, bsdName);
    if (!matching) return paramErr;
    io_iterator_t services = IO_OBJECT_NULL;
    kern_return_t result = IOServiceGetMatchingServices(masterPort, matching, &services);
    if (result != 0 || services == IO_OBJECT_NULL) return static_cast<OSErr>(result);
    io_service_t service = IOIteratorNext(services);
    IOObjectRelease(services);
    if (service == IO_OBJECT_NULL) return noErr;
    FindServiceMedia(service, info);
    IOObjectRelease(service);
    return noErr;
}

void FindServiceMedia(io_registry_entry_t entry, VolumeInfo* info) {
    io_iterator_t ancestors = IO_OBJECT_NULL;
    kern_return_t result = IORegistryEntryCreateIterator(
        entry, kIOServicePlane, kIORegistryIterateRecursively | kIORegistryIterateParents, &ancestors);
    if (result != 0 || ancestors == IO_OBJECT_NULL) return;
    // An owner more, so that the entry itself is let go like its ancestors.
    if (IOObjectRetain(entry) != 0) entry = IO_OBJECT_NULL;
    while (entry != IO_OBJECT_NULL) {
        GetMediaServierType(entry, info);
        IOObjectRelease(entry);
        entry = info->mediaType == kMediaNone ? IOIteratorNext(ancestors) : IO_OBJECT_NULL;
    }
    IOObjectRelease(ancestors);
}

// Whether a property exists and is true.
static bool IsTrue(io_registry_entry_t entry, const char* key) {
    Released<CFStringRef> name(CFStringCreateWithCString(nullptr, key, kCFStringEncodingUTF8));
    if (!name) return false;
    CFTypeRef value = IORegistryEntryCreateCFProperty(entry, name.get(), nullptr, 0);
    if (!value) return false;
    Boolean holds = CFBooleanGetValue(static_cast<CFBooleanRef>(value));
    CFRelease(value);
    return holds;
}

void GetMediaServierType(io_registry_entry_t entry, VolumeInfo* info) {
    // Partitions are passed over until the whole disk is reached.
    if (!IOObjectConformsTo(entry, kIOMediaClass) || !IsTrue(entry, kIOMediaWholeKey)) return;
    if (IOObjectConformsTo(entry, kIOCDMediaClass)) {
        info->mediaType = kMediaCD;
    } else if (IOObjectConformsTo(entry, kIODVDMediaClass)) {
        info->mediaType = kMediaDVD;
    } else {
        info->mediaType = IsTrue(entry, kIOMediaRemovableKey) ? kMediaRemovable : kMediaFixed;
    }
    if (IsTrue(entry, kIOMediaWritableKey)) info->mediaFlags |= kMediaWritable;
    if (IsTrue(entry, kIOMediaEjectableKey)) info->mediaFlags |= kMediaEjectable;
}
