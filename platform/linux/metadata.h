// Inside the provider: what the catalog knows of an object beyond what the kernel tells: the lock bit, Finder
// information, dates; and the sidecar "._name" that stands beside a file and holds its resource fork.
#pragma once

#include "platform/catalog.h"
#include "platform/linux/appledouble.h"
#include "platform/linux/references.h"

#include <cstdint>

// Fills the facts that `whichInfo` selects; those that a failure keeps from being known have their defaults.
// `place.facts` holds what statx tells of them; where only the node flags are asked for, the type alone
// (STATX_TYPE). Where the caller knows that the folder holds no sidecars, Finder information is not looked for
// in one. `file` may be a descriptor of the object's data.
OSErr FillCatalogInfo(const Place& place, FSCatalogInfoBitmap whichInfo, FSCatalogInfo& info,
                      bool mayHaveSidecar = true, int file = -1);

// Stores the settable facts that `whichInfo` selects (-50 for others). On an object that is a link nothing
// but dates and owner is stored; what the volume cannot keep is dropped.
OSErr ApplyCatalogInfo(const Place& place, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info);
OSErr ApplyCatalogInfo(const FSRef& ref, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info);

// A file that has just been made and is open.
struct NewFile {
    int descriptor;
    bool isToBeKept;           // its dates may then wait (see KeepOwedDates)
    appledouble::Facts stored; // receives the facts in the metadata
    bool owesDates;            // receives whether its dates wait
};

// Completes an object that has just been made at `made`, a `file` or something that is not open: an orphan
// "._name" that was there before stays an ordinary entry for good instead of becoming its sidecar, and the
// facts are stored (`info` may be null when `whichInfo` selects none). A content-modification date among them
// holds while its forks are first written; unless it waits, `made` then tells the facts as they have become.
OSErr FurnishNewObject(Place& made, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* info,
                       NewFile* file = nullptr);

// 0 when the object is not locked, `refusal` when it is, else why that cannot be told. Needs no more of
// `place.facts` than the type.
OSErr CheckUnlocked(const Place& place, OSErr refusal);

// Fills the older way of naming the object, with its reference inside.
OSErr FillSpec(const Place& place, const FSRef& ref, FSSpec& spec);

// Whether the entry `name` is the sidecar of another entry: "._x", a regular file that begins with the
// AppleDouble magic, beside an existing "x". Cheap for every name that does not begin with "._".
bool IsSidecar(int folder, const char* name);

// The same as a result code: 0 when it is, -43 when it is an ordinary entry, -42 or -108 when that cannot be
// told.
OSErr FindSidecar(int folder, const char* name);

// To be asked before an object goes to another name: -48 when it has a sidecar whose place there is taken,
// -37 when the sidecar's name would be too long. `has` tells whether it has one.
OSErr CheckSidecarMove(int folder, const char* name, int newFolder, const char* newName, bool* has = nullptr);

// What an object that is to be deleted has beside it; unknown when looking failed.
enum class Beside { kNothing, kSidecar, kUnknown };

// To be asked before an object is deleted; -42 or -108 when there is not enough to look with.
OSErr CheckSidecarRemoval(int folder, const char* name, Beside& beside);

// Removes the sidecar of `name`, which has just been deleted; 0 when there is none. One that is known to be
// there and cannot be looked at any more is a failure, here and below.
OSErr RemoveSidecar(int folder, const char* name, bool isKnown = false);

// Takes the sidecar along after its file has gone from one name to another; 0 when there is none, and an
// orphan at the new name then stays an ordinary entry for good. -48 when the new place is taken. Nothing has
// changed on failure.
OSErr RenameSidecar(int folder, const char* name, int newFolder, const char* newName, bool isKnown = false);

// Counts the sidecars that these operations have made, whether in place of an attribute or for a resource
// fork, so that a folder seen without sidecars is known to be still without them.
uint64_t SidecarsMade();
