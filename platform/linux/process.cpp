// Process-wide hooks, keeping termination off, and sleeping.
//
// Hooks around fork() stand in a list here, which POSIX threads know as one; so a thread that forks can be
// kept from being terminated from before the first until after the last. The C library drops the handlers of
// a library that is unloaded, and nothing has to be taken back. Termination is kept off by the provider's own
// count. Sleeping goes by the monotonic clock. Sections in this order.
#include "platform/process.h"

#include "platform/linux/current_task.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <pthread.h>

namespace {

struct ForkHandlers {
    void (*prepare)();
    void (*parent)();
    void (*child)();
};

constinit std::array<ForkHandlers, 16> forkHandlers{};
constinit size_t countForkHandlers = 0;
constinit bool forksAreHandled = false;

void BeforeFork() {
    HoldTermination();
    currentTask.forking = true;
    for (size_t i = countForkHandlers; i-- > 0;) {
        if (forkHandlers[i].prepare != nullptr) {
            forkHandlers[i].prepare();
        }
    }
}

void AfterFork(void (*ForkHandlers::*handler)()) {
    for (size_t i = 0; i < countForkHandlers; i++) {
        if (forkHandlers[i].*handler != nullptr) {
            (forkHandlers[i].*handler)();
        }
    }
    currentTask.forking = false;
    ReleaseTermination();
}

void AfterForkInParent() {
    AfterFork(&ForkHandlers::parent);
}

// A termination that was asked for before the fork was meant for the parent's task.
void AfterForkInChild() {
    currentTask.terminationHeld.store(false, std::memory_order_relaxed);
    AfterFork(&ForkHandlers::child);
}

} // namespace

int PlatformAtFork(void (*prepare)(), void (*parent)(), void (*child)()) {
    if (countForkHandlers == forkHandlers.size()) {
        return -1;
    }
    if (!forksAreHandled && pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild) != 0) {
        return -1;
    }
    forksAreHandled = true;
    forkHandlers[countForkHandlers++] = {prepare, parent, child};
    return 0;
}

void PlatformHoldTermination() {
    HoldTermination();
}
void PlatformReleaseTermination() {
    ReleaseTermination();
}

int PlatformSleep(uint32_t microseconds) {
    if (microseconds == 0) {
        return 0;
    }
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += microseconds / 1'000'000;
    until.tv_nsec += static_cast<long>(microseconds % 1'000'000) * 1000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_sec++;
        until.tv_nsec -= 1'000'000'000;
    }
    int error = EINTR;
    while (error == EINTR) {
        error = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    }
    return error == 0 ? 0 : -1;
}
