#include "support/mounts.h"

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>

static void Check(int result, const std::string& what) {
    if (result != 0) throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::string EnterPrivateMounts() {
    if (unshare(CLONE_NEWNS) != 0)
        return std::string("no mount namespace of its own: ") + std::strerror(errno);
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return std::string("mounts cannot be made private: ") + std::strerror(errno);
    return "";
}

void MountTmpfs(const std::string& folder, const std::string& options) {
    Check(mount("test", folder.c_str(), "tmpfs", 0, options.c_str()), "mounting on " + folder);
}

void MountAgain(const std::string& what, const std::string& folder) {
    Check(mount(what.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr), "binding " + what);
}

void MakeReadOnly(const std::string& folder) {
    Check(mount("test", folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), "remounting " + folder);
}

void Unmount(const std::string& folder) {
    umount2(folder.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
}
