#include "support/virtual_paths.h"

#include "platform/references.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
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

std::string MakeFolderOfBytes(const std::string& above, size_t bytes) {
    const auto name = [](size_t size) {
        std::string text(size % 2, 'x');
        while (text.size() < size) text += "\xC3\xA9";
        return "/" + text;
    };
    std::string path = above;
    while (bytes - path.size() > 250) path += name(200);
    path += name(bytes - path.size() - 1);
    std::filesystem::create_directories(path);
    return path;
}
