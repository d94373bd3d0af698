#include "platform/linux/cf_object.h"
#include "platform/strings.h"

#include "support/locales.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <list>
#include <memory>
#include <random>

namespace {

struct Release {
    void operator()(const OpaqueCFString* string) const { CFRelease(string); }
};
using String = std::unique_ptr<const OpaqueCFString, Release>;

String Make(const std::u16string& text) {
    return String(CFStringCreateWithCharacters(nullptr, text.data(), static_cast<CFIndex>(text.size())));
}

std::u16string Content(CFStringRef string) {
    std::u16string text(static_cast<size_t>(CFStringGetLength(string)), 0);
    CFStringGetCharacters(string, {0, CFStringGetLength(string)}, text.data());
    return text;
}

constexpr char kNoResult[] = "<no result>";

// The formatted text, escaped.
std::string Format(const char* format, ...) {
    const String text = Make(Unescape(format));
    va_list arguments;
    va_start(arguments, format);
    const String result(CFStringCreateWithFormatAndArguments(nullptr, nullptr, text.get(), arguments));
    va_end(arguments);
    return result ? Escape(Content(result.get())) : kNoResult;
}

// What rows take as values lives until the test ends.
std::list<String> madeStrings;
std::list<std::u16string> madeUnits;

CFStringRef CF(const char* text) {
    return madeStrings.emplace_back(Make(Unescape(text))).get();
}

const char16_t* Units(std::initializer_list<int> units) {
    std::u16string& text = madeUnits.emplace_back();
    for (int unit : units) text += static_cast<char16_t>(unit);
    return text.c_str();
}

template <typename... Values>
std::string ByCLibrary(const char* format, Values... values) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    std::string text(static_cast<size_t>(snprintf(nullptr, 0, format, values...)), 0);
    snprintf(text.data(), text.size() + 1, format, values...);
#pragma GCC diagnostic pop
    return text;
}

std::string Zeros(const char* before, size_t n, const char* behind) {
    std::string text(before);
    text.append(n, '0');
    return text.append(behind);
}

std::mt19937_64 SeededRandom() {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    return std::mt19937_64(seed);
}

// Flags, width and precision of a conversion.
std::string RandomStart(std::mt19937_64& random) {
    std::string format = "%";
    for (const char flag : {'-', '+', ' ', '#', '0'}) {
        if (random() % 3 == 0) format += flag;
    }
    if (random() % 2) format += std::to_string(1 + random() % 40);
    if (random() % 2) format += '.';
    if (format.back() == '.' && random() % 4) format += std::to_string(random() % 30);
    return format;
}

double RandomDouble(std::mt19937_64& random) {
    if (random() % 8 == 0) return std::bit_cast<double>(random());
    return static_cast<double>(static_cast<int64_t>(random() % 2000001) - 1000000) /
           static_cast<double>(1 + random() % 1000);
}

} // namespace

TEST(StringFormat, AgreesWithTheMeasuredRows) {
    size_t rows = 0;
#define ROW(format, expected, ...)                                                                           \
    EXPECT_EQ(Format(format __VA_OPT__(, ) __VA_ARGS__), expected) << "format: " << (format);                \
    ++rows;
#include "format_rows.inc"
#undef ROW
    EXPECT_GT(rows, 200u);
    madeStrings.clear();
    madeUnits.clear();
}

TEST(StringFormat, IntegersAgreeWithTheCLibrary) {
    std::mt19937_64 random = SeededRandom();
    for (int round = 0; round < 100000; ++round) {
        const char letter = "diouxX"[random() % 6];
        const auto value = static_cast<int64_t>(random() >> random() % 64);
        const std::string start = RandomStart(random);
        const std::string plain = start + letter, shorter = start + "h" + letter,
                          tiny = start + "hh" + letter;
        const std::string longer = start + "ll" + letter, host = start + "l" + letter;
        const int narrow = static_cast<int>(value);
        ASSERT_EQ(Format(plain.c_str(), narrow), ByCLibrary(plain.c_str(), narrow)) << plain;
        ASSERT_EQ(Format(shorter.c_str(), narrow), ByCLibrary(shorter.c_str(), narrow)) << shorter;
        ASSERT_EQ(Format(tiny.c_str(), narrow), ByCLibrary(tiny.c_str(), narrow)) << tiny;
        ASSERT_EQ(Format(longer.c_str(), value), ByCLibrary(longer.c_str(), value)) << longer;
        ASSERT_EQ(Format(host.c_str(), static_cast<long>(value)),
                  ByCLibrary(host.c_str(), static_cast<long>(value)))
            << host;
    }
}

TEST(StringFormat, FloatingValuesAgreeWithTheCLibrary) {
    std::mt19937_64 random = SeededRandom();
    for (int round = 0; round < 100000; ++round) {
        const double value = RandomDouble(random);
        if (std::isnan(value)) continue;
        const std::string format = RandomStart(random) + "eEfFgGaA"[random() % 8];
        ASSERT_EQ(Format(format.c_str(), value), ByCLibrary(format.c_str(), value)) << format;
    }
}

TEST(StringFormat, LongDoublesAgreeWithTheCLibrary) {
    for (const char* format : {"%Lf", "%.3Le", "%20.10Lg|", "%-30La|", "%+Lf"}) {
        for (const long double value :
             {0.1L, -2.5e10L, LDBL_MAX, LDBL_MIN, 0.0L, static_cast<long double>(INFINITY)}) {
            EXPECT_EQ(Format(format, value), ByCLibrary(format, value)) << format;
        }
    }
}

TEST(StringFormat, CapitalLettersOfIntegersAreTheSmallOnes) {
    EXPECT_EQ(Format("%D|%U|%O|%d", -5, -1, 8, 9), "-5|4294967295|10|9");
    EXPECT_EQ(Format("%2$D %1$U", 7, -5), "-5 7");
    EXPECT_EQ(Format("%lD", LONG_MIN), std::to_string(LONG_MIN));
}

TEST(StringFormat, CharactersOfZeroLeaveTheirFieldBehind) {
    EXPECT_EQ(Format("%5c|%-5c|", 0, 0), "    ||");
}

TEST(StringFormat, NegativePrecisionOfAnArgumentIsNone) {
    EXPECT_EQ(Format("%.*f|%.*e|%.*d", -1, 1.5, -1, 1.5, -1, 0), "1.500000|1.500000e+00|0");
}

TEST(StringFormat, GreatestNumberOfAnArgumentIsUnderstood) {
    EXPECT_EQ(Format("%2147483647$d", 5), "5");
}

TEST(StringFormat, LengthsOfOtherTypes) {
    EXPECT_EQ(Format("%td %ti", ptrdiff_t{-3}, ptrdiff_t{4}), "-3 4");
    EXPECT_EQ(Format("%td", PTRDIFF_MIN), std::to_string(PTRDIFF_MIN));
    EXPECT_EQ(Format("%zu", SIZE_MAX), std::to_string(SIZE_MAX));
    EXPECT_EQ(Format("%ju %Ld", UINTMAX_MAX, INT64_MIN),
              std::to_string(UINTMAX_MAX) + " " + std::to_string(INT64_MIN));
    EXPECT_EQ(Format("%lf %hf", 1.5, 2.5), "1.500000 2.500000");
}

TEST(StringFormat, ObjectsThatAreNoTextsShowTheirKind) {
    static constexpr CFKind kKind = {"CFThing", [](CFObject*) {}};
    const CFObject object = {&kKind};
    EXPECT_EQ(Format("%@", static_cast<const void*>(&object)), "<CFThing>");
}

TEST(StringFormat, NullObjectsTextsAndPointers) {
    EXPECT_EQ(Format("%@|%5@", nullptr, nullptr), "(null)|(null)");
    EXPECT_EQ(Format("%S|%s|%P", nullptr, nullptr, nullptr), "(null)|(null)|(null)");
    EXPECT_EQ(Format("%p|%6p|%-6p|", nullptr, nullptr, nullptr), "0x0|   0x0|0x0   |");
}

TEST(StringFormat, NStoresNothingAndTakesItsValue) {
    int stored = 77;
    EXPECT_EQ(Format("ab%ncd %d", &stored, 5), "abcd 5");
    EXPECT_EQ(stored, 77);
}

TEST(StringFormat, APrecisionBoundsWhatIsReadOfAText) {
    const char bytes[] = {'a', 'b', 'c'}; // not terminated
    const char16_t units[] = {u'a', u'b', u'c'};
    EXPECT_EQ(Format("%.3s|%.*S", bytes, 3, units), "abc|abc");
    EXPECT_EQ(Format("%.0S|", units), "|");
    EXPECT_EQ(Format("%.s|", "abc"), "|");
}

TEST(StringFormat, UnknownConversionsTakeNoValue) {
    EXPECT_EQ(Format("%y%d", 5), "y5");
    EXPECT_EQ(Format("%*y%d", 5), "*5");
    EXPECT_EQ(Format("%1$y%d", 5), "15");
}

TEST(StringFormat, PositionsBeyondTheValuesCountAsTheNext) {
    EXPECT_EQ(Format("%9$d %d", 1, 2), "1 2");
}

TEST(StringFormat, PositionsOfDifferentTypesInAnyOrder) {
    EXPECT_EQ(Format("%3$s %1$lld %2$.1f %1$llx", 255LL, 1.5, "x"), "x 255 1.5 ff");
    EXPECT_EQ(Format("%4$d%3$d%2$d%1$d%5$d", 1, 2, 3, 4, 5), "43215");
    EXPECT_EQ(Format("%1$*2$.*3$f|", 3.14159, 8, 2), "    3.14|");
}

// Following a number as a pointer would be the end of the process.
TEST(StringFormat, ArgumentNamedAsTwoKinds_CountsAsZeroForTheSecond) {
    EXPECT_EQ(Format("%1$d %1$s", 5), "5 (null)");
    EXPECT_EQ(Format("%1$d %P", 5), "5 (null)");
    EXPECT_EQ(Format("%1$lld %1$S %1$@", 5LL), "5 (null) (null)");
    EXPECT_EQ(Format("%1$.1f %1$s %1$d", 1.5), "1.5 (null) 0");
    EXPECT_EQ(Format("%1$s %1$d %1$f", "x"), "x 0 0.000000");
    EXPECT_EQ(Format("%1$f %1$Lf", 1.5), "1.500000 0.000000");
    EXPECT_EQ(Format("%1$d %1$lld", 5, 6), "5 5");
}

TEST(StringFormat, ManyPositions) {
    std::string format, expected;
    for (int i = 0; i < 30; ++i) {
        format += "%1$d%2$s";
        expected += "7x";
    }
    EXPECT_EQ(Format(format.c_str(), 7, "x"), expected);
}

TEST(StringFormat, WidthsAndPrecisionsBeyond31BitsMakeNoString) {
    EXPECT_EQ(Format("%2147483648d", 1), kNoResult);
    EXPECT_EQ(Format("%.99999999999999999999f", 1.0), kNoResult);
    EXPECT_EQ(Format("%99999999999$d", 1), kNoResult);
    EXPECT_EQ(Format("%1$*99999999999$d", 1), kNoResult);
}

TEST(StringFormat, LargeFieldsAreWrittenInFull) {
    EXPECT_EQ(Format("%1000000d", 7).size(), 1000000u);
    EXPECT_EQ(Format("%-300000s|", "x").size(), 300001u);
    EXPECT_EQ(Format("%.200000d", 7), Zeros("", 199999, "7"));
    EXPECT_EQ(Format("%.100000f", 0.5), Zeros("0.5", 99999, ""));
    EXPECT_EQ(Format("%#.100000f", 0.5), Zeros("0.5", 99999, ""));
    EXPECT_EQ(Format("%*d|", -5000, 7).size(), 5001u);
}

TEST(StringFormat, LongFormatsAndTextsGrowTheResult) {
    std::string format, expected;
    for (int i = 0; i < 2000; ++i) {
        format += "%1$d-";
        expected += "12-";
    }
    EXPECT_EQ(Format(format.c_str(), 12), expected);
    const std::string text(100000, 'x');
    EXPECT_EQ(Format("%s%s", text.c_str(), text.c_str()), std::string(200000, 'x'));
}

TEST(StringFormat, ThePointIsAPointInEveryLocale) {
    const LocaleWithComma locale;
    if (!locale.exists()) GTEST_SKIP() << "no locale with another decimal point could be made";
    char byTheLibrary[8];
    snprintf(byTheLibrary, sizeof byTheLibrary, "%.1f", 1.5);
    ASSERT_STREQ(byTheLibrary, "1,5");
    EXPECT_EQ(Format("%.1f %.1e %g %#g %.1Lf", 1.5, 1.5, 1.5, 1.5, 1.5L), "1.5 1.5e+00 1.5 1.50000 1.5");
    snprintf(byTheLibrary, sizeof byTheLibrary, "%.1f", 1.5);
    EXPECT_STREQ(byTheLibrary, "1,5");
}

TEST(StringFind, GivesTheFirstOccurrenceInTheRange) {
    const String text = Make(u"a%s%s"), pattern = Make(u"%s"), missing = Make(u"%S"), empty = Make(u"");
    CFRange found = {0, 0};
    EXPECT_TRUE(CFStringFindWithOptions(text.get(), pattern.get(), {0, 5}, 0, &found));
    EXPECT_EQ(found.location, 1);
    EXPECT_EQ(found.length, 2);
    EXPECT_TRUE(CFStringFindWithOptions(text.get(), pattern.get(), {2, 3}, 0, &found));
    EXPECT_EQ(found.location, 3);
    EXPECT_FALSE(CFStringFindWithOptions(text.get(), missing.get(), {0, 5}, 0, &found));
    EXPECT_FALSE(CFStringFindWithOptions(empty.get(), pattern.get(), {0, 0}, 0, &found));
    EXPECT_EQ(found.location, 3);
}

TEST(StringFind, LooksAtNothingOutsideTheRange) {
    const String text = Make(u"a%s%s"), pattern = Make(u"%s");
    CFRange found = {0, 0};
    EXPECT_FALSE(CFStringFindWithOptions(text.get(), pattern.get(), {0, 2}, 0, &found));
    EXPECT_FALSE(CFStringFindWithOptions(text.get(), pattern.get(), {2, 2}, 0, &found));
    EXPECT_FALSE(CFStringFindWithOptions(text.get(), pattern.get(), {5, 0}, 0, &found));
}

TEST(StringReplace, TakesReplacementsOfAnyLength) {
    const CFMutableStringRef text = CFStringCreateMutable(nullptr, 0);
    CFStringAppendCharacters(text, u"abcdef", 6);
    CFStringReplace(text, {1, 2}, Make(u"X").get());
    EXPECT_EQ(Content(text), u"aXdef");
    CFStringReplace(text, {5, 0}, Make(std::u16string(500, u'z')).get());
    EXPECT_EQ(Content(text), std::u16string(u"aXdef").append(500, u'z'));
    CFStringReplace(text, {0, 2}, Make(u"bY").get());
    EXPECT_EQ(Content(text), std::u16string(u"bYdef").append(500, u'z'));
    CFStringReplace(text, {0, 505}, Make(u"").get());
    EXPECT_EQ(Content(text), u"");
    CFRelease(text);
}

TEST(ConstantString, IsAStringThatReleasingLeavesAlone) {
    const UniChar units[] = {u'a', u'b'};
    const CFConstantString constant = {&__CFConstantStringClassReference, 2, units, false};
    EXPECT_EQ(Content(CFSTR(constant)), u"ab");
    CFRelease(CFSTR(constant));
    EXPECT_EQ(Format("%@", CFSTR(constant)), "ab");
    char buffer[2];
    EXPECT_FALSE(CFStringGetCString(CFSTR(constant), buffer, 2, kCFStringEncodingUTF8));
}
