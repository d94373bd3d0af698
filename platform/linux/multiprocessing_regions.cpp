// Critical regions: a slot's value is the task id of the holder, 0 while the region is free; its detail counts
// the holder's further entries. Entering and leaving is one compare-and-swap each, or a plain store while the
// process has one thread: a signal handler that enters a region leaves it again, and nobody else could come in
// between. The platform lets a task leave a region that it does not hold undefined; here that fails.
#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_wait.h"
#include "platform/linux/one_thread.h"

namespace {

struct Entry {
    MPCriticalRegionID region;
    uint32_t task;
};

Taken TakeRegion(ObjectSlot& slot, void* context) {
    const Entry& entry = *static_cast<Entry*>(context);
    uint64_t state = MakeState(entry.region, 0);
    if (slot.state.compare_exchange_strong(state, MakeState(entry.region, entry.task))) {
        return Taken::Yes;
    }
    return StateID(state) == entry.region ? Taken::NotYet : Taken::Gone;
}

// For the holder. The region may be deleted under its feet and the slot another object's by now: then the
// detail carries another id.
OSStatus EnterAgain(ObjectSlot& slot, MPCriticalRegionID region) {
    uint64_t detail = slot.detail.load(std::memory_order_relaxed);
    if (StateID(detail) != region) {
        return kMPInvalidIDErr;
    }
    if (StateValue(detail) == UINT32_MAX) {
        return kMPInsufficientResourcesErr;
    }
    return slot.detail.compare_exchange_strong(detail, detail + 1) ? OSStatus{noErr} : kMPInvalidIDErr;
}

// For the holder, whose state is `mine`.
OSStatus FreeRegion(ObjectSlot& slot, uint64_t mine) {
    TerminationHold hold;
    if (!slot.state.compare_exchange_strong(mine, MakeState(StateID(mine), 0))) {
        return kMPInvalidIDErr; // deleted under the holder's feet
    }
    if (HasWaiters(slot)) [[unlikely]] {
        WakeOneWaiter(slot);
    }
    return noErr;
}

} // namespace

OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion) {
    *criticalRegion = CreateObject({.kind = ObjectKind::Region});
    return *criticalRegion != 0 ? OSStatus{noErr} : kMPInsufficientResourcesErr;
}

OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion) {
    return CloseObject(criticalRegion, ObjectKind::Region) ? OSStatus{noErr} : kMPInvalidIDErr;
}

OSStatus MPEnterCriticalRegion(MPCriticalRegionID criticalRegion, Duration timeout) {
    ObjectSlot* slot = FindSlot(criticalRegion, ObjectKind::Region);
    if (slot == nullptr) {
        return kMPInvalidIDErr;
    }
    Entry entry{criticalRegion, CurrentTaskID()};
    uint64_t state = MakeState(entry.region, 0);
    uint64_t mine = MakeState(entry.region, entry.task);
    if (HasOneThread() && slot->state.load(std::memory_order_relaxed) == state) {
        slot->state.store(mine, std::memory_order_relaxed);
        return noErr;
    }
    if (slot->state.compare_exchange_strong(state, mine)) {
        return noErr;
    }
    if (state == mine) {
        return EnterAgain(*slot, entry.region);
    }
    return StateID(state) == entry.region ? WaitForObject(*slot, timeout, TakeRegion, &entry)
                                          : kMPInvalidIDErr;
}

OSStatus MPExitCriticalRegion(MPCriticalRegionID criticalRegion) {
    ObjectSlot* slot = FindSlot(criticalRegion, ObjectKind::Region);
    if (slot == nullptr) {
        return kMPInvalidIDErr;
    }
    uint64_t mine = MakeState(criticalRegion, CurrentTaskID());
    uint64_t state = slot->state.load(std::memory_order_relaxed);
    if (state != mine) {
        return StateID(state) == criticalRegion ? kMPInsufficientResourcesErr : kMPInvalidIDErr;
    }
    uint64_t detail = slot->detail.load(std::memory_order_relaxed);
    if (StateID(detail) == criticalRegion && StateValue(detail) != 0) {
        return slot->detail.compare_exchange_strong(detail, detail - 1) ? OSStatus{noErr} : kMPInvalidIDErr;
    }
    if (HasOneThread()) {
        slot->state.store(MakeState(criticalRegion, 0), std::memory_order_relaxed);
        return noErr;
    }
    return FreeRegion(*slot, mine);
}
