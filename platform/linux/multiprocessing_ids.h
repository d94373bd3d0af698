// The one table behind all multiprocessing objects: 32-bit ids, a slot for each object.
//
// An id is a slot's index (low 20 bits) and the slot's generation (11 bits); the highest bit marks the ids of
// threads that the provider did not make, which are not in the table. Slots are never given back while the
// library is loaded, so any id may be looked up at any time. A slot's state carries the id beside the
// object's value in one 64-bit word: every change of the value is a compare-and-swap that also proves that
// the object is still the one that was meant.
#pragma once

#include "platform/linux/futex.h"
#include "platform/multiprocessing.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

struct Task;
struct TaskMessage;

enum class ObjectKind : uint32_t { None, Region, Semaphore, Event, Queue, Task };

constexpr uint32_t kIndexBits = 20;
constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
constexpr uint32_t kLastGeneration = (1u << 11) - 1;
constexpr uint32_t kForeignTaskBit = 0x80000000u;
constexpr uint32_t kSlotsPerChunk = 1024;

// One cache line each, so that objects used by different threads do not slow each other down.
struct alignas(64) ObjectSlot {
    std::atomic<uint64_t> state{0};                 // id above, value below; 0 while the slot is free
    std::atomic<uint32_t> wakeups{0};               // the word that waiters sleep on; grows with every waking
    std::atomic<uint32_t> waiters{0};               // threads that wait or are about to
    std::atomic<uint64_t> detail{0};                // id above; region: re-entries, semaphore: maximum
    std::atomic<ObjectKind> kind{ObjectKind::None}; // set before the id is published
    uint32_t generation = 0; // of the last id; this and `nextFree` under the table's lock
    uint32_t nextFree = 0;
    TaskMessage* firstMessage = nullptr; // queue: under the queues' lock
    TaskMessage* lastMessage = nullptr;
    Task* task = nullptr; // task: under the tasks' lock
};
static_assert(sizeof(ObjectSlot) == 64 && std::atomic<uint64_t>::is_always_lock_free);

constexpr uint64_t MakeState(uint32_t id, uint32_t value) {
    return static_cast<uint64_t>(id) << 32 | value;
}
constexpr uint32_t StateID(uint64_t state) {
    return static_cast<uint32_t>(state >> 32);
}
constexpr uint32_t StateValue(uint64_t state) {
    return static_cast<uint32_t>(state);
}

// Chunks appear when they are first needed.
extern constinit std::array<std::atomic<ObjectSlot*>, (kIndexMask + 1) / kSlotsPerChunk> objectChunks;

// The slot that an id of this kind would have, null when there is none. Whether the id is alive only its
// state tells.
inline ObjectSlot* FindSlot(uint32_t id, ObjectKind kind) noexcept {
    uint32_t index = id & kIndexMask;
    ObjectSlot* chunk = objectChunks[index / kSlotsPerChunk].load(std::memory_order_acquire);
    if (chunk == nullptr) [[unlikely]] {
        return nullptr;
    }
    ObjectSlot* slot = chunk + index % kSlotsPerChunk;
    return slot->kind.load(std::memory_order_relaxed) == kind ? slot : nullptr;
}

// What a new object starts with.
struct NewObject {
    ObjectKind kind;
    uint32_t value = 0;
    uint32_t detail = 0;
    Task* task = nullptr;
};

// The new object's id, 0 when there is no room.
uint32_t CreateObject(const NewObject& object) noexcept;

// Makes the id stale, wakes everyone who waits for the object and gives the slot back. False when the id is
// not alive; of several threads that close one id, one gets true.
bool CloseObject(uint32_t id, ObjectKind kind) noexcept;

// Objects that are alive, for tests.
uint32_t CountObjects() noexcept;

// Gives the table's memory back, at unload. False, and nothing done, while an object is alive or a thread is
// still on its way out of a wait for one.
bool ReleaseObjectTable() noexcept;
