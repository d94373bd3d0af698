#include "TavPort.h"
#include "support/path_models.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

constexpr TavChar kGuard = 0xA5A5;

// A caller's buffer with guard units behind the room that the function may use.
class Buffer {
public:
    Buffer(const std::u16string& text, size_t room) : units_(room + 16, kGuard), room_(room) {
        std::copy_n(text.c_str(), text.size() + 1, units_.data());
    }

    TavChar* data() { return units_.data(); }
    std::u16string text() const { return units_.data(); }
    bool intact() const {
        return std::all_of(units_.begin() + static_cast<ptrdiff_t>(room_), units_.end(),
                           [](TavChar unit) { return unit == kGuard; });
    }

private:
    std::u16string units_;
    size_t room_;
};

struct Change {
    std::u16string before;
    std::u16string after;
    int32_t result;
};

std::u16string Appended(const std::u16string& path, const std::u16string& more) {
    Buffer buffer(path, path.size() + more.size() + 2);
    EXPECT_EQ(TavPathAppend(buffer.data(), more.c_str()), 1);
    EXPECT_TRUE(buffer.intact());
    return buffer.text();
}

// Only the parents of "." and ".." are longer than the paths, by up to three units.
size_t Growth(const std::u16string& path) {
    const std::u16string last = path.substr(path.rfind(u'/') + 1);
    return last == u"." || last == u".." ? 3 : 0;
}

Change FileSpecRemoved(const std::u16string& path) {
    Buffer buffer(path, path.size() + 1 + Growth(path));
    int32_t result = TavPathRemoveFileSpec(buffer.data());
    EXPECT_TRUE(buffer.intact());
    return {path, buffer.text(), result};
}

std::u16string ExtensionRemoved(const std::u16string& path) {
    Buffer buffer(path, path.size() + 1);
    TavPathRemoveExtension(buffer.data());
    EXPECT_TRUE(buffer.intact());
    return buffer.text();
}

ptrdiff_t ExtensionAt(const std::u16string& path) {
    return TavPathFindExtension(path.c_str()) - path.c_str();
}
std::u16string ExtensionOf(const std::u16string& path) {
    return TavPathFindExtension(path.c_str());
}
std::u16string FileNameOf(const std::u16string& path) {
    return TavPathFindFileName(path.c_str());
}

bool operator==(const Change& a, const Change& b) {
    return a.before == b.before && a.after == b.after && a.result == b.result;
}

void PrintTo(const Change& change, std::ostream* out) {
    *out << Escape(change.before) << " -> " << Escape(change.after) << ", " << change.result;
}

// Paths of the characters that the rules look at, and a few others.
class RandomPaths {
public:
    explicit RandomPaths(unsigned seed) : random_(seed) {}

    std::u16string Next() {
        static const std::u16string kUnits = u"//..ab ~:*\u00E9\u200E\xDC80";
        std::u16string path(random_() % 24, u' ');
        for (auto& unit : path) unit = kUnits[random_() % kUnits.size()];
        return path;
    }

private:
    std::mt19937 random_;
};

unsigned Seed() {
    unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    return seed;
}

} // namespace

TEST(TavPathAppend, Texts_AreJoinedByOneSlash) {
    EXPECT_EQ(Appended(u"/a", u"b"), u"/a/b");
    EXPECT_EQ(Appended(u"/a/", u"b"), u"/a/b");
    EXPECT_EQ(Appended(u"/a", u"b/c/"), u"/a/b/c/");
    EXPECT_EQ(Appended(u"/", u"b"), u"/b");
}

TEST(TavPathAppend, LeadingSlashes_AreSkipped) {
    EXPECT_EQ(Appended(u"/a/", u"//b"), u"/a/b");
    EXPECT_EQ(Appended(u"/a", u"///b//c"), u"/a/b//c");
    EXPECT_EQ(Appended(u"/a", u"//"), u"/a/");
}

TEST(TavPathAppend, EmptyText_LeavesASlashBehind) {
    EXPECT_EQ(Appended(u"/a", u""), u"/a/");
    EXPECT_EQ(Appended(u"/a/", u""), u"/a/");
}

TEST(TavPathAppend, SlashesOfThePath_AreKept) {
    EXPECT_EQ(Appended(u"/a//", u"b"), u"/a//b");
}

TEST(TavPathAppend, Backslash_IsAnOrdinaryUnit) {
    EXPECT_EQ(Appended(u"/a\\", u"\\b"), u"/a\\/\\b");
}

TEST(TavPathAppend, EmptyPath_StartsAtTheRoot) {
    EXPECT_EQ(Appended(u"", u"b"), u"/b");
}

TEST(TavPathRemoveFileSpec, LastComponent_IsRemoved) {
    const Change changes[] = {
        {u"/a/b.txt", u"/a", 1},   {u"./x", u"", 1},        {u"/a/b", u"/a", 1},
        {u"/a", u"/", 1},          {u"a/b", u"a", 1},       {u"/a//b", u"/a/", 1},
        {u"/a/.hidden", u"/a", 1}, {u"/a:b/c", u"/a:b", 1}, {u"http://x/y", u"http://x", 1},
    };
    for (const Change& change : changes) EXPECT_EQ(FileSpecRemoved(change.before), change);
}

TEST(TavPathRemoveFileSpec, TrailingSlash_IsAllThatGoes) {
    EXPECT_EQ(FileSpecRemoved(u"/a/b/").after, u"/a/b");
    EXPECT_EQ(FileSpecRemoved(u"/a//").after, u"/a/");
    EXPECT_EQ(FileSpecRemoved(u"/").after, u"");
    EXPECT_EQ(FileSpecRemoved(u"///").after, u"//");
    EXPECT_EQ(FileSpecRemoved(u"/").result, 1);
}

TEST(TavPathRemoveFileSpec, BareName_LeavesTheEmptyText) {
    EXPECT_EQ(FileSpecRemoved(u"b.txt"), (Change{u"b.txt", u"", 1}));
    EXPECT_EQ(FileSpecRemoved(u"~"), (Change{u"~", u"", 1}));
}

TEST(TavPathRemoveFileSpec, EmptyPath_Fails) {
    EXPECT_EQ(FileSpecRemoved(u""), (Change{u"", u"", 0}));
}

TEST(TavPathRemoveFileSpec, DotDot_GetsAnotherBehindIt) {
    EXPECT_EQ(FileSpecRemoved(u"..").after, u"../..");
    EXPECT_EQ(FileSpecRemoved(u"/a/..").after, u"/a/../..");
    EXPECT_EQ(FileSpecRemoved(u".").after, u"..");
}

TEST(TavPathRemoveFileSpec, ShorterResult_LeavesZerosOverTheOldLength) {
    Buffer buffer(u"/a/bcdef", 9);
    TavPathRemoveFileSpec(buffer.data());
    EXPECT_TRUE(std::all_of(buffer.data() + 2, buffer.data() + 9, [](TavChar unit) { return unit == 0; }));
}

TEST(TavPathRemoveFileSpec, NamesThatAreNotText_AreKept) {
    EXPECT_EQ(FileSpecRemoved(u"/\xDC80/\xDCFF").after, u"/\xDC80");
    EXPECT_EQ(FileSpecRemoved(u"/\u00E9/x").after, u"/\u00E9");
}

TEST(TavPathRemoveExtension, Extension_IsRemoved) {
    EXPECT_EQ(ExtensionRemoved(u"/a/b.txt"), u"/a/b");
    EXPECT_EQ(ExtensionRemoved(u"/a/b.tar.gz"), u"/a/b.tar");
    EXPECT_EQ(ExtensionRemoved(u"b.c"), u"b");
    EXPECT_EQ(ExtensionRemoved(u"/a/b.c d"), u"/a/b");
    EXPECT_EQ(ExtensionRemoved(u"/a/b.\u200E"), u"/a/b");
}

TEST(TavPathRemoveExtension, PathWithoutOne_Stays) {
    for (const char16_t* path :
         {u"", u"/", u"/a/b", u"/a.d/b", u"/a/.hidden", u"/a/b.", u"/a/b...", u"/a/..", u"/a/..b"})
        EXPECT_EQ(ExtensionRemoved(path), path);
}

TEST(TavPathRemoveExtension, TrailingSlashes_GoToo) {
    EXPECT_EQ(ExtensionRemoved(u"/a/b.c//"), u"/a/b");
    EXPECT_EQ(ExtensionRemoved(u"/a/b/"), u"/a/b");
    EXPECT_EQ(ExtensionRemoved(u"//"), u"/");
}

TEST(TavPathFindExtension, Extension_IsFoundAtItsLastDot) {
    EXPECT_EQ(ExtensionOf(u"/a/b.tar.gz"), u".gz");
    EXPECT_EQ(ExtensionOf(u"b.c"), u".c");
    EXPECT_EQ(ExtensionOf(u"/a/b.\u00E9"), u".\u00E9");
}

TEST(TavPathFindExtension, PathWithoutOne_GivesItsTerminator) {
    for (const char16_t* path :
         {u"", u"/", u"/a/b", u"/a.d/b", u"/a/.hidden", u"/a/b.", u"/a/b.c d", u"/a/b.\u200E"})
        EXPECT_EQ(ExtensionAt(path), static_cast<ptrdiff_t>(tav_wcslen(path))) << Escape(path);
}

TEST(TavPathFindExtension, TrailingSlash_ShiftsTheResult) {
    EXPECT_EQ(ExtensionOf(u"/a/b.txt/"), u"txt/");
    EXPECT_EQ(ExtensionOf(u"/a/b.txt//"), u"xt//");
}

TEST(TavPathFindFileName, LastComponent_IsFound) {
    EXPECT_EQ(FileNameOf(u"/a/b.txt"), u"b.txt");
    EXPECT_EQ(FileNameOf(u"b"), u"b");
    EXPECT_EQ(FileNameOf(u"/a/*"), u"*");
    EXPECT_EQ(FileNameOf(u"/a/.."), u"..");
    EXPECT_EQ(FileNameOf(u"/"), u"/");
    EXPECT_EQ(FileNameOf(u"/a/\xDC80"), u"\xDC80");
}

TEST(TavPathFindFileName, EmptyPath_GivesItsStart) {
    const TavChar path[] = {0};
    EXPECT_EQ(TavPathFindFileName(path), path);
}

TEST(TavPathFindFileName, TrailingSlash_ShiftsTheResult) {
    EXPECT_EQ(FileNameOf(u"/a/bcd/"), u"cd/");
    EXPECT_EQ(FileNameOf(u"/a/"), u"/");
    EXPECT_EQ(FileNameOf(u"////"), u"/");
}

TEST(TavPathAddSlash, Slash_IsAddedWhereThereIsNone) {
    for (const char16_t* path : {u"/a", u"/a/", u"/", u"a", u"/a//"}) {
        std::u16string text = path;
        std::u16string expected = text.back() == u'/' ? text : text + u"/";
        Buffer buffer(text, expected.size() + 1);
        TavChar* end = TavPathAddSlash(buffer.data());
        EXPECT_EQ(buffer.text(), expected);
        EXPECT_EQ(end, buffer.data() + expected.size());
        EXPECT_TRUE(buffer.intact());
    }
}

TEST(TavPathAddSlash, EmptyPath_IsLeftAlone) {
    Buffer buffer(u"", 1);
    EXPECT_EQ(TavPathAddSlash(buffer.data()), buffer.data());
    EXPECT_EQ(buffer.text(), u"");
    EXPECT_TRUE(buffer.intact());
}

TEST(TavPathRemoveSlash, OneSlash_IsRemoved) {
    const struct {
        const char16_t* before;
        const char16_t* after;
    } cases[] = {{u"/a/", u"/a"}, {u"/a//", u"/a/"}, {u"//", u"/"}, {u"/", u"/"},
                 {u"/a", u"/a"},  {u"", u""},        {u"a", u"a"}};
    for (const auto& c : cases) {
        Buffer buffer(c.before, tav_wcslen(c.before) + 1);
        TavChar* end = TavPathRemoveSlash(buffer.data());
        EXPECT_EQ(buffer.text(), c.after);
        EXPECT_EQ(end, buffer.data() + tav_wcslen(c.after));
        EXPECT_TRUE(buffer.intact());
    }
}

TEST(PathStrings, LongPaths_AreEditedWhole) {
    for (size_t length : {1023u, 1024u, 5000u}) {
        std::u16string path = u"/d/" + std::u16string(length - 7, u'n') + u".ext";
        EXPECT_EQ(FileSpecRemoved(path).after, u"/d");
        EXPECT_EQ(ExtensionRemoved(path), path.substr(0, length - 4));
        EXPECT_EQ(ExtensionOf(path), u".ext");
        EXPECT_EQ(FileNameOf(path), path.substr(3));
        EXPECT_EQ(Appended(path, u"x"), path + u"/x");
    }
}

TEST(PathStrings, RandomPaths_AreEditedLikeTheModel) {
    RandomPaths paths(Seed());
    for (int i = 0; i < 20000; ++i) {
        std::u16string path = paths.Next(), more = paths.Next();
        SCOPED_TRACE(Escape(path));
        EXPECT_EQ(Appended(path, more), path_models::Appended(path, more));
        EXPECT_EQ(FileSpecRemoved(path), (Change{path, path_models::FileSpecRemoved(path), !path.empty()}));
        EXPECT_EQ(ExtensionRemoved(path), path_models::ExtensionRemoved(path));
        EXPECT_EQ(static_cast<size_t>(ExtensionAt(path)), path_models::ExtensionAt(path));
        EXPECT_EQ(FileNameOf(path), path.substr(path_models::FileNameAt(path)));
        if (HasFailure()) break;
    }
}

TEST(PathStrings, RandomPaths_GetAndLoseSlashesLikeTheModel) {
    RandomPaths paths(Seed());
    for (int i = 0; i < 20000; ++i) {
        std::u16string path = paths.Next();
        SCOPED_TRACE(Escape(path));
        Buffer added(path, path.size() + 2), removed(path, path.size() + 1);
        EXPECT_EQ(*TavPathAddSlash(added.data()), 0);
        EXPECT_EQ(added.text(), path_models::SlashAdded(path));
        EXPECT_EQ(*TavPathRemoveSlash(removed.data()), 0);
        EXPECT_EQ(removed.text(), path_models::SlashRemoved(path));
        EXPECT_TRUE(added.intact() && removed.intact());
        if (HasFailure()) break;
    }
}
