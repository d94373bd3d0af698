#include "copy/volume_facts.h"

#include "platform/catalog.h"

#include <algorithm>
#include <cstddef>

OSErr FSGetVRefNum(const FSRef* ref, FSVolumeRefNum* volume) {
    FSCatalogInfo info;
    OSErr result = FSGetCatalogInfo(ref, kFSCatInfoVolume, &info, nullptr, nullptr, nullptr);
    if (result == noErr) *volume = info.volume;
    return result;
}

OSErr FSGetVolParms(FSVolumeRefNum volume, ByteCount bufferSize, GetVolParmsInfoBuffer* parms,
                    ByteCount* sizeFilled) {
    HParamBlockRec block{};
    block.ioVRefNum = volume;
    block.ioBuffer = parms;
    block.ioReqCount = bufferSize;
    OSErr result = PBHGetVolParmsSync(&block);
    if (result == noErr) *sizeFilled = block.ioActCount;
    return result;
}

ByteCount BufferSizeForVolSpeed(uint32_t bytesPerSecond) {
    constexpr ByteCount kUnknownSpeedSize = 256 * 1024, kSmallest = 1024, kLargest = 2 * 1024 * 1024;
    if (bytesPerSecond == 0) return kUnknownSpeedSize;
    return std::clamp<ByteCount>(bytesPerSecond / 2048 * 512, kSmallest, kLargest);
}

ByteCount CalcBufferSizeForVol(const GetVolParmsInfoBuffer* parms, ByteCount sizeFilled) {
    constexpr ByteCount kGradeEnd =
        offsetof(GetVolParmsInfoBuffer, vMVolumeGrade) + sizeof parms->vMVolumeGrade;
    bool rated = sizeFilled >= kGradeEnd && parms->vMVolumeGrade <= 0;
    return BufferSizeForVolSpeed(rated ? 0u - static_cast<uint32_t>(parms->vMVolumeGrade) : 0u);
}

// The user's rights to the folder, as its server tells them.
static OSErr GetDirAccess(const FSSpec& folder, uint32_t* access) {
    FSSpec spec = folder;
    HParamBlockRec block{};
    block.ioNamePtr = spec.name;
    block.ioVRefNum = spec.vRefNum;
    block.ioDirID = spec.parID;
    OSErr result = PBHGetDirAccessSync(&block);
    *access = block.ioACAccess;
    return result;
}

OSErr IsDropBox(const FSRef* folder, Boolean* isDropBox) {
    *isDropBox = false;
    FSCatalogInfo info;
    FSSpec spec;
    OSErr result =
        FSGetCatalogInfo(folder, kFSCatInfoNodeFlags | kFSCatInfoPermissions, &info, nullptr, &spec, nullptr);
    if (result != noErr) return result;
    if (!(info.nodeFlags & kFSNodeIsDirectoryMask)) return errFSNotAFolder;

    uint32_t access = 0;
    result = GetDirAccess(spec, &access);
    if (result == noErr) {
        *isDropBox = (access & kDirAccessUserMask) == kDirAccessUserMakeChanges;
    } else if (result == paramErr) { // no server to ask: others may write and search but not read
        *isDropBox = (info.permissions.mode & 7) == 3;
        result = noErr;
    }
    return result;
}
