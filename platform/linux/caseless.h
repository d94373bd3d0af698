// Names that are equal but for letter case and canonical form.
#pragma once

#include "platform/linux/references.h"

#include <array>
#include <list>
#include <string>
#include <vector>

// The canonical caseless form of a name's bytes: equal for names that a reader takes for the same.
std::u16string FoldName(const char* name);

// The one name in a folder that equals `name` without regard to case; -43 when there is none or several, or
// the folder cannot be read. Throws std::bad_alloc.
OSErr FindCaseless(FolderID folder, const char* name, char (&actual)[256]);

// When a folder's content was last changed.
struct ChangeTime {
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;
    bool operator==(const ChangeTime&) const = default;
};

// What folders hold, as hashes of folded names, so that a name that is not there does not cost reading the
// folder again. Bounded in bytes; the folder not asked for longest goes first. Not locked; see
// reference_state.h.
class CaselessNames {
public:
    static constexpr size_t kCapacity = 8 << 20;

    // What is known of a name in a folder as it was at `change`.
    enum class Answer { kUnknown, kMissing, kFound };
    Answer Find(FolderID folder, const ChangeTime& change, const std::u16string& folded, std::string& actual);

    // Takes over the hashes of all names in a folder.
    void Remember(FolderID folder, const ChangeTime& change, std::vector<uint32_t> hashes);

    // Adds what a name turned out to be: one name, or empty for none or several.
    void RememberAnswer(FolderID folder, const std::u16string& folded, const std::string& actual);

    // Whether the folder has shown this change time for longer than any file system's clock takes to tick, by
    // the clock of `now` (MonotonicNow); begins to count when not seen so before. For volumes whose own clock
    // may be another machine's.
    bool HasRested(FolderID folder, const ChangeTime& change, uint64_t now);

    size_t bytes() const { return bytes_; }
    void Clear();

private:
    struct Resolved {
        std::u16string folded;
        std::string actual;
    };
    struct Folder {
        FolderID id;
        ChangeTime change;
        std::vector<uint32_t> hashes; // sorted
        std::array<Resolved, 8> resolved;
        unsigned nextResolved = 0;

        size_t bytes() const;
    };
    struct Sighting {
        FolderID id = kNoFolder;
        ChangeTime change;
        uint64_t since = 0;
    };
    std::list<Folder>::iterator Lookup(FolderID folder);
    void Forget(std::list<Folder>::iterator folder);

    std::list<Folder> folders_; // latest first
    std::array<Sighting, 64> sightings_;
    size_t bytes_ = 0;
};

uint32_t HashFolded(const char16_t* folded, size_t length);
