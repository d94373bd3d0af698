// Inside the provider: the files that a thread copies from and to, kept open from one call to the next.
#pragma once

#include "platform/linux/appledouble.h"
#include "platform/linux/attributes.h"
#include "platform/linux/references.h"

#include <cstdint>

struct KeptFile {
    FSRef ref;
    Place place; // its facts as they were when the file was made or opened
    Descriptor file;
    bool isNew;  // made by this thread and open for writing; else open for reading
    bool isLent; // a fork has been opened on it, which shares the descriptor's offset

    // Of a new one:
    appledouble::Facts facts; // as this library has stored them
    uint64_t sidecarsMade;    // the count when the file had no sidecar
};

// Looks at the file again; -43 when nobody can find it any more.
OSErr LookAgain(KeptFile& file);

// The file that `ref` stands for, if the calling thread keeps it open; else null.
KeptFile* FindKeptFile(const FSRef& ref);

// Keeps a file that has just been made, if the thread keeps files: takes the descriptor over.
void KeepNewFile(const FSRef& ref, const Place& made, Descriptor& file, const appledouble::Facts& facts,
                 uint64_t sidecarsMade);

// Opens the regular file that `ref` stands for and keeps it, if the thread keeps files and does not yet read
// one. Null when the longer way has to be taken.
KeptFile* KeepFileToRead(const FSRef& ref);
