#include "text/wide_string.h"

#include "support/files.h"

#include <gtest/gtest.h>

#include <string>

namespace {

bool IsSharedEmpty(const CTavStringW& s) {
    return reinterpret_cast<const int32_t*>(s.GetData()) == rgTavInitDataW;
}

} // namespace

TEST(EmptyStringData, HoldsTheHeaderAndATerminator) {
    for (const int32_t* block : {rgTavInitDataW, rgTavInitDataA}) {
        EXPECT_EQ(block[0], -1);
        EXPECT_EQ(block[1], 0);
        EXPECT_EQ(block[2], 0);
        EXPECT_EQ(block[3], 0);
    }
    EXPECT_EQ(sizeof rgTavInitDataW, 16u);
    EXPECT_EQ(_tavtmpDataNilW, rgTavInitDataW);
    EXPECT_EQ(_tavtmpDataNilA, rgTavInitDataA);
    EXPECT_EQ(static_cast<const void*>(_tavtmpPchNilW), rgTavInitDataW + 3);
    EXPECT_EQ(static_cast<const void*>(_tavtmpPchNilA), rgTavInitDataA + 3);
}

TEST(CTavStringW, NullAndEmptyShareTheEmptyBlock) {
    {
        const CTavStringW fromNull(nullptr), fromEmpty(u"");
        EXPECT_TRUE(IsSharedEmpty(fromNull));
        EXPECT_TRUE(IsSharedEmpty(fromEmpty));
    }
    EXPECT_EQ(rgTavInitDataW[0], -1);
}

TEST(CTavStringW, OwnsACopyWithLengthAndTerminator) {
    TavChar source[] = u"abc";
    const CTavStringW s(source);
    source[0] = u'x';
    CTavStringWData* header = s.GetData();
    EXPECT_EQ(header->references, 1);
    EXPECT_EQ(header->length, 3);
    EXPECT_EQ(header->allocatedLength, 3);
    EXPECT_EQ(std::u16string(header->data()), u"abc");
}

TEST(CTavStringW, LastOwnerFreesTheBlockAndOthersDoNot) {
    CTavStringWData* header = nullptr;
    {
        const CTavStringW s(u"abc");
        header = s.GetData();
        ++header->references;
    }
    EXPECT_EQ(header->references, 1);
    EXPECT_EQ(header->data()[0], u'a');
    delete[] reinterpret_cast<char*>(header);
}

TEST(CTavStringW, ReverseFindGivesTheLastIndex) {
    const CTavStringW s(u"a/b/c");
    EXPECT_EQ(s.ReverseFind(u'/'), 3);
    EXPECT_EQ(s.ReverseFind(u'a'), 0);
    EXPECT_EQ(s.ReverseFind(u'c'), 4);
    EXPECT_EQ(s.ReverseFind(u'x'), -1);
    EXPECT_EQ(CTavStringW(u"").ReverseFind(u'/'), -1);
}

TEST(CTavStringW, ReverseFindDoesNotFindTheTerminator) {
    EXPECT_EQ(CTavStringW(u"abc").ReverseFind(0), -1);
}

TEST(CTavStringW, CstrrchrStopsBeforeTheTerminator) {
    const TavChar* s = u"a/b/c";
    EXPECT_EQ(CTavStringW::_cstrrchr(s, u'/'), s + 3);
    EXPECT_EQ(CTavStringW::_cstrrchr(s, 0), nullptr);
    EXPECT_EQ(CTavStringW::_cstrrchr(s + 5, u'/'), nullptr);
}

TEST(CTavStringW, SafeStrlenTakesNull) {
    EXPECT_EQ(CTavStringW::SafeStrlen(nullptr), 0);
    EXPECT_EQ(CTavStringW::SafeStrlen(u"abcd"), 4);
}

TEST(CTavStringW, AllocBufferOfNothingSharesTheEmptyBlock) {
    CTavStringW s(nullptr);
    EXPECT_TRUE(s.AllocBuffer(0));
    EXPECT_TRUE(IsSharedEmpty(s));
}

TEST(CTavStringW, AllocBufferTerminatesAndSetsBothLengths) {
    CTavStringW s(nullptr);
    EXPECT_TRUE(s.AllocBuffer(5));
    EXPECT_EQ(s.GetData()->references, 1);
    EXPECT_EQ(s.GetData()->length, 5);
    EXPECT_EQ(s.GetData()->allocatedLength, 5);
    EXPECT_EQ(s.GetData()->data()[5], 0);
}

TEST(CTavStringW, EmptyStringPointerIsTheExportedOne) {
    EXPECT_EQ(CTavStringW::_GetEmptyString(), &_tavtmpPchNilW);
}

TEST(CTavStringW, GetUTF8StringGivesUnitsAndWritesBytes) {
    char buffer[8];
    EXPECT_EQ(CTavStringW(u"\x00E9").GetUTF8String(buffer, sizeof buffer), 1);
    EXPECT_STREQ(buffer, "\xC3\xA9");
}

TEST(CTavStringW, GetUTF8StringGivesTheLengthEvenWhenTheTextDoesNotFit) {
    char buffer[3] = {'x', 'x', 'x'};
    EXPECT_EQ(CTavStringW(u"abcdef").GetUTF8String(buffer, sizeof buffer), 6);
    EXPECT_EQ(buffer[0], 0);
}

TEST(CTavStringW, GetUTF8StringOfTheEmptyString) {
    char buffer[2] = {'x', 'x'};
    EXPECT_EQ(CTavStringW(nullptr).GetUTF8String(buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(CTavStringW, MakeFSRefFindsExistingObjectsOnly) {
    const TemporaryFolder folder;
    WriteFile(folder / "caf\xC3\xA9", "x");
    FSRef ref;
    EXPECT_TRUE(CTavStringW(Wide(folder / "caf\xC3\xA9").c_str()).MakeFSRef(&ref));
    EXPECT_FALSE(CTavStringW(Wide(folder / "missing").c_str()).MakeFSRef(&ref));
}

TEST(CTavStringW, MakeFSRefReachesNamesThatAreNotText) {
    const TemporaryFolder folder;
    WriteFile(folder / "caf\xE9", "x");
    const std::u16string path = Wide(folder.path()) + u"/caf\xDCE9";
    FSRef ref;
    EXPECT_TRUE(CTavStringW(path.c_str()).MakeFSRef(&ref));
    EXPECT_FALSE(CTavStringW((path.substr(0, path.size() - 1) + u'\xDCE8').c_str()).MakeFSRef(&ref));
}

TEST(CTavStringW, MakeFSRefRefusesAPathOfMoreThan1023Bytes) {
    const std::u16string path = u"/" + std::u16string(1023, u'/');
    FSRef ref;
    EXPECT_TRUE(CTavStringW(path.substr(1).c_str()).MakeFSRef(&ref));
    EXPECT_FALSE(CTavStringW(path.c_str()).MakeFSRef(&ref));
}
