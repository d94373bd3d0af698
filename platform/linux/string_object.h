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
    size_t capacity;
    UniChar* units;
    int32_t owners; // who will release it
    bool isMutable;

    // The units in the object's own block.
    UniChar* FirstUnits() { return reinterpret_cast<UniChar*>(this + 1); }
};

namespace strings {

// A new string with room for `capacity` units; null when memory runs out.
OpaqueCFString* Allocate(size_t capacity, bool isMutable);

// Another ownership of a string that nobody changes.
CFStringRef Share(CFStringRef string);

// Makes room for `capacity` units and keeps the content; false, and no change, when memory runs out.
bool Reserve(OpaqueCFString* string, size_t capacity);

} // namespace strings
