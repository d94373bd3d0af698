// Events: a slot's value is the flags. Setting them wakes one waiter when none was set before: as long as
// some are set, a waiter is on its way already, or there was none.
#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_wait.h"

namespace {

struct FlagWait {
    MPEventID event;
    MPEventFlags flags; // taken
};

Taken TakeFlags(ObjectSlot& slot, void* context) {
    FlagWait& wait = *static_cast<FlagWait*>(context);
    uint64_t state = slot.state.load();
    do {
        if (StateID(state) != wait.event) {
            return Taken::Gone;
        }
        if (StateValue(state) == 0) {
            return Taken::NotYet;
        }
    } while (!slot.state.compare_exchange_weak(state, MakeState(wait.event, 0)));
    wait.flags = StateValue(state);
    return Taken::Yes;
}

OSStatus WaitForFlags(FlagWait& wait, Duration timeout) {
    ObjectSlot* slot = FindSlot(wait.event, ObjectKind::Event);
    if (slot == nullptr) {
        return kMPInvalidIDErr;
    }
    switch (TakeFlags(*slot, &wait)) {
    case Taken::Yes:
        return noErr;
    case Taken::Gone:
        return kMPInvalidIDErr;
    case Taken::NotYet:
        break;
    }
    return WaitForObject(*slot, timeout, TakeFlags, &wait);
}

} // namespace

OSStatus MPCreateEvent(MPEventID* event) {
    *event = CreateObject({.kind = ObjectKind::Event});
    return *event != 0 ? OSStatus{noErr} : kMPInsufficientResourcesErr;
}

OSStatus MPDeleteEvent(MPEventID event) {
    return CloseObject(event, ObjectKind::Event) ? OSStatus{noErr} : kMPInvalidIDErr;
}

OSStatus MPSetEvent(MPEventID event, MPEventFlags flags) {
    ObjectSlot* slot = FindSlot(event, ObjectKind::Event);
    if (slot == nullptr) {
        return kMPInvalidIDErr;
    }
    TerminationHold hold;
    uint64_t state = slot->state.load(std::memory_order_relaxed);
    do {
        if (StateID(state) != event) {
            return kMPInvalidIDErr;
        }
    } while (!slot->state.compare_exchange_weak(state, state | flags));
    if (StateValue(state) == 0 && HasWaiters(*slot)) [[unlikely]] {
        WakeOneWaiter(*slot);
    }
    return noErr;
}

OSStatus MPWaitForEvent(MPEventID event, MPEventFlags* flags, Duration timeout) {
    FlagWait wait{event, 0};
    OSStatus status = WaitForFlags(wait, timeout);
    if (flags != nullptr) {
        *flags = wait.flags;
    }
    return status;
}
