#include "platform/linux/sighting.h"

#include "metadata_support.h"
#include "platform/iterators.h"
#include "platform/linux/settled.h"

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
