// Critical regions: a slot's value is the task id of the holder, 0 while the region is free. Entering and
// leaving a free region is one compare-and-swap each. The platform lets a task leave a region that it does
// not hold undefined; here that fails.
#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_wait.h"

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
    if (slot->state.compare_exchange_strong(state, mine)) {
        return noErr;
    }
    if (state == mine) {
        slot->detail.store(slot->detail.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        return noErr;
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
    uint32_t reentries = slot->detail.load(std::memory_order_relaxed);
    if (reentries != 0) {
        slot->detail.store(reentries - 1, std::memory_order_relaxed);
        return noErr;
    }
    TerminationHold hold;
    if (!slot->state.compare_exchange_strong(mine, MakeState(criticalRegion, 0))) {
        return kMPInvalidIDErr; // deleted under the holder's feet
    }
    if (HasWaiters(*slot)) [[unlikely]] {
        WakeOneWaiter(*slot);
    }
    return noErr;
}
