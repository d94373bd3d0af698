// What is asked of file servers, with this machine's own folders in a server's place: the linker puts a function in front
// of the one that tells the facts of volumes, and of the kernel's copying.
#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/volumes.h"
#include "support/files.h"
#include "support/references.h"
#include "support/users.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <sys/types.h>

namespace fs = std::filesystem;

namespace {

struct {
    bool isServed = true;
    bool copies = true;
    int copyError = 0; // of the kernel's copying
    size_t mostAtOnce = SIZE_MAX;
} server;

std::string Pascal(const std::string& name) {
    return static_cast<char>(name.size()) + name;
}

} // namespace

extern "C" {

OSErr __wrap_PBHGetVolParmsSync(HParamBlockRec* block) {
    GetVolParmsInfoBuffer facts{};
    facts.vMServerAdr = server.isServed ? 1 : 0;
    facts.vMAttrib = server.copies ? kVolParmsHasCopyFile : 0;
    std::memcpy(block->ioBuffer, &facts, sizeof facts);
    return noErr;
}

ssize_t __real_copy_file_range(int, off64_t*, int, off64_t*, size_t, unsigned);

ssize_t __wrap_copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t count,
                               unsigned flags) {
    if (server.copyError != 0) {
        errno = server.copyError;
        return -1;
    }
    return __real_copy_file_range(from, fromOffset, to, toOffset, std::min(count, server.mostAtOnce), flags);
}

} // extern "C"

namespace {

class ServedFile : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directory(folder / "to");
        fs::permissions(folder.path(), fs::perms(0755));
        WriteFile(folder / "file", "the content");
    }

    // The block that names an object of the folder.
    HParamBlockRec Block(const std::string& name) {
        names[0] = Pascal(name);
        HParamBlockRec block{};
        block.ioNamePtr = reinterpret_cast<uint8_t*>(names[0].data());
        block.ioDirID = FolderID(folder.path());
        return block;
    }

    OSErr Copy(const std::string& name, const std::string& newName = "") {
        HParamBlockRec block = Block(name);
        names[1] = Pascal(newName);
        if (!newName.empty()) block.ioCopyName = reinterpret_cast<uint8_t*>(names[1].data());
        block.ioNewDirID = FolderID(folder / "to");
        return PBHCopyFileSync(&block);
    }

    static int32_t FolderID(const std::string& path) {
        return static_cast<int32_t>(Info(path, kFSCatInfoNodeID).nodeID);
    }

    static FSCatalogInfo Info(const std::string& path, FSCatalogInfoBitmap which) {
        const FSRef ref = Reference(path);
        FSCatalogInfo info{};
        EXPECT_EQ(FSGetCatalogInfo(&ref, which, &info, nullptr, nullptr, nullptr), noErr);
        return info;
    }

    static void Store(const std::string& path, FSCatalogInfoBitmap which, const FSCatalogInfo& info) {
        const FSRef ref = Reference(path);
        ASSERT_EQ(FSSetCatalogInfo(&ref, which, &info), noErr);
    }

    static void Lock(const std::string& path, bool locked) {
        FSCatalogInfo info{};
        info.nodeFlags = locked ? kFSNodeLockedMask : 0;
        Store(path, kFSCatInfoNodeFlags, info);
    }

    TemporaryFolder folder;
    std::string names[2];
};

class ServedFileOfAnotherUser : public ServedFile {
protected:
    void SetUp() override {
        if (!CanBecomeAnotherUser()) GTEST_SKIP() << "only the superuser can become another one";
        ServedFile::SetUp();
    }

    // The rights that somebody has to the folder "to" when others have `rights`; paramErr as that number.
    uint32_t Rights(unsigned rights) {
        fs::permissions(folder / "to", fs::perms(rights));
        for (uint32_t bits = 0; bits <= 7; ++bits) {
            if (AsAnotherUser([&] {
                    HParamBlockRec block = Block("to");
                    return PBHGetDirAccessSync(&block) == noErr && block.ioACAccess == bits << 24;
                }))
                return bits << 24;
        }
        return 0xFFFFFFFF;
    }
};

} // namespace

TEST_F(ServedFile, Copied_HasTheContentUnderTheGivenName) {
    ASSERT_EQ(Copy("file", "copy"), noErr);
    EXPECT_EQ(ReadFile(folder / "to/copy"), "the content");
    EXPECT_EQ(Copy("file", "copy"), dupFNErr);
    EXPECT_EQ(ReadFile(folder / "to/copy"), "the content");
}

TEST_F(ServedFile, CopiedWithoutANewName_KeepsItsOwn) {
    ASSERT_EQ(Copy("file"), noErr);
    EXPECT_EQ(ReadFile(folder / "to/file"), "the content");
}

TEST_F(ServedFile, CopiedInPieces_IsWhole) {
    server.mostAtOnce = 3;
    ASSERT_EQ(Copy("file"), noErr);
    EXPECT_EQ(ReadFile(folder / "to/file"), "the content");
}

TEST_F(ServedFile, EmptyOne_IsCopied) {
    WriteFile(folder / "empty", "");
    ASSERT_EQ(Copy("empty"), noErr);
    EXPECT_EQ(fs::file_size(folder / "to/empty"), 0u);
}

TEST_F(ServedFile, Copied_HasTheFacts) {
    FSCatalogInfo info = Info(folder / "file", kFSCatInfoPermissions);
    std::memcpy(info.finderInfo, "TEXTttxt", 8);
    info.contentModDate.lowSeconds = 3000000000;
    info.permissions.mode = 0540;
    Store(folder / "file", kFSCatInfoFinderInfo | kFSCatInfoContentMod | kFSCatInfoPermissions, info);
    ASSERT_EQ(Copy("file"), noErr);
    const FSCatalogInfo copy =
        Info(folder / "to/file", kFSCatInfoFinderInfo | kFSCatInfoContentMod | kFSCatInfoPermissions);
    EXPECT_EQ(std::memcmp(copy.finderInfo, "TEXTttxt", 8), 0);
    EXPECT_EQ(uint32_t{copy.contentModDate.lowSeconds}, 3000000000u);
    EXPECT_EQ(copy.permissions.mode & 07777, 0540);
}

TEST_F(ServedFile, LockedOne_GivesALockedCopyWithTheContent) {
    Lock(folder / "file", true);
    ASSERT_EQ(Copy("file"), noErr);
    EXPECT_EQ(ReadFile(folder / "to/file"), "the content");
    EXPECT_NE(Info(folder / "to/file", kFSCatInfoNodeFlags).nodeFlags & kFSNodeLockedMask, 0);
    Lock(folder / "file", false);
    Lock(folder / "to/file", false);
}

TEST_F(ServedFile, CopyThatFails_LeavesNothing) {
    server.copyError = ENOSPC;
    Lock(folder / "file", true);
    EXPECT_EQ(Copy("file"), dskFulErr);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
    Lock(folder / "file", false);
}

TEST_F(ServedFile, ThatHasBecomeShorterMeanwhile_LeavesNoCopy) {
    server.mostAtOnce = 0; // what the kernel tells at the end of a file
    EXPECT_EQ(Copy("file"), eofErr);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

TEST_F(ServedFile, WithAResourceFork_IsNotForTheServer) {
    const FSRef ref = Reference(folder / "file");
    HFSUniStr255 name;
    FSGetResourceForkName(&name);
    ASSERT_EQ(FSCreateFork(&ref, name.length, name.unicode), noErr);
    FSForkRefNum fork = 0;
    ASSERT_EQ(FSOpenFork(&ref, name.length, name.unicode, fsWrPerm, &fork), noErr);
    ASSERT_EQ(FSWriteFork(fork, fsFromStart, 0, 4, "rsrc", nullptr), noErr);
    ASSERT_EQ(FSCloseFork(fork), noErr);
    EXPECT_EQ(Copy("file"), paramErr);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

TEST_F(ServedFile, WhereNoServerCopies_IsNotCopied) {
    server.copies = false;
    EXPECT_EQ(Copy("file"), paramErr);
    server = {};
    server.isServed = false;
    EXPECT_EQ(Copy("file"), paramErr);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

TEST_F(ServedFile, FoldersAndMissingOnes_AreNotCopied) {
    EXPECT_EQ(Copy("to"), paramErr);
    EXPECT_EQ(Copy("nothing"), fnfErr);
    EXPECT_EQ(PBHCopyFileSync(nullptr), paramErr);
}

TEST_F(ServedFile, NameThatIsNone_IsRefused) {
    HParamBlockRec block = Block("file");
    block.ioNewDirID = FolderID(folder / "to");
    uint8_t empty[] = {0};
    block.ioCopyName = empty;
    EXPECT_EQ(PBHCopyFileSync(&block), bdNamErr);
}

TEST_F(ServedFile, FolderThatIsGone_IsMissing) {
    HParamBlockRec block = Block("file");
    block.ioNewDirID = FolderID(folder / "to");
    fs::remove(folder / "to");
    EXPECT_EQ(PBHCopyFileSync(&block), fnfErr);
}

TEST_F(ServedFileOfAnotherUser, Rights_AreThoseOfOthers) {
    EXPECT_EQ(Rights(0733), kDirAccessUserMakeChanges | kDirAccessUserSeeFolders);
    EXPECT_EQ(Rights(0755), kDirAccessUserSeeFiles | kDirAccessUserSeeFolders);
    EXPECT_EQ(Rights(0777), kDirAccessUserMask);
    EXPECT_EQ(Rights(0700), 0u);
}

TEST_F(ServedFileOfAnotherUser, RightsWithoutAServer_AreUnknown) {
    server.isServed = false;
    EXPECT_EQ(Rights(0777), 0xFFFFFFFFu);
}

TEST_F(ServedFileOfAnotherUser, RightsToWhatIsMissing_AreUnknown) {
    EXPECT_TRUE(AsAnotherUser([&] {
        HParamBlockRec block = Block("nothing");
        return PBHGetDirAccessSync(&block) == paramErr;
    }));
}

TEST_F(ServedFile, RightsOfTheSuperuser_AreNotAskedFor) {
    if (!CanBecomeAnotherUser()) GTEST_SKIP() << "needs the superuser";
    HParamBlockRec block = Block("to");
    EXPECT_EQ(PBHGetDirAccessSync(&block), paramErr);
}
