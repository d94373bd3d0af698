#include "TavPort.h"
#include "support/guarded.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <optional>
#include <random>

namespace {

struct Release {
    void operator()(void* buffer) const { Tav0UTFRelease(buffer); }
};

std::optional<std::u16string> ToWide(const std::string& utf8) {
    const GuardedText<char> text(utf8);
    const std::unique_ptr<TavChar, Release> wide(Tav0UTF16FromUTF8(text.get()));
    if (!wide) return std::nullopt;
    return std::u16string(wide.get());
}

std::optional<std::string> ToNarrow(const std::u16string& utf16) {
    const GuardedText<char16_t> text(utf16);
    const std::unique_ptr<char, Release> narrow(Tav0UTF8FromUTF16(text.get()));
    if (!narrow) return std::nullopt;
    return std::string(narrow.get());
}

// The bytes of a code point by the definition of UTF-8.
std::string Encoded(char32_t v) {
    const auto byte = [](char32_t b) { return static_cast<char>(b); };
    if (v < 0x80) return {byte(v)};
    if (v < 0x800) return {byte(0xC0 | v >> 6), byte(0x80 | (v & 63))};
    if (v < 0x10000) return {byte(0xE0 | v >> 12), byte(0x80 | (v >> 6 & 63)), byte(0x80 | (v & 63))};
    return {byte(0xF0 | v >> 18), byte(0x80 | (v >> 12 & 63)), byte(0x80 | (v >> 6 & 63)),
            byte(0x80 | (v & 63))};
}

std::u16string Units(char32_t v) {
    if (v < 0x10000) return {static_cast<char16_t>(v)};
    return {static_cast<char16_t>(0xD7C0 + (v >> 10)), static_cast<char16_t>(0xDC00 + (v & 0x3FF))};
}

bool IsSurrogate(char32_t v) {
    return v >= 0xD800 && v <= 0xDFFF;
}

// A text of up to 150 code points, mostly from one alphabet, in both forms.
struct BothForms {
    std::string utf8;
    std::u16string utf16;
};

BothForms RandomText(std::mt19937& random) {
    constexpr char32_t limits[] = {0x80, 0x80, 0x800, 0x10000, 0x110000};
    const char32_t usual = limits[random() % 5];
    BothForms text;
    for (size_t n = random() % 150; n > 0; --n) {
        const char32_t limit = random() % 8 ? usual : limits[random() % 5];
        const char32_t v = 1 + random() % (limit - 1);
        if (IsSurrogate(v)) continue;
        text.utf8 += Encoded(v);
        text.utf16 += Units(v);
    }
    return text;
}

// Whether a text is well-formed UTF-8, byte by byte, by the table of well-formed sequences.
bool IsWellFormed(const std::string& s) {
    for (size_t i = 0; i < s.size();) {
        const auto at = [&](size_t k) {
            return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0u;
        };
        const unsigned lead = at(0);
        const auto in = [](unsigned b, unsigned low, unsigned high) { return b >= low && b <= high; };
        const auto tail = [&](size_t k) { return in(at(k), 0x80, 0xBF); };
        if (lead < 0x80) {
            i += 1;
        } else if (in(lead, 0xC2, 0xDF) && tail(1)) {
            i += 2;
        } else if (in(lead, 0xE0, 0xEF) &&
                   in(at(1), lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF) && tail(2)) {
            i += 3;
        } else if (in(lead, 0xF0, 0xF4) &&
                   in(at(1), lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF) && tail(2) && tail(3)) {
            i += 4;
        } else {
            return false;
        }
    }
    return true;
}

} // namespace

TEST(UTF16FromUTF8, NullGivesNull) {
    EXPECT_EQ(Tav0UTF16FromUTF8(nullptr), nullptr);
}
TEST(UTF8FromUTF16, NullGivesNull) {
    EXPECT_EQ(Tav0UTF8FromUTF16(nullptr), nullptr);
}
TEST(UTFRelease, IgnoresNull) {
    Tav0UTFRelease(nullptr);
}

TEST(UTFConversion, EmptyTextsGiveEmptyTexts) {
    EXPECT_EQ(ToWide(""), u"");
    EXPECT_EQ(ToNarrow(u""), "");
}

TEST(UTFConversion, SequencesOfEveryLength) {
    EXPECT_EQ(ToWide("\xC3\xA9"), u"\x00E9");
    EXPECT_EQ(ToWide("\xE6\x97\xA5"), u"\x65E5");
    EXPECT_EQ(ToWide("\xF0\x9F\x98\x80"), u"\xD83D\xDE00");
    EXPECT_EQ(ToNarrow(u"\x00E9"), "\xC3\xA9");
    EXPECT_EQ(ToNarrow(u"\x65E5"), "\xE6\x97\xA5");
    EXPECT_EQ(ToNarrow(u"\xD83D\xDE00"), "\xF0\x9F\x98\x80");
}

TEST(UTFConversion, EveryCodePointBothWays) {
    for (char32_t v = 1; v < 0x110000; ++v) {
        if (IsSurrogate(v)) continue;
        const std::string utf8 = Encoded(v);
        const std::u16string utf16 = Units(v);
        const std::unique_ptr<TavChar, Release> wide(Tav0UTF16FromUTF8(utf8.c_str()));
        const std::unique_ptr<char, Release> narrow(Tav0UTF8FromUTF16(utf16.c_str()));
        ASSERT_TRUE(wide && narrow) << static_cast<uint32_t>(v);
        ASSERT_EQ(std::u16string(wide.get()), utf16) << static_cast<uint32_t>(v);
        ASSERT_EQ(std::string(narrow.get()), utf8) << static_cast<uint32_t>(v);
    }
}

TEST(UTFConversion, RandomTextsBothWays) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    for (int round = 0; round < 5000; ++round) {
        const BothForms text = RandomText(random);
        ASSERT_EQ(ToWide(text.utf8), text.utf16) << Escape(text.utf16);
        ASSERT_EQ(ToNarrow(text.utf16), text.utf8) << Escape(text.utf16);
    }
}

class MalformedUTF8 : public testing::TestWithParam<const char*> {};

TEST_P(MalformedUTF8, GivesNullWhereverItStands) {
    const std::string bad = GetParam();
    EXPECT_EQ(ToWide(bad), std::nullopt);
    for (size_t before : {1u, 7u, 15u, 16u, 31u, 64u}) {
        const std::string ascii(before, 'x');
        EXPECT_EQ(ToWide(ascii + bad), std::nullopt);
        EXPECT_EQ(ToWide(ascii + bad + "yyyy yyyy yyyy yyyy yyyy"), std::nullopt);
        EXPECT_EQ(ToWide("\xE6\x97\xA5\xC3\xA9" + ascii + bad + "\xE6\x97\xA5"), std::nullopt);
    }
}

TEST_P(MalformedUTF8, GivesNullAtEveryPlaceAmongThreeByteSequences) {
    std::string run;
    for (int i = 0; i < 12; ++i) run += "\xE6\x97\xA5";
    for (size_t place = 0; place <= run.size(); place += 3) {
        std::string text = run;
        EXPECT_EQ(ToWide(text.insert(place, GetParam())), std::nullopt) << place;
    }
}

INSTANTIATE_TEST_SUITE_P(, MalformedUTF8,
                         testing::Values("\xC0\x80", "\xC1\xBF", "\x80", "\xBF", "\xED\xA0\x80",
                                         "\xED\xBF\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x80\x80\x80",
                                         "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
                                         "\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80", "\xFE", "\xFF",
                                         "\xC3", "\xE6", "\xE6\x97", "\xF0", "\xF0\x9F", "\xF0\x9F\x98",
                                         "\xC3(", "\xE6(\xA5", "\xE6\x97(", "\xF0(\x98\x80", "\xF0\x9F(\x80",
                                         "\xF0\x9F\x98("));

TEST(UTF16FromUTF8, RandomBytesAreTakenOnlyWhenWellFormed) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    size_t taken = 0, refused = 0;
    for (int round = 0; round < 50000; ++round) {
        std::string text = RandomText(random).utf8.substr(0, random() % 40);
        for (size_t hits = random() % 2; hits > 0 && !text.empty(); --hits) {
            text[random() % text.size()] = static_cast<char>(1 + random() % 255);
        }
        const bool good = IsWellFormed(text);
        ASSERT_EQ(ToWide(text).has_value(), good) << testing::PrintToString(text);
        ++(good ? taken : refused);
    }
    EXPECT_GT(taken, 1000u);
    EXPECT_GT(refused, 1000u);
}

TEST(UTF8FromUTF16, LoneSurrogatesGiveNull) {
    for (size_t before : {0u, 1u, 7u, 8u, 15u, 16u, 33u}) {
        const std::u16string ascii(before, u'x'), far(before, u'\x65E5');
        for (const auto& start : {ascii, far}) {
            EXPECT_EQ(ToNarrow(start + u"\xDC00"), std::nullopt);
            EXPECT_EQ(ToNarrow(start + u"\xDC00" + u"abcdefghijklmnopqrstuvwxyz"), std::nullopt);
            EXPECT_EQ(ToNarrow(start + u"\xD800" + u"A"), std::nullopt);
            EXPECT_EQ(ToNarrow(start + u"\xD800\xD800\xDC00"), std::nullopt);
            EXPECT_EQ(ToNarrow(start + u"\xDC00\xD800"), std::nullopt);
        }
    }
}

TEST(UTF8FromUTF16, AHighSurrogateInTheLastPlaceIsWrittenAsItsOwnValue) {
    EXPECT_EQ(ToNarrow(u"A\xD800"), "A\xED\xA0\x80");
    EXPECT_EQ(ToNarrow(u"\xDBFF"), "\xED\xAF\xBF");
    for (size_t before : {7u, 15u, 16u, 31u, 32u}) {
        EXPECT_EQ(ToNarrow(std::u16string(before, u'x') + u"\xD800"),
                  std::string(before, 'x') + "\xED\xA0\x80");
    }
}

TEST(UTF8FromUTF16, ALoneSurrogateGivesNullAtEveryPlaceAmongThreeByteUnits) {
    const std::u16string run(20, u'\x65E5');
    for (size_t place = 0; place < run.size(); ++place) {
        for (const char16_t surrogate : {u'\xD800', u'\xDBFF', u'\xDC00', u'\xDFFF'}) {
            std::u16string text = run;
            text[place] = surrogate;
            const bool kept = place + 1 == run.size() && surrogate < 0xDC00;
            EXPECT_EQ(ToNarrow(text).has_value(), kept) << place;
        }
    }
}

TEST(UTFConversion, OtherSequencesAtEveryPlaceAmongThreeByteOnes) {
    for (const char32_t other :
         {U'a', U'\u07FF', U'\u0800', U'\uD7FF', U'\uE000', U'\uFFFF', U'\U0001F600'}) {
        for (size_t place = 0; place <= 20; ++place) {
            std::string narrow;
            std::u16string wide;
            for (size_t i = 0; i <= 20; ++i) {
                const char32_t v = i == place ? other : U'\u65E5';
                narrow += Encoded(v);
                wide += Units(v);
            }
            EXPECT_EQ(ToWide(narrow), wide);
            EXPECT_EQ(ToNarrow(wide), narrow);
        }
    }
}

TEST(UTFConversion, LongTexts) {
    const std::string ascii(1 << 20, 'q');
    EXPECT_EQ(ToWide(ascii), std::u16string(1 << 20, u'q'));
    EXPECT_EQ(ToNarrow(std::u16string(1 << 20, u'q')), ascii);
}
