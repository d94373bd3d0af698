#include "support/emulation.h"

#include <filesystem>
#include <sys/stat.h>

// An emulator answers for the program where the link is read, and the host where it is followed.
bool IsEmulated() {
    struct stat running;
    struct stat named;
    std::error_code failure;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", failure);
    if (failure || stat("/proc/self/exe", &running) != 0 || stat(program.c_str(), &named) != 0) return false;
    return running.st_dev != named.st_dev || running.st_ino != named.st_ino;
}
