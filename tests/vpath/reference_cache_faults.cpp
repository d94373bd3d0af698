#include "platform/multiprocessing.h"
#include "support/faults.h"
#include "support/files.h"
#include "support/virtual_paths.h"
#include "support/watching.h"
#include "vpath/globals.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using faults::Injection;
using faults::Pause;

std::u16string Numbered(int i) {
    return u"/folder/" + Wide(std::to_string(i * 7919 % 1000));
}

} // namespace

// Every allocation on the way to a thousand references refused once: the reference is null then and the cache
// whole, or it is made all the same because only tidying up had to wait.
TEST(CacheFaults, AReferenceWithoutMemoryLeavesTheCacheAsItWas) {
    std::vector<Ref> made;
    unsigned refused = 0;
    for (int i = 0; i < 1000; ++i) {
        const std::u16string path = Numbered(i);
        for (unsigned call = 1;; ++call) {
            ASSERT_LT(call, 20u);
            const size_t before = s_FSRefs.size();
            const Injection fault({.call = call, .operation = "memory"});
            OpacTavFSRef* const r = Tav0FSRCreateWithPath(path.c_str());
            const Pause pause;
            ASSERT_EQ(s_FSRefs.size(), before + (r ? 1 : 0));
            if (r) {
                made.emplace_back(r);
                break;
            }
            ASSERT_EQ(fault.fired(), 1u);
            ++refused;
        }
    }
    EXPECT_GT(refused, 1000u);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(PathOf(made[i]), Numbered(i));
        ASSERT_EQ(MakeRef(Numbered(i)), made[i]);
    }
    made.clear();
    EXPECT_EQ(s_FSRefs.size(), 0u);
}

TEST(CacheFaults, WithoutMemoryForTidyingUpReferencesAreStillFound) {
    std::vector<Ref> made;
    for (int i = 0; i < 500; ++i) made.push_back(MakeRef(Numbered(i)));
    // Blocks for references go through malloc, the arrays through operator new.
    for (int i = 500; i < 1000; ++i) {
        const std::u16string path = Numbered(i);
        const Injection fault({.call = 1, .lasting = true, .operation = "operator new"});
        OpacTavFSRef* const r = Tav0FSRCreateWithPath(path.c_str());
        const Pause pause;
        if (r) made.emplace_back(r);
    }
    for (const Ref& ref : made) ASSERT_EQ(MakeRef(PathOf(ref)), ref);
    made.resize(100);
    for (const Ref& ref : made) ASSERT_EQ(MakeRef(PathOf(ref)), ref);
    EXPECT_EQ(s_FSRefs.size(), 100u);
}

TEST(CacheFaults, ALockThatCannotBeHadGivesNull) {
    const Injection fault({.call = 1, .operation = "MPEnterCriticalRegion"});
    OpacTavFSRef* const r = Tav0FSRCreateWithPath(u"/a");
    const Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(r, nullptr);
    EXPECT_EQ(s_FSRefs.size(), 0u);
}

TEST(CacheFaults, OneLockIsTakenForEachCreationAndRelease) {
    const Injection watch;
    OpacTavFSRef* const r = Tav0FSRCreateWithPath(u"/a");
    Tav0FSRCreateWithPath(u"/a");
    Tav0FSRRetain(r);
    Tav0FSRToUTF16(r, nullptr, 0);
    Tav0FSRRelease(r);
    Tav0FSRRelease(r);
    Tav0FSRRelease(r);
    const Pause pause;
    EXPECT_EQ(watch.calls("MPEnterCriticalRegion"), 5u);
    EXPECT_EQ(watch.calls("MPExitCriticalRegion"), 5u);
}

TEST(CacheFaults, TheLockIsWaitedForWithoutLimit) {
    std::vector<Duration> waits;
    const faults::Watch<OSStatus(MPCriticalRegionID, Duration)> watch(
        "MPEnterCriticalRegion", [&](auto, Duration limit) { waits.push_back(limit); });
    MakeRef(u"/a");
    EXPECT_EQ(waits, std::vector<Duration>(2, 0x7FFFFFFF));
}

TEST(CacheFaults, AReferenceIsOneBlockOfItsCountAndPath) {
    const Ref other = MakeRef(u"/other"); // has the arrays grown
    const Injection watch({.operation = "malloc"});
    OpacTavFSRef* const r = Tav0FSRCreateWithPath(u"/a/b");
    const Pause pause;
    EXPECT_EQ(watch.calls("malloc"), 1u);
    EXPECT_EQ(watch.sizes().front(), 4u + 2 * 5);
    Tav0FSRRelease(r);
}

TEST(CacheFaults, AFoundReferenceAllocatesNothing) {
    const Ref ref = MakeRef(u"/a/b");
    const Exp e = MakeExp(u"M\\/a\\b");
    const Injection fault({.call = 1, .lasting = true, .operation = "memory"});
    OpacTavFSRef* const same = Tav0FSExpCalculateFSRCreate(e.get(), nullptr);
    Tav0FSRRelease(same);
    const Pause pause;
    EXPECT_EQ(same, ref.get());
}
