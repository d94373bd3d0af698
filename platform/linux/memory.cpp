// Memory blocks, on the C library's allocator. The last result is kept a thread, where the platform kept one
// for the whole process.
#include "platform/memory.h"

#include <cstdlib>

static thread_local OSErr lastResult = noErr;

Ptr NewPtr(Size byteCount) {
    void* block = byteCount < 0 ? nullptr : std::malloc(byteCount ? static_cast<size_t>(byteCount) : 1);
    lastResult = block ? noErr : memFullErr;
    return static_cast<Ptr>(block);
}

void DisposePtr(Ptr block) {
    std::free(block);
    lastResult = noErr;
}

OSErr MemError() {
    return lastResult;
}
