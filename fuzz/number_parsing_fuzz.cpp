// All readings of a number beside naive ones, and both forms of the engine beside each other.
#include "input.h"

#include "text/number_parsing.h"

#include <bit>
#include <cstdlib>

using Text = std::basic_string<TavChar>;

namespace {

bool IsDigit(TavChar c) {
    return c >= '0' && c <= '9';
}

struct Number {
    uint64_t magnitude = 0; // not beyond 2^32
    bool negative = false;
    size_t end = 0; // 0 for no number
};

uint32_t DigitValue(TavChar c) {
    if (IsDigit(c)) return c - '0';
    const TavChar small = c | 0x20;
    return c < 0x80 && small >= 'a' && small <= 'z' ? small - 'a' + 10 : 99;
}

// What the engine reads, the text as one piece with a terminator behind it.
Number Read(const Text& text, int32_t base) {
    Number number;
    if (base < 0 || base == 1 || base > 36) return number;
    const TavChar* s = text.c_str();
    size_t i = 0;
    while (s[i] == ' ' || (s[i] >= 0x09 && s[i] <= 0x0D)) ++i;
    number.negative = s[i] == '-';
    if (s[i] == '+' || s[i] == '-') ++i;
    if ((base == 0 || base == 16) && s[i] == '0') {
        const bool hexadecimal = (s[i + 1] | 0x20) == 'x';
        if (hexadecimal) i += 2;
        if (base == 0) base = hexadecimal ? 16 : 8;
    }
    if (base == 0) base = 10;
    for (uint32_t digit = 0; (digit = DigitValue(s[i])) < static_cast<uint32_t>(base); number.end = ++i) {
        number.magnitude = number.magnitude * static_cast<uint32_t>(base) + digit;
        if (number.magnitude >> 32) number.magnitude = uint64_t{1} << 32;
    }
    return number;
}

void ExpectEngine(const Text& text, int32_t base) {
    const TavChar* s = text.c_str();
    TavChar *end = nullptr, *end16 = nullptr;
    const Number number = Read(text, base);
    const bool any = number.end != 0, great = number.magnitude >> 32 != 0;
    const auto magnitude = static_cast<uint32_t>(any ? number.magnitude : 0);

    const uint32_t unsignedValue = great ? 0xFFFFFFFF : number.negative ? 0 - magnitude : magnitude;
    Expect(tav_wcstoul(s, &end, base) == unsignedValue && end == s + number.end);
    Expect(tav_wcstoul16(s, &end16, base) == unsignedValue && end16 == end);

    const uint32_t limit = number.negative ? 0x80000000 : 0x7FFFFFFF;
    const uint32_t clamped = great || magnitude > limit ? limit : magnitude;
    const auto signedValue = static_cast<int32_t>(number.negative ? 0 - clamped : clamped);
    Expect(tav_wcstol(s, &end, base) == signedValue && end == s + number.end);
    Expect(tav_wcstol16(s, &end16, base) == signedValue && end16 == end);
}

bool IsSpace(TavChar c) {
    return (c >= 0x01 && c <= 0x20) || (c >= 0x7F && c <= 0xA0) || (c >= 0x2000 && c <= 0x200B) ||
           c == 0x3000;
}

void ExpectInteger(const Text& text) {
    const TavChar* s = text.c_str();
    while (IsSpace(*s)) ++s;
    const bool negative = *s == '-';
    if (*s == '+' || *s == '-') ++s;
    while (IsSpace(*s)) ++s;
    const int64_t limit = negative ? int64_t{1} << 31 : 0x7FFFFFFF;
    int64_t value = 0;
    for (; IsDigit(*s); ++s) value = value > limit ? value : value * 10 + (*s - '0');
    value = value > limit ? limit : value;
    Expect(tav_wtoi(text.c_str()) == static_cast<int32_t>(negative ? -value : value));
    Expect(tav_wtoi16(text.c_str()) == tav_wtoi(text.c_str()));
}

// Cuts the number out, for the C library to read.
void ExpectFloating(const Text& text) {
    const TavChar* s = text.c_str();
    std::string number;
    const auto take = [&] { number += static_cast<char>(*s++); };
    while (IsSpace(*s)) ++s;
    if (*s == '+' || *s == '-') take();
    bool any = false;
    for (; IsDigit(*s); any = true) take();
    if (*s == '.') take();
    for (; number.find('.') != std::string::npos && IsDigit(*s); any = true) take();
    if (any && (*s == 'e' || *s == 'E')) {
        take();
        if (*s == '+' || *s == '-') take();
        while (IsDigit(*s)) take();
    }
    TavChar unit = 0;
    TavChar* end = &unit;
    const double value = tav_wcstod(text.c_str(), &end);
    const double expected = any ? strtod(number.c_str(), nullptr) : 0.0;
    Expect(end == nullptr && std::bit_cast<uint64_t>(value) == std::bit_cast<uint64_t>(expected));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const Text text = Units(data + 1, size - 1);
    ExpectEngine(text, data[0] % 40 - 2);
    Expect(tav_wtol(text.c_str()) == tav_wcstol(text.c_str(), nullptr, 10));
    ExpectInteger(text);
    ExpectFloating(text);
    return 0;
}
