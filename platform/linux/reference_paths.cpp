// From references to paths.
// The platform asks its catalog for the names above an object. Here they come from the folder table, and one
// look at the path shows whether it leads to the object; when others have moved things about, the way up is
// climbed on the disk.
#include "platform/linux/attributes.h"
#include "platform/linux/current_task.h"
#include "platform/linux/folders.h"
#include "platform/linux/reference_state.h"
#include "platform/linux/spots.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/with_descriptors.h"
#include "platform/references.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <string>

namespace {

// Writes the path of a spot from the table, backwards from the buffer's end and then moved to its start.
OSErr WritePath(const Spot& spot, char* path, size_t size) {
    if (size < 2) return bdNamErr;
    size_t at = size;
    auto prepend = [&](const char* text, size_t length) {
        if (length > at) return false;
        at -= length;
        std::memcpy(path + at, text, length);
        return true;
    };
    prepend("", 1);
    if (spot.folder == kRootParent) {
        std::strcpy(path, "/");
        return noErr;
    }
    if (!prepend(spot.name, std::strlen(spot.name)) || !prepend("/", 1)) return bdNamErr;
    StateLock state;
    size_t steps = 0;
    for (FolderID id = spot.folder; id != kRootFolder;) {
        const FolderRecord* record = state->folders.Find(id);
        if (!record || ++steps > state->folders.size()) return fnfErr;
        char name[256];
        const char* text = record->name;
        if (!record->HasName()) {
            if (!state->longNames.Recall(IdentityOf(*record), record->parent, record->nameHash, name))
                return fnfErr;
            text = name;
        }
        if (!prepend(text, record->nameLength) || !prepend("/", 1)) return bdNamErr;
        id = record->parent;
    }
    std::memmove(path, path + at, size - at);
    return noErr;
}

// Facts of what a path leads to that may be longer than the kernel takes at once.
int FactsAtPath(const char* path, struct statx& facts) {
    Descriptor folder(AT_FDCWD);
    std::string part;
    while (std::strlen(path) >= PATH_MAX) {
        const char* cut = path + PATH_MAX - 2;
        while (*cut != '/') --cut; // names are short enough for one to be there
        part.assign(path, cut);
        folder.Reset(OpenSparingly(
            [&] { return OpenWithoutLinks(folder.number(), part.c_str(), O_PATH | O_DIRECTORY); }));
        if (!folder) return -1;
        path = cut + 1;
    }
    return FactsAt(folder.number(), path, AT_SYMLINK_NOFOLLOW, facts);
}

OSErr WriteCheckedPath(const Identity& identity, const Spot& spot, char* path, size_t size) {
    OSErr result = spot.name[0] ? WritePath(spot, path, size) : fnfErr;
    if (result != noErr) return result;
    struct statx facts;
    if (FactsAtPath(path, facts) < 0) return LastError() == errFSNotAFolder ? fnfErr : LastError();
    return Matches(identity, facts) ? noErr : fnfErr;
}

// The path after others have moved things about: the object is found first, then the way up from it.
OSErr WritePathAfresh(const FSRef& ref, char* path, size_t size) {
    Place place;
    OSErr result = Locate(ref, place);
    if (result != noErr) return result;
    Identity identity = IdentityOf(place.facts, TraitsOf(place.folderID, place.name, place.facts));
    Spot spot = {place.folderID, 0, {}};
    std::memcpy(spot.name, place.name, sizeof spot.name);
    result = WriteCheckedPath(identity, spot, path, size);
    if (result != fnfErr) return result;
    result = FindWayUp(place.folderID);
    return result != noErr ? result : WriteCheckedPath(identity, spot, path, size);
}

} // namespace

OSStatus FSRefMakePath(const FSRef* ref, uint8_t* path, uint32_t maxPathSize) {
    if (!ref || !path) return paramErr;
    const TerminationHold hold;
    ReferenceRecord record;
    Identity identity;
    Spot spot;
    if (!LastSeen(*ref, record, identity, spot)) return fnfErr;
    auto text = reinterpret_cast<char*>(path);
    return WithoutExceptions([&] {
        OSErr result = WriteCheckedPath(identity, spot, text, maxPathSize);
        return result == fnfErr ? WritePathAfresh(*ref, text, maxPathSize) : result;
    });
}
