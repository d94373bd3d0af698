#include "platform/linux/futex.h"

#include "platform/linux/multiprocessing_ids.h"
#include "platform/process.h"
#include "platform/system_call_faults.h"
#include "support/processes.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <dlfcn.h>
#include <functional>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

static std::atomic<int64_t> wallClockShift = 0; // seconds by which somebody has set it
static std::atomic<int> wallClockReads = 0, monotonicReads = 0;

// Stands before the C library's function of this name for everything in the executable.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
#ifdef __USE_TIME_BITS64
    constexpr char kName[] = "__clock_gettime64";
#else
    constexpr char kName[] = "clock_gettime";
#endif
    static auto real = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, kName));
    int result = real(clock, time);
    (clock == CLOCK_MONOTONIC ? monotonicReads : wallClockReads)++;
    if (clock != CLOCK_MONOTONIC) time->tv_sec += static_cast<time_t>(wallClockShift);
    return result;
}

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

#ifdef SYS_futex_time64
constexpr long kFutex = SYS_futex_time64;
#else
constexpr long kFutex = SYS_futex;
#endif

// What every kind of object does when it is waited for.
void WaitAndRelease(MPSemaphoreID semaphore, MPEventID event) {
    constexpr int kRounds = 20;
    std::thread other([&] {
        for (int i = 0; i < kRounds; i++) {
            ASSERT_EQ(MPWaitForEvent(event, nullptr, kDurationForever), noErr);
            ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
        }
    });
    for (int i = 0; i < kRounds; i++) {
        ASSERT_EQ(MPSetEvent(event, 1), noErr);
        ASSERT_EQ(MPWaitOnSemaphore(semaphore, i % 2 == 0 ? kDurationForever : 20'000), noErr);
    }
    other.join();
}

// As many stacks of the default size as fit into 32 bits there.
constexpr int kWaiters = sizeof(void*) == 4 ? 300 : 1000;

// Starts threads that wait on a semaphore, and returns when all of them are asleep.
std::vector<std::thread> StartSleepers(size_t count, const std::function<void()>& body,
                                       const ObjectSlot& slot) {
    std::vector<std::atomic<pid_t>> ids(count);
    std::vector<std::thread> threads;
    for (std::atomic<pid_t>& id : ids) {
        threads.emplace_back([&id, &body] {
            id = gettid();
            body();
        });
    }
    for (std::atomic<pid_t>& id : ids) {
        while (id == 0 || StateOf(id) != 'S' || slot.waiters != count) {
            std::this_thread::yield();
        }
    }
    return threads;
}

} // namespace

// ---- Hosts that lack it ----

class LackingFutex : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Errors, LackingFutex, testing::Values(ENOSYS, EINVAL, EPERM),
                         [](const auto& parameter) {
                             return parameter.param == ENOSYS   ? "Missing"
                                    : parameter.param == EINVAL ? "WithoutTheOperation"
                                                                : "Denied";
                         });

TEST_P(LackingFutex, WaitsEndInTimeAllTheSame) {
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &semaphore), noErr);
    DeniedCall denied(kFutex, GetParam());
    Clock::time_point start = Clock::now();
    EXPECT_EQ(MPWaitOnSemaphore(semaphore, 60), kMPTimeoutErr);
    EXPECT_GE(Clock::now() - start, milliseconds(60));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
    EXPECT_GT(denied.times(), 0);
    // A look a millisecond, and no more.
    EXPECT_LT(denied.times(), 100);
}

TEST_P(LackingFutex, WaitersAreReleased) {
    MPSemaphoreID semaphore = 0;
    MPEventID event = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &semaphore), noErr);
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    DeniedCall denied(kFutex, GetParam());
    WaitAndRelease(semaphore, event);
    EXPECT_GT(denied.times(), 0);
}

TEST_P(LackingFutex, DeletingMakesWaitsFail) {
    MPEventID event = 0;
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    DeniedCall denied(kFutex, GetParam());
    std::thread waiter([&] { EXPECT_EQ(MPWaitForEvent(event, nullptr, kDurationForever), kMPDeletedErr); });
    while (FindSlot(event, ObjectKind::Event)->waiters != 1) {
        std::this_thread::yield();
    }
    EXPECT_EQ(MPDeleteEvent(event), noErr);
    waiter.join();
}

// ---- Clocks ----

TEST(Deadline, OfTheLongestTimesIsAsFarAway) {
    for (uint32_t duration : {1u, 999u, 1000u, 0x7FFFFFFEu, 0x7FFFFFFFu}) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        Deadline deadline = Deadline::In(duration);
        int64_t away =
            (deadline.Seconds() - now.tv_sec) * 1000 + (deadline.Nanoseconds() - now.tv_nsec) / 1'000'000;
        EXPECT_GE(away, duration);
        EXPECT_LT(away, int64_t{duration} + 60'000);
        EXPECT_GE(deadline.Nanoseconds(), 0);
        EXPECT_LT(deadline.Nanoseconds(), 1'000'000'000);
        EXPECT_FALSE(deadline.IsNever());
    }
}

TEST(Clocks, SettingTheWallClockDuringAWaitDoesNothing) {
    for (int64_t shift : {-86'400, 86'400}) {
        MPEventID event = 0;
        ASSERT_EQ(MPCreateEvent(&event), noErr);
        Clock::duration waited{};
        std::thread waiter([&] {
            Clock::time_point start = Clock::now();
            EXPECT_EQ(MPWaitForEvent(event, nullptr, 200), kMPTimeoutErr);
            waited = Clock::now() - start;
        });
        while (FindSlot(event, ObjectKind::Event)->waiters != 1) {
            std::this_thread::yield();
        }
        wallClockShift = shift;
        waiter.join();
        wallClockShift = 0;
        EXPECT_GE(waited, milliseconds(200));
        EXPECT_LT(waited, std::chrono::seconds(20));
    }
}

TEST(Clocks, WaitsAndSleepsReadOnlyTheOneThatNobodySets) {
    MPEventID event = 0;
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    int wall = wallClockReads;
    int monotonic = monotonicReads;
    EXPECT_EQ(MPWaitForEvent(event, nullptr, 5), kMPTimeoutErr);
    EXPECT_EQ(PlatformSleep(1000), 0);
    EXPECT_EQ(wallClockReads, wall);
    EXPECT_GE(monotonicReads, monotonic + 2);
    EXPECT_GT(FutexCalls(FUTEX_WAIT_BITSET), 0); // absolute, and by the monotonic clock without the flag
    EXPECT_EQ(FutexCalls(FUTEX_WAIT_BITSET | FUTEX_CLOCK_REALTIME), 0);
}

// ---- How many calls ----

TEST(Calls, PollsMakeNone) {
    MPSemaphoreID semaphore = 0;
    MPEventID event = 0;
    MPQueueID queue = 0;
    MPCriticalRegionID region = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &semaphore), noErr);
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    ASSERT_EQ(MPCreateQueue(&queue), noErr);
    ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
    std::thread([&] { MPEnterCriticalRegion(region, kDurationForever); }).join();
    auto calls = [] { return CallsOf(SYS_futex) + CallsOf(kFutex) + monotonicReads + wallClockReads; };
    int start = calls();
    for (int i = 0; i < 1000; i++) {
        for (Duration poll : {kDurationImmediate, -1, INT32_MIN}) {
            ASSERT_EQ(MPWaitOnSemaphore(semaphore, poll), kMPTimeoutErr);
            ASSERT_EQ(MPWaitForEvent(event, nullptr, poll), kMPTimeoutErr);
            ASSERT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, poll), kMPTimeoutErr);
            ASSERT_EQ(MPEnterCriticalRegion(region, poll), kMPTimeoutErr);
        }
    }
    EXPECT_EQ(calls(), start);
}

// No thundering herd: whoever is not meant stays asleep.
TEST(Calls, ThousandWaitersReleasedOneByOneAreWokenOnceEach) {
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(kWaiters, 0, &semaphore), noErr);
    std::atomic<int> released = 0;
    int sleepsBefore = FutexCalls(FUTEX_WAIT_BITSET);
    int wakesBefore = FutexCalls(FUTEX_WAKE);
    std::function<void()> body = [&] {
        ASSERT_EQ(MPWaitOnSemaphore(semaphore, kDurationForever), noErr);
        released++;
    };
    std::vector<std::thread> threads =
        StartSleepers(kWaiters, body, *FindSlot(semaphore, ObjectKind::Semaphore));
    for (int i = 1; i <= kWaiters; i++) {
        ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
        while (released != i) {
            std::this_thread::yield();
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(FutexCalls(FUTEX_WAKE) - wakesBefore, kWaiters);
    EXPECT_EQ(FutexCalls(FUTEX_WAIT_BITSET) - sleepsBefore, kWaiters);
}

TEST(Calls, ThousandWaitersReleasedAtOnceAreWokenOnceEach) {
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(kWaiters, 0, &semaphore), noErr);
    int sleepsBefore = FutexCalls(FUTEX_WAIT_BITSET);
    int wakesBefore = FutexCalls(FUTEX_WAKE);
    std::function<void()> body = [&] { ASSERT_EQ(MPWaitOnSemaphore(semaphore, kDurationForever), noErr); };
    std::vector<std::thread> threads =
        StartSleepers(kWaiters, body, *FindSlot(semaphore, ObjectKind::Semaphore));
    for (int i = 0; i < kWaiters; i++) {
        ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LE(FutexCalls(FUTEX_WAKE) - wakesBefore, kWaiters);
    EXPECT_EQ(FutexCalls(FUTEX_WAIT_BITSET) - sleepsBefore, kWaiters);
}

TEST(Calls, DeletingWakesAThousandWaitersInOneCall) {
    MPEventID event = 0;
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    int sleepsBefore = FutexCalls(FUTEX_WAIT_BITSET);
    int wakesBefore = FutexCalls(FUTEX_WAKE);
    std::function<void()> body = [&] {
        ASSERT_EQ(MPWaitForEvent(event, nullptr, kDurationForever), kMPDeletedErr);
    };
    std::vector<std::thread> threads = StartSleepers(kWaiters, body, *FindSlot(event, ObjectKind::Event));
    ASSERT_EQ(MPDeleteEvent(event), noErr);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(FutexCalls(FUTEX_WAKE) - wakesBefore, 1);
    EXPECT_EQ(FutexCalls(FUTEX_WAIT_BITSET) - sleepsBefore, kWaiters);
}
