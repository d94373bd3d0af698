// Inside the provider: when a change time can be relied on.
#pragma once

#include <sys/stat.h>

// Whether a change made from now on is sure to show another time than this one: a change within the same tick
// of the file system's clock leaves no trace. `fineTimes` as in DeviceTraits.
bool IsSettled(const struct statx_timestamp& changed, bool fineTimes);
