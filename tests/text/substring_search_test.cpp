#include "TavPort.h"
#include "support/guarded.h"

#include <gtest/gtest.h>

#include <iostream>
#include <random>

namespace {

using Text = std::u16string;

size_t Find(const Text& hay, const Text& needle) {
    const GuardedText<char16_t> h(hay), n(needle);
    const TavChar* found = tav_wcsstr(h.get(), n.get());
    return found ? static_cast<size_t>(found - h.get()) : Text::npos;
}

// So many letters a, and a tail.
Text LettersThen(size_t n, const char16_t* tail) {
    Text text(n, u'a');
    return text.append(tail);
}

} // namespace

TEST(Wcsstr, FindsNeedlesBehindManyCandidatesThatFailLate) {
    for (size_t length : {2u, 30u, 300u, 511u, 512u, 513u, 900u}) {
        const Text needle = LettersThen(length - 1, u"b");
        EXPECT_EQ(Find(Text(5000, u'a'), needle), Text::npos) << length;
        EXPECT_EQ(Find(LettersThen(5000, u"b"), needle), 5001 - length) << length;
        EXPECT_EQ(Find(LettersThen(5000, u"ba"), LettersThen(length - 1, u"ba")), 5001 - length) << length;
    }
}

TEST(Wcsstr, FindsOverlappingOccurrencesOfPeriodicNeedles) {
    Text hay;
    for (int i = 0; i < 400; ++i) hay += u"ababac";
    hay += u"abababac";
    EXPECT_EQ(Find(hay, u"abababac"), hay.find(u"abababac"));
    EXPECT_EQ(Find(hay, u"bacababacababab"), hay.find(u"bacababacababab"));
}

TEST(Wcsstr, AgreesWithSearchingByHandOnLongTextsOfTwoLetters) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    for (int round = 0; round < 1000; ++round) {
        const unsigned rare = 2 + random() % 200;
        Text hay(1 + random() % 3000, u'a');
        for (auto& unit : hay) unit = random() % rare ? u'a' : u'b';
        Text needle = hay.substr(random() % hay.size(), 1 + random() % 700);
        if (round % 2) needle[random() % needle.size()] ^= 3;
        ASSERT_EQ(Find(hay, needle), hay.find(needle));
    }
}
