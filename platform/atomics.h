// Atomic counting, in the language's own terms so that it costs no call.
#pragma once

#include <atomic>
#include <cstdint>

// Both return the value before the change.
inline int32_t IncrementAtomic(int32_t* value) {
    return std::atomic_ref<int32_t>(*value).fetch_add(1);
}
inline int32_t DecrementAtomic(int32_t* value) {
    return std::atomic_ref<int32_t>(*value).fetch_sub(1);
}
