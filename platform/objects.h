// Creating, deleting, moving and renaming files and folders.
#pragma once

#include "platform/types.h"

extern "C" {

// Creates an empty file named `name` in the folder `parentRef`, with the settable facts of `catalogInfo` that
// `whichInfo` selects (kFSCatInfoNone and null for none). `newRef` and `newSpec` may be null. -48 when the
// name is taken, -43 when the folder is gone, -37 for a bad name. A file that cannot be given its facts is
// removed again.
OSErr FSCreateFileUnicode(const FSRef* parentRef, UniCharCount nameLength, const UniChar* name,
                          FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* catalogInfo, FSRef* newRef,
                          FSSpec* newSpec);

// Creates an empty folder likewise; `newDirID`, which may be null, receives its node ID.
OSErr FSCreateDirectoryUnicode(const FSRef* parentRef, UniCharCount nameLength, const UniChar* name,
                               FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* catalogInfo, FSRef* newRef,
                               FSSpec* newSpec, uint32_t* newDirID);

// Between these two calls a thread makes one tree, or deletes one, and nothing of the application's runs on it: the
// provider may go on with the mounts and the root that the thread saw at the beginning, and need not look before each
// new file for what only others can have put into a folder of the tree, nor a second time at a file that it has listed
// within 50 microseconds and is to delete. To begin again is to begin anew, and to end twice does no harm.
void PlatformBeginTree();
void PlatformEndTree();

// Deletes a file with all its forks, or an empty folder. -45 when it is locked, -47 when the folder is not
// empty or something is mounted on it. Where the file has gone and the host would not let go of its other
// forks, the result tells why.
OSErr FSDeleteObject(const FSRef* ref);

// Moves an object into another folder of the same volume under its own name. -48 when the name is taken
// there, -1303 on another volume. `newRef` may be null; the old reference follows the object too.
OSErr FSMoveObject(const FSRef* ref, const FSRef* destDirectory, FSRef* newRef);

// Gives an object another name in its folder. -48 when the name is taken, -37 for a bad name. `newRef` may be
// null; the old reference follows the object too.
OSErr FSRenameUnicode(const FSRef* ref, UniCharCount nameLength, const UniChar* name,
                      TextEncoding encodingHint, FSRef* newRef);

} // extern "C"
