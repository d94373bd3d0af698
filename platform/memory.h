// Memory blocks of the platform's memory manager.
#pragma once

#include "platform/types.h"

using Ptr = char*;
using Size = int32_t;

extern "C" {

// A block of `byteCount` bytes, or null. The caller gives it back with DisposePtr.
Ptr NewPtr(Size byteCount);
void DisposePtr(Ptr block);

// The result of the calling thread's last NewPtr or DisposePtr: 0, or -108 when memory was short.
OSErr MemError();

} // extern "C"
