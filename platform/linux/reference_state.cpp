// The one lock over what references need between calls, its behaviour at fork(), and its end at unloading.
// The state is never destroyed, only emptied: threads that still run while the process exits find it empty,
// not gone.
#include "platform/linux/reference_state.h"

#include "platform/linux/current_task.h"
#include "platform/linux/one_thread.h"
#include "platform/process.h"

#include <mutex>

namespace {

union Holder {
    ReferenceState state;
    Holder() { new (&state) ReferenceState(); }
    ~Holder() {}
};

constinit std::mutex stateLock;

void LockState() {
    stateLock.lock();
}
void UnlockState() {
    stateLock.unlock();
}

// After the handlers of the locks that are taken under this one, before those of the logic.
[[gnu::constructor(106)]] void KeepUsableAcrossFork() {
    (void)PlatformAtFork(LockState, UnlockState, UnlockState);
}

[[gnu::destructor]] void CloseAtUnloading() {
    ForgetReferences();
}

} // namespace

bool Devices::Find(uint32_t device, uint32_t mount, uint64_t oldest, DeviceTraits& traits) const {
    const Slot& slot = slots_[(device ^ mount * 7) % kSlots];
    if (!slot.used || slot.device != device || slot.mount != mount || slot.learnt < oldest) return false;
    traits = slot.traits;
    return true;
}

void Devices::Remember(uint32_t device, uint32_t mount, uint64_t now, const DeviceTraits& traits) {
    slots_[(device ^ mount * 7) % kSlots] = {true, device, mount, now, traits};
}

StateLock::StateLock() : isHeld_(!HasOneThread()) {
    if (isHeld_) LockState();
    static Holder holder;
    state_ = &holder.state;
}
StateLock::~StateLock() {
    if (isHeld_) UnlockState();
}

void ForgetReferences() {
    StateLock state;
    state->folders.Clear();
    state->descriptors.Clear();
    state->longNames.Clear();
    state->moves.Clear();
    state->replacements.Clear();
    state->paths.Clear();
    state->devices = {};
    state->caseless.Clear();
    state->sweep = {};
}
