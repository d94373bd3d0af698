#include "paths/drives.h"
#include "platform/catalog.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/private_mounts.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <vector>

using Roots = std::vector<std::string>;
using Units = std::vector<TavChar>;

static constexpr TavChar kGuard = 0x5A5A;

static std::string Root(const std::string& path) {
    TavChar out[1025];
    std::fill(std::begin(out), std::end(out), kGuard);
    if (!TavPathGetRoot(Wide(path).c_str(), out)) return "none";
    EXPECT_TRUE(std::all_of(out + tav_wcslen(out) + 1, std::end(out), [](TavChar u) { return u == kGuard; }))
        << path;
    return Narrow(out);
}

static int32_t SameRoot(const std::string& path1, const std::string& path2) {
    return TavPathIsSameRoot(Wide(path1).c_str(), Wide(path2).c_str());
}

static int32_t DriveType(const std::string& root) {
    return TavGetDriveType(Wide(root).c_str());
}

static Roots List(const TavChar* buffer) {
    Roots roots;
    for (; *buffer; buffer += tav_wcslen(buffer) + 1) roots.push_back(Narrow(buffer));
    return roots;
}

static FSVolumeRefNum VolumeOf(const std::string& path) {
    FSRef ref;
    FSCatalogInfo info{};
    EXPECT_EQ(FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr), noErr) << path;
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoVolume, &info, nullptr, nullptr, nullptr), noErr) << path;
    return info.volume;
}

class DrivesTest : public testing::Test {
protected:
    void SetUp() override { SKIP_IF_MISSING(mounts.Missing()); }
    PrivateMounts mounts;
};

// ---- TavGetLogicalDriveStrings ----

TEST_F(DrivesTest, ListOfTheStartupVolumeAlone_NeedsTwoUnits) {
    Units buffer(16, 0);
    EXPECT_EQ(TavGetLogicalDriveStrings(16, buffer.data()), 2u);
    EXPECT_EQ(List(buffer.data()), Roots{"/"});
}

TEST_F(DrivesTest, List_HasEveryRootWithItsSlashInOrder) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Two Words"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/\xC3\x9C"
                                      "berma\xC3\x9F"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data/Inner"));
    Units buffer(1000, 0);
    Roots roots{"/", "/Volumes/Data/", "/Volumes/Two Words/",
                "/Volumes/\xC3\x9C"
                "berma\xC3\x9F/",
                "/Volumes/Data/Inner/"};
    size_t needed = 0;
    for (const std::string& root : roots) needed += Wide(root).size() + 1;
    EXPECT_EQ(TavGetLogicalDriveStrings(1000, buffer.data()), needed);
    EXPECT_EQ(List(buffer.data()), roots);
}

TEST_F(DrivesTest, List_ShowsMountsThatComeAndGo) {
    Units buffer(100, 0);
    EXPECT_EQ(TavGetLogicalDriveStrings(100, buffer.data()), 2u);
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    EXPECT_EQ(TavGetLogicalDriveStrings(100, buffer.data()), 2u + 15u);
    mounts.Unmount("/Volumes/Data");
    EXPECT_EQ(TavGetLogicalDriveStrings(100, buffer.data()), 2u);
}

TEST_F(DrivesTest, ListBuffer_IsClearedInItsFirstHalfOnly) {
    Units buffer(100, kGuard);
    TavGetLogicalDriveStrings(100, buffer.data());
    EXPECT_EQ(buffer[2], 0);
    EXPECT_EQ(buffer[49], 0);
    EXPECT_EQ(buffer[50], kGuard);
    EXPECT_EQ(buffer[99], kGuard);
}

TEST_F(DrivesTest, ListInAShortBuffer_StillCountsAndSkipsTheOneThatDoesNotFit) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    Units buffer(100, kGuard);
    EXPECT_EQ(TavGetLogicalDriveStrings(10, buffer.data()), 2u + 15u);
    EXPECT_EQ(buffer[0], u'/');
    EXPECT_EQ(buffer[1], 0);
    EXPECT_EQ(std::count(buffer.begin() + 5, buffer.end(), kGuard), 95);
}

TEST_F(DrivesTest, ListBehindOneThatDidNotFit_IsWrittenAtItsPlaceRegardless) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Long-name"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/V"));
    Units buffer(100, kGuard);
    uint32_t first = 2;
    uint32_t second = static_cast<uint32_t>(Wide("/Volumes/Long-name/").size()) + 1;
    EXPECT_EQ(TavGetLogicalDriveStrings(4, buffer.data()), first + second + 4);
    EXPECT_EQ(buffer[first], kGuard);
    EXPECT_EQ(Narrow(buffer.data() + first + second), "/V/");
}

TEST_F(DrivesTest, ListOfLengthZero_WritesOnlyWhatComesSecond) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/V"));
    Units buffer(100, kGuard);
    EXPECT_EQ(TavGetLogicalDriveStrings(0, buffer.data()), 2u + 4u);
    EXPECT_EQ(buffer[0], kGuard);
    EXPECT_EQ(Narrow(buffer.data() + 2), "/V/");
}

TEST_F(DrivesTest, ListOfLengthZeroWithOneVolume_NeedsNoBuffer) {
    EXPECT_EQ(TavGetLogicalDriveStrings(0, nullptr), 2u);
}

TEST_F(DrivesTest, ListThatFitsToTheLastUnitWithoutItsZero_IsWritten) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/V"));
    Units buffer(100, kGuard);
    TavGetLogicalDriveStrings(5, buffer.data());
    EXPECT_EQ(Narrow(buffer.data() + 2), "/V/");
    EXPECT_EQ(buffer[6], kGuard);
}

// ---- Roots of paths ----

TEST_F(DrivesTest, PathOnAVolume_HasTheVolumesRoot) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    EXPECT_EQ(Root("/Volumes/Data/x"), "/Volumes/Data/");
    EXPECT_EQ(Root("/Volumes/Data"), "/Volumes/Data/");
    EXPECT_EQ(Root("/Volumes/Data/"), "/Volumes/Data/");
    EXPECT_EQ(Root("/volumes/DATA/x"), "/Volumes/Data/");
}

TEST_F(DrivesTest, PathThatOnlyBeginsLikeAVolume_IsOnTheStartupVolume) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    EXPECT_EQ(Root("/Volumes/Database/x"), "/");
    EXPECT_EQ(Root("/Volumes/Dat"), "/");
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Database"));
    EXPECT_EQ(Root("/Volumes/Database/x"), "/Volumes/Database/");
}

TEST_F(DrivesTest, PathElsewhere_IsOnTheStartupVolumeOrNowhere) {
    EXPECT_EQ(Root("/Users/x"), "/");
    EXPECT_EQ(Root("/"), "/");
    EXPECT_EQ(Root("~/x"), "/");
    EXPECT_EQ(Root("~"), "/");
    EXPECT_EQ(Root("x/y"), "none");
    EXPECT_EQ(Root(""), "none");
}

TEST_F(DrivesTest, PathOnANestedVolume_HasTheRootThatIsMountedFirst) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data/Inner"));
    EXPECT_EQ(Root("/Volumes/Data/Inner/x"), "/Volumes/Data/");
}

TEST_F(DrivesTest, AwkwardRoots_AreFound) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Two Words"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/\xC3\x9C"
                                      "berma\xC3\x9F"));
    EXPECT_EQ(Root("/Volumes/two words/x"), "/Volumes/Two Words/");
    EXPECT_EQ(Root("/Volumes/\xC3\x9C"
                   "BERMA\xC3\x9F/x"),
              "/Volumes/\xC3\x9C"
              "berma\xC3\x9F/");
    EXPECT_EQ(Root("/Volumes/\xC3\xBC"
                   "berma\xC3\x9F/x"),
              "/")
        << "only ASCII letters match in the other case";
}

// A volume may be mounted on a name that is no text; its odd bytes are lone surrogates, as in all names.
TEST_F(DrivesTest, RootThatIsNotText_IsListedAndFound) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/bad\xFF"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/good"));
    const std::u16string root = u"/Volumes/bad\xDCFF/";
    Units buffer(200, 0);
    EXPECT_EQ(TavGetLogicalDriveStrings(200, buffer.data()), 2 + (root.size() + 1) + 15);
    EXPECT_EQ(std::u16string(buffer.data() + 2), root);
    EXPECT_EQ(Narrow(buffer.data() + 2 + root.size() + 1), "/Volumes/good/");

    TavChar out[1025] = {};
    EXPECT_EQ(TavGetPathDriver(u"/Volumes/BAD\xDCFF/x", out), 1);
    EXPECT_EQ(std::u16string(out), root);
    EXPECT_EQ(TavPathIsSameRoot(u"/Volumes/bad\xDCFF/x", u"/Volumes/bad\xDCFF"), 1);
    EXPECT_EQ(TavPathIsSameRoot(u"/Volumes/bad\xDCFF/x", u"/Volumes/bad\xDCFE/x"), 0);
}

TEST_F(DrivesTest, RootlessPath_LeavesTheBufferAlone) {
    TavChar out[4] = {kGuard, kGuard, kGuard, kGuard};
    EXPECT_EQ(TavPathGetRoot(u"x/y", out), 0);
    EXPECT_EQ(out[0], kGuard);
    EXPECT_EQ(TavPathGetRoot(u"/x", out), 1);
    EXPECT_EQ(out[2], kGuard);
}

TEST_F(DrivesTest, PathDriver_IsTheRoot) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    TavChar out[1025] = {};
    EXPECT_EQ(TavGetPathDriver(u"/Volumes/Data/x/y", out), 1);
    EXPECT_EQ(Narrow(out), "/Volumes/Data/");
    EXPECT_EQ(TavGetPathDriver(u"y", out), 0);
}

TEST_F(DrivesTest, SameRoot_ComparesRootsOnly) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    EXPECT_EQ(SameRoot("/Users/a", "/tmp"), 1);
    EXPECT_EQ(SameRoot("~", "/"), 1);
    EXPECT_EQ(SameRoot("/Volumes/Data/a", "/volumes/data/b"), 1);
    EXPECT_EQ(SameRoot("/Volumes/Data/a", "/Volumes/Database"), 0);
    EXPECT_EQ(SameRoot("a", "a"), 0);
    EXPECT_EQ(SameRoot("/a", ""), 0);
}

// ---- Volumes by number ----

TEST_F(DrivesTest, Roots_AreComparedInAnyLetterCaseOfAnyLetters) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/\xC3\x89"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/\xC3\xA9"));
    EXPECT_EQ(SameRoot("/Volumes/\xC3\x89/a", "/Volumes/\xC3\xA9/b"), 1);
}

TEST_F(DrivesTest, MountPoint_IsWrittenWithoutTerminator) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    Units out(32, kGuard);
    ASSERT_EQ(GetMountPointPath(VolumeOf("/Volumes/Data"), out.data()), 1);
    EXPECT_EQ(Narrow({out.data(), 13}), "/Volumes/Data");
    EXPECT_EQ(out[13], kGuard);
    EXPECT_EQ(GetMountPointPath(32000, out.data()), 0);
}

TEST_F(DrivesTest, VolumeInfo_GivesWhatIsAskedFor) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    WriteFile("/Volumes/Data/file", std::string(64 * 1024, 'x'));
    FSVolumeRefNum volume = VolumeOf("/Volumes/Data");
    HFSUniStr255 name;
    uint64_t freeBytes = 0, totalBytes = 0;
    FSRef root;
    ASSERT_EQ(FSVolumeGetVInfo(volume, &name, &freeBytes, &totalBytes, &root), noErr);
    EXPECT_EQ(Narrow({name.unicode, name.unicode + name.length}), "Data");
    EXPECT_EQ(totalBytes, 1u << 20);
    EXPECT_LE(freeBytes, totalBytes - 64 * 1024);
    EXPECT_GT(freeBytes, 0u);
    EXPECT_EQ(FSVolumeGetVInfo(volume, nullptr, nullptr, nullptr, nullptr), noErr);
}

TEST_F(DrivesTest, VolumeInfo_GivesEachNumberOfBytesAlone) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    const FSVolumeRefNum volume = VolumeOf("/Volumes/Data");
    // Asked in between, so that nothing left from an earlier call can pass for an answer.
    const FSVolumeRefNum other = VolumeOf("/");
    uint64_t otherFree = 0, otherTotal = 0;
    uint64_t freeBytes = 1, totalBytes = 1, freeAlone = 2, totalAlone = 2;
    ASSERT_EQ(FSVolumeGetVInfo(volume, nullptr, &freeBytes, &totalBytes, nullptr), noErr);
    ASSERT_EQ(FSVolumeGetVInfo(other, nullptr, &otherFree, &otherTotal, nullptr), noErr);
    EXPECT_EQ(FSVolumeGetVInfo(volume, nullptr, &freeAlone, nullptr, nullptr), noErr);
    ASSERT_EQ(FSVolumeGetVInfo(other, nullptr, &otherFree, &otherTotal, nullptr), noErr);
    EXPECT_EQ(FSVolumeGetVInfo(volume, nullptr, nullptr, &totalAlone, nullptr), noErr);
    EXPECT_EQ(freeAlone, freeBytes);
    EXPECT_EQ(totalAlone, totalBytes);
    EXPECT_GT(freeBytes, 2u);
    EXPECT_LE(freeBytes, totalBytes);
}

TEST_F(DrivesTest, VolumeInfoOfNoVolume_LeavesTheNumbersAlone) {
    HFSUniStr255 name;
    uint64_t freeBytes = 7, totalBytes = 8;
    FSRef root;
    EXPECT_EQ(FSVolumeGetVInfo(32000, &name, &freeBytes, &totalBytes, &root), nsvErr);
    EXPECT_EQ(freeBytes, 7u);
    EXPECT_EQ(totalBytes, 8u);
}

// ---- Drive types without devices ----

TEST_F(DrivesTest, VolumeInMemory_IsOfUnknownType) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Memory"));
    EXPECT_EQ(DriveType("/Volumes/Memory/"), TAV_DRIVE_UNKNOWN);
    VolumeInfo info{7, 7};
    EXPECT_EQ(FSGetVolumeDriverType(VolumeOf("/Volumes/Memory"), &info), paramErr);
    EXPECT_EQ(info.mediaType, kMediaNone);
    EXPECT_EQ(info.mediaFlags, 7u) << "the flags are the caller's to clear";
}

TEST_F(DrivesTest, NoVolume_HasNoDriverType) {
    VolumeInfo info{7, 7};
    EXPECT_EQ(FSGetVolumeDriverType(32000, &info), nsvErr);
    EXPECT_EQ(info.mediaType, kMediaNone);
}

TEST_F(DrivesTest, WhatIsNoRoot_IsOfUnknownType) {
    std::string longest(1024, 'x');
    for (const std::string& path : {std::string(), std::string("x"), std::string("/nowhere/"),
                                    "/" + longest.substr(1), "/" + longest, longest.substr(0, 1023)})
        EXPECT_EQ(DriveType(path), TAV_DRIVE_UNKNOWN) << path.size();
}
