// The record behind a thread handle, and the thread operations that are not exported.
#pragma once

#include "platform/multiprocessing.h"

#include <cstddef>

// Lives until TavCloseThreadRef, independently of the task; the task reads it up to the call of its entry.
struct OpacTavThread {
    MPTaskID task;              // 0 until creation succeeds
    MPQueueID queue;            // gets the message when the task ends
    MPSemaphoreID suspendMutex; // 0 unless the thread was suspended
    MPSemaphoreID startMutex;   // holds the task until the record is complete
    TavThreadProc entry;        // may be null
    void* parameter;
};
static_assert(offsetof(OpacTavThread, task) == 0 && offsetof(OpacTavThread, queue) == 4);
static_assert(offsetof(OpacTavThread, suspendMutex) == 8 && offsetof(OpacTavThread, startMutex) == 12);
static_assert(offsetof(OpacTavThread, entry) == 16 &&
              offsetof(OpacTavThread, parameter) == 16 + sizeof(void*));
static_assert(sizeof(OpacTavThread) == 16 + 2 * sizeof(void*));

extern "C" {

// Makes a thread that has not begun its entry wait before it. kept: a running thread is not stopped, and a
// thread that has been suspended once is not suspended again. Always 0.
int32_t TavSuspendThread(OpacTavThread* thread);

MPTaskID GetTavThreadID(const OpacTavThread* thread);

// The platform's task options for creation flags: none, whatever the flags.
MPTaskOptions TavGetThreadCreateFlags(uint32_t flags);

// Where every thread starts; `parameter` is its record. 0 for null.
OSStatus Mac_TavThreadProc(void* parameter);

} // extern "C"
