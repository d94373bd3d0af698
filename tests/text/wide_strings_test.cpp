#include "TavPort.h"
#include "support/guarded.h"
#include "text/inline_helpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <vector>

namespace {

using Text = std::u16string;
using At = GuardedMemory::At;

// Lengths around every block size that the loops work in.
constexpr size_t kLengths[] = {0,  1,  2,  3,  4,  5,  7,  8,  9,  15, 16,  17,  23,  24,  25,
                               31, 32, 33, 47, 48, 63, 64, 65, 71, 96, 127, 128, 129, 255, 1000};

int Sign(int x) {
    return (x > 0) - (x < 0);
}

// Text of non-zero units without the given one.
Text Filler(size_t length, char16_t without) {
    Text text(length, u'a');
    for (size_t i = 0; i < length; ++i) {
        text[i] = static_cast<char16_t>(1 + i * 257 % 0xFFFE);
        if (text[i] == without) text[i] = u'a';
    }
    return text;
}

} // namespace

TEST(Wcslen, TakesNullAndEmptyAsZero) {
    EXPECT_EQ(tav_wcslen(nullptr), 0u);
    EXPECT_EQ(tav_wcslen(u""), 0u);
}

TEST(Wcslen, CountsUnitsAndReadsNoPageBehindThem) {
    for (size_t length : kLengths) {
        const GuardedText<char16_t> atEnd(Filler(length, 0)), atStart(Filler(length, 0), At::Start);
        EXPECT_EQ(tav_wcslen(atEnd.get()), length);
        EXPECT_EQ(tav_wcslen(atStart.get()), length);
    }
}

TEST(Wcslen, TakesUnitsWithAZeroByteForUnits) {
    EXPECT_EQ(tav_wcslen(u"\x0100\x0001\x8000\xFF00\x0080\x0100\x0100\x0100\x0100"), 9u);
}

TEST(Wcslen, EveryStartGivesTheRestOfTheText) {
    const GuardedText<char16_t> text(Filler(200, 0));
    for (size_t start = 0; start <= 200; ++start) EXPECT_EQ(tav_wcslen(text.get() + start), 200 - start);
}

TEST(Wcscpy, CopiesTheTerminatorAndNothingBehindIt) {
    for (size_t length : kLengths) {
        const GuardedText<char16_t> source(Filler(length, 0));
        const GuardedMemory target((length + 1) * 2, At::End);
        auto* dst = static_cast<TavChar*>(target.data());
        EXPECT_EQ(tav_wcscpy(dst, source.get()), dst);
        EXPECT_EQ(Text(dst, length + 1), Text(source.get(), length + 1));
    }
}

TEST(Wcsncpy, FillsUpWithZeros) {
    TavChar dst[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(tav_wcsncpy(dst, u"ab", 5), dst);
    EXPECT_EQ(Text(dst, 6), Text({u'a', u'b', 0, 0, 0, 9}));
}

TEST(Wcsncpy, WritesNoTerminatorWhenTheTextIsTooLong) {
    TavChar dst[3] = {9, 9, 9};
    tav_wcsncpy(dst, u"abc", 2);
    EXPECT_EQ(Text(dst, 3), Text({u'a', u'b', 9}));
}

TEST(Wcsncpy, WritesNothingForZero) {
    TavChar dst[1] = {9};
    EXPECT_EQ(tav_wcsncpy(dst, u"abc", 0), dst);
    EXPECT_EQ(dst[0], 9);
}

TEST(Wcsncpy, ReadsNoFurtherThanItCopies) {
    for (size_t length : kLengths) {
        const Text text = Filler(length, 0);
        const GuardedMemory source(length * 2 + 2, At::End);
        // Without a terminator: the text touches the forbidden page.
        auto* src = static_cast<TavChar*>(source.data()) + 1;
        memcpy(src, text.data(), length * 2);
        std::vector<TavChar> dst(length + 1, 9);
        tav_wcsncpy(dst.data(), src, static_cast<uint32_t>(length));
        EXPECT_EQ(Text(dst.data(), length + 1), text + Text(1, 9));
    }
}

TEST(Wcscat, AppendsAtTheTerminator) {
    TavChar dst[8] = {u'a', u'b', 0, 9, 9, 9, 9, 9};
    EXPECT_EQ(tav_wcscat(dst, u"cd"), dst);
    EXPECT_EQ(Text(dst, 6), Text({u'a', u'b', u'c', u'd', 0, 9}));
    tav_wcscat(dst, u"");
    EXPECT_EQ(Text(dst), u"abcd");
}

TEST(Wcschr, FindsTheFirstAtEveryPlace) {
    for (size_t length : kLengths) {
        for (size_t at = 0; at < length; at += 1 + length / 40) {
            Text text = Filler(length, 0xABCD);
            text[at] = 0xABCD;
            text[length - 1] = 0xABCD;
            const GuardedText<char16_t> s(text);
            EXPECT_EQ(tav_wcschr(s.get(), 0xABCD), s.get() + at);
        }
    }
}

TEST(Wcschr, GivesNullWhenThereIsNone) {
    for (size_t length : kLengths) {
        const GuardedText<char16_t> s(Filler(length, u'x')), atStart(Filler(length, u'x'), At::Start);
        EXPECT_EQ(tav_wcschr(s.get(), u'x'), nullptr);
        EXPECT_EQ(tav_wcschr(atStart.get(), u'x'), nullptr);
    }
}

TEST(Wcschr, LooksNoFurtherThanTheTerminator) {
    const TavChar s[] = {u'a', 0, u'b', u'b', u'b', u'b', u'b', u'b', u'b', 0};
    EXPECT_EQ(tav_wcschr(s, u'b'), nullptr);
    EXPECT_EQ(tav_wcsrchr(s, u'b'), nullptr);
}

TEST(Wcschr, FindsTheTerminator) {
    for (size_t length : kLengths) {
        const GuardedText<char16_t> s(Filler(length, 0));
        EXPECT_EQ(tav_wcschr(s.get(), 0), s.get() + length);
        EXPECT_EQ(tav_wcsrchr(s.get(), 0), s.get() + length);
    }
}

TEST(Wcschr, CharactersCountByTheirLowSixteenBits) {
    const TavChar* s = u"xay";
    EXPECT_EQ(tav_wcschr(s, 0x10061), s + 1);
    EXPECT_EQ(tav_wcsrchr(s, 0x10061), s + 1);
    EXPECT_EQ(tav_wcschr(s, 0x10000), s + 3);
}

TEST(Wcsrchr, FindsTheLastAtEveryPlace) {
    for (size_t length : kLengths) {
        for (size_t at = 0; at < length; at += 1 + length / 40) {
            Text text = Filler(length, 0xABCD);
            text[0] = 0xABCD;
            text[at] = 0xABCD;
            const GuardedText<char16_t> s(text), atStart(text, At::Start);
            EXPECT_EQ(tav_wcsrchr(s.get(), 0xABCD), s.get() + at);
            EXPECT_EQ(tav_wcsrchr(atStart.get(), 0xABCD), atStart.get() + at);
        }
    }
}

TEST(Wcsrchr, GivesNullWhenThereIsNone) {
    for (size_t length : kLengths) {
        const GuardedText<char16_t> s(Filler(length, u'x'));
        EXPECT_EQ(tav_wcsrchr(s.get(), u'x'), nullptr);
    }
}

TEST(Wcsstr, EmptyNeedleGivesTheHaystack) {
    const TavChar* hay = u"abc";
    EXPECT_EQ(tav_wcsstr(hay, u""), hay);
    EXPECT_EQ(tav_wcsstr(hay + 3, u""), hay + 3);
}

TEST(Wcsstr, FindsTheFirstOccurrence) {
    const TavChar* hay = u"ababac abac";
    EXPECT_EQ(tav_wcsstr(hay, u"abac"), hay + 2);
    EXPECT_EQ(tav_wcsstr(hay, u"c"), hay + 5);
    EXPECT_EQ(tav_wcsstr(hay, u"abacus"), nullptr);
    EXPECT_EQ(tav_wcsstr(u"", u"a"), nullptr);
    EXPECT_EQ(tav_wcsstr(u"ab", u"abc"), nullptr);
}

TEST(Wcsstr, AgreesWithSearchingByHandOnFewLetters) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    for (int round = 0; round < 20000; ++round) {
        const unsigned letters = 1 + random() % 3;
        Text hay(random() % 120, 0), needle(1 + random() % (round % 2 ? 6 : 60), 0);
        for (auto& unit : hay) unit = static_cast<char16_t>(u'a' + random() % letters);
        for (auto& unit : needle) unit = static_cast<char16_t>(u'a' + random() % letters);
        if (round % 3 == 0 && needle.size() < hay.size())
            needle = hay.substr(random() % hay.size(), needle.size());
        const GuardedText<char16_t> h(hay), n(needle);
        const size_t expected = hay.find(needle);
        const TavChar* found = tav_wcsstr(h.get(), n.get());
        ASSERT_EQ(found ? static_cast<size_t>(found - h.get()) : Text::npos, expected);
    }
}

TEST(Wcscmp, GivesTheDifferenceOfTheUnits) {
    EXPECT_EQ(tav_wcscmp(u"b", u"a"), 1);
    EXPECT_EQ(tav_wcscmp(u"a", u"c"), -2);
    EXPECT_EQ(tav_wcscmp(u"\xFFFF", u""), 65535);
    EXPECT_EQ(tav_wcscmp(u"", u"\xFFFF"), -65535);
    EXPECT_EQ(tav_wcscmp(u"ab", u"ab"), 0);
    EXPECT_EQ(tav_wcscmp(u"", u""), 0);
    EXPECT_EQ(tav_wcscmp(u"ab", u"a"), 'b');
}

TEST(Comparisons, FindADifferenceAtEveryPlaceAndReadNoPageBehind) {
    for (size_t length : kLengths) {
        for (size_t at = 0; at < length; at += 1 + length / 40) {
            Text left = Filler(length, 0), right = left;
            left[at] = 0x8001, right[at] = 0x7FFF;
            const GuardedText<char16_t> a(left), b(right, At::Start);
            const auto n = static_cast<uint32_t>(at);
            ASSERT_EQ(tav_wcscmp(a.get(), b.get()), 2);
            ASSERT_EQ(tav_wcscmp(b.get(), a.get()), -2);
            ASSERT_EQ(tav_wcsncmp(a.get(), b.get(), n), 0);
            ASSERT_EQ(tav_wcsncmp(a.get(), b.get(), n + 1), 1);
            ASSERT_EQ(tav_wcsncmp(b.get(), a.get(), 0xFFFFFFFF), -1);
            ASSERT_EQ(tav_wcsnicmp(a.get(), b.get(), n), 0);
            ASSERT_EQ(tav_wcsnicmp(b.get(), a.get(), n + 1), -1);
        }
    }
}

TEST(Comparisons, OfEqualTextsAtDifferentPlacesInMemory) {
    for (size_t length : kLengths) {
        const Text text = Filler(length, 0);
        const GuardedText<char16_t> a(text), b(u"x" + text), c(text, At::Start);
        EXPECT_EQ(tav_wcscmp(a.get(), b.get() + 1), 0);
        EXPECT_EQ(tav_wcscmp(b.get() + 1, c.get()), 0);
        EXPECT_EQ(tav_wcsncmp(a.get(), c.get(), 0xFFFFFFFF), 0);
        EXPECT_EQ(tav_wcsnicmp(c.get(), b.get() + 1, 0xFFFFFFFF), 0);
    }
}

TEST(Comparisons, AnEndedTextSortsBeforeALongerOne) {
    for (size_t length : kLengths) {
        const Text text = Filler(length, 0);
        const GuardedText<char16_t> a(text), b(text + u'\x0001');
        EXPECT_EQ(tav_wcscmp(a.get(), b.get()), -1);
        EXPECT_EQ(tav_wcscmp(b.get(), a.get()), 1);
        EXPECT_EQ(tav_wcsncmp(a.get(), b.get(), 0xFFFFFFFF), -1);
        EXPECT_EQ(tav_wcsnicmp(b.get(), a.get(), 0xFFFFFFFF), 1);
    }
}

TEST(Comparisons, LookAtNothingBehindTheTerminatorOrTheCount) {
    const TavChar a[] = {u'a', 0, u'x', u'x', u'x', u'x', u'x', u'x', u'x', u'x', u'x', 0};
    const TavChar b[] = {u'a', 0, u'y', u'y', u'y', u'y', u'y', u'y', u'y', u'y', u'y', 0};
    EXPECT_EQ(tav_wcscmp(a, b), 0);
    EXPECT_EQ(tav_wcsncmp(a, b, 12), 0);
    EXPECT_EQ(tav_wcsnicmp(a, b, 12), 0);
    // Not terminated: only the count keeps from the forbidden page.
    for (size_t length : kLengths) {
        const GuardedMemory left(length * 2 + 2, At::End), right(length * 2 + 2, At::End);
        auto* l = static_cast<TavChar*>(left.data()) + 1;
        auto* r = static_cast<TavChar*>(right.data()) + 1;
        std::fill_n(l, length, u'q');
        std::fill_n(r, length, u'q');
        EXPECT_EQ(tav_wcsncmp(l, r, static_cast<uint32_t>(length)), 0);
        EXPECT_EQ(tav_wcsnicmp(l, r, static_cast<uint32_t>(length)), 0);
    }
}

TEST(Wcsncmp, GivesSignsAndNotDifferences) {
    EXPECT_EQ(tav_wcsncmp(u"a", u"c", 1), -1);
    EXPECT_EQ(tav_wcsncmp(u"c", u"a", 1), 1);
    EXPECT_EQ(tav_wcsncmp(u"abc", u"abd", 2), 0);
    EXPECT_EQ(tav_wcsncmp(u"a", u"b", 0), 0);
}

TEST(Wcsnicmp, KnowsAsciiLettersOnly) {
    EXPECT_EQ(tav_wcsnicmp(u"ABC", u"abd", 2), 0);
    EXPECT_EQ(tav_wcsnicmp(u"ABC", u"abd", 3), -1);
    EXPECT_EQ(tav_wcsnicmp(u"\x00C9", u"\x00E9", 1), -1);
    EXPECT_EQ(tav_wcsnicmp(u"\x0141", u"\x0161", 1), -1);
    EXPECT_EQ(tav_wcsnicmp(u"[", u"{", 1), -1);
    EXPECT_EQ(tav_wcsnicmp(u"@", u"`", 1), -1);
    EXPECT_EQ(tav_wcsnicmp(u"a", u"A", 0), 0);
    EXPECT_EQ(tav_wcsnicmp(u"_", u"a", 1), -1);
    EXPECT_EQ(tav_wcsnicmp(u"Z", u"_", 1), 1);
}

TEST(Wcsnicmp, AgreesWithTheTableUnitByUnit) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    for (int round = 0; round < 20000; ++round) {
        Text a(random() % 40, 0);
        for (auto& unit : a)
            unit = static_cast<char16_t>(random() % 4 ? 0x30 + random() % 0x60 : random() % 0xFFFF + 1);
        Text b = a;
        for (auto& unit : b) unit = random() % 3 ? unit : tav_towupper(unit);
        if (!b.empty() && random() % 2) b[random() % b.size()] ^= 0x20;
        const auto n = static_cast<uint32_t>(random() % 45);
        int expected = 0;
        for (size_t i = 0; i < n && !expected; ++i) {
            expected = Sign(tav_towlower(a.c_str()[i]) - tav_towlower(b.c_str()[i]));
            if (!a.c_str()[i]) break;
        }
        const GuardedText<char16_t> left(a), right(b);
        ASSERT_EQ(tav_wcsnicmp(left.get(), right.get(), n), expected);
    }
}

TEST(Strncmp, TakesBytesAsSigned) {
    EXPECT_EQ(tav_strncmp("\x80", "a", 1), -1);
    EXPECT_EQ(tav_strncmp("\xE9", "", 1), -1);
    EXPECT_EQ(tav_strncmp("", "\xE9", 1), 1);
    EXPECT_EQ(tav_strncmp("\x80", "\xFF", 1), -1);
}

TEST(Strncmp, ComparesUpToTheCountOrTheTerminator) {
    EXPECT_EQ(tav_strncmp("abc", "abd", 2), 0);
    EXPECT_EQ(tav_strncmp("abc", "abd", 3), -1);
    EXPECT_EQ(tav_strncmp("b", "a", 9), 1);
    EXPECT_EQ(tav_strncmp("a\0x", "a\0y", 3), 0);
    EXPECT_EQ(tav_strncmp("a", "b", 0), 0);
    EXPECT_EQ(tav_strncmp("A", "a", 1), -1);
}

TEST(Strnicmp, TakesAsciiLettersAsEqualAndBytesAsSigned) {
    EXPECT_EQ(tav_strnicmp("ABC", "abc", 3), 0);
    EXPECT_EQ(tav_strnicmp("ABC", "abd", 3), -1);
    EXPECT_EQ(tav_strnicmp("abD", "ABC", 3), 1);
    EXPECT_EQ(tav_strnicmp("\xC9", "", 1), -1);
    EXPECT_EQ(tav_strnicmp("\xC9", "\xE9", 1), -1);
    EXPECT_EQ(tav_strnicmp("a", "b", 0), 0);
    EXPECT_EQ(tav_strnicmp("a\0x", "A\0y", 3), 0);
}
