// Questions that belong together are answered from one look, all others from a look of their own.
#include "platform/linux/looks.h"

#include "metadata_support.h"
#include "platform/objects.h"

#include <filesystem>
#include <thread>
#include <unistd.h>

namespace {
class Looks : public testing::Test {
protected:
    void SetUp() override { WriteFile(file_, "data"); }
    void TearDown() override { PlatformEndQuestions(); }

    static uint64_t SizeOf(const FSRef& ref) { return GetInfo(ref, kFSCatInfoDataSizes).dataLogicalSize; }
    static OSErr Ask(const FSRef& ref) {
        return FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr);
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
};
} // namespace

TEST_F(Looks, QuestionsThatBelongTogether_HaveOneAnswer) {
    const FSRef ref = RefTo(file_);
    PlatformBeginQuestions();
    EXPECT_EQ(SizeOf(ref), 4u);
    WriteFile(file_, "more data");
    EXPECT_EQ(SizeOf(ref), 4u);
    PlatformEndQuestions();
    EXPECT_EQ(SizeOf(ref), 9u);
}

TEST_F(Looks, WhatThePathHasShown_IsTheAnswer) {
    PlatformBeginQuestions();
    const FSRef ref = RefTo(file_);
    std::filesystem::rename(file_, folder_ / "away");
    HFSUniStr255 name = {};
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, &name, nullptr, nullptr), noErr);
    EXPECT_EQ(std::u16string(name.unicode, name.length), u"file");
}

TEST_F(Looks, OtherQuestions_HaveTheirOwnAnswers) {
    const FSRef ref = RefTo(file_);
    EXPECT_EQ(SizeOf(ref), 4u);
    WriteFile(file_, "more data");
    EXPECT_EQ(SizeOf(ref), 9u);
    PlatformBeginQuestions();
    WriteFile(file_, "");
    EXPECT_EQ(SizeOf(ref), 0u);
}

TEST_F(Looks, BeginningAgain_IsBeginningAnew) {
    const FSRef ref = RefTo(file_);
    PlatformBeginQuestions();
    EXPECT_EQ(SizeOf(ref), 4u);
    WriteFile(file_, "more data");
    PlatformBeginQuestions();
    EXPECT_EQ(SizeOf(ref), 9u);
}

TEST_F(Looks, TwoObjects_AreTakenOneForTheOtherByNobody) {
    WriteFile(folder_ / "other", "other data");
    const FSRef ref = RefTo(file_), other = RefTo(folder_ / "other"), folder = RefTo(folder_.path());
    PlatformBeginQuestions();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(SizeOf(ref), 4u);
        EXPECT_EQ(SizeOf(other), 10u);
        EXPECT_TRUE(GetInfo(folder, kFSCatInfoNodeFlags).nodeFlags & kFSNodeIsDirectoryMask);
    }
}

TEST_F(Looks, Link_IsFollowedForEachQuestion) {
    WriteFile(folder_ / "other", "other data");
    ASSERT_EQ(symlink(file_.c_str(), (folder_ / "link").c_str()), 0);
    PlatformBeginQuestions();
    const FSRef link = RefTo(folder_ / "link");
    EXPECT_EQ(SizeOf(link), 4u);
    WriteFile(file_, "more data");
    EXPECT_EQ(SizeOf(link), 9u);
}

TEST_F(Looks, OtherThreads_LookForThemselves) {
    const FSRef ref = RefTo(file_);
    PlatformBeginQuestions();
    EXPECT_EQ(SizeOf(ref), 4u);
    WriteFile(file_, "more data");
    std::thread([&ref] { EXPECT_EQ(SizeOf(ref), 9u); }).join();
}

TEST_F(Looks, WhoDeletes_LooksForHimself) {
    PlatformBeginQuestions();
    const FSRef ref = RefTo(file_);
    EXPECT_EQ(Ask(ref), noErr);
    WriteFile(folder_ / "new", "an impostor");
    std::filesystem::rename(folder_ / "new", file_);
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
    EXPECT_EQ(ReadFile(file_), "an impostor");
}

// The questions are asked of the file that the path shows, in the folder where it stands.
TEST_F(Looks, FolderJustReplaced_AnswersAreThoseOfTheFileThatIsThere) {
    for (const char* name : {"shown", "other"}) {
        std::filesystem::create_directory(folder_ / name);
        WriteFile(folder_ / (name + std::string("/f")), name);
    }
    ASSERT_EQ(SetType(folder_ / "shown/f", "OLD!OLD!"), noErr);
    ASSERT_EQ(SetType(folder_ / "other/f", "NEW!NEW!"), noErr);
    RefTo(folder_ / "shown/f");
    std::filesystem::rename(folder_ / "shown", folder_ / "away");
    std::filesystem::rename(folder_ / "other", folder_ / "shown");
    BelieveFolderOf(folder_ / "shown/f");
    PlatformBeginQuestions();
    EXPECT_EQ(GetType(RefTo(folder_ / "shown/f")), "NEW!NEW!");
}
