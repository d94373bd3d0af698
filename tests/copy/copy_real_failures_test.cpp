// Copies that fail for real: full and read-only volumes, folders and sources that go away, a process killed
// in the middle.
#include "TavPort.h"
#include "support/files.h"
#include "support/mounts.h"
#include "support/users.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

namespace fs = std::filesystem;

namespace {

class CopyRealFailures : public testing::Test {
protected:
    CopyRealFailures() {
        fs::create_directory(folder / "from");
        fs::create_directory(folder / "to");
    }
    int32_t Copy(const std::string& source, const std::string& dest, int32_t failIfExists = 0) {
        return TavCopyFile(Wide(folder / source).c_str(), Wide(folder / dest).c_str(), failIfExists);
    }
    std::string Content(const std::string& name) { return ReadFile(folder / name); }

    TemporaryFolder folder;
};

bool Exists(const std::string& path) {
    return fs::exists(fs::symlink_status(path));
}

std::string Bytes(size_t size, char byte) {
    return std::string(size, byte);
}

// A volume of its own on the folder "to"; names the reason where that cannot be had.
class CopyOntoVolume : public CopyRealFailures {
protected:
    void SetUp() override {
        std::string reason = EnterPrivateMounts();
        if (!reason.empty()) GTEST_SKIP() << reason;
        MountTmpfs(folder / "to", "size=1m");
    }
    void TearDown() override { Unmount(folder / "to"); }
};

} // namespace

TEST_F(CopyOntoVolume, FullVolumeKeepsTheOldFileAndNothingHalfMade) {
    WriteFile(folder / "from/file", Bytes(4 << 20, 'n'));
    WriteFile(folder / "to/file", "old");
    EXPECT_EQ(Copy("from/file", "to/file"), 0);
    EXPECT_EQ(Content("to/file"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "to"), {}), 1);
    EXPECT_EQ(Copy("from/file", "to/new"), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "to"), {}), 1);
}

TEST_F(CopyOntoVolume, FullVolumeReplacesTheOldTreeByWhatCouldBeCopied) {
    fs::create_directory(folder / "from/tree");
    fs::create_directory(folder / "to/tree");
    WriteFile(folder / "from/tree/file", Bytes(4 << 20, 'n'));
    WriteFile(folder / "to/tree/file", "old");
    // A file that cannot be copied is skipped, so the tree counts as copied; what was there is then replaced.
    EXPECT_EQ(Copy("from/tree", "to/tree"), 1);
    EXPECT_FALSE(Exists(folder / "to/tree/file"));
    EXPECT_FALSE(Exists(folder / "to/.DeleteMe"));
}

// The second copy of the file finds no room; the only one must stay.
TEST_F(CopyOntoVolume, TreeCopiedOntoItselfOnAFullVolumeIsLeftAlone) {
    const std::string content = Bytes(700000, 'n');
    fs::create_directories(folder / "to/tree/sub");
    WriteFile(folder / "to/tree/sub/file", content);
    EXPECT_EQ(Copy("to/tree", "to/tree"), 0);
    EXPECT_EQ(Copy("to/tree/sub", "to/tree"), 0);
    EXPECT_EQ(Content("to/tree/sub/file"), content);
    EXPECT_FALSE(Exists(folder / "to/.DeleteMe"));
}

TEST_F(CopyOntoVolume, FullVolumeKeepsWhatWasNotToBeReplaced) {
    WriteFile(folder / "from/file", Bytes(4 << 20, 'n'));
    WriteFile(folder / "to/file", "old");
    EXPECT_EQ(Copy("from/file", "to/file", 1), 0);
    EXPECT_EQ(Content("to/file"), "old");
    EXPECT_FALSE(Exists(folder / "to/.DeleteMe"));
}

TEST_F(CopyOntoVolume, FullVolumeTakesTheFilesOfANewTreeThatFit) {
    fs::create_directories(folder / "from/tree/sub");
    WriteFile(folder / "from/tree/large", Bytes(4 << 20, 'n'));
    WriteFile(folder / "from/tree/small", "small");
    WriteFile(folder / "from/tree/sub/small", "small");
    EXPECT_EQ(Copy("from/tree", "to/tree", 1), 1);
    EXPECT_FALSE(Exists(folder / "to/tree/large"));
    EXPECT_EQ(Content("to/tree/small"), "small");
    EXPECT_EQ(Content("to/tree/sub/small"), "small");
    EXPECT_EQ(fs::file_size(folder / "from/tree/large"), 4u << 20);
}

TEST_F(CopyOntoVolume, FullDropBoxStaysEmpty) {
    WriteFile(folder / "from/file", Bytes(4 << 20, 'n'));
    fs::permissions(folder / "to", fs::perms(0733));
    EXPECT_EQ(Copy("from/file", "to/file", 1), 0);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

TEST_F(CopyOntoVolume, VolumeWithoutRoomForAnotherNameKeepsTheOldFile) {
    Unmount(folder / "to");
    MountTmpfs(folder / "to", "size=1m,nr_inodes=3");
    WriteFile(folder / "from/file", "new");
    WriteFile(folder / "to/file", "old");
    WriteFile(folder / "to/other", "takes the last place");
    EXPECT_EQ(Copy("from/file", "to/file"), 0);
    EXPECT_EQ(Content("to/file"), "old");
    EXPECT_FALSE(Exists(folder / "to/.DeleteMe"));
}

TEST_F(CopyOntoVolume, ReadOnlyVolumeKeepsItsTree) {
    fs::create_directory(folder / "from/tree");
    fs::create_directory(folder / "to/tree");
    WriteFile(folder / "from/tree/file", "new");
    WriteFile(folder / "to/tree/file", "old");
    MakeReadOnly(folder / "to");
    EXPECT_EQ(Copy("from/tree", "to/tree", 0), 0);
    EXPECT_EQ(Copy("from/tree", "to/tree", 1), 0);
    EXPECT_EQ(Copy("from/tree", "to/new", 1), 0);
    EXPECT_EQ(Content("to/tree/file"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "to"), {}), 1);
}

TEST_F(CopyOntoVolume, ReadOnlyVolumeIsCopiedFrom) {
    WriteFile(folder / "to/file", "content");
    MakeReadOnly(folder / "to");
    EXPECT_EQ(Copy("to/file", "from/copy", 1), 1);
    EXPECT_EQ(Content("from/copy"), "content");
}

TEST_F(CopyOntoVolume, ReadOnlyVolumeIsLeftAlone) {
    WriteFile(folder / "from/file", "new");
    WriteFile(folder / "to/file", "old");
    MakeReadOnly(folder / "to");
    EXPECT_EQ(Copy("from/file", "to/file"), 0);
    EXPECT_EQ(Content("to/file"), "old");
    EXPECT_EQ(Copy("from/file", "to/other", 1), 0);
    EXPECT_FALSE(Exists(folder / "to/other"));
    EXPECT_FALSE(Exists(folder / "to/.DeleteMe"));
}

TEST_F(CopyOntoVolume, FolderHeldByAMountIsCopiedEmpty) {
    fs::create_directories(folder / "from/tree/mount");
    MountTmpfs(folder / "from/tree/mount", "size=1m");
    WriteFile(folder / "from/tree/mount/inside", "x");
    WriteFile(folder / "from/tree/file", "x");
    EXPECT_EQ(Copy("from/tree", "to/tree", 1), 1);
    EXPECT_TRUE(Exists(folder / "to/tree/file"));
    EXPECT_TRUE(fs::is_empty(folder / "to/tree/mount"));
    Unmount(folder / "from/tree/mount");
}

// What is mounted in the old tree cannot be deleted: that is told, and it stays.
TEST_F(CopyOntoVolume, OldTreeThatHoldsAMountStaysSetAsideWithIt) {
    fs::create_directory(folder / "from/tree");
    WriteFile(folder / "from/tree/file", "new");
    fs::create_directories(folder / "to/tree/mount");
    MountTmpfs(folder / "to/tree/mount", "size=1m");
    WriteFile(folder / "to/tree/mount/inside", "x");
    EXPECT_EQ(Copy("from/tree", "to/tree"), 0);
    EXPECT_EQ(Content("to/tree/file"), "new");
    EXPECT_EQ(Content("to/.DeleteMe/mount/inside"), "x");
    Unmount(folder / "to/.DeleteMe/mount");
}

TEST_F(CopyOntoVolume, NewFolderThatIsMetThroughAnotherMountIsNotEntered) {
    fs::create_directories(folder / "from/tree/sub");
    WriteFile(folder / "from/tree/file", "x");
    ASSERT_EQ(mount((folder / "from/tree/sub").c_str(), (folder / "to").c_str(), nullptr, MS_BIND, nullptr),
              0);
    EXPECT_EQ(Copy("from/tree", "to/copy", 1), 1);
    EXPECT_TRUE(Exists(folder / "to/copy/file"));
    EXPECT_TRUE(fs::is_empty(folder / "to/copy/sub"));
    Unmount(folder / "to");
}

TEST_F(CopyOntoVolume, OldTreeThatHoldsTheSourceBehindAnotherMountIsNotReplaced) {
    fs::create_directories(folder / "to/tree/a/sub/inner");
    WriteFile(folder / "to/tree/a/sub/inner/file", "x");
    ASSERT_EQ(mount((folder / "to/tree/a/sub").c_str(), (folder / "from").c_str(), nullptr, MS_BIND, nullptr),
              0);
    for (const char* source : {"from", "from/inner"}) {
        EXPECT_EQ(Copy(source, "to/tree"), 0) << source;
        EXPECT_EQ(Content("to/tree/a/sub/inner/file"), "x");
        EXPECT_FALSE(Exists(folder / "to/.DeleteMe"));
    }
    fs::create_directories(folder / "to/other");
    EXPECT_EQ(Copy("from/inner", "to/other"), 1);
    EXPECT_EQ(Content("to/other/file"), "x");
    Unmount(folder / "from");
}

// The remover may come too late now and then; it is let try until it has come in time.
TEST_F(CopyRealFailures, TargetFolderRemovedHalfWayFailsTheCopyAndLeavesTheSource) {
    WriteFile(folder / "from/file", Bytes(32 << 20, 'n'));
    int failed = 0;
    for (int run = 0; run < 50 && failed < 3; ++run) {
        fs::create_directories(folder / "to/sub");
        std::thread remover([&] {
            while (!Exists(folder / "to/sub/file")) std::this_thread::yield();
            fs::rename(folder / "to/sub", folder / "to/gone");
            fs::remove_all(folder / "to/gone");
        });
        if (Copy("from/file", "to/sub/file") == 0) ++failed;
        remover.join();
        EXPECT_TRUE(fs::is_empty(folder / "to"));
        EXPECT_EQ(fs::file_size(folder / "from/file"), 32u << 20);
    }
    EXPECT_EQ(failed, 3);
}

TEST_F(CopyRealFailures, SourceCutShortWhileItIsCopiedLeavesNoHalfMadeFile) {
    constexpr uintmax_t kSize = 64 << 20, kCutSize = 1000;
    for (int run = 0; run < 5; ++run) {
        WriteFile(folder / "from/file", Bytes(kSize, 'n'));
        std::thread cutter([&] {
            while (!Exists(folder / "to/file")) std::this_thread::yield();
            ASSERT_EQ(truncate((folder / "from/file").c_str(), kCutSize), 0);
        });
        int32_t copied = Copy("from/file", "to/file");
        cutter.join();
        EXPECT_EQ(Exists(folder / "to/file"), copied == 1);
        // Whole means as it was, or as it is where the cut came before its size was asked for.
        if (copied == 1) {
            const std::string content = Content("to/file");
            EXPECT_TRUE(content.size() == kSize || content.size() == kCutSize) << content.size();
            EXPECT_TRUE(content == Bytes(content.size(), 'n'));
        }
        fs::remove(folder / "to/file");
    }
}

TEST_F(CopyRealFailures, SourceThatGrowsWhileItIsCopiedIsCopiedAsItWas) {
    constexpr uintmax_t kSize = 32 << 20;
    for (int run = 0; run < 3; ++run) {
        WriteFile(folder / "from/file", Bytes(kSize, 'n'));
        std::thread grower([&] {
            while (!Exists(folder / "to/file")) std::this_thread::yield();
            const int file = open((folder / "from/file").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
            EXPECT_EQ(write(file, "more", 4), 4);
            close(file);
        });
        EXPECT_EQ(Copy("from/file", "to/file"), 1);
        grower.join();
        const std::string copied = Content("to/file");
        EXPECT_TRUE(copied.size() == kSize || copied.size() == kSize + 4) << copied.size();
        EXPECT_EQ(copied.substr(0, kSize), Bytes(kSize, 'n'));
        fs::remove(folder / "to/file");
    }
}

TEST_F(CopyRealFailures, UnreadableFileInATreeIsSkipped) {
    if (geteuid() != 0) GTEST_SKIP() << "needs the superuser to become another user";
    fs::create_directories(folder / "from/tree/closed");
    WriteFile(folder / "from/tree/file", "x");
    WriteFile(folder / "from/tree/secret", "x");
    WriteFile(folder / "from/tree/closed/inside", "x");
    fs::permissions(folder / "from/tree/secret", fs::perms(0600));
    fs::permissions(folder / "from/tree/closed", fs::perms(0700));
    fs::permissions(folder / "to", fs::perms(0777));
    fs::permissions(folder.path(), fs::perms(0755));
    EXPECT_TRUE(AsAnotherUser([&] { return Copy("from/tree", "to/tree", 1) == 1; }));
    EXPECT_EQ(Content("to/tree/file"), "x");
    EXPECT_FALSE(Exists(folder / "to/tree/secret"));
    EXPECT_TRUE(fs::is_empty(folder / "to/tree/closed"));
}

TEST_F(CopyRealFailures, UnreadableSourceAndUnwritableTargetFail) {
    if (geteuid() != 0) GTEST_SKIP() << "needs the superuser to become another user";
    WriteFile(folder / "from/secret", "x");
    WriteFile(folder / "from/file", "x");
    ASSERT_EQ(chmod((folder / "from/secret").c_str(), 0600), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        bool refused = setgid(65534) == 0 && setuid(65534) == 0 && Copy("from/secret", "to/secret") == 0 &&
                       Copy("from/file", "to/file") == 0;
        _exit(refused ? 0 : 1);
    }
    int status;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

namespace {

using Clock = std::chrono::steady_clock;

// Copies in a process of its own, which is killed after so long; whether it was still running then.
template <typename Copy>
bool KilledDuring(const Copy& copy, Clock::duration after) {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (write(ready[1], "x", 1) == 1) copy();
        _exit(0);
    }
    char byte;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    const auto end = Clock::now() + after;
    while (Clock::now() < end) getppid();
    kill(child, SIGKILL);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    close(ready[0]);
    close(ready[1]);
    return WIFSIGNALED(status);
}

} // namespace

TEST_F(CopyRealFailures, ProcessKilledDuringAReplacingCopyLeavesTheOldContent) {
    const std::string fresh = Bytes(8 << 20, 'n'), old = Bytes(100000, 'o');
    WriteFile(folder / "from/file", fresh);
    WriteFile(folder / "to/file", old);
    const auto start = Clock::now();
    ASSERT_EQ(Copy("from/file", "to/file"), 1);
    const auto whole = Clock::now() - start;

    std::mt19937 random(20050101);
    int killed = 0;
    int run = 0;
    // As many kills as a busy machine makes in half a minute.
    for (; run < 200 && Clock::now() - start < std::chrono::seconds(30); ++run) {
        WriteFile(folder / "to/file", old);
        // From the start to somewhat behind the end, where the facts are set and the old file is deleted.
        const auto after = whole * static_cast<int>(random() % 120) / 100;
        killed += KilledDuring([&] { Copy("from/file", "to/file"); }, after);

        bool oldReachable = (Exists(folder / "to/file") && Content("to/file") == old) ||
                            (Exists(folder / "to/.DeleteMe") && Content("to/.DeleteMe") == old);
        bool newComplete = Exists(folder / "to/file") && Content("to/file") == fresh;
        EXPECT_TRUE(oldReachable || newComplete) << "run " << run;
        fs::remove(folder / "to/.DeleteMe");
        fs::remove(folder / "to/file");
    }
    EXPECT_GT(killed, run / 10);
}
