// Inside the provider: bytes of an open fork of any kind.
#pragma once

#include "platform/linux/fork_table.h"
#include "platform/linux/sidecar.h"

// Makes an open sidecar's resource fork out of where it is now.
void SetExtent(OpenFork& fork, const Sidecar& sidecar, const Extent& extent);

// The size as it is now; for a resource fork the header is asked.
OSErr ForkSize(OpenFork& fork, int64_t& size);

// Does what is still to be done at the end of a new file (see OpenFork::zeros).
OSErr SettleEnd(OpenFork& fork);

// The same, and gets the open file's facts, whose mask is 0 when they could not be got. Where zeros were cut off, only
// somebody else's change is left to be undone, which the facts show.
OSErr LookAtEnd(OpenFork& fork, struct statx& facts);
