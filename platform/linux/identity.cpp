// Identity of objects, from statx.
// The platform's volumes give every object a number for life. Here the inode number is given again after a
// deletion, so the birth time tells the new object from the old; some file systems make numbers up as they go
// and have neither.
#include "platform/linux/identity.h"

#include <cstring>
#include <linux/magic.h>

constexpr unsigned long long kFuse = 0x65735546;
constexpr unsigned long long kExFat = 0x2011BAB0;
constexpr unsigned long long kOverlay = 0x794C7630;
constexpr unsigned long long kXfs = 0x58465342;
constexpr unsigned long long kF2fs = 0xF2F52010;
constexpr unsigned long long kZfs = 0x2FC12FC1;

DeviceTraits TraitsOfFileSystem(unsigned long long magic) {
    switch (magic) {
    case kFuse:
    case kExFat:
    case MSDOS_SUPER_MAGIC:
        return {false, true, false};
    case kOverlay:
        return {true, false, true};
    case EXT4_SUPER_MAGIC: // ext2 and ext3, too
    case BTRFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case RAMFS_MAGIC:
    case kXfs:
    case kF2fs:
    case kZfs:
        return {true, true, true};
    default:
        return {true, true, false};
    }
}

uint32_t DeviceOf(const struct statx& facts) {
    return facts.stx_dev_major << 20 | facts.stx_dev_minor;
}

uint32_t MountOf(const struct statx& facts) {
    return facts.stx_mask & STATX_MNT_ID ? static_cast<uint32_t>(facts.stx_mnt_id) : DeviceOf(facts);
}

static uint64_t BirthOf(const struct statx& facts) {
    if (!(facts.stx_mask & STATX_BTIME)) return 0;
    return static_cast<uint64_t>(facts.stx_btime.tv_sec) * 1000000000u + facts.stx_btime.tv_nsec;
}

Identity IdentityOf(const struct statx& facts, const DeviceTraits& traits) {
    Identity identity;
    identity.device = DeviceOf(facts);
    identity.type = static_cast<uint16_t>(facts.stx_mode & S_IFMT);
    identity.byNumber = traits.stableInodes;
    if (traits.stableInodes) identity.inode = facts.stx_ino;
    if (traits.stableInodes && traits.stableBirths) identity.birth = BirthOf(facts);
    return identity;
}

bool Matches(const Identity& identity, const struct statx& facts) {
    if (identity.device != DeviceOf(facts) || identity.type != (facts.stx_mode & S_IFMT)) return false;
    if (!identity.byNumber) return true;
    if (identity.inode != facts.stx_ino) return false;
    uint64_t birth = BirthOf(facts);
    return identity.birth == 0 || birth == 0 || identity.birth == birth;
}

uint64_t HashName(const char* name, size_t length) {
    uint64_t hash = length;
    while (length > 0) { // eight bytes at a time
        uint64_t word = 0;
        size_t step = length < sizeof word ? length : sizeof word;
        std::memcpy(&word, name, step);
        hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 32;
        name += step;
        length -= step;
    }
    return hash;
}
