// Mutexes around fork(), on POSIX threads' fork handlers: all that were ever used stand in one list, and the
// thread that forks holds them all while it does. The list has a lock of its own, which is held meanwhile
// too. Where the handlers cannot be registered for want of memory, the next use of a new mutex tries again.
#include "platform/linux/child_safe_mutex.h"

#include "platform/linux/current_task.h"
#include "platform/process.h"

static constinit std::mutex listLock;
static constinit ChildSafeMutex* listed = nullptr;
static constinit std::atomic<bool> hasHandlers = false;

void ChildSafeMutex::LockAll() {
    LockForFork(listLock);
    for (ChildSafeMutex* each = listed; each; each = each->next_) each->mutex_.lock();
}

void ChildSafeMutex::UnlockAll() {
    for (ChildSafeMutex* each = listed; each; each = each->next_) each->mutex_.unlock();
    UnlockAfterFork(listLock);
}

void ChildSafeMutex::List() {
    // Not under the lock: the C library may hold one of its own while handlers run.
    if (!hasHandlers.exchange(true) && PlatformAtFork(LockAll, UnlockAll, UnlockAll) != 0)
        hasHandlers = false;
    const HeldLock guard(listLock);
    if (isListed_.load(std::memory_order_relaxed)) return;
    next_ = listed;
    listed = this;
    isListed_.store(true, std::memory_order_release);
}
