// Synchronisation objects when the platform refuses.
#include "support/faults.h"

#include "system/synchronisation.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

constexpr int kRefused = kMPInsufficientResourcesErr;

} // namespace

TEST(CreateEvent, RefusedOrWithoutMemory_GivesNullAndLeavesNothing) {
    for (const char* operation : {"MPCreateEvent", "malloc"}) {
        faults::OpenObjects before = faults::Open();
        OpacTavEvent* event = nullptr;
        {
            faults::Injection fault({.call = 1, .code = kRefused, .operation = operation});
            event = TavCreateEvent(1, 1);
            EXPECT_EQ(fault.fired(), 1u) << operation;
        }
        EXPECT_EQ(event, nullptr) << operation;
        EXPECT_EQ(faults::Open(), before) << operation;
    }
}

TEST(CreateEvent, CreatesAllocatesAndSetsInThisOrder) {
    faults::Injection watch;
    OpacTavEvent* event = TavCreateEvent(0, 1);
    EXPECT_EQ(watch.log(), (std::vector<std::string>{"MPCreateEvent", "MPSetEvent"}));
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(CreateEvent, NotInitiallySetDoesNotSet) {
    faults::Injection watch;
    OpacTavEvent* event = TavCreateEvent(1, 0);
    EXPECT_EQ(watch.calls("MPSetEvent"), 0u);
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(CloseEvent, Refused_FailsButFreesTheBlock) {
    OpacTavEvent* event = nullptr;
    faults::OpenObjects before = faults::Open();
    int32_t closed = 1;
    {
        faults::Injection fault({.call = 1, .code = kRefused, .operation = "MPDeleteEvent"});
        event = TavCreateEvent(0, 0);
        closed = TavCloseEvent(event);
    }
    EXPECT_EQ(closed, 0);
    EXPECT_EQ(faults::Open(), before);
}

// Between the hold and its release the waiting thread is not terminated.
TEST(WaitEvent, ManualReset_SetsTheEventAgainOnlyAfterSuccess) {
    using Calls = std::vector<std::string>;
    OpacTavEvent* manual = TavCreateEvent(1, 1);
    OpacTavEvent* automatic = TavCreateEvent(0, 1);
    {
        faults::Injection watch;
        EXPECT_EQ(TavWaitEvent(manual, 0), TAV_WAIT_OBJECT_0);
        EXPECT_EQ(watch.log(), (Calls{"PlatformHoldTermination", "MPWaitForEvent", "MPSetEvent",
                                      "PlatformReleaseTermination"}));
    }
    {
        faults::Injection watch;
        EXPECT_EQ(TavWaitEvent(automatic, 0), TAV_WAIT_OBJECT_0);
        EXPECT_EQ(watch.log(), Calls{"MPWaitForEvent"});
    }
    {
        faults::Injection fault({.call = 1, .code = kRefused, .operation = "MPWaitForEvent"});
        EXPECT_EQ(TavWaitEvent(manual, 0), TAV_WAIT_ABANDONED);
        EXPECT_EQ(fault.log(),
                  (Calls{"PlatformHoldTermination", "MPWaitForEvent", "PlatformReleaseTermination"}));
    }
    {
        // Not set again: the wait has succeeded all the same.
        faults::Injection fault({.call = 1, .code = kRefused, .operation = "MPSetEvent"});
        EXPECT_EQ(TavWaitEvent(manual, 0), TAV_WAIT_OBJECT_0);
    }
    EXPECT_EQ(TavWaitEvent(manual, 0), TAV_WAIT_TIMEOUT);
    EXPECT_EQ(TavCloseEvent(manual), 1);
    EXPECT_EQ(TavCloseEvent(automatic), 1);
}

TEST(ResetEvent, Refused_GivesOneAllTheSame) {
    OpacTavEvent* event = TavCreateEvent(1, 1);
    {
        faults::Injection fault({.call = 1, .code = kRefused, .operation = "MPWaitForEvent"});
        EXPECT_EQ(TavResetEvent(event), 1);
    }
    EXPECT_EQ(TavCloseEvent(event), 1);
}

TEST(CreateMutex, Refused_GivesNone) {
    faults::Injection fault({.call = 1, .code = kRefused, .operation = "MPCreateSemaphore"});
    EXPECT_EQ(TavCreateMutex(1), 0u);
    EXPECT_EQ(fault.log(), (std::vector<std::string>{"MPCreateSemaphore"}));
}

TEST(CreateSemaphore, Refused_GivesNone) {
    faults::Injection fault({.call = 1, .code = kRefused, .operation = "MPCreateSemaphore"});
    EXPECT_EQ(TavCreateSemaphore(1, 1), 0u);
}

// Whatever the platform answers but success, the operation fails.
TEST(Operations, Refused_Fail) {
    MPCriticalRegionID section = 0;
    ASSERT_EQ(TavInitCriticalSection(&section), 1);
    MPCriticalRegionID other = 0;
    MPSemaphoreID semaphore = TavCreateSemaphore(1, 2);
    OpacTavEvent* event = TavCreateEvent(0, 1);
    const struct {
        const char* operation;
        std::function<uint32_t()> call;
        uint32_t failure;
    } rows[] = {
        {"MPCreateCriticalRegion", [&] { return TavInitCriticalSection(&other); }, 0},
        {"MPEnterCriticalRegion", [&] { return TavEnterCriticalSection(&section); }, 0},
        {"MPExitCriticalRegion", [&] { return TavLeaveCriticalSection(&section); }, 0},
        {"MPSignalSemaphore", [&] { return TavReleaseSemaphore(semaphore); }, 0},
        {"MPSignalSemaphore", [&] { return TavReleaseMutex(semaphore); }, 0},
        {"MPWaitOnSemaphore", [&] { return TavWaitSemaphore(semaphore, 0); }, TAV_WAIT_ABANDONED},
        {"MPWaitOnSemaphore", [&] { return TavWaitMutex(semaphore, 0); }, TAV_WAIT_ABANDONED},
        {"MPSetEvent", [&] { return TavSetEvent(event); }, 0},
        {"MPWaitForEvent", [&] { return TavWaitEvent(event, 0); }, TAV_WAIT_ABANDONED},
        {"MPDeleteSemaphore", [&] { return TavCloseSemaphore(semaphore); }, 0},
        {"MPDeleteCriticalRegion", [&] { return TavDeleteCriticalSection(&section); }, 0},
    };
    for (const auto& row : rows) {
        faults::Injection fault({.call = 1, .code = kRefused, .operation = row.operation});
        EXPECT_EQ(row.call(), row.failure) << row.operation;
        EXPECT_EQ(fault.fired(), 1u) << row.operation;
    }
    EXPECT_EQ(TavCloseEvent(event), 1);
}
