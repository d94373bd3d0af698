#include "support/private_mounts.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace fs = std::filesystem;

static std::string Failed(const std::string& what) {
    return what + ": " + strerror(errno);
}

bool RunCommand(const std::string& command) {
    int status = std::system(("(" + command + ") >/dev/null 2>&1").c_str());
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The machine's root below, a memory file system on top, so that folders can be made in "/" and go again.
static std::string EnterScratchRoot(const std::string& scratch) {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return Failed("no private mounts");
    if (mount("scratch", scratch.c_str(), "tmpfs", 0, nullptr) != 0) return Failed("no tmpfs");
    for (const char* name : {"/upper", "/work", "/root"}) fs::create_directory(scratch + name);
    std::string options = "lowerdir=/,upperdir=" + scratch + "/upper,workdir=" + scratch + "/work";
    std::string root = scratch + "/root";
    if (mount("root", root.c_str(), "overlay", 0, options.c_str()) != 0) return Failed("no overlay");
    for (const std::string name : {"/dev", "/proc", "/sys"})
        if (mount(name.c_str(), (root + name).c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
            return Failed("cannot carry over " + name);
    if (chroot(root.c_str()) != 0 || chdir("/") != 0) return Failed("no own root");
    return {};
}

PrivateMounts::PrivateMounts() {
    if (geteuid() != 0) {
        missing_ = "mounting needs root";
        return;
    }
    scratch_ = (fs::temp_directory_path() / "tavport-root-XXXXXX").string();
    outside_ = open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC);
    if (outside_ < 0 || !mkdtemp(scratch_.data())) {
        missing_ = Failed("no scratch folder");
    } else if (unshare(CLONE_NEWNS) != 0) {
        missing_ = Failed("no mount namespace");
    } else {
        missing_ = EnterScratchRoot(scratch_);
    }
}

PrivateMounts::~PrivateMounts() {
    if (outside_ < 0) return;
    for (const std::string& folder : mounted_) umount2(folder.c_str(), MNT_DETACH);
    // Other threads may share the current folder and root, which would keep this one from going back. Staying
    // would have all later tests run in the scratch root.
    if (unshare(CLONE_FS) != 0 || setns(outside_, CLONE_NEWNS) != 0) std::abort();
    close(outside_);
    rmdir(scratch_.c_str());
}

std::string PrivateMounts::MountTmpfs(const std::string& folder) {
    fs::create_directories(folder);
    return mount("memory", folder.c_str(), "tmpfs", 0, "size=1m") == 0 ? "" : Failed("no tmpfs");
}

std::string PrivateMounts::MountImage(const std::string& folder, const std::string& type) {
    fs::create_directories(folder);
    std::string image = "/image-" + std::to_string(++images_);
    const bool isLarge = type == "xfs" || type == "btrfs";
    std::string make = isLarge ? "mkfs." + type + " -q " : "mkfs.ext4 -q -F -E root_owner=0:0 ";
    if (!RunCommand("truncate -s " + std::string(isLarge ? "300m " : "8m ") + image + " && " + make + image))
        return "cannot make an " + type + " image (" + make + ")";
    std::string attach = type == "fuse2fs" ? "fuse2fs " + image + " '" + folder + "' -o fakeroot"
                                           : "mount -t " + type + " -o loop " + image + " '" + folder + "'";
    if (!RunCommand(attach)) return "cannot mount it (" + attach + ")";
    mounted_.push_back(folder);
    return {};
}

std::string PrivateMounts::MountOverlay(const std::string& folder) {
    fs::create_directories(folder);
    // One overlay cannot keep what another one shows; a memory file system can.
    const std::string layers = "/layers-" + std::to_string(++images_);
    if (const std::string reason = MountTmpfs(layers); !reason.empty()) return reason;
    for (const char* name : {"/lower", "/upper", "/work"}) fs::create_directory(layers + name);
    const std::string options =
        "lowerdir=" + layers + "/lower,upperdir=" + layers + "/upper,workdir=" + layers + "/work";
    return mount("overlay", folder.c_str(), "overlay", 0, options.c_str()) == 0 ? "" : Failed("no overlay");
}

std::string PrivateMounts::MountWithoutAttributes(const std::string& folder) {
    fs::create_directories(folder);
    const std::string behind = "/behind-" + std::to_string(++images_);
    fs::create_directory(behind);
    const std::string attach = "bindfs --xattr-none " + behind + " '" + folder + "'";
    if (!RunCommand(attach)) return "cannot mount it (" + attach + ")";
    mounted_.push_back(folder);
    return {};
}

void PrivateMounts::Unmount(const std::string& folder) {
    if (umount2(folder.c_str(), 0) != 0) std::abort();
}
