// Copying one file-system object, a file with all its forks and facts or a folder with everything in it, into
// a folder under a given name.
#pragma once

#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/memory.h"
#include "platform/types.h"
#include "platform/volumes.h"

// What to do when the name is taken.
using DupeAction = uint32_t;
constexpr DupeAction kDupeActionStandard = 0; // let the creation fail
constexpr DupeAction kDupeActionReplace = 1;
constexpr DupeAction kDupeActionRename = 2; // pick a new unique name

// Bits of the Finder flags, and the types that tell what a file is. Finder information is kept in big-endian
// bytes.
constexpr uint16_t kFinderHasBeenPlaced = 0x0100;
constexpr uint16_t kOwnerAccess = 0x01C0; // owner's read, write and execute

// The result for a folder that is to be copied into itself.
constexpr OSErr kDestInsideSourceErr = -1234;

// Asked after each object of a copy; what it returns becomes the result. `catalogInfo` holds the facts that
// the caller selected and the settable ones; `newSpec` and `name` are null unless wanted; `destDir` holds the
// new object.
using CopyFilterProc = OSErr (*)(Boolean isFolder, ItemCount level, OSErr result,
                                 const FSCatalogInfo* catalogInfo, const FSRef* newRef, const FSSpec* newSpec,
                                 const HFSUniStr255* name, const FSRef* destDir, void* yourDataPtr);

struct FilterParams {
    FSCatalogInfoBitmap whichInfo;
    CopyFilterProc filterProc;
    Boolean wantFSSpec;
    Boolean wantName;
    void* yourDataPtr;
};

// What every step of one copy shares.
struct CopyParams {
    Ptr copyBuffer;
    ByteCount copyBufferSize;
    Boolean copyingToDropBox;     // the destination may be written but not read by this user
    Boolean copyingToLocalVolume; // the destination has no server address
    Boolean volHasCopyFile;       // the server can copy files itself; never set when local
    DupeAction dupeAction;
};

// Copies `source` into `destDir` under `newName` (null: its own name). `maxLevels` limits the depth of
// folders, 0 does not. `newRef` and `newSpec` may be null. -50 for a null source or destination.
OSErr FSCopyObject(const FSRef* source, const FSRef* destDir, ItemCount maxLevels,
                   FSCatalogInfoBitmap whichInfo, DupeAction dupeAction, const HFSUniStr255* newName,
                   Boolean wantFSSpec, Boolean wantName, CopyFilterProc filterProc, void* yourDataPtr,
                   FSRef* newRef, FSSpec* newSpec);

// Finds out everything that the copy needs to know, allocates its buffer and makes room for the name.
// `deleteMeRef` and `isReplacing` tell of an object that was set aside.
OSErr FSCopyObjectPreflight(const FSRef* source, const FSRef* destDir, DupeAction dupeAction,
                            CopyParams* params, HFSUniStr255* newObjectName, FSCatalogInfo* sourceInfo,
                            Boolean* isDirectory, FSRef* deleteMeRef, Boolean* isReplacing);

// Deals with an object that already has the name: sets it aside, changes `name`, or leaves the conflict to
// the creation.
OSErr SetupDestination(const FSRef* destDir, DupeAction dupeAction, HFSUniStr255* name, FSRef* deleteMeRef,
                       Boolean* isReplacing);

// Changes `name` to one that is free in the folder: a space and a digit before the extension.
OSErr GetUniqueName(const FSRef* destDir, HFSUniStr255* name);

OSErr GetObjectName(const FSRef* ref, HFSUniStr255* name);
