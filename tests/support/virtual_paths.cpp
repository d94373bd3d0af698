#include "support/virtual_paths.h"

#include "platform/references.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

std::u16string TextOf(const OpacTavFSExp* e) {
    if (!e) return u"(null)";
    std::u16string text(Tav0FSExpGetExp(e, nullptr, 0), u'?');
    Tav0FSExpGetExp(e, text.data(), static_cast<uint32_t>(text.size()));
    text.pop_back();
    return text;
}

std::u16string PathOf(const OpacTavFSRef* r) {
    if (!r) return u"(null)";
    std::u16string path(Tav0FSRToUTF16(r, nullptr, 0), u'?');
    Tav0FSRToUTF16(r, path.data(), static_cast<uint32_t>(path.size()));
    path.pop_back();
    return path;
}

std::u16string Evaluated(const std::u16string& expression, const OpacTavFSRef* base) {
    return PathOf(Ref(Tav0FSExpCalculateFSRCreate(MakeExp(expression).get(), base)));
}

FSRef PlatformRef(const std::string& path) {
    FSRef ref;
    if (FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr) != 0) {
        throw std::runtime_error("no reference to " + path);
    }
    return ref;
}

TavKey KeyOf(const std::string& characters) {
    TavKey key = 0;
    std::memcpy(&key, characters.data(), std::min(characters.size(), sizeof key));
    return key;
}

MyStr16 NameOf(const std::string& name) {
    MyStr16 field = {};
    std::memcpy(field.name, name.data(), std::min(name.size(), sizeof field.name));
    return field;
}
