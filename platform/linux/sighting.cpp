// The last sightings of each thread, in plain thread storage: a tree is deleted or copied by one thread, item
// after item, each soon after it was seen. The kernel's clock for change times ticks, and a change within the
// same tick would not show; hence what changed only just now is not remembered at all. Setting a lock changes
// the time, except where the volume keeps the lock in a sidecar, which is why objects with sidecars around them
// are left out. Sections: objects to be deleted, folders that are copied.
#include "platform/linux/sighting.h"

#include "platform/linux/descriptor_cache.h"
#include "platform/linux/folders.h"
#include "platform/linux/metadata.h"
#include "platform/linux/settled.h"
#include "platform/linux/system_calls.h"

#include <cstring>
#include <fcntl.h>

namespace {
struct Sighting {
    FSRef ref;
    struct statx_timestamp changed;
    uint64_t sidecarsMade;
    uint64_t when;
    bool isLocked;
    bool isSet;
};
} // namespace

static constinit thread_local Sighting last{};

static bool IsSameTime(const struct statx_timestamp& a, const struct statx_timestamp& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

void RememberSighting(const FSRef& ref, const Place& place, bool isLocked, uint64_t sidecarsMade,
                      uint64_t when) {
    last.isSet = (place.facts.stx_mask & STATX_CTIME) && IsSettled(place.facts.stx_ctime, true);
    if (last.isSet) last = {ref, place.facts.stx_ctime, sidecarsMade, when, isLocked, true};
}

static bool IsLast(const FSRef& ref) {
    return last.isSet && std::memcmp(&last.ref, &ref, sizeof ref) == 0 && SidecarsMade() == last.sidecarsMade;
}

bool IsSeenJustNow(const FSRef& ref) {
    constexpr uint64_t kJustNow = 50000; // nanoseconds
    return IsLast(ref) && !last.isLocked && MonotonicNow() - last.when < kJustNow;
}

bool RecallSighting(const FSRef& ref, const Place& place, bool& isLocked) {
    if (!IsLast(ref)) return false;
    const struct statx_timestamp& changed = place.facts.stx_ctime;
    if (!(place.facts.stx_mask & STATX_CTIME) || !IsSameTime(changed, last.changed)) return false;
    isLocked = last.isLocked;
    return true;
}

// ---- Folders

static constinit thread_local BareFolder lastFolder{};

BareFolder SeeBareFolder(const Place& place, FolderID id) {
    const struct statx& facts = place.facts;
    const bool isFine = TraitsOf(place.folderID, place.name, facts).fineTimes;
    if (!isFine || !IsSettled(facts.stx_ctime, isFine)) return {};
    return {id, facts.stx_ino, DeviceOf(facts), facts.stx_ctime};
}

void RememberBareFolder(const BareFolder& folder) {
    lastFolder = folder;
}

bool IsInBareFolder(const Place& place) {
    if (lastFolder.id == kNoFolder || place.folderID != lastFolder.id) return false;
    struct statx now;
    return FactsAt(place.folder.descriptor(), "", AT_EMPTY_PATH, now, STATX_INO | STATX_CTIME) == 0 &&
           now.stx_ino == lastFolder.inode && DeviceOf(now) == lastFolder.device &&
           IsSameTime(now.stx_ctime, lastFolder.changed);
}
