// The table of multiprocessing ids, in chunks of 64 KiB that stay until the library is unloaded.
//
// Free slots stand in a queue: the one that has been free longest is used first, and while there are new ones
// none is used again before 8,191 others have been, so an id comes back after 16 million creations at the
// earliest. A table of a million slots that is full but for a few uses these sooner: the id of the only free
// slot comes back after 2,047 creations. One lock guards the queue; looking up and using objects takes no
// lock. The table's memory goes at unload if nothing is alive and nobody waits any more, and otherwise stays:
// at the end of a process other threads may still be using what was left open.
//
// A signal handler of the application may have interrupted any operation of the service, one that holds a
// lock or is half-way into a wait; only signalling a semaphore and setting an event, which take no lock and
// wait for nobody, may be called from there. Sections: the table, creating and closing, fork and unload.
#include "platform/linux/multiprocessing_ids.h"

#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_wait.h"
#include "platform/process.h"

#include <memory>
#include <mutex>
#include <new>

constinit std::array<std::atomic<ObjectSlot*>, (kIndexMask + 1) / kSlotsPerChunk> objectChunks{};

namespace {

// This many slots rest before one is used again.
constexpr uint32_t kRestingSlots = 8192;

struct Table {
    std::mutex lock;
    uint32_t used = 1; // slots that have ever had an id; the first is left out, so that 0 is no id
    uint32_t firstFree = 0;
    uint32_t lastFree = 0;
    uint32_t countFree = 0;
};
constinit Table table;

ObjectSlot& SlotAt(uint32_t index) {
    return objectChunks[index / kSlotsPerChunk].load(std::memory_order_relaxed)[index % kSlotsPerChunk];
}

// A slot that has never been used, 0 when there is none left.
uint32_t TakeNewSlot() {
    if (table.used > kIndexMask) {
        return 0;
    }
    std::atomic<ObjectSlot*>& chunk = objectChunks[table.used / kSlotsPerChunk];
    if (chunk.load(std::memory_order_relaxed) == nullptr) {
        ObjectSlot* slots = new (std::nothrow) ObjectSlot[kSlotsPerChunk];
        if (slots == nullptr) {
            return 0;
        }
        chunk.store(slots, std::memory_order_release);
    }
    return table.used++;
}

uint32_t TakeFreeSlot() {
    uint32_t index = table.firstFree;
    if (index != 0) {
        table.firstFree = SlotAt(index).nextFree;
        table.countFree--;
    }
    return index;
}

uint32_t TakeSlot() {
    uint32_t index = table.countFree < kRestingSlots ? TakeNewSlot() : 0;
    return index != 0 ? index : TakeFreeSlot();
}

void ReturnSlot(uint32_t index) {
    SlotAt(index).nextFree = 0;
    (table.countFree++ == 0 ? table.firstFree : SlotAt(table.lastFree).nextFree) = index;
    table.lastFree = index;
}

} // namespace

uint32_t CreateObject(const NewObject& object) noexcept {
    HeldLock lock(table.lock);
    uint32_t index = TakeSlot();
    if (index == 0) {
        return 0;
    }
    ObjectSlot& slot = SlotAt(index);
    slot.generation = slot.generation % kLastGeneration + 1;
    uint32_t id = slot.generation << kIndexBits | index;
    slot.detail.store(MakeState(id, object.detail), std::memory_order_relaxed);
    slot.task = object.task;
    slot.kind.store(object.kind, std::memory_order_relaxed);
    slot.state.store(MakeState(id, object.value), std::memory_order_release);
    return id;
}

bool CloseObject(uint32_t id, ObjectKind kind) noexcept {
    ObjectSlot* slot = FindSlot(id, kind);
    if (slot == nullptr) {
        return false;
    }
    TerminationHold hold;
    uint64_t state = slot->state.load(std::memory_order_relaxed);
    do {
        if (StateID(state) != id) {
            return false;
        }
    } while (!slot->state.compare_exchange_weak(state, 0));
    WakeAllWaiters(*slot);
    HeldLock lock(table.lock);
    ReturnSlot(id & kIndexMask);
    return true;
}

uint32_t CountObjects() noexcept {
    HeldLock lock(table.lock);
    return table.used - 1 - table.countFree;
}

namespace {

// Around a fork the lock is held, so that the child finds the table whole.
void LockTable() {
    table.lock.lock();
}

void UnlockTable() {
    table.lock.unlock();
}

// Of the waiters only the forking thread is there, if a signal handler forks in the middle of a wait.
void UnlockTableInChild() {
    for (uint32_t index = 1; index < table.used; index++) {
        ObjectSlot& slot = SlotAt(index);
        if (slot.waiters.load(std::memory_order_relaxed) != 0) {
            slot.waiters.store(&slot == currentTask.waitingOn, std::memory_order_relaxed);
        }
    }
    table.lock.unlock();
}

// Before those of the other locks: this one is taken last, before a fork as everywhere.
[[gnu::constructor(101)]] void HandleForks() {
    (void)PlatformAtFork(LockTable, UnlockTable, UnlockTableInChild);
}

bool AnyoneWaits() {
    for (uint32_t index = 1; index < table.used; index++) {
        if (SlotAt(index).waiters.load() != 0) {
            return true;
        }
    }
    return false;
}

// Runs after every other destructor of the library, which may still close objects.
[[gnu::destructor(101)]] void ReleaseAtUnload() {
    (void)ReleaseObjectTable();
}

} // namespace

bool ReleaseObjectTable() noexcept {
    HeldLock lock(table.lock);
    if (table.used - 1 != table.countFree || AnyoneWaits()) {
        return false;
    }
    for (std::atomic<ObjectSlot*>& chunk : objectChunks) {
        delete[] chunk.exchange(nullptr);
    }
    table.used = 1;
    table.firstFree = table.countFree = 0;
    return true;
}
