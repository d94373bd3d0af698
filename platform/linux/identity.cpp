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
        return {true, true, true, true};
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

uint64_t HashName(const char* name, size_t length) {
    uint64_t hash = length;
    auto add = [&hash](uint64_t word) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 32;
    };
    uint64_t word = 0;
    if (length < sizeof word) {
        for (size_t i = 0; i < length; ++i) word = word << 8 | static_cast<uint8_t>(name[i]);
        add(word);
        return hash;
    }
    for (size_t at = 0; at + sizeof word < length; at += sizeof word) {
        std::memcpy(&word, name + at, sizeof word);
        add(word);
    }
    std::memcpy(&word, name + length - sizeof word, sizeof word); // again a part of the one before
    add(word);
    return hash;
}
