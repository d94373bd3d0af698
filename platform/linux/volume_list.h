// The mounts of the calling thread's mount namespace, as volumes.
#pragma once

#include "platform/linux/volume_numbers.h"

#include <memory>
#include <string>
#include <vector>

struct Volume {
    FSVolumeRefNum number;
    dev_t device;
    std::string root; // absolute path of the folder (or file) that it is mounted on
    std::string type;
    std::string source;
    int32_t serverAddress; // 0 for a local volume
    bool serverCopies;
};

// A table never changes; when mounts do, there is a new one.
struct VolumeTable {
    std::vector<Volume> volumes; // those that a person would call disks first, in index order
    size_t listed = 0;           // how many of them those are
    // By MonotonicNow: earlier where a volume could not be reached, 0 when the mounts could not be read.
    uint64_t keptUntil = UINT64_MAX;

    const Volume* ByIndex(size_t index) const; // from 1; null when there is none
    const Volume* ByNumber(FSVolumeRefNum number) const;
};

// The table as it is now. It is read again only when a mount was made or undone, or the thread sees another
// root or mount namespace, or acts for another user, than the thread that asked last. A volume that could not
// be reached is looked for again after a second. Throws when memory runs out.
std::shared_ptr<const VolumeTable> CurrentVolumes();

// Takes a volume whose root cannot be reached off the list for a while, so that a walk by index goes on to
// those behind it.
void DropVolume(const std::shared_ptr<const VolumeTable>& table, FSVolumeRefNum number);
