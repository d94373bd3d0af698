// A model of the waiting protocol (platform/linux/multiprocessing_wait.h) and of the three objects built on
// it, run through every interleaving of a few threads. A step is one access to memory that others see, or one
// futex call. All accesses of the protocol are sequentially consistent, so there is nothing beyond the
// interleavings. Sleepers may be woken for no reason, time out and be terminated at any moment. Protocols
// with a known mistake are run as well: the model has to find it.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace {

enum class Object { Semaphore, Event, Region };

// What a thread does, over and over.
enum class Role : uint8_t { None, Wait, Release, EnterAndLeave, Close };

struct ThreadPlan {
    Role role = Role::None;
    uint8_t times = 1;
    bool hasLimit = false;   // sleeps may time out
    bool terminable = false; // may be terminated while it sleeps
};

// The protocol's steps that can be left out, to see that the model notices.
struct Mistakes {
    bool noSecondTry = false; // sleeps without trying again after it has counted itself
    bool countsLate = false;  // notes the number of wakeups only after the second try
    bool looksForWaitersFirst = false;
    bool doesNotHandOn = false; // a terminated waiter keeps its wakeup
    bool closeWakesOne = false;
};

struct Scenario {
    const char* name;
    Object object;
    uint8_t value; // at the beginning
    std::vector<ThreadPlan> threads;
    Mistakes mistakes = {};
};

std::ostream& operator<<(std::ostream& stream, const Scenario& scenario) {
    return stream << scenario.name;
}

enum Step : uint8_t {
    Begin,
    // Waiting
    CountIn,
    Note,
    SecondTry,
    LateNote,
    Sleep,
    Asleep,
    Woken,
    LastTry,
    CountOut,
    // Releasing and closing
    Change,
    LookForWaiters,
    RaiseWakeups,
    WakeSleepers,
    // Being terminated
    AbandonCount,
    AbandonRaise,
    AbandonWake,
    Done,
    Dead
};

constexpr size_t kMostThreads = 5;

struct Thread {
    uint8_t step = Begin;
    uint8_t timesLeft = 0;
    uint8_t seen = 0;   // wakeups
    uint8_t holds = 0;  // the region
    uint8_t hadOne = 0; // looksForWaitersFirst: what it saw
};

struct World {
    uint8_t value = 0;
    uint8_t alive = 1;
    uint8_t wakeups = 0;
    uint8_t waiters = 0;
    uint8_t taken = 0; // semaphore: by all threads
    uint8_t released = 0;
    std::array<Thread, kMostThreads> threads;

    std::string Key() const { return {reinterpret_cast<const char*>(this), sizeof *this}; }
};
static_assert(sizeof(World) == 6 + 5 * kMostThreads); // no padding, so that the bytes are a key

class Explorer {
public:
    explicit Explorer(const Scenario& scenario) : scenario_(scenario) {}

    // What went wrong in some interleaving, "" for nothing.
    std::string Run() {
        World start;
        start.value = scenario_.value;
        for (size_t i = 0; i < scenario_.threads.size(); i++) {
            start.threads[i].timesLeft = scenario_.threads[i].times;
        }
        Reach(start);
        while (!toVisit_.empty() && failure_.empty()) {
            World world = toVisit_.back();
            toVisit_.pop_back();
            bool moved = false;
            for (size_t i = 0; i < scenario_.threads.size(); i++) {
                moved |= Advance(world, i);
            }
            if (!moved) {
                CheckEnd(world);
            }
        }
        return failure_;
    }

    size_t Worlds() const { return seen_.size(); }

private:
    void Reach(const World& world) {
        if (seen_.insert(world.Key()).second) {
            toVisit_.push_back(world);
        }
    }

    void Fail(const char* what) {
        if (failure_.empty()) {
            failure_ = what;
        }
    }

    // Nobody can go on: those who sleep must have nothing to wake up for.
    void CheckEnd(const World& world) {
        uint8_t asleep = 0;
        for (const Thread& thread : world.threads) {
            asleep += thread.step == Asleep;
        }
        bool available = scenario_.object == Object::Region ? world.value == 0 : world.value != 0;
        if (asleep != 0 && (available || world.alive == 0)) {
            Fail("a waiter sleeps for ever");
        }
        if (world.waiters != asleep) {
            Fail("the number of waiters is wrong");
        }
        if (scenario_.object == Object::Semaphore && world.alive != 0 &&
            scenario_.value + world.released != world.taken + world.value) {
            Fail("the count is not conserved");
        }
    }

    enum class Taken { Yes, NotYet, Gone };
    Taken Take(World& world, size_t index) const {
        if (world.alive == 0) {
            return Taken::Gone;
        }
        if (scenario_.object == Object::Region) {
            if (world.value != 0) {
                return Taken::NotYet;
            }
            world.value = static_cast<uint8_t>(index + 1);
            world.threads[index].holds = 1;
            return Taken::Yes;
        }
        if (world.value == 0) {
            return Taken::NotYet;
        }
        world.value = scenario_.object == Object::Semaphore ? world.value - 1 : 0;
        world.taken++;
        return Taken::Yes;
    }

    // One operation is over; the next one, or the second half of entering and leaving.
    void Finish(Thread& thread, Role role) const {
        if (role == Role::EnterAndLeave && thread.holds != 0) {
            thread.step = scenario_.mistakes.looksForWaitersFirst ? LookForWaiters : Change;
            return;
        }
        thread.timesLeft--;
        thread.step = thread.timesLeft != 0 ? Begin : Done;
    }

    void Wake(World world, size_t waker, bool all, Step next) {
        bool any = false;
        auto resume = [&](World& after) {
            Thread& thread = after.threads[waker];
            if (next == Dead) {
                thread.step = Dead;
            } else {
                Finish(thread, scenario_.threads[waker].role);
            }
        };
        if (all) {
            for (Thread& thread : world.threads) {
                if (thread.step == Asleep) {
                    thread.step = Woken;
                }
            }
        } else {
            for (size_t i = 0; i < scenario_.threads.size(); i++) {
                if (world.threads[i].step == Asleep) {
                    World after = world;
                    after.threads[i].step = Woken;
                    resume(after);
                    Reach(after);
                    any = true;
                }
            }
        }
        if (!any) {
            resume(world);
            Reach(world);
        }
    }

    // False when the thread can do nothing of itself.
    bool Advance(const World& before, size_t index) {
        const ThreadPlan& plan = scenario_.threads[index];
        const Mistakes& mistakes = scenario_.mistakes;
        World world = before;
        Thread& thread = world.threads[index];
        switch (thread.step) {
        case Begin:
            if (plan.role == Role::Release || plan.role == Role::Close) {
                thread.step = mistakes.looksForWaitersFirst ? LookForWaiters : Change;
                return Advance(world, index);
            }
            if (Take(world, index) == Taken::NotYet) {
                thread.step = CountIn;
            } else {
                Finish(thread, plan.role);
            }
            break;
        case CountIn:
            world.waiters++;
            thread.step = mistakes.noSecondTry ? LateNote : mistakes.countsLate ? SecondTry : Note;
            break;
        case Note:
            thread.seen = world.wakeups;
            thread.step = SecondTry;
            break;
        case SecondTry:
            thread.step = Take(world, index) != Taken::NotYet ? CountOut
                          : mistakes.countsLate               ? LateNote
                                                              : Sleep;
            break;
        case LateNote:
            thread.seen = world.wakeups;
            thread.step = Sleep;
            break;
        case Sleep:
            thread.step = world.wakeups == thread.seen ? Asleep : Woken;
            break;
        case Asleep:
            return AdvanceSleeper(world, index);
        case Woken:
            if (plan.terminable) {
                World terminated = world;
                terminated.threads[index].step = AbandonCount;
                Reach(terminated);
            }
            thread.step = mistakes.countsLate || mistakes.noSecondTry ? SecondTry : Note;
            break;
        case LastTry:
            Take(world, index);
            thread.step = CountOut;
            break;
        case CountOut:
            world.waiters--;
            Finish(thread, plan.role);
            break;
        case Change:
            ChangeObject(world, index);
            return true;
        case LookForWaiters:
            if (mistakes.looksForWaitersFirst && thread.hadOne == 0) {
                thread.hadOne = world.waiters != 0 ? 2 : 1;
                thread.step = Change;
            } else if (world.waiters != 0) {
                thread.step = RaiseWakeups;
            } else {
                Finish(thread, plan.role);
            }
            break;
        case RaiseWakeups:
            world.wakeups++;
            thread.step = WakeSleepers;
            break;
        case WakeSleepers:
            Wake(world, index, plan.role == Role::Close && !mistakes.closeWakesOne, Done);
            return true;
        case AbandonCount:
            world.waiters--;
            thread.step = world.waiters != 0 && !mistakes.doesNotHandOn ? AbandonRaise : Dead;
            break;
        case AbandonRaise:
            world.wakeups++;
            thread.step = AbandonWake;
            break;
        case AbandonWake:
            Wake(world, index, false, Dead);
            return true;
        default:
            return false;
        }
        Reach(world);
        return true;
    }

    // What may happen to a sleeper of itself; that it may wake for no reason is no progress to count on.
    bool AdvanceSleeper(const World& world, size_t index) {
        const ThreadPlan& plan = scenario_.threads[index];
        auto goTo = [&](Step step) {
            World after = world;
            after.threads[index].step = step;
            Reach(after);
        };
        goTo(Woken);
        if (plan.hasLimit) {
            goTo(LastTry);
        }
        if (plan.terminable) {
            goTo(AbandonCount);
        }
        return plan.hasLimit;
    }

    void ChangeObject(World& world, size_t index) {
        const ThreadPlan& plan = scenario_.threads[index];
        Thread& thread = world.threads[index];
        bool look = world.alive != 0;
        if (plan.role == Role::Close) {
            world.alive = 0;
        } else if (world.alive == 0) {
            thread.holds = 0;
        } else if (scenario_.object == Object::Region) {
            if (world.value != index + 1) {
                Fail("someone else is inside");
            }
            world.value = 0;
            thread.holds = 0;
        } else if (scenario_.object == Object::Semaphore) {
            world.value++;
            world.released++;
        } else {
            look = world.value == 0;
            world.value = 1;
        }
        if (scenario_.mistakes.looksForWaitersFirst) {
            look = look && thread.hadOne == 2;
            thread.hadOne = 0;
            thread.step = RaiseWakeups;
        } else {
            thread.step = LookForWaiters;
        }
        if (!look) {
            Finish(thread, plan.role);
        }
        Reach(world);
    }

    const Scenario& scenario_;
    std::set<std::string> seen_;
    std::vector<World> toVisit_;
    std::string failure_;
};

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
};

const Scenario kWrong[] = {
    {"NoSecondTry", Object::Semaphore, 0, {kWait, kRelease}, {.noSecondTry = true}},
    {"CountsLate", Object::Semaphore, 0, {kWait, kRelease}, {.countsLate = true}},
    {"LooksForWaitersFirst", Object::Event, 0, {kWait, kRelease}, {.looksForWaitersFirst = true}},
    {"RegionLooksForWaitersFirst", Object::Region, 0, {kSection, kSection}, {.looksForWaitersFirst = true}},
    {"DoesNotHandOn", Object::Semaphore, 0, {kWaitTerminable, kWait, kRelease}, {.doesNotHandOn = true}},
    {"CloseWakesOne", Object::Semaphore, 0, {kWait, kWait, kClose}, {.closeWakesOne = true}},
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
