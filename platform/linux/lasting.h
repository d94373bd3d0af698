// Inside the provider: what one file remembers from its first use to the library's end, under a lock of its own.
#pragma once

#include "platform/linux/current_task.h"

#include <mutex>
#include <utility>

// Never destroyed while a thread is at it, since threads may still run when the process ends. To be defined static
// and ended by a [[gnu::destructor]].
template <typename T>
class Lasting {
public:
    std::mutex lock; // for all of the following

    // Made when it is first needed; throws std::bad_alloc.
    T* operator->() {
        if (!content_) content_ = new T;
        return content_;
    }

    // At unloading, or when the process ends. Threads that still run then find nothing and begin anew.
    void End() {
        const TerminationHold hold;
        if (!lock.try_lock()) return; // one of them is at it, so the process is ending
        delete std::exchange(content_, nullptr);
        lock.unlock();
    }

private:
    T* content_ = nullptr;
};
