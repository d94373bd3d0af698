// Catalog information: flags, dates, permissions, Finder information and sizes of an object.
#pragma once

#include "platform/types.h"

constexpr FSCatalogInfoBitmap kFSCatInfoNone = 0x00000000;
constexpr FSCatalogInfoBitmap kFSCatInfoTextEncoding = 0x00000001;
constexpr FSCatalogInfoBitmap kFSCatInfoNodeFlags = 0x00000002;
constexpr FSCatalogInfoBitmap kFSCatInfoVolume = 0x00000004;
constexpr FSCatalogInfoBitmap kFSCatInfoParentDirID = 0x00000008;
constexpr FSCatalogInfoBitmap kFSCatInfoNodeID = 0x00000010;
constexpr FSCatalogInfoBitmap kFSCatInfoCreateDate = 0x00000020;
constexpr FSCatalogInfoBitmap kFSCatInfoContentMod = 0x00000040;
constexpr FSCatalogInfoBitmap kFSCatInfoAttrMod = 0x00000080;
constexpr FSCatalogInfoBitmap kFSCatInfoAccessDate = 0x00000100;
constexpr FSCatalogInfoBitmap kFSCatInfoBackupDate = 0x00000200;
constexpr FSCatalogInfoBitmap kFSCatInfoPermissions = 0x00000400;
constexpr FSCatalogInfoBitmap kFSCatInfoFinderInfo = 0x00000800;
constexpr FSCatalogInfoBitmap kFSCatInfoFinderXInfo = 0x00001000;
constexpr FSCatalogInfoBitmap kFSCatInfoValence = 0x00002000;
constexpr FSCatalogInfoBitmap kFSCatInfoDataSizes = 0x00004000;
constexpr FSCatalogInfoBitmap kFSCatInfoRsrcSizes = 0x00008000;
constexpr FSCatalogInfoBitmap kFSCatInfoSharingFlags = 0x00010000;
constexpr FSCatalogInfoBitmap kFSCatInfoUserPrivs = 0x00020000;
constexpr FSCatalogInfoBitmap kFSCatInfoUserAccess = 0x00080000;
constexpr FSCatalogInfoBitmap kFSCatInfoGettableInfo = 0x0003FFFF;
constexpr FSCatalogInfoBitmap kFSCatInfoSettableInfo = 0x00001FE3;

constexpr uint16_t kFSNodeLockedMask = 0x0001;
constexpr uint16_t kFSNodeResOpenMask = 0x0004;
constexpr uint16_t kFSNodeDataOpenMask = 0x0008;
constexpr uint16_t kFSNodeIsDirectoryMask = 0x0010;
constexpr uint16_t kFSNodeForkOpenMask = 0x0080;

// The older form of the Finder information: the same 16 bytes as FSCatalogInfo::finderInfo.
struct FInfo {
    uint8_t bytes[16];
};

extern "C" {

// Fills the facts that `whichInfo` selects, and the name, the FSSpec and the parent folder's reference where
// asked for; every output may be null. -43 when the object is gone. On failure the outputs are unspecified.
OSErr FSGetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap whichInfo, FSCatalogInfo* catalogInfo,
                       HFSUniStr255* outName, FSSpec* fsSpec, FSRef* parentRef);

// Between these two calls of a thread the provider may answer FSGetCatalogInfo from what it saw when it was first
// asked about the object, or made a reference from its path. For the questions at the start of one copy, before
// anything is changed; to begin again is to begin anew, and to end twice does no harm.
void PlatformBeginQuestions();
void PlatformEndQuestions();

// Stores the settable facts that `whichInfo` selects (-50 for others). What the host cannot keep is dropped:
// dates out of range or all zero (for the creation and backup dates zero takes the stored one away), the
// attribute-modification date, an owner that the process may not set and then the set-id bits too, and all
// but dates and owner of a link.
OSErr FSSetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* catalogInfo);

// Stores Finder information. Type "slnk" with creator "rhap" turns a file whose data fork holds a path into a
// link with that text at once (-50 when it holds none, -47 while a fork is open); the reference goes on to
// stand for the link.
OSErr FSpSetFInfo(const FSSpec* spec, const FInfo* fndrInfo);

} // extern "C"
