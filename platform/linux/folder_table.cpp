// The folder table: records in chunks that never move, found by number at once and by identity through a
// hash. The platform's catalog keeps such numbers on the disk; here a number lives as long as the process and
// its folder. Number 2 is "/" always; it is known by being the root, not by an identity, and needs no memory. A number is the slot's index, with a generation above it that changes
// when a slot is used again.
#include "platform/linux/folder_table.h"

#include <cstring>

constexpr uint32_t kIndexBits = 24;
constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
constexpr uint8_t kGenerations = 128; // numbers stay positive in 32 bits

Identity IdentityOf(const FolderRecord& record) {
    Identity identity;
    identity.inode = record.byNumber ? record.inode : 0;
    identity.birth = record.birth;
    identity.device = record.device;
    identity.type = S_IFDIR;
    identity.byNumber = record.byNumber;
    return identity;
}

static uint64_t PlaceKey(FolderID parent, uint64_t nameHash) {
    return nameHash ^ parent * 0x9E3779B97F4A7C15u;
}

static uint64_t KeyOf(const Identity& identity, FolderID parent, uint64_t nameHash) {
    return identity.byNumber ? identity.inode : PlaceKey(parent, nameHash);
}

FolderRecord* FolderTable::Find(FolderID id) {
    if (id == kRootFolder) return &root_;
    uint32_t index = id & kIndexMask;
    if (index <= kRootFolder || index >= used_) return nullptr;
    FolderRecord& record = At(index);
    return record.used && NumberOf(index) == id ? &record : nullptr;
}

FolderID FolderTable::NumberOf(uint32_t index) const {
    return static_cast<FolderID>(At(index).generation) << kIndexBits | index;
}

uint32_t& FolderTable::BucketOf(const FolderRecord& record) {
    uint64_t hash = (record.inode ^ record.birth ^ record.device) * 0x9E3779B97F4A7C15u;
    return buckets_[(hash >> 32) & (buckets_.size() - 1)];
}

void FolderTable::Link(uint32_t index) {
    uint32_t& bucket = BucketOf(At(index));
    At(index).next = bucket;
    bucket = index;
}

void FolderTable::Unlink(uint32_t index) {
    uint32_t* link = &BucketOf(At(index));
    while (*link && *link != index) link = &At(*link).next;
    if (*link) *link = At(index).next;
}

void FolderTable::Grow() {
    std::vector<uint32_t> larger(buckets_.empty() ? kChunk : buckets_.size() * 2);
    buckets_.swap(larger);
    for (uint32_t index = kRootFolder + 1; index < used_; ++index)
        if (At(index).used) Link(index);
}

uint32_t FolderTable::TakeSlot() {
    // Slots wait in line, so that the numbers of a folder deleted lately stay unused for as long as possible.
    if (freeFirst_ && (size_ + 64 < used_ || used_ > kIndexMask)) {
        uint32_t index = freeFirst_;
        freeFirst_ = At(index).next;
        if (!freeFirst_) freeLast_ = 0;
        return index;
    }
    if (used_ > kIndexMask) return 0;
    if (used_ / kChunk >= chunks_.size()) chunks_.push_back(std::make_unique<FolderRecord[]>(kChunk));
    return used_++;
}

// Names may be made so that they have one hash.
static bool IsAt(const FolderRecord& record, FolderID parent, const char* name) {
    const size_t length = std::strlen(name);
    return record.parent == parent && record.nameLength == length &&
           (!record.HasName() || std::memcmp(record.name, name, length) == 0);
}

FolderID FolderTable::FindFolder(const Identity& identity, uint32_t mount, FolderID parent,
                                 const char* name) {
    if (buckets_.empty()) return kNoFolder;
    FolderRecord sought = {};
    sought.inode = KeyOf(identity, parent, HashName(name, std::strlen(name)));
    sought.birth = identity.birth;
    sought.device = identity.device;
    for (uint32_t index = BucketOf(sought); index; index = At(index).next) {
        const FolderRecord& record = At(index);
        if (record.inode == sought.inode && record.birth == sought.birth && record.device == sought.device &&
            record.mount == mount && record.byNumber == identity.byNumber &&
            (record.byNumber || IsAt(record, parent, name)))
            return NumberOf(index);
    }
    return kNoFolder;
}

FolderID FolderTable::Enter(const Identity& identity, uint32_t mount, FolderID parent, const char* name) {
    FolderID known = FindFolder(identity, mount, parent, name);
    if (known != kNoFolder) {
        SetPlace(known, parent, name);
        return known;
    }
    if (size_ >= buckets_.size()) Grow();
    uint32_t index = TakeSlot();
    if (index == 0) return kNoFolder;
    FolderRecord& record = At(index);
    record.used = true;
    record.birth = identity.birth;
    record.device = identity.device;
    record.mount = mount;
    record.byNumber = identity.byNumber;
    record.inode = KeyOf(identity, parent, HashName(name, std::strlen(name)));
    Link(index);
    ++size_;
    SetPlace(NumberOf(index), parent, name);
    return NumberOf(index);
}

void FolderTable::SetPlace(FolderID id, FolderID parent, const char* name) {
    FolderRecord* record = Find(id);
    if (!record || id == kRootFolder) return;
    size_t length = std::strlen(name);
    record->parent = parent;
    record->nameLength = static_cast<uint8_t>(length);
    record->nameHash = HashName(name, length);
    if (record->HasName()) std::memcpy(record->name, name, length);
    if (record->byNumber || record->inode == PlaceKey(parent, record->nameHash)) return;
    Unlink(id & kIndexMask);
    record->inode = PlaceKey(parent, record->nameHash);
    Link(id & kIndexMask);
}

void FolderTable::Remove(FolderID id) {
    FolderRecord* record = Find(id);
    if (!record || id == kRootFolder) return;
    uint32_t index = id & kIndexMask;
    Unlink(index);
    uint8_t generation = static_cast<uint8_t>((record->generation + 1) % kGenerations);
    *record = {};
    record->generation = generation;
    (freeLast_ ? At(freeLast_).next : freeFirst_) = index;
    freeLast_ = index;
    --size_;
}

FolderID FolderTable::Next(FolderID id) const {
    if (size_ <= 1) return kNoFolder;
    uint32_t index = id & kIndexMask;
    do {
        index = index + 1 < used_ ? index + 1 : kRootFolder + 1;
    } while (!At(index).used);
    return NumberOf(index);
}

size_t FolderTable::MemoryUse() const {
    return chunks_.size() * kChunk * sizeof(FolderRecord) + chunks_.capacity() * sizeof(chunks_[0]) +
           buckets_.capacity() * sizeof(buckets_[0]);
}

void FolderTable::Clear() {
    *this = FolderTable();
}
