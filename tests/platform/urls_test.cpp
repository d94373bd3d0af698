#include "platform/urls.h"
#include "support/files.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

// A result as the tables write it: "<null>" for none.
std::string Taken(CFStringRef text) {
    if (!text) return "<null>";
    std::u16string units(static_cast<size_t>(CFStringGetLength(text)), u'\0');
    CFStringGetCharacters(text, {0, CFStringGetLength(text)}, units.data());
    CFRelease(text);
    return Escape(units);
}

std::string TakenPath(CFURLRef url) {
    if (!url) return "<null>";
    std::string path = Taken(CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle));
    CFRelease(url);
    return path;
}

CFURLRef Url(const std::u16string& path) {
    CFStringRef text = CFStringCreateWithCharacters(nullptr, path.data(), static_cast<CFIndex>(path.size()));
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, text, kCFURLPOSIXPathStyle, false);
    CFRelease(text);
    return url;
}

// What the service makes of one path, in the order of the table's columns.
std::vector<std::string> Analysed(const std::string& path) {
    CFURLRef url = Url(Unescape(path));
    if (!url) return {path, "<null>", "<null>", "<null>", "<null>", "<null>"};
    std::vector<std::string> row = {path,
                                    Taken(CFURLCopyLastPathComponent(url)),
                                    Taken(CFURLCopyPathExtension(url)),
                                    TakenPath(CFURLCreateCopyDeletingLastPathComponent(nullptr, url)),
                                    TakenPath(CFURLCreateCopyDeletingPathExtension(nullptr, url)),
                                    Taken(CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle))};
    CFRelease(url);
    return row;
}

} // namespace

TEST(Urls, MeasuredPaths_GiveMeasuredParts) {
    auto rows = ReadTable("url_paths.tsv");
    ASSERT_GT(rows.size(), 150u);
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 6u) << row[0];
        EXPECT_EQ(Analysed(row[0]), row);
    }
}

TEST(Urls, EmptyPath_HasNoUrl) {
    EXPECT_EQ(Url(u""), nullptr);
    EXPECT_EQ(Url(std::u16string(1, u'\0') + u"a"), nullptr);
}

TEST(Urls, ZeroUnit_EndsThePathWhereverItStands) {
    for (size_t length = 1; length < 12; ++length) {
        std::string name(length, 'a');
        EXPECT_EQ(TakenPath(Url(Wide(name) + u'\0' + u"bcdefgh")), name);
    }
    // No zero, although the bytes of neighbours look like one.
    EXPECT_EQ(TakenPath(Url(u"\x0100\x0001\x8000\x0001\x0100")), "\\u0100\\u0001\\u8000\\u0001\\u0100");
}

TEST(Urls, RowsThatTheTableLacks_FollowTheSameRules) {
    const std::vector<std::string> rows[] = {
        // A name of which only dots would be left has no extension.
        {"/a/..b", "..b", "<null>", "/a", "/a/..b", "/a/..b"},
        {"/a/...b", "...b", "<null>", "/a", "/a/...b", "/a/...b"},
        // A last "." means the folder itself, so its parent is the folder above.
        {"/a/.", ".", "<null>", "/a/..", "/a/.", "/a/."},
        {".", ".", "<null>", "..", ".", "."},
        {"//b", "b", "<null>", "/", "//b", "//b"},
        {"///b", "b", "<null>", "//", "///b", "///b"},
        // A mark of the writing direction anywhere makes the text no extension, but it is taken off.
        {"/a/b.x\\u200Fy", "b.x\\u200Fy", "<null>", "/a", "/a/b", "/a/b.x\\u200Fy"},
        {"/a/b.\\u061C", "b.\\u061C", "<null>", "/a", "/a/b", "/a/b.\\u061C"},
        {"/a/b.\\u2066", "b.\\u2066", "<null>", "/a", "/a/b", "/a/b.\\u2066"},
        {"/a/b.\\u2069", "b.\\u2069", "<null>", "/a", "/a/b", "/a/b.\\u2069"},
        {"/a/b.\\u202A", "b.\\u202A", "<null>", "/a", "/a/b", "/a/b.\\u202A"},
        {"/a/b.\\u206A", "b.\\u206A", "\\u206A", "/a", "/a/b", "/a/b.\\u206A"},
        // Bytes that are not text.
        {"/\\uDC80.\\uDCFF/", "\\uDC80.\\uDCFF", "\\uDCFF", "/", "/\\uDC80", "/\\uDC80.\\uDCFF"},
    };
    for (const auto& row : rows) EXPECT_EQ(Analysed(row[0]), row);
}
