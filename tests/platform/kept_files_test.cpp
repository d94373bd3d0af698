// A thread that copies keeps its two files open: results are those of looking each up anew, and the files stay
// the same ones whoever takes their names meanwhile.
#include "platform/linux/kept_files.h"

#include "metadata_support.h"
#include "platform/linux/kept_dates.h"
#include "platform/objects.h"
#include "support/emulation.h"
#include "support/files.h"
#include "support/users.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <random>
#include <sys/resource.h>
#include <thread>
#include <tuple>
#include <utility>

namespace {
class KeptFiles : public testing::Test {
protected:
    void SetUp() override {
        WriteFile(old_, "the content");
        PlatformKeepFilesOpen();
    }
    void TearDown() override { PlatformCloseKeptFiles(); }

    FSRef Make(const std::string& name, FSCatalogInfoBitmap which, const FSCatalogInfo& info) {
        return MakeIn(folder_ / ".", name, which, info);
    }
    static FSRef MakeIn(const std::string& folder, const std::string& name, FSCatalogInfoBitmap which,
                        const FSCatalogInfo& info) {
        const FSRef parent = RefTo(folder);
        const std::u16string wide = Wide(name);
        FSRef made = {};
        EXPECT_EQ(FSCreateFileUnicode(&parent, static_cast<UniCharCount>(wide.size()), wide.data(), which,
                                      &info, &made, nullptr),
                  noErr);
        return made;
    }
    FSRef MakePlain(const std::string& name) { return Make(name, kFSCatInfoNone, FSCatalogInfo{}); }

    static int64_t ListDataFork(const FSRef& ref) {
        CatPositionRec position = {};
        int64_t size = -1;
        EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, &size, nullptr), noErr);
        return size;
    }
    static void Write(const FSRef& ref, const std::string& text) {
        FSForkRefNum fork = 0;
        ASSERT_EQ(OpenByRef(ref, false, fsWrPerm, fork), noErr);
        EXPECT_EQ(FSWriteFork(fork, fsAtMark, 0, static_cast<ByteCount>(text.size()), text.data(), nullptr),
                  noErr);
        EXPECT_EQ(FSCloseFork(fork), noErr);
    }
    static std::string Read(const FSRef& ref, ByteCount count) {
        FSForkRefNum fork = 0;
        std::string text(count, '?');
        EXPECT_EQ(OpenByRef(ref, false, fsRdPerm, fork), noErr);
        EXPECT_EQ(FSReadFork(fork, fsAtMark, 0, count, text.data(), nullptr), noErr);
        EXPECT_EQ(FSCloseFork(fork), noErr);
        return text;
    }

    TemporaryFolder folder_;
    const std::string old_ = folder_ / "old";
};
} // namespace

TEST_F(KeptFiles, NewFileWhoseNameIsTaken_IsWrittenAndSetAllTheSame) {
    const FSRef made = MakePlain("new");
    std::filesystem::rename(folder_ / "new", folder_ / "away");
    WriteFile(folder_ / "new", "somebody else's");

    Write(made, "ours");
    FSCatalogInfo info = {};
    std::memcpy(info.finderInfo, "TEXTttxt", 8);
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoFinderInfo, &info), noErr);

    EXPECT_EQ(ReadFile(folder_ / "away"), "ours");
    EXPECT_TRUE(HasAttribute(folder_ / "away"));
    EXPECT_EQ(ReadFile(folder_ / "new"), "somebody else's");
    EXPECT_FALSE(HasAttribute(folder_ / "new"));
}

TEST_F(KeptFiles, NewFileThatIsDeleted_IsGone) {
    const FSRef made = MakePlain("new");
    std::filesystem::remove(folder_ / "new");
    FSCatalogInfo info = {};
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoFinderInfo, &info), fnfErr);
}

TEST_F(KeptFiles, ListedFileWhoseNameIsTaken_IsReadAllTheSame) {
    const FSRef ref = RefTo(old_);
    EXPECT_EQ(ListDataFork(ref), 11);
    WriteFile(folder_ / "other", "an impostor");
    std::filesystem::rename(folder_ / "other", old_);
    EXPECT_EQ(Read(ref, 11), "the content");
}

TEST_F(KeptFiles, FileOpenedTwice_HasTwoPositions) {
    const FSRef ref = RefTo(old_);
    ListDataFork(ref);
    FSForkRefNum first = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsRdPerm, first), noErr);
    char text[4] = {};
    EXPECT_EQ(FSReadFork(first, fsAtMark, 0, 4, text, nullptr), noErr);
    EXPECT_EQ(Read(ref, 3), "the");
    EXPECT_EQ(FSReadFork(first, fsAtMark, 0, 3, text, nullptr), noErr);
    EXPECT_EQ(std::string(text, 3), "con");
    EXPECT_EQ(FSCloseFork(first), noErr);
}

TEST_F(KeptFiles, ForkThatOutlivesTheKeeping_GoesOn) {
    const FSRef ref = RefTo(old_);
    ListDataFork(ref);
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(ref, false, fsRdPerm, fork), noErr);
    PlatformCloseKeptFiles();
    char text[11] = {};
    EXPECT_EQ(FSReadFork(fork, fsAtMark, 0, 11, text, nullptr), noErr);
    EXPECT_EQ(std::string(text, 11), "the content");
    EXPECT_EQ(FSCloseFork(fork), noErr);
}

TEST_F(KeptFiles, End_ClosesEverything) {
    const auto copy = [this](const std::string& name) {
        ListDataFork(RefTo(old_));
        Write(MakePlain(name), "text");
    };
    copy("first"); // opens the folders, too, which stay open
    PlatformCloseKeptFiles();
    const size_t before = OpenDescriptors();
    PlatformKeepFilesOpen();
    copy("second");
    EXPECT_GT(OpenDescriptors(), before);
    PlatformCloseKeptFiles();
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(KeptFiles, OtherThreads_KeepNothing) {
    std::thread([this] {
        const FSRef ref = RefTo(old_);
        ListDataFork(ref);
        EXPECT_EQ(FindKeptFile(ref), nullptr);
    }).join();
}

TEST_F(KeptFiles, GivenDate_HoldsWhileTheFileIsWritten) {
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(3'000'000'000, 0x8000);
    const FSRef made = Make("new", kFSCatInfoContentMod, info);
    Write(made, "text");
    const UTCDateTime date = GetInfo(made, kFSCatInfoContentMod).contentModDate;
    EXPECT_EQ(date.fraction, 0x8000);
    EXPECT_EQ(std::memcmp(&date, &info.contentModDate, sizeof(date)), 0);
}

TEST_F(KeptFiles, FactsSetASecondTime_AddToTheFirst) {
    FSCatalogInfo info = {};
    std::memcpy(info.finderInfo, "brokMACS", 8);
    info.backupDate = DateAt(3'100'000'000);
    const FSRef made = Make("new", kFSCatInfoFinderInfo | kFSCatInfoBackupDate, info);
    std::memcpy(info.finderInfo, "TEXTttxt", 8);
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoFinderInfo, &info), noErr);
    PlatformCloseKeptFiles();
    const FSCatalogInfo now = GetInfo(made, kFSCatInfoFinderInfo | kFSCatInfoBackupDate);
    EXPECT_EQ(std::memcmp(now.finderInfo, "TEXTttxt", 8), 0);
    EXPECT_EQ(std::memcmp(&now.backupDate, &info.backupDate, sizeof(info.backupDate)), 0);
}

TEST_F(KeptFiles, FactsSetBackToTheDefaults_LeaveNothingBehind) {
    FSCatalogInfo info = {};
    std::memcpy(info.finderInfo, "brokMACS", 8);
    const FSRef made = Make("new", kFSCatInfoFinderInfo, info);
    EXPECT_TRUE(HasAttribute(folder_ / "new"));
    const FSCatalogInfo nothing = {};
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoFinderInfo, &nothing), noErr);
    EXPECT_FALSE(HasAttribute(folder_ / "new"));
}

TEST_F(KeptFiles, SidecarMadeMeanwhile_GetsTheFilesRights) {
    FSCatalogInfo info = {};
    info.permissions = {getuid(), getgid(), 0, 0, 0700, 0};
    const FSRef made = Make("new", kFSCatInfoPermissions, info);
    ASSERT_EQ(FSCreateFork(&made, 13, u"RESOURCE_FORK"), noErr);
    info.permissions.mode = 0640;
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoPermissions, &info), noErr);
    EXPECT_EQ(StatusOf(folder_ / "new").st_mode & 07777, 0640u);
    EXPECT_EQ(StatusOf(folder_ / "._new").st_mode & 0777, 0640u);
}

TEST_F(KeptFiles, ListedAgain_HasTheSizeOfNow) {
    const FSRef made = MakePlain("new"), ref = RefTo(old_);
    EXPECT_EQ(ListDataFork(made), 0);
    EXPECT_EQ(ListDataFork(ref), 11);
    Write(made, "text");
    WriteFile(old_, "more content");
    EXPECT_EQ(ListDataFork(made), 4);
    EXPECT_EQ(ListDataFork(ref), 12);
}

// Writing takes the bit away from whoever is not the superuser; what was seen before does not count then.
TEST_F(KeptFiles, BitThatWritingTookAway_IsSetAgain) {
    if (!CanBecomeAnotherUser())
        GTEST_SKIP() << "the superuser's writing takes no bits away, and only he can change";
    std::filesystem::permissions(folder_ / ".", std::filesystem::perms::all);
    EXPECT_TRUE(AsAnotherUser([this] {
        FSCatalogInfo info = {};
        info.permissions = {geteuid(), getegid(), 0, 0, 04755, 0};
        const FSRef made = Make("new", kFSCatInfoPermissions | kFSCatInfoContentMod, info);
        Write(made, "text");
        const bool isGone = !(StatusOf(folder_ / "new").st_mode & S_ISUID);
        return isGone && FSSetCatalogInfo(&made, kFSCatInfoPermissions, &info) == noErr &&
               (StatusOf(folder_ / "new").st_mode & 07777) == 04755;
    }));
}

TEST_F(KeptFiles, NewFileOpenedForReading_TakesTheLongerWay) {
    const FSRef made = MakePlain("new");
    Write(made, "first");
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(made, false, fsRdPerm, fork), noErr); // kept for writing only
    char text[5] = {};
    EXPECT_EQ(FSReadFork(fork, fsAtMark, 0, 5, text, nullptr), noErr);
    EXPECT_EQ(std::string(text, 5), "first");
    EXPECT_EQ(FSCloseFork(fork), noErr);
}

namespace {
constexpr FSCatalogInfoBitmap kDates = kFSCatInfoContentMod | kFSCatInfoAccessDate;

FSCatalogInfo SomeDates() {
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(3'000'000'000, 0x8000);
    info.accessDate = DateAt(3'000'000'777);
    return info;
}

// Also without the library's own eyes, which might remember.
bool HasSomeDates(const std::string& path) {
    const struct stat status = StatusOf(path);
    return status.st_mtim.tv_sec == 3'000'000'000 - k1970 && status.st_mtim.tv_nsec == 500'000'000 &&
           status.st_atim.tv_sec == 3'000'000'777 - k1970;
}
} // namespace

TEST_F(KeptFiles, GivenDates_AreThereWhenTheForkIsClosed) {
    const FSRef made = Make("new", kDates, SomeDates());
    Write(made, "text");
    EXPECT_TRUE(HasSomeDates(folder_ / "new"));
}

TEST_F(KeptFiles, GivenDatesOfAForkThatIsNotWritten_AreThereToo) {
    const FSRef made = Make("new", kDates, SomeDates());
    Write(made, "");
    EXPECT_TRUE(HasSomeDates(folder_ / "new"));
}

TEST_F(KeptFiles, GivenDatesOfAFileThatIsNotOpened_AreThereWhenFactsAreSet) {
    const FSRef made = Make("new", kDates, SomeDates());
    FSCatalogInfo info = {};
    std::memcpy(info.finderInfo, "TEXTttxt", 8);
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoFinderInfo, &info), noErr);
    EXPECT_TRUE(HasSomeDates(folder_ / "new"));
}

TEST_F(KeptFiles, GivenDatesOfAFileThatIsNotUsed_AreThereAtTheEnd) {
    Make("new", kDates, SomeDates());
    PlatformCloseKeptFiles();
    EXPECT_TRUE(HasSomeDates(folder_ / "new"));
}

// What is remembered of it has to make way for other files, or it would pile up.
TEST_F(KeptFiles, GivenDatesOfAFileThatIsDeleted_AreForgottenInTime) {
    const FSRef made = Make("new", kDates, SomeDates());
    Place place = PlaceOf(folder_ / "new");
    const struct statx facts = place.facts;
    EXPECT_EQ(FSDeleteObject(&made), noErr);
    PlatformCloseKeptFiles();
    for (int i = 0; i < 4096; ++i) {
        ++place.facts.stx_ino;
        EXPECT_EQ(KeepContentDate(place), noErr);
    }
    EXPECT_FALSE(BeginHoldingDate(facts));
}

TEST_F(KeptFiles, AnotherDateSetBeforeWriting_LeavesTheAccessDate) {
    const FSRef made = Make("new", kDates, SomeDates());
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(3'100'000'000);
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoContentMod, &info), noErr);
    PlatformCloseKeptFiles();
    EXPECT_EQ(StatusOf(folder_ / "new").st_mtim.tv_sec, 3'100'000'000 - k1970);
    EXPECT_EQ(StatusOf(folder_ / "new").st_atim.tv_sec, 3'000'000'777 - k1970);
}

TEST_F(KeptFiles, GivenDatesOfASecondNewFile_AreThereAtOnce) {
    Make("new", kDates, SomeDates());
    Make("second", kDates, SomeDates());
    EXPECT_TRUE(HasSomeDates(folder_ / "second"));
}

TEST_F(KeptFiles, SomeoneElsesWriting_KeepsItsOwnDate) {
    Make("new", kDates, SomeDates());
    const auto born = StatusOf(folder_ / "new").st_mtim;
    do WriteFile(folder_ / "new", "someone else's"); // until the clock for changes has moved on
    while (StatusOf(folder_ / "new").st_mtim.tv_nsec == born.tv_nsec);
    const auto theirs = StatusOf(folder_ / "new").st_mtim;
    PlatformCloseKeptFiles();
    EXPECT_EQ(StatusOf(folder_ / "new").st_mtim.tv_sec, theirs.tv_sec);
    EXPECT_EQ(StatusOf(folder_ / "new").st_mtim.tv_nsec, theirs.tv_nsec);
}

TEST_F(KeptFiles, NewFilesForkClosedByAnotherThread_LeavesTheRestToTheLongerWay) {
    MakePlain("first"); // opens the folder, which stays open
    PlatformCloseKeptFiles();
    const size_t before = OpenDescriptors();
    PlatformKeepFilesOpen();
    const FSRef made = Make("new", kDates, SomeDates());
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(made, false, fsWrPerm, fork), noErr);
    EXPECT_EQ(FSWriteFork(fork, fsAtMark, 0, 4, "text", nullptr), noErr);
    std::thread([fork] { EXPECT_EQ(FSCloseFork(fork), noErr); }).join();
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_TRUE(HasSomeDates(folder_ / "new"));

    // Another file's descriptor has the number now.
    WriteFile(folder_ / "other", "");
    FSForkRefNum others = 0;
    ASSERT_EQ(OpenByRef(RefTo(folder_ / "other"), false, fsWrPerm, others), noErr);
    EXPECT_EQ(FSCloseFork(others), noErr);
    FSCatalogInfo info = {};
    std::memcpy(info.finderInfo, "TEXTttxt", 8);
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoFinderInfo, &info), noErr);
    EXPECT_TRUE(HasAttribute(folder_ / "new"));
    EXPECT_FALSE(HasAttribute(folder_ / "other"));
}

TEST_F(KeptFiles, NewFilesForkThatOutlivesTheKeeping_GoesOn) {
    MakePlain("first");
    PlatformCloseKeptFiles();
    const size_t before = OpenDescriptors();
    PlatformKeepFilesOpen();
    const FSRef made = Make("new", kDates, SomeDates());
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(made, false, fsWrPerm, fork), noErr);
    PlatformCloseKeptFiles();
    EXPECT_EQ(FSWriteFork(fork, fsAtMark, 0, 4, "text", nullptr), noErr);
    EXPECT_EQ(FSCloseFork(fork), noErr);
    EXPECT_TRUE(HasSomeDates(folder_ / "new"));
    EXPECT_EQ(ReadFile(folder_ / "new"), "text");
    EXPECT_EQ(OpenDescriptors(), before);
}

// While a resource fork is copied, much can happen to the file.
TEST_F(KeptFiles, FileThatIsDeletedBehindItsDataFork_IsGone) {
    const FSRef made = Make("new", kDates, SomeDates());
    Write(made, "text");
    ASSERT_EQ(FSCreateFork(&made, 13, u"RESOURCE_FORK"), noErr);
    std::filesystem::remove(folder_ / "new");
    FSCatalogInfo info = {};
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoFinderInfo, &info), fnfErr);
}

TEST_F(KeptFiles, SourceListedOn_TellsItsResourceForkWhenItsDataForkIsClosed) {
    WriteFile(folder_ / "._old", AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}}));
    const FSRef ref = RefTo(old_);
    CatPositionRec position = {};
    int64_t size = 0;
    ASSERT_EQ(FSIterateForks(&ref, &position, nullptr, &size, nullptr), noErr);
    EXPECT_EQ(Read(ref, 11), "the content");
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, &size, nullptr), noErr);
    EXPECT_EQ(size, 8);
}

TEST_F(KeptFiles, SourceRenamedMeanwhile_TellsItsResourceForkWhereItIs) {
    WriteFile(folder_ / "._old", AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}}));
    const FSRef ref = RefTo(old_);
    CatPositionRec position = {};
    int64_t size = 0;
    ASSERT_EQ(FSIterateForks(&ref, &position, nullptr, &size, nullptr), noErr);
    std::filesystem::rename(old_, folder_ / "renamed");
    std::filesystem::rename(folder_ / "._old", folder_ / "._renamed");
    WriteFile(old_, "another's");
    WriteFile(folder_ / "._old", AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "longer resource"}}));
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, &size, nullptr), noErr);
    EXPECT_EQ(size, 8);
}

// ---- Zeros behind what was allocated, which wait for the cut that mostly follows

namespace {
class EndOfNewFile : public KeptFiles {
protected:
    void SetUp() override {
        KeptFiles::SetUp();
        Begin(MakePlain("new"));
    }
    void TearDown() override {
        if (fork_) FSCloseFork(fork_);
        KeptFiles::TearDown();
    }

    // Opens a new file that is to hold so much.
    void Begin(const FSRef& made, ByteCount allocated = 4) {
        ASSERT_EQ(OpenByRef(made, false, fsWrPerm, fork_), noErr);
        if (allocated) {
            EXPECT_EQ(FSAllocateFork(fork_, kFSAllocNoRoundUpMask, fsFromStart, 0, allocated, nullptr),
                      noErr);
        }
    }
    // Another one, under a name of its own.
    FSRef MakeAnew(FSCatalogInfoBitmap dates = kFSCatInfoNone) {
        FSCloseFork(std::exchange(fork_, 0));
        PlatformCloseKeptFiles();
        PlatformKeepFilesOpen();
        name_ = std::to_string(++number_);
        return Make(name_, dates, SomeDates());
    }
    // Until what is changed bears a later time than what has been changed so far.
    void LetTheClockGoOn() const {
        const int64_t now = SystemTime();
        const auto changed = [this] {
            WriteFile(folder_ / "clock", "tick");
            const timespec time = StatusOf(folder_ / "clock").st_mtim;
            return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
        };
        while (changed() <= now) std::this_thread::yield();
    }
    static std::string Block(std::string text, size_t size = 512) {
        text.resize(size);
        return text;
    }
    OSErr WriteAll(const std::string& text, uint16_t mode = fsAtMark, int64_t offset = 0) {
        return FSWriteFork(fork_, mode, offset, static_cast<ByteCount>(text.size()), text.data(), nullptr);
    }
    OSErr WriteBlock(const std::string& text) { return WriteAll(Block(text)); }
    OSErr Cut(int64_t size) { return FSSetForkSize(fork_, fsFromStart, size); }
    OSErr Close() { return FSCloseFork(std::exchange(fork_, 0)); }
    std::string Content() const { return ReadFile(folder_ / name_); }
    int64_t SizeForOthers() const { return StatusOf(folder_ / name_).st_size; }

    FSForkRefNum fork_ = 0;
    std::string name_ = "new";
    int number_ = 0;
};

// No file may be larger than a few bytes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t most) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
        const rlimit small = {most, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    }
    ~FileSizeLimit() {
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before_), 0);
        std::signal(SIGXFSZ, handler_);
    }

private:
    void (*handler_)(int);
    rlimit before_;
};
} // namespace

TEST_F(EndOfNewFile, ThatIsCutOff_IsNeverWritten) {
    EXPECT_EQ(WriteBlock("text"), noErr);
    EXPECT_EQ(SizeForOthers(), 4);
    EXPECT_EQ(Cut(4), noErr);
    EXPECT_EQ(SizeForOthers(), 4);
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), "text");
}

TEST_F(EndOfNewFile, ThatIsNotCutOff_IsThereWhenTheForkIsClosed) {
    ByteCount count = 0;
    EXPECT_EQ(FSWriteFork(fork_, fsAtMark, 0, 512, Block("text").data(), &count), noErr);
    EXPECT_EQ(count, 512u);
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), Block("text"));
}

TEST_F(EndOfNewFile, CutElsewhere_IsCutThere) {
    for (const int64_t size : {2, 6, 600}) {
        Begin(MakeAnew());
        EXPECT_EQ(WriteBlock("text"), noErr);
        EXPECT_EQ(Cut(size), noErr);
        EXPECT_EQ(Close(), noErr);
        EXPECT_EQ(Content(), Block("text", static_cast<size_t>(size)));
    }
}

TEST_F(EndOfNewFile, CutOff_LeavesTheMark) {
    EXPECT_EQ(WriteBlock("text"), noErr);
    EXPECT_EQ(Cut(4), noErr);
    EXPECT_EQ(WriteAll("!"), noErr);
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), Block("text") + "!");
}

// What was allocated, zeros of the content too, any other bytes behind it, and more than a copy pads with.
TEST_F(EndOfNewFile, ThatIsNoPadding_IsWrittenAtOnce) {
    const struct {
        ByteCount allocated;
        std::string bytes;
        int64_t written;
    } rows[] = {
        {0, Block("text"), 512},      {6, Block("text"), 6},
        {512, Block("text"), 512},    {1000, Block("text"), 512},
        {3, Block("text"), 512},      {4, Block("text", 515), 4},
        {4, Block("text", 516), 516}, {4, Block("text", 511) + "!", 512},
        {1, Block("", 512), 1},
    };
    for (const auto& row : rows) {
        Begin(MakeAnew(), row.allocated);
        EXPECT_EQ(WriteAll(row.bytes), noErr);
        EXPECT_EQ(SizeForOthers(), row.written) << name_;
        EXPECT_EQ(Close(), noErr);
        EXPECT_EQ(Content(), row.bytes) << name_;
    }
}

TEST_F(EndOfNewFile, WhatIsWrittenNext_ComesBehindIt) {
    EXPECT_EQ(WriteBlock("text"), noErr);
    EXPECT_EQ(WriteBlock("more"), noErr);
    EXPECT_EQ(Cut(516), noErr);
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), Block("text") + "more");
}

TEST_F(EndOfNewFile, AtAnotherPosition_IsWrittenAtOnce) {
    EXPECT_EQ(WriteAll(Block("text"), fsFromStart, 100), noErr);
    EXPECT_EQ(SizeForOthers(), 612);
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), std::string(100, '\0') + Block("text"));
}

TEST_F(EndOfNewFile, WhenItIsWritten_NobodysBytesAreCutOff) {
    EXPECT_EQ(WriteBlock("text"), noErr);
    WriteFile(folder_ / "new", std::string(1000, 'x'));
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(SizeForOthers(), 1000);
}

// As it would if the zeros had been written and cut off; dates that are to hold do so, since the cut is this process's.
TEST_F(EndOfNewFile, ThatOthersChangedBeforeTheCut_IsCutAllTheSame) {
    for (const FSCatalogInfoBitmap dates : {FSCatalogInfoBitmap{kFSCatInfoNone}, kDates}) {
        for (const std::string& content : {std::string(1000, 'x'), std::string("x")}) {
            for (const bool isBeforeIt : {true, false}) {
                const FSRef made = MakeAnew(dates);
                if (isBeforeIt) WriteFile(folder_ / name_, content);
                Begin(made);
                EXPECT_EQ(WriteBlock("text"), noErr);
                if (!isBeforeIt) WriteFile(folder_ / name_, content);
                EXPECT_EQ(Cut(4), noErr);
                EXPECT_EQ(SizeForOthers(), 4);
                EXPECT_EQ(Close(), noErr);
                EXPECT_EQ(HasSomeDates(folder_ / name_), dates != kFSCatInfoNone);
            }
        }
    }
}

TEST_F(EndOfNewFile, ThatOthersChangedAfterTheCut_StaysAsTheyLeftIt) {
    for (const FSCatalogInfoBitmap dates : {FSCatalogInfoBitmap{kFSCatInfoNone}, kDates}) {
        const FSRef made = MakeAnew(dates);
        Begin(made);
        EXPECT_EQ(WriteBlock("text"), noErr);
        EXPECT_EQ(Cut(4), noErr);
        FSForkRefNum second = 0;
        ASSERT_EQ(OpenByRef(made, false, fsWrPerm, second), noErr);
        EXPECT_EQ(FSWriteFork(second, fsFromLEOF, 0, 4, "more", nullptr), noErr);
        EXPECT_EQ(FSCloseFork(second), noErr);
        EXPECT_EQ(Close(), noErr);
        EXPECT_EQ(Content(), "textmore");
    }
}

TEST_F(EndOfNewFile, OfADateThatIsSetAfterTheCut_LeavesTheDate) {
    for (const FSCatalogInfoBitmap dates : {FSCatalogInfoBitmap{kFSCatInfoNone}, kDates}) {
        const FSRef made = MakeAnew(dates);
        Begin(made);
        EXPECT_EQ(WriteBlock("text"), noErr);
        EXPECT_EQ(Cut(4), noErr);
        FSCatalogInfo info = {};
        info.contentModDate = DateAt(3'100'000'000);
        EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoContentMod, &info), noErr);
        EXPECT_EQ(Close(), noErr);
        EXPECT_EQ(StatusOf(folder_ / name_).st_mtim.tv_sec, 3'100'000'000 - k1970);
    }
}

TEST_F(EndOfNewFile, CutOff_FreesWhatWasAllocatedBehindIt) {
    constexpr ByteCount kMuch = 1 << 20;
    for (const bool isBefore : {true, false}) {
        Begin(MakeAnew(kDates), isBefore ? kMuch : 4);
        if (isBefore) {
            EXPECT_EQ(FSAllocateFork(fork_, 0, fsFromStart, 0, 4, nullptr), noErr);
        }
        EXPECT_EQ(WriteBlock("text"), noErr);
        if (!isBefore) {
            EXPECT_EQ(FSAllocateFork(fork_, 0, fsFromStart, 0, kMuch, nullptr), noErr);
        }
        EXPECT_EQ(Cut(4), noErr);
        EXPECT_EQ(Close(), noErr);
        EXPECT_LE(StatusOf(folder_ / name_).st_blocks, 32);
    }
}

TEST_F(EndOfNewFile, OfADateThatHolds_LeavesTheDate) {
    Begin(MakeAnew(kDates));
    EXPECT_EQ(WriteBlock("text"), noErr);
    LetTheClockGoOn();
    EXPECT_EQ(Close(), noErr);
    EXPECT_TRUE(HasSomeDates(folder_ / name_));
    EXPECT_EQ(Content(), Block("text"));
}

TEST_F(EndOfNewFile, OfADateThatWasGivenUp_IsThereAllTheSame) {
    const FSRef made = MakeAnew(kDates);
    Begin(made);
    EXPECT_EQ(WriteBlock("text"), noErr);
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(3'100'000'000);
    EXPECT_EQ(FSSetCatalogInfo(&made, kFSCatInfoContentMod, &info), noErr);
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), Block("text"));
}

TEST_F(EndOfNewFile, ThatCannotBeWritten_IsReportedWhenTheForkIsClosed) {
    if (IsEmulated()) GTEST_SKIP() << "the emulator sets no limits on the sizes of files";
    EXPECT_EQ(WriteBlock("text"), noErr);
    {
        const FileSizeLimit limit(100);
        int64_t size;
        EXPECT_NE(FSGetForkSize(fork_, &size), noErr);
        EXPECT_NE(Close(), noErr);
    }
    EXPECT_EQ(Content(), Block("text", 100));
}

TEST_F(EndOfNewFile, ThatCouldNotBeWritten_IsTriedAgain) {
    if (IsEmulated()) GTEST_SKIP() << "the emulator sets no limits on the sizes of files";
    EXPECT_EQ(WriteBlock("text"), noErr);
    {
        const FileSizeLimit limit(100);
        int64_t mark;
        EXPECT_NE(FSGetForkPosition(fork_, &mark), noErr);
    }
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), Block("text"));
}

TEST_F(EndOfNewFile, WhenASizeCannotBeSet_IsThereAllTheSame) {
    if (IsEmulated()) GTEST_SKIP() << "the emulator sets no limits on the sizes of files";
    EXPECT_EQ(WriteBlock("text"), noErr);
    {
        const FileSizeLimit limit(1000);
        EXPECT_NE(Cut(2000), noErr);
    }
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), Block("text"));
}

TEST_F(EndOfNewFile, AfterAFirstWriteThatFailed_IsWrittenAtOnce) {
    if (IsEmulated()) GTEST_SKIP() << "the emulator sets no limits on the sizes of files";
    {
        const FileSizeLimit limit(2);
        EXPECT_NE(WriteBlock("text"), noErr);
    }
    EXPECT_EQ(WriteBlock("xt"), noErr);
    EXPECT_EQ(SizeForOthers(), 514);
    EXPECT_EQ(Close(), noErr);
    EXPECT_EQ(Content(), Block("text", 514));
}

// Whatever is done, in any order, a new file's fork gives the results of any other, and its content.
TEST_F(EndOfNewFile, WhateverIsDone_IsAsForAFileThatIsNotNew) {
    constexpr int kRounds = 500;
    FSCloseFork(fork_);
    std::mt19937 random(20261122);
    const auto upTo = [&random](unsigned most) { return random() % (most + 1); };
    const auto step = [](FSForkRefNum fork, unsigned what, unsigned number, unsigned size) {
        std::string block(number, static_cast<char>('a' + number % 26));
        block.resize(number + size);
        const auto mode = static_cast<uint16_t>(number % 4);
        const int64_t offset = mode == fsFromLEOF ? -int64_t{size} : int64_t{size} - (mode ? 0 : 3);
        int64_t told = -1;
        ByteCount count = 0;
        uint64_t allocated = 0;
        OSErr result;
        switch (what) {
        case 0:
        case 1:
        case 2:
            result =
                FSWriteFork(fork, fsAtMark, 0, static_cast<ByteCount>(block.size()), block.data(), &count);
            break;
        case 3:
            result =
                FSWriteFork(fork, mode, offset, static_cast<ByteCount>(block.size()), block.data(), &count);
            break;
        case 4:
            result = FSSetForkPosition(fork, mode, offset);
            break;
        case 5:
            result = FSGetForkPosition(fork, &told);
            break;
        case 6:
            result = FSGetForkSize(fork, &told);
            break;
        case 7:
            result = FSSetForkSize(fork, fsFromStart, static_cast<int64_t>(number));
            break;
        case 8:
            result = FSAllocateFork(fork, 0, mode, offset, number, &allocated);
            break;
        default:
            result = FSSetForkSize(fork, mode, offset);
            break;
        }
        return std::tuple(result, told, count, allocated);
    };
    for (int round = 0; round < kRounds; ++round) {
        PlatformCloseKeptFiles();
        std::filesystem::remove(folder_ / "new");
        std::filesystem::remove(folder_ / "ordinary");
        WriteFile(folder_ / "ordinary", "");
        FSForkRefNum ordinary = 0;
        ASSERT_EQ(OpenByRef(RefTo(folder_ / "ordinary"), false, fsWrPerm, ordinary), noErr);
        PlatformKeepFilesOpen();
        const ByteCount allocated = upTo(600);
        Begin(MakePlain("new"), allocated);
        std::string steps = std::to_string(allocated) + ": ";
        for (unsigned left = 1 + upTo(4); left > 0; --left) {
            const unsigned what = upTo(9), number = upTo(1) ? allocated : upTo(600), size = upTo(600);
            steps += std::to_string(what) + "-" + std::to_string(number) + "," + std::to_string(size) + " ";
            EXPECT_EQ(step(fork_, what, number, size), step(ordinary, what, number, size)) << steps;
        }
        EXPECT_EQ(Close(), FSCloseFork(ordinary));
        ASSERT_EQ(Content(), ReadFile(folder_ / "ordinary")) << steps;
    }
}
