// What the conversions between UTF-8 and UTF-16 do character by character, and who takes which part of a text:
// ASCII goes in front by blocks everywhere, the rest by blocks where there are some. Order: ASCII, UTF-8 to
// UTF-16, UTF-16 to UTF-8.
#include "text/utf_sequences.h"

#include "text/utf_blocks.h"

#include <algorithm>
#include <cstring>

namespace utf {

namespace {

constexpr uint32_t kFirstSupplementary = 0x10000;
constexpr uint32_t kLastCodePoint = 0x10FFFF;

constexpr bool IsSurrogate(uint32_t v) {
    return (v & 0xFFFFF800) == 0xD800;
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

// Copies the blocks in front that are all ASCII, and a last one that overlaps what was copied from them.
template <typename From, typename To>
void CopyAsciiBlocks(const From* start, const From*& in, const From* end, To*& out) {
    for (; static_cast<size_t>(end - in) >= kBlock && IsAsciiBlock(in); in += kBlock, out += kBlock)
        CopyBlock(in, out);
    const auto rest = static_cast<size_t>(end - in);
    if (rest >= kBlock || static_cast<size_t>(end - start) < kBlock || !IsAsciiBlock(end - kBlock)) return;
    in += rest;
    out += rest;
    CopyBlock(in - kBlock, out - kBlock);
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

} // namespace

ptrdiff_t Decode(const uint8_t* in, size_t n, TavChar* out, [[maybe_unused]] Way way) {
    const uint8_t *start = in, *end = in + n;
    const TavChar* units = out;
    CopyAsciiBlocks(start, in, end, out);
#if TAV_UTF_BLOCKS
    if (way == Way::Blocks && static_cast<size_t>(end - in) >= kBlock) {
        if (!DecodeTo(std::max(in, start + kBytesBefore), in, out)) return -1;
        out = DecodeBlocks(in, end, out);
        return out ? out - units : -1;
    }
#endif
    while (in < end) {
        const uint8_t* stop = static_cast<size_t>(end - in) > kWindow ? in + kWindow : end;
        if (!DecodeTo(stop, in, out)) return -1;
        CopyAsciiBlocks(start, in, end, out);
    }
    return out - units;
}

// ---- UTF-16 to UTF-8 ----

namespace {

constexpr uint8_t Tail(uint32_t v, unsigned shift) {
    return static_cast<uint8_t>(0x80 | (v >> shift & 0x3F));
}

// Takes the code point at `in`, a pair as one; false for a lone surrogate. What ends the text is no low one.
bool TakeCodePoint(const TavChar*& in, uint32_t& v) {
    v = *in++;
    if (!IsSurrogate(v)) return true;
    if (IsLowSurrogate(v) || !IsLowSurrogate(*in)) return false;
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
bool EncodeTo(const TavChar* stop, const TavChar*& in, uint8_t*& out) {
    while (in < stop) {
        if (*in < 0x80) {
            *out++ = static_cast<uint8_t>(*in++);
            continue;
        }
        uint32_t v = 0;
        if (!TakeCodePoint(in, v)) return false;
        out = PutSequence(v, out);
    }
    return true;
}

// Encodes a text up to `end`, where no low surrogate stands; the end of its bytes, null for malformed text.
uint8_t* EncodeAll(const TavChar* in, const TavChar* end, uint8_t* out, [[maybe_unused]] Way way) {
    const TavChar* start = in;
    CopyAsciiBlocks(start, in, end, out);
#if TAV_UTF_BLOCKS
    if (way == Way::Blocks && static_cast<size_t>(end - in) >= kBlock / 2) {
        if (!EncodeTo(std::max(in, start + kUnitsBefore), in, out)) return nullptr;
        return EncodeBlocks(in, end, out);
    }
#endif
    while (in < end) {
        const TavChar* stop = static_cast<size_t>(end - in) > kWindow ? in + kWindow : end;
        if (!EncodeTo(stop, in, out)) return nullptr;
        CopyAsciiBlocks(start, in, end, out);
    }
    return out;
}

} // namespace

ptrdiff_t Encode(const TavChar* in, size_t n, uint8_t* out, Way way) {
    const TavChar* end = in + n;
    // kept: a high surrogate in the very last place passes as its own value; names made so come back as they
    // were.
    const bool cut = n > 0 && IsSurrogate(end[-1]) && !IsLowSurrogate(end[-1]);
    uint8_t* bytesEnd = EncodeAll(in, end - cut, out, way);
    if (!bytesEnd) return -1;
    if (cut) bytesEnd = PutSequence(end[-1], bytesEnd);
    return bytesEnd - out;
}

Way BestWay() {
#if TAV_UTF_BLOCKS
    if (HasBlocks()) return Way::Blocks;
#endif
    return Way::Plain;
}

} // namespace utf
