// Content-modification dates that hold: rings of the last files that were made with one. Each ring has its lock,
// which is held while the volume sets a date, so that no date that somebody sets meanwhile is undone; a slow
// volume holds up only what has to do with a ring's files.
//
// The kernel sets the date at every write, so it is put back when the fork is closed; a file that is opened
// for writing once more afterwards changes its date as any file does. Somebody else's change shows as a date
// other than the one given, when the fork is opened, or as one later than this process's last own change,
// when it is closed; the latter only where the volume goes by the same clock. A file that a thread keeps open
// for writing is given its dates only then. A ring grows where somebody waits for every date in it.
#include "platform/linux/kept_dates.h"

#include "platform/linux/attributes.h"
#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/folders.h"
#include "platform/linux/system_calls.h"

#include <algorithm>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <utility>

constexpr int64_t kSecond = 1'000'000'000;

// Comparable with SystemTime. Moments before 1970, and those after 2262, which do not fit, count as the first and
// the last that do.
static int64_t Nanoseconds(const statx_timestamp& time) {
    constexpr int64_t kLast = INT64_MAX / kSecond - 1;
    return std::clamp<int64_t>(time.tv_sec, 0, kLast) * kSecond + time.tv_nsec;
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
    bool isAwaited;        // by the thread that made the file
    bool sameClock;
    bool isSet;
    bool isWritten = false; // a fork was written and closed, others are still open
    uint32_t users = 0;     // forks that are open for writing
};

struct Ring {
    static constexpr unsigned kAtFirst = 32;

    ChildSafeMutex lock;
    KeptDate first[kAtFirst] = {};
    KeptDate* grown = nullptr; // in place of the first, once they were not enough
    unsigned doublings = 0;
    unsigned keptInAll = 0;

    KeptDate* dates() { return grown ? grown : first; }
    unsigned size() const { return kAtFirst << doublings; }
    KeptDate* Find(const ObjectKey& key);
    KeptDate* NextSlot();
    bool Grow();
    void Shrink();
};
} // namespace

constexpr unsigned kRingBits = 4;
static constinit Ring rings[1 << kRingBits] = {};
static constinit std::atomic<bool> hasKeptAny = false;

// At unloading, or when the process ends.
[[gnu::destructor]] static void ShrinkRings() {
    const TerminationHold hold;
    for (Ring& ring : rings) {
        if (!ring.lock.try_lock()) continue; // a thread is at it, so the process is ending
        ring.Shrink();
        ring.lock.unlock();
    }
}

static Ring& RingOf(const ObjectKey& key) {
    return rings[key.inode * 0x9E3779B97F4A7C15u >> (64 - kRingBits)];
}

// Begins with the latest, which is mostly the one.
KeptDate* Ring::Find(const ObjectKey& key) {
    for (unsigned age = 1; age <= size(); ++age) {
        KeptDate& each = dates()[(keptInAll - age) % size()];
        if (each.isSet && each.key == key) return &each;
    }
    return nullptr;
}

// The slot that is given away next: the oldest whose date nobody waits for. Null when memory runs out.
KeptDate* Ring::NextSlot() {
    for (unsigned at = 0; at < size(); ++at) {
        KeptDate& each = dates()[(keptInAll + at) % size()];
        if (!each.isSet || (!each.isAwaited && each.users == 0)) return &each;
    }
    return Grow() ? &dates()[keptInAll % size()] : nullptr;
}

// Doubles the slots; the new ones come next.
bool Ring::Grow() {
    auto* const twice = new (std::nothrow) KeptDate[2 * size()]();
    if (!twice) return false;
    std::copy_n(dates(), size(), twice);
    delete[] std::exchange(grown, twice);
    keptInAll = size();
    ++doublings;
    return true;
}

// Back to the first slots, which hold nothing then.
void Ring::Shrink() {
    if (!grown) return;
    std::fill_n(first, kAtFirst, KeptDate{});
    delete[] std::exchange(grown, nullptr);
    doublings = 0;
}

// Whether the change that has just been made bears a time that the system's own clock could have given.
static bool HasSameClock(const struct statx& facts, bool fineTimes) {
    if (!fineTimes) return false;
    const int64_t age = SystemTime() - Nanoseconds(facts.stx_ctime);
    return age >= 0 && age < kSecond;
}

// False when memory runs out.
static bool Keep(const Place& file, const FileTimes& times, bool isOwed) {
    const struct statx& facts = file.facts;
    const bool fineTimes = TraitsOf(file.folderID, file.name, facts).fineTimes;
    const KeptDate kept = {.key = ObjectKey(facts),
                           .times = times,
                           .shown = facts.stx_mtime,
                           .isOwed = isOwed,
                           .isAwaited = isOwed,
                           .sameClock = HasSameClock(facts, fineTimes),
                           .isSet = true};
    hasKeptAny.store(true, std::memory_order_relaxed);
    Ring& ring = RingOf(kept.key);
    LightLock guard(ring.lock);
    KeptDate* const old = ring.Find(kept.key);
    KeptDate* const slot = old ? old : ring.NextSlot();
    if (!slot) return false;
    *slot = kept;
    if (!old) ++ring.keptInAll;
    return true;
}

OSErr KeepContentDate(const Place& file) {
    const timespec date = {static_cast<time_t>(file.facts.stx_mtime.tv_sec),
                           static_cast<long>(file.facts.stx_mtime.tv_nsec)};
    return Keep(file, {timespec{0, UTIME_OMIT}, date}, false) ? noErr : memFullErr;
}

OSErr KeepOwedDates(const Place& file, const FileTimes& times) {
    return Keep(file, times, true) ? noErr : memFullErr;
}

void LetGoOfOwedDates(const struct statx& facts) {
    Ring& ring = RingOf(ObjectKey(facts));
    LightLock guard(ring.lock);
    if (KeptDate* kept = ring.Find(ObjectKey(facts))) kept->isAwaited = false;
}

void ForgetContentDate(const struct statx& facts) {
    if (!hasKeptAny.load(std::memory_order_relaxed)) return;
    Ring& ring = RingOf(ObjectKey(facts));
    LightLock guard(ring.lock);
    if (KeptDate* kept = ring.Find(ObjectKey(facts))) kept->isSet = false;
}

static bool IsChanged(const KeptDate& kept, const struct statx& now) {
    return kept.shown.tv_sec != now.stx_mtime.tv_sec || kept.shown.tv_nsec != now.stx_mtime.tv_nsec;
}

bool BeginHoldingDate(const struct statx& facts) {
    if (!hasKeptAny.load(std::memory_order_relaxed)) return false;
    Ring& ring = RingOf(ObjectKey(facts));
    LightLock guard(ring.lock);
    KeptDate* const kept = ring.Find(ObjectKey(facts));
    if (!kept) return false;
    if (kept->users == 0 && IsChanged(*kept, facts)) kept->isSet = false;
    if (kept->isSet) ++kept->users;
    return kept->isSet;
}

static bool WasChangedByOthers(const OpenFork& fork, const KeptDate& kept, const struct statx& now) {
    if (!fork.isChanged) return IsChanged(kept, now) && kept.users == 1;
    return kept.sameClock && Nanoseconds(now.stx_mtime) > fork.lastChange;
}

static statx_timestamp TimestampOf(const timespec& time) {
    return {time.tv_sec, static_cast<uint32_t>(time.tv_nsec), 0};
}

static int SetDates(int file, const FileTimes& times) {
    return Retry([&] { return futimens(file, times.data()); });
}

static void NoteDatesSet(KeptDate& kept, const statx_timestamp& shown) {
    kept.shown = shown;
    kept.times[0].tv_nsec = UTIME_OMIT;
    kept.isOwed = false;
}

// Gives the file its dates again, the one that was put off for the first time.
static bool Restore(int file, const KeptDate& kept, const struct statx& facts) {
    FileTimes times = kept.times;
    // Not left out, since some servers then leave both times as they are.
    if (times[0].tv_nsec == UTIME_OMIT && facts.stx_mask)
        times[0] = {static_cast<time_t>(facts.stx_atime.tv_sec), static_cast<long>(facts.stx_atime.tv_nsec)};
    return SetDates(file, times) == 0;
}

void EndHoldingDate(OpenFork& fork, struct statx& facts) {
    facts.stx_mask = 0;
    Ring& ring = RingOf(fork.key);
    LightLock guard(ring.lock);
    KeptDate* const kept = ring.Find(fork.key);
    if (!kept || kept->users == 0) return;
    // Where it cannot be told whether others have changed the file, its date is not given up.
    if (FactsAt(fork.descriptor, "", AT_EMPTY_PATH, facts) == 0 && WasChangedByOthers(fork, *kept, facts)) {
        kept->isSet = false;
        return;
    }
    --kept->users;
    const bool isDue = fork.isChanged || kept->isOwed;
    const bool isRestored = isDue && Restore(fork.descriptor, *kept, facts);
    if (isRestored) NoteDatesSet(*kept, TimestampOf(kept->times[1]));
    if (fork.isChanged) kept->isWritten = isRestored;
    // SetOwedDates tries again then, and tells why not.
    if (isDue && !isRestored && facts.stx_mask) kept->shown = facts.stx_mtime;
    const bool isInVain = isDue && !isRestored && !kept->isOwed;
    if (isInVain || (kept->users == 0 && kept->isWritten)) kept->isSet = false;
}

OSErr SetOwedDates(int file, const struct statx& now) {
    Ring& ring = RingOf(ObjectKey(now));
    LightLock guard(ring.lock);
    KeptDate* const kept = ring.Find(ObjectKey(now));
    if (!kept) return noErr;
    kept->isAwaited = false;
    if (!kept->isOwed) return noErr;
    if (IsChanged(*kept, now)) {
        kept->isSet = false;
        return noErr;
    }
    if (SetDates(file, kept->times) != 0) return LastError();
    NoteDatesSet(*kept, TimestampOf(kept->times[1]));
    // A volume may round what it is given.
    struct statx facts;
    if (FactsAt(file, "", AT_EMPTY_PATH, facts) == 0) kept->shown = facts.stx_mtime;
    return noErr;
}
