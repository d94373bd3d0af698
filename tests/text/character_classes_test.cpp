#include "text/character_classes.h"

#include <gtest/gtest.h>

namespace {

struct Range {
    unsigned first, last, entry;
};

constexpr Range kRanges[] = {
    {0x00, 0x08, 0x004}, {0x09, 0x09, 0x106}, {0x0A, 0x0D, 0x104}, {0x0E, 0x1F, 0x004},
    {0x20, 0x20, 0x142}, {0x21, 0x2F, 0x0D0}, {0x30, 0x39, 0x458}, {0x3A, 0x40, 0x0D0},
    {0x41, 0x46, 0x651}, {0x47, 0x5A, 0x251}, {0x5B, 0x60, 0x0D0}, {0x61, 0x66, 0x471},
    {0x67, 0x7A, 0x071}, {0x7B, 0x7E, 0x0D0}, {0x7F, 0x7F, 0x004}, {0x80, 0xFF, 0x000},
};

struct ClassFunction {
    const char* name;
    int32_t (*function)(uint32_t);
    unsigned mask;
};

constexpr ClassFunction kFunctions[] = {
    {"alpha", tav_iswalpha, 0x001}, {"alnum", tav_iswalnum, 0x009},   {"cntrl", tav_iswcntrl, 0x004},
    {"digit", tav_iswdigit, 0x008}, {"graph", tav_iswgraph, 0x010},   {"lower", tav_iswlower, 0x020},
    {"print", tav_iswprint, 0x040}, {"punct", tav_iswpunct, 0x080},   {"space", tav_iswspace, 0x100},
    {"upper", tav_iswupper, 0x200}, {"xdigit", tav_iswxdigit, 0x400},
};

} // namespace

TEST(CharacterClasses, TableHoldsTheClassesOfEachRange) {
    unsigned covered = 0;
    for (const Range& range : kRanges) {
        for (unsigned c = range.first; c <= range.last; ++c, ++covered)
            EXPECT_EQ(__wctype_mapC[c], range.entry) << c;
    }
    EXPECT_EQ(covered, 256u);
}

TEST(CharacterClasses, CaseTablesChangeAsciiLettersOnly) {
    for (unsigned c = 0; c < 256; ++c) {
        EXPECT_EQ(__wupper_mapC[c], c >= 'a' && c <= 'z' ? c - 32 : c);
        EXPECT_EQ(__wlower_mapC[c], c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
}

TEST(CharacterClasses, FunctionsGiveTheMaskedEntry) {
    for (const ClassFunction& f : kFunctions) {
        for (unsigned c = 0; c < 256; ++c) {
            EXPECT_EQ(static_cast<unsigned>(f.function(c)), __wctype_mapC[c] & f.mask) << f.name << ' ' << c;
        }
    }
}

TEST(CharacterClasses, NothingBeyondTheTablesHasAClass) {
    for (const ClassFunction& f : kFunctions) {
        for (uint32_t c : {0x100u, 0x161u, 0x0660u, 0x3000u, 0xFFFFu}) EXPECT_EQ(f.function(c), 0) << f.name;
    }
    EXPECT_EQ(tav_iswalpha(0xC9), 0);
}

TEST(CharacterClasses, FunctionsGiveBitsAndNotOne) {
    EXPECT_EQ(tav_iswspace(0x09), 0x100);
    EXPECT_EQ(tav_iswalnum('7'), 8);
    EXPECT_EQ(tav_iswalnum('x'), 1);
    EXPECT_EQ(tav_iswpunct('!'), 0x80);
}

TEST(CharacterClasses, ArgumentsCountByTheirLowSixteenBits) {
    EXPECT_EQ(tav_towlower(0x10041), 0x61);
    EXPECT_EQ(tav_towupper(0xFFFF0061), 0x41);
    EXPECT_EQ(tav_towupper(0x100E9), 0xE9);
    for (const ClassFunction& f : kFunctions) EXPECT_EQ(f.function(0x7FFF0041), f.function(0x41)) << f.name;
}

TEST(CharacterCase, LettersBeyondAsciiStayAsTheyAre) {
    EXPECT_EQ(tav_towupper(0x00E9), 0x00E9);
    EXPECT_EQ(tav_towupper(0x0161), 0x0161);
    EXPECT_EQ(tav_towlower(0x0391), 0x0391);
    EXPECT_EQ(tav_towlower('A'), 'a');
}
