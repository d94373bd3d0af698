// Sizes of the work buffers for paths.
#pragma once

#include <cstdint>

// Units (UTF-16) and bytes (UTF-8), terminator included.
constexpr uint32_t kPathBufferSize = 1024;

// Units by which TavPathRemoveFileSpec can lengthen a path: the parent of ".." is "../..".
constexpr uint32_t kParentGrowth = 3;
