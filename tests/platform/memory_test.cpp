#include "platform/memory.h"

#include <cstdint>
#include <gtest/gtest.h>

// A copy's buffer, whose place decides how fast the kernel fills and empties it.
TEST(NewPtr, LargeBlock_BeginsAtACacheLine) {
    for (Size size : {4096, 4097, 65537, 262144, 2097152}) {
        Ptr first = NewPtr(size), second = NewPtr(size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 64, 0u) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(second) % 64, 0u) << size;
        first[size - 1] = second[size - 1] = 'x';
        DisposePtr(first);
        DisposePtr(second);
    }
}

TEST(NewPtr, EmptyBlock_IsOneAllTheSame) {
    Ptr block = NewPtr(0);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(MemError(), noErr);
    DisposePtr(block);
}

TEST(NewPtr, NegativeSize_IsShortOfMemory) {
    EXPECT_EQ(NewPtr(-1), nullptr);
    EXPECT_EQ(MemError(), memFullErr);
    EXPECT_EQ(NewPtr(INT32_MIN), nullptr);
}
