// The registry of translation keys: which folder a four-character key stands for.
#pragma once

#include "TavPort.h"
#include "vpath/owning_map.h"

// By the key as a signed number, its first character in the most significant byte.
using map_KeyPath = OwningMap<int32_t, FSRef>;

// The number of a key that lies in memory first character first, and the way back.
int32_t KeyNumber(const TavKey* key);
TavKey KeyInMemory(int32_t number);

extern "C" {

// The registry's copy of the folder of `*key`; null when it is not registered, and for null.
FSRef* Tav0TranPathGet(const TavKey* key);

} // extern "C"
