#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_queues.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

namespace {

class Queue : public testing::Test {
protected:
    Queue() { EXPECT_EQ(MPCreateQueue(&queue_), noErr); }

    static bool Post(MPQueueID queue, intptr_t number) {
        auto message = std::make_unique<TaskMessage>();
        message->parameters[0] = reinterpret_cast<void*>(number);
        message->parameters[2] = reinterpret_cast<void*>(-number);
        bool posted = PostMessage(queue, message.get());
        if (posted) {
            (void)message.release();
        }
        return posted;
    }

    MPQueueID queue_ = 0;
};

} // namespace

TEST_F(Queue, GivesMessagesInTheOrderInWhichTheyCame) {
    for (intptr_t i = 1; i <= 5; i++) {
        ASSERT_TRUE(Post(queue_, i));
    }
    for (intptr_t i = 1; i <= 5; i++) {
        void* first = nullptr;
        void* third = nullptr;
        ASSERT_EQ(MPWaitOnQueue(queue_, &first, nullptr, &third, kDurationForever), noErr);
        EXPECT_EQ(reinterpret_cast<intptr_t>(first), i);
        EXPECT_EQ(reinterpret_cast<intptr_t>(third), -i);
    }
    EXPECT_EQ(MPWaitOnQueue(queue_, nullptr, nullptr, nullptr, 0), kMPTimeoutErr);
    ASSERT_EQ(MPDeleteQueue(queue_), noErr);
}

TEST_F(Queue, DeletedWithMessagesDropsThemAndTakesNoMore) {
    ASSERT_TRUE(Post(queue_, 1));
    ASSERT_TRUE(Post(queue_, 2));
    ASSERT_EQ(MPDeleteQueue(queue_), noErr);
    EXPECT_FALSE(Post(queue_, 3));
    EXPECT_FALSE(Post(0, 3));
    MPSemaphoreID semaphore = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &semaphore), noErr);
    EXPECT_FALSE(Post(semaphore, 3));
    EXPECT_EQ(MPDeleteSemaphore(semaphore), noErr);
}

TEST_F(Queue, SharedByPostersAndWaitersGivesEachMessageOnce) {
    constexpr intptr_t kEach = 5000;
    constexpr int kThreads = 4;
    std::vector<std::atomic<int>> seen(kThreads * kEach);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; thread++) {
        threads.emplace_back([&, thread] {
            for (intptr_t i = 0; i < kEach; i++) {
                ASSERT_TRUE(Post(queue_, thread * kEach + i));
            }
        });
        threads.emplace_back([&] {
            for (intptr_t i = 0; i < kEach; i++) {
                void* first = nullptr;
                ASSERT_EQ(MPWaitOnQueue(queue_, &first, nullptr, nullptr, kDurationForever), noErr);
                seen[static_cast<size_t>(reinterpret_cast<intptr_t>(first))]++;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::atomic<int>& count : seen) {
        ASSERT_EQ(count, 1);
    }
    EXPECT_EQ(MPDeleteQueue(queue_), noErr);
}

TEST_F(Queue, DeletedWhilePostersAndWaitersAreBusyLeavesNothing) {
    for (int round = 0; round < 300; round++) {
        MPQueueID queue = 0;
        ASSERT_EQ(MPCreateQueue(&queue), noErr);
        std::thread poster([&] {
            while (Post(queue, 1)) {
            }
        });
        std::thread waiter([&] {
            while (MPWaitOnQueue(queue, nullptr, nullptr, nullptr, kDurationForever) == noErr) {
            }
        });
        std::this_thread::yield();
        ASSERT_EQ(MPDeleteQueue(queue), noErr);
        poster.join();
        waiter.join();
    }
    ASSERT_EQ(MPDeleteQueue(queue_), noErr);
    EXPECT_EQ(CountObjects(), 0u);
}
