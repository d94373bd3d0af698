// A device tree made up for a test: what the device library sees in place of this machine's.
#pragma once

#include <string>
#include <vector>

class DeviceTree {
public:
    DeviceTree();
    ~DeviceTree();
    DeviceTree(const DeviceTree&) = delete;
    DeviceTree& operator=(const DeviceTree&) = delete;

    struct Block {
        std::string path; // below /sys, "/devices/pci0000:00/…/block/sda/sda1"; the last part is the name
        std::string type; // "disk" or "partition"
        unsigned major;
        unsigned minor;
        std::vector<std::pair<std::string, std::string>> attributes = {};
        std::vector<std::pair<std::string, std::string>> properties = {};
    };
    void Add(const Block& device);

    // Lets one device stand on another, as a mapped or RAID volume does.
    void PutOn(const std::string& upper, const std::string& lower);

    // Changes what the device manager found out about a device.
    void SetProperty(const std::string& path, const char* key, const char* value);

    void Unplug(const std::string& path);

private:
    struct Bed;
    Bed* bed_;
};

// The machines of the tests, by the name of a disk.
void AddNvmeDisk(DeviceTree& tree);    // nvme0n1 with nvme0n1p1 and p2
void AddUsbStick(DeviceTree& tree);    // sdb with sdb1
void AddUsbDisk(DeviceTree& tree);     // sdc with sdc1: a hard disk in a case
void AddEmptyReader(DeviceTree& tree); // sdd: no card in it
void AddCD(DeviceTree& tree);          // sr0: a disc of data, no audio
void AddDVD(DeviceTree& tree);         // sr1: a writer with a finished DVD
void AddLoop(DeviceTree& tree);        // loop0
void AddMapped(DeviceTree& tree);      // dm-0 on nvme0n1p2 (adds the disk)
void AddRaid(DeviceTree& tree);        // md0 on sda1 and sde1, partitions of two disks

inline const std::string kNvme = "/devices/pci0000:00/0000:00:1d.0/0000:02:00.0/nvme/nvme0/nvme0n1";
inline const std::string kStick =
    "/devices/pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0/host4/target4:0:0/4:0:0:0/block/sdb";
inline const std::string kMapped = "/devices/virtual/block/dm-0";
inline const std::string kRaid = "/devices/virtual/block/md0";
