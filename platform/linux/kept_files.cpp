// Files that a thread is about to use in several calls: one that it makes, one that it reads from.
//
// The platform's references lead to an object at once; here each call would look the object up, open it and
// check what it has opened. A kept file is known by the reference's bytes and used by the thread that keeps it
// only. It is opened as it would be without being kept, and what has to be fresh is asked anew through it.
#include "platform/linux/kept_files.h"

#include "platform/forks.h"
#include "platform/linux/current_task.h"
#include "platform/linux/errors.h"
#include "platform/linux/system_calls.h"

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
    delete kept;
    kept = nullptr;
}

static bool Is(const KeptFile& file, const FSRef& ref) {
    return file.file && std::memcmp(&file.ref, &ref, sizeof(ref)) == 0;
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

void KeepNewFile(const FSRef& ref, const Place& made, Descriptor& file, const appledouble::Facts& facts,
                 uint64_t sidecarsMade) {
    if (!kept || kept->made.file) return;
    KeptFile& slot = kept->made;
    slot.ref = ref;
    slot.place = made;
    slot.file.Reset(file.Release());
    slot.isNew = true;
    slot.isLent = false;
    slot.facts = facts;
    slot.sidecarsMade = sidecarsMade;
}

KeptFile* KeepFileToRead(const FSRef& ref) {
    if (!kept || kept->read.file) return nullptr;
    KeptFile& slot = kept->read;
    Identity identity;
    if (Guess(ref, slot.place, identity) != noErr || !S_ISREG(slot.place.facts.stx_mode)) return nullptr;
    slot.file.Reset(
        OpenName(slot.place.folder.descriptor(), slot.place.name, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    struct statx& facts = slot.place.facts;
    if (!slot.file) return nullptr;
    if (FactsAt(slot.file.number(), "", AT_EMPTY_PATH, facts) < 0 || !Matches(identity, facts)) {
        slot.file.Reset(-1);
        return nullptr;
    }
    slot.ref = ref;
    slot.isNew = slot.isLent = false;
    return &slot;
}
