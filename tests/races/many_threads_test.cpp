// What threads share beneath the functions that they call: names folded for look-ups that ignore letter case,
// the list of volumes, and what formatting keeps.
#include "TavPort.h"
#include "platform/metadata_support.h"
#include "support/private_mounts.h"

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Runs `work` on that many threads, each with its number, until all have done it.
template <typename Work>
void OnThreads(int count, Work work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back([=] { work(i); });
    for (std::thread& thread : threads) thread.join();
}

} // namespace

TEST(ManyThreads, LookingUpInOtherLetterCaseWhileNamesComeAndGo_FindTheirFiles) {
    const TemporaryFolder folder;
    for (int i = 0; i < 20; ++i) WriteFile(folder / ("Name" + std::to_string(i)), "");
    std::atomic<bool> isDone = false;
    std::thread other([&] {
        while (!isDone) {
            WriteFile(folder / "Passing", "");
            std::filesystem::remove(folder / "Passing");
        }
    });
    OnThreads(16, [&folder](int thread) {
        for (int i = 0; i < 100; ++i) {
            const std::string number = std::to_string((thread + i) % 20);
            FSRef ref;
            ASSERT_EQ(PathToRef(folder / ("nAME" + number), ref), noErr);
            ASSERT_EQ(PathOf(ref), folder / ("Name" + number));
        }
    });
    isDone = true;
    other.join();
}

// What one thread has open for speed must not be what another lacks: a file that cannot be opened is left out of the copy.
TEST(ManyThreads, CopyingTreesWithFewDescriptors_LeaveNoFileOutAndSomeToOthers) {
    constexpr int kThreads = 4, kFiles = 150;
    const TemporaryFolder folder;
    for (int thread = 0; thread < kThreads; ++thread) {
        const std::string source = folder / std::to_string(thread);
        std::filesystem::create_directory(source);
        for (int i = 0; i < kFiles; ++i) WriteFile(source + "/" + std::to_string(i), "x");
    }
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few = {128, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::atomic<bool> isDone = false;
    std::atomic<int> failures = 0;
    std::thread other([&] {
        while (!isDone) {
            const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
            file < 0 ? ++failures : close(file);
        }
    });
    OnThreads(kThreads, [&folder](int thread) {
        for (int round = 0; round < 5; ++round) {
            const std::string source = folder / std::to_string(thread);
            const std::string copy = source + " copy " + std::to_string(round);
            ASSERT_EQ(TavCopyFile(Wide(source).c_str(), Wide(copy).c_str(), 0), 1);
            ASSERT_EQ(GetInfo(copy, kFSCatInfoValence).valence, uint32_t{kFiles}) << round;
        }
    });
    isDone = true;
    other.join();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(failures, 0);
}

TEST(ManyThreads, AskingForVolumesWhileMountsComeAndGo_SeeTheRootFirst) {
    PrivateMounts mounts;
    SKIP_IF_MISSING(mounts.Missing());
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Stays"));
    std::atomic<bool> isDone = false;
    std::thread asking([&] {
        OnThreads(8, [&](int) {
            do {
                TavChar roots[4096] = {};
                TavGetLogicalDriveStrings(4096, roots);
                ASSERT_EQ(std::u16string(roots), u"/");
                TavChar root[1024];
                ASSERT_EQ(TavGetPathDriver(u"/Volumes/Stays/file", root), 1);
                ASSERT_EQ(std::u16string(root), u"/Volumes/Stays/");
            } while (!isDone);
        });
    });
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(mounts.MountTmpfs("/Volumes/Passes"), "");
        mounts.Unmount("/Volumes/Passes");
    }
    isDone = true;
    asking.join();
}

TEST(ManyThreads, Formatting_GetTheirOwnTexts) {
    OnThreads(32, [](int thread) {
        for (int i = 0; i < 300; ++i) {
            TavChar text[64];
            tav_swprintf(text, u"%d:%s:%x", thread, u"text", i);
            char expected[64];
            std::snprintf(expected, sizeof expected, "%d:text:%x", thread, static_cast<unsigned>(i));
            ASSERT_EQ(Narrow(text), expected);
        }
    });
}
