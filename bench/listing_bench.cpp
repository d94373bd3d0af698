// Listing folders and looking for names in them, beside loops of system calls that learn the same.
#include "TavPort.h"
#include "peak_memory.h"

#include <benchmark/benchmark.h>

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

namespace fs = std::filesystem;

namespace {

// Folders of empty files, made on first use and removed at the end. TAVPORT_BENCH_FOLDER tells where, so that
// other file systems can be measured.
class Folders {
public:
    ~Folders() {
        std::error_code ignored;
        if (!top_.empty()) fs::remove_all(top_, ignored);
    }

    const std::string& WithFiles(size_t count) {
        std::string& folder = folders_[count];
        if (folder.empty()) folder = Make(count);
        return folder;
    }

private:
    std::string Make(size_t count) {
        if (top_.empty()) {
            const char* place = getenv("TAVPORT_BENCH_FOLDER");
            top_ = std::string(place ? place : "/tmp") + "/tavport-bench-XXXXXX";
            if (!mkdtemp(top_.data())) throw std::runtime_error("no folder to measure in");
        }
        std::string folder = top_ + "/" + std::to_string(count);
        fs::create_directory(folder);
        for (size_t i = 0; i < count; ++i) {
            int file = open((folder + "/file-" + std::to_string(i) + ".dat").c_str(),
                            O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
            if (file < 0) throw std::runtime_error("no file to measure with");
            close(file);
        }
        return folder;
    }

    std::string top_;
    std::map<size_t, std::string> folders_;
};

Folders folders;

std::u16string Wide(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

// What statx tells of each entry and, where asked for, the attribute that holds Finder information, whose call
// finds the entry in the working folder.
size_t ReadWithSystemCalls(const std::string& folder, bool attributes) {
    if (attributes && chdir(folder.c_str()) != 0) return 0;
    DIR* listing = opendir(folder.c_str());
    int descriptor = dirfd(listing);
    size_t count = 0;
    char value[512];
    while (dirent* entry = readdir(listing)) {
        struct statx facts;
        if (statx(descriptor, entry->d_name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &facts) ==
            0)
            ++count;
        if (!attributes) continue;
        benchmark::DoNotOptimize(lgetxattr(entry->d_name, "user.org.netatalk.Metadata", value, sizeof value));
    }
    closedir(listing);
    return count - 2; // "." and ".."
}

// Name, type, size and times of each entry, as the standard library gives them.
size_t ReadWithStandardLibrary(const std::string& folder) {
    size_t count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        benchmark::DoNotOptimize(entry.is_directory());
        benchmark::DoNotOptimize(entry.file_size());
        benchmark::DoNotOptimize(entry.last_write_time());
        ++count;
    }
    return count;
}

size_t ReadWithSearch(const std::u16string& folder) {
    TavFindDataW data;
    TavFindSearch* search = TavFindFirstFile(folder.c_str(), &data);
    size_t count = 0;
    while (TavFindNextFile(search, &data)) ++count;
    TavFindClose(search);
    return count;
}

void Report(benchmark::State& state, size_t count) {
    if (count != static_cast<size_t>(state.range(0))) state.SkipWithError("not every entry was listed");
    state.counters["entries"] =
        benchmark::Counter(static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate);
}

} // namespace

static void ListTav(benchmark::State& state) {
    std::u16string folder = Wide(folders.WithFiles(static_cast<size_t>(state.range(0))));
    size_t count = 0;
    ForgetPeakMemory();
    const double before = PeakMemory();
    for (auto _ : state) count = ReadWithSearch(folder);
    Report(state, count);
    state.counters["peak_grown_KiB"] = (PeakMemory() - before) / 1024;
}

// The same with files that have changed since they were last listed, so that nothing is known of them.
static void ListTavChanged(benchmark::State& state) {
    const std::string& folder = folders.WithFiles(static_cast<size_t>(state.range(0)));
    const std::u16string wide = Wide(folder);
    size_t count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (int64_t i = 0; i < state.range(0); ++i)
            chmod((folder + "/file-" + std::to_string(i) + ".dat").c_str(), 0600);
        state.ResumeTiming();
        count = ReadWithSearch(wide);
    }
    Report(state, count);
}

static void ListStandardLibrary(benchmark::State& state) {
    const std::string& folder = folders.WithFiles(static_cast<size_t>(state.range(0)));
    size_t count = 0;
    for (auto _ : state) count = ReadWithStandardLibrary(folder);
    Report(state, count);
}

static void ListStatx(benchmark::State& state) {
    std::string folder = folders.WithFiles(static_cast<size_t>(state.range(0)));
    size_t count = 0;
    for (auto _ : state) count = ReadWithSystemCalls(folder, false);
    Report(state, count);
}

static void ListStatxAndAttribute(benchmark::State& state) {
    std::string folder = folders.WithFiles(static_cast<size_t>(state.range(0)));
    std::string before = fs::current_path();
    fs::current_path(folder); // so that the attribute can be asked for by name, too
    size_t count = 0;
    for (auto _ : state) count = ReadWithSystemCalls(folder, true);
    fs::current_path(before);
    Report(state, count);
}

#define SIZES Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)
BENCHMARK(ListTav)->SIZES;
BENCHMARK(ListTavChanged)->SIZES;
BENCHMARK(ListStandardLibrary)->SIZES;
BENCHMARK(ListStatx)->SIZES;
BENCHMARK(ListStatxAndAttribute)->SIZES;

// The memory that listing takes beyond its beginning, in a folder of a million entries (set
// TAVPORT_BENCH_MILLION).
static void ListMillionMemory(benchmark::State& state) {
    if (!getenv("TAVPORT_BENCH_MILLION")) {
        state.SkipWithError("TAVPORT_BENCH_MILLION is not set: the folder takes minutes to make");
        return;
    }
    std::u16string folder = Wide(folders.WithFiles(1000000));
    for (auto _ : state) {
        TavFindDataW data;
        TavFindSearch* search = TavFindFirstFile(folder.c_str(), &data);
        size_t count = 0, early = 0, most = 0;
        for (; TavFindNextFile(search, &data); ++count) {
            if (count == 1000) early = most = mallinfo2().uordblks;
            if (count > 1000 && count % 1000 == 0) most = std::max<size_t>(most, mallinfo2().uordblks);
        }
        TavFindClose(search);
        state.counters["entries"] = static_cast<double>(count);
        state.counters["grown_bytes"] = static_cast<double>(most - early);
    }
}
BENCHMARK(ListMillionMemory)->Unit(benchmark::kMillisecond)->Iterations(1);

// ---- Existence

static void ExistsTav(benchmark::State& state, const std::string& name) {
    std::u16string path = Wide(folders.WithFiles(100000) + "/" + name);
    int32_t exists = TavPathFileExists(path.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(exists = TavPathFileExists(path.c_str()));
    state.counters["exists"] = exists;
}

static void ExistsAccess(benchmark::State& state, const std::string& name) {
    std::string path = folders.WithFiles(100000) + "/" + name;
    int result = access(path.c_str(), F_OK);
    for (auto _ : state) benchmark::DoNotOptimize(result = access(path.c_str(), F_OK));
    state.counters["exists"] = result == 0;
}

BENCHMARK_CAPTURE(ExistsTav, hit, "file-500.dat");
BENCHMARK_CAPTURE(ExistsAccess, hit, "file-500.dat");
BENCHMARK_CAPTURE(ExistsTav, miss, "missing.dat");
BENCHMARK_CAPTURE(ExistsAccess, miss, "missing.dat");
BENCHMARK_CAPTURE(ExistsTav, folder, "");
BENCHMARK_CAPTURE(ExistsAccess, folder, "");

static void IsDirectoryTav(benchmark::State& state) {
    std::u16string path = Wide(folders.WithFiles(1000));
    for (auto _ : state) benchmark::DoNotOptimize(TavPathIsDirectory(path.c_str()));
}
BENCHMARK(IsDirectoryTav);

static void IsDirectoryStat(benchmark::State& state) {
    std::string path = folders.WithFiles(1000);
    struct stat facts;
    for (auto _ : state) benchmark::DoNotOptimize(stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode));
}
BENCHMARK(IsDirectoryStat);
