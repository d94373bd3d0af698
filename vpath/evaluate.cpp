#include "vpath/evaluate.h"

#include "vpath/canonicalize.h"
#include "vpath/expressions.h"
#include "vpath/key_paths.h"
#include "vpath/named_values.h"
#include "vpath/reference_cache.h"
#include "vpath/segments.h"
#include "vpath/translation_keys.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr TavChar kSeparator = u'\\';
constexpr uint32_t kKeyUnits = 4;
constexpr uint32_t kNameBytes = 256;

bool EndsSegment(TavChar unit) {
    return unit == 0 || unit == kSeparator;
}

bool IsFull(const TavChar* w, const TavChar* start) {
    return w == start + kEvaluationUnits;
}

void Put(TavChar** w, const TavChar* start, TavChar unit) {
    if (*w < start + kEvaluationUnits - 1) {
        *(*w)++ = unit;
    } else {
        *w += start + kEvaluationUnits - *w;
    }
}

void PutSlash(TavChar** w, const TavChar* start) {
    if (*w > start && !IsFull(*w, start) && (*w)[-1] != u'/') Put(w, start, u'/');
}

// The name of a value by its low bytes, zero-terminated; false when it does not fit.
bool TakeName(const TavChar** p, const TavChar* end, char* name) {
    uint32_t bytes = 0;
    for (; *p < end && !EndsSegment(**p); ++*p) {
        if (bytes < kNameBytes) name[bytes] = static_cast<char>(**p & 0xFF);
        ++bytes;
    }
    if (bytes >= kNameBytes) return false;
    name[bytes] = 0;
    return true;
}

// The text of a value; null for a name that no value can have.
const TavChar* FindValue(const char* name) {
    MyStr16 field = {};
    const size_t length = std::strlen(name);
    if (length >= sizeof field.name) return nullptr;
    std::memcpy(field.name, name, length);
    return Tav0FSValGet(&field);
}

// "$key": the folder's path; nothing for a key that is not registered or a folder without a path. Reads from
// a copy, since the expression need not have a terminator.
bool CopyKeyRoot(const TavChar** p, const TavChar* end, TavChar** w) {
    TavChar root[1 + kKeyUnits + 1] = {};
    std::copy_n(*p, std::min<ptrdiff_t>(end - *p, 1 + kKeyUnits), root);
    const TavChar* rest = root;
    const int32_t number = ParseKey(&rest);
    if (number == 0) return false;
    *p += rest - root;
    const TavKey key = KeyInMemory(number);
    const uint32_t units = _GetAbsPath(Tav0TranPathGet(&key), *w, kPathUnits);
    // kept: the segments that follow start the path then, so it has no "/" in front.
    if (units > 0 && units <= kPathUnits) *w += units - 1;
    return true;
}

// "$$name": the path of the base. Steps over one unit of the name, too; the rest is skipped with the segment.
bool CopyBaseRoot(const TavChar** p, const TavChar* end, TavChar** w, const OpacTavFSRef* base) {
    if (!base || SegLen(base->Path()) >= kEvaluationUnits) return false;
    _CopyPath(*w, base->Path());
    *p += std::min<ptrdiff_t>(end - *p, 3);
    return true;
}

// Any other text: ignored; `*p` comes to rest on the "\" that must follow.
bool SkipAbsoluteRoot(const TavChar** p, const TavChar* end) {
    if (NextSegment(p, end) != 0) return false;
    --*p;
    return true;
}

bool CopyRoot(const TavChar** p, const TavChar* end, TavChar** w, const OpacTavFSRef* base) {
    if (*p == end || **p != u'$') return SkipAbsoluteRoot(p, end);
    if (end - *p > 1 && (*p)[1] == u'$') return CopyBaseRoot(p, end, w, base);
    return CopyKeyRoot(p, end, w);
}

} // namespace

int32_t ParseKey(const TavChar** p) {
    if (**p != u'$') return 0;
    ++*p;
    uint32_t key = 0;
    for (uint32_t i = 0; i < kKeyUnits && !EndsSegment(**p); ++i, ++*p) {
        key |= uint32_t{static_cast<uint8_t>(**p)} << (8 * (kKeyUnits - 1 - i));
    }
    return static_cast<int32_t>(key);
}

int32_t NextSegment(const TavChar** p, const TavChar* end) {
    for (const TavChar* unit = *p; unit < end; ++unit) {
        if (*unit == 0) {
            *p = unit;
            return 1;
        }
        if (*unit == kSeparator) {
            *p = unit + 1;
            return 0;
        }
    }
    return 1;
}

int32_t TryCopyAsNormalSeg(const TavChar** p, const TavChar* end, TavChar** w, const TavChar* start) {
    if (*p >= end || **p == u'%') return 0;
    PutSlash(w, start);
    if (IsFull(*w, start)) return 1;
    const auto units = static_cast<size_t>(std::find_if(*p, end, EndsSegment) - *p);
    const auto room = static_cast<size_t>(start + kEvaluationUnits - 1 - *w);
    const size_t copied = std::min(units, room);
    std::memcpy(*w, *p, copied * sizeof(TavChar));
    *w += copied;
    *p += copied;
    if (copied < units) Put(w, start, *(*p)++);
    return 1;
}

int32_t TryCopyAsVariable(const TavChar** p, const TavChar* end, TavChar** w, const TavChar* start) {
    if (*p >= end || **p != u'%') return 0;
    ++*p;
    // kept: an unknown value leaves this "/" behind.
    PutSlash(w, start);
    char name[kNameBytes];
    if (!TakeName(p, end, name)) {
        *w += start + kEvaluationUnits - *w;
        return 0;
    }
    const TavChar* value = FindValue(name);
    if (!value) return 0;

    while (*value == kSeparator) ++value;
    const TavChar* const valueEnd = value + SegLen(value);
    do {
        // kept: a "%" segment in a value is dropped, not looked up.
        TryCopyAsNormalSeg(&value, valueEnd, w, start);
    } while (NextSegment(&value, valueEnd) == 0);
    return 1;
}

void _CopyPath(TavChar*& w, const TavChar* s) {
    const uint32_t length = SegLen(s);
    std::memcpy(w, s, (size_t{length} + 1) * sizeof(TavChar));
    w += length;
}

OpacTavFSRef* Tav0FSExpCalculateFSRCreate(const OpacTavFSExp* e, const OpacTavFSRef* base) {
    if (!e || !e->storage) return nullptr;
    TavChar path[kEvaluationUnits];
    TavChar* w = path;
    const TavChar* p = e->storage;
    const TavChar* const end = p + e->length;
    if (!CopyRoot(&p, end, &w, base)) return nullptr;
    while (NextSegment(&p, end) == 0) {
        if (TryCopyAsNormalSeg(&p, end, &w, path) == 0) TryCopyAsVariable(&p, end, &w, path);
        if (IsFull(w, path)) return nullptr;
    }
    *w = 0;
    if (!MyPathCanonicalize(path)) return nullptr;
    return FSRCreatePath(path);
}
