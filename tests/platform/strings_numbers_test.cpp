#include "platform/strings.h"

#include "support/locales.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>

namespace {

int32_t IntValue(const std::u16string& text) {
    CFStringRef string =
        CFStringCreateWithCharacters(nullptr, text.data(), static_cast<CFIndex>(text.size()));
    const int32_t value = CFStringGetIntValue(string);
    CFRelease(string);
    return value;
}

double DoubleValue(const std::u16string& text) {
    CFStringRef string =
        CFStringCreateWithCharacters(nullptr, text.data(), static_cast<CFIndex>(text.size()));
    const double value = CFStringGetDoubleValue(string);
    CFRelease(string);
    return value;
}

std::u16string Widened(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

} // namespace

TEST(StringNumbers, IntegersAgreeWithTheMeasuredTexts) {
    const auto rows = ReadTable("int_value.tsv");
    EXPECT_GT(rows.size(), 90u);
    for (const auto& row : rows) EXPECT_EQ(IntValue(Unescape(row[0])), std::stoll(row[1])) << row[0];
}

TEST(StringNumbers, FloatingValuesAgreeWithTheMeasuredTextsInEveryBit) {
    const auto rows = ReadTable("double_value.tsv");
    EXPECT_GT(rows.size(), 100u);
    for (const auto& row : rows) {
        EXPECT_EQ(std::bit_cast<uint64_t>(DoubleValue(Unescape(row[0]))), std::stoull(row[2], nullptr, 16))
            << row[0];
    }
}

TEST(StringNumbers, SpacesOfEveryKindAreSkipped) {
    for (const int space :
         {0x0001, 0x0008, 0x0009, 0x0020, 0x007F, 0x0080, 0x0085, 0x009F, 0x00A0, 0x2000, 0x200B, 0x3000})
        EXPECT_EQ(IntValue({static_cast<char16_t>(space), u'4', u'2'}), 42) << space;
    for (const char16_t other : {u'\u00A1', u'\u1FFF', u'\u200C', u'\u3001'})
        EXPECT_EQ(IntValue({other, u'4', u'2'}), 0) << static_cast<unsigned>(other);
}

TEST(StringNumbers, ValuesBeyondTheRangeLeaveTheErrorNumberAlone) {
    for (const char16_t* text : {u"1e-310", u"2.2250738585072011e-308", u"1e-400", u"1e400"}) {
        errno = 0;
        (void)DoubleValue(text);
        EXPECT_EQ(errno, 0) << std::string(text, text + std::char_traits<char16_t>::length(text));
    }
}

TEST(StringNumbers, AnEmbeddedZeroEndsTheNumber) {
    EXPECT_EQ(IntValue({u'1', 0, u'2'}), 1);
    EXPECT_EQ(IntValue({0, u'2'}), 0);
    EXPECT_EQ(DoubleValue({u'1', 0, u'2'}), 1.0);
}

TEST(StringNumbers, FloatingValuesAreRoundedCorrectly) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937_64 random(seed);
    for (int round = 0; round < 100000; ++round) {
        const double value = std::bit_cast<double>(random());
        if (!std::isfinite(value)) continue;
        char text[64];
        snprintf(text, sizeof text, round % 2 ? "%.17g" : "%.12e", value);
        ASSERT_EQ(std::bit_cast<uint64_t>(DoubleValue(Widened(text))),
                  std::bit_cast<uint64_t>(strtod(text, nullptr)))
            << text;
    }
}

TEST(StringNumbers, ShortNumbersWithPointsAndExponentsAreRoundedCorrectly) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    for (int round = 0; round < 100000; ++round) {
        std::string text;
        for (size_t n = 1 + random() % 17; n > 0; --n) text += static_cast<char>('0' + random() % 10);
        if (random() % 2) text.insert(random() % (text.size() + 1), ".");
        if (random() % 2) text += "e" + std::to_string(static_cast<int>(random() % 80) - 40);
        ASSERT_EQ(std::bit_cast<uint64_t>(DoubleValue(Widened(text))),
                  std::bit_cast<uint64_t>(strtod(text.c_str(), nullptr)))
            << text;
    }
}

TEST(StringNumbers, LongFractionsHalfwayBetweenTwoValuesAreDecidedByTheirLastDigit) {
    // 1 + 2^-53 exactly, which rounds to even; a digit far behind it tips it upwards.
    const std::string half = "1.00000000000000011102230246251565404236316680908203125";
    EXPECT_EQ(DoubleValue(Widened(half)), 1.0);
    for (size_t zeros : {1u, 700u, 760u, 800u, 5000u}) {
        EXPECT_EQ(DoubleValue(Widened(half + std::string(zeros, '0'))), 1.0) << zeros;
        EXPECT_EQ(DoubleValue(Widened(half + std::string(zeros, '0') + "1")), std::nextafter(1.0, 2.0))
            << zeros;
    }
}

TEST(StringNumbers, ManyDigitsAndAnExponentMakeUpForEachOther) {
    EXPECT_EQ(DoubleValue(Widened("1" + std::string(2000, '0') + "e-2000")), 1.0);
    EXPECT_EQ(DoubleValue(Widened("0." + std::string(1999, '0') + "1e2000")), 1.0);
    EXPECT_EQ(DoubleValue(Widened("1e99999999999999999999")), std::numeric_limits<double>::infinity());
    EXPECT_EQ(DoubleValue(Widened("1e-99999999999999999999")), 0.0);
    EXPECT_EQ(DoubleValue(Widened("0e99999999999999999999")), 0.0);
}

TEST(StringNumbers, TheEdgesOfTheRange) {
    EXPECT_EQ(DoubleValue(u"1.7976931348623157e308"), std::numeric_limits<double>::max());
    EXPECT_EQ(DoubleValue(u"1.7976931348623159e308"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(DoubleValue(u"4.9e-324"), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(DoubleValue(u"2.5e-324"), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(DoubleValue(u"2.4e-324"), 0.0);
}

TEST(StringNumbers, ThePointIsAPointInEveryLocale) {
    const LocaleWithComma locale;
    if (!locale.exists()) GTEST_SKIP() << "no locale with another decimal point could be made";
    ASSERT_EQ(strtod("1,5", nullptr), 1.5);
    EXPECT_EQ(DoubleValue(u"1.5"), 1.5);
    EXPECT_EQ(DoubleValue(u"1,5"), 1.0);
}
