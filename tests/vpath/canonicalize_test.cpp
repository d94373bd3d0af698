#include "vpath/canonicalize.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

std::u16string Slashes(int count) {
    return std::u16string(count, u'/');
}

std::optional<std::u16string> Canonical(std::u16string path) {
    if (!MyPathCanonicalize(path.data())) return std::nullopt;
    return std::u16string(path.c_str());
}

struct Case {
    const TavChar* path;
    const TavChar* result;
};

} // namespace

class Canonicalized : public testing::TestWithParam<Case> {};

TEST_P(Canonicalized, IsAsListed) {
    EXPECT_EQ(Canonical(GetParam().path), std::u16string(GetParam().result));
}

INSTANTIATE_TEST_SUITE_P(
    Table, Canonicalized,
    testing::Values(
        // nothing to do
        Case{u"", u""}, Case{u"/", u"/"}, Case{u"/a", u"/a"}, Case{u"/a//b", u"/a//b"},
        Case{u"/a/b/", u"/a/b/"}, Case{u"/a/b.", u"/a/b."}, Case{u"/a/b.c", u"/a/b.c"},
        Case{u"a\\b", u"a\\b"},
        // dots without a separator before them are text
        Case{u".", u"."}, Case{u"..", u".."}, Case{u".a/b", u".a/b"}, Case{u"../a", u"../a"},
        // one dot deletes itself, k dots k - 1 segments more
        Case{u"/a/./b", u"/a/b"}, Case{u"/a/.", u"/a"}, Case{u"/./a", u"/a"}, Case{u"/.", u""},
        Case{u"/a/././b", u"/a/b"}, Case{u"/a/b/../c", u"/a/c"}, Case{u"/a/..", u""}, Case{u"/a/../b", u"/b"},
        Case{u"/a/b/../../c", u"/c"}, Case{u"/a/b/c/.../d", u"/a/d"}, Case{u"/a/b/c/....", u""},
        Case{u"/a/b/.././c", u"/a/c"}, Case{u"/a/./b/..", u"/a"}, Case{u"/a/./b/./c/../d/.", u"/a/b/d"},
        Case{u"/a//../b", u"/a/b"}, Case{u"a/b/..", u"a"}, Case{u"a/.", u"a"},
        // a drive
        Case{u"C:/a", u"C:/a"}, Case{u"C:", u"C:"}, Case{u"1:a", u"1:a"}, Case{u".:/a", u".:/a"}));

class NotCanonicalized : public testing::TestWithParam<const TavChar*> {};

TEST_P(NotCanonicalized, IsRefused) {
    EXPECT_EQ(Canonical(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Table, NotCanonicalized,
                         testing::Values(u"/..", u"/a/...", u"a/../b", u"a/..", u"/a/../..", u"/a/../../b",
                                         u"/a/.hidden", u"/a/..x", u"/.x/a", u"/a/. ", u"/a:b", u":", u":a",
                                         u"/a/b:", u"ab:", u"C::", u"C:..", u"C:.", u"C:.a"));

TEST(Canonicalized, TakesAColonSecondEvenBehindASlash) {
    EXPECT_EQ(Canonical(u"/:a"), u"/:a");
}

TEST(Canonicalized, Holds511Separators) {
    EXPECT_EQ(Canonical(Slashes(511)), Slashes(511));
}

TEST(NotCanonicalized, Refuses512Separators) {
    EXPECT_EQ(Canonical(Slashes(512)), std::nullopt);
}

TEST(Canonicalized, FreesSeparatorsWithDeletedSegments) {
    std::u16string path = u"/a";
    for (int i = 0; i < 600; ++i) path += u"/.";
    EXPECT_EQ(Canonical(path), u"/a");
}

TEST(NotCanonicalized, RefusesASeparatorTooManyBeforeItsDotsFreeOne) {
    EXPECT_EQ(Canonical(Slashes(511) + u"a/.."), std::nullopt);
    EXPECT_EQ(Canonical(Slashes(510) + u"a/.."), Slashes(509));
}
