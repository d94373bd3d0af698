#include "platform/linux/child_safe_mutex.h"

#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

static constinit ChildSafeMutex first, second;

// Runs `body` in a forked child; whether it returned true there before the time was over.
template <typename Body>
static bool InChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20); // a lock that is never free would keep the child
        _exit(body() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

TEST(ChildSafeMutex, HeldByAnotherThreadAtTheFork_IsFreeInTheChild) {
    std::atomic<bool> done = false;
    std::thread other([&done] {
        while (!done) {
            { const std::lock_guard one(first); }
            { const std::lock_guard two(second); }
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_TRUE(InChild([] {
            for (int i = 0; i < 10; ++i) {
                const std::lock_guard one(first);
            }
            const std::lock_guard two(second);
            return true;
        }));
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
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(InChild([] { return true; }));
    for (int i = 0; i < 100000; ++i) {
        const std::lock_guard guard(first);
        ++count;
    }
    other.join();
    EXPECT_EQ(count, 200000);
}
