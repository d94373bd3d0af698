// A small cache of open folders, so that an object in a folder used lately costs one system call.
#pragma once

#include "platform/linux/references.h"

// Nanoseconds of the monotonic clock; the second as of its last tick, up to 10 ms ago, for a fifth of the time.
uint64_t MonotonicNow();
uint64_t MonotonicTick();

// Which mounts the calling thread sees: its root's mount and inode. Descriptors of one view are not used in
// another. Looked up again when the last look is older than 50 microseconds.
using MountView = uint64_t;
MountView CurrentMountView(uint64_t now);

// The view of a thread whose "/" has these facts.
MountView MountViewFrom(const struct statx& root);

// The view at the calling thread's last look, and whether that is recent enough to be relied on.
MountView LastMountView();
bool IsMountViewRecent(uint64_t now);

// Makes the next use look again. To be called when something is not where a recent look said: the thread may have
// changed its root since.
void ForgetMountView();

// The next look, which is taken anew, is good for as long as it is held, unless it is forgotten.
void HoldMountView(bool isHeld);

// To be called when a path has just led the calling thread to the very folder, on the very mount, that it led to in the
// last view: a mount belongs to one namespace only, so that is the thread's still.
void MountViewHolds(uint64_t now);

// Not locked; see reference_state.h.
class DescriptorCache {
public:
    static constexpr unsigned kCapacity = 64;

    // An empty handle when the folder is not here.
    FolderHandle Get(MountView view, FolderID id);

    // Takes the descriptor over, in the place of the folder not used for the longest time. A folder that has
    // got here meanwhile keeps its descriptor. Throws as FolderHandle::Of does.
    FolderHandle Put(MountView view, FolderID id, int descriptor);

    // Forgets a folder in every view.
    void Drop(FolderID id);

    // Forgets folders that nobody holds; true when there were any.
    bool DropIdle();
    void Clear();

private:
    void Forget(unsigned slot);

    FolderID ids_[kCapacity] = {};
    MountView views_[kCapacity] = {};
    uint64_t uses_[kCapacity] = {};
    FolderHandle handles_[kCapacity];
    uint64_t clock_ = 0;
};
