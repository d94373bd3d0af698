// What copying leaves behind when any one of its calls fails: the source is never touched, an old target or a
// new one can always be reached, and nothing half-made bears the final name. A new file is complete. kept: a
// new tree may lack items that failed, and replaces the old one all the same.
#include "copy/file_copy.h"
#include "copy/folder_copy.h"
#include "copy/object_copy.h"
#include "support/faults.h"
#include "support/files.h"
#include "support/mounts.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>

namespace fs = std::filesystem;

namespace {

using Tree = std::map<std::string, std::string>; // relative path to content; folders have "/"

Tree ReadTree(const std::string& root) {
    Tree tree;
    if (!fs::exists(root)) return tree;
    if (fs::is_regular_file(root)) return {{"", ReadFile(root)}};
    for (const auto& entry : fs::recursive_directory_iterator(root))
        tree[fs::relative(entry.path(), root).string()] =
            entry.is_directory() ? "/" : ReadFile(entry.path().string());
    return tree;
}

// One way of copying: what is copied, what stands in its way, and how.
struct Scenario {
    const char* name;
    bool tree;
    bool targetExists;
    DupeAction action;
    bool dropBox = false;
    bool serverCopy = false;
    bool byPath = false;
};

void PrintTo(const Scenario& scenario, std::ostream* stream) {
    *stream << scenario.name;
}

class CopySweep : public testing::TestWithParam<Scenario> {
protected:
    std::string Source() { return folder / "from/object"; }
    std::string Target() { return folder / "to/object"; }
    std::string SetAside() { return folder / "to/.DeleteMe"; }

    void MakeObject(const std::string& path, const std::string& content) {
        if (!GetParam().tree) return WriteFile(path, content);
        fs::create_directories(path + "/sub/deeper");
        WriteFile(path + "/one", content + "1");
        WriteFile(path + "/sub/two", content + "2");
        WriteFile(path + "/sub/deeper/three", content + "3");
    }
    void Prepare() {
        fs::create_directory(folder / "from");
        fs::create_directory(folder / "to");
        MakeObject(Source(), sourceContent);
        if (GetParam().targetExists) MakeObject(Target(), "old");
        if (GetParam().dropBox) fs::permissions(folder / "to", fs::perms(0733));
        sourceBefore = ReadTree(Source());
        targetBefore = ReadTree(Target());
        source = Reference(Source());
        destDir = Reference(folder / "to");
        sourcePath = Wide(Source());
        targetPath = Wide(Target());
    }
    void Run() {
        if (GetParam().byPath) {
            const bool refuses = GetParam().action != kDupeActionReplace;
            result = TavCopyFile(sourcePath.c_str(), targetPath.c_str(), refuses) ? noErr : ioErr;
        } else if (GetParam().serverCopy) {
            result = RunServerCopy();
        } else {
            result = FSCopyObject(&source, &destDir, 0, kFSCatInfoNone, GetParam().action, nullptr, false,
                                  false, nullptr, nullptr, nullptr, nullptr);
        }
    }
    // A copy that the server is asked to make first.
    OSErr RunServerCopy() {
        HFSUniStr255 name = Name(u"object");
        FSCatalogInfo info;
        Boolean isFolder, isReplacing;
        FSRef deleteMe;
        CopyParams params;
        FilterParams filter{};
        OSErr copied = FSCopyObjectPreflight(&source, &destDir, GetParam().action, &params, &name, &info,
                                             &isFolder, &deleteMe, &isReplacing);
        params.volHasCopyFile = true;
        if (copied == noErr)
            copied = FSCopyFile(&source, &destDir, &info, &name, &params, &filter, nullptr, nullptr);
        if (params.copyBuffer) DisposePtr(params.copyBuffer);
        return copied;
    }
    void Check(const std::string& failed) {
        SCOPED_TRACE("failed: " + failed + ", result " + std::to_string(result));
        EXPECT_EQ(ReadTree(Source()), sourceBefore);
        Tree target = ReadTree(Target());
        if (GetParam().targetExists && target != targetBefore && !fs::exists(SetAside())) {
            EXPECT_EQ(result, noErr) << "the old object is gone though the copy failed";
        }
        if (result == noErr) CheckComplete(target);
        if (result != noErr && !MayBePartial(failed)) CheckNothingHalfMade(target);
        for (const auto& entry : fs::directory_iterator(folder / "to"))
            EXPECT_TRUE(entry.path() == Target() || entry.path() == SetAside()) << entry.path();
        // The set-aside object may stay only where deleting it is what failed.
        if (fs::exists(SetAside())) {
            EXPECT_TRUE(target == sourceBefore) << "the old object was not put back";
            EXPECT_NE(result, noErr);
        }
        fs::remove_all(folder / "from");
        fs::remove_all(folder / "to");
    }
    // A tree that replaces nothing stays as far as it was copied. A drop-box copy fails by itself; where its
    // cleaning up fails as well, the file stays.
    static bool MayBePartial(const std::string& failed) {
        bool isCleanUp = failed == "FSDeleteObject" || failed == "FSGetCatalogInfo";
        return (GetParam().tree && GetParam().action != kDupeActionReplace) ||
               (GetParam().dropBox && isCleanUp);
    }
    // Everything that was copied is equal to its source; only items of a tree may be missing.
    void CheckComplete(const Tree& target) {
        if (GetParam().tree) {
            for (const auto& [path, content] : target) EXPECT_EQ(content, sourceBefore[path]) << path;
            EXPECT_TRUE(fs::exists(Target()));
        } else {
            EXPECT_EQ(target, sourceBefore);
        }
    }
    void CheckNothingHalfMade(const Tree& target) {
        EXPECT_TRUE(target == targetBefore || target == sourceBefore) << "a half-made object bears the name";
    }

    TemporaryFolder folder;
    std::string sourceContent = std::string(1000, 's');
    Tree sourceBefore, targetBefore;
    FSRef source, destDir;
    std::u16string sourcePath, targetPath;
    OSErr result = noErr;
};

} // namespace

TEST_P(CopySweep, LosesNothingWhicheverCallFails) {
    for (int code : {-34, -36, -43, -50, -108, -5000}) {
        unsigned runs = faults::FailEachCall({.fault = {.code = code, .operation = "seam"},
                                              .prepare = [&] { Prepare(); },
                                              .scenario = [&] { Run(); },
                                              .check = [&](const std::string& failed) { Check(failed); }});
        EXPECT_GT(runs, 5u);
    }
}

TEST_P(CopySweep, LosesNothingWhenANameIsTakenMeanwhile) {
    for (const char* operation : {"FSCreateFileUnicode", "FSCreateDirectoryUnicode", "FSRenameUnicode"}) {
        faults::FailEachCall({.fault = {.code = dupFNErr, .operation = operation},
                              .prepare = [&] { Prepare(); },
                              .scenario = [&] { Run(); },
                              .check = [&](const std::string& failed) { Check(failed); }});
    }
}

TEST_P(CopySweep, LosesNothingWhenMemoryIsShort) {
    faults::FailEachCall({.fault = {.operation = "memory"},
                          .prepare = [&] { Prepare(); },
                          .scenario = [&] { Run(); },
                          .check = [&](const std::string& failed) { Check(failed); }});
}

TEST_P(CopySweep, LosesNothingWhenWritesStopHalfWay) {
    faults::FailEachCall(
        {.fault = {.code = dskFulErr, .effect = faults::Effect::kPartial, .operation = "FSWriteFork"},
         .prepare = [&] { Prepare(); },
         .scenario = [&] { Run(); },
         .check = [&](const std::string& failed) { Check(failed); }});
}

// The old tree holds the source, which is seen through another mount: it must not go where that cannot be told.
TEST(CopyOverTheSourcesOwnTree, LosesNothingWhicheverComparisonFails) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    TemporaryFolder folder;
    const std::string tree = folder / "to/tree", old = tree + "/a/sub", from = folder / "from";
    FSRef source, destDir;
    const HFSUniStr255 name = Name(u"tree");
    OSErr result = noErr;
    const faults::Sweep sweep = {
        .fault = {.operation = "FSCompareFSRefs"},
        .prepare =
            [&] {
                fs::create_directories(old + "/inner");
                WriteFile(old + "/inner/file", "x");
                fs::create_directory(from);
                ASSERT_EQ(mount(old.c_str(), from.c_str(), nullptr, MS_BIND, nullptr), 0);
                source = Reference(from);
                destDir = Reference(folder / "to");
            },
        .scenario =
            [&] {
                result = FSCopyObject(&source, &destDir, 0, kFSCatInfoNone, kDupeActionReplace, &name, false,
                                      false, nullptr, nullptr, nullptr, nullptr);
            },
        .check =
            [&](const std::string& failed) {
                EXPECT_EQ(result, failed.empty() ? kDestInsideSourceErr : ioErr);
                EXPECT_EQ(ReadFile(old + "/inner/file"), "x");
                Unmount(from);
                fs::remove_all(folder / "to");
                fs::remove_all(from);
            }};
    EXPECT_GT(faults::FailEachCall(sweep), 4u);
}

INSTANTIATE_TEST_SUITE_P(
    Scenarios, CopySweep,
    testing::Values(Scenario{"CopyNew", false, false, kDupeActionReplace},
                    Scenario{"CopyReplacing", false, true, kDupeActionReplace},
                    Scenario{"CopyRefusing", false, true, kDupeActionStandard},
                    Scenario{"CopyTree", true, false, kDupeActionStandard},
                    Scenario{"CopyTreeReplacingATree", true, true, kDupeActionReplace},
                    Scenario{"DropBox", false, false, kDupeActionStandard, true},
                    Scenario{"ServerCopyFallingBack", false, false, kDupeActionStandard, false, true},
                    Scenario{"ByPath", false, false, kDupeActionStandard, false, false, true},
                    Scenario{"ByPathReplacing", false, true, kDupeActionReplace, false, false, true},
                    Scenario{"ByPathRefusing", false, true, kDupeActionStandard, false, false, true},
                    Scenario{"ByPathTreeReplacingATree", true, true, kDupeActionReplace, false, false, true}),
    [](const auto& scenario) { return scenario.param.name; });
