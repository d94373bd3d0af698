// Strict conversion of whole texts between UTF-8 and UTF-16.
#include "text/unit_scan.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr uint32_t kFirstSupplementary = 0x10000;
constexpr uint32_t kLastCodePoint = 0x10FFFF;

constexpr bool IsSurrogate(uint32_t v) {
    return (v & 0xFFFFF800) == 0xD800;
}
constexpr bool IsLowSurrogate(uint32_t v) {
    return (v & 0xFFFFFC00) == 0xDC00;
}
constexpr bool IsCommonThreeByte(uint32_t v) {
    return v - 0x800 < 0xD800 - 0x800;
}
constexpr bool IsContinuation(uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// ---- Blocks of ASCII ----

// Elements converted together, in the compiler's own vectors: every machine has a lowering for them.
constexpr size_t kBlock = 16;
using Bytes = uint8_t __attribute__((vector_size(kBlock)));
using Units = uint16_t __attribute__((vector_size(kBlock * 2)));

uint64_t LoadWord(const void* p) {
    uint64_t word = 0;
    memcpy(&word, p, sizeof word);
    return word;
}

constexpr uint32_t SwappedOnLittleEndian(uint32_t word) {
    if constexpr (std::endian::native == std::endian::big) return word;
    return __builtin_bswap32(word);
}

uint64_t LoadBigEndian(const uint8_t* p) {
    const uint64_t word = LoadWord(p);
    return std::endian::native == std::endian::big ? word : __builtin_bswap64(word);
}

void StoreBigEndian(uint8_t* p, uint32_t word) {
    word = SwappedOnLittleEndian(word);
    memcpy(p, &word, sizeof word);
}

// How many of the elements in front of `word` have none of the mask's bits, for elements of `bits` bits.
size_t LeadingClear(uint64_t word, size_t bits) {
    const int zeros =
        std::endian::native == std::endian::little ? std::countr_zero(word) : std::countl_zero(word);
    return static_cast<size_t>(zeros) / bits;
}

// ASCII bytes at the start of a block.
size_t LeadingAscii(const uint8_t* in) {
    constexpr uint64_t mask = 0x8080808080808080;
    const uint64_t first = LoadWord(in) & mask, second = LoadWord(in + 8) & mask;
    return first ? LeadingClear(first, 8) : 8 + LeadingClear(second, 8);
}

// ASCII units at the start of a block.
size_t LeadingAscii(const TavChar* in) {
    constexpr uint64_t mask = 0xFF80FF80FF80FF80;
    for (size_t i = 0; i < kBlock; i += 4) {
        if (const uint64_t word = LoadWord(in + i) & mask) return i + LeadingClear(word, 16);
    }
    return kBlock;
}

// Widens or narrows a block.
template <typename FromVector, typename ToVector>
void ConvertBlock(const void* in, void* out) {
    FromVector from;
    memcpy(&from, in, sizeof from);
    const ToVector to = __builtin_convertvector(from, ToVector);
    memcpy(out, &to, sizeof to);
}

void CopyBlock(const uint8_t* in, TavChar* out) {
    ConvertBlock<Bytes, Units>(in, out);
}
void CopyBlock(const TavChar* in, uint8_t* out) {
    ConvertBlock<Units, Bytes>(in, out);
}

// Copies the ASCII in front. Whole blocks are written while there is one left to read: the room behind `out`
// is never less than what is still to be read.
template <typename From, typename To>
void CopyAscii(const From*& in, const From* end, To*& out) {
    while (static_cast<size_t>(end - in) >= kBlock) {
        const size_t n = LeadingAscii(in);
        CopyBlock(in, out);
        in += n;
        out += n;
        if (n < kBlock) return;
    }
    while (in < end && *in < 0x80) *out++ = static_cast<To>(*in++);
}

// ---- UTF-8 to UTF-16 ----

// The code point of a sequence of two, three or four bytes at `in`, and steps over it; false when it is cut,
// overlong, a surrogate or too great.
bool TakeSequence(const uint8_t*& in, const uint8_t* end, uint32_t& v) {
    const uint32_t lead = in[0];
    const ptrdiff_t left = end - in;
    if (lead < 0xC2 || left < 2 || !IsContinuation(in[1])) return false;
    if (lead < 0xE0) {
        v = (lead & 0x1F) << 6 | (in[1] & 0x3F);
        in += 2;
        return true;
    }
    if (left < 3 || !IsContinuation(in[2])) return false;
    if (lead < 0xF0) {
        v = (lead & 0x0F) << 12 | (in[1] & 0x3Fu) << 6 | (in[2] & 0x3F);
        in += 3;
        return v >= 0x800 && !IsSurrogate(v);
    }
    if (lead > 0xF4 || left < 4 || !IsContinuation(in[3])) return false;
    v = (lead & 0x07) << 18 | (in[1] & 0x3Fu) << 12 | (in[2] & 0x3Fu) << 6 | (in[3] & 0x3F);
    in += 4;
    return v >= kFirstSupplementary && v <= kLastCodePoint;
}

// The code point of a three-byte sequence whose first byte stands `shift` bits above the lowest.
constexpr uint32_t FromThreeBytes(uint64_t bytes, unsigned shift) {
    return static_cast<uint32_t>((bytes >> (shift - 12) & 0xF000) | (bytes >> (shift - 14) & 0xFC0) |
                                 (bytes >> (shift - 16) & 0x3F));
}

// Decodes the run of three-byte sequences in front by pairs: the bulk of most Asian texts. Stops at what is
// not legal and, for the sake of one test only, at what lies behind the surrogates.
void CopyThreeByteRun(const uint8_t*& in, const uint8_t* end, TavChar*& out) {
    for (; end - in >= 8; in += 6, out += 2) {
        const uint64_t bytes = LoadBigEndian(in);
        if ((bytes & 0xF0C0C0F0C0C00000) != 0xE08080E080800000) return;
        const uint32_t first = FromThreeBytes(bytes, 56), second = FromThreeBytes(bytes, 32);
        if (!IsCommonThreeByte(first) || !IsCommonThreeByte(second)) return;
        out[0] = static_cast<TavChar>(first);
        out[1] = static_cast<TavChar>(second);
    }
}

// Decodes the run of two-byte sequences in front: the other alphabets.
void CopyTwoByteRun(const uint8_t*& in, const uint8_t* end, TavChar*& out) {
    for (; end - in >= 2; in += 2) {
        if (in[0] < 0xC2 || in[0] > 0xDF || !IsContinuation(in[1])) return;
        *out++ = static_cast<TavChar>((in[0] & 0x1F) << 6 | (in[1] & 0x3F));
    }
}

TavChar* PutCodePoint(uint32_t v, TavChar* out) {
    if (v >= kFirstSupplementary) {
        *out++ = static_cast<TavChar>(0xD800 + ((v - kFirstSupplementary) >> 10));
        v = 0xDC00 + (v & 0x3FF);
    }
    *out++ = static_cast<TavChar>(v);
    return out;
}

// Converts n bytes into at most n units; how many, or -1 for malformed text.
ptrdiff_t DecodeUTF8(const uint8_t* in, size_t n, TavChar* out) {
    const uint8_t* end = in + n;
    const TavChar* start = out;
    for (;;) {
        CopyAscii(in, end, out);
        CopyTwoByteRun(in, end, out);
        CopyThreeByteRun(in, end, out);
        if (in == end) return out - start;
        if (*in < 0x80) continue;
        uint32_t v = 0;
        if (!TakeSequence(in, end, v)) return -1;
        out = PutCodePoint(v, out);
    }
}

// ---- UTF-16 to UTF-8 ----

constexpr uint8_t Tail(uint32_t v, unsigned shift) {
    return static_cast<uint8_t>(0x80 | (v >> shift & 0x3F));
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

// Writes a code point in three or four bytes.
uint8_t* PutSequence(uint32_t v, uint8_t* out) {
    if (v < kFirstSupplementary) {
        *out++ = static_cast<uint8_t>(0xE0 | v >> 12);
    } else {
        *out++ = static_cast<uint8_t>(0xF0 | v >> 18);
        *out++ = Tail(v, 12);
    }
    *out++ = Tail(v, 6);
    *out++ = Tail(v, 0);
    return out;
}

// Encodes a unit between U+0800 and the surrogates; writes a fourth byte behind the three.
void PutThreeBytes(uint32_t v, uint8_t* out) {
    StoreBigEndian(out, 0xE0808000 | (v << 12 & 0x0F000000) | (v << 10 & 0x3F0000) | (v << 8 & 0x3F00));
}

// Encodes the run of such units in front by pairs.
void CopyThreeByteRun(const TavChar*& in, const TavChar* end, uint8_t*& out) {
    for (; end - in >= 2 && IsCommonThreeByte(in[0]) && IsCommonThreeByte(in[1]); in += 2, out += 6) {
        PutThreeBytes(in[0], out);
        PutThreeBytes(in[1], out + 3);
    }
}

void CopyTwoByteRun(const TavChar*& in, const TavChar* end, uint8_t*& out) {
    for (; in < end && *in >= 0x80 && *in < 0x800; ++in) {
        out[0] = static_cast<uint8_t>(0xC0 | *in >> 6);
        out[1] = Tail(*in, 0);
        out += 2;
    }
}

// Converts n units into at most 3n bytes and may touch one more; how many, or -1 for malformed text.
ptrdiff_t EncodeUTF8(const TavChar* in, size_t n, uint8_t* out) {
    const TavChar* end = in + n;
    const uint8_t* start = out;
    for (;;) {
        CopyAscii(in, end, out);
        CopyTwoByteRun(in, end, out);
        CopyThreeByteRun(in, end, out);
        if (in == end) return out - start;
        if (*in < 0x800) continue;
        uint32_t v = 0;
        if (!TakeCodePoint(in, end, v)) return -1;
        out = PutSequence(v, out);
    }
}

// ---- Blocks of memory ----

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
    const size_t n = scan::Length(utf16);
    if (n > std::numeric_limits<size_t>::max() / 3) return nullptr;
    return reinterpret_cast<char*>(ConvertToNew<uint8_t>(utf16, n, n * 3, EncodeUTF8));
}

void Tav0UTFRelease(void* buffer) {
    free(buffer);
}
