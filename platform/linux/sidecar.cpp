// The content of a sidecar: Finder information, the resource fork, and on volumes without attributes
// everything else that metadata is.
//
// Every offset comes from the header, so sidecars that Macs and file servers made work with whatever order
// and sizes they have. A sidecar is changed in place; only one that has no place for what must be kept is
// written anew beside it and put in its place, and only if nothing of it would be lost by that.
//
// Sections: opening and making, facts, writing anew, the resource fork.
#include "platform/linux/sidecar.h"

#include "platform/linux/errors.h"
#include "platform/linux/fork_table.h"
#include "platform/linux/system_calls.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace appledouble;

// ---- Bytes of a file

static OSErr ReadBytes(int file, void* bytes, size_t size, uint64_t offset) {
    const ssize_t count = ReadFully(file, bytes, size, offset);
    return count < 0 ? LastError() : static_cast<size_t>(count) == size ? noErr : ioErr;
}

static OSErr WriteBytes(int file, const void* bytes, size_t size, uint64_t offset) {
    return WriteFully(file, bytes, size, offset) < 0 ? LastError() : noErr;
}

static OSErr CopyBytes(int from, const Extent& extent, int to, uint64_t offset) {
    uint8_t buffer[65536];
    for (uint64_t done = 0; done < extent.length;) {
        const size_t size = std::min<uint64_t>(sizeof(buffer), extent.length - done);
        OSErr result = ReadBytes(from, buffer, size, extent.offset + done);
        if (result == noErr) result = WriteBytes(to, buffer, size, offset + done);
        if (result != noErr) return result;
        done += size;
    }
    return noErr;
}

// ---- Opening and making

OSErr Sidecar::Open(const Place& place, bool forWriting) {
    place_ = &place;
    const SidecarName name(place.name);
    if (!name) return fnfErr;
    struct statx facts;
    const OSErr result = OpenAppleDouble(place.folder.descriptor(), name.bytes, forWriting, file_, facts);
    return result == noErr ? ReadHeader() : result;
}

OSErr Sidecar::ReadHeader() {
    struct statx facts;
    uint8_t bytes[kMostHeaderBytes];
    if (FactsAt(file_.number(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    size_ = facts.stx_size;
    const size_t size = std::min<uint64_t>(sizeof(bytes), size_);
    const OSErr result = ReadBytes(file_.number(), bytes, size, 0);
    if (result != noErr) return result;
    const auto header = ParseHeader(std::span(bytes, size), size_);
    isBroken_ = !header;
    if (!header) return ioErr;
    header_ = *header;
    return noErr;
}

// Gives a new sidecar the owner and the rights of its file. Its owner may always write, because a file that
// is itself read-only has metadata that can be set.
static void Match(int sidecar, const struct statx& facts) {
    mode_t mode = (facts.stx_mode & 0666) | S_IRUSR | S_IWUSR;
    const auto give = [&](uid_t user) {
        return Retry([&] { return fchown(sidecar, user, facts.stx_gid); }) == 0;
    };
    if (!give(facts.stx_uid) && !give(static_cast<uid_t>(-1))) mode &= ~static_cast<mode_t>(S_IRWXG);
    (void)Retry([&] { return fchmod(sidecar, mode); });
}

void MatchSidecar(const Place& place) {
    Sidecar sidecar;
    struct statx facts;
    if (!S_ISREG(place.facts.stx_mode) && !S_ISDIR(place.facts.stx_mode)) return;
    if (sidecar.Open(place, false) != noErr) return;
    if (FactsAt(place.folder.descriptor(), place.name, AT_SYMLINK_NOFOLLOW, facts) < 0) return;
    Match(sidecar.descriptor(), facts);
}

static bool LacksAttributes(int file) {
    return Retry([&] { return fgetxattr(file, kMetadataAttribute, nullptr, 0); }) < 0 && HasNoAttributes();
}

// Takes the name from a sidecar that is not wanted.
static OSErr Remove(int folder, const char* name) {
    return Retry([&] { return unlinkat(folder, name, 0); }) == 0 ? noErr : LastError();
}

// Makes a new file with a name that nothing else has.
static int MakeUnnamed(int folder, char (&name)[64]) {
    static std::atomic<unsigned> count = 0;
    for (unsigned tries = 0; tries < 100; ++tries) {
        const unsigned number = count.fetch_add(1, std::memory_order_relaxed);
        std::snprintf(name, sizeof(name), ".TavPort-%ld-%u", static_cast<long>(getpid()), number);
        const int file = OpenName(folder, name, O_RDWR | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
        if (file >= 0 || LastErrorNumber() != EEXIST) return file;
    }
    return -1;
}

OSErr Sidecar::Make() {
    const SidecarName name(place_->name);
    if (!name) return bdNamErr;
    const int folder = place_->folder.descriptor();
    // Gets its name when it is whole, so that nobody meets a broken one.
    char newName[64];
    file_.Reset(MakeUnnamed(folder, newName));
    if (!file_) return LastError();
    CountSidecar();
    uint8_t front[kMostFrontSize];
    const size_t size = MakeFront(LacksAttributes(file_.number()), front);
    OSErr result = WriteBytes(file_.number(), front, size, 0);
    if (result == noErr) result = ReadHeader();
    Match(file_.number(), place_->facts);
    if (result == noErr && RenameWithoutReplacing(folder, newName, folder, name.bytes) < 0)
        result = LastError();
    if (result != noErr) (void)Remove(folder, newName);
    return result;
}

OSErr Sidecar::OpenOrMake(const Place& place) {
    OSErr result = Open(place, true);
    if (result != fnfErr) return result;
    result = Make();
    if (result != dupFNErr) return result;
    // Either another thread was faster, or an ordinary entry has the name.
    result = Open(place, true);
    return result == fnfErr ? dupFNErr : result;
}

// ---- Facts

// The entries that hold facts, brought together from wherever they are.
struct Sidecar::Gathered {
    static constexpr struct {
        uint32_t id, offset, size;
    } kFields[] = {{kFinderInfo, 0, 32}, {kFileDates, 32, 16}, {kAFPInfo, 48, 4}};
    Header header;
    uint8_t bytes[52] = {};
};

OSErr Sidecar::Gather(Gathered& gathered) const {
    for (const auto& field : Gathered::kFields) {
        const Entry* entry = header_.Find(field.id);
        if (!entry || entry->length < field.size) continue;
        gathered.header.entries[gathered.header.count++] = {field.id, field.offset, field.size, 0};
        const OSErr result =
            ReadBytes(file_.number(), gathered.bytes + field.offset, field.size, entry->offset);
        if (result != noErr) return result;
    }
    return noErr;
}

OSErr Sidecar::Scatter(const Gathered& before, const Gathered& after) const {
    for (const auto& field : Gathered::kFields) {
        const uint8_t* bytes = after.bytes + field.offset;
        if (std::memcmp(bytes, before.bytes + field.offset, field.size) == 0) continue;
        const OSErr result = WriteBytes(file_.number(), bytes, field.size, header_.Find(field.id)->offset);
        if (result != noErr) return result;
    }
    return noErr;
}

OSErr Sidecar::GetFacts(Facts& facts) const {
    Gathered gathered;
    const OSErr result = Gather(gathered);
    if (result == noErr) facts = ReadFacts(gathered.header, gathered.bytes);
    return result;
}

bool Sidecar::HoldsNothing(const Gathered& gathered) const {
    if (ResourceFork() || !appledouble::HoldsNothing(gathered.header, gathered.bytes)) return false;
    return std::all_of(header_.entries, header_.entries + header_.count, [&gathered](const Entry& entry) {
        const Entry* known = gathered.header.Find(entry.id);
        return !entry.length || entry.id == kResourceFork || (known && known->length == entry.length);
    });
}

OSErr Sidecar::SetFacts(const Facts& facts) {
    Gathered before;
    OSErr result = Gather(before);
    if (result != noErr) return result;
    Gathered after = before;
    const bool allFit = WriteFacts(after.header, after.bytes, facts);
    if (allFit && HoldsNothing(after)) {
        const SidecarName name(place_->name);
        return Remove(place_->folder.descriptor(), name.bytes);
    }
    return !allFit && CanBeRewritten() ? Rewrite(facts, false) : Scatter(before, after);
}

// ---- Writing anew

// Whether a new front would hold everything that is here.
bool Sidecar::CanBeRewritten() const {
    return std::all_of(header_.entries, header_.entries + header_.count, [](const Entry& entry) {
        if (!entry.length || entry.id == kResourceFork) return true;
        return std::any_of(
            std::begin(Gathered::kFields), std::end(Gathered::kFields),
            [&entry](const auto& field) { return field.id == entry.id && field.size == entry.length; });
    });
}

static bool HasMoreThanFinderInfo(const Facts& facts) {
    Facts rest = facts;
    std::fill(std::begin(rest.finderInfo), std::end(rest.finderInfo), uint8_t{0});
    return rest != Facts{};
}

OSErr Sidecar::WriteCopy(int to, const Facts& facts, bool withFork) const {
    const auto fork = ResourceFork();
    withFork = withFork || fork;
    // File servers read a resource fork only from a sidecar with the plain front's two entries.
    const bool full = !withFork || HasMoreThanFinderInfo(facts) || LacksAttributes(to);
    uint8_t front[kMostFrontSize];
    const size_t size = MakeFront(full, front);
    auto header = ParseHeader(std::span(front, size), size);
    WriteFacts(*header, std::span(front, size), facts);
    if (withFork && full) {
        appledouble::AddResourceFork(*header, front, size);
        header = ParseHeader(std::span(front, size), size);
    }
    OSErr result = noErr;
    if (fork) {
        if (fork->length > UINT32_MAX - size) return ioErr;
        Store32(front + header->Find(kResourceFork)->where + 8, static_cast<uint32_t>(fork->length));
        result = CopyBytes(file_.number(), *fork, to, size);
    }
    if (result == noErr) result = WriteBytes(to, front, size, 0);
    return result == noErr && Retry([&] { return fdatasync(to); }) < 0 ? LastError() : result;
}

OSErr Sidecar::Rewrite(const Facts& facts, bool withFork) {
    // Whoever has the fork open would go on writing to what is replaced.
    if (IsForkOpen(place_->facts, ForkKind::kResource)) return fBsyErr;
    const int folder = place_->folder.descriptor();
    const SidecarName name(place_->name);
    char newName[64];
    Descriptor file(MakeUnnamed(folder, newName));
    if (!file) return LastError();
    OSErr result = WriteCopy(file.number(), facts, withFork);
    Match(file.number(), place_->facts);
    if (result == noErr && Retry([&] { return renameat(folder, newName, folder, name.bytes); }) < 0)
        result = LastError();
    if (result != noErr) {
        (void)Remove(folder, newName);
        return result;
    }
    file_.Reset(file.Release());
    return ReadHeader();
}

// ---- The resource fork

bool Sidecar::IsBlank(const Entry& fork) const {
    constexpr size_t kBlankSize = 286;
    constexpr char kText[] = "This resource fork intentionally left blank   ";
    char text[sizeof(kText) - 1];
    return fork.length == kBlankSize &&
           ReadBytes(file_.number(), text, sizeof(text), fork.offset + 16) == noErr &&
           std::memcmp(text, kText, sizeof(text)) == 0;
}

std::optional<Extent> Sidecar::ResourceFork() const {
    const Entry* fork = header_.Find(kResourceFork);
    if (!fork || IsBlank(*fork)) return std::nullopt;
    return Extent{fork->offset, fork->length};
}

uint32_t Sidecar::ResourceForkLengthAt() const {
    return header_.Find(kResourceFork)->where + 8;
}

// Enters a fork in the header, which may have no room for it.
OSErr Sidecar::AddResourceFork(bool& hasRoom) {
    hasRoom = true;
    uint8_t bytes[HeaderSize(kMostEntries + 1)];
    const size_t size = std::min<uint64_t>(HeaderSize(header_.count + 1), size_);
    OSErr result = ReadBytes(file_.number(), bytes, size, 0);
    if (result != noErr) return result;
    hasRoom = appledouble::AddResourceFork(header_, std::span(bytes, size), std::max(header_.End(), size_));
    if (!hasRoom) return ioErr;
    result = WriteBytes(file_.number(), bytes, size, 0);
    return result == noErr ? ReadHeader() : result;
}

OSErr Sidecar::MakeResourceFork() {
    if (ResourceFork()) return errFSForkExists;
    if (const Entry* blank = header_.Find(kResourceFork)) {
        const uint8_t none[4] = {};
        const OSErr result = WriteBytes(file_.number(), none, sizeof(none), blank->where + 8);
        return result == noErr ? ReadHeader() : result;
    }
    bool hasRoom;
    OSErr result = AddResourceFork(hasRoom);
    if (hasRoom || !CanBeRewritten()) return result;
    Facts facts;
    result = GetFacts(facts);
    return result == noErr ? Rewrite(facts, true) : result;
}

// Copies the fork behind everything else and only then says so in the header; the old bytes stay unused.
OSErr Sidecar::MoveResourceFork(const Entry& fork) {
    const uint64_t offset = std::max(header_.End(), size_);
    if (offset + fork.length > UINT32_MAX) return ioErr;
    OSErr result = CopyBytes(file_.number(), {fork.offset, fork.length}, file_.number(), offset);
    if (result != noErr) return result;
    uint8_t where[4];
    Store32(where, static_cast<uint32_t>(offset));
    result = WriteBytes(file_.number(), where, sizeof(where), fork.where + 4);
    return result == noErr ? ReadHeader() : result;
}

OSErr Sidecar::MakeResourceForkLast(Extent& extent) {
    const Entry* fork = header_.Find(kResourceFork);
    const uint64_t end = uint64_t{fork->offset} + fork->length;
    OSErr result = noErr;
    if (end < header_.End()) {
        result = MoveResourceFork(*fork);
    } else if (end < size_ && Retry([&] { return ftruncate(file_.number(), static_cast<off_t>(end)); }) < 0) {
        // What lies behind belongs to no entry, but would show when the fork grows over it.
        result = LastError();
    }
    fork = header_.Find(kResourceFork);
    extent = {fork->offset, fork->length};
    return result;
}
