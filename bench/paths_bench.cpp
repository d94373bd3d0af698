// The path helpers: in place and on disk, the latter beside the system call that answers the same question.
#include "TavPort.h"

#include <benchmark/benchmark.h>

#include <cstring>

namespace {

constexpr TavChar kPath[] = u"/home/ann/Documents/Letters/summer 2004.draft.txt";

} // namespace

static void Append(benchmark::State& state) {
    TavChar path[1024];
    for (auto _ : state) {
        memcpy(path, kPath, sizeof kPath);
        benchmark::DoNotOptimize(TavPathAppend(path, u"/notes"));
    }
}
BENCHMARK(Append);

static void RemoveFileSpec(benchmark::State& state) {
    TavChar path[1024];
    for (auto _ : state) {
        memcpy(path, kPath, sizeof kPath);
        benchmark::DoNotOptimize(TavPathRemoveFileSpec(path));
    }
}
BENCHMARK(RemoveFileSpec);

static void RemoveExtension(benchmark::State& state) {
    TavChar path[1024];
    for (auto _ : state) {
        memcpy(path, kPath, sizeof kPath);
        TavPathRemoveExtension(path);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(RemoveExtension);

static void FindExtension(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TavPathFindExtension(kPath));
}
BENCHMARK(FindExtension);

static void FindFileName(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TavPathFindFileName(kPath));
}
BENCHMARK(FindFileName);

static void AddAndRemoveSlash(benchmark::State& state) {
    TavChar path[1024];
    memcpy(path, kPath, sizeof kPath);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavPathAddSlash(path));
        benchmark::DoNotOptimize(TavPathRemoveSlash(path));
    }
}
BENCHMARK(AddAndRemoveSlash);

static void IsRoot(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TavPathIsRoot(u"/Volumes/Backup Disk"));
}
BENCHMARK(IsRoot);

static void IsSubOnPath(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TavPathIsSubOnPath(kPath, u"/Home/Ann/documents"));
}
BENCHMARK(IsSubOnPath);
