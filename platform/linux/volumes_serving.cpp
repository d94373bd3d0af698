// FSMakeFSSpec, FSpMakeFSRef, PBHGetDirAccessSync, PBHCopyFileSync: objects named by folder number and Mac
// Roman name, access rights and copies that a file server makes itself, on copy_file_range, which hands the
// work to NFS and SMB servers that can do it. Folder numbers belong to the whole host, so volume numbers
// beside them are only passed on. Volumes without a server answer -50 throughout: their rights are in the
// mode and their copies are made by hand. The superuser, whom no server's rights concern, gets -50 too.
//
// Sections: names, rights, copies.
#include "platform/volumes.h"

#include "platform/catalog.h"
#include "platform/linux/attributes.h"
#include "platform/linux/current_task.h"
#include "platform/linux/errors.h"
#include "platform/linux/mac_roman.h"
#include "platform/linux/metadata.h"
#include "platform/linux/references.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/volume_numbers.h"
#include "platform/linux/with_descriptors.h"
#include "platform/objects.h"
#include "platform/references.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

// ---- Names ----

// A length-prefixed Mac Roman name in units; -37 when it has none or a character is unknown.
static OSErr UnicodeName(const uint8_t* name, HFSUniStr255& units) {
    if (!name || name[0] == 0) return bdNamErr;
    units.length = name[0];
    for (uint8_t i = 0; i < name[0]; ++i) {
        const int unit = mac_roman::Decode(name[i + 1]);
        if (unit < 0) return bdNamErr;
        units.unicode[i] = static_cast<UniChar>(unit);
    }
    return noErr;
}

OSErr FSMakeFSSpec(FSVolumeRefNum vRefNum, int32_t dirID, const uint8_t* fileName, FSSpec* spec) {
    if (!spec) return paramErr;
    HFSUniStr255 name;
    OSErr result = UnicodeName(fileName, name);
    if (result == noErr && name.length >= sizeof spec->name) result = bdNamErr;
    if (result != noErr) return result;
    *spec = {};
    spec->vRefNum = vRefNum;
    spec->parID = dirID;
    std::copy_n(fileName, fileName[0] + 1, spec->name);
    FSRef folder;
    result = FolderReference(static_cast<FolderID>(dirID), folder);
    return result == noErr
               ? FSMakeFSRefUnicode(&folder, name.length, name.unicode, kTextEncodingUnknown, &spec->ref)
               : result;
}

OSErr FSpMakeFSRef(const FSSpec* source, FSRef* newRef) {
    if (!source || !newRef) return paramErr;
    const TerminationHold hold;
    return WithDescriptors([&] {
        Place place;
        const OSErr result = Locate(source->ref, place);
        if (result == noErr) *newRef = source->ref;
        return result;
    });
}

// ---- Rights ----

// Whether a server stands behind the volume that an object is on.
static bool IsServed(const Place& place, bool& serverCopies) {
    GetVolParmsInfoBuffer facts;
    HParamBlockRec block{};
    block.ioVRefNum = VolumeNumber(place.facts);
    block.ioBuffer = &facts;
    block.ioReqCount = sizeof facts;
    if (PBHGetVolParmsSync(&block) != noErr || facts.vMServerAdr == 0) return false;
    serverCopies = facts.vMAttrib & kVolParmsHasCopyFile;
    return true;
}

static OSErr LocateNamed(const HParamBlockRec& block, FSRef& ref, Place& place) {
    FSSpec spec;
    const OSErr result = FSMakeFSSpec(block.ioVRefNum, block.ioDirID, block.ioNamePtr, &spec);
    if (result != noErr) return result;
    ref = spec.ref;
    return Locate(ref, place);
}

OSErr PBHGetDirAccessSync(HParamBlockRec* paramBlock) {
    if (!paramBlock || geteuid() == 0) return paramErr;
    const TerminationHold hold;
    return WithDescriptors([&]() -> OSErr {
        FSRef ref;
        Place place;
        bool serverCopies;
        // Where the name cannot be said in Mac Roman, nobody can be asked.
        if (LocateNamed(*paramBlock, ref, place) != noErr || !IsServed(place, serverCopies)) return paramErr;
        const auto may = [&](int what) {
            return Retry([&] {
                       return faccessat(place.folder.descriptor(), place.name, what, AT_EACCESS);
                   }) == 0;
        };
        paramBlock->ioACAccess = (may(X_OK) ? kDirAccessUserSeeFolders : 0) |
                                 (may(R_OK) ? kDirAccessUserSeeFiles : 0) |
                                 (may(W_OK) ? kDirAccessUserMakeChanges : 0);
        return noErr;
    });
}

// ---- Copies ----

// Opens a regular file, and nothing else that may have its name by now.
static OSErr OpenFile(const FSRef& ref, int flags, Descriptor& file) {
    Place place;
    const OSErr result = Locate(ref, place);
    if (result != noErr) return result;
    file.Reset(OpenName(place.folder.descriptor(), place.name, flags | O_NONBLOCK | O_NOCTTY));
    struct statx facts;
    if (!file) return LastOpenError();
    if (FactsAt(file.number(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    return IsObject(ref, facts) && S_ISREG(facts.stx_mode) ? noErr : fnfErr;
}

// Has the kernel hand the data over, which does not see it when the server copies.
static OSErr CopyData(const FSRef& source, const FSRef& copy, uint64_t size) {
    Descriptor from, to;
    OSErr result = OpenFile(source, O_RDONLY, from);
    if (result == noErr) result = OpenFile(copy, O_WRONLY, to);
    while (result == noErr && size > 0) {
        const size_t most = static_cast<size_t>(std::min<uint64_t>(size, 1 << 30));
        const ssize_t moved =
            Retry([&] { return copy_file_range(from.number(), nullptr, to.number(), nullptr, most, 0); });
        if (moved <= 0) return moved < 0 ? LastError() : eofErr;
        size -= static_cast<uint64_t>(moved);
    }
    // Servers tell at the end that there was no room.
    const int written = to.Release();
    if (written >= 0 && close(written) != 0 && LastErrorNumber() != EINTR && result == noErr)
        result = LastError();
    return result;
}

// The facts that a copy gets last: the lock would keep its data from being written, which changes its date.
static OSErr FinishCopy(const FSRef& copy, const FSCatalogInfo& info) {
    return FSSetCatalogInfo(
        &copy, kFSCatInfoNodeFlags | kFSCatInfoPermissions | kFSCatInfoContentMod | kFSCatInfoFinderInfo,
        &info);
}

static OSErr CopyOnServer(const FSRef& source, const FSRef& folder, const HFSUniStr255& name) {
    FSCatalogInfo info;
    OSErr result =
        FSGetCatalogInfo(&source, kFSCatInfoSettableInfo | kFSCatInfoDataSizes | kFSCatInfoRsrcSizes, &info,
                         nullptr, nullptr, nullptr);
    if (result != noErr) return result;
    if ((info.nodeFlags & kFSNodeIsDirectoryMask) || info.rsrcLogicalSize > 0) return paramErr;

    FSCatalogInfo atFirst = info;
    atFirst.nodeFlags &= static_cast<uint16_t>(~kFSNodeLockedMask);
    atFirst.permissions.mode |= S_IRWXU;
    FSRef copy;
    result = FSCreateFileUnicode(&folder, name.length, name.unicode, kFSCatInfoSettableInfo, &atFirst, &copy,
                                 nullptr);
    if (result != noErr) return result;
    result = CopyData(source, copy, info.dataLogicalSize);
    if (result == noErr) result = FinishCopy(copy, info);
    if (result != noErr) {
        atFirst.nodeFlags = 0; // it may have been locked already
        FSSetCatalogInfo(&copy, kFSCatInfoNodeFlags, &atFirst);
        FSDeleteObject(&copy);
    }
    return result;
}

OSErr PBHCopyFileSync(HParamBlockRec* paramBlock) {
    if (!paramBlock) return paramErr;
    const TerminationHold hold;
    return WithDescriptors([&]() -> OSErr {
        FSRef source, folder;
        Place place;
        bool serverCopies = false;
        OSErr result = LocateNamed(*paramBlock, source, place);
        if (result != noErr) return result;
        if (!S_ISREG(place.facts.stx_mode) || !IsServed(place, serverCopies) || !serverCopies)
            return paramErr;

        HFSUniStr255 name;
        result = UnicodeName(paramBlock->ioCopyName ? paramBlock->ioCopyName : paramBlock->ioNamePtr, name);
        if (result == noErr) result = FolderReference(static_cast<FolderID>(paramBlock->ioNewDirID), folder);
        return result == noErr ? CopyOnServer(source, folder, name) : result;
    });
}
