#include "support/listing.h"

#include "support/files.h"

#include <algorithm>
#include <cstring>

FoundItem::FoundItem() {
    memset(&data, 0xA5, sizeof data);
    memset(guard, 0xA5, sizeof guard);
    data.cFileName[0] = 0;
}

bool FoundItem::Intact() const {
    return std::all_of(std::begin(guard), std::end(guard), [](uint8_t byte) { return byte == 0xA5; });
}

std::vector<FoundItem> FindAll(const std::u16string& path) {
    std::vector<FoundItem> items(1);
    TavFindSearch* search = TavFindFirstFile(path.c_str(), &items.back().data);
    if (search == TAV_INVALID_FIND) return {};
    do {
        items.emplace_back();
    } while (TavFindNextFile(search, &items.back().data));
    items.pop_back();
    TavFindClose(search);
    return items;
}

std::vector<FoundItem> FindAll(const std::string& path) {
    return FindAll(Wide(path));
}

std::vector<std::string> NamesBehindFirst(const std::string& path) {
    std::vector<std::string> names;
    std::vector<FoundItem> items = FindAll(path);
    for (size_t i = 1; i < items.size(); ++i) names.push_back(Narrow(items[i].name()));
    std::sort(names.begin(), names.end());
    return names;
}

FoundItem Find(const std::vector<FoundItem>& items, const std::u16string& name) {
    for (const FoundItem& item : items) {
        if (item.name() == name) return item;
    }
    return {};
}
