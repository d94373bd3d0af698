#include "copy/object_copy.h"

#include "copy/file_copy.h"
#include "copy/folder_copy.h"
#include "copy/mounted_source.h"
#include "copy/recursive_delete.h"
#include "copy/volume_facts.h"
#include "platform/catalog.h"
#include "platform/objects.h"
#include "platform/references.h"

#include <algorithm>
#include <iterator>

static const HFSUniStr255 kSetAsideName = {9, {'.', 'D', 'e', 'l', 'e', 't', 'e', 'M', 'e'}};

OSErr GetObjectName(const FSRef* ref, HFSUniStr255* name) {
    return FSGetCatalogInfo(ref, kFSCatInfoNone, nullptr, name, nullptr, nullptr);
}

// Where a collision's suffix goes: before the last dot, or at the end of a name that has none or only a
// leading one.
static uint16_t SuffixPosition(const HFSUniStr255& name) {
    for (uint16_t i = name.length; i > 1; --i)
        if (name.unicode[i - 1] == '.') return static_cast<uint16_t>(i - 1);
    return name.length;
}

OSErr GetUniqueName(const FSRef* destDir, HFSUniStr255* name) {
    if (name->length + 2u > std::size(name->unicode))
        return noErr; // no room; the creation reports the conflict

    uint16_t at = SuffixPosition(*name);
    HFSUniStr255 candidate = *name;
    std::copy(name->unicode + at, name->unicode + name->length, candidate.unicode + at + 2);
    candidate.unicode[at] = ' ';
    candidate.length = static_cast<uint16_t>(name->length + 2);

    // kept: ten tries with nine digits; the tenth carries the text's terminator in place of a digit.
    static const char digits[] = "123456789";
    OSErr result = noErr;
    for (int tries = 0; tries < 10 && result == noErr; ++tries) {
        candidate.unicode[at + 1] = static_cast<UniChar>(digits[tries]);
        FSRef existing;
        result =
            FSMakeFSRefUnicode(destDir, candidate.length, candidate.unicode, kTextEncodingUnknown, &existing);
    }
    if (result != fnfErr) return result;
    *name = candidate;
    return noErr;
}

OSErr SetupDestination(const FSRef* destDir, DupeAction dupeAction, HFSUniStr255* name, FSRef* deleteMeRef,
                       Boolean* isReplacing) {
    *isReplacing = false;
    FSRef existing;
    OSErr result = FSMakeFSRefUnicode(destDir, name->length, name->unicode, kTextEncodingUnknown, &existing);
    if (result == fnfErr) return noErr;
    if (result != noErr) return result;

    switch (dupeAction) {
    case kDupeActionReplace:
        result = FSRenameUnicode(&existing, kSetAsideName.length, kSetAsideName.unicode, kTextEncodingUnknown,
                                 deleteMeRef);
        *isReplacing = result == noErr;
        return result;
    case kDupeActionRename:
        return GetUniqueName(destDir, name);
    default:
        return noErr;
    }
}

// The smaller of the two volumes' buffer sizes, and what the destination's server can do.
static OSErr CompareVolumes(const FSRef* source, const FSRef* destDir, CopyParams* params) {
    FSVolumeRefNum sourceVolume, destVolume;
    GetVolParmsInfoBuffer sourceParms, destParms;
    ByteCount sourceFilled, destFilled;
    OSErr result = FSGetVRefNum(source, &sourceVolume);
    if (result == noErr)
        result = FSGetVolParms(sourceVolume, sizeof sourceParms, &sourceParms, &sourceFilled);
    if (result == noErr) result = FSGetVRefNum(destDir, &destVolume);
    if (result != noErr) return result;

    params->copyBufferSize = CalcBufferSizeForVol(&sourceParms, sourceFilled);
    if (destVolume == sourceVolume) {
        destParms = sourceParms;
    } else {
        result = FSGetVolParms(destVolume, sizeof destParms, &destParms, &destFilled);
        if (result != noErr) return result;
        params->copyBufferSize =
            std::min(params->copyBufferSize, CalcBufferSizeForVol(&destParms, destFilled));
    }
    params->copyingToLocalVolume = destParms.vMServerAdr == 0;
    params->volHasCopyFile = !params->copyingToLocalVolume &&
                             destParms.vMServerAdr == sourceParms.vMServerAdr &&
                             (sourceParms.vMAttrib & kVolParmsHasCopyFile);
    return noErr;
}

OSErr FSCopyObjectPreflight(const FSRef* source, const FSRef* destDir, DupeAction dupeAction,
                            CopyParams* params, HFSUniStr255* newObjectName, FSCatalogInfo* sourceInfo,
                            Boolean* isDirectory, FSRef* deleteMeRef, Boolean* isReplacing) {
    if (!source || !destDir || !params || !newObjectName || !sourceInfo || !isDirectory || !deleteMeRef ||
        !isReplacing)
        return paramErr;
    *params = {};
    params->dupeAction = dupeAction;

    OSErr result = FSGetCatalogInfo(source, kFSCatInfoSettableInfo, sourceInfo, nullptr, nullptr, nullptr);
    if (result == noErr) result = CompareVolumes(source, destDir, params);
    if (result != noErr) return result;

    params->copyBuffer = NewPtr(static_cast<Size>(params->copyBufferSize));
    if (!params->copyBuffer) return MemError();
    result = IsDropBox(destDir, &params->copyingToDropBox);
    if (result != noErr) return result;

    *isDirectory = (sourceInfo->nodeFlags & kFSNodeIsDirectoryMask) != 0;
    PlatformEndQuestions(); // from here on things change
    return SetupDestination(destDir, dupeAction, newObjectName, deleteMeRef, isReplacing);
}

// Ends a replacing copy: the set-aside object goes when the copy is complete, and comes back when it failed.
static OSErr FinishReplacing(OSErr result, const FSRef* newObject, const FSRef* setAside,
                             const HFSUniStr255& sourceName) {
    if (result == noErr) return FSDeleteObjects(setAside);
    FSDeleteObjects(newObject);
    // kept: it comes back under the source's name, also where the copy was to have another.
    FSRenameUnicode(setAside, sourceName.length, sourceName.unicode, kTextEncodingUnknown, nullptr);
    return result;
}

// Undoes the setting aside when the source would go with what was set aside. A source that was met through a
// link to it leads nowhere by now, or would lead to the copy itself; a folder that is the old object or lies in
// it would be deleted with it, with every item that could not be copied. A file that is the old object goes on
// by its new reference, since on some volumes the other one will stand for whatever has its name.
static OSErr CheckSourceAfterSettingAside(const FSRef*& source, Boolean isDirectory, const FSRef* setAside,
                                          const HFSUniStr255& name, Boolean* isReplacing) {
    OSErr result = FSCompareFSRefs(source, setAside);
    if (result == noErr && !isDirectory) source = setAside;
    const bool areVolumesUnrelated = result == diffVolErr; // neither is mounted inside the other
    if (result == errFSRefsDifferent || areVolumesUnrelated) result = noErr;
    if (result == noErr && isDirectory) result = CheckForDestInsideSrc(setAside, source);
    if (result == noErr && isDirectory && !areVolumesUnrelated)
        result = CheckForMountedSource(source, setAside);
    if (result == noErr) return noErr;
    FSRenameUnicode(setAside, name.length, name.unicode, kTextEncodingUnknown, nullptr);
    *isReplacing = false;
    return result;
}

static OSErr CopyPreflighted(const FSRef* source, const FSRef* destDir, ItemCount maxLevels,
                             Boolean isDirectory, const FSCatalogInfo* sourceInfo, const HFSUniStr255* name,
                             CopyParams* params, FilterParams* filter, FSRef* newRef, FSSpec* newSpec) {
    if (!isDirectory) return FSCopyFile(source, destDir, sourceInfo, name, params, filter, newRef, newSpec);
    OSErr result = CheckForDestInsideSrc(source, destDir);
    if (result != noErr) return result;
    return FSCopyFolder(source, destDir, sourceInfo, name, params, filter, maxLevels, newRef, newSpec);
}

OSErr FSCopyObject(const FSRef* source, const FSRef* destDir, ItemCount maxLevels,
                   FSCatalogInfoBitmap whichInfo, DupeAction dupeAction, const HFSUniStr255* newName,
                   Boolean wantFSSpec, Boolean wantName, CopyFilterProc filterProc, void* yourDataPtr,
                   FSRef* newRef, FSSpec* newSpec) {
    if (!source || !destDir) return paramErr;
    FSRef newObject{}, setAside{};
    FilterParams filter{whichInfo, filterProc, static_cast<Boolean>(filterProc && wantFSSpec),
                        static_cast<Boolean>(filterProc && wantName), yourDataPtr};

    HFSUniStr255 sourceName;
    OSErr result = GetObjectName(source, &sourceName);
    if (result != noErr) return result;
    HFSUniStr255 name = newName ? *newName : sourceName;

    CopyParams params;
    FSCatalogInfo sourceInfo;
    Boolean isDirectory = false, isReplacing = false;
    result = FSCopyObjectPreflight(source, destDir, dupeAction, &params, &name, &sourceInfo, &isDirectory,
                                   &setAside, &isReplacing);
    if (result == noErr && isReplacing)
        result = CheckSourceAfterSettingAside(source, isDirectory, &setAside, name, &isReplacing);
    if (result == noErr)
        result = CopyPreflighted(source, destDir, maxLevels, isDirectory, &sourceInfo, &name, &params,
                                 &filter, &newObject, newSpec);
    if (dupeAction == kDupeActionReplace && isReplacing)
        result = FinishReplacing(result, &newObject, &setAside, sourceName);
    if (result == noErr && newRef) *newRef = newObject;
    if (params.copyBuffer) DisposePtr(params.copyBuffer);
    return result;
}
