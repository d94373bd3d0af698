// The scenarios in which the model of the waiting protocol is run.
#include "platform/multiprocessing_explorer.h"

#include <gtest/gtest.h>

namespace {

using model::Explorer;
using model::Object;
using model::Role;
using model::Scenario;
using model::ThreadPlan;

constexpr ThreadPlan kWait{Role::Wait};
constexpr ThreadPlan kWaitTwice{Role::Wait, 2};
constexpr ThreadPlan kWaitWithLimit{Role::Wait, 1, true, false};
constexpr ThreadPlan kWaitTerminable{Role::Wait, 1, false, true};
constexpr ThreadPlan kWaitAnything{Role::Wait, 1, true, true};
constexpr ThreadPlan kRelease{Role::Release};
constexpr ThreadPlan kReleaseTwice{Role::Release, 2};
constexpr ThreadPlan kClose{Role::Close};
constexpr ThreadPlan kSection{Role::EnterAndLeave};
constexpr ThreadPlan kSectionTwice{Role::EnterAndLeave, 2};
constexpr ThreadPlan kSectionAnything{Role::EnterAndLeave, 1, true, true};
constexpr ThreadPlan kEnterTwice{Role::EnterTwice};
constexpr ThreadPlan kReuse{Role::Reuse, 1, false, false, 2};
constexpr ThreadPlan kWaitForNext{Role::Wait, 1, false, false, 2};
constexpr ThreadPlan kReleaseNext{Role::Release, 1, false, false, 2};
constexpr ThreadPlan kSectionInNext{Role::EnterAndLeave, 1, false, false, 2};

const Scenario kRight[] = {
    {"SemaphoreTwoWaitersTwoReleasers", Object::Semaphore, 0, {kWait, kWait, kRelease, kRelease}},
    {"SemaphoreThreeWaitersOneReleaser", Object::Semaphore, 1, {kWait, kWait, kWait, kReleaseTwice}},
    {"SemaphoreWaitersAgain", Object::Semaphore, 0, {kWaitTwice, kWaitTwice, kReleaseTwice}},
    {"SemaphoreLimits", Object::Semaphore, 0, {kWaitWithLimit, kWait, kReleaseTwice}},
    {"SemaphoreTermination", Object::Semaphore, 0, {kWaitTerminable, kWaitTerminable, kWait, kRelease}},
    {"SemaphoreEverything", Object::Semaphore, 0, {kWaitAnything, kWaitAnything, kReleaseTwice, kClose}},
    {"SemaphoreClose", Object::Semaphore, 0, {kWait, kWait, kRelease, kClose}},
    {"EventTwoWaitersTwoSetters", Object::Event, 0, {kWait, kWait, kRelease, kRelease}},
    {"EventThreeWaiters", Object::Event, 0, {kWait, kWait, kWait, kReleaseTwice}},
    {"EventLimits", Object::Event, 0, {kWaitWithLimit, kWaitTwice, kReleaseTwice}},
    {"EventTermination", Object::Event, 0, {kWaitTerminable, kWait, kRelease, kRelease}},
    {"EventClose", Object::Event, 0, {kWait, kWaitAnything, kRelease, kClose}},
    {"RegionThreeThreads", Object::Region, 0, {kSection, kSectionTwice, kSection}},
    {"RegionLimitsAndTermination", Object::Region, 0, {kSection, kSectionAnything, kSectionAnything}},
    {"RegionClose", Object::Region, 0, {kSection, kSection, kSection, kClose}},
    {"RegionEnteredTwice", Object::Region, 0, {kEnterTwice, kEnterTwice, kSection}},
    {"QueueTwoWaitersTwoPosters", Object::Queue, 0, {kWait, kWait, kRelease, kRelease}},
    {"QueueWaitersAgain", Object::Queue, 1, {kWaitTwice, kWait, kReleaseTwice}},
    {"QueueLimitsAndTermination", Object::Queue, 0, {kWaitAnything, kWaitAnything, kReleaseTwice}},
    {"QueueClose", Object::Queue, 1, {kWait, kWait, kRelease, kClose}},
    {"SemaphoreSlotReused", Object::Semaphore, 0, {kWait, kRelease, kClose, kReuse, kWaitForNext}},
    {"SemaphoreSlotReusedAndReleased",
     Object::Semaphore,
     0,
     {kWaitAnything, kClose, kReuse, kWaitForNext, kReleaseNext}},
    {"EventSlotReused", Object::Event, 0, {kWait, kRelease, kClose, kReuse, kWaitForNext}},
    {"EventSlotReusedAndSet", Object::Event, 0, {kWaitAnything, kClose, kReuse, kWaitForNext, kReleaseNext}},
    {"RegionSlotReused", Object::Region, 0, {kEnterTwice, kSection, kClose, kReuse, kSectionInNext}},
    {"QueueSlotReused", Object::Queue, 1, {kWait, kRelease, kClose, kReuse, kWaitForNext}},
    {"QueueSlotReusedAndPostedTo",
     Object::Queue,
     0,
     {kWaitAnything, kClose, kReuse, kWaitForNext, kReleaseNext}},
};

const Scenario kWrong[] = {
    {"NoSecondTry", Object::Semaphore, 0, {kWait, kRelease}, {.noSecondTry = true}},
    {"CountsLate", Object::Semaphore, 0, {kWait, kRelease}, {.countsLate = true}},
    {"LooksForWaitersFirst", Object::Event, 0, {kWait, kRelease}, {.looksForWaitersFirst = true}},
    {"RegionLooksForWaitersFirst", Object::Region, 0, {kSection, kSection}, {.looksForWaitersFirst = true}},
    {"DoesNotHandOn", Object::Semaphore, 0, {kWaitTerminable, kWait, kRelease}, {.doesNotHandOn = true}},
    {"CloseWakesOne", Object::Semaphore, 0, {kWait, kWait, kClose}, {.closeWakesOne = true}},
    {"LooksAtIdBefore", Object::Semaphore, 0, {kRelease, kClose, kReuse}, {.looksAtIdBefore = true}},
    {"CountsWithoutProof", Object::Region, 0, {kEnterTwice, kClose, kReuse}, {.countsWithoutProof = true}},
    {"QueueClosesWithoutLock", Object::Queue, 0, {kRelease, kClose}, {.closesWithoutLock = true}},
};

std::string NameOf(const testing::TestParamInfo<Scenario>& info) {
    return info.param.name;
}

class RightProtocol : public testing::TestWithParam<Scenario> {};
class WrongProtocol : public testing::TestWithParam<Scenario> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(Model, RightProtocol, testing::ValuesIn(kRight), NameOf);
INSTANTIATE_TEST_SUITE_P(Model, WrongProtocol, testing::ValuesIn(kWrong), NameOf);

TEST_P(RightProtocol, HoldsInEveryInterleaving) {
    Explorer explorer(GetParam());
    EXPECT_EQ(explorer.Run(), "");
    EXPECT_GT(explorer.Worlds(), 100u);
    RecordProperty("worlds", static_cast<int>(explorer.Worlds()));
}

TEST_P(WrongProtocol, IsFoundOut) {
    Explorer explorer(GetParam());
    EXPECT_NE(explorer.Run(), "");
}
