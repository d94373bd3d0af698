#include "vpath/key_paths.h"

#include "support/files.h"
#include "support/virtual_paths.h"
#include "vpath/expressions.h"

#include <gtest/gtest.h>

namespace {

constexpr int32_t kNoKey = 0;

int32_t IsUnder(const std::u16string& path, const std::u16string& base) {
    return Tav0FSRIsBaseOnKey(MakeRef(path).get(), &kNoKey, MakeRef(base).get());
}

std::u16string OnBase(const std::u16string& path, const std::u16string& base) {
    return TextOf(Exp(Tav0FSExpCreateAbsOnKey(MakeRef(path).get(), "home", MakeRef(base).get())));
}

// A folder under the key 'home'.
class RegisteredFolder : public testing::Test {
protected:
    RegisteredFolder() {
        const FSRef ref = PlatformRef(folder.path());
        Tav0TranPathRegister(&key, &ref);
    }
    int32_t IsUnderKey(const std::string& path) {
        return Tav0FSRIsBaseOnKey(MakeRef(Wide(path)).get(), &key, nullptr);
    }
    std::u16string OnKey(const std::string& path) {
        return TextOf(Exp(Tav0FSExpCreateAbsOnKey(MakeRef(Wide(path)).get(), "home", nullptr)));
    }

    const TemporaryFolder folder;
    const TavKey key = KeyOf("home");
};

} // namespace

TEST(GetAbsPath, GivesTheSizeWithTheTerminator) {
    const TemporaryFolder folder;
    const std::u16string path = Wide(folder.path());
    const FSRef ref = PlatformRef(folder.path());
    EXPECT_EQ(_GetAbsPath(&ref, nullptr, 0), path.size() + 1);
    std::u16string buf(path.size() + 1, u'*');
    EXPECT_EQ(_GetAbsPath(&ref, buf.data(), static_cast<uint32_t>(path.size())), path.size() + 1);
    EXPECT_EQ(buf, std::u16string(path.size() + 1, u'*'));
    EXPECT_EQ(_GetAbsPath(&ref, buf.data(), static_cast<uint32_t>(buf.size())), path.size() + 1);
    EXPECT_STREQ(Narrow(buf.c_str()).c_str(), folder.path().c_str());
}

// Bytes count, not units.
TEST(GetAbsPath, GivesNothingForAPathOfMoreThan1023Bytes) {
    const TemporaryFolder folder;
    const std::string longest = MakeFolderOfBytes(folder.path(), 1023);
    const FSRef fits = PlatformRef(longest);
    EXPECT_EQ(_GetAbsPath(&fits, nullptr, 0), Wide(longest).size() + 1);
    const FSRef tooLong = PlatformRef(MakeFolderOfBytes(folder.path(), 1024));
    EXPECT_EQ(_GetAbsPath(&tooLong, nullptr, 0), 0u);
}

TEST(GetAbsPath, GivesNothingForANameThatIsNotText) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "caf\xE9");
    const FSRef ref = PlatformRef(folder / "caf\xE9");
    EXPECT_EQ(_GetAbsPath(&ref, nullptr, 0), 0u);
}

TEST_F(RegisteredFolder, WithAPathOfMoreThan1023BytesHasNothingUnderIt) {
    const std::string longest = MakeFolderOfBytes(folder.path(), 1023);
    FSRef ref = PlatformRef(longest);
    Tav0TranPathRegister(&key, &ref);
    EXPECT_EQ(IsUnderKey(longest), 1);
    EXPECT_EQ(OnKey(longest + "/x"), u"$home\\x");
    const std::string tooLong = MakeFolderOfBytes(folder.path(), 1024);
    ref = PlatformRef(tooLong);
    Tav0TranPathRegister(&key, &ref);
    EXPECT_EQ(IsUnderKey(tooLong), 0);
    EXPECT_EQ(OnKey(tooLong + "/x"), u"(null)");
}

TEST(GetAbsPath, GivesNothingForNullOrAFolderThatIsGone) {
    FSRef ref;
    {
        const TemporaryFolder folder;
        ref = PlatformRef(folder.path());
    }
    TavChar buf[kPathUnits];
    EXPECT_EQ(_GetAbsPath(nullptr, buf, kPathUnits), 0u);
    EXPECT_EQ(_GetAbsPath(&ref, buf, kPathUnits), 0u);
}

struct UnderCase {
    const TavChar* path;
    const TavChar* folder;
    int32_t result;
    const TavChar* expression;
};

class UnderBase : public testing::TestWithParam<UnderCase> {};

TEST_P(UnderBase, IsToldAndExpressed) {
    EXPECT_EQ(IsUnder(GetParam().path, GetParam().folder), GetParam().result);
    EXPECT_EQ(OnBase(GetParam().path, GetParam().folder), GetParam().expression);
}

INSTANTIATE_TEST_SUITE_P(
    Table, UnderBase,
    testing::Values(UnderCase{u"/users/ann", u"/Users/Ann", 1, u"$$home"},
                    UnderCase{u"/Users/Ann/x", u"/Users/Ann", 1, u"$$home\\x"},
                    UnderCase{u"/users/ANN/Docs/A.txt", u"/Users/Ann", 1, u"$$home\\Docs\\A.txt"},
                    UnderCase{u"/Users/Ann/", u"/Users/Ann", 1, u"$$home"},
                    UnderCase{u"/Users/Ann//x", u"/Users/Ann", 1, u"$$home\\\\x"},
                    UnderCase{u"/USERS/\u00c9/x", u"/users/\u00e9", 1, u"$$home\\x"},
                    UnderCase{u"/Users/Anna", u"/Users/Ann", 0, u"(null)"},
                    UnderCase{u"/Users", u"/Users/Ann", 0, u"(null)"}, UnderCase{u"", u"/", 0, u"(null)"},
                    // nothing is below the root but the root itself
                    UnderCase{u"/", u"/", 1, u"$$home"}, UnderCase{u"/a", u"/", 0, u"(null)"},
                    UnderCase{u"//a", u"/", 1, u"$$home\\a"}, UnderCase{u"/a", u"", 1, u"$$home\\a"},
                    UnderCase{u"/Data/x", u"/Data/", 0, u"(null)"}));

TEST(UnderBase, NeedsNoKey) {
    EXPECT_EQ(Tav0FSRIsBaseOnKey(MakeRef(u"/a/b").get(), nullptr, MakeRef(u"/a").get()), 1);
}

TEST(UnderBase, RefusesPathsOf1024Units) {
    const std::u16string longest = u"/a/" + std::u16string(1020, u'x');
    EXPECT_EQ(IsUnder(longest, u"/a"), 1);
    EXPECT_EQ(IsUnder(longest + u"x", u"/a"), 0);
    EXPECT_EQ(OnBase(longest + u"x", u"/a"), u"(null)");
    EXPECT_EQ(IsUnder(longest, longest), 1);
    EXPECT_EQ(IsUnder(longest, longest + u"x"), 0);
}

TEST(UnderBase, IsNotFoundForNull) {
    const Ref base = MakeRef(u"/a");
    EXPECT_EQ(Tav0FSRIsBaseOnKey(nullptr, &kNoKey, base.get()), 0);
    EXPECT_EQ(Tav0FSExpCreateAbsOnKey(nullptr, "home", base.get()), nullptr);
    EXPECT_EQ(Tav0FSExpCreateAbsOnKey(base.get(), nullptr, base.get()), nullptr);
    EXPECT_EQ(Tav0FSRIsBaseOnKey(base.get(), nullptr, nullptr), 0);
    EXPECT_EQ(Tav0FSExpCreateAbsOnKey(base.get(), nullptr, nullptr), nullptr);
}

TEST(UnderBase, TakesAShortKey) {
    EXPECT_EQ(TextOf(Exp(Tav0FSExpCreateAbsOnKey(MakeRef(u"/a/b").get(), "k\0\0\0", MakeRef(u"/a").get()))),
              u"$$k\\b");
}

TEST(UnderBase, GrowsByOneUnitForTheSecondDollar) {
    const Ref ref = MakeRef(u"/a");
    const Exp e(Tav0FSExpCreateAbsOnKey(ref.get(), "home", ref.get()));
    EXPECT_EQ(Tav0FSExpIsRelPath(e.get(), nullptr, nullptr), 1);
    EXPECT_EQ(TextOf(e), u"$$home");
    EXPECT_EQ(e->length, 6u);
    EXPECT_EQ(e->capacity, 7u);
    EXPECT_EQ(e->storage[6], 0);
}

TEST_F(RegisteredFolder, IsExpressedByItsKey) {
    EXPECT_EQ(IsUnderKey(folder.path()), 1);
    EXPECT_EQ(OnKey(folder.path()), u"$home");
    EXPECT_EQ(IsUnderKey(folder / "Docs/a.txt"), 1);
    EXPECT_EQ(OnKey(folder / "Docs/a.txt"), u"$home\\Docs\\a.txt");
}

TEST_F(RegisteredFolder, DoesNotHoldItsSiblings) {
    EXPECT_EQ(IsUnderKey(folder.path().string() + "2"), 0);
    EXPECT_EQ(OnKey(folder.path().string() + "2"), u"(null)");
    EXPECT_EQ(IsUnderKey(folder.path().parent_path()), 0);
}

TEST_F(RegisteredFolder, ComesBackThroughEvaluation) {
    const std::u16string path = Wide(folder / "Docs/a.txt");
    EXPECT_EQ(Evaluated(OnKey(folder / "Docs/a.txt")), path);
}

TEST(UnderKey, IsNotFoundForAnUnknownKey) {
    const TavKey key = KeyOf("none");
    EXPECT_EQ(Tav0FSRIsBaseOnKey(MakeRef(u"/a").get(), &key, nullptr), 0);
    EXPECT_EQ(Tav0FSExpCreateAbsOnKey(MakeRef(u"/a").get(), "none", nullptr), nullptr);
}

TEST(UnderKey, IsNotFoundWhenTheFolderIsGone) {
    const TavKey key = KeyOf("gone");
    std::u16string path;
    {
        const TemporaryFolder folder;
        path = Wide(folder.path());
        const FSRef ref = PlatformRef(folder.path());
        Tav0TranPathRegister(&key, &ref);
    }
    EXPECT_EQ(Tav0FSRIsBaseOnKey(MakeRef(path).get(), &key, nullptr), 0);
}

TEST(ReadPath, Takes1023Units) {
    TavChar buf[kPathUnits];
    const std::u16string longest(1023, u'x');
    EXPECT_TRUE(ReadPath(MakeRef(longest).get(), buf));
    EXPECT_EQ(buf, longest);
    EXPECT_FALSE(ReadPath(MakeRef(longest + u"x").get(), buf));
    EXPECT_FALSE(ReadPath(nullptr, buf));
}
