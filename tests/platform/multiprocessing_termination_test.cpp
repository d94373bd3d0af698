// How tasks end that do not return. Left out under the thread sanitizer, which takes a thread that leaves by
// the kernel's exit call for one that still runs and waits for it for ever.
#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_tasks.h"
#include "platform/process.h"
#include "support/forced_end.h"
#include "support/processes.h"
#include "support/running_task.h"
#include "support/sanitizers.h"

#include <array>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <pthread.h>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

class Termination : public ForcedEnd {};

OSStatus CallFunction(void* parameter) {
    return (*static_cast<std::function<OSStatus()>*>(parameter))();
}

// Computes for a while.
void Spin(unsigned times) {
    std::atomic<unsigned> count = 0;
    while (count.fetch_add(1, std::memory_order_relaxed) < times) {
    }
}

// Counts the handlers of the application that run when a thread ends.
std::atomic<int> handlersRun = 0;

struct CountsWhenDestroyed {
    ~CountsWhenDestroyed() { handlersRun++; }
    bool used = false;
};

void CountCleanup(void*);
pthread_key_t key = [] {
    pthread_key_t made = 0;
    pthread_key_create(&made, CountCleanup);
    return made;
}();

void CountCleanup(void*) {
    handlersRun++;
}

// Has every kind of handler in place while `body` runs.
void RunWithHandlers(const std::function<void()>& body) {
    ASSERT_EQ(pthread_setspecific(key, &key), 0);
    CountsWhenDestroyed frame;
    pthread_cleanup_push(CountCleanup, nullptr);
    if (kAddressSanitizer) {
        body(); // the C library's note of a destructor that never runs would be taken for a leak
    } else {
        static thread_local CountsWhenDestroyed threadLocal;
        threadLocal.used = true;
        body();
    }
    pthread_cleanup_pop(0);
}

// Where a task may be when its termination comes.
struct Place {
    const char* name;
    std::function<void()> stay;
};

MPSemaphoreID semaphore = 0;
MPEventID event = 0;
MPQueueID queue = 0;
MPCriticalRegionID region = 0;
std::array<int, 2> pipeEnds{};
pthread_mutex_t hostMutex = PTHREAD_MUTEX_INITIALIZER;

const std::vector<Place>& Places() {
    static const std::vector<Place> places = {
        {"Semaphore", [] { MPWaitOnSemaphore(semaphore, kDurationForever); }},
        {"SemaphoreWithLimit", [] { MPWaitOnSemaphore(semaphore, 100'000); }},
        {"Event", [] { MPWaitForEvent(event, nullptr, kDurationForever); }},
        {"Queue", [] { MPWaitOnQueue(queue, nullptr, nullptr, nullptr, kDurationForever); }},
        {"Region", [] { MPEnterCriticalRegion(region, kDurationForever); }},
        {"Asleep", [] { PlatformSleep(100'000'000); }},
        {"BlockingRead",
         [] {
             char byte = 0;
             while (read(pipeEnds[0], &byte, 1) != 1) {
             }
         }},
        {"HostMutex", [] { pthread_mutex_lock(&hostMutex); }},
        {"TightLoop",
         [] {
             for (;;) {
                 Spin(1000);
             }
         }},
        {"PollingLoop",
         [] {
             while (MPWaitOnSemaphore(semaphore, 0) != noErr) {
             }
         }},
        {"LockingLoop",
         [] {
             for (MPEventID id = 0;;) {
                 MPCreateEvent(&id);
                 MPDeleteEvent(id);
             }
         }},
    };
    return places;
}

class TerminationAt : public Termination, public testing::WithParamInterface<size_t> {
protected:
    void SetUp() override {
        Termination::SetUp();
        ASSERT_EQ(MPCreateSemaphore(1, 0, &semaphore), noErr);
        ASSERT_EQ(MPCreateEvent(&event), noErr);
        ASSERT_EQ(MPCreateQueue(&queue), noErr);
        ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
        ASSERT_EQ(MPEnterCriticalRegion(region, kDurationForever), noErr);
        ASSERT_EQ(pipe2(pipeEnds.data(), O_CLOEXEC), 0);
        pthread_mutex_lock(&hostMutex);
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Places, TerminationAt, testing::Range(size_t{0}, Places().size()),
                         [](const auto& parameter) { return Places()[parameter.param].name; });

TEST_P(TerminationAt, EndsTheTaskPromptlyOnceAndWithoutHandlers) {
    const Place& place = Places()[GetParam()];
    bool sleeps = std::string(place.name).find("Loop") == std::string::npos;
    std::atomic<pid_t> thread = 0;
    std::function<OSStatus()> body = [&] {
        RunWithHandlers([&] {
            thread = gettid();
            place.stay();
        });
        return OSStatus{1};
    };
    RunningTask task(CallFunction, &body);
    while (thread == 0 || (sleeps && StateOf(thread) != 'S')) {
        std::this_thread::yield();
    }
    ASSERT_EQ(MPTerminateTask(task.Id(), -77), noErr);
    EXPECT_EQ(task.Result(5000), -77);
    EXPECT_EQ(MPTerminateTask(task.Id(), -78), kMPInvalidIDErr);
    EXPECT_FALSE(task.HasAnotherMessage());
    ReleaseEndedTasks();
    EXPECT_EQ(handlersRun, 0);
    EXPECT_EQ(FindSlot(semaphore, ObjectKind::Semaphore)->waiters, 0u);
    EXPECT_EQ(FindSlot(event, ObjectKind::Event)->waiters, 0u);
    EXPECT_EQ(FindSlot(queue, ObjectKind::Queue)->waiters, 0u);
    EXPECT_EQ(FindSlot(region, ObjectKind::Region)->waiters, 0u);
}

TEST_F(Termination, LeavesNoKeyValuesToTheNextThread) {
    std::function<OSStatus()> keep = [] {
        pthread_setspecific(key, &key);
        MPExit(1);
        return OSStatus{0};
    };
    std::function<OSStatus()> look = [] { return OSStatus{pthread_getspecific(key) == nullptr}; };
    for (int i = 0; i < 20; i++) {
        RunningTask first(CallFunction, &keep);
        EXPECT_EQ(first.Result(), 1);
        MPDeleteQueue(first.Queue()); // the thread goes, and with it its stack for the next
        RunningTask second(CallFunction, &look);
        EXPECT_EQ(second.Result(), 1);
    }
    EXPECT_EQ(handlersRun, 0);
}

TEST_F(Termination, BeforeTheTaskHasBegunEndsIt) {
    for (int i = 0; i < 500; i++) {
        std::function<OSStatus()> body = [] {
            PlatformSleep(100'000'000);
            return OSStatus{1};
        };
        RunningTask task(CallFunction, &body);
        ASSERT_EQ(MPTerminateTask(task.Id(), 4), noErr);
        ASSERT_EQ(task.Result(), 4);
    }
}

TEST_F(Termination, AskedForTwiceReportsTheFirstStatusOnce) {
    std::atomic<bool> release = false;
    std::function<OSStatus()> body = [&] {
        TerminationHold hold;
        while (!release) {
            std::this_thread::yield();
        }
        return OSStatus{1};
    };
    RunningTask task(CallFunction, &body);
    EXPECT_EQ(MPTerminateTask(task.Id(), 11), noErr);
    EXPECT_EQ(MPTerminateTask(task.Id(), 12), noErr);
    release = true;
    EXPECT_EQ(task.Result(), 11);
    EXPECT_FALSE(task.HasAnotherMessage());
}

TEST_F(Termination, OfOneselfIsAnExit) {
    std::function<OSStatus()> body = [] {
        RunWithHandlers([] { MPTerminateTask(MPCurrentTaskID(), 21); });
        return OSStatus{1};
    };
    RunningTask task(CallFunction, &body);
    EXPECT_EQ(task.Result(), 21);
    EXPECT_EQ(handlersRun, 0);
}

TEST_F(Termination, IsHeldBackInsideAHold) {
    std::atomic<bool> inside = false;
    std::atomic<bool> release = false;
    std::atomic<bool> finished = false;
    std::atomic<bool> after = false;
    std::function<OSStatus()> body = [&] {
        {
            TerminationHold outer;
            TerminationHold inner;
            inside = true;
            while (!release) {
                std::this_thread::yield();
            }
            finished = true;
        }
        after = true;
        return OSStatus{1};
    };
    RunningTask task(CallFunction, &body);
    while (!inside) {
        std::this_thread::yield();
    }
    ASSERT_EQ(MPTerminateTask(task.Id(), 5), noErr);
    EXPECT_EQ(MPWaitOnQueue(task.Queue(), nullptr, nullptr, nullptr, 50), kMPTimeoutErr);
    release = true;
    EXPECT_EQ(task.Result(), 5);
    EXPECT_TRUE(finished);
    EXPECT_FALSE(after);
}

TEST_F(Termination, HandsAWakeUpOnToTheNextWaiter) {
    ASSERT_EQ(MPCreateSemaphore(1000, 0, &semaphore), noErr);
    std::atomic<long> taken = 0;
    std::thread bystander([&] {
        while (MPWaitOnSemaphore(semaphore, kDurationForever) == noErr) {
            taken++;
        }
    });
    std::function<OSStatus()> body = [] { return MPWaitOnSemaphore(semaphore, kDurationForever); };
    for (int i = 0; i < 500; i++) {
        RunningTask task(CallFunction, &body);
        const ObjectSlot* slot = FindSlot(semaphore, ObjectKind::Semaphore);
        while (slot->waiters.load() != 2) {
            std::this_thread::yield();
        }
        // The wake-up may go to the one that is about to end.
        ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
        MPTerminateTask(task.Id(), 0);
        task.Result();
        // Nobody sleeps beside a count that is there.
        while (StateValue(slot->state.load()) != 0 || slot->waiters.load() != 1) {
            std::this_thread::yield();
        }
    }
    ASSERT_EQ(MPDeleteSemaphore(semaphore), noErr);
    bystander.join();
}

// The threads of this test do not allocate: a lock of the C library would stay held.
TEST_F(Termination, AtTwoThousandRandomMomentsLeavesEverythingUsable) {
    ASSERT_EQ(MPCreateSemaphore(1'000'000, 0, &semaphore), noErr);
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    std::atomic<bool> done = false;
    std::thread bystander([&] {
        while (!done) {
            ASSERT_EQ(MPWaitOnSemaphore(semaphore, kDurationForever), noErr);
            ASSERT_EQ(MPSetEvent(event, 1), noErr);
        }
    });
    uint32_t baseline = CountObjects();
    unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; i++) {
        ASSERT_EQ(MPCreateCriticalRegion(&region), noErr);
        std::function<OSStatus()> body = [] {
            for (;;) {
                MPEnterCriticalRegion(region, kDurationForever);
                MPSignalSemaphore(semaphore);
                MPExitCriticalRegion(region);
                MPWaitForEvent(event, nullptr, 1);
                MPSignalSemaphore(semaphore);
                MPWaitOnSemaphore(semaphore, kDurationImmediate);
                MPWaitForEvent(event, nullptr, kDurationForever);
                MPTerminateTask(1, 0);
            }
            return OSStatus{1};
        };
        RunningTask task(CallFunction, &body);
        Spin(random() % 100'000);
        ASSERT_EQ(MPTerminateTask(task.Id(), i), noErr);
        ASSERT_EQ(task.Result(), i);
        ASSERT_FALSE(task.HasAnotherMessage());
        ASSERT_EQ(MPDeleteCriticalRegion(region), noErr);
    }
    const ObjectSlot* slot = FindSlot(semaphore, ObjectKind::Semaphore);
    while (StateValue(slot->state.load()) != 0) {
        std::this_thread::yield();
    } // nobody sleeps beside a count
    EXPECT_EQ(CountObjects(), baseline);
    done = true;
    ASSERT_EQ(MPSignalSemaphore(semaphore), noErr);
    bystander.join();
    EXPECT_EQ(slot->waiters.load(), 0u);
    EXPECT_EQ(FindSlot(event, ObjectKind::Event)->waiters.load(), 0u);
    EXPECT_EQ(MPDeleteSemaphore(semaphore), noErr);
    EXPECT_EQ(MPDeleteEvent(event), noErr);
    EXPECT_EQ(CountObjects(), 0u);
}

TEST_F(Termination, RacingWithTheTasksEndReportsOnce) {
    for (unsigned i = 0; i < 1000; i++) {
        std::function<OSStatus()> body = [] { return OSStatus{1}; };
        RunningTask task(CallFunction, &body);
        Spin(i * 20u);
        OSStatus status = MPTerminateTask(task.Id(), 2);
        ASSERT_TRUE(status == noErr || status == kMPInvalidIDErr);
        OSStatus result = task.Result();
        ASSERT_TRUE(result == 1 || (result == 2 && status == noErr));
        ASSERT_FALSE(task.HasAnotherMessage());
    }
}

TEST_F(Termination, WorksAfterTheApplicationHasResetAllSignals) {
    std::function<OSStatus()> body = [] {
        PlatformSleep(100'000'000);
        return OSStatus{1};
    };
    for (auto disposition : {SIG_DFL, SIG_IGN}) {
        RunningTask task(CallFunction, &body);
        for (int number = SIGRTMIN; number <= SIGRTMAX; number++) {
            signal(number, disposition);
        }
        ASSERT_EQ(MPTerminateTask(task.Id(), 6), noErr);
        EXPECT_EQ(task.Result(), 6);
    }
}

TEST_F(Termination, LeavesSignalsThatTheApplicationUsesAlone) {
    static std::atomic<int> received = 0;
    auto count = [](int) { received++; };
    for (int number = SIGRTMIN; number <= SIGRTMAX; number++) {
        if (number % 2 == 0) {
            signal(number, count);
        }
    }
    std::function<OSStatus()> body = [] {
        PlatformSleep(100'000'000);
        return OSStatus{1};
    };
    RunningTask task(CallFunction, &body);
    ASSERT_EQ(MPTerminateTask(task.Id(), 6), noErr);
    EXPECT_EQ(task.Result(), 6);
    EXPECT_EQ(received, 0);
    constexpr int kLast = 4; // which an emulator has not got
    for (int number = SIGRTMIN; number <= SIGRTMAX - kLast; number++) {
        if (number % 2 == 0) {
            ASSERT_EQ(raise(number), 0);
        }
    }
    EXPECT_GT(received, 10);
}

TEST_F(Termination, WithoutASignalToUseIsRefusedAndTheTaskGoesOn) {
    for (int number = SIGRTMIN; number <= SIGRTMAX; number++) {
        signal(number, [](int) {});
    }
    MPSemaphoreID go = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &go), noErr);
    std::function<OSStatus()> body = [&] { return MPWaitOnSemaphore(go, kDurationForever); };
    RunningTask task(CallFunction, &body);
    EXPECT_EQ(MPTerminateTask(task.Id(), 6), kMPInsufficientResourcesErr);
    ASSERT_EQ(MPSignalSemaphore(go), noErr);
    EXPECT_EQ(task.Result(), noErr);
}

TEST_F(Termination, ReachesTasksWhoseCreatorBlocksAllSignals) {
    sigset_t all;
    sigfillset(&all);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &all, nullptr), 0);
    std::function<OSStatus()> body = [] {
        PlatformSleep(100'000'000);
        return OSStatus{1};
    };
    RunningTask task(CallFunction, &body);
    ASSERT_EQ(MPTerminateTask(task.Id(), 8), noErr);
    EXPECT_EQ(task.Result(), 8);
}

TEST_F(Termination, StraySignalsAreIgnored) {
    MPSemaphoreID go = 0;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &go), noErr);
    std::function<OSStatus()> body = [&] { return MPWaitOnSemaphore(go, kDurationForever); };
    RunningTask task(CallFunction, &body);
    for (int number = SIGRTMIN; number <= SIGRTMAX; number++) {
        struct sigaction action {};
        ASSERT_EQ(sigaction(number, nullptr, &action), 0);
        if (action.sa_handler != SIG_DFL) {
            ASSERT_EQ(kill(getpid(), number), 0);
        }
    }
    ASSERT_EQ(MPSignalSemaphore(go), noErr);
    EXPECT_EQ(task.Result(), noErr);
}

TEST_F(Termination, ExitReportsItsStatusOnceWithoutHandlers) {
    std::function<OSStatus()> body = [] {
        RunWithHandlers([] { MPExit(-31); });
        return OSStatus{1};
    };
    RunningTask task(CallFunction, &body);
    EXPECT_EQ(task.Result(), -31);
    EXPECT_FALSE(task.HasAnotherMessage());
    EXPECT_EQ(MPTerminateTask(task.Id(), 0), kMPInvalidIDErr);
    EXPECT_EQ(handlersRun, 0);
}

TEST_F(Termination, ExitOfAThreadNotMadeHereEndsItWithoutHandlers) {
    std::thread thread([] { RunWithHandlers([] { MPExit(1); }); });
    thread.join();
    EXPECT_EQ(handlersRun, 0);
}

TEST_F(Termination, ExitOfTheMainThreadLeavesTheOthersRunning) {
    pid_t child = fork();
    if (child == 0) {
        alarm(60);
        pid_t main = gettid();
        std::function<OSStatus()> body = [main]() -> OSStatus {
            while (StateOf(main) != 'Z') {
                std::this_thread::yield();
            }
            _exit(42);
        };
        MPTaskID task = 0;
        MPCreateTask(CallFunction, &body, 0, 0, nullptr, nullptr, 0, &task);
        MPExit(1);
    }
    EXPECT_EQ(ExitStatusOf(child), 42);
}

TEST_F(Termination, FiveThousandExitsLeaveNoThreadsAndNoIds) {
    std::function<OSStatus()> body = [] {
        MPExit(3);
        return OSStatus{1};
    };
    for (int i = 0; i < 5000; i++) {
        RunningTask task(CallFunction, &body);
        ASSERT_EQ(task.Result(), 3);
    }
    ReleaseEndedTasks();
    EXPECT_EQ(CountObjects(), 0u);
}
