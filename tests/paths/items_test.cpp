#include "paths/items.h"

#include "paths/path_reference.h"
#include "platform/catalog.h"
#include "support/files.h"

#include <gtest/gtest.h>

static FSRef RefOf(const std::string& path) {
    FSRef ref = {};
    EXPECT_EQ(MakePathRef(Wide(path).c_str(), &ref), noErr) << path;
    return ref;
}

TEST(TavMacIsInvisibleFile, EmptyNameOrLeadingDot_IsInvisible) {
    EXPECT_EQ(TavMacIsInvisibleFile(u""), 1);
    EXPECT_EQ(TavMacIsInvisibleFile(u"."), 1);
    EXPECT_EQ(TavMacIsInvisibleFile(u".."), 1);
    EXPECT_EQ(TavMacIsInvisibleFile(u".name"), 1);
}

TEST(TavMacIsInvisibleFile, OtherName_IsVisible) {
    EXPECT_EQ(TavMacIsInvisibleFile(u"a"), 0);
    EXPECT_EQ(TavMacIsInvisibleFile(u"a."), 0);
    EXPECT_EQ(TavMacIsInvisibleFile(u"/.a"), 0);
    EXPECT_EQ(TavMacIsInvisibleFile(u" .a"), 0);
}

TEST(IsPlainFolder, FolderThatIsNoPackage_IsOne) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "a.app");
    FSRef plain = RefOf(folder.path().string()), package = RefOf(folder / "a.app");
    EXPECT_EQ(IsPlainFolder(plain, kFSNodeIsDirectoryMask), 1);
    EXPECT_EQ(IsPlainFolder(plain, kFSNodeIsDirectoryMask | kFSNodeLockedMask), 1);
    EXPECT_EQ(IsPlainFolder(package, kFSNodeIsDirectoryMask), 0);
}

TEST(IsPlainFolder, File_IsNone) {
    TemporaryFolder folder;
    WriteFile(folder / "f", "");
    EXPECT_EQ(IsPlainFolder(RefOf(folder / "f"), 0), 0);
    EXPECT_EQ(IsPlainFolder(RefOf(folder / "f"), kFSNodeLockedMask), 0);
}
