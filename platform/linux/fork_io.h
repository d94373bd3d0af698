// Inside the provider: bytes of an open fork of any kind.
#pragma once

#include "platform/linux/fork_table.h"
#include "platform/linux/sidecar.h"

// Makes an open sidecar's resource fork out of where it is now.
void SetExtent(OpenFork& fork, const Sidecar& sidecar, const Extent& extent);

// The size as it is now; for a resource fork the header is asked.
OSErr ForkSize(OpenFork& fork, int64_t& size);

// Writes what a new file still lacks (see OpenFork::zeros).
OSErr SettleEnd(OpenFork& fork);
