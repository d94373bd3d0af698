#include "platform/strings.h"

#include "support/tables.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

namespace {

struct Release {
    void operator()(const OpaqueCFString* string) const { CFRelease(string); }
};
using String = std::unique_ptr<const OpaqueCFString, Release>;
using MutableString = std::unique_ptr<OpaqueCFString, Release>;

String Make(const std::u16string& text) {
    return String(CFStringCreateWithCharacters(nullptr, text.data(), static_cast<CFIndex>(text.size())));
}

MutableString MakeMutable(const std::u16string& text) {
    MutableString string(CFStringCreateMutable(nullptr, 0));
    CFStringAppendCharacters(string.get(), text.data(), static_cast<CFIndex>(text.size()));
    return string;
}

std::u16string Content(CFStringRef string) {
    std::u16string text(static_cast<size_t>(CFStringGetLength(string)), 0);
    CFStringGetCharacters(string, {0, CFStringGetLength(string)}, text.data());
    return text;
}

int Compare(const std::u16string& a, const std::u16string& b) {
    return CFStringCompare(Make(a).get(), Make(b).get(), kCFCompareCaseInsensitive);
}

std::u16string Converted(const std::u16string& text, void (*convert)(CFMutableStringRef, CFLocaleRef)) {
    const MutableString string = MakeMutable(text);
    convert(string.get(), nullptr);
    return Content(string.get());
}

CFStringEncoding EncodingOf(const std::string& name) {
    return name == "UTF8" ? kCFStringEncodingUTF8 : kCFStringEncodingMacRoman;
}

std::string Hex(const char* bytes, size_t n) {
    std::string hex;
    for (size_t i = 0; i < n; ++i) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(bytes[i]));
        hex += digits;
    }
    return hex;
}

} // namespace

TEST(StringService, CreationCopiesTheUnits) {
    std::u16string text = u"abc";
    const String string = Make(text);
    text[0] = u'x';
    EXPECT_EQ(Content(string.get()), u"abc");
    EXPECT_EQ(CFStringGetLength(Make(u"").get()), 0);
    EXPECT_EQ(CFStringGetLength(String(CFStringCreateWithCharacters(nullptr, nullptr, 0)).get()), 0);
}

TEST(StringService, CreationWithoutACopyLooksAtTheUnits) {
    UniChar units[] = {u'a', u'b', u'c'};
    const OpaqueCFAllocator room = {};
    CFStringRef string = CFStringCreateWithCharactersNoCopy(&room, units, 3, kCFAllocatorNull);
    EXPECT_EQ(string, CFSTR(room.string));
    EXPECT_EQ(CFStringGetLength(string), 3);
    units[1] = u'x';
    UniChar copied[3] = {};
    CFStringGetCharacters(string, {0, 3}, copied);
    EXPECT_EQ(std::u16string(copied, 3), u"axc");
    CFRelease(string);
    EXPECT_EQ(units[0], u'a');
}

TEST(StringService, AnImpossibleLengthGivesNull) {
    const UniChar unit = u'a';
    EXPECT_EQ(CFStringCreateWithCharacters(nullptr, &unit, std::numeric_limits<CFIndex>::max()), nullptr);
}

TEST(StringService, GetCharactersCopiesTheRangeOnly) {
    UniChar buffer[4] = {9, 9, 9, 9};
    CFStringGetCharacters(Make(u"abcdef").get(), {2, 3}, buffer);
    EXPECT_EQ(std::u16string(buffer, 4), std::u16string({u'c', u'd', u'e', 9}));
}

TEST(StringService, BytesThatAreNotUTF8BecomeTheUnitsThatStandForThemAndBytesAgain) {
    const struct {
        const char* bytes;
        std::u16string units;
    } rows[] = {
        {"a\x80", u"a\xDC80"},
        {"\xED\xA0\x80", u"\xDCED\xDCA0\xDC80"},
        {"\xC3\xA9\xFF\xF0\x9F\x98\x80\xC3", u"\x00E9\xDCFF\xD83D\xDE00\xDCC3"},
    };
    for (const auto& row : rows) {
        const String string(CFStringCreateWithCString(nullptr, row.bytes, kCFStringEncodingUTF8));
        EXPECT_EQ(Content(string.get()), row.units);
        char back[16];
        EXPECT_TRUE(CFStringGetCString(string.get(), back, sizeof back, kCFStringEncodingUTF8));
        EXPECT_STREQ(back, row.bytes);
    }
    const String good(CFStringCreateWithCString(nullptr, "a\xC3\xA9\xF0\x9F\x98\x80", kCFStringEncodingUTF8));
    EXPECT_EQ(Content(good.get()), u"a\x00E9\xD83D\xDE00");
}

TEST(StringService, TextsInUnknownEncodingsAreNone) {
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "a", 0x600), nullptr);
}

TEST(StringService, MutableStringsGrow) {
    const MutableString string(CFStringCreateMutable(nullptr, 0));
    std::u16string expected;
    for (int i = 0; i < 500; ++i) {
        const std::u16string piece(static_cast<size_t>(i % 7), static_cast<char16_t>(u'a' + i % 26));
        CFStringAppendCharacters(string.get(), piece.data(), static_cast<CFIndex>(piece.size()));
        CFStringAppendCString(string.get(), "\x8E", kCFStringEncodingMacRoman);
        expected += piece + u'\x00E9';
    }
    EXPECT_EQ(Content(string.get()), expected);
}

TEST(StringService, BytesThatAreNotUTF8AreAppendedAsUnits) {
    const MutableString string = MakeMutable(u"ab");
    CFStringAppendCString(string.get(), "c\xFF", kCFStringEncodingUTF8);
    EXPECT_EQ(Content(string.get()), u"abc\xDCFF");
}

TEST(StringCompare, AgreesWithTheMeasuredPairsBothWays) {
    const auto rows = ReadTable("compare_ci.tsv");
    EXPECT_GT(rows.size(), 200u);
    for (const auto& row : rows) {
        const int expected = std::stoi(row[2]);
        EXPECT_EQ(Compare(Unescape(row[0]), Unescape(row[1])), expected) << row[0] << " | " << row[1];
        EXPECT_EQ(Compare(Unescape(row[1]), Unescape(row[0])), -expected) << row[0] << " | " << row[1];
    }
}

TEST(StringCompare, AgreesWithTheMeasuredPairsBehindLongEqualStarts) {
    for (const auto& row : ReadTable("compare_ci.tsv")) {
        for (size_t n : {1u, 7u, 8u, 13u, 16u, 40u}) {
            const std::u16string start(n, u'x'), other(n, u'X');
            EXPECT_EQ(Compare(start + Unescape(row[0]), other + Unescape(row[1])), std::stoi(row[2]))
                << row[0] << " | " << row[1] << " after " << n;
        }
    }
}

TEST(StringCompare, LettersOfTheSupplementaryPlanesFold) {
    EXPECT_EQ(Compare(u"\xD801\xDC00", u"\xD801\xDC28"), 0);
    EXPECT_EQ(Compare(u"a\xD83A\xDD00", u"A\xD83A\xDD22"), 0);
}

TEST(StringCase, AgreesWithTheMeasuredTexts) {
    const auto rows = ReadTable("upper_lower.tsv");
    EXPECT_GT(rows.size(), 2500u);
    for (const auto& row : rows) {
        const std::u16string text = Unescape(row[0]);
        EXPECT_EQ(Escape(Converted(text, CFStringUppercase)), Escape(Unescape(row[1]))) << row[0];
        EXPECT_EQ(Escape(Converted(text, CFStringLowercase)), Escape(Unescape(row[2]))) << row[0];
    }
}

TEST(StringCase, AsciiLettersOnlyChangeAmongAscii) {
    std::u16string all;
    for (char16_t c = 0; c < 0x80; ++c) all += c;
    std::u16string upper = all, lower = all;
    for (auto& c : upper) c = c >= 'a' && c <= 'z' ? static_cast<char16_t>(c - 32) : c;
    for (auto& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char16_t>(c + 32) : c;
    EXPECT_EQ(Converted(all, CFStringUppercase), upper);
    EXPECT_EQ(Converted(all, CFStringLowercase), lower);
}

TEST(StringCase, ResultsGrowBeyondTheFirstRoom) {
    EXPECT_EQ(Converted(std::u16string(3000, 0x00DF), CFStringUppercase), std::u16string(6000, u'S'));
    EXPECT_EQ(Converted(std::u16string(200, 0x0390), CFStringUppercase).size(), 600u);
}

TEST(StringCase, ACapitalSigmaBeforeAFullStopIsFinal) {
    EXPECT_EQ(Converted(u"\x0391\x03A3.\x0391", CFStringLowercase), u"\x03B1\x03C2.\x03B1");
    EXPECT_EQ(Converted(u"\x0391\x03A3..\x0391\x03A3", CFStringLowercase), u"\x03B1\x03C2..\x03B1\x03C2");
}

TEST(MacRoman, DecodesEveryByteAsMeasured) {
    for (const auto& row : ReadTable("macroman.tsv")) {
        if (row[0] != "decode" || row[1] == "00") continue;
        const char bytes[] = {static_cast<char>(std::stoi(row[1], nullptr, 16)), 0};
        const String string(CFStringCreateWithCString(nullptr, bytes, kCFStringEncodingMacRoman));
        EXPECT_EQ(Content(string.get()), Unescape(row[2])) << row[1];
    }
}

TEST(MacRoman, EncodesTheMeasuredUnitsAndNoOthers) {
    std::map<char16_t, std::string> bytes;
    for (const auto& row : ReadTable("macroman.tsv")) {
        if (row[0] == "encode") bytes[Unescape(row[1])[0]] = row[2];
    }
    EXPECT_EQ(bytes.size(), 257u);
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        char buffer[4];
        const bool fits = CFStringGetCString(Make({static_cast<char16_t>(unit)}).get(), buffer, 4,
                                             kCFStringEncodingMacRoman);
        const auto expected = bytes.find(static_cast<char16_t>(unit));
        ASSERT_EQ(fits, expected != bytes.end()) << unit;
        if (fits) {
            EXPECT_EQ(Hex(buffer, 1), expected->second) << unit;
        }
    }
}

TEST(MacRoman, ComposesTheMeasuredSequencesAndNoOthers) {
    std::map<std::u16string, std::string> bytes;
    for (const auto& row : ReadTable("macroman.tsv")) {
        if (row[0] == "encode-seq") bytes[Unescape(row[1])] = row[2];
    }
    EXPECT_EQ(bytes.size(), 52u);
    for (char16_t letter = 0x20; letter < 0x250; ++letter) {
        for (char16_t mark = 0x300; mark <= 0x345; ++mark) {
            char buffer[4];
            const std::u16string text{letter, mark};
            const bool fits = CFStringGetCString(Make(text).get(), buffer, 4, kCFStringEncodingMacRoman);
            const auto expected = bytes.find(text);
            ASSERT_EQ(fits, expected != bytes.end()) << Escape(text);
            if (fits) {
                EXPECT_EQ(Hex(buffer, strlen(buffer)), expected->second) << Escape(text);
            }
        }
    }
}

TEST(StringGetCString, AgreesWithTheMeasuredBuffers) {
    const auto rows = ReadTable("cstring_fit.tsv");
    EXPECT_GT(rows.size(), 90u);
    const std::string mark = " (UTF-16 storage)";
    for (const auto& row : rows) {
        const size_t at = row[0].find(mark);
        const std::u16string text = Unescape(row[0].substr(0, at));
        const String fixed = Make(text);
        const MutableString grown = MakeMutable(text);
        CFStringRef string = at == std::string::npos ? fixed.get() : grown.get();
        char buffer[32];
        memset(buffer, 0xEE, sizeof buffer);
        const int result = CFStringGetCString(string, buffer, std::stoi(row[2]), EncodingOf(row[1]));
        EXPECT_EQ(result, std::stoi(row[3])) << row[0] << ' ' << row[1] << ' ' << row[2];
        EXPECT_EQ(Hex(buffer, 14), row[4]) << row[0] << ' ' << row[1] << ' ' << row[2];
    }
}

TEST(StringGetCString, TakesAnExactFitAndNothingLess) {
    char buffer[8];
    EXPECT_TRUE(CFStringGetCString(Make(u"abc").get(), buffer, 4, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_FALSE(CFStringGetCString(Make(u"abc").get(), buffer, 3, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "");
    EXPECT_TRUE(CFStringGetCString(Make(u"\x65E5").get(), buffer, 4, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(Make(u"\x65E5").get(), buffer, 3, kCFStringEncodingUTF8));
}

TEST(StringGetCString, LoneSurrogatesAreNotUTF8) {
    char buffer[8];
    EXPECT_FALSE(CFStringGetCString(Make(u"\xD800").get(), buffer, 8, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(Make(u"\xDC00x").get(), buffer, 8, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(Make(u"\xDC7F").get(), buffer, 8, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(Make(u"\xDD00").get(), buffer, 8, kCFStringEncodingUTF8));
}

TEST(StringGetCString, UnitsThatStandForBytesOfNamesBecomeTheseBytes) {
    char buffer[8];
    EXPECT_TRUE(CFStringGetCString(Make(u"a\xDC80\xDCFF"
                                        u"b")
                                       .get(),
                                   buffer, 8, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "a\x80\xFF"
                         "b");
    EXPECT_TRUE(CFStringGetCString(Make(u"\xDCC3\x65E5").get(), buffer, 8, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "\xC3\xE6\x97\xA5");
    EXPECT_TRUE(CFStringGetCString(Make(u"\xDCFF\xD83D\xDE00").get(), buffer, 8, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "\xFF\xF0\x9F\x98\x80");
}

TEST(StringGetCString, UnitsThatStandForBytesOfTextAreNotUTF8) {
    char buffer[8];
    EXPECT_FALSE(CFStringGetCString(Make(u"\xDCC3\xDCA9").get(), buffer, 8, kCFStringEncodingUTF8));
    EXPECT_FALSE(
        CFStringGetCString(Make(u"a\xDCFF\xDCF0\xDC9F\xDC98\xDC80").get(), buffer, 8, kCFStringEncodingUTF8));
}
