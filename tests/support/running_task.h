// A task with the queue that its end is reported to, for tests.
#pragma once

#include "platform/multiprocessing.h"

#include <gtest/gtest.h>

class RunningTask {
public:
    RunningTask(TaskProc entry, void* parameter, ByteCount stackSize = 0) {
        EXPECT_EQ(MPCreateQueue(&queue_), noErr);
        EXPECT_EQ(MPCreateTask(entry, parameter, stackSize, queue_, this, &queue_, 0, &task_), noErr);
    }
    ~RunningTask() { MPDeleteQueue(queue_); }
    RunningTask(const RunningTask&) = delete;
    RunningTask& operator=(const RunningTask&) = delete;

    MPTaskID Id() const { return task_; }
    MPQueueID Queue() const { return queue_; }

    // Waits for the end and checks that the message is this task's; its status.
    OSStatus Result(Duration timeout = 20'000) {
        void* first = nullptr;
        void* second = nullptr;
        void* third = nullptr;
        OSStatus status = MPWaitOnQueue(queue_, &first, &second, &third, timeout);
        EXPECT_EQ(status, noErr);
        EXPECT_EQ(first, status == noErr ? this : nullptr);
        EXPECT_EQ(second, status == noErr ? &queue_ : nullptr);
        return static_cast<OSStatus>(reinterpret_cast<intptr_t>(third));
    }

    bool HasAnotherMessage() { return MPWaitOnQueue(queue_, nullptr, nullptr, nullptr, 0) == noErr; }

private:
    MPQueueID queue_ = 0;
    MPTaskID task_ = 0;
};
