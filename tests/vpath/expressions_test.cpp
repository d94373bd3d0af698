#include "vpath/expressions.h"

#include "support/virtual_paths.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>

namespace {

Exp Absolute(const std::u16string& path) {
    return Exp(Tav0FSExpCreateAbs(MakeRef(path).get()));
}
Exp Key(const char (&key)[5]) {
    return Exp(Tav0FSExpCreateTK(key));
}

} // namespace

TEST(OpacTavFSExp, HasTwoCountsInFrontOfItsStorage) {
    EXPECT_EQ(offsetof(OpacTavFSExp, length), 0u);
    EXPECT_EQ(offsetof(OpacTavFSExp, capacity), 4u);
    EXPECT_EQ(offsetof(OpacTavFSExp, storage), 8u);
}

TEST(OpacTavFSExp, IsEmptyWithoutStorageWhenNew) {
    const OpacTavFSExp e;
    EXPECT_EQ(e.length, 0u);
    EXPECT_EQ(e.capacity, 0u);
    EXPECT_EQ(e.storage, nullptr);
}

TEST(CreateAbs, PutsAnAbsoluteRootInFrontOfThePath) {
    const Exp e = Absolute(u"/a");
    EXPECT_EQ(TextOf(e), u"M\\/a");
    EXPECT_EQ(e->length, 4u);
    EXPECT_EQ(e->capacity, 5u);
    EXPECT_EQ(e->storage[4], 0);
}

TEST(CreateAbs, OutlivesTheReference) {
    Exp e;
    {
        const Ref ref = MakeRef(u"/gone/soon");
        e.reset(Tav0FSExpCreateAbs(ref.get()));
    }
    EXPECT_EQ(TextOf(e), u"M\\/gone/soon");
}

TEST(CreateAbs, GivesNullForNull) {
    EXPECT_EQ(Tav0FSExpCreateAbs(nullptr), nullptr);
}

TEST(CreateTK, WritesTheKeysCharacters) {
    const Exp e = Key("pref");
    EXPECT_EQ(TextOf(e), u"$pref");
    EXPECT_EQ(e->length, 5u);
    EXPECT_EQ(e->capacity, 6u);
    EXPECT_EQ(e->storage[5], 0);
}

TEST(CreateTK, StopsAtAZeroByte) {
    const Exp e = Key("ab\0\0");
    EXPECT_EQ(TextOf(e), u"$ab");
    EXPECT_EQ(e->length, 3u);
    EXPECT_EQ(e->capacity, 6u);
    EXPECT_EQ(e->storage[3], 0);
    EXPECT_EQ(TextOf(Key("a\0b\0")), u"$a");
    EXPECT_EQ(TextOf(Key("\0\0\0\0")), u"$");
}

TEST(CreateTK, SignExtendsBytes) {
    EXPECT_EQ(TextOf(Key("a\x80\xff"
                         "b")),
              u"$a\xFF80\xFFFF"
              u"b");
}

TEST(CreateTK, GivesNullForNull) {
    EXPECT_EQ(Tav0FSExpCreateTK(nullptr), nullptr);
}

TEST(CreateExp, TakesTheTextAsItStands) {
    const Exp e = MakeExp(u"$k\\a/b\\%:");
    EXPECT_EQ(TextOf(e), u"$k\\a/b\\%:");
    EXPECT_EQ(e->length, 9u);
    EXPECT_EQ(e->capacity, 9u);
}

TEST(CreateExp, TakesAnEmptyText) {
    const Exp e = MakeExp(u"");
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->length, 0u);
    EXPECT_EQ(e->capacity, 0u);
    EXPECT_EQ(Tav0FSExpGetExp(e.get(), nullptr, 0), 1u);
    EXPECT_EQ(Tav0FSExpAppendSeg(e.get(), u"x"), 1);
    EXPECT_EQ(TextOf(e), u"\\x");
}

TEST(CreateExp, GivesNullForNull) {
    EXPECT_EQ(Tav0FSExpCreateExp(nullptr), nullptr);
}

TEST(GetExp, TellsTheUnitsNeeded) {
    const Exp e = MakeExp(u"abc");
    EXPECT_EQ(Tav0FSExpGetExp(e.get(), nullptr, 100), 4u);
}

TEST(GetExp, CopiesOnlyWithRoomForTheTerminator) {
    const Exp e = MakeExp(u"abc");
    TavChar buf[5] = u"****";
    EXPECT_EQ(Tav0FSExpGetExp(e.get(), buf, 3), 4u);
    EXPECT_EQ(std::u16string(buf), u"****");
    EXPECT_EQ(Tav0FSExpGetExp(e.get(), buf, 4), 4u);
    EXPECT_EQ(std::u16string(buf), u"abc");
}

TEST(GetExp, GivesNothingForNullOrWithoutStorage) {
    const OpacTavFSExp bare;
    TavChar buf[2] = u"*";
    EXPECT_EQ(Tav0FSExpGetExp(nullptr, buf, 2), 0u);
    EXPECT_EQ(Tav0FSExpGetExp(&bare, buf, 2), 0u);
    EXPECT_EQ(buf[0], u'*');
}

struct RelPathCase {
    const TavChar* text;
    uint32_t declared;
    int32_t result;
    uint32_t units;
    const TavChar* name; // "*" where the buffer must stay as it was
};

class IsRelPath : public testing::TestWithParam<RelPathCase> {};

TEST_P(IsRelPath, ReportsTheName) {
    const RelPathCase& c = GetParam();
    TavChar name[32] = u"*";
    uint32_t units = c.declared;
    EXPECT_EQ(Tav0FSExpIsRelPath(MakeExp(c.text).get(), name, &units), c.result);
    EXPECT_EQ(units, c.units);
    EXPECT_EQ(std::u16string(name), c.name);
}

INSTANTIATE_TEST_SUITE_P(
    Table, IsRelPath,
    testing::Values(RelPathCase{u"$$pref\\Data", 32, 1, 4, u"pref"},
                    RelPathCase{u"$$pref\\Data", 5, 1, 4, u"pref"},
                    RelPathCase{u"$$pref\\Data", 4, 1, 0, u"*"}, RelPathCase{u"$$pref", 32, 1, 0, u"*"},
                    RelPathCase{u"$$", 32, 1, 0, u"*"}, RelPathCase{u"$$\\", 32, 1, 0, u""},
                    RelPathCase{u"$$\\", 0, 1, 0, u"*"}, RelPathCase{u"$pref\\x", 32, 0, 32, u"*"},
                    RelPathCase{u"$", 32, 0, 32, u"*"}, RelPathCase{u"", 32, 0, 32, u"*"},
                    RelPathCase{u"M\\$$", 32, 0, 32, u"*"}));

TEST(IsRelPath, NeedsNeitherBufferNorSize) {
    const Exp e = MakeExp(u"$$pref\\Data");
    EXPECT_EQ(Tav0FSExpIsRelPath(e.get(), nullptr, nullptr), 1);
    uint32_t units = 0;
    EXPECT_EQ(Tav0FSExpIsRelPath(e.get(), nullptr, &units), 1);
    EXPECT_EQ(units, 4u);
    TavChar name[5] = u"****";
    EXPECT_EQ(Tav0FSExpIsRelPath(e.get(), name, nullptr), 1);
    EXPECT_EQ(std::u16string(name), u"pref");
    TavChar untouched[2] = u"*";
    EXPECT_EQ(Tav0FSExpIsRelPath(MakeExp(u"$$pref").get(), untouched, nullptr), 1);
    EXPECT_EQ(untouched[0], u'*');
}

TEST(IsRelPath, GivesNoForNullAndWithoutStorage) {
    const OpacTavFSExp bare;
    EXPECT_EQ(Tav0FSExpIsRelPath(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Tav0FSExpIsRelPath(&bare, nullptr, nullptr), 0);
}

struct AppendCase {
    const TavChar* before;
    const TavChar* segment;
    const TavChar* after;
};

class AppendSeg : public testing::TestWithParam<AppendCase> {};

TEST_P(AppendSeg, LeavesOneSeparatorBetween) {
    const Exp e = MakeExp(GetParam().before);
    EXPECT_EQ(Tav0FSExpAppendSeg(e.get(), GetParam().segment), 1);
    EXPECT_EQ(TextOf(e), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Table, AppendSeg,
    testing::Values(AppendCase{u"$k", u"x/y", u"$k\\x\\y"}, AppendCase{u"$k\\", u"\\x", u"$k\\x"},
                    AppendCase{u"$k", u"\\x", u"$k\\x"}, AppendCase{u"$k\\", u"x", u"$k\\x"},
                    AppendCase{u"$k", u"", u"$k\\"}, AppendCase{u"$k\\", u"", u"$k\\"},
                    AppendCase{u"$k", u"/x", u"$k\\\\x"}, AppendCase{u"a/b", u"c/", u"a/b\\c\\"},
                    AppendCase{u"$k\\\\", u"\\x", u"$k\\\\x"}));

TEST(AppendSeg, RefusesNull) {
    const Exp e = MakeExp(u"$k");
    EXPECT_EQ(Tav0FSExpAppendSeg(nullptr, u"x"), 0);
    EXPECT_EQ(Tav0FSExpAppendSeg(e.get(), nullptr), 0);
    EXPECT_EQ(TextOf(e), u"$k");
}

TEST(AppendVal, WritesAPercentAndTheName) {
    for (const TavChar* root : {u"$k", u"$k\\"}) {
        const Exp e = MakeExp(root);
        EXPECT_EQ(Tav0FSExpAppendVal(e.get(), "lang"), 1);
        EXPECT_EQ(TextOf(e), u"$k\\%lang");
    }
}

TEST(AppendVal, DoesNotCheckTheName) {
    const Exp e = MakeExp(u"$k");
    EXPECT_EQ(Tav0FSExpAppendVal(e.get(), ""), 1);
    EXPECT_EQ(Tav0FSExpAppendVal(e.get(), "a\\b/\xe9"), 1);
    EXPECT_EQ(TextOf(e), u"$k\\%\\%a\\b/\xFFE9");
}

TEST(AppendVal, RefusesNull) {
    const Exp e = MakeExp(u"$k");
    EXPECT_EQ(Tav0FSExpAppendVal(nullptr, "x"), 0);
    EXPECT_EQ(Tav0FSExpAppendVal(e.get(), nullptr), 0);
    EXPECT_EQ(TextOf(e), u"$k");
}

TEST(AdjustStorage, GivesThePlaceBehindTheTextWhenThereIsRoom) {
    const Exp e = MakeExp(u"abc");
    TavChar* const storage = e->storage;
    for (const int32_t needed : {-1, 0, 3}) {
        EXPECT_EQ(AdjustStorageAndGetAppend(e.get(), needed), storage + 3);
        EXPECT_EQ(e->capacity, 3u);
    }
}

TEST(AdjustStorage, AtLeastDoubles) {
    for (const auto& [needed, capacity] : {std::pair{4, 6u}, {6, 6u}, {7, 7u}, {20, 20u}}) {
        const Exp e = MakeExp(u"abc");
        const TavChar* const end = AdjustStorageAndGetAppend(e.get(), needed);
        EXPECT_EQ(end, e->storage + 3);
        EXPECT_EQ(e->capacity, capacity);
        EXPECT_EQ(e->length, 3u);
        EXPECT_EQ(TextOf(e), u"abc");
    }
}

TEST(AdjustStorage, GivesAnEmptyObjectExactlyWhatIsNeeded) {
    OpacTavFSExp e;
    const TavChar* const end = AdjustStorageAndGetAppend(&e, 5);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end, e.storage);
    EXPECT_EQ(e.capacity, 5u);
}

TEST(AppendSlash, AddsOneOnlyWhereNoneIs) {
    OpacTavFSExp empty;
    EXPECT_TRUE(AppendSlash(&empty));
    EXPECT_EQ(TextOf(&empty), u"\\");
    EXPECT_TRUE(AppendSlash(&empty));
    EXPECT_EQ(TextOf(&empty), u"\\");
    const Exp e = MakeExp(u"a");
    EXPECT_TRUE(AppendSlash(e.get()));
    EXPECT_EQ(TextOf(e), u"a\\");
}

TEST(RemoveSlash, TakesOneOffAndKeepsTheStorage) {
    const Exp e = MakeExp(u"a\\\\");
    TavChar* const storage = e->storage;
    RemoveSlash(e.get());
    EXPECT_EQ(TextOf(e), u"a\\");
    EXPECT_EQ(e->storage, storage);
    EXPECT_EQ(e->capacity, 3u);
    RemoveSlash(e.get());
    RemoveSlash(e.get());
    EXPECT_EQ(TextOf(e), u"a");
    OpacTavFSExp empty;
    RemoveSlash(&empty);
    EXPECT_EQ(empty.length, 0u);
}

TEST(Release, IgnoresNull) {
    Tav0FSExpRelease(nullptr);
}
