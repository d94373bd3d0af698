// Inside the provider: what a thread knows and keeps while it copies or deletes a tree. Sections: the folders that it
// makes, the files that it reads, what is stored of those that it makes.
#pragma once

#include "platform/linux/appledouble.h"
#include "platform/linux/references.h"

// Whether the calling thread works on a tree.
bool IsInTree();

// ---- Folders

// Notes a folder that the calling thread has just made, while it makes a tree.
void NoteNewFolder(const Place& made);

// To be called when the calling thread has given an entry a name. One that a sidecar could have ends what is known of
// the folder.
void NoteName(const Place& named);

// Whether the folder is known to hold no orphaned sidecar: the calling thread has made it for this tree, and if
// anybody has put one there it was somebody else, meanwhile.
bool IsNewFolder(FolderID folder);

// ---- Files

// Whether the calling thread works on a tree, and has room for one more file.
bool CanOpenAhead();

// Takes over the descriptor of a regular file that was opened for reading when it was listed, so that its facts and
// its content cost one look at its name together; there must be room. It is closed if the process may need it.
void KeepOpenedAhead(const FSRef& ref, int descriptor);

// Gives up the descriptor of the file that `ref` stands for, and closes those that were listed before it; -1 when there
// is none.
int TakeOpenedAhead(const FSRef& ref);

// Closes them all; whether there were any.
bool CloseOpenedAhead();

// ---- Metadata

// To be called before a new file gets its first metadata, which is mostly the same as the last one's; see trees.cpp.
void KeepMetadataShared(const Place& made, const appledouble::Attribute& value);

// Gives up the room on the volume that this takes for the calling thread; true when there was any, so that what failed
// with -34 is worth another try.
bool GiveRoomBack();

// ---- The end

// Closes all that is open for speed only; whether there was any.
bool CloseWhatTreeHolds();

// Gives all of it back; may be called in a signal's handler while no operation runs.
void LeaveTree();
