// FSGetVolumeInfo, PBGetVolumeInfoSync, PBHGetVInfoSync, PBHGetVolParmsSync: asking about volumes, on the
// volume list, statvfs for sizes and the device tree for the name of a volume's device.
//
// A volume is named after the folder that it is mounted on; mounts have no names of their own here. Sizes are
// those that the caller may use, which leaves out what the file system keeps for the superuser. Objects on
// mounts that no person would call a disk have a volume number too; it can be asked about, and only the walk
// by index leaves it out.
//
// Sections: finding a volume; facts; names; the calls.
#include "platform/volumes.h"

#include "platform/linux/current_task.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/errors.h"
#include "platform/linux/mac_roman.h"
#include "platform/linux/media.h"
#include "platform/linux/names.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/volume_list.h"
#include "platform/references.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>

static_assert(sizeof(GetVolParmsInfoBuffer) == (sizeof(void*) == 8 ? 32 : 28));

// The version of the parameters that has a device's name.
static constexpr int16_t kVolParmsVersion = 4;
static constexpr size_t kVolumeNameLimit = 27;

// Runs a call's body; memory that cannot be had gives -108.
template <typename Body>
static OSErr WithTable(Body body) {
    try {
        return body(CurrentVolumes());
    } catch (...) {
        return memFullErr;
    }
}

// ---- Finding a volume ----

static const Volume* Find(const VolumeTable& table, FSVolumeRefNum number, ItemCount index) {
    return index > 0 ? table.ByIndex(index) : table.ByNumber(number);
}

static OSErr RootReference(const Volume& volume, FSRef& root) {
    return static_cast<OSErr>(
        FSPathMakeRef(reinterpret_cast<const uint8_t*>(volume.root.c_str()), &root, nullptr));
}

// ---- Facts ----

static OSErr FillSizes(const Volume& volume, FSVolumeInfo& info) {
    struct statvfs sizes {};
    if (Retry([&] { return statvfs(volume.root.c_str(), &sizes); }) != 0) return LastError();
    info.totalBytes = uint64_t{sizes.f_blocks} * sizes.f_frsize;
    info.freeBytes = uint64_t{sizes.f_bavail} * sizes.f_frsize;
    info.blockSize = static_cast<uint32_t>(sizes.f_frsize);
    info.totalBlocks = static_cast<uint32_t>(std::min<uint64_t>(sizes.f_blocks, UINT32_MAX));
    info.freeBlocks = static_cast<uint32_t>(std::min<uint64_t>(sizes.f_bavail, UINT32_MAX));
    return noErr;
}

static OSErr FillInfo(const Volume& volume, FSVolumeInfoBitmap whichInfo, FSVolumeInfo& info) {
    if (whichInfo & kFSVolInfoFSInfo) {
        info.filesystemID = 0;
        info.signature = 0;
    }
    return whichInfo & kFSVolInfoSizes ? FillSizes(volume, info) : noErr;
}

// The volume's device as the device tree names it; "" for volumes on none. Volumes of several devices have no
// device number of their own, but name one as their source.
static std::string DeviceOf(const Volume& volume) {
    if (major(volume.device) != 0) return DeviceName(volume.device);
    struct statx facts {};
    if (!volume.source.starts_with("/dev/") || FactsAt(AT_FDCWD, volume.source.c_str(), 0, facts) != 0 ||
        !S_ISBLK(facts.stx_mode))
        return {};
    return DeviceName(makedev(facts.stx_rdev_major, facts.stx_rdev_minor));
}

static GetVolParmsInfoBuffer Parameters(const Volume& volume) {
    GetVolParmsInfoBuffer parameters{};
    parameters.vMVersion = kVolParmsVersion;
    parameters.vMAttrib = volume.serverCopies ? kVolParmsHasCopyFile : 0;
    parameters.vMServerAdr = volume.serverAddress;
    return parameters;
}

// ---- Names ----

static void Name(const Volume& volume, HFSUniStr255& name) {
    if (volume.root == "/") {
        name.length = 1;
        name.unicode[0] = u'/';
    } else {
        NameFromBytes(volume.root.c_str() + volume.root.rfind('/') + 1, name);
    }
}

// Mac Roman, length first; "?" for what it has no character for.
static void ShortName(const Volume& volume, uint8_t* shortName) {
    HFSUniStr255 name{};
    Name(volume, name);
    uint8_t length = 0;
    for (size_t at = 0; at < name.length && length < kVolumeNameLimit;) {
        size_t before = at;
        int byte = mac_roman::Encode(name.unicode, name.length, at);
        if (at == before) ++at;
        shortName[++length] = byte < 0 ? '?' : static_cast<uint8_t>(byte);
    }
    shortName[0] = length;
}

// ---- The calls ----

extern "C" OSErr FSGetVolumeInfo(FSVolumeRefNum volume, ItemCount volumeIndex, FSVolumeRefNum* actualVolume,
                                 FSVolumeInfoBitmap whichInfo, FSVolumeInfo* info, HFSUniStr255* volumeName,
                                 FSRef* rootDirectory) {
    auto ask = [=](const std::shared_ptr<const VolumeTable>& table, bool& gone) -> OSErr {
        const Volume* found = Find(*table, volume, volumeIndex);
        if (!found) return nsvErr;
        FSRef root;
        OSErr result = rootDirectory ? RootReference(*found, root) : noErr;
        if (result != noErr) {
            // A volume that cannot be reached must not hide those behind it.
            gone = volumeIndex > 1 && result != memFullErr && result != tmfoErr;
            if (gone) DropVolume(table, found->number);
            return result;
        }
        if (info) result = FillInfo(*found, whichInfo, *info);
        if (result != noErr) return result;
        if (rootDirectory) *rootDirectory = root;
        if (volumeName) Name(*found, *volumeName);
        if (actualVolume) *actualVolume = found->number;
        return noErr;
    };
    OSErr result;
    bool gone;
    do {
        gone = false;
        result = WithTable([&](const std::shared_ptr<const VolumeTable>& table) { return ask(table, gone); });
    } while (gone);
    return result;
}

extern "C" OSErr PBGetVolumeInfoSync(FSVolumeInfoParam* paramBlock) {
    assert(paramBlock);
    FSVolumeRefNum actual = paramBlock->ioVRefNum;
    HFSUniStr255 name;
    FSRef root;
    FSVolumeInfo info;
    if (paramBlock->volumeInfo) memcpy(&info, paramBlock->volumeInfo, sizeof info);
    OSErr result =
        FSGetVolumeInfo(paramBlock->ioVRefNum, paramBlock->volumeIndex, &actual, paramBlock->whichInfo,
                        paramBlock->volumeInfo ? &info : nullptr, paramBlock->volumeName ? &name : nullptr,
                        paramBlock->ref ? &root : nullptr);
    if (result != noErr) return result;
    paramBlock->ioVRefNum = actual;
    if (paramBlock->volumeInfo) memcpy(paramBlock->volumeInfo, &info, sizeof info);
    if (paramBlock->volumeName) memcpy(paramBlock->volumeName, &name, sizeof name);
    if (paramBlock->ref) memcpy(paramBlock->ref, &root, sizeof root);
    return noErr;
}

extern "C" OSErr PBHGetVInfoSync(HParamBlockRec* paramBlock) {
    assert(paramBlock);
    return WithTable([=](const std::shared_ptr<const VolumeTable>& table) -> OSErr {
        ItemCount index = static_cast<ItemCount>(std::max<int16_t>(paramBlock->ioVolIndex, 0));
        const Volume* found = Find(*table, paramBlock->ioVRefNum, index);
        if (!found) return nsvErr;
        paramBlock->ioVRefNum = found->number;
        if (paramBlock->ioNamePtr) ShortName(*found, paramBlock->ioNamePtr);
        return noErr;
    });
}

// Copies ask for the same one or two volumes for each file. What a mount says of itself does not change while
// it stands, and its number is hardly given to another one at once.
namespace {
struct KnownParameters {
    FSVolumeRefNum volume;
    uint64_t asked; // 0: nothing is known
    GetVolParmsInfoBuffer parameters;
    char deviceName[64];
};
} // namespace
static constinit thread_local KnownParameters known[2] = {};

static OSErr LearnParameters(FSVolumeRefNum volume, KnownParameters& learnt) {
    learnt.asked = 0;
    return WithTable([&](const std::shared_ptr<const VolumeTable>& table) -> OSErr {
        const Volume* found = table->ByNumber(volume);
        if (!found) return nsvErr;
        learnt.parameters = Parameters(*found);
        const std::string device = DeviceOf(*found);
        if (!device.empty() && device.size() < sizeof learnt.deviceName) {
            memcpy(learnt.deviceName, device.c_str(), device.size() + 1);
            learnt.parameters.vMDeviceID = learnt.deviceName;
        }
        learnt.volume = volume;
        const bool isOnDevice = major(found->device) != 0 || found->source.starts_with("/dev/");
        if (!device.empty() || !isOnDevice) learnt.asked = MonotonicNow(); // else it is asked again
        return noErr;
    });
}

static OSErr KnowParameters(FSVolumeRefNum volume, const KnownParameters*& answer) {
    constexpr uint64_t kTrusted = 1'000'000; // nanoseconds
    const uint64_t now = MonotonicNow();
    for (const KnownParameters& each : known) {
        if (each.asked == 0 || each.volume != volume || now - each.asked > kTrusted) continue;
        answer = &each;
        return noErr;
    }
    KnownParameters& oldest = known[0].asked <= known[1].asked ? known[0] : known[1];
    answer = &oldest;
    return LearnParameters(volume, oldest);
}

extern "C" OSErr PBHGetVolParmsSync(HParamBlockRec* paramBlock) {
    assert(paramBlock);
    const TerminationHold hold;
    const KnownParameters* answer;
    const OSErr result = KnowParameters(paramBlock->ioVRefNum, answer);
    if (result != noErr) return result;
    paramBlock->ioActCount = std::min<ByteCount>(paramBlock->ioReqCount, sizeof answer->parameters);
    memcpy(paramBlock->ioBuffer, &answer->parameters, paramBlock->ioActCount);
    return noErr;
}
