// Copying files and trees, on memory (/dev/shm) and on the root file system (/var/tmp), beside the command
// that does the same and a loop that does no more than the job asks for. Rows are comparable in one run only,
// so let them take turns:
//
//     copy_bench --benchmark_enable_random_interleaving=true
//
// The time that a command needs to start is taken off its rows. A disk that has just lost a tree makes files many times
// more slowly for minutes (ext4 passes over numbers that were given up lately), so what is made on one stays until the
// program ends, and where TAVPORT_BENCH_DISK names another folder in place of /var/tmp, for good.
#include "TavPort.h"
#include "peak_memory.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr char kAttribute[] = "user.org.netatalk.Metadata";
constexpr size_t kAttributeSize = 402;

void Require(bool isTrue, const char* what) {
    if (!isTrue) throw std::runtime_error(what);
}

// ---- Where, and what is copied

struct Volume {
    const char* name;
    std::string folder;
    bool isDisk;
};

const Volume kMemory = {"memory", "/dev/shm", false};
const char* const kDiskFolder = std::getenv("TAVPORT_BENCH_DISK");
const Volume kDisk = {"disk", kDiskFolder ? kDiskFolder : "/var/tmp", true};

// What is left on the disk.
struct Leftovers {
    std::vector<std::string> folders;
    ~Leftovers() {
        if (kDiskFolder) return;
        std::error_code ignored;
        for (const std::string& folder : folders) fs::remove_all(folder, ignored);
    }
} leftovers;

// A folder of one row's own; everything in it goes with it, or with the program.
class Bench {
public:
    explicit Bench(const Volume& volume)
        : path_(volume.folder + "/tavport-copy-bench-XXXXXX"), isOnDisk_(volume.isDisk) {
        Require(mkdtemp(path_.data()) != nullptr, "no folder to work in");
        if (isOnDisk_) leftovers.folders.push_back(path_);
    }
    ~Bench() {
        if (!isOnDisk_) fs::remove_all(path_);
    }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    // What still has to be written is not the next row's, and hardly anybody copies what was made in this very moment,
    // when the clock of change times does not yet tell it from what is made next.
    void Settle() const {
        const int folder = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        syncfs(folder);
        close(folder);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

private:
    std::string path_;
    bool isOnDisk_;
};

void WriteFile(const std::string& path, uint64_t size) {
    static const std::vector<char> block(1 << 20, 'x');
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    Require(file >= 0, "no file");
    for (uint64_t left = size; left > 0;) {
        const ssize_t written = write(file, block.data(), std::min<uint64_t>(left, block.size()));
        Require(written > 0, "no room");
        left -= static_cast<uint64_t>(written);
    }
    close(file);
}

// Folders of a hundred files each, a tenth of them inside the one before.
void MakeTree(const std::string& top, int files, uint64_t size) {
    fs::create_directory(top);
    std::string folder;
    for (int i = 0; i < files; ++i) {
        if (i % 100 == 0) {
            folder = (i % 1000 ? folder.substr(0, folder.rfind('/')) : top) + "/folder " + std::to_string(i);
            if (i % 1000 == 100)
                folder = top + "/folder " + std::to_string(i - 100) + "/folder " + std::to_string(i);
            fs::create_directory(folder);
        }
        WriteFile(folder + "/file " + std::to_string(i), size);
    }
}

// ---- Who copies

std::u16string Wide(const std::string& path) {
    return {path.begin(), path.end()};
}

void CopyWithLibrary(const std::string& from, const std::string& to) {
    Require(TavCopyFile(Wide(from).c_str(), Wide(to).c_str(), 1) == 1, "the library did not copy");
}

int RunCommand(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t child;
    int status = -1;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) return -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// The least that a command needs to start and end.
Seconds StartOfCommand() {
    static const Seconds least = [] {
        Seconds shortest(1);
        for (int i = 0; i < 20; ++i) {
            const auto start = Clock::now();
            Require(RunCommand({"cp", "/dev/null", "/dev/null/.."}) != -1, "no cp");
            shortest = std::min<Seconds>(shortest, Clock::now() - start);
        }
        return shortest;
    }();
    return least;
}

void CopyWithCommand(const char* option, const std::vector<std::string>& from, const std::string& to) {
    std::vector<std::string> words = {"cp", option};
    words.insert(words.end(), from.begin(), from.end());
    words.push_back(to);
    Require(RunCommand(std::move(words)) == 0, "cp did not copy");
}

void MoveBytes(int from, int to, std::vector<char>& buffer) {
    ssize_t count;
    while ((count = read(from, buffer.data(), buffer.size())) > 0)
        Require(write(to, buffer.data(), static_cast<size_t>(count)) == count, "no room");
    Require(count == 0, "no content");
}

// Content, mode and dates, and the attribute twice: as busy and as what the file really is.
void CopyWithLoop(const std::string& from, const std::string& to, std::vector<char>& buffer) {
    char value[kAttributeSize] = {};
    const int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat facts;
    Require(source >= 0 && fstat(source, &facts) == 0, "no source");
    const int copy = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    Require(copy >= 0, "no copy");
    Require(fsetxattr(copy, kAttribute, value, sizeof value, 0) == 0, "no attribute");
    MoveBytes(source, copy, buffer);
    value[0] = 1; // what does not change is not written on some volumes
    Require(fsetxattr(copy, kAttribute, value, sizeof value, 0) == 0, "no attribute");
    const timespec dates[2] = {facts.st_atim, facts.st_mtim};
    Require(fchmod(copy, facts.st_mode) == 0 && futimens(copy, dates) == 0, "no facts");
    close(copy);
    close(source);
}

void CopyContent(const std::string& from, const std::string& to) {
    std::vector<char> buffer(256 * 1024);
    const int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int copy = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    Require(source >= 0 && copy >= 0, "no file");
    MoveBytes(source, copy, buffer);
    close(copy);
    close(source);
}

// ---- Rows

// The processor's time that this process and its ended children have taken; steadier than the clock's on a busy
// machine.
Seconds ProcessorTime() {
    Seconds total(0);
    for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage;
        Require(getrusage(who, &usage) == 0, "no times");
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            total += std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
    }
    return total;
}

// Measures the one copy of a row.
void Measure(benchmark::State& state, const Bench& bench, Seconds start, const std::function<void()>& copy) {
    for (auto _ : state) {
        fs::create_directory(bench / "to");
        bench.Settle();
        const Seconds processor = ProcessorTime();
        const auto begin = Clock::now();
        copy();
        state.SetIterationTime(std::max(Seconds(Clock::now() - begin) - start, Seconds(1e-9)).count());
        state.counters["cpu_ms"] = (ProcessorTime() - processor).count() * 1000;
    }
}

enum class Who { kLibrary, kLibraryAtOnce, kLoop, kCommand };

void Files(benchmark::State& state, const Volume& volume, Who who) {
    constexpr int kFiles = 5000;
    const Bench bench(volume);
    std::vector<std::string> names, sources;
    fs::create_directory(bench / "from");
    for (int i = 0; i < kFiles; ++i) {
        names.push_back("file " + std::to_string(i));
        sources.push_back(bench / ("from/" + names.back()));
        WriteFile(sources.back(), 1024);
    }
    const auto each = [&](auto copy) {
        for (int i = 0; i < kFiles; ++i) copy(sources[i], bench / ("to/" + names[i]));
    };
    std::vector<char> buffer(256 * 1024);
    switch (who) {
    case Who::kLibrary:
        Measure(state, bench, Seconds(0), [&] { each(CopyWithLibrary); });
        break;
    case Who::kLibraryAtOnce:
        Measure(state, bench, Seconds(0), [&] { CopyWithLibrary(bench / "from", bench / "to/copy"); });
        break;
    case Who::kLoop:
        Measure(state, bench, Seconds(0), [&] {
            each([&](const std::string& from, const std::string& to) { CopyWithLoop(from, to, buffer); });
        });
        break;
    case Who::kCommand:
        Measure(state, bench, StartOfCommand(), [&] { CopyWithCommand("-p", sources, bench / "to"); });
        break;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kFiles);
}

void Large(benchmark::State& state, const Volume& volume, Who who) {
    const auto size = static_cast<uint64_t>(state.range(0)) << 20;
    const Bench bench(volume);
    const std::string from = bench / "from", to = bench / "to/copy";
    WriteFile(from, size);
    switch (who) {
    case Who::kLibrary:
    case Who::kLibraryAtOnce:
        Measure(state, bench, Seconds(0), [&] { CopyWithLibrary(from, to); });
        break;
    case Who::kLoop:
        Measure(state, bench, Seconds(0), [&] { CopyContent(from, to); });
        break;
    case Who::kCommand:
        Measure(state, bench, StartOfCommand(), [&] { CopyWithCommand("--reflink=never", {from}, to); });
        break;
    }
    for (const std::string& file : {from, to}) fs::remove(file); // large, but not many
    state.SetBytesProcessed(static_cast<int64_t>(static_cast<uint64_t>(state.iterations()) * size));
}

void Tree(benchmark::State& state, const Volume& volume, Who who) {
    constexpr int kFiles = 20'000;
    const Bench bench(volume);
    MakeTree(bench / "from", kFiles, 100);
    const std::string from = bench / "from", to = bench / "to/copy";
    if (who == Who::kLibrary)
        Measure(state, bench, Seconds(0), [&] { CopyWithLibrary(from, to); });
    else
        Measure(state, bench, StartOfCommand(), [&] { CopyWithCommand("-a", {from}, to); });
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kFiles);
}

// How much a process grows by copying a tree. Each copy has a process of its own, in which a small tree was
// copied before.
void Memory(benchmark::State& state, const Volume& volume) {
    const Bench bench(volume);
    MakeTree(bench / "small", 10, 0);
    MakeTree(bench / "from", static_cast<int>(state.range(0)), 0);
    double grown = 0;
    Measure(state, bench, Seconds(0), [&] {
        int answer[2];
        Require(pipe2(answer, O_CLOEXEC) == 0, "no pipe");
        const pid_t child = fork();
        if (child == 0) {
            CopyWithLibrary(bench / "small", bench / "to/small");
            ForgetPeakMemory();
            const double before = PeakMemory();
            CopyWithLibrary(bench / "from", bench / "to/copy");
            const double more = (PeakMemory() - before) / 1024;
            _exit(write(answer[1], &more, sizeof more) == sizeof more ? 0 : 1);
        }
        int status = -1;
        Require(child > 0 && waitpid(child, &status, 0) == child && status == 0, "the child failed");
        Require(read(answer[0], &grown, sizeof grown) == sizeof grown, "no answer");
        close(answer[0]);
        close(answer[1]);
    });
    state.counters["grown_KiB"] = grown;
}

template <typename Row, typename... Arguments>
void Add(const std::string& name, int repetitions, std::vector<int64_t> sizes, Row row,
         Arguments... arguments) {
    auto* added = benchmark::RegisterBenchmark(name.c_str(),
                                               [=](benchmark::State& state) { row(state, arguments...); });
    added->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(repetitions);
    for (int64_t size : sizes) added->Arg(size);
}

const bool rowsAreAdded = [] {
    for (const Volume& volume : {kMemory, kDisk}) {
        const std::string place = std::string("/") + volume.name;
        Add("Files1KiB/library" + place, 5, {}, Files, volume, Who::kLibrary);
        Add("Files1KiB/library_folder" + place, 5, {}, Files, volume, Who::kLibraryAtOnce);
        Add("Files1KiB/loop" + place, 5, {}, Files, volume, Who::kLoop);
        Add("Files1KiB/cp_p" + place, 5, {}, Files, volume, Who::kCommand);
        Add("Tree20000/library" + place, 5, {}, Tree, volume, Who::kLibrary);
        Add("Tree20000/cp_a" + place, 5, {}, Tree, volume, Who::kCommand);
        Add("LargeMiB/library" + place, 3, {512, 1024}, Large, volume, Who::kLibrary);
        Add("LargeMiB/read_write" + place, 3, {512, 1024}, Large, volume, Who::kLoop);
        Add("LargeMiB/cp_reflink_never" + place, 3, {512, 1024}, Large, volume, Who::kCommand);
    }
    Add("Memory/library/memory", 1, {1'000, 10'000, 100'000}, Memory, kMemory);
    return true;
}();

} // namespace
