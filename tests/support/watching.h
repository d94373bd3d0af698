// Shows a test the calls of one operation of the seam as they are made, with their arguments; in executables
// made by tavport_add_fault_tests.
//
//     faults::Watch<decltype(FSOpenFork)> watch("FSOpenFork", [&](auto...) { ++opened; });
//
// The test may look, act as others would at that moment, or fill in what a call that is failed leaves
// unfilled. Calls that the provider makes on the way, or the test from there, are not shown. One at a time for
// operations of one type.
#pragma once

#include <functional>
#include <string_view>
#include <utility>

namespace faults {

template <typename Type>
class Watch;

template <typename Result, typename... Arguments>
class Watch<Result(Arguments...)> {
public:
    Watch(std::string_view operation, std::function<void(Arguments...)> see)
        : operation_(operation), see_(std::move(see)) {
        current = this;
    }
    ~Watch() { current = nullptr; }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // Called by the forwarding layer before the operation itself.
    static void Show(std::string_view operation, Arguments... arguments) {
        if (current && current->operation_ == operation) current->see_(arguments...);
    }

private:
    static inline Watch* current = nullptr;

    std::string_view operation_;
    std::function<void(Arguments...)> see_;
};

} // namespace faults
