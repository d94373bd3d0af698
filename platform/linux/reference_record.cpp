// Packing of references. The check word tells bytes that were made here from invented ones; nothing depends
// on it for safety, since whatever a reference says is checked against the disk.
#include "platform/linux/reference_record.h"

#include <cstring>

static uint32_t CheckOf(const ReferenceRecord& record) {
    uint64_t words[sizeof record / 8];
    std::memcpy(words, &record, sizeof record);
    words[0] = record.parent; // beside it is the check itself
    // Each word on its own, so that the processor need not wait, and with another factor, so that none can change places.
    uint64_t sum = 0, factor = 0x9E3779B97F4A7C15u;
    for (uint64_t word : words) {
        const uint64_t product = (word ^ factor) * 0xD6E8FEB86659FD93u;
        sum += (product ^ product >> 29) * factor;
        factor += 0xD6E8FEB86659FD92u;
    }
    return static_cast<uint32_t>(sum >> 32) | 1;
}

FSRef Pack(const Identity& identity, FolderID parent, FolderID own, const char* name, bool fromPath) {
    ReferenceRecord record = {};
    size_t length = std::strlen(name);
    record.parent = parent;
    record.own = own;
    record.device = identity.device;
    record.inode = identity.inode;
    record.birth = identity.birth;
    record.nameHash = HashName(name, length);
    record.type = identity.type;
    record.flags = static_cast<uint8_t>((fromPath ? kFromPath : 0) | (identity.byNumber ? kByNumber : 0));
    record.nameLength = static_cast<uint8_t>(length);
    if (length <= ReferenceRecord::kInlineName) std::memcpy(record.name, name, length);
    record.check = CheckOf(record);
    FSRef ref;
    std::memcpy(&ref, &record, sizeof ref);
    return ref;
}

bool Unpack(const FSRef& ref, ReferenceRecord& record) {
    std::memcpy(&record, &ref, sizeof record);
    return record.check == CheckOf(record) && record.nameLength > 0;
}

Identity IdentityOf(const ReferenceRecord& record) {
    Identity identity;
    identity.inode = record.inode;
    identity.birth = record.birth;
    identity.device = record.device;
    identity.type = record.type;
    identity.byNumber = (record.flags & kByNumber) != 0;
    return identity;
}
