// Counted faults at the seam. In executables made by tavport_add_fault_tests every platform operation and
// every allocation goes through a forwarding layer, which can fail the n-th call, tells which calls were made
// in which order, and counts the objects that are open.
//
//     faults::Injection fault({.call = 2, .code = dskFulErr, .operation = "FSWriteFork"});
//     OSErr result = CopyOneFork(...);              // only the code under test between here and the checks
//     EXPECT_EQ(fault.fired(), 1u);
//     EXPECT_EQ(fault.log(), (std::vector<std::string>{"FSReadFork", "FSWriteFork", ...}));
//
// Calls that the provider makes on the way to answer one operation are not counted; allocations are, also
// those. While an injection lasts, allocations of the test itself count too: keep preparation and checks
// outside, or put them behind a Pause. Injections do not nest.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace faults {

enum class Effect {
    kNone,    // the failing call does nothing
    kPartial, // a failing read or write moves half of its bytes first; others do nothing
};

// What is to fail. A failing status operation gives `code`, one that gives a pointer or a handle null, a
// Boolean one 0, an allocation null or bad_alloc. Calls that close or release do so and then report the
// failure.
struct Fault {
    unsigned call = 0; // the n-th call from now, from 1, of those that `operation` selects; 0: none
    int code = -36;
    bool lasting = false; // that call and all later ones
    Effect effect = Effect::kNone;
    std::string operation = {}; // "": every operation and allocation; "memory": allocations; "seam":
                                // operations; else a name ("FSOpenFork", "malloc", "operator new")
};

// Has a fault in force for as long as it lives; without one it only watches.
class Injection {
public:
    Injection() : Injection(Fault()) {}
    explicit Injection(const Fault& fault);
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;

    unsigned fired() const;      // calls failed so far
    std::string firedAt() const; // the operation failed last, "" for none
    unsigned calls(const std::string& operation) const;
    std::vector<std::string>
    log() const;                       // the seam operations in the order of the calls, without allocations
    std::vector<size_t> sizes() const; // of the blocks asked for, in the order of the calls
};

// Lets everything through, uncounted, for as long as it lives (all threads).
class Pause {
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
};

// What was made through the seam and not given back yet. `heap` counts blocks that were allocated
// under an injection, outside the provider.
struct OpenObjects {
    long forks = 0;
    long iterators = 0;
    long strings = 0; // and other objects of the string service's family
    long blocks = 0;  // NewPtr
    long registry = 0;
    long waitables = 0; // regions, semaphores, events, queues
    long heap = 0;
    bool operator==(const OpenObjects&) const = default;
};
OpenObjects Open();
std::ostream& operator<<(std::ostream& stream, const OpenObjects& objects);

// Runs a scenario with its first call failing, then its second and so on, until a run meets no fault any
// more; gives the number of runs that did.
//   prepare    makes the starting state, before each run
//   scenario   only the calls under test
//   check      is told what failed ("" in the last run), after each run; must take down what prepare and
//   scenario made
// Expects the open objects to be the same before prepare and after check. A first run without fault fills
// caches.
struct Sweep {
    Fault fault = {};
    std::function<void()> prepare = [] {};
    std::function<void()> scenario;
    std::function<void(const std::string& failed)> check = [](const std::string&) {};
};
unsigned FailEachCall(const Sweep& sweep);

} // namespace faults
