#include "text/unit_scan.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace {

constexpr TavChar LowerAscii(TavChar unit) {
    return unit >= 'A' && unit <= 'Z' ? unit | 0x20 : unit;
}

template <Fold fold>
bool Same(TavChar a, TavChar b) {
    if constexpr (fold == Fold::Ascii) return LowerAscii(a) == LowerAscii(b);
    return a == b;
}

} // namespace

namespace plain {

const TavChar* FindOrEnd(const TavChar* s, TavChar unit) {
    while (*s && *s != unit) ++s;
    return s;
}

const TavChar* FindLast(const TavChar* s, TavChar unit) {
    const TavChar* last = nullptr;
    for (; *s; ++s) {
        if (*s == unit) last = s;
    }
    return last;
}

const TavChar* FindPrefix(const TavChar* s, const TavChar* needle, size_t n) {
    for (; *s; ++s) {
        if (CommonLength<Fold::None>(needle, s, n) == n) return s;
    }
    return nullptr;
}

template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit) {
    size_t i = 0;
    while (i < limit && a[i] && Same<fold>(a[i], b[i])) ++i;
    return i;
}

template size_t CommonLength<Fold::None>(const TavChar*, const TavChar*, size_t);
template size_t CommonLength<Fold::Ascii>(const TavChar*, const TavChar*, size_t);

} // namespace plain

#if TAV_UNIT_BLOCKS

// On every function that touches a register of 32 bytes.
#define TAV_WIDE [[gnu::target("avx2")]]

namespace {

constexpr size_t kUnits = 16;  // in a block
constexpr size_t kBytes = 32;  // in a block
constexpr size_t kGroup = 4;   // blocks taken together in long texts
constexpr size_t kPage = 4096; // every page size is a multiple of this

using Block = uint16_t __attribute__((vector_size(kBytes)));
using ByteBlock = char __attribute__((vector_size(kBytes)));
// The attributes stand with the names: after the type, Clang would take no notice of the alignment.
using LoadedBlock [[gnu::aligned(2), gnu::may_alias]] = Block;
using AlignedBlock [[gnu::may_alias]] = Block;
static_assert(sizeof(LoadedBlock) == kBytes && alignof(LoadedBlock) == alignof(TavChar));

TAV_WIDE Block Load(const TavChar* p) {
    return *reinterpret_cast<const LoadedBlock*>(p);
}
TAV_WIDE Block LoadAligned(const TavChar* p) {
    return *reinterpret_cast<const AlignedBlock*>(p);
}

TAV_WIDE Block Filled(TavChar unit) {
    return Block{} + static_cast<uint16_t>(unit);
}

TAV_WIDE Block Least(const Block& a, const Block& b) {
    return a < b ? a : b;
}

// Two bits for each unit that is zero, the first unit's lowest.
TAV_WIDE uint32_t Zeros(const Block& block) {
    const auto zeros = reinterpret_cast<ByteBlock>(block == Block{});
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb256(zeros));
}

uint32_t FirstUnit(uint32_t bits) {
    return static_cast<uint32_t>(std::countr_zero(bits)) / 2;
}
uint32_t LastUnit(uint32_t bits) {
    return (31 - static_cast<uint32_t>(std::countl_zero(bits))) / 2;
}

uintptr_t Address(const TavChar* p) {
    return reinterpret_cast<uintptr_t>(p);
}
const TavChar* BlockOf(const TavChar* p) {
    return p - Address(p) % kBytes / sizeof(TavChar);
}
bool IsGroupAligned(const TavChar* p) {
    return Address(p) % (kGroup * kBytes) == 0;
}

// Bytes from `p` to the end of its page.
size_t LeftInPage(const TavChar* p) {
    return kPage - Address(p) % kPage;
}

// Searches turn what they look for into zeros: here the terminator alone,
struct EndSearch {
    TAV_WIDE Block operator()(const Block& block) const { return block; }
};

// and here a unit or the terminator.
struct UnitOrEndSearch {
    Block wanted;
    TAV_WIDE Block operator()(const Block& block) const { return Least(block, block ^ wanted); }
};

// Whether a group has what is looked for.
template <typename Search>
[[gnu::always_inline]] TAV_WIDE inline bool IsInGroup(const TavChar* p, const Search& search) {
    const Block front = Least(search(LoadAligned(p)), search(LoadAligned(p + kUnits)));
    const Block back = Least(search(LoadAligned(p + 2 * kUnits)), search(LoadAligned(p + 3 * kUnits)));
    return Zeros(Least(front, back)) != 0;
}

// The first unit that is looked for; one is known to come.
template <typename Search>
TAV_WIDE const TavChar* FindFirst(const TavChar* s, const Search& search) {
    const TavChar* p = BlockOf(s);
    const size_t skipped = static_cast<size_t>(s - p);
    if (const uint32_t bits = Zeros(search(LoadAligned(p))) >> (2 * skipped)) return s + FirstUnit(bits);
    for (p += kUnits;; p += kUnits) {
        while (IsGroupAligned(p) && !IsInGroup(p, search)) p += kGroup * kUnits;
        if (const uint32_t bits = Zeros(search(LoadAligned(p)))) return p + FirstUnit(bits);
    }
}

template <Fold fold>
TAV_WIDE Block Folded(const Block& block) {
    if constexpr (fold == Fold::None) return block;
    const Block fromA = block - Filled('A');
    const Block isCapital = reinterpret_cast<Block>(fromA < Filled(26));
    return block | (isCapital & Filled(0x20));
}

// Zeros where units differ or end the first text.
template <Fold fold>
TAV_WIDE Block Continues(const TavChar* a, const TavChar* b) {
    const Block left = Load(a);
    return Least(left, reinterpret_cast<Block>(Folded<fold>(left) == Folded<fold>(Load(b))));
}

// Whether a group has no such unit.
template <Fold fold>
TAV_WIDE bool IsCommonGroup(const TavChar* a, const TavChar* b) {
    const Block front = Least(Continues<fold>(a, b), Continues<fold>(a + kUnits, b + kUnits));
    const Block back = Least(Continues<fold>(a + 2 * kUnits, b + 2 * kUnits),
                             Continues<fold>(a + 3 * kUnits, b + 3 * kUnits));
    return Zeros(Least(front, back)) == 0;
}

template <Fold fold>
TAV_WIDE size_t CommonByGroups(const TavChar* a, const TavChar* b, size_t limit) {
    size_t i = 0;
    while (i < limit) {
        const size_t safe = std::min(LeftInPage(a + i), LeftInPage(b + i)) / sizeof(TavChar);
        const size_t end = std::min(limit, i + safe);
        for (;; i += kUnits) {
            // Most texts differ or end before a group would pay.
            if (i >= kGroup * kUnits) {
                while (i + kGroup * kUnits <= end && IsCommonGroup<fold>(a + i, b + i)) i += kGroup * kUnits;
            }
            if (i + kUnits > end) break;
            if (const uint32_t bits = Zeros(Continues<fold>(a + i, b + i))) return i + FirstUnit(bits);
        }
        // The last few units before a page or the limit.
        const size_t rest = end - i;
        const size_t common = plain::CommonLength<fold>(a + i, b + i, rest);
        i += common;
        if (common < rest) return i;
    }
    return limit;
}

// The beginning of a needle, up to a block of it.
class Prefix {
public:
    TAV_WIDE Prefix(const TavChar* needle, size_t n) : needle_(needle), n_(n), counted_(~0u >> (32 - 2 * n)) {
        std::copy_n(needle, n, units_);
    }

    TAV_WIDE bool IsAt(const TavChar* p) const {
        if (LeftInPage(p) < kBytes) return plain::CommonLength<Fold::None>(needle_, p, n_) == n_;
        return (~Zeros(Load(p) ^ Load(units_)) & counted_) == 0;
    }

private:
    const TavChar* needle_;
    size_t n_;
    uint32_t counted_;
    TavChar units_[kMostPrefix] = {};
};

static_assert(kMostPrefix == kUnits);

} // namespace

namespace blocks {

TAV_WIDE const TavChar* FindEnd(const TavChar* s) {
    return FindFirst(s, EndSearch{});
}

TAV_WIDE const TavChar* FindOrEnd(const TavChar* s, TavChar unit) {
    return FindFirst(s, UnitOrEndSearch{Filled(unit)});
}

TAV_WIDE const TavChar* FindLast(const TavChar* s, TavChar unit) {
    const UnitOrEndSearch search = {Filled(unit)};
    const TavChar* last = nullptr;
    const TavChar* p = BlockOf(s);
    uint32_t counted = ~0u << 2 * (s - p);
    for (;; p += kUnits, counted = ~0u) {
        // Groups that hold neither are passed over.
        while (counted == ~0u && IsGroupAligned(p) && !IsInGroup(p, search)) p += kGroup * kUnits;
        const Block block = LoadAligned(p);
        const uint32_t end = Zeros(block) & counted;
        // Of the units that count, those in front of the terminator.
        if (end) counted &= (end & (0u - end)) - 1;
        if (const uint32_t found = Zeros(block ^ search.wanted) & counted) last = p + LastUnit(found);
        if (end) return last;
    }
}

TAV_WIDE const TavChar* FindPrefix(const TavChar* s, const TavChar* needle, size_t n) {
    const Prefix prefix(needle, n);
    const Block first = Filled(needle[0]), second = Filled(needle[1]);
    const TavChar* p = BlockOf(s);
    uint32_t counted = ~0u << 2 * (s - p), begun = 0;
    for (;; p += kUnits, counted = ~0u) {
        const Block block = LoadAligned(p);
        const uint32_t firsts = Zeros(block ^ first) & counted;
        const uint32_t ends = Zeros(block) & counted;
        // Pairs are met at their second unit.
        uint32_t pairs = (firsts << 2 | begun) & Zeros(block ^ second);
        begun = firsts >> 30;
        if (ends) pairs &= (ends & (0u - ends)) - 1;
        for (; pairs; pairs &= pairs - 1, pairs &= pairs - 1) {
            const TavChar* place = p + FirstUnit(pairs) - 1;
            if (prefix.IsAt(place)) return place;
        }
        if (ends) return nullptr;
    }
}

template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit) {
    return CommonByGroups<fold>(a, b, limit);
}

template size_t CommonLength<Fold::None>(const TavChar*, const TavChar*, size_t);
template size_t CommonLength<Fold::Ascii>(const TavChar*, const TavChar*, size_t);

} // namespace blocks
#endif
