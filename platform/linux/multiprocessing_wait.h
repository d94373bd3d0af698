// How every object is waited for.
//
// A thread that cannot take what it wants counts itself as a waiter, notes the number of wakeups so far,
// tries again, and sleeps until that number changes. Whoever makes something available changes the state
// first, then looks for waiters; if there are any it raises the number and wakes one. Either the waiter's
// second try sees the new state or the other sees the waiter, and in the latter case the sleep ends at once
// or never begins. Nobody depends on which thread is woken: one that finds nothing sleeps again.
#pragma once

#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"

enum class Taken { Yes, NotYet, Gone };

// Call after the change, with termination held back since before it.
inline bool HasWaiters(const ObjectSlot& slot) noexcept {
    return slot.waiters.load() != 0;
}
void WakeOneWaiter(ObjectSlot& slot) noexcept;
void WakeAllWaiters(ObjectSlot& slot) noexcept;

// Takes the calling thread, which ends while it waits, out of the waiters, and hands a wakeup that it may
// have got to another one.
void AbandonWait() noexcept;

// Waits until the deadline for `take` to succeed; `take` gives Gone when the id is stale. 0, -29295 or
// -29296.
using TakeFunction = Taken (*)(ObjectSlot& slot, void* context);
OSStatus SleepForObject(ObjectSlot& slot, Duration timeout, TakeFunction take, void* context) noexcept;

// The same, for one who has tried in vain: a poll ends here.
inline OSStatus WaitForObject(ObjectSlot& slot, Duration timeout, TakeFunction take, void* context) noexcept {
    return timeout <= kDurationImmediate ? kMPTimeoutErr : SleepForObject(slot, timeout, take, context);
}
