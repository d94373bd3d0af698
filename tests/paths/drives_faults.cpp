// Whatever fails on the way to a drive's type or root, everything is given back and the answer is a
// documented one.
#include "paths/drives.h"
#include "support/faults.h"
#include "support/private_mounts.h"

#include <gtest/gtest.h>
#include <string>

static constexpr const TavChar* kRoot = u"/";

TEST(Drives, EachCallFailsInTurn_TypeIsUnknownOrRightAndNothingIsLeft) {
    int32_t whole = TavGetDriveType(kRoot);
    int32_t type = whole;
    unsigned runs = faults::FailEachCall({
        .scenario = [&] { type = TavGetDriveType(kRoot); },
        .check =
            [&](const std::string& failed) {
                if (failed.empty()) {
                    EXPECT_EQ(type, whole);
                } else {
                    // A property that cannot be had counts as false, so that a removable medium may pass for
                    // fixed.
                    EXPECT_TRUE(type == TAV_DRIVE_UNKNOWN || type == whole || type == TAV_DRIVE_FIXED)
                        << type;
                }
                EXPECT_EQ(TavGetDriveType(kRoot), whole) << "the next call works";
            },
    });
    EXPECT_GT(runs, 4u);
}

TEST(Drives, RegistryFails_ItsCodeIsTheResultAndThePortGoesBack) {
    FSVolumeRefNum volume = 0;
    ASSERT_EQ(FSGetVolumeInfo(0, 1, &volume, kFSVolInfoNone, nullptr, nullptr, nullptr), noErr);
    for (const char* operation : {"FSGetVolumeInfo", "PBHGetVolParmsSync"}) {
        faults::OpenObjects before = faults::Open();
        VolumeInfo info{7, 7};
        OSErr result;
        {
            faults::Injection fault({.call = 1, .code = ioErr, .operation = operation});
            result = FSGetVolumeDriverType(volume, &info);
            EXPECT_EQ(fault.fired(), 1u) << operation;
        }
        EXPECT_EQ(result, ioErr) << operation;
        EXPECT_EQ(info.mediaType, kMediaNone);
        EXPECT_EQ(faults::Open(), before) << operation;
    }
}

TEST(Drives, NoPort_LeavesTheRecordAlone) {
    VolumeInfo info{7, 7};
    faults::Injection fault({.call = 1, .code = -5, .operation = "IOMasterPort"});
    EXPECT_EQ(FSGetVolumeDriverType(-1, &info), -5);
    EXPECT_EQ(info.mediaType, 7u);
    EXPECT_EQ(info.mediaFlags, 7u);
    EXPECT_EQ(fault.calls("FSGetVolumeInfo"), 0u);
}

TEST(Drives, NoDictionary_IsABadArgument) {
    VolumeInfo info{};
    faults::Injection fault({.call = 1, .operation = "IOBSDNameMatching"});
    EXPECT_EQ(GetAdditionalVolumeInfo(1, "sda", &info), paramErr);
    EXPECT_EQ(fault.calls("IOServiceGetMatchingServices"), 0u);
}

TEST(Drives, MatchingFails_ResultIsNarrowed) {
    VolumeInfo info{};
    faults::Injection fault({.call = 1, .code = 0x12345, .operation = "IOServiceGetMatchingServices"});
    EXPECT_EQ(GetAdditionalVolumeInfo(1, "sda", &info), 0x2345);
}

TEST(Drives, ListWithAFailingVolume_EndsThere) {
    TavChar buffer[4096] = {};
    faults::Injection fault({.call = 1, .code = ioErr, .operation = "FSGetVolumeInfo"});
    EXPECT_EQ(TavGetLogicalDriveStrings(4096, buffer), 0u);
    EXPECT_EQ(buffer[0], 0);
}

// ---- One of several volumes fails

class SeveralDrives : public testing::Test {
protected:
    void SetUp() override {
        SKIP_IF_MISSING(mounts.Missing());
        SKIP_IF_MISSING(mounts.MountTmpfs("/Aa"));
        SKIP_IF_MISSING(mounts.MountTmpfs("/Bb"));
    }
    PrivateMounts mounts;
};

TEST_F(SeveralDrives, VolumeThatCannotBeAsked_DoesNotEndTheSearchForAType) {
    for (const char* operation : {"FSGetVolumeInfo", "FSRefMakePath"}) {
        faults::Injection fault({.call = 2, .code = ioErr, .operation = operation});
        TavGetDriveType(u"/Bb/");
        faults::Pause pause;
        EXPECT_EQ(fault.fired(), 1u) << operation;
        EXPECT_EQ(fault.calls("IOMasterPort"), 1u) << operation << ": the volume behind it was not found";
    }
}

TEST_F(SeveralDrives, RootWithoutText_IsLeftOutOfTheList) {
    for (const char* operation : {"FSRefMakePath", "CFStringCreateWithCString"}) {
        TavChar buffer[100] = {};
        faults::Injection fault({.call = 2, .code = ioErr, .operation = operation});
        const uint32_t needed = TavGetLogicalDriveStrings(100, buffer);
        faults::Pause pause;
        EXPECT_EQ(fault.fired(), 1u) << operation;
        EXPECT_EQ(needed, 2u + 5u) << operation;
        EXPECT_EQ(std::u16string(buffer, 7), std::u16string(u"/\0/Bb/\0", 7)) << operation;
    }
}

TEST_F(SeveralDrives, RootWithoutText_DoesNotEndTheSearchForARoot) {
    TavChar root[1025] = {};
    faults::Injection fault({.call = 2, .code = ioErr, .operation = "FSRefMakePath"});
    const int32_t found = TavPathGetRoot(u"/bb/x", root);
    faults::Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(std::u16string(root), u"/Bb/");
}

TEST(Drives, EachCallFailsInTurn_RootIsTheStartupVolumes) {
    TavChar root[1025] = {};
    int32_t found = 0;
    faults::FailEachCall({
        .scenario = [&] { found = TavPathGetRoot(u"/no/volume", root); },
        .check =
            [&](const std::string&) {
                EXPECT_EQ(found, 1);
                EXPECT_EQ(root[0], u'/');
                EXPECT_EQ(root[1], 0);
            },
    });
}

TEST(Drives, EachCallFailsInTurn_RootOfAPathIsTheRightOneOrNone) {
    TavChar root[1024] = {};
    int32_t found = 0, same = 0;
    const unsigned runs = faults::FailEachCall({
        .prepare = [&] { root[0] = 0; },
        .scenario =
            [&] {
                found = TavGetPathDriver(u"/", root);
                same = TavPathIsSameRoot(u"/", u"/");
            },
        .check =
            [&](const std::string& failed) {
                if (failed.empty()) {
                    EXPECT_EQ(found, 1);
                    EXPECT_EQ(same, 1);
                }
                if (found) {
                    EXPECT_EQ(std::u16string(root), u"/") << failed;
                }
            },
    });
    EXPECT_GT(runs, 0u);
}
