#include "support/device_tree.h"

#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <umockdev.h>
#include <unistd.h>

// The libraries that make up the trees work with threads of their own, unseen by the thread sanitizer.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libumockdev.so\ncalled_from_lib:libglib-2.0.so\n";
}

struct DeviceTree::Bed {
    UMockdevTestbed* bed;
};

DeviceTree::DeviceTree() : bed_(new Bed{umockdev_testbed_new()}) {}

DeviceTree::~DeviceTree() {
    g_object_unref(bed_->bed);
    delete bed_;
}

// In the recorder's own text form, which also makes /sys/dev and the udev database.
void DeviceTree::Add(const Block& device) {
    std::string name = device.path.substr(device.path.rfind('/') + 1);
    std::string number = std::to_string(device.major) + ":" + std::to_string(device.minor);
    std::string text = "P: " + device.path + "\nN: " + name + "\nE: DEVNAME=/dev/" + name +
                       "\nE: DEVTYPE=" + device.type + "\nE: MAJOR=" + std::to_string(device.major) +
                       "\nE: MINOR=" + std::to_string(device.minor) + "\nE: SUBSYSTEM=block\n";
    for (const auto& [key, value] : device.properties) text += "E: " + key + "=" + value + "\n";
    text += "A: dev=" + number + "\\n\n";
    if (device.type == "partition") text += "A: partition=1\\n\n";
    for (const auto& [key, value] : device.attributes) text += "A: " + key + "=" + value + "\\n\n";
    text += "\n";
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(bed_->bed, text.c_str(), &error))
        throw std::runtime_error(error->message);
}

void DeviceTree::PutOn(const std::string& upper, const std::string& lower) {
    std::filesystem::path folder = "/sys" + upper + "/slaves";
    g_autofree char* root = umockdev_testbed_get_root_dir(bed_->bed);
    std::filesystem::path real = root + folder.string();
    umockdev_testbed_disable(bed_->bed);
    std::filesystem::create_directories(real);
    std::string name = lower.substr(lower.rfind('/') + 1);
    std::filesystem::create_symlink("../../../../../" + lower.substr(1), real / name);
    umockdev_testbed_enable(bed_->bed);
}

void DeviceTree::SetProperty(const std::string& path, const char* key, const char* value) {
    umockdev_testbed_set_property(bed_->bed, ("/sys" + path).c_str(), key, value);
}

void DeviceTree::Unplug(const std::string& path) {
    umockdev_testbed_remove_device(bed_->bed, ("/sys" + path).c_str());
}

static std::string Part(const std::string& disk, const char* part) {
    return disk + "/" + part;
}

void AddNvmeDisk(DeviceTree& tree) {
    tree.Add({kNvme,
              "disk",
              259,
              0,
              {{"size", "1000215216"}, {"removable", "0"}, {"ro", "0"}},
              {{"ID_MODEL", "Fast"}}});
    tree.Add({Part(kNvme, "nvme0n1p1"), "partition", 259, 1, {{"size", "1048576"}, {"ro", "0"}}});
    tree.Add({Part(kNvme, "nvme0n1p2"), "partition", 259, 2, {{"size", "999161856"}, {"ro", "0"}}});
}

void AddUsbStick(DeviceTree& tree) {
    tree.Add({kStick,
              "disk",
              8,
              16,
              {{"size", "30031872"}, {"removable", "1"}, {"ro", "0"}},
              {{"ID_BUS", "usb"}}});
    tree.Add({Part(kStick, "sdb1"), "partition", 8, 17, {{"size", "30029824"}, {"ro", "0"}}});
}

void AddUsbDisk(DeviceTree& tree) {
    std::string disk =
        "/devices/pci0000:00/0000:00:14.0/usb2/2-2/2-2:1.0/host5/target5:0:0/5:0:0:0/block/sdc";
    tree.Add({disk,
              "disk",
              8,
              32,
              {{"size", "1953525168"}, {"removable", "0"}, {"ro", "1"}},
              {{"ID_BUS", "usb"}}});
    tree.Add({disk + "/sdc1", "partition", 8, 33, {{"size", "1953521664"}, {"ro", "1"}}});
}

void AddEmptyReader(DeviceTree& tree) {
    tree.Add({"/devices/pci0000:00/0000:00:14.0/usb1/1-4/1-4:1.0/host6/target6:0:0/6:0:0:0/block/sdd",
              "disk",
              8,
              48,
              {{"size", "0"}, {"removable", "1"}, {"ro", "0"}},
              {{"ID_DRIVE_FLASH_SD", "1"}}});
}

void AddCD(DeviceTree& tree) {
    tree.Add({"/devices/pci0000:00/0000:00:1f.2/ata2/host1/target1:0:0/1:0:0:0/block/sr0",
              "disk",
              11,
              0,
              {{"size", "1310720"}, {"removable", "1"}, {"ro", "0"}},
              {{"ID_CDROM", "1"},
               {"ID_CDROM_CD", "1"},
               {"ID_CDROM_MEDIA", "1"},
               {"ID_CDROM_MEDIA_CD", "1"},
               {"ID_CDROM_MEDIA_STATE", "complete"},
               {"ID_CDROM_MEDIA_TRACK_COUNT_DATA", "1"}}});
}

void AddDVD(DeviceTree& tree) {
    tree.Add({"/devices/pci0000:00/0000:00:1f.2/ata3/host2/target2:0:0/2:0:0:0/block/sr1",
              "disk",
              11,
              1,
              {{"size", "9180416"}, {"removable", "1"}, {"ro", "0"}},
              {{"ID_CDROM", "1"},
               {"ID_CDROM_CD", "1"},
               {"ID_CDROM_CD_R", "1"},
               {"ID_CDROM_DVD", "1"},
               {"ID_CDROM_DVD_R", "1"},
               {"ID_CDROM_MEDIA", "1"},
               {"ID_CDROM_MEDIA_DVD", "1"},
               {"ID_CDROM_MEDIA_STATE", "complete"}}});
}

void AddLoop(DeviceTree& tree) {
    tree.Add(
        {"/devices/virtual/block/loop0", "disk", 7, 0, {{"size", "16384"}, {"removable", "0"}, {"ro", "0"}}});
}

void AddMapped(DeviceTree& tree) {
    AddNvmeDisk(tree);
    tree.Add({kMapped,
              "disk",
              254,
              0,
              {{"size", "999145472"}, {"removable", "0"}, {"ro", "0"}, {"dm/name", "root"}},
              {{"DM_NAME", "root"}}});
    tree.PutOn(kMapped, Part(kNvme, "nvme0n1p2"));
}

void AddRaid(DeviceTree& tree) {
    const char* ports[] = {"/devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/sda",
                           "/devices/pci0000:00/0000:00:17.0/ata5/host7/target7:0:0/7:0:0:0/block/sde"};
    const char* parts[] = {"sda1", "sde1"};
    tree.Add({kRaid, "disk", 9, 0, {{"size", "3906764800"}, {"removable", "0"}, {"ro", "0"}}});
    for (unsigned i = 0; i < 2; ++i) {
        tree.Add({ports[i], "disk", 8, 64 * i, {{"size", "3907029168"}, {"removable", "0"}, {"ro", "0"}}});
        tree.Add({Part(ports[i], parts[i]),
                  "partition",
                  8,
                  64 * i + 1,
                  {{"size", "3907027120"}, {"ro", "0"}},
                  {{"ID_FS_TYPE", "linux_raid_member"}}});
        tree.PutOn(kRaid, Part(ports[i], parts[i]));
    }
}
