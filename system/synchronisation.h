// The records behind synchronisation handles, and how timeouts and wait results are mapped. Threads share
// them.
#pragma once

#include "platform/multiprocessing.h"

#include <cstddef>

// A Windows-style event on a platform event, which clears itself whenever a wait takes it.
struct OpacTavEvent {
    MPEventID event;
    int32_t manualReset;  // non-zero: stays signalled until it is reset
    int32_t initialState; // as given at creation; not read again
};
static_assert(sizeof(OpacTavEvent) == 12 && offsetof(OpacTavEvent, event) == 0);
static_assert(offsetof(OpacTavEvent, manualReset) == 4 && offsetof(OpacTavEvent, initialState) == 8);

// The platform's duration of a timeout in milliseconds; any negative one is without limit.
Duration DurationFromTimeout(int32_t timeout);

// TAV_WAIT_OBJECT_0, TAV_WAIT_TIMEOUT or TAV_WAIT_ABANDONED for the status that a platform wait gave.
uint32_t WaitResult(OSStatus status);
