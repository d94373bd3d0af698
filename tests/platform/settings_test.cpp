#include "platform/linux/metadata.h"

#include "metadata_support.h"
#include "platform/linux/object_facts.h"
#include "platform/objects.h"
#include "support/no_descriptors.h"

#include <thread>

namespace {
class Settings : public testing::Test {
protected:
    void SetUp() override { WriteFile(file_, "12345"); }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
};

constexpr int64_t k2005 = k1970 + 1104537600;

FSCatalogInfo EveryFact() {
    FSCatalogInfo info = {};
    info.nodeFlags = kFSNodeLockedMask;
    info.createDate = DateAt(k2005 + 1);
    info.contentModDate = DateAt(k2005 + 2, 0x4000);
    info.attributeModDate = DateAt(k2005 + 3);
    info.accessDate = DateAt(k2005 + 4);
    info.backupDate = DateAt(k2005 + 5);
    info.permissions = {geteuid(), getegid(), 0, 0, 0604, 0};
    std::memcpy(info.finderInfo, "TEXTttxt\x40\0\1\2\3\4\5\6", 16);
    std::memcpy(info.extFinderInfo, "0123456789abcdef", 16);
    return info;
}

void ExpectEveryFact(const FSCatalogInfo& info) {
    const FSCatalogInfo expected = EveryFact();
    EXPECT_TRUE(info.nodeFlags & kFSNodeLockedMask);
    EXPECT_EQ(SecondsOf(info.createDate), k2005 + 1);
    EXPECT_EQ(SecondsOf(info.contentModDate), k2005 + 2);
    EXPECT_EQ(info.contentModDate.fraction, 0x4000);
    EXPECT_EQ(SecondsOf(info.accessDate), k2005 + 4);
    EXPECT_EQ(SecondsOf(info.backupDate), k2005 + 5);
    EXPECT_EQ(info.permissions.mode & 07777, 0604);
    EXPECT_EQ(std::memcmp(info.finderInfo, expected.finderInfo, 16), 0);
    EXPECT_EQ(std::memcmp(info.extFinderInfo, expected.extFinderInfo, 16), 0);
}
} // namespace

TEST_F(Settings, EverySettableFact_IsKept) {
    ASSERT_EQ(SetInfo(file_, kFSCatInfoSettableInfo, EveryFact()), noErr);
    ExpectEveryFact(GetInfo(file_, kFSCatInfoGettableInfo));
    EXPECT_EQ(GetAttribute(file_).size(), 402u);
    EXPECT_FALSE(Exists(SidecarOf(file_)));
    EXPECT_EQ(ReadFile(file_), "12345");
}

TEST_F(Settings, EverySettableFactOfAFolder_IsKept) {
    const std::string path = folder_ / "folder";
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    ASSERT_EQ(SetInfo(path, kFSCatInfoSettableInfo, EveryFact()), noErr);
    ExpectEveryFact(GetInfo(path, kFSCatInfoGettableInfo));
}

TEST_F(Settings, AttributeModificationDate_IsTheHostsOwn) {
    ASSERT_EQ(SetInfo(file_, kFSCatInfoAttrMod, EveryFact()), noErr);
    EXPECT_NE(SecondsOf(GetInfo(file_, kFSCatInfoAttrMod).attributeModDate), k2005 + 3);
}

TEST_F(Settings, FactThatCannotBeSet_IsRefused) {
    for (const FSCatalogInfoBitmap which :
         {kFSCatInfoVolume, kFSCatInfoParentDirID, kFSCatInfoNodeID, kFSCatInfoValence, kFSCatInfoDataSizes,
          kFSCatInfoRsrcSizes, kFSCatInfoSharingFlags, kFSCatInfoUserPrivs, kFSCatInfoUserAccess}) {
        EXPECT_EQ(SetInfo(file_, which | kFSCatInfoNodeFlags, EveryFact()), paramErr) << which;
    }
    EXPECT_FALSE(GetLock(file_));
}

TEST_F(Settings, Defaults_LeaveNoAttributeAndNoSidecar) {
    ASSERT_EQ(
        SetInfo(file_,
                kFSCatInfoNodeFlags | kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo | kFSCatInfoBackupDate,
                FSCatalogInfo{}),
        noErr);
    EXPECT_FALSE(HasAttribute(file_));
    ASSERT_EQ(SetInfo(file_, kFSCatInfoSettableInfo & ~kFSCatInfoPermissions, EveryFact()), noErr);
    EXPECT_TRUE(HasAttribute(file_));
    ASSERT_EQ(SetInfo(file_, kFSCatInfoSettableInfo & ~kFSCatInfoPermissions, FSCatalogInfo{}), noErr);
    EXPECT_FALSE(HasAttribute(file_));
    EXPECT_FALSE(Exists(SidecarOf(file_)));
}

TEST_F(Settings, OwnBirthAsCreationDate_LeavesNoAttribute) {
    if (!(PlaceOf(file_).facts.stx_mask & STATX_BTIME)) GTEST_SKIP() << "the volume keeps no birth times";
    ASSERT_EQ(SetInfo(file_, kFSCatInfoCreateDate, GetInfo(file_, kFSCatInfoCreateDate)), noErr);
    EXPECT_FALSE(HasAttribute(file_));
}

TEST_F(Settings, DateOfZero_TakesTheKeptOneAway) {
    ASSERT_EQ(SetInfo(file_, kFSCatInfoCreateDate | kFSCatInfoBackupDate, EveryFact()), noErr);
    ASSERT_EQ(SetInfo(file_, kFSCatInfoCreateDate | kFSCatInfoBackupDate, FSCatalogInfo{}), noErr);
    EXPECT_EQ(SecondsOf(GetInfo(file_, kFSCatInfoBackupDate).backupDate), 0);
    EXPECT_NE(SecondsOf(GetInfo(file_, kFSCatInfoCreateDate).createDate), k2005 + 1);
}

TEST_F(Settings, DateOutOfRange_IsDropped) {
    ASSERT_EQ(SetInfo(file_, kFSCatInfoCreateDate | kFSCatInfoBackupDate, EveryFact()), noErr);
    FSCatalogInfo far = {};
    far.createDate = far.backupDate = DateAt(k2005 + (int64_t{1} << 32));
    ASSERT_EQ(SetInfo(file_, kFSCatInfoCreateDate | kFSCatInfoBackupDate, far), noErr);
    far.createDate = far.backupDate = DateAt(1);
    ASSERT_EQ(SetInfo(file_, kFSCatInfoCreateDate | kFSCatInfoBackupDate, far), noErr);
    const FSCatalogInfo info = GetInfo(file_, kFSCatInfoCreateDate | kFSCatInfoBackupDate);
    EXPECT_EQ(SecondsOf(info.createDate), k2005 + 1);
    EXPECT_EQ(SecondsOf(info.backupDate), k2005 + 5);
}

TEST_F(Settings, ModificationDateOfZero_IsDropped) {
    const int64_t before = SecondsOf(GetInfo(file_, kFSCatInfoContentMod).contentModDate);
    ASSERT_EQ(SetInfo(file_, kFSCatInfoContentMod | kFSCatInfoAccessDate, FSCatalogInfo{}), noErr);
    EXPECT_EQ(SecondsOf(GetInfo(file_, kFSCatInfoContentMod).contentModDate), before);
}

TEST_F(Settings, OneDate_LeavesTheOther) {
    const FSCatalogInfo before = GetInfo(file_, kFSCatInfoGettableInfo);
    ASSERT_EQ(SetInfo(file_, kFSCatInfoContentMod, EveryFact()), noErr);
    FSCatalogInfo after = GetInfo(file_, kFSCatInfoGettableInfo);
    EXPECT_EQ(SecondsOf(after.accessDate), SecondsOf(before.accessDate));
    ASSERT_EQ(SetInfo(file_, kFSCatInfoAccessDate, EveryFact()), noErr);
    after = GetInfo(file_, kFSCatInfoGettableInfo);
    EXPECT_EQ(SecondsOf(after.accessDate), k2005 + 4);
    EXPECT_EQ(SecondsOf(after.contentModDate), k2005 + 2);
}

TEST_F(Settings, OneFact_LeavesTheOthersAndWhatServersKeepThere) {
    SetAttribute(file_, AppleDouble({{4, 200, "comment"},
                                     {14, 120, Big32(0x00008001)},
                                     {9, 150, FinderInfo("TEXTttxt")},
                                     {8, 182, Big32(1) + Big32(2) + Big32(3) + Big32(4)},
                                     {0x80444556, 210, "dev"}}));
    ASSERT_EQ(SetLock(file_, true), noErr);
    EXPECT_EQ(GetAttribute(file_), AppleDouble({{4, 200, "comment"},
                                                {14, 120, Big32(0x000081A1)},
                                                {9, 150, FinderInfo("TEXTttxt")},
                                                {8, 182, Big32(1) + Big32(2) + Big32(3) + Big32(4)},
                                                {0x80444556, 210, "dev"}}));
    ASSERT_EQ(SetType(file_, kNoType), noErr);
    ASSERT_EQ(SetLock(file_, false), noErr);
    ASSERT_EQ(SetInfo(file_, kFSCatInfoCreateDate | kFSCatInfoBackupDate, FSCatalogInfo{}), noErr);
    EXPECT_TRUE(HasAttribute(file_)); // the comment is still there
}

TEST_F(Settings, RecordWithoutAPlace_IsRewrittenWithItsComment) {
    SetAttribute(file_, AppleDouble({{4, 80, "comment"}, {9, 100, FinderInfo("TEXTttxt")}}));
    ASSERT_EQ(SetLock(file_, true), noErr);
    EXPECT_EQ(GetAttribute(file_).size(), 402u);
    EXPECT_EQ(GetAttribute(file_).substr(154, 7), "comment");
    EXPECT_EQ(GetType(file_), "TEXTttxt");
    EXPECT_TRUE(GetLock(file_));
}

TEST_F(Settings, BrokenRecord_IsReplacedOnlyWhenSomethingIsStored) {
    SetAttribute(file_, "broken");
    ASSERT_EQ(SetLock(file_, false), noErr);
    EXPECT_EQ(GetAttribute(file_), "broken");
    ASSERT_EQ(SetLock(file_, true), noErr);
    EXPECT_TRUE(GetLock(file_));
}

TEST_F(Settings, AMacsSidecar_GivesWayToTheAttributeWithoutLoss) {
    const std::string sidecar = AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}});
    WriteFile(SidecarOf(file_), sidecar);
    ASSERT_EQ(SetLock(file_, true), noErr);
    EXPECT_EQ(GetType(file_), "TEXTttxt");
    ASSERT_EQ(SetLock(file_, false), noErr);
    ASSERT_EQ(SetType(file_, kNoType), noErr);
    EXPECT_EQ(GetType(file_), kNoType);
    EXPECT_EQ(ReadFile(SidecarOf(file_)), sidecar);
}

TEST_F(Settings, ReadOnlyMode_IsLentForTheMetadataAndKept) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    GiveToPlainUser(file_);
    const AsPlainUser user;
    for (const mode_t mode : {0444, 0000, 0100}) {
        ASSERT_EQ(chmod(file_.c_str(), mode), 0);
        ASSERT_EQ(SetType(file_, "TEXT" + std::to_string(1000 + mode)), noErr) << mode;
        EXPECT_EQ(StatusOf(file_).st_mode & 07777, mode);
    }
    ASSERT_EQ(chmod(file_.c_str(), 0600), 0);
    EXPECT_EQ(GetType(file_), "TEXT1064");
}

// What the owner may not read by the mode is looked at all the same: a lock that was set holds.
TEST_F(Settings, UnreadableModes_HideNeitherLockNorFinderInformation) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    GiveToPlainUser(file_);
    const std::string path = folder_ / "folder";
    const AsPlainUser user;
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    ASSERT_EQ(SetType(file_, "TEXTttxt"), noErr);
    for (const std::string& object : {file_, path}) {
        ASSERT_EQ(SetLock(object, true), noErr);
        for (const mode_t mode : {0222, 0333, 0000}) {
            ASSERT_EQ(chmod(object.c_str(), mode), 0);
            EXPECT_TRUE(GetLock(object)) << object << mode;
            const FSRef ref = RefTo(object);
            EXPECT_EQ(FSDeleteObject(&ref), fLckdErr) << object << mode;
            EXPECT_EQ(StatusOf(object).st_mode & 07777, mode) << object;
        }
    }
    EXPECT_EQ(GetType(file_), "TEXTttxt");
    ASSERT_EQ(chmod(file_.c_str(), 0222), 0);
    FSForkRefNum fork = 0;
    EXPECT_EQ(OpenByRef(RefTo(file_), false, fsWrPerm, fork), permErr);
    EXPECT_EQ(StatusOf(file_).st_mode & 07777, 0222u);
}

// Each lends itself the rights and takes them back; none may take another's loan for the mode to restore.
TEST_F(Settings, UnreadableMode_SurvivesManyThatLendAtOnce) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    GiveToPlainUser(file_);
    const AsPlainUser user;
    ASSERT_EQ(SetLock(file_, true), noErr);
    ASSERT_EQ(chmod(file_.c_str(), 0000), 0);
    const FSRef ref = RefTo(file_);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            FSCatalogInfo info = {};
            for (int round = 0; round < 200; ++round) {
                info.finderInfo[0] = static_cast<uint8_t>(round);
                if (i == 0) FSSetCatalogInfo(&ref, kFSCatInfoFinderInfo, &info);
                FSGetCatalogInfo(&ref, kFSCatInfoFinderInfo, &info, nullptr, nullptr, nullptr);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(StatusOf(file_).st_mode & 07777, 0u);
    EXPECT_TRUE(GetLock(file_));
}

TEST_F(Settings, ReadOnlyFolder_TakesMetadataToo) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    const AsPlainUser user;
    const std::string path = folder_ / "folder";
    ASSERT_EQ(mkdir(path.c_str(), 0555), 0);
    ASSERT_EQ(SetLock(path, true), noErr);
    EXPECT_TRUE(GetLock(path));
    EXPECT_EQ(StatusOf(path).st_mode & 07777, 0555u);
}

TEST_F(Settings, MetadataAndReadOnlyModeTogether_AreBothStored) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    GiveToPlainUser(file_);
    const AsPlainUser user;
    FSCatalogInfo info = EveryFact();
    info.permissions = {AsPlainUser::kUser, AsPlainUser::kUser, 0, 0, 0400, 0};
    ASSERT_EQ(SetInfo(file_, kFSCatInfoSettableInfo, info), noErr);
    EXPECT_EQ(StatusOf(file_).st_mode & 07777, 0400u);
    EXPECT_EQ(GetType(file_), "TEXTttxt");
}

TEST_F(Settings, SomeoneElsesFile_IsRefused) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    ASSERT_EQ(chmod(file_.c_str(), 0644), 0);
    const AsPlainUser user;
    EXPECT_EQ(SetLock(file_, true), afpAccessDenied);
    EXPECT_EQ(SetInfo(file_, kFSCatInfoContentMod, EveryFact()), afpAccessDenied);
    FSCatalogInfo info = GetInfo(file_, kFSCatInfoPermissions);
    EXPECT_EQ(SetInfo(file_, kFSCatInfoPermissions, info), noErr); // nothing to change
    info.permissions.mode = 0777;
    EXPECT_EQ(SetInfo(file_, kFSCatInfoPermissions, info), afpAccessDenied);
}

TEST_F(Settings, OwnerThatMayNotBeSet_IsDroppedWithTheSetIdBits) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to become a plain user";
    GiveToPlainUser(folder_.path());
    GiveToPlainUser(file_);
    const AsPlainUser user;
    FSCatalogInfo info = {};
    info.permissions = {0, 0, 0, 0, 06755, 0};
    ASSERT_EQ(SetInfo(file_, kFSCatInfoPermissions, info), noErr);
    EXPECT_EQ(StatusOf(file_).st_uid, AsPlainUser::kUser);
    EXPECT_EQ(StatusOf(file_).st_mode & 07777, 0755u);
}

TEST_F(Settings, OwnerAndSetIdBits_AreSetTogether) {
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "only the superuser may give files away";
    FSCatalogInfo info = {};
    info.permissions = {AsPlainUser::kUser, AsPlainUser::kUser, 0, 0, 06755, 0};
    ASSERT_EQ(SetInfo(file_, kFSCatInfoPermissions, info), noErr);
    EXPECT_EQ(StatusOf(file_).st_uid, AsPlainUser::kUser);
    EXPECT_EQ(StatusOf(file_).st_gid, AsPlainUser::kUser);
    EXPECT_EQ(StatusOf(file_).st_mode & 07777, 06755u);
}

TEST_F(Settings, Sidecar_FollowsOwnerAndMode) {
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    FSCatalogInfo info = {};
    info.permissions = {geteuid(), getegid(), 0, 0, 0460, 0};
    if (AsPlainUser::IsPossible()) info.permissions.userID = info.permissions.groupID = AsPlainUser::kUser;
    ASSERT_EQ(SetInfo(file_, kFSCatInfoPermissions, info), noErr);
    const struct stat status = StatusOf(SidecarOf(file_));
    EXPECT_EQ(status.st_mode & 07777, 0660u); // its owner may always write
    EXPECT_EQ(status.st_uid, info.permissions.userID);
    EXPECT_EQ(status.st_gid, info.permissions.groupID);
}

TEST_F(Settings, ALink_TakesDatesAndNothingElse) {
    const std::string link = folder_ / "link";
    ASSERT_EQ(symlink("file", link.c_str()), 0);
    const FSCatalogInfo before = GetInfo(file_, kFSCatInfoGettableInfo);
    for (const bool fromPath : {true, false}) {
        const FSRef ref = fromPath ? RefTo(link) : EntryRef(link);
        const FSCatalogInfo info = EveryFact();
        ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoSettableInfo, &info), noErr);
        EXPECT_EQ(StatusOf(link).st_mtim.tv_sec, k2005 + 2 - k1970);
        ASSERT_EQ(unlink(link.c_str()), 0);
        ASSERT_EQ(symlink("file", link.c_str()), 0);
    }
    const FSCatalogInfo after = GetInfo(file_, kFSCatInfoGettableInfo);
    EXPECT_EQ(SecondsOf(after.contentModDate), SecondsOf(before.contentModDate));
    EXPECT_EQ(after.nodeFlags, before.nodeFlags);
    EXPECT_EQ(after.permissions.mode, before.permissions.mode);
    EXPECT_FALSE(HasAttribute(file_));
    EXPECT_FALSE(Exists(SidecarOf(link)));
}

TEST_F(Settings, AnotherObjectThatTookTheName_IsLeftAlone) {
    const Place place = PlaceOf(file_);
    ASSERT_EQ(rename(file_.c_str(), (folder_ / "moved").c_str()), 0);
    WriteFile(file_, "other");
    const mode_t before = StatusOf(file_).st_mode;
    EXPECT_EQ(ApplyCatalogInfo(place, kFSCatInfoSettableInfo, EveryFact()), fnfErr);
    EXPECT_EQ(StatusOf(file_).st_mode, before);
    EXPECT_FALSE(HasAttribute(file_));
}

TEST_F(Settings, ReferenceToARenamedFile_SetsThatFileAndNotTheOneThatTookItsName) {
    const FSRef ref = RefTo(file_);
    const std::string moved = folder_ / "moved";
    ASSERT_EQ(rename(file_.c_str(), moved.c_str()), 0);
    WriteFile(file_, "other");
    FSCatalogInfo info = EveryFact();
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoSettableInfo, &info), noErr);
    EXPECT_EQ(GetType(moved), "TEXTttxt");
    EXPECT_EQ(StatusOf(moved).st_mode & 07777, 0604u);
    EXPECT_FALSE(HasAttribute(file_));
    EXPECT_NE(StatusOf(file_).st_mode & 07777, 0604u);
}

TEST_F(Settings, Pipe_TakesModeAndDatesUnopened) {
    const std::string pipe = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    ASSERT_EQ(SetInfo(pipe, kFSCatInfoSettableInfo, EveryFact()), noErr);
    EXPECT_EQ(StatusOf(pipe).st_mode & 07777, 0604u);
    EXPECT_EQ(StatusOf(pipe).st_mtim.tv_sec, k2005 + 2 - k1970);
}

TEST(SettingsWithoutAttributes, EverySettableFact_IsKeptInTheSidecar) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "12345");
    const uint64_t before = SidecarsMade();
    ASSERT_EQ(SetInfo(volume / "x", kFSCatInfoSettableInfo, EveryFact()), noErr);
    ExpectEveryFact(GetInfo(volume / "x", kFSCatInfoGettableInfo));
    EXPECT_NE(SidecarsMade(), before);
    const Place place = PlaceOf(volume / "x");
    EXPECT_TRUE(IsSidecar(place.folder.descriptor(), "._x"));
    EXPECT_EQ(ReadFile(volume / "x"), "12345");
}

TEST(SettingsWithoutAttributes, NewFilesSidecar_HasTheModeThatTheFileWasGiven) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    const FSRef folder = RefTo(volume.path());
    FSCatalogInfo info = EveryFact();
    info.permissions.mode = 0644;
    FSRef made;
    ASSERT_EQ(FSCreateFileUnicode(&folder, 1, u"x", kFSCatInfoSettableInfo, &info, &made, nullptr), noErr);
    EXPECT_EQ(StatusOf(volume / "x").st_mode & 07777, 0644u);
    EXPECT_EQ(StatusOf(volume / "._x").st_mode & 0777, 0644u);
    EXPECT_EQ(GetType(volume / "x"), "TEXTttxt");
}

TEST(SettingsWithoutAttributes, Defaults_LeaveNoSidecar) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    ASSERT_EQ(SetLock(volume / "x", false), noErr);
    EXPECT_FALSE(Exists(volume / "._x"));
    ASSERT_EQ(SetLock(volume / "x", true), noErr);
    EXPECT_TRUE(Exists(volume / "._x"));
    ASSERT_EQ(SetLock(volume / "x", false), noErr);
    EXPECT_FALSE(Exists(volume / "._x"));
}

// The lock lies in the sidecar, which cannot be opened then; nothing may be done as if there were none.
TEST(SettingsWithoutAttributes, NoDescriptorLeft_TheLockHolds) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    ASSERT_EQ(SetLock(volume / "x", true), noErr);
    const Place place = PlaceOf(volume / "x");
    const FSRef ref = RefTo(volume / "x");
    const Descriptor file(open((volume / "x").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(CheckUnlocked(place, fLckdErr), fLckdErr);
    EXPECT_EQ(CheckUnlocked(place, file.number(), permErr), permErr);
    {
        const NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        EXPECT_EQ(CheckUnlocked(place, fLckdErr), tmfoErr);
        EXPECT_EQ(CheckUnlocked(place, file.number(), permErr), tmfoErr);
        EXPECT_NE(FSDeleteObject(&ref), noErr);
    }
    EXPECT_TRUE(GetLock(volume / "x"));
}

TEST(SettingsWithoutAttributes, ResourceForkAndFacts_ShareTheSidecar) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    ASSERT_EQ(SetType(volume / "x", "TEXTttxt"), noErr);
    ASSERT_EQ(MakeResourceFork(RefTo(volume / "x")), noErr);
    ASSERT_EQ(WriteWhole(RefTo(volume / "x"), true, "resource"), noErr);
    ASSERT_EQ(SetLock(volume / "x", true), noErr);
    EXPECT_EQ(GetType(volume / "x"), "TEXTttxt");
    EXPECT_TRUE(GetLock(volume / "x"));
    EXPECT_EQ(ReadWhole(RefTo(volume / "x"), true), "resource");
    ASSERT_EQ(SetLock(volume / "x", false), noErr);
    ASSERT_EQ(SetType(volume / "x", kNoType), noErr);
    EXPECT_EQ(ReadWhole(RefTo(volume / "x"), true), "resource"); // a fork keeps the sidecar
}

TEST(SettingsWithoutAttributes, AMacsSidecar_IsWrittenAnewWithItsFork) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    const std::string fork(200000, 'r');
    WriteFile(volume / "x", "");
    WriteFile(volume / "._x", AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, fork}}));
    ASSERT_EQ(SetLock(volume / "x", true), noErr);
    EXPECT_TRUE(GetLock(volume / "x"));
    EXPECT_EQ(GetType(volume / "x"), "TEXTttxt");
    EXPECT_EQ(ReadWhole(RefTo(volume / "x"), true), fork);
    EXPECT_EQ(GetInfo(volume.path(), kFSCatInfoValence).valence, 1u); // nothing else is left behind
}

TEST(SettingsWithoutAttributes, AMacsSidecarWithAnOpenFork_IsNotWrittenAnew) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    WriteFile(volume / "._x", AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "fork"}}));
    FSForkRefNum number = 0;
    ASSERT_EQ(OpenByRef(RefTo(volume / "x"), true, fsRdWrPerm, number), noErr);
    EXPECT_EQ(SetLock(volume / "x", true), fBsyErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    EXPECT_EQ(SetLock(volume / "x", true), noErr);
}

TEST(SettingsWithoutAttributes, AMacsSidecarWithMoreInIt_KeepsThatAndDropsWhatHasNoPlace) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    const std::string more = std::string(3728, 'a');
    WriteFile(volume / "x", "");
    WriteFile(volume / "._x", AppleDouble({{9, 50, FinderInfo("TEXTttxt") + more}, {2, 3810, "fork"}}));
    EXPECT_EQ(SetLock(volume / "x", true), noErr);
    EXPECT_FALSE(GetLock(volume / "x"));
    ASSERT_EQ(SetType(volume / "x", "PDF prvw"), noErr);
    EXPECT_EQ(ReadFile(volume / "._x"),
              AppleDouble({{9, 50, FinderInfo("PDF prvw") + more}, {2, 3810, "fork"}}));
}

TEST(SettingsWithoutAttributes, BrokenSidecar_IsReportedAndLeftAlone) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    const std::string broken = AppleDouble({{9, 50, FinderInfo("TEXTttxt")}}).substr(0, 70);
    WriteFile(volume / "x", "");
    WriteFile(volume / "._x", broken);
    EXPECT_EQ(SetLock(volume / "x", true), ioErr);
    EXPECT_EQ(ReadFile(volume / "._x"), broken);
}

TEST(SettingsWithoutAttributes, NameWithoutRoomForASidecar_KeepsNothing) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    const std::string path = volume / std::string(254, 'n');
    WriteFile(path, "");
    EXPECT_EQ(SetLock(path, true), noErr);
    EXPECT_FALSE(GetLock(path));
    EXPECT_EQ(MakeResourceFork(RefTo(path)), bdNamErr);
}

TEST(SettingsOnAReadOnlyVolume, EveryFact_IsRefused) {
    OwnVolume volume("tmpfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    ASSERT_EQ(volume.MakeReadOnly(), 0);
    EXPECT_EQ(SetLock(volume / "x", true), wPrErr);
    EXPECT_EQ(SetInfo(volume / "x", kFSCatInfoContentMod, EveryFact()), wPrErr);
    EXPECT_EQ(SetInfo(volume / "x", kFSCatInfoPermissions, EveryFact()), wPrErr);
}
