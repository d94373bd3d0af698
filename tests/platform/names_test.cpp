#include "platform/linux/names.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

OSErr Encode(const std::u16string& units, std::string& bytes) {
    char buffer[kMaxNameBytes + 1];
    OSErr result = BytesFromName(reinterpret_cast<const UniChar*>(units.data()),
                                 static_cast<UniCharCount>(units.size()), buffer);
    if (result == noErr) bytes = buffer;
    return result;
}

std::u16string Decode(const std::string& bytes) {
    HFSUniStr255 name;
    NameFromBytes(bytes.c_str(), name);
    return {name.unicode, name.unicode + name.length};
}

struct Pair {
    std::u16string units;
    std::string bytes;
};

const Pair kPairs[] = {
    {u"plain.txt", "plain.txt"},
    {u"a/b", "a:b"},
    {u"é", "\xC3\xA9"},
    {u"漢字", "\xE6\xBC\xA2\xE5\xAD\x97"},
    {u"\xD83D\xDE00", "\xF0\x9F\x98\x80"},
    {u"\xD800\xDC80", "\xF0\x90\x82\x80"},             // a pair, not an escaped byte
    {u"x\xDCFFy", "x\xFFy"},                           // a stray byte
    {u"\xDCC3", "\xC3"},                               // a cut sequence
    {u"\xDCC0\xDCAF", "\xC0\xAF"},                     // overlong "/"
    {u"\xDCED\xDCA0\xDC80", "\xED\xA0\x80"},           // an encoded surrogate
    {u"\xDCF4\xDC90\xDC80\xDC80", "\xF4\x90\x80\x80"}, // beyond U+10FFFF
    {u"\xDCE6\xDCBC"
     u"z",
     "\xE6\xBC"
     "z"},
};

TEST(Names, UnitsAndBytes_StandForEachOther) {
    for (const Pair& pair : kPairs) {
        std::string bytes;
        ASSERT_EQ(Encode(pair.units, bytes), noErr) << pair.bytes;
        EXPECT_EQ(bytes, pair.bytes);
        EXPECT_EQ(Decode(pair.bytes), pair.units) << pair.bytes;
    }
}

TEST(Names, BadUnits_AreRefused) {
    const std::u16string bad[] = {
        u"",
        u"a:b",
        std::u16string(256, u'a'),
        std::u16string(u"a\0b", 3),
        u".",
        u"..",
        u"\xD800",
        u"\xD800x",
        u"\xDC00",
        u"\xDC7F",
        u"\xDD00",
        u"\xDCC3\xDCA9",           // would read back as "é"
        u"\xDC41",                 // ASCII is never escaped
        std::u16string(128, u'é'), // 256 bytes
    };
    for (const std::u16string& units : bad) {
        std::string bytes;
        EXPECT_EQ(Encode(units, bytes), bdNamErr) << units.size();
    }
}

TEST(Names, LongestNames_Fit) {
    std::string bytes;
    EXPECT_EQ(Encode(std::u16string(255, u'a'), bytes), noErr);
    EXPECT_EQ(bytes, std::string(255, 'a'));
    EXPECT_EQ(Encode(std::u16string(127, u'é'), bytes), noErr);
    EXPECT_EQ(Decode(std::string(255, '\x80')), std::u16string(255, u'\xDC80'));
}

TEST(Names, NamesThatOnlyBeginWithDots_AreAllowed) {
    std::string bytes;
    EXPECT_EQ(Encode(u"...", bytes), noErr);
    EXPECT_EQ(Encode(u".hidden", bytes), noErr);
    EXPECT_EQ(bytes, ".hidden");
}

TEST(Names, AnyBytes_ComeBackUnchanged) {
    unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const char interesting[] = "ab:\x80\xBF\xC3\xA9\xE6\xBC\xA2\xED\xA0\xF0\x9F\x98\xF4\x90\xFF";
    for (int round = 0; round < 20000; ++round) {
        std::string bytes = "n";
        for (unsigned count = random() % 12; count > 0; --count)
            bytes += interesting[random() % (sizeof interesting - 1)];
        std::string back;
        ASSERT_EQ(Encode(Decode(bytes), back), noErr) << bytes;
        ASSERT_EQ(back, bytes);
    }
}

TEST(Names, RandomUnits_EitherAreRefusedOrComeBackUnchanged) {
    unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const char16_t interesting[] = u"a/é漢\xD800\xD83D\xDC00\xDE00\xDC80\xDCA9\xDCC3\xDCE6\xDCBC\xDCA2\xDCFF";
    for (int round = 0; round < 20000; ++round) {
        std::u16string units = u"n";
        for (unsigned count = random() % 6; count > 0; --count) units += interesting[random() % 14];
        std::string bytes;
        if (Encode(units, bytes) != noErr) continue;
        ASSERT_EQ(Decode(bytes), units);
    }
}

TEST(Text, Conversions_TellTheSizeAndWriteWhatFits) {
    const UniChar units[] = {'a', ':', 0xE9};
    char bytes[3] = {'?', '?', '?'};
    EXPECT_EQ(BytesFromUnits(units, 3, bytes, 2), 4u);
    EXPECT_EQ(std::string(bytes, 3), "a:?");
    UniChar back[2] = {0, '?'};
    EXPECT_EQ(UnitsFromBytes("a:\xC3\xA9", 4, back, 1), 3u);
    EXPECT_EQ(back[0], 'a');
    EXPECT_EQ(back[1], '?');
}

TEST(Text, UnitsWithoutBytes_AreNotText) {
    const UniChar units[] = {'a', 0xD800};
    EXPECT_EQ(BytesFromUnits(units, 2, nullptr, 0), kNotText);
}

} // namespace
