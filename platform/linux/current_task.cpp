// The calling thread's identity. Threads that the provider did not make are numbered as they come; a number
// is not given out again, so a region that such a thread left held is never taken for the next thread's.
#include "platform/linux/current_task.h"

#include "platform/linux/multiprocessing_ids.h"

constinit thread_local CurrentTask currentTask;

namespace {

constinit std::atomic<uint32_t> foreignTasks = 0;

} // namespace

uint32_t NumberForeignThread() noexcept {
    currentTask.id = kForeignTaskBit | (foreignTasks.fetch_add(1, std::memory_order_relaxed) + 1);
    return currentTask.id;
}
