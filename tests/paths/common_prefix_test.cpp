#include "TavPort.h"
#include "paths/drives.h"
#include "support/path_models.h"
#include "support/private_mounts.h"
#include "support/tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

struct Prefix {
    std::u16string text;
    int32_t length;
    bool operator==(const Prefix&) const = default;
};

void PrintTo(const Prefix& prefix, std::ostream* out) {
    *out << Escape(prefix.text) << ", " << prefix.length;
}

Prefix Common(const std::u16string& path1, const std::u16string& path2) {
    constexpr TavChar kGuard = 0xA5A5;
    size_t room = std::min(path1.size(), path2.size()) + 2;
    std::u16string out(room + 16, kGuard);
    int32_t length = TavPathCommonPrefix(path1.c_str(), path2.c_str(), out.data());
    EXPECT_TRUE(std::all_of(out.begin() + static_cast<ptrdiff_t>(room), out.end(),
                            [](TavChar unit) { return unit == kGuard; }));
    return {out.c_str(), length};
}

} // namespace

TEST(TavPathCommonPrefix, CommonFolders_AreWrittenWithASlash) {
    EXPECT_EQ(Common(u"/a/bc/d", u"/a/bd"), (Prefix{u"/a/", 3}));
    EXPECT_EQ(Common(u"/a/b/c", u"/a/b/d"), (Prefix{u"/a/b/", 5}));
    EXPECT_EQ(Common(u"a/x", u"a/y"), (Prefix{u"a/", 2}));
}

TEST(TavPathCommonPrefix, EqualPaths_AreCommonWhole) {
    EXPECT_EQ(Common(u"/a/b", u"/a/b"), (Prefix{u"/a/b/", 5}));
    EXPECT_EQ(Common(u"/a/b/", u"/a/b/"), (Prefix{u"/a/b/", 5}));
    EXPECT_EQ(Common(u"x", u"x"), (Prefix{u"x/", 2}));
    EXPECT_EQ(Common(u"/", u"/"), (Prefix{u"/", 1}));
}

TEST(TavPathCommonPrefix, PathInsideTheOther_GivesTheOuterOne) {
    EXPECT_EQ(Common(u"/a/b/c", u"/a/b"), (Prefix{u"/a/b/", 5}));
    EXPECT_EQ(Common(u"/a/b", u"/a/b/c"), (Prefix{u"/a/b/", 5}));
    EXPECT_EQ(Common(u"/a/b/", u"/a/b"), (Prefix{u"/a/b/", 5}));
    EXPECT_EQ(Common(u"/a/bc", u"/a/b"), (Prefix{u"/a/", 3}));
}

TEST(TavPathCommonPrefix, OnlyTheRoot_GivesASlash) {
    EXPECT_EQ(Common(u"/a", u"/b"), (Prefix{u"/", 1}));
    EXPECT_EQ(Common(u"/", u"/b"), (Prefix{u"/", 1}));
}

TEST(TavPathCommonPrefix, NothingInCommon_GivesTheEmptyText) {
    EXPECT_EQ(Common(u"x", u"y"), (Prefix{u"", 0}));
    EXPECT_EQ(Common(u"x", u""), (Prefix{u"", 0}));
    EXPECT_EQ(Common(u"ab", u"ac"), (Prefix{u"", 0}));
    EXPECT_EQ(Common(u"~/a", u"/a"), (Prefix{u"", 0}));
}

TEST(TavPathCommonPrefix, TwoEmptyPaths_GiveTheEmptyTextAndOne) {
    EXPECT_EQ(Common(u"", u""), (Prefix{u"", 1}));
}

TEST(TavPathCommonPrefix, OneRootMissing_GivesTheEmptyText) {
    EXPECT_EQ(Common(u"/a", u"a"), (Prefix{u"", 0}));
    EXPECT_EQ(Common(u"a", u"/a"), (Prefix{u"", 0}));
    EXPECT_EQ(Common(u"", u"/"), (Prefix{u"", 0}));
}

TEST(TavPathCommonPrefix, DifferentVolumes_GiveTheEmptyText) {
    PrivateMounts mounts;
    SKIP_IF_MISSING(mounts.Missing());
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/More"));
    EXPECT_EQ(Common(u"/Volumes/Data/a", u"/Volumes/More/a"), (Prefix{u"", 0}));
    EXPECT_EQ(Common(u"/Volumes/Data/a", u"/Volumes/Database/a"), (Prefix{u"", 0}));
    EXPECT_EQ(Common(u"/Volumes/Data/a/b", u"/volumes/data/a/c"), (Prefix{u"/Volumes/Data/a/", 16}));
    EXPECT_EQ(Common(u"/Volumes/Other/a", u"/Volumes/Others/a"), (Prefix{u"/Volumes/", 9}));
}

TEST(TavPathCommonPrefix, RootsInOtherLetterCase_AreTheSame) {
    PrivateMounts mounts;
    SKIP_IF_MISSING(mounts.Missing());
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/\xC3\x89"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/\xC3\xA9"));
    EXPECT_EQ(Common(u"/Volumes/\u00C9/a", u"/Volumes/\u00E9/a"), (Prefix{u"/Volumes/", 9}));
}

TEST(TavPathCommonPrefix, LetterCase_IsIgnoredForAsciiAndTakenFromTheFirst) {
    EXPECT_EQ(Common(u"/Users/Ann/x", u"/users/aNN/y"), (Prefix{u"/Users/Ann/", 11}));
    EXPECT_EQ(Common(u"/\u00C9/x", u"/\u00E9/x"), (Prefix{u"/", 1}));
}

TEST(TavPathCommonPrefix, OutputOverThePaths_Works) {
    TavChar first[16] = u"/a/B/c", second[16] = u"/a/b/d";
    EXPECT_EQ(TavPathCommonPrefix(first, second, first), 5);
    EXPECT_EQ(std::u16string(first), u"/a/B/");
    TavChar again[16] = u"/a/B/c";
    EXPECT_EQ(TavPathCommonPrefix(again, second, second), 5);
    EXPECT_EQ(std::u16string(second), u"/a/B/");
}

TEST(TavPathCommonPrefix, LongPaths_AreCompared) {
    for (size_t length : {1023u, 1024u, 4000u}) {
        std::u16string folder = u"/" + std::u16string(length - 1, u'd');
        EXPECT_EQ(Common(folder + u"/a", folder + u"/b"),
                  (Prefix{folder + u"/", static_cast<int32_t>(length + 1)}));
    }
}

TEST(TavPathCommonPrefix, RandomPaths_GiveTheModelsPrefix) {
    unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    auto path = [&] {
        std::u16string units(random() % 8, u' ');
        for (auto& unit : units) unit = u"//aAb~"[random() % 6];
        return units;
    };
    for (int i = 0; i < 5000; ++i) {
        std::u16string path1 = path(), path2 = path();
        if (path1.empty() && path2.empty()) continue; // pinned above
        std::u16string expected = path_models::Common(path1, path2);
        ASSERT_EQ(Common(path1, path2), (Prefix{expected, static_cast<int32_t>(expected.size())}))
            << Escape(path1 + u" " + path2);
    }
}
