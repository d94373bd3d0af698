// Short forms of the reference operations for the tests of them.
#pragma once

#include "platform/linux/descriptor_cache.h"
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

// Longer than the provider believes where a path leads.
inline void OutlastBelief() {
    for (const uint64_t begin = MonotonicNow(); MonotonicNow() - begin < 100000;) {
    }
}

// The reference of a path of which the provider believes for the next moment that it leads where it leads now.
inline FSRef BelievedRefTo(const std::string& path) {
    RefTo(path);
    OutlastBelief();
    return RefTo(path);
}

inline OSErr Find(const FSRef& ref) {
    Place place;
    return Locate(ref, place);
}

inline OSErr ChildRef(const FSRef& folder, const std::u16string& name, FSRef& ref) {
    return FSMakeFSRefUnicode(&folder, static_cast<UniCharCount>(name.size()),
                              reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown, &ref);
}
