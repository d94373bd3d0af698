// Futexes, straight on the system call because the C library offers none. Deadlines are absolute, so a wait
// that a signal cuts short goes on with the time that is left. Where a kernel, an emulator or a sandbox has no
// waiting until a deadline at all, sleepers look for themselves every millisecond.
#include "platform/linux/futex.h"

#include "platform/linux/system_calls.h"

#include <cerrno>
#include <ctime>
#include <linux/futex.h>

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);

namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

long Call(const std::atomic<uint32_t>& word, int operation, uint32_t value, const Deadline& deadline) {
    const KernelMoment until = {deadline.Seconds(), deadline.Nanoseconds()};
    return CallFutex(word, operation, value, deadline.IsNever() ? nullptr : &until);
}

} // namespace

Deadline Deadline::In(uint32_t milliseconds) noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    int64_t seconds = static_cast<int64_t>(now.tv_sec) + milliseconds / 1000;
    int64_t nanoseconds =
        static_cast<int64_t>(now.tv_nsec) + static_cast<int64_t>(milliseconds % 1000) * 1'000'000;
    return {seconds + nanoseconds / kNanosecondsPerSecond, nanoseconds % kNanosecondsPerSecond};
}

bool Deadline::HasPassed() const noexcept {
    if (IsNever()) {
        return false;
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > seconds_ || (now.tv_sec == seconds_ && now.tv_nsec >= nanoseconds_);
}

bool FutexWait(const std::atomic<uint32_t>& word, uint32_t expected, const Deadline& deadline) noexcept {
    if (Call(word, FUTEX_WAIT_BITSET, expected, deadline) == 0 || errno == EAGAIN || errno == EINTR) {
        return true;
    }
    if (errno == ETIMEDOUT || deadline.HasPassed()) {
        return false;
    }
    timespec brief{0, 1'000'000};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &brief, nullptr);
    return true;
}

void FutexWake(const std::atomic<uint32_t>& word, int count) noexcept {
    Call(word, FUTEX_WAKE, static_cast<uint32_t>(count), Deadline::Never());
}
