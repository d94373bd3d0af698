// Inside the provider: a reference turned into a place that system calls understand.
#pragma once

#include "platform/types.h"

#include <sys/stat.h>

// A number of the folder table: 2 is "/", whose parent is 1. 0 is none.
using FolderID = uint32_t;

// An open descriptor of a folder, shared with the descriptor cache; closed when the last holder lets go.
class FolderHandle {
public:
    FolderHandle() = default;
    FolderHandle(const FolderHandle& other);
    FolderHandle(FolderHandle&& other) noexcept;
    FolderHandle& operator=(FolderHandle other) noexcept;
    ~FolderHandle();

    int descriptor() const; // -1 when empty

private:
    friend class DescriptorCache;
    struct Shared;
    Shared* shared_ = nullptr;
};

// Where an object stands at this moment. Its identity has been checked against the reference.
struct Place {
    FolderHandle folder;    // the folder that holds it; for "/" the root itself
    char name[256];         // its name there in bytes; "." for "/"
    FolderID folderID;      // the parent's number (1 for "/")
    struct statx facts;     // of the object itself: basic facts and birth time, and the mount it is on
    bool isLink;            // the object is a symbolic link
    bool standsForTarget;   // a link that came from a path: reading and asking mean what it leads to
};

// Finds the object itself: for deleting, moving, renaming and setting facts.
OSErr Locate(const FSRef& ref, Place& place);

// Finds what the reference stands for in questions, opening and listing: for a link made from a path, its target.
OSErr LocateTarget(const FSRef& ref, Place& place);

// The reference of an object found in a folder. `facts` must hold identity and type; `fromPath` marks links that came
// from a path. Folders get a number in the folder table (which is why this can fail with -108).
OSErr MakeReference(FolderID folderID, const char* name, const struct statx& facts, bool fromPath, FSRef& ref);

// The folder's number, entering it in the table where needed.
OSErr FolderNumber(const Place& folder, FolderID& id);

// Opens the folder that a place stands for, through the descriptor cache.
OSErr OpenFolder(const Place& folder, FolderHandle& handle);

// The facts that Place::facts asks statx for.
constexpr unsigned kFactsMask = STATX_BASIC_STATS | STATX_BTIME | STATX_MNT_ID;
