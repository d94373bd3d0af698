// Both conversions: whatever converts comes back as it was.
#include "input.h"

static void FromUTF8(const std::string& utf8) {
    TavChar* wide = Tav0UTF16FromUTF8(utf8.c_str());
    if (!wide) return;
    char* again = Tav0UTF8FromUTF16(wide);
    Expect(again && utf8 == again);
    Tav0UTFRelease(again);
    Tav0UTFRelease(wide);
}

static void FromUTF16(const std::basic_string<TavChar>& utf16) {
    char* narrow = Tav0UTF8FromUTF16(utf16.c_str());
    if (!narrow) return;
    // A high surrogate in the last place is the one thing that the way back refuses.
    const bool cut = !utf16.empty() && (utf16.back() & 0xFC00) == 0xD800;
    TavChar* again = Tav0UTF16FromUTF8(narrow);
    Expect(cut ? !again : again && utf16 == again);
    Tav0UTFRelease(again);
    Tav0UTFRelease(narrow);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    FromUTF8(bytes.substr(0, bytes.find('\0')));
    FromUTF16(Units(data, size));
    return 0;
}
