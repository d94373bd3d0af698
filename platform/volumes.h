// Volumes: listing them, asking about them, and what file servers do on their own side.
#pragma once

#include "platform/types.h"

constexpr OSErr nsvErr = -35;

constexpr FSVolumeRefNum kFSInvalidVolumeRefNum = 0;

using FSVolumeInfoBitmap = uint32_t;
constexpr FSVolumeInfoBitmap kFSVolInfoNone = 0x0000;
constexpr FSVolumeInfoBitmap kFSVolInfoSizes = 0x0040;
constexpr FSVolumeInfoBitmap kFSVolInfoFSInfo = 0x4000;

// The user's rights in GetDirAccess answers.
constexpr uint32_t kDirAccessUserMask = 0x07000000;
constexpr uint32_t kDirAccessUserMakeChanges = 0x04000000;
constexpr uint32_t kDirAccessUserSeeFiles = 0x02000000;
constexpr uint32_t kDirAccessUserSeeFolders = 0x01000000;

// vMAttrib: the server copies files on its own side.
constexpr int32_t kVolParmsHasCopyFile = 0x4000;

#pragma pack(push, 2)

struct FSVolumeInfo {
    UTCDateTime createDate;
    UTCDateTime modifyDate;
    UTCDateTime backupDate;
    UTCDateTime checkedDate;
    uint32_t fileCount;
    uint32_t folderCount;
    uint64_t totalBytes;
    uint64_t freeBytes;
    uint32_t blockSize;
    uint32_t totalBlocks;
    uint32_t freeBlocks;
    uint16_t flags;
    uint16_t filesystemID;
    uint16_t signature;
    uint16_t driveNumber;
    int16_t driverRefNum;
};

// A volume's standing facts: what it can do, where it is served from, how fast it is (grade: 0 or minus the
// bytes per second), and the name of its block device (null for none; owned by the provider, valid until the
// next call of the same thread).
struct GetVolParmsInfoBuffer {
    int16_t vMVersion;
    int32_t vMAttrib;
    uint32_t vMLocalHand;
    int32_t vMServerAdr;
    int32_t vMVolumeGrade;
    int16_t vMForeignPrivID;
    int32_t vMExtendedAttributes;
    const void* vMDeviceID;
};

struct FSVolumeInfoParam {
    FSVolumeRefNum ioVRefNum; // in with index 0; out
    uint32_t volumeIndex;     // from 1; 0 to go by ioVRefNum
    FSVolumeInfoBitmap whichInfo;
    FSVolumeInfo* volumeInfo;
    HFSUniStr255* volumeName;
    FSRef* ref; // receives the root folder
};

// One block serves several calls; each uses the fields that its comment names.
struct HParamBlockRec {
    uint8_t* ioNamePtr; // Mac Roman, length first
    FSVolumeRefNum ioVRefNum;
    int16_t ioVolIndex; // PBHGetVInfoSync
    void* ioBuffer;     // PBHGetVolParmsSync: receives at most ioReqCount bytes
    ByteCount ioReqCount;
    ByteCount ioActCount;
    int32_t ioDirID;             // PBHGetDirAccessSync, PBHCopyFileSync: the folder that ioNamePtr is in
    uint32_t ioACAccess;         // PBHGetDirAccessSync: the answer
    FSVolumeRefNum ioDstVRefNum; // PBHCopyFileSync: where the copy goes
    int32_t ioNewDirID;
    uint8_t* ioCopyName; // its name there; null keeps the name
};

#pragma pack(pop)

static_assert(offsetof(GetVolParmsInfoBuffer, vMVolumeGrade) == 14);

extern "C" {

// Facts of the volume with the index (from 1) or, with index 0, of the volume itself; every output may be
// null. -35 when there is no such volume.
OSErr FSGetVolumeInfo(FSVolumeRefNum volume, ItemCount volumeIndex, FSVolumeRefNum* actualVolume,
                      FSVolumeInfoBitmap whichInfo, FSVolumeInfo* info, HFSUniStr255* volumeName,
                      FSRef* rootDirectory);
OSErr PBGetVolumeInfoSync(FSVolumeInfoParam* paramBlock);

// The older form: index in, volume number and name (where ioNamePtr is given, 256 bytes) out.
OSErr PBHGetVInfoSync(HParamBlockRec* paramBlock);

// Fills a GetVolParmsInfoBuffer for ioVRefNum; ioActCount tells how many bytes are valid.
OSErr PBHGetVolParmsSync(HParamBlockRec* paramBlock);

// The user's rights to a folder, as its file server knows them; -50 on a volume that has no such notion.
OSErr PBHGetDirAccessSync(HParamBlockRec* paramBlock);

// Has the file server copy a file; -50 where it cannot. A copy that fails leaves nothing behind.
OSErr PBHCopyFileSync(HParamBlockRec* paramBlock);

// The FSSpec of the object `fileName` (Mac Roman, length first) in a folder; -43 when there is none (the
// FSSpec then names what could be made there).
OSErr FSMakeFSSpec(FSVolumeRefNum vRefNum, int32_t dirID, const uint8_t* fileName, FSSpec* spec);

// The reference of the existing object that an FSSpec names.
OSErr FSpMakeFSRef(const FSSpec* source, FSRef* newRef);

} // extern "C"
