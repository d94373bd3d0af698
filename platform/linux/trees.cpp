// Copying or deleting a tree: one thread goes from folder to folder, and nothing else happens between. It sees the
// mounts and the root of the beginning all the while; the rest is for copies.
//
// A new file takes no sidecar over that stood there before it, so that each costs a look beside it. In a folder that
// the thread has made for this tree there is none, unless somebody puts one there meanwhile; that counts as put
// there after the file then, like one that comes a moment after the look.
//
// What is listed is read next. Looking at a name costs the kernel more than all that is asked of an open file, so
// that the files of a batch are opened as they are listed. They are closed when the next batch begins, when
// descriptors run out, and with the tree.
//
// Each file of a copy bears a mark while it is written, mostly the same as the last one. Some volumes store what several
// files have once, and take and free its block for each file when no other has it (with a command to the disk each time,
// where freed blocks are discarded). So a nameless file has it all the while.
#include "platform/linux/trees.h"

#include "platform/linux/attributes.h"
#include "platform/linux/current_task.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/folders.h"
#include "platform/linux/system_calls.h"
#include "platform/objects.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/xattr.h>
#include <utility>

namespace {
struct OpenedFile {
    FSRef ref;
    int descriptor;
};

// What a copy needs; in a mapping of its own, which may be given back in a signal's handler.
struct Room {
    // The latest folder of each slot; one that has lost its slot is looked into like any other.
    static constexpr size_t kSlots = 1024;
    FolderID newFolders[kSlots];
    FolderID& SlotOf(FolderID id) { return newFolders[id % kSlots]; }

    // Those from `next` to `end` are open, in the order of the listing.
    OpenedFile files[80];
    unsigned next, end;
    bool isCrowded; // others need the descriptors that are left

    appledouble::Attribute metadata; // that the latest file began with
    bool isSettled;                  // whether the nameless file has it, or cannot have it
    bool isAlone;                    // there is to be no nameless file
    int holder = -1;                 // the nameless file
};

struct Tree {
    bool isBegun;
    int firstTooHigh; // descriptors from here on are left to others
    Room* room;       // made with the first use
};
} // namespace

static constinit thread_local Tree tree TAVPORT_NEAR_TLS = {};

// Descriptors are numbered from the lowest that is free, so that a number tells how many are open. The first half of
// them is used here at most.
static int HalfOfTheDescriptors() {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    return static_cast<int>(std::min<rlim_t>(limit.rlim_cur / 2, INT_MAX));
}

static bool HasRoom() {
    if (!tree.isBegun || tree.room) return tree.room;
    void* const room =
        mmap(nullptr, sizeof(Room), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED) return false; // nothing is known and nothing kept then
    tree.room = new (room) Room{};
    tree.firstTooHigh = HalfOfTheDescriptors();
    return true;
}

static bool CloseHolder() {
    if (!tree.room || tree.room->holder < 0) return false;
    Close(std::exchange(tree.room->holder, -1));
    tree.room->isSettled = false;
    return true;
}

bool CloseWhatTreeHolds() {
    const bool anyAhead = CloseOpenedAhead();
    return CloseHolder() || anyAhead;
}

void LeaveTree() {
    CloseWhatTreeHolds();
    if (Room* const room = std::exchange(tree.room, nullptr)) munmap(room, sizeof *room);
    tree.isBegun = false;
}

void PlatformBeginTree() {
    const TerminationHold hold;
    LeaveTree();
    tree.isBegun = true;
    HoldMountView(true);
}

void PlatformEndTree() {
    const TerminationHold hold;
    LeaveTree();
    HoldMountView(false);
}

bool IsInTree() {
    return tree.isBegun;
}

// ---- Folders

void NoteNewFolder(const Place& made) {
    if (!IsInTree() || !TraitsOf(made.folderID, made.name, made.facts).stableInodes || !HasRoom()) return;
    FolderID id;
    if (FolderNumber(made, id) == noErr) tree.room->SlotOf(id) = id;
}

void NoteName(const Place& named) {
    if (IsNewFolder(named.folderID) && std::strncmp(named.name, "._", 2) == 0)
        tree.room->SlotOf(named.folderID) = kNoFolder;
}

bool IsNewFolder(FolderID folder) {
    return tree.room && folder != kNoFolder && tree.room->SlotOf(folder) == folder;
}

// ---- Files

bool CanOpenAhead() {
    return HasRoom() && !tree.room->isCrowded && tree.room->end < std::size(tree.room->files);
}

void KeepOpenedAhead(const FSRef& ref, int descriptor) {
    Room& room = *tree.room;
    room.isCrowded = descriptor >= tree.firstTooHigh;
    if (room.isCrowded)
        Close(descriptor);
    else
        room.files[room.end++] = {ref, descriptor};
}

int TakeOpenedAhead(const FSRef& ref) {
    if (!tree.room) return -1;
    Room& room = *tree.room;
    for (unsigned at = room.next; at < room.end; ++at) {
        if (std::memcmp(&room.files[at].ref, &ref, sizeof ref) != 0) continue;
        while (room.next < at) Close(room.files[room.next++].descriptor);
        return room.files[room.next++].descriptor;
    }
    return -1;
}

bool CloseOpenedAhead() {
    if (!tree.room) return false;
    Room& room = *tree.room;
    const bool areAny = room.next < room.end;
    while (room.next < room.end) Close(room.files[room.next++].descriptor);
    room.next = room.end = 0;
    room.isCrowded = false;
    return areAny;
}

// ---- Metadata

static void MakeHolder(Room& room, const Place& made) {
    room.holder = OpenName(made.folder.descriptor(), ".", O_TMPFILE | O_EXCL | O_WRONLY, 0600);
    if (room.holder >= 0 && room.holder < tree.firstTooHigh) return;
    CloseHolder();
    room.isAlone = true;
}

void KeepMetadataShared(const Place& made, const appledouble::Attribute& value) {
    if (!HasRoom()) return;
    Room& room = *tree.room;
    const bool isSame = std::memcmp(room.metadata, value, sizeof value) == 0;
    if (room.isAlone || (isSame && room.isSettled)) return;
    if (!TraitsOf(made.folderID, made.name, made.facts).sharesAttributes) return;
    std::memcpy(room.metadata, value, sizeof value);
    room.isSettled = isSame; // one file alone is not worth it
    if (isSame && room.holder < 0) MakeHolder(room, made);
    if (isSame && room.holder >= 0)
        (void)Retry([&] { return fsetxattr(room.holder, kMetadataAttribute, value, sizeof value, 0); });
}

bool GiveRoomBack() {
    if (!CloseHolder()) return false;
    tree.room->isAlone = true;
    return true;
}
