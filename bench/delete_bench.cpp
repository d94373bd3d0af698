// Deleting trees of so many files, so many in each folder. Peers: the C library's tree walk with unlinkat, a
// bare loop that asks of each file what a delete here has to know (its facts and its lock) and nothing else,
// and rm.
#include "copy/recursive_delete.h"
#include "peak_memory.h"
#include "platform/references.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

// Where trees are made: the folder for temporary files, or the one that the environment names for this.
std::string Top() {
    const char* folder = std::getenv("TAVPORT_BENCH_FOLDER");
    return std::string(folder ? folder : P_tmpdir) + "/tavport-delete-bench";
}

// A tree of empty files.
bool MakeTree(const std::string& top, int64_t files, int64_t filesInFolder) {
    if (mkdir(top.c_str(), 0755) != 0) return false;
    for (int64_t folder = 0; folder < files / filesInFolder; ++folder) {
        const std::string path = top + "/folder " + std::to_string(folder);
        if (mkdir(path.c_str(), 0755) != 0) return false;
        for (int64_t i = 0; i < filesInFolder; ++i) {
            const int file =
                open((path + "/file " + std::to_string(i)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            if (file < 0 || close(file) != 0) return false;
        }
    }
    // What the journal still has to write is not the delete's.
    const int folder = open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isWritten = syncfs(folder) == 0;
    close(folder);
    return isWritten;
}

bool DeleteWithLibrary(const std::string& top) {
    FSRef ref;
    return FSPathMakeRef(reinterpret_cast<const uint8_t*>(top.c_str()), &ref, nullptr) == noErr &&
           FSDeleteObjects(&ref) == noErr;
}

bool DeleteWithTreeWalk(const std::string& top) {
    char* paths[] = {const_cast<char*>(top.c_str()), nullptr};
    FTS* walk = fts_open(paths, FTS_PHYSICAL, nullptr);
    if (!walk) return false;
    bool isDone = true;
    while (FTSENT* entry = fts_read(walk)) {
        if (entry->fts_info == FTS_D) continue;
        const int flags = entry->fts_info == FTS_DP ? AT_REMOVEDIR : 0;
        isDone = unlinkat(AT_FDCWD, entry->fts_accpath, flags) == 0 && isDone;
    }
    fts_close(walk);
    return isDone;
}

bool DeleteWithBareLoop(int parent, const char* name) {
    const int folder = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    DIR* listing = fdopendir(folder);
    if (!listing) return false;
    const std::string prefix = "/proc/self/fd/" + std::to_string(folder) + "/";
    char path[sizeof(dirent::d_name) + 64], value[64];
    bool isDone = true;
    while (const dirent* entry = readdir(listing)) {
        const std::string_view child = entry->d_name;
        if (child == "." || child == "..") continue;
        struct statx facts;
        isDone = statx(folder, entry->d_name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &facts) == 0 && isDone;
        std::snprintf(path, sizeof path, "%s%s", prefix.c_str(), entry->d_name);
        benchmark::DoNotOptimize(lgetxattr(path, "user.org.netatalk.Metadata", value, sizeof value));
        const bool isFolder = S_ISDIR(facts.stx_mode);
        if (isFolder) isDone = DeleteWithBareLoop(folder, entry->d_name) && isDone;
        isDone = unlinkat(folder, entry->d_name, isFolder ? AT_REMOVEDIR : 0) == 0 && isDone;
    }
    closedir(listing);
    return isDone;
}

bool DeleteWithBareLoop(const std::string& top) {
    return DeleteWithBareLoop(AT_FDCWD, top.c_str()) && rmdir(top.c_str()) == 0;
}

// The command's own start is less than a thousandth of what it does here.
bool DeleteWithCommand(const std::string& top) {
    char* arguments[] = {const_cast<char*>("rm"), const_cast<char*>("-rf"), const_cast<char*>(top.c_str()),
                         nullptr};
    pid_t child;
    int status;
    return posix_spawnp(&child, "rm", nullptr, nullptr, arguments, environ) == 0 &&
           waitpid(child, &status, 0) == child && status == 0;
}

// Folders in one another, so many of them.
bool MakeChain(const std::string& top, int64_t folders) {
    int parent = AT_FDCWD;
    std::string name = top;
    for (int64_t depth = 0; depth < folders; ++depth) {
        const bool isMade = mkdirat(parent, name.c_str(), 0755) == 0;
        const int folder = isMade ? openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1;
        if (parent != AT_FDCWD) close(parent);
        if (folder < 0) return false;
        parent = folder;
        name = "folder";
    }
    return close(parent) == 0;
}

void DeleteChain(benchmark::State& state) {
    const std::string top = Top();
    for (auto _ : state) {
        state.PauseTiming();
        const bool isMade = MakeChain(top, state.range(0));
        state.ResumeTiming();
        if (!isMade || !DeleteWithLibrary(top)) {
            state.SkipWithError("the folders could not be made or deleted");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// Makes a tree and measures its delete, over and over.
void DeleteTree(benchmark::State& state, bool (*deleteTree)(const std::string&)) {
    const std::string top = Top();
    for (auto _ : state) {
        state.PauseTiming();
        const bool isMade = MakeTree(top, state.range(0), state.range(1));
        ForgetPeakMemory();
        const double before = PeakMemory();
        state.ResumeTiming();
        if (!isMade || !deleteTree(top)) {
            state.SkipWithError("the tree could not be made or deleted");
            break;
        }
        state.counters["peak_grown_KiB"] = (PeakMemory() - before) / 1024;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

} // namespace

#define TREES                                                                                                \
    ArgNames({"files", "in_folder"})                                                                         \
        ->Args({20'000, 200})                                                                                \
        ->Args({20'000, 20'000})                                                                             \
        ->Args({100'000, 200})                                                                               \
        ->Unit(benchmark::kMillisecond)                                                                      \
        ->UseRealTime()
BENCHMARK_CAPTURE(DeleteTree, library, DeleteWithLibrary)->TREES;
BENCHMARK_CAPTURE(DeleteTree, fts_unlinkat, DeleteWithTreeWalk)->TREES;
BENCHMARK_CAPTURE(DeleteTree, statx_getxattr_unlinkat,
                  static_cast<bool (*)(const std::string&)>(DeleteWithBareLoop))
    ->TREES;
BENCHMARK_CAPTURE(DeleteTree, rm, DeleteWithCommand)->TREES;
BENCHMARK(DeleteChain)->Arg(100)->Arg(1'000)->Arg(10'000)->Unit(benchmark::kMillisecond);
