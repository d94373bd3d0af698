#include "platform/catalog.h"
#include "platform/launch_services.h"
#include "platform/references.h"
#include "support/files.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

FSRef RefOf(const std::string& path) {
    FSRef ref = {};
    EXPECT_EQ(FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr), noErr) << path;
    return ref;
}

bool IsPackage(const std::string& path) {
    FSRef ref = RefOf(path);
    LSItemInfoRecord info = {0xFFFFFFFF};
    EXPECT_EQ(LSCopyItemInfoForRef(&ref, kLSRequestBasicFlagsOnly, &info), noErr);
    EXPECT_EQ(info.flags & ~kLSItemInfoIsPackage, 0u);
    return info.flags != 0;
}

bool FolderIsPackage(const TemporaryFolder& folder, const std::string& name) {
    fs::create_directory(folder / name);
    return IsPackage(folder / name);
}

void SetFinderFlags(const std::string& path, uint16_t flags) {
    FSRef ref = RefOf(path);
    FSCatalogInfo info = {};
    info.finderInfo[8] = static_cast<uint8_t>(flags >> 8);
    info.finderInfo[9] = static_cast<uint8_t>(flags);
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoFinderInfo, &info), noErr);
}

} // namespace

TEST(LSCopyItemInfoForRef, FolderWithAPackageExtension_IsAPackage) {
    TemporaryFolder folder;
    for (const char* extension : {"app", "bundle", "plugin", "kext", "rtfd", "pkg", "mpkg", "prefPane",
                                  "saver", "component", "wdgt", "xcodeproj", "mdimporter", "qlgenerator"})
        EXPECT_TRUE(FolderIsPackage(folder, std::string("a.") + extension)) << extension;
}

TEST(LSCopyItemInfoForRef, LetterCaseOfTheExtension_IsIgnored) {
    TemporaryFolder folder;
    EXPECT_TRUE(FolderIsPackage(folder, "a.APP"));
    EXPECT_TRUE(FolderIsPackage(folder, "b.PlugIn"));
    EXPECT_TRUE(FolderIsPackage(folder, "c.prefpane"));
}

TEST(LSCopyItemInfoForRef, OtherFolder_IsNone) {
    TemporaryFolder folder;
    for (const char* name :
         {"plain", "a.framework", "a.apps", "a.app.d", "app", ".app", "a.", "a.ap", "a.app "})
        EXPECT_FALSE(FolderIsPackage(folder, name)) << name;
    EXPECT_FALSE(IsPackage("/"));
}

TEST(LSCopyItemInfoForRef, File_IsNone) {
    TemporaryFolder folder;
    WriteFile(folder / "a.app", "");
    EXPECT_FALSE(IsPackage(folder / "a.app"));
}

TEST(LSCopyItemInfoForRef, BundleBit_MakesAFolderAPackage) {
    TemporaryFolder folder;
    fs::create_directory(folder / "plain");
    SetFinderFlags(folder / "plain", 0xDFFF); // every other flag
    EXPECT_FALSE(IsPackage(folder / "plain"));
    SetFinderFlags(folder / "plain", 0x2000);
    EXPECT_TRUE(IsPackage(folder / "plain"));
}

TEST(LSCopyItemInfoForRef, BundleBitOfAFile_MakesNone) {
    TemporaryFolder folder;
    WriteFile(folder / "file", "");
    SetFinderFlags(folder / "file", 0x2000);
    EXPECT_FALSE(IsPackage(folder / "file"));
}

TEST(LSCopyItemInfoForRef, LinkFromAPath_IsWhatItLeadsTo) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a.app");
    fs::create_directory(folder / "plain");
    fs::create_symlink("a.app", folder / "link");
    fs::create_symlink("plain", folder / "link.app");
    EXPECT_TRUE(IsPackage(folder / "link"));
    EXPECT_FALSE(IsPackage(folder / "link.app"));
}

TEST(LSCopyItemInfoForRef, ObjectThatIsGone_Fails) {
    TemporaryFolder folder;
    fs::create_directory(folder / "a.app");
    FSRef ref = RefOf(folder / "a.app");
    fs::remove(folder / "a.app");
    LSItemInfoRecord info = {0xFFFFFFFF};
    EXPECT_EQ(LSCopyItemInfoForRef(&ref, kLSRequestBasicFlagsOnly, &info), fnfErr);
    EXPECT_EQ(info.flags, 0u);
}

TEST(LSCopyItemInfoForRef, MissingArgument_IsRefused) {
    FSRef ref = RefOf("/");
    LSItemInfoRecord info = {0xFFFFFFFF};
    EXPECT_EQ(LSCopyItemInfoForRef(&ref, kLSRequestBasicFlagsOnly, nullptr), paramErr);
    EXPECT_EQ(LSCopyItemInfoForRef(nullptr, kLSRequestBasicFlagsOnly, &info), paramErr);
    EXPECT_EQ(info.flags, 0u);
}
