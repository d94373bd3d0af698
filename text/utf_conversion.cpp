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

bool IsAsciiBlock(const uint8_t* in) {
    return ((LoadWord(in) | LoadWord(in + 8)) & 0x8080808080808080) == 0;
}
bool IsAsciiBlock(const TavChar* in) {
    const uint64_t seen = LoadWord(in) | LoadWord(in + 4) | LoadWord(in + 8) | LoadWord(in + 12);
    return (seen & 0xFF80FF80FF80FF80) == 0;
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

// Where no block goes whole, this many elements are converted one by one before blocks are tried again: few
// enough for an accent in an ASCII text, and enough that a mixed text does not pay for the trying.
constexpr size_t kWindow = 32;

// Copies the blocks in front that are all ASCII.
template <typename From, typename To>
void CopyAsciiBlocks(const From*& in, const From* end, To*& out) {
    for (; static_cast<size_t>(end - in) >= kBlock && IsAsciiBlock(in); in += kBlock, out += kBlock)
        CopyBlock(in, out);
}

// ---- Blocks of units that take three bytes: the bulk of most Asian texts ----

// A unit's three bytes lie in the lowest places of a lane, the first byte lowest. Pairs of lanes are read and
// written as words of eight bytes, of which two are the next pair's.
constexpr size_t kDecodedBlock = 4; // units
constexpr size_t kEncodedBlock = 8; // units
constexpr size_t kPairBytes = 6;
using Lanes = uint32_t __attribute__((vector_size(kDecodedBlock * 4)));
using Pairs = uint64_t __attribute__((vector_size(kDecodedBlock * 4)));
using WideUnits = uint16_t __attribute__((vector_size(kEncodedBlock * 2)));
using WideLanes = uint32_t __attribute__((vector_size(kEncodedBlock * 4)));
using WidePairs = uint64_t __attribute__((vector_size(kEncodedBlock * 4)));

// On other machines the bytes of a word lie the wrong way round.
constexpr bool kHasThreeByteBlocks = std::endian::native == std::endian::little;

// Whether no unit is below U+0800 or a surrogate.
template <typename Vector>
bool TakeThreeBytes(const Vector& units) {
    const Vector high = units & 0xF800;
    const Pairs others = reinterpret_cast<Pairs>((high == Vector{}) | (high == (Vector{} | 0xD800)));
    return (others[0] | others[1]) == 0;
}

// Decodes four sequences; false when they are not all legal ones of three bytes. Reads two bytes more.
bool DecodeThreeByteBlock(const uint8_t* in, TavChar* out) {
    const Pairs bytes = {LoadWord(in), LoadWord(in + kPairBytes)};
    const Lanes lanes = reinterpret_cast<Lanes>((bytes & 0xFFFFFF) | (bytes << 8 & 0xFFFFFF00000000));
    const Pairs strange = reinterpret_cast<Pairs>((lanes & 0xC0C0F0) ^ 0x8080E0);
    const Lanes units = (lanes << 12 & 0xF000) | (lanes >> 2 & 0xFC0) | (lanes >> 16 & 0x3F);
    if ((strange[0] | strange[1]) != 0 || !TakeThreeBytes(units)) return false;
    const Pairs pairs = reinterpret_cast<Pairs>(units);
    const Lanes packed = reinterpret_cast<Lanes>(pairs | pairs >> 16);
    const uint32_t first = packed[0], second = packed[2];
    memcpy(out, &first, sizeof first);
    memcpy(out + 2, &second, sizeof second);
    return true;
}

// Encodes eight units; false when they do not all take three bytes. Touches two bytes behind them.
bool EncodeThreeByteBlock(const TavChar* in, uint8_t* out) {
    WideUnits units;
    memcpy(&units, in, sizeof units);
    if (!TakeThreeBytes(units)) return false;
    const WideLanes wide = __builtin_convertvector(units, WideLanes);
    const WideLanes lanes = 0x8080E0 | wide >> 12 | (wide << 2 & 0x3F00) | (wide << 16 & 0x3F0000);
    const WidePairs pairs = reinterpret_cast<WidePairs>(lanes);
    const WidePairs bytes = (pairs & 0xFFFFFF) | (pairs >> 8 & 0xFFFFFF000000);
    for (size_t i = 0; i < kEncodedBlock / 2; ++i) {
        const uint64_t pair = bytes[i];
        memcpy(out + i * kPairBytes, &pair, sizeof pair);
    }
    return true;
}

// ---- UTF-8 to UTF-16 ----

// The code point of a sequence of two, three or four bytes at `in`, and steps over it; false when it is cut,
// overlong, a surrogate or too great. The text's terminator is what cuts a sequence at its end.
bool TakeSequence(const uint8_t*& in, uint32_t& v) {
    const uint32_t lead = in[0];
    if (lead < 0xC2 || !IsContinuation(in[1])) return false;
    if (lead < 0xE0) {
        v = (lead & 0x1F) << 6 | (in[1] & 0x3F);
        in += 2;
        return true;
    }
    if (!IsContinuation(in[2])) return false;
    if (lead < 0xF0) {
        v = (lead & 0x0F) << 12 | (in[1] & 0x3Fu) << 6 | (in[2] & 0x3F);
        in += 3;
        return v >= 0x800 && !IsSurrogate(v);
    }
    if (lead > 0xF4 || !IsContinuation(in[3])) return false;
    v = (lead & 0x07) << 18 | (in[1] & 0x3Fu) << 12 | (in[2] & 0x3Fu) << 6 | (in[3] & 0x3F);
    in += 4;
    return v >= kFirstSupplementary && v <= kLastCodePoint;
}

TavChar* PutCodePoint(uint32_t v, TavChar* out) {
    if (v >= kFirstSupplementary) {
        *out++ = static_cast<TavChar>(0xD800 + ((v - kFirstSupplementary) >> 10));
        v = 0xDC00 + (v & 0x3FF);
    }
    *out++ = static_cast<TavChar>(v);
    return out;
}

// Decodes characters until one ends at or behind `stop`; false for malformed text.
bool DecodeTo(const uint8_t* stop, const uint8_t*& in, TavChar*& out) {
    while (in < stop) {
        if (*in < 0x80) {
            *out++ = *in++;
            continue;
        }
        uint32_t v = 0;
        if (!TakeSequence(in, v)) return false;
        out = PutCodePoint(v, out);
    }
    return true;
}

void CopyThreeByteBlocks(const uint8_t*& in, const uint8_t* end, TavChar*& out) {
    constexpr ptrdiff_t step = kDecodedBlock * 3;
    for (; end - in >= step + 2 && *in >= 0xE0; in += step, out += kDecodedBlock) {
        if (!DecodeThreeByteBlock(in, out)) return;
    }
}

// Converts n bytes, behind which stands a terminator, into at most n units; how many, or -1 for malformed
// text.
ptrdiff_t DecodeUTF8(const uint8_t* in, size_t n, TavChar* out) {
    const uint8_t* end = in + n;
    const TavChar* start = out;
    while (in < end) {
        CopyAsciiBlocks(in, end, out);
        if (kHasThreeByteBlocks) CopyThreeByteBlocks(in, end, out);
        const uint8_t* stop = static_cast<size_t>(end - in) > kWindow ? in + kWindow : end;
        if (!DecodeTo(stop, in, out)) return -1;
    }
    return out - start;
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

// Writes a code point in two, three or four bytes.
uint8_t* PutSequence(uint32_t v, uint8_t* out) {
    if (v < 0x800) {
        *out++ = static_cast<uint8_t>(0xC0 | v >> 6);
    } else if (v < kFirstSupplementary) {
        *out++ = static_cast<uint8_t>(0xE0 | v >> 12);
        *out++ = Tail(v, 6);
    } else {
        *out++ = static_cast<uint8_t>(0xF0 | v >> 18);
        *out++ = Tail(v, 12);
        *out++ = Tail(v, 6);
    }
    *out++ = Tail(v, 0);
    return out;
}

// Encodes characters until one ends at or behind `stop`; false for malformed text.
bool EncodeTo(const TavChar* stop, const TavChar*& in, const TavChar* end, uint8_t*& out) {
    while (in < stop) {
        if (*in < 0x80) {
            *out++ = static_cast<uint8_t>(*in++);
            continue;
        }
        uint32_t v = 0;
        if (!TakeCodePoint(in, end, v)) return false;
        out = PutSequence(v, out);
    }
    return true;
}

// A last unit is left: its room holds what a block touches behind its own bytes.
void CopyThreeByteBlocks(const TavChar*& in, const TavChar* end, uint8_t*& out) {
    for (; static_cast<size_t>(end - in) > kEncodedBlock; in += kEncodedBlock, out += kEncodedBlock * 3) {
        if (!EncodeThreeByteBlock(in, out)) return;
    }
}

// Converts n units into at most 3n bytes; how many, or -1 for malformed text.
ptrdiff_t EncodeUTF8(const TavChar* in, size_t n, uint8_t* out) {
    const TavChar* end = in + n;
    const uint8_t* start = out;
    while (in < end) {
        CopyAsciiBlocks(in, end, out);
        if (kHasThreeByteBlocks) CopyThreeByteBlocks(in, end, out);
        const TavChar* stop = static_cast<size_t>(end - in) > kWindow ? in + kWindow : end;
        if (!EncodeTo(stop, in, end, out)) return -1;
    }
    return out - start;
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
