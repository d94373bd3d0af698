// Inside the provider: bytes of an open fork of any kind.
#pragma once

#include "platform/linux/fork_table.h"
#include "platform/linux/sidecar.h"

// Makes an open sidecar's resource fork out of where it is now.
void SetExtent(OpenFork& fork, const Sidecar& sidecar, const Extent& extent);

// The size as it is now; for a resource fork the header is asked.
OSErr ForkSize(OpenFork& fork, int64_t& size);

// To be called when the fork is closed: writes what the file still lacks (see OpenFork::zeros).
OSErr SettleEndAtClose(OpenFork& fork);

// To be called then with the file's facts, whose mask may be 0: cuts off what has come behind its end.
OSErr CheckEnd(OpenFork& fork, const struct statx& facts);
