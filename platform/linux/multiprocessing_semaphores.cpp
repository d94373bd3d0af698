// Semaphores: a slot's value is the count, its detail the maximum. A signal and a wait that need not wake or
// sleep are one compare-and-swap each; a signal that does wakes one waiter.
#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_wait.h"

namespace {

Taken TakeCount(ObjectSlot& slot, void* context) {
    MPSemaphoreID semaphore = *static_cast<MPSemaphoreID*>(context);
    uint64_t state = slot.state.load();
    do {
        if (StateID(state) != semaphore) {
            return Taken::Gone;
        }
        if (StateValue(state) == 0) {
            return Taken::NotYet;
        }
    } while (!slot.state.compare_exchange_weak(state, state - 1));
    return Taken::Yes;
}

} // namespace

OSStatus MPCreateSemaphore(MPSemaphoreCount maximumValue, MPSemaphoreCount initialValue,
                           MPSemaphoreID* semaphore) {
    *semaphore = 0;
    if (maximumValue == 0 || initialValue > maximumValue) {
        return paramErr;
    }
    *semaphore = CreateObject({.kind = ObjectKind::Semaphore, .value = initialValue, .detail = maximumValue});
    return *semaphore != 0 ? OSStatus{noErr} : kMPInsufficientResourcesErr;
}

OSStatus MPDeleteSemaphore(MPSemaphoreID semaphore) {
    return CloseObject(semaphore, ObjectKind::Semaphore) ? OSStatus{noErr} : kMPInvalidIDErr;
}

OSStatus MPSignalSemaphore(MPSemaphoreID semaphore) {
    ObjectSlot* slot = FindSlot(semaphore, ObjectKind::Semaphore);
    if (slot == nullptr) {
        return kMPInvalidIDErr;
    }
    TerminationHold hold;
    uint64_t state = slot->state.load(std::memory_order_acquire);
    do {
        if (StateID(state) != semaphore) {
            return kMPInvalidIDErr;
        }
        // The maximum belongs to the id just seen, or the swap below fails.
        if (StateValue(state) >= StateValue(slot->detail.load(std::memory_order_relaxed))) {
            return kMPInsufficientResourcesErr;
        }
    } while (!slot->state.compare_exchange_weak(state, state + 1));
    if (HasWaiters(*slot)) [[unlikely]] {
        WakeOneWaiter(*slot);
    }
    return noErr;
}

OSStatus MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout) {
    ObjectSlot* slot = FindSlot(semaphore, ObjectKind::Semaphore);
    if (slot == nullptr) {
        return kMPInvalidIDErr;
    }
    switch (TakeCount(*slot, &semaphore)) {
    case Taken::Yes:
        return noErr;
    case Taken::Gone:
        return kMPInvalidIDErr;
    case Taken::NotYet:
        break;
    }
    return WaitForObject(*slot, timeout, TakeCount, &semaphore);
}
