// System calls that the C library has no function for, each with its way out where the kernel lacks or
// forbids it, and calls that are to be done as a whole. Nothing else in the provider calls syscall().
//
// All give -1 on failure, with the cause for LastError(), and start again when a signal interrupts them,
// unless they say otherwise.
#pragma once

#include "platform/linux/errors.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

// Repeats a call until no signal interrupts it. In place, like the calls below that every operation makes: the way back
// to a caller is what a processor guesses wrong after the kernel has run.
template <typename Call>
[[gnu::always_inline]] inline auto Retry(Call call) {
    for (;;) {
        auto result = call();
        if (result >= 0 || LastErrorNumber() != EINTR) [[likely]]
            return result;
    }
}

// The facts that a place has.
constexpr unsigned kFactsMask = STATX_BASIC_STATS | STATX_BTIME | STATX_MNT_ID;

// Fills in the mount that a kernel before 5.8 leaves out of the facts.
void CompleteMount(int folder, const char* path, int flags, struct statx& facts);

// statx of one name or path; `flags` as the system has them (AT_SYMLINK_NOFOLLOW, AT_EMPTY_PATH …).
inline int FactsAt(int folder, const char* path, int flags, struct statx& facts, unsigned mask = kFactsMask) {
    int result = Retry([&] { return statx(folder, path, flags, mask, &facts); });
    if (result != 0 || !(mask & STATX_MNT_ID)) return result;
    if (!(facts.stx_mask & STATX_MNT_ID) || facts.stx_mnt_id == 0) CompleteMount(folder, path, flags, facts);
    return 0;
}

// Opens a path of names below `folder` without following any link, at the end neither. Falls back to steps of
// one name where openat2 is missing or denied. O_CLOEXEC is added.
int OpenWithoutLinks(int folder, const char* path, int flags);

// Opens one name without following it when it is a link. O_CLOEXEC is added.
inline int OpenName(int folder, const char* name, int flags, unsigned mode = 0) {
    return Retry([&] { return openat(folder, name, flags | O_NOFOLLOW | O_CLOEXEC, mode); });
}

// Closes, keeping the number of the last error; never repeated, since an interrupted close has closed.
void Close(int descriptor);

// Reads directory entries in the kernel's own format into `buffer`; 0 at the end.
ssize_t ReadEntries(int folder, void* buffer, size_t size);

// What ReadEntries fills: entries one after another, `length` bytes apart.
struct DirectoryEntry {
    uint64_t inode;
    int64_t position; // of the entry after this one, for lseek
    uint16_t length;
    uint8_t type; // DT_… or DT_UNKNOWN
    char name[1]; // zero-terminated
};

// Reads at an offset until `size` bytes are there or the file ends; their number.
ssize_t ReadFully(int file, void* bytes, size_t size, uint64_t offset);

// Writes all of it at an offset; 0, or -1 when less went in.
int WriteFully(int file, const void* bytes, size_t size, uint64_t offset);

// Reads an attribute of a name that is not followed when it is a link: getxattrat, from Linux 6.13 on.
ssize_t GetAttributeOfName(int folder, const char* name, const char* attribute, void* value, size_t size);

// A moment on the monotonic clock.
struct KernelMoment {
    int64_t seconds;
    int64_t nanoseconds;
};

// A futex operation, waiting until a moment or, when it is null, for ever. A signal that interrupts it is
// told, as the kernel tells it.
long CallFutex(const std::atomic<uint32_t>& word, int operation, uint32_t value, const KernelMoment* until);

// Ends the calling thread at once, without what the C library does when one ends.
[[noreturn]] void EndThread();

// Renames or moves without ever replacing: -1 with EEXIST when the new name is taken. Where the file system
// cannot do that in one step, files and links are linked under the new name and unlinked; folders are refused
// (EINVAL).
int RenameWithoutReplacing(int fromFolder, const char* from, int toFolder, const char* to);
