// Listing folders through the exported search functions.
#pragma once

#include "TavPort.h"

#include <string>
#include <vector>

// A find-data record with guard bytes behind it.
struct FoundItem {
    FoundItem();
    std::u16string name() const { return data.cFileName; }
    uint64_t size() const { return uint64_t(data.nFileSizeHigh) << 32 | data.nFileSizeLow; }
    bool Intact() const; // nothing behind the record was written

    TavFindDataW data;
    uint8_t guard[64];
};

// Everything that a search finds, in its order; empty when it finds nothing.
std::vector<FoundItem> FindAll(const std::u16string& path);
std::vector<FoundItem> FindAll(const std::string& path);

// The names of everything behind the first entry, sorted.
std::vector<std::string> NamesBehindFirst(const std::string& path);

// The item of that name; its name is empty when there is none.
FoundItem Find(const std::vector<FoundItem>& items, const std::u16string& name);
