#include "platform/linux/child_safe_mutex.h"

#include "support/processes.h"

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
