// The exported conversions of whole texts between UTF-8 and UTF-16, into new blocks of memory.
#include "text/unit_scan.h"
#include "text/utf_sequences.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

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
    const ptrdiff_t used = convert(in, n, block, utf::BestWay());
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
    return ConvertToNew<TavChar>(reinterpret_cast<const uint8_t*>(utf8), n, n, utf::Decode);
}

char* Tav0UTF8FromUTF16(const TavChar* utf16) {
    if (!utf16) return nullptr;
    const size_t n = scan::Length(utf16);
    if (n > std::numeric_limits<size_t>::max() / 3) return nullptr;
    return reinterpret_cast<char*>(ConvertToNew<uint8_t>(utf16, n, n * 3, utf::Encode));
}

void Tav0UTFRelease(void* buffer) {
    free(buffer);
}
