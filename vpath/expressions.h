// Path expressions: growable texts that name a place symbolically, and how they grow.
#pragma once

#include "TavPort.h"

#include <cstddef>

// The text is bounded by `length`, not by a terminator. `length` never exceeds `capacity`.
struct OpacTavFSExp {
    uint32_t length = 0;
    uint32_t capacity = 0;
    TavChar* storage = nullptr;

    OpacTavFSExp() = default;
    ~OpacTavFSExp();
    OpacTavFSExp(const OpacTavFSExp&) = delete;
    OpacTavFSExp& operator=(const OpacTavFSExp&) = delete;
};

static_assert(offsetof(OpacTavFSExp, capacity) == 4);
static_assert(offsetof(OpacTavFSExp, storage) == 8);

// Makes room for `neededUnits` in all and returns where the next unit goes; the caller writes there and
// raises the length itself. The block at least doubles. Null, with the expression as it was, when memory is
// short.
TavChar* AdjustStorageAndGetAppend(OpacTavFSExp* e, int32_t neededUnits);

// Sees to a "\" at the end; false, with the text as it was, when it needs one and memory is short.
bool AppendSlash(OpacTavFSExp* e);

// Takes one "\" off the end if there is one.
void RemoveSlash(OpacTavFSExp* e);
