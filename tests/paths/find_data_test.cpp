#include "paths/find_data.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

FSCatalogInfo Info() {
    FSCatalogInfo info = {};
    info.createDate = {0x0102, 0x03040506, 0x0708};
    info.contentModDate = {0x1112, 0x13141516, 0x1718};
    info.accessDate = {0x2122, 0x23242526, 0x2728};
    return info;
}

std::string Bytes(const TavFileTime& time) {
    return {reinterpret_cast<const char*>(time.bytes), 8};
}

TavFindDataW Filled(const FSCatalogInfo& info, bool isFolder = false, const TavChar* name = u"name") {
    TavFindDataW data;
    memset(&data, 0xA5, sizeof data);
    FillFindData(info, isFolder, name, data);
    return data;
}

} // namespace

TEST(FillFindData, Times_AreBigEndianBytes) {
    TavFindDataW data = Filled(Info());
    EXPECT_EQ(Bytes(data.ftCreationTime), "\x01\x02\x03\x04\x05\x06\x07\x08");
    EXPECT_EQ(Bytes(data.ftLastWriteTime), "\x11\x12\x13\x14\x15\x16\x17\x18");
    EXPECT_EQ(Bytes(data.ftLastAccessTime), "\x21\x22\x23\x24\x25\x26\x27\x28");
}

TEST(FillFindData, NoCreationDate_GivesTheLastWrite) {
    FSCatalogInfo info = Info();
    info.createDate = {};
    EXPECT_EQ(Bytes(Filled(info).ftCreationTime), "\x11\x12\x13\x14\x15\x16\x17\x18");
}

TEST(FillFindData, AnyPartOfACreationDate_IsADate) {
    for (UTCDateTime date : {UTCDateTime{1, 0, 0}, UTCDateTime{0, 1, 0}, UTCDateTime{0, 0, 1}}) {
        FSCatalogInfo info = Info();
        info.createDate = date;
        EXPECT_EQ(Filled(info).ftCreationTime.bytes[0], 0);
    }
}

TEST(FillFindData, Size_IsThePhysicalSizeOfTheDataInTwoHalves) {
    FSCatalogInfo info = Info();
    info.dataLogicalSize = 1;
    info.dataPhysicalSize = 0x1234567890ABCDEF;
    info.rsrcLogicalSize = info.rsrcPhysicalSize = 77;
    TavFindDataW data = Filled(info);
    EXPECT_EQ(data.nFileSizeHigh, 0x12345678u);
    EXPECT_EQ(data.nFileSizeLow, 0x90ABCDEFu);
}

TEST(FillFindData, Attributes_TellFoldersAndHiddenItems) {
    FSCatalogInfo shown = Info(), invisible = Info();
    shown.finderInfo[8] = 0xBF; // every other flag
    shown.finderInfo[9] = 0xFF;
    invisible.finderInfo[8] = 0x40;
    EXPECT_EQ(Filled(shown).dwFileAttributes, 0u);
    EXPECT_EQ(Filled(shown, true).dwFileAttributes, TAV_FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(Filled(shown, false, u".name").dwFileAttributes, TAV_FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(Filled(shown, true, u".").dwFileAttributes, 0x12u);
    EXPECT_EQ(Filled(invisible).dwFileAttributes, TAV_FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(Filled(invisible, true).dwFileAttributes, 0x12u);
}

TEST(FillFindData, BytesThatSayNothing_StayAsTheyWere) {
    TavFindDataW data = Filled(Info(), false, u"name");
    EXPECT_EQ(data.dwReserved0, 0xA5A5A5A5u);
    EXPECT_EQ(data.dwReserved1, 0xA5A5A5A5u);
    EXPECT_EQ(std::u16string(data.cFileName), u"name");
    for (size_t i = 5; i < std::size(data.cFileName); ++i) EXPECT_EQ(data.cFileName[i], 0xA5A5);
    for (TavChar unit : data.cAlternateFileName) EXPECT_EQ(unit, 0xA5A5);
}
