#include "platform/types.h"
#include "support/faults.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

// The exported results of one whole listing.
struct Outcome {
    bool found = false;
    unsigned more = 0;
};

Outcome ListAll(const std::u16string& path) {
    Outcome outcome;
    TavFindDataW data;
    TavFindSearch* search = TavFindFirstFile(path.c_str(), &data);
    if (search == TAV_INVALID_FIND) return outcome;
    outcome.found = true;
    while (TavFindNextFile(search, &data)) ++outcome.more;
    TavFindClose(search);
    return outcome;
}

} // namespace

TEST(FindFiles, EachCallFails_ShowsLessAndLeaksNothing) {
    TemporaryFolder folder;
    for (const char* name : {"a", "b"}) WriteFile(folder / name, "");
    std::filesystem::create_directory(folder / "sub");
    for (std::u16string path : {Wide(folder.path()), Wide(folder / "*"), Wide(folder / "a")}) {
        bool exact = path.back() == u'a' && path.size() > Wide(folder.path()).size();
        Outcome outcome;
        unsigned runs = faults::FailEachCall({
            .scenario = [&] { outcome = ListAll(path); },
            .check =
                [&](const std::string& failed) {
                    if (failed.empty()) {
                        EXPECT_TRUE(outcome.found);
                        EXPECT_EQ(outcome.more, exact ? 0u : 3u);
                    }
                    EXPECT_LE(outcome.more, exact ? 0u : 3u);
                },
        });
        EXPECT_GE(runs, 6u);
    }
}

TEST(FindFiles, CatalogFails_FindsNothing) {
    TemporaryFolder folder;
    WriteFile(folder / "a", "");
    std::u16string path = Wide(folder / "*");
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSGetCatalogInfo"});
    EXPECT_FALSE(ListAll(path).found);
    EXPECT_EQ(fault.fired(), 1u);
}

TEST(FindFiles, ReadingFailsOnce_EndsThatCallOnly) {
    TemporaryFolder folder;
    for (const char* name : {"a", "b", "c"}) WriteFile(folder / name, "");
    std::u16string path = Wide(folder.path());
    TavFindDataW data;
    TavFindSearch* search = TavFindFirstFile(path.c_str(), &data);
    EXPECT_EQ(TavFindNextFile(search, &data), 1);
    {
        faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSGetCatalogInfoBulk"});
        EXPECT_EQ(TavFindNextFile(search, &data), 0);
        EXPECT_EQ(data.dwFileAttributes, 0u);
    }
    EXPECT_EQ(TavFindNextFile(search, &data), 1);
    TavFindClose(search);
}

TEST(FindFiles, CloseFails_IsNotReported) {
    TemporaryFolder folder;
    WriteFile(folder / "a", "");
    std::u16string path = Wide(folder.path());
    TavFindDataW data;
    TavFindSearch* search = TavFindFirstFile(path.c_str(), &data);
    TavFindNextFile(search, &data);
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSCloseIterator"});
    EXPECT_EQ(TavFindClose(search), 1);
    EXPECT_EQ(fault.fired(), 1u);
}

TEST(FindFiles, PlainFiles_AreNotAskedWhetherTheyArePackages) {
    TemporaryFolder folder;
    for (const char* name : {"a", "b", "c"}) WriteFile(folder / name, "");
    std::filesystem::create_directory(folder / "sub");
    std::u16string path = Wide(folder / "*");
    faults::Injection watch;
    ListAll(path);
    EXPECT_EQ(watch.calls("LSCopyItemInfoForRef"), 2u); // the folder itself and its one subfolder
    EXPECT_EQ(watch.calls("FSGetCatalogInfoBulk"), 5u);
}

TEST(TavPathFileExists, EachCallFails_GivesNo) {
    TemporaryFolder folder;
    WriteFile(folder / "a", "");
    std::u16string path = Wide(folder / "a");
    int32_t exists = -1, isDirectory = -1;
    faults::FailEachCall({
        .scenario = [&] { exists = TavPathFileExists(path.c_str()); },
        .check = [&](const std::string& failed) { EXPECT_EQ(exists, failed.empty()) << failed; },
    });
    path = Wide(folder.path());
    faults::FailEachCall({
        .scenario = [&] { isDirectory = TavPathIsDirectory(path.c_str()); },
        // What Launch Services cannot tell does not matter.
        .check =
            [&](const std::string& failed) {
                EXPECT_EQ(isDirectory, failed.empty() || failed == "LSCopyItemInfoForRef") << failed;
            },
    });
}
