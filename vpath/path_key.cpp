#include "vpath/path_key.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr size_t kHalf = PathKey::kUnits / 2;

using Units = uint16_t __attribute__((vector_size(kHalf * 2)));
using Bytes = uint8_t __attribute__((vector_size(kHalf)));

bool FitInBytes(const Units& front, const Units& last) {
    // 0xFF is the mark of those that do not fit.
    const Units above = (front | (front + 1) | last | (last + 1)) & 0xFF00;
    uint64_t halves[2];
    std::memcpy(halves, &above, sizeof halves);
    return (halves[0] | halves[1]) == 0;
}

// The last `count` of eight units, as the highest bytes of a number.
uint64_t Ordered(const Units& units, size_t count) {
    const auto bytes = __builtin_convertvector(units, Bytes);
    uint64_t number;
    std::memcpy(&number, &bytes, sizeof number);
    if constexpr (std::endian::native == std::endian::little) number = __builtin_bswap64(number);
    const size_t unused = 4 * (kHalf - count);
    return number << unused << unused;
}

} // namespace

PathKey::PathKey(const TavChar* path, size_t length, size_t from) {
    const size_t units = std::min(length - from, kUnits);
    const size_t inFirst = std::min(units, kHalf);
    if (from + inFirst >= kHalf) {
        // A half of which the path has less than eight units is taken with those in front of it.
        Units front, last;
        std::memcpy(&front, path + from + inFirst - kHalf, sizeof front);
        std::memcpy(&last, path + from + units - kHalf, sizeof last);
        if (FitInBytes(front, last)) {
            first = Ordered(front, inFirst);
            second = Ordered(last, units - inFirst);
            return;
        }
    }
    first = second = 0;
    for (size_t i = 0; i < units; ++i) {
        const uint64_t byte = std::min<uint64_t>(path[from + i], 0xFF);
        (i < kHalf ? first : second) |= byte << 8 * (kHalf - 1 - i % kHalf);
        if (byte == 0xFF) return;
    }
}
