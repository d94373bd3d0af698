// Short forms of the reference operations for the tests of them.
#pragma once

#include "platform/linux/reference_state.h"
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

// Makes the provider believe for the next moment that the path's folder is where the path led when it was last looked at.
inline void BelieveFolderOf(const std::string& path) {
    const uint64_t now = MonotonicNow();
    MountViewHolds(now);
    StateLock state;
    FolderPaths::Entry* const entry = state->paths.Find(LastMountView(), path.c_str(), path.rfind('/'));
    ASSERT_NE(entry, nullptr) << path;
    entry->checked = now;
}

inline OSErr Find(const FSRef& ref) {
    Place place;
    return Locate(ref, place);
}

inline OSErr ChildRef(const FSRef& folder, const std::u16string& name, FSRef& ref) {
    return FSMakeFSRefUnicode(&folder, static_cast<UniCharCount>(name.size()),
                              reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown, &ref);
}
