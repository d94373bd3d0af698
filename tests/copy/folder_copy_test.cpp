#include "copy/folder_copy.h"

#include "platform/catalog.h"
#include "platform/objects.h"
#include "platform/references.h"
#include "platform/volumes.h"
#include "support/files.h"
#include "support/references.h"
#include "support/sidecars.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <vector>

namespace fs = std::filesystem;

namespace {

class FolderCopyTest : public testing::Test {
public:
    FolderCopyTest() {
        fs::create_directories(folder.path() / "from/tree");
        fs::create_directory(folder.path() / "to");
    }
    std::string From(const std::string& name) { return (folder.path() / "from" / name).string(); }
    std::string To(const std::string& name) { return (folder.path() / "to" / name).string(); }

    OSErr CopyTree(ItemCount maxLevels = 0, DupeAction action = kDupeActionStandard,
                   CopyFilterProc filter = nullptr, void* data = nullptr) {
        FSRef source = Reference(From("tree")), dest = Reference(folder / "to");
        return FSCopyObject(&source, &dest, maxLevels, kFSCatInfoNone, action, nullptr, false, true, filter,
                            data, nullptr, nullptr);
    }
    // The paths below a folder, relative to it.
    static std::set<std::string> Entries(const std::string& root) {
        std::set<std::string> entries;
        for (const auto& entry : fs::recursive_directory_iterator(root))
            entries.insert(fs::relative(entry.path(), root).string());
        return entries;
    }
    // How many objects a listing of the folder shows.
    static uint32_t Items(const std::string& path) {
        FSRef ref = Reference(path);
        FSCatalogInfo info;
        EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoValence, &info, nullptr, nullptr, nullptr), noErr);
        return info.valence;
    }
    UTCDateTime CreationDate(const std::string& path) {
        FSRef ref = Reference(path);
        FSCatalogInfo info;
        EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoCreateDate, &info, nullptr, nullptr, nullptr), noErr);
        return info.createDate;
    }

    TemporaryFolder folder;
};

using Paths = std::set<std::string>;

} // namespace

TEST_F(FolderCopyTest, WholeTreeIsCopied) {
    fs::create_directories(From("tree/a/b/c"));
    fs::create_directories(From("tree/empty"));
    WriteFile(From("tree/one"), "1");
    WriteFile(From("tree/a/two"), "2");
    WriteFile(From("tree/a/b/c/three"), "3");
    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(Entries(To("tree")), Entries(From("tree")));
    EXPECT_EQ(ReadFile(To("tree/a/b/c/three")), "3");
}

TEST_F(FolderCopyTest, FolderOfSeveralBatchesIsCopiedWhole) {
    for (int i = 0; i < 250; ++i) WriteFile(From("tree/") + std::to_string(i), "x");
    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(Entries(To("tree")).size(), 250u);
}

TEST_F(FolderCopyTest, DepthLimitCreatesButDoesNotEnter) {
    fs::create_directories(From("tree/a/b/c"));
    WriteFile(From("tree/file"), "x");
    WriteFile(From("tree/a/file"), "x");
    ASSERT_EQ(CopyTree(1), noErr);
    EXPECT_EQ(Entries(To("tree")), (Paths{"a", "file"}));
    ASSERT_EQ(CopyTree(2, kDupeActionReplace), noErr);
    EXPECT_EQ(Entries(To("tree")), (Paths{"a", "a/b", "a/file", "file"}));
}

TEST_F(FolderCopyTest, DestinationInsideTheSourceIsRefusedAndNothingIsCreated) {
    fs::create_directories(From("tree/a/b"));
    FSRef source = Reference(From("tree"));
    for (std::string inside : {"tree", "tree/a", "tree/a/b"}) {
        FSRef dest = Reference(From(inside));
        EXPECT_EQ(
            FSCopyObject(&source, &dest, 0, 0, 0, nullptr, false, false, nullptr, nullptr, nullptr, nullptr),
            kDestInsideSourceErr)
            << inside;
    }
    EXPECT_EQ(Entries(From("tree")), (Paths{"a", "a/b"}));
}

TEST_F(FolderCopyTest, DestinationInsideTheSourceThroughALinkIsRefused) {
    fs::create_directories(From("tree/a"));
    fs::create_directory_symlink(From("tree/a"), folder / "link");
    FSRef source = Reference(From("tree")), dest = Reference(folder / "link");
    EXPECT_EQ(
        FSCopyObject(&source, &dest, 0, 0, 0, nullptr, false, false, nullptr, nullptr, nullptr, nullptr),
        kDestInsideSourceErr);
    EXPECT_EQ(Entries(From("tree")), (Paths{"a"}));
}

TEST_F(FolderCopyTest, SiblingWithTheSourceNameAsPrefixIsNoInside) {
    fs::create_directory(From("tree2"));
    FSRef source = Reference(From("tree")), dest = Reference(From("tree2"));
    EXPECT_EQ(CheckForDestInsideSrc(&source, &dest), noErr);
    EXPECT_EQ(CheckForDestInsideSrc(&dest, &source), noErr);
}

TEST_F(FolderCopyTest, TopFolderHasTheSourceCreationDateAfterwards) {
    FSRef source = Reference(From("tree"));
    FSCatalogInfo info{};
    info.createDate = {0, 3000000000u, 0};
    ASSERT_EQ(FSSetCatalogInfo(&source, kFSCatInfoCreateDate, &info), noErr);
    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(+CreationDate(To("tree")).lowSeconds, 3000000000u);
}

TEST_F(FolderCopyTest, TopFolderIsBusyWhileItIsFilledAndAfterAFailure) {
    WriteFile(From("tree/file"), "x");
    struct Seen {
        FolderCopyTest* test;
        UTCDateTime whileFilled;
    } seen{this, {}};
    auto stop = [](Boolean isFolder, ItemCount, OSErr, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                   const HFSUniStr255*, const FSRef*, void* data) -> OSErr {
        auto& s = *static_cast<Seen*>(data);
        if (isFolder) return noErr;
        s.whileFilled = s.test->CreationDate(s.test->To("tree"));
        return -128;
    };
    EXPECT_EQ(CopyTree(0, kDupeActionStandard, stop, &seen), -128);
    UTCDateTime busy;
    ASSERT_EQ(GetMagicBusyCreateDate(&busy), noErr);
    EXPECT_EQ(+seen.whileFilled.lowSeconds, +busy.lowSeconds);
    EXPECT_EQ(+CreationDate(To("tree")).lowSeconds, +busy.lowSeconds);
}

TEST_F(FolderCopyTest, FailedReplaceRemovesThePartialTreeAndBringsTheOldBack) {
    WriteFile(From("tree/file"), "new");
    fs::create_directory(To("tree"));
    WriteFile(To("tree/old"), "old");
    auto stop = [](Boolean isFolder, ItemCount, OSErr, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                   const HFSUniStr255*, const FSRef*, void*) -> OSErr { return isFolder ? noErr : -128; };
    EXPECT_EQ(CopyTree(0, kDupeActionReplace, stop), -128);
    EXPECT_EQ(Entries(folder / "to"), (Paths{"tree", "tree/old"}));
}

TEST_F(FolderCopyTest, FilterSeesEachItemWithLevelAndName) {
    fs::create_directories(From("tree/a/b"));
    WriteFile(From("tree/a/file"), "x");
    std::set<std::string> seen;
    auto record = [](Boolean isFolder, ItemCount level, OSErr result, const FSCatalogInfo*, const FSRef*,
                     const FSSpec*, const HFSUniStr255* name, const FSRef*, void* data) -> OSErr {
        EXPECT_EQ(result, noErr);
        std::string text = Narrow(std::u16string(name->unicode, name->unicode + name->length));
        static_cast<std::set<std::string>*>(data)->insert(text + (isFolder ? "/" : "") +
                                                          std::to_string(level));
        return noErr;
    };
    ASSERT_EQ(CopyTree(0, kDupeActionStandard, record, &seen), noErr);
    EXPECT_EQ(seen, (Paths{"tree/0", "a/1", "b/2", "file2"}));
}

TEST_F(FolderCopyTest, FilterIsGivenTheFurtherFactsTheSpecAndTheFolderOfEachItem) {
    fs::create_directories(From("tree/a"));
    WriteFile(From("tree/a/file"), "content");
    WriteFile(From("tree/empty"), "");
    Paths seen;
    auto record = [](Boolean isFolder, ItemCount, OSErr result, const FSCatalogInfo* info, const FSRef* ref,
                     const FSSpec* spec, const HFSUniStr255* name, const FSRef* dest, void* data) -> OSErr {
        EXPECT_EQ(result, noErr);
        EXPECT_EQ(name, nullptr);
        FSRef fromSpec;
        EXPECT_TRUE(spec && FSpMakeFSRef(spec, &fromSpec) == noErr && PathOf(fromSpec) == PathOf(*ref));
        const fs::path path = PathOf(*ref);
        EXPECT_EQ(path.parent_path().string(), PathOf(*dest));
        static_cast<Paths*>(data)->insert(path.filename().string() +
                                          (isFolder ? "/" : std::to_string(info->dataLogicalSize)));
        return noErr;
    };
    FSRef source = Reference(From("tree")), dest = Reference(folder / "to");
    ASSERT_EQ(FSCopyObject(&source, &dest, 0, kFSCatInfoDataSizes, kDupeActionStandard, nullptr, true, false,
                           record, &seen, nullptr, nullptr),
              noErr);
    EXPECT_EQ(seen, (Paths{"tree/", "a/", "file7", "empty0"}));
}

TEST_F(FolderCopyTest, SourceReachedThroughALinkIsNotCopiedIntoItself) {
    fs::create_directories(From("tree/a"));
    fs::create_directory_symlink(From("tree"), folder / "link");
    EXPECT_EQ(TavCopyFile(Wide(folder / "link").c_str(), Wide(From("tree/a/copy")).c_str(), 1), 0);
    EXPECT_EQ(Entries(From("tree")), (Paths{"a"}));
}

TEST_F(FolderCopyTest, SubFoldersAreVisitedBeforeLaterSiblings) {
    for (const char* name : {"a", "b", "c"}) {
        fs::create_directories(From("tree/") + name + "/x");
        WriteFile(From("tree/") + name + "/x/file", "x");
    }
    std::vector<ItemCount> levels;
    auto record = [](Boolean, ItemCount level, OSErr result, const FSCatalogInfo*, const FSRef*,
                     const FSSpec*, const HFSUniStr255*, const FSRef*, void* data) -> OSErr {
        static_cast<std::vector<ItemCount>*>(data)->push_back(level);
        return result;
    };
    ASSERT_EQ(CopyTree(0, kDupeActionStandard, record, &levels), noErr);
    EXPECT_EQ(levels, (std::vector<ItemCount>{0, 1, 1, 1, 2, 3, 2, 3, 2, 3}));
}

TEST_F(FolderCopyTest, ItemsThatCannotBeCopiedAreSkippedWithoutAFilter) {
    ASSERT_EQ(mkfifo(From("tree/pipe").c_str(), 0644), 0);
    WriteFile(From("tree/file"), "x");
    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(Entries(To("tree")), (Paths{"file"}));
}

TEST_F(FolderCopyTest, FilterLearnsOfAnItemThatFailedAndMayStopTheCopy) {
    ASSERT_EQ(mkfifo(From("tree/pipe").c_str(), 0644), 0);
    auto passOn = [](Boolean, ItemCount, OSErr result, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                     const HFSUniStr255*, const FSRef*, void*) -> OSErr { return result; };
    EXPECT_NE(CopyTree(0, kDupeActionStandard, passOn), noErr);
}

TEST_F(FolderCopyTest, ModesOfFoldersAreKeptThoughTheyDenyWriting) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can fill such folders";
    fs::create_directories(From("tree/sub"));
    WriteFile(From("tree/sub/file"), "x");
    ASSERT_EQ(chmod(From("tree/sub").c_str(), 0555), 0);
    ASSERT_EQ(chmod(From("tree").c_str(), 0500), 0);
    ASSERT_EQ(CopyTree(), noErr);
    struct stat facts;
    ASSERT_EQ(stat(To("tree").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0500u);
    ASSERT_EQ(chmod(To("tree").c_str(), 0700), 0);
    ASSERT_EQ(stat(To("tree/sub").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0555u);
    EXPECT_EQ(ReadFile(To("tree/sub/file")), "x");
}

// Nothing is written back in a drop box, so what is made there has its facts from the beginning; and no file can
// be filled there (see the drop-box fork list), an empty one neither.
TEST_F(FolderCopyTest, FolderInADropBoxIsNeverBusyAndKeepsTheOwnersRights) {
    fs::create_directories(From("tree/sub"));
    WriteFile(From("tree/empty"), "");
    WriteFile(From("tree/full"), "content");
    FSRef source = Reference(From("tree"));
    FSCatalogInfo info{};
    info.createDate = {0, 3000000000u, 0};
    ASSERT_EQ(FSSetCatalogInfo(&source, kFSCatInfoCreateDate, &info), noErr);
    ASSERT_EQ(chmod(From("tree/sub").c_str(), 0500), 0);
    ASSERT_EQ(chmod(From("tree").c_str(), 0555), 0);
    ASSERT_EQ(chmod(To("").c_str(), 0733), 0);

    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(Entries(To("tree")), (Paths{"sub"}));
    const auto mode = [&](const char* name) {
        struct stat facts;
        EXPECT_EQ(stat(To(name).c_str(), &facts), 0);
        return facts.st_mode & 07777;
    };
    EXPECT_EQ(mode("tree"), 0755u);
    EXPECT_EQ(mode("tree/sub"), 0700u);
    EXPECT_EQ(+CreationDate(To("tree")).lowSeconds, 3000000000u);
}

TEST_F(FolderCopyTest, FinderInformationAndDatesOfFoldersAreKeptButForThePlacedFlag) {
    fs::create_directory(From("tree/sub"));
    for (const char* name : {"tree", "tree/sub"}) {
        FSRef ref = Reference(From(name));
        FSCatalogInfo info{};
        info.finderInfo[8] = 0x41; // invisible, has been placed
        info.finderInfo[11] = 9;
        info.extFinderInfo[3] = 5;
        info.createDate = {0, 3000000000u, 0};
        info.nodeFlags = kFSNodeLockedMask;
        ASSERT_EQ(FSSetCatalogInfo(&ref,
                                   kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo | kFSCatInfoCreateDate |
                                       kFSCatInfoNodeFlags,
                                   &info),
                  noErr);
    }
    ASSERT_EQ(CopyTree(), noErr);
    for (const char* name : {"tree", "tree/sub"}) {
        SCOPED_TRACE(name);
        FSRef ref = Reference(To(name));
        FSCatalogInfo info{};
        ASSERT_EQ(FSGetCatalogInfo(&ref,
                                   kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo | kFSCatInfoCreateDate |
                                       kFSCatInfoNodeFlags,
                                   &info, nullptr, nullptr, nullptr),
                  noErr);
        EXPECT_EQ(info.finderInfo[8], 0x40);
        EXPECT_EQ(info.finderInfo[11], 9);
        EXPECT_EQ(info.extFinderInfo[3], 5);
        EXPECT_EQ(+info.createDate.lowSeconds, 3000000000u);
        EXPECT_TRUE(info.nodeFlags & kFSNodeLockedMask);
    }
}

TEST_F(FolderCopyTest, DeepTreeIsCopied) {
    fs::path path = From("tree");
    for (int i = 0; i < 300; ++i) path /= "d";
    fs::create_directories(path);
    WriteFile((path / "file").string(), "deep");
    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(Entries(To("tree")).size(), 301u);
}

// An entry "._name" that was there before "name" is a file of its own, and is no part of "name" in the copy either,
// whichever of the two the listing gives first.
TEST_F(FolderCopyTest, OrphanedSidecarsOfTheSourceAreCopiedAsFiles) {
    constexpr uint32_t kPairs = 15; // without attributes not many more would be remembered
    const FSRef tree = Reference(From("tree"));
    for (uint32_t i = 0; i < kPairs; ++i) {
        const std::string name = std::to_string(i);
        WriteFile(From("tree/._" + name), EmptySidecar());
        const HFSUniStr255 units = Name(Wide(name));
        ASSERT_EQ(FSCreateFileUnicode(&tree, units.length, units.unicode, kFSCatInfoNone, nullptr, nullptr,
                                      nullptr),
                  noErr);
    }
    ASSERT_EQ(CopyTree(), noErr);
    EXPECT_EQ(Items(From("tree")), 2 * kPairs);
    EXPECT_EQ(Items(To("tree")), 2 * kPairs);
}

TEST_F(FolderCopyTest, WhatAFilterPutsThereBeforeAFileIsNoPartOfTheFile) {
    WriteFile(From("tree/file"), "x");
    auto put = [](Boolean isFolder, ItemCount, OSErr, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                  const HFSUniStr255*, const FSRef*, void* data) -> OSErr {
        if (isFolder) WriteFile(static_cast<FolderCopyTest*>(data)->To("tree/._file"), EmptySidecar());
        return noErr;
    };
    ASSERT_EQ(CopyTree(0, kDupeActionStandard, put, this), noErr);
    EXPECT_EQ(Items(To("tree")), 2u);
}

TEST_F(FolderCopyTest, OrphanedSidecarsArePassedByInTheCopyWhenItHasEnded) {
    fs::create_directory(From("tree/folder"));
    ASSERT_EQ(CopyTree(), noErr);
    for (const std::string copied : {"tree", "tree/folder"}) {
        WriteFile(To(copied + "/._file"), EmptySidecar());
        const FSRef parent = Reference(To(copied));
        const HFSUniStr255 name = Name(u"file");
        ASSERT_EQ(FSCreateFileUnicode(&parent, name.length, name.unicode, kFSCatInfoNone, nullptr, nullptr,
                                      nullptr),
                  noErr);
        EXPECT_EQ(Items(To(copied)), copied == "tree" ? 3u : 2u);
    }
}

TEST(GetMagicBusyCreateDate, NullIsRefused) {
    EXPECT_EQ(GetMagicBusyCreateDate(nullptr), paramErr);
}

namespace {

void UseTimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

} // namespace

// Right only while nothing else of this process has asked for the date.
TEST(GetMagicBusyCreateDate, IsTheMorningOf14February1946InLocalTimeComputedOnce) {
    UTCDateTime first{1, 1, 1};
    UseTimeZone("EST5");
    ASSERT_EQ(GetMagicBusyCreateDate(&first), noErr);
    EXPECT_EQ(+first.highSeconds, 0);
    EXPECT_EQ(+first.lowSeconds, 1329266096u + 5 * 3600);
    EXPECT_EQ(+first.fraction, 0);
    UseTimeZone("UTC0");
    UTCDateTime second{};
    ASSERT_EQ(GetMagicBusyCreateDate(&second), noErr);
    EXPECT_EQ(+second.lowSeconds, +first.lowSeconds);
}
