#include "system/synchronisation.h"

#include "platform/linux/multiprocessing_ids.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <linux/seccomp.h>
#include <set>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// The result of a wait on another thread.
template <typename Wait>
uint32_t Elsewhere(Wait wait) {
    uint32_t result = 0;
    std::thread([&] { result = wait(); }).join();
    return result;
}

} // namespace

TEST(Timeout, NegativeIsWithoutLimitAndOthersAreMilliseconds) {
    constexpr struct {
        int32_t timeout;
        Duration duration;
    } kRows[] = {
        {0, kDurationImmediate},
        {1, 1},
        {100, 100},
        {-1, kDurationForever},
        {-2, kDurationForever},
        {INT32_MIN, kDurationForever},
        {INT32_MAX - 1, INT32_MAX - 1},
        {INT32_MAX, kDurationForever},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(DurationFromTimeout(row.timeout), row.duration) << row.timeout;
    }
    EXPECT_EQ(DurationFromTimeout(static_cast<int32_t>(0xFFFFFFFF)), kDurationForever);
}

TEST(WaitResult, KnowsSuccessTimeOutAndOneFailure) {
    constexpr struct {
        OSStatus status;
        uint32_t result;
    } kRows[] = {
        {noErr, 0},
        {kMPTimeoutErr, 258},
        {kMPDeletedErr, 128},
        {kMPInvalidIDErr, 128},
        {kMPInsufficientResourcesErr, 128},
        {paramErr, 128},
        {1, 128},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(WaitResult(row.status), row.result) << row.status;
    }
}

TEST(WaitResult, ConstantsAreTheWindowsNumbers) {
    EXPECT_EQ(TAV_WAIT_OBJECT_0, 0u);
    EXPECT_EQ(TAV_WAIT_TIMEOUT, 258u);
    EXPECT_EQ(TAV_WAIT_ABANDONED, 128u);
    EXPECT_LT(TAV_INFINITE, 0);
}

// ---- Critical sections ----

TEST(CriticalSection, EnteredTwiceIsLeftTwice) {
    MPCriticalRegionID section = 0;
    ASSERT_EQ(TavInitCriticalSection(&section), 1);
    EXPECT_NE(section, 0u);
    EXPECT_EQ(TavEnterCriticalSection(&section), 1);
    EXPECT_EQ(TavEnterCriticalSection(&section), 1);
    EXPECT_EQ(TavLeaveCriticalSection(&section), 1);
    EXPECT_EQ(TavLeaveCriticalSection(&section), 1);
    EXPECT_EQ(TavLeaveCriticalSection(&section), 0);
    EXPECT_EQ(TavDeleteCriticalSection(&section), 1);
}

TEST(CriticalSection, EnterWaitsUntilTheOtherThreadHasLeft) {
    MPCriticalRegionID section = 0;
    ASSERT_EQ(TavInitCriticalSection(&section), 1);
    ASSERT_EQ(TavEnterCriticalSection(&section), 1);
    std::atomic<bool> left = false;
    std::thread other([&] {
        EXPECT_EQ(TavEnterCriticalSection(&section), 1);
        EXPECT_TRUE(left);
        EXPECT_EQ(TavLeaveCriticalSection(&section), 1);
    });
    std::this_thread::yield();
    left = true;
    EXPECT_EQ(TavLeaveCriticalSection(&section), 1);
    other.join();
    EXPECT_EQ(TavDeleteCriticalSection(&section), 1);
}

TEST(CriticalSection, LeftByAnotherThreadStaysHeld) {
    MPCriticalRegionID section = 0;
    ASSERT_EQ(TavInitCriticalSection(&section), 1);
    ASSERT_EQ(TavEnterCriticalSection(&section), 1);
    std::thread([&] { EXPECT_EQ(TavLeaveCriticalSection(&section), 0); }).join();
    EXPECT_EQ(TavLeaveCriticalSection(&section), 1);
    EXPECT_EQ(TavDeleteCriticalSection(&section), 1);
}

TEST(CriticalSection, DeletedRefusesEverything) {
    MPCriticalRegionID section = 0;
    ASSERT_EQ(TavInitCriticalSection(&section), 1);
    MPCriticalRegionID id = section;
    ASSERT_EQ(TavDeleteCriticalSection(&section), 1);
    EXPECT_EQ(section, id);
    EXPECT_EQ(TavEnterCriticalSection(&section), 0);
    EXPECT_EQ(TavLeaveCriticalSection(&section), 0);
    EXPECT_EQ(TavDeleteCriticalSection(&section), 0);
}

TEST(CriticalSection, NeverInitialisedRefusesEverything) {
    MPCriticalRegionID section = 0;
    EXPECT_EQ(TavEnterCriticalSection(&section), 0);
    EXPECT_EQ(TavLeaveCriticalSection(&section), 0);
    EXPECT_EQ(TavDeleteCriticalSection(&section), 0);
}

// ---- Semaphores ----

TEST(Semaphore, TakesInitialCountFirstAndMaximumSecond) {
    MPSemaphoreID semaphore = TavCreateSemaphore(0, 3);
    ASSERT_NE(semaphore, 0u);
    EXPECT_EQ(TavWaitSemaphore(semaphore, 0), TAV_WAIT_TIMEOUT);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(TavReleaseSemaphore(semaphore), 1);
    }
    EXPECT_EQ(TavReleaseSemaphore(semaphore), 0);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(TavWaitSemaphore(semaphore, 0), TAV_WAIT_OBJECT_0);
    }
    EXPECT_EQ(TavWaitSemaphore(semaphore, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseSemaphore(semaphore), 1);
}

TEST(Semaphore, CountsOutOfRangeGiveNone) {
    EXPECT_EQ(TavCreateSemaphore(0, 0), 0u);
    EXPECT_EQ(TavCreateSemaphore(3, 0), 0u);
    EXPECT_EQ(TavCreateSemaphore(4, 3), 0u);
}

TEST(Semaphore, ClosedZeroAndForeignAreRefused) {
    MPSemaphoreID closed = TavCreateSemaphore(1, 1);
    ASSERT_EQ(TavCloseSemaphore(closed), 1);
    MPCriticalRegionID section = 0;
    ASSERT_EQ(TavInitCriticalSection(&section), 1);
    OpacTavEvent* event = TavCreateEvent(0, 1);
    for (uint32_t id : {closed, 0u, section, event->event, 0xFFFFFFFFu}) {
        EXPECT_EQ(TavReleaseSemaphore(id), 0) << id;
        EXPECT_EQ(TavWaitSemaphore(id, -1), TAV_WAIT_ABANDONED) << id;
        EXPECT_EQ(TavCloseSemaphore(id), 0) << id;
        EXPECT_EQ(TavReleaseMutex(id), 0) << id;
        EXPECT_EQ(TavWaitMutex(id, -1), TAV_WAIT_ABANDONED) << id;
        EXPECT_EQ(TavCloseMutex(id), 0) << id;
        EXPECT_EQ(TavEnterCriticalSection(&id), id == section) << id;
    }
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseEvent(event), 1);
    EXPECT_EQ(TavDeleteCriticalSection(&section), 1);
}

TEST(Semaphore, WaitWithoutLimitBlocksUntilReleased) {
    for (int32_t timeout : {static_cast<int32_t>(0xFFFFFFFF), INT32_MIN, INT32_MAX}) {
        MPSemaphoreID semaphore = TavCreateSemaphore(0, 1);
        std::atomic<bool> released = false;
        std::thread waiter([&] {
            EXPECT_EQ(TavWaitSemaphore(semaphore, timeout), TAV_WAIT_OBJECT_0);
            EXPECT_TRUE(released);
        });
        std::this_thread::yield();
        released = true;
        EXPECT_EQ(TavReleaseSemaphore(semaphore), 1);
        waiter.join();
        EXPECT_EQ(TavCloseSemaphore(semaphore), 1);
    }
}

TEST(Semaphore, ClosedWhileWaitedForMakesTheWaitFail) {
    MPSemaphoreID semaphore = TavCreateSemaphore(0, 1);
    std::thread waiter([&] { EXPECT_EQ(TavWaitSemaphore(semaphore, -1), TAV_WAIT_ABANDONED); });
    std::this_thread::yield();
    EXPECT_EQ(TavCloseSemaphore(semaphore), 1);
    waiter.join();
}

// ---- Events ----

TEST(Event, NullIsRefused) {
    EXPECT_EQ(TavSetEvent(nullptr), 0);
    EXPECT_EQ(TavResetEvent(nullptr), 0);
    EXPECT_EQ(TavWaitEvent(nullptr, 100), TAV_WAIT_ABANDONED);
    EXPECT_EQ(TavCloseEvent(nullptr), 0);
}

TEST(Event, BlockWithoutAnEventIsRefusedAndFreed) {
    auto* event = static_cast<OpacTavEvent*>(malloc(sizeof(OpacTavEvent)));
    *event = {0, 1, 1};
    EXPECT_EQ(TavSetEvent(event), 0);
    EXPECT_EQ(TavResetEvent(event), 0);
    EXPECT_EQ(TavWaitEvent(event, 100), TAV_WAIT_ABANDONED);
    EXPECT_EQ(TavCloseEvent(event), 0); // the address sanitizer sees that the block goes
}

TEST(Event, BlockWithAClosedEventFailsButResets) {
    OpacTavEvent* event = TavCreateEvent(1, 1);
    ASSERT_EQ(MPDeleteEvent(event->event), noErr);
    EXPECT_EQ(TavSetEvent(event), 0);
    EXPECT_EQ(TavResetEvent(event), 1);
    EXPECT_EQ(TavWaitEvent(event, -1), TAV_WAIT_ABANDONED);
    EXPECT_EQ(TavCloseEvent(event), 0);
}

TEST(Event, BlockKeepsWhatItWasCreatedWith) {
    OpacTavEvent* event = TavCreateEvent(5, 7);
    ASSERT_NE(event, nullptr);
    EXPECT_NE(event->event, 0u);
    EXPECT_EQ(event->manualReset, 5);
    EXPECT_EQ(event->initialState, 7);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(Event, AutoResetSetOnceLetsOneWaitThrough) {
    OpacTavEvent* event = TavCreateEvent(0, 0);
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavSetEvent(event), 1);
    EXPECT_EQ(TavSetEvent(event), 1);
    EXPECT_EQ(TavWaitEvent(event, -1), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(Event, ManualResetSetOnceLetsAllWaitsThroughUntilReset) {
    OpacTavEvent* event = TavCreateEvent(1, 0);
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavSetEvent(event), 1);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_OBJECT_0);
    }
    EXPECT_EQ(TavResetEvent(event), 1);
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavResetEvent(event), 1);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(Event, ManualResetReleasesAllWhoWait) {
    OpacTavEvent* event = TavCreateEvent(1, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 20; i++) {
        threads.emplace_back([&] { EXPECT_EQ(TavWaitEvent(event, -1), TAV_WAIT_OBJECT_0); });
    }
    EXPECT_EQ(TavSetEvent(event), 1);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(Event, OnlyTheLowestFlagIsEverSet) {
    auto flagsOf = [](OpacTavEvent* event) {
        MPEventFlags flags = 0;
        EXPECT_EQ(MPWaitForEvent(event->event, &flags, 0), noErr);
        return flags;
    };
    OpacTavEvent* event = TavCreateEvent(1, 1);
    EXPECT_EQ(flagsOf(event), 1u);
    EXPECT_EQ(TavSetEvent(event), 1);
    EXPECT_EQ(TavSetEvent(event), 1);
    EXPECT_EQ(flagsOf(event), 1u);
    EXPECT_EQ(TavSetEvent(event), 1);
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(flagsOf(event), 1u);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(Event, TimedOutWaitForManualResetDoesNotSetIt) {
    OpacTavEvent* event = TavCreateEvent(1, 0);
    EXPECT_EQ(TavWaitEvent(event, 1), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(Event, InitialStateIsSignalled) {
    OpacTavEvent* automatic = TavCreateEvent(0, 1);
    EXPECT_EQ(TavWaitEvent(automatic, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavWaitEvent(automatic, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseEvent(automatic), 1);
    OpacTavEvent* manual = TavCreateEvent(-1, -1);
    EXPECT_EQ(TavWaitEvent(manual, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavWaitEvent(manual, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseEvent(manual), 1);
}

// The address sanitizer sees whether a wait looks at the block after it has gone.
TEST(Event, ClosedWhileWaitedForMakesTheWaitsFailWithoutTouchingTheBlock) {
    for (int32_t manual : {0, 1}) {
        OpacTavEvent* event = TavCreateEvent(manual, 0);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; i++) {
            threads.emplace_back([&] { EXPECT_EQ(TavWaitEvent(event, -1), TAV_WAIT_ABANDONED); });
        }
        while (FindSlot(event->event, ObjectKind::Event)->waiters != 4) {
            std::this_thread::yield();
        }
        EXPECT_EQ(TavCloseEvent(event), 1);
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

TEST(Event, TwoHundredThousandPingPongsLoseNoWakeUp) {
    constexpr int kRounds = 200'000;
    std::array<OpacTavEvent*, 2> events = {TavCreateEvent(0, 0), TavCreateEvent(0, 0)};
    std::thread other([&] {
        for (int i = 0; i < kRounds; i++) {
            ASSERT_EQ(TavWaitEvent(events[0], -1), TAV_WAIT_OBJECT_0);
            ASSERT_EQ(TavSetEvent(events[1]), 1);
        }
    });
    for (int i = 0; i < kRounds; i++) {
        ASSERT_EQ(TavSetEvent(events[0]), 1);
        ASSERT_EQ(TavWaitEvent(events[1], -1), TAV_WAIT_OBJECT_0);
    }
    other.join();
    for (OpacTavEvent* event : events) {
        EXPECT_EQ(TavCloseEvent(event), 1);
    }
}

// ---- Mutexes ----

TEST(Mutex, CreatedOwnedIsTakenForOthers) {
    for (int32_t owned : {1, 2, -1, INT32_MIN}) {
        MPSemaphoreID mutex = TavCreateMutex(owned);
        EXPECT_EQ(Elsewhere([&] { return TavWaitMutex(mutex, 0); }), TAV_WAIT_TIMEOUT) << owned;
        EXPECT_EQ(TavReleaseMutex(mutex), 1);
        EXPECT_EQ(Elsewhere([&] { return TavWaitMutex(mutex, 0); }), TAV_WAIT_OBJECT_0);
        EXPECT_EQ(TavCloseMutex(mutex), 1);
    }
}

TEST(Mutex, CreatedFreeIsReleasedInVain) {
    MPSemaphoreID mutex = TavCreateMutex(0);
    EXPECT_EQ(TavReleaseMutex(mutex), 0);
    EXPECT_EQ(TavWaitMutex(mutex, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseMutex(mutex), 1);
}

TEST(Mutex, HasNoOwner) {
    MPSemaphoreID mutex = TavCreateMutex(1);
    EXPECT_EQ(TavWaitMutex(mutex, 0), TAV_WAIT_TIMEOUT); // not taken again by the one who has it
    std::thread([&] { EXPECT_EQ(TavReleaseMutex(mutex), 1); }).join();
    EXPECT_EQ(TavReleaseMutex(mutex), 0);
    EXPECT_EQ(TavCloseMutex(mutex), 1);
    EXPECT_EQ(TavCloseMutex(mutex), 0);
}

TEST(Mutex, KeepsThreadsApart) {
    MPSemaphoreID mutex = TavCreateMutex(0);
    long count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&] {
            for (int round = 0; round < 20'000; round++) {
                ASSERT_EQ(TavWaitMutex(mutex, -1), TAV_WAIT_OBJECT_0);
                count++;
                ASSERT_EQ(TavReleaseMutex(mutex), 1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 80'000);
    EXPECT_EQ(TavCloseMutex(mutex), 1);
}

// ---- All of them ----

TEST(Wait, LastsAsLongAsItsTimeoutWhileSignalsArrive) {
    static std::atomic<int> signals = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { signals++; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    OpacTavEvent* event = TavCreateEvent(0, 0);
    std::atomic<bool> done = false;
    pthread_t waiter = pthread_self();
    std::thread disturber([&] {
        while (!done) {
            pthread_kill(waiter, SIGUSR1);
            std::this_thread::yield();
        }
    });
    while (signals == 0) std::this_thread::yield();
    const int before = signals;
    Clock::time_point start = Clock::now();
    EXPECT_EQ(TavWaitEvent(event, 200), TAV_WAIT_TIMEOUT);
    Clock::duration waited = Clock::now() - start;
    done = true;
    disturber.join();
    EXPECT_GE(waited, std::chrono::milliseconds(200));
    EXPECT_LT(waited, std::chrono::seconds(10)); // each signal would have begun the time anew
    EXPECT_GT(signals, before);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

// Waiters of objects that stay get all that they are given, and waiters of those that go get nothing.
TEST(Wait, CloseRacingWithWaitsOnOtherObjectsHarmsNone) {
    constexpr int kRounds = 5000;
    MPSemaphoreID steady = TavCreateSemaphore(0, 2 * kRounds);
    std::atomic<MPSemaphoreID> brief = 0;
    std::atomic<bool> done = false;
    std::vector<std::thread> steadyWaiters;
    std::vector<std::thread> others;
    for (int i = 0; i < 2; i++) {
        steadyWaiters.emplace_back([&] {
            for (int n = 0; n < kRounds; n++) {
                ASSERT_EQ(TavWaitSemaphore(steady, -1), TAV_WAIT_OBJECT_0);
            }
        });
        others.emplace_back([&] {
            while (!done) {
                uint32_t result = TavWaitSemaphore(brief, 1);
                ASSERT_TRUE(result == TAV_WAIT_TIMEOUT || result == TAV_WAIT_ABANDONED) << result;
            }
        });
    }
    others.emplace_back([&] {
        while (!done) {
            OpacTavEvent* event = TavCreateEvent(0, 1);
            ASSERT_EQ(TavWaitEvent(event, -1), TAV_WAIT_OBJECT_0);
            ASSERT_EQ(TavCloseEvent(event), 1);
        }
    });
    for (int i = 0; i < kRounds; i++) {
        MPSemaphoreID made = TavCreateSemaphore(0, 1);
        brief = made;
        ASSERT_EQ(TavReleaseSemaphore(steady), 1);
        ASSERT_EQ(TavReleaseSemaphore(steady), 1);
        ASSERT_EQ(TavCloseSemaphore(made), 1);
    }
    for (std::thread& waiter : steadyWaiters) {
        waiter.join();
    }
    done = true;
    for (std::thread& other : others) {
        other.join();
    }
    EXPECT_EQ(TavWaitSemaphore(steady, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseSemaphore(steady), 1);
}

// In strict mode the kernel kills the process at any call but read, write and exit.
TEST(Uncontended, OperationsMakeNoSystemCall) {
    if (kThreadSanitizer) {
        GTEST_SKIP() << "the thread sanitizer makes system calls of its own";
    }
    MPCriticalRegionID section = 0;
    ASSERT_EQ(TavInitCriticalSection(&section), 1);
    MPSemaphoreID semaphore = TavCreateSemaphore(0, 2);
    MPSemaphoreID mutex = TavCreateMutex(0);
    OpacTavEvent* automatic = TavCreateEvent(0, 0);
    OpacTavEvent* manual = TavCreateEvent(1, 0);
    pid_t child = fork();
    if (child == 0) {
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
            _exit(77);
        }
        bool right = true;
        for (int i = 0; i < 1000; i++) {
            right =
                right && TavEnterCriticalSection(&section) == 1 && TavEnterCriticalSection(&section) == 1 &&
                TavLeaveCriticalSection(&section) == 1 && TavLeaveCriticalSection(&section) == 1 &&
                TavWaitSemaphore(semaphore, 0) == TAV_WAIT_TIMEOUT && TavReleaseSemaphore(semaphore) == 1 &&
                TavWaitSemaphore(semaphore, -1) == TAV_WAIT_OBJECT_0 &&
                TavWaitMutex(mutex, 100) == TAV_WAIT_OBJECT_0 && TavReleaseMutex(mutex) == 1 &&
                TavSetEvent(automatic) == 1 && TavWaitEvent(automatic, -1) == TAV_WAIT_OBJECT_0 &&
                TavWaitEvent(automatic, 0) == TAV_WAIT_TIMEOUT && TavSetEvent(manual) == 1 &&
                TavWaitEvent(manual, 50) == TAV_WAIT_OBJECT_0 && TavResetEvent(manual) == 1;
        }
        syscall(SYS_exit, right ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "the host has no strict mode";
    }
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(TavCloseEvent(automatic), 1);
    EXPECT_EQ(TavCloseEvent(manual), 1);
}
