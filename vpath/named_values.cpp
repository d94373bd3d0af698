#include "vpath/named_values.h"

#include "platform/atomics.h"
#include "vpath/globals.h"
#include "vpath/segments.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

bool operator<(const MyStr16& a, const MyStr16& b) {
    return std::strncmp(a.name, b.name, sizeof a.name) < 0;
}

TavChar* Tav0FSValRegister(const MyStr16* name, const TavChar* value) {
    if (!name) return nullptr;
    if (!value) return g_map_KeyPathSeg.Find(*name);

    const size_t bytes = (size_t{SegLen(value)} + 1) * sizeof(TavChar);
    auto* copy = static_cast<TavChar*>(std::malloc(bytes));
    if (!copy) return nullptr;
    map_KeyPathSeg::Node node = map_KeyPathSeg::MakeNode(*name, copy);
    if (!node) {
        std::free(copy);
        return nullptr;
    }
    // Whoever sees the old count has not seen the new text; a registration that fails is not counted.
    IncreaseFSVMA();
    std::memcpy(copy, value, bytes);
    g_map_KeyPathSeg.Store(std::move(node));
    return copy;
}

TavChar* Tav0FSValGet(const MyStr16* name) {
    return Tav0FSValRegister(name, nullptr);
}

void Tav0FSValRemove(const MyStr16* name) {
    if (!name) return;
    const auto found = g_map_KeyPathSeg.find(*name);
    if (found == g_map_KeyPathSeg.end()) return;
    IncreaseFSVMA();
    std::free(found->second);
    g_map_KeyPathSeg.erase(found);
}

// The atomic operation counts with a sign; the bits are the same.
void IncreaseFSVMA() {
    IncrementAtomic(reinterpret_cast<int32_t*>(&g_FSRefValModAccount));
}

uint32_t Tav0FSValGetModifyAccount() {
    return std::atomic_ref<uint32_t>(g_FSRefValModAccount).load(std::memory_order_relaxed);
}
