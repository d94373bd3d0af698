// Raw system calls: openat2, getdents64, renameat2, getxattrat, futex and exit, and statx through the C library.
// A kernel before 5.6, an emulator or a sandbox may lack or deny openat2 (ENOSYS, EPERM): then every name is
// opened on its own with O_NOFOLLOW, which is slower and just as strict. One before 5.8 leaves the mount out of
// the facts: it is asked for on its own. A file system may lack renaming without replacing (EINVAL): then files
// are linked and unlinked. On 32-bit hosts the futex call with 64-bit times is used; kernels that lack it get the
// old one with the seconds that it can hold. Sections: facts, opening, entries, bytes, renaming, threads.
#include "platform/linux/system_calls.h"

#include "platform/linux/references.h"

#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <linux/openat2.h>
#include <string>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

static_assert(offsetof(DirectoryEntry, name) == 19, "the kernel's linux_dirent64");

// The kernel tells the mount with an object's handle, even where there is no room for the handle itself.
static bool MountOfHandle(int folder, const char* path, int flags, int& mount) {
    file_handle handle{};
    int lookup = (flags & AT_EMPTY_PATH) | (flags & AT_SYMLINK_NOFOLLOW ? 0 : AT_SYMLINK_FOLLOW);
    long result =
        Retry([&] { return syscall(SYS_name_to_handle_at, folder, path, &handle, &mount, lookup); });
    return result == 0 || LastErrorNumber() == EOVERFLOW;
}

static bool MountOfDescriptor(int descriptor, int& mount) {
    constexpr std::string_view kLabel = "mnt_id:\t";
    char name[48];
    std::snprintf(name, sizeof name, "/proc/thread-self/fdinfo/%d", descriptor);
    int file = Retry([&] { return openat(AT_FDCWD, name, O_RDONLY | O_CLOEXEC); });
    if (file < 0) return false;
    std::array<char, 512> content; // the line is among the first
    ssize_t size = Retry([&] { return read(file, content.data(), content.size()); });
    Close(file);
    std::string_view text(content.data(), size < 0 ? 0 : static_cast<size_t>(size));
    size_t found = text.find(kLabel);
    if (found == text.npos) return false;
    const char* digits = text.data() + found + kLabel.size();
    return std::from_chars(digits, text.data() + text.size(), mount).ec == std::errc();
}

// For file systems without handles, and where asking for one is denied.
static bool MountOfOpened(int folder, const char* path, int flags, int& mount) {
    if (*path == '\0') return MountOfDescriptor(folder, mount);
    int opened = Retry([&] {
        return openat(folder, path, O_PATH | O_CLOEXEC | (flags & AT_SYMLINK_NOFOLLOW ? O_NOFOLLOW : 0), 0);
    });
    if (opened < 0) return false;
    bool known = MountOfDescriptor(opened, mount);
    Close(opened);
    return known;
}

// Kernels before 5.8 do not tell the mount with the facts; an emulator hands on that there is an id, but not
// the id. Where nothing else tells it either, the device has to do.
void CompleteMount(int folder, const char* path, int flags, struct statx& facts) {
    int mount = 0;
    if (MountOfHandle(folder, path, flags, mount) || MountOfOpened(folder, path, flags, mount)) {
        facts.stx_mask |= STATX_MNT_ID;
        facts.stx_mnt_id = static_cast<uint64_t>(mount);
    } else {
        facts.stx_mask &= ~static_cast<unsigned>(STATX_MNT_ID);
    }
}

void Close(int descriptor) {
    if (descriptor < 0) return;
    int before = LastErrorNumber();
    close(descriptor);
    SetLastErrorNumber(before);
}

static int OpenStepByStep(int folder, const char* path, int flags) {
    int current = -1;
    while (const char* slash = std::strchr(path, '/')) {
        std::string name(path,
                         slash == path ? slash + 1 : slash); // "/" is the first name of an absolute path
        int next = OpenName(current < 0 ? folder : current, name.c_str(), O_PATH | O_DIRECTORY);
        Close(current);
        if (next < 0) return -1;
        current = next;
        path = slash + 1;
    }
    int result = OpenName(current < 0 ? folder : current, path, flags);
    Close(current);
    return result;
}

static bool KernelRefuses() {
    return LastErrorNumber() == ENOSYS || LastErrorNumber() == EPERM;
}

int OpenWithoutLinks(int folder, const char* path, int flags) {
    open_how how = {};
    how.flags = static_cast<uint64_t>(flags) | O_CLOEXEC | O_NOFOLLOW;
    how.resolve = RESOLVE_NO_SYMLINKS;
    long result = Retry([&] { return syscall(SYS_openat2, folder, path, &how, sizeof how); });
    if (result < 0 && KernelRefuses()) return OpenStepByStep(folder, path, flags);
    return static_cast<int>(result);
}

ssize_t ReadEntries(int folder, void* buffer, size_t size) {
    return Retry([&] { return static_cast<ssize_t>(syscall(SYS_getdents64, folder, buffer, size)); });
}

ssize_t ReadFully(int file, void* bytes, size_t size, uint64_t offset) {
    auto* at = static_cast<uint8_t*>(bytes);
    size_t done = 0;
    while (done < size) {
        const ssize_t count =
            Retry([&] { return pread(file, at + done, size - done, static_cast<off_t>(offset + done)); });
        if (count < 0) return -1;
        if (count == 0) break;
        done += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

int WriteFully(int file, const void* bytes, size_t size, uint64_t offset) {
    const auto* at = static_cast<const uint8_t*>(bytes);
    for (size_t done = 0; done < size;) {
        const ssize_t count =
            Retry([&] { return pwrite(file, at + done, size - done, static_cast<off_t>(offset + done)); });
        if (count == 0) SetLastErrorNumber(EIO);
        if (count <= 0) return -1;
        done += static_cast<size_t>(count);
    }
    return 0;
}

// What the kernel's getxattrat takes its value through.
struct AttributeArguments {
    alignas(8) uint64_t value;
    uint32_t size;
    uint32_t flags;
};
constexpr long kGetAttributeAt = 464; // the same number on every architecture but one

ssize_t GetAttributeOfName(int folder, const char* name, const char* attribute, void* value, size_t size) {
    AttributeArguments arguments = {reinterpret_cast<uintptr_t>(value), static_cast<uint32_t>(size), 0};
    return Retry([&] {
        return static_cast<ssize_t>(syscall(kGetAttributeAt, folder, name, AT_SYMLINK_NOFOLLOW, attribute,
                                            &arguments, sizeof(arguments)));
    });
}

static int LinkAndUnlink(int fromFolder, const char* from, int toFolder, const char* to) {
    struct statx facts;
    if (FactsAt(fromFolder, from, AT_SYMLINK_NOFOLLOW, facts) < 0) return -1;
    if (S_ISDIR(facts.stx_mode)) {
        SetLastErrorNumber(EINVAL);
        return -1;
    }
    if (Retry([&] { return linkat(fromFolder, from, toFolder, to, 0); }) < 0) return -1;
    if (Retry([&] { return unlinkat(fromFolder, from, 0); }) == 0) return 0;
    int cause = LastErrorNumber();
    (void)Retry([&] { return unlinkat(toFolder, to, 0); });
    SetLastErrorNumber(cause);
    return -1;
}

int RenameWithoutReplacing(int fromFolder, const char* from, int toFolder, const char* to) {
    long result =
        Retry([&] { return syscall(SYS_renameat2, fromFolder, from, toFolder, to, RENAME_NOREPLACE); });
    if (result < 0 && (LastErrorNumber() == EINVAL || LastErrorNumber() == ENOSYS))
        return LinkAndUnlink(fromFolder, from, toFolder, to);
    return static_cast<int>(result);
}

// What the kernel reads, whatever the C library's timespec is.
template <typename Number>
struct KernelTime {
    Number seconds;
    Number nanoseconds;
};

template <typename Number>
static long CallFutexAs(long number, const std::atomic<uint32_t>& word, int operation, uint32_t value,
                        const KernelMoment* until) {
    KernelTime<Number> time{};
    if (until) {
        constexpr int64_t kLatest = sizeof(Number) < sizeof(int64_t) ? INT32_MAX : INT64_MAX;
        time.seconds = static_cast<Number>(until->seconds < kLatest ? until->seconds : kLatest);
        time.nanoseconds = static_cast<Number>(until->nanoseconds);
    }
    return syscall(number, &word, operation | FUTEX_PRIVATE_FLAG, value, until ? &time : nullptr, nullptr,
                   FUTEX_BITSET_MATCH_ANY);
}

long CallFutex(const std::atomic<uint32_t>& word, int operation, uint32_t value, const KernelMoment* until) {
#ifdef SYS_futex_time64
    const long result = CallFutexAs<int64_t>(SYS_futex_time64, word, operation, value, until);
    if (result >= 0 || LastErrorNumber() != ENOSYS) return result;
#endif
    return CallFutexAs<long>(SYS_futex, word, operation, value, until);
}

void EndThread() {
    for (;;) syscall(SYS_exit, 0);
}
