// What opening flags mean to the platform.
#pragma once

#include <cstdint>

// The permission to open a fork with: bit 0 for reading, bit 1 for writing, the current permission for
// neither.
int32_t GetOpenFlags(uint32_t flags);
