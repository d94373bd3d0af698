#include "platform/linux/property_list.h"

#include "support/files.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

// What a dictionary of these entries has for "Name".
std::string NameIn(const std::string& entries) {
    return property_list::StringIn("<plist><dict>" + entries + "</dict></plist>", "Name");
}

} // namespace

TEST(PropertyList, GivesTheTextBehindTheKey) {
    EXPECT_EQ(NameIn("<key>Other</key><string>no</string><key>Name</key><string>yes</string>"), "yes");
    EXPECT_EQ(NameIn("<key>Name</key> \t\r\n<string>yes</string>"), "yes");
    EXPECT_EQ(NameIn("<key>Name</key><string></string>"), "");
    EXPECT_EQ(NameIn("<key>Name</key><string/>"), "");
    EXPECT_EQ(NameIn("<key>NameToo</key><string>no</string>"), "");
    EXPECT_EQ(NameIn("<key\n>Name</key ><string id='x'>yes</string\t>"), "yes");
}

TEST(PropertyList, InnerCollectionsHaveKeysOfTheirOwn) {
    const std::string no = "<key>Name</key><string>no</string>", yes = "<key>Name</key><string>yes</string>";
    EXPECT_EQ(NameIn("<key>Inner</key><dict>" + no + "</dict>" + yes), "yes");
    EXPECT_EQ(NameIn("<key>Inner</key><array><dict/><dict>" + no + "</dict></array>" + yes), "yes");
    EXPECT_EQ(NameIn("<key>None</key><dict /><key>None</key><array/>" + yes), "yes");
    EXPECT_EQ(NameIn("<key>Inner</key><dict><array/>" + no + "</dict>"), "");
    EXPECT_EQ(NameIn(yes + "<key>Inner</key><dict>" + no + "</dict>"), "yes");
    EXPECT_EQ(property_list::StringIn("<plist>" + no + "</plist>", "Name"), "") << "in no dictionary";
}

TEST(PropertyList, WhatIsNoMarkupIsText) {
    EXPECT_EQ(NameIn("<key>Other</key><string>&lt;key>Name&lt;/key></string>"
                     "<key>Name</key><string>yes</string>"),
              "yes");
    EXPECT_EQ(property_list::StringIn("<?xml version='1.0'?><!DOCTYPE plist PUBLIC '' ''><?x <dict> ?>"
                                      "<plist version='1.0'><dict><key>Name</key><string>yes</string>",
                                      "Name"),
              "yes");
}

TEST(PropertyList, CharacterDataIsTakenAsItStands) {
    EXPECT_EQ(NameIn("<key>Name</key><string><![CDATA[Real]]></string>"), "Real");
    EXPECT_EQ(NameIn("<key>Name</key><string>a <![CDATA[<b> &amp; <!-- c -->]]> d</string>"),
              "a <b> &amp; <!-- c --> d");
    EXPECT_EQ(NameIn("<key><![CDATA[Name]]></key><string>yes</string>"), "yes");
    EXPECT_EQ(NameIn("<key>Other</key><string><![CDATA[<key>Name</key><string>no</string>]]></string>"), "");
    EXPECT_EQ(NameIn("<key>Name</key><string><![CDATA[without an end</string>"), "");
}

TEST(PropertyList, ReadsTheFivePredefinedEntitiesAndLeavesOthers) {
    EXPECT_EQ(NameIn("<key>Name</key><string>&lt;&gt;&quot;&apos;&amp;</string>"), "<>\"'&");
    EXPECT_EQ(NameIn("<key>Name</key><string>&amp;lt; &nbsp; & &am</string>"), "&lt; &nbsp; & &am");
}

TEST(PropertyList, CharactersMayBeGivenByNumber) {
    EXPECT_EQ(NameIn("<key>Name</key><string>&#233;&#xE9;&#xe9;&#0000065;</string>"), "\u00E9\u00E9\u00E9A");
    EXPECT_EQ(NameIn("<key>Name</key><string>&#9;&#x20AC;&#xFFFD;&#x10000;&#x10FFFF;</string>"),
              "\t\u20AC\uFFFD\U00010000\U0010FFFF");
    EXPECT_EQ(NameIn("<key>Name</key><string>&#38;lt;</string>"), "&lt;");
}

TEST(PropertyList, NumbersOfNoCharacterStayAsTheyAre) {
    for (const std::string text :
         {"&#0;", "&#x1F;", "&#xD800;", "&#xDFFF;", "&#xFFFE;", "&#xFFFF;", "&#x110000;", "&#4294967361;",
          "&#;", "&#x;", "&#-65;", "&#+65;", "&# 65;", "&#65 ;", "&#X41;", "&#6G;", "&#65", "&#65&", "&;"})
        EXPECT_EQ(NameIn("<key>Name</key><string>" + text + "</string>"), text);
}

TEST(PropertyList, CommentsAreNotThere) {
    EXPECT_EQ(NameIn("<!-- <key>Name</key><string>old</string> --><key>Name</key><string>new</string>"),
              "new");
    EXPECT_EQ(NameIn("<key>Name</key><!----><string>a<!-- x -->b</string>"), "ab");
    EXPECT_EQ(NameIn("<key>Name</key><!-- without an end <string>no</string>"), "");
    EXPECT_EQ(NameIn("<!--> <key>Name</key><string>no</string>"), "");
}

TEST(PropertyList, WithoutACompleteTextThereIsNone) {
    for (const char* entries :
         {"", "<key>Name</key>", "<key>Name</key><true/>", "<key>Name</key><string>open",
          "<key>Name</key> text <string>no</string>", "<key>Name", "bplist00", "<key>Name</key><string>no",
          "<key>Name</key><string>no<b/></string>", "<key>Name</key><string>no</strin"}) {
        EXPECT_EQ(NameIn(entries), "") << entries;
        EXPECT_EQ(property_list::StringIn(std::string("<dict>") + entries, "Name"), "") << entries;
    }
}

// Cutting comments out one by one would take minutes.
TEST(PropertyList, AListOfNothingButCommentsIsReadInOnePass) {
    std::string list;
    while (list.size() < 16'000'000) list += "<!---->";
    EXPECT_EQ(NameIn(list + "<key>Name</key><string>yes</string>"), "yes");
}

TEST(PropertyList, FileIsReadUpToAMegabyte) {
    TemporaryFolder folder;
    const std::string entry = "<dict><key>Name</key><string>yes</string></dict>";
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
