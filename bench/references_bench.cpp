// References against what a program would do by path. Each row stands beside its peer.
#include "platform/linux/reference_state.h"
#include "platform/linux/references.h"
#include "platform/linux/system_calls.h"
#include "platform/references.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <string>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

// A small tree with a file, and a folder with many entries; removed at the end.
class Tree {
public:
    Tree() {
        char pattern[] = "/tmp/tavport-bench-XXXXXX";
        if (!mkdtemp(pattern)) std::abort();
        top = pattern;
        std::filesystem::create_directories(top + "/one/two");
        file = top + "/one/two/file.txt";
        std::ofstream(file) << "content";
    }
    ~Tree() { std::filesystem::remove_all(top); }

    const std::string& Huge() {
        if (huge_.empty()) {
            huge_ = top + "/huge";
            std::filesystem::create_directory(huge_);
            for (int i = 0; i < 100000; ++i)
                close(open((huge_ + "/entry" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0600));
        }
        return huge_;
    }

    std::string top, file;

private:
    std::string huge_;
};

Tree& TheTree() {
    static Tree tree;
    return tree;
}

const uint8_t* Bytes(const std::string& path) {
    return reinterpret_cast<const uint8_t*>(path.c_str());
}

FSRef RefTo(const std::string& path) {
    FSRef ref;
    if (FSPathMakeRef(Bytes(path), &ref, nullptr) != noErr) std::abort();
    return ref;
}

void Access(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(access(TheTree().file.c_str(), F_OK));
}
BENCHMARK(Access);

void PathExists(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(FSPathMakeRef(Bytes(TheTree().file), nullptr, nullptr));
}
BENCHMARK(PathExists);

void PathToReference(benchmark::State& state) {
    FSRef ref;
    for (auto _ : state) benchmark::DoNotOptimize(FSPathMakeRef(Bytes(TheTree().file), &ref, nullptr));
}
BENCHMARK(PathToReference);

void StatxInFolder(benchmark::State& state) {
    int folder = open((TheTree().top + "/one/two").c_str(), O_PATH | O_DIRECTORY);
    struct statx facts;
    for (auto _ : state)
        benchmark::DoNotOptimize(statx(folder, "file.txt", AT_SYMLINK_NOFOLLOW, kFactsMask, &facts));
    close(folder);
}
BENCHMARK(StatxInFolder);

void LocateFile(benchmark::State& state) {
    FSRef ref = RefTo(TheTree().file);
    Place place;
    for (auto _ : state) benchmark::DoNotOptimize(Locate(ref, place));
}
BENCHMARK(LocateFile);

void StatOpenClose(benchmark::State& state) {
    struct stat facts;
    for (auto _ : state) {
        benchmark::DoNotOptimize(stat(TheTree().file.c_str(), &facts));
        close(open(TheTree().file.c_str(), O_RDONLY | O_CLOEXEC));
    }
}
BENCHMARK(StatOpenClose);

void ReferenceOpenClose(benchmark::State& state) {
    FSRef ref;
    Place place;
    Identity identity;
    struct statx facts;
    for (auto _ : state) {
        FSPathMakeRef(Bytes(TheTree().file), &ref, nullptr);
        if (Guess(ref, place, identity) != noErr) state.SkipWithError("no place");
        int file = OpenName(place.folder.descriptor(), place.name, O_RDONLY);
        if (FactsAt(file, "", AT_EMPTY_PATH, facts) < 0 || !Matches(identity, facts))
            state.SkipWithError("no object");
        close(file);
    }
}
BENCHMARK(ReferenceOpenClose);

void AccessMissing(benchmark::State& state) {
    std::string path = TheTree().Huge() + "/missing";
    for (auto _ : state) benchmark::DoNotOptimize(access(path.c_str(), F_OK));
}
BENCHMARK(AccessMissing);

void PathMissing(benchmark::State& state) {
    std::string path = TheTree().Huge() + "/missing";
    usleep(100000); // the folder counts as settled
    FSPathMakeRef(Bytes(path), nullptr, nullptr);
    for (auto _ : state) benchmark::DoNotOptimize(FSPathMakeRef(Bytes(path), nullptr, nullptr));
}
BENCHMARK(PathMissing);

void RealPath(benchmark::State& state) {
    char path[4096];
    for (auto _ : state) benchmark::DoNotOptimize(realpath(TheTree().file.c_str(), path));
}
BENCHMARK(RealPath);

void ReferenceToPath(benchmark::State& state) {
    FSRef ref = RefTo(TheTree().file);
    uint8_t path[1024];
    for (auto _ : state) benchmark::DoNotOptimize(FSRefMakePath(&ref, path, sizeof path));
}
BENCHMARK(ReferenceToPath);

// Bytes that stay after references to so many names in one folder.
void ReferencesMade(benchmark::State& state) {
    Place place;
    if (Locate(RefTo(TheTree().file), place) != noErr) std::abort();
    auto count = static_cast<uint64_t>(state.range(0));
    size_t before = mallinfo2().uordblks;
    for (auto _ : state) {
        for (uint64_t i = 0; i < count; ++i) {
            struct statx facts = place.facts;
            facts.stx_ino += i;
            FSRef ref;
            std::string name = "a name that is longer than a reference can keep " + std::to_string(i);
            if (MakeReference(place.folderID, name.c_str(), facts, false, ref) != noErr) std::abort();
            benchmark::DoNotOptimize(ref);
        }
    }
    state.counters["bytes"] = static_cast<double>(mallinfo2().uordblks - before);
}
BENCHMARK(ReferencesMade)->Arg(10000)->Arg(1000000)->Iterations(1);

} // namespace
