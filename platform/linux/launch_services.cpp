// Launch Services, as far as packages go. The host has no such notion: a folder is a package when its
// extension is one of those that the platform knows, letter case aside, or when its Finder flags carry the
// bundle bit. The attribute that holds the flags is read only when the name does not tell.
#include "platform/launch_services.h"

#include "platform/linux/current_task.h"
#include "platform/linux/metadata.h"

#include <cstring>

constexpr uint16_t kHasBundle = 0x2000;

static constexpr const char* kPackageExtensions[] = {
    "app",      "bundle", "plugin",    "kext", "rtfd",      "pkg",        "mpkg",
    "prefPane", "saver",  "component", "wdgt", "xcodeproj", "mdimporter", "qlgenerator",
};

// ASCII letter case ignored, whatever the process's locale says.
static bool EqualFolded(const char* a, const char* b) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; };
    while (*a && lower(*a) == lower(*b)) ++a, ++b;
    return lower(*a) == lower(*b);
}

static bool HasPackageName(const char* name) {
    const char* dot = strrchr(name, '.');
    if (!dot || dot == name) return false;
    for (const char* extension : kPackageExtensions) {
        if (EqualFolded(dot + 1, extension)) return true;
    }
    return false;
}

static bool HasBundleBit(const Place& place) {
    FSCatalogInfo info;
    if (FillCatalogInfo(place, kFSCatInfoFinderInfo, info) != noErr) return false;
    return (info.finderInfo[8] << 8 | info.finderInfo[9]) & kHasBundle;
}

OSStatus LSCopyItemInfoForRef(const FSRef* itemRef, LSRequestedInfo, LSItemInfoRecord* info) {
    if (!info) return paramErr;
    *info = {};
    if (!itemRef) return paramErr;
    const TerminationHold hold;
    Place place;
    if (OSErr error = LocateTarget(*itemRef, place); error != noErr) return error;
    if (S_ISDIR(place.facts.stx_mode) && (HasPackageName(place.name) || HasBundleBit(place)))
        info->flags = kLSItemInfoIsPackage;
    return noErr;
}
