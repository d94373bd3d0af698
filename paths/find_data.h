// The record that searches fill.
#pragma once

#include "platform/catalog.h"

// Applications store and compare this record byte by byte.
static_assert(sizeof(TavFindDataW) == 592);
static_assert(offsetof(TavFindDataW, dwFileAttributes) == 0);
static_assert(offsetof(TavFindDataW, ftCreationTime) == 4);
static_assert(offsetof(TavFindDataW, ftLastAccessTime) == 12);
static_assert(offsetof(TavFindDataW, ftLastWriteTime) == 20);
static_assert(offsetof(TavFindDataW, nFileSizeHigh) == 28);
static_assert(offsetof(TavFindDataW, nFileSizeLow) == 32);
static_assert(offsetof(TavFindDataW, dwReserved0) == 36);
static_assert(offsetof(TavFindDataW, dwReserved1) == 40);
static_assert(offsetof(TavFindDataW, cFileName) == 44);
static_assert(offsetof(TavFindDataW, cAlternateFileName) == 564);

// What a record reports; nothing else has to be read of an item.
constexpr FSCatalogInfoBitmap kReportedInfo = kFSCatInfoNodeFlags | kFSCatInfoCreateDate |
                                              kFSCatInfoContentMod | kFSCatInfoAccessDate |
                                              kFSCatInfoFinderInfo | kFSCatInfoDataSizes;

// Fills the record for an item shown under a name. Bytes that say nothing of the item stay as they are.
void FillFindData(const FSCatalogInfo& info, bool isFolder, const TavChar* name, TavFindDataW& data);
