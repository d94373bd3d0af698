// Inside the provider: what an iterator has just learnt, so that what is done with an entry need not ask again.
//
// Of deletes one sighting a thread is remembered, and only of objects in a folder without any sidecar. It is believed
// while the object's change time stands, which must have been clearly past when the object was seen, and
// while these operations have made no sidecar anywhere.
#pragma once

#include "platform/linux/references.h"

#include <cstdint>
#include <sys/stat.h>

// Remembers the lock of the object that `ref` stands for. `sidecarsMade` is the count from before its folder
// was read and found without sidecars.
// `when` is the moment before the object was looked at.
void RememberSighting(const FSRef& ref, const Place& place, bool isLocked, uint64_t sidecarsMade,
                      uint64_t when);

// Whether the object is the one last seen and all that was seen still holds: its lock, and that it has no
// sidecar.
bool RecallSighting(const FSRef& ref, const Place& place, bool& isLocked);

// Whether the object has been seen so lately, without lock and sidecar, that whatever has its name by now has come in
// the midst of the delete, as if it were listed next.
bool IsSeenJustNow(const FSRef& ref);

// A folder in whose listing no name could be a sidecar's. Nothing has been added since if its change time stands,
// which nobody can set back; that time must have been clearly past when the listing began, and its volume must
// go by the kernel's clock.
struct BareFolder {
    FolderID id = kNoFolder; // none
    uint64_t inode;
    uint32_t device;
    struct statx_timestamp changed;
};

// The folder at `place`, of which `place.facts` were got just now, if its listing begins now.
BareFolder SeeBareFolder(const Place& place, FolderID id);

// Remembers the folder for the calling thread, in place of the last.
void RememberBareFolder(const BareFolder& folder);

// Whether the folder that holds the place is that folder, still as it was: a cheaper look than one for a name
// that is not there.
bool IsInBareFolder(const Place& place);
