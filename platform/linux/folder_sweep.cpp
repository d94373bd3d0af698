// Keeping the folder table from growing with folders that are long gone.
// The library tells of the folders that it deletes itself; those that others delete are found by looking, a
// few at a time while new ones are added, and only in tables that have doubled since the last round.
#include "platform/linux/folders.h"

#include "platform/linux/reference_state.h"

#include <algorithm>

// The next folder to look at, or kNoFolder when it is not time.
static FolderID TakeNext() {
    MountView view = CurrentMountView(MonotonicNow());
    StateLock state;
    FolderSweep& sweep = state->sweep;
    if (sweep.view == 0) sweep.view = view;
    if (sweep.running || sweep.view != view || state->folders.size() < sweep.at) return kNoFolder;
    if (sweep.left == 0) sweep.left = state->folders.size();
    sweep.last = state->folders.Next(sweep.last);
    sweep.running = sweep.last != kNoFolder;
    return sweep.last;
}

static void Finish(FolderID id, bool gone) {
    StateLock state;
    FolderSweep& sweep = state->sweep;
    sweep.running = false;
    if (gone) {
        state->descriptors.Drop(id);
        state->folders.Remove(id);
    }
    if (sweep.left > 0 && --sweep.left == 0)
        sweep.at = std::max(FolderSweep::kLeast, 2 * state->folders.size());
}

void SweepFolders() {
    constexpr int kAtATime = 2;
    for (int i = 0; i < kAtATime; ++i) {
        FolderID id = TakeNext();
        if (id == kNoFolder) return;
        FSRef ref;
        Place place;
        Finish(id, FolderReference(id, ref) == noErr && Locate(ref, place) == fnfErr);
    }
}
