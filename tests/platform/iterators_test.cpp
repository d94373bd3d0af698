#include "platform/iterators.h"

#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/objects.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/mounts.h"
#include "support/no_descriptors.h"
#include "support/odd_volume.h"
#include "support/private_mounts.h"
#include "support/references.h"
#include "support/sanitizers.h"
#include "support/sidecars.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

// An open iterator, closed at the end of its test.
class Iterator {
public:
    Iterator(const FSRef& container, FSIteratorFlags flags) {
        result_ = FSOpenIterator(&container, flags, &iterator_);
    }
    Iterator(const std::string& path, FSIteratorFlags flags) : Iterator(Reference(path), flags) {}
    Iterator(Iterator&& other) noexcept
        : iterator_(std::exchange(other.iterator_, nullptr)), result_(other.result_) {}
    ~Iterator() {
        if (iterator_) FSCloseIterator(iterator_);
    }
    operator FSIterator() const { return iterator_; }
    OSErr result() const { return result_; }

private:
    FSIterator iterator_ = nullptr;
    OSErr result_;
};

std::string NameOf(const HFSUniStr255& name) {
    return Narrow({name.unicode, name.length});
}

// The next item's name, "" at the end.
std::string NextName(FSIterator iterator) {
    ItemCount count;
    HFSUniStr255 name;
    const OSErr result =
        FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNone, nullptr, nullptr, nullptr, &name);
    if (result == errFSNoMoreItems) return "";
    EXPECT_EQ(result, noErr);
    EXPECT_EQ(count, 1u);
    return NameOf(name);
}

// The names of all items that are still to come, read `batch` at a time.
std::vector<std::string> RemainingNames(FSIterator iterator, ItemCount batch = 1) {
    std::vector<HFSUniStr255> names(batch);
    std::vector<std::string> all;
    for (;;) {
        ItemCount count = 0;
        const OSErr result = FSGetCatalogInfoBulk(iterator, batch, &count, nullptr, kFSCatInfoNone, nullptr,
                                                  nullptr, nullptr, names.data());
        for (ItemCount i = 0; i < count; ++i) all.push_back(NameOf(names[i]));
        if (result == errFSNoMoreItems) return all;
        EXPECT_EQ(result, noErr);
        if (result != noErr) return all;
    }
}

std::vector<std::string> Sorted(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> Names(const std::string& path, FSIteratorFlags flags = kFSIterateFlat) {
    return Sorted(RemainingNames(Iterator(path, flags), 80));
}

using Strings = std::vector<std::string>;

// The process's own memory in bytes, without what it shares.
size_t MemoryInUse() {
    std::ifstream file("/proc/self/statm");
    size_t total, resident, shared;
    file >> total >> resident >> shared;
    return (resident - shared) * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

class Iterators : public testing::TestWithParam<FSIteratorFlags> {
protected:
    TemporaryFolder folder;
    const std::string top = folder.path().string();

    void MakeFiles(size_t count) {
        for (size_t i = 0; i < count; ++i) WriteFile(folder / ("file " + std::to_string(i)), "");
    }
};

using FlatIterator = Iterators;
using DeleteIterator = Iterators;

} // namespace

INSTANTIATE_TEST_SUITE_P(FlatAndDelete, Iterators, testing::Values(kFSIterateFlat, kFSIterateDelete),
                         [](const auto& tested) {
                             return tested.param == kFSIterateFlat ? "Flat" : "Delete";
                         });

TEST_P(Iterators, EmptyFolder_EndsAtOnceAndStaysEnded) {
    Iterator iterator(top, GetParam());
    ASSERT_EQ(iterator.result(), noErr);
    for (int i = 0; i < 3; ++i) {
        ItemCount count = 7;
        EXPECT_EQ(FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNone, nullptr, nullptr,
                                       nullptr, nullptr),
                  errFSNoMoreItems);
        EXPECT_EQ(count, 0u);
    }
}

TEST_P(Iterators, Folder_ShowsEachChildOnceAndNoDots) {
    WriteFile(folder / "f", "");
    WriteFile(folder / ".hidden", "");
    WriteFile(folder / "...", "");
    fs::create_directories(folder / "d/inside");
    fs::create_symlink("nowhere", folder / "link");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Names(top, GetParam()), (Strings{"...", ".hidden", "d", "f", "link", "pipe"}));
}

TEST_P(Iterators, AnyBatchSize_GivesEveryChildOnce) {
    MakeFiles(3000);
    const Strings expected = Names(top, GetParam());
    EXPECT_EQ(std::set<std::string>(expected.begin(), expected.end()).size(), 3000u);
    for (ItemCount batch : {1u, 2u, 79u, 80u, 1000u, 5000u})
        EXPECT_EQ(Sorted(RemainingNames(Iterator(top, GetParam()), batch)), expected) << batch;
}

TEST_P(Iterators, BatchOfOne_SucceedsForEveryItemAndThenEnds) {
    MakeFiles(2);
    Iterator iterator(top, GetParam());
    EXPECT_NE(NextName(iterator), "");
    EXPECT_NE(NextName(iterator), "");
    EXPECT_EQ(NextName(iterator), "");
}

TEST_P(Iterators, References_AreThoseOfThePaths) {
    WriteFile(folder / "f", "");
    fs::create_directory(folder / "d");
    Iterator iterator(top, GetParam());
    FSRef refs[2];
    HFSUniStr255 names[2];
    ItemCount count;
    ASSERT_EQ(
        FSGetCatalogInfoBulk(iterator, 2, &count, nullptr, kFSCatInfoNone, nullptr, refs, nullptr, names),
        noErr);
    ASSERT_EQ(count, 2u);
    for (int i : {0, 1}) {
        const FSRef fromPath = Reference(folder / NameOf(names[i]));
        EXPECT_EQ(FSCompareFSRefs(&refs[i], &fromPath), noErr);
        EXPECT_EQ(PathOf(refs[i]), folder / NameOf(names[i]));
    }
}

TEST_P(Iterators, Specs_CarryTheReference) {
    WriteFile(folder / "f", "");
    Iterator iterator(top, GetParam());
    FSSpec spec;
    ItemCount count;
    ASSERT_EQ(
        FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNone, nullptr, nullptr, &spec, nullptr),
        noErr);
    EXPECT_EQ(PathOf(spec.ref), folder / "f");
}

TEST_P(Iterators, Facts_AreThoseOfTheCatalog) {
    WriteFile(folder / "f", "content");
    fs::create_directory(folder / "d");
    WriteFile(folder / "locked", "x");
    const FSRef locked = Reference(folder / "locked");
    FSCatalogInfo lock{};
    lock.nodeFlags = kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&locked, kFSCatInfoNodeFlags, &lock), noErr);

    for (FSCatalogInfoBitmap whichInfo :
         {kFSCatInfoNodeFlags, kFSCatInfoSettableInfo, kFSCatInfoGettableInfo}) {
        Iterator iterator(top, GetParam());
        FSCatalogInfo infos[3]{};
        FSRef refs[3];
        ItemCount count;
        ASSERT_EQ(
            FSGetCatalogInfoBulk(iterator, 3, &count, nullptr, whichInfo, infos, refs, nullptr, nullptr),
            noErr);
        ASSERT_EQ(count, 3u);
        for (int i : {0, 1, 2}) {
            FSCatalogInfo info{};
            ASSERT_EQ(FSGetCatalogInfo(&refs[i], whichInfo, &info, nullptr, nullptr, nullptr), noErr);
            info.accessDate = infos[i].accessDate; // counting a folder's children reads it
            EXPECT_EQ(std::memcmp(&info, &infos[i], sizeof info), 0) << PathOf(refs[i]);
        }
    }
}

TEST_P(Iterators, NodeFlagsAlone_TellFoldersAndLocks) {
    WriteFile(folder / "f", "");
    fs::create_directory(folder / "d");
    fs::create_directory_symlink("d", folder / "link");
    WriteFile(folder / "locked", "x");
    const FSRef locked = Reference(folder / "locked");
    FSCatalogInfo lock{};
    lock.nodeFlags = kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&locked, kFSCatInfoNodeFlags, &lock), noErr);

    Iterator iterator(top, GetParam());
    FSCatalogInfo infos[4]{};
    HFSUniStr255 names[4];
    ItemCount count;
    ASSERT_EQ(FSGetCatalogInfoBulk(iterator, 4, &count, nullptr, kFSCatInfoNodeFlags, infos, nullptr, nullptr,
                                   names),
              noErr);
    ASSERT_EQ(count, 4u);
    std::map<std::string, uint16_t> flags;
    for (int i = 0; i < 4; ++i)
        flags[NameOf(names[i])] = infos[i].nodeFlags & (kFSNodeLockedMask | kFSNodeIsDirectoryMask);
    const std::map<std::string, uint16_t> expected{
        {"f", 0}, {"d", kFSNodeIsDirectoryMask}, {"link", 0}, {"locked", kFSNodeLockedMask}};
    EXPECT_EQ(flags, expected);
}

TEST_P(Iterators, LinksGiven_StandForTheLinks) {
    fs::create_directory(folder / "d");
    fs::create_directory(folder / "target");
    WriteFile(folder / "target/kept", "x");
    fs::create_directory_symlink("../target", folder / "d/link");
    Iterator iterator(folder / "d", GetParam());
    FSRef link;
    ItemCount count;
    ASSERT_EQ(
        FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNone, nullptr, &link, nullptr, nullptr),
        noErr);
    EXPECT_EQ(Iterator(link, kFSIterateFlat).result(), errFSNotAFolder);
    EXPECT_EQ(FSDeleteObject(&link), noErr);
    EXPECT_TRUE(fs::exists(folder / "target/kept"));
}

TEST_P(Iterators, SidecarOfAFile_IsNotShown) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    WriteFile(folder / "._orphan", EmptySidecar());
    WriteFile(folder / "g", "x");
    WriteFile(folder / "._g", "no sidecar");
    EXPECT_EQ(Names(top, GetParam()), (Strings{"._g", "._orphan", "f", "g"}));
}

// It cannot be told from an ordinary entry then; a delete that took it for one would lose a resource fork.
TEST_P(Iterators, NoDescriptorLeft_NoSidecarIsShown) {
    if (kAddressSanitizer)
        GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors for its own checks";
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    const Iterator iterator(top, GetParam());
    const NoDescriptors none;
    ASSERT_TRUE(none.isSet());
    ItemCount count = 0;
    HFSUniStr255 name;
    OSErr result;
    do {
        result = FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNone, nullptr, nullptr, nullptr,
                                      &name);
        EXPECT_TRUE(count == 0 || NameOf(name) == "f");
    } while (result == noErr);
    EXPECT_TRUE(result == errFSNoMoreItems || result == tmfoErr) << result;
}

TEST_P(Iterators, NameThatIsNotUtf8_IsShownAsLoneSurrogates) {
    WriteFile(folder / "a\xFF", "");
    Iterator iterator(top, GetParam());
    HFSUniStr255 name;
    FSRef ref;
    ItemCount count;
    ASSERT_EQ(
        FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNone, nullptr, &ref, nullptr, &name),
        noErr);
    EXPECT_EQ(std::u16string(name.unicode, name.length), u"a\xDCFF");
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_P(Iterators, LongestNames_AreShownAndLeadToTheirObjects) {
    const std::string longest(255, 'x'), wide = [] {
        std::string name;
        for (int i = 0; i < 85; ++i) name += "\xE2\x82\xAC";
        return name;
    }();
    WriteFile(folder / longest, "");
    WriteFile(folder / wide, "");
    Iterator iterator(top, GetParam());
    FSRef refs[2];
    ItemCount count;
    ASSERT_EQ(
        FSGetCatalogInfoBulk(iterator, 2, &count, nullptr, kFSCatInfoNone, nullptr, refs, nullptr, nullptr),
        noErr);
    ASSERT_EQ(count, 2u);
    for (const FSRef& ref : refs) EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_P(Iterators, OneFolderReadTwiceAtOnce_EachReadsOnItsOwn) {
    MakeFiles(10);
    Iterator one(top, GetParam()), other(top, GetParam());
    for (int i = 0; i < 10; ++i) {
        EXPECT_NE(NextName(one), "");
        EXPECT_NE(NextName(other), "");
    }
    EXPECT_EQ(NextName(one), "");
    EXPECT_EQ(NextName(other), "");
}

// Every file is deleted as soon as it was given, while others are made; the ones that were there from the
// start are all given once.
TEST_P(Iterators, FilesComeAndGoMeanwhile_OthersAreNeitherLostNorRepeated) {
    MakeFiles(4000);
    const Strings before = Names(top);
    const uint32_t seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    Iterator iterator(top, GetParam());
    std::multiset<std::string> given;
    int made = 0;
    for (std::string name; (name = NextName(iterator)) != "";) {
        given.insert(name);
        if (random() % 4) fs::remove(folder / name);
        if (random() % 2) WriteFile(folder / ("new " + std::to_string(made++)), "");
        ASSERT_LT(given.size(), 20'000u);
    }
    for (const std::string& name : before) EXPECT_EQ(given.count(name), 1u) << name;
    for (const std::string& name : given) EXPECT_EQ(given.count(name), 1u) << name;
}

TEST_P(Iterators, EntryGoneSinceItsBatchWasRead_IsLeftOut) {
    MakeFiles(10);
    Iterator iterator(top, GetParam());
    FSRef ref;
    FSCatalogInfo info;
    ItemCount count;
    ASSERT_EQ(FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoDataSizes, &info, &ref, nullptr,
                                   nullptr),
              noErr);
    for (const std::string& name : Names(top)) fs::remove(folder / name);
    EXPECT_EQ(FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoDataSizes, &info, &ref, nullptr,
                                   nullptr),
              errFSNoMoreItems);
    EXPECT_EQ(count, 0u);
}

TEST_P(Iterators, ContainerChanged_TellsOfChangesSinceTheLastRead) {
    MakeFiles(5);
    Iterator iterator(top, GetParam());
    const auto read = [&] {
        ItemCount count;
        Boolean changed = 2;
        EXPECT_EQ(FSGetCatalogInfoBulk(iterator, 1, &count, &changed, kFSCatInfoNone, nullptr, nullptr,
                                       nullptr, nullptr),
                  noErr);
        return changed;
    };
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(read(), 0);
    // The kernel's clock for this ticks only now and then.
    const auto before = fs::last_write_time(top);
    while (fs::last_write_time(top) == before) {
        WriteFile(folder / "new", "");
        fs::remove(folder / "new");
    }
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(read(), 0);
}

TEST_P(Iterators, File_IsNoFolder) {
    WriteFile(folder / "f", "");
    EXPECT_EQ(Iterator(folder / "f", GetParam()).result(), errFSNotAFolder);
}

TEST_P(Iterators, FolderGone_IsNotFound) {
    fs::create_directory(folder / "d");
    const FSRef ref = Reference(folder / "d");
    fs::remove(folder / "d");
    EXPECT_EQ(Iterator(ref, GetParam()).result(), fnfErr);
}

TEST_P(Iterators, FolderThatMayNotBeListed_IsDenied) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become someone without rights";
    fs::permissions(top, fs::perms(0755));
    fs::create_directory(folder / "d");
    fs::permissions(folder / "d", fs::perms(0711));
    const FSRef ref = Reference(folder / "d");
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(Iterator(ref, GetParam()).result(), afpAccessDenied);
    ASSERT_EQ(seteuid(0), 0);
}

TEST_P(Iterators, FolderRenamedMeanwhile_ReadsOn) {
    fs::create_directory(folder / "d");
    for (const char* name : {"d/a", "d/b"}) WriteFile(folder / name, "");
    Iterator iterator(folder / "d", GetParam());
    EXPECT_NE(NextName(iterator), "");
    fs::rename(folder / "d", folder / "e");
    EXPECT_NE(NextName(iterator), "");
    EXPECT_EQ(NextName(iterator), "");
}

TEST_P(Iterators, MissingArguments_AreRefused) {
    const FSRef ref = Reference(top);
    FSIterator opened;
    EXPECT_EQ(FSOpenIterator(nullptr, GetParam(), &opened), paramErr);
    EXPECT_EQ(FSOpenIterator(&ref, GetParam(), nullptr), paramErr);
    EXPECT_EQ(FSCloseIterator(nullptr), paramErr);
    Iterator iterator(top, GetParam());
    ItemCount count = 7;
    const auto read = [&](FSIterator from, ItemCount maximum, ItemCount* actual,
                          FSCatalogInfoBitmap whichInfo) {
        return FSGetCatalogInfoBulk(from, maximum, actual, nullptr, whichInfo, nullptr, nullptr, nullptr,
                                    nullptr);
    };
    EXPECT_EQ(read(nullptr, 1, &count, kFSCatInfoNone), paramErr);
    EXPECT_EQ(read(iterator, 1, nullptr, kFSCatInfoNone), paramErr);
    EXPECT_EQ(read(iterator, 0, &count, kFSCatInfoNone), paramErr);
    EXPECT_EQ(read(iterator, 1, &count, kFSCatInfoNodeFlags), paramErr);
    EXPECT_EQ(count, 0u);
}

TEST(IteratorFlags, Unknown_AreRefused) {
    TemporaryFolder folder;
    const FSRef ref = Reference(folder.path());
    FSIterator opened;
    for (FSIteratorFlags flags : {1u, 3u, 4u, 0xFFFFFFFFu})
        EXPECT_EQ(FSOpenIterator(&ref, flags, &opened), paramErr);
}

TEST_P(Iterators, Closed_GivesItsDescriptorsBack) {
    MakeFiles(1);
    Names(top, GetParam());
    const size_t before = OpenDescriptors();
    for (int i = 0; i < 100; ++i) Names(top, GetParam());
    EXPECT_EQ(OpenDescriptors(), before);
}

// A million entries are read in the memory that ten thousand take.
TEST_P(Iterators, MillionEntries_TakeNoMemoryThatStays) {
    if (kAddressSanitizer) GTEST_SKIP() << "the address sanitizer holds freed memory back";
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    MountTmpfs(top, "nr_inodes=0,size=2g");
    const std::string many = folder / "many";
    fs::create_directory(many);
    WriteFile(many + "/0", "");
    const auto grow = [&](int from, int to) {
        for (int i = from; i < to; ++i)
            ASSERT_EQ(link((many + "/0").c_str(), (many + "/" + std::to_string(i)).c_str()), 0);
    };
    const auto readAll = [&] {
        Iterator iterator(many, GetParam());
        FSCatalogInfo info;
        FSRef ref;
        HFSUniStr255 name;
        ItemCount count;
        int entries = 0;
        while (FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNodeFlags, &info, &ref, nullptr,
                                    &name) == noErr)
            ++entries;
        return entries;
    };
    grow(1, 10'000);
    EXPECT_EQ(readAll(), 10'000);
    const size_t before = MemoryInUse();
    grow(10'000, 1'000'000);
    EXPECT_EQ(readAll(), 1'000'000);
    EXPECT_LT(MemoryInUse(), before + 1'000'000);
    Unmount(top);
}

// ---- Flat iterators

TEST_F(FlatIterator, OnLinkToFolder_ShowsTheTarget) {
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "");
    fs::create_directory_symlink("d", folder / "link");
    EXPECT_EQ(Names(folder / "link"), Strings{"f"});
}

TEST_F(FlatIterator, OnMountPoint_ShowsWhatIsMounted) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    MountTmpfs(top, "");
    WriteFile(folder / "f", "");
    EXPECT_EQ(Names(top), Strings{"f"});
    Unmount(top);
}

// ---- Delete iterators

TEST_F(DeleteIterator, OnLink_YieldsNothing) {
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "");
    fs::create_directory_symlink("d", folder / "to folder");
    fs::create_symlink("d/f", folder / "to file");
    EXPECT_EQ(Names(folder / "to folder", kFSIterateDelete), Strings{});
    EXPECT_EQ(Names(folder / "to file", kFSIterateDelete), Strings{});
}

TEST_F(DeleteIterator, OnMountPoint_IsRefused) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    fs::create_directory(folder / "same volume");
    fs::create_directory(folder / "bound");
    MountAgain(folder / "same volume", folder / "bound");
    EXPECT_EQ(Iterator(folder / "bound", kFSIterateDelete).result(), fBsyErr);
    Unmount(folder / "bound");
    EXPECT_EQ(Iterator("/", kFSIterateDelete).result(), fBsyErr);
}

TEST_F(DeleteIterator, EachItemDeletedInTurn_EmptiesTheFolder) {
    for (ItemCount batch : {1u, 80u}) {
        MakeFiles(3000);
        Iterator iterator(top, kFSIterateDelete);
        std::vector<FSRef> refs(batch);
        ItemCount count;
        while (FSGetCatalogInfoBulk(iterator, batch, &count, nullptr, kFSCatInfoNone, nullptr, refs.data(),
                                    nullptr, nullptr) == noErr)
            for (ItemCount i = 0; i < count; ++i) ASSERT_EQ(FSDeleteObject(&refs[i]), noErr);
        EXPECT_TRUE(fs::is_empty(top)) << batch;
    }
}

// What the iterator saw of an item spares the delete a second look, but only while it is true.
TEST_F(DeleteIterator, ItemLockedSinceItWasGiven_IsNotDeleted) {
    MakeFiles(1);
    for (bool fresh : {true, false}) {
        if (!fresh)
            fs::last_write_time(folder / "file 0", fs::file_time_type::clock::now() - std::chrono::hours(1));
        Iterator iterator(top, kFSIterateDelete);
        FSCatalogInfo info;
        FSRef ref;
        ItemCount count;
        ASSERT_EQ(FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNodeFlags, &info, &ref,
                                       nullptr, nullptr),
                  noErr);
        info.nodeFlags |= kFSNodeLockedMask;
        ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
        EXPECT_EQ(FSDeleteObject(&ref), fLckdErr);
        info.nodeFlags = 0;
        ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
    }
}

TEST_F(DeleteIterator, SidecarMadeSinceTheFolderWasRead_GoesWithItsFile) {
    MakeFiles(1);
    Iterator iterator(top, kFSIterateDelete);
    FSCatalogInfo info;
    FSRef ref;
    ItemCount count;
    ASSERT_EQ(FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNodeFlags, &info, &ref, nullptr,
                                   nullptr),
              noErr);
    HFSUniStr255 fork;
    ASSERT_EQ(FSGetResourceForkName(&fork), noErr);
    ASSERT_EQ(FSCreateFork(&ref, fork.length, fork.unicode), noErr);
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteIterator, ManyOpen_KeepFewDescriptorsAndAllGoOn) {
    constexpr size_t kCount = 1000;
    for (size_t i = 0; i < kCount; ++i) {
        fs::create_directory(folder / std::to_string(i));
        WriteFile(folder / (std::to_string(i) + "/a"), "");
        WriteFile(folder / (std::to_string(i) + "/b"), "");
    }
    std::vector<Iterator> iterators;
    for (size_t i = 0; i < kCount; ++i) {
        iterators.emplace_back(folder / std::to_string(i), kFSIterateDelete);
        ASSERT_EQ(iterators.back().result(), noErr) << i;
        fs::remove(folder / (std::to_string(i) + "/" + NextName(iterators.back())));
    }
    EXPECT_LT(OpenDescriptors(), 400u);
    for (const Iterator& iterator : iterators) {
        EXPECT_NE(NextName(iterator), "");
        EXPECT_EQ(NextName(iterator), "");
    }
}

TEST_F(DeleteIterator, FewDescriptorsAllowed_ManyStillWork) {
    constexpr size_t kCount = 300;
    for (size_t i = 0; i < kCount; ++i) {
        fs::create_directory(folder / std::to_string(i));
        WriteFile(folder / (std::to_string(i) + "/a"), "");
    }
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few{24, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    {
        std::vector<Iterator> iterators;
        for (size_t i = 0; i < kCount; ++i) {
            iterators.emplace_back(folder / std::to_string(i), kFSIterateDelete);
            ASSERT_EQ(iterators.back().result(), noErr) << i;
        }
        for (const Iterator& iterator : iterators) EXPECT_EQ(NextName(iterator), "a");
    }
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(DeleteIterator, GivenUpAndItsFolderChanged_StillTellsOfTheChange) {
    constexpr size_t kCount = 200;
    for (size_t i = 0; i < kCount; ++i) fs::create_directory(folder / std::to_string(i));
    std::vector<Iterator> iterators;
    for (size_t i = 0; i < kCount; ++i) iterators.emplace_back(folder / std::to_string(i), kFSIterateDelete);
    const auto before = fs::last_write_time(folder / "0");
    fs::last_write_time(folder / "0", before + std::chrono::seconds(5));
    Boolean changed = 0;
    ItemCount count;
    EXPECT_EQ(FSGetCatalogInfoBulk(iterators[0], 1, &count, &changed, kFSCatInfoNone, nullptr, nullptr,
                                   nullptr, nullptr),
              errFSNoMoreItems);
    EXPECT_EQ(changed, 1);
}

TEST_F(DeleteIterator, GivenUpAndItsFolderGone_IsNotFound) {
    constexpr size_t kCount = 200;
    for (size_t i = 0; i < kCount; ++i) fs::create_directory(folder / std::to_string(i));
    std::vector<Iterator> iterators;
    for (size_t i = 0; i < kCount; ++i) iterators.emplace_back(folder / std::to_string(i), kFSIterateDelete);
    fs::remove(folder / "0");
    ItemCount count;
    EXPECT_EQ(FSGetCatalogInfoBulk(iterators[0], 1, &count, nullptr, kFSCatInfoNone, nullptr, nullptr,
                                   nullptr, nullptr),
              fnfErr);
}

// ---- Entries that are odd

// A listing of a volume of such entries: the names, and the result at its end.
static Strings ListOdd(const std::vector<OddVolume::Entry>& entries, FSCatalogInfoBitmap which, OSErr& end) {
    const std::string folder = "/Volumes/Odd";
    fs::create_directories(folder);
    const OddVolume volume(folder, entries);
    EXPECT_EQ(volume.Missing(), "");
    Strings names;
    Iterator iterator(folder, kFSIterateFlat);
    end = iterator.result();
    while (end == noErr) {
        ItemCount count = 0;
        HFSUniStr255 name;
        FSCatalogInfo info;
        end = FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, which, &info, nullptr, nullptr, &name);
        if (end == noErr) names.push_back(NameOf(name));
    }
    return Sorted(names);
}

static const std::vector<OddVolume::Entry> kUnseen = {{"a"},           {"b", EIO}, {"c", EACCES},
                                                      {"d", ENOTCONN}, {"e"},      {"gone", ENOENT}};
constexpr FSCatalogInfoBitmap kListed = kFSCatInfoNodeFlags | kFSCatInfoFinderInfo | kFSCatInfoDataSizes;

// The kernel of the machine speaks its own byte order with the server of such a volume.
#define SKIP_UNLESS_ODD_VOLUMES_WORK(mounts)                                                                 \
    do {                                                                                                     \
        SKIP_IF_MISSING((mounts).Missing());                                                                 \
        SKIP_IF_MISSING(OddVolume::Unsupported());                                                           \
    } while (false)

TEST_F(FlatIterator, EntryThatNobodyCanLookAt_IsListedWithTheOthers) {
    PrivateMounts mounts;
    SKIP_UNLESS_ODD_VOLUMES_WORK(mounts);
    OSErr end;
    EXPECT_EQ(ListOdd(kUnseen, kListed, end), (Strings{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(end, errFSNoMoreItems);
}

// Who copies must not take defaults for facts.
TEST_F(FlatIterator, EntryThatNobodyCanLookAt_IsToldOfAtTheEndToWhoCopies) {
    PrivateMounts mounts;
    SKIP_UNLESS_ODD_VOLUMES_WORK(mounts);
    OSErr end;
    EXPECT_EQ(ListOdd(kUnseen, kFSCatInfoSettableInfo, end), (Strings{"a", "e"}));
    EXPECT_EQ(end, ioErr);
}

TEST_F(FlatIterator, NameThatIsTooLong_IsToldOfAtTheEnd) {
    PrivateMounts mounts;
    SKIP_UNLESS_ODD_VOLUMES_WORK(mounts);
    OSErr end;
    EXPECT_EQ(ListOdd({{"a"}, {std::string(256, 'l')}, {"z"}}, kListed, end), (Strings{"a", "z"}));
    EXPECT_EQ(end, bdNamErr);
    EXPECT_EQ(ListOdd({{"a"}, {std::string(255, 'l')}, {"z"}}, kListed, end),
              (Strings{"a", std::string(255, 'l'), "z"}));
    EXPECT_EQ(end, errFSNoMoreItems);
}
