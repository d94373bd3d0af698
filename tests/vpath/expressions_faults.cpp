#include "support/faults.h"
#include "support/virtual_paths.h"
#include "vpath/expressions.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <utility>

namespace {

using faults::Injection;
using faults::Pause;

// The expression that `create` gives must be null in every run but the last, and where a block that cannot
// stretch moved instead; the number of failing runs.
unsigned FailCreation(const std::function<OpacTavFSExp*()>& create) {
    OpacTavFSExp* made = nullptr;
    return faults::FailEachCall({.fault = {.operation = "memory"},
                                 .scenario = [&] { made = create(); },
                                 .check =
                                     [&](const std::string& failed) {
                                         EXPECT_EQ(made == nullptr, !failed.empty() && failed != "realloc")
                                             << failed;
                                         Tav0FSExpRelease(made);
                                     }});
}

} // namespace

TEST(ExpressionFaults, CreatorsGiveNullAndLeakNothing) {
    const Ref ref = MakeRef(u"/a/b");
    EXPECT_EQ(FailCreation([&] { return Tav0FSExpCreateAbs(ref.get()); }), 2u);
    EXPECT_EQ(FailCreation([] { return Tav0FSExpCreateTK("pref"); }), 2u);
    EXPECT_EQ(FailCreation([] { return Tav0FSExpCreateExp(u"$pref"); }), 2u);
}

TEST(ExpressionFaults, BlocksHaveTheSizesThatTheCapacitiesTell) {
    const Ref ref = MakeRef(u"/a");
    const auto blockOf = [](const std::function<OpacTavFSExp*()>& create) {
        const Injection watch;
        OpacTavFSExp* const e = create();
        const Pause pause;
        EXPECT_EQ(watch.calls("malloc"), 1u);
        EXPECT_EQ(watch.sizes().back(), e->capacity * sizeof(TavChar));
        Tav0FSExpRelease(e);
        return watch.sizes().back();
    };
    EXPECT_EQ(blockOf([&] { return Tav0FSExpCreateAbs(ref.get()); }), 3u * 2 + 4);
    EXPECT_EQ(blockOf([] { return Tav0FSExpCreateTK("ab\0"); }), 12u);
    EXPECT_EQ(blockOf([] { return Tav0FSExpCreateExp(u"$pref"); }), 10u);
}

TEST(ExpressionFaults, AGrowingBlockHasTheSizeOfItsCapacity) {
    const Exp e = MakeExp(u"abc");
    const Injection watch;
    AdjustStorageAndGetAppend(e.get(), 4);
    const Pause pause;
    EXPECT_EQ(watch.calls("realloc"), 1u);
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{12});
}

// A text that no block of the host can hold is claimed over address space that costs nothing.
TEST(ExpressionFaults, AppendsRefuseToGrowBeyondTheGreatestCount) {
    if (sizeof(void*) == 4) GTEST_SKIP() << "the text would not fit into the address space";
    constexpr size_t kUnits = 0x7FFFFFFF;
    void* const space = mmap(nullptr, kUnits * sizeof(TavChar), PROT_READ,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(space, MAP_FAILED);
    const Exp e = MakeExp(u"");
    TavChar* const own = std::exchange(e->storage, static_cast<TavChar*>(space));
    const uint32_t ownCapacity = std::exchange(e->capacity, kUnits);
    e->length = kUnits;
    {
        const Injection watch;
        EXPECT_FALSE(AppendSlash(e.get()));
        EXPECT_EQ(Tav0FSExpAppendSeg(e.get(), u"\\x"), 0);
        EXPECT_EQ(Tav0FSExpAppendVal(e.get(), ""), 0);
        EXPECT_EQ(watch.calls("realloc") + watch.calls("malloc"), 0u);
    }
    EXPECT_EQ(e->length, kUnits);
    e->storage = own;
    e->capacity = ownCapacity;
    e->length = 0;
    munmap(space, kUnits * sizeof(TavChar));
}

TEST(ExpressionFaults, ReexpressionGivesNullAndLeaksNothing) {
    const Ref ref = MakeRef(u"/a/long/enough/to/grow");
    const Ref base = MakeRef(u"/a");
    // The comparison, the expression and its storage, the second "$", and the growing of the storage (twice
    // tried).
    EXPECT_GE(FailCreation([&] { return Tav0FSExpCreateAbsOnKey(ref.get(), "home", base.get()); }), 4u);
}

TEST(ExpressionFaults, GrowingMovesWhenItCannotStretch) {
    const Exp e = MakeExp(u"abc");
    const Injection fault({.call = 1, .operation = "realloc"});
    const TavChar* const end = AdjustStorageAndGetAppend(e.get(), 20);
    const Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end, e->storage + 3);
    EXPECT_EQ(e->capacity, 20u);
    EXPECT_EQ(TextOf(e), u"abc");
}

TEST(ExpressionFaults, GrowingChangesNothingWithoutMemory) {
    const Exp e = MakeExp(u"abc");
    const TavChar* const storage = e->storage;
    const Injection fault({.call = 1, .lasting = true, .operation = "memory"});
    const TavChar* const end = AdjustStorageAndGetAppend(e.get(), 20);
    const Pause pause;
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(e->storage, storage);
    EXPECT_EQ(e->capacity, 3u);
    EXPECT_EQ(TextOf(e), u"abc");
}

TEST(ExpressionFaults, AppendSlashChangesNothingWithoutMemory) {
    const Exp e = MakeExp(u"abc");
    const Injection fault({.call = 1, .lasting = true, .operation = "memory"});
    const bool appended = AppendSlash(e.get());
    const Pause pause;
    EXPECT_FALSE(appended);
    EXPECT_EQ(TextOf(e), u"abc");
}

TEST(ExpressionFaults, AppendsFailWithTheTextIntact) {
    for (const bool value : {false, true}) {
        const Exp e = MakeExp(u"abc");
        const Injection fault({.call = 1, .lasting = true, .operation = "memory"});
        const int32_t result =
            value ? Tav0FSExpAppendVal(e.get(), "name") : Tav0FSExpAppendSeg(e.get(), u"name");
        const Pause pause;
        EXPECT_EQ(result, 0);
        EXPECT_EQ(TextOf(e), u"abc");
    }
}

// An empty segment is nothing but its separator.
TEST(ExpressionFaults, AppendFailsWithoutRoomForTheSeparator) {
    const Exp e = MakeExp(u"abc");
    const Injection fault({.call = 1, .lasting = true, .operation = "memory"});
    const int32_t result = Tav0FSExpAppendSeg(e.get(), u"");
    const Pause pause;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(TextOf(e), u"abc");
}

TEST(ExpressionFaults, AppendsMayLeaveTheSeparatorBehind) {
    const Exp e = MakeExp(u"abcd");
    Tav0FSExpAppendSeg(e.get(), u"");
    ASSERT_EQ(e->capacity, 8u);
    RemoveSlash(e.get());
    const Injection fault({.call = 1, .lasting = true, .operation = "memory"});
    const int32_t result = Tav0FSExpAppendSeg(e.get(), u"longer");
    const Pause pause;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(TextOf(e), u"abcd\\");
}
