// Strict conversion of whole texts between UTF-8 and UTF-16.
#include "TavPort.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr uint32_t kFirstSupplementary = 0x10000;
constexpr uint32_t kLastCodePoint = 0x10FFFF;

constexpr bool IsSurrogate(uint32_t v) {
    return (v & 0xFFFFF800) == 0xD800;
}
constexpr bool IsHighSurrogate(uint32_t v) {
    return (v & 0xFFFFFC00) == 0xD800;
}
constexpr bool IsLowSurrogate(uint32_t v) {
    return (v & 0xFFFFFC00) == 0xDC00;
}
constexpr bool IsContinuation(uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// Bytes of the sequence that a lead byte begins; 0 for a byte that begins none.
constexpr uint32_t SequenceLength(uint8_t lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC2) return 0;
    if (lead < 0xE0) return 2;
    if (lead < 0xF0) return 3;
    return lead < 0xF5 ? 4 : 0;
}

// Whether `v` may be written in `length` bytes: not overlong, not beyond the last code point, no surrogate.
constexpr bool IsLegal(uint32_t v, uint32_t length) {
    constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, kFirstSupplementary};
    return v >= smallest[length] && v <= kLastCodePoint && !IsSurrogate(v);
}

// Decodes the sequence at `in` into `v`; its length in bytes, 0 when it is cut or not legal.
uint32_t DecodeSequence(const uint8_t* in, const uint8_t* end, uint32_t& v) {
    const uint32_t length = SequenceLength(*in);
    if (length == 0 || static_cast<size_t>(end - in) < length) return 0;
    if (length == 1) {
        v = *in;
        return 1;
    }
    v = *in & (0x7Fu >> length);
    for (uint32_t i = 1; i < length; ++i) {
        if (!IsContinuation(in[i])) return 0;
        v = v << 6 | (in[i] & 0x3F);
    }
    return IsLegal(v, length) ? length : 0;
}

// Converts n bytes into at most n units; how many, or -1 for malformed text.
ptrdiff_t DecodeUTF8(const uint8_t* in, size_t n, TavChar* out) {
    const uint8_t* end = in + n;
    TavChar* start = out;
    while (in < end) {
        uint32_t v = 0;
        const uint32_t length = DecodeSequence(in, end, v);
        if (length == 0) return -1;
        in += length;
        if (v < kFirstSupplementary) {
            *out++ = static_cast<TavChar>(v);
        } else {
            *out++ = static_cast<TavChar>(0xD800 + ((v - kFirstSupplementary) >> 10));
            *out++ = static_cast<TavChar>(0xDC00 + (v & 0x3FF));
        }
    }
    return out - start;
}

uint8_t* EncodeCodePoint(uint32_t v, uint8_t* out) {
    if (v < 0x80) {
        *out++ = static_cast<uint8_t>(v);
        return out;
    }
    if (v < 0x800) {
        *out++ = static_cast<uint8_t>(0xC0 | v >> 6);
    } else {
        if (v < kFirstSupplementary) {
            *out++ = static_cast<uint8_t>(0xE0 | v >> 12);
        } else {
            *out++ = static_cast<uint8_t>(0xF0 | v >> 18);
            *out++ = static_cast<uint8_t>(0x80 | (v >> 12 & 0x3F));
        }
        *out++ = static_cast<uint8_t>(0x80 | (v >> 6 & 0x3F));
    }
    *out++ = static_cast<uint8_t>(0x80 | (v & 0x3F));
    return out;
}

// Takes the code point at `in`, a pair as one; false for a lone surrogate.
// kept: a high surrogate in the very last place passes as its own value; names made so come back as they
// were.
bool TakeCodePoint(const TavChar*& in, const TavChar* end, uint32_t& v) {
    v = *in++;
    if (!IsSurrogate(v)) return true;
    if (IsLowSurrogate(v)) return false;
    if (in == end) return true;
    if (!IsLowSurrogate(*in)) return false;
    v = kFirstSupplementary + ((v & 0x3FF) << 10) + (*in++ & 0x3FF);
    return true;
}

// Converts n units into at most 3n bytes; how many, or -1 for malformed text.
ptrdiff_t EncodeUTF8(const TavChar* in, size_t n, uint8_t* out) {
    const TavChar* end = in + n;
    uint8_t* start = out;
    while (in < end) {
        uint32_t v = 0;
        if (!TakeCodePoint(in, end, v)) return -1;
        out = EncodeCodePoint(v, out);
    }
    return out - start;
}

// Gives back what a conversion did not need. A failure to shrink leaves a block that is still good.
template <typename Unit>
Unit* Shrunk(Unit* block, size_t used) {
    void* smaller = realloc(block, (used + 1) * sizeof(Unit));
    return smaller ? static_cast<Unit*>(smaller) : block;
}

// Allocates room for `room` units and a terminator, and converts `n` units of `in` into it.
template <typename To, typename From, typename Convert>
To* ConvertToNew(const From* in, size_t n, size_t room, Convert convert) {
    if (room > std::numeric_limits<size_t>::max() / sizeof(To) - 1) return nullptr;
    To* block = static_cast<To*>(malloc((room + 1) * sizeof(To)));
    if (!block) return nullptr;
    const ptrdiff_t used = convert(in, n, block);
    if (used < 0) {
        free(block);
        return nullptr;
    }
    const size_t m = static_cast<size_t>(used);
    block[m] = 0;
    return m != n && m > 0 ? Shrunk(block, m) : block;
}

} // namespace

TavChar* Tav0UTF16FromUTF8(const char* utf8) {
    if (!utf8) return nullptr;
    const size_t n = strlen(utf8);
    return ConvertToNew<TavChar>(reinterpret_cast<const uint8_t*>(utf8), n, n, DecodeUTF8);
}

char* Tav0UTF8FromUTF16(const TavChar* utf16) {
    if (!utf16) return nullptr;
    const size_t n = tav_wcslen(utf16);
    if (n > std::numeric_limits<size_t>::max() / 3) return nullptr;
    return reinterpret_cast<char*>(ConvertToNew<uint8_t>(utf16, n, n * 3, EncodeUTF8));
}

void Tav0UTFRelease(void* buffer) {
    free(buffer);
}
