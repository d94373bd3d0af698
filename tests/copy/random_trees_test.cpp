// Random trees copied and compared by tools that know nothing of this library.
#include "TavPort.h"
#include "platform/catalog.h"
#include "platform/forks.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>

namespace fs = std::filesystem;

namespace {

class RandomTree {
public:
    explicit RandomTree(unsigned seed) : random_(seed) {}

    void Fill(const fs::path& folder, int depth) {
        fs::create_directory(folder);
        for (int i = Below(5); i > 0; --i) MakeItem(folder / (FreshName()), depth);
        SetMode(folder, 0700 | Below(0100));
    }

private:
    int Below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

    std::string FreshName() {
        static const char* stems[] = {"a",   "b c",          "\xC3\xA9", ".dot",
                                      "x:y", "\xE4\xB8\xAD", "bad\xFF",  "long"};
        std::string name = stems[Below(8)] + std::to_string(++made_);
        if (Below(20) == 0) name += std::string(200, 'n');
        return name;
    }
    void MakeItem(const fs::path& path, int depth) {
        switch (Below(6)) {
        case 0:
            if (depth > 0) return Fill(path, depth - 1);
            [[fallthrough]];
        case 1:
            return fs::create_symlink(Below(2) ? "nowhere" : "/tmp", path);
        default:
            return MakeFile(path);
        }
    }
    void MakeFile(const fs::path& path) {
        static const int sizes[] = {0, 1, 511, 512, 513, 5000, 70000};
        WriteFile(path.string(),
                  std::string(static_cast<size_t>(sizes[Below(7)]), static_cast<char>('a' + Below(26))));
        if (Below(3) == 0) Dress(path.string());
        SetMode(path, 0400 | Below(01000));
        timespec dates[2] = {{0, UTIME_OMIT}, {1000000000 + Below(500000000), 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), dates, 0), 0);
    }
    // Finder information, a resource fork, a lock, a creation date.
    void Dress(const std::string& path) {
        FSRef ref = Reference(path);
        if (Below(2)) AddResources(ref);
        FSCatalogInfo info{};
        for (int i = 0; i < 8; ++i) info.finderInfo[i] = static_cast<uint8_t>('A' + Below(26));
        info.createDate = {0, 3000000000u + static_cast<uint32_t>(Below(1000000)), 0};
        if (Below(3) == 0) info.nodeFlags = kFSNodeLockedMask;
        ASSERT_EQ(
            FSSetCatalogInfo(&ref, kFSCatInfoFinderInfo | kFSCatInfoCreateDate | kFSCatInfoNodeFlags, &info),
            noErr);
    }
    void AddResources(const FSRef& ref) {
        HFSUniStr255 name;
        FSForkRefNum fork;
        std::string bytes(static_cast<size_t>(Below(3000)), 'r');
        ASSERT_EQ(FSGetResourceForkName(&name), noErr);
        ASSERT_EQ(FSCreateFork(&ref, name.length, name.unicode), noErr);
        ASSERT_EQ(FSOpenFork(&ref, name.length, name.unicode, fsWrPerm, &fork), noErr);
        ASSERT_EQ(FSWriteFork(fork, fsAtMark, 0, static_cast<ByteCount>(bytes.size()), bytes.data(), nullptr),
                  noErr);
        ASSERT_EQ(FSCloseFork(fork), noErr);
    }
    static void SetMode(const fs::path& path, int mode) {
        ASSERT_EQ(chmod(path.c_str(), static_cast<mode_t>(mode)), 0);
    }

    std::mt19937 random_;
    int made_ = 0;
};

// What `find` tells of everything in a tree: type, mode, size, link text, and the files' dates.
std::string Facts(const std::string& root) {
    std::string command = "cd '" + root +
                          "' && { find . ! -type d ! -name '._*' -printf '%p %y %m %s %l %Ts\\n' ; " +
                          "find . -type d -printf '%p %y %m\\n' ; } | sort";
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    for (int byte; (byte = fgetc(pipe)) != EOF;) text += static_cast<char>(byte);
    EXPECT_EQ(pclose(pipe), 0);
    return text;
}

// Finder information, lock and creation date by path, as the library itself reads them.
std::map<std::string, std::string> Metadata(const std::string& root) {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file() || entry.is_symlink() ||
            entry.path().filename().string().starts_with("._"))
            continue;
        FSRef ref = Reference(entry.path().string());
        FSCatalogInfo info{};
        constexpr FSCatalogInfoBitmap kFacts =
            kFSCatInfoNodeFlags | kFSCatInfoFinderInfo | kFSCatInfoCreateDate | kFSCatInfoRsrcSizes;
        EXPECT_EQ(FSGetCatalogInfo(&ref, kFacts, &info, nullptr, nullptr, nullptr), noErr);
        all[fs::relative(entry.path(), root).string()] =
            std::string(reinterpret_cast<char*>(info.finderInfo), 16) + std::to_string(info.nodeFlags) + "," +
            std::to_string(info.createDate.lowSeconds) + "," + std::to_string(info.rsrcLogicalSize);
    }
    return all;
}

} // namespace

TEST(RandomTrees, CopyComparesEqualAndIsDeletedToNothing) {
    const char* chosen = getenv("TAVPORT_TREES");
    const unsigned trees = chosen ? static_cast<unsigned>(atoi(chosen)) : 60;
    for (unsigned seed = 1; seed <= trees; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TemporaryFolder folder;
        RandomTree(seed).Fill(folder / "from", 3);
        ASSERT_EQ(TavCopyFile(Wide(folder / "from").c_str(), Wide(folder / "to").c_str(), 1), 1);

        EXPECT_EQ(
            system(("diff -r --no-dereference '" + (folder / "from") + "' '" + (folder / "to") + "' >&2")
                       .c_str()),
            0);
        EXPECT_EQ(Facts(folder / "from"), Facts(folder / "to"));
        EXPECT_EQ(Metadata(folder / "from"), Metadata(folder / "to"));

        OpacTavFSRef* copy = Tav0FSRCreateWithPath(Wide(folder / "to").c_str());
        EXPECT_EQ(TavFileDeleteExt(copy), 1);
        EXPECT_FALSE(fs::exists(folder / "to"));
        Tav0FSRRelease(copy);
    }
}
