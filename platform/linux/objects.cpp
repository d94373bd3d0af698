// Creating, deleting, moving and renaming, on openat, mkdirat, unlinkat and renameat2 in folders whose
// identity has been checked; no path is ever walked again. Differs from the platform: a link is deleted,
// moved and renamed itself, while creating in one or moving into one means its target; an object's sidecar
// goes with it; an object that stays where it is under its own name is no duplicate of itself; a new object
// keeps to the umask unless permissions are given. Order: what the operations share; creating; deleting;
// moving and renaming.
#include "platform/objects.h"

#include "platform/linux/attributes.h"
#include "platform/linux/current_task.h"
#include "platform/linux/errors.h"
#include "platform/linux/kept_dates.h"
#include "platform/linux/kept_files.h"
#include "platform/linux/metadata.h"
#include "platform/linux/names.h"
#include "platform/linux/sighting.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/trees.h"
#include "platform/linux/with_descriptors.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

// ---- What the operations share

static bool IsFolder(const Place& place) {
    return S_ISDIR(place.facts.stx_mode);
}

// Removes the entry itself. One of another kind means that the object has gone and something else took its
// name.
static OSErr Unlink(const Place& place) {
    const int flags = IsFolder(place) ? AT_REMOVEDIR : 0;
    if (Retry([&] { return unlinkat(place.folder.descriptor(), place.name, flags); }) == 0) return noErr;
    switch (LastErrorNumber()) {
    case ENOTDIR:
    case EISDIR:
        return fnfErr;
    case EEXIST:
        return fBsyErr; // some file systems' word for a folder that is not empty
    default:
        return LastError();
    }
}

// ---- Creating

// Takes back what has been made and cannot be looked at; gives why.
static OSErr RemoveUnseen(const Place& made, int flags) {
    const OSErr result = LastError();
    (void)Retry([&] { return unlinkat(made.folder.descriptor(), made.name, flags); });
    return result;
}

// Makes the empty file or folder that `made` names and looks at it; a file stays open.
static OSErr MakeFile(Place& made, mode_t mode, Descriptor& file) {
    file.Reset(OpenName(made.folder.descriptor(), made.name, O_WRONLY | O_CREAT | O_EXCL, mode));
    if (!file) return LastErrorNumber() == EINVAL ? bdNamErr : LastError();
    if (FactsAt(file.number(), "", AT_EMPTY_PATH, made.facts) == 0) return noErr;
    return RemoveUnseen(made, 0);
}

static OSErr MakeFolder(Place& made, mode_t mode, Descriptor&) {
    const int folder = made.folder.descriptor();
    if (Retry([&] { return mkdirat(folder, made.name, mode); }) != 0)
        return LastErrorNumber() == EINVAL ? bdNamErr : LastError();
    if (FactsAt(folder, made.name, AT_SYMLINK_NOFOLLOW, made.facts) != 0)
        return RemoveUnseen(made, AT_REMOVEDIR);
    return IsFolder(made) ? noErr : fnfErr;
}

// Takes back what has just been made, unless something else bears its name by now.
static void Unmake(const Place& made) {
    ForgetContentDate(made.facts);
    struct statx facts;
    if (FactsAt(made.folder.descriptor(), made.name, AT_SYMLINK_NOFOLLOW, facts) != 0) return;
    if (facts.stx_ino != made.facts.stx_ino || Unlink(made) != noErr) return;
    (void)RemoveSidecar(made.folder.descriptor(), made.name);
    ObjectDeleted(made);
}

namespace {
// What a creating call is to give the new object and to tell of it.
struct Creation {
    FSCatalogInfoBitmap whichInfo;
    const FSCatalogInfo* catalogInfo;
    FSRef* newRef;
    FSSpec* newSpec;
    uint32_t* newDirID;
};
} // namespace

// The mode to make an object with. Where permissions are to follow, nobody else gets in before they are set,
// unless they are the same for all others, whatever owner and group are set before them.
static mode_t ModeWhenMade(const Creation& creation, mode_t usual) {
    if (!(creation.whichInfo & kFSCatInfoPermissions)) return usual;
    const mode_t own = usual & S_IRWXU, mode = creation.catalogInfo->permissions.mode & 07777;
    const bool isSameForOthers = (mode >> 3 & 7) == (mode & 7) && !(mode & ~0777u);
    return isSameForOthers && (mode & own) == own ? mode : own;
}

// Gives the new object its facts and tells the caller of it.
static OSErr Furnish(Place& made, Descriptor& file, const Creation& creation) {
    FSRef ref;
    NewFile newFile = {file.number(), creation.newRef && CanKeepNewFile(), {}, false};
    const uint64_t sidecars = SidecarsMade();
    OSErr result = WithDescriptors([&] {
        return FurnishNewObject(made, creation.whichInfo, creation.catalogInfo, file ? &newFile : nullptr);
    });
    if (result == noErr) result = MakeReference(made.folderID, made.name, made.facts, false, ref);
    if (result == noErr && IsFolder(made)) NoteNewFolder(made);
    NoteName(made);
    if (result == noErr && creation.newSpec) result = FillSpec(made, ref, *creation.newSpec);
    if (result == noErr && creation.newDirID) result = FolderNumber(made, *creation.newDirID);
    if (result != noErr || !creation.newRef) return result;
    *creation.newRef = ref;
    if (file && SidecarsMade() == sidecars)
        KeepNewFile(ref, made, file, newFile, sidecars);
    else if (newFile.owesDates)
        result = SetOwedDates(file.number(), made.facts);
    return result;
}

static OSErr Create(const FSRef* parentRef, UniCharCount nameLength, const UniChar* name,
                    const Creation& creation, mode_t usualMode, OSErr (*make)(Place&, mode_t, Descriptor&)) {
    if (!parentRef || !name || (creation.whichInfo != kFSCatInfoNone && !creation.catalogInfo))
        return paramErr;
    const TerminationHold hold;
    Place made{};
    OSErr result = BytesFromName(name, nameLength, made.name);
    if (result == noErr)
        result = WithDescriptors([&] { return OpenContainer(*parentRef, made.folderID, made.folder); });
    Descriptor file;
    if (result == noErr)
        result = WithDescriptors([&] { return make(made, ModeWhenMade(creation, usualMode), file); });
    if (result != noErr) return result;
    result = Furnish(made, file, creation);
    if (result != noErr) Unmake(made);
    return result;
}

OSErr FSCreateFileUnicode(const FSRef* parentRef, UniCharCount nameLength, const UniChar* name,
                          FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* catalogInfo, FSRef* newRef,
                          FSSpec* newSpec) {
    return Create(parentRef, nameLength, name, {whichInfo, catalogInfo, newRef, newSpec, nullptr}, 0666,
                  MakeFile);
}

OSErr FSCreateDirectoryUnicode(const FSRef* parentRef, UniCharCount nameLength, const UniChar* name,
                               FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* catalogInfo, FSRef* newRef,
                               FSSpec* newSpec, uint32_t* newDirID) {
    return Create(parentRef, nameLength, name, {whichInfo, catalogInfo, newRef, newSpec, newDirID}, 0777,
                  MakeFolder);
}

// ---- Deleting

// Whether the object may go, and what goes with it.
static OSErr CheckDeletion(const Place& place, Beside& beside) {
    const OSErr result = CheckUnlocked(place, fLckdErr);
    return result == noErr ? CheckSidecarRemoval(place.folder.descriptor(), place.name, beside) : result;
}

// Deletes a file of a tree that has just been listed, where it was listed; false when the longer way has to be taken.
static bool DeleteSeen(const FSRef& ref) {
    Place place;
    Identity identity;
    return IsInTree() && IsSeenJustNow(ref) && Guess(ref, place, identity) == noErr && identity.byNumber &&
           !IsFolder(place) && Unlink(place) == noErr;
}

OSErr FSDeleteObject(const FSRef* ref) {
    if (!ref) return paramErr;
    const TerminationHold hold;
    if (DeleteSeen(*ref)) return noErr;
    Place place;
    OSErr result = WithDescriptors([&] { return Locate(*ref, place); });
    if (result != noErr) return result;
    if (place.folderID == kRootParent) return fBsyErr;

    bool isLocked;
    Beside beside = Beside::kNothing;
    if (RecallSighting(*ref, place, isLocked))
        result = isLocked ? fLckdErr : noErr;
    else
        result = WithDescriptors([&] { return CheckDeletion(place, beside); });
    if (result == noErr) result = Unlink(place);
    if (result != noErr) return result;
    ObjectDeleted(place);
    if (beside == Beside::kNothing) return noErr;
    return WithDescriptors(
        [&] { return RemoveSidecar(place.folder.descriptor(), place.name, beside == Beside::kSidecar); });
}

// ---- Moving and renaming

// Whether both names lead to one entry, as where letter case does not count. Two links to a file are two
// entries.
static bool AreOneEntry(const Place& from, const Place& to) {
    struct statx facts;
    return from.folderID == to.folderID && (IsFolder(from) || from.facts.stx_nlink == 1) &&
           FactsAt(to.folder.descriptor(), to.name, AT_SYMLINK_NOFOLLOW, facts) == 0 &&
           facts.stx_ino == from.facts.stx_ino && facts.stx_dev_major == from.facts.stx_dev_major &&
           facts.stx_dev_minor == from.facts.stx_dev_minor;
}

// Renames the entry without replacing another, unless that other is itself in another spelling.
static OSErr RenameEntry(const Place& from, const Place& to) {
    const int folder = from.folder.descriptor(), newFolder = to.folder.descriptor();
    if (RenameWithoutReplacing(folder, from.name, newFolder, to.name) == 0) return noErr;
    const OSErr result = LastError();
    if (result != dupFNErr || !AreOneEntry(from, to)) return result;
    return Retry([&] { return renameat(folder, from.name, newFolder, to.name); }) == 0 ? noErr : LastError();
}

// Renames the object and its sidecar, both or neither.
static OSErr RenameWithSidecar(const Place& from, const Place& to) {
    const int folder = from.folder.descriptor(), newFolder = to.folder.descriptor();
    bool hasSidecar = false;
    OSErr result =
        WithDescriptors([&] { return CheckSidecarMove(folder, from.name, newFolder, to.name, &hasSidecar); });
    if (result == dupFNErr && AreOneEntry(from, to)) result = noErr;
    if (result == noErr) result = RenameEntry(from, to);
    if (result != noErr) return result;
    result =
        WithDescriptors([&] { return RenameSidecar(folder, from.name, newFolder, to.name, hasSidecar); });
    if (result != noErr) (void)RenameWithoutReplacing(newFolder, to.name, folder, from.name);
    return result;
}

// Brings the object at `from` to where `to` names, and tells references of it.
static OSErr Relocate(const Place& from, const Place& to, FSRef* newRef) {
    if (from.folderID == kRootParent) return fBsyErr;
    if (from.folderID != to.folderID || std::strcmp(from.name, to.name) != 0) {
        const OSErr result = RenameWithSidecar(from, to);
        if (result != noErr) return result;
        ObjectMoved(from, to.folderID, to.name);
        NoteName(to);
    }
    return newRef ? MakeReference(to.folderID, to.name, from.facts, from.standsForTarget, *newRef) : noErr;
}

OSErr FSMoveObject(const FSRef* ref, const FSRef* destDirectory, FSRef* newRef) {
    if (!ref || !destDirectory) return paramErr;
    const TerminationHold hold;
    Place from, to;
    OSErr result = WithDescriptors([&] { return Locate(*ref, from); });
    if (result == noErr)
        result = WithDescriptors([&] { return OpenContainer(*destDirectory, to.folderID, to.folder); });
    if (result != noErr) return result;
    std::memcpy(to.name, from.name, sizeof to.name);
    return Relocate(from, to, newRef);
}

OSErr FSRenameUnicode(const FSRef* ref, UniCharCount nameLength, const UniChar* name, TextEncoding,
                      FSRef* newRef) {
    if (!ref || !name) return paramErr;
    const TerminationHold hold;
    Place from, to;
    OSErr result = BytesFromName(name, nameLength, to.name);
    if (result == noErr) result = WithDescriptors([&] { return Locate(*ref, from); });
    if (result != noErr) return result;
    to.folder = from.folder;
    to.folderID = from.folderID;
    return Relocate(from, to, newRef);
}
