// Types, result codes and records that several platform services share. Records have the platform's layout on
// every host: 2-byte packing, pinned below.
#pragma once

#include "TavPort.h"

#include <cstddef>
#include <cstdint>

using OSErr = int16_t;
using OSStatus = int32_t;
using Boolean = unsigned char;
using ItemCount = uint32_t;
using ByteCount = uint32_t;
using UniChar = TavChar;
using UniCharCount = uint32_t;
using TextEncoding = uint32_t;
using FSVolumeRefNum = int16_t;

constexpr TextEncoding kTextEncodingUnknown = 0xFFFF;

// File Manager result codes.
constexpr OSErr noErr = 0;
constexpr OSErr dskFulErr = -34;
constexpr OSErr ioErr = -36;
constexpr OSErr bdNamErr = -37;
constexpr OSErr eofErr = -39;
constexpr OSErr posErr = -40;
constexpr OSErr tmfoErr = -42;
constexpr OSErr fnfErr = -43;
constexpr OSErr wPrErr = -44;
constexpr OSErr fLckdErr = -45;
constexpr OSErr fBsyErr = -47;
constexpr OSErr dupFNErr = -48;
constexpr OSErr paramErr = -50;
constexpr OSErr rfNumErr = -51;
constexpr OSErr permErr = -54;
constexpr OSErr memFullErr = -108;
constexpr OSErr diffVolErr = -1303;
constexpr OSErr errFSNotAFolder = -1407;
constexpr OSErr errFSNoMoreItems = -1417;
constexpr OSErr errFSRefsDifferent = -1420;
constexpr OSErr errFSForkExists = -1421;
constexpr OSErr afpAccessDenied = -5000;

#pragma pack(push, 2)

// A moment: seconds since 1 January 1904 UTC as a 48-bit number, and 1/65,536 seconds.
struct UTCDateTime {
    uint16_t highSeconds;
    uint32_t lowSeconds;
    uint16_t fraction;
};

// A file name: up to 255 units, not terminated.
struct HFSUniStr255 {
    uint16_t length;
    UniChar unicode[255];
};

// Who owns an object and who may do what with it.
struct FSPermissionInfo {
    uint32_t userID;
    uint32_t groupID;
    uint8_t reserved1;
    uint8_t userAccess;
    uint16_t mode;
    uint32_t reserved2;
};

using FSCatalogInfoBitmap = uint32_t;

// The older way of naming an object: volume, parent folder and Mac Roman name, length first. A name that does
// not fit or cannot be said in Mac Roman is empty, so that it can never mean another object; the reference
// inside stands for the object itself.
struct FSSpec {
    FSVolumeRefNum vRefNum;
    int32_t parID;
    uint8_t name[64];
    FSRef ref;
};

// Everything that the catalog knows of an object.
struct FSCatalogInfo {
    uint16_t nodeFlags;
    FSVolumeRefNum volume;
    uint32_t parentDirID;
    uint32_t nodeID;
    uint8_t sharingFlags;
    uint8_t userPrivileges;
    uint8_t reserved1;
    uint8_t reserved2;
    UTCDateTime createDate;
    UTCDateTime contentModDate;
    UTCDateTime attributeModDate;
    UTCDateTime accessDate;
    UTCDateTime backupDate;
    FSPermissionInfo permissions;
    uint8_t finderInfo[16];
    uint8_t extFinderInfo[16];
    uint64_t dataLogicalSize;
    uint64_t dataPhysicalSize;
    uint64_t rsrcLogicalSize;
    uint64_t rsrcPhysicalSize;
    uint32_t valence;
    TextEncoding textEncodingHint;
};

#pragma pack(pop)

static_assert(sizeof(TavChar) == 2);
static_assert(sizeof(FSRef) == 80);
static_assert(sizeof(UTCDateTime) == 8);
static_assert(sizeof(HFSUniStr255) == 512);
static_assert(sizeof(FSPermissionInfo) == 16);
static_assert(sizeof(FSCatalogInfo) == 144);
static_assert(offsetof(FSCatalogInfo, nodeID) == 8);
static_assert(offsetof(FSCatalogInfo, createDate) == 16);
static_assert(offsetof(FSCatalogInfo, permissions) == 56);
static_assert(offsetof(FSCatalogInfo, finderInfo) == 72);
static_assert(offsetof(FSCatalogInfo, dataLogicalSize) == 104);
static_assert(offsetof(FSCatalogInfo, textEncodingHint) == 140);
