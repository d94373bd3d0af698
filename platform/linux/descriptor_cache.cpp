// Open folders: counted handles, and the cache that keeps the latest of them.
// The platform's references need no open files; here a descriptor is what holds on to a folder while names
// are looked up in it, whatever happens to its path. Descriptors belong to the mounts of the thread that
// opened them. Sections: handles, mount views, cache.
#include "platform/linux/descriptor_cache.h"

#include "platform/linux/current_task.h"
#include "platform/linux/identity.h"
#include "platform/linux/system_calls.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <new>

void FolderHandle::End() {
    Close(shared_->descriptor);
    delete shared_;
}

FolderHandle FolderHandle::Of(int descriptor) {
    FolderHandle handle;
    handle.shared_ = new (std::nothrow) Shared{{1}, descriptor};
    if (!handle.shared_) {
        Close(descriptor);
        throw std::bad_alloc();
    }
    return handle;
}

static uint64_t Read(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

uint64_t MonotonicNow() {
    return Read(CLOCK_MONOTONIC);
}

uint64_t MonotonicTick() {
    return Read(CLOCK_MONOTONIC_COARSE);
}

namespace {
struct MountLook {
    MountView view;
    uint64_t when; // 0 before the first
    bool isHeld;
};
} // namespace

static constinit thread_local MountLook lastLook TAVPORT_NEAR_TLS = {};

bool IsMountViewRecent(uint64_t now) {
    constexpr uint64_t kTrusted = 50000; // a look costs a microsecond
    return lastLook.when && (lastLook.isHeld || now - lastLook.when < kTrusted);
}

MountView MountViewFrom(const struct statx& root) {
    return static_cast<uint64_t>(MountOf(root)) << 32 ^ root.stx_ino ^ 1;
}

MountView CurrentMountView(uint64_t now) {
    if (IsMountViewRecent(now)) return lastLook.view;
    struct statx root;
    if (FactsAt(AT_FDCWD, "/", 0, root) == 0) lastLook.view = MountViewFrom(root);
    lastLook.when = now;
    return lastLook.view;
}

void ForgetMountView() {
    lastLook.when = 0;
}

void HoldMountView(bool isHeld) {
    ForgetMountView();
    lastLook.isHeld = isHeld;
}

MountView LastMountView() {
    return lastLook.view;
}

void MountViewHolds(uint64_t now) {
    if (lastLook.when) lastLook.when = now;
}

FolderHandle DescriptorCache::Get(MountView view, FolderID id) {
    for (unsigned slot = 0; slot < kCapacity; ++slot) {
        if (ids_[slot] != id || views_[slot] != view) continue;
        uses_[slot] = ++clock_;
        return handles_[slot];
    }
    return {};
}

FolderHandle DescriptorCache::Put(MountView view, FolderID id, int descriptor) {
    FolderHandle handle = FolderHandle::Of(descriptor);
    if (FolderHandle present = Get(view, id); present.descriptor() >= 0) return present;
    auto oldest = static_cast<unsigned>(std::min_element(std::begin(uses_), std::end(uses_)) - uses_);
    ids_[oldest] = id;
    views_[oldest] = view;
    uses_[oldest] = ++clock_;
    handles_[oldest] = handle;
    return handle;
}

void DescriptorCache::Forget(unsigned slot) {
    ids_[slot] = kNoFolder;
    uses_[slot] = 0;
    handles_[slot] = {};
}

void DescriptorCache::Drop(FolderID id) {
    for (unsigned slot = 0; slot < kCapacity; ++slot)
        if (ids_[slot] == id) Forget(slot);
}

bool DescriptorCache::DropIdle() {
    bool any = false;
    for (unsigned slot = 0; slot < kCapacity; ++slot) {
        if (!handles_[slot].shared_ || handles_[slot].shared_->holders.load() != 1) continue;
        Forget(slot);
        any = true;
    }
    return any;
}

void DescriptorCache::Clear() {
    for (unsigned slot = 0; slot < kCapacity; ++slot) Forget(slot);
}
