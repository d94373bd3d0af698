// What happens when memory runs out, and how often it is asked for: the linker puts these wrappers in front
// of the allocator and of the platform operations.
#include "TavPort.h"
#include "platform/references.h"
#include "platform/strings.h"
#include "text/wide_string.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

namespace {

constexpr int kNever = -1;

// Lets a number of calls through and refuses the next one.
struct Counter {
    int calls = 0;
    int failAt = kNever;
    size_t lastSize = 0;

    bool Refuses(size_t size = 0) {
        lastSize = size;
        return calls++ == failAt;
    }
};

Counter mallocs, reallocs, news, stringsFromUnits, stringsOnUnits, stringsFromBytes, mutableStrings,
    pathLookups;
int frees = 0, arrayDeletes = 0;
CFIndex invisibleUnits = 0; // that strings, but for the last mutable one, are said to have more
CFMutableStringRef lastMutable = nullptr;

} // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);
CFStringRef __real_CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* chars,
                                                CFIndex numChars);
CFStringRef __real_CFStringCreateWithCharactersNoCopy(CFAllocatorRef allocator, const UniChar* chars,
                                                      CFIndex numChars, CFAllocatorRef contentsDeallocator);
CFStringRef __real_CFStringCreateWithCString(CFAllocatorRef allocator, const char* cStr,
                                             CFStringEncoding encoding);
CFMutableStringRef __real_CFStringCreateMutable(CFAllocatorRef allocator, CFIndex maxLength);

void* __wrap_malloc(size_t size) {
    return mallocs.Refuses(size) ? nullptr : __real_malloc(size);
}

void* __wrap_realloc(void* block, size_t size) {
    return reallocs.Refuses(size) ? nullptr : __real_realloc(block, size);
}

void __wrap_free(void* block) {
    ++frees;
    __real_free(block);
}

void __real__ZdaPv(void* block);
void __wrap__ZdaPv(void* block) {
    ++arrayDeletes;
    __real__ZdaPv(block);
}

void* REAL_NEW(size_t size, const std::nothrow_t& tag);
void* WRAP_NEW(size_t size, const std::nothrow_t& tag) {
    return news.Refuses(size) ? nullptr : REAL_NEW(size, tag);
}

CFStringRef __wrap_CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* chars,
                                                CFIndex numChars) {
    if (stringsFromUnits.Refuses()) return nullptr;
    return __real_CFStringCreateWithCharacters(allocator, chars, numChars);
}

CFStringRef __wrap_CFStringCreateWithCharactersNoCopy(CFAllocatorRef allocator, const UniChar* chars,
                                                      CFIndex numChars, CFAllocatorRef contentsDeallocator) {
    if (stringsOnUnits.Refuses()) return nullptr;
    return __real_CFStringCreateWithCharactersNoCopy(allocator, chars, numChars, contentsDeallocator);
}

CFStringRef __wrap_CFStringCreateWithCString(CFAllocatorRef allocator, const char* cStr,
                                             CFStringEncoding encoding) {
    return stringsFromBytes.Refuses() ? nullptr : __real_CFStringCreateWithCString(allocator, cStr, encoding);
}

CFMutableStringRef __wrap_CFStringCreateMutable(CFAllocatorRef allocator, CFIndex maxLength) {
    lastMutable = mutableStrings.Refuses() ? nullptr : __real_CFStringCreateMutable(allocator, maxLength);
    return lastMutable;
}

CFIndex __real_CFStringGetLength(CFStringRef string);
CFIndex __wrap_CFStringGetLength(CFStringRef string) {
    return __real_CFStringGetLength(string) + (string == lastMutable ? 0 : invisibleUnits);
}

OSStatus __wrap_FSPathMakeRef(const uint8_t*, FSRef*, Boolean*) {
    pathLookups.Refuses();
    return noErr;
}

} // extern "C"

TEST(UTFConversion, NoMemoryGivesNull) {
    mallocs.failAt = mallocs.calls;
    EXPECT_EQ(Tav0UTF16FromUTF8("abc"), nullptr);
    mallocs.failAt = mallocs.calls;
    EXPECT_EQ(Tav0UTF8FromUTF16(u"abc"), nullptr);
}

TEST(UTFConversion, TakesOneBlockOfTheGreatestSizeThatMayBeNeeded) {
    const int before = mallocs.calls;
    Tav0UTFRelease(Tav0UTF16FromUTF8(""));
    EXPECT_EQ(mallocs.lastSize, 2u);
    Tav0UTFRelease(Tav0UTF8FromUTF16(u""));
    EXPECT_EQ(mallocs.lastSize, 1u);
    Tav0UTFRelease(Tav0UTF16FromUTF8("abc"));
    EXPECT_EQ(mallocs.lastSize, 8u);
    Tav0UTFRelease(Tav0UTF8FromUTF16(u"abc"));
    EXPECT_EQ(mallocs.lastSize, 10u);
    EXPECT_EQ(mallocs.calls - before, 4);
}

TEST(UTFConversion, AsciiIsNotShrunk) {
    Tav0UTFRelease(Tav0UTF16FromUTF8("abc"));
    Tav0UTFRelease(Tav0UTF8FromUTF16(u"abc"));
    Tav0UTFRelease(Tav0UTF16FromUTF8(""));
    EXPECT_EQ(reallocs.calls, 0);
}

TEST(UTFConversion, AShorterResultIsShrunkOnceToItsSize) {
    Tav0UTFRelease(Tav0UTF16FromUTF8("\xC3\xA9"));
    EXPECT_EQ(reallocs.calls, 1);
    EXPECT_EQ(reallocs.lastSize, 4u);
    Tav0UTFRelease(Tav0UTF8FromUTF16(u"\x00E9"));
    EXPECT_EQ(reallocs.calls, 2);
    EXPECT_EQ(reallocs.lastSize, 3u);
}

TEST(UTFConversion, ABlockThatCannotShrinkIsKept) {
    reallocs.failAt = 0;
    TavChar* wide = Tav0UTF16FromUTF8("\xC3\xA9");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(std::u16string(wide), u"\x00E9");
    Tav0UTFRelease(wide);
    reallocs.failAt = reallocs.calls;
    char* narrow = Tav0UTF8FromUTF16(u"\x00E9");
    ASSERT_NE(narrow, nullptr);
    EXPECT_STREQ(narrow, "\xC3\xA9");
    Tav0UTFRelease(narrow);
}

TEST(UTFConversion, MalformedTextFreesItsBlock) {
    const int allocated = mallocs.calls, freed = frees;
    EXPECT_EQ(Tav0UTF16FromUTF8("abc\xFF"), nullptr);
    EXPECT_EQ(Tav0UTF8FromUTF16(u"abc\xDC00"), nullptr);
    EXPECT_EQ(mallocs.calls - allocated, 2);
    EXPECT_EQ(frees - freed, 2);
}

TEST(Wcscmpi, AStringThatCannotBeMadeGivesLess) {
    for (int failing : {0, 1}) {
        stringsOnUnits.failAt = stringsOnUnits.calls + failing;
        const int allocated = mallocs.calls, freed = frees;
        EXPECT_EQ(tav_wcscmpi(u"b", u"a"), -1);
        EXPECT_EQ(mallocs.calls - allocated, frees - freed);
    }
    stringsOnUnits.failAt = kNever;
    EXPECT_EQ(tav_wcscmpi(u"b", u"a"), 1);
}

TEST(Strcmpi, AStringThatCannotBeMadeGivesLess) {
    for (int failing : {0, 1}) {
        stringsFromBytes.failAt = stringsFromBytes.calls + failing;
        const int allocated = mallocs.calls, freed = frees;
        EXPECT_EQ(tav_strcmpi("b", "a"), -1);
        EXPECT_EQ(mallocs.calls - allocated, frees - freed);
    }
}

TEST(Wcscmpi, TakesNoMemory) {
    const int allocated = mallocs.calls;
    EXPECT_EQ(tav_wcscmpi(u"Strasse", u"STRA\x00DF"
                                      u"E"),
              0);
    EXPECT_EQ(mallocs.calls, allocated);
}

TEST(Wcsupr, WithoutMemoryTheTextStays) {
    TavChar wide[] = u"abc\x00E9";
    char bytes[] = "abc\x8E";
    mutableStrings.failAt = 0;
    EXPECT_EQ(tav_wcsupr(wide), wide);
    EXPECT_EQ(std::u16string(wide), u"abc\x00E9");
    mutableStrings.failAt = mutableStrings.calls;
    EXPECT_EQ(tav_strupr(bytes), bytes);
    EXPECT_STREQ(bytes, "abc\x8E");
}

TEST(Wcsupr, TakesOneBlockForATextOfOrdinaryLength) {
    std::u16string text(200, u'\x00E9');
    const int allocated = mallocs.calls, freed = frees;
    tav_wcsupr(text.data());
    EXPECT_EQ(mallocs.calls - allocated, 1);
    EXPECT_EQ(frees - freed, 1);
}

TEST(Wcsupr, ALongTextStaysWhenThereIsNoRoomForIt) {
    const std::u16string before(5000, u'\x00E9');
    std::u16string wide = before;
    mallocs.failAt = mallocs.calls + 1;
    tav_wcsupr(wide.data());
    EXPECT_TRUE(wide == before);
    news.failAt = news.calls;
    tav_wcsupr(wide.data());
    EXPECT_TRUE(wide == before);
}

TEST(Strupr, ALongTextStaysWhenThereIsNoRoomForIt) {
    const std::string before(5000, '\x8E');
    std::string bytes = before;
    mallocs.failAt = mallocs.calls + 1;
    tav_strupr(bytes.data());
    EXPECT_TRUE(bytes == before);
}

TEST(CTavStringW, NullAndEmptyAllocateNothing) {
    const CTavStringW fromNull(nullptr), fromEmpty(u"");
    EXPECT_EQ(news.calls, 0);
}

TEST(CTavStringW, TakesRoomForHeaderUnitsAndTerminator) {
    const CTavStringW s(u"abc");
    EXPECT_EQ(news.calls, 1);
    EXPECT_EQ(news.lastSize, 20u);
}

TEST(CTavStringW, ABlockWhoseCountIsLostIsFreedAllTheSame) {
    for (const int32_t count : {1, 0, -5}) {
        const int before = arrayDeletes;
        {
            const CTavStringW s(u"abc");
            s.GetData()->references = count;
        }
        EXPECT_EQ(arrayDeletes, before + 1) << count;
    }
}

TEST(CTavStringW, WithoutMemoryItIsEmpty) {
    news.failAt = 0;
    const CTavStringW s(u"abc");
    EXPECT_EQ(reinterpret_cast<const int32_t*>(s.GetData()), _tavtmpDataNilW);
}

TEST(CTavStringW, AllocBufferWithoutMemoryLeavesTheStringAsItWas) {
    CTavStringW s(nullptr);
    news.failAt = news.calls;
    EXPECT_FALSE(s.AllocBuffer(3));
    EXPECT_EQ(reinterpret_cast<const int32_t*>(s.GetData()), _tavtmpDataNilW);
}

TEST(CTavStringW, GetUTF8StringWithoutAPlatformStringGivesZero) {
    char buffer[4] = "x";
    stringsFromUnits.failAt = 0;
    EXPECT_EQ(CTavStringW(u"abc").GetUTF8String(buffer, 4), 0);
    EXPECT_STREQ(buffer, "x");
}

TEST(CTavStringW, MakeFSRefOfAnEmptyStringAsksForNothing) {
    FSRef ref;
    EXPECT_FALSE(CTavStringW(u"").MakeFSRef(&ref));
    EXPECT_EQ(pathLookups.calls, 0);
    EXPECT_TRUE(CTavStringW(u"/").MakeFSRef(&ref));
    EXPECT_EQ(pathLookups.calls, 1);
}

TEST(Numbers, WithoutAPlatformStringTheyAreZero) {
    stringsOnUnits.failAt = stringsOnUnits.calls;
    EXPECT_EQ(tav_wtoi(u"12"), 0);
    stringsOnUnits.failAt = stringsOnUnits.calls;
    TavChar unit = 0;
    TavChar* end = &unit;
    EXPECT_EQ(tav_wcstod(u"1.5", &end), 0.0);
    EXPECT_EQ(end, nullptr);
}

TEST(Numbers, TakeNoMemory) {
    const int allocated = mallocs.calls;
    EXPECT_EQ(tav_wtoi(u"12"), 12);
    EXPECT_EQ(tav_wcstod(u"1.5", nullptr), 1.5);
    EXPECT_EQ(mallocs.calls, allocated);
}

TEST(Formatting, WithoutMemoryTheTextIsEmpty) {
    TavChar buffer[8] = {u'x'};
    mutableStrings.failAt = mutableStrings.calls;
    EXPECT_EQ(tav_snwprintf(buffer, 7, u"%d", 5), 0);
    EXPECT_EQ(buffer[0], 0);
    buffer[0] = u'x';
    mallocs.failAt = mallocs.calls + 1;
    EXPECT_EQ(tav_snwprintf(buffer, 7, u"%d", 5), 0);
    EXPECT_EQ(buffer[0], 0);
}

// Such texts are made of a few numbers of 2^31 digits, for which no machine of the tests has the memory.
TEST(Formatting, ATextThatIsFourBillionUnitsLongerIsCutToo) {
    if (sizeof(CFIndex) == 4) GTEST_SKIP() << "no text is that long where addresses have 32 bits";
    TavChar buffer[8];
    invisibleUnits = static_cast<CFIndex>((int64_t{1} << 32) - 3);
    EXPECT_EQ(tav_snwprintf(buffer, 5, u"abcdef%d", 1), -5);
    invisibleUnits = 0;
    EXPECT_EQ(std::u16string(buffer), u"abcde");
}

TEST(Formatting, TakesTwoBlocksForOrdinaryResults) {
    TavChar buffer[80];
    const int allocated = mallocs.calls, freed = frees;
    EXPECT_GT(tav_snwprintf(buffer, 79, u"%s %d %x %f", u"text", 12, 255, 1.5), 0);
    EXPECT_EQ(mallocs.calls - allocated, 2);
    EXPECT_EQ(frees - freed, 2);
}

// Room to spare that is refused is done without.
TEST(Formatting, EveryRefusedBlockGivesTheTextOrAnEmptyOneAndNoLeak) {
    constexpr int32_t kWhole = 12000 + 1 + 502 + 1 + 502 + 1;
    int wholeInSpite = 0;
    static TavChar buffer[20000];
    const std::u16string text(3000, u'x');
    for (int failing = 0;; ++failing) {
        const int allocated = mallocs.calls, freed = frees;
        mallocs.failAt = allocated + failing;
        const int32_t result =
            tav_snwprintf(buffer, 19999, u"%1$S%1$S%1$S %2$.500f %3$#.500f %1$S", text.c_str(), 1.5, 2.5);
        const bool refused = mallocs.calls > allocated + failing;
        mallocs.failAt = kNever;
        EXPECT_EQ(mallocs.calls - allocated - refused, frees - freed) << failing;
        if (!refused) {
            EXPECT_EQ(result, kWhole);
            break;
        }
        EXPECT_TRUE(result == kWhole || (result == 0 && buffer[0] == 0)) << failing;
        wholeInSpite += result == kWhole;
    }
    EXPECT_GT(wholeInSpite, 0);
}
