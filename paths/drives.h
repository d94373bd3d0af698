// Volumes as drives: roots of paths, mount points and kinds of media.
#pragma once

#include "platform/io_registry.h"
#include "platform/volumes.h"

// What a volume's medium is; the flags are only ever added to.
struct VolumeInfo {
    uint32_t mediaType;
    uint32_t mediaFlags;
};

constexpr uint32_t kMediaNone = 0;
constexpr uint32_t kMediaFixed = 1;
constexpr uint32_t kMediaRemovable = 2;
constexpr uint32_t kMediaCD = 3;
constexpr uint32_t kMediaDVD = 4;

constexpr uint32_t kMediaWritable = 0x01;
constexpr uint32_t kMediaEjectable = 0x10;

extern "C" {

// The root that a path lies on, with a trailing "/", into `out` (room for a whole path and a "/"). 0 for a
// path that does not begin with "/" or "~" and lies on no volume.
int32_t TavPathGetRoot(const TavChar* path, TavChar* out);

// Writes the root path of a volume, without a terminator: the caller has zeroed `out`. 0 for no such volume.
int32_t GetMountPointPath(FSVolumeRefNum volume, TavChar* out);

// Name, free and total bytes, and root folder of a volume; every output may be null.
OSErr FSVolumeGetVInfo(FSVolumeRefNum volume, HFSUniStr255* name, uint64_t* freeBytes, uint64_t* totalBytes,
                       FSRef* root);

// Finds the kind of medium that a volume lies on. Zeroes only the type; the caller has zeroed the flags.
OSErr FSGetVolumeDriverType(FSVolumeRefNum volume, VolumeInfo* info);

// The same for the device of that name; -50 when nothing can be looked for.
OSErr GetAdditionalVolumeInfo(mach_port_t masterPort, const char* bsdName, VolumeInfo* info);

// Looks at an entry and then at its ancestors until one is a whole medium. The entry stays the caller's.
void FindServiceMedia(io_registry_entry_t entry, VolumeInfo* info);

// Fills in what an entry is, when it is a whole medium.
void GetMediaServierType(io_registry_entry_t entry, VolumeInfo* info);

} // extern "C"
