#include "platform/linux/sighting.h"

#include "metadata_support.h"
#include "platform/iterators.h"
#include "platform/linux/settled.h"
#include "platform/linux/sidecar.h"
#include "platform/objects.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <thread>

namespace {
// A folder with one file, listed by this thread when its last change was clearly past.
class BareFolders : public testing::Test {
protected:
    void SetUp() override {
        WriteFile(file_, "data");
        List();
    }

    void List() {
        struct statx facts;
        do ASSERT_EQ(statx(AT_FDCWD, folder_.path().c_str(), 0, STATX_CTIME, &facts), 0);
        while (!IsSettled(facts.stx_ctime, true));
        const FSRef folder = RefTo(folder_.path());
        FSIterator iterator = nullptr;
        ASSERT_EQ(FSOpenIterator(&folder, kFSIterateFlat, &iterator), noErr);
        ItemCount count = 0;
        FSRef refs[4];
        EXPECT_EQ(FSGetCatalogInfoBulk(iterator, 4, &count, nullptr, kFSCatInfoNone, nullptr, refs, nullptr,
                                       nullptr),
                  noErr);
        EXPECT_EQ(FSCloseIterator(iterator), noErr);
    }
    void AddSidecar() const {
        WriteFile(SidecarOf(file_), AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}}));
    }
    bool IsBare() const { return IsInBareFolder(PlaceOf(file_)); }

    // The name and size of the fork after the data fork, as a copy asks for it.
    int64_t SizeOfResourceFork() const {
        const FSRef ref = RefTo(file_);
        CatPositionRec position = {};
        int64_t size = -1;
        EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, &size, nullptr), noErr);
        return FSIterateForks(&ref, &position, nullptr, &size, nullptr) == noErr ? size : -1;
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
};
} // namespace

TEST_F(BareFolders, UnchangedSinceTheListing_IsOne) {
    EXPECT_TRUE(IsBare());
    EXPECT_EQ(SizeOfResourceFork(), -1);
}

TEST_F(BareFolders, SidecarAddedSince_IsSeen) {
    AddSidecar();
    EXPECT_FALSE(IsBare());
    EXPECT_EQ(SizeOfResourceFork(), 8);
}

TEST_F(BareFolders, SidecarBroughtInSince_IsSeenEvenWithTheOldDate) {
    struct stat before;
    ASSERT_EQ(stat(folder_.path().c_str(), &before), 0);
    AddSidecar();
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, folder_.path().c_str(), times, 0), 0);
    EXPECT_FALSE(IsBare());
    EXPECT_EQ(SizeOfResourceFork(), 8);
}

TEST_F(BareFolders, ListingWithASidecar_IsNone) {
    AddSidecar();
    List();
    EXPECT_FALSE(IsBare());
    EXPECT_EQ(SizeOfResourceFork(), 8);
}

TEST_F(BareFolders, AnotherFolder_IsNotTakenForIt) {
    std::filesystem::create_directory(folder_ / "other");
    WriteFile(folder_ / "other/file", "data");
    List();
    EXPECT_TRUE(IsBare());
    EXPECT_FALSE(IsInBareFolder(PlaceOf(folder_ / "other/file")));
}

TEST_F(BareFolders, OtherThreads_KnowNothingOfIt) {
    std::thread([this] { EXPECT_FALSE(IsBare()); }).join();
}

TEST_F(BareFolders, FolderThatHasJustChanged_IsNone) {
    WriteFile(folder_ / "another", "data");
    const Place place = PlaceOf(folder_.path());
    EXPECT_EQ(SeeBareFolder(place, PlaceOf(file_).folderID).id, kNoFolder);
}

// ---- Objects to be deleted

namespace {
class JustSeen : public testing::Test {
protected:
    void SetUp() override {
        Make("data");
        PlatformBeginTree();
    }
    void TearDown() override {
        if (iterator_) FSCloseIterator(iterator_);
        PlatformEndTree();
    }

    void Settle() const {
        struct statx facts;
        do ASSERT_EQ(statx(AT_FDCWD, file_.c_str(), 0, STATX_CTIME, &facts), 0);
        while (!IsSettled(facts.stx_ctime, true));
    }
    void Make(const std::string& content) const {
        WriteFile(file_, content);
        Settle();
    }

    // The file as the listing for a delete gives it.
    FSRef List() {
        if (iterator_) FSCloseIterator(iterator_);
        const FSRef folder = RefTo(folder_.path());
        EXPECT_EQ(FSOpenIterator(&folder, kFSIterateDelete, &iterator_), noErr);
        FSRef ref = {};
        FSCatalogInfo info;
        ItemCount count = 0;
        EXPECT_EQ(FSGetCatalogInfoBulk(iterator_, 1, &count, nullptr, kFSCatInfoNodeFlags, &info, &ref,
                                       nullptr, nullptr),
                  noErr);
        return ref;
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
    FSIterator iterator_ = nullptr;
};
} // namespace

// Of many tries, for a thread may have to wait at any moment.
TEST_F(JustSeen, IsSo_RightAfterTheListingAndNoLonger) {
    bool isSeen = false;
    for (int i = 0; i < 1000 && !isSeen; ++i) isSeen = IsSeenJustNow(List());
    EXPECT_TRUE(isSeen);
    const FSRef ref = List();
    OutlastBelief();
    EXPECT_FALSE(IsSeenJustNow(ref));
}

TEST_F(JustSeen, LockedFile_IsNeverSo) {
    ASSERT_EQ(SetLock(file_, true), noErr);
    Settle();
    for (int i = 0; i < 100; ++i) {
        const FSRef ref = List();
        EXPECT_FALSE(IsSeenJustNow(ref));
        EXPECT_EQ(FSDeleteObject(&ref), fLckdErr);
    }
}

TEST_F(JustSeen, AfterASidecarWasMade_IsSoNoMore) {
    WriteFile(folder_ / "other", "");
    for (int i = 0; i < 10; ++i) {
        const FSRef ref = List();
        CountSidecar();
        EXPECT_FALSE(IsSeenJustNow(ref));
    }
}

TEST_F(JustSeen, AnotherObject_IsNotTakenForIt) {
    for (int i = 0; i < 10; ++i) {
        const FSRef folder = RefTo(folder_.path());
        List();
        EXPECT_FALSE(IsSeenJustNow(folder));
    }
}

// Of many tries, as above; in each the new file is gone with success or kept with the failure.
TEST_F(JustSeen, FileThatIsReplacedRightAfterTheListing_GoesAllTheSame) {
    bool isGone = false;
    for (int i = 0; i < 100 && !isGone; ++i) {
        const FSRef ref = List();
        const Place seen = PlaceOf(file_);
        std::filesystem::remove(file_);
        WriteFile(file_, "new");
        RememberSighting(ref, seen, false, SidecarsMade(), MonotonicNow());
        isGone = FSDeleteObject(&ref) == noErr;
        EXPECT_EQ(std::filesystem::exists(file_), !isGone);
        Make("data");
    }
    EXPECT_TRUE(isGone);
}

TEST_F(JustSeen, OutsideATree_ALookIsTakenAllTheSame) {
    PlatformEndTree();
    for (int i = 0; i < 20; ++i) {
        const FSRef ref = List();
        FSCatalogInfo locked = {};
        locked.nodeFlags = kFSNodeLockedMask;
        ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &locked), noErr);
        EXPECT_EQ(FSDeleteObject(&ref), fLckdErr);
        ASSERT_EQ(SetLock(file_, false), noErr);
        Settle();
    }
}

TEST_F(JustSeen, FileThatWasReplacedAWhileAfterTheListing_IsKept) {
    WriteFile(folder_.path().string() + "-new", "new");
    const FSRef ref = List();
    std::filesystem::rename(folder_.path().string() + "-new", file_);
    OutlastBelief();
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
    EXPECT_EQ(ReadFile(file_), "new");
}

TEST_F(JustSeen, FolderThatTookTheNameSince_IsKept) {
    for (int i = 0; i < 10; ++i) {
        const FSRef ref = List();
        std::filesystem::remove(file_);
        std::filesystem::create_directory(file_);
        EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
        EXPECT_TRUE(std::filesystem::is_directory(file_));
        std::filesystem::remove(file_);
        Make("data");
    }
}

TEST_F(JustSeen, FileThatIsGone_IsMissed) {
    const FSRef ref = List();
    std::filesystem::remove(file_);
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
}
