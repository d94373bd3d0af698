// Forks by name: making, opening, closing and listing them.
//
// The data fork is the file, the resource fork lives in the sidecar "._name", the data of a link is its text.
// A fork is opened below the folder in which the reference was last seen, without following a link and
// without waiting for the other end of a pipe, and what was opened must be the reference's object. Folders
// have no forks; pipes, sockets and devices are refused unopened. A reference that came from a path through a
// link means the link's target.
//
// Sections: names, making, opening data, opening resources and links, opening and closing, listing.
#include "platform/forks.h"

#include "platform/linux/attributes.h"
#include "platform/linux/errors.h"
#include "platform/linux/fork_io.h"
#include "platform/linux/fork_table.h"
#include "platform/linux/kept_dates.h"
#include "platform/linux/kept_files.h"
#include "platform/linux/metadata.h"
#include "platform/linux/object_facts.h"
#include "platform/linux/sidecar.h"
#include "platform/linux/sighting.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/with_descriptors.h"

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <new>
#include <unistd.h>

// ---- Names

constexpr char16_t kResourceForkName[] = u"RESOURCE_FORK";
constexpr uint16_t kResourceForkNameLength = std::size(kResourceForkName) - 1;

OSErr FSGetDataForkName(HFSUniStr255* dataForkName) {
    if (!dataForkName) return paramErr;
    dataForkName->length = 0;
    return noErr;
}

OSErr FSGetResourceForkName(HFSUniStr255* resourceForkName) {
    if (!resourceForkName) return paramErr;
    *resourceForkName = {};
    resourceForkName->length = kResourceForkNameLength;
    std::copy_n(kResourceForkName, kResourceForkNameLength, resourceForkName->unicode);
    return noErr;
}

static OSErr KindFromName(UniCharCount length, const UniChar* name, ForkKind& kind) {
    if (length && !name) return paramErr;
    kind = length ? ForkKind::kResource : ForkKind::kData;
    const bool isKnown = length == 0 || std::equal(name, name + length, kResourceForkName,
                                                   kResourceForkName + kResourceForkNameLength);
    return isKnown ? noErr : errFSBadForkName;
}

// Whether forks can be had of the object at all.
static OSErr CheckType(const Place& place) {
    if (S_ISREG(place.facts.stx_mode) || S_ISLNK(place.facts.stx_mode)) return noErr;
    return S_ISDIR(place.facts.stx_mode) ? fnfErr : permErr;
}

// ---- Making

static OSErr MakeResourceFork(const FSRef& ref) {
    Place place;
    OSErr result = LocateTarget(ref, place);
    if (result == noErr) result = CheckType(place);
    if (result != noErr) return result;
    if (place.isLink) return permErr;
    result = CheckUnlocked(place, fLckdErr);
    if (result != noErr) return result;
    Sidecar sidecar;
    result = sidecar.Open(place, true);
    if (result != fnfErr) return result == noErr ? sidecar.MakeResourceFork() : result;
    result = sidecar.OpenOrMake(place);
    if (result != noErr) return result;
    result = sidecar.MakeResourceFork();
    return result == errFSForkExists ? noErr : result; // the plain front of a new sidecar has it
}

OSErr FSCreateFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName) {
    if (!ref) return paramErr;
    const TerminationHold hold;
    ForkKind kind;
    OSErr result = KindFromName(forkNameLength, forkName, kind);
    if (result != noErr) return result;
    if (KeptFile* const kept = FindKeptFile(*ref)) {
        if (kind == ForkKind::kData) return noErr;
        kept->isFresh = false; // what comes next may take long
    }
    return WithDescriptors([&] {
        if (kind == ForkKind::kResource) return MakeResourceFork(*ref);
        Place place;
        const OSErr found = LocateTarget(*ref, place);
        return found == noErr ? CheckType(place) : found;
    });
}

// ---- Opening data. What every opening of a file passes through is in place, see Retry.

namespace {
// What the caller wants to do with a fork; the current permission asks for both and takes what it gets.
struct Wish {
    bool read, write, isCurrent;
    int flags() const { return read && write ? O_RDWR : write ? O_WRONLY : O_RDONLY; }
};
constexpr Wish kReading = {true, false, false};
} // namespace

static OSErr WishFromPermission(int8_t permissions, Wish& wish) {
    switch (permissions) {
    case fsCurPerm:
        wish = {true, true, true};
        return noErr;
    case fsRdPerm:
    case fsWrPerm:
    case fsRdWrPerm:
        wish = {(permissions & fsRdPerm) != 0, (permissions & fsWrPerm) != 0, false};
        return noErr;
    default:
        return paramErr;
    }
}

// Whether opening for writing was refused in a way that leaves reading possible.
static bool MayStillRead(OSErr result) {
    return result == permErr || result == wPrErr;
}

static std::unique_ptr<OpenFork> NewFork(ForkKind kind, Descriptor& descriptor, const struct statx& facts,
                                         const Wish& wish) {
    std::unique_ptr<OpenFork> fork(new (std::nothrow) OpenFork(kind, descriptor.number(), facts));
    if (!fork) return nullptr;
    descriptor.Release();
    fork->canRead = wish.read;
    fork->canWrite = wish.write;
    return fork;
}

static OSErr OpenError() {
    const OSErr result = LastErrorNumber() == ETXTBSY ? permErr : LastOpenError();
    return result == afpAccessDenied ? permErr : result;
}

// Opens the file at `place`; `isObject` says whether facts are those of the object that is wanted.
template <typename IsWanted>
[[gnu::always_inline]] static inline OSErr OpenData(const Place& place, const Wish& wish, IsWanted isWanted,
                                                    std::unique_ptr<OpenFork>& fork) {
    Descriptor file(OpenName(place.folder.descriptor(), place.name, wish.flags() | O_NONBLOCK | O_NOCTTY));
    if (!file) return OpenError();
    struct statx facts;
    if (FactsAt(file.number(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    if (!isWanted(facts)) return fnfErr;
    if (!S_ISREG(facts.stx_mode)) return permErr;
    const OSErr result = wish.write ? CheckUnlocked(place, file.number(), permErr) : noErr;
    if (result != noErr) return result;
    fork = NewFork(ForkKind::kData, file, facts, wish);
    if (!fork) return memFullErr;
    if (wish.write) fork->holdsDate = BeginHoldingDate(facts);
    return noErr;
}

// Opens with what the current permission leaves when writing is refused.
template <typename Open>
[[gnu::always_inline]] static inline OSErr OpenAsWished(const Wish& wish, Open open) {
    const OSErr result = open(wish);
    return wish.isCurrent && MayStillRead(result) ? open(kReading) : result;
}

// On a file that the thread keeps open already, and whose lock it need not ask for: it has made the file.
static OSErr OpenKept(const FSRef& ref, const Wish& wish, std::unique_ptr<OpenFork>& fork) {
    KeptFile* const kept = FindKeptFile(ref);
    if (!kept || kept->isLent || wish.read == wish.write || wish.write != kept->isNew) return fnfErr;
    Descriptor file(LendDescriptor(*kept));
    if (!file) return fnfErr;
    fork = NewFork(ForkKind::kData, file, kept->place.facts, wish);
    if (!fork) return memFullErr;
    if (wish.write) fork->holdsDate = BeginHoldingDate(kept->place.facts);
    if (wish.write && kept->place.facts.stx_size == 0) fork->zeros = OpenFork::kUnwritten;
    return noErr;
}

// Tries where the object was last seen, which saves a look at it.
[[gnu::always_inline]] static inline OSErr OpenDataByGuess(const FSRef& ref, const Wish& wish,
                                                           std::unique_ptr<OpenFork>& fork) {
    Place place;
    Identity identity;
    const OSErr result = Guess(ref, place, identity);
    if (result != noErr || !S_ISREG(place.facts.stx_mode)) return fnfErr;
    return OpenAsWished(wish, [&](const Wish& each) {
        return OpenData(
            place, each, [&identity](const struct statx& facts) { return Matches(identity, facts); }, fork);
    });
}

// ---- Opening resources and links

static OSErr OpenText(const Place& place, const Wish& wish, std::unique_ptr<OpenFork>& fork) {
    if (wish.write) return permErr;
    Descriptor link(OpenName(place.folder.descriptor(), place.name, O_PATH));
    struct statx facts;
    if (!link || FactsAt(link.number(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    if (!SameObject(facts, place.facts)) return fnfErr;
    std::unique_ptr<char[]> text(new (std::nothrow) char[PATH_MAX]);
    if (!text) return memFullErr;
    const ssize_t length = Retry([&] { return readlinkat(link.number(), "", text.get(), PATH_MAX); });
    if (length < 0) return LastError();
    link.Reset(-1);
    fork = NewFork(ForkKind::kLink, link, facts, wish);
    if (!fork) return memFullErr;
    fork->text = std::move(text);
    fork->length = static_cast<uint64_t>(length);
    return noErr;
}

// The sidecar's own mode always lets its owner write; the file's mode decides.
static OSErr CheckWriting(const Place& place) {
    const OSErr result = CheckUnlocked(place, permErr);
    if (result != noErr) return result;
    const int folder = place.folder.descriptor();
    constexpr int kFlags = AT_EACCESS | AT_SYMLINK_NOFOLLOW;
    return Retry([&] { return faccessat(folder, place.name, W_OK, kFlags); }) == 0 ? noErr : LastForkError();
}

static OSErr OpenResource(const Place& place, const Wish& wish, std::unique_ptr<OpenFork>& fork) {
    OSErr result = wish.write ? CheckWriting(place) : noErr;
    if (result != noErr) return result;
    Sidecar sidecar;
    result = sidecar.Open(place, wish.write);
    if (result == fnfErr) return errFSForkNotFound;
    if (result != noErr) return result == afpAccessDenied ? permErr : result;
    const auto found = sidecar.ResourceFork();
    if (!found) return errFSForkNotFound;
    Extent extent = *found;
    if (wish.write) result = sidecar.MakeResourceForkLast(extent);
    if (result != noErr) return result;
    Descriptor file(sidecar.ReleaseDescriptor());
    fork = NewFork(ForkKind::kResource, file, place.facts, wish);
    if (!fork) return memFullErr;
    SetExtent(*fork, sidecar, extent);
    return noErr;
}

static OSErr OpenAt(const Place& place, ForkKind kind, const Wish& wish, std::unique_ptr<OpenFork>& fork) {
    if (place.isLink) return kind == ForkKind::kData ? OpenText(place, wish, fork) : errFSForkNotFound;
    if (kind == ForkKind::kResource) return OpenResource(place, wish, fork);
    return OpenData(
        place, wish, [&place](const struct statx& facts) { return SameObject(facts, place.facts); }, fork);
}

// ---- Opening and closing

[[gnu::always_inline]] static inline OSErr OpenByReference(const FSRef& ref, ForkKind kind, const Wish& wish,
                                                           std::unique_ptr<OpenFork>& fork) {
    if (kind == ForkKind::kData) {
        // Any other failure may be another object's that has taken the name.
        OSErr result = OpenKept(ref, wish, fork);
        if (result == fnfErr) result = OpenDataByGuess(ref, wish, fork);
        if (result == noErr || result == tmfoErr || result == memFullErr) return result;
    }
    Place place;
    OSErr result = LocateTarget(ref, place);
    if (result == noErr) result = CheckType(place);
    if (result != noErr) return result;
    return OpenAsWished(wish, [&](const Wish& each) { return OpenAt(place, kind, each, fork); });
}

OSErr FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, int8_t permissions,
                 FSForkRefNum* forkRefNum) {
    if (!ref || !forkRefNum) return paramErr;
    const TerminationHold hold;
    ForkKind kind;
    Wish wish;
    OSErr result = KindFromName(forkNameLength, forkName, kind);
    if (result == noErr) result = WishFromPermission(permissions, wish);
    if (result != noErr) return result;
    std::unique_ptr<OpenFork> fork;
    result = WithDescriptors([&] { return OpenByReference(*ref, kind, wish, fork); });
    if (result != noErr) return result;
    const FSForkRefNum number = AddFork(fork);
    if (number == 0) {
        FinishFork(*fork);
        return tmfoErr;
    }
    *forkRefNum = number;
    return noErr;
}

OSErr FinishFork(OpenFork& fork) {
    const OSErr result = SettleEnd(fork);
    struct statx facts;
    facts.stx_mask = 0;
    if (fork.holdsDate) EndHoldingDate(fork, facts);
    if (TakeDescriptorBack(fork, facts)) return result;
    const int descriptor = fork.descriptor;
    fork.descriptor = -1;
    if (descriptor < 0 || close(descriptor) == 0 || LastErrorNumber() == EINTR) return result;
    return result == noErr ? LastError() : result;
}

OSErr FSCloseFork(FSForkRefNum forkRefNum) {
    return CloseFork(forkRefNum);
}

// ---- Listing

namespace {
struct ListedFork {
    bool isResource = false;
    int64_t size = 0;
    uint64_t physicalSize = 0;
};
} // namespace

static ListedFork DataForkOf(const Place& place) {
    return {false, static_cast<int64_t>(place.facts.stx_size), place.facts.stx_blocks * 512};
}

// -1417 when there is none or it cannot be understood.
static OSErr FindResourceFork(const Place& place, ListedFork& listed) {
    Sidecar sidecar;
    if (place.isLink || IsInBareFolder(place)) return errFSNoMoreItems;
    const OSErr result = sidecar.Open(place, false);
    if (result != noErr) return result == fnfErr || sidecar.IsBroken() ? errFSNoMoreItems : result;
    const auto fork = sidecar.ResourceFork();
    struct statx facts;
    if (!fork) return errFSNoMoreItems;
    if (FactsAt(sidecar.descriptor(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    listed = {true, static_cast<int64_t>(fork->length), facts.stx_blocks * 512};
    return noErr;
}

static OSErr NextForkOf(const Place& place, int32_t listedBefore, ListedFork& listed) {
    if (S_ISDIR(place.facts.stx_mode)) return errFSNoMoreItems;
    const OSErr result = CheckType(place);
    if (result != noErr) return result;
    if (listedBefore == 1) return FindResourceFork(place, listed);
    if (listedBefore != 0) return errFSNoMoreItems;
    listed = DataForkOf(place);
    return noErr;
}

static OSErr FindNextFork(const FSRef& ref, int32_t listedBefore, ListedFork& listed) {
    if (KeptFile* const kept = FindKeptFile(ref)) {
        // Its content may have changed since, which only the data fork's size tells; and it may have been renamed
        // with its sidecar, unless its folder is as it was.
        const bool isDataFork = listedBefore == 0;
        if (!isDataFork && IsInBareFolder(kept->place)) return errFSNoMoreItems;
        if (isDataFork && kept->file) {
            const OSErr result = LookAgain(*kept);
            return result == noErr ? NextForkOf(kept->place, listedBefore, listed) : result;
        }
    } else if (const KeptFile* const read = listedBefore == 0 ? KeepFileToRead(ref) : nullptr) {
        return NextForkOf(read->place, listedBefore, listed);
    }
    Place place;
    const OSErr result = LocateTarget(ref, place);
    return result == noErr ? NextForkOf(place, listedBefore, listed) : result;
}

OSErr FSIterateForks(const FSRef* ref, CatPositionRec* forkIterator, HFSUniStr255* forkName,
                     int64_t* forkSize, uint64_t* forkPhysicalSize) {
    if (!ref || !forkIterator) return paramErr;
    const TerminationHold hold;
    ListedFork listed;
    const OSErr result =
        WithDescriptors([&] { return FindNextFork(*ref, forkIterator->initialize, listed); });
    if (result != noErr) return result;
    forkIterator->initialize = listed.isResource ? 2 : 1;
    if (forkName) listed.isResource ? FSGetResourceForkName(forkName) : FSGetDataForkName(forkName);
    if (forkSize) *forkSize = listed.size;
    if (forkPhysicalSize) *forkPhysicalSize = listed.physicalSize;
    return noErr;
}
