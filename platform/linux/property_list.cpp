// Property lists in their XML form. One text behind one key is all that is ever asked for, so this walks the tags
// as far as that and does not check the rest.
#include "platform/linux/property_list.h"

#include "platform/linux/names.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <utility>

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

// Whether XML has a character of that number.
bool IsCharacter(uint32_t code) {
    if (code < 0x20) return code == '\t' || code == '\n' || code == '\r';
    return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF) && code != 0xFFFE && code != 0xFFFF;
}

void AppendCharacter(std::string& text, uint32_t code) {
    const bool isPair = code > 0xFFFF;
    const UniChar units[] = {static_cast<UniChar>(isPair ? 0xD7C0 + (code >> 10) : code),
                             static_cast<UniChar>(0xDC00 | (code & 0x3FF))};
    char bytes[4];
    text.append(bytes, BytesFromUnits(units, isPair ? 2 : 1, bytes, sizeof bytes));
}

// The number of the character that is referred to, with a number or a predefined name, between "&" and ";".
uint32_t CodeOf(std::string_view reference) {
    static constexpr std::pair<std::string_view, char> names[] = {
        {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}, {"amp", '&'}};
    for (const auto& [name, character] : names) {
        if (reference == name) return static_cast<uint32_t>(character);
    }
    if (!reference.starts_with('#')) return 0;
    const bool isHex = reference.starts_with("#x");
    reference.remove_prefix(isHex ? 2 : 1);
    uint32_t code = 0;
    const char* end = reference.data() + reference.size();
    const auto result = std::from_chars(reference.data(), end, code, isHex ? 16 : 10);
    return result.ec == std::errc() && result.ptr == end && IsCharacter(code) ? code : 0;
}

// Adds text with its references read; what refers to no character stays as it is.
void AppendDecoded(std::string& decoded, std::string_view text) {
    constexpr size_t kLongestReference = 32; // leading zeros included
    while (!text.empty()) {
        const size_t end = text[0] == '&' ? text.substr(0, kLongestReference).find(';') : text.npos;
        const uint32_t code = end == text.npos ? 0 : CodeOf(text.substr(1, end - 1));
        if (code) {
            AppendCharacter(decoded, code);
        } else {
            decoded += text[0];
        }
        text.remove_prefix(code ? end + 1 : 1);
    }
}

// A list as tags, each with the text before it. Comments and processing instructions are not there.
class Markup {
public:
    explicit Markup(std::string_view rest) : rest_(rest) {}

    // Steps behind the next tag; false when there is none that ends.
    bool Next() {
        text_.clear();
        while (!rest_.empty()) {
            if (rest_.starts_with("<!--")) {
                Cut(4, "-->");
            } else if (rest_.starts_with("<?")) {
                Cut(2, "?>");
            } else if (rest_.starts_with("<![CDATA[")) {
                text_ += Cut(9, "]]>");
            } else if (rest_[0] == '<') {
                return ReadTag();
            } else {
                const std::string_view text = rest_.substr(0, rest_.find('<'));
                AppendDecoded(text_, text);
                rest_.remove_prefix(text.size());
            }
        }
        return false;
    }

    // Goes on to the end of the element that begins here, if it is of that name and has nothing but text.
    bool ReadElement(std::string_view name) {
        if (tag_ != name) return false;
        if (isEmpty_) text_.clear();
        return isEmpty_ || (Next() && tag_.starts_with('/') && tag_.substr(1) == name);
    }

    // 1 when a collection begins here, -1 when one ends.
    int Nesting() const {
        if (tag_ == "dict" || tag_ == "array") return isEmpty_ ? 0 : 1;
        return tag_ == "/dict" || tag_ == "/array" ? -1 : 0;
    }

    const std::string& text() const { return text_; }
    bool IsBlank() const { return text_.find_first_not_of(kBlanks) == text_.npos; }

private:
    static constexpr const char* kBlanks = " \t\r\n";

    // Takes what begins with a mark of `begin` bytes and ends with `end`, or all when it does not end.
    std::string_view Cut(size_t begin, std::string_view end) {
        const size_t length = rest_.find(end, begin);
        const std::string_view content = rest_.substr(begin, length - begin);
        rest_.remove_prefix(length == rest_.npos ? rest_.size() : length + end.size());
        return content;
    }

    bool ReadTag() {
        if (rest_.find('>') == rest_.npos) return false;
        tag_ = Cut(1, ">");
        isEmpty_ = tag_.ends_with('/');
        if (isEmpty_) tag_.remove_suffix(1);
        tag_ = tag_.substr(0, tag_.find_first_of(kBlanks)); // without attributes
        return true;
    }

    std::string_view rest_, tag_;
    std::string text_;
    bool isEmpty_ = false; // "<tag/>"
};

} // namespace

std::string property_list::StringFor(const std::string& path, const std::string& key) {
    return StringIn(ReadList(path), key);
}

// Only keys of the outermost dictionary count; inner ones describe other things.
std::string property_list::StringIn(const std::string& text, const std::string& key) {
    Markup list(text);
    int depth = 0;
    while (list.Next()) {
        depth += list.Nesting();
        if (depth != 1 || !list.ReadElement("key") || list.text() != key) continue;
        return list.Next() && list.IsBlank() && list.ReadElement("string") ? list.text() : "";
    }
    return "";
}
