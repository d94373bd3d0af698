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

    const Volume* ByIndex(size_t index) const; // from 1; null when there is none
    const Volume* ByNumber(FSVolumeRefNum number) const;
};

// The table as it is now. It is read again only when a mount was made or undone, or the thread sees another
// root or mount namespace than the thread that asked last. Throws when memory runs out.
std::shared_ptr<const VolumeTable> CurrentVolumes();

// Takes a volume whose root cannot be reached any more off the list until mounts change, so that a walk by
// index goes on to those behind it.
void DropVolume(const std::shared_ptr<const VolumeTable>& table, FSVolumeRefNum number);
