#include "platform/bundles.h"

#include "support/files.h"
#include "support/forced_end.h"
#include "support/running_task.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

namespace {

std::atomic<bool> stopNext = false; // the next caller of readlink stops in it
std::atomic<bool> stopped = false;
std::atomic<bool> goOn = false;

std::string PlaceOf(CFBundleRef bundle) {
    CFURLRef url = CFBundleCopyBundleURL(bundle);
    if (!url) return "";
    CFStringRef path = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    std::u16string units(static_cast<size_t>(CFStringGetLength(path)), 0);
    CFStringGetCharacters(path, {0, CFStringGetLength(path)}, units.data());
    CFRelease(path);
    CFRelease(url);
    return Narrow(units);
}

OSStatus LookUpMainBundle(void*) {
    CFURLRef url = CFBundleCopyBundleURL(CFBundleGetMainBundle());
    CFRelease(url);
    return url ? 1 : 2;
}

} // namespace

// In the C library's place for the whole executable.
extern "C" ssize_t readlink(const char* path, char* buffer, size_t size) {
    if (stopNext.exchange(false)) {
        stopped = true;
        while (!goOn) {
        }
    }
    return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
}

TEST(MainBundle, OfAProgramInNoBundleIsItsFolder) {
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(PlaceOf(CFBundleGetMainBundle()), program.parent_path());
}

TEST(MainBundle, IsNotGivenBackByARelease) {
    CFRelease(CFBundleGetMainBundle());
    EXPECT_NE(PlaceOf(CFBundleGetMainBundle()), "");
}

class MainBundleTermination : public ForcedEnd {};

TEST_F(MainBundleTermination, WhileItIsLookedUpLeavesNothingLocked) {
    stopNext = true;
    {
        RunningTask task(LookUpMainBundle, nullptr);
        while (!stopped) {
        }
        EXPECT_EQ(MPTerminateTask(task.Id(), 7), noErr);
        // It ends where it is, or once it may go on.
        const bool ended = MPWaitOnQueue(task.Queue(), nullptr, nullptr, nullptr, 500) == noErr;
        goOn = true;
        if (!ended) {
            EXPECT_EQ(task.Result(), 7);
        }
    }
    RunningTask another(LookUpMainBundle, nullptr);
    EXPECT_EQ(another.Result(), 1);
}
