// Orphaned AppleDouble files, marked by an attribute of their own.
//
// Birth times would need no mark, but would be wrong as often as right: archives unpack a sidecar before its
// file, and editors that save by replacing make every file younger than its sidecar. A mark on the new
// neighbour would be lost the same way. Where the orphan cannot be marked (no attributes, someone else's
// file, a full disk) a ring of the last ones stands in for it.
#include "platform/linux/orphans.h"

#include "platform/linux/attributes.h"
#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/current_task.h"
#include "platform/linux/errors.h"
#include "platform/linux/system_calls.h"

#include <algorithm>
#include <cerrno>
#include <sys/xattr.h>

constexpr char kMark[] = "user.TavPort.Orphan";

static constinit ChildSafeMutex ringLock;
static constinit struct statx ring[32] = {};
static constinit std::atomic<unsigned> remembered = 0; // in all; the ring holds the last of them

static bool IsInRing(const struct statx& facts) {
    if (remembered.load(std::memory_order_acquire) == 0) return false;
    HeldLock guard(ringLock);
    return std::any_of(std::begin(ring), std::end(ring), [&facts](const struct statx& each) {
        return each.stx_mask && SameObject(each, facts);
    });
}

bool IsOrphan(int file, const struct statx& facts) {
    return Retry([&] { return fgetxattr(file, kMark, nullptr, 0); }) >= 0 || IsInRing(facts);
}

static bool Mark(int file, mode_t mode) {
    const auto set = [file] { return Retry([&] { return fsetxattr(file, kMark, "1", 1, 0); }) == 0; };
    const auto allow = [file](mode_t rights) { return Retry([&] { return fchmod(file, rights); }) == 0; };
    if (set()) return true;
    if (LastErrorNumber() != EACCES || !allow((mode & 07777) | S_IWUSR)) return false;
    const bool marked = set();
    return allow(mode & 07777) && marked;
}

void RememberOrphan(int file, const struct statx& facts) {
    if (IsOrphan(file, facts) || Mark(file, facts.stx_mode)) return;
    HeldLock guard(ringLock);
    const unsigned count = remembered.load(std::memory_order_relaxed);
    ring[count % std::size(ring)] = facts;
    remembered.store(count + 1 ? count + 1 : 1, std::memory_order_release);
}
