#include "platform/forks.h"

#include "metadata_support.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>

namespace {
const std::string kBlank = std::string(16, '\0') + "This resource fork intentionally left blank   " +
                           std::string(286 - 16 - 46, '\0');

class Forks : public testing::Test {
protected:
    void SetUp() override { WriteFile(file_, "12345"); }

    static OSErr Open(const std::string& path, bool resource, int8_t permission) {
        FSForkRefNum number = 0;
        const OSErr result = OpenByRef(RefTo(path), resource, permission, number);
        if (result != noErr) return result;
        return FSCloseFork(number);
    }
    // The forks of an object as name and size, and the code that ended the listing.
    static std::pair<std::vector<std::string>, OSErr> ForksOf(const FSRef& ref) {
        std::vector<std::string> forks;
        CatPositionRec position = {};
        for (;;) {
            HFSUniStr255 name;
            int64_t size = -1;
            const OSErr result = FSIterateForks(&ref, &position, &name, &size, nullptr);
            if (result != noErr) return {forks, result};
            forks.push_back(
                Narrow(std::u16string(reinterpret_cast<const char16_t*>(name.unicode), name.length)) + ":" +
                std::to_string(size));
        }
    }
    static std::vector<std::string> ForksOf(const std::string& path) {
        const auto [forks, end] = ForksOf(RefTo(path));
        EXPECT_EQ(end, errFSNoMoreItems);
        return forks;
    }
    using Names = std::vector<std::string>;

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
};
} // namespace

// ---- Names

TEST_F(Forks, Names_AreEmptyAndResourceFork) {
    HFSUniStr255 name;
    ASSERT_EQ(FSGetDataForkName(&name), noErr);
    EXPECT_EQ(name.length, 0);
    ASSERT_EQ(FSGetResourceForkName(&name), noErr);
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(name.unicode), name.length), u"RESOURCE_FORK");
    EXPECT_EQ(FSGetDataForkName(nullptr), paramErr);
    EXPECT_EQ(FSGetResourceForkName(nullptr), paramErr);
}

TEST_F(Forks, AnotherName_IsNoFork) {
    const FSRef ref = RefTo(file_);
    const std::u16string name = u"RESOURCE_FORX";
    const auto* units = reinterpret_cast<const UniChar*>(name.data());
    FSForkRefNum number = 77;
    EXPECT_EQ(FSOpenFork(&ref, 13, units, fsRdPerm, &number), errFSBadForkName);
    EXPECT_EQ(FSOpenFork(&ref, 12, units, fsRdPerm, &number), errFSBadForkName);
    EXPECT_EQ(FSCreateFork(&ref, 13, units), errFSBadForkName);
    EXPECT_EQ(number, 77);
}

TEST_F(Forks, NullArguments_AreRefused) {
    const FSRef ref = RefTo(file_);
    FSForkRefNum number = 0;
    CatPositionRec position = {};
    EXPECT_EQ(FSOpenFork(nullptr, 0, nullptr, fsRdPerm, &number), paramErr);
    EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, fsRdPerm, nullptr), paramErr);
    EXPECT_EQ(FSOpenFork(&ref, 3, nullptr, fsRdPerm, &number), paramErr);
    EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, 4, &number), paramErr);
    EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, -1, &number), paramErr);
    EXPECT_EQ(FSCreateFork(nullptr, 0, nullptr), paramErr);
    EXPECT_EQ(FSIterateForks(nullptr, &position, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(FSIterateForks(&ref, nullptr, nullptr, nullptr, nullptr), paramErr);
}

// ---- Opening data

TEST_F(Forks, Opened_HasANumberAndItsMarkAtTheStart) {
    const FSRef ref = RefTo(file_);
    for (const int8_t permission : {fsCurPerm, fsRdPerm, fsWrPerm, fsRdWrPerm}) {
        FSForkRefNum number = 0;
        ASSERT_EQ(OpenByRef(ref, false, permission, number), noErr);
        EXPECT_GT(number, 0);
        int64_t mark = -1;
        EXPECT_EQ(FSGetForkPosition(number, &mark), noErr);
        EXPECT_EQ(mark, 0);
        EXPECT_EQ(FSCloseFork(number), noErr);
        EXPECT_EQ(FSCloseFork(number), rfNumErr);
    }
    EXPECT_EQ(ReadFile(file_), "12345");
}

TEST_F(Forks, Permission_DecidesWhatMayBeDone) {
    struct {
        int8_t permission;
        OSErr reading, writing;
    } const cases[] = {{fsCurPerm, noErr, noErr},
                       {fsRdPerm, noErr, permErr},
                       {fsWrPerm, permErr, noErr},
                       {fsRdWrPerm, noErr, noErr}};
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(WriteWhole(RefTo(file_), true, "12345"), noErr);
    for (const bool resource : {false, true}) {
        for (const auto& each : cases) {
            FSForkRefNum number = 0;
            char byte = '1';
            ASSERT_EQ(OpenByRef(RefTo(file_), resource, each.permission, number), noErr);
            EXPECT_EQ(FSReadFork(number, fsFromStart, 0, 1, &byte, nullptr), each.reading);
            EXPECT_EQ(FSWriteFork(number, fsFromStart, 0, 1, &byte, nullptr), each.writing);
            EXPECT_EQ(FSSetForkSize(number, fsFromStart, 5), each.writing);
            EXPECT_EQ(FSAllocateFork(number, 0, fsFromStart, 0, 5, nullptr), each.writing);
            EXPECT_EQ(FSCloseFork(number), noErr);
        }
    }
}

TEST_F(Forks, LockedFile_CanOnlyBeRead) {
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(SetLock(file_, true), noErr);
    for (const bool resource : {false, true}) {
        EXPECT_EQ(Open(file_, resource, fsWrPerm), permErr);
        EXPECT_EQ(Open(file_, resource, fsRdWrPerm), permErr);
        EXPECT_EQ(Open(file_, resource, fsRdPerm), noErr);
        FSForkRefNum number = 0;
        ASSERT_EQ(OpenByRef(RefTo(file_), resource, fsCurPerm, number), noErr);
        EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 1, "x", nullptr), permErr);
        EXPECT_EQ(FSCloseFork(number), noErr);
    }
    ASSERT_EQ(SetLock(file_, false), noErr);
    EXPECT_EQ(Open(file_, false, fsWrPerm), noErr);
}

TEST_F(Forks, ReadOnlyMode_DeniesWritingAndTheCurrentPermissionReads) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    GiveToPlainUser(file_);
    const AsPlainUser user;
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(chmod(file_.c_str(), 0400), 0);
    for (const bool resource : {false, true}) {
        EXPECT_EQ(Open(file_, resource, fsWrPerm), permErr);
        EXPECT_EQ(Open(file_, resource, fsRdWrPerm), permErr);
        EXPECT_EQ(Open(file_, resource, fsCurPerm), noErr);
    }
    ASSERT_EQ(chmod(file_.c_str(), 0200), 0);
    EXPECT_EQ(Open(file_, false, fsRdPerm), permErr);
    EXPECT_EQ(Open(file_, false, fsCurPerm), permErr);
    EXPECT_EQ(Open(file_, false, fsWrPerm), noErr);
}

TEST_F(Forks, ReadOnlyVolume_CanBeRead) {
    OwnVolume volume("tmpfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "data");
    ASSERT_EQ(volume.MakeReadOnly(), 0);
    EXPECT_EQ(Open(volume / "x", false, fsWrPerm), wPrErr);
    EXPECT_EQ(Open(volume / "x", false, fsCurPerm), noErr);
    EXPECT_EQ(MakeResourceFork(RefTo(volume / "x")), wPrErr);
}

TEST_F(Forks, RunningProgram_CanOnlyBeRead) {
    const std::string program = folder_ / "program";
    std::filesystem::copy_file("/bin/cat", program);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[0], 0);
        execl(program.c_str(), "cat", static_cast<char*>(nullptr));
        _exit(127);
    }
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    while (std::filesystem::read_symlink("/proc/" + std::to_string(child) + "/exe") != program)
        std::this_thread::yield();
    EXPECT_EQ(Open(program, false, fsWrPerm), permErr);
    EXPECT_EQ(Open(program, false, fsCurPerm), noErr);
    close(ends[0]);
    close(ends[1]);
    int status;
    EXPECT_EQ(waitpid(child, &status, 0), child);
}

TEST_F(Forks, Folder_HasNone) {
    const FSRef ref = RefTo(folder_.path());
    FSForkRefNum number = 77;
    for (const bool resource : {false, true}) {
        for (const int8_t permission : {fsCurPerm, fsRdPerm, fsWrPerm}) {
            EXPECT_EQ(OpenByRef(ref, resource, permission, number), fnfErr);
        }
    }
    EXPECT_EQ(number, 77);
    EXPECT_EQ(FSCreateFork(&ref, 0, nullptr), fnfErr);
    EXPECT_EQ(MakeResourceFork(ref), fnfErr);
    EXPECT_EQ(ForksOf(folder_.path()), Names{});
}

TEST_F(Forks, PipesAndSockets_AreRefusedUnopened) {
    const std::string pipe = folder_ / "pipe", name = folder_ / "socket";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int socketEnd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, name.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(socketEnd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    for (const std::string& path : {pipe, name, std::string("/dev/null")}) {
        for (const int8_t permission : {fsCurPerm, fsRdPerm, fsWrPerm, fsRdWrPerm}) {
            EXPECT_EQ(Open(path, false, permission), permErr) << path;
            EXPECT_EQ(Open(path, true, permission), permErr) << path;
        }
        EXPECT_EQ(MakeResourceFork(RefTo(path)), permErr);
        EXPECT_EQ(ForksOf(RefTo(path)).second, permErr); // so that no copy is taken for an empty file
    }
    close(socketEnd);
}

TEST_F(Forks, PipeThatTakesTheName_IsNotWaitedFor) {
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    FSForkRefNum number = 77;
    for (const int8_t permission : {fsCurPerm, fsRdPerm, fsWrPerm, fsRdWrPerm}) {
        EXPECT_EQ(OpenByRef(ref, false, permission, number), fnfErr);
    }
    EXPECT_EQ(number, 77);
}

TEST_F(Forks, AnotherObjectThatTookTheName_IsNeverOpened) {
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(rename(file_.c_str(), (folder_ / "away").c_str()), 0);
    WriteFile(file_, "other");
    EXPECT_EQ(ReadWhole(ref, false), "12345"); // found under its other name
    ASSERT_EQ(unlink((folder_ / "away").c_str()), 0);
    FSForkRefNum number = 77;
    EXPECT_EQ(OpenByRef(ref, false, fsRdPerm, number), fnfErr);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    WriteFile(folder_ / "target", "target");
    ASSERT_EQ(symlink("target", file_.c_str()), 0);
    EXPECT_EQ(OpenByRef(ref, false, fsWrPerm, number), fnfErr);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    ASSERT_EQ(mkdir(file_.c_str(), 0755), 0);
    EXPECT_EQ(OpenByRef(ref, false, fsWrPerm, number), fnfErr);
    EXPECT_EQ(OpenByRef(ref, false, fsRdPerm, number), fnfErr);
    EXPECT_EQ(number, 77);
}

TEST_F(Forks, Failure_LeavesNoDescriptorOpen) {
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(SetLock(file_, true), noErr);
    WriteFile(folder_ / "broken", "");
    WriteFile(folder_ / "._broken", Big32(0x00051607) + "?");
    Open(file_, false, fsRdPerm); // fills the caches
    const size_t before = OpenDescriptors();
    for (int round = 0; round < 10; ++round) {
        EXPECT_NE(Open(file_, false, fsWrPerm), noErr);
        EXPECT_NE(Open(file_, true, fsWrPerm), noErr);
        EXPECT_NE(Open(folder_ / "broken", true, fsRdPerm), noErr);
        EXPECT_EQ(Open(file_, false, fsCurPerm), noErr);
        EXPECT_EQ(Open(file_, true, fsCurPerm), noErr);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Forks, NoDescriptorLeft_IsTooManyOpenFiles) {
    const FSRef ref = RefTo(file_);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few = {64, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::vector<FSForkRefNum> open;
    FSForkRefNum number = 0;
    OSErr result;
    while ((result = OpenByRef(ref, false, fsRdPerm, number)) == noErr && open.size() < 100)
        open.push_back(number);
    EXPECT_EQ(result, tmfoErr);
    EXPECT_GT(open.size(), 20u);
    for (const FSForkRefNum each : open) EXPECT_EQ(FSCloseFork(each), noErr);
    EXPECT_EQ(Open(file_, false, fsRdPerm), noErr);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(Forks, Descriptors_AreClosedInPrograms) {
    FSForkRefNum number = 0;
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    for (const bool resource : {false, true}) {
        ASSERT_EQ(OpenByRef(RefTo(file_), resource, fsRdPerm, number), noErr);
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int descriptor = std::stoi(entry.path().filename());
            std::error_code error;
            const std::string target = std::filesystem::read_symlink(entry.path(), error);
            if (target.find(folder_.path()) != 0) continue;
            EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC) << target;
        }
        EXPECT_EQ(FSCloseFork(number), noErr);
    }
}

// ---- Links

TEST_F(Forks, LinkFromAPath_IsItsTarget) {
    const std::string link = folder_ / "link";
    ASSERT_EQ(symlink("file", link.c_str()), 0);
    EXPECT_EQ(ReadWhole(RefTo(link), false), "12345");
    ASSERT_EQ(WriteWhole(RefTo(link), false, "abc"), noErr);
    EXPECT_EQ(ReadFile(file_), "abc45");
    ASSERT_EQ(MakeResourceFork(RefTo(link)), noErr);
    EXPECT_TRUE(Exists(SidecarOf(file_)));
    EXPECT_EQ(ForksOf(link), (Names{":5", "RESOURCE_FORK:0"}));
}

TEST_F(Forks, LinkAsAnEntry_HasItsTextAsData) {
    const std::string link = folder_ / "link";
    ASSERT_EQ(symlink("some/where", link.c_str()), 0);
    const FSRef ref = EntryRef(link);
    EXPECT_EQ(ReadWhole(ref, false), "some/where");
    EXPECT_EQ(ForksOf(ref).first, Names{":10"});
    FSForkRefNum number = 0;
    EXPECT_EQ(OpenByRef(ref, false, fsWrPerm, number), permErr);
    EXPECT_EQ(OpenByRef(ref, true, fsRdPerm, number), errFSForkNotFound);
    EXPECT_EQ(MakeResourceFork(ref), permErr);
    EXPECT_EQ(FSCreateFork(&ref, 0, nullptr), noErr);
    ASSERT_EQ(OpenByRef(ref, false, fsCurPerm, number), noErr);
    char text[20];
    ByteCount count = 0;
    EXPECT_EQ(FSReadFork(number, fsFromStart, 5, sizeof(text), text, &count), eofErr);
    EXPECT_EQ(std::string(text, count), "where");
    EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 1, "x", nullptr), permErr);
    EXPECT_EQ(FSSetForkSize(number, fsFromStart, 0), permErr);
    int64_t position = 0;
    EXPECT_EQ(FSSetForkPosition(number, fsFromLEOF, -3), noErr);
    EXPECT_EQ(FSGetForkPosition(number, &position), noErr);
    EXPECT_EQ(position, 7);
    EXPECT_EQ(FSCloseFork(number), noErr);
}

// ---- The resource fork

TEST_F(Forks, DataFork_AlwaysExists) {
    const FSRef ref = RefTo(file_);
    EXPECT_EQ(FSCreateFork(&ref, 0, nullptr), noErr);
    EXPECT_EQ(ReadFile(file_), "12345");
    ASSERT_EQ(unlink(file_.c_str()), 0);
    EXPECT_EQ(FSCreateFork(&ref, 0, nullptr), fnfErr);
}

TEST_F(Forks, NewResourceFork_IsEmptyAndLiesInTheSidecar) {
    EXPECT_EQ(Open(file_, true, fsRdPerm), errFSForkNotFound);
    EXPECT_EQ(Open(file_, true, fsWrPerm), errFSForkNotFound);
    EXPECT_EQ(ForksOf(file_), Names{":5"});
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    EXPECT_EQ(ReadFile(SidecarOf(file_)), Big32(0x00051607) + Big32(0x00020000) + "Netatalk        " +
                                              Big16(2) + Big32(9) + Big32(50) + Big32(32) + Big32(2) +
                                              Big32(82) + Big32(0) + std::string(32, '\0'));
    EXPECT_EQ(ForksOf(file_), (Names{":5", "RESOURCE_FORK:0"}));
    EXPECT_EQ(MakeResourceFork(RefTo(file_)), errFSForkExists);
    EXPECT_EQ(ReadFile(file_), "12345");
    EXPECT_FALSE(HasAttribute(file_));
}

TEST_F(Forks, WrittenResourceFork_FollowsTheHeader) {
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(WriteWhole(RefTo(file_), true, "resource"), noErr);
    const std::string sidecar = ReadFile(SidecarOf(file_));
    EXPECT_EQ(sidecar.substr(38, 12), Big32(2) + Big32(82) + Big32(8));
    EXPECT_EQ(sidecar.substr(82), "resource");
    EXPECT_EQ(ReadWhole(RefTo(file_), true), "resource");
}

TEST_F(Forks, ResourceForkOfALockedFile_IsNotMade) {
    ASSERT_EQ(SetLock(file_, true), noErr);
    EXPECT_EQ(MakeResourceFork(RefTo(file_)), fLckdErr);
    EXPECT_FALSE(Exists(SidecarOf(file_)));
}

TEST_F(Forks, OrdinaryEntryWithTheSidecarsName_IsLeftAlone) {
    WriteFile(SidecarOf(file_), "notes");
    EXPECT_EQ(MakeResourceFork(RefTo(file_)), dupFNErr);
    EXPECT_EQ(Open(file_, true, fsRdPerm), errFSForkNotFound);
    EXPECT_EQ(ForksOf(file_), Names{":5"});
    EXPECT_EQ(ReadFile(SidecarOf(file_)), "notes");
}

TEST_F(Forks, SidecarsOfMacs_AreReadAndWrittenInPlace) {
    const std::string finder = FinderInfo("TEXTttxt");
    struct {
        const char* what;
        std::vector<TestEntry> entries;
    } const cases[] = {
        {"usual", {{9, 50, finder}, {2, 82, "resource"}}},
        {"Finder information with attributes in it",
         {{9, 50, finder + std::string(3728, 'a')}, {2, 3810, "resource"}}},
        {"fork first in the header", {{2, 82, "resource"}, {9, 50, finder}}},
        {"more entries",
         {{4, 200, "comment"}, {9, 210, finder}, {8, 250, std::string(16, 1)}, {2, 300, "resource"}}},
        {"fork alone", {{2, 38, "resource"}}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        WriteFile(SidecarOf(file_), AppleDouble(each.entries));
        EXPECT_EQ(ReadWhole(RefTo(file_), true), "resource");
        ASSERT_EQ(WriteWhole(RefTo(file_), true, "RESOURCE and more"), noErr);
        auto expected = each.entries;
        for (TestEntry& entry : expected) {
            if (entry.id == 2) entry.content = "RESOURCE and more";
        }
        EXPECT_EQ(ReadFile(SidecarOf(file_)), AppleDouble(expected));
    }
}

TEST_F(Forks, SidecarWithSomethingBehindTheFork_KeepsIt) {
    const std::string finder = FinderInfo("TEXTttxt") + std::string(100, 'a');
    WriteFile(SidecarOf(file_), AppleDouble({{2, 50, "resource"}, {9, 58, finder}}));
    EXPECT_EQ(ReadWhole(RefTo(file_), true), "resource");
    ASSERT_EQ(WriteWhole(RefTo(file_), true, "RESOURCE and more"), noErr);
    EXPECT_EQ(ReadWhole(RefTo(file_), true), "RESOURCE and more");
    EXPECT_EQ(ReadFile(SidecarOf(file_)).substr(58, finder.size()), finder);
    EXPECT_EQ(GetType(file_), "TEXTttxt");
}

TEST_F(Forks, BytesThatBelongToNothing_DoNotShowWhenTheForkGrows) {
    WriteFile(SidecarOf(file_), AppleDouble({{9, 50, FinderInfo("")}, {2, 82, "fork"}}) + "slack slack");
    EXPECT_EQ(ReadWhole(RefTo(file_), true), "fork");
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(RefTo(file_), true, fsWrPerm, number), noErr);
    EXPECT_EQ(FSWriteFork(number, fsFromStart, 8, 1, "x", nullptr), noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_EQ(ReadWhole(RefTo(file_), true), std::string("fork\0\0\0\0x", 9));
}

TEST_F(Forks, WhatMacsWriteForWantOfAFork_IsNone) {
    WriteFile(SidecarOf(file_), AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, kBlank}}));
    EXPECT_EQ(Open(file_, true, fsRdPerm), errFSForkNotFound);
    EXPECT_EQ(ForksOf(file_), Names{":5"});
    EXPECT_EQ(GetInfo(file_, kFSCatInfoRsrcSizes).rsrcLogicalSize, 0u);
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    EXPECT_EQ(ForksOf(file_), (Names{":5", "RESOURCE_FORK:0"}));
    ASSERT_EQ(WriteWhole(RefTo(file_), true, "r"), noErr);
    EXPECT_EQ(ReadFile(SidecarOf(file_)), AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "r"}}));
}

TEST_F(Forks, SidecarWithoutAFork_CanBeGivenOne) {
    struct {
        const char* what;
        std::vector<TestEntry> entries;
    } const cases[] = {
        {"room in the header", {{9, 50, FinderInfo("TEXTttxt")}}},
        {"no room in the header", {{9, 38, FinderInfo("TEXTttxt")}}},
        {"no entry at all", {}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        WriteFile(SidecarOf(file_), AppleDouble(each.entries));
        EXPECT_EQ(ForksOf(file_), Names{":5"});
        ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
        ASSERT_EQ(WriteWhole(RefTo(file_), true, "resource"), noErr);
        EXPECT_EQ(ReadWhole(RefTo(file_), true), "resource");
        EXPECT_EQ(GetType(file_), each.entries.empty() ? kNoType : "TEXTttxt");
    }
}

// The number of entries is the header's last field.
static int EntriesOf(const std::string& record) {
    return record.at(24) << 8 | record.at(25);
}

// A file server reads a resource fork only from a sidecar with Finder information and a fork.
TEST_F(Forks, SidecarWrittenAnewForAFork_HasTwoEntries) {
    WriteFile(SidecarOf(file_), AppleDouble({{9, 38, FinderInfo("TEXTttxt")}}));
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(WriteWhole(RefTo(file_), true, "resource"), noErr);
    const std::string record = ReadFile(SidecarOf(file_));
    EXPECT_EQ(EntriesOf(record), 2);
    EXPECT_EQ(record.substr(50), FinderInfo("TEXTttxt") + "resource");
}

TEST_F(Forks, SidecarWithDatesWrittenAnewForAFork_KeepsThem) {
    const std::string dates = "12345678abcdefgh";
    WriteFile(SidecarOf(file_), AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {8, 82, dates}}));
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    const std::string record = ReadFile(SidecarOf(file_));
    EXPECT_EQ(EntriesOf(record), 4);
    EXPECT_NE(record.find("1234"), std::string::npos);
    EXPECT_NE(record.find("abcd"), std::string::npos);
}

TEST_F(Forks, SidecarThatCannotHoldAForkWithoutLoss_IsReported) {
    const std::string sidecar = AppleDouble({{9, 38, FinderInfo("TEXTttxt") + "more"}});
    WriteFile(SidecarOf(file_), sidecar);
    EXPECT_EQ(MakeResourceFork(RefTo(file_)), ioErr);
    EXPECT_EQ(ReadFile(SidecarOf(file_)), sidecar);
}

TEST_F(Forks, BrokenSidecar_IsReportedAndLeavesTheData) {
    const std::string sound = AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}});
    for (size_t size = 4; size < sound.size(); size += 3) {
        const std::string broken = sound.substr(0, size);
        WriteFile(SidecarOf(file_), broken);
        EXPECT_EQ(Open(file_, true, fsRdPerm), ioErr) << size;
        EXPECT_EQ(Open(file_, true, fsWrPerm), ioErr) << size;
        EXPECT_EQ(MakeResourceFork(RefTo(file_)), ioErr) << size;
        EXPECT_EQ(ForksOf(file_), Names{":5"}) << size;
        EXPECT_EQ(ReadFile(SidecarOf(file_)), broken);
        EXPECT_EQ(ReadWhole(RefTo(file_), false), "12345");
    }
}

TEST_F(Forks, SidecarWithAReadOnlyMode_IsWrittenWithItsModeUnchanged) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    WriteFile(SidecarOf(file_), AppleDouble({{9, 50, FinderInfo("")}, {2, 82, "fork"}}));
    for (const std::string& path : {folder_.path().string(), file_, SidecarOf(file_)}) GiveToPlainUser(path);
    ASSERT_EQ(chmod(SidecarOf(file_).c_str(), 0444), 0);
    const AsPlainUser user;
    ASSERT_EQ(WriteWhole(RefTo(file_), true, "FORK"), noErr);
    EXPECT_EQ(StatusOf(SidecarOf(file_)).st_mode & 07777, 0444u);
    EXPECT_EQ(ReadWhole(RefTo(file_), true), "FORK");
}

TEST_F(Forks, NewSidecar_HasTheFilesOwnerAndMode) {
    ASSERT_EQ(chmod(file_.c_str(), 0464), 0);
    if (AsPlainUser::IsPossible()) GiveToPlainUser(file_);
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    EXPECT_EQ(StatusOf(SidecarOf(file_)).st_mode & 07777, 0664u);
    EXPECT_EQ(StatusOf(SidecarOf(file_)).st_uid, StatusOf(file_).st_uid);
}

TEST_F(Forks, NewSidecar_IsCounted) {
    const uint64_t before = SidecarsMade();
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    EXPECT_NE(SidecarsMade(), before);
}

TEST_F(Forks, ManyThreadsMakingOneFork_MakeItOnce) {
    const FSRef ref = RefTo(file_);
    std::atomic<int> made = 0, existed = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const OSErr result = MakeResourceFork(ref);
            if (result == noErr) ++made;
            if (result == errFSForkExists) ++existed;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_GE(made, 1);
    EXPECT_EQ(made + existed, 4);
    EXPECT_EQ(ForksOf(file_), (Names{":5", "RESOURCE_FORK:0"}));
}

// ---- Listing

TEST_F(Forks, Listing_GivesSizesAndEndsForGood) {
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(MakeResourceFork(ref), noErr);
    ASSERT_EQ(WriteWhole(ref, true, "resource"), noErr);
    CatPositionRec position = {};
    int64_t size = 0;
    uint64_t physical = 0;
    ASSERT_EQ(FSIterateForks(&ref, &position, nullptr, &size, &physical), noErr);
    EXPECT_EQ(size, 5);
    EXPECT_EQ(physical, static_cast<uint64_t>(StatusOf(file_).st_blocks) * 512);
    ASSERT_EQ(FSIterateForks(&ref, &position, nullptr, &size, nullptr), noErr);
    EXPECT_EQ(size, 8);
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, nullptr, nullptr), errFSNoMoreItems);
    EXPECT_EQ(FSIterateForks(&ref, &position, nullptr, nullptr, nullptr), errFSNoMoreItems);
}

TEST_F(Forks, ListingAFileThatIsGone_IsNotFound) {
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    EXPECT_EQ(ForksOf(ref).second, fnfErr);
}

TEST(ForksWithoutAttributes, LockInTheSidecar_DeniesWriting) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    ASSERT_EQ(SetLock(volume / "x", true), noErr);
    FSForkRefNum number = 0;
    EXPECT_EQ(OpenByRef(RefTo(volume / "x"), false, fsWrPerm, number), permErr);
    EXPECT_EQ(OpenByRef(RefTo(volume / "x"), false, fsCurPerm, number), noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
}

TEST(ForksWithoutAttributes, ResourceFork_IsMadeWithRoomForFacts) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    ASSERT_EQ(MakeResourceFork(RefTo(volume / "x")), noErr);
    ASSERT_EQ(WriteWhole(RefTo(volume / "x"), true, "resource"), noErr);
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(RefTo(volume / "x"), true, fsRdWrPerm, number), noErr);
    ASSERT_EQ(SetLock(volume / "x", true), noErr); // in place, although the fork is open
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_EQ(ReadWhole(RefTo(volume / "x"), true), "resource");
    EXPECT_TRUE(GetLock(volume / "x"));
}
