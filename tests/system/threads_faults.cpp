// Creating threads when the platform refuses.
#include "support/faults.h"
#include "support/forced_end.h"

#include "system/synchronisation.h"
#include "system/threads.h"

#include <gtest/gtest.h>

namespace {

struct Attempt {
    OpacTavThread* thread = nullptr;
    unsigned fired = 0;
    long waitablesLeft = 0; // more than before
    long heapLeft = 0;
};

// Creates a thread while the n-th call of an operation fails.
Attempt CreateWhileFailing(const char* operation, unsigned call, uint32_t flags) {
    Attempt attempt;
    faults::OpenObjects before = faults::Open();
    {
        faults::Injection fault({.call = call, .code = kMPInsufficientResourcesErr, .operation = operation});
        attempt.thread = TavCreateThread(nullptr, nullptr, 0, flags);
        attempt.fired = fault.fired();
    }
    faults::OpenObjects after = faults::Open();
    attempt.waitablesLeft = after.waitables - before.waitables;
    attempt.heapLeft = after.heap - before.heap;
    return attempt;
}

} // namespace

TEST(CreateThread, QueueMemoryOrStartMutexRefused_GivesNullAndLeavesNothing) {
    for (uint32_t flags : {0u, 1u}) {
        for (const char* operation : {"MPCreateQueue", "malloc", "MPCreateSemaphore"}) {
            Attempt attempt = CreateWhileFailing(operation, 1, flags);
            EXPECT_EQ(attempt.fired, 1u) << operation;
            EXPECT_EQ(attempt.thread, nullptr) << operation;
            EXPECT_EQ(attempt.waitablesLeft, 0) << operation;
            EXPECT_EQ(attempt.heapLeft, 0) << operation;
        }
    }
}

TEST(CreateThread, TaskRefused_GivesNullAndLeavesOnlyTheMutexes) {
    Attempt running = CreateWhileFailing("MPCreateTask", 1, 0);
    EXPECT_EQ(running.fired, 1u);
    EXPECT_EQ(running.thread, nullptr);
    EXPECT_EQ(running.waitablesLeft, 1); // the start mutex
    EXPECT_EQ(running.heapLeft, 0);
    Attempt suspended = CreateWhileFailing("MPCreateTask", 1, TAV_THREAD_SUSPENDED);
    EXPECT_EQ(suspended.thread, nullptr);
    EXPECT_EQ(suspended.waitablesLeft, 2); // and the suspend mutex
    EXPECT_EQ(suspended.heapLeft, 0);
}

TEST(CreateThread, SuspendMutexRefused_RunsAtOnce) {
    Attempt attempt = CreateWhileFailing("MPCreateSemaphore", 2, TAV_THREAD_SUSPENDED);
    EXPECT_EQ(attempt.fired, 1u);
    ASSERT_NE(attempt.thread, nullptr);
    EXPECT_EQ(attempt.thread->suspendMutex, 0u);
    EXPECT_EQ(TavWaitThread(attempt.thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(attempt.thread), 1);
}

TEST(CreateThread, Suspended_CreatesQueueThenMutexesThenTask) {
    OpacTavThread* thread = nullptr;
    std::vector<std::string> log;
    {
        faults::Injection watch;
        thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
        log = watch.log();
    }
    ASSERT_GE(log.size(), 6u);
    log.resize(6); // the new thread's own calls mix with what follows
    EXPECT_EQ(log, (std::vector<std::string>{"MPCreateQueue", "MPCreateSemaphore", "MPWaitOnSemaphore",
                                             "MPCreateSemaphore", "MPWaitOnSemaphore", "MPCreateTask"}));
    EXPECT_NE(TavResumeThread(thread), 0);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(CloseThreadRef, ClosesTheQueueThenTheSuspendMutexThenTheStartMutex) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    TavResumeThread(thread);
    ASSERT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    MPSemaphoreID suspendMutex = thread->suspendMutex;
    MPSemaphoreID startMutex = thread->startMutex;
    {
        // The first of the two closings closes and then reports a failure; the second is made all the same.
        faults::Injection fault({.call = 1, .code = kMPInvalidIDErr, .operation = "MPDeleteSemaphore"});
        EXPECT_EQ(TavCloseThreadRef(thread), 1);
        EXPECT_EQ(fault.log(),
                  (std::vector<std::string>{"MPDeleteQueue", "MPDeleteSemaphore", "MPDeleteSemaphore"}));
    }
    EXPECT_EQ(TavCloseMutex(suspendMutex), 0);
    EXPECT_EQ(TavCloseMutex(startMutex), 0);
}

TEST(TerminateThread, Refused_Fails) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    {
        faults::Injection fault(
            {.call = 1, .code = kMPInsufficientResourcesErr, .operation = "MPTerminateTask"});
        EXPECT_EQ(TavTerminateThread(thread, 1), 0);
    }
    TavResumeThread(thread);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(Sleep, Refused_GivesTheAnswer) {
    faults::Injection fault({.call = 1, .code = -1, .operation = "PlatformSleep"});
    EXPECT_EQ(TavSleep(4'000'000), -1);
    EXPECT_EQ(fault.log(), (std::vector<std::string>{"PlatformSleep"}));
}

TEST(ThreadFacts, WithoutMemory_AreTold) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    const MPQueueID queue = GetTavThreadQueueID(thread);
    const MPTaskID self = GetCurrentTavThreadID();
    MPQueueID queueThen;
    MPTaskID selfThen;
    int32_t priorities = -1;
    {
        faults::Injection fault({.call = 1, .lasting = true, .operation = "memory"});
        queueThen = GetTavThreadQueueID(thread);
        selfThen = GetCurrentTavThreadID();
        priorities = TavSetThreadPriority(thread, 3) | TavGetThreadPriority(thread);
    }
    EXPECT_EQ(queueThen, queue);
    EXPECT_EQ(selfThen, self);
    EXPECT_EQ(priorities, 0);
    TavResumeThread(thread);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST_F(ForcedEnd, EachCallOfTheWaiterFails_EndsItsThread) {
    const auto leave = [](void*) -> uint32_t {
        TavExitThread(7);
        return 1;
    };
    for (const char* operation : {"MPWaitOnQueue", "MPDeleteQueue"}) {
        OpacTavThread* thread = TavCreateThread(leave, nullptr, 0, 0);
        ASSERT_NE(thread, nullptr);
        uint32_t waited;
        unsigned fired;
        {
            faults::Injection fault({.call = 1, .code = kMPInvalidIDErr, .operation = operation});
            waited = TavWaitThread(thread, TAV_INFINITE);
            fired = fault.fired();
        }
        EXPECT_EQ(waited == TAV_WAIT_OBJECT_0, fired == 0) << operation;
        if (waited != TAV_WAIT_OBJECT_0) {
            EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
        }
        EXPECT_EQ(TavCloseThreadRef(thread), 1);
    }
}
