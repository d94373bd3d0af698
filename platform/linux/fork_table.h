// Inside the provider: open forks and their numbers.
#pragma once

#include "platform/forks.h"
#include "platform/linux/current_task.h"
#include "platform/linux/one_thread.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <sys/stat.h>

enum class ForkKind : uint8_t { kData, kResource, kLink };

// What tells objects apart while they are open.
struct ObjectKey {
    uint64_t device = 0;
    uint64_t inode = 0;

    constexpr ObjectKey() = default;
    explicit ObjectKey(const struct statx& facts)
        : device(uint64_t{facts.stx_dev_major} << 32 | facts.stx_dev_minor), inode(facts.stx_ino) {}
    bool operator==(const ObjectKey&) const = default;
};

// An open fork. The data fork's mark is its descriptor's file offset; the other kinds keep their own.
struct OpenFork {
    OpenFork(ForkKind kindOfFork, int openDescriptor, const struct statx& facts)
        : key(facts), descriptor(openDescriptor), kind(kindOfFork) {}
    OpenFork(const OpenFork&) = delete;
    OpenFork& operator=(const OpenFork&) = delete;
    ~OpenFork();

    const ObjectKey key; // of the file
    int descriptor;      // of the file or the sidecar; -1 for a link
    const ForkKind kind;
    bool canRead = false;
    bool canWrite = false;
    bool holdsDate = false; // the file's content-modification date is to stay as it was given
    std::atomic<bool> isChanged = false;
    std::atomic<int64_t> lastChange = 0; // nanoseconds of the system's clock; kept only where holdsDate

    std::atomic<int64_t> mark = 0;
    std::atomic<uint64_t> length = 0; // of a resource fork, as last seen; of a link's text; see zeros
    uint64_t offset = 0;              // of a resource fork in its sidecar
    uint32_t lengthAt = 0;            // where the sidecar's header says how long the fork is
    std::unique_ptr<char[]> text;     // a link's

    // Of a new file's data fork. kUnwritten: nothing has been done with it but allocating `length` bytes. Else how many
    // zeros, from `length` on, the caller has written that are not in the file yet; the descriptor's offset lacks them, too.
    static constexpr uint32_t kUnwritten = UINT32_MAX;
    std::atomic<uint32_t> zeros = 0;

    OpenFork* next = nullptr; // of those that the table counts together
};

// Gives the fork a number and takes it; 0 when all numbers are in use, and the fork is still the caller's.
FSForkRefNum AddFork(std::unique_ptr<OpenFork>& fork);

// Ends the number; from here on nobody gets hold of the fork, and the last who has hold of it closes it. -51
// when it is not open, else what closing gave, if that happened here.
OSErr CloseFork(FSForkRefNum number);

// A place of the table. The state is kForkOpen or kForkClosing (closed, and not yet let go of by all) or
// neither, and the number of holders.
struct ForkSlot {
    std::atomic<uint32_t> state;
    uint16_t nextFree; // in the queue; 0 for the last
    std::atomic<OpenFork*> fork;
};
constexpr uint32_t kForkOpen = 0x80000000;
constexpr uint32_t kForkClosing = 0x40000000;
constexpr uint16_t kLastForkNumber = 32767;
extern constinit ForkSlot forkSlots[kLastForkNumber + 1];

// Ends the fork of a closed slot that all have let go of.
OSErr EndClosedFork(uint16_t number);

// One holder less.
inline OSErr LetGoOfFork(uint16_t number) {
    const uint32_t before = AddTo(forkSlots[number].state, -1u, std::memory_order_acq_rel);
    if (before - 1 == kForkClosing) [[unlikely]]
        return EndClosedFork(number);
    return noErr;
}

// Holds an open fork, so that its descriptor cannot be closed and given to something else meanwhile. In place,
// because every read and write begins and ends with it.
class HeldFork {
public:
    [[gnu::always_inline]] explicit HeldFork(FSForkRefNum number) : number_(static_cast<uint16_t>(number)) {
        if (number <= 0) return;
        const uint32_t before = AddTo(forkSlots[number_].state, 1u, std::memory_order_acquire);
        if (before & kForkOpen) [[likely]] {
            fork_ = forkSlots[number_].fork.load(std::memory_order_relaxed);
        } else {
            LetGoOfFork(number_);
        }
    }
    HeldFork(const HeldFork&) = delete;
    HeldFork& operator=(const HeldFork&) = delete;
    ~HeldFork() {
        if (fork_) LetGoOfFork(number_);
    }

    explicit operator bool() const { return fork_; }
    OpenFork* operator->() const { return fork_; }
    OpenFork& operator*() const { return *fork_; }

private:
    TerminationHold hold_; // a task must not end while it holds a fork
    uint16_t number_;
    OpenFork* fork_ = nullptr;
};

// Which forks of an object are open, as node flags.
bool AnyForkIsOpen();
uint16_t OpenForkFlags(const struct statx& facts);

inline bool IsForkOpen(const struct statx& facts, ForkKind kind) {
    const uint16_t flags = OpenForkFlags(facts);
    return flags & (kind == ForkKind::kResource ? 0x0004 : 0x0008);
}

// Tells all open resource forks of an object that the fork was cut.
void CutResourceForks(const ObjectKey& key, uint64_t length);

// Ends a fork that is out of the table: what is left to be written, and its descriptor.
OSErr FinishFork(OpenFork& fork);
