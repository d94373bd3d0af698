#include "platform/references.h"
#include "support/files.h"
#include "support/virtual_paths.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

int32_t Resolves(const std::u16string& path) {
    FSRef out;
    return Tav0FSRToAbs(MakeRef(path).get(), &out, 0);
}

int32_t Exists(const std::u16string& path) {
    return Tav0FSRIsExist(MakeRef(path).get());
}

} // namespace

TEST(CreateAbsRef, GivesTheReferenceForThePath) {
    const TemporaryFolder folder;
    const FSRef ref = PlatformRef(folder.path());
    const Ref made(Tav0FSRCreateAbs(&ref));
    EXPECT_EQ(made, MakeRef(Wide(folder.path())));
}

TEST(CreateAbsRef, GivesNullForNullAndWhatIsGone) {
    FSRef ref;
    {
        const TemporaryFolder folder;
        ref = PlatformRef(folder.path());
    }
    EXPECT_EQ(Tav0FSRCreateAbs(nullptr), nullptr);
    EXPECT_EQ(Tav0FSRCreateAbs(&ref), nullptr);
}

TEST(CreateAbsRef, GivesNullForAPathOfMoreThan1023Bytes) {
    const TemporaryFolder folder;
    const std::string longest = MakeFolderOfBytes(folder.path(), 1023);
    const FSRef fits = PlatformRef(longest);
    EXPECT_EQ(PathOf(Ref(Tav0FSRCreateAbs(&fits))), Wide(longest));
    const FSRef tooLong = PlatformRef(MakeFolderOfBytes(folder.path(), 1024));
    EXPECT_EQ(Tav0FSRCreateAbs(&tooLong), nullptr);
}

TEST(CreateAbsRef, GivesNullForANameThatIsNotText) {
    const TemporaryFolder folder;
    WriteFile(folder / "caf\xE9", "");
    const FSRef ref = PlatformRef(folder / "caf\xE9");
    EXPECT_EQ(Tav0FSRCreateAbs(&ref), nullptr);
}

TEST(CreateTKRef, GivesTheReferenceForTheFolder) {
    const TemporaryFolder folder;
    const TavKey key = KeyOf("pref");
    const FSRef ref = PlatformRef(folder.path());
    Tav0TranPathRegister(&key, &ref);
    EXPECT_EQ(PathOf(Ref(Tav0FSRCreateTK(&key))), Wide(folder.path()));
}

TEST(CreateTKRef, GivesNullForNullAndUnknownKeys) {
    const TavKey key = KeyOf("none");
    EXPECT_EQ(Tav0FSRCreateTK(nullptr), nullptr);
    EXPECT_EQ(Tav0FSRCreateTK(&key), nullptr);
}

TEST(ToAbs, FindsTheObject) {
    const TemporaryFolder folder;
    WriteFile(folder / "a.txt", "a");
    const Ref ref = MakeRef(Wide(folder / "a.txt"));
    for (const uint32_t reserved : {0u, 1024u}) {
        FSRef out;
        ASSERT_EQ(Tav0FSRToAbs(ref.get(), &out, reserved), 1);
        const FSRef expected = PlatformRef(folder / "a.txt");
        EXPECT_EQ(FSCompareFSRefs(&out, &expected), 0);
    }
}

TEST(ToAbs, FailsForWhatIsNotThere) {
    const TemporaryFolder folder;
    EXPECT_EQ(Resolves(Wide(folder / "none")), 0);
    EXPECT_EQ(Resolves(u""), 0);
    EXPECT_EQ(Resolves(u"/a\xD800"
                       u"b"),
              0);
}

TEST(ToAbs, LeavesTheOutputOnFailure) {
    FSRef out;
    std::memset(&out, 7, sizeof out);
    const FSRef before = out;
    EXPECT_EQ(Tav0FSRToAbs(MakeRef(u"/no/such/object").get(), &out, 0), 0);
    EXPECT_EQ(Tav0FSRToAbs(nullptr, &out, 0), 0);
    EXPECT_EQ(std::memcmp(&out, &before, sizeof out), 0);
}

TEST(ToAbs, FailsForNull) {
    EXPECT_EQ(Tav0FSRToAbs(MakeRef(u"/").get(), nullptr, 0), 0);
}

TEST(ToAbs, RefusesPathsOf1024Units) {
    // "/./././…" names the root, however long it is.
    std::u16string path(1023, u'/');
    for (size_t i = 1; i < path.size() - 1; i += 2) path[i] = u'.';
    ASSERT_EQ(Resolves(path), 1);
    EXPECT_EQ(Resolves(path + u"."), 0);
}

TEST(IsExist, AsksEachTime) {
    const TemporaryFolder folder;
    const std::u16string path = Wide(folder / "a.txt");
    const Ref held = MakeRef(path);
    EXPECT_EQ(Exists(path), 0);
    WriteFile(folder / "a.txt", "a");
    EXPECT_EQ(Exists(path), 1);
    std::filesystem::remove(folder / "a.txt");
    EXPECT_EQ(Exists(path), 0);
    EXPECT_EQ(Exists(Wide(folder.path())), 1);
    EXPECT_EQ(Tav0FSRIsExist(nullptr), 0);
}

TEST(IsExist, DoesNotCountALinkWithoutTarget) {
    const TemporaryFolder folder;
    std::filesystem::create_symlink("target", folder / "link");
    EXPECT_EQ(Exists(Wide(folder / "link")), 0);
    EXPECT_EQ(Resolves(Wide(folder / "link")), 1);
    WriteFile(folder / "target", "a");
    EXPECT_EQ(Exists(Wide(folder / "link")), 1);
}

struct AppendCase {
    const TavChar* path;
    const TavChar* component;
    const TavChar* result;
};

class AppendComponent : public testing::TestWithParam<AppendCase> {};

TEST_P(AppendComponent, GivesTheChild) {
    const Ref ref = MakeRef(GetParam().path);
    EXPECT_EQ(PathOf(Ref(Tav0FSRAppendPathComponent(ref.get(), GetParam().component))), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Table, AppendComponent,
    testing::Values(AppendCase{u"/a", u"b", u"/a/b"}, AppendCase{u"/a", u"x/../y", u"/a/y"},
                    AppendCase{u"/a/", u"b/c", u"/a/b/c"}, AppendCase{u"/", u"a", u"/a"},
                    AppendCase{u"/a", u"..", u""}, AppendCase{u"/a", u"", u"/a"},
                    AppendCase{u"/a", u"\\b", u"/a/b"}, AppendCase{u"/a", u".x", u"(null)"},
                    AppendCase{u"/a", u"../..", u"(null)"}, AppendCase{u"/a", u"x:y", u"(null)"}));

TEST(AppendComponent, GivesNullForNull) {
    EXPECT_EQ(Tav0FSRAppendPathComponent(nullptr, u"a"), nullptr);
    EXPECT_EQ(Tav0FSRAppendPathComponent(MakeRef(u"/a").get(), nullptr), nullptr);
}

struct LastCase {
    const TavChar* path;
    const TavChar* parent;
    const TavChar* name;
};

class LastComponent : public testing::TestWithParam<LastCase> {};

TEST_P(LastComponent, IsTakenOff) {
    TavChar name[16] = u"***************";
    const Ref parent(Tav0FSRRemoveLastPathComponent(MakeRef(GetParam().path).get(), name, 16));
    EXPECT_EQ(PathOf(parent), GetParam().parent);
    EXPECT_EQ(std::u16string(name), GetParam().name);
}

TEST_P(LastComponent, IsRead) {
    TavChar name[16] = u"***************";
    EXPECT_EQ(Tav0FSRGetLastPathComponent(MakeRef(GetParam().path).get(), name, 16),
              GetParam().path[0] ? 1 : 0);
    EXPECT_EQ(std::u16string(name), GetParam().name);
}

TEST_P(LastComponent, NeedsNoBuffer) {
    const Ref ref = MakeRef(GetParam().path);
    EXPECT_EQ(PathOf(Ref(Tav0FSRRemoveLastPathComponent(ref.get(), nullptr, 16))), GetParam().parent);
    EXPECT_EQ(Tav0FSRGetLastPathComponent(ref.get(), nullptr, 16), GetParam().path[0] ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Table, LastComponent,
                         testing::Values(LastCase{u"/a/b", u"/a/", u"b"}, LastCase{u"/a", u"/", u"a"},
                                         LastCase{u"/", u"(null)", u""}, LastCase{u"/a/", u"(null)", u"/a"},
                                         LastCase{u"/a/b/", u"(null)", u"/a/b"},
                                         LastCase{u"a", u"(null)", u"a"}, LastCase{u"a/b", u"a/", u"b"},
                                         LastCase{u"//", u"(null)", u"/"}, LastCase{u"//a", u"//", u"a"},
                                         LastCase{u"", u"(null)", u""}));

TEST(LastComponentBuffer, IsCutAndZeroFilled) {
    const Ref ref = MakeRef(u"/a/bcd");
    TavChar name[6] = u"*****";
    Ref parent(Tav0FSRRemoveLastPathComponent(ref.get(), name, 2));
    EXPECT_EQ(PathOf(parent), u"/a/");
    EXPECT_EQ(std::u16string(name, 6), std::u16string(u"b\0***\0", 6));
    EXPECT_EQ(Tav0FSRGetLastPathComponent(ref.get(), name, 5), 1);
    EXPECT_EQ(std::u16string(name, 6), std::u16string(u"bcd\0\0\0", 6));
    EXPECT_EQ(Tav0FSRGetLastPathComponent(ref.get(), name, 1), 1);
    EXPECT_EQ(std::u16string(name, 6), std::u16string(u"\0cd\0\0\0", 6));
}

TEST(LastComponentBuffer, StaysAsItIsWithoutRoom) {
    TavChar name[2] = u"*";
    const Ref ref = MakeRef(u"/a/b");
    EXPECT_EQ(Tav0FSRGetLastPathComponent(ref.get(), name, 0), 1);
    const Ref parent(Tav0FSRRemoveLastPathComponent(ref.get(), name, 0));
    EXPECT_EQ(PathOf(parent), u"/a/");
    EXPECT_EQ(name[0], u'*');
}

TEST(LastComponentBuffer, IsClearedForNull) {
    TavChar name[2] = u"*";
    EXPECT_EQ(Tav0FSRRemoveLastPathComponent(nullptr, name, 2), nullptr);
    EXPECT_EQ(name[0], 0);
    EXPECT_EQ(Tav0FSRGetLastPathComponent(nullptr, name, 2), 0);
    EXPECT_EQ(Tav0FSRGetLastPathComponent(nullptr, nullptr, 2), 0);
}

TEST(LastComponent, NeedsAPathOf1023UnitsAtMost) {
    const std::u16string longest = u"/" + std::u16string(1022, u'x');
    EXPECT_EQ(PathOf(Ref(Tav0FSRRemoveLastPathComponent(MakeRef(longest).get(), nullptr, 0))), u"/");
    EXPECT_EQ(Tav0FSRGetLastPathComponent(MakeRef(longest).get(), nullptr, 0), 1);
    EXPECT_EQ(Tav0FSRRemoveLastPathComponent(MakeRef(longest + u"x").get(), nullptr, 0), nullptr);
    EXPECT_EQ(Tav0FSRGetLastPathComponent(MakeRef(longest + u"x").get(), nullptr, 0), 0);
}

// The buffer is cleared before the path is read.
TEST(LastComponentBuffer, IsClearedForATooLongPath) {
    const Ref tooLong = MakeRef(u"/" + std::u16string(1023, u'x'));
    TavChar name[3] = u"**";
    EXPECT_EQ(Tav0FSRRemoveLastPathComponent(tooLong.get(), name, 2), nullptr);
    EXPECT_EQ(std::u16string(name, 2), std::u16string(2, u'\0'));
    name[0] = name[1] = u'*';
    EXPECT_EQ(Tav0FSRGetLastPathComponent(tooLong.get(), name, 2), 0);
    EXPECT_EQ(std::u16string(name, 2), std::u16string(2, u'\0'));
}
