// The reference object: a count of holders and, in the same block, the path.
#pragma once

#include "TavPort.h"

#include <cstdint>

struct OpacTavFSRef {
    int32_t count;

    TavChar* Path() { return reinterpret_cast<TavChar*>(this + 1); }
    const TavChar* Path() const { return reinterpret_cast<const TavChar*>(this + 1); }
};

static_assert(sizeof(OpacTavFSRef) == 4);

// A new reference to `path` with one holder, or null.
OpacTavFSRef* NewReference(const TavChar* path);

// One holder more.
void AddReference(OpacTavFSRef* r);

// One holder less; the number of those left.
int32_t DeReference(OpacTavFSRef* r);

// Frees the block.
void Free(OpacTavFSRef* r);
