// What asking about drives costs, beside reading the mount table and the device's properties from the system
// each time.
#include "TavPort.h"

#include <benchmark/benchmark.h>
#include <cstdio>

// From the second call on: the mount table is known.
static void TypeOfStartupDrive(benchmark::State& state) {
    TavGetDriveType(u"/");
    for (auto _ : state) benchmark::DoNotOptimize(TavGetDriveType(u"/"));
}
BENCHMARK(TypeOfStartupDrive);

static void RootOfPath(benchmark::State& state) {
    TavChar root[1025];
    TavGetPathDriver(u"/usr/share/doc", root);
    for (auto _ : state) benchmark::DoNotOptimize(TavGetPathDriver(u"/usr/share/doc", root));
}
BENCHMARK(RootOfPath);

static void DriveList(benchmark::State& state) {
    static TavChar roots[65536];
    for (auto _ : state) benchmark::DoNotOptimize(TavGetLogicalDriveStrings(65536, roots));
}
BENCHMARK(DriveList);

// The peer: a program that reads the table whenever it wants to know.
static void MountTableReadByHand(benchmark::State& state) {
    char line[4096];
    for (auto _ : state) {
        FILE* table = fopen("/proc/self/mountinfo", "re");
        if (!table) continue;
        while (fgets(line, sizeof line, table)) benchmark::DoNotOptimize(line[0]);
        fclose(table);
    }
}
BENCHMARK(MountTableReadByHand);
