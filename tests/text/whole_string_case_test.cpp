#include "TavPort.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::u16string Upper(std::u16string s) {
    return tav_wcsupr(s.data());
}
std::u16string Lower(std::u16string s) {
    return tav_wcslwr(s.data());
}
std::string UpperBytes(std::string s) {
    return tav_strupr(s.data());
}
std::string LowerBytes(std::string s) {
    return tav_strlwr(s.data());
}

} // namespace

TEST(Wcscmpi, KnowsLettersBeyondAscii) {
    EXPECT_EQ(tav_wcscmpi(u"\x00C9", u"\x00E9"), 0);
    EXPECT_EQ(tav_wcscmpi(u"Read Me", u"READ me"), 0);
    EXPECT_EQ(tav_wcscmpi(u"stra\x00DF"
                          u"e",
                          u"STRASSE"),
              0);
}

TEST(Wcscmpi, GivesSigns) {
    EXPECT_EQ(tav_wcscmpi(u"a", u"C"), -1);
    EXPECT_EQ(tav_wcscmpi(u"C", u"a"), 1);
    EXPECT_EQ(tav_wcscmpi(u"ab", u"A"), 1);
    EXPECT_EQ(tav_wcscmpi(u"", u"a"), -1);
}

TEST(Wcscmpi, TakesNullAsEmpty) {
    EXPECT_EQ(tav_wcscmpi(nullptr, nullptr), 0);
    EXPECT_EQ(tav_wcscmpi(nullptr, u""), 0);
    EXPECT_EQ(tav_wcscmpi(nullptr, u"a"), -1);
    EXPECT_EQ(tav_wcscmpi(u"a", nullptr), 1);
}

TEST(Strcmpi, ReadsMacRoman) {
    EXPECT_EQ(tav_strcmpi("Caf\x8E", "CAF\x83"), 0); // é and É
    EXPECT_EQ(tav_strcmpi("\xCE", "\xCF"), 0);       // the OE and oe ligatures
    EXPECT_EQ(tav_strcmpi("a", "\x8E"), -1);
    EXPECT_EQ(tav_strcmpi("b", "A"), 1);
    EXPECT_EQ(tav_strcmpi("", ""), 0);
}

TEST(Wcsupr, ConvertsInPlaceAndGivesItsArgument) {
    TavChar s[] = u"r\x00E9sum\x00E9 1";
    EXPECT_EQ(tav_wcsupr(s), s);
    EXPECT_EQ(std::u16string(s), u"R\x00C9SUM\x00C9 1");
    EXPECT_EQ(tav_wcslwr(s), s);
    EXPECT_EQ(std::u16string(s), u"r\x00E9sum\x00E9 1");
}

TEST(Wcsupr, KeepsTheLengthOfATextThatWouldGrow) {
    EXPECT_EQ(Upper(u"\x00DF"), u"S");
    EXPECT_EQ(Upper(u"a\x00DFz"), u"ASS");
    EXPECT_EQ(Upper(u"\xFB03x"), u"FF");
    EXPECT_EQ(Lower(u"\x0130x"), u"i\x0307");
}

TEST(Wcsupr, WritesNothingBehindTheText) {
    TavChar s[] = {0x00DF, 0, 9};
    tav_wcsupr(s);
    EXPECT_EQ(s[1], 0);
    EXPECT_EQ(s[2], 9);
}

TEST(Wcsupr, TakesLongAndEmptyTexts) {
    EXPECT_EQ(Upper(u""), u"");
    EXPECT_EQ(Upper(std::u16string(5000, u'x')), std::u16string(5000, u'X'));
    EXPECT_EQ(Upper(std::u16string(5000, 0x00E9)), std::u16string(5000, 0x00C9));
    EXPECT_EQ(Lower(std::u16string(5000, 0x0416)), std::u16string(5000, 0x0436));
}

TEST(Strupr, ConvertsMacRoman) {
    EXPECT_EQ(UpperBytes("caf\x8E"), "CAF\x83");
    EXPECT_EQ(LowerBytes("CAF\x83 1"), "caf\x8E 1");
    EXPECT_EQ(UpperBytes(""), "");
}

TEST(Strupr, WhatDoesNotFitLeavesAnEmptyText) {
    char s[] = "\xA7x"; // sharp s: SSX needs three bytes and the terminator
    EXPECT_EQ(tav_strupr(s), s);
    EXPECT_EQ(s[0], 0);
    EXPECT_EQ(s[1], 'S');
    EXPECT_EQ(s[2], 0);
}

TEST(Strupr, WhatMacRomanDoesNotHaveLeavesAnEmptyText) {
    char s[] = "\xB5x"; // the micro sign's capital is the Greek Mu
    tav_strupr(s);
    EXPECT_EQ(s[0], 0);
}

TEST(Case, WholeTextsAndSingleCharactersDifferBeyondAscii) {
    EXPECT_NE(tav_wcsnicmp(u"\x00C9", u"\x00E9", 1), 0);
    EXPECT_EQ(tav_wcscmpi(u"\x00C9", u"\x00E9"), 0);
    EXPECT_EQ(tav_towupper(0x00E9), 0x00E9);
    EXPECT_EQ(Upper(u"\x00E9"), u"\x00C9");
}
