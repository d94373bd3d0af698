// What a thread believes and keeps while it makes a copy of a tree, and that nothing of it outlasts the tree.
#include "platform/linux/trees.h"

#include "metadata_support.h"
#include "platform/iterators.h"
#include "platform/linux/descriptor_cache.h"
#include "platform/linux/kept_files.h"
#include "platform/objects.h"
#include "support/emulation.h"
#include "support/forced_end.h"
#include "support/no_descriptors.h"
#include "support/private_mounts.h"
#include "support/running_task.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

namespace {

const std::string kSound = AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}});

FSRef MakeFolder(const std::string& in, const std::string& name) {
    const FSRef parent = RefTo(in);
    const std::u16string units = Wide(name);
    FSRef ref = {};
    EXPECT_EQ(FSCreateDirectoryUnicode(&parent, static_cast<UniCharCount>(units.size()),
                                       reinterpret_cast<const UniChar*>(units.data()), kFSCatInfoNone,
                                       nullptr, &ref, nullptr, nullptr),
              noErr);
    return ref;
}

FSRef MakeFile(const FSRef& parent, const std::u16string& name) {
    FSRef ref = {};
    EXPECT_EQ(FSCreateFileUnicode(&parent, static_cast<UniCharCount>(name.size()),
                                  reinterpret_cast<const UniChar*>(name.data()), kFSCatInfoNone, nullptr,
                                  &ref, nullptr),
              noErr);
    return ref;
}

// ---- New folders

class TreeFolders : public testing::Test {
protected:
    void TearDown() override { PlatformEndTree(); }

    // Whether a new file takes over what another program has put beside its name.
    bool TakesOver(const FSRef& folder, const std::string& path, const std::string& name) const {
        WriteFile(path + "/._" + name, kSound);
        return GetType(MakeFile(folder, Wide(name))) == "TEXTttxt";
    }

    TemporaryFolder folder_;
    const std::string top_ = folder_ / "top";
};

TEST_F(TreeFolders, WhatOthersPutIntoAFolderOfTheTree_CountsAsPutThereLater) {
    PlatformBeginTree();
    EXPECT_TRUE(TakesOver(MakeFolder(folder_.path(), "top"), top_, "file"));
}

TEST_F(TreeFolders, OtherFolders_AreLookedInto) {
    const FSRef before = MakeFolder(folder_.path(), "top");
    PlatformBeginTree();
    EXPECT_FALSE(TakesOver(before, top_, "file"));
    fs::create_directory(folder_ / "another's");
    EXPECT_FALSE(TakesOver(RefTo(folder_ / "another's"), folder_ / "another's", "file"));
}

TEST_F(TreeFolders, FoldersOfATreeThatHasEnded_AreLookedInto) {
    PlatformBeginTree();
    const FSRef top = MakeFolder(folder_.path(), "top");
    PlatformEndTree();
    EXPECT_FALSE(TakesOver(top, top_, "file"));
    PlatformBeginTree();
    EXPECT_FALSE(TakesOver(top, top_, "other"));
}

TEST_F(TreeFolders, BeginningAgain_IsBeginningAnew) {
    PlatformBeginTree();
    const FSRef top = MakeFolder(folder_.path(), "top");
    PlatformBeginTree();
    EXPECT_FALSE(TakesOver(top, top_, "file"));
}

TEST_F(TreeFolders, OtherThreads_LookIntoThem) {
    PlatformBeginTree();
    const FSRef top = MakeFolder(folder_.path(), "top");
    std::thread([&] { EXPECT_FALSE(TakesOver(top, top_, "file")); }).join();
}

// The tree's own files come in any order: "._file" of a tree without "file" is an ordinary file.
TEST_F(TreeFolders, AfterAFileOfTheTreeThatCouldBeASidecar_TheyAreLookedInto) {
    PlatformBeginTree();
    const FSRef top = MakeFolder(folder_.path(), "top");
    ASSERT_EQ(WriteWhole(MakeFile(top, u"._file"), false, kSound), noErr);
    EXPECT_EQ(GetType(MakeFile(top, u"file")), kNoType);
}

TEST_F(TreeFolders, AfterARenameToWhatCouldBeASidecar_TheyAreLookedInto) {
    PlatformBeginTree();
    const FSRef top = MakeFolder(folder_.path(), "top");
    const FSRef orphan = MakeFile(top, u"orphan");
    ASSERT_EQ(WriteWhole(orphan, false, kSound), noErr);
    ASSERT_EQ(FSRenameUnicode(&orphan, 6, reinterpret_cast<const UniChar*>(u"._file"), kTextEncodingUnknown,
                              nullptr),
              noErr);
    EXPECT_EQ(GetType(MakeFile(top, u"file")), kNoType);
}

TEST_F(TreeFolders, WhatMovesIntoThem_IsLookedForToo) {
    WriteFile(folder_ / "._file", kSound);
    PlatformBeginTree();
    const FSRef top = MakeFolder(folder_.path(), "top"), orphan = RefTo(folder_ / "._file");
    ASSERT_EQ(FSMoveObject(&orphan, &top, nullptr), noErr);
    EXPECT_EQ(GetType(MakeFile(top, u"file")), kNoType);
}

// There is room for a thousand; whichever are forgotten, none is taken for another.
TEST_F(TreeFolders, MoreThanThereIsRoomFor_AreLookedInto) {
    fs::create_directory(folder_ / "another's");
    const FSRef another = RefTo(folder_ / "another's");
    PlatformBeginTree();
    const FSRef first = MakeFolder(folder_.path(), "first");
    for (int i = 0; i < 2000; ++i) MakeFolder(folder_.path(), std::to_string(i));
    EXPECT_FALSE(TakesOver(first, folder_ / "first", "file"));
    EXPECT_FALSE(TakesOver(another, folder_ / "another's", "file"));
}

// There the name is the identity: another folder may stand for this one at any time.
TEST_F(TreeFolders, WhereNumbersTellNothing_FoldersAreLookedInto) {
    PrivateMounts mounts;
    SKIP_IF_MISSING(mounts.Missing());
    SKIP_IF_MISSING(mounts.MountWithoutAttributes("/volume"));
    PlatformBeginTree();
    EXPECT_FALSE(TakesOver(MakeFolder("/volume", "top"), "/volume/top", "file"));
}

// ---- Files

class TreeFiles : public testing::Test {
protected:
    static constexpr int kFiles = 100, kBatch = 80;

    void SetUp() override {
        fs::create_directory(source_);
        PlatformBeginTree();
    }
    void TearDown() override {
        if (iterator_) FSCloseIterator(iterator_);
        PlatformCloseKeptFiles();
        PlatformEndTree();
    }

    void Open(FSIteratorFlags flags = kFSIterateFlat) {
        const FSRef folder = RefTo(source_);
        ASSERT_EQ(FSOpenIterator(&folder, flags, &iterator_), noErr);
    }
    // The next batch, as a copy asks for it; how many descriptors more are open.
    size_t List(FSCatalogInfoBitmap which = kFSCatInfoSettableInfo, bool wantsRefs = true) {
        const size_t before = OpenDescriptors();
        EXPECT_EQ(FSGetCatalogInfoBulk(iterator_, kBatch, &count_, nullptr, which, infos_,
                                       wantsRefs ? refs_ : nullptr, nullptr, names_),
                  noErr);
        return OpenDescriptors() - before;
    }
    // The file that is listed alone.
    const FSRef& ListOne() {
        Open();
        EXPECT_EQ(List(), 1u);
        EXPECT_EQ(count_, 1u);
        return refs_[0];
    }
    void MakeFiles(int count) const {
        for (int i = 0; i < count; ++i) WriteFile(source_ + "/" + std::to_string(i), std::to_string(i));
    }
    // The file's content, read as a copy does.
    static std::string Content(const FSRef& ref) {
        PlatformKeepFilesOpen();
        CatPositionRec position = {};
        int64_t size = -1;
        const OSErr result = FSIterateForks(&ref, &position, nullptr, &size, nullptr);
        const std::string content =
            result == noErr ? ReadWhole(ref, false) : "error " + std::to_string(result);
        PlatformCloseKeptFiles();
        return content;
    }

    TemporaryFolder folder_;
    const std::string source_ = folder_ / "source";
    FSIterator iterator_ = nullptr;
    ItemCount count_ = 0;
    FSCatalogInfo infos_[kBatch];
    FSRef refs_[kBatch];
    HFSUniStr255 names_[kBatch];
};

TEST_F(TreeFiles, ABatchThatIsToBeCopied_IsOpen) {
    MakeFiles(kFiles);
    Open();
    EXPECT_EQ(List(), size_t{kBatch});
}

TEST_F(TreeFiles, TheNextBatch_TakesTheLastOnesPlace) {
    MakeFiles(kFiles);
    Open();
    List();
    const size_t before = OpenDescriptors();
    List();
    EXPECT_EQ(count_, ItemCount{kFiles - kBatch});
    EXPECT_EQ(OpenDescriptors(), before - kBatch + (kFiles - kBatch));
}

TEST_F(TreeFiles, TheEndOfTheTreeOrANewBeginning_ClosesThem) {
    MakeFiles(3);
    for (void (*const leave)() : {PlatformEndTree, PlatformBeginTree}) {
        PlatformBeginTree();
        Open();
        const size_t before = OpenDescriptors();
        EXPECT_EQ(List(), 3u);
        leave();
        EXPECT_EQ(OpenDescriptors(), before);
        FSCloseIterator(std::exchange(iterator_, nullptr));
    }
}

TEST_F(TreeFiles, ListingsForOtherPurposes_OpenNothing) {
    MakeFiles(3);
    Open();
    EXPECT_EQ(List(kFSCatInfoNodeFlags | kFSCatInfoDataSizes), 0u);
    FSCloseIterator(iterator_);
    Open();
    EXPECT_EQ(List(kFSCatInfoSettableInfo, false), 0u);
    FSCloseIterator(iterator_);
    Open(kFSIterateDelete);
    EXPECT_EQ(List(), 0u);
    FSCloseIterator(iterator_);
    PlatformEndTree();
    Open();
    EXPECT_EQ(List(), 0u);
}

// Opening a file there may ask a server, and what has its name when it is copied is the file.
TEST_F(TreeFiles, WhereNumbersTellNothing_NothingIsOpened) {
    PrivateMounts mounts;
    SKIP_IF_MISSING(mounts.Missing());
    SKIP_IF_MISSING(mounts.MountWithoutAttributes("/volume"));
    WriteFile("/volume/file", "content");
    const FSRef folder = RefTo("/volume");
    ASSERT_EQ(FSOpenIterator(&folder, kFSIterateFlat, &iterator_), noErr);
    EXPECT_EQ(List(), 0u);
    EXPECT_EQ(count_, 1u);
}

TEST_F(TreeFiles, WhatIsNoFile_IsNotOpened) {
    fs::create_directory(source_ + "/folder");
    ASSERT_EQ(mkfifo((source_ + "/pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", source_ + "/link");
    Open();
    EXPECT_EQ(List(), 0u);
    EXPECT_EQ(count_, 3u);
}

TEST_F(TreeFiles, FactsAndContent_AreThoseOfTheName) {
    WriteFile(source_ + "/file", "content");
    ASSERT_EQ(SetType(source_ + "/file", "TEXTttxt"), noErr);
    ASSERT_EQ(SetLock(source_ + "/file", true), noErr);
    const FSRef ref = ListOne();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(infos_[0].finderInfo), 8), "TEXTttxt");
    EXPECT_TRUE(infos_[0].nodeFlags & kFSNodeLockedMask);
    EXPECT_EQ(SecondsOf(infos_[0].contentModDate) - k1970, StatusOf(source_ + "/file").st_mtime);
    EXPECT_EQ(infos_[0].permissions.mode, StatusOf(source_ + "/file").st_mode);
    EXPECT_EQ(Content(ref), "content");
}

TEST_F(TreeFiles, FileThatMayNotBeRead_IsListedAllTheSame) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "becoming another user needs the superuser";
    WriteFile(source_ + "/file", "content");
    ASSERT_EQ(SetType(source_ + "/file", "TEXTttxt"), noErr);
    ASSERT_EQ(chmod((source_ + "/file").c_str(), 0), 0);
    fs::permissions(folder_.path(), fs::perms::others_exec | fs::perms::others_read, fs::perm_options::add);
    GiveToPlainUser(source_ + "/file");
    const AsPlainUser user;
    Open();
    EXPECT_EQ(List(), 0u);
    ASSERT_EQ(count_, 1u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(infos_[0].finderInfo), 8), "TEXTttxt");
}

TEST_F(TreeFiles, FileOpenedAhead_IsOpenedOnce) {
    MakeFiles(1);
    const FSRef ref = ListOne();
    const size_t before = OpenDescriptors();
    PlatformKeepFilesOpen();
    CatPositionRec position = {};
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(OpenDescriptors(), before);
    PlatformCloseKeptFiles();
    EXPECT_EQ(OpenDescriptors(), before - 1);
}

TEST_F(TreeFiles, ThoseThatAreLeftOut_AreClosedWithTheNextThatIsRead) {
    MakeFiles(3);
    Open();
    List();
    const size_t before = OpenDescriptors();
    const FSRef last = refs_[2];
    Content(last);
    EXPECT_EQ(OpenDescriptors(), before - 3);
    EXPECT_EQ(Content(refs_[0]).size(), 1u); // it is opened again
}

TEST_F(TreeFiles, ContentThatGrewSinceTheListing_IsReadWhole) {
    WriteFile(source_ + "/file", "old");
    const FSRef ref = ListOne();
    WriteFile(source_ + "/file", "much more than that");
    EXPECT_EQ(Content(ref), "much more than that");
}

TEST_F(TreeFiles, FileDeletedSinceTheListing_IsGone) {
    WriteFile(source_ + "/file", "old");
    const FSRef ref = ListOne();
    fs::remove(source_ + "/file");
    EXPECT_EQ(Content(ref), "error -43");
}

TEST_F(TreeFiles, FileReplacedSinceTheListing_IsGone) {
    WriteFile(source_ + "/file", "old");
    const FSRef ref = ListOne();
    WriteFile(folder_ / "new", "new");
    fs::rename(folder_ / "new", source_ + "/file");
    EXPECT_EQ(Content(ref), "error -43");
}

// The sidecar that stands beside its former name by now belongs to somebody else.
TEST_F(TreeFiles, FileRenamedSinceTheListing_KeepsItsForks) {
    WriteFile(source_ + "/file", "content");
    const FSRef ref = ListOne();
    fs::rename(source_ + "/file", source_ + "/new name");
    WriteFile(source_ + "/file", "another");
    WriteFile(source_ + "/._file", kSound);
    PlatformKeepFilesOpen();
    CatPositionRec position = {};
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(ReadWhole(ref, false), "content");
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, nullptr, nullptr), errFSNoMoreItems);
    PlatformCloseKeptFiles();
}

TEST_F(TreeFiles, TheSecondForkAlone_IsThatOfTheFileByItsPresentName) {
    WriteFile(source_ + "/file", "content");
    const FSRef ref = ListOne();
    fs::rename(source_ + "/file", source_ + "/new name");
    WriteFile(source_ + "/file", "another");
    WriteFile(source_ + "/._file", kSound);
    PlatformKeepFilesOpen();
    CatPositionRec position = {1, {}};
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, nullptr, nullptr), errFSNoMoreItems);
    PlatformCloseKeptFiles();
}

TEST_F(TreeFiles, WhereDescriptorsRunOut_TheyAreGivenBack) {
    MakeFiles(kFiles);
    Open();
    List();
    FSForkRefNum fork = 0;
    {
        const NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        EXPECT_EQ(OpenByRef(refs_[0], false, fsRdPerm, fork), noErr);
    }
    EXPECT_EQ(FSCloseFork(fork), noErr);
    EXPECT_EQ(Content(refs_[1]).size(), names_[1].length);
}

TEST_F(TreeFiles, WithoutADescriptorLeft_FilesAreListedAllTheSame) {
    MakeFiles(3);
    Open();
    const NoDescriptors none;
    ASSERT_TRUE(none.isSet());
    EXPECT_EQ(FSGetCatalogInfoBulk(iterator_, kBatch, &count_, nullptr, kFSCatInfoSettableInfo, infos_, refs_,
                                   nullptr, names_),
              noErr);
    EXPECT_EQ(count_, 3u);
}

// Other threads cannot have them back.
TEST_F(TreeFiles, HalfOfTheDescriptors_IsLeftToOthers) {
    MakeFiles(kFiles);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const size_t open = OpenDescriptors();
    const rlimit few = {2 * (open + 20), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    Open();
    const size_t opened = List();
    const size_t after = OpenDescriptors();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(count_, ItemCount{kBatch});
    EXPECT_GT(opened, 0u);
    EXPECT_LE(after, open + 25); // a few are the listing's own
}

TEST_F(TreeFiles, WithoutMemoryForThem_NoneIsKept) {
    if (IsEmulated()) GTEST_SKIP() << "the emulator sets no limits on memory";
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    const rlimit none = {1, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
    const bool canOpen = CanOpenAhead();
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_FALSE(canOpen);
    EXPECT_TRUE(CanOpenAhead());
}

TEST_F(TreeFiles, WhatATreeTakes_IsGivenBack) {
    const auto pages = [] { return std::stol(ReadFile("/proc/self/statm")); };
    const long before = pages();
    for (int i = 0; i < 5000; ++i) {
        PlatformBeginTree();
        EXPECT_TRUE(CanOpenAhead());
    }
    EXPECT_LT(pages(), before + 5000);
}

class TerminatedTree : public ForcedEnd {};

TEST_F(TerminatedTree, LeavesNoFileOpenThatItWouldHaveReadNext) {
    TemporaryFolder folder;
    for (int i = 0; i < 10; ++i) WriteFile(folder / std::to_string(i), "");
    const FSRef ref = RefTo(folder.path());
    struct Shared {
        const FSRef& folder;
        FSIterator iterator = nullptr;
        std::atomic<bool> hasListed = false;
    } shared{ref};
    ASSERT_EQ(FSOpenIterator(&ref, kFSIterateFlat, &shared.iterator), noErr);
    const size_t before = OpenDescriptors();
    RunningTask task(
        [](void* parameter) -> OSStatus {
            Shared& own = *static_cast<Shared*>(parameter);
            FSCatalogInfo infos[10];
            FSRef refs[10];
            ItemCount count;
            PlatformBeginTree();
            FSGetCatalogInfoBulk(own.iterator, 10, &count, nullptr, kFSCatInfoSettableInfo, infos, refs,
                                 nullptr, nullptr);
            own.hasListed = true;
            for (;;) std::this_thread::yield();
        },
        &shared);
    while (!shared.hasListed) std::this_thread::yield();
    EXPECT_EQ(OpenDescriptors(), before + 10);
    ASSERT_EQ(MPTerminateTask(task.Id(), 5), noErr);
    ASSERT_EQ(task.Result(), 5);
    EXPECT_EQ(OpenDescriptors(), before);
    FSCloseIterator(shared.iterator);
}

// ---- Metadata

class TreeMetadata : public testing::Test {
public:
    // As a file is copied: it bears one mark while it is written, then gets what it is to have.
    static void Copy(const FSRef& folder, const std::string& name, const std::string& mark = "brokMACS") {
        PlatformKeepFilesOpen();
        const FSRef ref = Create(folder, name, mark);
        FSCatalogInfo info = {};
        std::memcpy(info.finderInfo, "TEXTttxt", 8);
        EXPECT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoFinderInfo, &info), noErr);
        PlatformCloseKeptFiles();
    }
    static FSRef Create(const FSRef& folder, const std::string& name, const std::string& mark) {
        FSCatalogInfo info = {};
        info.createDate = DateAt(3'000'000'000);
        std::memcpy(info.finderInfo, mark.data(), 8);
        const std::u16string units(name.begin(), name.end()); // a task that is terminated frees nothing
        FSRef ref = {};
        EXPECT_EQ(FSCreateFileUnicode(&folder, static_cast<UniCharCount>(units.size()),
                                      reinterpret_cast<const UniChar*>(units.data()),
                                      kFSCatInfoCreateDate | kFSCatInfoFinderInfo, &info, &ref, nullptr),
                  noErr);
        return ref;
    }
    static void CopyTwo(const FSRef& folder) {
        Copy(folder, "first");
        Copy(folder, "second");
    }

    // Files on the volume that are open and have no name; none can be given one.
    static int NamelessFiles() {
        int count = 0;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code none;
            const std::string target = fs::read_symlink(entry.path(), none);
            if (!target.starts_with("/volume/") || !target.ends_with("(deleted)")) continue;
            ++count;
            EXPECT_NE(linkat(AT_FDCWD, entry.path().c_str(), AT_FDCWD, "/volume/named", AT_SYMLINK_FOLLOW),
                      0);
        }
        return count;
    }

protected:
    void SetUp() override { PlatformBeginTree(); }
    void TearDown() override { PlatformEndTree(); }

    // On a volume that shares; the reason when there is none.
    std::string MountSharing() {
        return mounts_.Missing().empty() ? mounts_.MountImage("/volume", "ext4") : mounts_.Missing();
    }
    static FSRef Folder() { return RefTo("/volume"); }

    PrivateMounts mounts_;
};

// How many runs of blocks the volume has given out since this was asked for; -1 where it does not count.
long BlocksGivenOut(const std::string& folder) {
    std::ifstream mounts("/proc/self/mounts");
    for (std::string device, where, rest; mounts >> device >> where && std::getline(mounts, rest);) {
        if (where != folder) continue;
        const std::string name = device.substr(device.rfind('/') + 1);
        std::ofstream("/sys/fs/ext4/" + name + "/mb_stats") << "1";
        std::ifstream counts("/proc/fs/ext4/" + name + "/mb_stats");
        for (std::string key, value; counts >> key && std::getline(counts, value);)
            if (key == "reqs:") return std::stol(value);
    }
    return -1;
}

TEST_F(TreeMetadata, WhereEqualOnesAreStoredOnce_FilesThatAreWrittenTakeNoBlocks) {
    SKIP_IF_MISSING(MountSharing());
    const FSRef folder = Folder();
    constexpr int kFiles = 50;
    const auto blocksFor = [&folder](const std::string& names) {
        const long before = BlocksGivenOut("/volume");
        for (int i = 0; i < kFiles; ++i) Copy(folder, names + std::to_string(i));
        return BlocksGivenOut("/volume") - before;
    };
    PlatformEndTree();
    if (blocksFor("alone") < kFiles) GTEST_SKIP() << "the volume does not count what it gives out";
    PlatformBeginTree();
    EXPECT_LT(blocksFor("in a tree"), kFiles / 2);
}

TEST_F(TreeMetadata, OfEachFile_IsItsOwn) {
    SKIP_IF_MISSING(MountSharing());
    for (const char* mark : {"brokMACS", "brokMACS", "otherone", "otherone", "brokMACS"}) {
        Copy(Folder(), "file", mark);
        EXPECT_EQ(GetType("/volume/file"), "TEXTttxt");
        EXPECT_EQ(SecondsOf(GetInfo("/volume/file", kFSCatInfoCreateDate).createDate), 3'000'000'000);
        fs::remove("/volume/file");
    }
}

TEST_F(TreeMetadata, WhatHoldsIt_HasNoNameAndGoesWithTheTree) {
    SKIP_IF_MISSING(MountSharing());
    CopyTwo(Folder());
    EXPECT_EQ(NamelessFiles(), 1);
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator("/volume")) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"first", "lost+found", "second"}));
    PlatformEndTree();
    EXPECT_EQ(NamelessFiles(), 0);
}

TEST_F(TreeMetadata, WhatHoldsIt_IsGivenBackWhereDescriptorsRunOutAndMadeAnew) {
    SKIP_IF_MISSING(MountSharing());
    CopyTwo(Folder());
    EXPECT_TRUE(CloseIdleDescriptors());
    EXPECT_EQ(NamelessFiles(), 0);
    Copy(Folder(), "third");
    EXPECT_EQ(NamelessFiles(), 1);
}

// It takes a file's place.
TEST_F(TreeMetadata, WhatHoldsIt_IsGivenBackWhereRoomRunsOut) {
    SKIP_IF_MISSING(MountSharing());
    constexpr int kLeft = 5;
    int made = 0;
    while (std::ofstream("/volume/filler " + std::to_string(made))) ++made;
    ASSERT_GT(made, 2 * kLeft);
    for (int i = 0; i < kLeft; ++i) fs::remove("/volume/filler " + std::to_string(i));
    for (int i = 1; i < kLeft; ++i) Copy(Folder(), std::to_string(i));
    EXPECT_EQ(NamelessFiles(), 1);
    MakeFolder("/volume", "the last");
    EXPECT_EQ(NamelessFiles(), 0);
    for (int i = 0; i < kLeft; ++i) fs::remove("/volume/filler " + std::to_string(kLeft + i));
    Copy(Folder(), "and no more");
    EXPECT_EQ(NamelessFiles(), 0);
}

// Writes blocks until there is no room; whether there was any.
bool Fill(const std::string& path) {
    const std::string block(1024, 'x');
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    bool isFilled = false;
    while (write(file, block.data(), block.size()) > 0) isFilled = true;
    syncfs(file);
    close(file);
    return isFilled;
}

// So much that nothing more can be written, but for as many blocks as are to be free. A file of many pieces may need more
// than the last block, so that small ones follow.
void FillVolume(const std::string& folder, size_t free) {
    WriteFile(folder + "/spare", std::string(free * 1024, 'x'));
    fs::create_directory(folder + "/fillers");
    for (int number = 0, tries = 0; tries < 3; ++number)
        tries = Fill(folder + "/fillers/" + std::to_string(number)) ? 0 : tries + 1;
    fs::remove(folder + "/spare");
    const int volume = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    syncfs(volume);
    close(volume);
}

// Its block is its own as soon as another mark is in use.
TEST_F(TreeMetadata, BlockOfWhatHoldsIt_IsGivenBackWhereRoomRunsOut) {
    SKIP_IF_MISSING(MountSharing());
    const struct {
        ByteCount blocks; // the first few are left to the write
        bool isResource, isAllocated;
    } rows[] = {{1, false, true}, {6, false, true}, {1, true, false}};
    for (const auto& [blocks, isResource, isAllocated] : rows) {
        PlatformBeginTree();
        CopyTwo(Folder());
        PlatformKeepFilesOpen();
        const FSRef ref = Create(Folder(), "new", "otherone");
        if (isResource) {
            EXPECT_EQ(MakeResourceFork(ref), noErr);
        }
        EXPECT_EQ(NamelessFiles(), 1);
        FillVolume("/volume", blocks - 1);
        FSForkRefNum fork = 0;
        ASSERT_EQ(OpenByRef(ref, isResource, fsWrPerm, fork), noErr);
        const std::string content(1024 * blocks, 'c');
        if (isAllocated) {
            EXPECT_EQ(FSAllocateFork(fork, 0, fsFromStart, 0, 1024 * blocks, nullptr), noErr);
        }
        EXPECT_EQ(FSWriteFork(fork, fsAtMark, 0, 1024 * blocks, content.data(), nullptr), noErr);
        EXPECT_EQ(FSCloseFork(fork), noErr);
        EXPECT_EQ(NamelessFiles(), 0);
        PlatformCloseKeptFiles();
        EXPECT_EQ(ReadWhole(ref, isResource), content);
        for (const char* name : {"first", "second", "new", "._new", "fillers"})
            fs::remove_all(std::string("/volume/") + name);
    }
}

TEST_F(TreeMetadata, WhatHoldsIt_LeavesHalfOfTheDescriptorsToOthers) {
    SKIP_IF_MISSING(MountSharing());
    constexpr int kOpen = 100;
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few = {2 * kOpen, before.rlim_max};
    std::vector<int> others;
    do others.push_back(open("/", O_PATH | O_CLOEXEC));
    while (others.back() < kOpen);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    CopyTwo(Folder());
    EXPECT_EQ(NamelessFiles(), 0);
    for (const int other : others) close(other);
    Copy(Folder(), "third");
    EXPECT_EQ(NamelessFiles(), 0); // once is enough
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(TreeMetadata, OfFilesThatDiffer_IsNotHeld) {
    SKIP_IF_MISSING(MountSharing());
    Copy(Folder(), "first", "brokMACS");
    Copy(Folder(), "second", "otherone");
    Copy(Folder(), "third", "brokMACS");
    EXPECT_EQ(NamelessFiles(), 0);
}

TEST_F(TreeMetadata, OfFolders_IsNotHeld) {
    SKIP_IF_MISSING(MountSharing());
    const FSRef folder = Folder();
    FSCatalogInfo info = {};
    info.createDate = DateAt(3'000'000'000);
    for (const char16_t* name : {u"a", u"b", u"c"}) {
        EXPECT_EQ(FSCreateDirectoryUnicode(&folder, 1, reinterpret_cast<const UniChar*>(name),
                                           kFSCatInfoCreateDate, &info, nullptr, nullptr, nullptr),
                  noErr);
    }
    EXPECT_EQ(NamelessFiles(), 0);
}

TEST_F(TreeMetadata, WhereEachIsStoredByItself_IsNotHeld) {
    SKIP_IF_MISSING(mounts_.Missing());
    SKIP_IF_MISSING(mounts_.MountTmpfs("/volume"));
    CopyTwo(Folder());
    EXPECT_EQ(NamelessFiles(), 0);
}

TEST_F(TreeMetadata, OutsideATree_IsNotHeld) {
    SKIP_IF_MISSING(MountSharing());
    PlatformEndTree();
    CopyTwo(Folder());
    EXPECT_EQ(NamelessFiles(), 0);
}

class TerminatedTreeMetadata : public ForcedEnd {};

TEST_F(TerminatedTreeMetadata, IsHeldNoLonger) {
    PrivateMounts mounts;
    SKIP_IF_MISSING(mounts.Missing());
    SKIP_IF_MISSING(mounts.MountImage("/volume", "ext4"));
    const FSRef folder = RefTo("/volume");
    struct Shared {
        const FSRef& folder;
        std::atomic<bool> hasCopied = false;
    } shared{folder};
    RunningTask task(
        [](void* parameter) -> OSStatus {
            Shared& own = *static_cast<Shared*>(parameter);
            PlatformBeginTree();
            TreeMetadata::CopyTwo(own.folder);
            own.hasCopied = true;
            for (;;) std::this_thread::yield();
        },
        &shared);
    while (!shared.hasCopied) std::this_thread::yield();
    EXPECT_EQ(TreeMetadata::NamelessFiles(), 1);
    ASSERT_EQ(MPTerminateTask(task.Id(), 5), noErr);
    ASSERT_EQ(task.Result(), 5);
    EXPECT_EQ(TreeMetadata::NamelessFiles(), 0);
}

// ---- The thread's root

TEST(TreeRoot, AsOfTheBeginning_HoldsToTheEnd) {
    TemporaryFolder folder;
    WriteFile(folder / "file", "");
    std::thread([&] {
        if (unshare(CLONE_FS) != 0) GTEST_SKIP() << "a root of the thread's own is not allowed here";
        PlatformBeginTree();
        const FSRef ref = RefTo(folder / "file");
        const MountView view = CurrentMountView(MonotonicNow());
        if (chroot(folder.path().c_str()) != 0) GTEST_SKIP() << "changing the root needs a privilege";
        OutlastBelief();
        EXPECT_EQ(CurrentMountView(MonotonicNow()), view);
        EXPECT_EQ(Find(ref), noErr);
        PlatformEndTree();
        EXPECT_NE(CurrentMountView(MonotonicNow()), view);
    }).join();
}

// What was open in the old root has been closed, and is opened anew from the new one.
TEST(TreeRoot, ThatChangedMeanwhile_IsNotTakenForTheOldOne) {
    TemporaryFolder folder;
    fs::create_directory(folder / "root");
    WriteFile(folder / "file", "");
    std::thread([&] {
        if (unshare(CLONE_FS) != 0) GTEST_SKIP() << "a root of the thread's own is not allowed here";
        const int old = open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
        PlatformBeginTree();
        const FSRef ref = RefTo(folder / "file");
        if (chroot((folder / "root").c_str()) != 0) GTEST_SKIP() << "changing the root needs a privilege";
        CloseIdleDescriptors();
        EXPECT_EQ(Find(ref), fnfErr);
        ASSERT_EQ(fchdir(old), 0);
        ASSERT_EQ(chroot("."), 0);
        close(old);
        PlatformEndTree();
        EXPECT_EQ(Find(ref), noErr);
    }).join();
}

} // namespace
