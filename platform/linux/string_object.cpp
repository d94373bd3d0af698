// The memory behind strings: blocks of malloc. A string that never grows is one block; mutable ones start
// with enough room that ordinary texts stay one block, too.
#include "platform/linux/string_object.h"

#include "platform/atomics.h"

#include <cassert>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

void ReleaseString(CFObject* object) {
    auto* string = static_cast<OpaqueCFString*>(object);
    // The only owner needs no atomic step.
    const bool shared = std::atomic_ref<int32_t>(string->owners).load(std::memory_order_acquire) != 1;
    if (shared && DecrementAtomic(&string->owners) != 1) return;
    if (string->units != string->FirstUnits()) free(string->units);
    free(string);
}

void ReleaseConstant(CFObject*) {}

constexpr CFKind kStringKind = {"CFString", ReleaseString};

constexpr size_t kMaxUnits =
    (std::numeric_limits<ptrdiff_t>::max() - sizeof(OpaqueCFString)) / sizeof(UniChar);

} // namespace

extern "C" const CFKind __CFConstantStringClassReference = {"CFString", ReleaseConstant};

namespace strings {

bool IsString(CFTypeRef object) {
    const CFKind* kind = static_cast<const CFObject*>(object)->kind;
    return kind == &kStringKind || kind == &__CFConstantStringClassReference;
}

OpaqueCFString* Allocate(size_t capacity, bool isMutable) {
    if (capacity > kMaxUnits) return nullptr;
    auto* string = static_cast<OpaqueCFString*>(malloc(sizeof(OpaqueCFString) + capacity * sizeof(UniChar)));
    if (!string) return nullptr;
    string->kind = &kStringKind;
    string->length = 0;
    string->capacity = capacity;
    string->units = string->FirstUnits();
    string->owners = 1;
    string->isMutable = isMutable;
    return string;
}

CFStringRef Share(CFStringRef string) {
    assert(!string->isMutable);
    if (string->kind == &__CFConstantStringClassReference) return string;
    IncrementAtomic(&const_cast<OpaqueCFString*>(string)->owners);
    return string;
}

bool Reserve(OpaqueCFString* string, size_t capacity) {
    if (capacity <= string->capacity) return true;
    if (capacity > kMaxUnits) return false;
    const size_t bytes = capacity * sizeof(UniChar);
    const bool grown = string->units != string->FirstUnits();
    void* larger = grown ? realloc(string->units, bytes) : malloc(bytes);
    if (!larger) return false;
    if (!grown) memcpy(larger, string->units, string->length * sizeof(UniChar));
    string->units = static_cast<UniChar*>(larger);
    string->capacity = capacity;
    return true;
}

} // namespace strings
