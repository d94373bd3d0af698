// Everything that the provider remembers between calls for the sake of references, behind one lock.
//
// The lock is held for look-ups in memory only, never across a system call other than closing; it survives
// fork().
#pragma once

#include "platform/linux/caseless.h"
#include "platform/linux/current_task.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/folder_table.h"
#include "platform/linux/remembered.h"

// Traits of the devices met lately. The numbers of a device and a mount are given again once they are unmounted,
// so that what was learnt is believed for a while only.
class Devices {
public:
    // What was learnt at `oldest` (nanoseconds of the monotonic clock) or later.
    bool Find(uint32_t device, uint32_t mount, uint64_t oldest, DeviceTraits& traits) const;
    void Remember(uint32_t device, uint32_t mount, uint64_t now, const DeviceTraits& traits);

private:
    static constexpr unsigned kSlots = 64;
    struct Slot {
        bool used;
        uint32_t device;
        uint32_t mount;
        uint64_t learnt; // when
        DeviceTraits traits;
    };
    Slot slots_[kSlots] = {};
};

// How far the folder table has been looked through for folders that are gone.
struct FolderSweep {
    static constexpr size_t kLeast = 8192;

    size_t at = kLeast; // the number of folders from which on it is done
    size_t left = 0;    // folders still to be looked at in this round
    FolderID last = kRootFolder;
    MountView view = 0; // folders are looked for as the first user of the table sees them
    bool running = false;
};

struct ReferenceState {
    FolderTable folders;
    DescriptorCache descriptors;
    LongNames longNames;
    Moves moves;
    Replacements replacements;
    FolderPaths paths;
    Devices devices;
    CaselessNames caseless;
    FolderSweep sweep;
};

// Holds the lock while it lives, unless the process has no thread beside this one.
class StateLock {
public:
    StateLock();
    ~StateLock();
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;
    ReferenceState* operator->() const { return state_; }

private:
    TerminationHold hold_;
    const bool isHeld_;
    ReferenceState* state_;
};

// Forgets everything and closes every descriptor that nobody holds. Unloading does this.
void ForgetReferences();
