// Folder iterators: names from getdents64 in large batches, facts from statx entry by entry and only those
// that the caller wants. The kernel keeps the place in a listing while entries come and go, so deleting what
// was returned upsets nothing. Differs from the platform: sidecars of existing files are not shown, a delete
// iterator refuses mount points and yields nothing on a link, and one that had to give its descriptor back
// starts again from the beginning. Order: opening; one entry; the operations.
#include "platform/iterators.h"

#include "platform/linux/current_task.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/errors.h"
#include "platform/linux/folders.h"
#include "platform/linux/idle_iterators.h"
#include "platform/linux/metadata.h"
#include "platform/linux/names.h"
#include "platform/linux/sighting.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/trees.h"
#include "platform/linux/with_descriptors.h"

#include <cstring>
#include <fcntl.h>
#include <new>

namespace {
// What a caller of a bulk read asks for; arrays that are not wanted are null.
struct Wanted {
    FSCatalogInfoBitmap whichInfo;
    FSCatalogInfo* infos;
    FSRef* refs;
    FSSpec* specs;
    HFSUniStr255* names;
};
} // namespace

// ---- Opening

// Whether something is mounted there. Kernels before 5.8 do not say so themselves; a volume of its own tells
// it then.
static bool IsMountPoint(const Place& place) {
    if (place.folderID == kRootParent) return true;
    if (place.facts.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT)
        return place.facts.stx_attributes & STATX_ATTR_MOUNT_ROOT;
    struct statx above;
    return FactsAt(place.folder.descriptor(), "", AT_EMPTY_PATH, above) == 0 &&
           (above.stx_dev_major != place.facts.stx_dev_major ||
            above.stx_dev_minor != place.facts.stx_dev_minor);
}

static OSErr OpenReader(OpaqueFSIterator& iterator, const Place& folder) {
    OSErr result = OpenFolder(folder, iterator.item.folder);
    if (result == noErr) result = FolderNumber(folder, iterator.item.folderID);
    if (result == noErr) result = iterator.reader.Open(iterator.item.folder.descriptor());
    if (result != noErr || iterator.isForDelete) return result;
    iterator.bareFolder = SeeBareFolder(folder, iterator.item.folderID);
    const DeviceTraits traits = TraitsOf(folder.folderID, folder.name, folder.facts);
    iterator.mayOpenAhead = traits.stableInodes && traits.fineTimes; // not where opening asks a server
    return noErr;
}

// Looks through the names once for any that could be a sidecar's. That is much cheaper than to look beside
// each file.
static OSErr LookForSidecars(OpaqueFSIterator& iterator) {
    iterator.sidecarsMade = SidecarsMade();
    const char* name;
    unsigned format;
    OSErr result;
    do result = iterator.reader.Next(name, format);
    while (result == noErr && std::strncmp(name, "._", 2) != 0);
    if (result != noErr && result != errFSNoMoreItems) return result;
    iterator.hasNoSidecars = result == errFSNoMoreItems;
    return iterator.reader.Rewind();
}

static OSErr Open(OpaqueFSIterator& iterator) {
    Place folder;
    OSErr result =
        iterator.isForDelete ? Locate(iterator.container, folder) : LocateTarget(iterator.container, folder);
    if (result != noErr) return result;
    if (iterator.isForDelete && folder.isLink) {
        iterator.isOnLink = true;
        return noErr;
    }
    if (!S_ISDIR(folder.facts.stx_mode)) return errFSNotAFolder;
    // What is mounted belongs to no tree that is deleted.
    if (iterator.isForDelete && IsMountPoint(folder)) return fBsyErr;
    if (!iterator.wasOpen) iterator.changed = folder.facts.stx_mtime;
    iterator.wasOpen = true;
    return OpenReader(iterator, folder);
}

static bool MayHaveSidecars(const OpaqueFSIterator& iterator) {
    return !iterator.hasNoSidecars || iterator.sidecarsMade != SidecarsMade();
}

// Opens again what had to be given back. Nothing is known of sidecars then, and reading a long listing once
// more to know would cost more than it saves.
static OSErr WakeUp(OpaqueFSIterator& iterator) {
    if (iterator.isOnLink || iterator.reader.IsOpen()) return noErr;
    iterator.hasNoSidecars = false;
    return WithDescriptors([&] { return Open(iterator); });
}

// ---- One entry

// What statx has to tell of an entry, nothing if the listing has told enough.
static unsigned FactsNeeded(const Wanted& wanted, unsigned format) {
    if (wanted.whichInfo & ~(kFSCatInfoNodeFlags | kFSCatInfoTextEncoding)) return kFactsMask;
    if (wanted.refs || wanted.specs) return STATX_TYPE | STATX_INO | STATX_BTIME | STATX_CTIME | STATX_MNT_ID;
    return wanted.whichInfo != kFSCatInfoNone && format == 0 ? STATX_TYPE : 0;
}

// One who copies wants all that can be set.
static bool IsForCopy(const Wanted& wanted) {
    return (wanted.whichInfo & kFSCatInfoSettableInfo) == kFSCatInfoSettableInfo;
}

// Whether defaults may stand for what cannot be read: not for one who deletes or copies.
static bool TakesDefaults(const OpaqueFSIterator& iterator, const Wanted& wanted) {
    return !iterator.isForDelete && !IsForCopy(wanted);
}

// Whether a failure is the entry's own affair, such as of a volume mounted there whose server has gone.
static bool IsItsOwn(OSErr result) {
    return result != noErr && result != fnfErr && result != tmfoErr && result != memFullErr;
}

// Opens a file that is about to be copied, and looks at it; false when it has to be looked at by its name.
static bool LookByOpening(OpaqueFSIterator& iterator, const Wanted& wanted, unsigned format) {
    if (!iterator.mayOpenAhead || format != S_IFREG || !IsForCopy(wanted) || !wanted.refs || !CanOpenAhead())
        return false;
    Place& item = iterator.item;
    iterator.opened.Reset(OpenName(item.folder.descriptor(), item.name, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (!iterator.opened) return false;
    item.isLink = false;
    return FactsAt(iterator.opened.number(), "", AT_EMPTY_PATH, item.facts) == 0 &&
           S_ISREG(item.facts.stx_mode) && item.facts.stx_nlink > 0;
}

static OSErr LookAt(Place& item, const Wanted& wanted, unsigned format, bool takesDefaults) {
    const unsigned mask = FactsNeeded(wanted, format);
    OSErr result = noErr;
    if (mask != 0) {
        const int folder = item.folder.descriptor();
        constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
        if (FactsAt(folder, item.name, flags, item.facts, mask) != 0) result = LastError();
    }
    const bool isListedUnseen = IsItsOwn(result) && takesDefaults && format != 0;
    if (mask == 0 || isListedUnseen) {
        item.facts = {};
        item.facts.stx_mask = STATX_TYPE;
        item.facts.stx_mode = static_cast<uint16_t>(format);
    }
    item.isLink = S_ISLNK(item.facts.stx_mode);
    return isListedUnseen ? OSErr{noErr} : result;
}

// Finds the next entry that is shown; one that has gone since its batch was read is not.
static OSErr NextItem(OpaqueFSIterator& iterator, const Wanted& wanted) {
    Place& item = iterator.item;
    for (;;) {
        const char* name;
        unsigned format;
        OSErr result = iterator.reader.Next(name, format);
        if (result != noErr) return result;
        const size_t length = std::strlen(name);
        // Volumes with names in 16-bit units can have longer ones.
        if (length > kMaxNameBytes) {
            iterator.leftOut = bdNamErr;
            continue;
        }
        std::memcpy(item.name, name, length + 1);
        result = WithDescriptors([&] { return FindSidecar(item.folder.descriptor(), item.name); });
        if (result == noErr) continue;
        if (result == fnfErr && LookByOpening(iterator, wanted, format)) return noErr;
        iterator.opened.Reset(-1);
        if (iterator.isForDelete) iterator.lookedAt = MonotonicNow();
        if (result == fnfErr) result = LookAt(item, wanted, format, TakesDefaults(iterator, wanted));
        if (IsItsOwn(result))
            iterator.leftOut = result;
        else if (result != fnfErr)
            return result;
    }
}

// Writes what the caller wants of the entry in hand to place `index` of its arrays.
static OSErr Describe(OpaqueFSIterator& iterator, const Wanted& wanted, ItemCount index) {
    const Place& item = iterator.item;
    FSRef own;
    FSRef& ref = wanted.refs ? wanted.refs[index] : own;
    OSErr result = noErr;
    if (wanted.refs || wanted.specs) result = MakeReference(item.folderID, item.name, item.facts, false, ref);
    if (result == noErr && wanted.specs) result = FillSpec(item, ref, wanted.specs[index]);
    if (result == noErr && wanted.whichInfo != kFSCatInfoNone)
        result = FillCatalogInfo(item, wanted.whichInfo, wanted.infos[index], MayHaveSidecars(iterator),
                                 iterator.opened.number());
    if (result == ioErr && TakesDefaults(iterator, wanted)) result = noErr;
    if (result == noErr && wanted.names) NameFromBytes(item.name, wanted.names[index]);
    if (result == noErr && iterator.isForDelete && iterator.hasNoSidecars && wanted.refs &&
        (wanted.whichInfo & kFSCatInfoNodeFlags))
        RememberSighting(ref, item, wanted.infos[index].nodeFlags & kFSNodeLockedMask, iterator.sidecarsMade,
                         iterator.lookedAt);
    if (result == noErr && iterator.opened) KeepOpenedAhead(ref, iterator.opened.Release());
    return result;
}

// Entries that cannot be told of are left out, and the end of the listing says why.
static OSErr Fetch(OpaqueFSIterator& iterator, const Wanted& wanted, ItemCount index) {
    for (;;) {
        OSErr result = NextItem(iterator, wanted);
        if (result == errFSNoMoreItems && iterator.leftOut != noErr) return iterator.leftOut;
        if (result != noErr) return result;
        result = WithDescriptors([&] { return Describe(iterator, wanted, index); });
        if (IsItsOwn(result))
            iterator.leftOut = result;
        else if (result != fnfErr)
            return result;
    }
}

// Whether the folder has changed since it was last asked about here.
static bool NoticeChange(OpaqueFSIterator& iterator) {
    struct statx facts;
    if (!iterator.reader.IsOpen() ||
        FactsAt(iterator.reader.descriptor(), "", AT_EMPTY_PATH, facts, STATX_MTIME) != 0)
        return false;
    const struct statx_timestamp before = iterator.changed;
    iterator.changed = facts.stx_mtime;
    return before.tv_sec != facts.stx_mtime.tv_sec || before.tv_nsec != facts.stx_mtime.tv_nsec;
}

// ---- The operations

OSErr FSOpenIterator(const FSRef* container, FSIteratorFlags iteratorFlags, FSIterator* iterator) {
    if (!container || !iterator || (iteratorFlags != kFSIterateFlat && iteratorFlags != kFSIterateDelete))
        return paramErr;
    const TerminationHold hold;
    std::unique_ptr<OpaqueFSIterator> opened(new (std::nothrow) OpaqueFSIterator);
    if (!opened) return memFullErr;
    opened->container = *container;
    opened->isForDelete = iteratorFlags == kFSIterateDelete;
    OSErr result = WithDescriptors([&] { return Open(*opened); });
    if (result == noErr && !opened->isOnLink) result = LookForSidecars(*opened);
    if (result != noErr) return result;
    *iterator = opened.release();
    if ((*iterator)->isForDelete) LetRest(**iterator);
    return noErr;
}

OSErr FSGetCatalogInfoBulk(FSIterator iterator, ItemCount maximumObjects, ItemCount* actualObjects,
                           Boolean* containerChanged, FSCatalogInfoBitmap whichInfo,
                           FSCatalogInfo* catalogInfos, FSRef* refs, FSSpec* specs, HFSUniStr255* names) {
    if (!iterator || !actualObjects) return paramErr;
    *actualObjects = 0;
    if (maximumObjects == 0 || (whichInfo != kFSCatInfoNone && !catalogInfos)) return paramErr;

    const TerminationHold hold;
    if (iterator->isForDelete) TakeUp(*iterator);
    CloseOpenedAhead();
    OSErr result = iterator->pending;
    iterator->pending = noErr;
    if (result == noErr) result = WakeUp(*iterator);
    if (containerChanged) *containerChanged = NoticeChange(*iterator);
    if (result == noErr && iterator->isOnLink) result = errFSNoMoreItems;

    if (iterator->hasNoSidecars) RememberBareFolder(iterator->bareFolder);
    const Wanted wanted{whichInfo, catalogInfos, refs, specs, names};
    while (result == noErr && *actualObjects < maximumObjects) {
        result = Fetch(*iterator, wanted, *actualObjects);
        if (result == noErr) ++*actualObjects;
    }
    if (iterator->isForDelete && iterator->reader.IsOpen()) LetRest(*iterator);
    if (*actualObjects == 0) return result;
    // What came before an error is given first, the error with the next call.
    iterator->pending = result;
    return noErr;
}

OSErr FSCloseIterator(FSIterator iterator) {
    if (!iterator) return paramErr;
    const TerminationHold hold;
    if (iterator->isForDelete) TakeUp(*iterator);
    delete iterator;
    return noErr;
}
