// Sidecars as entries of their folder: telling them from ordinary "._x" entries, and taking them along when
// their objects are deleted, renamed or moved.
//
// "._x" is a sidecar when it is a regular file, begins with the AppleDouble magic and stands beside a file or
// folder "x" that is no sidecar itself. One that was there first stays an ordinary entry; orphans.cpp
// remembers which.
#include "platform/linux/metadata.h"

#include "platform/linux/errors.h"
#include "platform/linux/orphans.h"
#include "platform/linux/sidecar.h"
#include "platform/linux/system_calls.h"

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

static std::atomic<uint64_t> sidecarsMade = 0;

uint64_t SidecarsMade() {
    return sidecarsMade.load(std::memory_order_acquire);
}

void CountSidecar() {
    sidecarsMade.fetch_add(1, std::memory_order_release);
}

SidecarName::SidecarName(const char* name) {
    bytes[0] = 0;
    const size_t length = std::strlen(name);
    if (length + 2 >= sizeof(bytes) || std::strcmp(name, ".") == 0) return;
    std::memcpy(bytes, "._", 2);
    std::memcpy(bytes + 2, name, length + 1);
}

// ---- Telling them

// -43 when it does not.
static OSErr CheckMagic(int file) {
    uint8_t magic[appledouble::kMagicSize];
    const ssize_t count = ReadFully(file, magic, sizeof(magic), 0);
    if (count < 0) return LastError();
    return count == sizeof(magic) && appledouble::Load32(magic) == appledouble::kMagic ? noErr : fnfErr;
}

static int SetMode(int file, mode_t mode) {
    return Retry([&] { return fchmod(file, mode); });
}

// Opens for reading and writing, lending the owner the right to write where the mode denies it.
static int OpenForWriting(int folder, const char* name) {
    constexpr int kFlags = O_NONBLOCK | O_NOCTTY;
    const int file = OpenName(folder, name, O_RDWR | kFlags);
    if (file >= 0 || LastErrorNumber() != EACCES) return file;
    Descriptor readable(OpenName(folder, name, O_RDONLY | kFlags));
    struct statx facts;
    if (!readable || FactsAt(readable.number(), "", AT_EMPTY_PATH, facts) < 0) return -1;
    if (SetMode(readable.number(), (facts.stx_mode & 07777) | S_IWUSR) < 0) return -1;
    const int lent = OpenName(folder, name, O_RDWR | kFlags);
    if (SetMode(readable.number(), facts.stx_mode & 07777) == 0) return lent;
    Close(lent);
    return -1;
}

OSErr OpenAppleDouble(int folder, const char* sidecar, bool forWriting, Descriptor& file,
                      struct statx& facts) {
    // Hardly any object has one, and finding nothing is cheaper than opening nothing.
    if (!forWriting && FactsAt(folder, sidecar, AT_SYMLINK_NOFOLLOW, facts, STATX_TYPE) < 0)
        return LastOpenError();
    file.Reset(forWriting ? OpenForWriting(folder, sidecar)
                          : OpenName(folder, sidecar, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (!file) return LastOpenError();
    if (FactsAt(file.number(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    const OSErr result = S_ISREG(facts.stx_mode) ? CheckMagic(file.number()) : fnfErr;
    return result == noErr && IsOrphan(file.number(), facts) ? fnfErr : result;
}

// A want of descriptors or memory says nothing about an entry, and must not part a file from its sidecar.
static bool IsWant(OSErr result) {
    return result == tmfoErr || result == memFullErr;
}

// Like OpenAppleDouble without keeping it open; what cannot be opened is an ordinary entry, -43, unless it is
// known to be none.
static OSErr FindAppleDouble(int folder, const char* sidecar, bool isKnown = false) {
    Descriptor file;
    struct statx facts;
    const OSErr result = OpenAppleDouble(folder, sidecar, false, file, facts);
    return result == noErr || IsWant(result) || isKnown ? result : fnfErr;
}

// Whether an object that can have a sidecar has the name.
static bool HasNeighbour(int folder, const char* name) {
    struct statx facts;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return false;
    if (FactsAt(folder, name, AT_SYMLINK_NOFOLLOW, facts) < 0) return false;
    return S_ISREG(facts.stx_mode) || S_ISDIR(facts.stx_mode);
}

OSErr FindSidecar(int folder, const char* name) {
    // "._._x" belongs to "._x" unless that is the sidecar of "x", and so on; the last in the row is decided
    // first.
    OSErr result = fnfErr;
    size_t depth = 0;
    while (std::strncmp(name + 2 * depth, "._", 2) == 0 && HasNeighbour(folder, name + 2 * depth + 2))
        ++depth;
    for (; depth && !IsWant(result); --depth)
        result = result == noErr ? fnfErr : FindAppleDouble(folder, name + 2 * (depth - 1));
    return result;
}

bool IsSidecar(int folder, const char* name) {
    return FindSidecar(folder, name) == noErr;
}

// The sidecar of the object that had `name` until a moment ago. For "._x" beside "x" the answer is none:
// whether that was a sidecar itself can no longer be told, and then nothing of its own stood beside it.
static OSErr FindSidecarOfGone(int folder, const char* name, const SidecarName& sidecar, bool isKnown) {
    if (!sidecar || (std::strncmp(name, "._", 2) == 0 && HasNeighbour(folder, name + 2))) return fnfErr;
    return FindAppleDouble(folder, sidecar.bytes, isKnown);
}

// ---- Taking them along

OSErr DisownOrphan(int folder, const char* name) {
    const SidecarName sidecar(name);
    Descriptor file;
    struct statx facts;
    const OSErr result = sidecar ? OpenAppleDouble(folder, sidecar.bytes, false, file, facts) : fnfErr;
    if (result == noErr) RememberOrphan(file.number(), facts);
    return IsWant(result) ? result : noErr;
}

void KeepOrdinary(const Place& source, const Place& copy, int file) {
    if (std::strncmp(copy.name, "._", 2) == 0 && HasNeighbour(copy.folder.descriptor(), copy.name + 2) &&
        FindSidecar(source.folder.descriptor(), source.name) == fnfErr)
        RememberOrphan(file, copy.facts);
}

static bool AreOneEntry(int folder, const char* name, int otherFolder, const char* other) {
    struct statx a, b;
    return FactsAt(folder, name, AT_SYMLINK_NOFOLLOW, a) == 0 &&
           FactsAt(otherFolder, other, AT_SYMLINK_NOFOLLOW, b) == 0 && SameObject(a, b);
}

OSErr CheckSidecarMove(int folder, const char* name, int newFolder, const char* newName, bool* has) {
    const SidecarName sidecar(name), newSidecar(newName);
    const OSErr result = sidecar ? FindSidecar(folder, sidecar.bytes) : fnfErr;
    if (has) *has = result == noErr;
    if (result != noErr) return result == fnfErr ? noErr : result;
    if (!newSidecar) return bdNamErr;
    struct statx facts;
    if (FactsAt(newFolder, newSidecar.bytes, AT_SYMLINK_NOFOLLOW, facts) < 0) {
        return LastErrorNumber() == ENOENT ? noErr : LastError();
    }
    return AreOneEntry(folder, sidecar.bytes, newFolder, newSidecar.bytes) ? noErr : dupFNErr;
}

OSErr CheckSidecarRemoval(int folder, const char* name, Beside& beside) {
    const OSErr result = FindSidecarOfGone(folder, name, SidecarName(name), true);
    beside = result == noErr ? Beside::kSidecar : result == fnfErr ? Beside::kNothing : Beside::kUnknown;
    return IsWant(result) ? result : noErr;
}

OSErr RemoveSidecar(int folder, const char* name, bool isKnown) {
    const SidecarName sidecar(name);
    const OSErr result = FindSidecarOfGone(folder, name, sidecar, isKnown);
    if (result != noErr) return result == fnfErr ? noErr : result;
    if (Retry([&] { return unlinkat(folder, sidecar.bytes, 0); }) == 0) return noErr;
    return LastErrorNumber() == ENOENT ? noErr : LastError();
}

OSErr RenameSidecar(int folder, const char* name, int newFolder, const char* newName, bool isKnown) {
    const SidecarName sidecar(name), newSidecar(newName);
    OSErr result = FindSidecarOfGone(folder, name, sidecar, isKnown);
    if (result == fnfErr) return DisownOrphan(newFolder, newName);
    if (result != noErr) return result;
    if (!newSidecar) return bdNamErr;
    if (RenameWithoutReplacing(folder, sidecar.bytes, newFolder, newSidecar.bytes) < 0) {
        result = LastError();
        if (result != dupFNErr) return result;
        if (!AreOneEntry(folder, sidecar.bytes, newFolder, newSidecar.bytes)) return dupFNErr;
        if (Retry([&] { return renameat(folder, sidecar.bytes, newFolder, newSidecar.bytes); }) < 0)
            return LastError();
    }
    CountSidecar();
    return noErr;
}
