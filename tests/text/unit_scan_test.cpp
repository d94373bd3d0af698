#include "text/unit_scan.h"

#include "support/guarded.h"

#include <gtest/gtest.h>

#include <iostream>
#include <random>

// The block forms beside the plain loops, on texts at every distance from a forbidden page.
#if TAV_UNIT_BLOCKS
namespace {

using Text = std::u16string;
using At = GuardedMemory::At;

struct Random {
    Random() : seed(std::random_device{}()), engine(seed) { std::cout << "seed " << seed << '\n'; }

    // Up to 150 units of few kinds, some of them special to the loops.
    Text NextText() {
        constexpr char16_t kinds[] = {u'a', u'A',   u'z',   u'Z',   u'[',   u'@',  u'`',
                                      u'{', 0x0100, 0x8000, 0xFFFF, 0x0161, 0x00C9};
        Text text(engine() % 150, 0);
        for (auto& unit : text) unit = kinds[engine() % (engine() % 3 ? 2 : std::size(kinds))];
        return text;
    }

    unsigned seed;
    std::mt19937 engine;
};

} // namespace

TEST(UnitBlocks, FindWhatThePlainLoopsFind) {
    if (!blocks::Available()) GTEST_SKIP() << "this processor has no registers of 32 bytes";
    Random random;
    for (int round = 0; round < 20000; ++round) {
        const Text text = random.NextText();
        const GuardedText<char16_t> guarded(text, round % 2 ? At::End : At::Start);
        const size_t start = random.engine() % (text.size() + 1);
        const TavChar* s = guarded.get() + start;
        for (char16_t unit : {u'A', u'\x0100', u'\xFFFF', u'q', u'\0'}) {
            ASSERT_EQ(blocks::FindOrEnd(s, unit), plain::FindOrEnd(s, unit));
            if (!unit) continue;
            ASSERT_EQ(blocks::FindLast(s, unit), plain::FindLast(s, unit));
        }
        ASSERT_EQ(blocks::FindEnd(s), plain::FindOrEnd(s, 0));
    }
}

TEST(UnitBlocks, FindNeedlesWhereThePlainLoopDoes) {
    if (!blocks::Available()) GTEST_SKIP() << "this processor has no registers of 32 bytes";
    Random random;
    size_t found = 0, givenUp = 0;
    for (int round = 0; round < 40000; ++round) {
        const Text text = random.NextText();
        if (text.size() < 2) continue;
        const GuardedText<char16_t> guarded(text, round % 2 ? At::End : At::Start);
        const TavChar* s = guarded.get() + random.engine() % (text.size() + 1);
        const size_t most = std::min<size_t>(text.size(), 40), n = 2 + random.engine() % (most - 1);
        Text needle = text.substr(random.engine() % (text.size() - n + 1), n);
        if (round % 4 == 0) needle.back() = u'q';
        if (round % 8 == 1) needle[n / 2] = u'q';
        const GuardedText<char16_t> guardedNeedle(needle, round % 2 ? At::Start : At::End);
        Patience forPlain(s), forBlocks(s);
        const TavChar* place = plain::FindNeedle(s, guardedNeedle.get(), n, forPlain);
        const TavChar* byBlocks = blocks::FindNeedle(s, guardedNeedle.get(), n, forBlocks);
        if (forPlain.IsOver() || forBlocks.IsOver()) {
            ++givenUp;
            const size_t at = Text(s).find(needle);
            ASSERT_TRUE(at == Text::npos || s + at >= (forPlain.IsOver() ? place : byBlocks));
            continue;
        }
        found += place != nullptr;
        ASSERT_EQ(byBlocks, place);
    }
    EXPECT_GT(found, 1000u);
    EXPECT_LT(givenUp, 1000u);
}

TEST(UnitBlocks, FindANeedleAtEveryPlaceOfABlock) {
    if (!blocks::Available()) GTEST_SKIP() << "this processor has no registers of 32 bytes";
    for (size_t before = 0; before < 80; ++before) {
        const GuardedText<char16_t> text(Text(before, u'a') + u"b");
        for (size_t start = 0; start <= before + 1; ++start) {
            const TavChar* s = text.get() + start;
            Patience patience(s);
            EXPECT_EQ(blocks::FindNeedle(s, u"ab", 2, patience),
                      start < before ? text.get() + before - 1 : nullptr);
            EXPECT_EQ(blocks::FindNeedle(s, u"ba", 2, patience), nullptr);
            EXPECT_FALSE(patience.IsOver());
        }
    }
}

TEST(UnitBlocks, ANeedleBehindOrAcrossTheTerminatorIsNotFound) {
    if (!blocks::Available()) GTEST_SKIP() << "this processor has no registers of 32 bytes";
    alignas(32) const char16_t texts[32] = u"xxxa\0bab";
    Patience patience(texts);
    EXPECT_EQ(blocks::FindNeedle(texts, u"ab", 2, patience), nullptr);
    EXPECT_EQ(blocks::FindNeedle(texts, u"axb", 3, patience), nullptr);
}

TEST(UnitBlocks, LosePatienceWithNeedlesThatFailLate) {
    if (!blocks::Available()) GTEST_SKIP() << "this processor has no registers of 32 bytes";
    const Text text(2000, u'a');
    Text needle(62, u'a');
    needle[60] = u'b';
    Patience patience(text.c_str());
    const TavChar* const place = blocks::FindNeedle(text.c_str(), needle.c_str(), needle.size(), patience);
    EXPECT_TRUE(patience.IsOver());
    EXPECT_LT(place - text.c_str(), 20);
}

TEST(UnitBlocks, CompareAsThePlainLoopsDo) {
    if (!blocks::Available()) GTEST_SKIP() << "this processor has no registers of 32 bytes";
    Random random;
    for (int round = 0; round < 20000; ++round) {
        Text left = random.NextText(), right = left;
        for (auto& unit : right) {
            if (random.engine() % 40 == 0) unit ^= 0x20;
        }
        if (round % 3 == 0) right.resize(random.engine() % (right.size() + 1));
        const GuardedText<char16_t> a(left, round % 2 ? At::End : At::Start),
            b(right, round % 5 ? At::End : At::Start);
        const size_t start = random.engine() % (std::min(left.size(), right.size()) + 1);
        const size_t limit = random.engine() % 2 ? SIZE_MAX : random.engine() % 160;
        const TavChar *l = a.get() + start, *r = b.get() + start;
        ASSERT_EQ(blocks::CommonLength<Fold::None>(l, r, limit),
                  plain::CommonLength<Fold::None>(l, r, limit));
        ASSERT_EQ(blocks::CommonLength<Fold::Ascii>(l, r, limit),
                  plain::CommonLength<Fold::Ascii>(l, r, limit));
    }
}

TEST(UnitBlocks, CompareTextsThatCrossPages) {
    if (!blocks::Available()) GTEST_SKIP() << "this processor has no registers of 32 bytes";
    const Text text(9000, u'a');
    Text other = text;
    for (size_t at : {0u, 2040u, 2047u, 2048u, 2049u, 4095u, 4096u, 8999u}) {
        other[at] = u'b';
        const GuardedText<char16_t> a(text), b(other + u"tail");
        EXPECT_EQ(blocks::CommonLength<Fold::None>(a.get(), b.get(), SIZE_MAX), at);
        other[at] = u'A';
        const GuardedText<char16_t> c(other);
        EXPECT_EQ(blocks::CommonLength<Fold::Ascii>(a.get(), c.get(), SIZE_MAX), 9000u);
        other[at] = u'a';
    }
}
#endif

TEST(UnitScan, PlainLoopsStopAtTheEndTheUnitAndTheLimit) {
    const TavChar s[] = u"abcABC";
    EXPECT_EQ(plain::FindOrEnd(s, u'c'), s + 2);
    EXPECT_EQ(plain::FindOrEnd(s, u'x'), s + 6);
    EXPECT_EQ(plain::FindLast(s, u'C'), s + 5);
    EXPECT_EQ(plain::FindLast(s, u'x'), nullptr);
    EXPECT_EQ(plain::CommonLength<Fold::Ascii>(s, s + 3, SIZE_MAX), 3u);
    EXPECT_EQ(plain::CommonLength<Fold::None>(s, s + 3, SIZE_MAX), 0u);
    EXPECT_EQ(plain::CommonLength<Fold::None>(s, s, 4), 4u);
}
