// Mac Roman on ICU: the "macintosh" converter gives the upper half's table once per process; canonical
// composition turns a letter and a combining mark into the one character that Mac Roman has. Both are asked
// for under a lock, so that no fork finds ICU in the middle of making them. Two rules are the platform's own:
// U+2126 is written as the Omega that it canonically is, and strokes laid over a character do not combine.
// The table lies in static memory, so nothing is left behind when the library is unloaded; a converter that
// cannot be opened for want of memory is asked for again the next time.
#include "platform/linux/mac_roman.h"

#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/current_task.h"

#include <unicode/ucnv.h>
#include <unicode/unorm2.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace {

constexpr size_t kUpperHalf = 128;

struct Table {
    const UNormalizer2* composer;
    std::array<UniChar, kUpperHalf> decode;
    std::array<uint8_t, kUpperHalf> byUnit; // bytes ordered by the unit that they stand for

    UniChar UnitOf(uint8_t byte) const { return decode[byte - kUpperHalf]; }
};

Table table;
std::atomic<bool> tableMade;
constinit ChildSafeMutex tableLock;

bool MakeTable() {
    char bytes[kUpperHalf];
    for (size_t i = 0; i < kUpperHalf; ++i) bytes[i] = static_cast<char>(kUpperHalf + i);
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open("macintosh", &status);
    const int32_t got = ucnv_toUChars(converter, table.decode.data(), kUpperHalf, bytes, kUpperHalf, &status);
    ucnv_close(converter);
    table.composer = unorm2_getNFCInstance(&status);
    if (U_FAILURE(status) || got != kUpperHalf) return false;
    for (size_t i = 0; i < kUpperHalf; ++i) table.byUnit[i] = static_cast<uint8_t>(kUpperHalf + i);
    std::sort(table.byUnit.begin(), table.byUnit.end(),
              [](uint8_t a, uint8_t b) { return table.UnitOf(a) < table.UnitOf(b); });
    return true;
}

// The table, made when it is first wanted; null when it cannot be had.
const Table* GetTable() {
    if (tableMade.load(std::memory_order_acquire)) return &table;
    const HeldLock guard(tableLock);
    if (!tableMade.load(std::memory_order_relaxed)) tableMade.store(MakeTable(), std::memory_order_release);
    return tableMade.load(std::memory_order_relaxed) ? &table : nullptr;
}

// The byte of one unit, -1 when there is none.
int EncodeUnit(UniChar unit) {
    if (unit < kUpperHalf) return unit;
    constexpr UniChar ohmSign = 0x2126, omega = 0x03A9;
    if (unit == ohmSign) unit = omega;
    const Table* t = GetTable();
    if (!t) return -1;
    const auto found =
        std::lower_bound(t->byUnit.begin(), t->byUnit.end(), unit,
                         [t](uint8_t byte, UniChar wanted) { return t->UnitOf(byte) < wanted; });
    return found != t->byUnit.end() && t->UnitOf(*found) == unit ? *found : -1;
}

// Marks above and below a letter; the strokes laid over it, which come next, stay characters of their own.
constexpr bool MayCombine(UniChar unit) {
    return unit >= 0x0300 && unit <= 0x0333;
}

// The one character that a letter and a mark make together, as a byte; -1 when Mac Roman has none.
int EncodeComposed(UniChar letter, UniChar mark) {
    const Table* t = GetTable();
    if (!t) return -1;
    const UChar32 composed = unorm2_composePair(t->composer, letter, mark);
    return composed >= 0 && composed <= 0xFFFF ? EncodeUnit(static_cast<UniChar>(composed)) : -1;
}

} // namespace

namespace mac_roman {

int Decode(uint8_t byte) {
    if (byte < kUpperHalf) return byte;
    const Table* t = GetTable();
    return t ? t->UnitOf(byte) : -1;
}

int Encode(const UniChar* units, size_t length, size_t& position) {
    if (position + 1 < length && MayCombine(units[position + 1])) {
        const int byte = EncodeComposed(units[position], units[position + 1]);
        if (byte >= 0) {
            position += 2;
            return byte;
        }
    }
    const int byte = EncodeUnit(units[position]);
    if (byte >= 0) ++position;
    return byte;
}

} // namespace mac_roman
