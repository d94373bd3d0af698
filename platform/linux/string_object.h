// What a string of the string service is made of, shared by the service's files.
#pragma once

#include "platform/linux/cf_object.h"
#include "platform/strings.h"

#include <cstddef>
#include <cstdint>

// One heap block holds this and the first units; only a mutable string that outgrows its block has a second
// one.
struct OpaqueCFString : CFObject {
    size_t length;
    UniChar* units;
    bool isMutable;
    // Constant strings end here.
    int32_t owners; // who will release it
    size_t capacity;

    // The units in the object's own block.
    UniChar* FirstUnits() { return reinterpret_cast<UniChar*>(this + 1); }
};

// The base class is all that makes this layout less than standard; compilers place it first.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(CFConstantString, length) == offsetof(OpaqueCFString, length));
static_assert(offsetof(CFConstantString, units) == offsetof(OpaqueCFString, units));
static_assert(offsetof(CFConstantString, isMutable) == offsetof(OpaqueCFString, isMutable));
#pragma GCC diagnostic pop

namespace strings {

// Whether an object is a string, constant ones included.
bool IsString(CFTypeRef object);

// A new string with room for `capacity` units; null when memory runs out.
OpaqueCFString* Allocate(size_t capacity, bool isMutable);

// Another ownership of a string that nobody changes.
CFStringRef Share(CFStringRef string);

// Makes room for `capacity` units and keeps the content; false, and no change, when memory runs out.
bool Reserve(OpaqueCFString* string, size_t capacity);

} // namespace strings
