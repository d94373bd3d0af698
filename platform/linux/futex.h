// Sleeping on a 32-bit word until another thread changes it and wakes the sleepers. Words are private to the
// process.
#pragma once

#include <atomic>
#include <cstdint>

// A moment on the monotonic clock, or never. Setting the wall clock does not move it.
class Deadline {
public:
    static constexpr Deadline Never() noexcept { return Deadline(-1, 0); }
    // Now and a number of milliseconds; the clock is read once.
    static Deadline In(uint32_t milliseconds) noexcept;

    bool IsNever() const noexcept { return seconds_ < 0; }
    bool HasPassed() const noexcept;
    int64_t Seconds() const noexcept { return seconds_; }
    int64_t Nanoseconds() const noexcept { return nanoseconds_; }

private:
    constexpr Deadline(int64_t seconds, int64_t nanoseconds) noexcept
        : seconds_(seconds), nanoseconds_(nanoseconds) {}

    int64_t seconds_;
    int64_t nanoseconds_;
};

// Sleeps while `word` is `expected`. False when the deadline has passed; true otherwise, also for no reason
// at all, so the caller looks again.
bool FutexWait(const std::atomic<uint32_t>& word, uint32_t expected, const Deadline& deadline) noexcept;

// Wakes up to `count` sleepers.
void FutexWake(const std::atomic<uint32_t>& word, int count) noexcept;
