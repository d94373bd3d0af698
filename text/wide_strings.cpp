// The functions that go over units and bytes one after the other. What needs more than ASCII's letter case is
// in whole_string_case.cpp.
#include "text/unit_scan.h"

#include <cctype>
#include <cstdint>
#include <cstring>

namespace {

constexpr int32_t Sign(int32_t difference) {
    return (difference > 0) - (difference < 0);
}

// The bytes of both texts, each through `map`, compared as signed numbers: -1, 0 or 1.
// kept: bytes are signed, so 0x80 to 0xFF sort before the terminator.
template <typename Map>
int32_t CompareBytes(const char* a, const char* b, uint32_t n, Map map) {
    for (uint32_t i = 0; i < n; ++i) {
        const auto left = static_cast<signed char>(map(static_cast<signed char>(a[i])));
        const auto right = static_cast<signed char>(map(static_cast<signed char>(b[i])));
        if (left != right) return left < right ? -1 : 1;
        if (left == 0) break;
    }
    return 0;
}

} // namespace

uint32_t tav_wcslen(const TavChar* s) {
    return s ? static_cast<uint32_t>(scan::Length(s)) : 0;
}

TavChar* tav_wcscpy(TavChar* dst, const TavChar* src) {
    memcpy(dst, src, (scan::Length(src) + 1) * sizeof(TavChar));
    return dst;
}

TavChar* tav_wcsncpy(TavChar* dst, const TavChar* src, uint32_t n) {
    const size_t length = scan::CommonLength<Fold::None>(src, src, n);
    memcpy(dst, src, length * sizeof(TavChar));
    memset(dst + length, 0, (n - length) * sizeof(TavChar));
    return dst;
}

TavChar* tav_wcscat(TavChar* dst, const TavChar* src) {
    tav_wcscpy(dst + scan::Length(dst), src);
    return dst;
}

TavChar* tav_wcschr(const TavChar* s, uint32_t c) {
    const TavChar unit = static_cast<TavChar>(c);
    const TavChar* found = scan::FindOrEnd(s, unit);
    return *found == unit ? const_cast<TavChar*>(found) : nullptr;
}

TavChar* tav_wcsrchr(const TavChar* s, uint32_t c) {
    const TavChar unit = static_cast<TavChar>(c);
    return const_cast<TavChar*>(unit ? scan::FindLast(s, unit) : s + scan::Length(s));
}

int32_t tav_wcscmp(const TavChar* a, const TavChar* b) {
    const size_t i = scan::CommonLength<Fold::None>(a, b, SIZE_MAX);
    return a[i] - b[i];
}

int32_t tav_wcsncmp(const TavChar* a, const TavChar* b, uint32_t n) {
    const size_t i = scan::CommonLength<Fold::None>(a, b, n);
    return i == n ? 0 : Sign(a[i] - b[i]);
}

int32_t tav_wcsnicmp(const TavChar* a, const TavChar* b, uint32_t n) {
    const size_t i = scan::CommonLength<Fold::Ascii>(a, b, n);
    return i == n ? 0 : Sign(tav_towlower(a[i]) - tav_towlower(b[i]));
}

int32_t tav_strncmp(const char* a, const char* b, uint32_t n) {
    return CompareBytes(a, b, n, [](int byte) { return byte; });
}

int32_t tav_strnicmp(const char* a, const char* b, uint32_t n) {
    return CompareBytes(a, b, n, [](int byte) { return tolower(byte); });
}
