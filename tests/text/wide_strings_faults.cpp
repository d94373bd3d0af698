// The wide runtime asks nobody for anything, and what needs memory gives a documented result without it.
#include "TavPort.h"
#include "support/faults.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

namespace {

using Names = std::vector<std::string>;

int32_t FormatList(TavChar* buffer, const TavChar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = tav_vswprintf(buffer, format, arguments);
    va_end(arguments);
    return result;
}

} // namespace

TEST(WideRuntime, WithEverythingFailing_StringsWorkAllTheSame) {
    TavChar wide[32], more[32];
    int64_t sum = 0;
    Names log;
    std::vector<size_t> sizes;
    {
        const faults::Injection fault({.call = 1, .lasting = true});
        tav_wcscpy(wide, u"abc");
        tav_wcsncpy(more, wide, 4);
        tav_wcscat(wide, u"def");
        sum += tav_wcslen(wide);
        sum += tav_wcschr(wide, u'c') - wide;
        sum += tav_wcsrchr(wide, u'c') - wide;
        sum += tav_wcsstr(wide, u"cd") - wide;
        sum += tav_wcscmp(wide, wide) + tav_wcsncmp(wide, more, 3) + tav_strncmp("ab", "ac", 1);
        log = fault.log();
        sizes = fault.sizes();
    }
    EXPECT_EQ(sum, 6 + 2 + 2 + 2);
    EXPECT_EQ(log, Names());
    EXPECT_TRUE(sizes.empty());
}

TEST(WideRuntime, WithEverythingFailing_CharacterClassesAskNobody) {
    using Class = int32_t (*)(uint32_t);
    const Class classes[] = {tav_iswalpha, tav_iswalnum, tav_iswcntrl, tav_iswdigit,
                             tav_iswgraph, tav_iswlower, tav_iswprint, tav_iswpunct,
                             tav_iswspace, tav_iswupper, tav_iswxdigit};
    const faults::Injection fault({.call = 1, .lasting = true});
    int members = 0;
    for (const Class each : classes)
        for (uint32_t c = 0; c < 128; ++c) members += each(c) != 0;
    EXPECT_GT(members, 300);
    EXPECT_EQ(fault.log(), Names());
}

// Case mapping by the host: what cannot be had leaves the text.
TEST(WideRuntime, EachCallFails_CaseMappingLeavesTheTextOrMapsIt) {
    TavChar upper[8], lower[8];
    char narrowUpper[8], narrowLower[8];
    TavChar single[2] = {};
    (void)faults::FailEachCall({
        .prepare =
            [&] {
                tav_wcscpy(upper, u"aB");
                tav_wcscpy(lower, u"aB");
                std::string("aB").copy(narrowUpper, 3);
                std::string("aB").copy(narrowLower, 3);
                narrowUpper[2] = narrowLower[2] = 0;
            },
        .scenario =
            [&] {
                tav_wcsupr(upper);
                tav_wcslwr(lower);
                tav_strupr(narrowUpper);
                tav_strlwr(narrowLower);
                single[0] = tav_towupper(u'a');
                single[1] = tav_towlower(u'B');
            },
        .check =
            [&](const std::string& failed) {
                const auto isEither = [](const auto* text, const auto* mapped, const auto* left) {
                    return std::basic_string(text) == mapped || std::basic_string(text) == left;
                };
                EXPECT_TRUE(isEither(upper, u"AB", u"aB")) << failed;
                EXPECT_TRUE(isEither(lower, u"ab", u"aB")) << failed;
                EXPECT_TRUE(isEither(narrowUpper, "AB", "aB")) << failed;
                EXPECT_TRUE(isEither(narrowLower, "ab", "aB")) << failed;
                EXPECT_TRUE(single[0] == u'A' || single[0] == u'a') << failed;
                EXPECT_TRUE(single[1] == u'b' || single[1] == u'B') << failed;
            },
    });
}

TEST(WideRuntime, EachCallFails_FormattingGivesTheTextOrAnEmptyOne) {
    TavChar first[32], second[32], third[32];
    const unsigned runs = faults::FailEachCall({
        .prepare = [&] { first[0] = second[0] = third[0] = u'?'; },
        .scenario =
            [&] {
                tav_swprintf(first, u"%d %s", 7, u"x");
                tav_snwprintf(second, 32, u"%d", 8);
                FormatList(third, u"%d", 9);
            },
        .check =
            [&](const std::string& failed) {
                // A "%s" that is not found stays one for bytes, of which u"x" has none in front of a big-endian zero.
                const bool isLeft = failed == "CFStringFindWithOptions" && first == std::u16string(u"7 ");
                EXPECT_TRUE(first == std::u16string(u"7 x") || first[0] == 0 || isLeft) << failed;
                EXPECT_TRUE(second == std::u16string(u"8") || second[0] == 0) << failed;
                EXPECT_TRUE(third == std::u16string(u"9") || third[0] == 0) << failed;
            },
    });
    EXPECT_GT(runs, 0u);
}

TEST(WideRuntime, EachCallFails_ComparingGivesAnAnswerAndNumbersAreRead) {
    int32_t compared = 0, number = 0;
    double real = 0;
    (void)faults::FailEachCall({
        .scenario =
            [&] {
                compared = tav_wcscmpi(u"Ab", u"aB") | tav_wcsnicmp(u"Ab", u"aC", 1) |
                           tav_strnicmp("Ab", "aC", 1) | tav_strcmpi("A", "a");
                number = tav_wtoi(u"42");
                real = tav_wcstod(u"2.5", nullptr);
            },
        .check =
            [&](const std::string& failed) {
                if (failed.empty()) {
                    EXPECT_EQ(compared, 0);
                }
                if (failed != "CFStringGetIntValue") { // which gives any number there is
                    EXPECT_TRUE(number == 42 || number == 0) << failed;
                }
                EXPECT_TRUE(real == 2.5 || real == 0) << failed;
            },
    });
}
