#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_tasks.h"
#include "platform/process.h"
#include "support/processes.h"
#include "support/running_task.h"

#include <alloca.h>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <pthread.h>
#include <set>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

// Larger than the least stack: threads need room for these on top of what they ask for.
thread_local std::array<char, 1 << 20> threadLocals;

namespace {

OSStatus CallFunction(void* parameter) {
    return (*static_cast<std::function<OSStatus()>*>(parameter))();
}

OSStatus ReturnSeven(void*) {
    return 7;
}

// The task's stack can be used down to this many bytes.
OSStatus TouchStack(void* parameter) {
    size_t bytes = reinterpret_cast<uintptr_t>(parameter);
    auto* memory = static_cast<volatile char*>(alloca(bytes));
    for (size_t i = 0; i < bytes; i += 1024) {
        memory[bytes - 1 - i] = 1;
    }
    threadLocals.back() = 1;
    return 1;
}

size_t CountThreads() {
    std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(threads), end(threads)));
}

} // namespace

TEST(Task, ReturningReportsItsResultOnceAndItsIdGoesStale) {
    RunningTask task(ReturnSeven, nullptr);
    EXPECT_EQ(task.Result(), 7);
    EXPECT_FALSE(task.HasAnotherMessage());
    EXPECT_EQ(MPTerminateTask(task.Id(), 9), kMPInvalidIDErr);
    EXPECT_FALSE(task.HasAnotherMessage());
}

TEST(Task, GetsItsParameterAndItsOwnId) {
    MPTaskID inside = 0;
    std::function<OSStatus()> body = [&] {
        inside = MPCurrentTaskID();
        return OSStatus{-1};
    };
    RunningTask task(CallFunction, &body);
    EXPECT_EQ(task.Result(), -1);
    EXPECT_EQ(inside, task.Id());
    EXPECT_NE(inside, MPCurrentTaskID());
}

TEST(Task, WithoutQueueEndsSilently) {
    std::atomic<bool> ran = false;
    std::function<OSStatus()> body = [&] {
        ran = true;
        return OSStatus{0};
    };
    MPTaskID task = 0;
    ASSERT_EQ(MPCreateTask(CallFunction, &body, 0, 0, nullptr, nullptr, 0, &task), noErr);
    while (!ran || CountObjects() != 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(MPTerminateTask(task, 0), kMPInvalidIDErr);
}

TEST(Task, WhoseQueueIsDeletedMeanwhileEndsSilently) {
    MPSemaphoreID go = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &go), noErr);
    std::function<OSStatus()> body = [&] { return MPWaitOnSemaphore(go, kDurationForever); };
    { RunningTask task(CallFunction, &body); }
    ASSERT_EQ(MPSignalSemaphore(go), noErr);
    while (CountObjects() != 1) {
        std::this_thread::yield();
    }
    ReleaseEndedTasks();
    EXPECT_EQ(MPDeleteSemaphore(go), noErr);
    EXPECT_EQ(CountObjects(), 0u);
}

TEST(Task, StackTooSmallIsRaised) {
    for (ByteCount size : {1u, 100u, 4096u, 16384u, 100'001u}) {
        RunningTask task(TouchStack, reinterpret_cast<void*>(uintptr_t{64 * 1024}), size);
        EXPECT_EQ(task.Result(), 1) << size;
    }
}

TEST(Task, StackIsAsLargeAsAskedFor) {
    constexpr ByteCount kSize = 48 * 1024 * 1024;
    RunningTask task(TouchStack, reinterpret_cast<void*>(uintptr_t{kSize - 2 * 1024 * 1024}), kSize);
    EXPECT_EQ(task.Result(), 1);
}

TEST(Task, DefaultStackIsTheHosts) {
    RunningTask task(TouchStack, reinterpret_cast<void*>(uintptr_t{512 * 1024}), 0);
    EXPECT_EQ(task.Result(), 1);
}

TEST(Task, AbsurdStackIsHadOrRefusedAndLeavesNothing) {
    MPTaskID id = 1;
    MPQueueID queue = 0;
    ASSERT_EQ(MPCreateQueue(&queue), noErr);
    OSStatus status = MPCreateTask(ReturnSeven, nullptr, 0xFFFFFFFF, queue, nullptr, nullptr, 0, &id);
    if (status == noErr) {
        EXPECT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, 20'000), noErr);
    } else {
        EXPECT_EQ(status, kMPInsufficientResourcesErr);
        EXPECT_EQ(id, 0u);
        EXPECT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, 0), kMPTimeoutErr);
    }
    EXPECT_EQ(MPDeleteQueue(queue), noErr);
    EXPECT_EQ(CountObjects(), 0u);
}

TEST(Task, WithoutThreadsLeftIsRefusedAndLeavesNothing) {
    EXPECT_EQ(RunInChild([] {
                  // The superuser has no such limit.
                  if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
                      return 1;
                  }
                  rlimit limit{0, 0};
                  setrlimit(RLIMIT_NPROC, &limit);
                  MPTaskID id = 5;
                  for (int i = 0; i < 100; i++) {
                      if (MPCreateTask(ReturnSeven, nullptr, 0, 0, nullptr, nullptr, 0, &id) !=
                              kMPInsufficientResourcesErr ||
                          id != 0) {
                          return 2;
                      }
                  }
                  return CountObjects() == 0 ? 0 : 3;
              }),
              0);
}

TEST(Task, ThousandsOneAfterTheOtherLeaveNoThreadsAndNoIds) {
    for (int i = 0; i < 3000; i++) {
        RunningTask task(ReturnSeven, nullptr);
        ASSERT_EQ(task.Result(), 7);
    }
    // A sanitizer or an emulator has a thread of its own.
    while (CountThreads() > 2) {
        std::this_thread::yield();
    }
    ReleaseEndedTasks();
    EXPECT_EQ(CountObjects(), 0u);
}

TEST(Task, ManyAtOnceEachReportOnce) {
    constexpr size_t kCount = 200;
    MPQueueID queue = 0;
    ASSERT_EQ(MPCreateQueue(&queue), noErr);
    std::vector<MPTaskID> tasks(kCount);
    for (size_t i = 0; i < kCount; i++) {
        ASSERT_EQ(
            MPCreateTask(ReturnSeven, nullptr, 1, queue, reinterpret_cast<void*>(i), nullptr, 0, &tasks[i]),
            noErr);
    }
    std::set<void*> seen;
    for (size_t i = 0; i < kCount; i++) {
        void* first = nullptr;
        ASSERT_EQ(MPWaitOnQueue(queue, &first, nullptr, nullptr, 20'000), noErr);
        EXPECT_TRUE(seen.insert(first).second);
    }
    EXPECT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, 0), kMPTimeoutErr);
    EXPECT_EQ(MPDeleteQueue(queue), noErr);
}

TEST(CurrentTask, ThreadsNotMadeHereHaveIdsThatStayAndDiffer) {
    MPTaskID mine = MPCurrentTaskID();
    EXPECT_NE(mine, 0u);
    EXPECT_EQ(MPCurrentTaskID(), mine);
    std::set<MPTaskID> ids{mine};
    for (int i = 0; i < 50; i++) {
        MPTaskID other = 0;
        std::thread([&] { other = MPCurrentTaskID(); }).join();
        EXPECT_NE(other, 0u);
        EXPECT_TRUE(ids.insert(other).second);
    }
}

TEST(CurrentTask, ThreadsNotMadeHereCannotBeTerminated) {
    EXPECT_EQ(MPTerminateTask(MPCurrentTaskID(), 1), kMPInvalidIDErr);
}

TEST(Fork, ChildCanCreateUseAndCloseEverything) {
    MPSemaphoreID inherited = 0;
    ASSERT_EQ(MPCreateSemaphore(2, 1, &inherited), noErr);
    MPTaskID mine = MPCurrentTaskID();
    EXPECT_EQ(RunInChild([&] {
                  if (MPWaitOnSemaphore(inherited, 0) != noErr || MPCurrentTaskID() != mine) {
                      return 1;
                  }
                  RunningTask task(ReturnSeven, nullptr);
                  return task.Result() == 7 && MPDeleteSemaphore(inherited) == noErr ? 0 : 2;
              }),
              0);
    EXPECT_EQ(MPWaitOnSemaphore(inherited, 0), noErr);
}

TEST(Fork, ChildHasNoneOfTheOtherTasks) {
    MPSemaphoreID go = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &go), noErr);
    std::function<OSStatus()> body = [&] { return MPWaitOnSemaphore(go, kDurationForever); };
    RunningTask task(CallFunction, &body);
    EXPECT_EQ(RunInChild([&] {
                  if (MPTerminateTask(task.Id(), 0) != kMPInvalidIDErr) {
                      return 1;
                  }
                  return MPWaitOnQueue(task.Queue(), nullptr, nullptr, nullptr, 0) == kMPTimeoutErr ? 0 : 2;
              }),
              0);
    ASSERT_EQ(MPSignalSemaphore(go), noErr);
    EXPECT_EQ(task.Result(), noErr);
    EXPECT_EQ(MPDeleteSemaphore(go), noErr);
}

// Whatever the other threads are in the middle of, the child finds no lock held.
TEST(Fork, WhileOtherThreadsCreateAndCloseLeavesTheChildUsable) {
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; i++) {
        threads.emplace_back([&] {
            while (!done) {
                MPQueueID queue = 0;
                MPTaskID task = 0;
                ASSERT_EQ(MPCreateQueue(&queue), noErr);
                ASSERT_EQ(MPCreateTask(ReturnSeven, nullptr, 0, queue, nullptr, nullptr, 0, &task), noErr);
                ASSERT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, kDurationForever), noErr);
                ASSERT_EQ(MPDeleteQueue(queue), noErr);
            }
        });
    }
    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(RunInChild([] {
                      MPEventID event = 0;
                      MPQueueID queue = 0;
                      bool created = MPCreateEvent(&event) == noErr && MPCreateQueue(&queue) == noErr;
                      return created && MPDeleteEvent(event) == noErr && MPDeleteQueue(queue) == noErr ? 0
                                                                                                       : 1;
                  }),
                  0);
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}
