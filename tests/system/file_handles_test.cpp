#include "system/file_handles.h"

#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/virtual_paths.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kRead = TAV_FILE_READ;
constexpr uint32_t kWrite = TAV_FILE_WRITE;
constexpr uint32_t kReadWrite = TAV_FILE_READ | TAV_FILE_WRITE;

Ref RefTo(const std::string& path) {
    return MakeRef(Wide(path));
}

// Every call on names in a folder of its own.
class FileHandles : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return folder / name; }
    int32_t Open(const std::string& name, uint32_t flags) {
        return TavFileOpenExt(RefTo(Path(name)).get(), flags);
    }
    int32_t Create(const std::string& name, uint32_t flags) {
        return TavFileCreateExt(RefTo(Path(name)).get(), flags);
    }
    int32_t Delete(const std::string& name) { return TavFileDeleteExt(RefTo(Path(name)).get()); }
    int32_t MakeFolder(const std::string& name) { return TavFolderCreateExt(RefTo(Path(name)).get()); }
    int32_t DeleteFolder(const std::string& name) { return TavFolderDeleteExt(RefTo(Path(name)).get()); }
    int32_t Move(const std::string& name, const std::string& to) {
        return TavFileMoveFileExt(RefTo(Path(name)).get(), RefTo(Path(to)).get());
    }
    int32_t Rename(const std::string& name, const TavChar* newName, OpacTavFSRef** result = nullptr) {
        return TavFileRenameExt(RefTo(Path(name)).get(), newName, result);
    }
    void Lock(const std::string& name) {
        const FSRef ref = PlatformRef(Path(name));
        FSCatalogInfo info;
        ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr), 0);
        info.nodeFlags |= kFSNodeLockedMask;
        ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), 0);
    }
    bool Exists(const std::string& name) const { return fs::exists(fs::symlink_status(Path(name))); }

    const TemporaryFolder folder;
};

std::string ReadAll(int32_t handle) {
    std::string text;
    char buffer[7];
    uint32_t count = 0;
    while (TavFileReadExt(handle, buffer, sizeof buffer, &count)) text.append(buffer, count);
    return text;
}

int32_t Write(int32_t handle, const std::string& text) {
    return TavFileWriteExt(handle, text.data(), static_cast<uint32_t>(text.size()), nullptr);
}

int64_t Position(int32_t handle) {
    int64_t position = -1;
    EXPECT_EQ(TavFileGetPointerExt(handle, &position), 1);
    return position;
}

// A mount that only this process sees, for as long as the test lasts; false without the rights to make one.
bool MountPrivate(const std::string& path, unsigned long flags, const char* options) {
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", path.c_str(), "tmpfs", flags, options) == 0;
}

} // namespace

TEST(GetOpenFlags, CountsTheTwoLowBits) {
    EXPECT_EQ(GetOpenFlags(0), 0);
    EXPECT_EQ(GetOpenFlags(1), 1);
    EXPECT_EQ(GetOpenFlags(2), 2);
    EXPECT_EQ(GetOpenFlags(3), 3);
    EXPECT_EQ(GetOpenFlags(4), 0);
    EXPECT_EQ(GetOpenFlags(0xFFFFFFFC), 0);
    EXPECT_EQ(GetOpenFlags(0x1B), 3);
}

TEST_F(FileHandles, OpenGivesTheDataForksNumber) {
    WriteFile(Path("a"), "content");
    const int32_t handle = Open("a", kRead);
    ASSERT_GT(handle, 0);
    ASSERT_LE(handle, 32767);
    EXPECT_EQ(ReadAll(handle), "content");
    EXPECT_EQ(TavFileCloseExt(handle), 0);
}

TEST_F(FileHandles, OpenHonoursItsFlags) {
    struct {
        uint32_t flags;
        bool reads, writes;
    } const cases[] = {{0, true, true}, {kRead, true, false}, {kWrite, false, true},   {3, true, true},
                       {4, true, true}, {0x19, true, false},  {0x80000000, true, true}};
    for (const auto& c : cases) {
        WriteFile(Path("a"), "content");
        const int32_t handle = Open("a", c.flags);
        char byte = 0;
        EXPECT_EQ(TavFileReadExt(handle, &byte, 1, nullptr), c.reads) << c.flags;
        EXPECT_EQ(TavFileWriteExt(handle, &byte, 1, nullptr), c.writes) << c.flags;
        EXPECT_EQ(TavFileCloseExt(handle), 0);
        EXPECT_EQ(ReadFile(Path("a")).size(), 7u) << "must not be cut";
    }
}

TEST_F(FileHandles, OpenNeedsAFile) {
    EXPECT_EQ(Open("none", kRead), -1);
    EXPECT_EQ(TavFileOpenExt(nullptr, kRead), -1);
    fs::create_directory(Path("d"));
    EXPECT_EQ(Open("d", kRead), -1);
    EXPECT_EQ(Open("none/a", kRead), -1);
    WriteFile(Path("a"), "");
    EXPECT_EQ(Open("a/b", kRead), -1);
}

TEST_F(FileHandles, OpenReadsButDoesNotWriteALockedFile) {
    WriteFile(Path("a"), "content");
    Lock("a");
    const int32_t handle = Open("a", kRead);
    EXPECT_EQ(ReadAll(handle), "content");
    TavFileCloseExt(handle);
    EXPECT_EQ(Open("a", kReadWrite), -1);
    EXPECT_EQ(Open("a", kWrite), -1);
    const int32_t current = Open("a", 0);
    EXPECT_EQ(Write(current, "x"), 0);
    TavFileCloseExt(current);
}

TEST_F(FileHandles, OpenFollowsALinkToAFile) {
    WriteFile(Path("a"), "content");
    fs::create_symlink("a", Path("link"));
    const int32_t handle = Open("link", kRead);
    EXPECT_EQ(ReadAll(handle), "content");
    TavFileCloseExt(handle);
    fs::remove(Path("a"));
    EXPECT_EQ(Open("link", kRead), -1);
}

TEST_F(FileHandles, TheReferenceMayGoWhileTheFileIsOpen) {
    WriteFile(Path("a"), "content");
    Ref ref = RefTo(Path("a"));
    const int32_t handle = TavFileOpenExt(ref.get(), kRead);
    ref.reset();
    EXPECT_EQ(ReadAll(handle), "content");
    TavFileCloseExt(handle);
}

TEST_F(FileHandles, CloseGivesThePlatformsCode) {
    WriteFile(Path("a"), "");
    const int32_t handle = Open("a", kRead);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_EQ(TavFileCloseExt(handle), -51);
}

// Closed and invented numbers, and what is left of them in 16 bits.
TEST_F(FileHandles, NothingWorksOnANumberThatIsNotOpen) {
    WriteFile(Path("a"), "content");
    const int32_t closed = Open("a", kReadWrite);
    TavFileCloseExt(closed);
    for (const int32_t handle :
         {closed, -1, 0, 32767, -32768, 0x10000, std::numeric_limits<int32_t>::min()}) {
        SCOPED_TRACE(handle);
        char byte = 'x';
        uint32_t count = 7;
        int64_t value = 77;
        EXPECT_EQ(TavFileReadExt(handle, &byte, 1, &count), 0);
        EXPECT_EQ(count, 0u);
        count = 7;
        EXPECT_EQ(TavFileWriteExt(handle, &byte, 1, &count), 0);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(TavFileSetPointerExt(handle, 0, &value, 0), 0);
        EXPECT_EQ(value, 77);
        EXPECT_EQ(TavFileGetPointerExt(handle, &value), 0);
        EXPECT_EQ(TavFileGetFileSizeExt(handle, &value), 0);
        EXPECT_EQ(TavFileSetFileSizeExt(handle, 0), 0);
        EXPECT_EQ(TavFileCloseExt(handle), -51);
    }
    EXPECT_EQ(ReadFile(Path("a")), "content");
}

TEST_F(FileHandles, OnlyTheLow16BitsOfAHandleCount) {
    WriteFile(Path("a"), "content");
    const int32_t handle = Open("a", kRead);
    EXPECT_EQ(ReadAll(handle | 0x7FFF0000), "content");
    EXPECT_EQ(TavFileCloseExt(handle | 0x10000), 0);
}

TEST_F(FileHandles, ReadEndsWithTheFile) {
    WriteFile(Path("a"), "12345");
    const int32_t handle = Open("a", kRead);
    char buffer[8];
    uint32_t count = 99;
    EXPECT_EQ(TavFileReadExt(handle, buffer, 5, &count), 1);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(std::string(buffer, 5), "12345");
    EXPECT_EQ(TavFileReadExt(handle, buffer, 5, &count), 0);
    EXPECT_EQ(count, 0u);
    TavFileSetPointerExt(handle, 3, nullptr, TAV_FILE_BEGIN);
    EXPECT_EQ(TavFileReadExt(handle, buffer, 8, &count), 1);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(std::string(buffer, 2), "45");
    TavFileCloseExt(handle);
}

TEST_F(FileHandles, ReadNeedsNoCount) {
    WriteFile(Path("a"), "12");
    const int32_t handle = Open("a", kRead);
    char byte = 0;
    EXPECT_EQ(TavFileReadExt(handle, &byte, 1, nullptr), 1);
    EXPECT_EQ(byte, '1');
    TavFileCloseExt(handle);
}

TEST_F(FileHandles, ReadOfNothingFails) {
    WriteFile(Path("a"), "12");
    const int32_t handle = Open("a", kRead);
    uint32_t count = 99;
    EXPECT_EQ(TavFileReadExt(handle, nullptr, 0, &count), 0);
    EXPECT_EQ(count, 0u);
    TavFileCloseExt(handle);
}

TEST_F(FileHandles, WriteMovesThePosition) {
    const int32_t handle = Create("a", kReadWrite);
    uint32_t count = 0;
    EXPECT_EQ(TavFileWriteExt(handle, "hello", 5, &count), 1);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(Position(handle), 5);
    EXPECT_EQ(Write(handle, " world"), 1);
    TavFileSetPointerExt(handle, 0, nullptr, TAV_FILE_BEGIN);
    EXPECT_EQ(Write(handle, "J"), 1);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_EQ(ReadFile(Path("a")), "Jello world");
}

TEST_F(FileHandles, WriteOfNothingFails) {
    const int32_t handle = Create("a", kReadWrite);
    uint32_t count = 99;
    EXPECT_EQ(TavFileWriteExt(handle, "x", 0, &count), 0);
    EXPECT_EQ(count, 0u);
    TavFileCloseExt(handle);
    EXPECT_EQ(ReadFile(Path("a")), "");
}

TEST_F(FileHandles, SetPointerMeasuresAsTold) {
    WriteFile(Path("a"), "0123456789");
    const int32_t handle = Open("a", kRead);
    struct {
        int64_t distance;
        uint32_t method;
        int64_t position;
    } const cases[] = {{4, TAV_FILE_BEGIN, 4}, {3, TAV_FILE_CURRENT, 7},     {-2, TAV_FILE_CURRENT, 5},
                       {-1, TAV_FILE_END, 9},  {5, TAV_FILE_END, 15},        {6, 7, 6},
                       {2, 0xFFFFFFFF, 2},     {0x100000000, 0, 0x100000000}};
    for (const auto& c : cases) {
        int64_t position = -1;
        EXPECT_EQ(TavFileSetPointerExt(handle, c.distance, &position, c.method), 1);
        EXPECT_EQ(position, c.position);
        EXPECT_EQ(Position(handle), c.position);
    }
    EXPECT_EQ(TavFileSetPointerExt(handle, 1, nullptr, TAV_FILE_BEGIN), 1);
    EXPECT_EQ(Position(handle), 1);
    TavFileCloseExt(handle);
}

TEST_F(FileHandles, SetPointerStaysPutBeforeTheBeginning) {
    WriteFile(Path("a"), "0123456789");
    const int32_t handle = Open("a", kRead);
    TavFileSetPointerExt(handle, 4, nullptr, TAV_FILE_BEGIN);
    int64_t position = 77;
    EXPECT_EQ(TavFileSetPointerExt(handle, -1, &position, TAV_FILE_BEGIN), 0);
    EXPECT_EQ(TavFileSetPointerExt(handle, -5, &position, TAV_FILE_CURRENT), 0);
    EXPECT_EQ(TavFileSetPointerExt(handle, -11, &position, TAV_FILE_END), 0);
    EXPECT_EQ(position, 77);
    EXPECT_EQ(Position(handle), 4);
    TavFileCloseExt(handle);
}

TEST_F(FileHandles, SizeIsToldAndSet) {
    WriteFile(Path("a"), "0123456789");
    const int32_t handle = Open("a", kReadWrite);
    int64_t size = 0;
    EXPECT_EQ(TavFileGetFileSizeExt(handle, &size), 1);
    EXPECT_EQ(size, 10);
    TavFileSetPointerExt(handle, 3, nullptr, TAV_FILE_BEGIN);
    EXPECT_EQ(TavFileSetFileSizeExt(handle, 4), 1);
    EXPECT_EQ(Position(handle), 3);
    EXPECT_EQ(TavFileSetFileSizeExt(handle, 6), 1);
    EXPECT_EQ(TavFileSetFileSizeExt(handle, -1), 0);
    TavFileCloseExt(handle);
    EXPECT_EQ(ReadFile(Path("a")), std::string("0123\0\0", 6));
}

TEST_F(FileHandles, CreateMakesAnEmptyFile) {
    const int32_t handle = Create("a", kReadWrite);
    ASSERT_GT(handle, 0);
    EXPECT_EQ(Write(handle, "x"), 1);
    TavFileCloseExt(handle);
    EXPECT_EQ(ReadFile(Path("a")), "x");
}

TEST_F(FileHandles, CreateTakesNonAsciiNames) {
    const std::string name = "\u00e9t\u00e9 \U0001F600.txt";
    TavFileCloseExt(Create(name, kReadWrite));
    EXPECT_TRUE(Exists(name));
}

TEST_F(FileHandles, CreateKeepsAColonInTheName) {
    TavFileCloseExt(Create("x:y", kReadWrite));
    EXPECT_TRUE(Exists("x:y"));
    const FSRef ref = PlatformRef(Path("x:y"));
    HFSUniStr255 name;
    ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, &name, nullptr, nullptr), 0);
    EXPECT_EQ(std::u16string(name.unicode, name.length), u"x/y");
}

TEST_F(FileHandles, CreateOfAnExistingFileGoesByTheFlags) {
    struct {
        uint32_t flags;
        bool opens, anew;
        const char* content;
    } const cases[] = {{0x01, false, false, "old"}, {0x03, false, false, "old"}, {0x09, true, true, ""},
                       {0x0B, true, true, ""},      {0x11, true, false, ""},     {0x13, true, false, ""},
                       {0x19, true, true, ""},      {0x1B, true, true, ""},      {0x04, false, false, "old"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.flags);
        fs::remove(Path("a"));
        fs::remove(Path("other"));
        WriteFile(Path("a"), "old");
        fs::create_hard_link(Path("a"), Path("other"));
        const int32_t handle = Create("a", c.flags);
        EXPECT_EQ(handle != -1, c.opens);
        if (c.opens) {
            EXPECT_EQ(Position(handle), 0);
            EXPECT_EQ(TavFileCloseExt(handle), 0);
        }
        EXPECT_EQ(ReadFile(Path("a")), c.content);
        // A file made anew leaves the old one to its other name.
        EXPECT_EQ(ReadFile(Path("other")), c.anew ? "old" : c.content);
    }
}

TEST_F(FileHandles, CreateReplacesALockedFile) {
    WriteFile(Path("a"), "old");
    Lock("a");
    const int32_t handle = Create("a", kReadWrite | TAV_FILE_REPLACE);
    EXPECT_NE(handle, -1);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_EQ(ReadFile(Path("a")), "");
}

TEST_F(FileHandles, CreateReplacesAWholeFolder) {
    fs::create_directories(Path("a/b"));
    WriteFile(Path("a/b/c"), "x");
    const int32_t handle = Create("a", kReadWrite | TAV_FILE_REPLACE);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_TRUE(fs::is_regular_file(Path("a")));
}

TEST_F(FileHandles, CreateDoesNotTruncateALockedFileOrAFolder) {
    WriteFile(Path("a"), "old");
    Lock("a");
    EXPECT_EQ(Create("a", kReadWrite | TAV_FILE_TRUNCATE), -1);
    EXPECT_EQ(ReadFile(Path("a")), "old");
    fs::create_directory(Path("d"));
    EXPECT_EQ(Create("d", kReadWrite | TAV_FILE_TRUNCATE), -1);
}

// The locked file can be opened for reading; cutting it fails then, and the number that comes back is closed.
TEST_F(FileHandles, CreateGivesAClosedNumberWhenTruncatingFails) {
    WriteFile(Path("a"), "old");
    Lock("a");
    const int32_t handle = Create("a", kRead | TAV_FILE_TRUNCATE);
    EXPECT_GT(handle, 0);
    EXPECT_EQ(TavFileCloseExt(handle), -51);
    EXPECT_EQ(ReadFile(Path("a")), "old");
}

TEST_F(FileHandles, CreateNeedsAFolderAndAName) {
    EXPECT_EQ(Create("b/", kReadWrite), -1);
    EXPECT_EQ(Create("none/a", kReadWrite), -1);
    WriteFile(Path("file"), "");
    EXPECT_EQ(Create("file/a", kReadWrite), -1);
    EXPECT_EQ(Create(std::string(256, 'n'), kReadWrite), -1);
    EXPECT_EQ(TavFileCreateExt(MakeRef(u"name").get(), kReadWrite), -1);
    EXPECT_EQ(TavFileCreateExt(MakeRef(u"").get(), kReadWrite), -1);
    EXPECT_EQ(TavFileCreateExt(MakeRef(u"/").get(), kReadWrite), -1);
    EXPECT_EQ(TavFileCreateExt(MakeRef(u"/tmp/\xD800/x").get(), kReadWrite), -1);
    EXPECT_EQ(TavFileCreateExt(nullptr, kReadWrite), -1);
}

TEST_F(FileHandles, CreateInAFolderThatALinkLeadsTo) {
    fs::create_directory(Path("d"));
    fs::create_symlink("d", Path("link"));
    TavFileCloseExt(Create("link/a", kReadWrite));
    EXPECT_TRUE(Exists("d/a"));
}

// Only the folder's path has to be text. The platform takes the unit for a byte, and no reference leads to
// what it makes of it: the folder is there, the file too but not open, and neither is touched again.
TEST_F(FileHandles, NamesThatAreNotTextAreMadeButNotFound) {
    WriteFile(Path("caf\xE9"), "content");
    const std::u16string path = Wide(folder.path());
    const Ref present = MakeRef(path + u"/caf\xDCE9"), missing = MakeRef(path + u"/new\xDCE9");
    const Ref inside = MakeRef(path + u"/caf\xDCE9/x"), subfolder = MakeRef(path + u"/dir\xDCE9");
    EXPECT_EQ(TavFileOpenExt(present.get(), kRead), -1);
    EXPECT_EQ(TavFileDeleteExt(present.get()), 0);
    EXPECT_EQ(TavFileCreateExt(present.get(), kReadWrite | TAV_FILE_REPLACE), -1);
    EXPECT_EQ(TavFileCreateExt(present.get(), kReadWrite | TAV_FILE_TRUNCATE), -1);
    EXPECT_EQ(TavFileCreateExt(missing.get(), kReadWrite), -1);
    EXPECT_TRUE(fs::is_regular_file(Path("new\xE9")));
    EXPECT_EQ(TavFolderCreateExt(subfolder.get()), 1);
    EXPECT_TRUE(fs::is_directory(Path("dir\xE9")));
    EXPECT_EQ(TavFolderCreateExt(subfolder.get()), 0);
    EXPECT_EQ(TavFileCreateExt(inside.get(), kReadWrite), -1);
    EXPECT_EQ(TavFolderCreateExt(inside.get()), 0);
    EXPECT_EQ(ReadFile(Path("caf\xE9")), "content");
}

// A path of 1023 units works, and one of 1024 is refused before anything is looked at.
TEST_F(FileHandles, LongPathsWorkUpTo1023Units) {
    std::string path = folder.path();
    while (path.size() < 1023 - 200) path += "/" + std::string(199, 'd');
    fs::create_directories(path);
    path += "/" + std::string(1023 - path.size() - 1, 'n');
    ASSERT_EQ(path.size(), 1023u);
    const int32_t handle = TavFileCreateExt(RefTo(path).get(), kReadWrite);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_TRUE(fs::exists(path));
    const Ref longer = RefTo(path + "n");
    EXPECT_EQ(TavFileCreateExt(longer.get(), kReadWrite), -1);
    EXPECT_EQ(TavFolderCreateExt(longer.get()), 0);
    EXPECT_EQ(TavFileOpenExt(longer.get(), kRead), -1);
    EXPECT_EQ(TavFileDeleteExt(longer.get()), 0);
    EXPECT_FALSE(fs::exists(path + "n"));
    EXPECT_EQ(TavFileDeleteExt(RefTo(path).get()), 1);
}

TEST_F(FileHandles, DeleteTakesFilesAndWholeTrees) {
    WriteFile(Path("a"), "");
    EXPECT_EQ(Delete("a"), 1);
    EXPECT_FALSE(Exists("a"));
    fs::create_directories(Path("d/e/f"));
    WriteFile(Path("d/e/g"), "");
    Lock("d/e/g");
    Lock("d/e");
    EXPECT_EQ(Delete("d"), 1);
    EXPECT_FALSE(Exists("d"));
    EXPECT_EQ(Delete("d"), 0);
    EXPECT_EQ(TavFileDeleteExt(nullptr), 0);
}

TEST_F(FileHandles, DeleteTakesALinkAndNotItsTarget) {
    fs::create_directory(Path("d"));
    WriteFile(Path("d/a"), "x");
    fs::create_symlink("d", Path("link"));
    fs::create_symlink("none", Path("dangling"));
    EXPECT_EQ(Delete("link"), 1);
    EXPECT_EQ(Delete("dangling"), 1);
    EXPECT_FALSE(Exists("link"));
    EXPECT_FALSE(Exists("dangling"));
    EXPECT_TRUE(Exists("d/a"));
}

// It does not exist, and yet it can be put out of the way.
TEST_F(FileHandles, ADanglingLinkIsRenamedMovedAndDeleted) {
    fs::create_directory(Path("d"));
    fs::create_symlink("none", Path("a"));
    EXPECT_EQ(Tav0FSRIsExist(RefTo(Path("a")).get()), 0);
    EXPECT_EQ(Open("a", kRead), -1);
    EXPECT_EQ(Rename("a", u"b"), 1);
    EXPECT_EQ(fs::read_symlink(Path("b")), "none");
    EXPECT_EQ(Move("b", "d"), 1);
    EXPECT_EQ(fs::read_symlink(Path("d/b")), "none");
    EXPECT_EQ(Tav0FSRIsExist(RefTo(Path("d/b")).get()), 0);
    EXPECT_EQ(Delete("d/b"), 1);
    EXPECT_FALSE(Exists("a") || Exists("b") || Exists("d/b"));
}

TEST_F(FileHandles, MoveAndRenameTakeALinkAndNotItsTarget) {
    fs::create_directory(Path("d"));
    WriteFile(Path("a"), "content");
    fs::create_symlink(Path("a"), Path("link"));
    EXPECT_EQ(Rename("link", u"other"), 1);
    EXPECT_EQ(Move("other", "d"), 1);
    EXPECT_TRUE(fs::is_symlink(Path("d/other")));
    EXPECT_EQ(ReadFile(Path("a")), "content");
    EXPECT_EQ(DeleteFolder("d/other"), 1);
    EXPECT_EQ(ReadFile(Path("a")), "content");
}

TEST_F(FileHandles, MoveThroughALinkGoesIntoItsFolder) {
    fs::create_directory(Path("d"));
    WriteFile(Path("a"), "content");
    fs::create_symlink("d", Path("link"));
    EXPECT_EQ(Move("a", "link"), 1);
    EXPECT_EQ(ReadFile(Path("d/a")), "content");
}

// Creating deals with a link itself, too: it never makes the missing target or cuts it off.
TEST_F(FileHandles, CreateOnADanglingLinkReplacesTheLinkOnly) {
    fs::create_symlink("none", Path("a"));
    EXPECT_EQ(Create("a", kReadWrite), -1);
    EXPECT_EQ(Create("a", kReadWrite | TAV_FILE_TRUNCATE), -1);
    EXPECT_TRUE(fs::is_symlink(Path("a")));
    const int32_t handle = Create("a", kReadWrite | TAV_FILE_REPLACE);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Path("a"))));
    EXPECT_FALSE(Exists("none"));
}

TEST_F(FileHandles, FolderCreateMakesAFolder) {
    EXPECT_EQ(MakeFolder("new"), 1);
    EXPECT_TRUE(fs::is_directory(Path("new")));
    EXPECT_EQ(MakeFolder("slash/"), 1);
    EXPECT_TRUE(fs::is_directory(Path("slash")));
    EXPECT_EQ(MakeFolder("new"), 0);
    EXPECT_EQ(MakeFolder("new/"), 0);
}

TEST_F(FileHandles, FolderCreateNeedsAFolderAndAName) {
    EXPECT_EQ(MakeFolder("two//"), 0);
    EXPECT_EQ(MakeFolder("none/new"), 0);
    EXPECT_EQ(TavFolderCreateExt(MakeRef(u"/").get()), 0);
    EXPECT_EQ(TavFolderCreateExt(MakeRef(u"name").get()), 0);
    EXPECT_EQ(TavFolderCreateExt(MakeRef(u"").get()), 0);
    EXPECT_EQ(TavFolderCreateExt(MakeRef(u"/tmp/\xD800/x").get()), 0);
    EXPECT_EQ(TavFolderCreateExt(nullptr), 0);
}

TEST_F(FileHandles, FolderCreateDoesNotTakeAColon) {
    EXPECT_EQ(MakeFolder("x:y"), 0);
    EXPECT_FALSE(Exists("x:y"));
}

TEST_F(FileHandles, FolderDeleteTakesWhatIsEmpty) {
    fs::create_directory(Path("d"));
    WriteFile(Path("d/a"), "");
    EXPECT_EQ(DeleteFolder("d"), 0);
    EXPECT_EQ(DeleteFolder("d/a"), 1);
    EXPECT_EQ(DeleteFolder("d"), 1);
    EXPECT_FALSE(Exists("d"));
    EXPECT_EQ(DeleteFolder("d"), 0);
    EXPECT_EQ(TavFolderDeleteExt(nullptr), 0);
}

TEST_F(FileHandles, FolderDeleteLeavesWhatIsLocked) {
    fs::create_directory(Path("d"));
    Lock("d");
    EXPECT_EQ(DeleteFolder("d"), 0);
    EXPECT_TRUE(Exists("d"));
}

TEST_F(FileHandles, MoveKeepsTheName) {
    fs::create_directory(Path("d"));
    WriteFile(Path("a"), "content");
    const int32_t handle = Open("a", kRead);
    EXPECT_EQ(Move("a", "d"), 1);
    EXPECT_FALSE(Exists("a"));
    EXPECT_EQ(ReadFile(Path("d/a")), "content");
    EXPECT_EQ(ReadAll(handle), "content");
    TavFileCloseExt(handle);
    fs::create_directory(Path("e"));
    EXPECT_EQ(Move("d", "e"), 1);
    EXPECT_EQ(ReadFile(Path("e/d/a")), "content");
}

TEST_F(FileHandles, MoveNeedsAFreeNameInAFolder) {
    fs::create_directory(Path("d"));
    WriteFile(Path("a"), "content");
    WriteFile(Path("d/a"), "other");
    EXPECT_EQ(Move("a", "d"), 0);
    EXPECT_EQ(ReadFile(Path("a")), "content");
    EXPECT_EQ(ReadFile(Path("d/a")), "other");
    WriteFile(Path("b"), "");
    EXPECT_EQ(Move("a", "b"), 0);
    EXPECT_EQ(Move("a", "none"), 0);
    EXPECT_EQ(Move("none", "d"), 0);
    EXPECT_EQ(Move("d", "d"), 0);
    EXPECT_EQ(TavFileMoveFileExt(nullptr, RefTo(Path("d")).get()), 0);
    EXPECT_EQ(TavFileMoveFileExt(RefTo(Path("a")).get(), nullptr), 0);
    EXPECT_EQ(ReadFile(Path("a")), "content");
}

TEST_F(FileHandles, RenameGivesANewReferenceWhenAsked) {
    WriteFile(Path("a"), "content");
    EXPECT_EQ(Rename("a", u"b"), 1);
    OpacTavFSRef* renamed = nullptr;
    EXPECT_EQ(Rename("b", u"\u00e9", &renamed), 1);
    const Ref owned(renamed);
    EXPECT_EQ(owned, RefTo(Path("\u00e9")));
    EXPECT_EQ(ReadFile(Path("\u00e9")), "content");
    EXPECT_FALSE(Exists("a") || Exists("b"));
}

TEST_F(FileHandles, RenameTakesThePlatformsNames) {
    WriteFile(Path("a"), "");
    EXPECT_EQ(Rename("a", u"x/y"), 1);
    EXPECT_TRUE(Exists("x:y"));
    EXPECT_EQ(Rename("x:y", u"x:z"), 0);
    EXPECT_TRUE(Exists("x:y"));
}

TEST_F(FileHandles, RenameNeedsAFreeName) {
    WriteFile(Path("a"), "content");
    WriteFile(Path("b"), "other");
    const Ref other = MakeRef(u"/other");
    OpacTavFSRef* const untouched = other.get();
    OpacTavFSRef* renamed = untouched;
    EXPECT_EQ(Rename("a", u"b", &renamed), 0);
    EXPECT_EQ(Rename("a", u"", &renamed), 0);
    EXPECT_EQ(Rename("a", std::u16string(256, u'n').c_str(), &renamed), 0);
    EXPECT_EQ(Rename("none", u"c", &renamed), 0);
    EXPECT_EQ(TavFileRenameExt(nullptr, u"c", &renamed), 0);
    EXPECT_EQ(renamed, untouched);
    EXPECT_EQ(ReadFile(Path("a")), "content");
    EXPECT_EQ(ReadFile(Path("b")), "other");
}

TEST_F(FileHandles, NothingChangesOnAReadOnlyVolume) {
    if (!MountPrivate(folder.path(), 0, "size=1m")) GTEST_SKIP() << "needs the right to mount";
    WriteFile(Path("a"), "content");
    fs::create_directory(Path("d"));
    ASSERT_EQ(mount("none", folder.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(Create("new", kReadWrite), -1);
    EXPECT_EQ(Create("a", kReadWrite | TAV_FILE_REPLACE), -1);
    EXPECT_EQ(Create("a", kReadWrite | TAV_FILE_TRUNCATE), -1);
    EXPECT_EQ(Open("a", kReadWrite), -1);
    EXPECT_EQ(Delete("a"), 0);
    EXPECT_EQ(MakeFolder("new"), 0);
    EXPECT_EQ(DeleteFolder("d"), 0);
    EXPECT_EQ(Move("a", "d"), 0);
    EXPECT_EQ(Rename("a", u"b"), 0);
    const int32_t handle = Open("a", 0);
    EXPECT_EQ(ReadAll(handle), "content");
    TavFileCloseExt(handle);
}

TEST_F(FileHandles, WritesWhatFitsOnAFullVolume) {
    if (!MountPrivate(folder.path(), 0, "size=64k")) GTEST_SKIP() << "needs the right to mount";
    const int32_t handle = Create("a", kReadWrite);
    ASSERT_NE(handle, -1);
    const std::string block(100000, 'x');
    uint32_t count = 0;
    EXPECT_EQ(TavFileWriteExt(handle, block.data(), static_cast<uint32_t>(block.size()), &count), 0);
    int64_t size = -1;
    EXPECT_EQ(TavFileGetFileSizeExt(handle, &size), 1);
    EXPECT_EQ(size, count);
    EXPECT_GT(count, 0u);
    EXPECT_LT(count, block.size());
    EXPECT_EQ(TavFileWriteExt(handle, block.data(), 65536, &count), 0);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_EQ(Delete("a"), 1);
}

TEST_F(FileHandles, LeaveNoDescriptorBehind) {
    WriteFile(Path("a"), "content");
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto round = [this] {
        TavFileCloseExt(Open("a", kRead));
        TavFileCloseExt(Create("b", kReadWrite));
        Create("b", kRead);
        Create("none/b", kRead);
        TavFileCloseExt(Create("b", kReadWrite | TAV_FILE_TRUNCATE));
        TavFileCloseExt(Create("b", kReadWrite | TAV_FILE_REPLACE));
        Delete("b");
    };
    // The platform keeps a bounded number of folders open.
    round();
    const auto before = descriptors();
    for (int i = 0; i < 50; ++i) round();
    EXPECT_EQ(descriptors(), before);
}

// The whole way of a request: a key and a value, an expression, a file.
TEST_F(FileHandles, ReachAFileThroughAKeyAndAValue) {
    fs::create_directories(Path("en/Data"));
    WriteFile(Path("en/Data/file.txt"), "content");
    const TavKey key = KeyOf("pref");
    const FSRef ref = PlatformRef(folder.path());
    Tav0TranPathRegister(&key, &ref);
    const MyStr16 name = NameOf("lang");
    Tav0FSValRegister(&name, u"en");
    const Exp e(Tav0FSExpCreateTK("pref"));
    Tav0FSExpAppendVal(e.get(), "lang");
    Tav0FSExpAppendSeg(e.get(), u"Data/file.txt");
    EXPECT_EQ(TextOf(e), u"$pref\\%lang\\Data\\file.txt");
    const Ref file(Tav0FSExpCalculateFSRCreate(e.get(), nullptr));
    const int32_t handle = TavFileOpenExt(file.get(), kRead);
    EXPECT_EQ(ReadAll(handle), "content");
    EXPECT_EQ(TavFileCloseExt(handle), 0);
}
