// Drive types: volumes on loop devices, whose numbers a made-up device tree gives to other hardware.
#include "paths/drives.h"
#include "support/device_tree.h"
#include "support/files.h"
#include "support/private_mounts.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

static VolumeInfo MediaOf(const char* device) {
    VolumeInfo info{};
    mach_port_t port;
    EXPECT_EQ(IOMasterPort(MACH_PORT_NULL, &port), 0);
    EXPECT_EQ(GetAdditionalVolumeInfo(port, device, &info), noErr);
    mach_port_deallocate(mach_task_self(), port);
    return info;
}

#define EXPECT_MEDIA(device, type, flags)                                                                    \
    do {                                                                                                     \
        VolumeInfo info = MediaOf(device);                                                                   \
        EXPECT_EQ(info.mediaType, type);                                                                     \
        EXPECT_EQ(info.mediaFlags, flags);                                                                   \
    } while (false)

constexpr uint32_t kBoth = kMediaWritable | kMediaEjectable;

TEST(Media, NvmePartition_IsFixed) {
    DeviceTree tree;
    AddNvmeDisk(tree);
    EXPECT_MEDIA("nvme0n1p1", kMediaFixed, kMediaWritable);
    EXPECT_MEDIA("nvme0n1", kMediaFixed, kMediaWritable);
}

TEST(Media, UsbStick_IsRemovable) {
    DeviceTree tree;
    AddUsbStick(tree);
    EXPECT_MEDIA("sdb1", kMediaRemovable, kBoth);
}

TEST(Media, ReadOnlyUsbDisk_IsFixedWithoutFlags) {
    DeviceTree tree;
    AddUsbDisk(tree);
    EXPECT_MEDIA("sdc1", kMediaFixed, 0u);
}

TEST(Media, ReaderWithoutCard_IsNone) {
    DeviceTree tree;
    AddEmptyReader(tree);
    EXPECT_MEDIA("sdd", kMediaNone, 0u);
}

TEST(Media, Discs_AreOfTheirKind) {
    DeviceTree tree;
    AddCD(tree);
    AddDVD(tree);
    EXPECT_MEDIA("sr0", kMediaCD, kMediaEjectable);
    EXPECT_MEDIA("sr1", kMediaDVD, kMediaEjectable);
}

TEST(Media, Loop_IsFixed) {
    DeviceTree tree;
    AddLoop(tree);
    EXPECT_MEDIA("loop0", kMediaFixed, kMediaWritable);
}

TEST(Media, MappedVolume_IsWhatItStandsOn) {
    DeviceTree tree;
    AddMapped(tree);
    EXPECT_MEDIA("dm-0", kMediaFixed, kMediaWritable);
    AddUsbStick(tree);
    tree.Add({"/devices/virtual/block/dm-1",
              "disk",
              254,
              1,
              {{"size", "30000000"}, {"removable", "0"}, {"ro", "0"}}});
    tree.PutOn("/devices/virtual/block/dm-1", kStick + "/sdb1");
    EXPECT_MEDIA("dm-1", kMediaRemovable, kBoth);
}

TEST(Media, RaidVolume_IsFixed) {
    DeviceTree tree;
    AddRaid(tree);
    EXPECT_MEDIA("md0", kMediaFixed, kMediaWritable);
}

TEST(Media, UnknownDevice_IsNone) {
    DeviceTree tree;
    AddLoop(tree);
    EXPECT_MEDIA("sdz", kMediaNone, 0u);
}

TEST(Media, NoDevice_IsABadArgument) {
    VolumeInfo info{};
    EXPECT_EQ(GetAdditionalVolumeInfo(1, nullptr, &info), paramErr);
}

TEST(Media, Flags_AreOnlyAddedTo) {
    DeviceTree tree;
    AddUsbDisk(tree);
    VolumeInfo info{kMediaNone, kMediaEjectable};
    EXPECT_EQ(GetAdditionalVolumeInfo(1, "sdc1", &info), noErr);
    EXPECT_EQ(info.mediaType, kMediaFixed);
    EXPECT_EQ(info.mediaFlags, kMediaEjectable);
    AddLoop(tree);
    info = {kMediaNone, kMediaEjectable};
    EXPECT_EQ(GetAdditionalVolumeInfo(1, "loop0", &info), noErr);
    EXPECT_EQ(info.mediaFlags, kBoth);
}

// ---- Whole drives ----

class DriveTypeTest : public testing::Test {
protected:
    void SetUp() override {
        SKIP_IF_MISSING(mounts.Missing());
        SKIP_IF_MISSING(mounts.MountImage(kRoot, "ext4"));
        // The made-up tree takes "dev" in any folder for /dev while the current folder is "/".
        ASSERT_EQ(chdir("/tmp"), 0);
        struct stat facts;
        ASSERT_EQ(stat(kRoot, &facts), 0);
        device = facts.st_dev;
    }

    // Tells the device tree that the volume's device is another thing than the loop device it is.
    void Pretend(const std::string& path, const std::string& type,
                 const std::vector<std::pair<std::string, std::string>>& attributes,
                 const std::vector<std::pair<std::string, std::string>>& properties = {}) {
        tree.Add({path, type, major(device), minor(device), attributes, properties});
    }

    static constexpr const char* kRoot = "/Volumes/CD";
    PrivateMounts mounts;
    DeviceTree tree;
    dev_t device = 0;
};

TEST_F(DriveTypeTest, Disc_IsOptical) {
    Pretend("/devices/pci0000:00/ata2/block/sr0", "disk",
            {{"size", "16384"}, {"removable", "1"}, {"ro", "0"}},
            {{"ID_CDROM", "1"}, {"ID_CDROM_MEDIA", "1"}, {"ID_CDROM_MEDIA_CD", "1"}});
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD/"), TAV_DRIVE_CDROM);
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD"), TAV_DRIVE_CDROM);
    EXPECT_EQ(TavGetDriveType(u"/volumes/cd/"), TAV_DRIVE_CDROM);
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD/x"), TAV_DRIVE_UNKNOWN);
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD//"), TAV_DRIVE_UNKNOWN) << "one slash is taken off";
}

TEST_F(DriveTypeTest, DVD_IsOpticalToo) {
    Pretend("/devices/pci0000:00/ata2/block/sr0", "disk",
            {{"size", "16384"}, {"removable", "1"}, {"ro", "0"}},
            {{"ID_CDROM", "1"}, {"ID_CDROM_MEDIA", "1"}, {"ID_CDROM_MEDIA_DVD", "1"}});
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD/"), TAV_DRIVE_CDROM);
}

TEST_F(DriveTypeTest, Stick_IsRemovable) {
    std::string disk = "/devices/pci0000:00/usb2/block/sdb";
    tree.Add({disk, "disk", 8, 16, {{"size", "30031872"}, {"removable", "1"}, {"ro", "0"}}});
    Pretend(disk + "/sdb1", "partition", {{"size", "16384"}, {"ro", "0"}});
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD/"), TAV_DRIVE_REMOVABLE);
}

TEST_F(DriveTypeTest, InternalDisk_IsFixed) {
    Pretend("/devices/pci0000:00/virtio0/block/vda", "disk",
            {{"size", "16384"}, {"removable", "0"}, {"ro", "0"}});
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD/"), TAV_DRIVE_FIXED);
}

TEST_F(DriveTypeTest, UnpluggedDevice_IsUnknown) {
    EXPECT_EQ(TavGetDriveType(u"/Volumes/CD/"), TAV_DRIVE_UNKNOWN);
}

// ---- The start-up volume

// A root folder of its own, on the loop device.
class StartupDriveTest : public DriveTypeTest {
protected:
    void SetUp() override {
        DriveTypeTest::SetUp();
        if (IsSkipped()) return;
        for (const std::string name : {"/proc", "/sys", "/tmp"}) {
            std::filesystem::create_directory(kRoot + name);
            ASSERT_EQ(mount(name.c_str(), (kRoot + name).c_str(), nullptr, MS_BIND | MS_REC, nullptr), 0);
        }
        ASSERT_EQ(chroot(kRoot), 0);
        ASSERT_EQ(chdir("/tmp"), 0);
    }
};

TEST_F(StartupDriveTest, RootPath_IsComparedWithItsSlash) {
    std::string disk = "/devices/pci0000:00/usb2/block/sdb";
    tree.Add({disk, "disk", 8, 16, {{"size", "30031872"}, {"removable", "1"}, {"ro", "0"}}});
    Pretend(disk + "/sdb1", "partition", {{"size", "16384"}, {"ro", "0"}});
    EXPECT_EQ(TavGetDriveType(u"/"), TAV_DRIVE_REMOVABLE);
    EXPECT_EQ(TavGetDriveType(u""), TAV_DRIVE_UNKNOWN);
    EXPECT_EQ(TavGetDriveType(u"/tmp/nothing"), TAV_DRIVE_UNKNOWN);
    // kept: one slash is taken off a path of more than one unit.
    EXPECT_EQ(TavGetDriveType(u"//"), TAV_DRIVE_REMOVABLE);
}
