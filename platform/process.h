// What the process as a whole does.
#pragma once

#include <cstdint>

extern "C" {

// Registers what is to run before a fork (in the parent) and after it (in the parent, in the child). What is
// registered last runs first before the fork and last after it. The thread that forks cannot be terminated
// from the first of them to the last. For static construction only: a fork that has begun does not see what
// another thread registers. Registrations go when the library is unloaded. 0 on success.
int PlatformAtFork(void (*prepare)(), void (*parent)(), void (*child)());

// Keeps the calling thread from being terminated until the release that matches; calls nest. A thread that
// comes to wait for a lock in between may still end there, without the lock.
void PlatformHoldTermination();

// Does not return when the thread was to be terminated meanwhile and nothing else holds it.
void PlatformReleaseTermination();

// Lets the calling thread sleep, on the monotonic clock and to the end, whatever signals it handles
// meanwhile. 0; -1 when the host refuses.
int PlatformSleep(uint32_t microseconds);

} // extern "C"
