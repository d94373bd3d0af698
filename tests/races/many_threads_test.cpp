// What threads share beneath the functions that they call: names folded for look-ups that ignore letter case,
// the list of volumes, and what formatting keeps.
#include "TavPort.h"
#include "platform/metadata_support.h"
#include "support/private_mounts.h"

#include <atomic>
#include <thread>
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
