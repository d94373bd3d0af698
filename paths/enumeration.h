// The record behind a search handle.
#pragma once

#include "paths/buffers.h"
#include "platform/iterators.h"

// Zero-filled when a search begins; freed by TavFindClose.
struct TavFindSearch {
    FSIterator iterator;              // null until the first TavFindNextFile
    int32_t hasPattern;               // the search is for one exact name
    TavChar pattern[kPathBufferSize]; // that name
    TavChar path[kPathBufferSize];    // as given to TavFindFirstFile
};

static_assert(offsetof(TavFindSearch, iterator) == 0);
static_assert(offsetof(TavFindSearch, hasPattern) == sizeof(void*));
static_assert(offsetof(TavFindSearch, pattern) == sizeof(void*) + 4);
static_assert(offsetof(TavFindSearch, path) == sizeof(void*) + 4 + 2048);
