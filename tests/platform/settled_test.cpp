#include "platform/linux/settled.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>

static struct statx_timestamp Ago(int64_t nanoseconds) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    int64_t time = int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec - nanoseconds;
    struct statx_timestamp stamp = {};
    stamp.tv_sec = time / 1'000'000'000;
    stamp.tv_nsec = static_cast<uint32_t>(time % 1'000'000'000) | 1;
    return stamp;
}

TEST(IsSettled, TimeOfThisMoment_IsNot) {
    EXPECT_FALSE(IsSettled(Ago(0), true));
    EXPECT_FALSE(IsSettled(Ago(10'000'000), true));
}

TEST(IsSettled, FineTimeClearlyPast_Is) {
    EXPECT_TRUE(IsSettled(Ago(500'000'000), true));
    EXPECT_TRUE(IsSettled(Ago(100'000'000'000'000), true));
}

TEST(IsSettled, CoarseTime_TakesSeconds) {
    EXPECT_FALSE(IsSettled(Ago(2'000'000'000), false));
    EXPECT_TRUE(IsSettled(Ago(5'000'000'000), false));
}

TEST(IsSettled, WholeSeconds_AreTakenForCoarse) {
    struct statx_timestamp stamp = Ago(1'000'000'000);
    stamp.tv_nsec = 0;
    EXPECT_FALSE(IsSettled(stamp, true));
    stamp.tv_sec -= 10;
    EXPECT_TRUE(IsSettled(stamp, true));
}

TEST(IsSettled, TimeInTheFuture_IsNot) {
    EXPECT_FALSE(IsSettled(Ago(-1'000'000'000), true));
    EXPECT_FALSE(IsSettled(Ago(-100'000'000'000'000), true));
}

// Farther than 64 bits of nanoseconds reach.
TEST(IsSettled, TimesFarAway_AreOnTheirSideOfNow) {
    struct statx_timestamp stamp = Ago(0);
    for (int64_t ahead : {int64_t{stamp.tv_sec} + 10'000'000'000, INT64_MAX}) {
        stamp.tv_sec = ahead;
        EXPECT_FALSE(IsSettled(stamp, true)) << ahead;
    }
    stamp.tv_sec = INT64_MIN;
    EXPECT_TRUE(IsSettled(stamp, true));
}
