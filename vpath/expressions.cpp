#include "vpath/expressions.h"

#include "vpath/segments.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace {

constexpr TavChar kSeparator = u'\\';
constexpr uint32_t kKeyBytes = 4;
constexpr uint32_t kKeyRootUnits = 1 + kKeyBytes + 1;

using Expression = std::unique_ptr<OpacTavFSExp>;

Expression NewExpression() {
    return Expression(new (std::nothrow) OpacTavFSExp);
}

TavChar* AllocateUnits(size_t units) {
    if (units > std::numeric_limits<size_t>::max() / sizeof(TavChar)) return nullptr;
    return static_cast<TavChar*>(std::malloc(units * sizeof(TavChar)));
}

// kept: bytes from 0x80 up become 0xFF80 to 0xFFFF; reading a key or a name back takes the low byte alone.
TavChar SignExtended(char byte) {
    return static_cast<TavChar>(static_cast<signed char>(byte));
}

bool EndsWithSeparator(const OpacTavFSExp* e) {
    return e->length > 0 && e->storage[e->length - 1] == kSeparator;
}

// Room for `extra` units behind the text, or null.
TavChar* GrowBy(OpacTavFSExp* e, size_t extra) {
    const uint64_t needed = uint64_t{e->length} + extra;
    if (needed > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) return nullptr;
    return AdjustStorageAndGetAppend(e, static_cast<int32_t>(needed));
}

// The storage moved into a block of `capacity` units, or null with the old one untouched.
TavChar* MovedStorage(OpacTavFSExp* e, uint32_t capacity) {
    const uint64_t size = uint64_t{capacity} * sizeof(TavChar);
    if (size > std::numeric_limits<size_t>::max()) return nullptr;
    if (e->storage) {
        void* grown = std::realloc(e->storage, static_cast<size_t>(size));
        if (grown) return static_cast<TavChar*>(grown);
    }
    // A block that cannot grow where it is may still find room elsewhere.
    TavChar* block = AllocateUnits(capacity);
    if (!block) return nullptr;
    if (e->storage) std::memcpy(block, e->storage, e->length * sizeof(TavChar));
    std::free(e->storage);
    return block;
}

} // namespace

OpacTavFSExp::~OpacTavFSExp() {
    std::free(storage);
}

TavChar* AdjustStorageAndGetAppend(OpacTavFSExp* e, int32_t neededUnits) {
    if (int64_t{neededUnits} > int64_t{e->capacity}) {
        const uint32_t capacity = std::max(static_cast<uint32_t>(neededUnits), e->capacity * 2);
        TavChar* block = MovedStorage(e, capacity);
        if (!block) return nullptr;
        e->storage = block;
        e->capacity = capacity;
    }
    return e->storage + e->length;
}

bool AppendSlash(OpacTavFSExp* e) {
    if (EndsWithSeparator(e)) return true;
    TavChar* end = GrowBy(e, 1);
    if (!end) return false;
    *end = kSeparator;
    ++e->length;
    return true;
}

void RemoveSlash(OpacTavFSExp* e) {
    if (EndsWithSeparator(e)) --e->length;
}

OpacTavFSExp* Tav0FSExpCreateAbs(OpacTavFSRef* ref) {
    const uint32_t pathUnits = Tav0FSRToUTF16(ref, nullptr, 0);
    if (pathUnits == 0) return nullptr;
    Expression e = NewExpression();
    if (!e) return nullptr;
    e->storage = AllocateUnits(size_t{pathUnits} + 2);
    if (!e->storage) return nullptr;
    e->storage[0] = u'M';
    e->storage[1] = kSeparator;
    Tav0FSRToUTF16(ref, e->storage + 2, pathUnits);
    e->length = pathUnits + 1;
    e->capacity = pathUnits + 2;
    return e.release();
}

OpacTavFSExp* Tav0FSExpCreateTK(const char* key) {
    if (!key) return nullptr;
    Expression e = NewExpression();
    if (!e) return nullptr;
    e->storage = AllocateUnits(kKeyRootUnits);
    if (!e->storage) return nullptr;
    e->capacity = kKeyRootUnits;
    e->storage[0] = u'$';
    e->length = 1;
    for (uint32_t i = 0; i < kKeyBytes && key[i]; ++i) e->storage[e->length++] = SignExtended(key[i]);
    e->storage[e->length] = 0;
    return e.release();
}

OpacTavFSExp* Tav0FSExpCreateExp(const TavChar* text) {
    if (!text) return nullptr;
    Expression e = NewExpression();
    if (!e) return nullptr;
    const uint32_t length = SegLen(text);
    // Never an empty request, so that an empty text is an expression whatever the allocator makes of it.
    e->storage = AllocateUnits(std::max<uint32_t>(length, 1));
    if (!e->storage) return nullptr;
    std::memcpy(e->storage, text, length * sizeof(TavChar));
    e->length = e->capacity = length;
    return e.release();
}

uint32_t Tav0FSExpGetExp(const OpacTavFSExp* e, TavChar* buf, uint32_t bufUnits) {
    if (!e || !e->storage) return 0;
    if (buf && bufUnits > e->length) {
        std::memcpy(buf, e->storage, e->length * sizeof(TavChar));
        buf[e->length] = 0;
    }
    return e->length + 1;
}

int32_t Tav0FSExpIsRelPath(const OpacTavFSExp* e, TavChar* nameBuf, uint32_t* nameUnits) {
    if (!e || !e->storage || e->length < 2 || e->storage[0] != u'$' || e->storage[1] != u'$') return 0;

    const TavChar* const name = e->storage + 2;
    const TavChar* const end = e->storage + e->length;
    const TavChar* const separator = std::find(name, end, kSeparator);
    const auto units = static_cast<uint32_t>(separator - name);
    // kept: without any separator there is no name.
    const bool reported = separator != end && (!nameBuf || !nameUnits || *nameUnits > units);
    if (reported && nameBuf) {
        std::memcpy(nameBuf, name, units * sizeof(TavChar));
        nameBuf[units] = 0;
    }
    if (nameUnits) *nameUnits = reported ? units : 0;
    return 1;
}

int32_t Tav0FSExpAppendSeg(OpacTavFSExp* e, const TavChar* seg) {
    if (!e || !seg) return 0;
    if (*seg == kSeparator) {
        RemoveSlash(e);
    } else if (!AppendSlash(e)) {
        return 0;
    }
    const uint32_t units = SegLen(seg);
    TavChar* end = GrowBy(e, units);
    if (!end) return 0;
    std::replace_copy(seg, seg + units, end, u'/', kSeparator);
    e->length += units;
    return 1;
}

int32_t Tav0FSExpAppendVal(OpacTavFSExp* e, const char* name) {
    if (!e || !name || !AppendSlash(e)) return 0;
    const size_t bytes = std::strlen(name);
    TavChar* end = GrowBy(e, bytes + 1);
    if (!end) return 0;
    *end = u'%';
    std::transform(name, name + bytes, end + 1, SignExtended);
    e->length += static_cast<uint32_t>(bytes + 1);
    return 1;
}

void Tav0FSExpRelease(OpacTavFSExp* e) {
    delete e;
}
