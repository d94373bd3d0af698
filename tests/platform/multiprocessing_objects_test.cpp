// What semaphores, events and queues have in common, and the table of ids under all of them.
#include "platform/linux/multiprocessing_ids.h"
#include "support/processes.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Kind {
    const char* name;
    OSStatus (*create)(uint32_t*);
    OSStatus (*wait)(uint32_t, Duration);
    OSStatus (*release)(uint32_t);
};

OSStatus CreateEmptySemaphore(uint32_t* id) {
    return MPCreateSemaphore(1, 0, id);
}
OSStatus WaitForEvent(uint32_t id, Duration timeout) {
    return MPWaitForEvent(id, nullptr, timeout);
}
OSStatus WaitOnQueue(uint32_t id, Duration timeout) {
    return MPWaitOnQueue(id, nullptr, nullptr, nullptr, timeout);
}

constexpr Kind kKinds[] = {
    {"semaphore", CreateEmptySemaphore, MPWaitOnSemaphore, MPDeleteSemaphore},
    {"event", MPCreateEvent, WaitForEvent, MPDeleteEvent},
    {"queue", MPCreateQueue, WaitOnQueue, MPDeleteQueue},
};

class Waitable : public testing::TestWithParam<Kind> {
protected:
    Waitable() { EXPECT_EQ(GetParam().create(&id_), noErr); }
    uint32_t id_ = 0;
};

long ResidentPages() {
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident;
}

using Clock = std::chrono::steady_clock;

} // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, Waitable, testing::ValuesIn(kKinds),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(Waitable, EmptyPolledTimesOut) {
    EXPECT_EQ(GetParam().wait(id_, kDurationImmediate), kMPTimeoutErr);
    EXPECT_EQ(GetParam().wait(id_, -5), kMPTimeoutErr);
}

TEST_P(Waitable, EmptyWaitedForTimesOutWhenTheTimeIsUp) {
    Clock::time_point start = Clock::now();
    EXPECT_EQ(GetParam().wait(id_, 50), kMPTimeoutErr);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
}

TEST_P(Waitable, ClosedRefusesItsId) {
    ASSERT_EQ(GetParam().release(id_), noErr);
    EXPECT_EQ(GetParam().wait(id_, kDurationForever), kMPInvalidIDErr);
    EXPECT_EQ(GetParam().release(id_), kMPInvalidIDErr);
}

TEST_P(Waitable, IdsOfOtherKindsAreRefused) {
    for (const Kind& other : kKinds) {
        if (other.create == GetParam().create) {
            continue;
        }
        uint32_t id = 0;
        ASSERT_EQ(other.create(&id), noErr);
        EXPECT_EQ(GetParam().wait(id, kDurationForever), kMPInvalidIDErr) << other.name;
        EXPECT_EQ(GetParam().release(id), kMPInvalidIDErr) << other.name;
        EXPECT_EQ(other.release(id), noErr) << other.name;
    }
}

TEST_P(Waitable, SignallingWhatIsOfAnotherKindIsRefused) {
    const bool isSemaphore = MPSignalSemaphore(id_) == noErr;
    const bool isEvent = MPSetEvent(id_, 1) == noErr;
    EXPECT_EQ(isSemaphore, GetParam().create == CreateEmptySemaphore);
    EXPECT_EQ(isEvent, GetParam().create == MPCreateEvent);
}

TEST_P(Waitable, InventedIdsAreRefused) {
    for (uint32_t id : {0u, 1u, 0x00100000u, 0x7FF00000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(GetParam().wait(id, kDurationForever), kMPInvalidIDErr) << id;
        EXPECT_EQ(GetParam().release(id), kMPInvalidIDErr) << id;
        EXPECT_EQ(MPSetEvent(id, 1), kMPInvalidIDErr) << id;
        EXPECT_EQ(MPSignalSemaphore(id), kMPInvalidIDErr) << id;
    }
}

TEST_P(Waitable, RandomIdsAreRefused) {
    unsigned seed = std::random_device()();
    RecordProperty("seed", static_cast<int>(seed));
    std::mt19937 random(seed);
    for (int i = 0; i < 100'000; i++) {
        uint32_t id = random();
        if (id != id_) {
            ASSERT_EQ(GetParam().release(id), kMPInvalidIDErr) << id << " seed " << seed;
        }
    }
    EXPECT_EQ(GetParam().release(id_), noErr);
}

TEST_P(Waitable, DeletedWhileWaitedForMakesTheWaitsFail) {
    std::vector<std::thread> threads;
    std::vector<OSStatus> results(8, noErr);
    ObjectSlot* slot = FindSlot(id_, FindSlot(id_, ObjectKind::Semaphore) != nullptr ? ObjectKind::Semaphore
                                     : FindSlot(id_, ObjectKind::Event) != nullptr   ? ObjectKind::Event
                                                                                     : ObjectKind::Queue);
    ASSERT_NE(slot, nullptr);
    for (OSStatus& result : results) {
        // With a limit, with the longest one and without, all sleep.
        constexpr Duration kTimeouts[] = {100'000, kDurationForever - 1, kDurationForever};
        Duration timeout = kTimeouts[static_cast<size_t>(&result - &results[0]) % 3];
        threads.emplace_back([&, timeout] { result = GetParam().wait(id_, timeout); });
    }
    while (slot->waiters.load() != results.size()) {
        std::this_thread::yield();
    }
    ASSERT_EQ(GetParam().release(id_), noErr);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(results, std::vector<OSStatus>(results.size(), kMPDeletedErr));
    EXPECT_EQ(slot->waiters.load(), 0u);
}

TEST_P(Waitable, ClosedByManyThreadsIsClosedOnce) {
    for (int round = 0; round < 200; round++) {
        uint32_t id = 0;
        ASSERT_EQ(GetParam().create(&id), noErr);
        std::atomic<int> closed = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; i++) {
            threads.emplace_back([&] { closed += GetParam().release(id) == noErr; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(closed, 1);
    }
}

TEST(Ids, FiveHundredThousandObjectsAreAliveAtOnceAndAllClose) {
    constexpr size_t kCount = 500'000;
    std::vector<MPSemaphoreID> ids(kCount);
    for (MPSemaphoreID& id : ids) {
        ASSERT_EQ(MPCreateSemaphore(1, 1, &id), noErr);
    }
    std::vector<MPSemaphoreID> sorted = ids;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
    EXPECT_EQ(MPWaitOnSemaphore(ids.front(), 0), noErr);
    EXPECT_EQ(MPWaitOnSemaphore(ids.back(), 0), noErr);
    for (MPSemaphoreID id : ids) {
        ASSERT_EQ(MPDeleteSemaphore(id), noErr);
    }
    EXPECT_EQ(CountObjects(), 0u);
}

TEST(Ids, FullTableRefusesNewObjectsUntilOneIsClosed) {
    std::vector<MPEventID> ids;
    MPEventID id = 0;
    while (MPCreateEvent(&id) == noErr) {
        ids.push_back(id);
    }
    EXPECT_EQ(id, 0u);
    EXPECT_GE(ids.size(), 1'000'000u);
    EXPECT_EQ(MPCreateQueue(&id), kMPInsufficientResourcesErr);
    EXPECT_EQ(MPCreateCriticalRegion(&id), kMPInsufficientResourcesErr);
    EXPECT_EQ(MPCreateSemaphore(1, 0, &id), kMPInsufficientResourcesErr);
    EXPECT_EQ(id, 0u);
    ASSERT_EQ(MPDeleteEvent(ids[5]), noErr);
    EXPECT_EQ(MPCreateQueue(&id), noErr);
    EXPECT_EQ(MPDeleteEvent(ids[5]), kMPInvalidIDErr); // its slot is the queue's now
    ASSERT_EQ(MPDeleteQueue(id), noErr);
    ids.erase(ids.begin() + 5);
    // Its one free slot comes round soonest: not before all of its generations have.
    std::set<MPEventID> seen;
    for (uint32_t i = 0; i < kLastGeneration; i++) {
        ASSERT_EQ(MPCreateEvent(&id), noErr);
        ASSERT_TRUE(seen.insert(id).second) << i;
        ASSERT_EQ(MPDeleteEvent(id), noErr);
    }
    for (MPEventID other : ids) {
        ASSERT_EQ(MPDeleteEvent(other), noErr);
    }
}

TEST(Ids, TableGoesAtUnloadAndComesBackWhenItIsNeeded) {
    MPEventID event = 0;
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    EXPECT_FALSE(ReleaseObjectTable()); // something is alive
    ASSERT_EQ(MPDeleteEvent(event), noErr);
    EXPECT_TRUE(ReleaseObjectTable());
    EXPECT_EQ(objectChunks[0].load(), nullptr);
    EXPECT_EQ(MPDeleteEvent(event), kMPInvalidIDErr);
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    EXPECT_EQ(MPDeleteEvent(event), noErr);
}

TEST(Ids, TableStaysAtUnloadWhileSomebodyIsOnTheWayOutOfAWait) {
    MPEventID event = 0;
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    ObjectSlot* slot = FindSlot(event, ObjectKind::Event);
    slot->waiters++; // as one who has been woken and has not run yet
    ASSERT_EQ(MPDeleteEvent(event), noErr);
    EXPECT_FALSE(ReleaseObjectTable());
    EXPECT_EQ(slot->waiters.fetch_sub(1), 1u);
    EXPECT_TRUE(ReleaseObjectTable());
}

// The address sanitizer sees whether the waiters look at a table that has gone.
TEST(Ids, ProcessCanEndWhileThreadsAreOnTheWayOutOfWaits) {
    for (int round = 0; round < 20; round++) {
        pid_t child = fork();
        if (child == 0) {
            alarm(60);
            MPSemaphoreID semaphore = 0;
            MPCreateSemaphore(1, 0, &semaphore);
            for (int i = 0; i < 4; i++) {
                std::thread([=] {
                    MPWaitOnSemaphore(semaphore, kDurationForever);
                    for (;;) {
                        pause();
                    }
                }).detach();
            }
            while (FindSlot(semaphore, ObjectKind::Semaphore)->waiters != 4) {
                std::this_thread::yield();
            }
            MPDeleteSemaphore(semaphore);
            exit(0);
        }
        ASSERT_EQ(ExitStatusOf(child), 0);
    }
}

TEST(Ids, TenMillionCreationsDoNotGrowMemory) {
    auto createAndClose = [](int times) {
        for (int i = 0; i < times; i++) {
            MPEventID id = 0;
            ASSERT_EQ(MPCreateEvent(&id), noErr);
            ASSERT_EQ(MPDeleteEvent(id), noErr);
        }
    };
    createAndClose(100'000);
    long before = ResidentPages();
    createAndClose(kThreadSanitizer || kAddressSanitizer ? 1'000'000
                                                         : 10'000'000); // they take 20 times as long
    EXPECT_LE(ResidentPages(), before + 64);
}

TEST(Ids, SlotsAreUsedAgainOldestFirst) {
    // New slots are not begun as long as so many rest.
    constexpr size_t kResting = 8192;
    constexpr size_t kCount = 20'000;
    std::vector<MPEventID> ids(kCount);
    for (MPEventID& id : ids) {
        ASSERT_EQ(MPCreateEvent(&id), noErr);
    }
    for (MPEventID id : ids) {
        ASSERT_EQ(MPDeleteEvent(id), noErr);
    }
    ids.resize(kCount - kResting);
    for (MPEventID old : ids) {
        MPEventID id = 0;
        ASSERT_EQ(MPCreateEvent(&id), noErr);
        ASSERT_EQ(id & kIndexMask, old & kIndexMask);
        ASSERT_NE(id, old);
    }
}

TEST(Ids, FreedSlotRestsForThousandsOfCreations) {
    MPEventID first = 0;
    ASSERT_EQ(MPCreateEvent(&first), noErr);
    ASSERT_EQ(MPDeleteEvent(first), noErr);
    for (int i = 0; i < 8000; i++) {
        MPEventID id = 0;
        ASSERT_EQ(MPCreateEvent(&id), noErr);
        ASSERT_NE(id & kIndexMask, first & kIndexMask);
        ASSERT_EQ(MPDeleteEvent(id), noErr);
    }
}

// A stale id is used all the time while its slot goes to new objects and back.
TEST(Ids, StaleIdNeverReachesTheSlotsNextObject) {
    constexpr int kRounds = 100'000;
    std::atomic<uint32_t> stale = 0;
    std::atomic<bool> done = false;
    std::atomic<long> accepted = 0;
    std::vector<std::thread> users;
    for (int i = 0; i < 2; i++) {
        users.emplace_back([&] {
            while (!done) {
                uint32_t id = stale;
                accepted += MPSignalSemaphore(id) == noErr;
                accepted += MPWaitOnSemaphore(id, 0) == noErr;
                accepted += MPDeleteSemaphore(id) == noErr;
            }
        });
    }
    for (int i = 0; i < kRounds; i++) {
        MPSemaphoreID id = 0;
        ASSERT_EQ(MPCreateSemaphore(1, 0, &id), noErr);
        ASSERT_EQ(MPSignalSemaphore(id), noErr);
        ASSERT_EQ(MPDeleteSemaphore(id), noErr);
        stale = id;
    }
    done = true;
    for (std::thread& user : users) {
        user.join();
    }
    EXPECT_EQ(accepted, 0);
    EXPECT_EQ(CountObjects(), 0u);
}
