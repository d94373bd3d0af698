// Inside the provider: counts that are changed by several threads, and cheaply while there is only one.
#pragma once

#include <atomic>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>

// Whether the process has no other thread. Nobody but the calling thread can change that, and what it did
// before is seen by every thread that it starts.
inline bool HasOneThread() noexcept {
    return __libc_single_threaded;
}
#else
inline bool HasOneThread() noexcept {
    return false;
}
#endif

// Adds to a count and gives the value before. A bus lock takes several times as long as the addition.
template <typename Count>
Count AddTo(std::atomic<Count>& count, Count amount, std::memory_order order) noexcept {
    if (!HasOneThread()) return count.fetch_add(amount, order);
    const Count before = count.load(std::memory_order_relaxed);
    count.store(before + amount, std::memory_order_relaxed);
    return before;
}
