// The last sighting of each thread, in plain thread storage: a tree is deleted by one thread, item after
// item, each right after it was seen. The kernel's clock for change times ticks, and a change within the same
// tick would not show; hence an object that changed only just now is not remembered at all. Setting a lock
// changes the time, except where the volume keeps the lock in a sidecar, which is why objects with sidecars
// around them are left out.
#include "platform/linux/sighting.h"

#include "platform/linux/metadata.h"

#include <cstring>
#include <ctime>

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

// Longer than a tick of the slowest kernel clock.
static constexpr int64_t kClearlyPast = 20'000'000;

static bool IsClearlyPast(const struct statx_timestamp& time) {
    timespec now;
    if (clock_gettime(CLOCK_REALTIME_COARSE, &now) != 0) return false;
    const int64_t seconds = now.tv_sec - time.tv_sec;
    if (seconds > 1) return true;
    return seconds >= 0 && seconds * 1'000'000'000 + now.tv_nsec - time.tv_nsec >= kClearlyPast;
}

void RememberSighting(const FSRef& ref, const Place& place, bool isLocked, uint64_t sidecarsMade) {
    last.isSet = (place.facts.stx_mask & STATX_CTIME) && IsClearlyPast(place.facts.stx_ctime);
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
