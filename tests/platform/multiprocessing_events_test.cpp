#include "platform/linux/multiprocessing_ids.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

namespace {

class Event : public testing::Test {
protected:
    Event() { EXPECT_EQ(MPCreateEvent(&event_), noErr); }
    MPEventID event_ = 0;
};

} // namespace

TEST_F(Event, WaitTakesAllFlagsAndLeavesNone) {
    ASSERT_EQ(MPSetEvent(event_, 0x80000001), noErr);
    ASSERT_EQ(MPSetEvent(event_, 0x10), noErr);
    MPEventFlags flags = 0;
    EXPECT_EQ(MPWaitForEvent(event_, &flags, kDurationForever), noErr);
    EXPECT_EQ(flags, 0x80000011u);
    flags = 7;
    EXPECT_EQ(MPWaitForEvent(event_, &flags, kDurationImmediate), kMPTimeoutErr);
    EXPECT_EQ(flags, 0u);
}

TEST_F(Event, SettingNoFlagsSignalsNothing) {
    ASSERT_EQ(MPSetEvent(event_, 0), noErr);
    EXPECT_EQ(MPWaitForEvent(event_, nullptr, kDurationImmediate), kMPTimeoutErr);
}

TEST_F(Event, EachSetLetsOneWaiterThrough) {
    constexpr int kWaiters = 6;
    std::atomic<int> through = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kWaiters; i++) {
        threads.emplace_back([&] {
            ASSERT_EQ(MPWaitForEvent(event_, nullptr, kDurationForever), noErr);
            through++;
        });
    }
    for (int i = 1; i <= kWaiters; i++) {
        ASSERT_EQ(MPSetEvent(event_, 1), noErr);
        while (through != i) {
            std::this_thread::yield();
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(MPWaitForEvent(event_, nullptr, kDurationImmediate), kMPTimeoutErr);
}

TEST_F(Event, TwoHundredThousandPingPongsLoseNoWakeUp) {
    constexpr int kRounds = 200'000;
    std::array<MPEventID, 2> events{};
    for (MPEventID& event : events) {
        ASSERT_EQ(MPCreateEvent(&event), noErr);
    }
    std::thread other([&] {
        for (int i = 0; i < kRounds; i++) {
            ASSERT_EQ(MPWaitForEvent(events[0], nullptr, kDurationForever), noErr);
            ASSERT_EQ(MPSetEvent(events[1], 1), noErr);
        }
    });
    for (int i = 0; i < kRounds; i++) {
        ASSERT_EQ(MPSetEvent(events[0], 1), noErr);
        ASSERT_EQ(MPWaitForEvent(events[1], nullptr, kDurationForever), noErr);
    }
    other.join();
}
