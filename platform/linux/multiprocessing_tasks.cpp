// Tasks, on POSIX threads.
//
// A task that returns from its entry ends like any thread. One that exits or is terminated may run none of
// the application's code any more, neither cleanup handlers nor destructors of frames, thread-local objects
// or thread keys; POSIX threads have no such way out, so it posts its message and leaves by the kernel's own
// exit call. The C library sees a thread that is gone and gives its stack back when it is joined, but keeps
// the little that it holds for a thread elsewhere (the allocator's small caches). Termination is a real-time
// signal to the one thread, whose handler does just that, now or when the thread leaves the provider's
// critical section that it is in (current_task.h).
//
// Threads are joined, without waiting, when later tasks are created and queues deleted, and all at unload, so
// that no thread is left in code that is gone. A child after fork() has none of its parent's other tasks:
// their ids are stale there and no message comes. Sections: lists, the signal, the end of a task, its
// beginning, releasing, fork, the operations.
#include "platform/linux/multiprocessing_tasks.h"

#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_queues.h"
#include "platform/linux/multiprocessing_wait.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/trees.h"
#include "platform/process.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <csignal>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <unistd.h>
#include <utility>

struct Task {
    TaskProc entry = nullptr;
    void* parameter = nullptr;
    MPTaskID id = 0;
    MPQueueID notifyQueue = 0;
    std::unique_ptr<TaskMessage> message; // until it is posted

    pthread_t thread{};                 // set by the creator
    std::atomic<pid_t> kernelID = 0;    // set by the task itself
    std::atomic<bool> asked = false;    // termination has been asked for
    OSStatus terminationStatus = noErr; // set before `asked`

    // Under the tasks' lock.
    bool threadKnown = false;
    bool ended = false;
    Task* previous = nullptr;
    Task* next = nullptr;
};

namespace {

// ---- Lists ----

class TaskList {
public:
    void Add(Task& task) {
        task.previous = nullptr;
        task.next = first_;
        if (first_ != nullptr) {
            first_->previous = &task;
        }
        first_ = &task;
    }
    void Remove(Task& task) {
        (task.previous != nullptr ? task.previous->next : first_) = task.next;
        if (task.next != nullptr) {
            task.next->previous = task.previous;
        }
    }
    Task* First() const { return first_; }
    Task* TakeAll() { return std::exchange(first_, nullptr); }

private:
    Task* first_ = nullptr;
};

constinit std::mutex tasksLock;
constinit TaskList running;
constinit TaskList ended; // to be joined
constinit std::atomic<bool> anyEnded = false;

// ---- The signal ----

constinit int terminationSignal = 0; // chosen with the first task
constinit struct sigaction formerAction {};

void OnTerminationSignal(int) {
    const Task* task = currentTask.task;
    if (task == nullptr || !task->asked.load()) {
        return;
    }
    if (!MayEnd()) {
        currentTask.terminationHeld.store(true, std::memory_order_relaxed);
        return;
    }
    EndTerminatedTask();
}

enum class SignalUse { Free, Ours, Others };

SignalUse UseOf(int number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0) {
        return SignalUse::Others;
    }
    if ((action.sa_flags & SA_SIGINFO) != 0) {
        return SignalUse::Others;
    }
    if (action.sa_handler == OnTerminationSignal) {
        return SignalUse::Ours;
    }
    bool free = action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN;
    return free ? SignalUse::Free : SignalUse::Others;
}

bool InstallHandler(int number, struct sigaction* former) {
    struct sigaction action {};
    action.sa_handler = OnTerminationSignal;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    return sigaction(number, &action, former) == 0;
}

// The highest real-time signal that nobody uses, leaving out the last ones, which emulators and debuggers
// like to take.
void ChooseSignal() {
    constexpr int kLeftOut = 14;
    for (int number = SIGRTMAX - kLeftOut; terminationSignal == 0 && number >= SIGRTMIN; number--) {
        if (UseOf(number) == SignalUse::Free && InstallHandler(number, &formerAction)) {
            terminationSignal = number;
        }
    }
}

// The application may have reset all signals meanwhile; the signal would then end the process.
bool HandlerInPlace() {
    if (terminationSignal == 0) {
        return false;
    }
    SignalUse use = UseOf(terminationSignal);
    return use == SignalUse::Ours || (use == SignalUse::Free && InstallHandler(terminationSignal, nullptr));
}

// ---- The end of a task ----

// Under the tasks' lock, when the task has ended and its thread is known.
void LeaveToBeJoined(Task& task) {
    running.Remove(task);
    ended.Add(task);
    anyEnded.store(true, std::memory_order_relaxed);
}

// The end of the calling thread's task, with termination held back for good. From here the id is stale and
// the thread is somebody's to join; then the message. The thread itself may go on, in the application's
// destructors: whatever it does there, the task does not end a second time.
void Finish(OSStatus status) {
    Task& task = *std::exchange(currentTask.task, nullptr);
    {
        HeldLock lock(tasksLock);
        CloseObject(task.id, ObjectKind::Task);
        task.ended = true;
        if (task.threadKnown) {
            LeaveToBeJoined(task);
        }
    }
    // The record lives until this thread has been joined.
    TaskMessage* message = task.message.release();
    message->parameters[2] = reinterpret_cast<void*>(static_cast<intptr_t>(status));
    if (!PostMessage(task.notifyQueue, message)) {
        task.message.reset(message);
    }
}

void BlockAllSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

// The C library keeps a thread's values under its keys beside the stack, and would hand both to a later
// thread: it clears the values only together with calling the destructors. Without values there is nothing to
// call.
void ForgetKeyValues() {
    for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; key++) {
        pthread_setspecific(key, nullptr);
    }
}

[[noreturn]] void LeaveThread() {
    ForgetKeyValues();
    EndThread();
}

// Also runs in the signal handler: allocates nothing, frees nothing.
[[noreturn]] void EndCurrentTask(OSStatus status) {
    // No handler of the application runs in what is left of this thread, and no second termination begins.
    HoldTermination();
    BlockAllSignals();
    AbandonWait();
    Finish(status);
    LeaveThread();
}

// ---- Its beginning ----

void AcceptTermination(Task& task) {
    if (terminationSignal != 0) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, terminationSignal);
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    }
    // Either the terminator sees the number, or this thread sees that it was asked.
    task.kernelID.store(gettid());
    if (task.asked.load()) {
        EndTerminatedTask();
    }
}

void* RunTask(void* context) {
    Task& task = *static_cast<Task*>(context);
    currentTask.id = task.id;
    currentTask.task = &task;
    AcceptTermination(task);
    OSStatus status = task.entry(task.parameter);
    HoldTermination();
    Finish(status);
    return nullptr;
}

// Too small a stack is made larger until the host takes it: what it needs depends on the modules that are
// loaded.
int StartThread(Task& task, ByteCount stackSize, pthread_t& thread) {
    constexpr size_t kLeast = 128 * 1024;
    constexpr size_t kEnough = 64 * 1024 * 1024;
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    size_t size = std::max<size_t>(stackSize, kLeast);
    if (stackSize == 0) {
        pthread_attr_getstacksize(&attributes, &size);
    }
    do {
        error = pthread_attr_setstacksize(&attributes, size);
        if (error == 0) {
            error = pthread_create(&thread, &attributes, RunTask, &task);
        }
        size *= 2;
    } while (error == EINVAL && size <= kEnough);
    pthread_attr_destroy(&attributes);
    return error;
}

// ---- Releasing ----

// Joins a chain of ended tasks; gives back those that are not quite gone.
TaskList Join(Task* task, int (*join)(pthread_t, void**)) {
    TaskList left;
    while (task != nullptr) {
        Task* next = task->next;
        if (join(task->thread, nullptr) == EBUSY) {
            left.Add(*task);
        } else {
            delete task;
        }
        task = next;
    }
    return left;
}

void Release(int (*join)(pthread_t, void**)) {
    TerminationHold hold;
    Task* chain = nullptr;
    {
        HeldLock lock(tasksLock);
        anyEnded.store(false, std::memory_order_relaxed);
        chain = ended.TakeAll();
    }
    TaskList left = Join(chain, join);
    HeldLock lock(tasksLock);
    for (Task* task = left.TakeAll(); task != nullptr;) {
        Task* next = task->next;
        ended.Add(*task);
        anyEnded.store(true, std::memory_order_relaxed);
        task = next;
    }
}

// Before the table of ids goes.
[[gnu::destructor(102)]] void ReleaseTasks() {
    Release(pthread_join);
    HeldLock lock(tasksLock);
    if (terminationSignal != 0 && UseOf(terminationSignal) == SignalUse::Ours && running.First() == nullptr) {
        sigaction(terminationSignal, &formerAction, nullptr);
    }
}

// ---- Fork ----

void LockTasks() {
    tasksLock.lock();
}
void UnlockTasks() {
    tasksLock.unlock();
}

// Only the forking thread is left; the C library has taken the other threads' stacks back itself. What was
// asked of the forking task was asked of the parent's.
void ForgetOtherTasks() {
    Task* mine = currentTask.task;
    for (Task* task = running.TakeAll(); task != nullptr;) {
        Task* next = task->next;
        if (task == mine) {
            running.Add(*task);
        } else {
            CloseObject(task->id, ObjectKind::Task);
            delete task;
        }
        task = next;
    }
    for (Task* task = ended.TakeAll(); task != nullptr;) {
        delete std::exchange(task, task->next);
    }
    if (mine != nullptr) {
        mine->kernelID.store(gettid());
        mine->asked.store(false);
    }
    UnlockTasks();
}

[[gnu::constructor(103)]] void HandleForks() {
    (void)PlatformAtFork(LockTasks, UnlockTasks, ForgetOtherTasks);
}

// Makes the task known before its thread starts. False when there is no room.
bool Announce(Task& task) {
    task.id = CreateObject({.kind = ObjectKind::Task, .task = &task});
    if (task.id == 0) {
        return false;
    }
    HeldLock lock(tasksLock);
    ChooseSignal();
    running.Add(task);
    return true;
}

void Withdraw(Task& task) {
    HeldLock lock(tasksLock);
    running.Remove(task);
    CloseObject(task.id, ObjectKind::Task);
}

// The task may have ended before its creator gets here.
void SetThread(Task& task, pthread_t thread) {
    HeldLock lock(tasksLock);
    task.thread = thread;
    task.threadKnown = true;
    if (task.ended) {
        LeaveToBeJoined(task);
    }
}

std::unique_ptr<Task> MakeTask() {
    std::unique_ptr<Task> task(new (std::nothrow) Task);
    if (task != nullptr) {
        task->message.reset(new (std::nothrow) TaskMessage);
    }
    return task != nullptr && task->message != nullptr ? std::move(task) : nullptr;
}

} // namespace

// ---- The operations ----

// A tree that it copied stays unfinished, and the files that it would have read next are many.
void EndTerminatedTask() noexcept {
    LeaveTree();
    EndCurrentTask(currentTask.task->terminationStatus);
}

void ReleaseEndedTasks() noexcept {
    if (anyEnded.load(std::memory_order_relaxed)) {
        Release(pthread_tryjoin_np);
    }
}

OSStatus MPCreateTask(TaskProc entryPoint, void* parameter, ByteCount stackSize, MPQueueID notifyQueue,
                      void* terminationParameter1, void* terminationParameter2, MPTaskOptions,
                      MPTaskID* task) {
    *task = 0;
    TerminationHold hold;
    ReleaseEndedTasks();
    std::unique_ptr<Task> made = MakeTask();
    if (made == nullptr) {
        return kMPInsufficientResourcesErr;
    }
    made->entry = entryPoint;
    made->parameter = parameter;
    made->notifyQueue = notifyQueue;
    made->message->parameters[0] = terminationParameter1;
    made->message->parameters[1] = terminationParameter2;
    if (!Announce(*made)) {
        return kMPInsufficientResourcesErr;
    }
    pthread_t thread{};
    if (StartThread(*made, stackSize, thread) != 0) {
        Withdraw(*made);
        return kMPInsufficientResourcesErr;
    }
    *task = made->id;
    SetThread(*made.release(), thread);
    return noErr;
}

OSStatus MPTerminateTask(MPTaskID task, OSStatus terminationStatus) {
    if (currentTask.task != nullptr && task == currentTask.id) {
        MPExit(terminationStatus);
    }
    HeldLock lock(tasksLock);
    const ObjectSlot* slot = FindSlot(task, ObjectKind::Task);
    if (slot == nullptr || StateID(slot->state.load()) != task) {
        return kMPInvalidIDErr;
    }
    Task& victim = *slot->task;
    if (victim.asked.load()) {
        return noErr;
    }
    if (!HandlerInPlace()) {
        return kMPInsufficientResourcesErr;
    }
    victim.terminationStatus = terminationStatus;
    victim.asked.store(true);
    // It cannot be gone: its end needs the lock. The host may be out of room for one more pending signal.
    pid_t thread = victim.kernelID.load();
    if (thread != 0 && tgkill(getpid(), thread, terminationSignal) != 0) {
        victim.asked.store(false);
        return kMPInsufficientResourcesErr;
    }
    return noErr;
}

void MPExit(OSStatus status) {
    if (currentTask.task != nullptr) {
        EndCurrentTask(status);
    }
    BlockAllSignals();
    LeaveThread();
}

MPTaskID MPCurrentTaskID() {
    return CurrentTaskID();
}
