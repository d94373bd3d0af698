// Memory blocks, on the C library's allocator. The last result is kept a thread, where the platform kept one
// for the whole process. Large blocks begin at a cache line: the kernel moves file data into and out of a
// buffer that begins between two at half the speed.
#include "platform/memory.h"

#include <cstdlib>

static thread_local OSErr lastResult = noErr;

static void* Allocate(size_t size) {
    constexpr size_t kLine = 64, kLarge = 4096;
    if (size < kLarge) return std::malloc(size ? size : 1);
    return std::aligned_alloc(kLine, (size + kLine - 1) / kLine * kLine);
}

Ptr NewPtr(Size byteCount) {
    void* block = byteCount < 0 ? nullptr : Allocate(static_cast<size_t>(byteCount));
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
