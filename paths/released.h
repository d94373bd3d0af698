// Objects of the string and URL services, released when their holder goes.
#pragma once

#include "platform/strings.h"

#include <memory>
#include <type_traits>

struct Releaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

// Holds a CFStringRef or CFURLRef, or null.
template <typename Ref>
using Released = std::unique_ptr<std::remove_pointer_t<Ref>, Releaser>;
