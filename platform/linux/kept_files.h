// Inside the provider: the files that a thread copies from and to, kept open from one call to the next.
#pragma once

#include "platform/linux/appledouble.h"
#include "platform/linux/attributes.h"
#include "platform/linux/fork_table.h"
#include "platform/linux/metadata.h"
#include "platform/linux/references.h"

#include <cstdint>

struct KeptFile {
    bool isSet = false;
    FSRef ref;
    Place place;       // its facts as they were when the file was made or opened, or looked at since
    Descriptor file;   // none from the time when a fork has got it; that of a new file comes back
    bool isNew;        // made by this thread and open for writing; else open for reading
    bool isLent;       // a fork has been opened on it
    int numberOut = 0; // the descriptor that a fork has got and is to bring back; 0 for none

    // Of a new one:
    appledouble::Facts facts; // as this library has stored them
    uint64_t sidecarsMade;    // the count when the file had no sidecar
    bool owesDates;           // see KeepOwedDates
    bool isFresh;             // the place's facts have been got since it was written
};

// Looks at the file again; -43 when nobody can find it any more.
OSErr LookAgain(KeptFile& file);

// The file that `ref` stands for, if the calling thread keeps it; else null.
KeptFile* FindKeptFile(const FSRef& ref);

// Whether the calling thread keeps the next file that it makes.
bool CanKeepNewFile();

// Keeps a file that has just been made, if the thread can: takes the descriptor over.
void KeepNewFile(const FSRef& ref, const Place& made, Descriptor& file, const NewFile& facts,
                 uint64_t sidecarsMade);

// Opens the regular file that `ref` stands for and keeps it, if the thread keeps files and does not yet read
// one. Null when the longer way has to be taken.
KeptFile* KeepFileToRead(const FSRef& ref);

// A descriptor of the file for the one fork that may be opened on it; -1 on failure.
int LendDescriptor(KeptFile& file);

// Takes a descriptor back that a fork is done with, if it is a kept file's. `facts` have been got since the fork
// was written, or have the mask 0.
bool TakeDescriptorBack(OpenFork& fork, const struct statx& facts);

// Gives the file its dates now, if it still has to get them; place.facts are those of now.
OSErr PayOwedDates(KeptFile& file);
