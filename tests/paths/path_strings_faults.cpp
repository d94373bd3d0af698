#include "TavPort.h"
#include "support/faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

constexpr char16_t kPath[] = u"/folder/name.ext";

// A buffer that holds the path before each run.
struct Buffer {
    TavChar units[64];
    void Prepare() { std::copy(std::begin(kPath), std::end(kPath), units); }
    bool Unchanged() const { return std::u16string(units) == kPath; }
};

} // namespace

TEST(TavPathRemoveFileSpec, EachServiceFails_LeavesThePath) {
    Buffer path;
    int32_t result = -1;
    unsigned runs = faults::FailEachCall({
        .prepare = [&] { path.Prepare(); },
        .scenario = [&] { result = TavPathRemoveFileSpec(path.units); },
        .check =
            [&](const std::string& failed) {
                EXPECT_EQ(result, failed.empty() ? 1 : 0) << failed;
                EXPECT_EQ(path.Unchanged(), !failed.empty()) << failed;
            },
    });
    EXPECT_GE(runs, 4u);
}

TEST(TavPathRemoveExtension, EachServiceFails_LeavesThePath) {
    Buffer path;
    unsigned runs = faults::FailEachCall({
        .prepare = [&] { path.Prepare(); },
        .scenario = [&] { TavPathRemoveExtension(path.units); },
        .check = [&](const std::string& failed) { EXPECT_EQ(path.Unchanged(), !failed.empty()) << failed; },
    });
    EXPECT_GE(runs, 4u);
}

TEST(TavPathFindExtension, EachServiceFails_GivesTheTerminator) {
    const TavChar* found = nullptr;
    unsigned runs = faults::FailEachCall({
        .scenario = [&] { found = TavPathFindExtension(kPath); },
        .check =
            [&](const std::string& failed) { EXPECT_EQ(found - kPath, failed.empty() ? 12 : 16) << failed; },
    });
    EXPECT_GE(runs, 3u);
}

TEST(TavPathFindFileName, EachServiceFails_GivesTheStart) {
    const TavChar* found = nullptr;
    unsigned runs = faults::FailEachCall({
        .scenario = [&] { found = TavPathFindFileName(kPath); },
        .check =
            [&](const std::string& failed) { EXPECT_EQ(found - kPath, failed.empty() ? 8 : 0) << failed; },
    });
    EXPECT_GE(runs, 3u);
}

TEST(TavPathIsRoot, EachServiceFails_GivesNoRoot) {
    int32_t result = -1;
    unsigned runs = faults::FailEachCall({
        .scenario = [&] { result = TavPathIsRoot(u"/Volumes/Disk"); },
        .check = [&](const std::string& failed) { EXPECT_EQ(result, failed.empty()) << failed; },
    });
    EXPECT_GE(runs, 6u);
}

TEST(TavPathIsSubOnPath, EachServiceFails_GivesNo) {
    int32_t result = -1;
    unsigned runs = faults::FailEachCall({
        .scenario = [&] { result = TavPathIsSubOnPath(kPath, u"/Folder"); },
        .check = [&](const std::string& failed) { EXPECT_EQ(result, failed.empty()) << failed; },
    });
    EXPECT_GE(runs, 2u);
}

// Nothing has to be had for cutting and joining at slashes.
TEST(PathStrings, WithEverythingFailing_SlashesAreAddedAndTaken) {
    TavChar path[32] = u"/a";
    TavChar common[32];
    int32_t appended = 0, isServer = 0;
    {
        const faults::Injection fault({.call = 1, .lasting = true});
        TavPathAddSlash(path);
        TavPathRemoveSlash(path);
        isServer = TavPathIsUNC(u"//server/share");
    }
    EXPECT_EQ(std::u16string(path), u"/a");
    EXPECT_EQ(isServer != 0, TavPathIsUNC(u"//server/share") != 0);
    (void)faults::FailEachCall({
        .prepare =
            [&] {
                std::copy_n(u"/a", 3, path);
                common[0] = 0;
            },
        .scenario =
            [&] {
                appended = TavPathAppend(path, u"b");
                TavPathCommonPrefix(u"/a/b", u"/a/c", common);
            },
        .check =
            [&](const std::string& failed) {
                EXPECT_TRUE(std::u16string(path) == u"/a/b" || (!appended && std::u16string(path) == u"/a"))
                    << failed;
                EXPECT_TRUE(std::u16string(common) == u"/a/" || common[0] == 0) << failed;
            },
    });
}
