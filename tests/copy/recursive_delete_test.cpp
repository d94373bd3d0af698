#include "copy/recursive_delete.h"

#include "platform/references.h"
#include "support/files.h"
#include "support/mounts.h"
#include "support/references.h"
#include "support/sidecars.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

OSErr DeleteTree(const std::string& path) {
    const FSRef ref = Reference(path);
    return FSDeleteObjects(&ref);
}

void Lock(const std::string& path) {
    const FSRef ref = Reference(path);
    FSCatalogInfo info{};
    info.nodeFlags = kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
}

bool IsLocked(const std::string& path) {
    const FSRef ref = Reference(path);
    FSCatalogInfo info{};
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr), noErr);
    return info.nodeFlags & kFSNodeLockedMask;
}

bool Exists(const std::string& path) {
    return fs::exists(fs::symlink_status(path));
}

// Nested folders named "d", as many as asked for, made step by step since their path is too long for the
// system.
void MakeNestedFolders(const std::string& top, int depth) {
    int current = open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < depth; ++i) {
        ASSERT_EQ(mkdirat(current, "d", 0755), 0) << i;
        const int next = openat(current, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_GE(next, 0) << i;
        close(current);
        current = next;
    }
    close(current);
}

class RecursiveDelete : public testing::Test {
protected:
    TemporaryFolder folder;
    const std::string top = folder.path().string();
    const std::string tree = folder / "tree";
};

using FolderDelete = RecursiveDelete;
using FolderLevel = RecursiveDelete;

} // namespace

TEST_F(RecursiveDelete, OfNull_IsRefused) {
    EXPECT_EQ(FSDeleteObjects(nullptr), paramErr);
}

TEST_F(RecursiveDelete, OfFile_RemovesIt) {
    WriteFile(tree, "x");
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(RecursiveDelete, OfEmptyFolder_RemovesIt) {
    fs::create_directory(tree);
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(RecursiveDelete, OfWhatIsGone_IsNotFound) {
    WriteFile(tree, "x");
    const FSRef ref = Reference(tree);
    fs::remove(tree);
    EXPECT_EQ(FSDeleteObjects(&ref), fnfErr);
}

TEST_F(RecursiveDelete, OfTreeWithEveryKindOfObject_RemovesAllOfIt) {
    fs::create_directories(tree + "/a/b/c");
    fs::create_directories(tree + "/empty");
    for (int i = 0; i < 500; ++i) WriteFile(tree + "/a/b/file " + std::to_string(i), "x");
    WriteFile(tree + "/a/b/c/näme", "x");
    WriteFile(tree + "/a/not utf-8 \xFF", "x");
    WriteFile(tree + "/a/colon:and.dots", "x");
    WriteFile(tree + "/" + std::string(255, 'n'), "x");
    WriteFile(tree + "/f", "x");
    WriteFile(tree + "/._f", EmptySidecar());
    WriteFile(tree + "/._orphan", EmptySidecar());
    WriteFile(tree + "/._ordinary", "x");
    WriteFile(tree + "/read only", "x");
    fs::permissions(tree + "/read only", fs::perms(0400));
    fs::create_symlink("nowhere", tree + "/dangling");
    ASSERT_EQ(mkfifo((tree + "/pipe").c_str(), 0600), 0);
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(RecursiveDelete, LinksInTheTree_GoAndTheirTargetsStay) {
    fs::create_directories(folder / "victim/inside");
    WriteFile(folder / "victim/inside/f", "kept");
    fs::create_directory(tree);
    fs::create_directory_symlink("../victim", tree + "/to folder");
    fs::create_symlink("../victim/inside/f", tree + "/to file");
    fs::create_directory_symlink(".", tree + "/to itself");
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_FALSE(Exists(tree));
    EXPECT_EQ(ReadFile(folder / "victim/inside/f"), "kept");
}

TEST_F(RecursiveDelete, OfLinkToFolder_RemovesTheLinkOnly) {
    fs::create_directories(folder / "target/inside");
    fs::create_directory_symlink("target", tree);
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_FALSE(Exists(tree));
    EXPECT_TRUE(Exists(folder / "target/inside"));
}

TEST_F(RecursiveDelete, OfLinkToLockedFile_LeavesTheLock) {
    WriteFile(folder / "f", "x");
    Lock(folder / "f");
    fs::create_symlink("f", tree);
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_FALSE(Exists(tree));
    EXPECT_TRUE(IsLocked(folder / "f"));
}

TEST_F(RecursiveDelete, OfDanglingLink_RemovesIt) {
    fs::create_symlink("nowhere", tree);
    FSRef ref;
    ASSERT_EQ(FSPathMakeRefWithOptions(reinterpret_cast<const uint8_t*>(tree.c_str()),
                                       kFSPathMakeRefDoNotFollowLeafSymlink, &ref, nullptr),
              noErr);
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_FALSE(Exists(tree));
}

TEST_F(RecursiveDelete, OfLockedFile_UnlocksAndRemovesIt) {
    WriteFile(tree, "x");
    Lock(tree);
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(RecursiveDelete, LockedFileInLockedFolder_BothGo) {
    fs::create_directories(tree + "/locked");
    WriteFile(tree + "/locked/f", "x");
    Lock(tree + "/locked/f");
    Lock(tree + "/locked");
    Lock(tree);
    EXPECT_EQ(DeleteTree(tree), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

// A busy mount point stands for an item that cannot be deleted.
TEST_F(RecursiveDelete, ItemThatCannotBeDeleted_StopsEveryLevelAndUndoesNothing) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    fs::create_directories(tree + "/a/b/stuck");
    for (int i = 0; i < 300; ++i) WriteFile(tree + "/a/b/" + std::to_string(i), "x");
    Lock(tree + "/a/b");
    Lock(tree);
    // What the iterator gives before the stuck item is what must be gone.
    std::vector<std::string> before, after;
    bool met = false;
    for (const auto& entry : fs::directory_iterator(tree + "/a/b")) {
        if (entry.path().filename() == "stuck")
            met = true;
        else
            (met ? after : before).push_back(entry.path());
    }
    MountTmpfs(tree + "/a/b/stuck", "");
    WriteFile(tree + "/a/b/stuck/kept", "x");

    EXPECT_EQ(DeleteTree(tree), fBsyErr);
    for (const std::string& path : before) EXPECT_FALSE(Exists(path)) << path;
    for (const std::string& path : after) EXPECT_TRUE(Exists(path)) << path;
    EXPECT_EQ(ReadFile(tree + "/a/b/stuck/kept"), "x");
    EXPECT_TRUE(IsLocked(tree + "/a/b")) << "a folder is unlocked only when its contents are gone";
    EXPECT_TRUE(IsLocked(tree));
    Unmount(tree + "/a/b/stuck");
    EXPECT_EQ(DeleteTree(tree), noErr);
}

TEST_F(RecursiveDelete, FolderMountedInTheTree_IsNotEntered) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    fs::create_directories(folder / "victim");
    WriteFile(folder / "victim/kept", "x");
    fs::create_directories(tree + "/bound");
    MountAgain(folder / "victim", tree + "/bound");
    EXPECT_EQ(DeleteTree(tree), fBsyErr);
    EXPECT_EQ(DeleteTree(tree + "/bound"), fBsyErr);
    EXPECT_TRUE(Exists(folder / "victim/kept"));
    Unmount(tree + "/bound");
}

TEST_F(RecursiveDelete, OfRoot_IsRefusedBeforeAnythingGoes) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    // A root of the test's own, so that a broken rule harms nothing.
    MountTmpfs(top, "");
    WriteFile(folder / "f", "x");
    const int outside = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(chroot(top.c_str()), 0);
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(DeleteTree("/"), fBsyErr);
    EXPECT_TRUE(Exists("/f"));
    ASSERT_EQ(fchdir(outside), 0);
    ASSERT_EQ(chroot("."), 0);
    close(outside);
}

TEST_F(RecursiveDelete, LeavesNoDescriptorOpen) {
    fs::create_directories(tree + "/a/b/c");
    EXPECT_EQ(DeleteTree(tree), noErr);
    const size_t before = OpenDescriptors();
    for (int i = 0; i < 200; ++i) {
        fs::create_directories(tree + "/a/b/c/" + std::to_string(i));
        WriteFile(tree + "/a/f", "x");
        ASSERT_EQ(DeleteTree(tree), noErr);
    }
    // The provider may keep a bounded number of folders open for speed.
    EXPECT_LE(OpenDescriptors(), before + 64);
}

TEST_F(RecursiveDelete, FiveThousandNestedFolders_GoWithFewDescriptors) {
    fs::create_directory(tree);
    MakeNestedFolders(tree, 5000);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few{64, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(DeleteTree(tree), noErr);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_FALSE(Exists(tree));
}

// Another thread puts a link to a folder with files in the place of a sub-folder, and the sub-folder back,
// all the time.
TEST_F(RecursiveDelete, SubFoldersSwappedForLinksMeanwhile_NeverLeavesTheTree) {
    fs::create_directories(folder / "victim/sub/deep");
    fs::create_directory(folder / "aside");
    const std::vector<std::string> kept{"victim/f", "victim/sub/f", "victim/sub/deep/f", "victim/deep"};
    for (const std::string& name : kept) WriteFile(folder / name, "kept");

    std::atomic<bool> stop = false;
    std::atomic<long> swaps = 0;
    std::thread attacker([&] {
        const std::string link = folder / "aside/link", real = folder / "aside/real";
        while (!stop) {
            for (const char* name : {"/sub", "/sub/deep", "/other"}) {
                const std::string place = tree + name;
                std::error_code error;
                fs::create_directory_symlink(folder / "victim", link, error);
                if (renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, place.c_str(), RENAME_EXCHANGE) != 0)
                    continue;
                // Every other link stays until the next round.
                if (++swaps % 2) continue;
                // Back again, or away for good when the link has been deleted by then.
                renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, place.c_str(), RENAME_EXCHANGE);
                fs::rename(link, real, error);
                fs::remove_all(real, error);
            }
        }
    });

    long deletes = 0, whole = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    // A busy machine gets longer.
    while (std::chrono::steady_clock::now() < end || swaps <= 100 || deletes <= 10) {
        std::error_code error;
        for (const char* name : {"/sub/deep", "/other"}) {
            fs::create_directories(tree + name, error);
            for (int i = 0; i < 5; ++i) {
                const int file = open((tree + name + "/f" + std::to_string(i)).c_str(),
                                      O_CREAT | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0600);
                if (file >= 0) close(file);
            }
        }
        FSRef ref;
        if (FSPathMakeRef(reinterpret_cast<const uint8_t*>(tree.c_str()), &ref, nullptr) != noErr) continue;
        ++deletes;
        if (FSDeleteObjects(&ref) == noErr) ++whole;
        for (const std::string& name : kept) {
            ASSERT_TRUE(Exists(folder / name)) << name << " after " << deletes << " deletes";
        }
    }
    stop = true;
    attacker.join();
    std::cout << deletes << " deletes, " << whole << " of them whole, " << swaps << " swaps\n";
}

TEST_F(RecursiveDelete, SeveralThreads_EachDeletesItsTree) {
    constexpr int kThreads = 4;
    for (int i = 0; i < kThreads; ++i)
        for (int j = 0; j < 20; ++j) {
            const std::string path = folder / (std::to_string(i) + "/a/" + std::to_string(j));
            fs::create_directories(path);
            for (int k = 0; k < 20; ++k) WriteFile(path + "/" + std::to_string(k), "x");
        }
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            if (DeleteTree(folder / std::to_string(i)) != noErr) ++failures;
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(fs::is_empty(top));
}

// ---- FSDeleteFolder

TEST_F(FolderDelete, OfNull_IsRefused) {
    EXPECT_EQ(FSDeleteFolder(nullptr), paramErr);
}

TEST_F(FolderDelete, EmptiesTheFolderAndLeavesIt) {
    fs::create_directories(tree + "/a/b");
    WriteFile(tree + "/a/f", "x");
    Lock(tree);
    const FSRef ref = Reference(tree);
    EXPECT_EQ(FSDeleteFolder(&ref), noErr);
    EXPECT_TRUE(fs::is_empty(tree));
    EXPECT_TRUE(IsLocked(tree));
}

TEST_F(FolderDelete, OfFile_IsNoFolder) {
    WriteFile(tree, "x");
    const FSRef ref = Reference(tree);
    EXPECT_EQ(FSDeleteFolder(&ref), errFSNotAFolder);
    EXPECT_TRUE(Exists(tree));
}

TEST_F(FolderDelete, OfLinkToFolder_DeletesNothing) {
    fs::create_directories(folder / "target/inside");
    fs::create_directory_symlink("target", tree);
    const FSRef ref = Reference(tree);
    EXPECT_EQ(FSDeleteFolder(&ref), noErr);
    EXPECT_TRUE(Exists(folder / "target/inside"));
    EXPECT_TRUE(Exists(tree));
}

// ---- FSDeleteFolderLevel

TEST(DeleteObjectGlobals, FieldsAreInOrder) {
    EXPECT_EQ(offsetof(FSDeleteObjectGlobals, catalogInfo), 0u);
    EXPECT_EQ(offsetof(FSDeleteObjectGlobals, actualObjects), sizeof(FSCatalogInfo));
    EXPECT_EQ(offsetof(FSDeleteObjectGlobals, result), sizeof(FSCatalogInfo) + sizeof(ItemCount));
    EXPECT_EQ(sizeof(FSDeleteObjectGlobals::result), 2u);
}

TEST_F(FolderLevel, EndOfListing_IsNoError) {
    fs::create_directories(tree + "/a/b");
    const FSRef ref = Reference(tree);
    FSDeleteObjectGlobals globals{};
    FSDeleteFolderLevel(&ref, &globals);
    EXPECT_EQ(globals.result, noErr);
    EXPECT_EQ(globals.actualObjects, 0u);
    EXPECT_TRUE(fs::is_empty(tree));
}

TEST_F(FolderLevel, FolderThatCannotBeOpened_LeavesItsErrorInTheResult) {
    WriteFile(tree, "x");
    const FSRef ref = Reference(tree);
    FSDeleteObjectGlobals globals{};
    FSDeleteFolderLevel(&ref, &globals);
    EXPECT_EQ(globals.result, errFSNotAFolder);
}
