// The registry of named values: which piece of path a name stands for.
#pragma once

#include "TavPort.h"
#include "vpath/owning_map.h"

// By the bytes of the name, letter case significant.
bool operator<(const MyStr16& a, const MyStr16& b);

using map_KeyPathSeg = OwningMap<MyStr16, TavChar>;

static_assert(sizeof(MyStr16) == 16);

extern "C" {

// The registry's text for `name`; null when it is not registered, and for null.
TavChar* Tav0FSValGet(const MyStr16* name);

// Counts one change of the registry.
void IncreaseFSVMA();

} // extern "C"
