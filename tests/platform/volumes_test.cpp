#include "platform/linux/volume_list.h"
#include "platform/references.h"
#include "platform/volumes.h"
#include "support/files.h"
#include "support/no_descriptors.h"
#include "support/private_mounts.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <thread>

static std::string PathOf(const FSRef& ref) {
    char path[1024];
    return FSRefMakePath(&ref, reinterpret_cast<uint8_t*>(path), sizeof path) == noErr ? path : "no path";
}

static std::string NameOf(const HFSUniStr255& name) {
    return Narrow({name.unicode, name.unicode + name.length});
}

class VolumesTest : public testing::Test {
protected:
    void SetUp() override { SKIP_IF_MISSING(mounts.Missing()); }

    static FSVolumeRefNum NumberAt(ItemCount index) {
        FSVolumeRefNum number = 0;
        EXPECT_EQ(FSGetVolumeInfo(kFSInvalidVolumeRefNum, index, &number, kFSVolInfoNone, nullptr, nullptr,
                                  nullptr),
                  noErr);
        return number;
    }

    PrivateMounts mounts;
};

TEST_F(VolumesTest, Index_GivesNumberNameAndRoot) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Two Words"));
    FSVolumeRefNum number;
    HFSUniStr255 name;
    FSRef root;
    ASSERT_EQ(FSGetVolumeInfo(0, 2, &number, kFSVolInfoNone, nullptr, &name, &root), noErr);
    EXPECT_EQ(PathOf(root), "/Volumes/Two Words");
    EXPECT_EQ(NameOf(name), "Two Words");
    EXPECT_LT(number, 0);
    FSRef again;
    ASSERT_EQ(FSGetVolumeInfo(number, 0, nullptr, kFSVolInfoNone, nullptr, nullptr, &again), noErr);
    EXPECT_EQ(FSCompareFSRefs(&root, &again), noErr);
}

TEST_F(VolumesTest, StartupVolume_IsTheFirst) {
    HFSUniStr255 name;
    FSRef root;
    ASSERT_EQ(FSGetVolumeInfo(0, 1, nullptr, kFSVolInfoNone, nullptr, &name, &root), noErr);
    EXPECT_EQ(PathOf(root), "/");
    EXPECT_EQ(NameOf(name), "/");
}

TEST_F(VolumesTest, IndexOrNumberOfNoVolume_IsNoSuchVolume) {
    FSRef root;
    EXPECT_EQ(FSGetVolumeInfo(0, 2, nullptr, kFSVolInfoNone, nullptr, nullptr, &root), nsvErr);
    EXPECT_EQ(FSGetVolumeInfo(0, 0, nullptr, kFSVolInfoNone, nullptr, nullptr, &root), nsvErr);
    EXPECT_EQ(FSGetVolumeInfo(32000, 0, nullptr, kFSVolInfoNone, nullptr, nullptr, nullptr), nsvErr);
}

TEST_F(VolumesTest, Sizes_AreThoseTheCallerMayUse) {
    SKIP_IF_MISSING(mounts.MountImage("/Volumes/Ext", "ext4"));
    FSVolumeInfo info;
    ASSERT_EQ(FSGetVolumeInfo(0, 2, nullptr, kFSVolInfoSizes, &info, nullptr, nullptr), noErr);
    struct statvfs sizes;
    ASSERT_EQ(statvfs("/Volumes/Ext", &sizes), 0);
    EXPECT_EQ(info.totalBytes, uint64_t{sizes.f_blocks} * sizes.f_frsize);
    EXPECT_EQ(info.freeBytes, uint64_t{sizes.f_bavail} * sizes.f_frsize);
    EXPECT_LT(info.freeBytes, uint64_t{sizes.f_bfree} * sizes.f_frsize) << "some is kept for the superuser";
}

TEST_F(VolumesTest, FactsNotAskedFor_StayAsTheyWere) {
    FSVolumeInfo info;
    memset(&info, 0x5A, sizeof info);
    FSVolumeInfo before = info;
    ASSERT_EQ(FSGetVolumeInfo(0, 1, nullptr, kFSVolInfoNone, &info, nullptr, nullptr), noErr);
    EXPECT_EQ(memcmp(&info, &before, sizeof info), 0);
}

TEST_F(VolumesTest, ParameterBlock_TakesIndexOrNumber) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    FSRef root;
    HFSUniStr255 name;
    FSVolumeInfo info;
    FSVolumeInfoParam block{};
    block.volumeIndex = 2;
    block.ref = &root;
    block.volumeName = &name;
    block.volumeInfo = &info;
    block.whichInfo = kFSVolInfoSizes;
    ASSERT_EQ(PBGetVolumeInfoSync(&block), noErr);
    EXPECT_EQ(PathOf(root), "/Volumes/Data");
    EXPECT_EQ(NameOf(name), "Data");
    EXPECT_EQ(info.totalBytes, 1u << 20);
    FSVolumeInfoParam byNumber{};
    byNumber.ioVRefNum = block.ioVRefNum;
    byNumber.ref = &root;
    ASSERT_EQ(PBGetVolumeInfoSync(&byNumber), noErr);
    EXPECT_EQ(PathOf(root), "/Volumes/Data");
    block.volumeIndex = 3;
    EXPECT_EQ(PBGetVolumeInfoSync(&block), nsvErr);
}

TEST_F(VolumesTest, OlderCall_GivesNumberAndShortName) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/\xC3\xA4\xE4\xB8\xAD-and-a-name-that-goes-on-for-long"));
    uint8_t name[256];
    HParamBlockRec block{};
    block.ioNamePtr = name;
    block.ioVolIndex = 2;
    ASSERT_EQ(PBHGetVInfoSync(&block), noErr);
    EXPECT_EQ(block.ioVRefNum, NumberAt(2));
    EXPECT_EQ(std::string(name + 1, name + 1 + name[0]), "\x8A?-and-a-name-that-goes-on-");
    block.ioVolIndex = 3;
    EXPECT_EQ(PBHGetVInfoSync(&block), nsvErr);
    block.ioNamePtr = nullptr;
    block.ioVolIndex = 1;
    ASSERT_EQ(PBHGetVInfoSync(&block), noErr);
    EXPECT_EQ(block.ioVRefNum, NumberAt(1));
}

TEST_F(VolumesTest, Parameters_OfALocalVolumeNameItsDevice) {
    SKIP_IF_MISSING(mounts.MountImage("/Volumes/Ext", "ext4"));
    GetVolParmsInfoBuffer parameters{};
    HParamBlockRec block{};
    block.ioVRefNum = NumberAt(2);
    block.ioBuffer = &parameters;
    block.ioReqCount = 32;
    ASSERT_EQ(PBHGetVolParmsSync(&block), noErr);
    EXPECT_EQ(block.ioActCount, sizeof parameters);
    EXPECT_EQ(+parameters.vMServerAdr, 0);
    EXPECT_EQ(parameters.vMAttrib & kVolParmsHasCopyFile, 0);
    EXPECT_EQ(+parameters.vMVolumeGrade, 0);
    ASSERT_TRUE(parameters.vMDeviceID);
    EXPECT_EQ(std::string(static_cast<const char*>(parameters.vMDeviceID)).substr(0, 4), "loop");
}

TEST_F(VolumesTest, Parameters_OfAVolumeInMemoryNameNoDevice) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Memory"));
    GetVolParmsInfoBuffer parameters{};
    HParamBlockRec block{};
    block.ioVRefNum = NumberAt(2);
    block.ioBuffer = &parameters;
    block.ioReqCount = 32;
    ASSERT_EQ(PBHGetVolParmsSync(&block), noErr);
    EXPECT_FALSE(parameters.vMDeviceID);
}

// More volumes than answers are kept for, asked in turn.
TEST_F(VolumesTest, Parameters_AreEachVolumesOwnHoweverOftenTheyAreAskedFor) {
    const std::vector<std::string> folders = {"/Volumes/One", "/Volumes/Two"};
    for (const std::string& folder : folders) SKIP_IF_MISSING(mounts.MountTmpfs(folder));
    for (int round = 0; round < 3; ++round) {
        for (ItemCount index = 1; index <= 3; ++index) {
            GetVolParmsInfoBuffer parameters{};
            HParamBlockRec block{};
            block.ioVRefNum = NumberAt(index);
            block.ioBuffer = &parameters;
            block.ioReqCount = sizeof parameters;
            ASSERT_EQ(PBHGetVolParmsSync(&block), noErr);
            EXPECT_EQ(+parameters.vMServerAdr, 0);
            const bool isInMemory = index > 1;
            EXPECT_TRUE(!isInMemory || !parameters.vMDeviceID) << round;
        }
    }
}

TEST_F(VolumesTest, ParametersBuffer_IsFilledOnlyAsFarAsAskedFor) {
    uint8_t buffer[64];
    memset(buffer, 0x5A, sizeof buffer);
    HParamBlockRec block{};
    block.ioVRefNum = NumberAt(1);
    block.ioBuffer = buffer;
    block.ioReqCount = 14;
    ASSERT_EQ(PBHGetVolParmsSync(&block), noErr);
    EXPECT_EQ(block.ioActCount, 14u);
    EXPECT_NE(buffer[13], 0x5A);
    EXPECT_EQ(buffer[14], 0x5A);
    block.ioVRefNum = 32000;
    EXPECT_EQ(PBHGetVolParmsSync(&block), nsvErr);
}

// A walk ends at the first error, so a volume that went bad must not end it for those behind it.
TEST_F(VolumesTest, VolumeThatCannotBeReached_DoesNotHideTheNext) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/A/Gone"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/B/Stays"));
    ASSERT_EQ(CurrentVolumes()->listed, 3u);
    // The folder above goes without the mount table changing.
    ASSERT_EQ(rename("/A", "/Elsewhere"), 0);
    FSRef root;
    EXPECT_EQ(FSGetVolumeInfo(0, 2, nullptr, kFSVolInfoNone, nullptr, nullptr, &root), noErr);
    EXPECT_EQ(PathOf(root), "/B/Stays");
    EXPECT_EQ(FSGetVolumeInfo(0, 3, nullptr, kFSVolInfoNone, nullptr, nullptr, &root), nsvErr);
    ASSERT_EQ(rename("/Elsewhere", "/A"), 0);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (CurrentVolumes()->listed < 3 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_EQ(FSGetVolumeInfo(0, 3, nullptr, kFSVolInfoNone, nullptr, nullptr, &root), noErr);
}

TEST_F(VolumesTest, WantOfDescriptors_TakesNoVolumeAway) {
    struct statx facts = {};
    if (statx(AT_FDCWD, "/", 0, STATX_MNT_ID, &facts) != 0 || !(facts.stx_mask & STATX_MNT_ID) ||
        facts.stx_mnt_id == 0)
        GTEST_SKIP() << "the numbers of mounts are told only through descriptors here";
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    ASSERT_EQ(CurrentVolumes()->listed, 2u);
    FSRef root;
    {
        const NoDescriptors none;
        const OSErr result = FSGetVolumeInfo(0, 2, nullptr, kFSVolInfoNone, nullptr, nullptr, &root);
        EXPECT_TRUE(result == noErr || result == tmfoErr) << result;
    }
    EXPECT_EQ(FSGetVolumeInfo(0, 2, nullptr, kFSVolInfoNone, nullptr, nullptr, &root), noErr);
}
