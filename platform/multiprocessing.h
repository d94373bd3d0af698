// Multiprocessing: critical regions, semaphores, events, queues and tasks, named by 32-bit ids. A closed or invented id
// is refused with -29299.
#pragma once

#include "platform/types.h"

using MPCriticalRegionID = uint32_t;

// Milliseconds; 0 polls.
using Duration = int32_t;
constexpr Duration kDurationImmediate = 0;
constexpr Duration kDurationForever = 0x7FFFFFFF;

constexpr OSStatus kMPDeletedErr = -29295;
constexpr OSStatus kMPTimeoutErr = -29296;
constexpr OSStatus kMPInsufficientResourcesErr = -29298;
constexpr OSStatus kMPInvalidIDErr = -29299;

extern "C" {

// Critical regions: locks that the task holding them may enter again. Leaving a region that the caller does not hold
// fails and frees nothing.
OSStatus MPCreateCriticalRegion(MPCriticalRegionID* criticalRegion);
OSStatus MPDeleteCriticalRegion(MPCriticalRegionID criticalRegion);
OSStatus MPEnterCriticalRegion(MPCriticalRegionID criticalRegion, Duration timeout);
OSStatus MPExitCriticalRegion(MPCriticalRegionID criticalRegion);

} // extern "C"
