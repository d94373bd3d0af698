// The parts of the Finder information that copying reads and changes; it is kept in big-endian bytes on every
// host.
#pragma once

#include "copy/object_copy.h"

#include <cstring>

constexpr char kBusyType[] = "bzy ";
constexpr char kLinkType[] = "slnk";
constexpr char kLinkCreator[] = "rhap";

inline bool IsLink(const FSCatalogInfo& info) {
    return std::memcmp(info.finderInfo, kLinkType, 4) == 0 &&
           std::memcmp(info.finderInfo + 4, kLinkCreator, 4) == 0;
}

// Clears the flag "has been placed", so that the Finder places the copy afresh. Files and folders have their
// flags in the same place.
inline void ClearHasBeenPlaced(FSCatalogInfo& info) {
    info.finderInfo[8] &= static_cast<uint8_t>(~(kFinderHasBeenPlaced >> 8));
}
