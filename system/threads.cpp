#include "system/threads.h"

#include "platform/process.h"
#include "system/synchronisation.h"

#include <cstdlib>

namespace {

constexpr int32_t kNoLimit = -1;

constexpr TaskProc s_threadProc = Mac_TavThreadProc;

// The record with its queue and its locked start mutex, null with nothing left behind on failure.
OpacTavThread* CreateRecord(TavThreadProc entry, void* parameter) {
    MPQueueID queue = 0;
    if (MPCreateQueue(&queue) != noErr) {
        return nullptr;
    }
    auto* thread = static_cast<OpacTavThread*>(malloc(sizeof(OpacTavThread)));
    MPSemaphoreID startMutex = thread != nullptr ? TavCreateMutex(1) : 0;
    if (startMutex == 0) {
        (void)MPDeleteQueue(queue);
        free(thread);
        return nullptr;
    }
    *thread = {0, queue, 0, startMutex, entry, parameter};
    return thread;
}

} // namespace

MPTaskOptions TavGetThreadCreateFlags(uint32_t) {
    return 0;
}

OSStatus Mac_TavThreadProc(void* parameter) {
    auto* thread = static_cast<OpacTavThread*>(parameter);
    if (thread == nullptr) {
        return 0;
    }
    (void)TavWaitMutex(thread->startMutex, kNoLimit); // kept: not released again
    if (thread->suspendMutex != 0) {
        (void)TavWaitMutex(thread->suspendMutex, kNoLimit);
    }
    return thread->entry != nullptr ? static_cast<OSStatus>(thread->entry(thread->parameter)) : 0;
}

OpacTavThread* TavCreateThread(TavThreadProc entry, void* parameter, uint32_t stackSize, uint32_t flags) {
    OpacTavThread* thread = CreateRecord(entry, parameter);
    if (thread == nullptr) {
        return nullptr;
    }
    if ((flags & TAV_THREAD_SUSPENDED) != 0) {
        (void)TavSuspendThread(thread);
    }
    MPTaskID task = 0;
    if (MPCreateTask(s_threadProc, thread, stackSize, thread->queue, nullptr, nullptr,
                     TavGetThreadCreateFlags(flags), &task) != noErr) {
        // kept: the mutexes stay open.
        (void)MPDeleteQueue(thread->queue);
        free(thread);
        return nullptr;
    }
    thread->task = task;
    (void)TavReleaseMutex(thread->startMutex);
    return thread;
}

int32_t TavSuspendThread(OpacTavThread* thread) {
    if (thread->suspendMutex == 0) {
        thread->suspendMutex = TavCreateMutex(1);
    }
    return 0;
}

int32_t TavResumeThread(OpacTavThread* thread) {
    if (thread->suspendMutex == 0) {
        return 0;
    }
    (void)TavReleaseMutex(thread->suspendMutex); // kept: neither deleted nor cleared
    return 1;
}

uint32_t TavWaitThread(OpacTavThread* thread, int32_t timeout) {
    if (thread->queue == 0) {
        return TAV_WAIT_ABANDONED;
    }
    // kept: the one message of the thread's end goes to the first wait that succeeds.
    return WaitResult(MPWaitOnQueue(thread->queue, nullptr, nullptr, nullptr, DurationFromTimeout(timeout)));
}

int32_t TavCloseThreadRef(OpacTavThread* thread) {
    if (thread == nullptr) {
        return 0;
    }
    if (thread->queue != 0) {
        (void)MPDeleteQueue(thread->queue);
    }
    if (thread->suspendMutex != 0) {
        (void)TavCloseMutex(thread->suspendMutex);
    }
    if (thread->startMutex != 0) {
        (void)TavCloseMutex(thread->startMutex);
    }
    free(thread);
    return 1;
}

int32_t TavTerminateThread(OpacTavThread* thread, int32_t status) {
    return MPTerminateTask(thread->task, status) == noErr;
}

void TavExitThread(int32_t status) {
    MPExit(status);
}

int32_t TavSetThreadPriority(OpacTavThread*, int32_t) {
    return 0;
}

int32_t TavGetThreadPriority(const OpacTavThread*) {
    return 0;
}

MPTaskID GetTavThreadID(const OpacTavThread* thread) {
    return thread->task;
}

MPTaskID GetCurrentTavThreadID(void) {
    return MPCurrentTaskID();
}

MPQueueID GetTavThreadQueueID(const OpacTavThread* thread) {
    return thread->queue;
}

int32_t TavSleep(uint32_t milliseconds) {
    return PlatformSleep(milliseconds * 1000u); // kept: a 32-bit product, longer sleeps wrap
}
