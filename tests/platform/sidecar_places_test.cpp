#include "platform/linux/sidecar.h"

#include "metadata_support.h"
#include "support/no_descriptors.h"

namespace {
const std::string kSound = AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}});

// A folder in which entries are told by name alone.
class SidecarPlaces : public testing::Test {
protected:
    void SetUp() override {
        descriptor_ = open(folder_.path().c_str(), O_PATH);
        ASSERT_GE(descriptor_, 0);
    }
    void TearDown() override { close(descriptor_); }

    bool Is(const char* name) { return IsSidecar(descriptor_, name); }
    std::string At(const std::string& name) { return folder_ / name; }
    // The file "x" as if the library had just made it.
    void MakeNew(const std::string& name) {
        WriteFile(At(name), "data");
        Place made = PlaceOf(At(name));
        EXPECT_EQ(FurnishNewObject(made, kFSCatInfoNone, nullptr), noErr);
    }

    TemporaryFolder folder_;
    int descriptor_ = -1;
};
} // namespace

TEST_F(SidecarPlaces, MagicBesideAFile_IsASidecar) {
    WriteFile(At("x"), "");
    WriteFile(At("._x"), kSound);
    EXPECT_TRUE(Is("._x"));
    EXPECT_FALSE(Is("x"));
}

TEST_F(SidecarPlaces, MagicBesideAFolder_IsASidecar) {
    mkdir(At("x").c_str(), 0755);
    WriteFile(At("._x"), kSound);
    EXPECT_TRUE(Is("._x"));
}

TEST_F(SidecarPlaces, MagicAlone_IsASidecarEvenIfTheRestIsBroken) {
    WriteFile(At("x"), "");
    WriteFile(At("._x"), Big32(0x00051607));
    EXPECT_TRUE(Is("._x"));
}

TEST_F(SidecarPlaces, Orphan_IsOrdinary) {
    WriteFile(At("._x"), kSound);
    EXPECT_FALSE(Is("._x"));
}

TEST_F(SidecarPlaces, OtherBytes_AreOrdinary) {
    WriteFile(At("x"), "");
    for (const std::string& content : {std::string(), std::string("\0\5\26", 3), std::string("text")}) {
        WriteFile(At("._x"), content);
        EXPECT_FALSE(Is("._x")) << content;
    }
}

TEST_F(SidecarPlaces, WhatIsNoRegularFile_IsOrdinary) {
    WriteFile(At("x"), "");
    WriteFile(At("magic"), kSound);
    ASSERT_EQ(symlink("magic", At("._x").c_str()), 0);
    EXPECT_FALSE(Is("._x"));
    ASSERT_EQ(unlink(At("._x").c_str()), 0);
    ASSERT_EQ(mkfifo(At("._x").c_str(), 0600), 0);
    EXPECT_FALSE(Is("._x"));
    ASSERT_EQ(unlink(At("._x").c_str()), 0);
    ASSERT_EQ(mkdir(At("._x").c_str(), 0700), 0);
    EXPECT_FALSE(Is("._x"));
}

TEST_F(SidecarPlaces, MagicBesideALinkOrAPipe_IsOrdinary) {
    WriteFile(At("._x"), kSound);
    ASSERT_EQ(symlink("._x", At("x").c_str()), 0);
    EXPECT_FALSE(Is("._x"));
    ASSERT_EQ(unlink(At("x").c_str()), 0);
    ASSERT_EQ(mkfifo(At("x").c_str(), 0600), 0);
    EXPECT_FALSE(Is("._x"));
}

TEST_F(SidecarPlaces, NamesOfTheFolderItself_HaveNoSidecar) {
    for (const char* name : {"._", "._.", "._.."}) {
        WriteFile(At(name), kSound);
        EXPECT_FALSE(Is(name)) << name;
    }
}

TEST_F(SidecarPlaces, ASidecarHasNoSidecar_ButAnOrdinaryEntryMay) {
    WriteFile(At("._x"), kSound);
    WriteFile(At("._._x"), kSound);
    EXPECT_TRUE(Is("._._x")); // "._x" is an orphan
    WriteFile(At("x"), "");
    EXPECT_TRUE(Is("._x"));
    EXPECT_FALSE(Is("._._x"));
    WriteFile(At("._x"), "text");
    EXPECT_FALSE(Is("._x"));
    EXPECT_TRUE(Is("._._x"));
}

TEST_F(SidecarPlaces, ALongRowOfPrefixes_IsDecided) {
    std::string name = "x";
    WriteFile(At(name), "");
    for (int depth = 1; depth <= 127; ++depth) {
        name = "._" + name;
        WriteFile(At(name), kSound);
        EXPECT_EQ(Is(name.c_str()), depth % 2 == 1) << depth;
    }
}

TEST_F(SidecarPlaces, NewFileBesideAnOrphan_LeavesItOrdinaryForGood) {
    WriteFile(At("._x"), kSound);
    MakeNew("x");
    EXPECT_FALSE(Is("._x"));
    EXPECT_EQ(RemoveSidecar(descriptor_, "x"), noErr);
    EXPECT_EQ(ReadFile(At("._x")), kSound);
    EXPECT_TRUE(HasAttribute(At("._x"), "user.TavPort.Orphan")); // so that other processes know too
}

TEST_F(SidecarPlaces, NewFileBesideAnOrphan_HasNoResourceForkAndCannotMakeOne) {
    WriteFile(At("._x"), kSound);
    MakeNew("x");
    FSForkRefNum number = 0;
    EXPECT_EQ(OpenByRef(RefTo(At("x")), true, fsRdPerm, number), errFSForkNotFound);
    EXPECT_EQ(MakeResourceFork(RefTo(At("x"))), dupFNErr);
    EXPECT_EQ(GetType(At("x")), kNoType);
    EXPECT_EQ(ReadFile(At("._x")), kSound);
}

TEST_F(SidecarPlaces, NewFolderBesideAnOrphan_LeavesItOrdinary) {
    WriteFile(At("._x"), kSound);
    ASSERT_EQ(mkdir(At("x").c_str(), 0755), 0);
    Place made = PlaceOf(At("x"));
    EXPECT_EQ(FurnishNewObject(made, kFSCatInfoNone, nullptr), noErr);
    EXPECT_FALSE(Is("._x"));
}

TEST_F(SidecarPlaces, ReadOnlyOrphan_IsMarkedWithItsModeUnchanged) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    WriteFile(At("._x"), kSound);
    GiveToPlainUser(At("._x"));
    GiveToPlainUser(folder_.path());
    ASSERT_EQ(chmod(At("._x").c_str(), 0444), 0);
    const AsPlainUser user;
    MakeNew("x");
    EXPECT_FALSE(Is("._x"));
    EXPECT_TRUE(HasAttribute(At("._x"), "user.TavPort.Orphan"));
    EXPECT_EQ(StatusOf(At("._x")).st_mode & 07777, 0444u);
}

TEST_F(SidecarPlaces, SomeoneElsesOrphan_StaysOrdinaryInThisProcess) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    WriteFile(At("._x"), kSound);
    GiveToPlainUser(folder_.path());
    const AsPlainUser user;
    MakeNew("x");
    EXPECT_FALSE(Is("._x"));
    EXPECT_FALSE(HasAttribute(At("._x"), "user.TavPort.Orphan"));
}

TEST_F(SidecarPlaces, Remove_TakesTheSidecarOfAFileThatIsGone) {
    WriteFile(At("._x"), kSound);
    EXPECT_EQ(RemoveSidecar(descriptor_, "x"), noErr);
    EXPECT_FALSE(Exists(At("._x")));
    EXPECT_EQ(RemoveSidecar(descriptor_, "x"), noErr);
}

TEST_F(SidecarPlaces, Remove_LeavesWhatIsOrdinary) {
    WriteFile(At("._x"), "text");
    EXPECT_EQ(RemoveSidecar(descriptor_, "x"), noErr);
    EXPECT_TRUE(Exists(At("._x")));
    WriteFile(At("y"), "");
    WriteFile(At("._._y"), kSound);
    EXPECT_EQ(RemoveSidecar(descriptor_, "._y"), noErr); // perhaps the sidecar of "y"
    EXPECT_TRUE(Exists(At("._._y")));
}

TEST_F(SidecarPlaces, Rename_TakesTheSidecarAlong) {
    WriteFile(At("y"), "");
    WriteFile(At("._x"), kSound);
    EXPECT_EQ(RenameSidecar(descriptor_, "x", descriptor_, "y"), noErr);
    EXPECT_FALSE(Exists(At("._x")));
    EXPECT_TRUE(Is("._y"));
}

TEST_F(SidecarPlaces, Rename_CountsAsASidecarMade) {
    WriteFile(At("y"), "");
    WriteFile(At("._x"), kSound);
    const uint64_t before = SidecarsMade();
    EXPECT_EQ(RenameSidecar(descriptor_, "x", descriptor_, "y"), noErr);
    EXPECT_NE(SidecarsMade(), before);
}

TEST_F(SidecarPlaces, NoDescriptorLeft_IsReportedAndPartsNothing) {
    WriteFile(At("x"), "");
    WriteFile(At("._x"), kSound);
    {
        const NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        EXPECT_EQ(FindSidecar(descriptor_, "._x"), tmfoErr);
        EXPECT_EQ(FindSidecar(descriptor_, "x"), fnfErr);
        EXPECT_EQ(CheckSidecarMove(descriptor_, "x", descriptor_, "y"), tmfoErr);
        EXPECT_EQ(RenameSidecar(descriptor_, "x", descriptor_, "y"), tmfoErr);
        EXPECT_EQ(RemoveSidecar(descriptor_, "x"), tmfoErr);
        EXPECT_EQ(DisownOrphan(descriptor_, "x"), tmfoErr);
    }
    EXPECT_EQ(FindSidecar(descriptor_, "._x"), noErr);
}

TEST_F(SidecarPlaces, RenameToATakenPlace_ChangesNothing) {
    WriteFile(At("._x"), kSound);
    WriteFile(At("._y"), "text");
    EXPECT_EQ(RenameSidecar(descriptor_, "x", descriptor_, "y"), dupFNErr);
    EXPECT_EQ(ReadFile(At("._x")), kSound);
    EXPECT_EQ(ReadFile(At("._y")), "text");
}

TEST_F(SidecarPlaces, RenameBesideAnOrphan_LeavesItOrdinary) {
    WriteFile(At("._y"), kSound);
    WriteFile(At("y"), "moved here");
    EXPECT_EQ(RenameSidecar(descriptor_, "x", descriptor_, "y"), noErr);
    EXPECT_FALSE(Is("._y"));
}

TEST_F(SidecarPlaces, CheckMove_FindsWhatStandsInTheWay) {
    WriteFile(At("x"), "");
    WriteFile(At("._y"), "text");
    const std::string longName(254, 'n');
    EXPECT_EQ(CheckSidecarMove(descriptor_, "x", descriptor_, "y"), noErr); // brings no sidecar
    EXPECT_EQ(CheckSidecarMove(descriptor_, "x", descriptor_, longName.c_str()), noErr);
    WriteFile(At("._x"), kSound);
    EXPECT_EQ(CheckSidecarMove(descriptor_, "x", descriptor_, "y"), dupFNErr);
    EXPECT_EQ(CheckSidecarMove(descriptor_, "x", descriptor_, "z"), noErr);
    EXPECT_EQ(CheckSidecarMove(descriptor_, "x", descriptor_, "x"), noErr); // its own
    EXPECT_EQ(CheckSidecarMove(descriptor_, "x", descriptor_, longName.c_str()), bdNamErr);
}

TEST(SidecarPlacesWithoutAttributes, NewFileBesideAnOrphan_LeavesItOrdinary) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "._x", kSound);
    WriteFile(volume / "x", "");
    Place place = PlaceOf(volume / "x");
    EXPECT_EQ(FurnishNewObject(place, kFSCatInfoNone, nullptr), noErr);
    EXPECT_FALSE(IsSidecar(place.folder.descriptor(), "._x"));
    EXPECT_EQ(GetType(volume / "x"), kNoType);
}
