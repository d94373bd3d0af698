#include "support/faults.h"
#include "support/virtual_paths.h"
#include "vpath/globals.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

using faults::Injection;
using faults::Pause;

// Both the copy and the entry take memory.
constexpr unsigned kAllocations = 2;

} // namespace

TEST(RegistryFaults, AKeyWithoutMemoryChangesNothing) {
    const TavKey key = KeyOf("pref");
    FSRef folder;
    std::memset(&folder, 1, sizeof folder);
    for (unsigned call = 1; call <= kAllocations; ++call) {
        const Injection fault({.call = call, .operation = "memory"});
        const FSRef* const copy = Tav0TranPathRegister(&key, &folder);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(copy, nullptr);
        EXPECT_TRUE(g_map_KeyPath.empty());
    }
    FSRef* const stored = Tav0TranPathRegister(&key, &folder);
    FSRef other = {};
    for (unsigned call = 1; call <= kAllocations; ++call) {
        const Injection fault({.call = call, .operation = "memory"});
        const FSRef* const copy = Tav0TranPathRegister(&key, &other);
        const Pause pause;
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(Tav0TranPathGet(&key), stored);
        EXPECT_EQ(std::memcmp(stored, &folder, sizeof folder), 0);
    }
}

TEST(RegistryFaults, AValueWithoutMemoryChangesNothing) {
    const MyStr16 name = NameOf("lang");
    for (unsigned call = 1; call <= kAllocations; ++call) {
        const Injection fault({.call = call, .operation = "memory"});
        const TavChar* const copy = Tav0FSValRegister(&name, u"en");
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(copy, nullptr);
        EXPECT_TRUE(g_map_KeyPathSeg.empty());
        EXPECT_EQ(Tav0FSValGetModifyAccount(), 0u);
    }
    TavChar* const stored = Tav0FSValRegister(&name, u"en");
    for (unsigned call = 1; call <= kAllocations; ++call) {
        const Injection fault({.call = call, .operation = "memory"});
        const TavChar* const copy = Tav0FSValRegister(&name, u"de");
        const Pause pause;
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(Tav0FSValGet(&name), stored);
        EXPECT_EQ(std::u16string(stored), u"en");
        EXPECT_EQ(Tav0FSValGetModifyAccount(), 1u);
    }
}

TEST(RegistryFaults, NothingLeaks) {
    const TavKey key = KeyOf("pref");
    const MyStr16 name = NameOf("lang");
    const FSRef folder = {};
    Tav0TranPathRegister(&key, &folder);
    EXPECT_EQ(faults::FailEachCall({.fault = {.operation = "memory"},
                                    .scenario =
                                        [&] {
                                            Tav0FSValRegister(&name, u"en");
                                            Tav0FSValRegister(&name, u"de");
                                        },
                                    .check = [&](const std::string&) { Tav0FSValRemove(&name); }}),
              2 * kAllocations);
}
