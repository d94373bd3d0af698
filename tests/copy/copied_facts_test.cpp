// What of an object's facts its copy has: owners, locks, Finder information and dates, of files and folders,
// at the top and below.
#include "copy/finder_info.h"
#include "platform/catalog.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

class CopiedFacts : public testing::Test {
protected:
    CopiedFacts() {
        fs::create_directories(folder / "from/tree/sub");
        fs::create_directory(folder / "to");
        WriteFile(From("tree/file"), "one");
        WriteFile(From("tree/sub/file"), "two");
    }
    std::string From(const std::string& name) { return folder / ("from/" + name); }
    std::string To(const std::string& name) { return folder / ("to/" + name); }

    OSErr CopyTree() { return Copy(kDupeActionStandard, nullptr); }
    OSErr Copy(DupeAction action, CopyFilterProc filter) {
        FSRef source = Reference(From("tree")), dest = Reference(folder / "to");
        return FSCopyObject(&source, &dest, 0, kFSCatInfoNone, action, nullptr, false, false, filter, nullptr,
                            nullptr, nullptr);
    }
    static void Set(const std::string& path, FSCatalogInfoBitmap which, const FSCatalogInfo& info) {
        FSRef ref = Reference(path);
        ASSERT_EQ(FSSetCatalogInfo(&ref, which, &info), noErr) << path;
    }
    static FSCatalogInfo Get(const std::string& path, FSCatalogInfoBitmap which) {
        FSRef ref = Reference(path);
        FSCatalogInfo info{};
        EXPECT_EQ(FSGetCatalogInfo(&ref, which, &info, nullptr, nullptr, nullptr), noErr) << path;
        return info;
    }
    static void Lock(const std::string& path) {
        FSCatalogInfo info{};
        info.nodeFlags = kFSNodeLockedMask;
        Set(path, kFSCatInfoNodeFlags, info);
    }
    static bool IsLocked(const std::string& path) {
        return Get(path, kFSCatInfoNodeFlags).nodeFlags & kFSNodeLockedMask;
    }

    TemporaryFolder folder;
};

const char* const kObjects[] = {"tree", "tree/file", "tree/sub", "tree/sub/file"};

} // namespace

TEST_F(CopiedFacts, FinderInformationAndDatesOfFilesAndFoldersAreKeptButForThePlacedFlag) {
    constexpr FSCatalogInfoBitmap kFacts =
        kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo | kFSCatInfoBackupDate | kFSCatInfoCreateDate;
    uint8_t seed = 1;
    FSCatalogInfo given[std::size(kObjects)] = {};
    for (size_t i = 0; i < std::size(kObjects); ++i, ++seed) {
        FSCatalogInfo& info = given[i];
        for (uint8_t& byte : info.finderInfo) byte = seed;
        for (uint8_t& byte : info.extFinderInfo) byte = static_cast<uint8_t>(0x10 + seed);
        info.finderInfo[8] = 0x41; // invisible, has been placed
        info.createDate = {0, 3000000000u + seed, 0};
        info.backupDate = {0, 3100000000u + seed, 0};
        Set(From(kObjects[i]), kFacts, info);
    }
    ASSERT_EQ(CopyTree(), noErr);
    for (size_t i = 0; i < std::size(kObjects); ++i) {
        SCOPED_TRACE(kObjects[i]);
        const FSCatalogInfo copied = Get(To(kObjects[i]), kFacts);
        EXPECT_EQ(copied.finderInfo[8], 0x40);
        given[i].finderInfo[8] = 0x40;
        EXPECT_TRUE(std::ranges::equal(copied.finderInfo, given[i].finderInfo));
        EXPECT_TRUE(std::ranges::equal(copied.extFinderInfo, given[i].extFinderInfo));
        EXPECT_EQ(+copied.createDate.lowSeconds, +given[i].createDate.lowSeconds);
        EXPECT_EQ(+copied.backupDate.lowSeconds, +given[i].backupDate.lowSeconds);
    }
}

TEST_F(CopiedFacts, LockedFoldersAreCopiedWithWhatIsInThemAndStayLocked) {
    Lock(From("tree/sub"));
    Lock(From("tree"));
    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(ReadFile(To("tree/file")), "one");
    EXPECT_EQ(ReadFile(To("tree/sub/file")), "two");
    EXPECT_TRUE(IsLocked(To("tree")));
    EXPECT_TRUE(IsLocked(To("tree/sub")));
    EXPECT_FALSE(IsLocked(To("tree/sub/file")));
}

TEST_F(CopiedFacts, LockedObjectComesBackLockedWhenItsReplacementFails) {
    auto refuse = [](Boolean, ItemCount, OSErr, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                     const HFSUniStr255*, const FSRef*, void*) -> OSErr { return -128; };
    WriteFile(To("tree"), "old");
    Lock(To("tree"));
    EXPECT_EQ(Copy(kDupeActionReplace, refuse), -128);
    EXPECT_EQ(ReadFile(To("tree")), "old");
    EXPECT_TRUE(IsLocked(To("tree")));

    fs::create_directory(To("other"));
    fs::rename(To("tree"), To("other/tree"));
    fs::create_directory(To("tree"));
    WriteFile(To("tree/file"), "old");
    Lock(To("tree/file"));
    Lock(To("tree"));
    EXPECT_EQ(Copy(kDupeActionReplace, refuse), -128);
    EXPECT_EQ(ReadFile(To("tree/file")), "old");
    EXPECT_TRUE(IsLocked(To("tree")));
    EXPECT_TRUE(IsLocked(To("tree/file")));
}

TEST_F(CopiedFacts, OwnersAndSpecialBitsAreKept) {
    if (geteuid() != 0) GTEST_SKIP() << "needs the superuser to give objects away";
    fs::create_symlink("nowhere", From("tree/link"));
    uid_t owner = 12345;
    for (const char* name : {"tree", "tree/file", "tree/sub", "tree/sub/file", "tree/link"}) {
        ASSERT_EQ(lchown(From(name).c_str(), owner, owner + 100), 0);
        ++owner;
    }
    ASSERT_EQ(chmod(From("tree").c_str(), 02755), 0);
    ASSERT_EQ(chmod(From("tree/file").c_str(), 04711), 0);
    ASSERT_EQ(chmod(From("tree/sub").c_str(), 01777), 0);
    ASSERT_EQ(chmod(From("tree/sub/file").c_str(), 06750), 0);
    ASSERT_EQ(CopyTree(), noErr);
    for (const char* name : {"tree", "tree/file", "tree/sub", "tree/sub/file", "tree/link"}) {
        SCOPED_TRACE(name);
        struct stat from, to;
        ASSERT_EQ(lstat(From(name).c_str(), &from), 0);
        ASSERT_EQ(lstat(To(name).c_str(), &to), 0);
        EXPECT_EQ(to.st_uid, from.st_uid);
        EXPECT_EQ(to.st_gid, from.st_gid);
        EXPECT_EQ(to.st_mode, from.st_mode);
    }
}

// Holes are copied as the zeros that they read as.
TEST_F(CopiedFacts, SparseFileHasTheSameContent) {
    const std::string ends = "beginning";
    constexpr off_t kSize = (3 << 20) + 77;
    WriteFile(From("tree/file"), ends);
    ASSERT_EQ(truncate(From("tree/file").c_str(), kSize), 0);
    const int file = open(From("tree/file").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(file, 0);
    ASSERT_EQ(pwrite(file, "middle", 6, 1 << 20), 6);
    ASSERT_EQ(close(file), 0);
    ASSERT_EQ(CopyTree(), noErr);
    std::string expected(kSize, '\0');
    expected.replace(0, ends.size(), ends).replace(1 << 20, 6, "middle");
    EXPECT_TRUE(ReadFile(To("tree/file")) == expected);
}
