#include "platform/linux/orphans.h"

#include "metadata_support.h"
#include "platform/objects.h"

namespace {
const std::string kSound = AppleDouble({{9, 50, FinderInfo("TEXTttxt")}, {2, 82, "resource"}});

// The whole life of a file that comes beside an orphan, through the operations that applications use.
class Orphans : public testing::Test {
protected:
    static FSRef Make(const std::string& folder, const std::string& name) {
        const FSRef parent = RefTo(folder);
        const std::u16string units = Wide(name);
        FSRef ref = {};
        EXPECT_EQ(FSCreateFileUnicode(&parent, static_cast<UniCharCount>(units.size()),
                                      reinterpret_cast<const UniChar*>(units.data()), kFSCatInfoNone, nullptr,
                                      &ref, nullptr),
                  noErr);
        return ref;
    }
    static void ExpectThatTheOrphanIsLeftAlone(const std::string& folder) {
        WriteFile(folder + "/._x", kSound);
        FSRef ref = Make(folder, "x");
        FSForkRefNum number = 0;
        EXPECT_EQ(OpenByRef(ref, true, fsRdPerm, number), errFSForkNotFound);
        EXPECT_EQ(GetInfo(folder, kFSCatInfoValence).valence, 2u);
        const std::u16string name = u"y";
        ASSERT_EQ(FSRenameUnicode(&ref, 1, reinterpret_cast<const UniChar*>(name.data()),
                                  kTextEncodingUnknown, &ref),
                  noErr);
        EXPECT_TRUE(Exists(folder + "/._x"));
        EXPECT_FALSE(Exists(folder + "/._y"));
        EXPECT_EQ(FSDeleteObject(&ref), noErr);
        EXPECT_EQ(ReadFile(folder + "/._x"), kSound);
    }

    TemporaryFolder folder_;
};
} // namespace

TEST_F(Orphans, FileMadeRenamedAndDeletedBesideOne_LeavesItAlone) {
    ExpectThatTheOrphanIsLeftAlone(folder_.path());
}

TEST_F(Orphans, VolumeWithoutAttributes_MakesNoDifference) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    ExpectThatTheOrphanIsLeftAlone(volume.path());
}

TEST_F(Orphans, FileThatComesByAnotherName_LeavesOneAloneToo) {
    WriteFile(folder_ / "._y", kSound);
    const FSRef ref = Make(folder_.path(), "x");
    const std::u16string name = u"y";
    ASSERT_EQ(FSRenameUnicode(&ref, 1, reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown,
                              nullptr),
              noErr);
    EXPECT_EQ(GetType(folder_ / "y"), kNoType);
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_EQ(ReadFile(folder_ / "._y"), kSound);
}

TEST_F(Orphans, WhereTheyCannotBeMarked_TheLastOnesAreRemembered) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    const auto isOrphan = [&volume](int number) {
        const std::string path = volume / std::to_string(number);
        WriteFile(path, "");
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const struct statx facts = PlaceOf(path).facts;
        const bool before = IsOrphan(file, facts);
        RememberOrphan(file, facts);
        EXPECT_TRUE(IsOrphan(file, facts));
        close(file);
        return before;
    };
    for (int number = 0; number < 32; ++number) EXPECT_FALSE(isOrphan(number));
    EXPECT_TRUE(isOrphan(0));
    EXPECT_FALSE(isOrphan(32)); // takes the place of the first
    EXPECT_FALSE(isOrphan(0));
}

TEST_F(Orphans, ASidecarOfItsOwn_GoesWithItsFile) {
    const FSRef ref = Make(folder_.path(), "x");
    ASSERT_EQ(MakeResourceFork(ref), noErr);
    const std::u16string name = u"y";
    ASSERT_EQ(FSRenameUnicode(&ref, 1, reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown,
                              nullptr),
              noErr);
    EXPECT_TRUE(Exists(folder_ / "._y"));
    EXPECT_FALSE(Exists(folder_ / "._x"));
    WriteFile(folder_ / "._z", "someone's");
    const std::u16string taken = u"z";
    EXPECT_EQ(FSRenameUnicode(&ref, 1, reinterpret_cast<const UniChar*>(taken.data()), kTextEncodingUnknown,
                              nullptr),
              dupFNErr);
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_FALSE(Exists(folder_ / "._y"));
    EXPECT_EQ(ReadFile(folder_ / "._z"), "someone's");
}
