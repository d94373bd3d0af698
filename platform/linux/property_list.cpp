// Property lists in their XML form. One text behind one key is all that is ever asked for, so this looks for
// exactly that and does not parse the rest.
#include "platform/linux/property_list.h"

#include <cstdio>
#include <filesystem>

namespace {

constexpr size_t kLargestList = 1 << 20;

// What is in a regular file, as far as a list of sensible size goes; nothing else is opened.
std::string ReadList(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) return "";
    std::FILE* file = std::fopen(path.c_str(), "rbe"); // "e": not inherited by other programs
    if (!file) return "";
    std::string text(kLargestList, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    return text;
}

// The list without its comments; one that does not end takes the rest with it.
std::string WithoutComments(const std::string& list) {
    std::string rest;
    for (size_t at = 0; at < list.size();) {
        const size_t comment = list.find("<!--", at);
        rest.append(list, at, comment - at);
        const size_t end = comment == std::string::npos ? comment : list.find("-->", comment + 4);
        at = end == std::string::npos ? list.size() : end + 3;
    }
    return rest;
}

// Text with the five predefined entities read.
std::string Decoded(const std::string& text) {
    static const struct {
        const char* entity;
        char character;
    } entities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
    std::string decoded;
    for (size_t i = 0; i < text.size();) {
        size_t length = 1;
        char character = text[i];
        for (const auto& row : entities) {
            std::string entity = row.entity;
            if (text.compare(i, entity.size(), entity) != 0) continue;
            length = entity.size();
            character = row.character;
        }
        decoded += character;
        i += length;
    }
    return decoded;
}

} // namespace

std::string property_list::StringFor(const std::string& path, const std::string& key) {
    return StringIn(ReadList(path), key);
}

std::string property_list::StringIn(const std::string& text, const std::string& key) {
    const std::string list = WithoutComments(text);
    const std::string keyElement = "<key>" + key + "</key>", open = "<string>", close = "</string>";
    size_t at = list.find(keyElement);
    if (at == std::string::npos) return "";
    at = list.find_first_not_of(" \t\r\n", at + keyElement.size());
    if (at == std::string::npos || list.compare(at, open.size(), open) != 0) return "";
    at += open.size();
    size_t end = list.find(close, at);
    return end == std::string::npos ? "" : Decoded(list.substr(at, end - at));
}
