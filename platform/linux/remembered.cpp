// The bounded memories: arrays in which a newer entry takes the place of an older one with the same slot.
// The platform's catalog finds any object by its number; the host finds names only, so what is known about
// names is kept as long as there is room. Sections: long names, moves, replacements, paths.
#include "platform/linux/remembered.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

static uint64_t Mix(uint64_t a, uint64_t b) {
    uint64_t hash = (a ^ b * 0x9E3779B97F4A7C15u) * 0xD6E8FEB86659FD93u;
    return hash ^ hash >> 32;
}

static uint64_t KeyOf(const Identity& identity, FolderID folder, uint64_t nameHash) {
    uint64_t key = Mix(identity.inode, identity.birth ^ identity.device);
    return Mix(Mix(key, folder), nameHash) | 1; // 0 is an empty slot
}

template <typename Slot>
static bool Allocate(std::unique_ptr<Slot[]>& slots, size_t count) {
    if (!slots) slots.reset(new (std::nothrow) Slot[count]());
    return slots != nullptr;
}

void LongNames::Remember(const Identity& identity, FolderID folder, const char* name) {
    if (!Allocate(slots_, kSets * kSlotsInSet)) return;
    uint64_t nameHash = HashName(name, std::strlen(name));
    uint64_t key = KeyOf(identity, folder, nameHash);
    Slot* const set = &slots_[key / 2 % kSets * kSlotsInSet];
    Slot* const old = std::find_if(set, set + kSlotsInSet - 1, [key](const Slot& s) { return s.key == key; });
    // The latest comes first, the oldest is given up.
    std::move_backward(set, old, old + 1);
    set->key = key;
    set->nameHash = nameHash;
    set->folder = folder;
    std::strncpy(set->name, name, sizeof set->name - 1);
}

bool LongNames::Recall(const Identity& identity, FolderID folder, uint64_t nameHash,
                       char (&name)[256]) const {
    if (!slots_) return false;
    uint64_t key = KeyOf(identity, folder, nameHash);
    const Slot* const set = &slots_[key / 2 % kSets * kSlotsInSet];
    const Slot* const slot = std::find_if(set, set + kSlotsInSet, [&](const Slot& each) {
        return each.key == key && each.nameHash == nameHash && each.folder == folder;
    });
    if (slot == set + kSlotsInSet) return false;
    std::memcpy(name, slot->name, sizeof slot->name);
    return true;
}

void Moves::Remember(const Identity& identity, FolderID fromFolder, uint64_t fromHash, FolderID toFolder,
                     const char* toName) {
    if (!Allocate(slots_, kSlots)) return;
    uint64_t key = KeyOf(identity, fromFolder, fromHash);
    Slot& slot = slots_[key / 2 % kSlots];
    slot.key = key;
    slot.toFolder = toFolder;
    std::strncpy(slot.toName, toName, sizeof slot.toName - 1);
}

void Moves::Forget(const Identity& identity, FolderID folder, uint64_t nameHash) {
    if (!slots_) return;
    const uint64_t key = KeyOf(identity, folder, nameHash);
    Slot& slot = slots_[key / 2 % kSlots];
    if (slot.key == key) slot.key = 0;
}

bool Moves::Follow(const Identity& identity, FolderID& folder, uint64_t& nameHash, char (&name)[256]) const {
    if (!slots_) return false;
    uint64_t key = KeyOf(identity, folder, nameHash);
    const Slot& slot = slots_[key / 2 % kSlots];
    if (slot.key != key) return false;
    folder = slot.toFolder;
    std::memcpy(name, slot.toName, sizeof slot.toName);
    nameHash = HashName(name, std::strlen(name));
    return true;
}

void Replacements::Remember(const Identity& was, const Identity& now) {
    if (!Allocate(slots_, kSlots)) return;
    uint64_t key = KeyOf(was, kNoFolder, 0);
    slots_[key / 2 % kSlots] = {key, now};
}

bool Replacements::Follow(Identity& identity) const {
    if (!slots_) return false;
    uint64_t key = KeyOf(identity, kNoFolder, 0);
    const Slot& slot = slots_[key / 2 % kSlots];
    if (slot.key != key) return false;
    identity = slot.now;
    return true;
}

FolderPaths::Entry* FolderPaths::Find(MountView view, const char* path, size_t length) {
    if (!slots_) return nullptr;
    Entry& entry = slots_[Mix(view, HashName(path, length)) % kSlots];
    bool same = entry.view == view && entry.path.size() == length &&
                std::memcmp(entry.path.data(), path, length) == 0;
    return same && entry.id != kNoFolder ? &entry : nullptr;
}

void FolderPaths::Remember(Entry entry) {
    if (!Allocate(slots_, kSlots)) return;
    Entry& slot = slots_[Mix(entry.view, HashName(entry.path.data(), entry.path.size())) % kSlots];
    slot = std::move(entry);
}

const FolderPaths::Entry* FolderPaths::Next(FolderID id, size_t& position) const {
    if (!slots_) return nullptr;
    while (position < kSlots) {
        const Entry& entry = slots_[position++];
        if (entry.id == id) return &entry;
    }
    return nullptr;
}
