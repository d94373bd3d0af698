// Inside the provider: the record of an iterator, and the delete iterators that rest between two reads, which
// give their descriptors back when many are open.
#pragma once

#include "platform/iterators.h"
#include "platform/linux/attributes.h"
#include "platform/linux/folder_reader.h"
#include "platform/linux/references.h"
#include "platform/linux/sighting.h"

struct OpaqueFSIterator {
    FSRef container;
    bool isForDelete = false;
    bool isOnLink = false; // a delete iterator that yields nothing
    OSErr leftOut = noErr; // why an entry was left out, which is told at the end

    FolderReader reader;
    Place item = {};       // the entry in hand, and the folder in which all of them stand
    OSErr pending = noErr; // came up behind entries that were still given

    // For deletes: the folder held no sidecars when it was read, and the count of sidecars made from before
    // that.
    bool hasNoSidecars = false;
    uint64_t sidecarsMade = 0;
    uint64_t lookedAt = 0; // when the entry in hand was, on the monotonic clock
    BareFolder bareFolder; // for copies, if that is so
    bool mayOpenAhead = false;
    Descriptor opened; // the entry in hand, if it has been opened for a copy

    // The folder's last change when it was last looked at for the caller, at first when it was opened.
    struct statx_timestamp changed = {};
    bool wasOpen = false;

    // The list of those at rest, from the one that rests longest.
    OpaqueFSIterator* older = nullptr;
    OpaqueFSIterator* newer = nullptr;
    bool isResting = false;
};

// The iterator's owner lets it rest until the next call; meanwhile it may have to give its descriptors back.
void LetRest(OpaqueFSIterator& iterator);

// The iterator is about to be used or closed; from here on it keeps what it has.
void TakeUp(OpaqueFSIterator& iterator);

// Makes all resting iterators give their descriptors back; true when there were any.
bool FreeRestingDescriptors();
