#include "copy/file_copy.h"

#include "copy/finder_info.h"
#include "copy/fork_copy.h"
#include "copy/recursive_delete.h"
#include "platform/forks.h"
#include "platform/objects.h"
#include "platform/references.h"
#include "platform/strings.h"

#include <algorithm>
#include <cstring>

OSErr AskFilter(const FilterParams* filter, Boolean isFolder, ItemCount level, OSErr result,
                const FSCatalogInfo* sourceInfo, const FSRef* newRef, const FSSpec* newSpec,
                const HFSUniStr255* name, const FSRef* destDir) {
    if (!filter->filterProc) return result;
    FSCatalogInfo info = *sourceInfo;
    FSCatalogInfoBitmap further = filter->whichInfo & ~kFSCatInfoSettableInfo;
    if (result == noErr && further)
        result = FSGetCatalogInfo(newRef, further, &info, nullptr, nullptr, nullptr);
    return filter->filterProc(isFolder, level, result, &info, newRef, filter->wantFSSpec ? newSpec : nullptr,
                              filter->wantName ? name : nullptr, destDir, filter->yourDataPtr);
}

OSErr FSCopyFile(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                 const HFSUniStr255* newName, CopyParams* params, FilterParams* filter, FSRef* newRef,
                 FSSpec* newSpec) {
    if (!source || !destDir || !sourceInfo || !newName || !params || !filter) return paramErr;
    FSRef copy{};
    FSSpec spec{};
    bool wantSpec = newSpec || filter->wantFSSpec;
    OSErr result = CopyFile(source, sourceInfo, destDir, newName, params, &copy, wantSpec ? &spec : nullptr);
    if (result == noErr && newRef) *newRef = copy;
    result = AskFilter(filter, false, 0, result, sourceInfo, &copy, &spec, newName, destDir);
    if (result == noErr && newSpec) *newSpec = spec;
    return result;
}

OSErr CopyFile(const FSRef* source, const FSCatalogInfo* sourceInfo, const FSRef* destDir,
               const HFSUniStr255* newName, CopyParams* params, FSRef* newRef, FSSpec* newSpec) {
    if (!source || !sourceInfo || !destDir || !newName || !params) return paramErr;
    FSCatalogInfo info = *sourceInfo;
    ClearHasBeenPlaced(info);
    if (params->volHasCopyFile &&
        FSUsePBHCopyFile(source, destDir, kTextEncodingUnknown, newName, newRef, newSpec) == noErr)
        return noErr;
    return DoCopyFile(source, &info, destDir, newName, params, newRef, newSpec);
}

// Whether Mac Roman text reads back as the very same units. Composing what the name holds apart would make it
// the name of another object.
static bool ReadsBackAs(const char* text, const HFSUniStr255& name) {
    CFStringRef string = CFStringCreateWithCString(nullptr, text, kCFStringEncodingMacRoman);
    if (!string) return false;
    HFSUniStr255 back;
    CFIndex length = CFStringGetLength(string);
    bool isSame = length == name.length;
    if (isSame) CFStringGetCharacters(string, {0, length}, back.unicode);
    CFRelease(string);
    return isSame && std::equal(name.unicode, name.unicode + name.length, back.unicode);
}

OSErr UniStrToPStr(const HFSUniStr255* uniName, TextEncoding, uint8_t name[64]) {
    CFStringRef string = CFStringCreateWithCharacters(nullptr, uniName->unicode, uniName->length);
    if (!string) return memFullErr;
    char* text = reinterpret_cast<char*>(name) + 1;
    Boolean fits = CFStringGetCString(string, text, 63, kCFStringEncodingMacRoman);
    CFRelease(string);
    if (!fits || !ReadsBackAs(text, *uniName)) return bdNamErr;
    name[0] = static_cast<uint8_t>(std::strlen(text));
    return name[0] ? noErr : bdNamErr;
}

OSErr FSMakeFSRef(FSVolumeRefNum volume, int32_t dirID, const uint8_t* name, FSRef* ref) {
    FSSpec spec;
    OSErr result = FSMakeFSSpec(volume, dirID, name, &spec);
    return result == noErr ? FSpMakeFSRef(&spec, ref) : result;
}

// Deletes what the server has made and nobody can name through it. The copy by hand, which comes next, would
// meet it as an object that has the name already.
static void DeleteServersCopy(const FSRef* source, const FSRef* destDir, const HFSUniStr255* newName) {
    HFSUniStr255 name;
    OSErr result = noErr;
    if (newName)
        name = *newName;
    else
        result = GetObjectName(source, &name);
    FSRef copy;
    if (result == noErr)
        result = FSMakeFSRefUnicode(destDir, name.length, name.unicode, kTextEncodingUnknown, &copy);
    if (result == noErr) FSDeleteObjects(&copy);
}

OSErr FSUsePBHCopyFile(const FSRef* source, const FSRef* destDir, TextEncoding encodingHint,
                       const HFSUniStr255* newName, FSRef* newRef, FSSpec* newSpec) {
    FSSpec sourceSpec;
    FSCatalogInfo destInfo;
    OSErr result = FSGetCatalogInfo(source, kFSCatInfoNone, nullptr, nullptr, &sourceSpec, nullptr);
    if (result == noErr)
        result = FSGetCatalogInfo(destDir, kFSCatInfoVolume | kFSCatInfoNodeID, &destInfo, nullptr, nullptr,
                                  nullptr);
    uint8_t copyName[64];
    if (result == noErr && newName) result = UniStrToPStr(newName, encodingHint, copyName);
    if (result != noErr) return result;

    HParamBlockRec block{};
    block.ioNamePtr = sourceSpec.name;
    block.ioVRefNum = sourceSpec.vRefNum;
    block.ioDirID = sourceSpec.parID;
    block.ioDstVRefNum = destInfo.volume;
    block.ioNewDirID = static_cast<int32_t>(destInfo.nodeID);
    block.ioCopyName = newName ? copyName : nullptr;
    result = PBHCopyFileSync(&block);
    if (result != noErr) return result;

    const uint8_t* nameThere = newName ? copyName : sourceSpec.name;
    if (newSpec) result = FSMakeFSSpec(block.ioDstVRefNum, block.ioNewDirID, nameThere, newSpec);
    if (result == noErr && newRef)
        result = FSMakeFSRef(block.ioDstVRefNum, block.ioNewDirID, nameThere, newRef);
    if (result != noErr) DeleteServersCopy(source, destDir, newName);
    return result;
}

// Gives a copied file the type, lock and permissions that it had to do without while it was written. A link's
// Finder information goes last, through its FSSpec, because that is what turns the file into a link.
static OSErr RestoreAfterCopy(const FSCatalogInfo& info, const FSRef* newRef, const FSSpec* newSpec) {
    constexpr FSCatalogInfoBitmap kFlagsAndPermissions = kFSCatInfoNodeFlags | kFSCatInfoPermissions;
    if (!IsLink(info)) return FSSetCatalogInfo(newRef, kFlagsAndPermissions | kFSCatInfoFinderInfo, &info);
    OSErr result = FSSetCatalogInfo(newRef, kFlagsAndPermissions, &info);
    if (result != noErr) return result;
    FInfo finderInfo;
    std::memcpy(finderInfo.bytes, info.finderInfo, sizeof finderInfo.bytes);
    return FSpSetFInfo(newSpec, &finderInfo);
}

// Makes the new file and fills it; `isMade` says that there is something to delete when that failed.
static OSErr MakeAndFill(const FSRef* source, const FSCatalogInfo* sourceInfo, const FSRef* destDir,
                         const HFSUniStr255* newName, CopyParams* params, FSRef* newRef, FSSpec* newSpec,
                         bool* isMade) {
    FSCatalogInfo whileWriting = *sourceInfo;
    if (!params->copyingToDropBox) std::memcpy(whileWriting.finderInfo, kBusyType, 4);
    whileWriting.nodeFlags &= static_cast<uint16_t>(~kFSNodeLockedMask);
    whileWriting.permissions.mode |= kOwnerAccess;

    OSErr result = FSCreateFileUnicode(destDir, newName->length, newName->unicode, kFSCatInfoSettableInfo,
                                       &whileWriting, newRef, newSpec);
    *isMade = result == noErr;
    if (result == noErr) result = CopyForks(source, newRef, params);
    if (result == noErr && !params->copyingToDropBox) result = RestoreAfterCopy(*sourceInfo, newRef, newSpec);
    return result;
}

OSErr DoCopyFile(const FSRef* source, const FSCatalogInfo* sourceInfo, const FSRef* destDir,
                 const HFSUniStr255* newName, CopyParams* params, FSRef* newRef, FSSpec* newSpec) {
    bool isLink = !params->copyingToDropBox && IsLink(*sourceInfo);
    FSRef copy;
    FSSpec spec;
    bool isMade;
    PlatformKeepFilesOpen();
    OSErr result = MakeAndFill(source, sourceInfo, destDir, newName, params, &copy,
                               newSpec || isLink ? &spec : nullptr, &isMade);
    PlatformCloseKeptFiles();
    if (result != noErr) {
        if (isMade) FSDeleteObjects(&copy);
        return result;
    }
    if (newRef) *newRef = copy;
    if (newSpec) *newSpec = spec;
    return noErr;
}
