// What the device tree says about block devices.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

struct Media {
    bool isMedium = false; // a disk or partition; a drive without a medium is none
    bool isCD = false;
    bool isDVD = false;
    bool isWhole = false;
    bool isRemovable = false;
    bool isWritable = false;
    std::vector<std::string> foundations; // the disk of a partition, what a mapped or RAID volume stands on
};

// The device of that name, or null. What was found is remembered until something changes in the device tree.
// Throws when memory runs out.
std::shared_ptr<const Media> FindMedia(const std::string& name);

// The name of the block device with that number, "" for none; remembered likewise.
std::string DeviceName(dev_t device);
