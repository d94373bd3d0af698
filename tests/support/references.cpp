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
    uint8_t path[8192];
    const OSStatus result = FSRefMakePath(&ref, path, sizeof path);
    return result == noErr ? reinterpret_cast<char*>(path) : "error " + std::to_string(result);
}

HFSUniStr255 Name(const std::u16string& units) {
    HFSUniStr255 name{static_cast<uint16_t>(units.size()), {}};
    std::copy(units.begin(), units.end(), name.unicode);
    return name;
}
