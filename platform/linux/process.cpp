// Process-wide hooks, on POSIX threads' fork handlers. The C library drops the handlers of a library that is unloaded,
// so nothing has to be taken back.
#include "platform/process.h"

#include <pthread.h>

int PlatformAtFork(void (*prepare)(), void (*parent)(), void (*child)()) {
    return pthread_atfork(prepare, parent, child);
}
