// In which order threads are made and closed: the linker puts these wrappers in front of the platform operations.
#include "system/threads.h"

#include "system/synchronisation.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// The record of the thread that is being made, as its task is given it.
const OpacTavThread* record = nullptr;
// The task that the record named when its start mutex was released.
MPTaskID namedAtRelease = 0;
std::vector<MPSemaphoreID> closed;

} // namespace

extern "C" {

OSStatus __real_MPCreateTask(TaskProc entryPoint, void* parameter, ByteCount stackSize, MPQueueID notifyQueue,
                             void* terminationParameter1, void* terminationParameter2, MPTaskOptions options,
                             MPTaskID* task);
OSStatus __wrap_MPCreateTask(TaskProc entryPoint, void* parameter, ByteCount stackSize, MPQueueID notifyQueue,
                             void* terminationParameter1, void* terminationParameter2, MPTaskOptions options,
                             MPTaskID* task) {
    record = static_cast<const OpacTavThread*>(parameter);
    return __real_MPCreateTask(entryPoint, parameter, stackSize, notifyQueue, terminationParameter1,
                               terminationParameter2, options, task);
}

OSStatus __real_MPSignalSemaphore(MPSemaphoreID semaphore);
OSStatus __wrap_MPSignalSemaphore(MPSemaphoreID semaphore) {
    if (record && semaphore == record->startMutex) namedAtRelease = record->task;
    return __real_MPSignalSemaphore(semaphore);
}

OSStatus __real_MPDeleteSemaphore(MPSemaphoreID semaphore);
OSStatus __wrap_MPDeleteSemaphore(MPSemaphoreID semaphore) {
    closed.push_back(semaphore);
    return __real_MPDeleteSemaphore(semaphore);
}

} // extern "C"

TEST(CreateThread, RecordNamesItsTaskBeforeTheStartMutexIsReleased) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    ASSERT_EQ(thread, record);
    EXPECT_NE(namedAtRelease, 0u);
    EXPECT_EQ(namedAtRelease, thread->task);
    TavResumeThread(thread);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    record = nullptr;
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
}

TEST(CloseThreadRef, ClosesTheSuspendMutexThenTheStartMutex) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, TAV_THREAD_SUSPENDED);
    TavResumeThread(thread);
    ASSERT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    const std::vector<MPSemaphoreID> expected = {thread->suspendMutex, thread->startMutex};
    record = nullptr;
    closed.clear();
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(closed, expected);
}
