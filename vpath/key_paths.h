// Paths of registered folders, and paths told relative to them.
#pragma once

#include "TavPort.h"

// Buffers for whole paths, terminator included: units, and bytes in UTF-8.
constexpr uint32_t kPathUnits = 1024;
constexpr uint32_t kPathBytes = 1024;

// The size of a folder's path in units, terminator included; 0 for null and when it has none. Copies it to
// `buf` when that is not null and has room.
uint32_t _GetAbsPath(const FSRef* folder, TavChar* buf, uint32_t bufUnits);

// Copies a reference's path to a buffer of kPathUnits; false for null and when it does not fit.
bool ReadPath(const OpacTavFSRef* r, TavChar* buf);
