// What makes an object the same object: device, inode, birth time where there is one, and type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/stat.h>

// What a file system's numbers are worth.
struct DeviceTraits {
    bool stableInodes; // else name and type are the identity
    bool stableBirths; // overlays give an object a new birth when they copy it up
    bool fineTimes;    // change times come from the kernel's clock and are as fine as its ticks
};

DeviceTraits TraitsOfFileSystem(unsigned long long magic);

struct Identity {
    uint64_t inode = 0;
    uint64_t birth = 0; // nanoseconds since 1970, 0 where there is none
    uint32_t device = 0;
    uint16_t type = 0;     // S_IFMT bits
    bool byNumber = false; // the inode number counts
};

uint32_t DeviceOf(const struct statx& facts);

// The mount that an object is seen through; its device where the kernel does not tell mounts.
uint32_t MountOf(const struct statx& facts);
Identity IdentityOf(const struct statx& facts, const DeviceTraits& traits);

// Whether facts are those of the object. Without stable inodes the caller has looked under the object's name.
bool Matches(const Identity& identity, const struct statx& facts);

uint64_t HashName(const char* name, size_t length);
