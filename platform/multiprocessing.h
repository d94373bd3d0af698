// Multiprocessing: critical regions, semaphores, events, queues and tasks, named by 32-bit ids; 0 is no
// object. A closed, invented or foreign id (a semaphore's given to an event call) is refused with -29299 and
// never followed, also while another thread is closing it. Everything may be called from any thread.
//
// Waits give 0, -29296 (kMPTimeoutErr) when the time is up, -29295 (kMPDeletedErr) when the object is deleted
// meanwhile. The time runs on a clock that nobody can set. Deleting an object never waits.
#pragma once

#include "platform/types.h"

using MPEventID = uint32_t;
using MPEventFlags = uint32_t;
using MPSemaphoreCount = uint32_t;
using MPTaskOptions = uint32_t;

// Milliseconds; 0 and less poll.
using Duration = int32_t;
constexpr Duration kDurationImmediate = 0;
constexpr Duration kDurationForever = 0x7FFFFFFF;

constexpr OSStatus kMPDeletedErr = -29295;
constexpr OSStatus kMPTimeoutErr = -29296;
constexpr OSStatus kMPInsufficientResourcesErr = -29298;
constexpr OSStatus kMPInvalidIDErr = -29299;

// What a task runs; the result goes into its termination message.
using TaskProc = OSStatus (*)(void* parameter);

extern "C" {

// Creating: 0 and the new id, or -29298 and 0 as the id when there is no room.

// Critical regions: locks that the task holding them may enter again. Leaving a region that the caller does
// not hold fails (-29298) and frees nothing. A region whose holder has ended stays held.
OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion);
OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion);
OSStatus MPEnterCriticalRegion(MPCriticalRegionID criticalRegion, Duration timeout);
OSStatus MPExitCriticalRegion(MPCriticalRegionID criticalRegion);

// Semaphores that count up to a maximum. A maximum of 0 or below the initial value gives -50; signalling at
// the maximum fails (-29298) and changes nothing. Each signal lets one waiter through.
OSStatus MPCreateSemaphore(MPSemaphoreCount maximumValue, MPSemaphoreCount initialValue,
                           MPSemaphoreID* semaphore);
OSStatus MPDeleteSemaphore(MPSemaphoreID semaphore);
OSStatus MPSignalSemaphore(MPSemaphoreID semaphore);
OSStatus MPWaitOnSemaphore(MPSemaphoreID semaphore, Duration timeout);

// Events: 32 flags. Setting adds flags and lets one waiter through; a wait ends when any flag is set, takes
// all of them and leaves none. `flags` may be null; it holds 0 after a failure.
OSStatus MPCreateEvent(MPEventID* event);
OSStatus MPDeleteEvent(MPEventID event);
OSStatus MPSetEvent(MPEventID event, MPEventFlags flags);
OSStatus MPWaitForEvent(MPEventID event, MPEventFlags* flags, Duration timeout);

// Queues of three-word messages, first in first out. Deleting one drops its messages. The parameters may be
// null and are left alone after a failure.
OSStatus MPCreateQueue(MPQueueID* queue);
OSStatus MPDeleteQueue(MPQueueID queue);
OSStatus MPWaitOnQueue(MPQueueID queue, void** parameter1, void** parameter2, void** parameter3,
                       Duration timeout);

// Starts a task, which may run before this returns. A stack size of 0 is the host's default; one too small is
// raised to what the host needs. `options` is 0. When the task ends, by returning, MPExit or termination, its
// id goes stale and one message (the two termination parameters, and its result or status) goes to
// `notifyQueue`; an id of 0, or a queue deleted meanwhile, gets none. -29298 when the task cannot be had; the
// id is then 0 and no message is sent.
OSStatus MPCreateTask(TaskProc entryPoint, void* parameter, ByteCount stackSize, MPQueueID notifyQueue,
                      void* terminationParameter1, void* terminationParameter2, MPTaskOptions options,
                      MPTaskID* task);

// Makes a task end soon, wherever it is, without running its cleanup handlers or destructors, and returns at
// once. What it holds stays held. The first status asked for counts. Terminating oneself is MPExit. Threads
// that are not tasks give -29299.
OSStatus MPTerminateTask(MPTaskID task, OSStatus terminationStatus);

// Ends the calling task in the same way; does not return. A thread that is not a task ends just so, without a
// message.
void MPExit(OSStatus status);

// The calling thread's id; threads that are not tasks, the main thread among them, have one as well.
MPTaskID MPCurrentTaskID();

} // extern "C"
