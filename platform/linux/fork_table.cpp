// Fork numbers: a slot for each of 1 to 32767, and a queue of the free ones.
//
// The number that has been free longest is given next, and those never used come first, so that a closed
// number stays closed for as long as can be. One lock guards the queue and the count of forks by object.
// Using a number takes no lock: a slot's state counts those who hold its fork, and whoever lets go of a
// closed one last closes the descriptor.
//
// Sections: slots, forks by object, numbers, holding.
#include "platform/linux/fork_table.h"

#include "platform/catalog.h"
#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/current_task.h"
#include "platform/linux/system_calls.h"
#include "platform/process.h"

// ---- Slots

namespace {
struct Numbers {
    uint16_t neverUsed = 1;
    uint16_t firstFree = 0;
    uint16_t lastFree = 0;
};
} // namespace

constinit ForkSlot forkSlots[kLastForkNumber + 1] = {};
static constinit Numbers numbers;
static constinit ChildSafeMutex tableLock;

OpenFork::~OpenFork() {
    Close(descriptor);
}

// ---- Forks by object

static constinit OpenFork* byObject[256] = {};
static constinit std::atomic<uint32_t> openForks = 0; // changed under the lock, read without

static OpenFork*& ChainOf(const ObjectKey& key) {
    return byObject[((key.inode + key.device) * 0x9E3779B97F4A7C15u) >> 56];
}

static void Enlist(OpenFork& fork) {
    OpenFork*& chain = ChainOf(fork.key);
    fork.next = chain;
    chain = &fork;
    openForks.store(openForks.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

static void Delist(OpenFork& fork) {
    OpenFork** link = &ChainOf(fork.key);
    while (*link != &fork) link = &(*link)->next;
    *link = fork.next;
    openForks.store(openForks.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
}

bool AnyForkIsOpen() {
    return openForks.load(std::memory_order_relaxed) != 0;
}

uint16_t OpenForkFlags(const struct statx& facts) {
    if (!AnyForkIsOpen()) return 0;
    const ObjectKey key(facts);
    uint16_t flags = 0;
    LightLock guard(tableLock);
    for (const OpenFork* fork = ChainOf(key); fork; fork = fork->next) {
        if (!(fork->key == key)) continue;
        flags |= kFSNodeForkOpenMask;
        flags |= fork->kind == ForkKind::kResource ? kFSNodeResOpenMask : kFSNodeDataOpenMask;
    }
    return flags;
}

void CutResourceForks(const ObjectKey& key, uint64_t length) {
    LightLock guard(tableLock);
    for (OpenFork* fork = ChainOf(key); fork; fork = fork->next) {
        if (fork->kind == ForkKind::kResource && fork->key == key && fork->length > length)
            fork->length = length;
    }
}

// ---- Numbers

static uint16_t TakeNumber() {
    if (numbers.neverUsed <= kLastForkNumber) return numbers.neverUsed++;
    const uint16_t number = numbers.firstFree;
    if (number) numbers.firstFree = forkSlots[number].nextFree;
    return number;
}

static void ReturnNumber(uint16_t number) {
    forkSlots[number].nextFree = 0;
    (numbers.firstFree ? forkSlots[numbers.lastFree].nextFree : numbers.firstFree) = number;
    numbers.lastFree = number;
}

// In a child the threads that held forks are no more.
static void LetGoInChild() {
    for (uint16_t number = 1; number < numbers.neverUsed; ++number) {
        forkSlots[number].state.fetch_and(kForkOpen | kForkClosing, std::memory_order_relaxed);
    }
}

[[gnu::constructor(105)]] static void HandleForks() {
    (void)PlatformAtFork(nullptr, nullptr, LetGoInChild);
}

FSForkRefNum AddFork(std::unique_ptr<OpenFork>& fork) {
    LightLock guard(tableLock);
    const uint16_t number = TakeNumber();
    if (!number) return 0;
    Enlist(*fork);
    forkSlots[number].fork.store(fork.release(), std::memory_order_relaxed);
    AddTo(forkSlots[number].state, kForkOpen, std::memory_order_release);
    return static_cast<FSForkRefNum>(number);
}

// ---- Holding

// Ends the fork of a closed slot and frees its number. In place, see Retry.
[[gnu::always_inline]] static inline OSErr Finish(uint16_t number) {
    const std::unique_ptr<OpenFork> fork(forkSlots[number].fork.load(std::memory_order_relaxed));
    forkSlots[number].fork.store(nullptr, std::memory_order_relaxed);
    const OSErr result = FinishFork(*fork);
    LightLock guard(tableLock);
    Delist(*fork);
    ReturnNumber(number);
    return result;
}

OSErr EndClosedFork(uint16_t number) {
    // Somebody may try a closed number in this moment, and then two come here; one of them ends the fork.
    uint32_t expected = kForkClosing;
    if (!forkSlots[number].state.compare_exchange_strong(expected, 0, std::memory_order_acq_rel))
        return noErr;
    return Finish(number);
}

OSErr CloseFork(FSForkRefNum number) {
    if (number <= 0) return rfNumErr;
    const TerminationHold hold;
    std::atomic<uint32_t>& state = forkSlots[number].state;
    uint32_t old = state.load(std::memory_order_relaxed), closed;
    do {
        if (!(old & kForkOpen)) return rfNumErr;
        closed = old == kForkOpen ? 0 : old - kForkOpen + kForkClosing;
    } while (!state.compare_exchange_weak(old, closed, std::memory_order_acq_rel));
    return closed ? OSErr{noErr} : Finish(static_cast<uint16_t>(number));
}
