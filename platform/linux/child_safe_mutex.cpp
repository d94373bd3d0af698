// Mutexes around fork(), on POSIX threads' fork handlers: all that were ever used stand in one list, and the
// thread that forks holds them all while it does. The list has a lock of its own, which is held meanwhile
// too.
#include "platform/linux/child_safe_mutex.h"

#include "platform/linux/current_task.h"
#include "platform/process.h"

static constinit std::mutex listLock;
static constinit ChildSafeMutex* listed = nullptr;

void ChildSafeMutex::LockAll() {
    listLock.lock();
    for (ChildSafeMutex* each = listed; each; each = each->next_) each->mutex_.lock();
}

void ChildSafeMutex::UnlockAll() {
    for (ChildSafeMutex* each = listed; each; each = each->next_) each->mutex_.unlock();
    listLock.unlock();
}

// At load, like all handlers around a fork: one that has begun does not see what another thread registers.
[[gnu::constructor(104)]] static void HandleForks() {
    (void)PlatformAtFork(ChildSafeMutex::LockAll, ChildSafeMutex::UnlockAll, ChildSafeMutex::UnlockAll);
}

void ChildSafeMutex::List() {
    const HeldLock guard(listLock);
    if (isListed_.load(std::memory_order_relaxed)) return;
    next_ = listed;
    listed = this;
    isListed_.store(true, std::memory_order_release);
}
