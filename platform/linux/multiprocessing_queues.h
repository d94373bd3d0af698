// Putting messages into queues; taking them out is the seam's MPWaitOnQueue.
#pragma once

#include "platform/multiprocessing.h"

// A message is made before it is needed, so that posting it cannot fail for want of memory.
struct TaskMessage {
    TaskMessage* next = nullptr;
    void* parameters[3] = {};
};

// Appends the message, made with new, and lets one waiter through. False when the queue's id is not alive;
// the message is then still the caller's. Allocates nothing and frees nothing.
bool PostMessage(MPQueueID queue, TaskMessage* message) noexcept;
