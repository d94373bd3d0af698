// Runs a scenario of the model through every interleaving.
#pragma once

#include "platform/multiprocessing_model.h"

#include <set>
#include <string>
#include <vector>

namespace model {

class Explorer {
public:
    explicit Explorer(const Scenario& scenario) : scenario_(scenario) {}

    // What went wrong in some interleaving, "" for nothing.
    std::string Run() {
        World start;
        start.value = start.messages = scenario_.value;
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
        for (size_t i = 0; i < scenario_.threads.size(); i++) {
            const Thread& thread = world.threads[i];
            uint8_t id = scenario_.threads[i].id;
            bool notBegun = thread.step == Begin && id > world.published;
            if (thread.step != Asleep && thread.step != Done && thread.step != Dead && !notBegun) {
                Fail("a thread is stuck");
            }
            bool available = scenario_.object == Object::Region ? world.value == 0 : world.value != 0;
            if (thread.step == Asleep && (world.id != id || available)) {
                Fail("a waiter sleeps for ever");
            }
            asleep += thread.step == Asleep;
        }
        if (world.waiters != asleep) {
            Fail("the number of waiters is wrong");
        }
        CheckCounts(world);
    }

    void CheckCounts(const World& world) {
        uint8_t id = world.id;
        bool counts = scenario_.object == Object::Semaphore || scenario_.object == Object::Queue;
        uint8_t initial = id == 1 ? scenario_.value : 0;
        if (counts && id != 0 && initial + world.released[id] != world.taken[id] + world.value) {
            Fail("the count is not conserved");
        }
        if (scenario_.object == Object::Queue && id != 0 && world.messages != world.value) {
            Fail("a queue's number is not that of its messages");
        }
        if (id == 2 && world.reentries != 0) {
            Fail("entries of the last object are counted for the next");
        }
    }

    enum class Taken { Yes, NotYet, Gone };
    Taken Take(World& world, size_t index) const {
        uint8_t id = scenario_.threads[index].id;
        if (world.id != id) {
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
        world.taken[id]++;
        return Taken::Yes;
    }

    // Where a try goes on, at once or, when a queue seems to have a message, under the lock.
    void Try(World& world, size_t index) const {
        Thread& thread = world.threads[index];
        bool isQueue = scenario_.object == Object::Queue;
        if (isQueue && world.id == scenario_.threads[index].id && world.value != 0) {
            thread.step = LockToTake;
            return;
        }
        AfterTry(thread,
                 isQueue && world.id == scenario_.threads[index].id ? Taken::NotYet : Take(world, index),
                 scenario_.threads[index].role);
    }

    void AfterTry(Thread& thread, Taken taken, Role role) const {
        if (taken != Taken::NotYet || thread.late != 0) {
            if (thread.counted != 0) {
                thread.step = CountOut;
            } else {
                Finish(thread, role);
            }
        } else if (thread.counted == 0) {
            thread.step = CountIn;
        } else {
            thread.step = scenario_.mistakes.countsLate ? LateNote : Sleep;
        }
    }

    // One operation is over; the next one, or the second half of entering and leaving.
    void Finish(Thread& thread, Role role) const {
        thread.late = 0;
        if (thread.holds != 0) {
            thread.step = role == Role::EnterTwice                  ? CountEntry
                          : scenario_.mistakes.looksForWaitersFirst ? LookForWaiters
                                                                    : Change;
            return;
        }
        thread.timesLeft--;
        thread.step = thread.timesLeft != 0 ? Begin : Done;
    }

    void Wake(World world, size_t waker, bool all, Step next) {
        bool any = false;
        auto resume = [&](World& after) {
            Thread& thread = after.threads[waker];
            if (next != Done) {
                thread.step = next;
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
        if (thread.step == Begin && plan.id > world.published && plan.role != Role::Reuse) {
            return false; // nobody knows of it yet
        }
        switch (thread.step) {
        case Begin:
            if (plan.role == Role::Reuse) {
                if (world.returned == 0) {
                    return false;
                }
                thread.step = Prepare;
                return Advance(world, index);
            }
            if (plan.role == Role::Release || plan.role == Role::Close) {
                thread.step = FirstStepOfChange(plan.role);
                return Advance(world, index);
            }
            Try(world, index);
            break;
        case CountIn:
            world.waiters++;
            thread.counted = 1;
            thread.step = mistakes.noSecondTry ? LateNote : mistakes.countsLate ? SecondTry : Note;
            break;
        case Note:
            thread.seen = world.wakeups;
            thread.step = SecondTry;
            break;
        case SecondTry:
            Try(world, index);
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
            thread.late = 1;
            Try(world, index);
            break;
        case CountOut:
            world.waiters--;
            thread.counted = 0;
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
            } else if (plan.role == Role::Close) {
                thread.step = ReturnSlot;
            } else {
                Finish(thread, plan.role);
            }
            break;
        case RaiseWakeups:
            world.wakeups++;
            thread.step = WakeSleepers;
            break;
        case WakeSleepers:
            Wake(world, index, plan.role == Role::Close && !mistakes.closeWakesOne,
                 plan.role == Role::Close ? ReturnSlot : Done);
            return true;
        case ReturnSlot:
            if (world.messages != 0) {
                Fail("a message is left in the slot");
            }
            world.returned = 1;
            if (world.lock == index + 1) {
                thread.back = Done;
                thread.step = Unlock;
            } else {
                Finish(thread, plan.role);
            }
            break;
        case BlindChange:
            world.value++;
            world.released[plan.id]++;
            thread.step = LookForWaiters;
            break;
        case CountEntry:
        case CountExit:
            CountEntries(world, index);
            break;
        case LockToTake:
        case LockToPost:
        case LockToClose:
            if (world.lock != 0) {
                return false;
            }
            world.lock = static_cast<uint8_t>(index + 1);
            thread.step = static_cast<uint8_t>(thread.step + 1);
            break;
        case TakeMessage:
        case TakeNumber:
        case PostMessage:
        case PostNumber:
        case DropMessages:
        case Unlock:
            AdvanceUnderLock(world, index);
            break;
        case Prepare:
            world.returned = 0;
            world.detailID = plan.id;
            world.reentries = 0;
            thread.step = Publish;
            break;
        case Publish:
            world.id = world.published = plan.id;
            world.value = 0;
            Finish(thread, plan.role);
            break;
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

    Step FirstStepOfChange(Role role) const {
        if (scenario_.object == Object::Queue) {
            return role == Role::Release                  ? LockToPost
                   : scenario_.mistakes.closesWithoutLock ? DropMessages
                                                          : LockToClose;
        }
        return scenario_.mistakes.looksForWaitersFirst ? LookForWaiters : Change;
    }

    void ChangeObject(World& world, size_t index) {
        const ThreadPlan& plan = scenario_.threads[index];
        Thread& thread = world.threads[index];
        bool mine = world.id == plan.id;
        bool look = mine;
        thread.step = scenario_.mistakes.looksForWaitersFirst ? RaiseWakeups : LookForWaiters;
        if (!mine) {
            thread.holds = 0;
        } else if (plan.role == Role::Close) {
            world.id = 0;
        } else if (scenario_.object == Object::Region) {
            if (world.value != index + 1) {
                Fail("someone else is inside");
            }
            world.value = 0;
            thread.holds = 0;
        } else if (scenario_.object == Object::Semaphore && scenario_.mistakes.looksAtIdBefore) {
            thread.step = BlindChange;
        } else if (scenario_.object == Object::Semaphore) {
            world.value++;
            world.released[plan.id]++;
        } else {
            look = world.value == 0;
            world.value = 1;
        }
        if (scenario_.mistakes.looksForWaitersFirst) {
            look = look && thread.hadOne == 2;
            thread.hadOne = 0;
        }
        if (!look && world.lock == index + 1) {
            thread.back = Done;
            thread.step = Unlock;
        } else if (!look) {
            Finish(thread, plan.role);
        }
        Reach(world);
    }

    // The holder of a region enters it again, and takes that back.
    void CountEntries(World& world, size_t index) const {
        const ThreadPlan& plan = scenario_.threads[index];
        Thread& thread = world.threads[index];
        bool proved = world.detailID == plan.id || scenario_.mistakes.countsWithoutProof;
        if (thread.step == CountEntry && proved) {
            world.reentries++;
            thread.step = CountExit;
            return;
        }
        if (thread.step == CountExit && proved) {
            world.reentries--;
        }
        thread.step = Change;
    }

    void AdvanceUnderLock(World& world, size_t index) {
        const ThreadPlan& plan = scenario_.threads[index];
        Thread& thread = world.threads[index];
        switch (thread.step) {
        case TakeMessage: {
            Taken taken = world.id != plan.id ? Taken::Gone : world.value == 0 ? Taken::NotYet : Taken::Yes;
            if (taken == Taken::Yes) {
                world.messages--;
                thread.step = TakeNumber;
            } else {
                LeaveLock(thread, taken);
            }
            break;
        }
        case TakeNumber:
            world.value--;
            world.taken[plan.id]++;
            LeaveLock(thread, Taken::Yes);
            break;
        case PostMessage:
            thread.step = world.id == plan.id ? PostNumber : Unlock;
            thread.back = Done;
            world.messages += world.id == plan.id;
            break;
        case PostNumber:
            world.value++;
            world.released[plan.id]++;
            thread.step = Unlock;
            thread.back = LookForWaiters;
            break;
        case DropMessages:
            world.messages = 0;
            thread.step = Change;
            break;
        default:
            LeaveUnlocked(world, index);
        }
    }

    // Remembers over the unlocking how a try to take a message ended.
    static void LeaveLock(Thread& thread, Taken taken) {
        thread.step = Unlock;
        thread.back = taken == Taken::Yes ? CountOut : taken == Taken::Gone ? Dead : Sleep;
    }

    void LeaveUnlocked(World& world, size_t index) const {
        Thread& thread = world.threads[index];
        Role role = scenario_.threads[index].role;
        world.lock = 0;
        if (role == Role::Wait) {
            AfterTry(thread,
                     thread.back == CountOut ? Taken::Yes
                     : thread.back == Dead   ? Taken::Gone
                                             : Taken::NotYet,
                     role);
        } else if (thread.back == LookForWaiters) {
            thread.step = LookForWaiters;
        } else {
            Finish(thread, role);
        }
        thread.back = 0;
    }

    const Scenario& scenario_;
    std::set<std::string> seen_;
    std::vector<World> toVisit_;
    std::string failure_;
};

} // namespace model
