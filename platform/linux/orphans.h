// Inside the provider: AppleDouble files that stood alone before an object came beside them, and so are not
// its sidecar.
#pragma once

#include <sys/stat.h>

// Whether the file was found so.
bool IsOrphan(int file, const struct statx& facts);

// Remembers that the file was found so: for good where the volume has attributes, else as long as this
// process lives and not too many others come after it.
void RememberOrphan(int file, const struct statx& facts);
