// Files that a thread is about to use in several calls: one that it makes, one that it reads from.
//
// The platform's references lead to an object at once; here each call would look the object up, open it and
// check what it has opened. A kept file is known by the reference's bytes and used by the thread that keeps it
// only. It is opened as it would be without being kept, and what has to be fresh is asked anew through it.
#include "platform/linux/kept_files.h"

#include "platform/forks.h"
#include "platform/linux/current_task.h"
#include "platform/linux/errors.h"
#include "platform/linux/folders.h"
#include "platform/linux/kept_dates.h"
#include "platform/linux/sidecar.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/trees.h"

#include <cstring>
#include <fcntl.h>
#include <new>

namespace {
struct KeptFiles {
    KeptFile made;
    KeptFile read;
};
} // namespace

static constinit thread_local KeptFiles* kept TAVPORT_NEAR_TLS = nullptr;

void PlatformKeepFilesOpen() {
    const TerminationHold hold;
    if (!kept) kept = new (std::nothrow) KeptFiles; // without it every call finds its way alone
}

void PlatformCloseKeptFiles() {
    const TerminationHold hold;
    if (!kept) return;
    KeptFile& made = kept->made;
    if (made.isSet && made.owesDates) {
        const bool isThere = made.file && LookAgain(made) == noErr;
        isThere ? (void)PayOwedDates(made) : LetGoOfOwedDates(made.place.facts);
    }
    delete kept;
    kept = nullptr;
}

static bool Is(const KeptFile& file, const FSRef& ref) {
    return file.isSet && std::memcmp(&file.ref, &ref, sizeof(ref)) == 0;
}

OSErr LookAgain(KeptFile& file) {
    if (FactsAt(file.file.number(), "", AT_EMPTY_PATH, file.place.facts) < 0) return LastError();
    return file.place.facts.stx_nlink == 0 ? fnfErr : noErr;
}

KeptFile* FindKeptFile(const FSRef& ref) {
    if (!kept) return nullptr;
    if (Is(kept->made, ref)) return &kept->made;
    return Is(kept->read, ref) ? &kept->read : nullptr;
}

bool CanKeepNewFile() {
    return kept && !kept->made.isSet;
}

void KeepNewFile(const FSRef& ref, const Place& made, Descriptor& file, const NewFile& facts,
                 uint64_t sidecarsMade) {
    if (!CanKeepNewFile()) return;
    KeptFile& slot = kept->made;
    slot.isSet = true;
    slot.ref = ref;
    slot.place.folder = made.folder;
    std::strcpy(slot.place.name, made.name);
    slot.place.folderID = made.folderID;
    slot.place.facts = made.facts;
    slot.place.isLink = slot.place.standsForTarget = false;
    slot.file.Reset(file.Release());
    slot.isNew = true;
    slot.isLent = false;
    slot.facts = facts.stored;
    slot.sidecarsMade = sidecarsMade;
    slot.owesDates = facts.owesDates;
    slot.isFresh = false;
}

KeptFile* KeepFileToRead(const FSRef& ref) {
    if (!kept || kept->read.isSet) return nullptr;
    KeptFile& slot = kept->read;
    Identity identity;
    if (Guess(ref, slot.place, identity) != noErr || !S_ISREG(slot.place.facts.stx_mode)) return nullptr;
    slot.file.Reset(TakeOpenedAhead(ref));
    if (!slot.file)
        slot.file.Reset(
            OpenName(slot.place.folder.descriptor(), slot.place.name, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    struct statx& facts = slot.place.facts;
    if (!slot.file) return nullptr;
    if (FactsAt(slot.file.number(), "", AT_EMPTY_PATH, facts) < 0 || !Matches(identity, facts) ||
        facts.stx_nlink == 0) {
        slot.file.Reset(-1);
        return nullptr;
    }
    slot.isSet = true;
    slot.ref = ref;
    slot.isNew = slot.isLent = false;
    const KeptFile& made = kept->made;
    if (made.isSet && made.file) KeepOrdinary(slot.place, made.place, made.file.number());
    return &slot;
}

// Whether closing the file may report what became of its data, as where it is still to be sent to a server.
static bool ClosingTells(const Place& place) {
    return !TraitsOf(place.folderID, place.name, place.facts).fineTimes;
}

int LendDescriptor(KeptFile& file) {
    file.isLent = true;
    if (file.isNew && ClosingTells(file.place)) return fcntl(file.file.number(), F_DUPFD_CLOEXEC, 0);
    if (file.isNew) file.numberOut = file.file.number();
    return file.file.Release();
}

bool TakeDescriptorBack(OpenFork& fork, const struct statx& facts) {
    if (!kept || !kept->made.numberOut) return false;
    KeptFile& made = kept->made;
    // Another thread may have closed the fork, and the number stand for something else.
    if (fork.descriptor != made.numberOut || !fork.canWrite || !(fork.key == ObjectKey(made.place.facts)))
        return false;
    made.file.Reset(fork.descriptor);
    fork.descriptor = -1;
    made.numberOut = 0;
    if (!facts.stx_mask) return true;
    made.place.facts = facts;
    made.isFresh = facts.stx_nlink > 0;
    return true;
}

OSErr PayOwedDates(KeptFile& file) {
    if (!file.isNew || !file.owesDates) return noErr;
    file.owesDates = false;
    return SetOwedDates(file.file.number(), file.place.facts);
}
