// The end of a process in which a thread still uses the library: what the library remembers may go, but no call
// may meet it half gone.
#include "platform/linux/media.h"
#include "platform/linux/volume_list.h"
#include "support/processes.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

std::atomic<unsigned> calls = 0;

// Runs after the static destructors and those of the library's destructors that have no number: lets the thread
// make some more calls.
[[gnu::destructor(103)]] void LetTheThreadGoOn() {
    const unsigned before = calls;
    while (before != 0 && calls - before < 100) std::this_thread::yield();
}

// The thread that ends the process finds what was remembered by then.
int EndWhileAnotherThreadCalls(void (*call)()) {
    std::thread([call] {
        for (;; ++calls) call();
    }).detach();
    while (calls < 10) std::this_thread::yield();
    std::exit(0);
}

// One that is remembered, if the machine has any.
void FindSomeMedia() {
    std::error_code error;
    const std::filesystem::directory_iterator first("/sys/class/block", error);
    const bool isNone = error || first == std::filesystem::directory_iterator();
    FindMedia(isNone ? "none" : first->path().filename().string());
}

} // namespace

TEST(ProcessEnd, WhileAThreadListsVolumes_IsOrderly) {
    EXPECT_EQ(RunInChild([] { return EndWhileAnotherThreadCalls([] { CurrentVolumes(); }); }), 0);
}

TEST(ProcessEnd, WhileAThreadLooksForMedia_IsOrderly) {
    EXPECT_EQ(RunInChild([] { return EndWhileAnotherThreadCalls(FindSomeMedia); }), 0);
}
