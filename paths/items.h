// How single items are shown.
#pragma once

#include "TavPort.h"

// 1 for a folder (by its node flags) that is not a package: people see a package as one file.
int32_t IsPlainFolder(const FSRef& ref, uint16_t nodeFlags);

// 1 when an item of this name is not shown to people: the name is empty or begins with ".".
int32_t TavMacIsInvisibleFile(const TavChar* name);
