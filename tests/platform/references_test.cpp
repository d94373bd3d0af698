#include "platform/linux/references.h"

#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/linux/folders.h"
#include "platform/linux/names.h"
#include "platform/linux/reference_record.h"
#include "platform/linux/reference_state.h"
#include "platform/objects.h"
#include "platform/references_support.h"
#include "support/files.h"
#include "support/no_descriptors.h"

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <random>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class References : public testing::Test {
protected:
    TemporaryFolder folder;
};

// ---- Making, and back to a path ----

TEST_F(References, Path_ComesBackAsStored) {
    fs::create_directories(folder / "a/b");
    WriteFile(folder / "a/b/file", "x");
    EXPECT_EQ(PathOf(RefTo(folder / "a/b/file")), folder / "a/b/file");
    EXPECT_EQ(PathOf(RefTo(folder / "a/b")), folder / "a/b");
    EXPECT_EQ(PathOf(RefTo(folder / "a//b/./../b//file")), folder / "a/b/file");
    EXPECT_EQ(PathOf(RefTo("/")), "/");
}

TEST_F(References, MakePath_BufferOneTooSmall_IsABadName) {
    WriteFile(folder / "f", "");
    std::string path = folder / "f";
    FSRef ref = RefTo(path);
    uint8_t buffer[4096];
    EXPECT_EQ(FSRefMakePath(&ref, buffer, static_cast<uint32_t>(path.size() + 1)), noErr);
    EXPECT_EQ(FSRefMakePath(&ref, buffer, static_cast<uint32_t>(path.size())), bdNamErr);
    EXPECT_EQ(FSRefMakePath(&ref, buffer, 0), bdNamErr);
    FSRef root = RefTo("/");
    EXPECT_EQ(FSRefMakePath(&root, buffer, 2), noErr);
    EXPECT_EQ(FSRefMakePath(&root, buffer, 1), bdNamErr);
}

TEST_F(References, NullArguments_AreRefused) {
    FSRef ref = RefTo("/");
    uint8_t buffer[64];
    UniChar name[] = {'a'};
    EXPECT_EQ(FSPathMakeRef(nullptr, &ref, nullptr), paramErr);
    EXPECT_EQ(FSRefMakePath(nullptr, buffer, 64), paramErr);
    EXPECT_EQ(FSRefMakePath(&ref, nullptr, 64), paramErr);
    EXPECT_EQ(FSMakeFSRefUnicode(nullptr, 1, name, 0, &ref), paramErr);
    EXPECT_EQ(FSMakeFSRefUnicode(&ref, 1, nullptr, 0, &ref), paramErr);
    EXPECT_EQ(FSMakeFSRefUnicode(&ref, 1, name, 0, nullptr), paramErr);
    EXPECT_EQ(FSCompareFSRefs(nullptr, &ref), paramErr);
    EXPECT_EQ(FSCompareFSRefs(&ref, nullptr), paramErr);
}

TEST_F(References, NamesThatAreNotText_ComeBack) {
    std::string path = folder / "caf\xE9\xFF";
    WriteFile(path, "");
    EXPECT_EQ(PathOf(RefTo(path)), path);
    FSRef ref;
    ASSERT_EQ(ChildRef(RefTo(folder.path()), u"caf\xDCE9\xDCFF", ref), noErr);
    EXPECT_EQ(PathOf(ref), path);
}

TEST_F(References, LongNames_AreFoundAlsoWhenForgotten) {
    std::string name(255, 'n');
    fs::create_directories(folder / name);
    WriteFile(folder / (name + "/" + name), "");
    FSRef inner = RefTo(folder / (name + "/" + name));
    FSRef outer = RefTo(folder / name);
    StateLock()->longNames.Clear();
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(inner), noErr);
    StateLock()->longNames.Clear();
    EXPECT_EQ(PathOf(inner), folder / (name + "/" + name));
    StateLock()->longNames.Clear();
    EXPECT_EQ(PathOf(outer), folder / name);
}

TEST_F(References, ManyLongNamesAboveOneObject_AreRememberedTogether) {
    for (int i = 0; i < 40; ++i) {
        std::string path = std::to_string(i);
        for (int depth = 0; depth < 12; ++depth) path += "/" + std::string(80, 'd');
        fs::create_directories(folder / path);
        EXPECT_EQ(PathOf(RefTo(folder / path)), folder / path);
    }
}

TEST_F(References, LongNamesOfOneFile_AreToldApart) {
    std::string first(100, 'a'), second(100, 'b');
    WriteFile(folder / first, "");
    fs::create_hard_link(folder / first, folder / second);
    FSRef a = RefTo(folder / first), b = RefTo(folder / second);
    StateLock()->longNames.Clear();
    EXPECT_EQ(PathOf(a), folder / first);
    EXPECT_EQ(PathOf(b), folder / second);
}

TEST_F(References, UnicodeName_IsExact) {
    WriteFile(folder / "Name", "");
    FSRef parent = RefTo(folder.path());
    FSRef ref, before;
    EXPECT_EQ(ChildRef(parent, u"Name", ref), noErr);
    before = ref;
    EXPECT_EQ(ChildRef(parent, u"name", ref), fnfErr);
    EXPECT_EQ(std::memcmp(&ref, &before, sizeof ref), 0);
    EXPECT_EQ(ChildRef(parent, u"", ref), bdNamErr);
    EXPECT_EQ(ChildRef(parent, std::u16string(256, u'a'), ref), bdNamErr);
    EXPECT_EQ(ChildRef(parent, u"a:b", ref), bdNamErr);
    EXPECT_EQ(ChildRef(parent, u"..", ref), bdNamErr);
    EXPECT_EQ(ChildRef(ref, u"x", ref), errFSNotAFolder);
}

TEST_F(References, SlashInAUnicodeName_IsAColonOnTheHost) {
    WriteFile(folder / "x:y", "");
    FSRef ref;
    ASSERT_EQ(ChildRef(RefTo(folder.path()), u"x/y", ref), noErr);
    EXPECT_EQ(PathOf(ref), folder / "x:y");
}

TEST_F(References, InventedBytes_LeadNowhere) {
    unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    WriteFile(folder / "f", "");
    FSRef real = RefTo(folder / "f"), other = RefTo("/");
    uint8_t path[256];
    for (int round = 0; round < 3000; ++round) {
        FSRef ref = real;
        auto bytes = reinterpret_cast<uint8_t*>(&ref);
        if (round % 2 == 0)
            for (size_t i = 0; i < sizeof ref; ++i) bytes[i] = static_cast<uint8_t>(random());
        else
            bytes[random() % sizeof ref] ^= static_cast<uint8_t>(1 + random() % 255);
        ASSERT_EQ(Find(ref), fnfErr);
        ASSERT_EQ(FSRefMakePath(&ref, path, sizeof path), fnfErr);
        ASSERT_EQ(FSCompareFSRefs(&ref, &other), fnfErr);
        ASSERT_EQ(ChildRef(ref, u"f", other), fnfErr);
    }
    FSRef zero = {};
    EXPECT_EQ(Find(zero), fnfErr);
}

// By the check word alone, whatever the disk holds.
TEST(ReferenceRecords, WithAnyByteChanged_AreNotTaken) {
    const Identity identity = {.inode = 0x0123456789ABCD59,
                               .birth = 0x18BCFE5680F6F900,
                               .device = 0x100003,
                               .type = S_IFREG,
                               .byNumber = true};
    ReferenceRecord record;
    for (const char* name : {"f", "IMG_5012 Vacation Rome.jpeg", "a name of thirty-six bytes, all here"}) {
        const FSRef real = Pack(identity, 77, kNoFolder, name, false);
        ASSERT_TRUE(Unpack(real, record));
        for (size_t at = 0; at < sizeof real; ++at) {
            for (int change = 1; change < 256; ++change) {
                FSRef ref = real;
                reinterpret_cast<uint8_t*>(&ref)[at] ^= static_cast<uint8_t>(change);
                ASSERT_FALSE(Unpack(ref, record)) << name << ", byte " << at << ", change " << change;
            }
        }
        FSRef swapped = real;
        auto* const words = reinterpret_cast<uint64_t*>(&swapped);
        std::swap(words[2], words[3]); // the inode and the birth time
        EXPECT_FALSE(Unpack(swapped, record)) << name;
    }
}

TEST(HashName, TellsNamesOfEveryLengthApart) {
    std::set<uint64_t> hashes;
    size_t names = 0;
    for (size_t length = 0; length <= 40; ++length) {
        std::string name(length, 'a');
        hashes.insert(HashName(name.c_str(), length));
        ++names;
        for (char& byte : name) {
            byte = '\xFF';
            const std::string elsewhere = "x" + name;
            EXPECT_EQ(HashName(name.c_str(), length), HashName(elsewhere.c_str() + 1, length));
            hashes.insert(HashName(name.c_str(), length));
            ++names;
            byte = 'a';
        }
    }
    EXPECT_EQ(hashes.size(), names);
}

// ---- Following, and not following ----

// A path is believed for a moment, but not where nothing tells afterwards that it led elsewhere: a file with two names is
// found under either of them.
TEST_F(References, FolderJustReplaced_ItsOwnNameOfTheFileIsMeant) {
    for (const char* name : {"shown", "other"}) fs::create_directory(folder / name);
    WriteFile(folder / "shown/f", "");
    fs::create_hard_link(folder / "shown/f", folder / "other/f");
    RefTo(folder / "shown/f");
    fs::rename(folder / "shown", folder / "away");
    fs::rename(folder / "other", folder / "shown");
    BelieveFolderOf(folder / "shown/f");
    const FSRef ref = RefTo(folder / "shown/f");
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_TRUE(fs::exists(folder / "away/f"));
    EXPECT_FALSE(fs::exists(folder / "shown/f"));
}

TEST_F(References, FolderJustReplaced_ItsOwnNameOfTheLinkIsMeant) {
    for (const char* name : {"shown", "other"}) fs::create_directory(folder / name);
    fs::create_symlink("nowhere", folder / "shown/l");
    ASSERT_EQ(link((folder / "shown/l").c_str(), (folder / "other/l").c_str()), 0);
    auto refTo = [](const std::string& path, FSRef& ref) {
        return FSPathMakeRefWithOptions(reinterpret_cast<const uint8_t*>(path.c_str()),
                                        kFSPathMakeRefDoNotFollowLeafSymlink, &ref, nullptr);
    };
    WriteFile(folder / "shown/f", "");
    RefTo(folder / "shown/f");
    fs::rename(folder / "shown", folder / "away");
    fs::rename(folder / "other", folder / "shown");
    BelieveFolderOf(folder / "shown/f");
    FSRef ref;
    ASSERT_EQ(refTo(folder / "shown/l", ref), noErr);
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_TRUE(fs::is_symlink(folder / "away/l"));
    EXPECT_FALSE(fs::is_symlink(folder / "shown/l"));
}

// What was set aside under another name is not found under the old one.
TEST_F(References, FolderJustPutAway_ItsFilesAreMissing) {
    fs::create_directory(folder / "shown");
    WriteFile(folder / "shown/f", "");
    FSRef ref;
    RefTo(folder / "shown/f");
    fs::rename(folder / "shown", folder / "away");
    BelieveFolderOf(folder / "shown/f");
    EXPECT_EQ(PathToRef(folder / "shown/f", ref), fnfErr);
    fs::rename(folder / "away", folder / "shown");
    RefTo(folder / "shown/f");
    fs::rename(folder / "shown", folder / "away");
    fs::create_directory(folder / "shown");
    BelieveFolderOf(folder / "shown/f");
    EXPECT_EQ(PathToRef(folder / "shown/f", ref), fnfErr);
}

// Looking a folder up for the first time takes no room on the stack for each name of its path.
TEST_F(References, DeepFolder_IsFoundOnASmallStack) {
    constexpr size_t kSmallStack = 1792 * 1024; // 1 MiB of it is for the tests' own variables of threads
    std::string path = folder.path();
    while (path.size() < 1900) path += "/a";
    fs::create_directories(path);
    path += "/f";
    WriteFile(path, "");
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStack), 0);
    auto look = [](void* sought) -> void* {
        FSRef ref;
        return PathToRef(*static_cast<std::string*>(sought), ref) == noErr ? sought : nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, look, &path), 0);
    void* found = nullptr;
    pthread_join(thread, &found);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(found, &path);
}

// Where the name is the identity, nothing else tells.
TEST_F(References, VolumeThatKnowsNamesOnly_PathThroughALinkIsWalkedEachTime) {
    for (const char* name : {"first", "second"}) {
        fs::create_directory(folder / name);
        WriteFile(folder / (name + std::string("/f")), name);
    }
    struct stat status;
    struct statx facts;
    ASSERT_EQ(FactsAt(AT_FDCWD, (folder / "first").c_str(), 0, facts), 0);
    ASSERT_EQ(stat((folder / "second/f").c_str(), &status), 0);
    StateLock()->devices.Remember(DeviceOf(facts), MountOf(facts), MonotonicNow(), {false, true, false});
    fs::create_directory_symlink("first", folder / "link");
    RefTo(folder / "link/f");
    fs::create_directory_symlink("second", folder / "next");
    fs::rename(folder / "next", folder / "link");
    BelieveFolderOf(folder / "link/f");
    Place place;
    EXPECT_EQ(Locate(RefTo(folder / "link/f"), place), noErr);
    EXPECT_EQ(place.facts.stx_ino, status.st_ino);
    OutlastBelief();
    EXPECT_EQ(Locate(RefTo(folder / "link/f"), place), noErr);
    EXPECT_EQ(place.facts.stx_ino, status.st_ino);
    StateLock()->devices = {};
    ForgetReferences();
}

TEST_F(References, VolumeThatKnowsNamesOnly_DeletedFileIsNotTheOneBehindTheLinkNow) {
    for (const char* name : {"first", "second"}) {
        fs::create_directory(folder / name);
        WriteFile(folder / (name + std::string("/f")), name);
    }
    struct statx facts;
    ASSERT_EQ(FactsAt(AT_FDCWD, (folder / "first").c_str(), 0, facts), 0);
    StateLock()->devices.Remember(DeviceOf(facts), MountOf(facts), MonotonicNow(), {false, true, false});
    fs::create_directory_symlink("first", folder / "link");
    const FSRef ref = RefTo(folder / "link/f");
    fs::remove(folder / "first/f");
    fs::create_directory_symlink("second", folder / "next");
    fs::rename(folder / "next", folder / "link");
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
    EXPECT_TRUE(fs::exists(folder / "second/f"));
    StateLock()->devices = {};
    ForgetReferences();
}

TEST_F(References, FileWithOneLink_RenamedByOthers_IsFollowed) {
    WriteFile(folder / "old", "");
    FSRef ref = RefTo(folder / "old");
    fs::rename(folder / "old", folder / "new");
    EXPECT_EQ(PathOf(ref), folder / "new");
    fs::rename(folder / "new", folder / "newer");
    EXPECT_EQ(PathOf(ref), folder / "newer");
}

TEST_F(References, FileWithTwoLinks_RenamedByOthers_IsNotFollowed) {
    WriteFile(folder / "old", "");
    fs::create_hard_link(folder / "old", folder / "link");
    FSRef ref = RefTo(folder / "old");
    fs::rename(folder / "old", folder / "new");
    EXPECT_EQ(Find(ref), fnfErr);
}

TEST_F(References, FolderRenamedByOthers_IsFollowedWithWhatIsInIt) {
    fs::create_directories(folder / "old/in");
    WriteFile(folder / "old/in/f", "");
    FSRef outer = RefTo(folder / "old"), inner = RefTo(folder / "old/in"), file = RefTo(folder / "old/in/f");
    fs::rename(folder / "old", folder / "new");
    StateLock()->descriptors.Clear();
    EXPECT_EQ(PathOf(file), folder / "new/in/f");
    EXPECT_EQ(PathOf(inner), folder / "new/in");
    EXPECT_EQ(PathOf(outer), folder / "new");
}

TEST_F(References, FolderMovedElsewhereByOthers_KeepsItsPathWhileItIsOpen) {
    fs::create_directories(folder / "old/in");
    fs::create_directories(folder / "deep/er");
    WriteFile(folder / "old/in/f", "");
    FSRef file = RefTo(folder / "old/in/f");
    ASSERT_EQ(Find(file), noErr);
    fs::rename(folder / "old/in", folder / "deep/er/else");
    EXPECT_EQ(PathOf(file), folder / "deep/er/else/f");
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(file), noErr) << "the way up was noted";
}

TEST_F(References, FileMovedElsewhereByOthers_IsGone) {
    fs::create_directories(folder / "sub");
    WriteFile(folder / "f", "");
    FSRef ref = RefTo(folder / "f");
    fs::rename(folder / "f", folder / "sub/f");
    EXPECT_EQ(Find(ref), fnfErr);
    EXPECT_EQ(PathOf(ref), "error -43");
}

TEST_F(References, AnotherFileInItsPlace_IsNotTheObject) {
    WriteFile(folder / "f", "mine");
    FSRef ref = RefTo(folder / "f");
    fs::rename(folder / "f", folder / "../tavport-elsewhere");
    WriteFile(folder / "f", "other");
    EXPECT_EQ(Find(ref), fnfErr);
    fs::remove(folder / "../tavport-elsewhere");
}

TEST_F(References, DeletedAndMadeAnew_IsAnotherObject) {
    for (int round = 0; round < 50; ++round) { // numbers are given again at once
        WriteFile(folder / "f", "");
        FSRef ref = RefTo(folder / "f");
        fs::remove(folder / "f");
        WriteFile(folder / "f", "");
        ASSERT_EQ(Find(ref), fnfErr);
        fs::create_directory(folder / "d");
        FSRef sub = RefTo(folder / "d");
        fs::remove(folder / "d");
        fs::create_directory(folder / "d");
        ASSERT_EQ(Find(sub), fnfErr);
        fs::remove(folder / "d");
    }
}

TEST_F(References, FolderReplacedByALink_IsNotEntered) {
    fs::create_directories(folder / "dir/in");
    fs::create_directories(folder / "victim/in");
    WriteFile(folder / "dir/in/f", "");
    WriteFile(folder / "victim/in/f", "");
    FSRef file = RefTo(folder / "dir/in/f"), sub = RefTo(folder / "dir/in"), dir = RefTo(folder / "dir");
    fs::remove_all(folder / "dir");
    fs::create_directory_symlink(folder / "victim", folder / "dir");
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(file), fnfErr);
    EXPECT_EQ(Find(sub), fnfErr);
    EXPECT_EQ(Find(dir), fnfErr);
}

TEST_F(References, FolderReplacedByALinkToItself_IsNotReachedThroughTheLink) {
    fs::create_directories(folder / "dir/in");
    fs::create_directories(folder / "aside");
    FSRef sub = RefTo(folder / "dir/in");
    fs::rename(folder / "dir", folder / "aside/dir");
    fs::create_directory_symlink("aside/dir", folder / "dir");
    StateLock()->descriptors.Clear();
    StateLock()->paths.Clear();
    EXPECT_EQ(Find(sub), fnfErr);
}

TEST_F(References, FolderSwappedByOthers_FreshReferenceWorks) {
    for (int round = 0; round < 20; ++round) {
        fs::create_directory(folder / "d");
        WriteFile(folder / "d/f", "");
        FSRef ref = RefTo(folder / "d/f");
        ASSERT_EQ(Find(ref), noErr);
        fs::rename(folder / "d", folder / ("gone" + std::to_string(round)));
    }
}

TEST_F(References, FolderMovedByOthersIntoAnother_FreshReferenceOutlivesTheCache) {
    fs::create_directories(folder / "x/d");
    fs::create_directories(folder / "y");
    WriteFile(folder / "x/d/f", "");
    ASSERT_EQ(Find(RefTo(folder / "x/d/f")), noErr);
    fs::rename(folder / "x/d", folder / "y/d");
    FSRef moved = RefTo(folder / "y/d/f");
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(moved), noErr);
    fs::rename(folder / "y/d", folder / "x/d");
    FSRef back = RefTo(folder / "x/d/f");
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(back), noErr);
}

// ---- What the library itself does ----

Place PlaceOf(const FSRef& ref) {
    Place place;
    EXPECT_EQ(Locate(ref, place), noErr);
    return place;
}

// Renames as the library does it, and tells.
void Move(const FSRef& ref, const FSRef& toFolder, const std::string& name) {
    Place from = PlaceOf(ref);
    FolderID id;
    FolderHandle to;
    ASSERT_EQ(OpenContainer(toFolder, id, to), noErr);
    ASSERT_EQ(renameat(from.folder.descriptor(), from.name, to.descriptor(), name.c_str()), 0);
    ObjectMoved(from, id, name.c_str());
}

TEST_F(References, MovesByTheLibrary_AreFollowedByEarlierReferences) {
    fs::create_directories(folder / "a");
    fs::create_directories(folder / "b");
    WriteFile(folder / "a/f", "");
    fs::create_hard_link(folder / "a/f", folder / "a/second");
    FSRef a = RefTo(folder / "a"), b = RefTo(folder / "b"), ref = RefTo(folder / "a/f");
    FSRef second = RefTo(folder / "a/second");
    Move(ref, b, "g");
    EXPECT_EQ(PathOf(ref), folder / "b/g");
    Move(ref, a, "h");
    EXPECT_EQ(PathOf(ref), folder / "a/h");
    EXPECT_EQ(PathOf(second), folder / "a/second");
    Move(second, b, "s");
    EXPECT_EQ(PathOf(second), folder / "b/s");
    EXPECT_EQ(PathOf(ref), folder / "a/h");
}

TEST_F(References, FolderMovedByTheLibrary_TakesItsReferencesAlong) {
    fs::create_directories(folder / "a/d/in");
    fs::create_directories(folder / "b");
    WriteFile(folder / "a/d/in/f", "");
    FSRef file = RefTo(folder / "a/d/in/f"), dir = RefTo(folder / "a/d");
    std::string longName(200, 'L');
    Move(dir, RefTo(folder / "b"), longName);
    StateLock()->descriptors.Clear();
    EXPECT_EQ(PathOf(file), folder / ("b/" + longName + "/in/f"));
    EXPECT_EQ(PathOf(dir), folder / ("b/" + longName));
}

TEST_F(References, RingOfMoves_EndsWithTheObjectGone) {
    WriteFile(folder / "a", "");
    FSRef ref = RefTo(folder / "a"), parent = RefTo(folder.path());
    Move(ref, parent, "b");
    Move(ref, parent, "a");
    fs::remove(folder / "a");
    EXPECT_EQ(Find(ref), fnfErr);
}

TEST_F(References, ForgottenMove_OfAFileWithOneLink_IsFoundInItsFolder) {
    WriteFile(folder / "a", "");
    FSRef ref = RefTo(folder / "a");
    Move(ref, RefTo(folder.path()), "b");
    StateLock()->moves.Clear();
    EXPECT_EQ(PathOf(ref), folder / "b");
}

TEST_F(References, DeletedFolder_LeavesTheTable) {
    fs::create_directory(folder / "d");
    FSRef ref = RefTo(folder / "d");
    FolderID id;
    FolderHandle handle;
    ASSERT_EQ(OpenContainer(ref, id, handle), noErr);
    size_t before = StateLock()->folders.size();
    Place place = PlaceOf(ref);
    fs::remove(folder / "d");
    ObjectDeleted(place);
    EXPECT_EQ(StateLock()->folders.size(), before - 1);
    EXPECT_EQ(Find(ref), fnfErr);
    EXPECT_EQ(ParentNumber(id), kNoFolder);
    EXPECT_EQ(OpenFolder(id, handle), fnfErr);
}

TEST_F(References, FoldersDeletedByOthers_LeaveTheTableInTime) {
    constexpr size_t kLimit = 64;
    fs::create_directories(folder / "stays/in");
    WriteFile(folder / "stays/in/f", "");
    FSRef stays = RefTo(folder / "stays/in/f");
    StateLock()->sweep.at = kLimit;
    for (int i = 0; i < 2000; ++i) {
        std::string name = folder / ("d" + std::to_string(i));
        fs::create_directories(name + "/sub");
        ASSERT_EQ(Find(RefTo(name + "/sub")), noErr);
        fs::remove_all(name);
        if (StateLock()->sweep.at > kLimit) StateLock()->sweep.at = kLimit;
    }
    EXPECT_LE(StateLock()->folders.size(), 2 * kLimit);
    EXPECT_EQ(Find(stays), noErr);
    ForgetReferences();
}

// ---- Numbers ----

TEST_F(References, RootAndItsParent_HaveFixedNumbers) {
    FolderID id;
    FolderHandle handle;
    ASSERT_EQ(OpenContainer(RefTo("/"), id, handle), noErr);
    EXPECT_EQ(id, 2u);
    EXPECT_EQ(ParentNumber(id), 1u);
    EXPECT_EQ(PlaceOf(RefTo("/")).folderID, 1u);
    EXPECT_STREQ(PlaceOf(RefTo("/")).name, ".");
    EXPECT_EQ(PlaceOf(RefTo("/tmp")).folderID, 2u);
}

TEST_F(References, ParentWalk_GoesOnThroughMountPoints) {
    struct stat root, proc;
    if (stat("/", &root) || stat("/proc/self", &proc) || root.st_dev == proc.st_dev)
        GTEST_SKIP() << "/proc is not mounted";
    Place place = PlaceOf(RefTo("/proc/sys/kernel"));
    FolderID sys = place.folderID;
    FolderID procFolder = ParentNumber(sys);
    EXPECT_EQ(ParentNumber(procFolder), 2u);
    FSRef ref;
    ASSERT_EQ(FolderReference(procFolder, ref), noErr);
    EXPECT_EQ(PathOf(ref), "/proc");
}

TEST_F(References, FolderReference_IsTheFolder) {
    fs::create_directories(folder / "d/e");
    WriteFile(folder / "d/e/f", "");
    FSRef ref, direct = RefTo(folder / "d/e");
    ASSERT_EQ(FolderReference(PlaceOf(RefTo(folder / "d/e/f")).folderID, ref), noErr);
    EXPECT_EQ(FSCompareFSRefs(&ref, &direct), noErr);
    EXPECT_EQ(PathOf(ref), folder / "d/e");
    ASSERT_EQ(FolderReference(kRootFolder, ref), noErr);
    EXPECT_EQ(PathOf(ref), "/");
    EXPECT_EQ(FolderReference(0x7FFFFFF0, ref), fnfErr);
}

// ---- Links ----

TEST_F(References, LinkFromAPath_IsItselfAndStandsForItsTarget) {
    fs::create_directories(folder / "there");
    WriteFile(folder / "there/file", "");
    fs::create_symlink("there/file", folder / "link");
    FSRef link = RefTo(folder / "link"), file = RefTo(folder / "there/file");
    EXPECT_EQ(PathOf(link), folder / "link");
    Place place = PlaceOf(link);
    EXPECT_TRUE(place.isLink);
    EXPECT_TRUE(place.standsForTarget);
    ASSERT_EQ(LocateTarget(link, place), noErr);
    EXPECT_STREQ(place.name, "file");
    EXPECT_EQ(place.folderID, PlaceOf(file).folderID);
    EXPECT_FALSE(place.isLink);
    EXPECT_EQ(FSCompareFSRefs(&link, &file), noErr);
}

TEST_F(References, LinkFromAName_StandsForItself) {
    WriteFile(folder / "file", "");
    fs::create_symlink("file", folder / "link");
    FSRef link, file = RefTo(folder / "file");
    ASSERT_EQ(ChildRef(RefTo(folder.path()), u"link", link), noErr);
    Place place;
    ASSERT_EQ(LocateTarget(link, place), noErr);
    EXPECT_TRUE(place.isLink);
    EXPECT_FALSE(place.standsForTarget);
    EXPECT_EQ(FSCompareFSRefs(&link, &file), errFSRefsDifferent);
}

TEST_F(References, LinkToAFolder_ContainsWhatTheFolderContains) {
    fs::create_directories(folder / "dir");
    WriteFile(folder / "dir/f", "");
    fs::create_directory_symlink("dir", folder / "link");
    FSRef child;
    ASSERT_EQ(ChildRef(RefTo(folder / "link"), u"f", child), noErr);
    EXPECT_EQ(PathOf(child), folder / "dir/f");
    FSRef itself;
    ASSERT_EQ(ChildRef(RefTo(folder.path()), u"link", itself), noErr);
    EXPECT_EQ(ChildRef(itself, u"f", child), errFSNotAFolder);
}

TEST_F(References, LinkThatLostItsTarget_IsStillLocated) {
    WriteFile(folder / "file", "");
    fs::create_symlink("file", folder / "link");
    FSRef link = RefTo(folder / "link");
    fs::remove(folder / "file");
    EXPECT_EQ(Find(link), noErr);
    Place place;
    EXPECT_EQ(LocateTarget(link, place), fnfErr);
    EXPECT_EQ(PathOf(link), folder / "link");
}

// ---- Comparing ----

TEST_F(References, Comparing_DecidesByObject) {
    WriteFile(folder / "a", "");
    WriteFile(folder / "b", "");
    fs::create_hard_link(folder / "a", folder / "a2");
    FSRef a = RefTo(folder / "a"), b = RefTo(folder / "b"), a2 = RefTo(folder / "a2"), root = RefTo("/");
    EXPECT_EQ(FSCompareFSRefs(&a, &a), noErr);
    EXPECT_EQ(FSCompareFSRefs(&a, &a2), noErr);
    EXPECT_EQ(FSCompareFSRefs(&a, &b), errFSRefsDifferent);
    EXPECT_EQ(FSCompareFSRefs(&a, &root), errFSRefsDifferent);
    fs::remove(folder / "b");
    EXPECT_EQ(FSCompareFSRefs(&a, &b), fnfErr);
}

TEST_F(References, Comparing_AcrossVolumes) {
    struct stat root, proc, dev;
    if (stat("/", &root) || stat("/proc/self", &proc) || stat("/dev/null", &dev) ||
        root.st_dev == proc.st_dev || root.st_dev == dev.st_dev)
        GTEST_SKIP() << "/proc and /dev are not volumes of their own";
    FSRef top = RefTo("/"), inProc = RefTo("/proc/version"), inDev = RefTo("/dev/null");
    EXPECT_EQ(FSCompareFSRefs(&top, &inProc), errFSRefsDifferent);
    EXPECT_EQ(FSCompareFSRefs(&inProc, &top), errFSRefsDifferent);
    EXPECT_EQ(FSCompareFSRefs(&inProc, &inDev), diffVolErr);
}

// ---- Depth ----

// Makes a chain of folders and gives an open descriptor of the last.
int MakeChain(const std::string& top, const std::string& name, int depth) {
    int at = open(top.c_str(), O_PATH | O_DIRECTORY);
    for (int level = 0; level < depth && at >= 0; ++level) {
        EXPECT_EQ(mkdirat(at, name.c_str(), 0700), 0);
        int next = openat(at, name.c_str(), O_PATH | O_DIRECTORY);
        close(at);
        at = next;
    }
    return at;
}

void RemoveChain(int last, const std::string& name, int depth) {
    for (int level = 0; level < depth; ++level) {
        int up = openat(last, "..", O_PATH | O_DIRECTORY);
        unlinkat(up, name.c_str(), AT_REMOVEDIR);
        close(last);
        last = up;
    }
    close(last);
}

TEST_F(References, FoldersDeeperThanTheLongestPath_AreReached) {
    const std::string name(60, 'd');
    const std::u16string units(60, u'd');
    const int depth = 300;
    int last = MakeChain(folder.path(), name, depth);
    std::vector<FSRef> chain(1, RefTo(folder.path()));
    for (int level = 0; level < depth; ++level) {
        chain.emplace_back();
        ASSERT_EQ(ChildRef(chain[static_cast<size_t>(level)], units, chain.back()), noErr) << level;
    }
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(chain.back()), noErr);
    StateLock()->descriptors.Clear();
    for (size_t level = chain.size(); level > 1; --level) ASSERT_EQ(Find(chain[level - 1]), noErr) << level;
    std::vector<uint8_t> path(40000);
    EXPECT_EQ(FSRefMakePath(&chain.back(), path.data(), 1024), bdNamErr);
    ASSERT_EQ(FSRefMakePath(&chain.back(), path.data(), 40000), noErr);
    EXPECT_EQ(std::strlen(reinterpret_cast<char*>(path.data())), folder.path().string().size() + 61 * depth);
    RemoveChain(last, name, depth);
}

// ---- Memory, descriptors, threads, fork ----

TEST_F(References, ManyReferencesInAFolder_LeaveNoMemory) {
    for (int i = 0; i < 200; ++i) WriteFile(folder / ("short" + std::to_string(i)), "");
    for (int i = 0; i < 200; ++i) WriteFile(folder / (std::string(100, 'l') + std::to_string(i)), "");
    FSRef parent = RefTo(folder.path()), ref;
    auto makeAll = [&] {
        for (int i = 0; i < 200; ++i) {
            std::u16string number = Wide(std::to_string(i));
            ASSERT_EQ(ChildRef(parent, u"short" + number, ref), noErr);
            ASSERT_EQ(ChildRef(parent, std::u16string(100, u'l') + number, ref), noErr);
        }
    };
    makeAll();
    size_t folders = StateLock()->folders.size(), bytes = StateLock()->folders.MemoryUse();
    for (int round = 0; round < 50; ++round) makeAll();
    EXPECT_EQ(StateLock()->folders.size(), folders);
    EXPECT_EQ(StateLock()->folders.MemoryUse(), bytes);
}

TEST_F(References, OpenFolders_StayFewAndAreAllClosedInTheEnd) {
    ForgetReferences();
    size_t before = OpenDescriptors();
    for (int i = 0; i < 300; ++i) {
        std::string name = folder / ("d" + std::to_string(i));
        fs::create_directory(name);
        WriteFile(name + "/f", "");
        ASSERT_EQ(Find(RefTo(name + "/f")), noErr);
    }
    EXPECT_LE(OpenDescriptors(), before + DescriptorCache::kCapacity);
    ForgetReferences();
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(References, NoDescriptorLeft_CachedOnesMakeRoom) {
    for (int i = 0; i < 40; ++i) {
        fs::create_directory(folder / ("d" + std::to_string(i)));
        WriteFile(folder / ("d" + std::to_string(i) + "/f"), "");
        ASSERT_EQ(Find(RefTo(folder / ("d" + std::to_string(i) + "/f"))), noErr);
    }
    fs::create_directory(folder / "last");
    WriteFile(folder / "last/f", "");
    FSRef ref = RefTo(folder / "last/f");
    const NoDescriptors none;
    ASSERT_TRUE(none.isSet());
    EXPECT_EQ(Find(ref), noErr);
}

// Whatever a search costs in descriptors, those that are only cached make room for it.
TEST_F(References, NoDescriptorLeft_WhatOthersRenamedIsStillFound) {
    const std::function<OSErr(const FSRef&)> operations[] = {
        [](const FSRef& ref) {
            FSCatalogInfo info;
            return FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr);
        },
        [](const FSRef& ref) {
            uint8_t path[4096];
            return static_cast<OSErr>(FSRefMakePath(&ref, path, sizeof path));
        },
        [](const FSRef& ref) { return FSCompareFSRefs(&ref, &ref); },
        [](const FSRef& ref) {
            FSForkRefNum fork;
            const OSErr result = FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork);
            return result == noErr ? FSCloseFork(fork) : result;
        },
        [](const FSRef& ref) { return FSDeleteObject(&ref); },
    };
    for (const auto& operation : operations) {
        WriteFile(folder / "file", "");
        const FSRef ref = RefTo(folder / "file");
        fs::rename(folder / "file", folder / "renamed");
        for (int i = 0; i < 8; ++i) {
            fs::create_directories(folder / ("d" + std::to_string(i) + "/e"));
            ASSERT_EQ(Find(RefTo(folder / ("d" + std::to_string(i) + "/e"))), noErr);
        }
        const NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        EXPECT_EQ(operation(ref), noErr) << &operation - operations;
    }
}

TEST_F(References, NoDescriptorLeftAtAll_DoesNotMakeWhatOthersRenamedSeemGone) {
    WriteFile(folder / "file", "");
    WriteFile(folder / "other", "");
    const FSRef ref = RefTo(folder / "file");
    const Place held = PlaceOf(RefTo(folder / "other"));
    fs::rename(folder / "file", folder / "renamed");
    CloseIdleDescriptors();
    const NoDescriptors none;
    ASSERT_TRUE(none.isSet());
    EXPECT_EQ(Find(ref), tmfoErr);
}

TEST_F(References, NoDescriptorLeft_NothingIsConcludedAboutTheVolume) {
    WriteFile(folder / "file", "");
    const Place place = PlaceOf(RefTo(folder / "file"));
    ForgetReferences();
    {
        const NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        TraitsOf(place.folderID, place.name, place.facts);
    }
    DeviceTraits traits;
    EXPECT_FALSE(StateLock()->devices.Find(DeviceOf(place.facts), MountOf(place.facts), 0, traits));
}

TEST_F(References, HeldFolder_OutlivesTheCache) {
    WriteFile(folder / "f", "");
    Place place = PlaceOf(RefTo(folder / "f"));
    FolderHandle held = place.folder;
    ForgetReferences();
    struct stat facts;
    EXPECT_EQ(fstatat(held.descriptor(), "f", &facts, 0), 0);
}

TEST_F(References, Descriptors_CloseOnExec) {
    WriteFile(folder / "f", "");
    Place place = PlaceOf(RefTo(folder / "f"));
    EXPECT_TRUE(fcntl(place.folder.descriptor(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(References, ResolvingWhileOthersRename_NeverLeadsToAnotherObject) {
    constexpr int kFolders = 4;
    std::vector<FSRef> refs;
    for (int i = 0; i < kFolders; ++i) {
        std::string name = folder / ("d" + std::to_string(i));
        fs::create_directory(name);
        WriteFile(name + "/f", std::to_string(i));
        refs.push_back(RefTo(name + "/f"));
    }
    std::atomic<bool> stop = false;
    std::atomic<int> found = 0, wrong = 0;
    std::thread renamer([&] {
        for (int round = 0; round < 1500; ++round) {
            // two folders change places through a third name
            std::string a = folder / ("d" + std::to_string(round % kFolders));
            std::string b = folder / ("d" + std::to_string((round + 1) % kFolders));
            rename(a.c_str(), (folder / "t").c_str());
            rename(b.c_str(), a.c_str());
            rename((folder / "t").c_str(), b.c_str());
            if (round % 64 == 0) StateLock()->descriptors.DropIdle();
        }
        stop = true;
    });
    auto resolve = [&] {
        while (!stop) {
            for (int i = 0; i < kFolders; ++i) {
                Place place;
                if (Locate(refs[static_cast<size_t>(i)], place) != noErr) continue;
                ++found;
                int file = openat(place.folder.descriptor(), place.name, O_RDONLY);
                char digit = '?';
                if (file < 0 || read(file, &digit, 1) != 1 || digit != '0' + i) ++wrong;
                close(file);
            }
        }
    };
    std::thread first(resolve), second(resolve);
    renamer.join();
    first.join();
    second.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(found, 0);
    for (const FSRef& ref : refs) EXPECT_EQ(Find(ref), noErr);
}

TEST_F(References, Fork_LeavesAUsableChildWhileOthersLookUp) {
    WriteFile(folder / "f", "");
    FSRef ref = RefTo(folder / "f");
    std::atomic<bool> stop = false;
    std::thread busy([&] {
        while (!stop) Find(ref);
    });
    for (int round = 0; round < 50; ++round) {
        pid_t child = fork();
        if (child == 0) _exit(Find(ref) == noErr ? 0 : 1);
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
    stop = true;
    busy.join();
}

// ---- Mount namespaces ----

// Runs in a child whose mounts are its own; false when that is not allowed here.
template <typename Body>
bool InOwnMounts(Body body, int& status) {
    pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWNS) || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr)) _exit(77);
        _exit(body());
    }
    waitpid(child, &status, 0);
    return !(WIFEXITED(status) && WEXITSTATUS(status) == 77);
}

TEST_F(References, ThreadInOtherMounts_DoesNotSeeThroughThem) {
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "");
    std::string path = folder / "d";
    int status = 0;
    auto body = [&] {
        FSRef ref = RefTo(path + "/f");
        if (Find(ref) != noErr) return 1;
        int result = 0;
        std::thread other([&] { // only this thread's view changes
            if (unshare(CLONE_NEWNS) || mount("none", path.c_str(), "tmpfs", 0, nullptr)) {
                result = 2;
                return;
            }
            if (Find(ref) != fnfErr) result = 3;
            WriteFile(path + "/f", "another");
            FSRef inside;
            if (PathToRef(path + "/f", inside) != noErr || Find(inside) != noErr) result = 4;
            if (FSCompareFSRefs(&inside, &inside) != noErr) result = 5;
            if (Find(ref) != fnfErr) result = 6;
        });
        other.join();
        return result ? result : Find(ref) == noErr ? 0 : 7;
    };
    if (!InOwnMounts(body, status)) GTEST_SKIP() << "mount namespaces are not allowed here";
    EXPECT_EQ(status, 0);
}

TEST_F(References, ThreadThatChangesItsMounts_FindsWhatItSeesNow) {
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "");
    std::string path = folder / "d";
    int status = 0;
    auto body = [&] {
        int result = 0;
        std::thread changing([&] {
            FSRef before = RefTo(path + "/f"), same, covering;
            if (Find(before) != noErr) result = 1;
            if (unshare(CLONE_NEWNS)) result = 2;
            if (PathToRef(path + "/f", same) != noErr || Find(same) != noErr) result = 3;
            if (mount("none", path.c_str(), "tmpfs", 0, nullptr)) result = 4;
            if (PathToRef(path + "/f", covering) != fnfErr) result = 5;
            WriteFile(path + "/f", "another");
            if (PathToRef(path + "/f", covering) != noErr || Find(covering) != noErr) result = 6;
            if (FSCompareFSRefs(&covering, &covering) != noErr) result = 7;
            if (PathOf(covering) != path + "/f" || Find(before) != fnfErr) result = 8;
        });
        changing.join();
        return result;
    };
    if (!InOwnMounts(body, status)) GTEST_SKIP() << "mount namespaces are not allowed here";
    EXPECT_EQ(status, 0);
}

// What numbers are worth is asked of the file system that the path leads into, not of the one that it led into before.
TEST_F(References, RightAfterAMountOverAFolder_ObjectsAreThoseOfTheMount) {
    for (const char* name : {"d", "lower", "lowest", "merged"}) fs::create_directory(folder / name);
    WriteFile(folder / "d/f", "");
    WriteFile(folder / "lower/f", "");
    const std::string path = folder / "d/f", merged = folder / "merged", covered = folder / "d";
    const std::string options = "lowerdir=" + (folder / "lower") + ":" + (folder / "lowest");
    int status = 0;
    auto body = [&] {
        if (mount("overlay", merged.c_str(), "overlay", 0, options.c_str())) return 77;
        Find(RefTo(path));
        RefTo(path);
        if (mount(merged.c_str(), covered.c_str(), nullptr, MS_BIND, nullptr)) return 77;
        BelieveFolderOf(path);
        const FSRef covering = RefTo(path);
        Place place;
        DeviceTraits traits;
        if (Locate(covering, place) != noErr) return 1;
        if (!StateLock()->devices.Find(DeviceOf(place.facts), MountOf(place.facts), 0, traits)) return 2;
        return traits.stableBirths ? 3 : 0;
    };
    if (!InOwnMounts(body, status)) GTEST_SKIP() << "mount namespaces or overlays are not allowed here";
    EXPECT_EQ(status, 0);
}

TEST_F(References, MountOverAFolder_ParentWalkGoesOnAndTheCoveredObjectIsGone) {
    fs::create_directories(folder / "outer/point");
    WriteFile(folder / "outer/point/covered", "");
    int status = 0;
    auto body = [&] {
        FSRef covered = RefTo(folder / "outer/point/covered"), outer = RefTo(folder / "outer");
        if (mount("none", (folder / "outer/point").c_str(), "tmpfs", 0, nullptr)) return 1;
        ForgetReferences();
        outer = RefTo(folder / "outer");
        WriteFile(folder / "outer/point/inside", "");
        FSRef inside = RefTo(folder / "outer/point/inside");
        Place place;
        if (Locate(inside, place) != noErr) return 2;
        FolderID pointID = place.folderID;
        FolderHandle handle;
        FolderID outerID;
        if (OpenContainer(outer, outerID, handle) != noErr || ParentNumber(pointID) != outerID) return 3;
        if (FSCompareFSRefs(&outer, &inside) != errFSRefsDifferent) return 4;
        if (PathOf(inside) != folder / "outer/point/inside") return 5;
        if (Find(covered) != fnfErr) return 6;
        // a folder on the mount whose way up is only known to the host
        fs::create_directories(folder / "outer/point/a/b");
        fs::create_directories(folder / "outer/point/c");
        FSRef moved = RefTo(folder / "outer/point/a/b");
        WriteFile(folder / "outer/point/a/b/f", "");
        FSRef file = RefTo(folder / "outer/point/a/b/f");
        if (Find(file) != noErr) return 7;
        fs::rename(folder / "outer/point/a/b", folder / "outer/point/c/b");
        if (PathOf(file) != folder / "outer/point/c/b/f") return 8;
        return PathOf(moved) == folder / "outer/point/c/b" ? 0 : 9;
    };
    if (!InOwnMounts(body, status)) GTEST_SKIP() << "mount namespaces are not allowed here";
    EXPECT_EQ(status, 0);
}

TEST_F(References, MountInsideAMount_IsComparedAsOneInsideTheOther) {
    for (const char* name : {"a", "b"}) fs::create_directories(folder / name);
    int status = 0;
    auto body = [&] {
        for (const char* name : {"a", "b", "a/inner"}) {
            fs::create_directories(folder / name);
            if (mount("none", (folder / name).c_str(), "tmpfs", 0, nullptr)) return 1;
        }
        FSRef a = RefTo(folder / "a"), b = RefTo(folder / "b"), inner = RefTo(folder / "a/inner");
        if (FSCompareFSRefs(&a, &inner) != errFSRefsDifferent) return 2;
        if (FSCompareFSRefs(&inner, &a) != errFSRefsDifferent) return 3;
        if (FSCompareFSRefs(&a, &b) != diffVolErr) return 4;
        if (FSCompareFSRefs(&b, &inner) != diffVolErr) return 5;
        return 0;
    };
    if (!InOwnMounts(body, status)) GTEST_SKIP() << "mount namespaces are not allowed here";
    EXPECT_EQ(status, 0);
}

TEST_F(References, FolderMountedInsideItself_HasFinitePaths) {
    fs::create_directories(folder / "a/b/c");
    int status = 0;
    auto body = [&] {
        if (mount((folder / "a").c_str(), (folder / "a/b/c").c_str(), nullptr, MS_BIND, nullptr)) return 1;
        WriteFile(folder / "a/f", "");
        FSRef outer = RefTo(folder / "a/f"), inner = RefTo(folder / "a/b/c/f");
        if (FSCompareFSRefs(&outer, &inner) != noErr) return 2;
        if (PathOf(outer) != folder / "a/f") return 3;
        if (PathOf(inner) != folder / "a/b/c/f") return 4;
        if (PathOf(RefTo(folder / "a/b")) != folder / "a/b") return 5;
        return 0;
    };
    if (!InOwnMounts(body, status)) GTEST_SKIP() << "mount namespaces are not allowed here";
    EXPECT_EQ(status, 0);
}

// ---- File systems whose numbers mean nothing ----

TEST_F(References, WithoutStableNumbers_NameAndTypeAreTheIdentity) {
    struct statx facts;
    ASSERT_EQ(FactsAt(AT_FDCWD, folder.path().c_str(), 0, facts), 0);
    StateLock()->devices.Remember(DeviceOf(facts), MountOf(facts), UINT64_MAX, {false, false, false});
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "");
    FSRef file = RefTo(folder / "d/f"), dir = RefTo(folder / "d");
    fs::remove(folder / "d/f");
    WriteFile(folder / "d/f", "the same again, with another number");
    EXPECT_EQ(Find(file), noErr);
    EXPECT_EQ(PathOf(file), folder / "d/f");
    fs::rename(folder / "d/f", folder / "d/g");
    EXPECT_EQ(Find(file), fnfErr) << "another name is another object";
    fs::create_directory(folder / "d/f");
    EXPECT_EQ(Find(file), fnfErr) << "another type is another object";
    EXPECT_EQ(Find(dir), noErr);
    FSRef other = RefTo(folder / "d/g");
    EXPECT_EQ(FSCompareFSRefs(&dir, &other), errFSRefsDifferent);
    Move(dir, RefTo(folder.path()), "e");
    EXPECT_EQ(PathOf(dir), folder / "e");
    EXPECT_EQ(PathOf(other), folder / "e/g");
    Move(other, dir, "h");
    EXPECT_EQ(PathOf(other), folder / "e/h");
    ForgetReferences();
}

// ---- For callers that open at once ----

TEST_F(References, Guess_GivesThePlaceWithoutALook) {
    WriteFile(folder / "f", "");
    FSRef ref = RefTo(folder / "f");
    Place place;
    Identity identity;
    ASSERT_EQ(Guess(ref, place, identity), noErr);
    EXPECT_STREQ(place.name, "f");
    EXPECT_TRUE(S_ISREG(place.facts.stx_mode));
    struct statx facts;
    ASSERT_EQ(statx(place.folder.descriptor(), "f", AT_SYMLINK_NOFOLLOW, kFactsMask, &facts), 0);
    EXPECT_TRUE(IsObject(ref, facts));
    EXPECT_TRUE(Matches(identity, facts));
    WriteFile(folder / "g", "");
    ASSERT_EQ(statx(place.folder.descriptor(), "g", AT_SYMLINK_NOFOLLOW, kFactsMask, &facts), 0);
    EXPECT_FALSE(IsObject(ref, facts));
    EXPECT_FALSE(Matches(identity, facts));
}

TEST_F(References, Guess_LeavesLinksToTheLongWay) {
    WriteFile(folder / "f", "");
    fs::create_symlink("f", folder / "link");
    Place place;
    Identity identity;
    EXPECT_EQ(Guess(RefTo(folder / "link"), place, identity), fnfErr);
}

TEST_F(References, OpenFolder_OfAFile_IsNotAFolder) {
    WriteFile(folder / "f", "");
    FolderHandle handle;
    EXPECT_EQ(OpenFolder(PlaceOf(RefTo(folder / "f")), handle), errFSNotAFolder);
}

} // namespace
