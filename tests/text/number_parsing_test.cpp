#include "text/number_parsing.h"

#include "support/guarded.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <iostream>
#include <random>
#include <vector>

namespace {

// One call of each wrapper: result, characters consumed, errno.
struct Outcome {
    int64_t value;
    ptrdiff_t consumed;
    int error;
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& o) {
    return out << o.value << " after " << o.consumed << " units, errno " << o.error;
}

template <typename Function>
Outcome Call(Function function, const std::u16string& text, int32_t base) {
    const GuardedText<char16_t> s(text);
    TavChar* end = nullptr;
    errno = 0;
    const auto value = function(s.get(), &end, base);
    return {value, end - s.get(), errno};
}

Outcome Unsigned(const std::u16string& text, int32_t base) {
    const Outcome outcome = Call(tav_wcstoul, text, base);
    EXPECT_EQ(Call(tav_wcstoul16, text, base), outcome) << Escape(text);
    return outcome;
}

Outcome Signed(const std::u16string& text, int32_t base) {
    const Outcome outcome = Call(tav_wcstol, text, base);
    EXPECT_EQ(Call(tav_wcstol16, text, base), outcome) << Escape(text);
    return outcome;
}

// The engine's rules, put down in the order in which a person would read a number.
struct Model {
    bool negative = false, overflow = false;
    uint32_t value = 0;
    ptrdiff_t consumed = 0;

    static int Digit(char16_t c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
        if (c >= 'a' && c <= 'z') return c - 'a' + 10;
        return 99;
    }

    Model(const std::u16string& s, int base) {
        if (base < 0 || base == 1 || base > 36) return;
        const auto at = [&](size_t i) { return i < s.size() ? s[i] : u'\xFFFF'; };
        size_t i = 0;
        while (at(i) == ' ' || (at(i) >= 9 && at(i) <= 13)) ++i;
        negative = at(i) == '-';
        if (at(i) == '+' || at(i) == '-') ++i;
        bool digits = false;
        if ((base == 0 || base == 16) && at(i) == '0') {
            ++i;
            if (at(i) == 'x' || at(i) == 'X') {
                ++i;
                base = 16;
            } else {
                digits = true;
                if (base == 0) base = 8;
            }
        }
        if (base == 0) base = 10;
        uint64_t exact = 0;
        for (; Digit(at(i)) < base; ++i) {
            digits = true;
            exact = exact * static_cast<unsigned>(base) + static_cast<unsigned>(Digit(at(i)));
            if (exact > UINT32_MAX) overflow = true, exact &= UINT32_MAX;
            value = static_cast<uint32_t>(exact);
        }
        if (!digits) value = 0, i = 0;
        consumed = static_cast<ptrdiff_t>(i);
    }

    Outcome AsUnsigned() const {
        if (overflow) return {UINT32_MAX, consumed, ERANGE};
        return {negative ? uint32_t{0} - value : value, consumed, 0};
    }

    Outcome AsSigned() const {
        const int64_t exact = negative ? -int64_t{value} : int64_t{value};
        if (overflow || exact > INT32_MAX || exact < INT32_MIN)
            return {negative ? INT32_MIN : INT32_MAX, consumed, ERANGE};
        return {exact, consumed, 0};
    }
};

std::u16string RandomNumber(std::mt19937& random) {
    constexpr std::u16string_view starts[] = {u"",  u"",   u" ",   u"\t \n", u"-", u"+",     u" -",
                                              u"0", u"0x", u"-0X", u"+-",    u"x", u"\x00A0"};
    constexpr std::u16string_view alphabets[] = {u"01", u"0123456789", u"0123456789abcdefABCDEF", u"0aAzZ9gG",
                                                 u"12345678 x-+.\x0661\xFF11\x0100"};
    std::u16string text(starts[random() % std::size(starts)]);
    const auto alphabet = alphabets[random() % std::size(alphabets)];
    for (size_t n = random() % (random() % 4 ? 12 : 40); n > 0; --n)
        text += alphabet[random() % alphabet.size()];
    return text;
}

// A reader over a list of characters that records what it was asked.
struct Recorder {
    std::u16string text;
    size_t next = 0;
    std::vector<std::pair<int32_t, TavChar>> calls;

    static TavChar Read(void* state, TavChar c, int32_t action) {
        auto& self = *static_cast<Recorder*>(state);
        self.calls.emplace_back(action, c);
        if (action == kReadBack) return c;
        return self.next < self.text.size() ? self.text[self.next++] : kEndOfText;
    }
};

} // namespace

TEST(StringReader, GivesCharactersAndTheEndMarker) {
    TavStringScan scan = {u"ab", 0};
    EXPECT_EQ(tav__wStringRead(&scan, 0, kReadNext), u'a');
    EXPECT_EQ(tav__wStringRead(&scan, 0, kReadAtEnd), 0);
    EXPECT_EQ(tav__wStringRead(&scan, 0, kReadNext), u'b');
    const TavChar* terminator = scan.next;
    EXPECT_EQ(tav__wStringRead(&scan, 0, kReadNext), 0xFFFF);
    EXPECT_EQ(scan.next, terminator);
    EXPECT_EQ(tav__wStringRead(&scan, 0, kReadAtEnd), 1);
}

TEST(StringReader, PutsBackOneCharacterOrTheEnd) {
    const TavChar* text = u"ab";
    TavStringScan scan = {text, 0};
    tav__wStringRead16(&scan, 0, kReadNext);
    EXPECT_EQ(tav__wStringRead16(&scan, u'a', kReadBack), u'a');
    EXPECT_EQ(scan.next, text);
    scan = {text + 2, 0};
    tav__wStringRead16(&scan, 0, kReadNext);
    EXPECT_EQ(tav__wStringRead16(&scan, 0xFFFF, kReadBack), 0xFFFF);
    EXPECT_EQ(scan.next, text + 2);
    EXPECT_EQ(scan.endSeen, 0);
}

TEST(StringReader, UnknownActionsGiveZero) {
    TavStringScan scan = {u"ab", 0};
    EXPECT_EQ(tav__wStringRead(&scan, u'x', 3), 0);
    EXPECT_EQ(tav__wStringRead16(&scan, u'x', -1), 0);
    EXPECT_EQ(*scan.next, u'a');
}

TEST(NumberEngine, StopsAtTheWidth) {
    int32_t count = 0, negative = 0, overflow = 0;
    TavStringScan scan = {u"12345", 0};
    EXPECT_EQ(tav__wcstoul(10, 3, tav__wStringRead, &scan, &count, &negative, &overflow), 123u);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(*scan.next, u'4');
    scan = {u"-0x1F", 0};
    EXPECT_EQ(tav__wcstoul16(0, 4, tav__wStringRead16, &scan, &count, &negative, &overflow), 1u);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(negative, 1);
}

TEST(NumberEngine, AWidthThatEndsBeforeADigitConvertsNothing) {
    int32_t count = 9, negative = 9, overflow = 9;
    TavStringScan scan = {u"-12", 0};
    EXPECT_EQ(tav__wcstoul(10, 1, tav__wStringRead, &scan, &count, &negative, &overflow), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(negative, 1);
    EXPECT_EQ(overflow, 0);
    scan = {u"0x1", 0};
    EXPECT_EQ(tav__wcstoul(16, 2, tav__wStringRead, &scan, &count, &negative, &overflow), 0u);
    EXPECT_EQ(count, 0);
}

// Only the zero of a prefix fits, which is a number by itself.
TEST(NumberEngine, AWidthThatEndsBehindALeadingZeroConvertsIt) {
    for (const int32_t base : {0, 16}) {
        int32_t count = 9, negative = 9, overflow = 9;
        TavStringScan scan = {u"0x1", 0};
        EXPECT_EQ(tav__wcstoul(base, 1, tav__wStringRead, &scan, &count, &negative, &overflow), 0u);
        EXPECT_EQ(count, 1);
        EXPECT_EQ(*scan.next, u'x');
    }
}

// A reader takes back one character, so all the others stay read.
TEST(NumberEngine, WhenNothingIsConvertedOnlyTheLastCharacterGoesBack) {
    int32_t count = 9, negative = 9, overflow = 9;
    const TavChar *sign = u"-x", *prefix = u"0xg";
    TavStringScan scan = {sign, 0};
    EXPECT_EQ(tav__wcstoul(10, 9, tav__wStringRead, &scan, &count, &negative, &overflow), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(scan.next, sign + 1);
    scan = {prefix, 0};
    EXPECT_EQ(tav__wcstoul16(0, 9, tav__wStringRead16, &scan, &count, &negative, &overflow), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(scan.next, prefix + 2);
}

TEST(NumberEngine, ABadBaseOrWidthReadsNothing) {
    for (const auto& [base, width] : {std::pair{-1, 9}, {1, 9}, {37, 9}, {10, 0}, {10, -1}}) {
        Recorder recorder{u"12", 0, {}};
        int32_t count = 9, negative = 9, overflow = 9;
        EXPECT_EQ(tav__wcstoul(base, width, Recorder::Read, &recorder, &count, &negative, &overflow), 0u);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(negative, 0);
        EXPECT_EQ(overflow, 0);
        EXPECT_EQ(recorder.next, 0u);
        // Its one call gives back what was never read.
        ASSERT_EQ(recorder.calls.size(), 1u);
        EXPECT_EQ(recorder.calls[0].first, kReadBack);
    }
}

TEST(NumberEngine, AfterANumberAtTheEndTheReaderStandsOnTheTerminator) {
    int32_t count = 0, negative = 0, overflow = 0;
    const TavChar* text = u"17";
    TavStringScan scan = {text, 0};
    EXPECT_EQ(tav__wcstoul(10, 9, tav__wStringRead, &scan, &count, &negative, &overflow), 17u);
    EXPECT_EQ(scan.next, text + 2);
    EXPECT_EQ(scan.endSeen, 0);
}

TEST(NumberEngine, PutsBackTheCharacterBehindTheNumber) {
    Recorder recorder{u"7;", 0, {}};
    int32_t count = 0, negative = 0, overflow = 0;
    EXPECT_EQ(tav__wcstoul(10, 9, Recorder::Read, &recorder, &count, &negative, &overflow), 7u);
    EXPECT_EQ(recorder.calls.back(), (std::pair<int32_t, TavChar>{kReadBack, u';'}));
    EXPECT_EQ(recorder.calls.size(), 3u);
}

TEST(Wcstoul, SpacesAndSigns) {
    EXPECT_EQ(Unsigned(u"  -1", 10), (Outcome{0xFFFFFFFF, 4, 0}));
    EXPECT_EQ(Unsigned(u"+7", 10), (Outcome{7, 2, 0}));
    EXPECT_EQ(Unsigned(u"--7", 10), (Outcome{0, 0, 0}));
    EXPECT_EQ(Unsigned(u"- 7", 10), (Outcome{0, 0, 0}));
    EXPECT_EQ(Unsigned(u"\x00A0"
                       u"7",
                       10),
              (Outcome{0, 0, 0}));
}

TEST(Wcstoul, OverflowGivesTheLimitAndConsumesAllDigits) {
    EXPECT_EQ(Unsigned(u"4294967295x", 10), (Outcome{0xFFFFFFFF, 10, 0}));
    EXPECT_EQ(Unsigned(u"4294967296", 10), (Outcome{0xFFFFFFFF, 10, ERANGE}));
    EXPECT_EQ(Unsigned(u"-99999999999999;", 10), (Outcome{0xFFFFFFFF, 15, ERANGE}));
    EXPECT_EQ(Unsigned(u"100000000", 16), (Outcome{0xFFFFFFFF, 9, ERANGE}));
}

TEST(Wcstol, Prefixes) {
    EXPECT_EQ(Signed(u"0x1A", 0), (Outcome{26, 4, 0}));
    EXPECT_EQ(Signed(u"0x1A", 16), (Outcome{26, 4, 0}));
    EXPECT_EQ(Signed(u"0x1A", 10), (Outcome{0, 1, 0}));
    EXPECT_EQ(Signed(u"017", 0), (Outcome{15, 3, 0}));
    EXPECT_EQ(Signed(u"0", 0), (Outcome{0, 1, 0}));
    EXPECT_EQ(Signed(u"08", 0), (Outcome{0, 1, 0}));
    EXPECT_EQ(Signed(u"1A", 16), (Outcome{26, 2, 0}));
}

TEST(Wcstol, APrefixWithoutADigitConvertsNothing) {
    EXPECT_EQ(Signed(u"0xg", 0), (Outcome{0, 0, 0}));
    EXPECT_EQ(Signed(u"0x", 16), (Outcome{0, 0, 0}));
    EXPECT_EQ(Signed(u"-0x", 0), (Outcome{0, 0, 0}));
}

TEST(Wcstol, LimitsOfTheRange) {
    EXPECT_EQ(Signed(u"2147483647", 10), (Outcome{INT32_MAX, 10, 0}));
    EXPECT_EQ(Signed(u"2147483648", 10), (Outcome{INT32_MAX, 10, ERANGE}));
    EXPECT_EQ(Signed(u"-2147483648", 10), (Outcome{INT32_MIN, 11, 0}));
    EXPECT_EQ(Signed(u"-2147483649", 10), (Outcome{INT32_MIN, 11, ERANGE}));
    EXPECT_EQ(Signed(u"-4294967296", 10), (Outcome{INT32_MIN, 11, ERANGE}));
}

TEST(Wcstol, BasesOutOfRangeConvertNothing) {
    for (int32_t base : {1, 37, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(Signed(u"10", base), (Outcome{0, 0, 0})) << base;
}

TEST(Wcstol, LettersAreDigitsOfGreaterBases) {
    EXPECT_EQ(Signed(u"z", 36), (Outcome{35, 1, 0}));
    EXPECT_EQ(Signed(u"Z1", 35), (Outcome{0, 0, 0}));
    EXPECT_EQ(Signed(u"yY", 35), (Outcome{34 * 35 + 34, 2, 0}));
    EXPECT_EQ(Signed(u"12", 2), (Outcome{1, 1, 0}));
}

TEST(Wcstol, NothingButSpacesOrASignConvertsNothing) {
    for (const auto* text : {u"", u"   ", u"-", u" + ", u"\x0661",
                             u"\xFFFF"
                             u"1"})
        EXPECT_EQ(Signed(text, 10), (Outcome{0, 0, 0}));
}

TEST(Wcstol, LeavesErrnoAloneWhenAllIsWell) {
    errno = 77;
    tav_wcstol(u"12", nullptr, 10);
    tav_wcstoul(u"x", nullptr, 10);
    EXPECT_EQ(errno, 77);
}

TEST(Wcstol, TakesNoEndPointer) {
    EXPECT_EQ(tav_wcstol(u"12", nullptr, 10), 12);
    EXPECT_EQ(tav_wcstoul16(u"12", nullptr, 8), 10u);
}

TEST(Wtol, ReadsDecimalsByTheEngine) {
    EXPECT_EQ(tav_wtol(u" -42x"), -42);
    EXPECT_EQ(tav_wtol16(u"0x10"), 0);
    EXPECT_EQ(tav_wtol(u"- 42"), 0);
    EXPECT_EQ(tav_wtol(u"0x10"), 0);
    EXPECT_EQ(tav_wtol(u"010"), 10);
    EXPECT_EQ(tav_wtol16(u"99999999999"), INT32_MAX);
}

TEST(Wtoi, ReadsAsThePlatformDoes) {
    EXPECT_EQ(tav_wtoi(u" -42x"), -42);
    EXPECT_EQ(tav_wtoi(u"- 42"), -42);
    EXPECT_EQ(tav_wtoi16(u"\x2003"
                         u"42"),
              42);
    EXPECT_EQ(tav_wtoi(u"99999999999"), INT32_MAX);
    EXPECT_EQ(tav_wtoi(u"none"), 0);
    EXPECT_EQ(tav_wtoi(nullptr), 0);
}

TEST(Wcstod, SetsTheEndToNull) {
    TavChar unit = 0;
    TavChar* end = &unit;
    EXPECT_EQ(tav_wcstod(u"1.5", &end), 1.5);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(tav_wcstod(u"-2e3 apples", nullptr), -2000.0);
    EXPECT_EQ(tav_wcstod(u"apples", nullptr), 0.0);
    EXPECT_EQ(tav_wcstod(nullptr, nullptr), 0.0);
}

TEST(NumberEngine, AgreesWithTheModelOnAMillionTexts) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    for (int round = 0; round < 1000000; ++round) {
        const std::u16string text = RandomNumber(random);
        const int32_t base = static_cast<int32_t>(random() % 40) - 2;
        const Model model(text, base);
        TavChar* end = nullptr;
        errno = 0;
        const int64_t u =
            round % 2 ? tav_wcstoul(text.c_str(), &end, base) : tav_wcstoul16(text.c_str(), &end, base);
        ASSERT_EQ((Outcome{u, end - text.c_str(), errno}), model.AsUnsigned())
            << Escape(text) << " base " << base;
        errno = 0;
        const int64_t l =
            round % 2 ? tav_wcstol(text.c_str(), &end, base) : tav_wcstol16(text.c_str(), &end, base);
        ASSERT_EQ((Outcome{l, end - text.c_str(), errno}), model.AsSigned())
            << Escape(text) << " base " << base;
    }
}
