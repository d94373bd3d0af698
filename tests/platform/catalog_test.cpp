#include "platform/catalog.h"

#include "metadata_support.h"
#include "support/no_descriptors.h"

namespace {
class Catalog : public testing::Test {
protected:
    void SetUp() override {
        WriteFile(file_, "12345");
        ASSERT_EQ(mkdir(subfolder_.c_str(), 0755), 0);
    }

    static std::string NameFrom(const FSRef& ref) {
        HFSUniStr255 name;
        EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, &name, nullptr, nullptr), noErr);
        return Narrow(std::u16string(reinterpret_cast<const char16_t*>(name.unicode), name.length));
    }
    static std::string ParentOf(const FSRef& ref) {
        FSRef parent = {};
        EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, nullptr, nullptr, &parent), noErr);
        return PathOf(parent);
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
    const std::string subfolder_ = folder_ / "folder";
};
} // namespace

TEST_F(Catalog, NullArguments_AreRefused) {
    const FSRef ref = RefTo(file_);
    FSCatalogInfo info = {};
    FInfo finder = {};
    FSSpec spec = {};
    EXPECT_EQ(FSGetCatalogInfo(nullptr, kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, nullptr, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(FSSetCatalogInfo(nullptr, kFSCatInfoNone, &info), paramErr);
    EXPECT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, nullptr), paramErr);
    EXPECT_EQ(FSpSetFInfo(nullptr, &finder), paramErr);
    EXPECT_EQ(FSpSetFInfo(&spec, nullptr), paramErr);
}

TEST_F(Catalog, NothingWanted_OnlyFindsTheObject) {
    const FSRef ref = RefTo(file_);
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNone, nullptr), noErr);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr), fnfErr);
    EXPECT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNone, nullptr), fnfErr);
}

TEST_F(Catalog, MadeUpReference_IsNotFound) {
    FSRef ref;
    std::memset(&ref, 0x5A, sizeof(ref));
    FSCatalogInfo info = {};
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr), fnfErr);
    EXPECT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), fnfErr);
    FSSpec spec = {};
    spec.ref = ref;
    const FInfo finder = {};
    EXPECT_EQ(FSpSetFInfo(&spec, &finder), fnfErr);
}

TEST_F(Catalog, NameAndParent_AreTheObjects) {
    EXPECT_EQ(NameFrom(RefTo(file_)), "file");
    EXPECT_EQ(ParentOf(RefTo(file_)), folder_.path());
    EXPECT_EQ(ParentOf(RefTo(subfolder_)), folder_.path());
}

TEST_F(Catalog, NameWithAColon_HasASlash) {
    WriteFile(folder_ / "a:b", "");
    EXPECT_EQ(NameFrom(RefTo(folder_ / "a:b")), "a/b");
}

TEST_F(Catalog, WayUp_EndsAtTheRootWithParentOne) {
    FSRef ref = RefTo(file_);
    FSCatalogInfo info = {};
    for (int steps = 0; info.parentDirID != 1; ++steps) {
        ASSERT_LT(steps, 100);
        FSRef parent = {};
        ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoParentDirID, &info, nullptr, nullptr, &parent), noErr);
        if (info.parentDirID != 1) ref = parent;
    }
    EXPECT_EQ(PathOf(ref), "/");
}

TEST_F(Catalog, Spec_HoldsTheReferenceItself) {
    const FSRef ref = RefTo(file_);
    FSSpec spec;
    ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, nullptr, &spec, nullptr), noErr);
    EXPECT_EQ(std::memcmp(&spec.ref, &ref, sizeof(ref)), 0);
}

TEST_F(Catalog, LinkFromAPath_HasItsOwnNameAndTheTargetsFacts) {
    const std::string link = folder_ / "link";
    ASSERT_EQ(symlink("folder", link.c_str()), 0);
    const FSRef ref = RefTo(link);
    EXPECT_EQ(NameFrom(ref), "link");
    const FSCatalogInfo info = GetInfo(ref, kFSCatInfoGettableInfo);
    EXPECT_EQ(info.nodeFlags, kFSNodeIsDirectoryMask);
    EXPECT_EQ(info.nodeID, GetInfo(subfolder_, kFSCatInfoNodeID).nodeID);
}

TEST_F(Catalog, LinkIntoAnotherFolder_HasTheTargetsParent) {
    WriteFile(subfolder_ + "/inside", "");
    const std::string link = folder_ / "link";
    ASSERT_EQ(symlink("folder/inside", link.c_str()), 0);
    EXPECT_EQ(ParentOf(RefTo(link)), subfolder_);
    EXPECT_EQ(ParentOf(EntryRef(link)), folder_.path());
}

TEST_F(Catalog, LinkThatLeadsNowhere_TellsItsOwnFacts) {
    const std::string link = folder_ / "link";
    ASSERT_EQ(symlink("nowhere", link.c_str()), 0);
    const FSRef ref = EntryRef(link);
    EXPECT_EQ(NameFrom(ref), "link");
    EXPECT_EQ(GetInfo(ref, kFSCatInfoNodeFlags).nodeFlags, 0);
    ASSERT_EQ(unlink(link.c_str()), 0);
    ASSERT_EQ(symlink("file", link.c_str()), 0);
    const FSRef fromPath = RefTo(link);
    ASSERT_EQ(unlink(file_.c_str()), 0);
    EXPECT_EQ(GetInfo(fromPath, kFSCatInfoNodeFlags).nodeFlags, 0);
    EXPECT_EQ(ParentOf(fromPath), folder_.path());
}

TEST_F(Catalog, SettingFinderInfoBySpec_IsSettingIt) {
    const FSRef ref = RefTo(file_);
    FSSpec spec;
    ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, nullptr, &spec, nullptr), noErr);
    FInfo finder;
    std::memcpy(finder.bytes, "TEXTttxt\1\2\3\4\5\6\7\10", 16);
    ASSERT_EQ(FSpSetFInfo(&spec, &finder), noErr);
    EXPECT_EQ(std::memcmp(GetInfo(file_, kFSCatInfoFinderInfo).finderInfo, finder.bytes, 16), 0);
}

TEST_F(Catalog, ExhaustedDescriptors_AreReportedAndNothingIsChanged) {
    WriteFile(folder_ / "folder/inside", "");
    const FSRef ref = RefTo(folder_ / "folder/inside");
    FSCatalogInfo info = {};
    info.nodeFlags = kFSNodeLockedMask;
    OSErr result;
    {
        const NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        result = FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info);
    }
    EXPECT_TRUE(result == tmfoErr || result == noErr) << result; // a cached descriptor may have been spared
    EXPECT_EQ(GetLock(folder_ / "folder/inside"), result == noErr);
}
