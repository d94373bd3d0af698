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
namespace {

constexpr size_t kUnits = 8;   // in a block
constexpr size_t kBytes = 16;  // in a block
constexpr size_t kGroup = 4;   // blocks taken together in long texts
constexpr size_t kPage = 4096; // every page size is a multiple of this

using Block = uint16_t __attribute__((vector_size(kBytes)));
using ByteBlock = char __attribute__((vector_size(kBytes)));
using LoadedBlock = uint16_t __attribute__((vector_size(kBytes), aligned(2), may_alias));
using AlignedBlock = uint16_t __attribute__((vector_size(kBytes), may_alias));

Block Load(const TavChar* p) {
    return *reinterpret_cast<const LoadedBlock*>(p);
}
Block LoadAligned(const TavChar* p) {
    return *reinterpret_cast<const AlignedBlock*>(p);
}

constexpr Block Filled(TavChar unit) {
    return Block{} + static_cast<uint16_t>(unit);
}

// Two bits for each unit of a comparison that holds, the first unit's lowest.
template <typename Comparison>
uint32_t Bits(Comparison comparison) {
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb128(reinterpret_cast<ByteBlock>(comparison)));
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

struct EndTest {
    Block operator()(Block block) const { return reinterpret_cast<Block>(block == Block{}); }
};

struct UnitOrEndTest {
    Block wanted;
    Block operator()(Block block) const {
        return reinterpret_cast<Block>((block == Block{}) | (block == wanted));
    }
};

// The first unit for which the test holds; one is known to come.
template <typename Test>
inline const TavChar* FindFirst(const TavChar* s, Test test) {
    const TavChar* p = BlockOf(s);
    const size_t skipped = static_cast<size_t>(s - p);
    if (const uint32_t bits = Bits(test(LoadAligned(p))) >> (2 * skipped)) return s + FirstUnit(bits);
    for (p += kUnits; !IsGroupAligned(p); p += kUnits) {
        if (const uint32_t bits = Bits(test(LoadAligned(p)))) return p + FirstUnit(bits);
    }
    for (;; p += kGroup * kUnits) {
        const Block first = test(LoadAligned(p)), second = test(LoadAligned(p + kUnits));
        const Block third = test(LoadAligned(p + 2 * kUnits)), fourth = test(LoadAligned(p + 3 * kUnits));
        if (!Bits((first | second) | (third | fourth))) continue;
        if (const uint32_t bits = Bits(first) | Bits(second) << 16) return p + FirstUnit(bits);
        return p + 2 * kUnits + FirstUnit(Bits(third) | Bits(fourth) << 16);
    }
}

// Whether one of a group's units has a value.
bool GroupHas(const TavChar* p, Block wanted) {
    const auto first = (LoadAligned(p) == wanted) | (LoadAligned(p + kUnits) == wanted);
    const auto second = (LoadAligned(p + 2 * kUnits) == wanted) | (LoadAligned(p + 3 * kUnits) == wanted);
    return Bits(first | second) != 0;
}

// The last unit of a value in a group that has one.
const TavChar* LastInGroup(const TavChar* group, Block wanted) {
    for (const TavChar* p = group + (kGroup - 1) * kUnits;; p -= kUnits) {
        if (const uint32_t found = Bits(LoadAligned(p) == wanted)) return p + LastUnit(found);
    }
}

template <Fold fold>
Block Folded(Block block) {
    if constexpr (fold == Fold::None) return block;
    const Block fromA = block - Filled('A');
    const Block isCapital = reinterpret_cast<Block>(fromA < Filled(26));
    return block | (isCapital & Filled(0x20));
}

// The units that differ or end the first text.
template <Fold fold>
Block Stops(const TavChar* a, const TavChar* b) {
    const Block left = Load(a);
    return reinterpret_cast<Block>((Folded<fold>(left) != Folded<fold>(Load(b))) | (left == Block{}));
}

// Whether a group has no such unit.
template <Fold fold>
bool IsCommonGroup(const TavChar* a, const TavChar* b) {
    const Block first = Stops<fold>(a, b) | Stops<fold>(a + kUnits, b + kUnits);
    const Block second =
        Stops<fold>(a + 2 * kUnits, b + 2 * kUnits) | Stops<fold>(a + 3 * kUnits, b + 3 * kUnits);
    return Bits(first | second) == 0;
}

} // namespace

namespace blocks {

const TavChar* FindEnd(const TavChar* s) {
    return FindFirst(s, EndTest{});
}

const TavChar* FindOrEnd(const TavChar* s, TavChar unit) {
    return FindFirst(s, UnitOrEndTest{Filled(unit)});
}

const TavChar* FindLast(const TavChar* s, TavChar unit) {
    const Block wanted = Filled(unit);
    const TavChar* last = nullptr;
    const TavChar* p = BlockOf(s);
    uint32_t counted = 0xFFFFu << 2 * (s - p) & 0xFFFF;
    for (;; p += kUnits, counted = 0xFFFF) {
        // Groups without an end are passed over, but the last that holds the unit is looked at again.
        if (counted == 0xFFFF && IsGroupAligned(p)) {
            const TavChar* group = nullptr;
            for (; !GroupHas(p, Block{}); p += kGroup * kUnits) {
                if (GroupHas(p, wanted)) group = p;
            }
            if (group) last = LastInGroup(group, wanted);
        }
        const Block block = LoadAligned(p);
        const uint32_t end = Bits(block == Block{}) & counted;
        // Of the units that count, those in front of the terminator.
        if (end) counted &= (end & (0u - end)) - 1;
        if (const uint32_t found = Bits(block == wanted) & counted) last = p + LastUnit(found);
        if (end) return last;
    }
}

template <Fold fold>
size_t CommonLength(const TavChar* a, const TavChar* b, size_t limit) {
    size_t i = 0;
    while (i < limit) {
        const size_t safe = std::min(LeftInPage(a + i), LeftInPage(b + i)) / sizeof(TavChar);
        const size_t end = std::min(limit, i + safe);
        while (i + kGroup * kUnits <= end && IsCommonGroup<fold>(a + i, b + i)) i += kGroup * kUnits;
        for (; i + kUnits <= end; i += kUnits) {
            if (const uint32_t bits = Bits(Stops<fold>(a + i, b + i))) return i + FirstUnit(bits);
        }
        // The last few units before a page or the limit.
        const size_t rest = end - i;
        const size_t common = plain::CommonLength<fold>(a + i, b + i, rest);
        i += common;
        if (common < rest) return i;
    }
    return limit;
}

template size_t CommonLength<Fold::None>(const TavChar*, const TavChar*, size_t);
template size_t CommonLength<Fold::Ascii>(const TavChar*, const TavChar*, size_t);

} // namespace blocks
#endif
