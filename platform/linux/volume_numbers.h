// Volume numbers: what the catalog and the volume list call the file system that an object is on.
#pragma once

#include "platform/types.h"

#include <cstdint>
#include <sys/stat.h>
#include <sys/sysmacros.h>

// A number is made from the mount's own, so that no table has to be asked and threads in other mount
// namespaces get the same. Like a mount's number, it may be given again when the volume has gone. From -1
// downwards.
inline FSVolumeRefNum VolumeNumber(uint64_t mount) {
    return static_cast<FSVolumeRefNum>(-1 - static_cast<int32_t>(mount % 32767));
}

// The volume of an object whose facts were asked with kFactsMask. Kernels that do not tell the mount's number
// have the device's instead.
inline FSVolumeRefNum VolumeNumber(const struct statx& facts) {
    bool known = facts.stx_mask & STATX_MNT_ID;
    return VolumeNumber(known ? facts.stx_mnt_id : makedev(facts.stx_dev_major, facts.stx_dev_minor));
}
