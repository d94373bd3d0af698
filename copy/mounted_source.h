// A source that is seen through another mount than the folder that its copy replaces.
#pragma once

#include "platform/types.h"

// -1234 when the folder `source` lies in the folder `replaced`, or is it, though the way up from it leads out of
// another mount of the same volume and never meets `replaced`; an error when that cannot be told. For two that
// FSCompareFSRefs finds different (-1420), not on unrelated volumes (-1303). Costs a look at every folder of
// `replaced`, only if they are on different mounts.
OSErr CheckForMountedSource(const FSRef* source, const FSRef* replaced);
