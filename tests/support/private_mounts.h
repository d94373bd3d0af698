// A mount namespace and a root of a test's own, in which it may mount what it likes.
#pragma once

#include <string>
#include <vector>

// While one lives, the calling thread's "/" is a scratch copy of the machine's, with /dev, /proc and /sys and
// no other mounts. Everything goes with it. Needs root; `Missing` tells why it cannot be had.
class PrivateMounts {
public:
    PrivateMounts();
    ~PrivateMounts();
    PrivateMounts(const PrivateMounts&) = delete;
    PrivateMounts& operator=(const PrivateMounts&) = delete;

    // Empty when all is well.
    const std::string& Missing() const { return missing_; }

    // Makes the folder and mounts a file system on it; the reason when that fails.
    std::string MountTmpfs(const std::string& folder);
    std::string MountImage(const std::string& folder,
                           const std::string& type); // "ext4", "xfs", "btrfs", "fuse2fs"
    std::string MountOverlay(const std::string& folder);
    std::string MountWithoutAttributes(const std::string& folder); // FUSE
    void Unmount(const std::string& folder);

private:
    std::string missing_;
    std::string scratch_;
    int outside_ = -1; // the namespace that the thread came from
    int images_ = 0;
    std::vector<std::string> mounted_; // what would outlive the namespace: FUSE's servers, devices of images
};

// Runs a shell command in silence; whether it ended with 0.
bool RunCommand(const std::string& command);

// Skips a test with the reason that `expression` gives, when it gives one.
#define SKIP_IF_MISSING(expression)                                                                          \
    do {                                                                                                     \
        if (std::string reason = (expression); !reason.empty()) GTEST_SKIP() << reason;                      \
    } while (false)
