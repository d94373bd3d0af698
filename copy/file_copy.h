// Copying one file: its catalog information, all its forks, and the marks that it bears while it is being
// written.
#pragma once

#include "copy/object_copy.h"

// Copies a file and asks the filter. `newRef` and `newSpec` may be null; `newRef` is handed out as soon as
// the file is made, so that a copy which the filter then refuses can be removed.
OSErr FSCopyFile(const FSRef* source, const FSRef* destDir, const FSCatalogInfo* sourceInfo,
                 const HFSUniStr255* newName, CopyParams* params, FilterParams* filter, FSRef* newRef,
                 FSSpec* newSpec);

// Copies a file without asking the filter: by the server where it can, else by hand.
OSErr CopyFile(const FSRef* source, const FSCatalogInfo* sourceInfo, const FSRef* destDir,
               const HFSUniStr255* newName, CopyParams* params, FSRef* newRef, FSSpec* newSpec);

// Has the server copy the file; a copy whose FSSpec or reference is wanted and cannot be had is removed.
OSErr FSUsePBHCopyFile(const FSRef* source, const FSRef* destDir, TextEncoding encodingHint,
                       const HFSUniStr255* newName, FSRef* newRef, FSSpec* newSpec);

// Copies the file by hand; one that fails half-way is removed.
OSErr DoCopyFile(const FSRef* source, const FSCatalogInfo* sourceInfo, const FSRef* destDir,
                 const HFSUniStr255* newName, CopyParams* params, FSRef* newRef, FSSpec* newSpec);

// The reference of the object named by volume, folder and length-prefixed Mac Roman name.
OSErr FSMakeFSRef(FSVolumeRefNum volume, int32_t dirID, const uint8_t* name, FSRef* ref);

// A Unicode name as Mac Roman with its length in front, at most 62 bytes; -37 where it cannot be said so
// or would read back as other units.
OSErr UniStrToPStr(const HFSUniStr255* uniName, TextEncoding encodingHint, uint8_t name[64]);

// Fetches what the filter wants to know beyond the settable facts and asks it; 0 changes nothing without a
// filter.
OSErr AskFilter(const FilterParams* filter, Boolean isFolder, ItemCount level, OSErr result,
                const FSCatalogInfo* sourceInfo, const FSRef* newRef, const FSSpec* newSpec,
                const HFSUniStr255* name, const FSRef* destDir);
