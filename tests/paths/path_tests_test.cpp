#include "TavPort.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <random>

namespace {

// The naive model folds ASCII only; so do the random texts.
char16_t Folded(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? char16_t(unit + 32) : unit;
}

bool Begins(const std::u16string& path, const std::u16string& prefix) {
    if (prefix.size() > path.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (Folded(path[i]) != Folded(prefix[i])) return false;
    }
    return true;
}

bool ModelIsRoot(const std::u16string& path) {
    if (path.size() == 1) return path == u"/";
    return path.size() > 9 && Begins(path, u"/volumes/") && path.find(u'/', 9) == std::u16string::npos &&
           path.substr(9) != u"." && path.substr(9) != u"..";
}

} // namespace

TEST(TavPathIsRoot, Slash_IsARoot) {
    EXPECT_EQ(TavPathIsRoot(u"/"), 1);
}

TEST(TavPathIsRoot, NameInVolumes_IsARoot) {
    for (const char16_t* path : {u"/Volumes/X", u"/volumes/X", u"/VOLUMES/Disk", u"/Volumes/My Disk",
                                 u"/Volumes/\u00E9", u"/Volumes/.x", u"/Volumes/..x"})
        EXPECT_EQ(TavPathIsRoot(path), 1) << Escape(path);
}

TEST(TavPathIsRoot, OtherPaths_AreNone) {
    for (const char16_t* path :
         {u"", u"a", u"~", u"//", u"/a", u"/Users", u"/Volumes", u"/Volumes/", u"/Volumes/X/",
          u"/Volumes/X/y", u"/Volumes//X", u"//Volumes/X", u"Volumes/abc", u"/Volumez/X", u"/Volumes/.",
          u"/Volumes/..", u"/Users/name", u"/Volumes//"})
        EXPECT_EQ(TavPathIsRoot(path), 0) << Escape(path);
}

TEST(TavPathIsRoot, LongPaths_AreAnswered) {
    for (size_t length : {1023u, 1024u, 3000u}) {
        EXPECT_EQ(TavPathIsRoot((u"/" + std::u16string(length - 1, u'x')).c_str()), 0);
        EXPECT_EQ(TavPathIsRoot((u"/" + std::u16string(length - 4, u'x') + u"/..").c_str()), 0);
    }
    for (size_t length : {255u, 1014u})
        EXPECT_EQ(TavPathIsRoot((u"/Volumes/" + std::u16string(length, u'x')).c_str()), 1);
    EXPECT_EQ(TavPathIsRoot((u"/Volumes/" + std::u16string(1015, u'x')).c_str()), 0);
}

TEST(TavPathIsRoot, RandomPaths_AreAnsweredLikeTheModel) {
    unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    const std::u16string parts[] = {u"/", u"Volumes", u"volumes", u"X", u"/Volumes/", u".", u"..", u"a b"};
    for (int i = 0; i < 20000; ++i) {
        std::u16string path;
        for (size_t n = random() % 5; n > 0; --n) path += parts[random() % std::size(parts)];
        ASSERT_EQ(TavPathIsRoot(path.c_str()), ModelIsRoot(path)) << Escape(path);
    }
}

TEST(TavPathIsUNC, AnyPath_IsNone) {
    for (const char16_t* path : {u"", u"/", u"\\\\server\\share", u"//server/share"})
        EXPECT_EQ(TavPathIsUNC(path), 0);
}

TEST(TavPathIsSubOnPath, LeadingPart_IsFoundInAnyLetterCase) {
    EXPECT_EQ(TavPathIsSubOnPath(u"/Users/Ann", u"/users/a"), 1);
    EXPECT_EQ(TavPathIsSubOnPath(u"/a/b", u"/a"), 1);
    EXPECT_EQ(TavPathIsSubOnPath(u"/a/b", u"/a/b"), 1);
    EXPECT_EQ(TavPathIsSubOnPath(u"/\u00C9t\u00E9", u"/\u00E9"), 1);
    EXPECT_EQ(TavPathIsSubOnPath(u"/a", u""), 1);
    EXPECT_EQ(TavPathIsSubOnPath(u"", u""), 1);
}

TEST(TavPathIsSubOnPath, Prefix_MayEndInsideAComponent) {
    EXPECT_EQ(TavPathIsSubOnPath(u"/a/bc", u"/a/b"), 1);
}

TEST(TavPathIsSubOnPath, OtherText_IsNotFound) {
    EXPECT_EQ(TavPathIsSubOnPath(u"/a/b", u"/b"), 0);
    EXPECT_EQ(TavPathIsSubOnPath(u"/a/b", u"a"), 0);
    EXPECT_EQ(TavPathIsSubOnPath(u"", u"/"), 0);
}

TEST(TavPathIsSubOnPath, LongerPrefix_IsNotFound) {
    EXPECT_EQ(TavPathIsSubOnPath(u"/a", u"/a/"), 0);
    // Equal without regard to case, but longer in units.
    EXPECT_EQ(TavPathIsSubOnPath(u"/\u00DF", u"/ss"), 0);
}

TEST(TavPathIsSubOnPath, LongTexts_AreAnswered) {
    std::u16string path = u"/" + std::u16string(4000, u'x');
    EXPECT_EQ(TavPathIsSubOnPath(path.c_str(), path.substr(0, 1023).c_str()), 1);
    EXPECT_EQ(TavPathIsSubOnPath(path.c_str(), path.substr(0, 1024).c_str()), 0);
    EXPECT_EQ(TavPathIsSubOnPath(path.c_str(), u"/X"), 1);
}

TEST(TavPathIsSubOnPath, RandomTexts_AreAnsweredLikeTheModel) {
    unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    auto text = [&](size_t longest) {
        std::u16string units(random() % (longest + 1), u' ');
        for (auto& unit : units) unit = u"/aAbB"[random() % 5];
        return units;
    };
    for (int i = 0; i < 20000; ++i) {
        std::u16string path = text(8), prefix = text(3);
        ASSERT_EQ(TavPathIsSubOnPath(path.c_str(), prefix.c_str()), Begins(path, prefix))
            << Escape(path + u" " + prefix);
    }
}
