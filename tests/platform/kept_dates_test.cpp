#include "platform/linux/kept_dates.h"

#include "metadata_support.h"

namespace {
constexpr int64_t kGiven = k1970 + 1000000000;

class KeptDates : public testing::Test {
protected:
    // A file as the library makes it when it is given a date.
    FSRef MakeFile(const std::string& name) {
        const std::string path = folder_ / name;
        WriteFile(path, "");
        FSCatalogInfo info = {};
        info.contentModDate = DateAt(kGiven, 0x8000);
        Place made = PlaceOf(path);
        EXPECT_EQ(FurnishNewObject(made, kFSCatInfoContentMod, &info), noErr);
        return RefTo(path);
    }
    static bool IsGiven(const FSRef& ref) {
        const UTCDateTime date = GetInfo(ref, kFSCatInfoContentMod).contentModDate;
        return SecondsOf(date) == kGiven && date.fraction == 0x8000;
    }
    std::string PathTo(const std::string& name) { return folder_ / name; }

    TemporaryFolder folder_;
};
} // namespace

TEST_F(KeptDates, FirstWriting_LeavesTheDate) {
    const FSRef ref = MakeFile("x");
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    EXPECT_TRUE(IsGiven(ref));
}

TEST_F(KeptDates, AllocatingAndCutting_LeaveTheDateToo) {
    const FSRef ref = MakeFile("x");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, number), noErr);
    EXPECT_EQ(FSAllocateFork(number, kFSAllocNoRoundUpMask, fsFromStart, 0, 4096, nullptr), noErr);
    EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 512, std::string(512, 'x').data(), nullptr), noErr);
    EXPECT_EQ(FSSetForkSize(number, fsFromStart, 5), noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_TRUE(IsGiven(ref));
    EXPECT_EQ(ReadFile(PathTo("x")), "xxxxx");
}

TEST_F(KeptDates, SecondWriting_SetsTheDateAsUsual) {
    const FSRef ref = MakeFile("x");
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    ASSERT_EQ(WriteWhole(ref, false, "more"), noErr);
    EXPECT_FALSE(IsGiven(ref));
}

TEST_F(KeptDates, OpeningWithoutWriting_DoesNotCount) {
    const FSRef ref = MakeFile("x");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsRdWrPerm, number), noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    EXPECT_TRUE(IsGiven(ref));
}

TEST_F(KeptDates, ResourceForkFirst_LeavesTheDate) {
    const FSRef ref = MakeFile("x");
    ASSERT_EQ(MakeResourceFork(ref), noErr);
    ASSERT_EQ(WriteWhole(ref, true, "resource"), noErr);
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    EXPECT_TRUE(IsGiven(ref));
}

TEST_F(KeptDates, OtherFactsSetAfterwards_LeaveTheDate) {
    const FSRef ref = MakeFile("x");
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    ASSERT_EQ(SetType(PathTo("x"), "TEXTttxt"), noErr);
    ASSERT_EQ(SetLock(PathTo("x"), true), noErr);
    EXPECT_TRUE(IsGiven(ref));
}

TEST_F(KeptDates, TwoForksOpenAtOnce_LeaveTheDateWhenTheLastIsClosed) {
    const FSRef ref = MakeFile("x");
    FSForkRefNum first = 0, second = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, first), noErr);
    ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, second), noErr);
    EXPECT_EQ(FSWriteFork(first, fsAtMark, 0, 1, "a", nullptr), noErr);
    EXPECT_EQ(FSCloseFork(first), noErr);
    EXPECT_EQ(FSWriteFork(second, fsAtMark, 0, 1, "b", nullptr), noErr);
    EXPECT_EQ(FSCloseFork(second), noErr);
    EXPECT_TRUE(IsGiven(ref));
}

TEST_F(KeptDates, ADateThatIsSet_Holds) {
    const FSRef ref = MakeFile("x");
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(kGiven + 5);
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoContentMod, &info), noErr);
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    EXPECT_GT(SecondsOf(GetInfo(ref, kFSCatInfoContentMod).contentModDate), kGiven + 5); // by the writing
}

TEST_F(KeptDates, ADateSetWhileTheForkIsOpen_IsNotTakenBack) {
    const FSRef ref = MakeFile("x");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, number), noErr);
    EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 1, "a", nullptr), noErr);
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(kGiven + 5);
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoContentMod, &info), noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_EQ(SecondsOf(GetInfo(ref, kFSCatInfoContentMod).contentModDate), kGiven + 5);
}

TEST_F(KeptDates, SomeoneElsesChangeBefore_EndsIt) {
    const FSRef ref = MakeFile("x");
    WriteFile(PathTo("x"), "someone else");
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    EXPECT_FALSE(IsGiven(ref));
}

TEST_F(KeptDates, SomeoneElsesChangeMeanwhile_EndsIt) {
    const FSRef ref = MakeFile("x");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, number), noErr);
    EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 1, "a", nullptr), noErr);
    const int64_t own = SystemTime();
    do WriteFile(PathTo("x"), "someone else"); // until the host's clock for changes has moved on
    while (StatusOf(PathTo("x")).st_mtim.tv_sec * 1000000000LL + StatusOf(PathTo("x")).st_mtim.tv_nsec <=
           own);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_FALSE(IsGiven(ref));
}

TEST_F(KeptDates, SomeoneElsesChangeOfAForkOnlyOpened_EndsIt) {
    const FSRef ref = MakeFile("x");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, number), noErr);
    WriteFile(PathTo("x"), "someone else");
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_FALSE(IsGiven(ref));
    ASSERT_EQ(WriteWhole(ref, false, "data"), noErr);
    EXPECT_FALSE(IsGiven(ref));
}

// The first date whose nanoseconds since 1970 need more than 63 bits comes in 2262; this is one in 2300.
constexpr timespec kFarAhead = {static_cast<time_t>(10413792000), 0};

TEST_F(KeptDates, SomeoneElsesDateFarAhead_EndsItToo) {
    const FSRef ref = MakeFile("x");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, number), noErr);
    EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 1, "a", nullptr), noErr);
    const timespec theirs[2] = {kFarAhead, kFarAhead};
    ASSERT_EQ(utimensat(AT_FDCWD, PathTo("x").c_str(), theirs, 0), 0);
    const time_t shown = StatusOf(PathTo("x")).st_mtim.tv_sec; // some volumes end earlier
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_EQ(StatusOf(PathTo("x")).st_mtim.tv_sec, shown);
}

TEST_F(KeptDates, DateFarAhead_HoldsWhileTheFileIsFirstWritten) {
    const std::string path = PathTo("x");
    WriteFile(path, "");
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(k1970 + kFarAhead.tv_sec);
    Place made = PlaceOf(path);
    EXPECT_EQ(FurnishNewObject(made, kFSCatInfoContentMod, &info), noErr);
    const time_t shown = StatusOf(path).st_mtim.tv_sec;
    ASSERT_EQ(WriteWhole(RefTo(path), false, "data"), noErr);
    EXPECT_EQ(StatusOf(path).st_mtim.tv_sec, shown);
}

// Each of the 16 rings has room for 32 at first.
TEST_F(KeptDates, MoreOwedAtOnceThanThereIsRoomFor_AreAllSet) {
    constexpr int kFiles = 16 * 32 + 1;
    const FileTimes given = {timespec{3, 0}, timespec{5, 0}};
    for (int i = 0; i < kFiles; ++i) {
        WriteFile(PathTo(std::to_string(i)), "");
        ASSERT_EQ(KeepOwedDates(PlaceOf(PathTo(std::to_string(i))), given), noErr);
    }
    for (int i = 0; i < kFiles; ++i) {
        const std::string path = PathTo(std::to_string(i));
        const Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
        EXPECT_EQ(SetOwedDates(file.number(), PlaceOf(path).facts), noErr);
        EXPECT_EQ(StatusOf(path).st_atim.tv_sec, 3) << i;
        EXPECT_EQ(StatusOf(path).st_mtim.tv_sec, 5) << i;
    }
}

TEST_F(KeptDates, FileMadeWithoutADate_ChangesItsDateAsUsual) {
    WriteFile(PathTo("x"), "");
    Place made = PlaceOf(PathTo("x"));
    EXPECT_EQ(FurnishNewObject(made, kFSCatInfoNone, nullptr), noErr);
    const timespec times[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, PathTo("x").c_str(), times, 0), 0);
    ASSERT_EQ(WriteWhole(RefTo(PathTo("x")), false, "data"), noErr);
    EXPECT_NE(StatusOf(PathTo("x")).st_mtim.tv_sec, 1);
}

TEST_F(KeptDates, OnlyTheLastFiles_AreRemembered) {
    const FSRef oldest = MakeFile("oldest");
    for (int i = 0; i < 127; ++i) MakeFile(std::to_string(i));
    ASSERT_EQ(WriteWhole(oldest, false, "data"), noErr);
    EXPECT_TRUE(IsGiven(oldest));
    const FSRef forgotten = MakeFile("forgotten");
    for (int i = 0; i < 1500; ++i) MakeFile("more" + std::to_string(i));
    ASSERT_EQ(WriteWhole(forgotten, false, "data"), noErr);
    EXPECT_FALSE(IsGiven(forgotten));
}

TEST_F(KeptDates, FileThatIsBeingWritten_IsRememberedWhateverElseIsMade) {
    const FSRef large = MakeFile("large");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(large, false, fsWrPerm, number), noErr);
    for (int i = 0; i < 300; ++i) MakeFile(std::to_string(i));
    EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 4, "data", nullptr), noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_TRUE(IsGiven(large));
}
