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

const TavChar* FindNeedle(const TavChar* s, const TavChar* needle, size_t length, Patience& patience) {
    for (; *s; ++s) {
        const size_t common = CommonLength<Fold::None>(needle, s, length);
        if (common == length || patience.IsOver(s, common)) return s;
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
constexpr size_t kPair = 2;    // blocks whose units have a bit pair each in 64 bits
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

// The least of the units in the same place of a group's blocks.
TAV_WIDE Block LeastOfGroup(const TavChar* p) {
    return Least(Least(LoadAligned(p), LoadAligned(p + kUnits)),
                 Least(LoadAligned(p + 2 * kUnits), LoadAligned(p + 3 * kUnits)));
}

// Two bits for each unit of a comparison's result, the first unit's lowest.
template <typename Truth>
TAV_WIDE uint32_t Bits(const Truth& truth) {
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb256(reinterpret_cast<ByteBlock>(truth)));
}

// The same for each unit that is zero.
TAV_WIDE uint32_t Zeros(const Block& block) {
    return Bits(block == Block{});
}

template <typename Bits>
uint32_t FirstUnit(Bits bits) {
    return static_cast<uint32_t>(std::countr_zero(bits)) / 2;
}
uint32_t LastUnit(uint64_t bits) {
    return (63 - static_cast<uint32_t>(std::countl_zero(bits))) / 2;
}

// The bits below the lowest.
uint64_t Below(uint64_t bits) {
    return (bits & (0 - bits)) - 1;
}

uintptr_t Address(const TavChar* p) {
    return reinterpret_cast<uintptr_t>(p);
}
const TavChar* BlockOf(const TavChar* p) {
    return p - Address(p) % kBytes / sizeof(TavChar);
}
const TavChar* PairOf(const TavChar* p) {
    return p - Address(p) % (kPair * kBytes) / sizeof(TavChar);
}
bool IsGroupAligned(const TavChar* p) {
    return Address(p) % (kGroup * kBytes) == 0;
}

// Bytes from `p` to the end of its page.
size_t LeftInPage(const TavChar* p) {
    return kPage - Address(p) % kPage;
}

// Searches give the bits of what they look for in a block, and whether a group has any: the terminator alone,
struct EndSearch {
    TAV_WIDE uint32_t InBlock(const TavChar* p) const { return Zeros(LoadAligned(p)); }
    TAV_WIDE bool IsInGroup(const TavChar* p) const { return Zeros(LeastOfGroup(p)) != 0; }
};

// and a unit or the terminator.
struct UnitOrEndSearch {
    Block wanted;
    TAV_WIDE uint32_t InBlock(const TavChar* p) const {
        const Block block = LoadAligned(p);
        return Zeros(Least(block, block ^ wanted));
    }
    TAV_WIDE bool IsInGroup(const TavChar* p) const {
        const auto front = (LoadAligned(p) == wanted) | (LoadAligned(p + kUnits) == wanted);
        const auto back = (LoadAligned(p + 2 * kUnits) == wanted) | (LoadAligned(p + 3 * kUnits) == wanted);
        return Bits(front | back | (LeastOfGroup(p) == Block{})) != 0;
    }
};

// Two bits for each unit of a pair that is looked for.
template <typename Search>
[[gnu::always_inline]] TAV_WIDE inline uint64_t FoundInPair(const TavChar* p, const Search& search) {
    return search.InBlock(p) | uint64_t{search.InBlock(p + kUnits)} << 32;
}

// The first unit that is looked for; one is known to come.
template <typename Search>
TAV_WIDE const TavChar* FindFirst(const TavChar* s, const Search& search) {
    const TavChar* p = PairOf(s);
    const size_t skipped = static_cast<size_t>(s - p);
    if (const uint64_t bits = FoundInPair(p, search) >> (2 * skipped)) return s + FirstUnit(bits);
    for (p += kPair * kUnits;; p += kPair * kUnits) {
        while (IsGroupAligned(p) && !search.IsInGroup(p)) p += kGroup * kUnits;
        if (const uint64_t bits = FoundInPair(p, search)) return p + FirstUnit(bits);
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
        const size_t safe = i + std::min(LeftInPage(a + i), LeftInPage(b + i)) / sizeof(TavChar);
        for (;; i += kUnits) {
            // Most texts differ or end before a group would pay.
            if (i >= kGroup * kUnits) {
                const size_t end = std::min(limit, safe);
                while (i + kGroup * kUnits <= end && IsCommonGroup<fold>(a + i, b + i)) i += kGroup * kUnits;
            }
            if (i >= limit || i + kUnits > safe) break;
            if (const uint32_t bits = Zeros(Continues<fold>(a + i, b + i)))
                return std::min(limit, i + FirstUnit(bits));
        }
        if (i >= limit) break;
        // The last few units before a page.
        const size_t rest = std::min(limit, safe) - i;
        const size_t common = plain::CommonLength<fold>(a + i, b + i, rest);
        i += common;
        if (common < rest) return i;
    }
    return limit;
}

// A text to be found, by its first and its last unit and then as a whole.
class Needle {
public:
    TAV_WIDE Needle(const TavChar* units, size_t length)
        : first_(Filled(units[0])), last_(Filled(units[length - 1])), units_(units), length_(length),
          counted_(~0u >> (32 - 2 * std::min(length, kUnits))) {
        std::copy_n(units, std::min(length, kUnits), front_);
    }

    // Of the units of the block at `p` those where it may stand.
    TAV_WIDE uint32_t Candidates(const TavChar* p) const {
        const uint32_t firsts = Zeros(LoadAligned(p) ^ first_);
        // Behind the text may be a page that must not be touched.
        if (!firsts || LeftInPage(p) < kBytes + (length_ - 1) * sizeof(TavChar)) return firsts;
        return firsts & Zeros(Load(p + length_ - 1) ^ last_);
    }

    // How many units it has in common with the text at `p`, or 0 when not even a block.
    TAV_WIDE size_t CommonAt(const TavChar* p) const {
        if (LeftInPage(p) < kBytes) return plain::CommonLength<Fold::None>(units_, p, length_);
        if (~Zeros(Load(p) ^ Load(front_)) & counted_) return 0;
        return length_ <= kUnits
                   ? length_
                   : kUnits + CommonByGroups<Fold::None>(units_ + kUnits, p + kUnits, length_ - kUnits);
    }

private:
    Block first_, last_;
    const TavChar* units_;
    size_t length_;
    uint32_t counted_; // the bits of the units in front_
    TavChar front_[kUnits] = {};
};

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
    const TavChar* p = PairOf(s);
    const size_t skipped = static_cast<size_t>(s - p);
    uint64_t bits = FoundInPair(p, search) >> (2 * skipped) << (2 * skipped);
    for (;;) {
        while (!bits) {
            p += kPair * kUnits;
            while (IsGroupAligned(p) && !search.IsInGroup(p)) p += kGroup * kUnits;
            bits = FoundInPair(p, search);
        }
        const uint64_t end = FoundInPair(p, EndSearch{}) & bits;
        const uint64_t found = end ? bits & Below(end) : bits;
        if (found) last = p + LastUnit(found);
        if (end) return last;
        bits = 0;
    }
}

TAV_WIDE const TavChar* FindNeedle(const TavChar* s, const TavChar* units, size_t length,
                                   Patience& patience) {
    const Needle needle(units, length);
    const TavChar* p = BlockOf(s);
    uint32_t counted = ~0u << 2 * (s - p);
    for (;; p += kUnits, counted = ~0u) {
        const uint32_t ends = Zeros(LoadAligned(p)) & counted;
        uint32_t candidates = needle.Candidates(p) & counted;
        if (ends) candidates &= static_cast<uint32_t>(Below(ends));
        for (; candidates; candidates &= candidates - 1, candidates &= candidates - 1) {
            const TavChar* place = p + FirstUnit(candidates);
            const size_t common = needle.CommonAt(place);
            if (common == 0) continue;
            if (common == length || patience.IsOver(place, common)) return place;
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
