// What single failing calls make of the copy of a folder: which stop it, and which only cost one item.
#include "copy/folder_copy.h"
#include "platform/catalog.h"
#include "support/faults.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Paths = std::set<std::string>;

class FolderCopySteps : public testing::Test {
protected:
    FolderCopySteps() {
        fs::create_directories(folder / "from/tree");
        fs::create_directory(folder / "to");
    }
    std::string From(const std::string& name) { return folder / ("from/" + name); }
    std::string To(const std::string& name) { return folder / ("to/" + name); }

    void MakeFiles(int count) {
        for (int i = 0; i < count; ++i) WriteFile(From("tree/file ") + std::to_string(i), "x");
    }
    // Copies from/tree with one call failing.
    OSErr CopyTree(const faults::Fault& fault, CopyFilterProc filter = nullptr) {
        FSRef source = Reference(From("tree")), dest = Reference(folder / "to");
        faults::Injection injection(fault);
        OSErr result = FSCopyObject(&source, &dest, 0, kFSCatInfoNone, kDupeActionStandard, nullptr, false,
                                    false, filter, nullptr, nullptr, nullptr);
        faults::Pause pause;
        EXPECT_EQ(injection.fired(), fault.call ? 1u : 0u);
        bulkReads = injection.calls("FSGetCatalogInfoBulk");
        closedIterators = injection.calls("FSCloseIterator");
        return result;
    }
    // The paths below to/tree.
    Paths Copied() {
        Paths paths;
        for (const auto& entry : fs::recursive_directory_iterator(To("tree")))
            paths.insert(fs::relative(entry.path(), To("tree")).string());
        return paths;
    }
    bool IsBusy(const std::string& path) {
        FSRef ref = Reference(path);
        FSCatalogInfo info;
        UTCDateTime busy;
        EXPECT_EQ(GetMagicBusyCreateDate(&busy), noErr);
        EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoCreateDate, &info, nullptr, nullptr, nullptr), noErr);
        return info.createDate.lowSeconds == busy.lowSeconds;
    }

    TemporaryFolder folder;
    unsigned bulkReads = 0, closedIterators = 0;
};

} // namespace

// ---- Listings

// What is visited gives its memory back, so that depth costs none.
TEST_F(FolderCopySteps, ListHoldsNoFolderThatHasBeenVisited) {
    std::string path = From("tree");
    for (int depth = 0; depth < 40; ++depth) fs::create_directory(path += "/sub");
    FSRef source = Reference(From("tree")), dest = Reference(folder / "to");
    faults::Injection watch;
    OSErr result = FSCopyObject(&source, &dest, 0, kFSCatInfoNone, kDupeActionStandard, nullptr, false, false,
                                nullptr, nullptr, nullptr, nullptr);
    const std::vector<std::string> log = watch.log();
    faults::Pause pause;
    ASSERT_EQ(result, noErr);
    int blocks = 0, most = 0;
    for (const std::string& call : log) {
        blocks += (call == "NewPtr") - (call == "DisposePtr");
        most = std::max(most, blocks);
    }
    EXPECT_EQ(blocks, 0);
    EXPECT_LE(most, 4 + 2 * 2); // the buffer and the batch; a node and its item for this folder and the next
}

TEST_F(FolderCopySteps, FolderThatMayNotBeOpenedIsCopiedEmpty) {
    MakeFiles(3);
    EXPECT_EQ(CopyTree({.call = 1, .code = afpAccessDenied, .operation = "FSOpenIterator"}), noErr);
    EXPECT_EQ(Copied(), Paths{});
    EXPECT_FALSE(IsBusy(To("tree")));
}

TEST_F(FolderCopySteps, SubFolderThatMayNotBeOpenedIsCopiedEmptyAndTheRestWhole) {
    fs::create_directory(From("tree/sub"));
    WriteFile(From("tree/sub/inside"), "x");
    MakeFiles(1);
    EXPECT_EQ(CopyTree({.call = 2, .code = afpAccessDenied, .operation = "FSOpenIterator"}), noErr);
    EXPECT_EQ(Copied(), (Paths{"file 0", "sub"}));
}

TEST_F(FolderCopySteps, FolderThatMayNotBeReadIsCopiedEmpty) {
    MakeFiles(3);
    EXPECT_EQ(CopyTree({.call = 1, .code = afpAccessDenied, .operation = "FSGetCatalogInfoBulk"}), noErr);
    EXPECT_EQ(Copied(), Paths{});
    EXPECT_FALSE(IsBusy(To("tree")));
    EXPECT_EQ(closedIterators, 1u);
}

TEST_F(FolderCopySteps, FolderThatMayNotBeReadToItsEndIsCopiedAsFarAsItWasListed) {
    MakeFiles(100);
    EXPECT_EQ(CopyTree({.call = 2, .code = afpAccessDenied, .operation = "FSGetCatalogInfoBulk"}), noErr);
    EXPECT_EQ(Copied().size(), kItemsPerBatch);
    EXPECT_FALSE(IsBusy(To("tree")));
}

TEST_F(FolderCopySteps, ListingThatCannotBeOpenedStopsTheCopyAndLeavesTheFolderBusy) {
    MakeFiles(3);
    EXPECT_EQ(CopyTree({.call = 1, .code = ioErr, .operation = "FSOpenIterator"}), ioErr);
    EXPECT_EQ(Copied(), Paths{});
    EXPECT_TRUE(IsBusy(To("tree")));
}

TEST_F(FolderCopySteps, ListingThatFailsStopsTheCopyAndLeavesTheFolderBusy) {
    MakeFiles(100);
    EXPECT_EQ(CopyTree({.call = 2, .code = ioErr, .operation = "FSGetCatalogInfoBulk"}), ioErr);
    EXPECT_EQ(Copied().size(), kItemsPerBatch);
    EXPECT_TRUE(IsBusy(To("tree")));
    EXPECT_EQ(closedIterators, 1u);
}

TEST_F(FolderCopySteps, ItemsAreReadEightyAtATime) {
    const struct {
        int files;
        unsigned reads; // the last one meets the end
    } rows[] = {{0, 1}, {1, 2}, {79, 2}, {80, 2}, {81, 3}, {160, 3}, {161, 4}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.files);
        MakeFiles(row.files);
        EXPECT_EQ(CopyTree({}), noErr);
        EXPECT_EQ(bulkReads, row.reads);
        EXPECT_EQ(Copied().size(), static_cast<size_t>(row.files));
        fs::remove_all(To("tree"));
    }
}

// ---- Items

TEST_F(FolderCopySteps, FileThatMayNotBeOpenedIsSkipped) {
    MakeFiles(3);
    // The calls alternate between the copy and its source; the second is the first file's source.
    EXPECT_EQ(CopyTree({.call = 2, .code = permErr, .operation = "FSOpenFork"}), noErr);
    EXPECT_EQ(Copied().size(), 2u);
    EXPECT_FALSE(IsBusy(To("tree")));
}

TEST_F(FolderCopySteps, FileThatMayNotBeOpenedStopsACopyWhoseFilterSaysSo) {
    MakeFiles(3);
    auto passOn = [](Boolean, ItemCount, OSErr result, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                     const HFSUniStr255*, const FSRef*, void*) -> OSErr { return result; };
    EXPECT_EQ(CopyTree({.call = 2, .code = permErr, .operation = "FSOpenFork"}, passOn), permErr);
    EXPECT_EQ(Copied().size(), 0u);
    EXPECT_TRUE(IsBusy(To("tree")));
}

TEST_F(FolderCopySteps, SubFolderThatCannotBeMadeIsSkippedWithWhatIsInIt) {
    fs::create_directories(From("tree/sub/deeper"));
    MakeFiles(2);
    EXPECT_EQ(CopyTree({.call = 2, .code = ioErr, .operation = "FSCreateDirectoryUnicode"}), noErr);
    EXPECT_EQ(Copied(), (Paths{"file 0", "file 1"}));
}

TEST_F(FolderCopySteps, TopFolderThatCannotBeMadeIsTheResult) {
    MakeFiles(2);
    EXPECT_EQ(CopyTree({.call = 1, .code = dskFulErr, .operation = "FSCreateDirectoryUnicode"}), dskFulErr);
    EXPECT_FALSE(fs::exists(To("tree")));
}

// ---- Memory. The blocks are, in this order: the copy buffer, the batch's three arrays, the top folder's list
// item and its node, and an item and a node for each sub-folder.

TEST_F(FolderCopySteps, ArrayThatCannotBeHadIsTheResultAndNothingIsMade) {
    for (unsigned array = 2; array <= 4; ++array) {
        EXPECT_EQ(CopyTree({.call = array, .operation = "NewPtr"}), memFullErr) << array;
        EXPECT_FALSE(fs::exists(To("tree"))) << array;
    }
}

TEST_F(FolderCopySteps, ListItemOfTheTopFolderThatCannotBeHadIsTheResult) {
    MakeFiles(1);
    for (unsigned block : {5u, 6u}) {
        EXPECT_EQ(CopyTree({.call = block, .operation = "NewPtr"}), memFullErr) << block;
        EXPECT_EQ(Copied(), Paths{}) << block;
        EXPECT_TRUE(IsBusy(To("tree"))) << block;
        fs::remove_all(To("tree"));
    }
}

TEST_F(FolderCopySteps, SubFolderWithoutAListItemIsMadeButNotEntered) {
    fs::create_directory(From("tree/sub"));
    WriteFile(From("tree/sub/inside"), "x");
    for (unsigned block : {7u, 8u}) {
        EXPECT_EQ(CopyTree({.call = block, .operation = "NewPtr"}), noErr) << block;
        EXPECT_EQ(Copied(), Paths{"sub"}) << block;
        fs::remove_all(To("tree"));
    }
}

// ---- Where the destination lies

namespace {

class DestInsideSrcSteps : public FolderCopySteps {
protected:
    OSErr Check(const faults::Fault& fault) {
        FSRef source = Reference(From("tree")), dest = Reference(folder / "to");
        faults::Injection injection(fault);
        OSErr result = CheckForDestInsideSrc(&source, &dest);
        faults::Pause pause;
        compared = injection.calls("FSCompareFSRefs");
        asked = injection.calls("FSGetCatalogInfo");
        return result;
    }
    unsigned compared = 0, asked = 0;
};

} // namespace

TEST_F(DestInsideSrcSteps, EveryFolderUpToTheRootIsComparedAndTheRootItself) {
    EXPECT_EQ(Check({}), noErr);
    const fs::path path = folder / "to";
    const auto depth = static_cast<unsigned>(std::distance(path.begin(), path.end()));
    EXPECT_EQ(compared, depth);
    EXPECT_EQ(asked, depth);
}

TEST_F(DestInsideSrcSteps, AnotherVolumeEndsTheWalkWithoutComplaint) {
    EXPECT_EQ(Check({.call = 1, .code = diffVolErr, .operation = "FSCompareFSRefs"}), noErr);
    EXPECT_EQ(compared, 1u);
    EXPECT_EQ(asked, 0u);
    EXPECT_EQ(Check({.call = 2, .code = diffVolErr, .operation = "FSCompareFSRefs"}), noErr);
    EXPECT_EQ(compared, 2u);
    EXPECT_EQ(asked, 1u);
}

TEST_F(DestInsideSrcSteps, AnyOtherErrorIsTheResult) {
    EXPECT_EQ(Check({.call = 2, .code = fnfErr, .operation = "FSCompareFSRefs"}), fnfErr);
    EXPECT_EQ(Check({.call = 2, .code = ioErr, .operation = "FSGetCatalogInfo"}), ioErr);
}
