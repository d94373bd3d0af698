// Paths: walking them folder by folder, and the numbers of the folders that they lead to.
#pragma once

#include "platform/linux/references.h"

#include <string>
#include <vector>

// Walks a path from a folder; one that begins with "/" begins at the root. Links on the way are followed, the
// last one when `followLast` says so. With `caseless`, names that the path itself gives are looked for
// without regard to case where they do not exist as written. -43 when a name is missing, -1407 for a file in
// a folder's place.
struct WalkOptions {
    bool followLast = false;
    bool caseless = false;
};
OSErr WalkPath(FolderID start, std::string path, WalkOptions options, Place& place);

// The number of the folder that an absolute path leads to.
OSErr FolderAtPath(const char* path, size_t length, FolderID& id);

// What a link leads to in the end.
OSErr FollowLink(const Place& link, Place& target);

// The folders that paths lead to now which led to folder `id` lately; throws std::bad_alloc.
std::vector<FolderID> FoldersInPlaceOf(FolderID id);
