// What the 80 bytes of a reference hold.
#pragma once

#include "platform/linux/identity.h"
#include "platform/linux/references.h"

struct ReferenceRecord {
    static constexpr size_t kInlineName = 36;

    uint32_t check;
    FolderID parent;
    FolderID own; // a folder's own number, else kNoFolder
    uint32_t device;
    uint64_t inode;
    uint64_t birth;
    uint64_t nameHash; // so wide that no two names of a folder share it by chance
    uint16_t type;
    uint8_t flags;
    uint8_t nameLength;     // 1 to 255; a name of more than kInlineName bytes is not here
    char name[kInlineName]; // not terminated
};
static_assert(sizeof(ReferenceRecord) == sizeof(FSRef));

constexpr uint8_t kFromPath = 1; // a link that came from a path
constexpr uint8_t kByNumber = 2; // the inode number counts

FSRef Pack(const Identity& identity, FolderID parent, FolderID own, const char* name, bool fromPath);

// False for bytes that no call of Pack has made.
bool Unpack(const FSRef& ref, ReferenceRecord& record);

Identity IdentityOf(const ReferenceRecord& record);
