#include "text/utf_sequences.h"

#include "support/guarded.h"
#include "support/strict_icu.h"

#include <gtest/gtest.h>

#include <iostream>
#include <optional>
#include <random>

// Both ways of converting beside ICU's strict converter, on texts that end at a forbidden page and into rooms
// that end at one.
namespace {

using Narrow = std::string;
using Wide = std::u16string;
using Memory = GuardedMemory;

// As ICU has it, but that a high surrogate may stand last.
std::optional<Narrow> ExpectedEncoding(Wide text) {
    const bool cut = !text.empty() && (text.back() & 0xFC00) == 0xD800;
    if (!cut) return IcuEncoded(text);
    const unsigned v = text.back();
    text.pop_back();
    const std::optional<Narrow> front = IcuEncoded(text);
    if (!front) return front;
    return *front + static_cast<char>(0xE0 | v >> 12) + static_cast<char>(0x80 | (v >> 6 & 0x3F)) +
           static_cast<char>(0x80 | (v & 0x3F));
}

class Converting : public testing::TestWithParam<utf::Way> {
protected:
    void SetUp() override {
        if (utf::BestWay() == utf::Way::Plain && GetParam() == utf::Way::Blocks)
            GTEST_SKIP() << "no blocks for this processor";
        std::cout << "seed " << seed_ << '\n';
    }

    std::optional<Wide> Decoded(const Narrow& text) {
        const GuardedText<char> in(text);
        const Memory out(text.size() * 2, Memory::At::End);
        auto* units = static_cast<char16_t*>(out.data());
        const ptrdiff_t n =
            utf::Decode(reinterpret_cast<const uint8_t*>(in.get()), text.size(), units, GetParam());
        if (n < 0) return std::nullopt;
        return Wide(units, static_cast<size_t>(n));
    }

    std::optional<Narrow> Encoded(const Wide& text) {
        const GuardedText<char16_t> in(text);
        const Memory out(text.size() * 3 + 1, Memory::At::End);
        auto* bytes = static_cast<uint8_t*>(out.data());
        const ptrdiff_t n = utf::Encode(in.get(), text.size(), bytes, GetParam());
        if (n < 0) return std::nullopt;
        return Narrow(reinterpret_cast<char*>(bytes), static_cast<size_t>(n));
    }

    void ExpectDecoding(const Narrow& text) {
        ASSERT_EQ(Decoded(text), IcuDecoded(text)) << testing::PrintToString(text);
    }
    void ExpectEncoding(const Wide& text) {
        ASSERT_EQ(Encoded(text), ExpectedEncoding(text)) << testing::PrintToString(text);
    }

    // A character of one of the four lengths.
    char32_t NextCharacter() {
        constexpr char32_t limits[] = {0x80, 0x800, 0x10000, 0x110000};
        const char32_t v = 1 + random_() % (limits[random_() % 4] - 1);
        return U_IS_SURROGATE(v) ? U'\uD7FF' : v;
    }

    // Runs of characters of all lengths and of ASCII.
    Wide NextText(size_t characters) {
        Wide text;
        for (bool ascii = false; characters > 0; --characters) {
            if (random_() % 16 == 0) ascii = !ascii;
            const char32_t v = ascii ? U'x' : NextCharacter();
            char16_t units[2];
            size_t n = 0;
            U16_APPEND_UNSAFE(units, n, v);
            text.append(units, n);
        }
        return text;
    }

    const unsigned seed_ = std::random_device{}();
    std::mt19937 random_{seed_};
};

// Texts of one kind of character, longer than two blocks.
const Wide kFillings[] = {Wide(70, u'a'), Wide(70, u'\u00E9'), Wide(70, u'\u65E5'), [] {
                              Wide text;
                              for (int i = 0; i < 35; ++i) text += u"\U0001F600";
                              return text;
                          }()};

} // namespace

INSTANTIATE_TEST_SUITE_P(, Converting, testing::Values(utf::Way::Plain, utf::Way::Blocks),
                         [](const auto& way) { return way.param == utf::Way::Plain ? "Plain" : "Blocks"; });

TEST_P(Converting, MixedTextsFromAndToEveryPlaceAsICU) {
    for (int round = 0; round < 20; ++round) {
        const Wide wide = NextText(90);
        const Narrow narrow = IcuEncoded(wide).value();
        for (size_t at = 0; at <= narrow.size(); ++at) {
            ExpectDecoding(narrow.substr(at));
            ExpectDecoding(narrow.substr(0, at));
        }
        for (size_t at = 0; at <= wide.size(); ++at) {
            ExpectEncoding(wide.substr(at));
            ExpectEncoding(wide.substr(0, at));
        }
    }
}

TEST_P(Converting, DamagedTextsAsICU) {
    size_t good = 0, bad = 0;
    for (int round = 0; round < 10000; ++round) {
        const Wide wide = NextText(random_() % 70);
        Narrow narrow = IcuEncoded(wide).value();
        if (narrow.empty()) continue;
        narrow[random_() % narrow.size()] = static_cast<char>(1 + random_() % 255);
        ++(IcuDecoded(narrow) ? good : bad);
        ExpectDecoding(narrow);
        Wide damaged = wide;
        damaged[random_() % wide.size()] = static_cast<char16_t>(0xD700 + random_() % 0xA00);
        ++(ExpectedEncoding(damaged) ? good : bad);
        ExpectEncoding(damaged);
    }
    EXPECT_GT(good, 1000u);
    EXPECT_GT(bad, 1000u);
}

TEST_P(Converting, EveryPairOfBytesAtEveryPlaceOfABlockAsICU) {
    // What precedes and follows makes pairs of bytes parts of sequences of every length.
    constexpr const char* surroundings[][2] = {{"", ""}, {"", "\x90"}, {"\xE6", ""}, {"\xF1\x90", ""}};
    for (const auto& [before, after] : surroundings) {
        for (unsigned pair = 0; pair < 0x10000; ++pair) {
            if (!(pair & 0xFF) || !(pair >> 8)) continue;
            const Narrow text = Narrow(29 + pair % 7, 'x') + before + static_cast<char>(pair >> 8) +
                                static_cast<char>(pair) + after + Narrow(16, 'y');
            TavChar units[64];
            const ptrdiff_t n =
                utf::Decode(reinterpret_cast<const uint8_t*>(text.c_str()), text.size(), units, GetParam());
            const std::optional<Wide> expected = IcuDecoded(text);
            ASSERT_EQ(n < 0, !expected) << testing::PrintToString(text);
            if (!expected) continue;
            ASSERT_EQ(Wide(units, static_cast<size_t>(n)), *expected);
        }
    }
}

TEST_P(Converting, EachSequenceAtEveryPlaceOfEachFilling) {
    constexpr const char* sequences[] = {"a",
                                         "\xC2\x80",
                                         "\xDF\xBF",
                                         "\xE0\xA0\x80",
                                         "\xED\x9F\xBF",
                                         "\xEE\x80\x80",
                                         "\xEF\xBF\xBF",
                                         "\xF0\x90\x80\x80",
                                         "\xF4\x8F\xBF\xBF",
                                         "\x80",
                                         "\xC0\x80",
                                         "\xC3",
                                         "\xE0\x9F\xBF",
                                         "\xE6\x97",
                                         "\xED\xA0\x80",
                                         "\xF0\x8F\xBF\xBF",
                                         "\xF0\x9F",
                                         "\xF0\x9F\x98",
                                         "\xF4\x90\x80\x80",
                                         "\xF8\x88\x80\x80\x80"};
    for (const Wide& filling : kFillings) {
        const Narrow narrow = IcuEncoded(filling).value();
        for (const Narrow sequence : sequences) {
            for (size_t at = 0; at <= narrow.size(); ++at)
                ExpectDecoding(narrow.substr(0, at) + sequence + narrow.substr(at));
        }
    }
}

TEST_P(Converting, EachUnitAtEveryPlaceOfEachFilling) {
    const Wide sequences[] = {u"a",      u"\u007F", u"\u0080", u"\u07FF",       u"\u0800",
                              u"\uD7FF", u"\uE000", u"\uFFFF", u"\U00010000",   u"\U0010FFFF",
                              u"\xD800", u"\xDBFF", u"\xDC00", u"\xDC00\xD800", u"\xD800\xD800\xDC00"};
    for (const Wide& filling : kFillings) {
        for (const Wide& sequence : sequences) {
            for (size_t at = 0; at <= filling.size(); ++at)
                ExpectEncoding(filling.substr(0, at) + sequence + filling.substr(at));
        }
    }
}

TEST_P(Converting, LengthsUpToThreeBlocks) {
    for (const char16_t unit : {u'a', u'\u00E9', u'\u65E5', u'\xD800', u'\xDC00'}) {
        for (size_t n = 0; n <= 100; ++n) {
            const Wide text(n, unit);
            ExpectEncoding(text);
            ExpectEncoding(text + u"\xDBFF");
            if (const auto narrow = IcuEncoded(text)) ExpectDecoding(*narrow);
        }
    }
}
