#include "system/threads.h"

#include "platform/linux/multiprocessing_ids.h"
#include "support/forced_end.h"
#include "system/synchronisation.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <pthread.h>
#include <random>
#include <thread>

namespace {

// The lock of the reference cache is made when the library is loaded.
constexpr uint32_t kOwnObjects = 1;

using Clock = std::chrono::steady_clock;

uint32_t CallFunction(void* parameter) {
    return (*static_cast<std::function<uint32_t()>*>(parameter))();
}

// The result or status that the message of a thread's end carries.
int32_t ResultOf(OpacTavThread* thread) {
    void* result = nullptr;
    EXPECT_EQ(MPWaitOnQueue(GetTavThreadQueueID(thread), nullptr, nullptr, &result, 20'000), noErr);
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(result));
}

// How much stack the calling thread has.
size_t StackSize() {
    pthread_attr_t attributes;
    void* lowest = nullptr;
    size_t size = 0;
    EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    EXPECT_EQ(pthread_attr_getstack(&attributes, &lowest, &size), 0);
    pthread_attr_destroy(&attributes);
    return size;
}

// Two threads that begin something at the same moment.
void Together(const std::function<void()>& one, const std::function<void()>& other) {
    std::atomic<int> ready = 0;
    auto begin = [&] {
        ready++;
        while (ready != 2) {
            std::this_thread::yield();
        }
    };
    std::thread thread([&] {
        begin();
        one();
    });
    begin();
    other();
    thread.join();
}

} // namespace

TEST(Thread, RunsItsEntryWithItsParameterAndIsWaitedFor) {
    MPTaskID inside = 0;
    std::function<uint32_t()> entry = [&] {
        inside = GetCurrentTavThreadID();
        return 5u;
    };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(inside, GetTavThreadID(thread));
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(CountObjects(), kOwnObjects);
}

TEST(Thread, ResultOfTheEntryIsTheTasksResult) {
    std::function<uint32_t()> entry = [] { return 0xFFFFFFFEu; };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    void* parameters[3] = {&entry, &entry, &entry};
    ASSERT_EQ(MPWaitOnQueue(GetTavThreadQueueID(thread), &parameters[0], &parameters[1], &parameters[2],
                            kDurationForever),
              noErr);
    EXPECT_EQ(parameters[0], nullptr);
    EXPECT_EQ(parameters[1], nullptr);
    EXPECT_EQ(static_cast<int32_t>(reinterpret_cast<intptr_t>(parameters[2])), -2);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(Thread, RecordIsCompleteBeforeTheEntryRuns) {
    for (int i = 0; i < 200; i++) {
        std::atomic<MPTaskID> inside = 0;
        std::atomic<OpacTavThread*> created = nullptr;
        std::function<uint32_t()> entry = [&] {
            inside = GetCurrentTavThreadID();
            while (created == nullptr) {
                std::this_thread::yield();
            }
            return GetTavThreadID(created);
        };
        OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
        EXPECT_NE(thread->task, 0u);
        EXPECT_EQ(thread->queue, GetTavThreadQueueID(thread));
        EXPECT_EQ(thread->suspendMutex, 0u);
        EXPECT_NE(thread->startMutex, 0u);
        EXPECT_EQ(thread->entry, CallFunction);
        EXPECT_EQ(thread->parameter, &entry);
        created = thread;
        ASSERT_EQ(TavWaitThread(thread, -1), TAV_WAIT_OBJECT_0);
        EXPECT_EQ(inside, thread->task);
        EXPECT_EQ(TavCloseThreadRef(thread), 1);
    }
}

TEST(Thread, HasAtLeastTheStackThatWasAskedForOrTheHostsOwn) {
    auto stackOf = [](uint32_t asked) {
        size_t size = 0;
        std::function<uint32_t()> entry = [&] {
            size = StackSize();
            return 0u;
        };
        OpacTavThread* thread = TavCreateThread(CallFunction, &entry, asked, 0);
        EXPECT_EQ(TavWaitThread(thread, -1), TAV_WAIT_OBJECT_0);
        EXPECT_EQ(TavCloseThreadRef(thread), 1);
        return size;
    };
    size_t own = 0;
    std::thread([&] { own = StackSize(); }).join();
    EXPECT_GE(stackOf(0), own);
    const auto more = static_cast<uint32_t>(own + (16 << 20));
    EXPECT_GE(stackOf(more), more);
}

TEST(Thread, NullEntryEndsAtOnceWithZero) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    void* result = thread;
    ASSERT_EQ(MPWaitOnQueue(thread->queue, nullptr, nullptr, &result, kDurationForever), noErr);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(Thread, NullRecordEndsTheTaskAtOnce) {
    EXPECT_EQ(Mac_TavThreadProc(nullptr), 0);
}

TEST(Thread, CreatedSuspendedRunsOnceResumed) {
    std::atomic<bool> ran = false;
    std::function<uint32_t()> entry = [&] {
        ran = true;
        return 0u;
    };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, TAV_THREAD_SUSPENDED);
    EXPECT_NE(thread->suspendMutex, 0u);
    EXPECT_EQ(TavWaitThread(thread, 50), TAV_WAIT_TIMEOUT);
    EXPECT_FALSE(ran);
    EXPECT_NE(TavResumeThread(thread), 0);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_TRUE(ran);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(CountObjects(), kOwnObjects);
}

TEST(Thread, FlagsWithoutTheLowestBitRunAtOnce) {
    for (uint32_t flags : {0u, 2u, 4u, 0x80u, 0xFFFFFFFEu}) {
        std::function<uint32_t()> entry = [] { return 0u; };
        OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, flags);
        EXPECT_EQ(thread->suspendMutex, 0u) << flags;
        EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0) << flags;
        EXPECT_EQ(TavCloseThreadRef(thread), 1);
    }
}

TEST(Thread, FlagsWithTheLowestBitSuspend) {
    for (uint32_t flags : {1u, 5u, 0xFFFFFFFFu}) {
        OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, flags);
        EXPECT_EQ(TavWaitThread(thread, 20), TAV_WAIT_TIMEOUT) << flags;
        EXPECT_NE(TavResumeThread(thread), 0);
        EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0) << flags;
        EXPECT_EQ(TavCloseThreadRef(thread), 1);
    }
}

TEST(Thread, CreationFlagsGiveNoTaskOptions) {
    for (uint32_t flags : {0u, 1u, 4u, 0xFFFFFFFFu}) {
        EXPECT_EQ(TavGetThreadCreateFlags(flags), 0u);
    }
}

TEST(Resume, OfAThreadNeverSuspendedDoesNothing) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    EXPECT_EQ(TavResumeThread(thread), 0);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(Resume, NeitherDeletesNorClearsTheMutex) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    MPSemaphoreID mutex = thread->suspendMutex;
    EXPECT_NE(TavResumeThread(thread), 0);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(thread->suspendMutex, mutex);
    EXPECT_NE(TavResumeThread(thread), 0); // the mutex that the thread took is free again
    EXPECT_EQ(TavWaitMutex(mutex, 0), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(TavCloseMutex(mutex), 0);
}

TEST(Resume, BeforeTheThreadHasComeToItsSuspensionIsNotLost) {
    for (int i = 0; i < 300; i++) {
        std::function<uint32_t()> entry = [] { return 0u; };
        OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, TAV_THREAD_SUSPENDED);
        ASSERT_NE(TavResumeThread(thread), 0);
        ASSERT_EQ(TavWaitThread(thread, 20'000), TAV_WAIT_OBJECT_0);
        ASSERT_EQ(TavCloseThreadRef(thread), 1);
    }
}

TEST(Resume, ByTwoThreadsAtOnceStartsTheThreadOnce) {
    for (int i = 0; i < 200; i++) {
        std::atomic<int> runs = 0;
        std::function<uint32_t()> entry = [&] {
            runs++;
            return 0u;
        };
        OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, TAV_THREAD_SUSPENDED);
        Together([&] { EXPECT_NE(TavResumeThread(thread), 0); },
                 [&] { EXPECT_NE(TavResumeThread(thread), 0); });
        ASSERT_EQ(TavWaitThread(thread, 20'000), TAV_WAIT_OBJECT_0);
        ASSERT_EQ(runs, 1);
        ASSERT_EQ(TavCloseThreadRef(thread), 1);
    }
}

TEST(Suspend, OfARunningThreadDoesNotStopIt) {
    std::atomic<bool> suspended = false;
    std::atomic<bool> begun = false;
    std::function<uint32_t()> entry = [&] {
        begun = true;
        while (!suspended) {
            std::this_thread::yield();
        }
        return 0u;
    };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    while (!begun) {
        std::this_thread::yield();
    }
    EXPECT_EQ(TavSuspendThread(thread), 0);
    EXPECT_NE(thread->suspendMutex, 0u);
    suspended = true;
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(CountObjects(), kOwnObjects);
}

TEST(Suspend, ASecondTimeAfterAResumeDoesNothing) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    MPSemaphoreID mutex = thread->suspendMutex;
    EXPECT_NE(TavResumeThread(thread), 0);
    EXPECT_EQ(TavSuspendThread(thread), 0);
    EXPECT_EQ(thread->suspendMutex, mutex);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(StartMutex, IsTakenByTheThreadAndNotReleasedAgain) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    ASSERT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavWaitMutex(thread->startMutex, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(WaitThread, OnARunningThreadTimesOut) {
    MPSemaphoreID go = TavCreateSemaphore(0, 1);
    std::function<uint32_t()> entry = [&] { return TavWaitSemaphore(go, -1); };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    EXPECT_EQ(TavWaitThread(thread, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavWaitThread(thread, 30), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavReleaseSemaphore(go), 1);
    EXPECT_EQ(TavWaitThread(thread, -1), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(TavCloseSemaphore(go), 1);
}

TEST(WaitThread, ASecondTimeDoesNotSucceed) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    ASSERT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavWaitThread(thread, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavWaitThread(thread, 30), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(WaitThread, WithoutAQueueFails) {
    OpacTavThread thread{};
    EXPECT_EQ(TavWaitThread(&thread, TAV_INFINITE), TAV_WAIT_ABANDONED);
}

TEST(WaitThread, WhoseQueueIsGoneFails) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    ASSERT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    ASSERT_EQ(MPDeleteQueue(thread->queue), noErr);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_ABANDONED);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(CloseThreadRef, OfNullGivesZero) {
    EXPECT_EQ(TavCloseThreadRef(nullptr), 0);
}

TEST(CloseThreadRef, OfARunningThreadDoesNotStopIt) {
    std::atomic<int> step = 0;
    std::function<uint32_t()> entry = [&] {
        step = 1;
        while (step != 2) {
            std::this_thread::yield();
        }
        step = 3;
        return 0u;
    };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    while (step != 1) {
        std::this_thread::yield();
    }
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    step = 2;
    while (step != 3 || CountObjects() != kOwnObjects) {
        std::this_thread::yield();
    }
}

TEST(CloseThreadRef, OfAnEmptyRecordFreesIt) {
    auto* thread = static_cast<OpacTavThread*>(calloc(1, sizeof(OpacTavThread)));
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST_F(ForcedEnd, TerminatedThreadReportsOnceAndCannotBeTerminatedAgain) {
    std::atomic<bool> begun = false;
    std::function<uint32_t()> entry = [&] {
        begun = true;
        TavSleep(100'000);
        return 0u;
    };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    while (!begun) {
        std::this_thread::yield();
    }
    EXPECT_EQ(TavTerminateThread(thread, 3), 1);
    EXPECT_EQ(ResultOf(thread), 3);
    EXPECT_EQ(TavWaitThread(thread, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavTerminateThread(thread, 3), 0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(CountObjects(), kOwnObjects);
}

// A wait clears the event and sets it again.
TEST_F(ForcedEnd, AtRandomMomentsLeavesAManualResetEventSet) {
    OpacTavEvent* event = TavCreateEvent(1, 1);
    unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int i = 0; i < 500; i++) {
        std::atomic<bool> begun = false;
        std::function<uint32_t()> entry = [&]() -> uint32_t {
            for (;;) {
                TavWaitEvent(event, i % 2 - 1);
                begun = true;
            }
        };
        OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
        while (!begun) {
            std::this_thread::yield();
        }
        std::atomic<unsigned> spin = random() % 1000;
        while (spin-- > 0) {
        }
        ASSERT_EQ(TavTerminateThread(thread, 0), 1);
        ASSERT_EQ(TavWaitThread(thread, 20'000), TAV_WAIT_OBJECT_0);
        ASSERT_EQ(TavCloseThreadRef(thread), 1);
        ASSERT_EQ(TavWaitEvent(event, 0), TAV_WAIT_OBJECT_0);
    }
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST_F(ForcedEnd, ThatWaitsForAManualResetEventEndsAtOnce) {
    OpacTavEvent* event = TavCreateEvent(1, 0);
    std::function<uint32_t()> entry = [&] { return TavWaitEvent(event, -1); };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    EXPECT_EQ(TavTerminateThread(thread, 4), 1);
    EXPECT_EQ(ResultOf(thread), 4);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(TavWaitEvent(event, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST_F(ForcedEnd, SuspendedThreadCanBeTerminated) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    EXPECT_EQ(TavTerminateThread(thread, -9), 1);
    EXPECT_EQ(ResultOf(thread), -9);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(CountObjects(), kOwnObjects);
}

TEST_F(ForcedEnd, ExitEndsTheCallingThreadWithItsStatus) {
    std::function<uint32_t()> entry = []() -> uint32_t {
        TavExitThread(-12);
        return 1;
    };
    OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
    EXPECT_EQ(ResultOf(thread), -12);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(Terminate, OfAnEndedThreadFails) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    ASSERT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavTerminateThread(thread, 0), 0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(Priority, IsNotSupported) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    EXPECT_EQ(TavSetThreadPriority(thread, 15), 0);
    EXPECT_EQ(TavGetThreadPriority(thread), 0);
    EXPECT_EQ(TavSetThreadPriority(nullptr, -15), 0);
    EXPECT_EQ(TavGetThreadPriority(nullptr), 0);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(CurrentThread, HasAnIdAlsoWhenTheLibraryDidNotMakeIt) {
    MPTaskID mine = GetCurrentTavThreadID();
    EXPECT_NE(mine, 0u);
    EXPECT_EQ(mine, GetCurrentTavThreadID());
    std::thread([&] {
        EXPECT_NE(GetCurrentTavThreadID(), 0u);
        EXPECT_NE(GetCurrentTavThreadID(), mine);
    }).join();
}

TEST(Sleep, OfNothingReturnsAtOnce) {
    EXPECT_EQ(TavSleep(0), 0);
}

TEST(Sleep, LastsItsTime) {
    Clock::time_point start = Clock::now();
    EXPECT_EQ(TavSleep(60), 0);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(60));
}

TEST(Sleep, OfMoreMicrosecondsThan32BitsHoldWraps) {
    // 4,294,968 ms are 2^32 + 704 microseconds.
    Clock::time_point start = Clock::now();
    EXPECT_EQ(TavSleep(4'294'968), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(60));
}

TEST(Sleep, LastsItsTimeWhileSignalsArrive) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    std::atomic<bool> done = false;
    pthread_t sleeper = pthread_self();
    std::thread disturber([&] {
        while (!done) {
            pthread_kill(sleeper, SIGUSR1);
            std::this_thread::yield();
        }
    });
    Clock::time_point start = Clock::now();
    EXPECT_EQ(TavSleep(150), 0);
    Clock::duration slept = Clock::now() - start;
    done = true;
    disturber.join();
    EXPECT_GE(slept, std::chrono::milliseconds(150));
    EXPECT_LT(slept, std::chrono::seconds(10));
}
