#include "platform/linux/metadata.h"

#include "metadata_support.h"

#include <ctime>

namespace {
class Metadata : public testing::Test {
protected:
    void SetUp() override {
        WriteFile(file_, "12345");
        ASSERT_EQ(mkdir(subfolder_.c_str(), 0755), 0);
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
    const std::string subfolder_ = folder_ / "folder";
};

int64_t Seconds(const timespec& time) {
    return time.tv_sec + k1970;
}

// A record as a file server writes it, with the facts in the places that it has for them.
std::string ServersAttribute(const std::string& finder, uint32_t create, uint32_t backup, uint32_t flags) {
    return AppleDouble({{9, 122, finder},
                        {4, 154, ""},
                        {8, 354, Big32(create) + Big32(0x10) + Big32(backup) + Big32(0x20)},
                        {14, 370, Big32(flags)},
                        {0x80444556, 374, ""},
                        {0x80494E4F, 382, ""},
                        {0x8053594E, 390, ""},
                        {0x8053567E, 398, Big32(77)}});
}
} // namespace

TEST_F(Metadata, NodeFlags_TellFoldersFromFiles) {
    EXPECT_EQ(GetInfo(file_, kFSCatInfoNodeFlags).nodeFlags, 0);
    EXPECT_EQ(GetInfo(subfolder_, kFSCatInfoNodeFlags).nodeFlags, kFSNodeIsDirectoryMask);
}

TEST_F(Metadata, NodeFlagsWithNothingButTheType_TellTheLock) {
    Place place = PlaceOf(file_);
    FSCatalogInfo info = {};
    place.facts = {};
    place.facts.stx_mask = STATX_TYPE;
    place.facts.stx_mode = S_IFREG;
    ASSERT_EQ(FillCatalogInfo(place, kFSCatInfoNodeFlags, info), noErr);
    EXPECT_EQ(info.nodeFlags, 0);
    EXPECT_EQ(CheckUnlocked(place, fLckdErr), noErr);
    ASSERT_EQ(SetLock(file_, true), noErr);
    ASSERT_EQ(FillCatalogInfo(place, kFSCatInfoNodeFlags, info), noErr);
    EXPECT_EQ(info.nodeFlags, kFSNodeLockedMask);
    EXPECT_EQ(CheckUnlocked(place, fLckdErr), fLckdErr);
}

TEST_F(Metadata, OpenForks_ShowInTheNodeFlags) {
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    FSForkRefNum data = 0, resource = 0;
    ASSERT_EQ(OpenByRef(RefTo(file_), false, fsRdPerm, data), noErr);
    EXPECT_EQ(GetInfo(file_, kFSCatInfoNodeFlags).nodeFlags, kFSNodeForkOpenMask | kFSNodeDataOpenMask);
    ASSERT_EQ(OpenByRef(RefTo(file_), true, fsRdPerm, resource), noErr);
    EXPECT_EQ(FSCloseFork(data), noErr);
    EXPECT_EQ(GetInfo(file_, kFSCatInfoNodeFlags).nodeFlags, kFSNodeForkOpenMask | kFSNodeResOpenMask);
    Place place = PlaceOf(file_);
    place.facts.stx_mask = STATX_TYPE;
    FSCatalogInfo info = {};
    EXPECT_EQ(FillCatalogInfo(place, kFSCatInfoNodeFlags, info), noErr);
    EXPECT_EQ(info.nodeFlags, kFSNodeForkOpenMask | kFSNodeResOpenMask);
    WriteFile(folder_ / "other", "");
    EXPECT_EQ(GetInfo(folder_ / "other", kFSCatInfoNodeFlags).nodeFlags, 0);
    EXPECT_EQ(FSCloseFork(resource), noErr);
    EXPECT_EQ(GetInfo(file_, kFSCatInfoNodeFlags).nodeFlags, 0);
}

TEST_F(Metadata, Dates_AreTheHosts) {
    const timespec times[2] = {{1000000000, 0}, {1100000000, 500000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
    const FSCatalogInfo info = GetInfo(file_, kFSCatInfoGettableInfo);
    EXPECT_EQ(SecondsOf(info.accessDate), 1000000000 + k1970);
    EXPECT_EQ(SecondsOf(info.contentModDate), 1100000000 + k1970);
    EXPECT_EQ(info.contentModDate.fraction, 0x8000);
    EXPECT_EQ(SecondsOf(info.attributeModDate), Seconds(StatusOf(file_).st_ctim));
    const struct statx facts = PlaceOf(file_).facts;
    if (facts.stx_mask & STATX_BTIME) {
        EXPECT_EQ(SecondsOf(info.createDate), facts.stx_btime.tv_sec + k1970);
    } else {
        EXPECT_EQ(SecondsOf(info.createDate), 0);
    }
    EXPECT_EQ(SecondsOf(info.backupDate), 0);
}

TEST_F(Metadata, Permissions_AreTheHosts) {
    ASSERT_EQ(chmod(file_.c_str(), 0640), 0);
    const FSPermissionInfo permissions = GetInfo(file_, kFSCatInfoPermissions).permissions;
    EXPECT_EQ(permissions.userID, geteuid());
    EXPECT_EQ(permissions.groupID, StatusOf(file_).st_gid);
    EXPECT_EQ(permissions.mode, S_IFREG | 0640);
    EXPECT_EQ(permissions.userAccess, 6);
}

TEST_F(Metadata, AccessAndPrivileges_FollowTheModeForTheSuperuserToo) {
    ASSERT_EQ(chmod(subfolder_.c_str(), 0355), 0);
    FSCatalogInfo info = GetInfo(subfolder_, kFSCatInfoPermissions | kFSCatInfoUserPrivs);
    EXPECT_EQ(info.permissions.userAccess, 3);
    EXPECT_EQ(info.userPrivileges, 0x03);
    ASSERT_EQ(chmod(subfolder_.c_str(), 0500), 0);
    info = GetInfo(subfolder_, kFSCatInfoPermissions | kFSCatInfoUserPrivs);
    EXPECT_EQ(info.userPrivileges, 0x04);
    EXPECT_EQ(GetInfo(file_, kFSCatInfoUserPrivs).userPrivileges, 0);
    if (!AsPlainUser::IsPossible()) GTEST_SKIP() << "the superuser is needed to give files away";
    GiveToPlainUser(subfolder_);
    ASSERT_EQ(chmod(subfolder_.c_str(), 0705), 0);
    info = GetInfo(subfolder_, kFSCatInfoPermissions | kFSCatInfoUserPrivs);
    EXPECT_EQ(info.permissions.userAccess, 5);
    EXPECT_EQ(info.userPrivileges, 0x84);
    ASSERT_EQ(chown(subfolder_.c_str(), AsPlainUser::kUser, getegid()), 0);
    ASSERT_EQ(chmod(subfolder_.c_str(), 0720), 0);
    EXPECT_EQ(GetInfo(subfolder_, kFSCatInfoUserAccess).permissions.userAccess, 2);
}

TEST_F(Metadata, DataSizes_AreBytesAndBlocks) {
    const FSCatalogInfo info = GetInfo(file_, kFSCatInfoDataSizes);
    EXPECT_EQ(info.dataLogicalSize, 5u);
    EXPECT_EQ(info.dataPhysicalSize, static_cast<uint64_t>(StatusOf(file_).st_blocks) * 512);
    const FSCatalogInfo folder = GetInfo(subfolder_, kFSCatInfoDataSizes | kFSCatInfoRsrcSizes);
    EXPECT_EQ(folder.dataLogicalSize + folder.dataPhysicalSize + folder.rsrcLogicalSize, 0u);
}

TEST_F(Metadata, ResourceSizes_AreTheForks) {
    EXPECT_EQ(GetInfo(file_, kFSCatInfoRsrcSizes).rsrcLogicalSize, 0u);
    ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
    ASSERT_EQ(WriteWhole(RefTo(file_), true, "resource"), noErr);
    const FSCatalogInfo info = GetInfo(file_, kFSCatInfoRsrcSizes);
    EXPECT_EQ(info.rsrcLogicalSize, 8u);
    EXPECT_EQ(info.rsrcPhysicalSize, static_cast<uint64_t>(StatusOf(SidecarOf(file_)).st_blocks) * 512);
}

TEST_F(Metadata, Numbers_AreStableAndTellObjectsApart) {
    const FSCatalogInfoBitmap which = kFSCatInfoNodeID | kFSCatInfoParentDirID | kFSCatInfoVolume;
    const FSCatalogInfo file = GetInfo(file_, which);
    const FSCatalogInfo subfolder = GetInfo(subfolder_, which);
    const FSCatalogInfo folder = GetInfo(folder_.path(), which);
    EXPECT_EQ(file.parentDirID, folder.nodeID);
    EXPECT_EQ(subfolder.parentDirID, folder.nodeID);
    EXPECT_NE(subfolder.nodeID, folder.nodeID);
    EXPECT_EQ(file.volume, folder.volume);
    EXPECT_NE(file.volume, 0);
    EXPECT_EQ(file.nodeID, static_cast<uint32_t>(StatusOf(file_).st_ino));
    const FSCatalogInfo root = GetInfo("/", which);
    EXPECT_EQ(root.nodeID, 2u);
    EXPECT_EQ(root.parentDirID, 1u);
}

TEST_F(Metadata, Valence_CountsWhatAListingShows) {
    EXPECT_EQ(GetInfo(subfolder_, kFSCatInfoValence).valence, 0u);
    EXPECT_EQ(GetInfo(file_, kFSCatInfoValence).valence, 0u);
    WriteFile(subfolder_ + "/a", "");
    WriteFile(subfolder_ + "/._a", AppleDouble({}));
    WriteFile(subfolder_ + "/._orphan", AppleDouble({}));
    WriteFile(subfolder_ + "/.hidden", "");
    EXPECT_EQ(GetInfo(subfolder_, kFSCatInfoValence).valence, 3u);
}

TEST_F(Metadata, ValenceOfALargeFolder_CountsAll) {
    for (int i = 0; i < 3000; ++i) WriteFile(subfolder_ + "/a name of some length " + std::to_string(i), "");
    EXPECT_EQ(GetInfo(subfolder_, kFSCatInfoValence).valence, 3000u);
}

TEST_F(Metadata, NoAttribute_MeansDefaults) {
    const FSCatalogInfo info = GetInfo(file_, kFSCatInfoGettableInfo);
    const uint8_t none[16] = {};
    EXPECT_EQ(std::memcmp(info.finderInfo, none, 16), 0);
    EXPECT_EQ(std::memcmp(info.extFinderInfo, none, 16), 0);
    EXPECT_EQ(info.nodeFlags, 0);
    EXPECT_EQ(info.sharingFlags, 0);
    EXPECT_EQ(info.textEncodingHint, kTextEncodingUnknown);
}

TEST_F(Metadata, FileServersAttribute_IsUnderstood) {
    SetAttribute(file_, ServersAttribute("TEXTttxt" + std::string(8, 1) + std::string(16, 2), 86400,
                                         0xFFFFFFFF, 0x20));
    const FSCatalogInfo info = GetInfo(file_, kFSCatInfoGettableInfo);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(info.finderInfo), 16),
              "TEXTttxt" + std::string(8, 1));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(info.extFinderInfo), 16), std::string(16, 2));
    EXPECT_EQ(SecondsOf(info.createDate), 946684800 + k1970 + 86400);
    EXPECT_EQ(SecondsOf(info.backupDate), 946684800 + k1970 - 1);
    EXPECT_TRUE(info.nodeFlags & kFSNodeLockedMask);
}

TEST_F(Metadata, FoldersHaveMetadataToo) {
    SetAttribute(subfolder_, ServersAttribute(FinderInfo("fldrMACS"), 1, 2, 0x20));
    EXPECT_EQ(GetInfo(subfolder_, kFSCatInfoNodeFlags).nodeFlags, kFSNodeIsDirectoryMask | kFSNodeLockedMask);
    EXPECT_EQ(GetType(subfolder_), "fldrMACS");
}

TEST_F(Metadata, LargeAttribute_IsUnderstood) {
    SetAttribute(file_, AppleDouble({{9, 2000, FinderInfo("TEXTttxt")}, {4, 100, std::string(1500, 'c')}}));
    EXPECT_EQ(GetType(file_), "TEXTttxt");
}

TEST_F(Metadata, BrokenAttribute_CountsAsNone) {
    for (const std::string& bytes :
         {std::string("x"), std::string(402, '\0'), AppleDouble({{9, 38, "short"}}),
          AppleDouble({{9, 40, FinderInfo("TEXTttxt")}}).substr(0, 60)}) {
        SetAttribute(file_, bytes);
        EXPECT_EQ(GetType(file_), kNoType);
        EXPECT_FALSE(GetLock(file_));
    }
}

TEST_F(Metadata, AMacsSidecar_GivesFinderInfoWhereThereIsNoAttribute) {
    WriteFile(SidecarOf(file_), AppleDouble({{9, 50, FinderInfo("TEXTttxt") + std::string(3728, 'a')},
                                             {2, 3810, std::string(286, 'r')}}));
    EXPECT_EQ(GetType(file_), "TEXTttxt");
    SetAttribute(file_, ServersAttribute(FinderInfo("PDF prvw"), 0, 0, 0));
    EXPECT_EQ(GetType(file_), "PDF prvw");
}

TEST_F(Metadata, BrokenSidecar_GivesNoFinderInfo) {
    WriteFile(SidecarOf(file_), AppleDouble({{9, 50, FinderInfo("TEXTttxt")}}).substr(0, 70));
    EXPECT_EQ(GetType(file_), kNoType);
    EXPECT_EQ(ReadFile(file_), "12345");
}

TEST_F(Metadata, ALinkAsAnEntry_IsAFileOfItsOwnType) {
    ASSERT_EQ(symlink("file", (folder_ / "link").c_str()), 0);
    const FSCatalogInfo info = GetInfo(EntryRef(folder_ / "link"), kFSCatInfoGettableInfo);
    EXPECT_EQ(info.nodeFlags, 0);
    EXPECT_EQ(std::memcmp(info.finderInfo, "slnkrhap\0\0\0\0\0\0\0\0", 16), 0);
    EXPECT_EQ(info.dataLogicalSize, 4u);
    EXPECT_EQ(info.permissions.mode & S_IFMT, S_IFLNK);
}

TEST_F(Metadata, PipesAndSockets_AreToldOfWithoutBeingOpened) {
    ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    const FSCatalogInfo info = GetInfo(folder_ / "pipe", kFSCatInfoGettableInfo);
    EXPECT_EQ(info.nodeFlags, 0);
    EXPECT_EQ(info.permissions.mode, S_IFIFO | 0600);
}

TEST_F(Metadata, AnObjectThatIsGone_IsNotFound) {
    const Place place = PlaceOf(file_);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    FSCatalogInfo info = {};
    EXPECT_EQ(FillCatalogInfo(place, kFSCatInfoNodeFlags, info), fnfErr);
}

TEST_F(Metadata, Spec_HoldsVolumeParentNameAndReference) {
    const FSRef ref = RefTo(file_);
    FSSpec spec;
    ASSERT_EQ(FillSpec(PlaceOf(file_), ref, spec), noErr);
    const FSCatalogInfo info = GetInfo(file_, kFSCatInfoVolume | kFSCatInfoParentDirID);
    EXPECT_EQ(spec.vRefNum, info.volume);
    EXPECT_EQ(+spec.parID, static_cast<int32_t>(info.parentDirID));
    EXPECT_EQ(std::memcmp(spec.name, "\4file", 5), 0);
    EXPECT_EQ(std::memcmp(&spec.ref, &ref, sizeof(ref)), 0);
}

TEST_F(Metadata, SpecOfANameThatDoesNotFit_HasNoName) {
    struct {
        std::string name;
        std::string expected;
    } const cases[] = {
        {std::string(63, 'n'), "\x3F" + std::string(63, 'n')},
        {std::string(64, 'n'), std::string(1, '\0')},
        {"caf\xC3\xA9", "\4caf\x8E"},
        {"\xE6\x97\xA5", std::string(1, '\0')},
        {"e\xCC\x81", std::string(1, '\0')},    // would read back as one letter
        {"\xE2\x84\xA6", std::string(1, '\0')}, // the ohm sign would read back as Omega
        {"a:b", "\3a/b"},
    };
    for (const auto& each : cases) {
        const std::string path = folder_ / each.name;
        WriteFile(path, "");
        FSSpec spec;
        ASSERT_EQ(FillSpec(PlaceOf(path), RefTo(path), spec), noErr);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(spec.name), each.expected.size()), each.expected);
    }
}

TEST(MetadataWithoutAttributes, SidecarOfAMac_IsUnderstood) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    WriteFile(volume / "._x", AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}}));
    const FSCatalogInfo info = GetInfo(volume / "x", kFSCatInfoGettableInfo);
    EXPECT_EQ(std::memcmp(info.finderInfo, "TEXTttxt", 8), 0);
    EXPECT_EQ(info.nodeFlags, 0);
    EXPECT_EQ(SecondsOf(info.createDate), 0); // the volume keeps no birth times
    EXPECT_EQ(info.rsrcLogicalSize, 8u);
}
