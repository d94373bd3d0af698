// Inside the provider: operations that open descriptors, and what to do when the process has run out of them.
#pragma once

#include "platform/linux/references.h"

// Runs the operation, once more with those that are only held for speed given back if there were none left.
template <typename Operation>
OSErr WithDescriptors(Operation operation) {
    const OSErr result = operation();
    return result == tmfoErr && CloseIdleDescriptors() ? operation() : result;
}
