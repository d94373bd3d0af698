// Reading, writing, positions and sizes of open forks.
//
// The data fork is the file and its mark the descriptor's offset, so that reading and writing at the mark are
// one call to the kernel. A resource fork is a part of the sidecar: its mark is kept here, and the header
// says how long it is. The length last seen is believed until a read would go beyond it; whoever writes
// beyond it says so in the header after the bytes are there. A link's text is held in memory.
//
// Copies allocate what a fork is to hold, write whole blocks and cut off what is too much. So the zeros that the first
// write to a file of the thread's own making puts behind what was allocated wait: mostly the cut is what comes next, and
// then nothing is to be cut.
//
// Space is reserved with fallocate; where the file system cannot, a look at the free space has to do.
// Sections: the resource fork's length, moving bytes, positions, sizes, space.
#include "platform/linux/fork_io.h"

#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/kept_dates.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/with_descriptors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

constexpr uint16_t kPositionMask = 3; // what is above it only concerns caching

// ---- The resource fork's length

static constinit ChildSafeMutex lengthLock;

void SetExtent(OpenFork& fork, const Sidecar& sidecar, const Extent& extent) {
    fork.offset = extent.offset;
    fork.length = extent.length;
    fork.lengthAt = sidecar.ResourceForkLengthAt();
}

static OSErr ReadLength(OpenFork& fork) {
    uint8_t bytes[4];
    const ssize_t count = ReadFully(fork.descriptor, bytes, sizeof(bytes), fork.lengthAt);
    if (count != sizeof(bytes)) return count < 0 ? LastError() : ioErr;
    fork.length = appledouble::Load32(bytes);
    return noErr;
}

static OSErr WriteLength(OpenFork& fork, uint64_t length) {
    uint8_t bytes[4];
    appledouble::Store32(bytes, static_cast<uint32_t>(length));
    if (WriteFully(fork.descriptor, bytes, sizeof(bytes), fork.lengthAt) < 0) return LastError();
    fork.length = length;
    return noErr;
}

// Others may have the fork open and make it longer at the same time.
static OSErr GrowLength(OpenFork& fork, uint64_t length) {
    if (length <= fork.length) return noErr;
    HeldLock guard(lengthLock);
    const OSErr result = ReadLength(fork);
    return result == noErr && length > fork.length ? WriteLength(fork, length) : result;
}

static bool FitsInSidecar(const OpenFork& fork, uint64_t length) {
    return length <= UINT32_MAX - fork.offset;
}

// ---- Moving bytes. The rarer kinds of forks stand out of the way of the few instructions that a file's data needs.

// Repeats `move`, which takes an offset into the buffer and a size, until all is moved or nothing more comes.
template <typename Move>
static OSErr MoveAll(Move move, ByteCount size, ByteCount& moved) {
    for (moved = 0; moved < size;) {
        const ssize_t count = Retry([&] { return move(moved, size - moved); });
        if (count < 0) [[unlikely]]
            return LastError();
        if (count == 0) return eofErr;
        moved += static_cast<ByteCount>(count);
    }
    return noErr;
}

[[gnu::cold]] static OSErr ReadResource(OpenFork& fork, uint8_t* buffer, ByteCount size, ByteCount& moved) {
    const auto mark = static_cast<uint64_t>(fork.mark.load());
    if (mark + size > fork.length) {
        const OSErr result = ReadLength(fork);
        if (result != noErr) return result;
    }
    const uint64_t length = fork.length;
    const auto available =
        static_cast<ByteCount>(std::min<uint64_t>(size, length > mark ? length - mark : 0));
    const OSErr result = MoveAll(
        [&](ByteCount at, size_t count) {
            return pread(fork.descriptor, buffer + at, count, static_cast<off_t>(fork.offset + mark + at));
        },
        available, moved);
    fork.mark.fetch_add(moved);
    return result == noErr && available < size ? eofErr : result;
}

[[gnu::cold]] static OSErr ReadText(OpenFork& fork, uint8_t* buffer, ByteCount size, ByteCount& moved) {
    const auto mark = static_cast<uint64_t>(fork.mark.load());
    const uint64_t left = fork.length > mark ? fork.length - mark : 0;
    moved = static_cast<ByteCount>(std::min<uint64_t>(size, left));
    if (moved) std::memcpy(buffer, fork.text.get() + mark, moved);
    fork.mark.fetch_add(moved);
    return moved < size ? eofErr : noErr;
}

static OSErr ReadAtMark(OpenFork& fork, uint8_t* buffer, ByteCount size, ByteCount& moved) {
    if (fork.kind == ForkKind::kData) {
        return MoveAll([&](ByteCount at, size_t count) { return read(fork.descriptor, buffer + at, count); },
                       size, moved);
    }
    return fork.kind == ForkKind::kResource ? ReadResource(fork, buffer, size, moved)
                                            : ReadText(fork, buffer, size, moved);
}

[[gnu::cold]] static OSErr WriteResource(OpenFork& fork, const uint8_t* buffer, ByteCount size,
                                         ByteCount& moved) {
    const auto mark = static_cast<uint64_t>(fork.mark.load());
    if (!FitsInSidecar(fork, mark + size)) return ioErr;
    OSErr result = MoveAll(
        [&](ByteCount at, size_t count) {
            return WithRoom([&] {
                return pwrite(fork.descriptor, buffer + at, count,
                              static_cast<off_t>(fork.offset + mark + at));
            });
        },
        size, moved);
    fork.mark.fetch_add(moved);
    const OSErr second = moved ? GrowLength(fork, mark + moved) : noErr;
    return result == noErr ? second : result;
}

// Notes that the file's content changed, and when, for the date that it may have to keep.
static void NoteChange(OpenFork& fork) {
    fork.isChanged.store(true, std::memory_order_relaxed);
    if (fork.holdsDate) fork.lastChange.store(SystemTime(), std::memory_order_relaxed);
}

static OSErr WriteBytes(const OpenFork& fork, const uint8_t* buffer, ByteCount size, ByteCount& moved) {
    const OSErr result = MoveAll(
        [&](ByteCount at, size_t count) {
            return WithRoom([&] { return write(fork.descriptor, buffer + at, count); });
        },
        size, moved);
    return result == eofErr ? ioErr : result;
}

constexpr uint8_t kZeros[511] = {}; // less than a block of a disk may wait

// What cannot be written goes on waiting.
OSErr SettleEnd(OpenFork& fork) {
    if (fork.zeros.load(std::memory_order_relaxed) == 0) [[likely]]
        return noErr;
    const uint32_t zeros = fork.zeros.exchange(0);
    if (zeros == OpenFork::kUnwritten) return noErr;
    ByteCount moved;
    const OSErr result = WriteBytes(fork, kZeros, zeros, moved);
    fork.length += moved;
    fork.zeros = zeros - static_cast<uint32_t>(moved);
    NoteChange(fork);
    return result;
}

static OSErr WriteFirst(OpenFork& fork, const uint8_t* buffer, ByteCount size, ByteCount& moved) {
    const uint64_t length = fork.length, beyond = size - length;
    const bool mayWait = length != 0 && length < size && beyond <= sizeof(kZeros) &&
                         std::memcmp(buffer + length, kZeros, beyond) == 0;
    if (!mayWait) return WriteBytes(fork, buffer, size, moved);
    const OSErr result = WriteBytes(fork, buffer, static_cast<ByteCount>(length), moved);
    if (result != noErr) return result;
    fork.zeros = static_cast<uint32_t>(beyond);
    moved = size;
    return noErr;
}

static OSErr WriteData(OpenFork& fork, const uint8_t* buffer, ByteCount size, ByteCount& moved) {
    uint32_t zeros = fork.zeros.load(std::memory_order_relaxed);
    if (zeros == OpenFork::kUnwritten && fork.zeros.compare_exchange_strong(zeros, 0)) [[unlikely]]
        return WriteFirst(fork, buffer, size, moved);
    const OSErr result = SettleEnd(fork);
    return result == noErr ? WriteBytes(fork, buffer, size, moved) : result;
}

static OSErr WriteAtMark(OpenFork& fork, const uint8_t* buffer, ByteCount size, ByteCount& moved) {
    const OSErr result = fork.kind == ForkKind::kData ? WriteData(fork, buffer, size, moved)
                                                      : WriteResource(fork, buffer, size, moved);
    NoteChange(fork);
    return result;
}

// ---- Positions

OSErr ForkSize(OpenFork& fork, int64_t& size) {
    if (fork.kind == ForkKind::kData) {
        const OSErr result = SettleEnd(fork);
        if (result != noErr) return result;
        struct stat status;
        if (Retry([&] { return fstat(fork.descriptor, &status); }) < 0) return LastError();
        size = status.st_size;
        return noErr;
    }
    const OSErr result = fork.kind == ForkKind::kResource ? ReadLength(fork) : noErr;
    size = static_cast<int64_t>(fork.length.load());
    return result;
}

static OSErr MarkOf(OpenFork& fork, int64_t& mark) {
    if (fork.kind != ForkKind::kData) {
        mark = fork.mark;
        return noErr;
    }
    const OSErr result = SettleEnd(fork);
    if (result != noErr) return result;
    mark = lseek(fork.descriptor, 0, SEEK_CUR);
    return mark < 0 ? LastError() : noErr;
}

// The position that a mode and an offset mean; -40 when it lies before the start or beyond all numbers.
static OSErr Resolve(OpenFork& fork, uint16_t mode, int64_t offset, int64_t& position) {
    int64_t base = 0;
    OSErr result = noErr;
    switch (mode & kPositionMask) {
    case fsAtMark:
        return MarkOf(fork, position);
    case fsFromLEOF:
        result = ForkSize(fork, base);
        break;
    case fsFromMark:
        result = MarkOf(fork, base);
        break;
    default:
        break;
    }
    if (result != noErr) return result;
    return __builtin_add_overflow(base, offset, &position) || position < 0 ? posErr : noErr;
}

static OSErr MoveMark(OpenFork& fork, uint16_t mode, int64_t offset) {
    if (fork.kind == ForkKind::kData) {
        const OSErr result = SettleEnd(fork);
        if (result != noErr) return result;
        constexpr int kWhence[] = {SEEK_CUR, SEEK_SET, SEEK_END, SEEK_CUR};
        if (lseek(fork.descriptor, offset, kWhence[mode & kPositionMask]) >= 0) return noErr;
        return LastErrorNumber() == EINVAL || LastErrorNumber() == EOVERFLOW ? posErr : LastError();
    }
    int64_t position;
    const OSErr result = Resolve(fork, mode, offset, position);
    if (result == noErr) fork.mark = position;
    return result;
}

static OSErr SetMark(OpenFork& fork, uint16_t mode, int64_t offset) {
    return (mode & kPositionMask) == fsAtMark ? OSErr{noErr} : MoveMark(fork, mode, offset);
}

OSErr FSReadFork(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset,
                 ByteCount requestCount, void* buffer, ByteCount* actualCount) {
    ByteCount unwanted;
    ByteCount& moved = actualCount ? *actualCount : unwanted;
    moved = 0;
    const HeldFork fork(forkRefNum);
    if (!fork) [[unlikely]]
        return rfNumErr;
    if (!fork->canRead) [[unlikely]]
        return permErr;
    if (!buffer && requestCount) [[unlikely]]
        return paramErr;
    const OSErr result = SetMark(*fork, positionMode, positionOffset);
    return result == noErr ? ReadAtMark(*fork, static_cast<uint8_t*>(buffer), requestCount, moved) : result;
}

OSErr FSWriteFork(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset,
                  ByteCount requestCount, const void* buffer, ByteCount* actualCount) {
    ByteCount unwanted;
    ByteCount& moved = actualCount ? *actualCount : unwanted;
    moved = 0;
    const HeldFork fork(forkRefNum);
    if (!fork) return rfNumErr;
    if (!fork->canWrite) return permErr;
    if (!buffer && requestCount) return paramErr;
    const OSErr result = SetMark(*fork, positionMode, positionOffset);
    if (result != noErr || requestCount == 0) return result;
    return WriteAtMark(*fork, static_cast<const uint8_t*>(buffer), requestCount, moved);
}

OSErr FSSetForkPosition(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset) {
    const HeldFork fork(forkRefNum);
    return fork ? SetMark(*fork, positionMode, positionOffset) : rfNumErr;
}

OSErr FSGetForkPosition(FSForkRefNum forkRefNum, int64_t* position) {
    const HeldFork fork(forkRefNum);
    if (!fork) return rfNumErr;
    int64_t mark;
    const OSErr result = position ? MarkOf(*fork, mark) : paramErr;
    if (result == noErr) *position = mark;
    return result;
}

// ---- Sizes

OSErr FSGetForkSize(FSForkRefNum forkRefNum, int64_t* forkSize) {
    const HeldFork fork(forkRefNum);
    if (!fork) return rfNumErr;
    int64_t size;
    const OSErr result = forkSize ? ForkSize(*fork, size) : paramErr;
    if (result == noErr) *forkSize = size;
    return result;
}

static OSErr Truncate(const OpenFork& fork, uint64_t end) {
    return Retry([&] { return ftruncate(fork.descriptor, static_cast<off_t>(end)); }) == 0 ? noErr
                                                                                           : LastError();
}

// Takes the zeros off that wait. There is something to cut only if somebody else has changed the file.
static OSErr CutZerosOff(OpenFork& fork, uint32_t zeros) {
    struct stat status;
    if (Retry([&] { return fstat(fork.descriptor, &status); }) < 0) return LastError();
    const OSErr result =
        static_cast<uint64_t>(status.st_size) == fork.length ? OSErr{noErr} : Truncate(fork, fork.length);
    if (result != noErr || !fork.zeros.compare_exchange_strong(zeros, 0)) return result;
    return lseek(fork.descriptor, zeros, SEEK_CUR) < 0 ? LastError() : noErr; // the mark has passed them
}

static OSErr SetDataSize(OpenFork& fork, uint64_t size) {
    const uint32_t zeros = fork.zeros;
    if (zeros != 0 && zeros != OpenFork::kUnwritten && size == fork.length) return CutZerosOff(fork, zeros);
    const OSErr result = SettleEnd(fork);
    return result == noErr ? Truncate(fork, size) : result;
}

// The header never says more than there is: cutting begins with it, growing ends with it.
static OSErr ChangeResourceSize(OpenFork& fork, uint64_t size) {
    HeldLock guard(lengthLock);
    OSErr result = ReadLength(fork);
    if (result == noErr && size < fork.length) result = WriteLength(fork, size);
    if (result == noErr) result = Truncate(fork, fork.offset + size);
    return result == noErr && size > fork.length ? WriteLength(fork, size) : result;
}

static OSErr SetResourceSize(OpenFork& fork, uint64_t size) {
    if (!FitsInSidecar(fork, size)) return ioErr;
    const OSErr result = ChangeResourceSize(fork, size);
    CutResourceForks(fork.key, size);
    return result;
}

OSErr FSSetForkSize(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset) {
    const HeldFork fork(forkRefNum);
    if (!fork) return rfNumErr;
    if (!fork->canWrite) return permErr;
    int64_t size;
    OSErr result = Resolve(*fork, positionMode, positionOffset, size);
    if (result != noErr) return result;
    const auto end = static_cast<uint64_t>(size);
    result = fork->kind == ForkKind::kResource ? SetResourceSize(*fork, end) : SetDataSize(*fork, end);
    NoteChange(*fork);
    return result;
}

// ---- Space

static bool CannotReserve() {
    return LastErrorNumber() == EOPNOTSUPP || LastErrorNumber() == ENOSYS || LastErrorNumber() == ENODEV;
}

// Whether the volume has room for the bytes that the file would need beyond what it occupies.
static OSErr LookForSpace(const OpenFork& fork, uint64_t end) {
    struct stat status;
    struct statvfs volume;
    if (Retry([&] { return fstat(fork.descriptor, &status); }) < 0 ||
        Retry([&] { return fstatvfs(fork.descriptor, &volume); }) < 0)
        return LastError();
    if (volume.f_blocks == 0) return noErr; // a volume in memory that does not say how large it is
    const uint64_t occupied = static_cast<uint64_t>(status.st_blocks) * 512;
    const uint64_t free = uint64_t{volume.f_bavail} * volume.f_frsize;
    return end <= occupied || end - occupied <= free ? noErr : dskFulErr;
}

// A volume gives out whole blocks, so the first write asks for as much as a small request would.
constexpr uint64_t kSmallestReserved = 4096;

static OSErr Reserve(OpenFork& fork, uint64_t position, uint64_t count) {
    if (count == 0 || (count <= kSmallestReserved && position == 0)) return noErr;
    if (count > INT64_MAX - position) return dskFulErr;
    const int result = Retry([&] {
        return fallocate(fork.descriptor, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(position),
                         static_cast<off_t>(count));
    });
    if (result == 0) {
        NoteChange(fork);
        return noErr;
    }
    if (CannotReserve()) return LookForSpace(fork, position + count);
    return LastErrorNumber() == EFBIG ? dskFulErr : LastError();
}

OSErr FSAllocateFork(FSForkRefNum forkRefNum, FSAllocationFlags, uint16_t positionMode,
                     int64_t positionOffset, uint64_t requestCount, uint64_t* actualCount) {
    if (actualCount) *actualCount = 0;
    const HeldFork fork(forkRefNum);
    if (!fork) return rfNumErr;
    if (!fork->canWrite) return permErr;
    // Only the first allocation tells what the fork is to hold.
    const bool isFirst = fork->zeros == OpenFork::kUnwritten && fork->length == 0;
    OSErr result = isFirst ? OSErr{noErr} : SettleEnd(*fork);
    int64_t position = 0;
    if (result == noErr) result = Resolve(*fork, positionMode, positionOffset, position);
    if (result != noErr) return result;
    const uint64_t begin = fork->offset + static_cast<uint64_t>(position);
    result = Reserve(*fork, begin, requestCount);
    if (result == dskFulErr && GiveRoomBack()) result = Reserve(*fork, begin, requestCount);
    if (result == noErr && isFirst && begin == 0) fork->length = requestCount;
    if (result == noErr && actualCount) *actualCount = requestCount;
    return result;
}
