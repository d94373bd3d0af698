// The catalog by reference: what metadata.cpp tells and settings.cpp takes of a place, for the object that a
// reference stands for. A reference that came from a path through a link in its last place keeps the link's
// name and is set as the link itself, but tells of the link's target; only of a link that leads nowhere it
// tells the link's own facts, so that it can be deleted like anything else.
#include "platform/catalog.h"

#include "platform/linux/current_task.h"
#include "platform/linux/links.h"
#include "platform/linux/looks.h"
#include "platform/linux/metadata.h"
#include "platform/linux/names.h"
#include "platform/linux/with_descriptors.h"

#include <algorithm>

// The root has no parent; its number says so, and the reference is one that leads nowhere.
static OSErr ParentReference(const Place& place, FSRef& ref) {
    if (place.folderID != kRootParent) return FolderReference(place.folderID, ref);
    ref = {};
    return noErr;
}

static OSErr GetFacts(const Place& place, FSCatalogInfoBitmap whichInfo, FSCatalogInfo* info,
                      FSRef* parentRef) {
    const OSErr result = parentRef ? ParentReference(place, *parentRef) : noErr;
    return result == noErr && whichInfo != kFSCatInfoNone ? FillCatalogInfo(place, whichInfo, *info) : result;
}

static OSErr GetTargetFacts(const FSRef& ref, const Place& link, FSCatalogInfoBitmap whichInfo,
                            FSCatalogInfo* info, FSRef* parentRef) {
    Place target;
    const OSErr result = LocateTarget(ref, target);
    if (result == fnfErr) return GetFacts(link, whichInfo, info, parentRef);
    return result == noErr ? GetFacts(target, whichInfo, info, parentRef) : result;
}

static OSErr GetCatalogInfo(const FSRef& ref, FSCatalogInfoBitmap whichInfo, FSCatalogInfo* info,
                            HFSUniStr255* outName, FSSpec* fsSpec, FSRef* parentRef) {
    Place place;
    OSErr result = LocateOnce(ref, place);
    if (result != noErr) return result;
    if (outName) NameFromBytes(place.name, *outName);
    if (fsSpec) result = FillSpec(place, ref, *fsSpec);
    if (result != noErr) return result;
    return place.standsForTarget ? GetTargetFacts(ref, place, whichInfo, info, parentRef)
                                 : GetFacts(place, whichInfo, info, parentRef);
}

OSErr FSGetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap whichInfo, FSCatalogInfo* catalogInfo,
                       HFSUniStr255* outName, FSSpec* fsSpec, FSRef* parentRef) {
    if (!ref || (whichInfo != kFSCatInfoNone && !catalogInfo)) return paramErr;
    const TerminationHold hold;
    return WithDescriptors(
        [&] { return GetCatalogInfo(*ref, whichInfo, catalogInfo, outName, fsSpec, parentRef); });
}

OSErr FSSetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* catalogInfo) {
    if (!ref || (whichInfo != kFSCatInfoNone && !catalogInfo)) return paramErr;
    const TerminationHold hold;
    return WithDescriptors([&] {
        Place place;
        if (whichInfo == kFSCatInfoNone) return Locate(*ref, place);
        return ApplyCatalogInfo(*ref, whichInfo, *catalogInfo);
    });
}

static OSErr SetFinderInfo(const Place& place, const FInfo& finder) {
    if (S_ISREG(place.facts.stx_mode) && IsLinkFinderInfo(finder.bytes)) return TurnIntoLink(place);
    FSCatalogInfo info = {};
    std::copy(std::begin(finder.bytes), std::end(finder.bytes), info.finderInfo);
    return ApplyCatalogInfo(place, kFSCatInfoFinderInfo, info);
}

OSErr FSpSetFInfo(const FSSpec* spec, const FInfo* fndrInfo) {
    if (!spec || !fndrInfo) return paramErr;
    const TerminationHold hold;
    return WithDescriptors([&] {
        Place place;
        const OSErr result = Locate(spec->ref, place);
        return result == noErr ? SetFinderInfo(place, *fndrInfo) : result;
    });
}
