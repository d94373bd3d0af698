// Extended attributes and settings of an object that is known by folder and name.
//
// The kernel's calls for attributes and modes want a path or a descriptor opened for reading, which the mode
// may deny. An O_PATH descriptor needs no right and has no effect on pipes and devices; /proc/self/fd leads
// from it to the object without a name in between. That takes a walk through /proc for each call, so a regular
// file that may be read is opened for reading instead, and so is anything where /proc is not mounted.
// Attributes are read by name with getxattrat (Linux 6.13), else through /proc.
//
// Sections: reading by name, the held object, descriptors.
#include "platform/linux/attributes.h"

#include "platform/linux/errors.h"
#include "platform/linux/identity.h"
#include "platform/linux/system_calls.h"

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

// ---- Reading by name

// "/proc/self/fd/N", or with a name behind it.
struct ProcPath {
    char text[320];
    explicit ProcPath(int descriptor) { std::snprintf(text, sizeof(text), "/proc/self/fd/%d", descriptor); }
    ProcPath(int folder, const char* name) {
        std::snprintf(text, sizeof(text), "/proc/self/fd/%d/%s", folder, name);
    }
};

static ssize_t GetThroughOpening(int folder, const char* name, const char* attribute, void* value,
                                 size_t size) {
    Descriptor object(OpenName(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (object) return Retry([&] { return fgetxattr(object.number(), attribute, value, size); });
    if (LastOpenError() == fnfErr) SetLastErrorNumber(ENOENT);
    return -1;
}

ssize_t GetAttributeAt(int folder, const char* name, const char* attribute, void* value, size_t size) {
    static std::atomic<bool> lacksCall = false;
    if (!lacksCall.load(std::memory_order_relaxed)) {
        const ssize_t result = GetAttributeOfName(folder, name, attribute, value, size);
        // A sandbox that does not know the call denies it with EPERM, which reading never gives otherwise.
        if (result >= 0 || (LastErrorNumber() != ENOSYS && LastErrorNumber() != EPERM)) return result;
        lacksCall.store(true, std::memory_order_relaxed);
    }
    const ProcPath path(folder, name);
    const ssize_t result = Retry([&] { return lgetxattr(path.text, attribute, value, size); });
    if (result >= 0 || LastErrorNumber() != ENOENT) return result;
    return GetThroughOpening(folder, name, attribute, value, size);
}

bool HasNoAttributes() {
    return LastErrorNumber() == EOPNOTSUPP || LastErrorNumber() == ENOSYS;
}

// ---- The held object

bool SameObject(const struct statx& a, const struct statx& b) {
    const unsigned known = a.stx_mask & b.stx_mask;
    if ((a.stx_mode & S_IFMT) != (b.stx_mode & S_IFMT)) return false;
    if (!(known & STATX_INO)) return true;
    if (a.stx_ino != b.stx_ino || a.stx_dev_major != b.stx_dev_major || a.stx_dev_minor != b.stx_dev_minor) {
        return false;
    }
    if (!(known & STATX_BTIME)) return true;
    return a.stx_btime.tv_sec == b.stx_btime.tv_sec && a.stx_btime.tv_nsec == b.stx_btime.tv_nsec;
}

HeldObject::~HeldObject() {
    if (isOwn_) Close(descriptor_);
}

// Without waiting: someone's lease on the file is no obstacle to the other way.
OSErr HeldObject::Open(const Place& place) {
    const int folder = place.folder.descriptor();
    place_ = &place;
    if (S_ISREG(place.facts.stx_mode)) {
        descriptor_ = OpenName(folder, place.name, O_RDONLY | O_NONBLOCK | O_NOCTTY);
        isFile_ = descriptor_ >= 0;
    }
    if (descriptor_ < 0) descriptor_ = OpenName(folder, place.name, O_PATH);
    return descriptor_ < 0 ? LastError() : Look(facts_);
}

OSErr HeldObject::Hold(const Place& place) {
    const OSErr result = Open(place);
    if (result != noErr) return result;
    return SameObject(place.facts, facts_) ? noErr : fnfErr;
}

OSErr HeldObject::Hold(const Place& place, int file) {
    place_ = &place;
    descriptor_ = file;
    isOwn_ = false;
    isFile_ = true;
    facts_ = place.facts;
    return noErr;
}

OSErr HeldObject::HoldGuessed(const FSRef& ref, Place& place) {
    Identity identity;
    OSErr result = Guess(ref, place, identity);
    if (result != noErr || !S_ISREG(place.facts.stx_mode)) return fnfErr;
    result = Open(place);
    if (result != noErr) return result == tmfoErr ? result : fnfErr;
    place.facts = facts_;
    return Matches(identity, facts_) ? noErr : fnfErr;
}

OSErr HeldObject::Look(struct statx& facts) const {
    return FactsAt(descriptor_, "", AT_EMPTY_PATH, facts) < 0 ? LastError() : noErr;
}

// Acts on the open file, else through /proc, or on a descriptor opened for reading where there is no /proc.
template <typename ByPath, typename ByDescriptor>
auto HeldObject::Through(ByPath byPath, ByDescriptor byDescriptor) const {
    if (isFile_) return Retry([&] { return byDescriptor(descriptor_); });
    const ProcPath path(descriptor_);
    auto result = Retry([&] { return byPath(path.text); });
    if (result >= 0 || (LastErrorNumber() != ENOENT && LastErrorNumber() != ENOTDIR)) return result;
    Descriptor readable(
        OpenName(place_->folder.descriptor(), place_->name, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (!readable) return result;
    struct statx facts;
    if (FactsAt(readable.number(), "", AT_EMPTY_PATH, facts) < 0 || !SameObject(facts, facts_)) return result;
    return Retry([&] { return byDescriptor(readable.number()); });
}

ssize_t HeldObject::GetAttribute(const char* attribute, void* value, size_t size) const {
    return Through([&](const char* path) { return getxattr(path, attribute, value, size); },
                   [&](int descriptor) { return fgetxattr(descriptor, attribute, value, size); });
}

int HeldObject::SetAttribute(const char* attribute, const void* value, size_t size) const {
    return Through([&](const char* path) { return setxattr(path, attribute, value, size, 0); },
                   [&](int descriptor) { return fsetxattr(descriptor, attribute, value, size, 0); });
}

int HeldObject::RemoveAttribute(const char* attribute) const {
    const int result = Through([&](const char* path) { return removexattr(path, attribute); },
                               [&](int descriptor) { return fremovexattr(descriptor, attribute); });
    return result < 0 && LastErrorNumber() == ENODATA ? 0 : result;
}

int HeldObject::SetMode(mode_t mode) const {
    return Through([mode](const char* path) { return chmod(path, mode); },
                   [mode](int descriptor) { return fchmod(descriptor, mode); });
}

int HeldObject::SetOwner(uid_t user, gid_t group) const {
    return Retry([&] {
        return isFile_ ? fchown(descriptor_, user, group)
                       : fchownat(descriptor_, "", user, group, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW);
    });
}

int HeldObject::SetTimes(const FileTimes& times) const {
    if (isFile_) return Retry([&] { return futimens(descriptor_, times.data()); });
    const int result = Retry([&] { return utimensat(descriptor_, "", times.data(), AT_EMPTY_PATH); });
    if (result == 0 || (LastErrorNumber() != EINVAL && LastErrorNumber() != ENOENT)) return result;
    // Before Linux 5.8 only a name will do; it was this object's a moment ago.
    return Retry([&] {
        return utimensat(place_->folder.descriptor(), place_->name, times.data(), AT_SYMLINK_NOFOLLOW);
    });
}

// ---- Descriptors

Descriptor::~Descriptor() {
    Close(number_);
}

void Descriptor::Reset(int number) {
    Close(number_);
    number_ = number;
}

int Descriptor::Release() {
    const int number = number_;
    number_ = -1;
    return number;
}
