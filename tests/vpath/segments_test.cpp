#include "vpath/segments.h"

#include <gtest/gtest.h>

TEST(SegLen, CountsUnitsBeforeTheTerminator) {
    EXPECT_EQ(SegLen(u"abc"), 3u);
    EXPECT_EQ(SegLen(u""), 0u);
}

TEST(SegLen, TakesNullAsEmpty) {
    EXPECT_EQ(SegLen(nullptr), 0u);
}

TEST(SegCmp, ComparesByUnsignedUnits) {
    EXPECT_EQ(SegCmp(u"a", u"a"), 0);
    EXPECT_EQ(SegCmp(u"ab", u"a"), 1);
    EXPECT_EQ(SegCmp(u"a", u"ab"), -1);
    EXPECT_EQ(SegCmp(u"\xFFFF", u"\x0001"), 1);
    EXPECT_EQ(SegCmp(u"\x0001", u"\x8000"), -1);
}

TEST(SegCmp, SortsNullAfterEveryText) {
    EXPECT_EQ(SegCmp(nullptr, nullptr), 0);
    EXPECT_EQ(SegCmp(nullptr, u"a"), 1);
    EXPECT_EQ(SegCmp(u"a", nullptr), -1);
    EXPECT_EQ(SegCmp(nullptr, u""), 1);
}
