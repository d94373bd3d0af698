// No character is looked at on its own. From each byte and those around it is computed the unit that would end
// there (from each unit, the bytes that it would become), and a table of shuffles, addressed by which of them
// are real, moves those together. So the cost does not depend on how characters of different lengths are
// mixed. Order: registers, UTF-8 to UTF-16, UTF-16 to UTF-8.
#include "text/utf_blocks.h"

#if TAV_UTF_BLOCKS

#include "text/utf_sequences.h"

#include <algorithm>
#include <array>
#include <cstring>

// On every function that touches a register of 32 bytes.
#define TAV_WIDE [[gnu::target("avx2,popcnt")]]

namespace utf {

namespace {

constexpr size_t kBytes = 32;
constexpr size_t kUnits = 16;
using Bytes = uint8_t __attribute__((vector_size(kBytes)));
using SignedBytes = int8_t __attribute__((vector_size(kBytes)));
using Chars = char __attribute__((vector_size(kBytes)));
using Units = uint16_t __attribute__((vector_size(kBytes)));
using NarrowBytes = uint8_t __attribute__((vector_size(kUnits)));
using WideUnits = uint16_t __attribute__((vector_size(kBytes * 2)));

// Shuffles do not cross the middle of a register.
constexpr size_t kHalf = 16;
using Half = char __attribute__((vector_size(kHalf)));

using Shuffle = std::array<uint8_t, kHalf>;
constexpr uint8_t kUnused = 0x80; // gives a zero

template <typename Vector>
TAV_WIDE Vector Load(const void* from) {
    Vector vector;
    memcpy(&vector, from, sizeof vector);
    return vector;
}

// The highest bit of each byte, the first byte's lowest.
template <typename Vector>
TAV_WIDE uint32_t HighBits(const Vector& vector) {
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb256(reinterpret_cast<Chars>(vector)));
}

template <typename Vector>
TAV_WIDE bool Any(const Vector& comparison) {
    return HighBits(comparison) != 0;
}

// The bytes of `a` where the highest bit of the mask is set, else those of `b`.
template <typename Vector>
TAV_WIDE Vector Blend(const Vector& mask, const Vector& a, const Vector& b) {
    return reinterpret_cast<Vector>(__builtin_ia32_pblendvb256(
        reinterpret_cast<Chars>(b), reinterpret_cast<Chars>(a), reinterpret_cast<Chars>(mask)));
}

// A table's entry for each byte's value, which is below 16.
TAV_WIDE Bytes LookUp(const Shuffle& table, const Bytes& nibbles) {
    const auto half = Load<Half>(table.data());
    const Chars entries =
        __builtin_shufflevector(half, half, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3,
                                4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return reinterpret_cast<Bytes>(__builtin_ia32_pshufb256(entries, reinterpret_cast<Chars>(nibbles)));
}

TAV_WIDE size_t CountBits(uint32_t bits) {
    return static_cast<unsigned>(__builtin_popcount(bits));
}

// Writes the bytes of one half of a register that a shuffle names.
template <size_t half, typename Vector>
TAV_WIDE void StoreShuffled(const Vector& vector, const Shuffle& shuffle, void* out) {
    const auto bytes = reinterpret_cast<Chars>(vector);
    const Half chosen =
        half ? __builtin_shufflevector(bytes, bytes, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29,
                                       30, 31)
             : __builtin_shufflevector(bytes, bytes, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const Half moved = __builtin_ia32_pshufb128(chosen, Load<Half>(shuffle.data()));
    memcpy(out, &moved, sizeof moved);
}

// ---- UTF-8 to UTF-16 ----

// What can be wrong about two bytes that follow each other, a bit each. Whether it is, the halves of the first
// byte and the upper half of the second tell together: it is when all three say so.
enum PairError : uint8_t {
    kTooShort = 0x01,    // a lead, but no continuation behind it
    kTooLong = 0x02,     // a continuation behind ASCII
    kOverlongTwo = 0x04, // C0 and C1
    kOverlongThree = 0x08,
    kSurrogate = 0x10,
    kTooGreat = 0x20,         // F4 and above, second byte from 90 on
    kOverlongFour = 0x40,     // F0, and F5 and above, second byte below 90
    kTwoContinuations = 0x80, // right only in longer sequences
};

constexpr uint8_t ErrorsOfUpperHalf(unsigned half) {
    if (half < 0x8) return kTooLong;
    if (half < 0xC) return kTwoContinuations;
    if (half == 0xC) return kTooShort | kOverlongTwo;
    if (half == 0xD) return kTooShort;
    if (half == 0xE) return kTooShort | kOverlongThree | kSurrogate;
    return kTooShort | kTooGreat | kOverlongFour;
}

constexpr uint8_t ErrorsOfLowerHalf(unsigned half) {
    unsigned errors = kTooShort | kTooLong | kTwoContinuations;
    if (half <= 0x1) errors |= kOverlongTwo;
    if (half == 0x0) errors |= kOverlongThree | kOverlongFour;
    if (half >= 0x4) errors |= kTooGreat;
    if (half >= 0x5) errors |= kOverlongFour;
    if (half == 0xD) errors |= kSurrogate;
    return static_cast<uint8_t>(errors);
}

constexpr uint8_t ErrorsOfNextUpperHalf(unsigned half) {
    if (half < 0x8 || half >= 0xC) return kTooShort;
    unsigned errors = kTooLong | kOverlongTwo | kTwoContinuations;
    errors |= half < 0xA ? kOverlongThree : kSurrogate;
    errors |= half < 0x9 ? kOverlongFour : kTooGreat;
    return static_cast<uint8_t>(errors);
}

constexpr Shuffle TableOf(uint8_t (*entry)(unsigned)) {
    Shuffle table{};
    for (unsigned i = 0; i < table.size(); ++i) table[i] = entry(i);
    return table;
}

constexpr Shuffle kUpperHalf = TableOf(ErrorsOfUpperHalf);
constexpr Shuffle kLowerHalf = TableOf(ErrorsOfLowerHalf);
constexpr Shuffle kNextUpperHalf = TableOf(ErrorsOfNextUpperHalf);

// For each set of eight units: the shuffle that moves those together.
constexpr std::array<Shuffle, 256> kKeptUnits = [] {
    std::array<Shuffle, 256> shuffles{};
    for (unsigned kept = 0; kept < 256; ++kept) {
        Shuffle& shuffle = shuffles[kept];
        shuffle.fill(kUnused);
        size_t n = 0;
        for (unsigned unit = 0; unit < 8; ++unit) {
            if (!(kept >> unit & 1)) continue;
            shuffle[n++] = static_cast<uint8_t>(unit * 2);
            shuffle[n++] = static_cast<uint8_t>(unit * 2 + 1);
        }
    }
    return shuffles;
}();

// A block of UTF-8, each byte with its neighbours.
struct Neighbours {
    Bytes current, next, before, before2, before3;
};

// Where bytes, as signed numbers, are below one and above one.
TAV_WIDE Bytes AreBelow(const Bytes& bytes, int8_t limit) {
    return reinterpret_cast<Bytes>(reinterpret_cast<SignedBytes>(bytes) < limit);
}
TAV_WIDE Bytes AreAbove(const Bytes& bytes, int8_t limit) {
    return reinterpret_cast<Bytes>(reinterpret_cast<SignedBytes>(bytes) > limit);
}

TAV_WIDE Bytes AreContinuations(const Bytes& bytes) {
    return AreBelow(bytes, -0x40);
}

// The highest bit tells which bytes lead three or four bytes, and which lead four.
TAV_WIDE Bytes LeadThreeOrFour(const Bytes& bytes) {
    return bytes & AreAbove(bytes, -0x21);
}
TAV_WIDE Bytes LeadFour(const Bytes& bytes) {
    return bytes & AreAbove(bytes, -0x11);
}

// Each byte shifted on its own; there are shifts of pairs only.
template <int n>
TAV_WIDE Bytes ShiftedLeft(const Bytes& bytes) {
    return reinterpret_cast<Bytes>(reinterpret_cast<Units>(bytes) << n) & static_cast<uint8_t>(0xFF << n);
}

// Not zero where a byte's successor must not follow it.
TAV_WIDE Bytes ErrorsOf(const Neighbours& at) {
    const Bytes pairs = LookUp(kUpperHalf, at.current >> 4) & LookUp(kLowerHalf, at.current & 0x0F) &
                        LookUp(kNextUpperHalf, at.next >> 4);
    const Bytes longer = LeadThreeOrFour(at.before) | LeadFour(at.before2);
    return pairs ^ (longer & uint8_t{kTwoContinuations});
}

// The units that end at each byte: their lower and upper halves.
struct Halves {
    Bytes lower, upper;
};

// The units of sequences of up to three bytes, and the low surrogates' bits but for the mark.
TAV_WIDE Halves HalvesOf(const Neighbours& at) {
    const Bytes tails = AreContinuations(at.current), inner = tails & AreContinuations(at.before);
    const Bytes middle = at.before & tails & 0x3F;
    return {(at.current & ~(tails & 0xC0)) | ShiftedLeft<6>(middle),
            middle >> 2 | (ShiftedLeft<4>(at.before2) & inner)};
}

// Stores the units that are kept, and gives the place behind them. A block's room is all that is written to.
TAV_WIDE TavChar* StoreKept(const Halves& halves, uint32_t kept, TavChar* out) {
    const Bytes &a = halves.lower, &b = halves.upper;
    const Bytes outer =
        __builtin_shufflevector(a, b, 0, 32, 1, 33, 2, 34, 3, 35, 4, 36, 5, 37, 6, 38, 7, 39, 16, 48, 17, 49,
                                18, 50, 19, 51, 20, 52, 21, 53, 22, 54, 23, 55);
    const Bytes inner =
        __builtin_shufflevector(a, b, 8, 40, 9, 41, 10, 42, 11, 43, 12, 44, 13, 45, 14, 46, 15, 47, 24, 56,
                                25, 57, 26, 58, 27, 59, 28, 60, 29, 61, 30, 62, 31, 63);
    StoreShuffled<0>(outer, kKeptUnits[kept & 0xFF], out);
    StoreShuffled<0>(inner, kKeptUnits[kept >> 8 & 0xFF], out + CountBits(kept & 0xFF));
    StoreShuffled<1>(outer, kKeptUnits[kept >> 16 & 0xFF], out + CountBits(kept & 0xFFFF));
    StoreShuffled<1>(inner, kKeptUnits[kept >> 24], out + CountBits(kept & 0xFFFFFF));
    return out + CountBits(kept);
}

// Puts surrogates where sequences of four bytes end. The highest bits of `high` and `low` tell where: the high
// ones stand at the third byte.
TAV_WIDE void PutSurrogates(const Neighbours& at, const Bytes& high, const Bytes& low, Halves& halves) {
    // The high one is the upper eleven bits of the code point less 0x40, which 0x10000 takes off, and D800. The
    // first byte, F0 and above, becomes D8 and above, less one when the lower half borrows.
    const Bytes lower = (ShiftedLeft<2>(at.before) | (at.current >> 4 & 0x03)) - 0x40;
    const Bytes borrows = reinterpret_cast<Bytes>((at.before & 0x30) == 0);
    const Bytes upper = at.before2 - 0x18 + borrows;
    halves.lower = Blend(high, lower, halves.lower);
    halves.upper = Blend(low, (halves.upper & 0x03) | 0xDC, Blend(high, upper, halves.upper));
}

// Converts a block; what is wrong with it is added to `errors`.
[[gnu::always_inline]] TAV_WIDE inline TavChar* DecodeBlock(const uint8_t* in, TavChar* out, Bytes& errors) {
    const auto current = Load<Bytes>(in), next = Load<Bytes>(in + 1);
    if (!Any(current | next)) {
        const auto units = __builtin_convertvector(current, WideUnits);
        memcpy(out, &units, sizeof units);
        return out + kBytes;
    }
    const Neighbours at = {current, next, Load<Bytes>(in - 1), Load<Bytes>(in - 2), Load<Bytes>(in - 3)};
    errors |= ErrorsOf(at);
    Halves halves = HalvesOf(at);
    Bytes kept = ~AreContinuations(next);
    const Bytes high = LeadFour(at.before2), low = LeadFour(at.before3);
    if (Any(high | low)) {
        PutSurrogates(at, high, low, halves);
        kept |= high;
    }
    return StoreKept(halves, HighBits(kept), out);
}

// Converts whole blocks up to `end`; null when one of them is malformed.
TAV_WIDE TavChar* DecodeRun(const uint8_t* in, const uint8_t* end, TavChar* out) {
    Bytes errors = {};
    for (; in != end; in += kBytes) out = DecodeBlock(in, out, errors);
    return Any(errors != 0) ? nullptr : out;
}

} // namespace

bool HasBlocks() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
}

TavChar* DecodeBlocks(const uint8_t* in, const uint8_t* end, TavChar* out) {
    if (IsContinuation(*in)) return nullptr;
    // The rest gets a block of its own, with zeros behind it.
    const size_t rest = static_cast<size_t>(end - in) % kBytes;
    end -= rest;
    uint8_t last[kBytesBefore + kBytes + 1] = {};
    memcpy(last, end - kBytesBefore, kBytesBefore + rest);
    TavChar units[kBytes];
    out = DecodeRun(in, end, out);
    const TavChar* unitsEnd = DecodeRun(last + kBytesBefore, last + kBytesBefore + kBytes, units);
    if (!out || !unitsEnd) return nullptr;
    return std::copy<const TavChar*>(units, unitsEnd - (kBytes - rest), out);
}

// ---- UTF-16 to UTF-8 ----

namespace {

// Four units become four lanes of three bytes and an unused one. For each set of lengths, two bits a unit (one
// for those longer than a byte, one for those longer than two): the shuffle that moves the bytes together.
constexpr std::array<Shuffle, 256> kSequences = [] {
    std::array<Shuffle, 256> shuffles{};
    for (unsigned lengths = 0; lengths < 256; ++lengths) {
        Shuffle& shuffle = shuffles[lengths];
        shuffle.fill(kUnused);
        size_t n = 0;
        for (unsigned unit = 0; unit < 4; ++unit) {
            const unsigned length = 1 + (lengths >> (2 * unit) & 1) + (lengths >> (2 * unit + 1) & 1);
            for (unsigned byte = 3 - length; byte < 3; ++byte)
                shuffle[n++] = static_cast<uint8_t>(unit * 4 + byte);
        }
    }
    return shuffles;
}();

// The three bytes that a unit becomes at most, of which the last ones count: the two in front, and the last.
struct Sequences {
    Units front, last;
};

TAV_WIDE Units AreOf(const Units& units, uint16_t mask, uint16_t value) {
    return reinterpret_cast<Units>((units & mask) == value);
}

// The bytes of units that are no surrogates.
TAV_WIDE Sequences SequencesOf(const Units& units, const Units& ascii, const Units& two) {
    const Units front = (units >> 12 | (units << 2 & 0x3F00)) | (0x80E0 | (two & 0x4000));
    return {front, Blend(ascii, units, (units & 0x3F) | 0x80)};
}

// A high surrogate gives the first two bytes of four, the low one the others; of the high one's bits the lowest
// two are the low one's to write.
TAV_WIDE void PutSurrogates(const Units& units, const Units& before, const Units& high, const Units& low,
                            Sequences& bytes) {
    const Units v = units - 0xD800 + 0x40;
    const Units first = (v & 0x0700) | 0xF000, third = bytes.front & (before << 12 | 0xCFFF);
    bytes.front = Blend(high, first, Blend(low, third, bytes.front));
    bytes.last = Blend(high, (v >> 2 & 0x3F) | 0x80, bytes.last);
}

// Whether each low surrogate follows a high one, and each high one is followed: two bits a unit.
struct PairCheck {
    uint32_t wrong = 0;
    uint32_t expected = 0; // what the next block's first unit must be

    void Add(uint32_t surrogates, uint32_t high) {
        wrong |= (surrogates ^ high) ^ (high << 2 | expected);
        expected = high >> 30;
    }
};

// Stores the bytes of all units, and gives the place behind them. 16 bytes are written for each four units.
TAV_WIDE uint8_t* StoreSequences(const Sequences& bytes, uint32_t lengths, uint8_t* out) {
    const Units &a = bytes.front, &b = bytes.last;
    const Units outer =
        __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 8, 24, 9, 25, 10, 26, 11, 27);
    const Units inner =
        __builtin_shufflevector(a, b, 4, 20, 5, 21, 6, 22, 7, 23, 12, 28, 13, 29, 14, 30, 15, 31);
    StoreShuffled<0>(outer, kSequences[lengths & 0xFF], out);
    StoreShuffled<0>(inner, kSequences[lengths >> 8 & 0xFF], out + 4 + CountBits(lengths & 0xFF));
    StoreShuffled<1>(outer, kSequences[lengths >> 16 & 0xFF], out + 8 + CountBits(lengths & 0xFFFF));
    StoreShuffled<1>(inner, kSequences[lengths >> 24], out + 12 + CountBits(lengths & 0xFFFFFF));
    return out + 16 + CountBits(lengths);
}

[[gnu::always_inline]] TAV_WIDE inline uint8_t* EncodeBlock(const TavChar* in, uint8_t* out,
                                                            PairCheck& pairs) {
    const auto current = Load<Units>(in);
    const Units ascii = AreOf(current, 0xFF80, 0), two = AreOf(current, 0xF800, 0);
    if (!Any(~ascii)) {
        pairs.Add(0, 0);
        const auto bytes = __builtin_convertvector(current, NarrowBytes);
        memcpy(out, &bytes, sizeof bytes);
        return out + kUnits;
    }
    Sequences bytes = SequencesOf(current, ascii, two);
    const Units surrogates = AreOf(current, 0xF800, 0xD800);
    const uint32_t surrogateBits = HighBits(surrogates);
    uint32_t highBits = 0;
    if (surrogateBits) {
        const Units high = AreOf(current, 0xFC00, 0xD800);
        highBits = HighBits(high);
        PutSurrogates(current, Load<Units>(in - 1), high, surrogates, bytes);
    }
    pairs.Add(surrogateBits, highBits);
    return StoreSequences(bytes, ~HighBits((ascii & 0x00FF) | ((two | surrogates) & 0xFF00)), out);
}

// Converts whole blocks up to `end`.
TAV_WIDE uint8_t* EncodeRun(const TavChar* in, const TavChar* end, uint8_t* out, PairCheck& pairs) {
    PairCheck running = pairs;
    for (; in != end; in += kUnits) out = EncodeBlock(in, out, running);
    pairs = running;
    return out;
}

} // namespace

uint8_t* EncodeBlocks(const TavChar* in, const TavChar* end, uint8_t* out) {
    if (in == end) return out;
    // The rest gets a block of its own, with zeros behind it. It is at least a unit, so that there is room for
    // what the block before it writes too far.
    const size_t rest = static_cast<size_t>(end - in - 1) % kUnits + 1;
    end -= rest;
    TavChar last[kUnitsBefore + kUnits + 1] = {};
    memcpy(last, end - kUnitsBefore, (kUnitsBefore + rest) * sizeof(TavChar));
    uint8_t bytes[kUnits * 4];
    PairCheck pairs;
    out = EncodeRun(in, end, out, pairs);
    const uint8_t* bytesEnd = EncodeRun(last + kUnitsBefore, last + kUnitsBefore + kUnits, bytes, pairs);
    if (pairs.wrong || pairs.expected) return nullptr;
    return std::copy<const uint8_t*>(bytes, bytesEnd - (kUnits - rest), out);
}

} // namespace utf
#endif
