// A mutex that a child process finds free, whatever threads of the parent were doing when it was forked.
//
// Lockable like std::mutex; made at compile time. Those who hold one take no other.
#pragma once

#include "platform/linux/current_task.h"
#include "platform/linux/one_thread.h"

#include <atomic>
#include <mutex>

class ChildSafeMutex {
public:
    constexpr ChildSafeMutex() = default;
    ChildSafeMutex(const ChildSafeMutex&) = delete;
    ChildSafeMutex& operator=(const ChildSafeMutex&) = delete;

    void lock() {
        if (!isListed_.load(std::memory_order_acquire)) List();
        mutex_.lock();
    }
    bool try_lock() {
        if (!isListed_.load(std::memory_order_acquire)) List();
        return mutex_.try_lock();
    }
    void unlock() { mutex_.unlock(); }

    // Around a fork.
    static void LockAll();
    static void UnlockAll();

private:
    void List();

    std::mutex mutex_;
    std::atomic<bool> isListed_ = false;
    ChildSafeMutex* next_ = nullptr;
};

// Holds such a lock while it lives, unless the process has no thread beside this one: for what starts none meanwhile.
// Taking a lock and leaving it costs two bus locks.
class LightLock {
public:
    explicit LightLock(ChildSafeMutex& mutex) : mutex_(HasOneThread() ? nullptr : &mutex) {
        if (mutex_) mutex_->lock();
    }
    ~LightLock() {
        if (mutex_) mutex_->unlock();
    }
    LightLock(const LightLock&) = delete;
    LightLock& operator=(const LightLock&) = delete;

private:
    TerminationHold hold_;
    ChildSafeMutex* mutex_;
};
