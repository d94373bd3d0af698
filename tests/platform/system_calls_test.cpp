#include "platform/linux/system_calls.h"

#include "platform/linux/entries.h"
#include "platform/linux/reference_state.h"
#include "platform/references_support.h"
#include "platform/system_call_faults.h"
#include "support/files.h"
#include "support/no_descriptors.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <ostream>
#include <set>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

static std::atomic<long> deniedNumber = -1;
static std::atomic<int> deniedError = 0, deniedTimes = 0;
static std::array<std::atomic<int>, 1024> calls;
static std::array<std::atomic<int>, 512> futexCalls;

static bool IsFutex(long number) {
#ifdef SYS_futex_time64
    if (number == SYS_futex_time64) return true;
#endif
    return number == SYS_futex;
}

using SystemCall = long (*)(long, ...);

// Found without the guard of a static variable: waiting for another thread at one is a system call by itself.
static SystemCall RealSystemCall() {
    static constinit std::atomic<SystemCall> known = nullptr;
    SystemCall real = known.load();
    if (!real) {
        real = reinterpret_cast<SystemCall>(dlsym(RTLD_NEXT, "syscall"));
        known = real;
    }
    return real;
}

// Stands before the C library's function of this name for everything in the executable. Takes six arguments
// whatever the call has, like that function itself, which the address sanitizer would not allow.
extern "C" __attribute__((no_sanitize("address"))) long syscall(long number, ...) {
    if (number == deniedNumber) {
        ++deniedTimes;
        errno = deniedError;
        return -1;
    }
    if (number >= 0 && static_cast<size_t>(number) < calls.size()) ++calls[static_cast<size_t>(number)];
    va_list arguments;
    va_start(arguments, number);
    long values[6];
    for (long& value : values) value = va_arg(arguments, long);
    va_end(arguments);
    if (IsFutex(number)) ++futexCalls.at(static_cast<size_t>(values[1] & ~FUTEX_PRIVATE_FLAG));
    return RealSystemCall()(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

static std::atomic<int> looks = 0, opens = 0;

// How a host keeps back the number of a mount.
enum class Mounts { Told, NotTold, Lost };
static std::atomic<Mounts> mountsAre = Mounts::Told;

extern "C" int statx(int folder, const char* path, int flags, unsigned mask, struct statx* facts) noexcept {
    static auto real = reinterpret_cast<decltype(&statx)>(dlsym(RTLD_NEXT, "statx"));
    ++looks;
    int result = real(folder, path, flags, mask, facts);
    if (mountsAre != Mounts::Told) facts->stx_mnt_id = 0;
    if (mountsAre == Mounts::NotTold) facts->stx_mask &= ~static_cast<unsigned>(STATX_MNT_ID);
    return result;
}

extern "C" int openat(int folder, const char* path, int flags, ...) {
    // The header gives this function the name of the form with 64-bit offsets.
    static constexpr const char* kName = sizeof(long) == 4 ? "openat64" : "openat";
    static auto real = reinterpret_cast<decltype(&openat)>(dlsym(RTLD_NEXT, kName));
    ++opens;
    va_list arguments;
    va_start(arguments, flags);
    unsigned mode = va_arg(arguments, unsigned);
    va_end(arguments);
    return real(folder, path, flags, mode);
}

DeniedCall::DeniedCall(long number, int error) {
    deniedError = error;
    deniedTimes = 0;
    deniedNumber = number;
}
DeniedCall::~DeniedCall() {
    deniedNumber = -1;
}
int DeniedCall::times() const {
    return deniedTimes;
}
int CallsOf(long number) {
    return calls.at(static_cast<size_t>(number));
}
int FutexCalls(int operation) {
    return futexCalls.at(static_cast<size_t>(operation));
}

namespace {

class SystemCalls : public testing::Test {
protected:
    void SetUp() override { top = open(folder.path().c_str(), O_PATH | O_DIRECTORY); }
    void TearDown() override { close(top); }

    TemporaryFolder folder;
    int top = -1;
};

class OpeningWithoutLinks : public SystemCalls, public testing::WithParamInterface<int> {};

TEST_P(OpeningWithoutLinks, LinksAnywhere_AreRefused) {
    fs::create_directories(folder / "a/b/c");
    fs::create_directory_symlink("a", folder / "link");
    fs::create_directory_symlink("b", folder / "a/link");
    fs::create_directory_symlink("c", folder / "a/b/link");
    DeniedCall denied(GetParam() ? SYS_openat2 : -2, GetParam());
    int opened = OpenWithoutLinks(top, "a/b/c", O_PATH | O_DIRECTORY);
    EXPECT_GE(opened, 0);
    EXPECT_TRUE(fcntl(opened, F_GETFD) & FD_CLOEXEC);
    Close(opened);
    opened = OpenWithoutLinks(top, "a", O_PATH | O_DIRECTORY);
    EXPECT_GE(opened, 0);
    Close(opened);
    for (const char* path : {"link/b/c", "a/link/c", "a/b/link", "link"})
        EXPECT_EQ(OpenWithoutLinks(top, path, O_PATH | O_DIRECTORY), -1) << path;
    EXPECT_EQ(OpenWithoutLinks(top, "a/none/c", O_PATH | O_DIRECTORY), -1);
    EXPECT_EQ(LastError(), fnfErr);
    EXPECT_EQ(denied.times() > 0, GetParam() != 0);
}

// A host that does not tell the mount with the facts: what keeps it back, and how asking for a handle ends.
struct Reticence {
    const char* name;
    Mounts mounts;
    int handleError;
};

void PrintTo(const Reticence& reticence, std::ostream* output) {
    *output << reticence.name;
}

class FactsWithoutMounts : public SystemCalls, public testing::WithParamInterface<Reticence> {
protected:
    // The number of the mount in the facts of a path, asked for from a folder; -1 without one. Static, since the
    // sanitizer needs descriptors to check a member call, and there may be none.
    static int64_t MountIn(int folder, const char* path, int flags) {
        struct statx facts;
        EXPECT_EQ(FactsAt(folder, path, flags, facts), 0) << path;
        EXPECT_NE(facts.stx_mask & STATX_INO, 0u);
        return facts.stx_mask & STATX_MNT_ID ? static_cast<int64_t>(facts.stx_mnt_id) : -1;
    }
};

TEST_P(FactsWithoutMounts, MountIsAskedForOnItsOwn) {
    WriteFile(folder / "f", "");
    fs::create_symlink("/proc", folder / "away");
    struct {
        const char* path;
        int flags;
    } const asked[] = {
        {"f", AT_SYMLINK_NOFOLLOW}, {"", AT_EMPTY_PATH},    {"away", AT_SYMLINK_NOFOLLOW}, {"away", 0},
        {"/proc/self/status", 0},   {"/", AT_NO_AUTOMOUNT},
    };
    std::vector<int64_t> told, found;
    for (const auto& one : asked) told.push_back(MountIn(top, one.path, one.flags));
    ASSERT_NE(told[2], told[3]) << "the link leads to another mount";
    mountsAre = GetParam().mounts;
    {
        DeniedCall denied(GetParam().handleError ? SYS_name_to_handle_at : -2, GetParam().handleError);
        for (const auto& one : asked) found.push_back(MountIn(top, one.path, one.flags));
        EXPECT_EQ(denied.times() > 0, GetParam().handleError != 0);
    }
    mountsAre = Mounts::Told;
    EXPECT_EQ(found, told);
}

TEST_P(FactsWithoutMounts, MountThatNothingTells_DoesNotCount) {
    struct statx facts;
    const int folderOfTest = top;
    mountsAre = GetParam().mounts;
    {
        DeniedCall denied(SYS_name_to_handle_at, EOPNOTSUPP);
        NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        EXPECT_EQ(MountIn(folderOfTest, "/", 0), -1);
        EXPECT_EQ(MountIn(folderOfTest, "", AT_EMPTY_PATH), -1);
        ASSERT_EQ(FactsAt(AT_FDCWD, "/", 0, facts), 0);
        EXPECT_EQ(MountOf(facts), DeviceOf(facts));
    }
    mountsAre = Mounts::Told;
}

// Nobody pays for what nobody asked for.
TEST_P(FactsWithoutMounts, NotAskedFor_CostsNothing) {
    struct statx facts;
    int handles = CallsOf(SYS_name_to_handle_at), opensBefore = opens;
    mountsAre = GetParam().mounts;
    ASSERT_EQ(FactsAt(AT_FDCWD, "/", 0, facts, STATX_BASIC_STATS), 0);
    mountsAre = Mounts::Told;
    EXPECT_EQ(CallsOf(SYS_name_to_handle_at), handles);
    EXPECT_EQ(opens, opensBefore);
}

INSTANTIATE_TEST_SUITE_P(Kernel, FactsWithoutMounts,
                         testing::Values(Reticence{"Old", Mounts::NotTold, 0},
                                         Reticence{"Emulated", Mounts::Lost, 0},
                                         Reticence{"WithoutHandles", Mounts::NotTold, EOPNOTSUPP},
                                         Reticence{"DeniesHandles", Mounts::NotTold, EPERM},
                                         Reticence{"LacksHandles", Mounts::Lost, ENOSYS}),
                         [](const auto& param) { return param.param.name; });

TEST_P(OpeningWithoutLinks, AbsolutePaths_BeginAtTheRoot) {
    fs::create_directories(folder / "a/b");
    fs::create_directory_symlink("a", folder / "link");
    const std::string path = folder.path();
    DeniedCall denied(GetParam() ? SYS_openat2 : -2, GetParam());
    const int opened = OpenWithoutLinks(AT_FDCWD, (path + "/a/b").c_str(), O_PATH | O_DIRECTORY);
    EXPECT_GE(opened, 0);
    Close(opened);
    EXPECT_EQ(OpenWithoutLinks(AT_FDCWD, (path + "/link/b").c_str(), O_PATH | O_DIRECTORY), -1);
    EXPECT_EQ(denied.times() > 0, GetParam() != 0);
}

TEST_P(OpeningWithoutLinks, References_WorkAndDoNotEnterALinkInAFoldersPlace) {
    fs::create_directories(folder / "a/b/c");
    fs::create_directories(folder / "victim/b/c");
    WriteFile(folder / "a/b/c/f", "");
    WriteFile(folder / "victim/b/c/f", "");
    FSRef ref = RefTo(folder / "a/b/c/f");
    DeniedCall denied(GetParam() ? SYS_openat2 : -2, GetParam());
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(ref), noErr);
    fs::remove_all(folder / "a");
    fs::create_directory_symlink("victim", folder / "a");
    StateLock()->descriptors.Clear();
    EXPECT_EQ(Find(ref), fnfErr);
    EXPECT_EQ(denied.times() > 0, GetParam() != 0);
}

INSTANTIATE_TEST_SUITE_P(Kernel, OpeningWithoutLinks, testing::Values(0, ENOSYS, EPERM),
                         [](const auto& param) {
                             return param.param == 0        ? "Complete"
                                    : param.param == ENOSYS ? "LacksOpenat2"
                                                            : "DeniesOpenat2";
                         });

TEST_F(SystemCalls, Entries_ComeWithTheirNumbers) {
    std::set<std::string> expected, seen;
    for (int i = 0; i < 2000; ++i) {
        std::string name = "entry" + std::to_string(i);
        WriteFile(folder / name, "");
        expected.insert(name);
    }
    int listed = OpenName(top, ".", O_RDONLY | O_DIRECTORY);
    alignas(8) char buffer[4096];
    while (ssize_t size = ReadEntries(listed, buffer, sizeof buffer)) {
        ASSERT_GT(size, 0);
        for (ssize_t at = 0; at < size;) {
            auto entry = reinterpret_cast<const DirectoryEntry*>(buffer + at);
            at += entry->length;
            if (entry->name[0] == '.') continue;
            seen.insert(entry->name);
            struct stat facts;
            ASSERT_EQ(fstatat(top, entry->name, &facts, 0), 0);
            ASSERT_EQ(entry->inode, facts.st_ino);
        }
    }
    Close(listed);
    EXPECT_EQ(seen, expected);
}

class RenamingWithoutReplacing : public SystemCalls, public testing::WithParamInterface<int> {};

TEST_P(RenamingWithoutReplacing, TakenName_IsRefusedAndFilesAreMoved) {
    WriteFile(folder / "a", "a");
    WriteFile(folder / "b", "b");
    fs::create_symlink("a", folder / "link");
    DeniedCall denied(GetParam() ? SYS_renameat2 : -2, GetParam());
    EXPECT_EQ(RenameWithoutReplacing(top, "a", top, "b"), -1);
    EXPECT_EQ(LastError(), dupFNErr);
    EXPECT_EQ(ReadFile(folder / "b"), "b");
    EXPECT_EQ(RenameWithoutReplacing(top, "a", top, "c"), 0);
    EXPECT_EQ(ReadFile(folder / "c"), "a");
    EXPECT_FALSE(fs::exists(folder / "a"));
    EXPECT_EQ(RenameWithoutReplacing(top, "link", top, "other"), 0);
    EXPECT_TRUE(fs::is_symlink(folder / "other"));
    EXPECT_EQ(RenameWithoutReplacing(top, "none", top, "x"), -1);
    EXPECT_EQ(LastError(), fnfErr);
}

TEST_P(RenamingWithoutReplacing, Folder_IsMovedInOneStepOrRefused) {
    fs::create_directory(folder / "d");
    DeniedCall denied(GetParam() ? SYS_renameat2 : -2, GetParam());
    int result = RenameWithoutReplacing(top, "d", top, "e");
    if (GetParam() == 0) {
        EXPECT_EQ(result, 0);
        return;
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(LastError(), paramErr);
    EXPECT_TRUE(fs::exists(folder / "d"));
}

INSTANTIATE_TEST_SUITE_P(FileSystem, RenamingWithoutReplacing, testing::Values(0, EINVAL, ENOSYS),
                         [](const auto& param) {
                             return param.param == 0        ? "Complete"
                                    : param.param == EINVAL ? "LacksTheFlag"
                                                            : "LacksTheCall";
                         });

TEST_F(SystemCalls, Retry_GoesOnAfterAnInterruption) {
    int interruptions = 3;
    int result = Retry([&] {
        if (interruptions-- > 0) {
            errno = EINTR;
            return -1;
        }
        return 7;
    });
    EXPECT_EQ(result, 7);
    EXPECT_EQ(interruptions, -1);
}

TEST_F(SystemCalls, Close_KeepsTheCause) {
    errno = ENOENT;
    Close(12345);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(SystemCalls, CaselessMiss_IsAnsweredWithoutReadingTheFolderAgain) {
    for (int i = 0; i < 10; ++i) WriteFile(folder / ("f" + std::to_string(i)), "");
    FSRef ref;
    struct stat facts;
    timespec now;
    do { // until the folder's change time is old enough to be trusted
        ASSERT_EQ(stat(folder.path().c_str(), &facts), 0);
        clock_gettime(CLOCK_REALTIME, &now);
    } while ((now.tv_sec - facts.st_ctim.tv_sec) * 1000000000 + now.tv_nsec - facts.st_ctim.tv_nsec <
             60000000);
    EXPECT_EQ(PathToRef(folder / "none", ref), fnfErr);
    int reads = CallsOf(SYS_getdents64);
    EXPECT_EQ(PathToRef(folder / "nothing", ref), fnfErr);
    EXPECT_EQ(PathToRef(folder / "NONE", ref), fnfErr);
    EXPECT_EQ(PathToRef(folder / "F7", ref), noErr);
    int readForTheName = CallsOf(SYS_getdents64);
    EXPECT_GT(readForTheName, reads);
    EXPECT_EQ(PathToRef(folder / "F7", ref), noErr);
    EXPECT_EQ(CallsOf(SYS_getdents64), readForTheName);
    EXPECT_GT(reads, 0);
}

TEST_F(SystemCalls, LocateInAFolderUsedLately_IsOneLookAndNothingElse) {
    WriteFile(folder / "f", "");
    FSRef ref = RefTo(folder / "f");
    ASSERT_EQ(Find(ref), noErr);
    constexpr int kRounds = 1000;
    int looksBefore = looks, opensBefore = opens, otherBefore = CallsOf(SYS_openat2);
    for (int i = 0; i < kRounds; ++i) ASSERT_EQ(Find(ref), noErr);
    // Now and then the thread's view of the mounts is looked at, too.
    EXPECT_GE(looks - looksBefore, kRounds);
    EXPECT_LE(looks - looksBefore, 2 * kRounds);
    EXPECT_EQ(opens, opensBefore);
    EXPECT_EQ(CallsOf(SYS_openat2), otherBefore);
}

} // namespace
