// The calls that a delete makes, in their order, and what it does when one of them fails.
#include "copy/recursive_delete.h"

#include "support/faults.h"
#include "support/files.h"
#include "support/references.h"
#include "support/watching.h"

#include "platform/catalog.h"
#include "platform/iterators.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <utility>

namespace fs = std::filesystem;
using Calls = std::vector<std::string>;

namespace {

void Lock(const std::string& path) {
    const FSRef ref = Reference(path);
    FSCatalogInfo info{};
    info.nodeFlags = kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
}

class DeleteCalls : public testing::Test {
protected:
    TemporaryFolder folder;
    const std::string tree = folder / "tree";

    // A folder with one locked file and one sub-folder that is locked and holds a file.
    void MakeTree() {
        fs::create_directories(tree + "/sub");
        WriteFile(tree + "/sub/f", "x");
        Lock(tree + "/sub");
        Lock(tree + "/sub/f");
    }
};

} // namespace

TEST_F(DeleteCalls, OfNull_AreNone) {
    faults::Injection watch;
    EXPECT_EQ(FSDeleteObjects(nullptr), paramErr);
    EXPECT_EQ(FSDeleteFolder(nullptr), paramErr);
    EXPECT_EQ(watch.log(), Calls{});
}

TEST_F(DeleteCalls, OfUnlockedFile_AreALookAndTheDelete) {
    WriteFile(tree, "x");
    const FSRef ref = Reference(tree);
    faults::Injection watch;
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_EQ(watch.log(), (Calls{"FSGetCatalogInfo", "FSDeleteObject"}));
}

TEST_F(DeleteCalls, OfLockedFile_UnlockJustBeforeTheDelete) {
    WriteFile(tree, "x");
    Lock(tree);
    const FSRef ref = Reference(tree);
    faults::Injection watch;
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_EQ(watch.log(), (Calls{"FSGetCatalogInfo", "FSSetCatalogInfo", "FSDeleteObject"}));
}

TEST_F(DeleteCalls, OfEmptyFolder_EndWithTheFirstRead) {
    fs::create_directory(tree);
    const FSRef ref = Reference(tree);
    faults::Injection watch;
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_EQ(watch.log(),
              (Calls{"FSGetCatalogInfo", "PlatformBeginTree", "FSOpenIterator", "FSGetCatalogInfoBulk",
                     "FSCloseIterator", "PlatformEndTree", "FSDeleteObject"}));
}

TEST_F(DeleteCalls, OfTree_GoDepthFirstOneItemARead_AndUnlockEachItemJustBeforeItGoes) {
    MakeTree();
    const FSRef ref = Reference(tree);
    faults::Injection watch;
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_EQ(watch.log(), (Calls{"FSGetCatalogInfo", "PlatformBeginTree",   //
                                  "FSOpenIterator", "FSGetCatalogInfoBulk",  // the sub-folder
                                  "FSOpenIterator", "FSGetCatalogInfoBulk",  // its file
                                  "FSSetCatalogInfo", "FSDeleteObject",      //
                                  "FSGetCatalogInfoBulk", "FSCloseIterator", // the sub-folder's end
                                  "FSSetCatalogInfo", "FSDeleteObject",      //
                                  "FSGetCatalogInfoBulk", "FSCloseIterator", // the top
                                  "PlatformEndTree", "FSDeleteObject"}));
}

TEST_F(DeleteCalls, OfTree_AskForNodeFlagsAlone_OneItemARead) {
    MakeTree();
    const FSRef ref = Reference(tree);
    int looks = 0, reads = 0, opened = 0;
    const faults::Watch<decltype(FSGetCatalogInfo)> watchLooks(
        "FSGetCatalogInfo", [&](auto, FSCatalogInfoBitmap which, auto, auto* name, auto* spec, auto* parent) {
            ++looks;
            EXPECT_EQ(which, kFSCatInfoNodeFlags);
            EXPECT_TRUE(!name && !spec && !parent);
        });
    const faults::Watch<decltype(FSOpenIterator)> watchOpening("FSOpenIterator",
                                                               [&](auto, FSIteratorFlags flags, auto) {
                                                                   ++opened;
                                                                   EXPECT_EQ(flags, kFSIterateDelete);
                                                               });
    const faults::Watch<decltype(FSGetCatalogInfoBulk)> watchReads(
        "FSGetCatalogInfoBulk", [&](auto, ItemCount most, auto, auto* changed, FSCatalogInfoBitmap which,
                                    auto, auto, auto* specs, auto* names) {
            ++reads;
            EXPECT_EQ(most, 1u);
            EXPECT_EQ(which, kFSCatInfoNodeFlags);
            EXPECT_TRUE(!changed && !specs && !names);
        });
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(opened, 2);
    EXPECT_EQ(reads, 4);
}

// The lock alone is cleared; what else the item's flags said is written back, also after deeper levels have
// used the shared record.
TEST_F(DeleteCalls, Unlocking_WritesTheItemsOwnFlagsLessTheLock) {
    MakeTree();
    Lock(tree);
    const FSRef ref = Reference(tree);
    std::vector<uint16_t> written;
    const faults::Watch<decltype(FSSetCatalogInfo)> watch(
        "FSSetCatalogInfo", [&](auto, FSCatalogInfoBitmap which, const FSCatalogInfo* info) {
            EXPECT_EQ(which, kFSCatInfoNodeFlags);
            written.push_back(info->nodeFlags);
        });
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_EQ(written, (std::vector<uint16_t>{0, kFSNodeIsDirectoryMask, kFSNodeIsDirectoryMask}));
}

// A read that succeeds but gives no item, or claims more than was asked for, is no reason to delete anything.
TEST_F(DeleteCalls, ReadThatGivesNotExactlyOneItem_DeletesNothingAndGoesOn) {
    for (const ItemCount given : {0u, 2u}) {
        fs::create_directory(tree);
        WriteFile(tree + "/f", "x");
        const FSRef ref = Reference(tree);
        bool isFirst = true;
        const faults::Watch<decltype(FSGetCatalogInfoBulk)> watch(
            "FSGetCatalogInfoBulk",
            [&](auto, auto, ItemCount* actual, auto, auto, FSCatalogInfo* info, FSRef* item, auto, auto) {
                if (!std::exchange(isFirst, false)) return;
                *actual = given;
                *info = {};
                *item = ref;
            });
        const faults::Injection fault({.call = 1, .code = noErr, .operation = "FSGetCatalogInfoBulk"});
        EXPECT_EQ(FSDeleteFolder(&ref), noErr);
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(fault.calls("FSDeleteObject"), 1u);
        EXPECT_TRUE(fs::is_empty(tree));
    }
}

TEST_F(DeleteCalls, FailedUnlock_IsNotReported_TheRefusedDeleteIs) {
    WriteFile(tree, "x");
    Lock(tree);
    const FSRef ref = Reference(tree);
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSSetCatalogInfo"});
    EXPECT_EQ(FSDeleteObjects(&ref), fLckdErr);
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_TRUE(fs::exists(tree));
}

TEST_F(DeleteCalls, FailedUnlockInTheTree_StopsEveryLevelWithTheDeletesError) {
    MakeTree();
    const FSRef ref = Reference(tree);
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSSetCatalogInfo"});
    EXPECT_EQ(FSDeleteObjects(&ref), fLckdErr);
    EXPECT_EQ(fault.calls("FSDeleteObject"), 1u);
    EXPECT_TRUE(fs::exists(tree + "/sub/f"));
}

TEST_F(DeleteCalls, FailedClose_IsNotReported) {
    fs::create_directory(tree);
    const FSRef ref = Reference(tree);
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSCloseIterator"});
    EXPECT_EQ(FSDeleteObjects(&ref), noErr);
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(DeleteCalls, AnyCallFailing_GivesItsErrorAndClosesEveryIterator) {
    for (OSErr code : {ioErr, fnfErr, paramErr, memFullErr, tmfoErr, fBsyErr}) {
        OSErr result = noErr;
        FSRef ref;
        const unsigned runs = faults::FailEachCall({
            .fault = {.code = code, .operation = "seam"},
            .prepare =
                [&] {
                    MakeTree();
                    ref = Reference(tree);
                },
            .scenario = [&] { result = FSDeleteObjects(&ref); },
            .check =
                [&](const std::string& failed) {
                    OSErr expected = code;
                    if (failed == "" || failed == "FSCloseIterator") expected = noErr;
                    if (failed == "FSSetCatalogInfo") expected = fLckdErr;
                    EXPECT_EQ(result, expected) << failed;
                    EXPECT_EQ(fs::exists(tree), result != noErr) << failed;
                    EXPECT_EQ(faults::Open().iterators, 0) << failed;
                    if (!fs::exists(tree)) return;
                    // What is left goes with the next delete.
                    const FSRef rest = Reference(tree);
                    EXPECT_EQ(FSDeleteObjects(&rest), noErr) << failed;
                },
        });
        EXPECT_GT(runs, 10u);
    }
}

TEST_F(DeleteCalls, EndOfListingFromTheDelete_IsNoErrorEither) {
    // kept: the code that ends a level is turned into success wherever in the level it came from.
    fs::create_directory(tree);
    WriteFile(tree + "/f", "x");
    const FSRef ref = Reference(tree);
    faults::Injection fault({.call = 1, .code = errFSNoMoreItems, .operation = "FSDeleteObject"});
    EXPECT_EQ(FSDeleteFolder(&ref), noErr);
    EXPECT_TRUE(fs::exists(tree + "/f"));
}
