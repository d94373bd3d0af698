#include "TavPort.h"
#include "support/guarded.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>
#include <vector>

namespace {

// Every unit of the buffer that nobody wrote.
constexpr TavChar kUntouched = 0x7777;

struct Buffer {
    TavChar units[64];
    Buffer() { std::fill(std::begin(units), std::end(units), kUntouched); }
    std::u16string text() const { return units; }
};

int32_t FormatList(TavChar* buffer, const TavChar* format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result = tav_vswprintf(buffer, format, args);
    va_end(args);
    return result;
}

} // namespace

TEST(Swprintf, WritesTheTextAndGivesZero) {
    Buffer buffer;
    EXPECT_EQ(tav_swprintf(buffer.units, u"%s", u"abcd"), 0);
    EXPECT_EQ(buffer.text(), u"abcd");
    EXPECT_EQ(buffer.units[5], kUntouched);
}

TEST(Vswprintf, WritesTheTextAndGivesItsLength) {
    Buffer buffer;
    EXPECT_EQ(FormatList(buffer.units, u"%s", u"abcd"), 4);
    EXPECT_EQ(buffer.text(), u"abcd");
    EXPECT_EQ(buffer.units[5], kUntouched);
}

TEST(Swprintf, ReadsFormatAndArgumentsBeforeItWrites) {
    TavChar text[64] = u"abc";
    EXPECT_EQ(tav_swprintf(text, u"%s-%s", text, text), 0);
    EXPECT_EQ(std::u16string(text), u"abc-abc");
    tav_wcscpy(text, u"<%d>");
    EXPECT_EQ(tav_swprintf(text, text, 12345), 0);
    EXPECT_EQ(std::u16string(text), u"<12345>");
}

TEST(Snwprintf, CutsAndGivesTheLengthNegated) {
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 3, u"%s", u"abcdef"), -3);
    EXPECT_EQ(buffer.text(), u"abc");
    EXPECT_EQ(buffer.units[4], kUntouched);
}

TEST(Snwprintf, AnExactFitIsNoCut) {
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 6, u"%s", u"abcdef"), 6);
    EXPECT_EQ(buffer.text(), u"abcdef");
    EXPECT_EQ(buffer.units[7], kUntouched);
    EXPECT_EQ(tav_snwprintf(buffer.units, 60, u"%d", 42), 2);
}

TEST(Snwprintf, WithNoRoomItWritesTheTerminatorOnly) {
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 0, u"%s", u"abc"), 0);
    EXPECT_EQ(buffer.units[0], 0);
    EXPECT_EQ(buffer.units[1], kUntouched);
}

TEST(Snwprintf, TouchesNothingBehindTheUnitOnTop) {
    for (uint32_t n : {0u, 1u, 5u, 9u}) {
        const GuardedMemory memory((n + 1) * sizeof(TavChar), GuardedMemory::At::End);
        EXPECT_EQ(tav_snwprintf(static_cast<TavChar*>(memory.data()), n, u"%s", u"0123456789"),
                  -static_cast<int32_t>(n));
    }
}

TEST(Formatting, EmptyAndNullFormatsGiveEmptyTexts) {
    Buffer buffer;
    EXPECT_EQ(tav_swprintf(buffer.units, u""), 0);
    EXPECT_EQ(buffer.units[0], 0);
    buffer.units[0] = kUntouched;
    EXPECT_EQ(tav_snwprintf(buffer.units, 9, nullptr), 0);
    EXPECT_EQ(buffer.units[0], 0);
}

TEST(Formatting, SmallCIsAUnit) {
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 9, u"%c", 0x00E9), 1);
    EXPECT_EQ(buffer.text(), u"\x00E9");
    EXPECT_EQ(tav_snwprintf(buffer.units, 9, u"%c%C", 0x65E5, 0x672C), 2);
    EXPECT_EQ(buffer.text(), u"\x65E5\x672C");
}

TEST(Formatting, SomethingBetweenPercentAndLetterTakes8BitText) {
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 20, u"%5s|%-3c|%s", "caf\x8E", 'x', u"wide"), 14);
    EXPECT_EQ(buffer.text(), u" caf\x00E9|x  |wide");
}

TEST(Formatting, ADoubledPercentBeforeTheLetterIsRewrittenToo) {
    Buffer buffer;
    tav_swprintf(buffer.units, u"100%%s %%c");
    EXPECT_EQ(buffer.text(), u"100%S %C");
    tav_swprintf(buffer.units, u"%%%s", u"x");
    EXPECT_EQ(buffer.text(), u"%x");
}

TEST(Formatting, CapitalLettersTakeWideTextInFields) {
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 30, u"%6S|%-6.2S|", u"abc", u"xyz"), 14);
    EXPECT_EQ(buffer.text(), u"   abc|xy    |");
}

TEST(Formatting, NumbersPositionsAndStars) {
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 60, u"%s=%d (0x%02X) %.1f%%", u"key", 10, 10, 12.34), 19);
    EXPECT_EQ(buffer.text(), u"key=10 (0x0A) 12.3%");
    tav_swprintf(buffer.units, u"%2$d %1$S", u"a", 5);
    EXPECT_EQ(buffer.text(), u"5 a");
    tav_swprintf(buffer.units, u"%*d|", 4, 7);
    EXPECT_EQ(buffer.text(), u"   7|");
}

TEST(Formatting, NullTextsPrintTheirNullness) {
    Buffer buffer;
    tav_swprintf(buffer.units, u"%s %S", nullptr, nullptr);
    EXPECT_EQ(buffer.text(), u"(null) (null)");
}

TEST(Formatting, LoneSurrogatesPassThrough) {
    Buffer buffer;
    tav_swprintf(buffer.units, u"\xD800%s%c", u"\xDC00", 0xD801);
    EXPECT_EQ(buffer.text(), u"\xD800\xDC00\xD801");
}

TEST(Formatting, MalformedFormats) {
    Buffer buffer;
    tav_swprintf(buffer.units, u"abc%");
    EXPECT_EQ(buffer.text(), u"abc");
    tav_swprintf(buffer.units, u"%y%5", 5);
    EXPECT_EQ(buffer.text(), u"y");
    EXPECT_EQ(tav_snwprintf(buffer.units, 9, u"x%99999999999d", 5), 0);
    EXPECT_EQ(buffer.units[0], 0);
}

TEST(Formatting, ManyReplacements) {
    std::u16string format, expected;
    for (int i = 0; i < 12; ++i) {
        format += u"%s%c,";
        expected += u"ab,";
    }
    Buffer buffer;
    EXPECT_EQ(tav_snwprintf(buffer.units, 63, format.c_str(), u"a", 'b', u"a", 'b', u"a", 'b', u"a", 'b',
                            u"a", 'b', u"a", 'b', u"a", 'b', u"a", 'b', u"a", 'b', u"a", 'b', u"a", 'b', u"a",
                            'b'),
              36);
    EXPECT_EQ(buffer.text(), expected);
}

// A search from the start for each of them would take hours.
TEST(Formatting, AMillionReplacementsAreMadeInOnePass) {
    constexpr size_t kTimes = 1000000;
    std::u16string format, expected;
    for (size_t i = 0; i < kTimes; ++i) {
        format += u"%%s";
        expected += u"%S";
    }
    std::vector<TavChar> buffer(expected.size() + 1);
    EXPECT_EQ(tav_snwprintf(buffer.data(), static_cast<uint32_t>(expected.size()), format.c_str()),
              static_cast<int32_t>(expected.size()));
    EXPECT_TRUE(expected == buffer.data());
}
