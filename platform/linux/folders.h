// Folders by number: opening them wherever they are now, and entering them in the table.
#pragma once

#include "platform/linux/current_task.h"
#include "platform/linux/identity.h"
#include "platform/linux/references.h"

// Runs a seam function's body; memory that cannot be had gives -108.
template <typename Body>
OSErr WithoutExceptions(Body body) {
    try {
        return body();
    } catch (...) {
        return memFullErr;
    }
}

// What the numbers are worth for an object found in a folder.
DeviceTraits TraitsOf(FolderID folder, const char* name, const struct statx& facts);

// Enters a folder found under a name in another; -108 when there is no room. The parent of "/" is
// kRootParent.
OSErr EnterFolder(FolderID parent, const char* name, const struct statx& facts, FolderID& id);

// A folder's own place, from the table, with fresh facts.
OSErr PlaceOfFolder(FolderID id, Place& place);

// Facts of a name in an open folder; -43 when it is not there.
OSErr FactsOfName(const FolderHandle& folder, const char* name, struct statx& facts);

// Looks through a folder for the object: under a name of that hash, else, when its number tells, under
// another name if it has only one link. -43 when it is not there or the folder may not be read.
OSErr FindInFolder(const FolderHandle& folder, const Identity& identity, uint64_t nameHash, char (&name)[256],
                   struct statx& facts);

// Notes where a folder is by climbing from it to "/", for a folder that others have moved somewhere else.
OSErr FindWayUp(FolderID id);

// Looks at a few of the folders in the table, once there are many, and takes those out that others have
// deleted. To be called whenever a folder has been added, so that the table stays within twice the folders
// that there are.
void SweepFolders();
