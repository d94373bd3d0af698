#include "TavPort.h"
#include "support/files.h"
#include "support/users.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

static int32_t IsDirectory(const std::string& path) {
    return TavPathIsDirectory(Wide(path).c_str());
}
static int32_t Exists(const std::string& path) {
    return TavPathFileExists(Wide(path).c_str());
}

// An existing folder whose path has exactly `length` bytes.
static std::string FolderOfLength(const TemporaryFolder& folder, size_t length) {
    std::string path = folder.path().string();
    while (path.size() < length) {
        size_t more = std::min<size_t>(length - path.size() - 1, 200);
        if (length - path.size() - 1 - more == 1) --more; // the rest must hold a "/" and a name
        path += "/" + std::string(more, 'd');
    }
    fs::create_directories(path);
    return path;
}

TEST(TavPathIsDirectory, Folder_IsOne) {
    TemporaryFolder folder;
    EXPECT_EQ(IsDirectory(folder.path()), 1);
    EXPECT_EQ(IsDirectory(folder.path().string() + "/"), 1);
    EXPECT_EQ(IsDirectory("/"), 1);
}

TEST(TavPathIsDirectory, File_IsNone) {
    TemporaryFolder folder;
    WriteFile(folder / "file", "x");
    EXPECT_EQ(IsDirectory(folder / "file"), 0);
}

TEST(TavPathIsDirectory, Package_CountsAsAFile) {
    TemporaryFolder folder;
    fs::create_directory(folder / "Editor.app");
    fs::create_directory(folder / "Editor.framework");
    EXPECT_EQ(IsDirectory(folder / "Editor.app"), 0);
    EXPECT_EQ(IsDirectory(folder / "Editor.framework"), 1);
}

TEST(TavPathIsDirectory, PathThatNamesNothing_IsNone) {
    TemporaryFolder folder;
    EXPECT_EQ(IsDirectory(folder / "missing"), 0);
    EXPECT_EQ(IsDirectory(folder / "missing/"), 0);
    EXPECT_EQ(IsDirectory(""), 0);
    EXPECT_EQ(IsDirectory("."), 0);
    EXPECT_EQ(IsDirectory("tmp"), 0);
}

TEST(TavPathIsDirectory, Link_IsWhatItLeadsTo) {
    TemporaryFolder folder;
    fs::create_directory(folder / "d");
    fs::create_directory(folder / "p.app");
    WriteFile(folder / "f", "");
    fs::create_symlink("d", folder / "to-folder");
    fs::create_symlink("f", folder / "to-file");
    fs::create_symlink("p.app", folder / "to-package");
    fs::create_symlink("missing", folder / "broken");
    fs::create_symlink("circle", folder / "circle");
    EXPECT_EQ(IsDirectory(folder / "to-folder"), 1);
    EXPECT_EQ(IsDirectory(folder / "to-file"), 0);
    EXPECT_EQ(IsDirectory(folder / "to-package"), 0);
    EXPECT_EQ(IsDirectory(folder / "broken"), 0);
    EXPECT_EQ(IsDirectory(folder / "circle"), 0);
}

TEST(TavPathFileExists, FilesAndFolders_Exist) {
    TemporaryFolder folder;
    WriteFile(folder / "file", "");
    fs::create_directory(folder / "p.app");
    EXPECT_EQ(Exists(folder / "file"), 1);
    EXPECT_EQ(Exists(folder / "p.app"), 1);
    EXPECT_EQ(Exists(folder.path()), 1);
    EXPECT_EQ(Exists("/"), 1);
}

TEST(TavPathFileExists, PathThatNamesNothing_DoesNot) {
    TemporaryFolder folder;
    EXPECT_EQ(Exists(folder / "missing"), 0);
    EXPECT_EQ(Exists(folder / "missing/x"), 0);
    EXPECT_EQ(Exists(""), 0);
    EXPECT_EQ(Exists("tmp"), 0);
    EXPECT_EQ(Exists("~"), 0);
}

TEST(TavPathFileExists, PathThroughAFile_DoesNot) {
    TemporaryFolder folder;
    WriteFile(folder / "file", "");
    EXPECT_EQ(Exists(folder / "file/x"), 0);
}

TEST(TavPathFileExists, OtherLetterCase_ExistsWhereThereIsNoDoubt) {
    TemporaryFolder folder;
    WriteFile(folder / "Letter", "");
    WriteFile(folder / "R\u00E9sum\u00E9", "");
    EXPECT_EQ(Exists(folder / "LETTER"), 1);
    EXPECT_EQ(Exists(folder / "r\u00C9SUM\u00C9"), 1);
    WriteFile(folder / "letteR", "");
    EXPECT_EQ(Exists(folder / "LETTER"), 0);
    EXPECT_EQ(Exists(folder / "letteR"), 1);
}

TEST(TavPathFileExists, Link_ExistsWhenItsTargetDoes) {
    TemporaryFolder folder;
    WriteFile(folder / "f", "");
    fs::create_symlink("f", folder / "link");
    fs::create_symlink("missing", folder / "broken");
    fs::create_symlink("b", folder / "a");
    fs::create_symlink("a", folder / "b");
    EXPECT_EQ(Exists(folder / "link"), 1);
    EXPECT_EQ(Exists(folder / "broken"), 0);
    EXPECT_EQ(Exists(folder / "a"), 0);
    EXPECT_EQ(Exists(folder / "a/x"), 0);
}

TEST(TavPathFileExists, Pipe_ExistsAndIsNotOpened) {
    TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Exists(folder / "pipe"), 1);
    EXPECT_EQ(IsDirectory(folder / "pipe"), 0);
}

TEST(TavPathFileExists, NameThatIsNotText_Exists) {
    TemporaryFolder folder;
    WriteFile(folder / "\x80\xFF", "");
    std::u16string path = Wide(folder.path().string()) + u"/\xDC80\xDCFF";
    EXPECT_EQ(TavPathFileExists(path.c_str()), 1);
    path.back() = u'\xDCFE';
    EXPECT_EQ(TavPathFileExists(path.c_str()), 0);
    path.back() = u'\xD800'; // stands for no byte
    EXPECT_EQ(TavPathFileExists(path.c_str()), 0);
}

TEST(TavPathFileExists, LongestNames_Exist) {
    TemporaryFolder folder;
    std::string wide;
    for (int i = 0; i < 85; ++i) wide += "\u65E5";
    for (const std::string& name : {std::string(255, 'n'), wide}) {
        WriteFile(folder / name, "");
        EXPECT_EQ(Exists(folder / name), 1);
        EXPECT_EQ(Exists(folder / (name + "n")), 0);
    }
}

TEST(TavPathFileExists, LongestPath_Has1023Bytes) {
    TemporaryFolder folder;
    EXPECT_EQ(Exists(FolderOfLength(folder, 1023)), 1);
    EXPECT_EQ(IsDirectory(FolderOfLength(folder, 1023)), 1);
    EXPECT_EQ(Exists(FolderOfLength(folder, 1024)), 0);
    EXPECT_EQ(IsDirectory(FolderOfLength(folder, 1024)), 0);
    EXPECT_EQ(Exists(std::string(5000, '/')), 0);
}

TEST(TavPathFileExists, FolderThatMayNotBeSearched_HidesWhatIsInside) {
    if (!CanBecomeAnotherUser()) GTEST_SKIP() << "only the superuser can become another user";
    TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms(0755));
    fs::create_directory(folder / "closed");
    WriteFile(folder / "closed/file", "");
    fs::permissions(folder / "closed", fs::perms(0700));
    EXPECT_EQ(Exists(folder / "closed/file"), 1);
    EXPECT_TRUE(AsAnotherUser([&] { return Exists(folder / "closed/file") == 0; }));
    EXPECT_TRUE(
        AsAnotherUser([&] { return Exists(folder / "closed") == 1 && IsDirectory(folder / "closed") == 1; }));
}
