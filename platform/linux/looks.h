// Inside the provider: objects that a thread asks several questions about, looked at once.
#pragma once

#include "platform/linux/references.h"

// Locate for questions. While the thread's questions belong together, what it has seen of the object a moment
// ago will do.
OSErr LocateOnce(const FSRef& ref, Place& place);

// Whether the calling thread's questions belong together now.
bool QuestionsAreKept();

// Notes what a path has just shown of an object that is no link, if the thread's questions belong together.
void NoteLook(const FSRef& ref, FolderID folderID, const char* name, const struct statx& facts);
