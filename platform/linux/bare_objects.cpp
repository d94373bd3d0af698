// Bare objects, in a fixed table of 64-bit hashes without a lock.
//
// Setting an attribute changes the object's change time, which nobody can set back; an object is known by its
// inode and that time, so what is remembered of it ends by itself. Volumes whose times are coarse or come from
// another machine are left out. The table has four places for each set of hashes; when they are full, one of
// them is given up.
#include "platform/linux/bare_objects.h"

#include "platform/linux/identity.h"
#include "platform/linux/settled.h"

#include <atomic>

namespace {
constexpr unsigned kWays = 4;
constexpr unsigned kSetBits = 12;
using Set = std::atomic<uint64_t>[kWays]; // 0 is an empty place
} // namespace

static constinit Set sets[1u << kSetBits] = {};

static bool TellsEnough(const struct statx& facts) {
    constexpr unsigned kNeeded = STATX_INO | STATX_CTIME;
    return (facts.stx_mask & kNeeded) == kNeeded;
}

static uint64_t Mix(uint64_t hash, uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    return hash ^ hash >> 29;
}

static uint64_t HashOf(const struct statx& facts) {
    const auto time =
        static_cast<uint64_t>(facts.stx_ctime.tv_sec) * 1'000'000'000u + facts.stx_ctime.tv_nsec;
    const uint64_t hash = Mix(Mix(Mix(0, facts.stx_ino), time), DeviceOf(facts)) * 0xD6E8FEB86659FD93u;
    return hash ? hash : 1;
}

static Set& SetOf(uint64_t hash) {
    return sets[hash >> (64 - kSetBits)];
}

bool IsKnownBare(const struct statx& facts) {
    if (!TellsEnough(facts)) return false;
    const uint64_t hash = HashOf(facts);
    for (const auto& place : SetOf(hash))
        if (place.load(std::memory_order_relaxed) == hash) return true;
    return false;
}

void RememberBare(const struct statx& facts, bool fineTimes) {
    if (!fineTimes || !TellsEnough(facts) || !IsSettled(facts.stx_ctime, fineTimes)) return;
    const uint64_t hash = HashOf(facts);
    Set& set = SetOf(hash);
    unsigned place = 0;
    while (place < kWays && set[place].load(std::memory_order_relaxed) != 0) ++place;
    if (place == kWays) place = hash % kWays;
    set[place].store(hash, std::memory_order_relaxed);
}
