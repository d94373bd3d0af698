// Forks against the host's own calls: reading and writing 4 KiB at the mark, opening and closing.
#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/references.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {
constexpr size_t kBlock = 4096;
constexpr int kBlocks = 256;

// A file of 1 MiB in a folder of its own.
class File {
public:
    File() {
        char folder[] = "/tmp/tavport-bench-XXXXXX";
        folder_ = mkdtemp(folder);
        path_ = folder_ + "/file";
        const std::string content(kBlock * kBlocks, 'x');
        std::FILE* file = std::fopen(path_.c_str(), "wb");
        std::fwrite(content.data(), 1, content.size(), file);
        std::fclose(file);
        FSPathMakeRef(reinterpret_cast<const uint8_t*>(path_.c_str()), &ref_, nullptr);
    }
    ~File() {
        unlink(path_.c_str());
        rmdir(folder_.c_str());
    }
    const char* path() const { return path_.c_str(); }
    const FSRef* ref() const { return &ref_; }

private:
    std::string folder_, path_;
    FSRef ref_ = {};
};

void ReadFork(benchmark::State& state) {
    const File file;
    char buffer[kBlock];
    FSForkRefNum fork = 0;
    FSOpenFork(file.ref(), 0, nullptr, fsRdPerm, &fork);
    int block = 0;
    for (auto _ : state) {
        if (block++ % kBlocks == 0) FSSetForkPosition(fork, fsFromStart, 0);
        ByteCount count = 0;
        if (FSReadFork(fork, fsAtMark, 0, kBlock, buffer, &count) != noErr) state.SkipWithError("read");
        benchmark::DoNotOptimize(count);
    }
    FSCloseFork(fork);
}

void ReadDescriptor(benchmark::State& state) {
    const File file;
    char buffer[kBlock];
    const int descriptor = open(file.path(), O_RDONLY | O_CLOEXEC);
    int block = 0;
    for (auto _ : state) {
        if (block++ % kBlocks == 0) lseek(descriptor, 0, SEEK_SET);
        if (read(descriptor, buffer, kBlock) != static_cast<ssize_t>(kBlock)) state.SkipWithError("read");
        benchmark::DoNotOptimize(buffer);
    }
    close(descriptor);
}

void WriteFork(benchmark::State& state) {
    const File file;
    const char buffer[kBlock] = {};
    FSForkRefNum fork = 0;
    FSOpenFork(file.ref(), 0, nullptr, fsWrPerm, &fork);
    int block = 0;
    for (auto _ : state) {
        if (block++ % kBlocks == 0) FSSetForkPosition(fork, fsFromStart, 0);
        if (FSWriteFork(fork, fsAtMark, 0, kBlock, buffer, nullptr) != noErr) state.SkipWithError("write");
    }
    FSCloseFork(fork);
}

void WriteDescriptor(benchmark::State& state) {
    const File file;
    const char buffer[kBlock] = {};
    const int descriptor = open(file.path(), O_WRONLY | O_CLOEXEC);
    int block = 0;
    for (auto _ : state) {
        if (block++ % kBlocks == 0) lseek(descriptor, 0, SEEK_SET);
        if (write(descriptor, buffer, kBlock) != static_cast<ssize_t>(kBlock)) state.SkipWithError("write");
    }
    close(descriptor);
}

void OpenAndCloseFork(benchmark::State& state, int8_t permission) {
    const File file;
    for (auto _ : state) {
        FSForkRefNum fork = 0;
        if (FSOpenFork(file.ref(), 0, nullptr, permission, &fork) != noErr) state.SkipWithError("open");
        FSCloseFork(fork);
    }
}

void OpenAndCloseDescriptor(benchmark::State& state, int flags) {
    const File file;
    for (auto _ : state) {
        const int descriptor = open(file.path(), flags | O_CLOEXEC);
        if (descriptor < 0) state.SkipWithError("open");
        close(descriptor);
    }
}

BENCHMARK(ReadFork);
BENCHMARK(ReadDescriptor);
BENCHMARK(WriteFork);
BENCHMARK(WriteDescriptor);
BENCHMARK_CAPTURE(OpenAndCloseFork, reading, fsRdPerm);
BENCHMARK_CAPTURE(OpenAndCloseDescriptor, reading, O_RDONLY);
BENCHMARK_CAPTURE(OpenAndCloseFork, writing, fsRdWrPerm);
BENCHMARK_CAPTURE(OpenAndCloseDescriptor, writing, O_RDWR);
} // namespace
