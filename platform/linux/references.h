// Inside the provider: a reference turned into a place that system calls understand.
//
// Locate gives a place whose identity has been checked; what is done there goes through Place::folder and
// Place::name, never through a path. Whoever renames, moves or deletes an object tells it here (ObjectMoved,
// ObjectDeleted), so that references made before follow and no number of a folder that is gone stays in the
// table.
#pragma once

#include "platform/linux/identity.h"
#include "platform/linux/one_thread.h"
#include "platform/linux/system_calls.h"
#include "platform/types.h"

#include <sys/stat.h>
#include <utility>

// A number of the folder table: 2 is "/", whose parent is 1. 0 is none.
using FolderID = uint32_t;
constexpr FolderID kNoFolder = 0;
constexpr FolderID kRootParent = 1;
constexpr FolderID kRootFolder = 2;

// An open descriptor of a folder (O_PATH: it finds names and checks facts, it does not list), shared with the
// descriptor cache; closed when the last holder lets go.
class FolderHandle {
public:
    FolderHandle() = default;
    FolderHandle(const FolderHandle& other) : shared_(other.shared_) {
        if (shared_) AddTo(shared_->holders, 1u, std::memory_order_relaxed);
    }
    FolderHandle(FolderHandle&& other) noexcept : shared_(std::exchange(other.shared_, nullptr)) {}
    FolderHandle& operator=(FolderHandle other) noexcept {
        std::swap(shared_, other.shared_);
        return *this;
    }
    ~FolderHandle() {
        if (shared_ && AddTo(shared_->holders, -1u, std::memory_order_acq_rel) == 1) End();
    }

    // Takes the descriptor over. Throws std::bad_alloc, having closed it.
    static FolderHandle Of(int descriptor);

    int descriptor() const { return shared_ ? shared_->descriptor : -1; } // -1 when empty

private:
    friend class DescriptorCache;
    struct Shared {
        std::atomic<uint32_t> holders;
        int descriptor;
    };
    void End();

    Shared* shared_ = nullptr;
};

// Where an object stands at this moment. Its identity has been checked against the reference.
struct Place {
    FolderHandle folder;  // the folder that holds it; for "/" the root itself
    char name[256];       // its name there in bytes; "." for "/"
    FolderID folderID;    // the parent's number (1 for "/")
    struct statx facts;   // of the object itself: basic facts and birth time, and the mount it is on
    bool isLink;          // the object is a symbolic link
    bool standsForTarget; // a link that came from a path: reading and asking mean what it leads to
};

// Finds the object itself: for deleting, moving, renaming and setting facts. -43 when it is gone.
OSErr Locate(const FSRef& ref, Place& place);

// Finds what the reference stands for in questions, opening and listing: for a link made from a path, its
// target (-43 when it dangles).
OSErr LocateTarget(const FSRef& ref, Place& place);

// Where the object was when last seen, for a caller that opens it at once: saves the look that Locate takes.
// `facts` holds only the type; the caller checks with Matches whether what it opened has the identity, and
// goes through Locate when it has not. Gives -43 for links and whatever else needs the longer way.
OSErr Guess(const FSRef& ref, Place& place, Identity& identity);

// Whether facts (of kFactsMask) are those of the object that the reference was made for.
bool IsObject(const FSRef& ref, const struct statx& facts);

// The reference of an object found in a folder. `facts` must hold identity and type; `fromPath` marks links
// that came from a path. Folders get a number in the folder table (which is why this can fail with -108).
OSErr MakeReference(FolderID folderID, const char* name, const struct statx& facts, bool fromPath,
                    FSRef& ref);

// The folder's number, entering it in the table where needed.
OSErr FolderNumber(const Place& folder, FolderID& id);

// Opens the folder that a place stands for, through the descriptor cache.
OSErr OpenFolder(const Place& folder, FolderHandle& handle);

// Opens the folder that a reference stands for (a link made from a path: its target), and gives its number.
// Costs nothing for a folder used lately. -1407 when it is not a folder.
OSErr OpenContainer(const FSRef& ref, FolderID& id, FolderHandle& handle);

// By number alone: the open folder, its reference (no look at the disk), its parent's number (kNoFolder when
// unknown).
OSErr OpenFolder(FolderID id, FolderHandle& handle);
OSErr FolderReference(FolderID id, FSRef& ref);
FolderID ParentNumber(FolderID id);

// To be called after the library has renamed or moved the object at `from`, or deleted the one at `place`.
void ObjectMoved(const Place& from, FolderID toFolder, const char* toName);
void ObjectDeleted(const Place& place);

// To be called after another object has been put in the place of the file at `file` and goes on in its stead:
// references to the file stand for that object from now on.
void ObjectReplaced(const Place& file, const struct statx& now);

// Closes descriptors that are only held for speed; true when there were any, so that an open that failed with -42
// is worth another try.
bool CloseIdleDescriptors();
