// A model of the waiting protocol (platform/linux/multiprocessing_wait.h) and of the four objects built on
// it, run through every interleaving of a few threads. A step is one access to memory that others see, or one
// futex call; what is under a lock is taken in steps, too. All accesses of the protocol are sequentially
// consistent, so there is nothing beyond the interleavings. Sleepers may be woken for no reason, time out and
// be terminated at any moment; the slot of a closed object may get the next one while others still mean the
// last. Protocols with a known mistake are run as well: the model has to find it.
#pragma once

#include <array>
#include <ostream>
#include <string>
#include <vector>

namespace model {

enum class Object { Semaphore, Event, Region, Queue };

// What a thread does, over and over.
enum class Role : uint8_t { None, Wait, Release, EnterAndLeave, EnterTwice, Close, Reuse };

struct ThreadPlan {
    Role role = Role::None;
    uint8_t times = 1;
    bool hasLimit = false;   // sleeps may time out
    bool terminable = false; // may be terminated while it sleeps
    uint8_t id = 1;          // the object that it means; 2 is the next one in the same slot
};

// The protocol's steps that can be left out, to see that the model notices.
struct Mistakes {
    bool noSecondTry = false; // sleeps without trying again after it has counted itself
    bool countsLate = false;  // notes the number of wakeups only after the second try
    bool looksForWaitersFirst = false;
    bool doesNotHandOn = false; // a terminated waiter keeps its wakeup
    bool closeWakesOne = false;
    bool looksAtIdBefore = false;    // and then changes the value of whatever is in the slot
    bool countsWithoutProof = false; // the further entries of whatever is in the slot
    bool closesWithoutLock = false;  // a queue
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
    ReturnSlot,
    BlindChange,
    // Entering again
    CountEntry,
    CountExit,
    // Under the lock of the queues
    LockToTake,
    TakeMessage,
    TakeNumber,
    LockToPost,
    PostMessage,
    PostNumber,
    LockToClose,
    DropMessages,
    Unlock,
    // A new object in the slot
    Prepare,
    Publish,
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
    uint8_t seen = 0;    // wakeups
    uint8_t holds = 0;   // the region, so many times
    uint8_t hadOne = 0;  // looksForWaitersFirst: what it saw
    uint8_t back = 0;    // the step after the one under the lock
    uint8_t counted = 0; // among the waiters
    uint8_t late = 0;    // its time is up
};

// What the threads share: a slot.
struct World {
    uint8_t id = 1; // with the value one word; 0 when nothing is in the slot
    uint8_t value = 0;
    uint8_t detailID = 1; // with the further entries one word
    uint8_t reentries = 0;
    uint8_t wakeups = 0;
    uint8_t waiters = 0;
    uint8_t messages = 0;
    uint8_t lock = 0;      // the thread that holds it, counted from 1
    uint8_t returned = 0;  // the slot may be used again
    uint8_t published = 1; // the last id that has been given out
    uint8_t taken[3] = {}; // from the object with this id, by all threads
    uint8_t released[3] = {};
    std::array<Thread, kMostThreads> threads;

    std::string Key() const { return {reinterpret_cast<const char*>(this), sizeof *this}; }
};
static_assert(sizeof(World) == 16 + 8 * kMostThreads); // no padding, so that the bytes are a key

} // namespace model
