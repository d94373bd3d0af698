// What the application's signal handlers may call: signalling semaphores and setting events, whatever they
// interrupt.
#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "support/forced_end.h"
#include "support/processes.h"
#include "support/running_task.h"
#include "support/sanitizers.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>
#include <unistd.h>

namespace {

void (*inHandler)() = nullptr;

void Handle(int) {
    inHandler();
}

// With calls started again after the handler, as far as the host does that.
void InstallHandler(void (*body)()) {
    inHandler = body;
    struct sigaction action {};
    action.sa_handler = Handle;
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
}

OSStatus CallFunction(void* parameter) {
    return (*static_cast<std::function<OSStatus()>*>(parameter))();
}

MPSemaphoreID semaphore = 0;
MPEventID event = 0;

void InterruptOnceAsleep(const std::atomic<pid_t>& thread, const ObjectSlot& slot) {
    while (slot.waiters != 1 || StateOf(thread) != 'S') {
        std::this_thread::yield();
    }
    ASSERT_EQ(tgkill(getpid(), thread, SIGUSR1), 0);
}

class SignalHandler : public testing::Test {
protected:
    void SetUp() override {
        if (kThreadSanitizer) {
            GTEST_SKIP()
                << "the thread sanitizer puts handlers off until the thread makes a call that it knows";
        }
    }
};

} // namespace

TEST_F(SignalHandler, SignalsTheSemaphoreThatItsOwnThreadWaitsFor) {
    ASSERT_EQ(MPCreateSemaphore(1, 0, &semaphore), noErr);
    InstallHandler([] { MPSignalSemaphore(semaphore); });
    std::atomic<pid_t> id = 0;
    std::thread waiter([&] {
        id = gettid();
        EXPECT_EQ(MPWaitOnSemaphore(semaphore, kDurationForever), noErr);
    });
    InterruptOnceAsleep(id, *FindSlot(semaphore, ObjectKind::Semaphore));
    waiter.join();
    EXPECT_EQ(MPDeleteSemaphore(semaphore), noErr);
}

TEST_F(SignalHandler, SetsTheEventThatItsOwnThreadWaitsFor) {
    ASSERT_EQ(MPCreateEvent(&event), noErr);
    InstallHandler([] { MPSetEvent(event, 2); });
    std::atomic<pid_t> id = 0;
    std::thread waiter([&] {
        id = gettid();
        MPEventFlags flags = 0;
        EXPECT_EQ(MPWaitForEvent(event, &flags, 20'000), noErr);
        EXPECT_EQ(flags, 2u);
    });
    InterruptOnceAsleep(id, *FindSlot(event, ObjectKind::Event));
    waiter.join();
    EXPECT_EQ(MPDeleteEvent(event), noErr);
}

// Half-way through signalling, a wakeup would be lost if the task ended there.
TEST_F(ForcedEnd, OperationBegunByAHandlerDuringAWaitIsFinishedBeforeTheTaskEnds) {
    static std::atomic<bool> inside = false;
    static std::atomic<bool> finish = false;
    static std::atomic<bool> finished = false;
    static std::atomic<bool> after = false;
    ASSERT_EQ(MPCreateSemaphore(1, 0, &semaphore), noErr);
    InstallHandler([] {
        {
            TerminationHold operation;
            inside = true;
            while (!finish) {
                std::this_thread::yield();
            }
            finished = true;
        }
        after = true;
    });
    std::atomic<pid_t> id = 0;
    std::function<OSStatus()> body = [&] {
        id = gettid();
        return MPWaitOnSemaphore(semaphore, kDurationForever);
    };
    RunningTask task(CallFunction, &body);
    InterruptOnceAsleep(id, *FindSlot(semaphore, ObjectKind::Semaphore));
    while (!inside) {
        std::this_thread::yield();
    }
    ASSERT_EQ(MPTerminateTask(task.Id(), 6), noErr);
    EXPECT_EQ(MPWaitOnQueue(task.Queue(), nullptr, nullptr, nullptr, 50), kMPTimeoutErr);
    finish = true;
    EXPECT_EQ(task.Result(), 6);
    EXPECT_TRUE(finished);
    EXPECT_FALSE(after);
    EXPECT_EQ(FindSlot(semaphore, ObjectKind::Semaphore)->waiters, 0u);
    EXPECT_EQ(MPDeleteSemaphore(semaphore), noErr);
}
