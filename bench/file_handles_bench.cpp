// File handles, beside the system calls that do the same work.
#include "TavPort.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A file of 1 MiB in a folder of its own.
class File {
public:
    File() {
        if (!mkdtemp(folder_.data())) throw std::runtime_error("no temporary folder");
        path_ = folder_ + "/file";
        const int descriptor = open(path_.c_str(), O_RDWR | O_CREAT, 0600);
        if (ftruncate(descriptor, 1 << 20) < 0) throw std::runtime_error("cannot size " + path_);
        close(descriptor);
        const std::u16string wide(path_.begin(), path_.end());
        reference_ = Tav0FSRCreateWithPath(wide.c_str());
    }
    ~File() {
        Tav0FSRRelease(reference_);
        unlink(path_.c_str());
        rmdir(folder_.c_str());
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const char* path() const { return path_.c_str(); }
    OpacTavFSRef* reference() const { return reference_; }

private:
    std::string folder_ = "/tmp/tavport-bench-XXXXXX";
    std::string path_;
    OpacTavFSRef* reference_ = nullptr;
};

constexpr uint32_t kReadWrite = TAV_FILE_READ | TAV_FILE_WRITE;

// The same for all who read, since two files do not lie alike in the host's cache.
const File& FileToRead() {
    static const File file;
    return file;
}

// Nor do two blocks of memory.
alignas(4096) char block[1 << 20];

void Read_Handle(benchmark::State& state) {
    const File& file = FileToRead();
    const auto size = static_cast<uint32_t>(state.range(0));
    const int32_t handle = TavFileOpenExt(file.reference(), TAV_FILE_READ);
    uint32_t count = 0;
    for (auto _ : state) {
        if (!TavFileReadExt(handle, block, size, &count)) {
            TavFileSetPointerExt(handle, 0, nullptr, TAV_FILE_BEGIN);
        }
    }
    TavFileCloseExt(handle);
}
BENCHMARK(Read_Handle)->Arg(4096)->Arg(1 << 20);

void Read_System(benchmark::State& state) {
    const File& file = FileToRead();
    const auto size = static_cast<size_t>(state.range(0));
    const int descriptor = open(file.path(), O_RDONLY | O_CLOEXEC);
    for (auto _ : state) {
        if (read(descriptor, block, size) <= 0) lseek(descriptor, 0, SEEK_SET);
    }
    close(descriptor);
}
BENCHMARK(Read_System)->Arg(4096)->Arg(1 << 20);

// Writes over the same bytes, so that neither side waits for space.
void Write_Handle(benchmark::State& state) {
    const File file;
    const auto size = static_cast<uint32_t>(state.range(0));
    const int32_t handle = TavFileOpenExt(file.reference(), kReadWrite);
    uint32_t count = 0;
    int64_t written = 0;
    for (auto _ : state) {
        TavFileWriteExt(handle, block, size, &count);
        written += count;
        if (written % (1 << 20) == 0) TavFileSetPointerExt(handle, 0, nullptr, TAV_FILE_BEGIN);
    }
    TavFileCloseExt(handle);
}
BENCHMARK(Write_Handle)->Arg(4096)->Arg(1 << 20);

void Write_System(benchmark::State& state) {
    const File file;
    const auto size = static_cast<size_t>(state.range(0));
    const int descriptor = open(file.path(), O_RDWR | O_CLOEXEC);
    int64_t written = 0;
    for (auto _ : state) {
        written += write(descriptor, block, size);
        if (written % (1 << 20) == 0) lseek(descriptor, 0, SEEK_SET);
    }
    close(descriptor);
}
BENCHMARK(Write_System)->Arg(4096)->Arg(1 << 20);

void SetPointer_Handle(benchmark::State& state) {
    const File file;
    const int32_t handle = TavFileOpenExt(file.reference(), TAV_FILE_READ);
    int64_t position = 0;
    for (auto _ : state) TavFileSetPointerExt(handle, ++position, nullptr, TAV_FILE_BEGIN);
    TavFileCloseExt(handle);
}
BENCHMARK(SetPointer_Handle);

void SetPointer_System(benchmark::State& state) {
    const File file;
    const int descriptor = open(file.path(), O_RDONLY | O_CLOEXEC);
    int64_t position = 0;
    for (auto _ : state) lseek(descriptor, ++position, SEEK_SET);
    close(descriptor);
}
BENCHMARK(SetPointer_System);

void OpenClose_Handle(benchmark::State& state) {
    const File file;
    for (auto _ : state) TavFileCloseExt(TavFileOpenExt(file.reference(), TAV_FILE_READ));
}
BENCHMARK(OpenClose_Handle);

void OpenClose_System(benchmark::State& state) {
    const File file;
    for (auto _ : state) close(open(file.path(), O_RDONLY | O_CLOEXEC));
}
BENCHMARK(OpenClose_System);

void OpenClose_SystemWithStat(benchmark::State& state) {
    const File file;
    for (auto _ : state) {
        struct stat status;
        stat(file.path(), &status);
        close(open(file.path(), O_RDONLY | O_CLOEXEC));
    }
}
BENCHMARK(OpenClose_SystemWithStat);

} // namespace
