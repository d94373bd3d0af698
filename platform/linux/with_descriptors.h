// Inside the provider: operations that open descriptors or make something, and what to do when the process has run out of
// the one or the volume of room for the other.
#pragma once

#include "platform/linux/errors.h"
#include "platform/linux/references.h"
#include "platform/linux/trees.h"

// Runs the operation, once more with what is only held for speed given back if there was none left. In place, see Retry.
template <typename Operation>
[[gnu::always_inline]] inline OSErr WithDescriptors(Operation operation) {
    const OSErr result = operation();
    const bool isFreed =
        (result == tmfoErr && CloseIdleDescriptors()) || (result == dskFulErr && GiveRoomBack());
    return isFreed ? operation() : result;
}

// The same for a single call that gives a descriptor, or -1 with the cause for LastError().
template <typename Open>
int OpenSparingly(Open open) {
    int descriptor = open();
    if (descriptor < 0 && LastError() == tmfoErr && CloseIdleDescriptors()) descriptor = open();
    return descriptor;
}

// The same for a single call that puts something on a volume.
template <typename Call>
auto WithRoom(Call call) {
    auto result = call();
    if (result < 0 && LastError() == dskFulErr && GiveRoomBack()) result = call();
    return result;
}
