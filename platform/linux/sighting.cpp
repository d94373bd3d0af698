// The last sighting of each thread, in plain thread storage: a tree is deleted by one thread, item after
// item, each right after it was seen. The kernel's clock for change times ticks, and a change within the same
// tick would not show; hence an object that changed only just now is not remembered at all. Setting a lock
// changes the time, except where the volume keeps the lock in a sidecar, which is why objects with sidecars
// around them are left out.
#include "platform/linux/sighting.h"

#include "platform/linux/metadata.h"
#include "platform/linux/settled.h"

#include <cstring>

namespace {
struct Sighting {
    FSRef ref;
    struct statx_timestamp changed;
    uint64_t sidecarsMade;
    bool isLocked;
    bool isSet;
};
} // namespace

static constinit thread_local Sighting last{};

void RememberSighting(const FSRef& ref, const Place& place, bool isLocked, uint64_t sidecarsMade) {
    last.isSet = (place.facts.stx_mask & STATX_CTIME) && IsSettled(place.facts.stx_ctime, true);
    if (last.isSet) last = {ref, place.facts.stx_ctime, sidecarsMade, isLocked, true};
}

bool RecallSighting(const FSRef& ref, const Place& place, bool& isLocked) {
    if (!last.isSet || std::memcmp(&last.ref, &ref, sizeof ref) != 0) return false;
    const struct statx_timestamp& changed = place.facts.stx_ctime;
    if (!(place.facts.stx_mask & STATX_CTIME) || changed.tv_sec != last.changed.tv_sec ||
        changed.tv_nsec != last.changed.tv_nsec || SidecarsMade() != last.sidecarsMade)
        return false;
    isLocked = last.isLocked;
    return true;
}
