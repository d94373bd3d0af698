// Resolving "." and ".." in a path text.
#pragma once

#include "TavPort.h"

#include <cstdint>

// Rewrites `path` in place; 0, with the path unspecified, when it climbs above its first separator, has 512
// separators or more, a ":" other than as its second unit, or a name that begins with ".". Paths are shorter
// than 65,536 units.
int32_t MyPathCanonicalize(TavChar* path);
