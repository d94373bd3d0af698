// Queues: a slot's value is the number of messages that nobody has claimed; the messages hang off the slot,
// under one lock for all queues, which is held for a few instructions and mostly once in a task's life. A
// waiter claims a message by taking one off the number, as with a semaphore, and then unhooks the first.
#include "platform/linux/multiprocessing_queues.h"

#include "platform/linux/current_task.h"
#include "platform/linux/multiprocessing_ids.h"
#include "platform/linux/multiprocessing_tasks.h"
#include "platform/linux/multiprocessing_wait.h"
#include "platform/process.h"

#include <memory>
#include <mutex>
#include <utility>

namespace {

constinit std::mutex queuesLock;

void LockQueues() {
    LockForFork(queuesLock);
}

void UnlockQueues() {
    UnlockAfterFork(queuesLock);
}

[[gnu::constructor(102)]] void HandleForks() {
    (void)PlatformAtFork(LockQueues, UnlockQueues, UnlockQueues);
}

Taken ClaimMessage(ObjectSlot& slot, void* context) {
    MPQueueID queue = *static_cast<MPQueueID*>(context);
    uint64_t state = slot.state.load();
    do {
        if (StateID(state) != queue) {
            return Taken::Gone;
        }
        if (StateValue(state) == 0) {
            return Taken::NotYet;
        }
    } while (!slot.state.compare_exchange_weak(state, state - 1));
    return Taken::Yes;
}

// The first message, for one who has claimed one; null when the queue has been deleted since.
std::unique_ptr<TaskMessage> UnhookMessage(ObjectSlot& slot, MPQueueID queue) {
    HeldLock lock(queuesLock);
    if (StateID(slot.state.load()) != queue) {
        return nullptr;
    }
    TaskMessage* message = slot.firstMessage;
    slot.firstMessage = message->next;
    if (slot.firstMessage == nullptr) {
        slot.lastMessage = nullptr;
    }
    return std::unique_ptr<TaskMessage>(message);
}

void HandOver(const TaskMessage& message, void** parameter1, void** parameter2, void** parameter3) {
    void** targets[] = {parameter1, parameter2, parameter3};
    for (int i = 0; i < 3; i++) {
        if (targets[i] != nullptr) {
            *targets[i] = message.parameters[i];
        }
    }
}

OSStatus WaitForMessage(ObjectSlot& slot, MPQueueID queue, Duration timeout) {
    switch (ClaimMessage(slot, &queue)) {
    case Taken::Yes:
        return noErr;
    case Taken::Gone:
        return kMPInvalidIDErr;
    case Taken::NotYet:
        break;
    }
    return WaitForObject(slot, timeout, ClaimMessage, &queue);
}

} // namespace

bool PostMessage(MPQueueID queue, TaskMessage* message) noexcept {
    ObjectSlot* slot = FindSlot(queue, ObjectKind::Queue);
    if (slot == nullptr) {
        return false;
    }
    TerminationHold hold;
    {
        HeldLock lock(queuesLock);
        if (StateID(slot->state.load()) != queue) {
            return false;
        }
        (slot->firstMessage == nullptr ? slot->firstMessage : slot->lastMessage->next) = message;
        slot->lastMessage = message;
        slot->state.fetch_add(1);
    }
    if (HasWaiters(*slot)) {
        WakeOneWaiter(*slot);
    }
    return true;
}

OSStatus MPCreateQueue(MPQueueID* queue) {
    *queue = CreateObject({.kind = ObjectKind::Queue});
    return *queue != 0 ? OSStatus{noErr} : kMPInsufficientResourcesErr;
}

OSStatus MPDeleteQueue(MPQueueID queue) {
    TerminationHold hold;
    TaskMessage* message = nullptr;
    {
        // Under the lock, so that nothing is posted between closing and taking the messages out.
        HeldLock lock(queuesLock);
        ObjectSlot* slot = FindSlot(queue, ObjectKind::Queue);
        if (slot == nullptr || StateID(slot->state.load()) != queue) {
            return kMPInvalidIDErr;
        }
        message = std::exchange(slot->firstMessage, nullptr);
        slot->lastMessage = nullptr;
        CloseObject(queue, ObjectKind::Queue);
    }
    while (message != nullptr) {
        delete std::exchange(message, message->next);
    }
    ReleaseEndedTasks();
    return noErr;
}

OSStatus MPWaitOnQueue(MPQueueID queue, void** parameter1, void** parameter2, void** parameter3,
                       Duration timeout) {
    ObjectSlot* slot = FindSlot(queue, ObjectKind::Queue);
    if (slot == nullptr) {
        return kMPInvalidIDErr;
    }
    // From the claim to the message in hand; while this thread sleeps it may be terminated all the same.
    TerminationHold hold;
    OSStatus status = WaitForMessage(*slot, queue, timeout);
    if (status != noErr) {
        return status;
    }
    std::unique_ptr<TaskMessage> message = UnhookMessage(*slot, queue);
    if (message == nullptr) {
        return kMPDeletedErr;
    }
    HandOver(*message, parameter1, parameter2, parameter3);
    return noErr;
}
