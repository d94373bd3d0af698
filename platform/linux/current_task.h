// What the provider knows of the calling thread, and how it keeps termination out of its critical sections.
//
// A task that is terminated ends inside a signal handler, wherever it happens to be. Whoever holds a lock of
// the provider, or is between changing an object and waking those who wait for the change, holds termination
// back with a TerminationHold; the task then ends when the last hold is given up. Foreign threads cannot be
// terminated, but pay the same two counts, which is cheaper than asking. A wait for an object is the one place
// inside holds where a task may end all the same, as nothing is half done there but the wait; what a signal
// handler of the application begins meanwhile is not.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

struct ObjectSlot;
struct Task;

struct CurrentTask {
    uint32_t id = 0;                           // 0 until somebody asks for it or the thread is a task
    Task* task = nullptr;                      // null in threads made by others, and once the task has ended
    ObjectSlot* waitingOn = nullptr;           // where this thread is counted as a waiter
    std::atomic<uint32_t> holds = 0;           // written by this thread only, read by its signal handler
    std::atomic<uint32_t> asleepAt = 0;        // as many holds do not keep it from ending; 0 for none
    std::atomic<bool> terminationHeld = false; // a termination arrived while it was held back
    bool forking = false;                      // handlers around a fork hold locks: may not end in a wait
};

// Without a destructor, so that a thread's end runs no code of a library that may be gone. Near the thread
// pointer, because it is read by every operation; it is small enough for the room that the C library keeps
// for loaded modules.
#define TAVPORT_NEAR_TLS __attribute__((tls_model("initial-exec")))
extern constinit thread_local CurrentTask currentTask TAVPORT_NEAR_TLS;

// Gives a thread that the provider did not make its id.
uint32_t NumberForeignThread() noexcept;

// The calling thread's task id; threads that the provider did not make get one when they first ask.
inline uint32_t CurrentTaskID() noexcept {
    uint32_t id = currentTask.id;
    return id != 0 ? id : NumberForeignThread();
}

// Ends the calling task as its terminator asked. Does not return.
[[noreturn]] void EndTerminatedTask() noexcept;

// Whether nothing that the calling thread is in the middle of keeps it from ending here.
inline bool MayEnd() noexcept {
    uint32_t holds = currentTask.holds.load(std::memory_order_relaxed);
    return holds == 0 || holds == currentTask.asleepAt.load(std::memory_order_relaxed);
}

// Termination waits from the first Hold to the Release that matches it; the latter does not return when
// termination came meanwhile.
inline void HoldTermination() noexcept {
    currentTask.holds.store(currentTask.holds.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

inline void ReleaseTermination() noexcept {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    currentTask.holds.store(currentTask.holds.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (currentTask.terminationHeld.load(std::memory_order_relaxed) && MayEnd()) [[unlikely]] {
        EndTerminatedTask();
    }
}

// Keeps termination out while it lives. Nests.
class TerminationHold {
public:
    TerminationHold() noexcept { HoldTermination(); }
    ~TerminationHold() { ReleaseTermination(); }
    TerminationHold(const TerminationHold&) = delete;
    TerminationHold& operator=(const TerminationHold&) = delete;
};

// A lock of the provider, never left held by a task that is terminated.
template <typename Mutex = std::mutex>
class HeldLock {
public:
    explicit HeldLock(Mutex& mutex) : lock_(mutex) {}

private:
    TerminationHold hold_;
    std::lock_guard<Mutex> lock_;
};
