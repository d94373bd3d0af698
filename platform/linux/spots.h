// Where references say that their objects were seen.
#pragma once

#include "platform/linux/reference_record.h"

// Where to look: a folder and a name, of which perhaps only the hash is known.
struct Spot {
    FolderID folder;
    uint64_t nameHash;
    char name[256]; // empty when only the hash is known
};

// Takes a reference apart, and tells where its object was seen last: the table knows it for folders, the
// reference itself for others. False when the bytes are no reference or its folder number stands for another
// folder now.
bool LastSeen(const FSRef& ref, ReferenceRecord& record, Identity& identity, Spot& spot);
