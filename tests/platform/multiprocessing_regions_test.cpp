#include "platform/linux/multiprocessing_ids.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

namespace {

class Region : public testing::Test {
protected:
    Region() { EXPECT_EQ(MPCreateCriticalRegion(&region_), noErr); }

    OSStatus EnterElsewhere(Duration timeout) const {
        OSStatus status = noErr;
        std::thread([&] { status = MPEnterCriticalRegion(region_, timeout); }).join();
        return status;
    }

    MPCriticalRegionID region_ = 0;
};

} // namespace

TEST_F(Region, EnteredKeepsOthersOut) {
    ASSERT_EQ(MPEnterCriticalRegion(region_, kDurationForever), noErr);
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), kMPTimeoutErr);
    EXPECT_EQ(EnterElsewhere(20), kMPTimeoutErr);
    ASSERT_EQ(MPExitCriticalRegion(region_), noErr);
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), noErr);
}

TEST_F(Region, EnteredAgainByHolderNeedsAsManyExits) {
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(MPEnterCriticalRegion(region_, kDurationImmediate), noErr);
    }
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(MPExitCriticalRegion(region_), noErr);
        EXPECT_EQ(EnterElsewhere(kDurationImmediate), kMPTimeoutErr);
    }
    ASSERT_EQ(MPExitCriticalRegion(region_), noErr);
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), noErr);
}

TEST_F(Region, LeftByOneWhoDoesNotHoldItFailsAndFreesNothing) {
    EXPECT_NE(MPExitCriticalRegion(region_), noErr);
    ASSERT_EQ(MPEnterCriticalRegion(region_, kDurationForever), noErr);
    std::thread([&] { EXPECT_NE(MPExitCriticalRegion(region_), noErr); }).join();
    EXPECT_EQ(EnterElsewhere(kDurationImmediate), kMPTimeoutErr);
    EXPECT_EQ(MPExitCriticalRegion(region_), noErr);
    EXPECT_NE(MPExitCriticalRegion(region_), noErr);
}

TEST_F(Region, LeftHeldByAThreadThatEndedIsNotTakenForTheNextThreads) {
    ASSERT_EQ(EnterElsewhere(kDurationForever), noErr);
    for (int i = 0; i < 8; i++) {
        EXPECT_EQ(EnterElsewhere(kDurationImmediate), kMPTimeoutErr);
    }
}

TEST_F(Region, DeletedRefusesItsId) {
    ASSERT_EQ(MPDeleteCriticalRegion(region_), noErr);
    EXPECT_EQ(MPEnterCriticalRegion(region_, kDurationForever), kMPInvalidIDErr);
    EXPECT_EQ(MPExitCriticalRegion(region_), kMPInvalidIDErr);
    EXPECT_EQ(MPDeleteCriticalRegion(region_), kMPInvalidIDErr);
}

TEST_F(Region, InventedIdsAreRefused) {
    for (MPCriticalRegionID id :
         {0u, 1u, 0x00100000u, 0x7FFFFFFFu, 0x80000001u, 0xFFFFFFFFu, region_ + 1, region_ ^ 0x40000000u}) {
        EXPECT_EQ(MPEnterCriticalRegion(id, kDurationForever), kMPInvalidIDErr) << id;
        EXPECT_EQ(MPExitCriticalRegion(id), kMPInvalidIDErr) << id;
        EXPECT_EQ(MPDeleteCriticalRegion(id), kMPInvalidIDErr) << id;
    }
}

TEST_F(Region, DeletedWhileOthersWaitMakesTheirWaitsFail) {
    ASSERT_EQ(MPEnterCriticalRegion(region_, kDurationForever), noErr);
    std::array<std::thread, 3> threads;
    std::atomic<int> deleted = 0;
    for (std::thread& thread : threads) {
        thread = std::thread(
            [&] { deleted += MPEnterCriticalRegion(region_, kDurationForever) == kMPDeletedErr; });
    }
    while (FindSlot(region_, ObjectKind::Region)->waiters != 3) {
        std::this_thread::yield();
    }
    ASSERT_EQ(MPDeleteCriticalRegion(region_), noErr);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(deleted, 3);
    EXPECT_EQ(MPExitCriticalRegion(region_), kMPInvalidIDErr);
}

// The holder has seen that the region is its own; then another thread deletes it, and the slot gets a new
// object.
TEST_F(Region, DeletedUnderTheHoldersFeetLeavesTheSlotsNextObjectAlone) {
    ObjectSlot* slot = FindSlot(region_, ObjectKind::Region);
    ASSERT_EQ(MPEnterCriticalRegion(region_, kDurationForever), noErr);
    uint64_t others = MakeState(region_ ^ 1u << kIndexBits, 3);
    slot->detail = others;
    EXPECT_EQ(MPEnterCriticalRegion(region_, kDurationForever), kMPInvalidIDErr);
    EXPECT_EQ(slot->detail, others);
    EXPECT_EQ(MPExitCriticalRegion(region_), noErr); // the state is still this region's
    EXPECT_EQ(slot->detail, others);
}

TEST_F(Region, EnteredAsOftenAsCanBeCountedIsRefused) {
    ObjectSlot* slot = FindSlot(region_, ObjectKind::Region);
    ASSERT_EQ(MPEnterCriticalRegion(region_, kDurationForever), noErr);
    slot->detail = MakeState(region_, UINT32_MAX);
    EXPECT_EQ(MPEnterCriticalRegion(region_, kDurationForever), kMPInsufficientResourcesErr);
    EXPECT_EQ(MPExitCriticalRegion(region_), noErr);
    EXPECT_EQ(slot->detail, MakeState(region_, UINT32_MAX - 1));
}

TEST_F(Region, EightThreadsCountingInsideLoseNothing) {
    constexpr int kRounds = 20000;
    std::vector<std::thread> threads;
    long count = 0;
    for (int i = 0; i < 8; i++) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; round++) {
                ASSERT_EQ(MPEnterCriticalRegion(region_, kDurationForever), noErr);
                count++;
                ASSERT_EQ(MPExitCriticalRegion(region_), noErr);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 8L * kRounds);
}
