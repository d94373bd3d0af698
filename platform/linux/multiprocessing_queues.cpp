// Queues: a slot's value is the number of messages; these hang off the slot, under one lock for all queues,
// which is held for a few instructions and mostly twice in a task's life. Messages and number change together
// under it, so that they agree in a child process as well. An empty queue is polled without the lock.
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
    queuesLock.lock();
}

void UnlockQueues() {
    queuesLock.unlock();
}

[[gnu::constructor(102)]] void HandleForks() {
    (void)PlatformAtFork(LockQueues, UnlockQueues, UnlockQueues);
}

struct MessageWait {
    MPQueueID queue;
    TaskMessage* message = nullptr; // taken
};

Taken LookAt(const ObjectSlot& slot, MPQueueID queue) {
    uint64_t state = slot.state.load();
    if (StateID(state) != queue) {
        return Taken::Gone;
    }
    return StateValue(state) != 0 ? Taken::Yes : Taken::NotYet;
}

// Looks without the lock first: mostly there is nothing.
Taken TakeMessage(ObjectSlot& slot, void* context) {
    MessageWait& wait = *static_cast<MessageWait*>(context);
    Taken seen = LookAt(slot, wait.queue);
    if (seen != Taken::Yes) {
        return seen;
    }
    HeldLock lock(queuesLock);
    seen = LookAt(slot, wait.queue);
    if (seen == Taken::Yes) {
        wait.message = std::exchange(slot.firstMessage, slot.firstMessage->next);
        if (slot.firstMessage == nullptr) {
            slot.lastMessage = nullptr;
        }
        slot.state.fetch_sub(1);
    }
    return seen;
}

void HandOver(const TaskMessage& message, void** parameter1, void** parameter2, void** parameter3) {
    void** targets[] = {parameter1, parameter2, parameter3};
    for (int i = 0; i < 3; i++) {
        if (targets[i] != nullptr) {
            *targets[i] = message.parameters[i];
        }
    }
}

OSStatus WaitForMessage(ObjectSlot& slot, MessageWait& wait, Duration timeout) {
    switch (TakeMessage(slot, &wait)) {
    case Taken::Yes:
        return noErr;
    case Taken::Gone:
        return kMPInvalidIDErr;
    case Taken::NotYet:
        break;
    }
    return WaitForObject(slot, timeout, TakeMessage, &wait);
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
    // From the taking to the message handed over; while this thread sleeps it may be terminated all the same.
    TerminationHold hold;
    MessageWait wait{queue};
    OSStatus status = WaitForMessage(*slot, wait, timeout);
    if (status == noErr) {
        std::unique_ptr<TaskMessage> message(wait.message);
        HandOver(*message, parameter1, parameter2, parameter3);
    }
    return status;
}
