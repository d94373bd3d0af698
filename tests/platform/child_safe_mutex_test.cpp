#include "platform/linux/child_safe_mutex.h"

#include "platform/linux/one_thread.h"
#include "support/processes.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

static constinit ChildSafeMutex first, second;

TEST(ChildSafeMutex, HeldByAnotherThreadAtTheFork_IsFreeInTheChild) {
    std::atomic<bool> done = false;
    std::thread other([&done] {
        while (!done) {
            { const std::lock_guard one(first); }
            { const std::lock_guard two(second); }
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(RunInChild([] {
                      for (int i = 0; i < 10; ++i) {
                          const std::lock_guard one(first);
                      }
                      const std::lock_guard two(second);
                      return 0;
                  }),
                  0);
    }
    done = true;
    other.join();
}

TEST(ChildSafeMutex, InTheParent_GoesOnToExcludeOthers) {
    int count = 0;
    std::thread other([&count] {
        for (int i = 0; i < 100000; ++i) {
            const std::lock_guard guard(first);
            ++count;
        }
    });
    for (int i = 0; i < 20; ++i) EXPECT_EQ(RunInChild([] { return 0; }), 0);
    for (int i = 0; i < 100000; ++i) {
        const std::lock_guard guard(first);
        ++count;
    }
    other.join();
    EXPECT_EQ(count, 200000);
}

// ---- Light locks

TEST(LightLock, WhileThereAreOtherThreads_KeepsThemOut) {
    static ChildSafeMutex mutex;
    std::atomic<bool> isHeld = false, isTried = false, gotIt = true;
    std::thread other([&] {
        while (!isHeld) std::this_thread::yield();
        gotIt = mutex.try_lock();
        if (gotIt) mutex.unlock();
        isTried = true;
    });
    {
        const LightLock lock(mutex);
        isHeld = true;
        while (!isTried) std::this_thread::yield();
    }
    other.join();
    EXPECT_FALSE(gotIt);
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(LightLock, InAProcessOfOneThread_TakesNone) {
    if (!HasOneThread()) GTEST_SKIP() << "the process has other threads, or does not know";
    static ChildSafeMutex mutex;
    const LightLock lock(mutex);
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}
