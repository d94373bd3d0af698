#include "text/inline_helpers.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(CharNextW, StepsOverOneUnitEvenATerminator) {
    const TavChar* s = u"a";
    EXPECT_EQ(CharNextW(s), s + 1);
    EXPECT_EQ(CharNextW(s + 1), s + 2);
}

TEST(LstrlenW, CountsUnitsAndTakesNull) {
    EXPECT_EQ(lstrlenW(u"abc"), 3u);
    EXPECT_EQ(lstrlenW(nullptr), 0u);
}

TEST(CFRangeMake, HoldsBothNumbers) {
    const CFRange range = CFRangeMake(3, 7);
    EXPECT_EQ(range.location, 3);
    EXPECT_EQ(range.length, 7);
}

TEST(InterlockedDecrement, GivesTheNewValue) {
    int32_t value = 2;
    EXPECT_EQ(InterlockedDecrement(&value), 1);
    EXPECT_EQ(InterlockedDecrement(&value), 0);
    EXPECT_EQ(InterlockedDecrement(&value), -1);
    EXPECT_EQ(value, -1);
}

TEST(InterlockedDecrement, LosesNoCountAmongThreads) {
    constexpr int kThreads = 4, kTimes = 10000;
    int32_t value = kThreads * kTimes;
    std::atomic<int> zeros{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kTimes; ++i) zeros += InterlockedDecrement(&value) == 0;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(value, 0);
    EXPECT_EQ(zeros, 1);
}
