// Resting delete iterators. A delete holds one iterator for each level of its tree; with a bound on those
// that keep descriptors, the depth of a tree is not bounded by the descriptor limit. Who rests longest gives
// up first: that is the folder highest up, which is needed again last.
#include "platform/linux/idle_iterators.h"

#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/current_task.h"

#include <algorithm>
#include <optional>
#include <sys/resource.h>
#include <utility>

// Each holds two descriptors and one batch of names.
static constexpr size_t kMostResting = 64;
static constexpr size_t kShareOfLimit = 8;

namespace {
class RestingList {
public:
    void Append(OpaqueFSIterator& iterator) {
        iterator.older = newest_;
        iterator.newer = nullptr;
        iterator.isResting = true;
        (newest_ ? newest_->newer : oldest_) = &iterator;
        newest_ = &iterator;
        ++count_;
    }

    void Remove(OpaqueFSIterator& iterator) {
        if (!iterator.isResting) return;
        (iterator.older ? iterator.older->newer : oldest_) = iterator.newer;
        (iterator.newer ? iterator.newer->older : newest_) = iterator.older;
        iterator.isResting = false;
        --count_;
    }

    OpaqueFSIterator* oldest() const { return oldest_; }
    size_t count() const { return count_; }

private:
    OpaqueFSIterator* oldest_ = nullptr;
    OpaqueFSIterator* newest_ = nullptr;
    size_t count_ = 0;
};
} // namespace

static constinit RestingList resting;
static constinit ChildSafeMutex lock;

// How many may keep their descriptors, fewer where the process may have only few.
static size_t MostResting() {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return kMostResting;
    return static_cast<size_t>(std::min<rlim_t>(kMostResting, limit.rlim_cur / kShareOfLimit));
}

namespace {
// What an iterator can open again. It is closed after the lock is left, since closing takes locks of its own.
struct GivenBack {
    FolderReader reader;
    FolderHandle folder;
};
} // namespace

// Takes from the iterator that rests longest, if more than `most` do.
static std::optional<GivenBack> TakeFromOldest(size_t most) {
    HeldLock guard(lock);
    if (resting.count() <= most) return std::nullopt;
    OpaqueFSIterator& iterator = *resting.oldest();
    resting.Remove(iterator);
    return GivenBack{std::move(iterator.reader), std::move(iterator.item.folder)};
}

void LetRest(OpaqueFSIterator& iterator) {
    size_t count;
    {
        HeldLock guard(lock);
        resting.Append(iterator);
        count = resting.count();
    }
    // The limit is not asked for while there are too few to matter.
    if (count > kMostResting / kShareOfLimit) (void)TakeFromOldest(MostResting());
}

void TakeUp(OpaqueFSIterator& iterator) {
    HeldLock guard(lock);
    resting.Remove(iterator);
}

bool FreeRestingDescriptors() {
    bool any = false;
    while (TakeFromOldest(0)) any = true;
    return any;
}
