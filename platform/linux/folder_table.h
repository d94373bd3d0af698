// The folders that references and node IDs speak of: a number for each, with its identity and its place.
//
// At most 128 bytes a folder, its share of the index included. Not locked; see reference_state.h.
#pragma once

#include "platform/linux/identity.h"
#include "platform/linux/references.h"

#include <memory>
#include <vector>

struct FolderRecord {
    static constexpr size_t kInlineName = 68;

    uint64_t inode; // without stable inodes a hash of the place
    uint64_t birth;
    uint64_t nameHash;
    uint32_t device;
    uint32_t mount;
    FolderID parent;
    uint32_t next;      // index of the next record of the same hash, or of the next free one
    uint8_t generation; // of the numbers that this slot has stood for
    bool used;
    bool byNumber;
    uint8_t nameLength;     // 1 to 255; a name of more than kInlineName bytes is not kept here
    char name[kInlineName]; // not terminated

    bool HasName() const { return nameLength <= kInlineName; }
};
static_assert(sizeof(FolderRecord) <= 112);

Identity IdentityOf(const FolderRecord& record);

class FolderTable {
public:
    // Null for a number that stands for no folder (any more); takes no memory. Records stay where they are
    // until they are removed.
    FolderRecord* Find(FolderID id);

    // The number of a folder whose identity and mount are known, or kNoFolder. Where inodes are not stable
    // the folder is known by its place alone.
    FolderID FindFolder(const Identity& identity, uint32_t mount, FolderID parent, const char* name);

    // Finds or adds the folder and notes its place. kNoFolder when the table is full (16 million folders);
    // throws std::bad_alloc.
    FolderID Enter(const Identity& identity, uint32_t mount, FolderID parent, const char* name);

    void SetPlace(FolderID id, FolderID parent, const char* name);
    void Remove(FolderID id);

    // The next number in use after `id` in the order of the slots, round and round; for looking through the
    // table bit by bit. kNoFolder when there is none but "/".
    FolderID Next(FolderID id) const;

    size_t size() const { return size_; }
    size_t MemoryUse() const;
    void Clear();

private:
    static constexpr uint32_t kChunk = 256;

    static constexpr FolderRecord Root() {
        FolderRecord root{};
        root.parent = kRootParent;
        root.used = true;
        root.name[0] = '.';
        root.nameLength = 1;
        return root;
    }
    FolderRecord& At(uint32_t index) { return chunks_[index / kChunk][index % kChunk]; }
    const FolderRecord& At(uint32_t index) const { return chunks_[index / kChunk][index % kChunk]; }
    FolderID NumberOf(uint32_t index) const;
    uint32_t& BucketOf(const FolderRecord& record);
    void Link(uint32_t index);
    void Unlink(uint32_t index);
    void Grow();
    uint32_t TakeSlot();

    FolderRecord root_ = Root();
    std::vector<std::unique_ptr<FolderRecord[]>> chunks_;
    std::vector<uint32_t> buckets_;   // 0 ends a chain
    uint32_t used_ = kRootFolder + 1; // slots ever used
    uint32_t freeFirst_ = 0;          // oldest first, so that a number is not soon another folder's
    uint32_t freeLast_ = 0;
    size_t size_ = 1;
};
