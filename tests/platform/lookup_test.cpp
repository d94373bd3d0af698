#include "platform/linux/lookup.h"

#include "platform/linux/caseless.h"
#include "platform/linux/entries.h"
#include "platform/linux/reference_state.h"
#include "platform/references_support.h"
#include "support/files.h"
#include "support/no_descriptors.h"

#include <chrono>
#include <cstring>
#include <sched.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class Lookup : public testing::Test {
protected:
    TemporaryFolder folder;
};

OSStatus ResultOf(const std::string& path) {
    FSRef ref;
    return PathToRef(path, ref);
}

// Gives a folder a change time in the past, as if nobody had touched it lately. The change time itself cannot
// be set, so the test waits by the file system's own clock until it is old enough to be trusted.
void Settle(const std::string& path) {
    struct stat facts;
    timespec now;
    do {
        ASSERT_EQ(stat(path.c_str(), &facts), 0);
        clock_gettime(CLOCK_REALTIME, &now);
    } while ((now.tv_sec - facts.st_ctim.tv_sec) * 1000000000 + now.tv_nsec - facts.st_ctim.tv_nsec <
             60000000);
}

// ---- Paths as POSIX has them ----

TEST_F(Lookup, PathsThatAreNotAbsolute_DoNotExist) {
    EXPECT_EQ(ResultOf(""), fnfErr);
    EXPECT_EQ(ResultOf("tmp"), fnfErr);
    EXPECT_EQ(ResultOf("."), fnfErr);
}

TEST_F(Lookup, Failure_LeavesTheReference) {
    FSRef ref, before;
    std::memset(&ref, 0x5A, sizeof ref);
    before = ref;
    EXPECT_EQ(PathToRef(folder / "none", ref), fnfErr);
    EXPECT_EQ(std::memcmp(&ref, &before, sizeof ref), 0);
}

TEST_F(Lookup, SlashesAndDots_MeanWhatTheyMeanEverywhere) {
    fs::create_directories(folder / "a/b");
    WriteFile(folder / "a/f", "");
    struct {
        const char* path;
        OSStatus result;
        const char* leadsTo;
    } table[] = {
        {"a/", 0, "a"},        {"a//", 0, "a"},      {"//a///b//", 0, "a/b"}, {"a/.", 0, "a"},
        {"a/..", 0, ""},       {"a/b/..", 0, "a"},   {"a/b/../f", 0, "a/f"},  {"./a", 0, "a"},
        {"a/./b/.", 0, "a/b"}, {"a/f/", -1407, ""},  {"a/f/.", -1407, ""},    {"a/f/x", -1407, ""},
        {"a/f/..", -1407, ""}, {"none/..", -43, ""}, {"a/none/", -43, ""},
    };
    for (const auto& row : table) {
        FSRef ref;
        std::string path = folder.path().string() + "/" + row.path;
        ASSERT_EQ(PathToRef(path, ref), row.result) << row.path;
        if (row.result != noErr) continue;
        std::string expected = folder.path().string() + (*row.leadsTo ? "/" : "") + row.leadsTo;
        EXPECT_EQ(PathOf(ref), expected) << row.path;
    }
}

TEST_F(Lookup, AboveTheRoot_IsTheRoot) {
    EXPECT_EQ(PathOf(RefTo("/..")), "/");
    EXPECT_EQ(PathOf(RefTo("//")), "/");
    EXPECT_EQ(PathOf(RefTo("/../../tmp/..")), "/");
}

TEST_F(Lookup, IsDirectory_IsTold) {
    WriteFile(folder / "f", "");
    fs::create_directory(folder / "d");
    fs::create_symlink("f", folder / "toFile");
    fs::create_symlink("d", folder / "toFolder");
    struct {
        const char* name;
        Boolean expected;
    } table[] = {{"f", 0},         {"d", 1},    {"toFile", 0}, {"toFolder", 1},
                 {"toFolder/", 1}, {"d/..", 1}, {"F", 0},      {"D", 1}};
    for (const auto& row : table) {
        FSRef ref;
        Boolean isDirectory = 7;
        std::string path = folder / row.name;
        ASSERT_EQ(PathToRef(path, ref, &isDirectory), noErr) << row.name;
        EXPECT_EQ(isDirectory, row.expected) << row.name;
        isDirectory = 7;
        EXPECT_EQ(FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), nullptr, &isDirectory),
                  noErr);
        EXPECT_EQ(isDirectory, row.expected) << row.name << " without a reference";
    }
}

TEST_F(Lookup, OverlongNamesAndPaths_AreAnsweredWithACode) {
    std::string path = folder.path();
    std::string name(256, 'a');
    EXPECT_EQ(ResultOf(path + "/" + name), bdNamErr);
    EXPECT_EQ(ResultOf(path + "/" + name + "/b"), bdNamErr);
    for (int i = 0; i < 5000; ++i) path += "/.";
    EXPECT_EQ(ResultOf(path), noErr);
    EXPECT_EQ(ResultOf(path + "/none"), fnfErr);
}

TEST_F(Lookup, FolderThatMayNotBeSearched_IsDenied) {
    if (geteuid() == 0) GTEST_SKIP() << "the superuser may search every folder";
    fs::create_directory(folder / "closed");
    WriteFile(folder / "closed/f", "");
    fs::permissions(folder / "closed", fs::perms::none);
    EXPECT_EQ(ResultOf(folder / "closed/f"), afpAccessDenied);
    fs::permissions(folder / "closed", fs::perms::owner_all);
}

// ---- Links ----

TEST_F(Lookup, LinksOnTheWay_AreFollowed) {
    fs::create_directories(folder / "real/sub");
    WriteFile(folder / "real/sub/f", "");
    fs::create_directory_symlink("real", folder / "relative");
    fs::create_directory_symlink(folder / "real/sub", folder / "absolute");
    fs::create_directory_symlink("../relative/sub", folder / "real/twice");
    EXPECT_EQ(PathOf(RefTo(folder / "relative/sub/f")), folder / "real/sub/f");
    EXPECT_EQ(PathOf(RefTo(folder / "absolute/f")), folder / "real/sub/f");
    EXPECT_EQ(PathOf(RefTo(folder / "relative/twice/f")), folder / "real/sub/f");
    EXPECT_EQ(PathOf(RefTo(folder / "absolute/../sub/f")), folder / "real/sub/f")
        << "up is the target's parent";
    EXPECT_EQ(PathOf(RefTo(folder / "relative/")), folder / "real") << "a slash follows the link";
    EXPECT_EQ(PathOf(RefTo(folder / "relative")), folder / "relative");
}

TEST_F(Lookup, LinkOnTheWayChanged_IsFollowedAfresh) {
    fs::create_directories(folder / "one");
    fs::create_directories(folder / "two");
    WriteFile(folder / "one/f", "");
    WriteFile(folder / "two/f", "");
    for (int round = 0; round < 10; ++round) {
        const char* target = round % 2 ? "two" : "one";
        fs::remove(folder / "link");
        fs::create_directory_symlink(target, folder / "link");
        ASSERT_EQ(PathOf(RefTo(folder / "link/f")), folder / target + "/f");
    }
}

TEST_F(Lookup, RingOfLinks_IsAnError) {
    fs::create_symlink("b", folder / "a");
    fs::create_symlink("a", folder / "b");
    EXPECT_EQ(ResultOf(folder / "a/x"), ioErr);
    EXPECT_EQ(ResultOf(folder / "a"), ioErr);
}

TEST_F(Lookup, DanglingLink_ExistsOnlyWhenItIsNotFollowed) {
    fs::create_symlink("nowhere", folder / "link");
    std::string path = folder / "link";
    auto bytes = reinterpret_cast<const uint8_t*>(path.c_str());
    FSRef ref;
    Boolean isDirectory = 7;
    EXPECT_EQ(ResultOf(path), fnfErr);
    EXPECT_EQ(FSPathMakeRef(bytes, nullptr, nullptr), fnfErr);
    ASSERT_EQ(FSPathMakeRefWithOptions(bytes, kFSPathMakeRefDoNotFollowLeafSymlink, &ref, &isDirectory),
              noErr);
    EXPECT_EQ(isDirectory, 0);
    EXPECT_EQ(PathOf(ref), path);
    Place place;
    EXPECT_EQ(Locate(ref, place), noErr);
    EXPECT_EQ(LocateTarget(ref, place), fnfErr);
}

TEST_F(Lookup, DanglingLink_IsNotReplacedByANameInOtherCase) {
    fs::create_symlink("nowhere", folder / "link");
    WriteFile(folder / "LINK", "");
    EXPECT_EQ(ResultOf(folder / "link"), fnfErr);
    WriteFile(folder / "Nowhere", "");
    EXPECT_EQ(ResultOf(folder / "link"), fnfErr) << "a link's text is exact";
}

// ---- Letter case ----

TEST_F(Lookup, OtherLetterCase_FindsTheOneName) {
    fs::create_directories(folder / "Some/Folder");
    WriteFile(folder / "Some/Folder/Straße.TXT", "");
    EXPECT_EQ(PathOf(RefTo(folder / "sOME/FOLDER/strasse.txt")), folder / "Some/Folder/Straße.TXT");
    EXPECT_EQ(PathOf(RefTo(folder / "some/./folder/")), folder / "Some/Folder");
    EXPECT_EQ(ResultOf(folder / "some/folder/strasse"), fnfErr);
    EXPECT_EQ(ResultOf(folder / "some/folder/STRASSE.txt/"), errFSNotAFolder);
}

TEST_F(Lookup, OtherCanonicalForm_FindsTheOneName) {
    WriteFile(folder / "e\xCC\x81t\xC3\xA9", "");
    EXPECT_EQ(PathOf(RefTo(folder / "\xC3\x89T\xC3\x89")), folder / "e\xCC\x81t\xC3\xA9");
}

TEST_F(Lookup, ExactName_HasPrecedence) {
    WriteFile(folder / "name", "");
    WriteFile(folder / "NAME", "");
    EXPECT_EQ(PathOf(RefTo(folder / "name")), folder / "name");
    EXPECT_EQ(PathOf(RefTo(folder / "NAME")), folder / "NAME");
}

TEST_F(Lookup, SeveralNames_NoneOfThemExact_DoNotExist) {
    WriteFile(folder / "name", "");
    WriteFile(folder / "NAME", "");
    EXPECT_EQ(ResultOf(folder / "Name"), fnfErr);
    fs::remove(folder / "NAME");
    EXPECT_EQ(PathOf(RefTo(folder / "Name")), folder / "name");
}

TEST_F(Lookup, NamesThatAreNotText_FoldByteByByte) {
    WriteFile(folder / "A\xFF", "");
    EXPECT_EQ(PathOf(RefTo(folder / "a\xFF")), folder / "A\xFF");
    EXPECT_EQ(ResultOf(folder / "a\xFE"), fnfErr);
}

TEST_F(Lookup, FoldedNames_AreEqualForWhatReadersTakeForTheSame) {
    struct {
        const char *a, *b;
        bool equal;
    } table[] = {
        {"README", "readme", true},
        {"\xC3\x85", "A\xCC\x8A", true},
        {"\xE2\x84\xAB", "\xC3\xA5", true},
        {"\xE2\x84\xAA", "k", true},
        {"\xCE\xA3", "\xCF\x82", true},
        {"\xEF\xAC\x80", "ff", true},
        {"\xF0\x90\x90\x80", "\xF0\x90\x90\xA8", true},
        {"I", "\xC4\xB1", false},
        {"a", "b", false},
        {"a ", "a", false},
    };
    for (const auto& row : table) EXPECT_EQ(FoldName(row.a) == FoldName(row.b), row.equal) << row.a;
}

TEST_F(Lookup, NoDescriptorLeft_OtherLetterCaseIsStillFound) {
    WriteFile(folder / "Name", "");
    for (int i = 0; i < 8; ++i) {
        fs::create_directories(folder / ("d" + std::to_string(i) + "/e"));
        ASSERT_EQ(Find(RefTo(folder / ("d" + std::to_string(i) + "/e"))), noErr);
    }
    const NoDescriptors none;
    ASSERT_TRUE(none.isSet());
    EXPECT_EQ(ResultOf(folder / "NAME"), noErr);
}

TEST_F(Lookup, NoDescriptorLeftAtAll_DoesNotMakeANameSeemMissing) {
    WriteFile(folder / "Name", "");
    Place held;
    ASSERT_EQ(Locate(RefTo(folder / "Name"), held), noErr);
    CloseIdleDescriptors();
    const NoDescriptors none;
    ASSERT_TRUE(none.isSet());
    EXPECT_EQ(ResultOf(folder / "NAME"), tmfoErr);
}

// ---- What is remembered of folders ----

TEST_F(Lookup, SecondMiss_DoesNotReadTheFolderAgain) {
    for (int i = 0; i < 50; ++i) WriteFile(folder / ("f" + std::to_string(i)), "");
    Settle(folder.path());
    EXPECT_EQ(ResultOf(folder / "none"), fnfErr);
    uint64_t bytes = StateLock()->caseless.bytes();
    EXPECT_GT(bytes, 50 * sizeof(uint32_t));
    FolderID id;
    FolderHandle handle;
    ASSERT_EQ(OpenContainer(RefTo(folder.path()), id, handle), noErr);
    struct statx facts;
    ASSERT_EQ(statx(handle.descriptor(), "", AT_EMPTY_PATH, kFactsMask, &facts), 0);
    std::string actual;
    EXPECT_EQ(
        StateLock()->caseless.Find(id, {facts.stx_ctime.tv_sec, facts.stx_ctime.tv_nsec}, u"other", actual),
        CaselessNames::Answer::kMissing);
}

TEST_F(Lookup, ChangedFolder_IsReadAgain) {
    WriteFile(folder / "f", "");
    Settle(folder.path());
    EXPECT_EQ(ResultOf(folder / "OTHER"), fnfErr);
    WriteFile(folder / "other", "");
    EXPECT_EQ(PathOf(RefTo(folder / "OTHER")), folder / "other");
    Settle(folder.path());
    EXPECT_EQ(PathOf(RefTo(folder / "OTHER")), folder / "other");
    fs::rename(folder / "other", folder / "Other");
    EXPECT_EQ(PathOf(RefTo(folder / "OTHER")), folder / "Other");
    WriteFile(folder / "OTHER!", "");
    fs::rename(folder / "OTHER!", folder / "oTHER");
    EXPECT_EQ(ResultOf(folder / "OTHER"), fnfErr);
}

TEST_F(Lookup, FolderChangedJustNow_IsNotTrusted) {
    for (int round = 0; round < 300; ++round) { // many changes within one tick of the clock
        std::string number = std::to_string(round);
        std::string other = folder / ("N" + number);
        ASSERT_EQ(ResultOf(other), fnfErr);
        WriteFile(folder / ("n" + number), "");
        ASSERT_EQ(ResultOf(other), noErr) << round;
    }
}

// A server whose clock runs behind gives its latest changes old times.
TEST_F(Lookup, FolderOfAForeignClock_IsNotTrustedForTheAgeOfItsTime) {
    struct statx facts;
    ASSERT_EQ(FactsAt(AT_FDCWD, "/", 0, facts), 0);
    for (const bool own : {false, true}) {
        ForgetReferences();
        StateLock()->devices.Remember(DeviceOf(facts), MountOf(facts), UINT64_MAX, {true, true, own});
        EXPECT_EQ(ResultOf("/no such name"), fnfErr);
        EXPECT_EQ(StateLock()->caseless.bytes() > 0, own);
    }
}

TEST(CaselessNames, ForeignTimes_RestOnceSeenForLongerThanATick) {
    constexpr uint64_t kSecond = 1'000'000'000;
    const ChangeTime first = {1000, 0}, second = {1001, 0};
    CaselessNames names;
    EXPECT_FALSE(names.HasRested(10, first, 5 * kSecond));
    EXPECT_FALSE(names.HasRested(10, first, 7 * kSecond));
    EXPECT_TRUE(names.HasRested(10, first, 8 * kSecond));
    EXPECT_FALSE(names.HasRested(10, second, 8 * kSecond));
    EXPECT_FALSE(names.HasRested(10, first, 20 * kSecond)) << "it was another in between";
    EXPECT_FALSE(names.HasRested(11, first, 30 * kSecond)) << "another folder";
}

TEST(CaselessNames, Memory_StaysBelowTheBound) {
    CaselessNames names;
    for (FolderID id = 10; id < 40; ++id) {
        names.Remember(id, {id, 0}, std::vector<uint32_t>(100000, id));
        EXPECT_LE(names.bytes(), CaselessNames::kCapacity);
    }
    std::string actual;
    EXPECT_EQ(names.Find(39, {39, 0}, u"x", actual), CaselessNames::Answer::kMissing);
    EXPECT_EQ(names.Find(10, {10, 0}, u"x", actual), CaselessNames::Answer::kUnknown);
    size_t before = names.bytes();
    names.Remember(50, {1, 0}, std::vector<uint32_t>(3000000));
    EXPECT_EQ(names.bytes(), before) << "a folder that is too large alone is not remembered";
    names.Clear();
    EXPECT_EQ(names.bytes(), 0u);
}

TEST(CaselessNames, Answers_AreOfTheSameChangeTimeOnly) {
    CaselessNames names;
    std::u16string name = u"name";
    names.Remember(7, {100, 5}, {HashFolded(name.data(), name.size())});
    std::string actual;
    EXPECT_EQ(names.Find(7, {100, 5}, name, actual), CaselessNames::Answer::kUnknown);
    names.RememberAnswer(7, name, "Name");
    ASSERT_EQ(names.Find(7, {100, 5}, name, actual), CaselessNames::Answer::kFound);
    EXPECT_EQ(actual, "Name");
    EXPECT_EQ(names.Find(7, {100, 6}, name, actual), CaselessNames::Answer::kUnknown);
    EXPECT_EQ(names.bytes(), 0u);
}

// ---- Another root

// Does `before`, then makes the folder the root, for this thread alone, and does `after` in it.
template <typename Before, typename After>
void AcrossAChangeOfRoot(const std::string& root, Before before, After after) {
    std::thread([&] {
        if (unshare(CLONE_FS) != 0) GTEST_SKIP() << "a root of the thread's own is not allowed here";
        before();
        if (chroot(root.c_str()) != 0) GTEST_SKIP() << "changing the root needs a privilege";
        after();
    }).join();
}

// The path is walked in the new root, its folder remembered from the old one.
TEST_F(Lookup, RightAfterTheRootChanged_PathsLeadToTheNewRootsObjects) {
    const std::string file = folder / "x/file", root = folder / "root", inside = root + file;
    fs::create_directory(folder / "x");
    fs::create_directories(fs::path(inside).parent_path());
    WriteFile(file, "old");
    WriteFile(inside, "new");
    struct stat facts;
    ASSERT_EQ(stat(inside.c_str(), &facts), 0);
    AcrossAChangeOfRoot(
        root, [&] { RefTo(file); },
        [&] {
            BelieveFolderOf(file);
            const FSRef after = RefTo(file);
            Place place;
            ASSERT_EQ(Locate(after, place), noErr);
            EXPECT_EQ(place.facts.stx_ino, facts.st_ino);
        });
}

TEST_F(Lookup, RightAfterTheRootChanged_WhatStandsAtItsTopIsFound) {
    WriteFile(folder / "at the top", "");
    AcrossAChangeOfRoot(
        folder.path(), [&] { Find(RefTo(folder.path())); },
        [] {
            MountViewHolds(MonotonicNow());
            EXPECT_EQ(Find(RefTo("/at the top")), noErr);
        });
}

} // namespace
