// Bounded memories that make references cheaper or let old ones follow: long names, moves, folders' paths.
//
// Each may forget at any time; then the long way is taken, or an old reference gives -43. Not locked; see
// reference_state.h. Memory is taken at the first use; where there is none, nothing is remembered.
#pragma once

#include "platform/linux/descriptor_cache.h"
#include "platform/linux/identity.h"

#include <memory>
#include <string>

// Names too long to be kept in a reference or in the folder table.
class LongNames {
public:
    void Remember(const Identity& identity, FolderID folder, const char* name);

    // False when the name of this hash is not remembered.
    bool Recall(const Identity& identity, FolderID folder, uint64_t nameHash, char (&name)[256]) const;
    void Clear() { slots_.reset(); }

private:
    struct Slot {
        uint64_t key;
        uint64_t nameHash;
        FolderID folder;
        char name[256];
    };
    // The names of one path have to fit together, whatever their keys are.
    static constexpr size_t kSets = 64;
    static constexpr size_t kSlotsInSet = 8;
    std::unique_ptr<Slot[]> slots_;
};

// Where objects went: from a folder and name to another folder and name.
class Moves {
public:
    void Remember(const Identity& identity, FolderID fromFolder, uint64_t fromHash, FolderID toFolder,
                  const char* toName);

    // Forgets where what stood there went: something stands there again.
    void Forget(const Identity& identity, FolderID folder, uint64_t nameHash);

    // Replaces folder, name hash and name by where the object went from there; false when that is not known.
    bool Follow(const Identity& identity, FolderID& folder, uint64_t& nameHash, char (&name)[256]) const;
    void Clear() { slots_.reset(); }

private:
    struct Slot {
        uint64_t key;
        FolderID toFolder;
        char toName[256];
    };
    static constexpr size_t kSlots = 2048;
    std::unique_ptr<Slot[]> slots_;
};

// Files in whose place another object was put, which goes on in their stead.
class Replacements {
public:
    void Remember(const Identity& was, const Identity& now);

    // Replaces the identity by that of the object that took the place; false when there is none.
    bool Follow(Identity& identity) const;
    void Clear() { slots_.reset(); }

private:
    struct Slot {
        uint64_t key;
        Identity now;
    };
    static constexpr size_t kSlots = 512;
    std::unique_ptr<Slot[]> slots_;
};

// The numbers of folders lately used by path.
class FolderPaths {
public:
    struct Entry {
        MountView view = 0;
        FolderID id = kNoFolder;
        FolderID parent = kNoFolder; // the folder's place when it was entered here
        uint64_t nameHash = 0;
        uint64_t checked = 0; // when the path was last seen to lead to the folder
        std::string path;
    };

    // Null when the path is not known.
    Entry* Find(MountView view, const char* path, size_t length);
    void Remember(Entry entry);

    // The next entry that leads to `id` in whatever view, from `position` on; null after the last one.
    const Entry* Next(FolderID id, size_t& position) const;
    void Clear() { slots_.reset(); }

private:
    static constexpr size_t kSlots = 512;
    std::unique_ptr<Entry[]> slots_;
};
