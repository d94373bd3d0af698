#include "system/synchronisation.h"

#include "platform/process.h"

#include <cstdlib>

namespace {

// The one flag of a platform event that is used.
constexpr MPEventFlags kSignalled = 1;

bool IsUsable(const OpacTavEvent* event) {
    return event != nullptr && event->event != 0;
}

} // namespace

Duration DurationFromTimeout(int32_t timeout) {
    return timeout < 0 ? kDurationForever : timeout;
}

uint32_t WaitResult(OSStatus status) {
    switch (status) {
    case noErr:
        return TAV_WAIT_OBJECT_0;
    case kMPTimeoutErr:
        return TAV_WAIT_TIMEOUT;
    default:
        return TAV_WAIT_ABANDONED;
    }
}

// ---- Critical sections ----

int32_t TavInitCriticalSection(MPCriticalRegionID* section) {
    return MPCreateCriticalRegion(section) == noErr;
}

int32_t TavEnterCriticalSection(MPCriticalRegionID* section) {
    return MPEnterCriticalRegion(*section, kDurationForever) == noErr;
}

int32_t TavLeaveCriticalSection(MPCriticalRegionID* section) {
    return MPExitCriticalRegion(*section) == noErr;
}

int32_t TavDeleteCriticalSection(MPCriticalRegionID* section) {
    return MPDeleteCriticalRegion(*section) == noErr;
}

// ---- Semaphores ----

MPSemaphoreID TavCreateSemaphore(uint32_t initialCount, uint32_t maximumCount) {
    MPSemaphoreID semaphore = 0;
    (void)MPCreateSemaphore(maximumCount, initialCount, &semaphore); // a failure leaves 0
    return semaphore;
}

int32_t TavReleaseSemaphore(MPSemaphoreID semaphore) {
    return MPSignalSemaphore(semaphore) == noErr;
}

uint32_t TavWaitSemaphore(MPSemaphoreID semaphore, int32_t timeout) {
    return WaitResult(MPWaitOnSemaphore(semaphore, DurationFromTimeout(timeout)));
}

int32_t TavCloseSemaphore(MPSemaphoreID semaphore) {
    return MPDeleteSemaphore(semaphore) == noErr;
}

// ---- Events ----

OpacTavEvent* TavCreateEvent(int32_t manualReset, int32_t initialState) {
    MPEventID id = 0;
    if (MPCreateEvent(&id) != noErr) {
        return nullptr;
    }
    auto* event = static_cast<OpacTavEvent*>(malloc(sizeof(OpacTavEvent)));
    if (event == nullptr) {
        (void)MPDeleteEvent(id);
        return nullptr;
    }
    *event = {id, manualReset, initialState};
    if (initialState != 0) {
        (void)MPSetEvent(id, kSignalled);
    }
    return event;
}

int32_t TavSetEvent(OpacTavEvent* event) {
    return IsUsable(event) && MPSetEvent(event->event, kSignalled) == noErr;
}

int32_t TavResetEvent(OpacTavEvent* event) {
    if (!IsUsable(event)) {
        return 0;
    }
    (void)MPWaitForEvent(event->event, nullptr, kDurationImmediate); // takes the flag if there is one
    return 1;
}

uint32_t TavWaitEvent(OpacTavEvent* event, int32_t timeout) {
    if (!IsUsable(event)) {
        return TAV_WAIT_ABANDONED;
    }
    const OpacTavEvent given =
        *event; // the block may be gone when the wait ends because the event was closed
    if (given.manualReset == 0) {
        return WaitResult(MPWaitForEvent(given.event, nullptr, DurationFromTimeout(timeout)));
    }
    // kept: the wait has cleared the event, so it is set again for the next waiter. A reset in between is
    // undone, and waiters wake one after the other. A thread that is terminated ends before or behind both.
    PlatformHoldTermination();
    OSStatus status = MPWaitForEvent(given.event, nullptr, DurationFromTimeout(timeout));
    if (status == noErr) {
        (void)MPSetEvent(given.event, kSignalled);
    }
    PlatformReleaseTermination();
    return WaitResult(status);
}

int32_t TavCloseEvent(OpacTavEvent* event) {
    int32_t closed = IsUsable(event) && MPDeleteEvent(event->event) == noErr;
    free(event);
    return closed;
}

// ---- Mutexes: kept: semaphores of one count, so without owner and without recursion ----

MPSemaphoreID TavCreateMutex(int32_t initialOwner) {
    MPSemaphoreID mutex = 0;
    if (MPCreateSemaphore(1, 1, &mutex) != noErr) {
        return 0;
    }
    if (initialOwner != 0) {
        (void)TavWaitSemaphore(mutex, 0);
    }
    return mutex;
}

int32_t TavReleaseMutex(MPSemaphoreID mutex) {
    return TavReleaseSemaphore(mutex);
}

uint32_t TavWaitMutex(MPSemaphoreID mutex, int32_t timeout) {
    return TavWaitSemaphore(mutex, timeout);
}

int32_t TavCloseMutex(MPSemaphoreID mutex) {
    return TavCloseSemaphore(mutex);
}
