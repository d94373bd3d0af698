#include "copy/object_copy.h"

#include "copy/file_copy.h"
#include "copy/folder_copy.h"
#include "platform/objects.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/references.h"
#include "support/sidecars.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

namespace {

class ObjectCopyTest : public testing::Test {
protected:
    ObjectCopyTest() {
        fs::create_directory(folder / "from");
        fs::create_directory(folder / "to");
    }
    std::string From(const std::string& name) { return (folder.path() / "from" / name).string(); }
    std::string To(const std::string& name) { return (folder.path() / "to" / name).string(); }

    // Copies from/source into to/ under `newName` (empty: its own name).
    OSErr Copy(const std::string& source, DupeAction action, const std::u16string& newName = u"",
               FSRef* copy = nullptr, CopyFilterProc filter = nullptr, void* data = nullptr,
               FSCatalogInfoBitmap whichInfo = kFSCatInfoNone, Boolean wantSpec = false,
               Boolean wantName = false) {
        FSRef sourceRef = Reference(From(source)), destRef = Reference(To(""));
        HFSUniStr255 name = Name(newName);
        return FSCopyObject(&sourceRef, &destRef, 0, whichInfo, action, newName.empty() ? nullptr : &name,
                            wantSpec, wantName, filter, data, copy, nullptr);
    }
    int32_t CopyPath(const std::string& source, const std::string& dest, int32_t failIfExists) {
        return TavCopyFile(Wide(source).c_str(), Wide(dest).c_str(), failIfExists);
    }

    TemporaryFolder folder;
};

bool Exists(const std::string& path) {
    return fs::exists(fs::symlink_status(path));
}

} // namespace

TEST_F(ObjectCopyTest, NullSourceOrDestinationIsRefused) {
    FSRef ref = Reference(To(""));
    EXPECT_EQ(FSCopyObject(nullptr, &ref, 0, 0, 0, nullptr, false, false, nullptr, nullptr, nullptr, nullptr),
              paramErr);
    EXPECT_EQ(FSCopyObject(&ref, nullptr, 0, 0, 0, nullptr, false, false, nullptr, nullptr, nullptr, nullptr),
              paramErr);
}

TEST_F(ObjectCopyTest, FileKeepsItsNameWithoutANewOne) {
    WriteFile(From("file"), "content");
    FSRef copy;
    ASSERT_EQ(Copy("file", kDupeActionStandard, u"", &copy), noErr);
    EXPECT_EQ(ReadFile(To("file")), "content");
    EXPECT_EQ(PathOf(copy), To("file"));
}

TEST_F(ObjectCopyTest, FileTakesTheNewName) {
    WriteFile(From("file"), "content");
    ASSERT_EQ(Copy("file", kDupeActionStandard, u"other"), noErr);
    EXPECT_EQ(ReadFile(To("other")), "content");
    EXPECT_FALSE(Exists(To("file")));
}

TEST_F(ObjectCopyTest, EmptyFileIsCreated) {
    WriteFile(From("empty"), "");
    ASSERT_EQ(Copy("empty", kDupeActionStandard), noErr);
    EXPECT_EQ(ReadFile(To("empty")), "");
}

TEST_F(ObjectCopyTest, SizesAroundBlocksAndBufferAreExact) {
    for (size_t size : {1u, 511u, 512u, 513u, 262143u, 262144u, 262145u, 524288u, 700001u}) {
        std::string content(size, 'x');
        for (size_t i = 0; i < size; i += 97) content[i] = static_cast<char>('a' + i % 26);
        WriteFile(From("file"), content);
        ASSERT_EQ(Copy("file", kDupeActionReplace), noErr) << size;
        EXPECT_EQ(ReadFile(To("file")), content) << size;
    }
}

TEST_F(ObjectCopyTest, StandardActionRefusesATakenName) {
    WriteFile(From("file"), "new");
    WriteFile(To("file"), "old");
    EXPECT_EQ(Copy("file", kDupeActionStandard), dupFNErr);
    EXPECT_EQ(ReadFile(To("file")), "old");
}

TEST_F(ObjectCopyTest, ReplaceTakesThePlaceOfTheOldObject) {
    WriteFile(From("file"), "new");
    WriteFile(To("file"), "old");
    ASSERT_EQ(Copy("file", kDupeActionReplace), noErr);
    EXPECT_EQ(ReadFile(To("file")), "new");
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

TEST_F(ObjectCopyTest, ReplaceWithATakenSetAsideNameTouchesNothing) {
    WriteFile(From("file"), "new");
    WriteFile(To("file"), "old");
    WriteFile(To(".DeleteMe"), "someone's");
    EXPECT_EQ(Copy("file", kDupeActionReplace), dupFNErr);
    EXPECT_EQ(ReadFile(To("file")), "old");
    EXPECT_EQ(ReadFile(To(".DeleteMe")), "someone's");
}

TEST_F(ObjectCopyTest, ReplaceOfItselfKeepsTheContent) {
    WriteFile(To("file"), "content");
    FSRef source = Reference(To("file")), dest = Reference(To(""));
    EXPECT_EQ(FSCopyObject(&source, &dest, 0, 0, kDupeActionReplace, nullptr, false, false, nullptr, nullptr,
                           nullptr, nullptr),
              noErr);
    EXPECT_EQ(ReadFile(To("file")), "content");
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

// What cannot be copied would be deleted with the old tree, which is the source.
TEST_F(ObjectCopyTest, FolderThatIsOrLiesInWhatItReplacesIsRefusedAndLosesNothing) {
    fs::create_directories(To("tree/sub/deep"));
    WriteFile(To("tree/file"), "content");
    ASSERT_EQ(mkfifo(To("tree/sub/deep/pipe").c_str(), 0644), 0);
    EXPECT_EQ(CopyPath(To("tree"), To("tree"), 0), 0);
    EXPECT_EQ(CopyPath(To("tree/sub"), To("tree"), 0), 0);
    EXPECT_EQ(CopyPath(To("tree/sub/deep"), To("tree"), 0), 0);
    EXPECT_EQ(ReadFile(To("tree/file")), "content");
    EXPECT_TRUE(Exists(To("tree/sub/deep/pipe")));
    EXPECT_FALSE(Exists(To(".DeleteMe")));

    FSRef source = Reference(To("tree")), dest = Reference(To(""));
    EXPECT_EQ(FSCopyObject(&source, &dest, 0, 0, kDupeActionReplace, nullptr, false, false, nullptr, nullptr,
                           nullptr, nullptr),
              kDestInsideSourceErr);
    EXPECT_EQ(PathOf(source), To("tree"));
}

TEST_F(ObjectCopyTest, FileThatLiesInTheFolderItReplacesTakesItsPlace) {
    fs::create_directory(To("tree"));
    WriteFile(To("tree/file"), "content");
    EXPECT_EQ(CopyPath(To("tree/file"), To("tree"), 0), 1);
    EXPECT_EQ(ReadFile(To("tree")), "content");
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

// kept: a replaced object comes back under the source's name.
TEST_F(ObjectCopyTest, TargetInsideTheSourceComesBackUnderTheSourceName) {
    fs::create_directories(To("tree/sub"));
    WriteFile(To("tree/sub/file"), "content");
    EXPECT_EQ(CopyPath(To("tree"), To("tree/sub"), 0), 0);
    EXPECT_EQ(ReadFile(To("tree/tree/file")), "content");
    EXPECT_FALSE(Exists(To("tree/sub")));
    EXPECT_FALSE(Exists(To("tree/.DeleteMe")));
}

TEST_F(ObjectCopyTest, ReplacingALinkLeavesWhatItLeadsTo) {
    WriteFile(From("file"), "new");
    fs::create_directory(To("folder"));
    WriteFile(To("folder/inside"), "inside");
    fs::create_symlink("nowhere", To("dangling"));
    fs::create_symlink("folder", To("link"));
    EXPECT_EQ(CopyPath(From("file"), To("dangling"), 1), 0);
    EXPECT_EQ(CopyPath(From("file"), To("dangling"), 0), 1);
    EXPECT_EQ(CopyPath(From("file"), To("link"), 0), 1);
    EXPECT_FALSE(fs::is_symlink(To("dangling")));
    EXPECT_FALSE(fs::is_symlink(To("link")));
    EXPECT_EQ(ReadFile(To("link")), "new");
    EXPECT_EQ(ReadFile(To("folder/inside")), "inside");
    EXPECT_FALSE(Exists(To("nowhere")));
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

TEST_F(ObjectCopyTest, ReplacingWhatALinkLeadsToLosesNothing) {
    WriteFile(To("file"), "content");
    fs::create_directories(To("tree/sub"));
    WriteFile(To("tree/sub/file"), "content");
    fs::create_symlink("file", To("link"));
    fs::create_symlink(To("tree"), To("treelink"));
    fs::create_symlink(To("tree/sub/file"), To("insidelink"));
    EXPECT_EQ(CopyPath(To("link"), To("file"), 0), 0);
    EXPECT_EQ(CopyPath(To("treelink"), To("tree"), 0), 0);
    EXPECT_EQ(CopyPath(To("insidelink"), To("tree"), 0), 0);
    EXPECT_EQ(ReadFile(To("file")), "content");
    EXPECT_EQ(ReadFile(To("tree/sub/file")), "content");
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

TEST_F(ObjectCopyTest, FailedReplaceBringsTheOldObjectBackUnderTheSourceName) {
    WriteFile(From("source"), "new");
    WriteFile(To("target"), "old");
    auto refuse = [](Boolean, ItemCount, OSErr, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                     const HFSUniStr255*, const FSRef*, void*) -> OSErr { return -128; };
    EXPECT_EQ(Copy("source", kDupeActionReplace, u"target", nullptr, refuse), -128);
    EXPECT_FALSE(Exists(To("target")));
    EXPECT_EQ(ReadFile(To("source")), "old");
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

TEST_F(ObjectCopyTest, FailedReplaceLeavesTheSetAsideObjectWhenItsNameIsTaken) {
    WriteFile(From("source"), "new");
    WriteFile(To("target"), "old");
    WriteFile(To("source"), "someone's");
    auto refuse = [](Boolean, ItemCount, OSErr, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                     const HFSUniStr255*, const FSRef*, void*) -> OSErr { return -128; };
    EXPECT_EQ(Copy("source", kDupeActionReplace, u"target", nullptr, refuse), -128);
    EXPECT_EQ(ReadFile(To("source")), "someone's");
    EXPECT_EQ(ReadFile(To(".DeleteMe")), "old");
}

TEST_F(ObjectCopyTest, RenameActionPutsASpaceAndADigitBeforeTheExtension) {
    const struct {
        const char *taken, *first, *second;
    } rows[] = {
        {"stem.ext", "stem 1.ext", "stem 2.ext"},
        {"a.b.c", "a.b 1.c", "a.b 2.c"},
        {"stem", "stem 1", "stem 2"},
        {".hidden", ".hidden 1", ".hidden 2"},
        {"ends.", "ends 1.", "ends 2."},
    };
    for (const auto& row : rows) {
        WriteFile(From(row.taken), "new");
        WriteFile(To(row.taken), "old");
        EXPECT_EQ(Copy(row.taken, kDupeActionRename), noErr) << row.taken;
        EXPECT_TRUE(Exists(To(row.first))) << row.taken;
        EXPECT_EQ(Copy(row.taken, kDupeActionRename), noErr) << row.taken;
        EXPECT_TRUE(Exists(To(row.second))) << row.taken;
        EXPECT_EQ(ReadFile(To(row.taken)), "old");
    }
}

TEST_F(ObjectCopyTest, RenameActionWithNineTakenDigitsTriesTheCharacterZeroAndFails) {
    WriteFile(From("f"), "new");
    WriteFile(To("f"), "old");
    for (char digit = '1'; digit <= '9'; ++digit) WriteFile(To(std::string("f ") + digit), "old");
    EXPECT_NE(Copy("f", kDupeActionRename), noErr);
    EXPECT_EQ(std::distance(fs::directory_iterator(To("")), {}), 10);
}

TEST_F(ObjectCopyTest, RenameActionWithoutRoomForTheSuffixReportsTheConflict) {
    std::string name(254, 'n');
    WriteFile(From(name), "new");
    WriteFile(To(name), "old");
    EXPECT_EQ(Copy(name, kDupeActionRename), dupFNErr);
    EXPECT_EQ(ReadFile(To(name)), "old");
}

TEST_F(ObjectCopyTest, MissingSourceFails) {
    WriteFile(From("file"), "x");
    FSRef source = Reference(From("file")), dest = Reference(To(""));
    fs::remove(From("file"));
    EXPECT_EQ(
        FSCopyObject(&source, &dest, 0, 0, 0, nullptr, false, false, nullptr, nullptr, nullptr, nullptr),
        fnfErr);
}

TEST_F(ObjectCopyTest, FileAsDestinationFails) {
    WriteFile(From("file"), "x");
    WriteFile(To("file"), "y");
    FSRef source = Reference(From("file")), dest = Reference(To("file"));
    EXPECT_EQ(
        FSCopyObject(&source, &dest, 0, 0, 0, nullptr, false, false, nullptr, nullptr, nullptr, nullptr),
        errFSNotAFolder);
}

TEST_F(ObjectCopyTest, BadNewNamesFail) {
    WriteFile(From("file"), "x");
    EXPECT_EQ(Copy("file", kDupeActionStandard, u"a:b"), bdNamErr);
    EXPECT_TRUE(fs::is_empty(To("")));
}

TEST_F(ObjectCopyTest, NamesOfNoUnitsAndOfMoreThan255Fail) {
    WriteFile(From("file"), "x");
    FSRef source = Reference(From("file")), dest = Reference(To(""));
    HFSUniStr255 name = Name(u"");
    EXPECT_EQ(FSCopyObject(&source, &dest, 0, 0, 0, &name, false, false, nullptr, nullptr, nullptr, nullptr),
              bdNamErr);
    name.length = 256;
    EXPECT_EQ(FSCopyObject(&source, &dest, 0, 0, 0, &name, false, false, nullptr, nullptr, nullptr, nullptr),
              bdNamErr);
    EXPECT_TRUE(fs::is_empty(To("")));
}

TEST_F(ObjectCopyTest, FileReplacesAFolderAndAFolderAFile) {
    WriteFile(From("a"), "file");
    fs::create_directories(From("b/sub"));
    fs::create_directories(To("a/full/of"));
    WriteFile(To("b"), "old");
    ASSERT_EQ(Copy("a", kDupeActionReplace), noErr);
    ASSERT_EQ(Copy("b", kDupeActionReplace), noErr);
    EXPECT_EQ(ReadFile(To("a")), "file");
    EXPECT_TRUE(fs::is_directory(To("b/sub")));
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

TEST_F(ObjectCopyTest, LockedObjectsAreReplacedWhole) {
    WriteFile(From("file"), "new");
    fs::create_directory(From("tree"));
    WriteFile(To("file"), "old");
    fs::create_directory(To("tree"));
    WriteFile(To("tree/file"), "old");
    for (const char* name : {"file", "tree", "tree/file"}) {
        FSRef ref = Reference(To(name));
        FSCatalogInfo info{};
        info.nodeFlags = kFSNodeLockedMask;
        ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
    }
    EXPECT_EQ(Copy("file", kDupeActionReplace), noErr);
    EXPECT_EQ(Copy("tree", kDupeActionReplace), noErr);
    EXPECT_EQ(ReadFile(To("file")), "new");
    EXPECT_TRUE(fs::is_empty(To("tree")));
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

TEST_F(ObjectCopyTest, LockedObjectsStayWhenTheyAreNotToBeReplaced) {
    WriteFile(From("file"), "new");
    WriteFile(To("file"), "old");
    FSRef ref = Reference(To("file"));
    FSCatalogInfo info{};
    info.nodeFlags = kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
    EXPECT_EQ(Copy("file", kDupeActionStandard), dupFNErr);
    EXPECT_EQ(ReadFile(To("file")), "old");
}

TEST_F(ObjectCopyTest, ModeAndModificationDateAreKept) {
    WriteFile(From("file"), "content");
    ASSERT_EQ(chmod(From("file").c_str(), 0440), 0);
    timespec dates[2] = {{1000000000, 0}, {1100000000, 500000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, From("file").c_str(), dates, 0), 0);
    ASSERT_EQ(Copy("file", kDupeActionStandard), noErr);
    struct stat facts;
    ASSERT_EQ(stat(To("file").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0440u);
    EXPECT_EQ(facts.st_mtim.tv_sec, 1100000000);
}

TEST_F(ObjectCopyTest, LockedSourceGivesALockedCopy) {
    WriteFile(From("file"), "content");
    FSRef source = Reference(From("file"));
    FSCatalogInfo info{};
    info.nodeFlags = kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&source, kFSCatInfoNodeFlags, &info), noErr);
    FSRef copy;
    ASSERT_EQ(Copy("file", kDupeActionStandard, u"", &copy), noErr);
    ASSERT_EQ(FSGetCatalogInfo(&copy, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr), noErr);
    EXPECT_TRUE(info.nodeFlags & kFSNodeLockedMask);
    EXPECT_EQ(ReadFile(To("file")), "content");
}

TEST_F(ObjectCopyTest, FileIsBusyUnlockedAndOpenToItsOwnerWhileItIsWritten) {
    WriteFile(From("file"), std::string(64 << 20, 'x'));
    FSRef source = Reference(From("file"));
    FSCatalogInfo info{};
    info.nodeFlags = kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&source, kFSCatInfoNodeFlags, &info), noErr);
    ASSERT_EQ(chmod(From("file").c_str(), 0400), 0);

    std::atomic<bool> done = false;
    std::thread copier([&] {
        EXPECT_EQ(Copy("file", kDupeActionStandard), noErr);
        done = true;
    });
    int seenBusy = 0;
    while (!done) {
        FSRef copy;
        auto path = reinterpret_cast<const uint8_t*>(strdup(To("file").c_str()));
        constexpr FSCatalogInfoBitmap kFacts =
            kFSCatInfoNodeFlags | kFSCatInfoFinderInfo | kFSCatInfoPermissions;
        FSCatalogInfo seen;
        bool found = FSPathMakeRef(path, &copy, nullptr) == noErr &&
                     FSGetCatalogInfo(&copy, kFacts, &seen, nullptr, nullptr, nullptr) == noErr;
        free(const_cast<uint8_t*>(path));
        if (!found || memcmp(seen.finderInfo, "bzy ", 4) != 0) continue;
        ++seenBusy;
        if (seen.nodeFlags & kFSNodeLockedMask) continue; // the real facts are being written
        EXPECT_EQ(seen.permissions.mode & 0600, 0600);
    }
    copier.join();
    EXPECT_GT(seenBusy, 0);
}

TEST_F(ObjectCopyTest, FinderInformationIsKeptButForThePlacedFlagAndTheBusyType) {
    WriteFile(From("file"), "content");
    FSRef source = Reference(From("file"));
    FSCatalogInfo info{};
    std::copy_n("TEXTttxt", 8, info.finderInfo);
    info.finderInfo[8] = 0x41; // invisible, has been placed
    info.extFinderInfo[5] = 7;
    ASSERT_EQ(FSSetCatalogInfo(&source, kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo, &info), noErr);
    FSRef copy;
    ASSERT_EQ(Copy("file", kDupeActionStandard, u"", &copy), noErr);
    FSCatalogInfo copied{};
    ASSERT_EQ(FSGetCatalogInfo(&copy, kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo, &copied, nullptr, nullptr,
                               nullptr),
              noErr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(copied.finderInfo), 8), "TEXTttxt");
    EXPECT_EQ(copied.finderInfo[8], 0x40);
    EXPECT_EQ(copied.extFinderInfo[5], 7);
}

TEST_F(ObjectCopyTest, ResourceForkIsCopied) {
    WriteFile(From("file"), "data");
    FSRef source = Reference(From("file"));
    HFSUniStr255 fork;
    FSForkRefNum number;
    ASSERT_EQ(FSGetResourceForkName(&fork), noErr);
    ASSERT_EQ(FSCreateFork(&source, fork.length, fork.unicode), noErr);
    ASSERT_EQ(FSOpenFork(&source, fork.length, fork.unicode, fsWrPerm, &number), noErr);
    ASSERT_EQ(FSWriteFork(number, fsAtMark, 0, 9, "resources", nullptr), noErr);
    ASSERT_EQ(FSCloseFork(number), noErr);

    FSRef copy;
    ASSERT_EQ(Copy("file", kDupeActionStandard, u"", &copy), noErr);
    char buffer[9] = {};
    ASSERT_EQ(FSOpenFork(&copy, fork.length, fork.unicode, fsRdPerm, &number), noErr);
    EXPECT_EQ(FSReadFork(number, fsAtMark, 0, 9, buffer, nullptr), noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_EQ(std::string(buffer, 9), "resources");
    EXPECT_EQ(ReadFile(To("file")), "data");
}

TEST_F(ObjectCopyTest, FilterIsAskedWithWhatItWants) {
    WriteFile(From("file"), "content");
    struct Seen {
        int calls = 0;
        OSErr result = 1;
        Boolean isFolder = 9;
        uint64_t size = 0;
        bool hasSpec = false;
        std::u16string name;
        std::string newPath, destPath;
    } seen;
    auto record = [](Boolean isFolder, ItemCount, OSErr result, const FSCatalogInfo* info, const FSRef* ref,
                     const FSSpec* spec, const HFSUniStr255* name, const FSRef* dest, void* data) -> OSErr {
        auto& s = *static_cast<Seen*>(data);
        s = {s.calls + 1,     result,
             isFolder,        info->dataLogicalSize,
             spec != nullptr, name ? std::u16string(name->unicode, name->unicode + name->length) : u"(none)",
             PathOf(*ref),    PathOf(*dest)};
        return noErr;
    };
    ASSERT_EQ(Copy("file", 0, u"copy", nullptr, record, &seen, kFSCatInfoDataSizes, true, true), noErr);
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.result, noErr);
    EXPECT_EQ(seen.isFolder, 0);
    EXPECT_EQ(seen.size, 7u);
    EXPECT_TRUE(seen.hasSpec);
    EXPECT_EQ(seen.name, u"copy");
    EXPECT_EQ(seen.newPath, To("copy"));
    EXPECT_EQ(seen.destPath + "/", To(""));

    ASSERT_EQ(Copy("file", 0, u"copy2", nullptr, record, &seen, kFSCatInfoDataSizes, false, false), noErr);
    EXPECT_FALSE(seen.hasSpec);
    EXPECT_EQ(seen.name, u"(none)");
}

TEST_F(ObjectCopyTest, DanglingLinkInATreeIsCopiedAsALink) {
    fs::create_directory(From("tree"));
    fs::create_symlink("nowhere", From("tree/dangling"));
    fs::create_symlink("/", From("tree/root"));
    ASSERT_EQ(Copy("tree", kDupeActionStandard), noErr);
    EXPECT_EQ(fs::read_symlink(To("tree/dangling")), "nowhere");
    EXPECT_EQ(fs::read_symlink(To("tree/root")), "/");
}

TEST_F(ObjectCopyTest, PathOfALinkCopiesWhatItPointsTo) {
    WriteFile(From("file"), "content");
    fs::create_symlink("file", From("link"));
    EXPECT_EQ(CopyPath(From("link"), To("copy"), 1), 1);
    EXPECT_FALSE(fs::is_symlink(To("copy")));
    EXPECT_EQ(ReadFile(To("copy")), "content");
}

TEST_F(ObjectCopyTest, TavCopyFileRefusesOrReplacesAnExistingName) {
    WriteFile(From("file"), "new");
    WriteFile(To("file"), "old");
    EXPECT_EQ(CopyPath(From("file"), To("file"), 1), 0);
    EXPECT_EQ(ReadFile(To("file")), "old");
    EXPECT_EQ(CopyPath(From("file"), To("file"), 0), 1);
    EXPECT_EQ(ReadFile(To("file")), "new");
}

TEST_F(ObjectCopyTest, TavCopyFileOntoItselfIsRefusedOrKeepsTheContent) {
    WriteFile(From("file"), "content");
    EXPECT_EQ(CopyPath(From("file"), From("file"), 1), 0);
    EXPECT_EQ(CopyPath(From("file"), From("file"), 0), 1);
    EXPECT_EQ(ReadFile(From("file")), "content");
}

TEST_F(ObjectCopyTest, TavCopyFileCopiesAFolder) {
    fs::create_directory(From("tree"));
    WriteFile(From("tree/file"), "content");
    EXPECT_EQ(CopyPath(From("tree"), To("copy"), 1), 1);
    EXPECT_EQ(ReadFile(To("copy/file")), "content");
}

TEST_F(ObjectCopyTest, TavCopyFileBelowAFileFails) {
    WriteFile(From("file"), "x");
    WriteFile(To("file"), "y");
    EXPECT_EQ(CopyPath(From("file"), To("file/x"), 1), 0);
    EXPECT_EQ(ReadFile(To("file")), "y");
}

// kept: the name is counted back from the end of the path and the folder only loses the slash, so a path that
// ends in one means a folder to copy into and a name that lacks its first unit and has the slash.
TEST_F(ObjectCopyTest, TavCopyFileToAPathThatEndsInASlashCopiesIntoThatFolder) {
    WriteFile(From("file"), "content");
    EXPECT_EQ(CopyPath(From("file"), To("name/"), 1), 0);
    EXPECT_TRUE(fs::is_empty(To("")));
    fs::create_directory(To("name"));
    EXPECT_EQ(CopyPath(From("file"), To("name/"), 1), 1);
    EXPECT_EQ(ReadFile(To("name/ame:")), "content");
}

// It would give its resources to an object that has nothing to do with it, and be seen no more itself.
TEST_F(ObjectCopyTest, FileThatWouldBeASidecarByItsNameIsCopiedAsAFile) {
    WriteFile(From("._file"), EmptySidecar());
    WriteFile(To("file"), "");
    ASSERT_EQ(Copy("._file", kDupeActionStandard), noErr);
    FSRef ref = Reference(To(""));
    FSCatalogInfo info;
    ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoValence, &info, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(info.valence, 2u);
    ref = Reference(To("file"));
    ASSERT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_EQ(ReadFile(To("._file")), EmptySidecar());
}

// An application that goes through a folder by itself may copy them one by one.
TEST_F(ObjectCopyTest, SidecarThatIsCopiedByItsNameIsTheCopysSidecar) {
    WriteFile(From("file"), "");
    WriteFile(From("._file"), EmptySidecar());
    fs::copy_file(From("file"), To("file"));
    ASSERT_EQ(CopyPath(From("._file"), To("._file"), 0), 1);
    const FSRef file = Reference(To("file"));
    ASSERT_EQ(FSDeleteObject(&file), noErr);
    EXPECT_FALSE(Exists(To("._file")));
}

// Bytes that are not UTF-8 are lone surrogates in paths, on the way and at the end.
TEST_F(ObjectCopyTest, TavCopyFileTakesNamesThatAreNotText) {
    fs::create_directory(To("d\xFF"));
    WriteFile(From("caf\xE9"), "content");
    const std::u16string source = Wide(From("caf")) + u'\xDCE9';
    const std::u16string copy = Wide(To("d")) + u"\xDCFF/copy\xDC80";
    EXPECT_EQ(TavPathFileExists(source.c_str()), 1);
    EXPECT_EQ(TavPathFileExists(copy.c_str()), 0);
    EXPECT_EQ(TavCopyFile(source.c_str(), copy.c_str(), 1), 1);
    EXPECT_EQ(TavPathFileExists(copy.c_str()), 1);
    EXPECT_EQ(ReadFile(To("d\xFF/copy\x80")), "content");
    EXPECT_EQ(TavCopyFile(source.c_str(), copy.c_str(), 1), 0);
    EXPECT_EQ(TavCopyFile(source.c_str(), copy.c_str(), 0), 1);
}

TEST_F(ObjectCopyTest, TavCopyFileRefusesBadArguments) {
    WriteFile(From("file"), "x");
    EXPECT_EQ(TavCopyFile(nullptr, Wide(To("a")).c_str(), 1), 0);
    EXPECT_EQ(TavCopyFile(Wide(From("file")).c_str(), nullptr, 1), 0);
    EXPECT_EQ(CopyPath("", To("a"), 1), 0);
    EXPECT_EQ(CopyPath(From("file"), "", 1), 0);
    EXPECT_EQ(CopyPath(From("missing"), To("a"), 1), 0);
    EXPECT_EQ(CopyPath(From("file"), To("missing/a"), 1), 0);
    EXPECT_EQ(CopyPath(From("file"), To(std::string(256, 'n')), 1), 0);
    EXPECT_EQ(CopyPath(From("file"), "/" + std::string(1023, 'n'), 1), 0);
    EXPECT_TRUE(fs::is_empty(To("")));
    EXPECT_EQ(CopyPath(From("file"), To(std::string(255, 'n')), 1), 1);
}

// ---- Arguments and results of the steps

TEST_F(ObjectCopyTest, PreflightNeedsEveryPointer) {
    WriteFile(From("file"), "x");
    FSRef source = Reference(From("file")), dest = Reference(To("")), setAside;
    CopyParams params;
    HFSUniStr255 name = Name(u"file");
    FSCatalogInfo info;
    Boolean isFolder, isReplacing;
    for (int missing = 0; missing < 8; ++missing) {
        OSErr result = FSCopyObjectPreflight(
            missing == 0 ? nullptr : &source, missing == 1 ? nullptr : &dest, kDupeActionStandard,
            missing == 2 ? nullptr : &params, missing == 3 ? nullptr : &name, missing == 4 ? nullptr : &info,
            missing == 5 ? nullptr : &isFolder, missing == 6 ? nullptr : &setAside,
            missing == 7 ? nullptr : &isReplacing);
        EXPECT_EQ(result, paramErr) << missing;
    }
}

TEST_F(ObjectCopyTest, StepsNeedEveryPointerButTheResults) {
    WriteFile(From("file"), "x");
    FSRef source = Reference(From("file")), dest = Reference(To(""));
    HFSUniStr255 name = Name(u"file");
    FSCatalogInfo info{};
    char buffer[1024];
    CopyParams params{buffer, sizeof buffer, false, true, false, kDupeActionStandard};
    FilterParams filter{};
    for (int missing = 0; missing < 6; ++missing) {
        const FSRef* from = missing == 0 ? nullptr : &source;
        const FSRef* to = missing == 1 ? nullptr : &dest;
        const FSCatalogInfo* facts = missing == 2 ? nullptr : &info;
        const HFSUniStr255* newName = missing == 3 ? nullptr : &name;
        CopyParams* shared = missing == 4 ? nullptr : &params;
        FilterParams* asked = missing == 5 ? nullptr : &filter;
        EXPECT_EQ(FSCopyFile(from, to, facts, newName, shared, asked, nullptr, nullptr), paramErr) << missing;
        EXPECT_EQ(FSCopyFolder(from, to, facts, newName, shared, asked, 0, nullptr, nullptr), paramErr)
            << missing;
        if (missing < 5) {
            EXPECT_EQ(CopyFile(from, facts, to, newName, shared, nullptr, nullptr), paramErr) << missing;
        }
    }
    EXPECT_TRUE(fs::is_empty(To("")));
}

TEST_F(ObjectCopyTest, ReferenceAndSpecOfTheCopyAreGivenForFilesAndFolders) {
    WriteFile(From("file"), "x");
    fs::create_directory(From("tree"));
    for (const char* object : {"file", "tree"}) {
        FSRef source = Reference(From(object)), dest = Reference(To("")), copy, fromSpec;
        HFSUniStr255 name = Name(Wide(std::string("new ") + object));
        FSSpec spec;
        ASSERT_EQ(FSCopyObject(&source, &dest, 0, 0, 0, &name, false, false, nullptr, nullptr, &copy, &spec),
                  noErr);
        EXPECT_EQ(PathOf(copy), To(std::string("new ") + object));
        ASSERT_EQ(FSpMakeFSRef(&spec, &fromSpec), noErr);
        EXPECT_EQ(PathOf(fromSpec), To(std::string("new ") + object));
    }
}

TEST_F(ObjectCopyTest, ReferenceIsLeftAloneWhenTheCopyFails) {
    WriteFile(From("file"), "new");
    fs::create_directory(From("tree"));
    WriteFile(To("file"), "old");
    fs::create_directory(To("tree"));
    for (const char* object : {"file", "tree"}) {
        FSRef copy = Reference(From("file"));
        EXPECT_EQ(Copy(object, kDupeActionStandard, u"", &copy), dupFNErr);
        EXPECT_EQ(PathOf(copy), From("file")) << object;
    }
}

// ---- Drop boxes: folders that others may write and search, but not read

// kept: what a drop box receives is made from the forks that the new file has, which are empty and not open.
TEST_F(ObjectCopyTest, FileIntoADropBoxFailsAndLeavesNothing) {
    WriteFile(From("file"), "content");
    WriteFile(From("empty"), "");
    ASSERT_EQ(chmod(To("").c_str(), 0733), 0);
    EXPECT_EQ(CopyPath(From("file"), To("file"), 1), 0);
    EXPECT_EQ(CopyPath(From("empty"), To("empty"), 1), 0);
    EXPECT_TRUE(fs::is_empty(To("")));
    EXPECT_EQ(ReadFile(From("file")), "content");
}

TEST_F(ObjectCopyTest, FailedReplaceInADropBoxBringsTheOldFileBack) {
    WriteFile(From("file"), "content");
    WriteFile(To("file"), "old");
    ASSERT_EQ(chmod(To("").c_str(), 0733), 0);
    EXPECT_EQ(CopyPath(From("file"), To("file"), 0), 0);
    EXPECT_EQ(ReadFile(To("file")), "old");
    EXPECT_FALSE(Exists(To(".DeleteMe")));
}

// kept: a file that fails is skipped, so the tree counts as copied; what it replaces is then deleted.
TEST_F(ObjectCopyTest, FolderIntoADropBoxIsCopiedWithoutFilesAndReplacesTheOldOne) {
    fs::create_directories(From("tree/sub"));
    WriteFile(From("tree/file"), "content");
    WriteFile(From("tree/sub/empty"), "");
    fs::create_directory(To("tree"));
    WriteFile(To("tree/old"), "old");
    ASSERT_EQ(chmod(To("").c_str(), 0733), 0);
    EXPECT_EQ(CopyPath(From("tree"), To("new"), 1), 1);
    EXPECT_EQ(CopyPath(From("tree"), To("tree"), 0), 1);
    for (const char* copy : {"new", "tree"}) {
        EXPECT_TRUE(fs::is_empty(To(std::string(copy) + "/sub"))) << copy;
        EXPECT_EQ(std::distance(fs::directory_iterator(To(copy)), {}), 1) << copy;
    }
    EXPECT_FALSE(Exists(To(".DeleteMe")));
    EXPECT_EQ(ReadFile(From("tree/file")), "content");
}
