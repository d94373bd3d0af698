// Inside the provider: objects that were seen to have no metadata attribute, so that listing a folder again
// need not ask for each attribute again.
#pragma once

#include <sys/stat.h>

// Whether an object with these facts was seen without the attribute and has not changed since. False when
// `facts` do not tell inode and change time.
bool IsKnownBare(const struct statx& facts);

// To be called when the attribute was found missing after `facts` were read. `fineTimes` as in DeviceTraits;
// forgotten at once where a change right after this would not show.
void RememberBare(const struct statx& facts, bool fineTimes);
