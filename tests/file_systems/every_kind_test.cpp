// Files, metadata, copies, listings and deletes on every kind of file system, each mounted for the test.
#include "TavPort.h"
#include "copy/recursive_delete.h"
#include "platform/metadata_support.h"
#include "platform/objects.h"
#include "support/listing.h"
#include "support/private_mounts.h"

#include <fcntl.h>
#include <filesystem>
#include <ostream>
#include <set>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

struct Kind {
    const char* name;
    std::string (*mount)(PrivateMounts&, const std::string& folder);
};

void PrintTo(const Kind& kind, std::ostream* output) {
    *output << kind.name;
}

class EveryKind : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override {
        SKIP_IF_MISSING(mounts.Missing());
        SKIP_IF_MISSING(GetParam().mount(mounts, volume));
        WriteFile(volume + "/probe", "");
        hasAttributes = setxattr((volume + "/probe").c_str(), "user.probe", "1", 1, 0) == 0;
        fs::remove(volume + "/probe");
    }

    // A folder with a typed file that has a resource fork, an empty one, a link and a folder in it.
    void MakeTree(const std::string& top) {
        fs::create_directories(top + "/inner");
        WriteFile(top + "/file", "content");
        EXPECT_EQ(SetType(top + "/file", "TEXTttxt"), noErr);
        const FSRef file = RefTo(top + "/file");
        EXPECT_EQ(MakeResourceFork(file), noErr);
        EXPECT_EQ(WriteWhole(file, true, "resources"), noErr);
        WriteFile(top + "/inner/empty", "");
        fs::create_symlink("file", top + "/link");
    }

    PrivateMounts mounts;
    const std::string volume = "/Volumes/Kind";
    bool hasAttributes = false;
};

TEST_P(EveryKind, Handles_WriteReadSeekAndCut) {
    const auto path = Wide(volume + "/made");
    OpacTavFSRef* const file = Tav0FSRCreateWithPath(path.c_str());
    const int32_t handle = TavFileCreateExt(file, TAV_FILE_READ | TAV_FILE_WRITE);
    ASSERT_NE(handle, -1);
    uint32_t count = 0;
    const std::string bytes(100000, 'x');
    EXPECT_EQ(TavFileWriteExt(handle, bytes.data(), static_cast<uint32_t>(bytes.size()), &count), 1);
    EXPECT_EQ(count, bytes.size());
    EXPECT_EQ(TavFileSetFileSizeExt(handle, 70000), 1);
    int64_t size = 0;
    EXPECT_EQ(TavFileGetFileSizeExt(handle, &size), 1);
    EXPECT_EQ(size, 70000);
    char end[10];
    EXPECT_NE(TavFileSetPointerExt(handle, -4, nullptr, TAV_FILE_END), 0);
    EXPECT_EQ(TavFileReadExt(handle, end, sizeof end, &count), 1);
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(TavFileCloseExt(handle), 0);
    EXPECT_EQ(fs::file_size(volume + "/made"), 70000u);
    EXPECT_EQ(TavFileDeleteExt(file), 1);
    Tav0FSRRelease(file);
    EXPECT_TRUE(fs::is_empty(volume) || fs::exists(volume + "/lost+found"));
}

// In an attribute where there are any, else in the sidecar.
TEST_P(EveryKind, Metadata_IsKeptWhereTheVolumeCanKeepIt) {
    const std::string path = volume + "/file";
    WriteFile(path, "content");
    ASSERT_EQ(SetType(path, "TEXTttxt"), noErr);
    EXPECT_EQ(SetLock(path, true), noErr);
    EXPECT_EQ(GetType(path), "TEXTttxt");
    EXPECT_TRUE(GetLock(path));
    EXPECT_EQ(HasAttribute(path), hasAttributes);
    EXPECT_EQ(Exists(SidecarOf(path)), !hasAttributes);
    const FSRef ref = RefTo(path);
    EXPECT_EQ(FSDeleteObject(&ref), fLckdErr);
    EXPECT_EQ(SetLock(path, false), noErr);
    EXPECT_EQ(ReadFile(path), "content");
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_FALSE(Exists(SidecarOf(path)));
}

TEST_P(EveryKind, Copy_BringsDataResourcesTypesAndLinks) {
    MakeTree(volume + "/tree");
    const timespec old[2] = {{1'000'000'001, 123'456'789}, {1'000'000'003, 987'654'321}};
    ASSERT_EQ(utimensat(AT_FDCWD, (volume + "/tree/file").c_str(), old, 0), 0);
    ASSERT_EQ(TavCopyFile(Wide(volume + "/tree").c_str(), Wide(volume + "/copy/tree").c_str(), 1), 0);
    fs::create_directory(volume + "/copy");
    ASSERT_EQ(TavCopyFile(Wide(volume + "/tree").c_str(), Wide(volume + "/copy/tree").c_str(), 1), 1);
    const std::string copy = volume + "/copy/tree";
    EXPECT_EQ(ReadFile(copy + "/file"), "content");
    EXPECT_EQ(GetType(copy + "/file"), "TEXTttxt");
    EXPECT_EQ(ReadWhole(RefTo(copy + "/file"), true), "resources");
    EXPECT_TRUE(fs::exists(copy + "/inner/empty"));
    EXPECT_EQ(fs::read_symlink(copy + "/link"), "file");
    const timespec date = StatusOf(volume + "/tree/file").st_mtim, copied = StatusOf(copy + "/file").st_mtim;
    EXPECT_EQ(copied.tv_sec, date.tv_sec);
    EXPECT_NEAR(copied.tv_nsec, date.tv_nsec, 1e9 / 65536); // what a date of the platform can tell
}

TEST_P(EveryKind, CopyOfAFileOntoItself_KeepsIt) {
    MakeTree(volume + "/tree");
    fs::create_directory_symlink("tree", volume + "/way");
    for (const char* name : {"/tree/file", "/tree/../tree/file", "/way/file"}) {
        EXPECT_EQ(TavCopyFile(Wide(volume + name).c_str(), Wide(volume + "/tree/file").c_str(), 0), 1)
            << name;
        EXPECT_EQ(ReadFile(volume + "/tree/file"), "content");
        EXPECT_EQ(GetType(volume + "/tree/file"), "TEXTttxt");
        EXPECT_EQ(ReadWhole(RefTo(volume + "/tree/file"), true), "resources");
    }
    EXPECT_EQ(NamesBehindFirst(volume + "/tree/*").size(), 3u);
}

// A reference stands for what had the name when it was made, not for what had gone from there before.
TEST_P(EveryKind, FileInPlaceOfARenamedOne_IsNotTheRenamedOne) {
    WriteFile(volume + "/f", "kept");
    const FSRef first = RefTo(volume + "/f");
    const HFSUniStr255 kept = Name(u"kept");
    ASSERT_EQ(FSRenameUnicode(&first, kept.length, kept.unicode, kTextEncodingUnknown, nullptr), noErr);
    WriteFile(volume + "/f", "second");
    const FSRef second = RefTo(volume + "/f");
    fs::remove(volume + "/f");
    EXPECT_EQ(FSDeleteObject(&second), fnfErr);
    EXPECT_EQ(ReadFile(volume + "/kept"), "kept");
}

// What is in a folder that others have put away stays as it is, however often the library had been in it.
TEST_P(EveryKind, FolderInPlaceOfARenamedOne_IsNotTheRenamedOne) {
    WriteFile(volume + "/new", "new");
    for (const char* name : {"/docs", "/tree", "/tree/sub"}) {
        fs::create_directory(volume + name);
        WriteFile(volume + name + "/report", "old");
    }
    const std::u16string source = Wide(volume + "/new");
    ASSERT_EQ(TavCopyFile(source.c_str(), Wide(volume + "/docs/other").c_str(), 1), 1);
    ASSERT_EQ(TavCopyFile(source.c_str(), Wide(volume + "/tree/sub/other").c_str(), 1), 1);
    const FSRef tree = RefTo(volume + "/tree");
    for (const auto& [from, to] : {std::pair("/docs", "/archive"), std::pair("/tree/sub", "/away")}) {
        fs::rename(volume + from, volume + to);
        fs::create_directory(volume + from);
    }
    WriteFile(volume + "/docs/report", "young");
    EXPECT_EQ(TavCopyFile(source.c_str(), Wide(volume + "/docs/report").c_str(), 0), 1);
    EXPECT_EQ(ReadFile(volume + "/docs/report"), "new");
    EXPECT_EQ(ReadFile(volume + "/archive/report"), "old");

    EXPECT_EQ(FSDeleteObjects(&tree), noErr);
    EXPECT_FALSE(fs::exists(volume + "/tree"));
    EXPECT_EQ(ReadFile(volume + "/away/report"), "old");
    EXPECT_EQ(ReadFile(volume + "/away/other"), "new");
}

TEST_P(EveryKind, FolderMadeAnew_CanBeCopiedInto) {
    WriteFile(volume + "/new", "new");
    const std::u16string source = Wide(volume + "/new"), target = Wide(volume + "/sub/copy");
    for (int round = 0; round < 3; ++round) {
        fs::create_directory(volume + "/sub");
        EXPECT_EQ(TavCopyFile(source.c_str(), target.c_str(), 1), 1) << round;
        EXPECT_EQ(ReadFile(volume + "/sub/copy"), "new");
        fs::remove_all(volume + "/sub");
    }
}

TEST_P(EveryKind, Listing_ShowsEveryEntryOnceAndNoSidecars) {
    MakeTree(volume + "/tree");
    const std::vector<std::string> names = NamesBehindFirst(volume + "/tree/*");
    std::set<std::string> all(names.begin(), names.end());
    for (const FoundItem& item : FindAll(volume + "/tree/*")) all.insert(Narrow(item.name()));
    EXPECT_EQ(all.count("file") + all.count("inner") + all.count("link"), 3u);
    EXPECT_EQ(all.count("._file"), 0u);
    const FSRef tree = RefTo(volume + "/tree");
    EXPECT_EQ(GetInfo(tree, kFSCatInfoValence).valence, 3u);
}

TEST_P(EveryKind, MovingAndRenaming_TakeResourcesAlongAndReplaceNothing) {
    MakeTree(volume + "/tree");
    const FSRef file = RefTo(volume + "/tree/file"), inner = RefTo(volume + "/tree/inner");
    const HFSUniStr255 taken = Name(u"inner"), fresh = Name(u"other");
    FSRef renamed, moved;
    EXPECT_EQ(FSRenameUnicode(&file, taken.length, taken.unicode, kTextEncodingUnknown, &renamed), dupFNErr);
    ASSERT_EQ(FSRenameUnicode(&file, fresh.length, fresh.unicode, kTextEncodingUnknown, &renamed), noErr);
    ASSERT_EQ(FSMoveObject(&renamed, &inner, &moved), noErr);
    EXPECT_EQ(ReadWhole(RefTo(volume + "/tree/inner/other"), true), "resources");
    EXPECT_EQ(GetType(volume + "/tree/inner/other"), "TEXTttxt");
    EXPECT_FALSE(Exists(volume + "/tree/._file"));
}

TEST_P(EveryKind, Delete_LeavesNothing) {
    MakeTree(volume + "/tree");
    EXPECT_EQ(SetLock(volume + "/tree/file", true), noErr);
    const FSRef tree = RefTo(volume + "/tree");
    EXPECT_EQ(FSDeleteObjects(&tree), noErr);
    EXPECT_FALSE(Exists(volume + "/tree"));
}

template <const char* Type>
std::string MountImage(PrivateMounts& mounts, const std::string& folder) {
    return mounts.MountImage(folder, Type);
}
constexpr char kExt4[] = "ext4", kXfs[] = "xfs", kBtrfs[] = "btrfs";

INSTANTIATE_TEST_SUITE_P(
    FileSystem, EveryKind,
    testing::Values(Kind{"Ext4", MountImage<kExt4>}, Kind{"Xfs", MountImage<kXfs>},
                    Kind{"Btrfs", MountImage<kBtrfs>},
                    Kind{"Memory", [](PrivateMounts& mounts,
                                      const std::string& folder) { return mounts.MountTmpfs(folder); }},
                    Kind{"Overlay", [](PrivateMounts& mounts,
                                       const std::string& folder) { return mounts.MountOverlay(folder); }},
                    Kind{"FuseWithoutAttributes",
                         [](PrivateMounts& mounts, const std::string& folder) {
                             return mounts.MountWithoutAttributes(folder);
                         }}),
    [](const auto& param) { return param.param.name; });

} // namespace
