// The steps of a copy, in their order, and what single failing calls make of it.
#include "copy/file_copy.h"
#include "copy/finder_info.h"
#include "copy/fork_copy.h"
#include "copy/object_copy.h"
#include "support/faults.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>

namespace fs = std::filesystem;

namespace {

using Names = std::vector<std::string>;

class CopySteps : public testing::Test {
protected:
    CopySteps() {
        fs::create_directory(folder / "to");
        WriteFile(folder / "file", "content");
        source = Reference(folder / "file");
        dest = Reference(folder / "to");
    }
    OSErr Copy(DupeAction action = kDupeActionReplace) {
        return FSCopyObject(&source, &dest, 0, 0, action, nullptr, false, false, nullptr, nullptr, nullptr,
                            nullptr);
    }
    // Copies by hand with parameters of the test's own.
    OSErr DoCopy(CopyParams params, FSRef* copy = nullptr) {
        FSCatalogInfo info;
        OSErr result = FSGetCatalogInfo(&source, kFSCatInfoSettableInfo, &info, nullptr, nullptr, nullptr);
        EXPECT_EQ(result, noErr);
        HFSUniStr255 name = Name(u"file");
        return DoCopyFile(&source, &info, &dest, &name, &params, copy, nullptr);
    }

    TemporaryFolder folder;
    FSRef source, dest;
    char buffer[1024];
};

const Names kPreflight = {"FSGetCatalogInfo",   "FSGetCatalogInfo",    "FSGetCatalogInfo",
                          "PBHGetVolParmsSync", "FSGetCatalogInfo",    "NewPtr",
                          "FSGetCatalogInfo",   "PBHGetDirAccessSync", "PlatformEndQuestions",
                          "FSMakeFSRefUnicode"};
const Names kForks = {"FSIterateForks", "FSCreateFork", "FSOpenFork",    "FSOpenFork",
                      "FSAllocateFork", "FSReadFork",   "FSWriteFork",   "FSSetForkSize",
                      "FSCloseFork",    "FSCloseFork",  "FSIterateForks"};

// Several parts of a log, one after the other.
Names Log(std::initializer_list<Names> parts) {
    Names log;
    for (const Names& part : parts) log.insert(log.end(), part.begin(), part.end());
    return log;
}

} // namespace

TEST_F(CopySteps, NewFileIsCreatedFilledAndThenGivenItsRealFacts) {
    faults::Injection watch;
    OSErr result = Copy();
    Names log = watch.log();
    faults::Pause pause;
    ASSERT_EQ(result, noErr);
    const Names expected = Log({kPreflight,
                                {"PlatformKeepFilesOpen", "FSCreateFileUnicode"},
                                kForks,
                                {"FSSetCatalogInfo", "PlatformCloseKeptFiles", "DisposePtr"}});
    EXPECT_EQ(log, expected);
}

TEST_F(CopySteps, ReplacedFileIsSetAsideFirstAndDeletedLast) {
    WriteFile(folder / "to/file", "old");
    faults::Injection watch;
    OSErr result = Copy();
    Names log = watch.log();
    faults::Pause pause;
    ASSERT_EQ(result, noErr);
    const Names expected = Log(
        {kPreflight,
         {"FSRenameUnicode", "FSCompareFSRefs", "PlatformKeepFilesOpen", "FSCreateFileUnicode"},
         kForks,
         {"FSSetCatalogInfo", "PlatformCloseKeptFiles", "FSGetCatalogInfo", "FSDeleteObject", "DisposePtr"}});
    EXPECT_EQ(log, expected);
}

TEST_F(CopySteps, FailureToDeleteTheSetAsideObjectIsTheResult) {
    WriteFile(folder / "to/file", "old");
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSDeleteObject"});
    OSErr result = Copy();
    faults::Pause pause;
    EXPECT_EQ(result, ioErr);
    EXPECT_EQ(ReadFile(folder / "to/file"), "content");
    EXPECT_EQ(ReadFile(folder / "to/.DeleteMe"), "old");
}

TEST_F(CopySteps, EmptyForkIsCreatedButNotOpened) {
    WriteFile(folder / "file", "");
    faults::Injection watch;
    OSErr result = Copy();
    faults::Pause pause;
    ASSERT_EQ(result, noErr);
    EXPECT_EQ(watch.calls("FSCreateFork"), 1u);
    EXPECT_EQ(watch.calls("FSOpenFork"), 0u);
}

TEST_F(CopySteps, TakenNameIsReportedAndNothingIsDeleted) {
    WriteFile(folder / "to/file", "old");
    faults::Injection watch;
    OSErr result = Copy(kDupeActionStandard);
    faults::Pause pause;
    EXPECT_EQ(result, dupFNErr);
    EXPECT_EQ(watch.calls("FSDeleteObject"), 0u);
}

TEST_F(CopySteps, BufferThatCannotBeHadIsTheMemoryError) {
    faults::Injection fault({.call = 1, .operation = "NewPtr"});
    OSErr result = Copy();
    faults::Pause pause;
    EXPECT_EQ(result, memFullErr);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

// The filter and whatever else comes after a file finds it closed.
TEST_F(CopySteps, FilesAreNotKeptOpenAfterAFailure) {
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSReadFork"});
    OSErr result = Copy();
    Names log = fault.log();
    faults::Pause pause;
    EXPECT_EQ(result, ioErr);
    auto closed = std::find(log.begin(), log.end(), "PlatformCloseKeptFiles");
    EXPECT_NE(std::find(closed, log.end(), "FSDeleteObject"), log.end());
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

TEST_F(CopySteps, HalfMadeFileIsDeletedAfterAFailedWrite) {
    faults::Injection fault(
        {.call = 1, .code = dskFulErr, .effect = faults::Effect::kPartial, .operation = "FSWriteFork"});
    OSErr result = Copy();
    faults::Pause pause;
    EXPECT_EQ(result, dskFulErr);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
    EXPECT_EQ(fault.calls("FSCloseFork"), 2u);
}

TEST_F(CopySteps, LastBlockIsWrittenWholeOnlyOnALocalVolume) {
    CopyParams local{buffer, sizeof buffer, false, true, false, kDupeActionStandard};
    CopyParams served = local;
    served.copyingToLocalVolume = false;
    {
        faults::Injection watch;
        OSErr result = DoCopy(local);
        faults::Pause pause;
        EXPECT_EQ(result, noErr);
        EXPECT_EQ(watch.calls("FSSetForkSize"), 1u);
    }
    fs::remove(folder / "to/file");
    faults::Injection watch;
    OSErr result = DoCopy(served);
    faults::Pause pause;
    EXPECT_EQ(result, noErr);
    EXPECT_EQ(watch.calls("FSSetForkSize"), 0u);
    EXPECT_EQ(ReadFile(folder / "to/file"), "content");
}

TEST_F(CopySteps, ForkThatExistsIsAnErrorOnlyOnALocalVolume) {
    CopyParams params{buffer, sizeof buffer, false, true, false, kDupeActionStandard};
    {
        faults::Injection fault({.call = 1, .code = errFSForkExists, .operation = "FSCreateFork"});
        OSErr result = DoCopy(params);
        faults::Pause pause;
        EXPECT_EQ(result, errFSForkExists);
        EXPECT_TRUE(fs::is_empty(folder / "to"));
    }
    params.copyingToLocalVolume = false;
    faults::Injection fault({.call = 1, .code = errFSForkExists, .operation = "FSCreateFork"});
    OSErr result = DoCopy(params);
    faults::Pause pause;
    EXPECT_EQ(result, noErr);
    EXPECT_EQ(ReadFile(folder / "to/file"), "content");
}

TEST_F(CopySteps, ServerCopyThatFailsIsMadeByHand) {
    FSCatalogInfo info;
    ASSERT_EQ(FSGetCatalogInfo(&source, kFSCatInfoSettableInfo, &info, nullptr, nullptr, nullptr), noErr);
    HFSUniStr255 name = Name(u"file");
    CopyParams params{buffer, sizeof buffer, false, false, true, kDupeActionStandard};
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "PBHCopyFileSync"});
    OSErr result = CopyFile(&source, &info, &dest, &name, &params, nullptr, nullptr);
    faults::Pause pause;
    EXPECT_EQ(result, noErr);
    EXPECT_EQ(fault.calls("PBHCopyFileSync"), 1u);
    EXPECT_EQ(fault.calls("FSCreateFileUnicode"), 1u);
    EXPECT_EQ(ReadFile(folder / "to/file"), "content");
}

TEST_F(CopySteps, DropBoxForksAreAllOpenedBeforeAnyIsWrittenAndNothingIsWrittenBack) {
    CopyParams params{buffer, sizeof buffer, true, true, false, kDupeActionStandard};
    faults::Injection watch;
    OSErr result = DoCopy(params);
    Names log = watch.log();
    faults::Pause pause;
    // kept: the list is made from the new file's own empty fork, which is not opened; so there is nothing to
    // write into.
    EXPECT_EQ(result, rfNumErr);
    EXPECT_EQ(watch.calls("FSSetCatalogInfo"), 0u);
    auto firstOpen = std::find(log.begin(), log.end(), "FSOpenFork");
    EXPECT_EQ(std::count(log.begin(), firstOpen, "FSCreateFork"), 1);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

TEST_F(CopySteps, DropBoxIgnoresThatForksMayNotBeCreated) {
    CopyParams params{buffer, sizeof buffer, true, true, false, kDupeActionStandard};
    faults::Injection fault({.call = 1, .code = afpAccessDenied, .operation = "FSCreateFork"});
    OSErr result = DoCopy(params);
    faults::Pause pause;
    EXPECT_EQ(result, rfNumErr);
    EXPECT_EQ(fault.fired(), 1u);
}

TEST_F(CopySteps, VolumeThatCannotTellRightsIsJudgedByTheModeAndOtherErrorsAreReported) {
    {
        faults::Injection fault({.call = 1, .code = paramErr, .operation = "PBHGetDirAccessSync"});
        OSErr result = Copy();
        faults::Pause pause;
        EXPECT_EQ(result, noErr);
    }
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "PBHGetDirAccessSync"});
    OSErr result = Copy();
    faults::Pause pause;
    EXPECT_EQ(result, ioErr);
}

TEST_F(CopySteps, TenCandidatesAreLookedUpWhenNineDigitsAreTaken) {
    WriteFile(folder / "to/file", "old");
    for (char digit = '1'; digit <= '9'; ++digit)
        WriteFile(folder / (std::string("to/file ") + digit), "old");
    faults::Injection watch;
    Copy(kDupeActionRename);
    faults::Pause pause;
    EXPECT_EQ(watch.calls("FSMakeFSRefUnicode"), 11u); // the name itself, then the candidates
}

TEST_F(CopySteps, CandidatesAreLookedUpOnlyUntilOneIsFree) {
    WriteFile(folder / "to/file", "old");
    WriteFile(folder / "to/file 1", "old");
    faults::Injection watch;
    OSErr result = Copy(kDupeActionRename);
    faults::Pause pause;
    ASSERT_EQ(result, noErr);
    EXPECT_EQ(watch.calls("FSMakeFSRefUnicode"), 3u);
    EXPECT_EQ(ReadFile(folder / "to/file 2"), "content");
}

TEST_F(CopySteps, LookUpOfACandidateThatFailsIsTheResult) {
    WriteFile(folder / "to/file", "old");
    faults::Injection fault({.call = 2, .code = ioErr, .operation = "FSMakeFSRefUnicode"});
    OSErr result = Copy(kDupeActionRename);
    faults::Pause pause;
    EXPECT_EQ(result, ioErr);
    EXPECT_EQ(fault.calls("FSCreateFileUnicode"), 0u);
}

TEST_F(CopySteps, NameWhoseTenCandidatesAllExistIsLeftAsItWas) {
    HFSUniStr255 name = Name(u"file");
    WriteFile(folder / "to/file", "old");
    for (char digit = '1'; digit <= '9'; ++digit)
        WriteFile(folder / (std::string("to/file ") + digit), "old");
    // What the tenth look-up gives is what the host makes of its odd name; here it exists.
    faults::Injection fault({.call = 10, .code = noErr, .operation = "FSMakeFSRefUnicode"});
    OSErr result = GetUniqueName(&dest, &name);
    faults::Pause pause;
    EXPECT_EQ(result, noErr);
    EXPECT_EQ(std::u16string(name.unicode, name.unicode + name.length), u"file");
}

TEST_F(CopySteps, LookUpOfTheNameThatFailsIsTheResultAndNothingIsSetAside) {
    WriteFile(folder / "to/file", "old");
    for (DupeAction action : {kDupeActionStandard, kDupeActionReplace, kDupeActionRename}) {
        faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSMakeFSRefUnicode"});
        OSErr result = Copy(action);
        faults::Pause pause;
        EXPECT_EQ(result, ioErr);
        EXPECT_EQ(fault.calls("FSMakeFSRefUnicode"), 1u);
        EXPECT_EQ(fault.calls("FSRenameUnicode"), 0u);
        EXPECT_EQ(fault.calls("FSCreateFileUnicode"), 0u);
    }
    EXPECT_EQ(ReadFile(folder / "to/file"), "old");
}

TEST_F(CopySteps, NameIsLeftAsItWasWhenTheLookUpOfACandidateFails) {
    HFSUniStr255 name = Name(u"file");
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSMakeFSRefUnicode"});
    OSErr result = GetUniqueName(&dest, &name);
    faults::Pause pause;
    EXPECT_EQ(result, ioErr);
    EXPECT_EQ(std::u16string(name.unicode, name.unicode + name.length), u"file");
}

TEST_F(CopySteps, FactsThatTheFilterWantsAndCannotHaveAreTheResultItIsTold) {
    OSErr told = noErr;
    auto record = [](Boolean, ItemCount, OSErr result, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                     const HFSUniStr255*, const FSRef*, void* data) -> OSErr {
        *static_cast<OSErr*>(data) = result;
        return -128;
    };
    // The preflight asks for catalog information five times; the filter's facts come next.
    faults::Injection fault({.call = 6, .code = ioErr, .operation = "FSGetCatalogInfo"});
    OSErr result = FSCopyObject(&source, &dest, 0, kFSCatInfoDataSizes, kDupeActionStandard, nullptr, false,
                                false, record, &told, nullptr, nullptr);
    faults::Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(told, ioErr);
    EXPECT_EQ(result, -128);
}

TEST_F(CopySteps, SettableFactsAreNotFetchedAgainForTheFilter) {
    auto accept = [](Boolean, ItemCount, OSErr result, const FSCatalogInfo*, const FSRef*, const FSSpec*,
                     const HFSUniStr255*, const FSRef*, void*) -> OSErr { return result; };
    faults::Injection watch;
    OSErr result = FSCopyObject(&source, &dest, 0, kFSCatInfoSettableInfo, kDupeActionStandard, nullptr,
                                false, false, accept, nullptr, nullptr, nullptr);
    faults::Pause pause;
    EXPECT_EQ(result, noErr);
    EXPECT_EQ(watch.calls("FSGetCatalogInfo"), 5u);
}

TEST(UniStrToPStr, PutsTheLengthInFrontOfTheMacRomanName) {
    HFSUniStr255 name = Name(u"\u00e9a");
    uint8_t text[64];
    ASSERT_EQ(UniStrToPStr(&name, kTextEncodingUnknown, text), noErr);
    EXPECT_EQ(text[0], 2);
    EXPECT_EQ(text[1], 0x8E);
    EXPECT_EQ(text[2], 'a');
}

TEST(UniStrToPStr, RefusesNamesThatCannotBeSaid) {
    uint8_t text[64];
    HFSUniStr255 other = Name(u"\u4e2d"), longName = Name(std::u16string(64, 'a')), empty = Name(u"");
    EXPECT_EQ(UniStrToPStr(&other, kTextEncodingUnknown, text), bdNamErr);
    EXPECT_EQ(UniStrToPStr(&longName, kTextEncodingUnknown, text), bdNamErr);
    EXPECT_EQ(UniStrToPStr(&empty, kTextEncodingUnknown, text), bdNamErr);
}

TEST(UniStrToPStr, RefusesNamesThatWouldReadBackAsOthers) {
    uint8_t text[64];
    HFSUniStr255 apart = Name(u"e\u0301"), ohm = Name(u"\u2126");
    EXPECT_EQ(UniStrToPStr(&apart, kTextEncodingUnknown, text), bdNamErr);
    EXPECT_EQ(UniStrToPStr(&ohm, kTextEncodingUnknown, text), bdNamErr);
}
