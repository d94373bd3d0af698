#include "vpath/globals.h"

#include "platform/process.h"

uint32_t g_FSRefValModAccount = 0;

// In one file because the order counts: built from the first to the last, destroyed the other way round.
map_KeyPath g_map_KeyPath;
Key1ToKey2Lock<const TavChar*, OpacTavFSRef*> s_FSRefs;
map_KeyPathSeg g_map_KeyPathSeg;

namespace {

void LockCache() {
    s_FSRefs.Lock();
}
void UnlockCache() {
    s_FSRefs.Unlock();
}

// A child must not inherit a cache that another thread was changing.
[[maybe_unused]] const int s_forkHandlers = PlatformAtFork(LockCache, UnlockCache, UnlockCache);

} // namespace
