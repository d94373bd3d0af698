// What destructors of thread keys and thread-local objects may do after a task's entry has returned: the task
// has ended, so nothing ends it a second time, while its thread goes on.
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_tasks.h"
#include "support/forced_end.h"
#include "support/processes.h"
#include "support/running_task.h"

#include <atomic>
#include <functional>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr OSStatus kReturned = 5;

void (*inDestructor)() = nullptr;
std::atomic<int> runs = 0;
std::atomic<pid_t> thread = 0;

void RunInDestructor(void*) {
    runs++;
    inDestructor();
}

pthread_key_t key = [] {
    pthread_key_t made = 0;
    pthread_key_create(&made, RunInDestructor);
    return made;
}();

struct HasDestructor {
    ~HasDestructor() {
        if (armed) {
            RunInDestructor(nullptr);
        }
    }
    bool armed = false;
};

OSStatus LeaveInKey(void*) {
    thread = gettid();
    pthread_setspecific(key, &key);
    return kReturned;
}

OSStatus LeaveInThreadLocal(void*) {
    static thread_local HasDestructor object;
    thread = gettid();
    object.armed = true;
    return kReturned;
}

struct Act {
    const char* name;
    void (*act)();
};

std::atomic<int> childStatus = 0;

int UseEverything() {
    RunningTask task([](void*) { return OSStatus{7}; }, nullptr);
    MPEventID event = 0;
    return task.Result() == 7 && MPCreateEvent(&event) == noErr && MPSetEvent(event, 1) == noErr &&
                   MPWaitForEvent(event, nullptr, 0) == noErr && MPDeleteEvent(event) == noErr
               ? 42
               : 1;
}

constexpr Act kActs[] = {
    {"Exits", [] { MPExit(9); }},
    {"TerminatesItself", [] { childStatus = MPTerminateTask(MPCurrentTaskID(), 9); }},
    {"Forks", [] { childStatus = RunInChild(UseEverything); }},
    {"UsesTheService", [] { childStatus = UseEverything(); }},
};

class Destructor : public ForcedEnd, public testing::WithParamInterface<Act> {
protected:
    static void RunTaskTo(TaskProc entry) {
        inDestructor = GetParam().act;
        RunningTask task(entry, nullptr);
        EXPECT_EQ(task.Result(), kReturned);
        while (StateOf(thread) != '?') {
            std::this_thread::yield();
        }
        EXPECT_EQ(runs, 1);
        EXPECT_FALSE(task.HasAnotherMessage());
        EXPECT_EQ(MPTerminateTask(task.Id(), 1), kMPInvalidIDErr);
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Acts, Destructor, testing::ValuesIn(kActs),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(Destructor, OfAKeyDoesNotEndTheTaskAgain) {
    for (int i = 0; i < 20; i++) {
        runs = 0;
        RunTaskTo(LeaveInKey);
    }
    ReleaseEndedTasks();
    EXPECT_EQ(CountObjects(), 0u);
}

TEST_P(Destructor, OfAThreadLocalObjectDoesNotEndTheTaskAgain) {
    if (kAddressSanitizer && std::string(GetParam().name) == "Exits") {
        GTEST_SKIP() << "the C library's note of a destructor that does not return is taken for a leak";
    }
    RunTaskTo(LeaveInThreadLocal);
    ReleaseEndedTasks();
    EXPECT_EQ(CountObjects(), 0u);
}

TEST_F(ForcedEnd, DestructorsThatTerminateTheirTaskAreRefused) {
    inDestructor = kActs[1].act;
    RunningTask task(LeaveInKey, nullptr);
    EXPECT_EQ(task.Result(), kReturned);
    while (StateOf(thread) != '?') {
        std::this_thread::yield();
    }
    EXPECT_EQ(childStatus, kMPInvalidIDErr);
}

TEST_F(ForcedEnd, ChildForkedByADestructorIsWhole) {
    inDestructor = kActs[2].act;
    RunningTask task(LeaveInKey, nullptr);
    EXPECT_EQ(task.Result(), kReturned);
    while (StateOf(thread) != '?') {
        std::this_thread::yield();
    }
    EXPECT_EQ(childStatus, 42);
}
