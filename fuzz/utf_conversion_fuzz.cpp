// Both conversions beside ICU's strict ones, and both ways of converting beside each other.
#include "input.h"

#include "support/strict_icu.h"
#include "text/utf_sequences.h"

#include <optional>

using Wide = std::basic_string<TavChar>;

static void FromUTF8(const std::string& utf8) {
    const std::optional<Wide> expected = IcuDecoded(utf8);
    TavChar* wide = Tav0UTF16FromUTF8(utf8.c_str());
    Expect(!wide == !expected && (!wide || *expected == wide));
    Tav0UTFRelease(wide);
    Wide plain(utf8.size(), 0);
    const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.c_str());
    const ptrdiff_t n = utf::Decode(bytes, utf8.size(), plain.data(), utf::Way::Plain);
    Expect((n < 0) == !expected && (n < 0 || plain.substr(0, static_cast<size_t>(n)) == *expected));
}

static void FromUTF16(const Wide& utf16) {
    // A high surrogate in the last place is the one thing that ICU refuses.
    const bool cut = !utf16.empty() && (utf16.back() & 0xFC00) == 0xD800;
    std::optional<std::string> expected = IcuEncoded(utf16.substr(0, utf16.size() - cut));
    if (cut && expected) {
        const unsigned v = utf16.back();
        *expected += {static_cast<char>(0xE0 | v >> 12), static_cast<char>(0x80 | (v >> 6 & 0x3F)),
                      static_cast<char>(0x80 | (v & 0x3F))};
    }
    char* narrow = Tav0UTF8FromUTF16(utf16.c_str());
    Expect(!narrow == !expected && (!narrow || *expected == narrow));
    Tav0UTFRelease(narrow);
    std::string plain(utf16.size() * 3 + 1, 0);
    auto* bytes = reinterpret_cast<uint8_t*>(plain.data());
    const ptrdiff_t n = utf::Encode(utf16.c_str(), utf16.size(), bytes, utf::Way::Plain);
    Expect((n < 0) == !expected && (n < 0 || plain.substr(0, static_cast<size_t>(n)) == *expected));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    FromUTF8(bytes.substr(0, bytes.find('\0')));
    FromUTF16(Units(data, size));
    return 0;
}
