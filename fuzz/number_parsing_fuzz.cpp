// All readings of a number: both forms of the engine agree, and the end lies within the text.
#include "input.h"

#include "text/number_parsing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const int32_t base = data[0] % 40 - 2;
    const std::basic_string<TavChar> text = Units(data + 1, size - 1);
    const TavChar* s = text.c_str();
    TavChar *end = nullptr, *end16 = nullptr;
    Expect(tav_wcstoul(s, &end, base) == tav_wcstoul16(s, &end16, base) && end == end16);
    Expect(end >= s && end <= s + text.size());
    Expect(tav_wcstol(s, &end, base) == tav_wcstol16(s, &end16, base) && end == end16);
    Expect(end >= s && end <= s + text.size());
    Expect(tav_wtol(s) == tav_wcstol(s, nullptr, 10));
    Expect(tav_wtoi(s) == tav_wtoi16(s));
    tav_wcstod(s, &end);
    Expect(end == nullptr);
    return 0;
}
