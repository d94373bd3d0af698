// Content-modification dates that hold: a ring of the last files that were made with one.
//
// The kernel sets the date at every write, so it is put back when the fork is closed; a file that is opened
// for writing once more afterwards changes its date as any file does. Somebody else's change shows as a date
// other than the one given, when the fork is opened, or as one later than this process's last own change,
// when it is closed; the latter only where the volume goes by the same clock.
#include "platform/linux/kept_dates.h"

#include "platform/linux/attributes.h"
#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/system_calls.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>

constexpr int64_t kSecond = 1'000'000'000;

static int64_t Nanoseconds(const statx_timestamp& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

int64_t SystemTime() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

namespace {
struct KeptDate {
    ObjectKey key;
    statx_timestamp date;
    bool sameClock;
    bool isSet;
    bool isWritten; // a fork was written and closed, others are still open
    uint32_t users; // forks that are open for writing
};
} // namespace

static constinit ChildSafeMutex ringLock;
static constinit KeptDate ring[128] = {};
static constinit std::atomic<unsigned> keptInAll = 0;

static KeptDate* Find(const ObjectKey& key) {
    auto* end = std::end(ring);
    auto* found =
        std::find_if(ring, end, [&key](const KeptDate& each) { return each.isSet && each.key == key; });
    return found == end ? nullptr : found;
}

// Whether the change that has just been made bears a time that the system's own clock could have given.
static bool HasSameClock(const struct statx& facts) {
    const int64_t age = SystemTime() - Nanoseconds(facts.stx_ctime);
    return age >= 0 && age < kSecond;
}

void KeepContentDate(const struct statx& facts) {
    const KeptDate kept = {ObjectKey(facts), facts.stx_mtime, HasSameClock(facts), true, false, 0};
    HeldLock guard(ringLock);
    KeptDate* old = Find(kept.key);
    const unsigned count = keptInAll.load(std::memory_order_relaxed);
    *(old ? old : &ring[count % std::size(ring)]) = kept;
    if (!old) keptInAll.store(count + 1 ? count + 1 : 1, std::memory_order_relaxed);
}

void ForgetContentDate(const struct statx& facts) {
    if (keptInAll.load(std::memory_order_relaxed) == 0) return;
    HeldLock guard(ringLock);
    if (KeptDate* kept = Find(ObjectKey(facts))) kept->isSet = false;
}

bool BeginHoldingDate(const struct statx& facts) {
    if (keptInAll.load(std::memory_order_relaxed) == 0) return false;
    HeldLock guard(ringLock);
    KeptDate* kept = Find(ObjectKey(facts));
    if (!kept) return false;
    if (kept->users == 0 && Nanoseconds(kept->date) != Nanoseconds(facts.stx_mtime)) kept->isSet = false;
    if (kept->isSet) ++kept->users;
    return kept->isSet;
}

static bool WasChangedByOthers(const OpenFork& fork, const KeptDate& kept) {
    struct statx facts;
    if (FactsAt(fork.descriptor, "", AT_EMPTY_PATH, facts) < 0) return true;
    if (!fork.isChanged) return Nanoseconds(facts.stx_mtime) != Nanoseconds(kept.date) && kept.users == 1;
    return kept.sameClock && Nanoseconds(facts.stx_mtime) > fork.lastChange;
}

void EndHoldingDate(OpenFork& fork) {
    HeldLock guard(ringLock);
    KeptDate* kept = Find(fork.key);
    if (!kept || kept->users == 0) return;
    if (WasChangedByOthers(fork, *kept)) {
        kept->isSet = false;
        return;
    }
    if (fork.isChanged) {
        timespec times[2] = {};
        times[0].tv_nsec = UTIME_OMIT;
        times[1].tv_sec = static_cast<time_t>(kept->date.tv_sec);
        times[1].tv_nsec = static_cast<long>(kept->date.tv_nsec);
        kept->isWritten = futimens(fork.descriptor, times) == 0;
    }
    if (--kept->users == 0 && kept->isWritten) kept->isSet = false;
}
