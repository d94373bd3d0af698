// Tasks that fork, and children of a process whose threads are inside the service.
#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_queues.h"
#include "platform/process.h"
#include "platform/system_call_faults.h"
#include "support/forced_end.h"
#include "support/processes.h"
#include "support/running_task.h"
#include "support/sanitizers.h"

#include <atomic>
#include <functional>
#include <linux/futex.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kAlive = 42; // a thread that ends leaves another exit status behind

OSStatus CallFunction(void* parameter) {
    return (*static_cast<std::function<OSStatus()>*>(parameter))();
}

bool CanUseEverything() {
    MPSemaphoreID semaphore = 0;
    MPCriticalRegionID region = 0;
    MPEventID event = 0;
    RunningTask task([](void*) { return OSStatus{7}; }, nullptr);
    return task.Result() == 7 && MPCreateSemaphore(1, 0, &semaphore) == noErr &&
           MPSignalSemaphore(semaphore) == noErr && MPWaitOnSemaphore(semaphore, 0) == noErr &&
           MPDeleteSemaphore(semaphore) == noErr && MPCreateEvent(&event) == noErr &&
           MPSetEvent(event, 1) == noErr && MPWaitForEvent(event, nullptr, 0) == noErr &&
           MPDeleteEvent(event) == noErr && MPCreateCriticalRegion(&region) == noErr &&
           MPEnterCriticalRegion(region, 0) == noErr && MPExitCriticalRegion(region) == noErr &&
           MPDeleteCriticalRegion(region) == noErr;
}

// ---- Handlers around a fork ----

std::function<void()> before; // in the thread that forks
std::function<void()> after;  // in both processes

void RunBefore() {
    if (before) {
        before();
    }
}

void RunAfter() {
    if (after) {
        after();
    }
}

class ForkingTask : public ForcedEnd {
protected:
    void SetUp() override {
        ForcedEnd::SetUp();
        ASSERT_EQ(PlatformAtFork(RunBefore, RunAfter, RunAfter), 0);
    }
    ~ForkingTask() override { before = after = nullptr; }

    // The only child's exit status.
    static int StatusOfTheChild() {
        int status = 0;
        pid_t child = waitpid(-1, &status, 0);
        return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

OSStatus ForkAndUseEverything(void*) {
    if (fork() == 0) {
        alarm(60);
        _exit(CanUseEverything() ? kAlive : 1);
    }
    return 1;
}

} // namespace

TEST_F(ForkingTask, TerminatedWhileAHandlerWaitsForARegionForksFirst) {
    static MPCriticalRegionID region = 0;
    ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
    ASSERT_EQ(MPEnterCriticalRegion(region, kDurationForever), noErr);
    before = [] { MPEnterCriticalRegion(region, kDurationForever); };
    after = [] { MPExitCriticalRegion(region); };
    RunningTask task(ForkAndUseEverything, nullptr);
    while (FindSlot(region, ObjectKind::Region)->waiters != 1) {
        std::this_thread::yield();
    }
    ASSERT_EQ(MPTerminateTask(task.Id(), 6), noErr);
    EXPECT_EQ(MPWaitOnQueue(task.Queue(), nullptr, nullptr, nullptr, 50), kMPTimeoutErr);
    ASSERT_EQ(MPExitCriticalRegion(region), noErr);
    EXPECT_EQ(task.Result(), 6);
    EXPECT_EQ(StatusOfTheChild(), kAlive);
    EXPECT_EQ(MPEnterCriticalRegion(region, 1000), noErr); // the handler after the fork has run
    EXPECT_TRUE(CanUseEverything());
    before = after = nullptr;
    EXPECT_EQ(RunInChild([] { return CanUseEverything() ? kAlive : 1; }), kAlive);
}

TEST_F(ForkingTask, TerminatedMeanwhileLeavesItsChildAlive) {
    static std::atomic<bool> inside = false;
    before = [] {
        inside = true;
        while (!currentTask.terminationHeld) {
            std::this_thread::yield();
        }
    };
    RunningTask task(ForkAndUseEverything, nullptr);
    while (!inside) {
        std::this_thread::yield();
    }
    ASSERT_EQ(MPTerminateTask(task.Id(), 6), noErr);
    EXPECT_EQ(task.Result(), 6);
    EXPECT_EQ(StatusOfTheChild(), kAlive);
}

TEST_F(ForkingTask, TerminatedMeanwhileCanBeTerminatedInItsChildAnew) {
    static std::atomic<bool> inside = false;
    before = [] {
        inside = true;
        while (!currentTask.terminationHeld) {
            std::this_thread::yield();
        }
    };
    RunningTask task(
        [](void*) {
            if (fork() == 0) {
                alarm(60);
                static MPTaskID forked = MPCurrentTaskID();
                static pid_t thread = gettid();
                std::function<OSStatus()> end = []() -> OSStatus {
                    if (MPTerminateTask(forked, 1) != noErr) {
                        _exit(1);
                    }
                    while (StateOf(thread) != 'Z') {
                        std::this_thread::yield();
                    }
                    _exit(kAlive);
                };
                RunningTask helper(CallFunction, &end);
                for (;;) {
                    PlatformSleep(1'000'000);
                }
            }
            return OSStatus{1};
        },
        nullptr);
    while (!inside) {
        std::this_thread::yield();
    }
    ASSERT_EQ(MPTerminateTask(task.Id(), 6), noErr);
    EXPECT_EQ(task.Result(), 6);
    EXPECT_EQ(StatusOfTheChild(), kAlive);
}

// ---- Children of threads that are inside ----

TEST(Fork, WaitersOfTheParentDoNotCountInTheChild) {
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(9, 0, &semaphore), noErr);
    ObjectSlot* slot = FindSlot(semaphore, ObjectKind::Semaphore);
    std::thread waiter([&] { EXPECT_EQ(MPWaitOnSemaphore(semaphore, kDurationForever), noErr); });
    while (slot->waiters != 1) {
        std::this_thread::yield();
    }
    EXPECT_EQ(RunInChild([&] {
                  int wakes = FutexCalls(FUTEX_WAKE);
                  bool signalled = slot->waiters == 0 && MPSignalSemaphore(semaphore) == noErr;
                  return signalled && FutexCalls(FUTEX_WAKE) == wakes ? 0 : 1;
              }),
              0);
    ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
    waiter.join();
    EXPECT_EQ(MPDeleteSemaphore(semaphore), noErr);
}

// A queue's number and its messages are changed in two steps; no child may find itself between them.
TEST(Fork, WhileMessagesComeAndGoLeavesTheChildWholeQueues) {
    if (kAddressSanitizer) GTEST_SKIP() << "the sanitizer's allocator may be locked in a child for good";
    MPQueueID queue = 0;
    ASSERT_EQ(MPCreateQueue(&queue), noErr);
    ObjectSlot* slot = FindSlot(queue, ObjectKind::Queue);
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; i++) {
        threads.emplace_back([&] {
            while (!done) {
                ASSERT_TRUE(PostMessage(queue, new TaskMessage));
                ASSERT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, kDurationForever), noErr);
            }
        });
    }
    for (int i = 0; i < 200; i++) {
        EXPECT_EQ(RunInChild([&] {
                      uint32_t messages = 0;
                      for (TaskMessage* each = slot->firstMessage; each != nullptr; each = each->next) {
                          messages++;
                      }
                      if (messages != StateValue(slot->state.load()) ||
                          !PostMessage(queue, new TaskMessage)) {
                          return 1;
                      }
                      for (uint32_t n = 0; n <= messages; n++) {
                          if (MPWaitOnQueue(queue, nullptr, nullptr, nullptr, 0) != noErr) {
                              return 2;
                          }
                      }
                      return slot->firstMessage == nullptr ? 0 : 3;
                  }),
                  0);
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(MPDeleteQueue(queue), noErr);
}
