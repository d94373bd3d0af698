#include "support/faults.h"
#include "support/virtual_paths.h"
#include "vpath/expressions.h"

#include <gtest/gtest.h>

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
