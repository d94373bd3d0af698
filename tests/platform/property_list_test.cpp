#include "platform/linux/property_list.h"

#include "support/files.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

std::string NameIn(const std::string& list) {
    return property_list::StringIn(list, "Name");
}

} // namespace

TEST(PropertyList, GivesTheTextBehindTheKey) {
    EXPECT_EQ(NameIn("<plist><dict><key>Other</key><string>no</string>"
                     "<key>Name</key><string>yes</string></dict></plist>"),
              "yes");
    EXPECT_EQ(NameIn("<key>Name</key> \t\r\n<string>yes</string>"), "yes");
    EXPECT_EQ(NameIn("<key>Name</key><string></string>"), "");
    EXPECT_EQ(NameIn("<key>NameToo</key><string>no</string>"), "");
}

TEST(PropertyList, ReadsTheFivePredefinedEntitiesAndLeavesOthers) {
    EXPECT_EQ(NameIn("<key>Name</key><string>&lt;&gt;&quot;&apos;&amp;</string>"), "<>\"'&");
    EXPECT_EQ(NameIn("<key>Name</key><string>&amp;lt; &nbsp; & &am</string>"), "&lt; &nbsp; & &am");
}

TEST(PropertyList, CommentsAreNotThere) {
    EXPECT_EQ(NameIn("<!-- <key>Name</key><string>old</string> --><key>Name</key><string>new</string>"),
              "new");
    EXPECT_EQ(NameIn("<key>Name</key><!----><string>a<!-- x -->b</string>"), "ab");
    EXPECT_EQ(NameIn("<key>Name</key><!-- without an end <string>no</string>"), "");
    EXPECT_EQ(NameIn("<!--> <key>Name</key><string>no</string>"), "");
}

TEST(PropertyList, WithoutACompleteTextThereIsNone) {
    for (const char* list : {"", "<key>Name</key>", "<key>Name</key><true/>", "<key>Name</key><string>open",
                             "<key>Name</key> text <string>no</string>", "<key>Name", "bplist00"})
        EXPECT_EQ(NameIn(list), "") << list;
}

// Cutting comments out one by one would take minutes.
TEST(PropertyList, AListOfNothingButCommentsIsReadInOnePass) {
    std::string list;
    while (list.size() < 16'000'000) list += "<!---->";
    EXPECT_EQ(NameIn(list + "<key>Name</key><string>yes</string>"), "yes");
}

TEST(PropertyList, FileIsReadUpToAMegabyte) {
    TemporaryFolder folder;
    const std::string entry = "<key>Name</key><string>yes</string>";
    WriteFile(folder / "list", entry + std::string(1 << 20, ' '));
    EXPECT_EQ(property_list::StringFor(folder / "list", "Name"), "yes");
    WriteFile(folder / "list", std::string(1 << 20, ' ') + entry);
    EXPECT_EQ(property_list::StringFor(folder / "list", "Name"), "");
}

TEST(PropertyList, OnlyRegularFilesAreOpened) {
    TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(property_list::StringFor(folder / "pipe", "Name"), "");
    EXPECT_EQ(property_list::StringFor(folder.path(), "Name"), "");
    EXPECT_EQ(property_list::StringFor(folder / "missing", "Name"), "");
}
