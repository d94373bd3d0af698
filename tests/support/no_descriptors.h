// A process that has run out of descriptors.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

// While one lives, a descriptor can be had only for one that has been closed since.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int lowestFree = open("/", O_PATH | O_CLOEXEC);
        close(lowestFree);
        rlimit tight = before_;
        tight.rlim_cur = static_cast<rlim_t>(lowestFree);
        isSet_ = lowestFree >= 0 && setrlimit(RLIMIT_NOFILE, &tight) == 0;
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

    bool isSet() const { return isSet_; }

private:
    rlimit before_;
    bool isSet_;
};
