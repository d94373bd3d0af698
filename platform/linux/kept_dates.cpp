// Content-modification dates that hold: a ring of the last files that were made with one.
//
// The kernel sets the date at every write, so it is put back when the fork is closed; a file that is opened
// for writing once more afterwards changes its date as any file does. Somebody else's change shows as a date
// other than the one given, when the fork is opened, or as one later than this process's last own change,
// when it is closed; the latter only where the volume goes by the same clock. A file that a thread keeps open
// for writing is given its dates only then.
#include "platform/linux/kept_dates.h"

#include "platform/linux/attributes.h"
#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/system_calls.h"

#include <algorithm>
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
    FileTimes times;       // the access time only as long as it is owed
    statx_timestamp shown; // the content-modification time that the file has until it is written
    bool isOwed;           // the dates have not been set yet
    bool sameClock;
    bool isSet;
    bool isWritten; // a fork was written and closed, others are still open
    uint32_t users; // forks that are open for writing
};
} // namespace

static constinit ChildSafeMutex ringLock;
static constinit KeptDate ring[128] = {};
static constinit std::atomic<unsigned> keptInAll = 0;

// Begins with the latest, which is mostly the one.
static KeptDate* Find(const ObjectKey& key) {
    const unsigned count = keptInAll.load(std::memory_order_relaxed);
    for (unsigned age = 1; age <= std::size(ring); ++age) {
        KeptDate& each = ring[(count - age) % std::size(ring)];
        if (each.isSet && each.key == key) return &each;
    }
    return nullptr;
}

// Whether the change that has just been made bears a time that the system's own clock could have given.
static bool HasSameClock(const struct statx& facts) {
    const int64_t age = SystemTime() - Nanoseconds(facts.stx_ctime);
    return age >= 0 && age < kSecond;
}

// The slot that is given away next: the oldest whose date nobody waits for.
static KeptDate& NextSlot(unsigned count) {
    for (unsigned at = 0; at < std::size(ring); ++at) {
        KeptDate& each = ring[(count + at) % std::size(ring)];
        if (!each.isSet || (!each.isOwed && each.users == 0)) return each;
    }
    return ring[count % std::size(ring)];
}

static void Keep(const struct statx& facts, const FileTimes& times, bool isOwed) {
    const KeptDate kept = {ObjectKey(facts),    times, facts.stx_mtime, isOwed,
                           HasSameClock(facts), true,  false,           0};
    HeldLock guard(ringLock);
    KeptDate* old = Find(kept.key);
    const unsigned count = keptInAll.load(std::memory_order_relaxed);
    *(old ? old : &NextSlot(count)) = kept;
    if (!old) keptInAll.store(count + 1 ? count + 1 : 1, std::memory_order_relaxed);
}

void KeepContentDate(const struct statx& facts) {
    const timespec date = {static_cast<time_t>(facts.stx_mtime.tv_sec),
                           static_cast<long>(facts.stx_mtime.tv_nsec)};
    Keep(facts, {timespec{0, UTIME_OMIT}, date}, false);
}

void KeepOwedDates(const struct statx& facts, const FileTimes& times) {
    Keep(facts, times, true);
}

void ForgetContentDate(const struct statx& facts) {
    if (keptInAll.load(std::memory_order_relaxed) == 0) return;
    HeldLock guard(ringLock);
    if (KeptDate* kept = Find(ObjectKey(facts))) kept->isSet = false;
}

static bool IsChanged(const KeptDate& kept, const struct statx& now) {
    return Nanoseconds(kept.shown) != Nanoseconds(now.stx_mtime);
}

bool BeginHoldingDate(const struct statx& facts) {
    if (keptInAll.load(std::memory_order_relaxed) == 0) return false;
    HeldLock guard(ringLock);
    KeptDate* kept = Find(ObjectKey(facts));
    if (!kept) return false;
    if (kept->users == 0 && IsChanged(*kept, facts)) kept->isSet = false;
    if (kept->isSet) ++kept->users;
    return kept->isSet;
}

static bool WasChangedByOthers(const OpenFork& fork, const KeptDate& kept, const struct statx& now) {
    if (!fork.isChanged) return IsChanged(kept, now) && kept.users == 1;
    return kept.sameClock && Nanoseconds(now.stx_mtime) > fork.lastChange;
}

static bool SetDates(int file, KeptDate& kept) {
    if (Retry([&] { return futimens(file, kept.times.data()); }) != 0) return false;
    kept.shown = {kept.times[1].tv_sec, static_cast<uint32_t>(kept.times[1].tv_nsec), 0};
    kept.times[0].tv_nsec = UTIME_OMIT;
    kept.isOwed = false;
    return true;
}

void EndHoldingDate(OpenFork& fork, struct statx& facts) {
    facts.stx_mask = 0;
    HeldLock guard(ringLock);
    KeptDate* kept = Find(fork.key);
    if (!kept || kept->users == 0) return;
    if (FactsAt(fork.descriptor, "", AT_EMPTY_PATH, facts) < 0 || WasChangedByOthers(fork, *kept, facts)) {
        kept->isSet = false;
        return;
    }
    // Not left out, since some servers then leave both times as they are.
    if (kept->times[0].tv_nsec == UTIME_OMIT)
        kept->times[0] = {static_cast<time_t>(facts.stx_atime.tv_sec),
                          static_cast<long>(facts.stx_atime.tv_nsec)};
    const bool isSet = (fork.isChanged || kept->isOwed) && SetDates(fork.descriptor, *kept);
    if (fork.isChanged) kept->isWritten = isSet;
    if (--kept->users == 0 && kept->isWritten) kept->isSet = false;
}

OSErr SetOwedDates(int file, const struct statx& now) {
    HeldLock guard(ringLock);
    KeptDate* kept = Find(ObjectKey(now));
    if (!kept || !kept->isOwed) return noErr;
    if (IsChanged(*kept, now)) {
        kept->isSet = false;
        return noErr;
    }
    if (!SetDates(file, *kept)) return LastError();
    // A volume may round what it is given.
    struct statx facts;
    if (FactsAt(file, "", AT_EMPTY_PATH, facts) == 0) kept->shown = facts.stx_mtime;
    return noErr;
}
