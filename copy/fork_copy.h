// Copying the forks of a file.
#pragma once

#include "copy/object_copy.h"

// A destination fork that stays open: a file in a drop box cannot be opened again once it is closed.
#pragma pack(push, 4)
struct ForkTrackerRec {
    HFSUniStr255 forkName;
    uint64_t forkSize;
    FSForkRefNum forkDestRefNum; // 0 when not open
};
#pragma pack(pop)
static_assert(sizeof(ForkTrackerRec) == 524);

// Copies every fork of `source` into the existing file `dest`.
OSErr CopyForks(const FSRef* source, const FSRef* dest, CopyParams* params);
OSErr CopyForksToDisk(const FSRef* source, const FSRef* dest, CopyParams* params);
OSErr CopyForksToDropBox(const FSRef* source, const FSRef* dest, CopyParams* params);

// Creates and opens the forks of `dest`, one record each at the end of `forkList`.
OSErr OpenAllForks(const FSRef* dest, struct GenLinkedList* forkList);

// Copies `forkSize` bytes from one open fork to the other.
OSErr WriteFork(FSForkRefNum sourceRefNum, FSForkRefNum destRefNum, CopyParams* params, uint64_t forkSize);

// Disposes of a ForkTrackerRec: closes its fork.
void MyCloseForkProc(void* data);
