#include "support/references.h"

#include "platform/references.h"

#include <algorithm>
#include <stdexcept>

FSRef Reference(const std::string& path) {
    FSRef ref;
    OSStatus result = FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr);
    if (result != noErr) throw std::runtime_error("no reference for " + path + ": " + std::to_string(result));
    return ref;
}

std::string PathOf(const FSRef& ref) {
    char path[4096];
    OSStatus result = FSRefMakePath(&ref, reinterpret_cast<uint8_t*>(path), sizeof path);
    return result == noErr ? path : "";
}

HFSUniStr255 Name(const std::u16string& units) {
    HFSUniStr255 name{static_cast<uint16_t>(units.size()), {}};
    std::copy(units.begin(), units.end(), name.unicode);
    return name;
}
