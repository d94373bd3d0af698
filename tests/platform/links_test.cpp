#include "platform/linux/links.h"

#include "metadata_support.h"

namespace {
class Links : public testing::Test {
protected:
    static OSErr TurnInto(const FSRef& ref) {
        FSSpec spec = {};
        spec.ref = ref;
        FInfo finder = {};
        std::memcpy(finder.bytes, "slnkrhap", 8);
        return FSpSetFInfo(&spec, &finder);
    }
    static std::string TextOf(const std::string& path) {
        char text[4096];
        const ssize_t length = readlink(path.c_str(), text, sizeof(text));
        return length < 0 ? "no link" : std::string(text, static_cast<size_t>(length));
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
};
} // namespace

TEST_F(Links, WrittenFile_BecomesALinkAtOnceAndItsReferenceStaysValid) {
    WriteFile(file_, "../some where");
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(TurnInto(ref), noErr);
    EXPECT_EQ(TextOf(file_), "../some where");
    EXPECT_EQ(PathOf(ref), file_);
    EXPECT_EQ(GetType(ref), "slnkrhap");
    EXPECT_EQ(ReadWhole(ref, false), "../some where");
    EXPECT_EQ(GetInfo(folder_.path(), kFSCatInfoValence).valence, 1u);
}

TEST_F(Links, ReferenceOfTheFile_FollowsTheLinksRename) {
    WriteFile(file_, "target");
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(TurnInto(ref), noErr);
    Place place;
    ASSERT_EQ(Locate(ref, place), noErr);
    EXPECT_TRUE(place.isLink);
    EXPECT_FALSE(place.standsForTarget);
    ASSERT_EQ(rename(file_.c_str(), (folder_ / "renamed").c_str()), 0);
    ObjectMoved(place, place.folderID, "renamed");
    EXPECT_EQ(PathOf(ref), folder_ / "renamed");
}

TEST_F(Links, ReferenceOfTheFile_NeverLeadsToWhatTakesTheNameLater) {
    WriteFile(file_, "target");
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(TurnInto(ref), noErr);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    ASSERT_EQ(symlink("elsewhere", file_.c_str()), 0);
    if (!(PlaceOf(folder_.path()).facts.stx_mask & STATX_BTIME))
        GTEST_SKIP() << "the volume keeps no birth times";
    EXPECT_EQ(Find(ref), fnfErr);
}

TEST_F(Links, DatesAndOwner_AreTheFiles) {
    WriteFile(file_, "target");
    const timespec times[2] = {{1000000000, 1}, {1100000000, 123456789}};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
    if (AsPlainUser::IsPossible()) GiveToPlainUser(file_);
    const struct stat before = StatusOf(file_);
    ASSERT_EQ(TurnInto(RefTo(file_)), noErr);
    const struct stat after = StatusOf(file_);
    EXPECT_EQ(after.st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(after.st_mtim.tv_nsec, 123456789);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST_F(Links, LockedFile_BecomesALinkWithoutLockAndSidecar) {
    WriteFile(file_, "target");
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(SetLock(file_, true), noErr);
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(TurnInto(ref), noErr);
    EXPECT_EQ(TextOf(file_), "target");
    EXPECT_EQ(GetInfo(ref, kFSCatInfoNodeFlags).nodeFlags, 0);
    EXPECT_FALSE(Exists(SidecarOf(file_)));
}

TEST_F(Links, ContentThatIsNoLinkText_LeavesTheFile) {
    for (const std::string& content : {std::string(), std::string("a\0b", 3), std::string(4096, 'x')}) {
        WriteFile(file_, content);
        EXPECT_EQ(TurnInto(RefTo(file_)), paramErr);
        EXPECT_EQ(ReadFile(file_), content);
        EXPECT_EQ(GetInfo(folder_.path(), kFSCatInfoValence).valence, 1u);
    }
}

TEST_F(Links, LongestText_IsTaken) {
    const std::string text(4095, 'x');
    WriteFile(file_, text);
    ASSERT_EQ(TurnInto(RefTo(file_)), noErr);
    EXPECT_EQ(TextOf(file_), text);
}

TEST_F(Links, FileWithAnOpenFork_IsBusy) {
    WriteFile(file_, "target");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(RefTo(file_), false, fsWrPerm, number), noErr);
    EXPECT_EQ(TurnInto(RefTo(file_)), fBsyErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_EQ(TurnInto(RefTo(file_)), noErr);
}

TEST_F(Links, FolderOrLink_IsNotTurnedIntoALink) {
    ASSERT_EQ(symlink("nowhere", file_.c_str()), 0);
    EXPECT_EQ(TurnInto(EntryRef(file_)), noErr); // it is one already
    EXPECT_EQ(TextOf(file_), "nowhere");
    ASSERT_EQ(mkdir((folder_ / "folder").c_str(), 0755), 0);
    EXPECT_EQ(TurnInto(RefTo(folder_ / "folder")), noErr); // Finder information like any other
    EXPECT_EQ(GetType(folder_ / "folder"), "slnkrhap");
}

TEST_F(Links, TypeWithoutItsCreator_IsFinderInformation) {
    WriteFile(file_, "target");
    FSSpec spec = {};
    spec.ref = RefTo(file_);
    FInfo finder = {};
    std::memcpy(finder.bytes, "slnkxxxx", 8);
    ASSERT_EQ(FSpSetFInfo(&spec, &finder), noErr);
    EXPECT_EQ(ReadFile(file_), "target");
    EXPECT_EQ(GetType(file_), "slnkxxxx");
}

TEST_F(Links, TypeGivenToANewFile_LeavesItWritableUntilItIsTurned) {
    WriteFile(file_, "");
    ASSERT_EQ(SetType(file_, "slnkrhap"), noErr);
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(WriteWhole(ref, false, "target"), noErr);
    ASSERT_EQ(TurnInto(ref), noErr);
    EXPECT_EQ(TextOf(file_), "target");
}
