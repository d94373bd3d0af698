#include "platform/linux/multiprocessing_ids.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>
#include <vector>

TEST(Semaphore, CountsFromItsInitialValueToItsMaximum) {
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(3, 1, &semaphore), noErr);
    EXPECT_EQ(MPSignalSemaphore(semaphore), noErr);
    EXPECT_EQ(MPSignalSemaphore(semaphore), noErr);
    EXPECT_EQ(MPSignalSemaphore(semaphore), kMPInsufficientResourcesErr);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(MPWaitOnSemaphore(semaphore, 0), noErr);
    }
    EXPECT_EQ(MPWaitOnSemaphore(semaphore, 0), kMPTimeoutErr);
}

TEST(Semaphore, CountsOutOfRangeAreRefused) {
    MPSemaphoreID semaphore = 1;
    EXPECT_EQ(MPCreateSemaphore(0, 0, &semaphore), paramErr);
    EXPECT_EQ(semaphore, 0u);
    EXPECT_EQ(MPCreateSemaphore(1, 2, &semaphore), paramErr);
    EXPECT_EQ(MPCreateSemaphore(0x7FFFFFFF, 0xFFFFFFFF, &semaphore), paramErr);
}

TEST(Semaphore, LargestCountsHold) {
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(0xFFFFFFFF, 0xFFFFFFFF, &semaphore), noErr);
    EXPECT_EQ(MPSignalSemaphore(semaphore), kMPInsufficientResourcesErr);
    EXPECT_EQ(MPWaitOnSemaphore(semaphore, 0), noErr);
    EXPECT_EQ(MPSignalSemaphore(semaphore), noErr);
    EXPECT_EQ(MPSignalSemaphore(semaphore), kMPInsufficientResourcesErr);
}

TEST(Semaphore, EightProducersAndEightConsumersConserveTheCount) {
    constexpr int kEach = 20'000;
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(8u * kEach, 0, &semaphore), noErr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) {
        threads.emplace_back([&] {
            for (int n = 0; n < kEach; n++) {
                ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
            }
        });
        threads.emplace_back([&] {
            for (int n = 0; n < kEach; n++) {
                ASSERT_EQ(MPWaitOnSemaphore(semaphore, kDurationForever), noErr);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(MPWaitOnSemaphore(semaphore, 0), kMPTimeoutErr);
    EXPECT_EQ(MPDeleteSemaphore(semaphore), noErr);
}

// Waits that give up while signals arrive neither swallow a count nor leave a waiter behind.
TEST(Semaphore, WaitsThatTimeOutWhileSignalledConserveTheCount) {
    constexpr int kSignals = 3000;
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(kSignals, 0, &semaphore), noErr);
    std::atomic<bool> done = false;
    std::vector<long> taken(4, 0);
    std::vector<std::thread> threads;
    for (long& count : taken) {
        threads.emplace_back([&] {
            while (!done) {
                count += MPWaitOnSemaphore(semaphore, 1) == noErr;
            }
        });
    }
    for (int i = 0; i < kSignals; i++) {
        ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
        std::this_thread::yield();
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    long left = 0;
    while (MPWaitOnSemaphore(semaphore, 0) == noErr) {
        left++;
    }
    EXPECT_EQ(std::accumulate(taken.begin(), taken.end(), left), kSignals);
    EXPECT_EQ(FindSlot(semaphore, ObjectKind::Semaphore)->waiters.load(), 0u);
}
