// The loops over units and bytes. What needs more than ASCII's letter case is in whole_string_case.cpp.
#include "TavPort.h"

#include <cctype>
#include <cstring>

namespace {

// The one loop of the comparisons that take a count: -1, 0 or 1 by the first units that differ after `map`.
template <typename Unit, typename Map>
int32_t CompareCounted(const Unit* a, const Unit* b, uint32_t n, Map map) {
    for (uint32_t i = 0; i < n; ++i) {
        const auto left = map(a[i]);
        const auto right = map(b[i]);
        if (left < right) return -1;
        if (left > right) return 1;
        if (left == 0) break;
    }
    return 0;
}

} // namespace

uint32_t tav_wcslen(const TavChar* s) {
    if (!s) return 0;
    const TavChar* end = s;
    while (*end) ++end;
    return static_cast<uint32_t>(end - s);
}

TavChar* tav_wcscpy(TavChar* dst, const TavChar* src) {
    memcpy(dst, src, (size_t{tav_wcslen(src)} + 1) * sizeof(TavChar));
    return dst;
}

TavChar* tav_wcsncpy(TavChar* dst, const TavChar* src, uint32_t n) {
    uint32_t i = 0;
    while (i < n && src[i]) dst[i] = src[i], ++i;
    while (i < n) dst[i++] = 0;
    return dst;
}

TavChar* tav_wcscat(TavChar* dst, const TavChar* src) {
    tav_wcscpy(dst + tav_wcslen(dst), src);
    return dst;
}

TavChar* tav_wcschr(const TavChar* s, uint32_t c) {
    const TavChar wanted = static_cast<TavChar>(c);
    while (*s != wanted) {
        if (!*s) return nullptr;
        ++s;
    }
    return const_cast<TavChar*>(s);
}

TavChar* tav_wcsrchr(const TavChar* s, uint32_t c) {
    const TavChar wanted = static_cast<TavChar>(c);
    const TavChar* last = nullptr;
    do {
        if (*s == wanted) last = s;
    } while (*s++);
    return const_cast<TavChar*>(last);
}

TavChar* tav_wcsstr(const TavChar* hay, const TavChar* needle) {
    if (!*needle) return const_cast<TavChar*>(hay);
    for (; (hay = tav_wcschr(hay, *needle)); ++hay) {
        const TavChar* h = hay;
        const TavChar* n = needle;
        while (*n && *h == *n) ++h, ++n;
        if (!*n) return const_cast<TavChar*>(hay);
    }
    return nullptr;
}

int32_t tav_wcscmp(const TavChar* a, const TavChar* b) {
    while (*a && *a == *b) ++a, ++b;
    return *a - *b;
}

int32_t tav_wcsncmp(const TavChar* a, const TavChar* b, uint32_t n) {
    return CompareCounted(a, b, n, [](TavChar unit) { return unit; });
}

int32_t tav_wcsnicmp(const TavChar* a, const TavChar* b, uint32_t n) {
    return CompareCounted(a, b, n, [](TavChar unit) { return tav_towlower(unit); });
}

// kept: bytes are signed, so 0x80 to 0xFF sort before the terminator.
int32_t tav_strncmp(const char* a, const char* b, uint32_t n) {
    return CompareCounted(a, b, n, [](char byte) { return static_cast<signed char>(byte); });
}

int32_t tav_strnicmp(const char* a, const char* b, uint32_t n) {
    return CompareCounted(
        a, b, n, [](char byte) { return static_cast<signed char>(tolower(static_cast<signed char>(byte))); });
}
