#include "vpath/references.h"

#include "platform/atomics.h"
#include "vpath/segments.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

OpacTavFSRef* NewReference(const TavChar* path) {
    const size_t bytes = (size_t{SegLen(path)} + 1) * sizeof(TavChar);
    auto* r = static_cast<OpacTavFSRef*>(std::malloc(sizeof(OpacTavFSRef) + bytes));
    if (!r) return nullptr;
    r->count = 1;
    std::memcpy(r->Path(), path, bytes);
    return r;
}

void AddReference(OpacTavFSRef* r) {
    IncrementAtomic(&r->count);
}

int32_t DeReference(OpacTavFSRef* r) {
    return DecrementAtomic(&r->count) - 1;
}

void Free(OpacTavFSRef* r) {
    std::free(r);
}

uint32_t Tav0FSRRetain(OpacTavFSRef* r) {
    if (!r) return 0;
    AddReference(r);
    // A second look, not the result of the increment: other holders may have come or gone.
    const int32_t count = std::atomic_ref<int32_t>(r->count).load(std::memory_order_relaxed);
    return static_cast<uint32_t>(count) - 1;
}

uint32_t Tav0FSRToUTF16(const OpacTavFSRef* r, TavChar* buf, uint32_t bufUnits) {
    if (!r) return 0;
    const uint32_t units = SegLen(r->Path()) + 1;
    if (buf && bufUnits >= units) std::memcpy(buf, r->Path(), units * sizeof(TavChar));
    return units;
}
