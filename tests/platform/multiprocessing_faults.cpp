// Objects and tasks when memory runs out: the documented result, and nothing left behind.
#include "platform/linux/multiprocessing_ids.h"
#include "support/faults.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

namespace {

bool slotsRefused = false;

OSStatus ReturnNothing(void*) {
    return 0;
}

} // namespace

// Slots are allocated by their own alignment, which the forwarding layer does not see.
void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return slotsRefused ? nullptr : std::aligned_alloc(static_cast<size_t>(alignment), size);
}

void operator delete[](void* block, std::align_val_t) noexcept {
    std::free(block);
}

void operator delete[](void* block, size_t, std::align_val_t) noexcept {
    std::free(block);
}

TEST(CreateTask, WithoutMemory_IsRefusedAndLeavesNothing) {
    MPTaskID task = 1;
    MPQueueID queue = 0;
    ASSERT_EQ(MPCreateQueue(&queue), noErr);
    OSStatus status = noErr;
    // Two allocations of its own, the record and the message; more are the C library's for the thread.
    for (unsigned call = 1; call <= 2; call++) {
        uint32_t before = CountObjects();
        {
            faults::Injection fault({.call = call, .operation = "operator new"});
            status = MPCreateTask(ReturnNothing, nullptr, 0, queue, nullptr, nullptr, 0, &task);
            EXPECT_EQ(fault.fired(), 1u) << call;
        }
        EXPECT_EQ(status, kMPInsufficientResourcesErr) << call;
        EXPECT_EQ(task, 0u) << call;
        EXPECT_EQ(CountObjects(), before) << call;
        EXPECT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, 0), kMPTimeoutErr) << call;
    }
    ASSERT_EQ(MPCreateTask(ReturnNothing, nullptr, 0, queue, nullptr, nullptr, 0, &task), noErr);
    EXPECT_EQ(MPWaitOnQueue(queue, nullptr, nullptr, nullptr, kDurationForever), noErr);
    EXPECT_EQ(MPDeleteQueue(queue), noErr);
}

TEST(CreateObject, WithoutMemoryForMoreSlots_IsRefusedUntilThereIsMemory) {
    MPEventID event = 0;
    slotsRefused = true;
    unsigned created = 0;
    while (created <= kSlotsPerChunk && MPCreateEvent(&event) == noErr) {
        created++;
    }
    EXPECT_LT(created, kSlotsPerChunk); // what the first slots had room for
    EXPECT_EQ(event, 0u);
    EXPECT_EQ(MPCreateEvent(&event), kMPInsufficientResourcesErr);
    slotsRefused = false;
    EXPECT_EQ(MPCreateEvent(&event), noErr);
}
