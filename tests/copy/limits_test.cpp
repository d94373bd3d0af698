// Trees and files of sizes that break what grows with them: memory, depth, 32-bit sizes.
#include "TavPort.h"
#include "support/files.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

// In memory where there is room, since none of this is about disks.
class CopyLimits : public testing::Test {
protected:
    CopyLimits() {
        std::error_code none;
        const auto room = fs::space("/dev/shm", none);
        const bool isRoomy = !none && room.available > uintmax_t{10} << 30;
        folder = (isRoomy ? "/dev/shm" : fs::temp_directory_path().string()) + "/tavport-limits-XXXXXX";
        if (!mkdtemp(folder.data())) throw std::runtime_error("no folder to work in");
    }
    ~CopyLimits() override { fs::remove_all(folder); }

    std::string In(const std::string& name) const { return folder + "/" + name; }

    int32_t Copy(const std::string& source, const std::string& dest) {
        return TavCopyFile(Wide(In(source)).c_str(), Wide(In(dest)).c_str(), 1);
    }
    bool Delete(const std::string& name) {
        OpacTavFSRef* ref = Tav0FSRCreateWithPath(Wide(In(name)).c_str());
        const bool isDeleted = TavFileDeleteExt(ref) == 1;
        Tav0FSRRelease(ref);
        return isDeleted;
    }

    std::string folder;
};

void MakeEmptyFile(const std::string& path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(file, 0);
    close(file);
}

// A tenth of the entries are folders in a chain ten deep, the rest files in the top folder.
void MakeTree(const std::string& top, long entries) {
    fs::create_directory(top);
    for (long i = 0; i < entries - entries / 10; ++i) MakeEmptyFile(top + "/" + std::to_string(i));
    for (long chain = 0; chain < entries / 100; ++chain) {
        std::string path = top;
        for (int depth = 0; depth < 10; ++depth) {
            path += "/d" + std::to_string(chain);
            ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
        }
    }
}

// The greatest memory of this process since `ForgetPeak`, in KiB; -1 where it is not told.
long Peak() {
    long peak = -1;
    if (FILE* status = fopen("/proc/self/status", "re")) {
        char line[256];
        while (fgets(line, sizeof line, status))
            if (sscanf(line, "VmHWM: %ld", &peak) == 1) break;
        fclose(status);
    }
    return peak;
}

bool ForgetPeak() {
    const int file = open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC);
    const bool isForgotten = file >= 0 && write(file, "5", 1) == 1;
    close(file);
    return isForgotten;
}

// How many KiB `work` adds to the peak of a process of its own; -1 when it fails or nobody can tell.
template <typename Work>
long GrowthBy(Work work) {
    std::array<int, 2> answer;
    if (pipe2(answer.data(), O_CLOEXEC) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
        long growth = -1;
        if (ForgetPeak()) {
            const long before = Peak();
            if (work() && before > 0) growth = Peak() - before;
        }
        _exit(write(answer[1], &growth, sizeof growth) == sizeof growth ? 0 : 1);
    }
    long growth = -1;
    if (child < 0 || read(answer[0], &growth, sizeof growth) != sizeof growth) growth = -1;
    if (child > 0) waitpid(child, nullptr, 0);
    close(answer[0]);
    close(answer[1]);
    return growth;
}

// A number from the environment, or the usual one.
long Chosen(const char* variable, long usual) {
    const char* text = getenv(variable);
    return text ? atol(text) : usual;
}

} // namespace

// Besides what a copy of a small tree takes, the list may hold the folders that are still to be visited, and
// 128 bytes may stay for each folder.
TEST_F(CopyLimits, MemoryStaysFlatOverALargeTree) {
    if (kAddressSanitizer || kThreadSanitizer) GTEST_SKIP() << "the sanitizer keeps what is freed";
    const long entries = Chosen("TAVPORT_TREE_ENTRIES", 10000);
    MakeTree(In("small"), 1000);
    MakeTree(In("large"), entries);
    const long small = GrowthBy([&] { return Copy("small", "small copy") == 1 && Delete("small copy"); });
    const long large = GrowthBy([&] { return Copy("large", "large copy") == 1 && Delete("large copy"); });
    if (small < 0 || large < 0) GTEST_SKIP() << "the host does not tell the peak of a process's memory";
    constexpr long kListed = 220; // an item of the list with its node, as the allocator rounds them
    const long foldersInTop = entries / 100, folders = 2 * (entries / 10);
    EXPECT_LE(large, small + 256 + (foldersInTop * kListed + folders * 128) / 1024);
    EXPECT_FALSE(fs::exists(In("large copy")));
}

TEST_F(CopyLimits, ChainOfFiveThousandFoldersIsCopiedAndDeleted) {
    constexpr int kDepth = 5000;
    const char* name = "nest";
    // Paths of such length cannot be said at once.
    const auto walk = [&](const std::string& top, bool isMaking) {
        int folders = 0;
        int at = open(In(top).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        while (at >= 0) {
            if (isMaking && (folders == kDepth || mkdirat(at, name, 0755) != 0)) break;
            const int next = openat(at, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (next < 0) break;
            ++folders;
            close(at);
            at = next;
        }
        close(at);
        return folders;
    };
    fs::create_directory(In("chain"));
    ASSERT_EQ(walk("chain", true), kDepth);
    EXPECT_EQ(Copy("chain", "copy"), 1);
    EXPECT_EQ(walk("copy", false), kDepth);
    EXPECT_TRUE(Delete("copy"));
    EXPECT_TRUE(Delete("chain"));
    EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(CopyLimits, FileOfMoreThanFourGigabytesIsCopiedRight) {
    constexpr int64_t kGiB = int64_t{1} << 30, kSize = 4 * kGiB + 12345;
    const struct {
        int64_t at;
        std::string text;
    } marks[] = {{0, "first"}, {2 * kGiB - 2, "at 2 GiB"}, {4 * kGiB - 2, "at 4 GiB"}, {kSize - 4, "last"}};
    const std::string from = In("large"), to = In("copy");
    if (fs::space(folder).available < 2 * static_cast<uintmax_t>(kSize))
        GTEST_SKIP() << "no room for a file of more than 4 GiB";
    std::ofstream file(from, std::ios::binary);
    for (const auto& mark : marks) file.seekp(mark.at) << mark.text;
    file.close();
    ASSERT_TRUE(file);
    ASSERT_EQ(fs::file_size(from), static_cast<uintmax_t>(kSize));

    ASSERT_EQ(Copy("large", "copy"), 1);
    EXPECT_EQ(fs::file_size(to), static_cast<uintmax_t>(kSize));
    EXPECT_EQ(system(("cmp '" + from + "' '" + to + "' >&2").c_str()), 0);
}
