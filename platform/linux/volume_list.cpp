// The list of volumes, on libmount's reading of the kernel's mount table.
//
// Nothing tells a library that a mount came or went, unless it asks: the kernel marks an open mountinfo file
// then. One such file is kept open, and one table. They belong to one mount namespace, root and process, and
// are replaced when the caller's are others, or when it acts for another user, who may reach other folders.
//
// Sections: what makes a mount a volume; servers; reading the table; watching for changes.
#include "platform/linux/volume_list.h"

#include "platform/linux/current_task.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/errors.h"
#include "platform/linux/lasting.h"
#include "platform/linux/system_calls.h"
#include "platform/process.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <libmount.h>
#include <poll.h>
#include <string_view>
#include <unistd.h>

static constexpr char kMountInfo[] = "/proc/thread-self/mountinfo";
static constexpr char kNamespace[] = "/proc/thread-self/ns/mnt";

const Volume* VolumeTable::ByIndex(size_t index) const {
    return index >= 1 && index <= listed ? &volumes[index - 1] : nullptr;
}

const Volume* VolumeTable::ByNumber(FSVolumeRefNum number) const {
    auto found = std::find_if(volumes.begin(), volumes.end(),
                              [number](const Volume& volume) { return volume.number == number; });
    return found == volumes.end() ? nullptr : &*found;
}

// ---- What makes a mount a volume ----

static bool IsIn(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// File systems of the machine itself stay out of sight; memory, layered and FUSE ones count where people put
// them.
static bool IsDisk(libmnt_fs* mount, std::string_view type, std::string_view root) {
    if (root == "/") return true;
    if (type == "tmpfs" || type == "overlay" || type == "fuse" || type.starts_with("fuse.")) {
        if (IsIn(root, "/run/media")) return true;
        return !IsIn(root, "/dev") && !IsIn(root, "/proc") && !IsIn(root, "/sys") && !IsIn(root, "/run");
    }
    return !mnt_fs_is_pseudofs(mount) && !mnt_fs_is_swaparea(mount);
}

namespace {
enum class Sight { kSeen, kHidden, kOutOfReach };
}

// The facts of a mount's root by its path, without asking a server that may have gone. Hidden when another
// mount lies over it or above it.
static Sight SeeRoot(libmnt_fs* mount, const char* root, struct statx& facts) {
    const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    if (FactsAt(AT_FDCWD, root, flags, facts) != 0) {
        const int error = LastErrorNumber();
        return error == ENOENT || error == ENOTDIR ? Sight::kHidden : Sight::kOutOfReach;
    }
    const bool isThis = facts.stx_mask & STATX_MNT_ID
                            ? facts.stx_mnt_id == static_cast<uint64_t>(mnt_fs_get_id(mount))
                            : makedev(facts.stx_dev_major, facts.stx_dev_minor) == mnt_fs_get_devno(mount);
    return isThis ? Sight::kSeen : Sight::kHidden;
}

// ---- Servers ----

// The host in "host:/folder", "//host/share", "user@host:", "[address]:/folder".
static std::string_view Host(std::string_view source) {
    if (source.starts_with("//")) {
        source.remove_prefix(2);
        return source.substr(0, source.find('/'));
    }
    if (size_t at = source.substr(0, source.find('/')).rfind('@'); at != std::string_view::npos)
        source.remove_prefix(at + 1);
    if (source.starts_with("[")) return source.substr(1, source.find(']') - 1);
    return source.substr(0, source.find(':'));
}

// A number for a host, the same for every mount from it: its name hashed, letter case ignored.
static int32_t ServerAddress(std::string_view source) {
    uint32_t hash = 2166136261u;
    for (char c : Host(source)) {
        hash = (hash ^ static_cast<uint8_t>(std::tolower(static_cast<unsigned char>(c)))) * 16777619u;
    }
    return hash == 0 ? 1 : static_cast<int32_t>(hash);
}

// NFS from 4.2 and SMB from 3 copy on the server's side.
static bool ServerCopies(libmnt_fs* mount, std::string_view type) {
    char* value = nullptr;
    size_t size = 0;
    if (type == "smb3") return true;
    if (type != "nfs4" && type != "nfs" && type != "cifs") return false;
    if (mnt_fs_get_option(mount, "vers", &value, &size) != 0 || !value) return false;
    std::string_view version(value, size);
    return type == "cifs" ? version.starts_with("3") : version == "4.2";
}

// ---- Reading the table ----

static std::string Text(const char* text) {
    return text ? std::string(text) : std::string();
}
static Volume Describe(libmnt_fs* mount, const struct statx& facts) {
    Volume volume{};
    volume.number = VolumeNumber(facts);
    volume.device = mnt_fs_get_devno(mount);
    volume.root = Text(mnt_fs_get_target(mount));
    volume.type = Text(mnt_fs_get_fstype(mount));
    volume.source = Text(mnt_fs_get_source(mount));
    if (mnt_fs_is_netfs(mount)) {
        volume.serverAddress = ServerAddress(volume.source);
        volume.serverCopies = ServerCopies(mount, volume.type);
    }
    return volume;
}

static int SkipBadLine(libmnt_table*, const char*, int) {
    return 1;
}

struct MountTable {
    MountTable() : table(mnt_new_table()), position(mnt_new_iter(MNT_ITER_FORWARD)) {
        if (!table || !position) Fail();
        mnt_table_set_parser_errcb(table, SkipBadLine);
    }
    ~MountTable() { Free(); }
    MountTable(const MountTable&) = delete;
    MountTable& operator=(const MountTable&) = delete;
    [[noreturn]] void Fail() {
        Free();
        throw std::bad_alloc();
    }
    void Free() {
        mnt_free_iter(position);
        mnt_unref_table(table);
    }

    libmnt_table* table;
    libmnt_iter* position;
};

// Without a mount table to read there is the root alone.
static Volume RootAlone() {
    Volume volume{};
    struct statx facts {};
    if (FactsAt(AT_FDCWD, "/", 0, facts) == 0) {
        volume.number = VolumeNumber(facts);
        volume.device = makedev(facts.stx_dev_major, facts.stx_dev_minor);
    }
    volume.root.assign(1, '/');
    return volume;
}

// How long a table is good that lacks a volume.
static uint64_t ASecondFromNow() {
    return MonotonicNow() + 1000000000u;
}

static std::shared_ptr<const VolumeTable> ReadTable() {
    auto result = std::make_shared<VolumeTable>();
    std::vector<Volume> others;
    MountTable mounts;
    libmnt_fs* mount = nullptr;
    if (mnt_table_parse_file(mounts.table, kMountInfo) != 0) result->keptUntil = 0;
    while (result->keptUntil && mnt_table_next_fs(mounts.table, mounts.position, &mount) == 0) {
        const char* root = mnt_fs_get_target(mount);
        if (!root) continue;
        struct statx facts {};
        const Sight sight = SeeRoot(mount, root, facts);
        if (sight == Sight::kOutOfReach) result->keptUntil = ASecondFromNow();
        if (sight != Sight::kSeen) continue;
        Volume volume = Describe(mount, facts);
        bool isDisk = S_ISDIR(facts.stx_mode) && IsDisk(mount, volume.type, volume.root);
        (isDisk ? result->volumes : others).push_back(std::move(volume));
    }
    auto root = std::find_if(result->volumes.begin(), result->volumes.end(),
                             [](const Volume& volume) { return volume.root == "/"; });
    if (root == result->volumes.end()) root = result->volumes.insert(root, RootAlone());
    std::rotate(result->volumes.begin(), root, root + 1);
    result->listed = result->volumes.size();
    std::move(others.begin(), others.end(), std::back_inserter(result->volumes));
    return result;
}

// ---- Watching for changes ----

namespace {

// Whose mounts a table tells of.
struct Viewpoint {
    pid_t process = 0; // a child shares the open file and would take its parent's marks
    uid_t user = 0;
    dev_t namespaceDevice = 0;
    ino_t namespaceInode = 0;
    uint64_t rootMount = 0;
    uint64_t rootInode = 0;
    bool operator==(const Viewpoint&) const = default;
};

struct Watch {
    ~Watch() {
        if (file >= 0) Close(file);
    }
    Viewpoint viewpoint;
    int file = -1;
    std::shared_ptr<const VolumeTable> table;
};

} // namespace

static constinit Lasting<Watch> watch;

[[gnu::destructor]] static void EndWatch() {
    watch.End();
}

// Around a fork the lock is held, so that the child finds the table whole.
static void LockWatch() {
    watch.lock.lock();
}
static void UnlockWatch() {
    watch.lock.unlock();
}

[[gnu::constructor(105)]] static void HandleForks() {
    (void)PlatformAtFork(LockWatch, UnlockWatch, UnlockWatch);
}

static Viewpoint CurrentViewpoint() {
    Viewpoint viewpoint;
    viewpoint.process = getpid();
    viewpoint.user = geteuid();
    struct statx root {};
    if (FactsAt(AT_FDCWD, "/", AT_STATX_DONT_SYNC, root) == 0) {
        viewpoint.rootMount = root.stx_mnt_id;
        viewpoint.rootInode = root.stx_ino;
    }
    // No two mounts of any namespaces have the same number, and the open table keeps those of its own taken.
    if (root.stx_mask & STATX_MNT_ID) return viewpoint;
    struct stat space {};
    if (Retry([&] { return stat(kNamespace, &space); }) == 0) {
        viewpoint.namespaceDevice = space.st_dev;
        viewpoint.namespaceInode = space.st_ino;
    }
    return viewpoint;
}

// Asking takes the mark away. A file that cannot be watched counts as changed.
static bool MountsChanged() {
    pollfd asked{watch->file, POLLPRI, 0};
    if (watch->file < 0) return true;
    return Retry([&] { return poll(&asked, 1, 0); }) != 0;
}

static void WatchFrom(const Viewpoint& viewpoint) {
    if (watch->file >= 0) Close(watch->file);
    watch->file = Retry([] { return open(kMountInfo, O_RDONLY | O_CLOEXEC); });
    watch->viewpoint = viewpoint;
}

// Looks for the mark first, so that none stays behind.
static bool IsGood(const VolumeTable& table) {
    return !MountsChanged() && (table.keptUntil == UINT64_MAX || MonotonicNow() < table.keptUntil);
}

std::shared_ptr<const VolumeTable> CurrentVolumes() {
    const Viewpoint viewpoint = CurrentViewpoint();
    HeldLock lock(watch.lock);
    if (watch->viewpoint != viewpoint || watch->file < 0) {
        watch->table = nullptr;
        WatchFrom(viewpoint);
    } else if (watch->table && IsGood(*watch->table)) {
        return watch->table;
    }
    // The one before is out of date, whether or not the next can be read.
    watch->table = nullptr;
    watch->table = ReadTable();
    return watch->table;
}

void DropVolume(const std::shared_ptr<const VolumeTable>& table, FSVolumeRefNum number) {
    auto shorter = std::make_shared<VolumeTable>(*table);
    auto found = std::find_if(shorter->volumes.begin(), shorter->volumes.end(),
                              [number](const Volume& volume) { return volume.number == number; });
    if (found == shorter->volumes.end()) return;
    if (found - shorter->volumes.begin() < static_cast<ptrdiff_t>(shorter->listed)) --shorter->listed;
    shorter->volumes.erase(found);
    shorter->keptUntil = std::min(shorter->keptUntil, ASecondFromNow());
    HeldLock lock(watch.lock);
    if (watch->table == table) watch->table = std::move(shorter);
}
