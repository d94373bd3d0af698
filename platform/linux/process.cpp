// Process-wide hooks, on POSIX threads' fork handlers; keeping termination off, by the provider's own count;
// sleeping, on the monotonic clock. The C library
// drops the handlers of a library that is unloaded, so nothing has to be taken back.
#include "platform/process.h"

#include "platform/linux/current_task.h"

#include <cerrno>
#include <ctime>
#include <pthread.h>

int PlatformAtFork(void (*prepare)(), void (*parent)(), void (*child)()) {
    return pthread_atfork(prepare, parent, child);
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
