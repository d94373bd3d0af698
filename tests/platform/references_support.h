// Short forms of the reference operations for the tests of them.
#pragma once

#include "platform/linux/references.h"
#include "platform/references.h"
#include "support/references.h"

#include <string>

#include <gtest/gtest.h>

inline OSStatus PathToRef(const std::string& path, FSRef& ref, Boolean* isDirectory = nullptr) {
    return FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, isDirectory);
}

// The reference of a path that must exist.
inline FSRef RefTo(const std::string& path) {
    FSRef ref = {};
    EXPECT_EQ(PathToRef(path, ref), noErr) << path;
    return ref;
}

inline OSErr Find(const FSRef& ref) {
    Place place;
    return Locate(ref, place);
}

inline OSErr ChildRef(const FSRef& folder, const std::u16string& name, FSRef& ref) {
    return FSMakeFSRefUnicode(&folder, static_cast<UniCharCount>(name.size()),
                              reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown, &ref);
}
