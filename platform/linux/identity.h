// What makes an object the same object: device, inode, birth time where there is one, and type. In place, because
// every operation on a file asks several times.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/stat.h>

// What a file system's numbers are worth.
struct DeviceTraits {
    bool stableInodes;             // else name and type are the identity
    bool stableBirths;             // overlays give an object a new birth when they copy it up
    bool fineTimes;                // change times come from the kernel's clock and are as fine as its ticks
    bool sharesAttributes = false; // equal attributes of several files are stored once
};

DeviceTraits TraitsOfFileSystem(unsigned long long magic);

struct Identity {
    uint64_t inode = 0;
    uint64_t birth = 0; // nanoseconds since 1970, 0 where there is none
    uint32_t device = 0;
    uint16_t type = 0;     // S_IFMT bits
    bool byNumber = false; // the inode number counts
};

inline uint32_t DeviceOf(const struct statx& facts) {
    return facts.stx_dev_major << 20 | facts.stx_dev_minor;
}

// The mount that an object is seen through; its device where the kernel does not tell mounts.
inline uint32_t MountOf(const struct statx& facts) {
    return facts.stx_mask & STATX_MNT_ID ? static_cast<uint32_t>(facts.stx_mnt_id) : DeviceOf(facts);
}

inline uint64_t BirthOf(const struct statx& facts) {
    if (!(facts.stx_mask & STATX_BTIME)) return 0;
    return static_cast<uint64_t>(facts.stx_btime.tv_sec) * 1000000000u + facts.stx_btime.tv_nsec;
}

inline Identity IdentityOf(const struct statx& facts, const DeviceTraits& traits) {
    Identity identity;
    identity.device = DeviceOf(facts);
    identity.type = static_cast<uint16_t>(facts.stx_mode & S_IFMT);
    identity.byNumber = traits.stableInodes;
    if (traits.stableInodes) identity.inode = facts.stx_ino;
    if (traits.stableInodes && traits.stableBirths) identity.birth = BirthOf(facts);
    return identity;
}

// Whether facts are those of the object. Without stable inodes the caller has looked under the object's name.
inline bool Matches(const Identity& identity, const struct statx& facts) {
    if (identity.device != DeviceOf(facts) || identity.type != (facts.stx_mode & S_IFMT)) return false;
    if (!identity.byNumber) return true;
    if (identity.inode != facts.stx_ino) return false;
    const uint64_t birth = BirthOf(facts);
    return identity.birth == 0 || birth == 0 || identity.birth == birth;
}

uint64_t HashName(const char* name, size_t length);
