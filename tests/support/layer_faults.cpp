// The forwarding layer itself, on operations that need no files.
#include "support/faults.h"

#include "platform/clock.h"
#include "platform/forks.h"
#include "platform/memory.h"

#include <cstdlib>
#include <gtest/gtest.h>

using Names = std::vector<std::string>;

TEST(Injection, WithoutFault_LogsCallsInOrderAndFailsNone) {
    LocalDateTime local{};
    UTCDateTime utc{};
    faults::Injection watch;
    Ptr block = NewPtr(16);
    OSStatus converted = ConvertLocalTimeToUTC(&local, &utc);
    DisposePtr(block);
    EXPECT_EQ(watch.log(), (Names{"NewPtr", "ConvertLocalTimeToUTC", "DisposePtr"}));
    EXPECT_EQ(watch.calls("NewPtr"), 1u);
    EXPECT_EQ(watch.fired(), 0u);
    EXPECT_NE(block, nullptr);
    EXPECT_NE(converted, ioErr);
}

TEST(Injection, SecondCallOfAnOperation_FailsOnce) {
    faults::Injection fault({.call = 2, .operation = "NewPtr"});
    Ptr blocks[] = {NewPtr(1), NewPtr(1), NewPtr(1)};
    DisposePtr(blocks[0]);
    DisposePtr(blocks[2]);
    EXPECT_NE(blocks[0], nullptr);
    EXPECT_EQ(blocks[1], nullptr);
    EXPECT_NE(blocks[2], nullptr);
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(fault.firedAt(), "NewPtr");
}

TEST(Injection, LastingFault_FailsThatCallAndAllLater) {
    faults::Injection fault({.call = 2, .lasting = true, .operation = "NewPtr"});
    Ptr blocks[] = {NewPtr(1), NewPtr(1), NewPtr(1)};
    DisposePtr(blocks[0]);
    EXPECT_EQ(blocks[1], nullptr);
    EXPECT_EQ(blocks[2], nullptr);
    EXPECT_EQ(fault.fired(), 2u);
}

TEST(Injection, StatusOperation_GivesTheChosenCode) {
    LocalDateTime local{};
    UTCDateTime utc{};
    faults::Injection fault({.call = 1, .code = -8850, .operation = "seam"});
    EXPECT_EQ(ConvertLocalTimeToUTC(&local, &utc), -8850);
}

TEST(Injection, Memory_FailsAsItsCallersKnowIt) {
    auto reserve = [](size_t size) { return std::string(size, 'x'); };
    {
        faults::Injection fault({.call = 1, .operation = "malloc"});
        void* volatile block = malloc(16);
        EXPECT_EQ(block, nullptr);
    }
    {
        faults::Injection fault({.call = 1, .operation = "memory"});
        EXPECT_THROW(reserve(4096), std::bad_alloc);
    }
}

TEST(Injection, AllocationInsideTheProvider_CanFailToo) {
    faults::Injection fault({.call = 1, .operation = "memory"});
    Ptr block = NewPtr(64);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(fault.log(), Names{"NewPtr"});
}

TEST(Pause, CallsInIt_AreNeitherCountedNorFailed) {
    faults::Injection fault({.call = 1, .operation = "NewPtr"});
    Ptr block;
    {
        faults::Pause pause;
        block = NewPtr(1);
    }
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(fault.calls("NewPtr"), 0u);
    DisposePtr(block);
}

TEST(Open, BlockNotGivenBack_IsCounted) {
    faults::OpenObjects before = faults::Open();
    Ptr block = NewPtr(1);
    EXPECT_EQ(faults::Open().blocks, before.blocks + 1);
    DisposePtr(block);
    EXPECT_EQ(faults::Open(), before);
}

TEST(Open, HeapBlockOfTheScenario_IsCountedUntilFreed) {
    long before = faults::Open().heap;
    void* volatile block;
    {
        faults::Injection watch;
        block = malloc(8);
        block = realloc(block, 80);
    }
    EXPECT_EQ(faults::Open().heap, before + 1);
    free(block);
    EXPECT_EQ(faults::Open().heap, before);
}

TEST(FailEachCall, ScenarioOfThreeCalls_FailsEachOnce) {
    Names failures;
    Ptr first = nullptr;
    Ptr second = nullptr;
    unsigned runs = faults::FailEachCall({
        .fault = {.operation = "seam"},
        .scenario =
            [&] {
                first = NewPtr(1);
                second = NewPtr(1);
                DisposePtr(first);
                DisposePtr(second);
            },
        .check = [&](const std::string& failed) { failures.push_back(failed); },
    });
    EXPECT_EQ(runs, 2u);
    EXPECT_EQ(failures, (Names{"", "NewPtr", "NewPtr", ""}));
}
