// Inside the provider: operations that open descriptors, and what to do when the process has run out of them.
#pragma once

#include "platform/linux/errors.h"
#include "platform/linux/references.h"

// Runs the operation, once more with those that are only held for speed given back if there were none left. In place, see
// Retry.
template <typename Operation>
[[gnu::always_inline]] inline OSErr WithDescriptors(Operation operation) {
    const OSErr result = operation();
    return result == tmfoErr && CloseIdleDescriptors() ? operation() : result;
}

// The same for a single call that gives a descriptor, or -1 with the cause for LastError().
template <typename Open>
int OpenSparingly(Open open) {
    int descriptor = open();
    if (descriptor < 0 && LastError() == tmfoErr && CloseIdleDescriptors()) descriptor = open();
    return descriptor;
}
