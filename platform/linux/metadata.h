// Inside the provider: what the catalog knows of an object beyond what the kernel tells: the lock bit, Finder
// information, dates; and the sidecar "._name" that stands beside a file and holds its resource fork.
#pragma once

#include "platform/catalog.h"
#include "platform/linux/references.h"

#include <cstdint>

// Fills the facts that `whichInfo` selects. `place.facts` holds what statx tells of them; where only the node
// flags are asked for, the type alone (STATX_TYPE).
OSErr FillCatalogInfo(const Place& place, FSCatalogInfoBitmap whichInfo, FSCatalogInfo& info);

// Stores the settable facts that `whichInfo` selects (-50 for others).
OSErr ApplyCatalogInfo(const Place& place, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info);

// Whether the object's lock bit is set. Needs no more of `place.facts` than the type.
bool IsLocked(const Place& place);

// Fills the older way of naming the object, with its reference inside.
OSErr FillSpec(const Place& place, const FSRef& ref, FSSpec& spec);

// Whether the entry `name` is the sidecar of another entry: "._x", a regular file that begins with the
// AppleDouble magic, beside an existing "x". Cheap for every name that does not begin with "._".
bool IsSidecar(int folder, const char* name);

// -48 when a new object named `name` would adopt an orphan "._name", or when an object that brings a sidecar
// along could not place it there; 0 otherwise.
OSErr CheckSidecarPlace(int folder, const char* name);

// Removes the sidecar of `name`, which has just been deleted; 0 when there is none.
OSErr RemoveSidecar(int folder, const char* name);

// Takes the sidecar along after its file has gone from one name to another; 0 when there is none, -48 when
// the new place is taken. Nothing has changed on failure.
OSErr RenameSidecar(int folder, const char* name, int newFolder, const char* newName);

// Counts the sidecars that these operations have made, whether in place of an attribute or for a resource fork, so that
// a folder seen without sidecars is known to be still without them.
uint64_t SidecarsMade();
