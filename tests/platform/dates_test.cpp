#include "platform/linux/dates.h"

#include "metadata_support.h"
#include "platform/linux/appledouble.h"

namespace {
statx_timestamp Timestamp(int64_t seconds, uint32_t nanoseconds) {
    statx_timestamp time = {};
    time.tv_sec = seconds;
    time.tv_nsec = nanoseconds;
    return time;
}
constexpr int64_t k2000 = k1970 + 946684800;
} // namespace

TEST(Dates, KernelTime_BecomesSecondsFrom1904) {
    const UTCDateTime date = DateFromTimestamp(Timestamp(1, 500000000));
    EXPECT_EQ(SecondsOf(date), 2082844801);
    EXPECT_EQ(date.fraction, 0x8000);
}

TEST(Dates, TimesAroundTheLimits_BecomeTheFirstAndTheLastDate) {
    EXPECT_EQ(SecondsOf(DateFromTimestamp(Timestamp(-k1970, 0))), 0);
    EXPECT_EQ(SecondsOf(DateFromTimestamp(Timestamp(-k1970 - 1, 999999999))), 0);
    EXPECT_EQ(SecondsOf(DateFromTimestamp(Timestamp(INT64_MAX, 0))), (int64_t{1} << 48) - 1);
    EXPECT_EQ(SecondsOf(DateFromTimestamp(Timestamp((int64_t{1} << 48) - 1 - k1970, 0))),
              (int64_t{1} << 48) - 1);
}

TEST(Dates, EveryFraction_SurvivesTheWayThroughTheKernel) {
    for (uint32_t fraction = 0; fraction <= UINT16_MAX; ++fraction) {
        const auto time = TimeFromDate(DateAt(k1970 + 5, static_cast<uint16_t>(fraction)));
        ASSERT_TRUE(time);
        ASSERT_LT(time->tv_nsec, 1000000000);
        const UTCDateTime back =
            DateFromTimestamp(Timestamp(time->tv_sec, static_cast<uint32_t>(time->tv_nsec)));
        ASSERT_EQ(back.fraction, fraction);
        ASSERT_EQ(SecondsOf(back), k1970 + 5);
    }
}

TEST(Dates, KernelTimeOnTheWayThroughADate_IsNeverLater) {
    for (uint32_t nanoseconds = 0; nanoseconds < 1000000000; nanoseconds += 7654321) {
        const auto time = TimeFromDate(DateFromTimestamp(Timestamp(9, nanoseconds)));
        ASSERT_TRUE(time);
        EXPECT_LE(static_cast<uint32_t>(time->tv_nsec), nanoseconds);
    }
}

TEST(Dates, AllZero_IsNoKernelTime) {
    EXPECT_FALSE(TimeFromDate(UTCDateTime{}));
}

TEST(Dates, MetadataDate_CountsFrom2000) {
    EXPECT_EQ(MetadataDateFromDate(DateAt(k2000)), 0);
    EXPECT_EQ(MetadataDateFromDate(DateAt(k2000 - 1)), -1);
    EXPECT_EQ(SecondsOf(DateFromMetadataDate(-1)), k2000 - 1);
    EXPECT_EQ(MetadataDateFromDate(DateAt(k2000, 0xFFFF)), 0);
}

TEST(Dates, MetadataDateOutOfRange_IsNone) {
    EXPECT_EQ(MetadataDateFromDate(DateAt(k2000 + INT32_MAX)), INT32_MAX);
    EXPECT_FALSE(MetadataDateFromDate(DateAt(k2000 + INT32_MAX + int64_t{1})));
    EXPECT_EQ(MetadataDateFromDate(DateAt(k2000 + INT32_MIN + int64_t{1})), INT32_MIN + 1);
    EXPECT_FALSE(MetadataDateFromDate(DateAt(k2000 + INT32_MIN))); // that number means "never"
}

TEST(Dates, Never_IsAllZeroBothWays) {
    EXPECT_EQ(MetadataDateFromDate(UTCDateTime{}), appledouble::kNoDate);
    EXPECT_TRUE(SameDate(DateFromMetadataDate(appledouble::kNoDate), UTCDateTime{}));
}

TEST(Dates, BusyFolderDate_IsInRange) {
    EXPECT_TRUE(MetadataDateFromDate(DateAt(1329266096)));
}
