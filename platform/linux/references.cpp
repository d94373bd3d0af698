// References: making them, finding their objects and comparing them.
// The platform finds any object by its number in the catalog. The host finds names only, so a reference says
// in which folder and under which name its object was seen, and the identity tells whether what stands there
// is still it. When it is not, the ways to find it are, in this order: where the library itself moved it;
// another name in the folder, for a folder or a file with one link; another folder that has taken the place
// of the one it was seen in. Sections: making, finding, telling changes, names in folders, comparing, paths.
#include "platform/linux/references.h"

#include "platform/linux/current_task.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/folders.h"
#include "platform/linux/lookup.h"
#include "platform/linux/names.h"
#include "platform/linux/reference_record.h"
#include "platform/linux/reference_state.h"
#include "platform/linux/spots.h"
#include "platform/linux/system_calls.h"
#include "platform/references.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

// ---- Making ----

OSErr MakeReference(FolderID folderID, const char* name, const struct statx& facts, bool fromPath,
                    FSRef& ref) {
    FolderID own = kNoFolder;
    if (S_ISDIR(facts.stx_mode)) {
        OSErr result = EnterFolder(folderID, name, facts, own);
        if (result != noErr) return result;
    }
    Identity identity = IdentityOf(facts, TraitsOf(folderID, name, facts));
    if (std::strlen(name) > ReferenceRecord::kInlineName)
        StateLock()->longNames.Remember(identity, folderID, name);
    // Where the name is the identity, what stands there now is not what went from there.
    if (!identity.byNumber) StateLock()->moves.Forget(identity, folderID, HashName(name, std::strlen(name)));
    ref = Pack(identity, folderID, own, name, fromPath && S_ISLNK(facts.stx_mode));
    return noErr;
}

OSErr FolderReference(FolderID id, FSRef& ref) {
    if (id == kRootFolder) {
        Place root;
        OSErr result = PlaceOfFolder(id, root);
        return result != noErr ? result : MakeReference(kRootParent, ".", root.facts, false, ref);
    }
    StateLock state;
    const FolderRecord* record = state->folders.Find(id);
    if (!record) return fnfErr;
    // The name in a folder's reference is never looked at: the table knows the latest.
    ref = Pack(IdentityOf(*record), record->parent, id, ".", false);
    return noErr;
}

// ---- Finding ----

namespace {

// A reference's folder number stands for the very folder that the reference was made for.
bool OwnNumberHolds(const ReferenceRecord& record, const Identity& identity) {
    if (record.own == kNoFolder || record.own == kRootFolder) return true;
    StateLock state;
    const FolderRecord* folder = state->folders.Find(record.own);
    return folder && folder->device == identity.device && folder->birth == identity.birth &&
           (!identity.byNumber || folder->inode == identity.inode);
}

// Where the object was seen last: the table says it for folders, the reference itself for others.
bool SpotOf(const ReferenceRecord& record, const Identity& identity, Spot& spot) {
    spot.folder = record.parent;
    spot.nameHash = record.nameHash;
    const char* name = record.name;
    size_t length = record.nameLength;
    bool known = length <= ReferenceRecord::kInlineName;
    if (!known || record.own != kNoFolder) {
        StateLock state;
        if (record.own != kNoFolder) {
            const FolderRecord* folder = state->folders.Find(record.own);
            if (!folder) return false;
            spot.folder = folder->parent;
            spot.nameHash = folder->nameHash;
            known = folder->HasName();
            length = folder->nameLength;
            if (known) std::memcpy(spot.name, folder->name, length);
        }
        if (!known) {
            if (!state->longNames.Recall(identity, spot.folder, spot.nameHash, spot.name)) spot.name[0] = 0;
            return true;
        }
    }
    if (record.own == kNoFolder) std::memcpy(spot.name, name, length);
    spot.name[length] = 0;
    return true;
}

} // namespace

bool LastSeen(const FSRef& ref, ReferenceRecord& record, Identity& identity, Spot& spot) {
    if (!Unpack(ref, record)) return false;
    identity = IdentityOf(record);
    return OwnNumberHolds(record, identity) && SpotOf(record, identity, spot);
}

namespace {

OSErr OpenSpot(FolderID folder, FolderHandle& handle) {
    return OpenFolder(folder == kRootParent ? kRootFolder : folder, handle);
}

void Note(const ReferenceRecord& record, Place& place) {
    place.isLink = S_ISLNK(place.facts.stx_mode);
    place.standsForTarget = place.isLink && (record.flags & kFromPath);
}

OSErr LookUnder(const ReferenceRecord& record, const Identity& identity, const Spot& spot, Place& place) {
    OSErr result = OpenSpot(spot.folder, place.folder);
    if (result != noErr) return result;
    result = FactsOfName(place.folder, spot.name, place.facts);
    if (result != noErr && LastErrorNumber() == ESTALE) {
        // A server has let the open folder go; its name leads to it again.
        StateLock()->descriptors.Drop(spot.folder);
        result = OpenSpot(spot.folder, place.folder);
        if (result == noErr) result = FactsOfName(place.folder, spot.name, place.facts);
    }
    if (result != noErr) return result;
    if (!Matches(identity, place.facts)) return fnfErr;
    std::strcpy(place.name, spot.name);
    place.folderID = spot.folder;
    Note(record, place);
    return noErr;
}

// Keeps in mind that the object is at `place` now.
void Remember(const ReferenceRecord& record, const Identity& identity, const Spot& old, const Place& place) {
    StateLock state;
    if (record.own != kNoFolder)
        state->folders.SetPlace(record.own, place.folderID, place.name);
    else if (place.folderID != old.folder || HashName(place.name, std::strlen(place.name)) != old.nameHash)
        state->moves.Remember(identity, old.folder, old.nameHash, place.folderID, place.name);
    if (std::strlen(place.name) > ReferenceRecord::kInlineName)
        state->longNames.Remember(identity, place.folderID, place.name);
}

OSErr LookThrough(const ReferenceRecord& record, const Identity& identity, const Spot& spot, Place& place) {
    OSErr result = OpenSpot(spot.folder, place.folder);
    if (result != noErr) return result;
    result = FindInFolder(place.folder, identity, spot.nameHash, place.name, place.facts);
    if (result != noErr) return result;
    place.folderID = spot.folder;
    Note(record, place);
    Remember(record, identity, spot, place);
    return noErr;
}

// Follows the moves that the library has made; `spot` is left at the last one.
OSErr LookWhereMoved(const ReferenceRecord& record, const Identity& identity, Spot& spot, Place& place) {
    constexpr int kMostMoves = 64; // a ring of moves leads nowhere
    for (int move = 0; move < kMostMoves; ++move) {
        if (!StateLock()->moves.Follow(identity, spot.folder, spot.nameHash, spot.name)) return fnfErr;
        OSErr result = LookUnder(record, identity, spot, place);
        if (result != fnfErr) return result;
    }
    return fnfErr;
}

OSErr LookInReplacement(const ReferenceRecord& record, const Identity& identity, const Spot& spot,
                        Place& place) {
    // Where the name is the identity, any file of that name would do.
    if (!spot.name[0] || !identity.byNumber) return fnfErr;
    return WithoutExceptions([&] {
        Spot other = spot;
        for (FolderID id : FoldersInPlaceOf(spot.folder)) {
            other.folder = id;
            OSErr result = LookUnder(record, identity, other, place);
            if (result == noErr) Remember(record, identity, spot, place);
            if (result != fnfErr) return result;
        }
        return fnfErr;
    });
}

OSErr LocateElsewhere(const ReferenceRecord& record, Identity identity, const Spot& spot, Place& place) {
    Spot last = spot;
    OSErr result = fnfErr;
    if (S_ISREG(record.type) && StateLock()->replacements.Follow(identity) && spot.name[0])
        result = LookUnder(record, identity, spot, place);
    if (result == fnfErr) result = LookWhereMoved(record, identity, last, place);
    if (result == fnfErr) result = LookThrough(record, identity, last, place);
    if (result == fnfErr) result = LookInReplacement(record, identity, spot, place);
    return result;
}

} // namespace

OSErr Locate(const FSRef& ref, Place& place) {
    ReferenceRecord record;
    Spot spot;
    Identity identity;
    if (!LastSeen(ref, record, identity, spot)) return fnfErr;
    OSErr result = spot.name[0] ? LookUnder(record, identity, spot, place) : fnfErr;
    return result == fnfErr ? LocateElsewhere(record, identity, spot, place) : result;
}

OSErr LocateTarget(const FSRef& ref, Place& place) {
    OSErr result = Locate(ref, place);
    if (result != noErr || !place.standsForTarget) return result;
    Place link = place;
    return FollowLink(link, place);
}

OSErr Guess(const FSRef& ref, Place& place, Identity& identity) {
    ReferenceRecord record;
    Spot spot;
    if (!LastSeen(ref, record, identity, spot) || S_ISLNK(record.type) || !spot.name[0]) return fnfErr;
    OSErr result = OpenSpot(spot.folder, place.folder);
    if (result != noErr) return result;
    std::strcpy(place.name, spot.name);
    place.folderID = spot.folder;
    place.facts.stx_mode = record.type;
    place.isLink = place.standsForTarget = false;
    return noErr;
}

bool IsObject(const FSRef& ref, const struct statx& facts) {
    ReferenceRecord record;
    return Unpack(ref, record) && Matches(IdentityOf(record), facts);
}

OSErr OpenContainer(const FSRef& ref, FolderID& id, FolderHandle& handle) {
    ReferenceRecord record;
    if (!Unpack(ref, record)) return fnfErr;
    if (record.own != kNoFolder && OwnNumberHolds(record, IdentityOf(record))) {
        id = record.own;
        OSErr result = OpenFolder(id, handle);
        if (result != fnfErr) return result;
    }
    Place place;
    OSErr result = LocateTarget(ref, place);
    if (result == noErr) result = FolderNumber(place, id);
    return result != noErr ? result : OpenFolder(id, handle);
}

// ---- Telling changes ----

void ObjectMoved(const Place& from, FolderID toFolder, const char* toName) {
    DeviceTraits traits = TraitsOf(from.folderID, from.name, from.facts);
    Identity identity = IdentityOf(from.facts, traits);
    StateLock state;
    if (S_ISDIR(from.facts.stx_mode)) {
        FolderID id = state->folders.FindFolder(identity, MountOf(from.facts), from.folderID, from.name);
        state->folders.SetPlace(id, toFolder, toName);
        state->paths.Clear();
    } else {
        state->moves.Remember(identity, from.folderID, HashName(from.name, std::strlen(from.name)), toFolder,
                              toName);
    }
    if (std::strlen(toName) > ReferenceRecord::kInlineName)
        state->longNames.Remember(identity, toFolder, toName);
}

void ObjectDeleted(const Place& place) {
    if (!S_ISDIR(place.facts.stx_mode)) return;
    Identity identity = IdentityOf(place.facts, TraitsOf(place.folderID, place.name, place.facts));
    StateLock state;
    FolderID id = state->folders.FindFolder(identity, MountOf(place.facts), place.folderID, place.name);
    if (id == kNoFolder) return;
    state->descriptors.Drop(id);
    state->folders.Remove(id);
}

void ObjectReplaced(const Place& file, const struct statx& now) {
    DeviceTraits traits = TraitsOf(file.folderID, file.name, file.facts);
    StateLock()->replacements.Remember(IdentityOf(file.facts, traits), IdentityOf(now, traits));
}

// ---- Names in folders ----

OSErr FSMakeFSRefUnicode(const FSRef* parentRef, UniCharCount nameLength, const UniChar* name, TextEncoding,
                         FSRef* newRef) {
    if (!parentRef || !name || !newRef) return paramErr;
    const TerminationHold hold;
    char bytes[kMaxNameBytes + 1];
    OSErr result = BytesFromName(name, nameLength, bytes);
    FolderID id = kNoFolder;
    FolderHandle folder;
    if (result == noErr) result = OpenContainer(*parentRef, id, folder);
    struct statx facts;
    if (result == noErr) result = FactsOfName(folder, bytes, facts);
    return result != noErr ? result : MakeReference(id, bytes, facts, false, *newRef);
}

// ---- Comparing ----

namespace {

bool SameObject(const struct statx& a, const struct statx& b) {
    constexpr DeviceTraits kAsTold = {true, true, true};
    return Matches(IdentityOf(a, kAsTold), b);
}

// Whether the way up from a place leads through a mount.
bool LiesInside(const Place& place, uint32_t mount) {
    StateLock state;
    size_t steps = 0;
    for (FolderID at = place.folderID; at != kRootParent && steps <= state->folders.size(); ++steps) {
        const FolderRecord* record = state->folders.Find(at);
        if (!record) return false;
        if (at != kRootFolder && record->mount == mount) return true;
        at = record->parent;
    }
    return false;
}

bool OneInsideTheOther(const Place& a, const Place& b) {
    struct statx root;
    if (FactsAt(AT_FDCWD, "/", 0, root) < 0) return false;
    // Everything is mounted inside the volume of "/".
    if (MountOf(a.facts) == MountOf(root) || MountOf(b.facts) == MountOf(root)) return true;
    return LiesInside(a, MountOf(b.facts)) || LiesInside(b, MountOf(a.facts));
}

} // namespace

OSErr FSCompareFSRefs(const FSRef* ref1, const FSRef* ref2) {
    if (!ref1 || !ref2) return paramErr;
    const TerminationHold hold;
    Place a, b;
    OSErr result = LocateTarget(*ref1, a);
    if (result == noErr) result = LocateTarget(*ref2, b);
    if (result != noErr) return result;
    if (SameObject(a.facts, b.facts)) return noErr;
    bool sameVolume = DeviceOf(a.facts) == DeviceOf(b.facts) || MountOf(a.facts) == MountOf(b.facts);
    return sameVolume || OneInsideTheOther(a, b) ? errFSRefsDifferent : diffVolErr;
}
