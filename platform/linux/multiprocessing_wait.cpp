// The slow half of every wait, on futexes and the monotonic clock. The fast half, which makes no system call,
// stands with each kind of object.
#include "platform/linux/multiprocessing_wait.h"

#include <climits>

namespace {

void Wake(ObjectSlot& slot, int count) {
    slot.wakeups.fetch_add(1);
    FutexWake(slot.wakeups, count);
}

// Counts the calling thread among the waiters while it lives.
class Waiter {
public:
    explicit Waiter(ObjectSlot& slot) : slot_(slot) {
        currentTask.waitingOn = &slot;
        slot.waiters.fetch_add(1);
    }
    ~Waiter() {
        slot_.waiters.fetch_sub(1);
        currentTask.waitingOn = nullptr;
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

private:
    ObjectSlot& slot_;
};

// The one place inside holds where a task may end: nothing is half done here but the wait itself. Not so
// where a handler waits before a fork, since those that ran before it have locked what they look after.
bool Sleep(const ObjectSlot& slot, uint32_t seen, const Deadline& deadline) {
    uint32_t holds = currentTask.forking ? 0 : currentTask.holds.load(std::memory_order_relaxed);
    currentTask.asleepAt.store(holds, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (currentTask.terminationHeld.load(std::memory_order_relaxed) && MayEnd()) {
        EndTerminatedTask();
    }
    bool inTime = FutexWait(slot.wakeups, seen, deadline);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    currentTask.asleepAt.store(0, std::memory_order_relaxed);
    return inTime;
}

} // namespace

void WakeOneWaiter(ObjectSlot& slot) noexcept {
    Wake(slot, 1);
}

void WakeAllWaiters(ObjectSlot& slot) noexcept {
    if (HasWaiters(slot)) {
        Wake(slot, INT_MAX);
    }
}

void AbandonWait() noexcept {
    ObjectSlot* slot = currentTask.waitingOn;
    if (slot == nullptr) {
        return;
    }
    currentTask.waitingOn = nullptr;
    if (slot->waiters.fetch_sub(1) > 1) {
        WakeOneWaiter(*slot);
    }
}

OSStatus SleepForObject(ObjectSlot& slot, Duration timeout, TakeFunction take, void* context) noexcept {
    Deadline deadline =
        timeout == kDurationForever ? Deadline::Never() : Deadline::In(static_cast<uint32_t>(timeout));
    TerminationHold hold;
    Waiter waiter(slot);
    for (bool inTime = true;;) {
        uint32_t seen = slot.wakeups.load();
        Taken taken = take(slot, context);
        if (taken != Taken::NotYet) {
            return taken == Taken::Yes ? OSStatus{noErr} : kMPDeletedErr;
        }
        if (!inTime) {
            return kMPTimeoutErr;
        }
        inTime = Sleep(slot, seen, deadline);
    }
}
