// Making a copy of a tree: one thread lists folders, makes others and fills them, and nothing else happens between.
//
// A new file takes no sidecar over that stood there before it, so that each costs a look beside it. In a folder that
// the thread has made for this tree there is none, unless somebody puts one there meanwhile; that counts as put
// there after the file then, like one that comes a moment after the look.
//
// What is listed is read next. Looking at a name costs the kernel more than all that is asked of an open file, so
// that the files of a batch are opened as they are listed. They are closed when the next batch begins, when
// descriptors run out, and with the tree.
#include "platform/linux/trees.h"

#include "platform/linux/current_task.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/folders.h"
#include "platform/linux/system_calls.h"
#include "platform/objects.h"

#include <cstring>
#include <new>
#include <utility>

namespace {
struct OpenedFile {
    FSRef ref;
    int descriptor;
};

struct Tree {
    // The latest folder of each slot; one that has lost its slot is looked into like any other.
    static constexpr size_t kSlots = 1024;
    FolderID newFolders[kSlots];
    FolderID& SlotOf(FolderID id) { return newFolders[id % kSlots]; }

    // Those from `next` to `end` are open, in the order of the listing.
    OpenedFile files[80];
    unsigned next, end;
};
} // namespace

static constinit thread_local Tree* tree TAVPORT_NEAR_TLS = nullptr;

void PlatformBeginTree() {
    const TerminationHold hold;
    CloseOpenedAhead();
    delete std::exchange(tree, new (std::nothrow) Tree{}); // without it nothing is known and nothing kept
    HoldMountView(true);
}

void PlatformEndTree() {
    const TerminationHold hold;
    CloseOpenedAhead();
    delete std::exchange(tree, nullptr);
    HoldMountView(false);
}

// ---- Folders

void NoteNewFolder(const Place& made) {
    if (!tree || !TraitsOf(made.folderID, made.name, made.facts).stableInodes) return;
    FolderID id;
    if (FolderNumber(made, id) == noErr) tree->SlotOf(id) = id;
}

void NoteName(const Place& named) {
    if (IsNewFolder(named.folderID) && std::strncmp(named.name, "._", 2) == 0)
        tree->SlotOf(named.folderID) = kNoFolder;
}

bool IsNewFolder(FolderID folder) {
    return tree && folder != kNoFolder && tree->SlotOf(folder) == folder;
}

// ---- Files

bool CanOpenAhead() {
    return tree && tree->end < std::size(tree->files);
}

void KeepOpenedAhead(const FSRef& ref, int descriptor) {
    if (CanOpenAhead())
        tree->files[tree->end++] = {ref, descriptor};
    else
        Close(descriptor);
}

int TakeOpenedAhead(const FSRef& ref) {
    if (!tree) return -1;
    for (unsigned at = tree->next; at < tree->end; ++at) {
        if (std::memcmp(&tree->files[at].ref, &ref, sizeof ref) != 0) continue;
        while (tree->next < at) Close(tree->files[tree->next++].descriptor);
        return tree->files[tree->next++].descriptor;
    }
    return -1;
}

bool CloseOpenedAhead() {
    if (!tree) return false;
    const bool areAny = tree->next < tree->end;
    while (tree->next < tree->end) Close(tree->files[tree->next++].descriptor);
    tree->next = tree->end = 0;
    return areAny;
}
