// Counted faults beneath the provider. In the executable made from tests/host_faults every function of the
// system that platform/linux calls goes through a forwarding layer, made from host_calls.txt, in which the
// n-th call can fail with any of the errors that are plausible for it, be interrupted, or move less than it
// was asked to.
//
//     host_faults::Scenario scenario;
//     scenario.prepare = [&] { WriteFile(folder / "f", "content"); };
//     scenario.act = [&] { return "delete " + std::to_string(FSDeleteObject(&ref)); };
//     scenario.look = [&] { return TreeAt(folder.path()); };
//     host_faults::InterruptEachCall(scenario);
//     host_faults::FailEachCall(scenario);
#pragma once

#include <functional>
#include <string>

namespace host_faults {

// What a run with a failing call came to.
struct Outcome {
    std::string failed; // "openat: Input/output error"
    std::string result; // what the scenario told
    std::string state;  // what there was to see afterwards
};

struct Scenario {
    std::function<void()> prepare = [] {}; // makes the starting state, also out of what a run left
    std::function<std::string()> act; // the calls under test; tells their results, failures as "error …"
    std::function<std::string()> look = [] { return std::string(); }; // tells the state

    // In how many ways each call fails, for scenarios of very many calls; all ways come up in them in turn.
    unsigned mostWays = 100;

    // Whether an outcome is right that is neither the undisturbed one nor a failure without effect.
    std::function<bool(const Outcome&)> accepts = [](const Outcome&) { return false; };
};

// Runs the scenario with every call failing in turn, in every way that is plausible for it. Each time the
// result must be the undisturbed one with the undisturbed state, or an error with the state as it was before;
// no descriptor may be left open, and the scenario must work undisturbed right after each call's first failure.
// Gives the number
// of runs with a failure.
unsigned FailEachCall(const Scenario& scenario);

// Runs the scenario with every call that signals may interrupt interrupted in turn, and with every call that
// may move less than asked for moving half: result and state must be the undisturbed ones. Gives the number
// of runs with such a call.
unsigned InterruptEachCall(const Scenario& scenario);

// Everything in a folder as text: names, kinds, modes, link texts, contents and attributes.
std::string TreeAt(const std::string& folder);

} // namespace host_faults
