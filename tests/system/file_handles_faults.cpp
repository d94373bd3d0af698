#include "support/faults.h"
#include "support/files.h"
#include "support/virtual_paths.h"
#include "support/watching.h"

#include "platform/forks.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <utility>

// A reference whose lock is refused when it is released stays; the sanitizer is not to take that for a leak.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:FSRCreatePath";
}

namespace {

using faults::Effect;
using faults::Fault;
using faults::Injection;
using faults::Pause;

constexpr uint32_t kReadWrite = TAV_FILE_READ | TAV_FILE_WRITE;

using Entries = std::map<std::string, std::string>;

class FileHandleFaults : public testing::Test {
protected:
    FileHandleFaults() { WriteFile(folder / "a", "old"); }

    const TemporaryFolder folder;
    const Ref file = MakeRef(Wide(folder / "a"));
    const Ref fresh = MakeRef(Wide(folder / "new"));

    // What is in the folder: names, and the content of files.
    Entries Tree() const {
        Entries all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
            const std::string name = entry.path().lexically_relative(folder.path());
            all[name] = entry.is_directory() ? "a folder" : ReadFile(entry.path());
        }
        return all;
    }
};

} // namespace

TEST_F(FileHandleFaults, OpenDoesNotLookAtTheCode) {
    const Injection fault({.call = 1, .code = 0, .operation = "FSOpenFork"});
    const int32_t handle = TavFileOpenExt(file.get(), kReadWrite);
    const Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(handle, -1);
}

// Bytes that came before the error are reported, but only a good end or the file's end is a success.
TEST_F(FileHandleFaults, ReadTellsWhatCameBeforeAnError) {
    const int32_t handle = TavFileOpenExt(file.get(), kReadWrite);
    for (const auto& [code, expected] : {std::pair{-36, 0}, {-39, 1}, {0, 1}}) {
        TavFileSetPointerExt(handle, 0, nullptr, TAV_FILE_BEGIN);
        char buffer[2];
        uint32_t count = 99;
        const Injection fault(
            {.call = 1, .code = code, .effect = Effect::kPartial, .operation = "FSReadFork"});
        const int32_t result = TavFileReadExt(handle, buffer, 2, &count);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(result, expected) << code;
        EXPECT_EQ(count, 1u);
    }
    TavFileCloseExt(handle);
}

TEST_F(FileHandleFaults, WriteTellsWhatWentBeforeAnError) {
    const int32_t handle = TavFileOpenExt(file.get(), kReadWrite);
    for (const auto& [code, expected] : {std::pair{-34, 0}, {-39, 0}, {0, 1}}) {
        uint32_t count = 99;
        const Injection fault(
            {.call = 1, .code = code, .effect = Effect::kPartial, .operation = "FSWriteFork"});
        const int32_t result = TavFileWriteExt(handle, "xy", 2, &count);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(result, expected) << code;
        EXPECT_EQ(count, 1u);
    }
    TavFileCloseExt(handle);
}

TEST_F(FileHandleFaults, SetPointerIgnoresAPositionThatCannotBeTold) {
    const int32_t handle = TavFileOpenExt(file.get(), kReadWrite);
    {
        int64_t position = 77;
        const Injection fault({.call = 1, .code = -36, .operation = "FSGetForkPosition"});
        const int32_t result = TavFileSetPointerExt(handle, 2, &position, TAV_FILE_BEGIN);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(result, 1);
    }
    TavFileCloseExt(handle);
}

TEST_F(FileHandleFaults, CloseGivesTheCodeAsItIs) {
    const int32_t handle = TavFileOpenExt(file.get(), kReadWrite);
    const Injection fault({.call = 1, .code = -36, .operation = "FSCloseFork"});
    const int32_t result = TavFileCloseExt(handle);
    const Pause pause;
    EXPECT_EQ(result, -36);
}

TEST_F(FileHandleFaults, AFailedTruncationGivesTheClosedNumber) {
    int32_t handle;
    {
        const Injection fault({.call = 1, .code = -36, .operation = "FSSetForkSize"});
        handle = TavFileCreateExt(file.get(), kReadWrite | TAV_FILE_TRUNCATE);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(fault.calls("FSCloseFork"), 1u);
    }
    EXPECT_GT(handle, 0);
    EXPECT_EQ(TavFileCloseExt(handle), -51);
    EXPECT_EQ(ReadFile(folder / "a"), "old");
}

TEST_F(FileHandleFaults, AFailedOpenIsStillCutAndClosedInVain) {
    const Injection fault({.call = 1, .code = -54, .operation = "FSOpenFork"});
    const int32_t handle = TavFileCreateExt(file.get(), kReadWrite | TAV_FILE_TRUNCATE);
    const Pause pause;
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(fault.calls("FSSetForkSize"), 1u);
    EXPECT_EQ(fault.calls("FSCloseFork"), 1u);
    EXPECT_EQ(ReadFile(folder / "a"), "old");
}

// The comparison is with 0, not with -1: a number that no fork has, left by an opening that failed.
TEST_F(FileHandleFaults, ForkNumberZeroIsNeitherCutNorClosed) {
    const faults::Watch<decltype(FSOpenFork)> watch(
        "FSOpenFork", [](auto, auto, auto, auto, FSForkRefNum* number) { *number = 0; });
    const Injection fault({.call = 1, .code = 0, .operation = "FSOpenFork"});
    const int32_t handle = TavFileCreateExt(file.get(), kReadWrite | TAV_FILE_TRUNCATE);
    const Pause pause;
    EXPECT_EQ(handle, 0);
    EXPECT_EQ(fault.calls("FSSetForkSize"), 0u);
    EXPECT_EQ(fault.calls("FSCloseFork"), 0u);
    EXPECT_EQ(ReadFile(folder / "a"), "old");
}

// What was opened for reading is cut through a second opening, and the name may have gone to another file.
TEST_F(FileHandleFaults, OnlyTheFileThatWasOpenedIsCut) {
    WriteFile(folder / "other", "precious");
    bool isSwapped = false;
    const faults::Watch<decltype(FSSetForkSize)> watch("FSSetForkSize", [&](auto...) {
        if (std::exchange(isSwapped, true)) return;
        std::filesystem::rename(folder / "a", folder / "moved");
        std::filesystem::rename(folder / "other", folder / "a");
    });
    const int32_t handle = TavFileCreateExt(file.get(), TAV_FILE_READ | TAV_FILE_TRUNCATE);
    EXPECT_TRUE(isSwapped);
    EXPECT_GT(handle, 0);
    TavFileCloseExt(handle);
    EXPECT_EQ(ReadFile(folder / "a"), "precious");
    EXPECT_EQ(ReadFile(folder / "moved"), "");
}

TEST_F(FileHandleFaults, ANewFileWithoutAReferenceStaysButIsNotOpened) {
    int32_t handle;
    {
        const Injection fault({.call = 1, .code = -43, .operation = "FSRefMakePath"});
        handle = TavFileCreateExt(fresh.get(), kReadWrite);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(fault.calls("FSOpenFork"), 0u);
    }
    EXPECT_EQ(handle, -1);
    EXPECT_TRUE(std::filesystem::exists(folder / "new"));
}

TEST_F(FileHandleFaults, AFileThatCannotBeDeletedIsNotReplaced) {
    const Injection fault({.call = 1, .code = -45, .operation = "FSDeleteObject"});
    const int32_t handle = TavFileCreateExt(file.get(), kReadWrite | TAV_FILE_REPLACE);
    const Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(fault.calls("FSCreateFileUnicode"), 1u);
    EXPECT_EQ(ReadFile(folder / "a"), "old");
}

TEST_F(FileHandleFaults, AFileThatCannotBeMadeAgainStaysDeleted) {
    const Injection fault({.call = 2, .code = -34, .operation = "FSCreateFileUnicode"});
    const int32_t handle = TavFileCreateExt(file.get(), kReadWrite | TAV_FILE_REPLACE);
    const Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(handle, -1);
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
}

TEST_F(FileHandleFaults, ARenameWithoutMemoryForItsReferenceIsDone) {
    OpacTavFSRef* renamed = file.get();
    int32_t result;
    {
        const Injection fault({.call = 1, .code = -43, .operation = "FSRefMakePath"});
        result = TavFileRenameExt(file.get(), u"b", &renamed);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(renamed, nullptr);
    EXPECT_EQ(ReadFile(folder / "b"), "old");
}

// Every platform call and allocation refused in turn: nothing stays open, and what was asked for is done or
// left.
TEST_F(FileHandleFaults, CreateSurvivesEveryFailure) {
    for (const uint32_t flags : {kReadWrite, kReadWrite | TAV_FILE_REPLACE, kReadWrite | TAV_FILE_TRUNCATE}) {
        for (OpacTavFSRef* target : {fresh.get(), file.get()}) {
            int32_t handle = -1;
            EXPECT_GE(faults::FailEachCall({.prepare =
                                                [&] {
                                                    WriteFile(folder / "a", "old");
                                                    std::filesystem::remove(folder / "new");
                                                },
                                            .scenario = [&] { handle = TavFileCreateExt(target, flags); },
                                            .check =
                                                [&](const std::string& failed) {
                                                    if (handle != -1) TavFileCloseExt(handle);
                                                    if (flags == kReadWrite) {
                                                        EXPECT_EQ(ReadFile(folder / "a"), "old") << failed;
                                                    }
                                                    if (failed.empty()) {
                                                        EXPECT_EQ(Tree().count("new"), target == fresh.get());
                                                    }
                                                }}),
                      3u);
        }
    }
}

TEST_F(FileHandleFaults, TheOthersSurviveEveryFailure) {
    const Ref sub = MakeRef(Wide(folder / "d"));
    const Ref made = MakeRef(Wide(folder / "made"));
    OpacTavFSRef* renamed = nullptr;
    const Entries before = {{"a", "old"}, {"d", "a folder"}};
    const struct {
        std::function<int32_t()> call;
        Entries after;
    } scenarios[] = {
        {[&] { return TavFileCloseExt(TavFileOpenExt(file.get(), kReadWrite)) == 0; }, before},
        {[&] { return TavFileDeleteExt(file.get()); }, {{"d", "a folder"}}},
        {[&] { return TavFolderCreateExt(made.get()); },
         {{"a", "old"}, {"d", "a folder"}, {"made", "a folder"}}},
        {[&] { return TavFolderDeleteExt(sub.get()); }, {{"a", "old"}}},
        {[&] { return TavFileMoveFileExt(file.get(), sub.get()); }, {{"d", "a folder"}, {"d/a", "old"}}},
        {[&] { return TavFileRenameExt(file.get(), u"b", &renamed); }, {{"b", "old"}, {"d", "a folder"}}},
    };
    for (const auto& each : scenarios) {
        int32_t result = 0;
        EXPECT_GE(faults::FailEachCall({.prepare =
                                            [&] {
                                                for (const char* name : {"a", "b", "d", "made"}) {
                                                    std::filesystem::remove_all(folder / name);
                                                }
                                                WriteFile(folder / "a", "old");
                                                std::filesystem::create_directory(folder / "d");
                                            },
                                        .scenario = [&] { result = each.call(); },
                                        .check =
                                            [&](const std::string& failed) {
                                                EXPECT_EQ(Tree(), result == 1 ? each.after : before)
                                                    << failed;
                                                if (failed.empty()) {
                                                    EXPECT_EQ(result, 1);
                                                }
                                                Tav0FSRRelease(renamed);
                                                renamed = nullptr;
                                            }}),
                  2u);
    }
}

TEST_F(FileHandleFaults, PositionsAndSizes_TellEachFailureOnceAndChangeNothing) {
    const int32_t handle = TavFileOpenExt(file.get(), kReadWrite);
    int64_t number = 0;
    const std::function<int32_t()> calls[] = {
        [&] { return TavFileGetPointerExt(handle, &number); },
        [&] { return TavFileGetFileSizeExt(handle, &number); },
        [&] { return TavFileSetFileSizeExt(handle, 5); },
    };
    for (const auto& call : calls) {
        int32_t result = -1;
        const unsigned runs = faults::FailEachCall({
            .fault = {.operation = "seam"},
            .scenario = [&] { result = call(); },
            .check = [&](const std::string& failed) { EXPECT_EQ(result, failed.empty() ? 1 : 0) << failed; },
        });
        EXPECT_GT(runs, 0u);
    }
    TavFileCloseExt(handle);
    EXPECT_EQ(ReadFile(folder / "a").substr(0, 3), "old");
}
