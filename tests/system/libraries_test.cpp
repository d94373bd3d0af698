#include "TavPort.h"

#include "support/files.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

const std::string kModules = TAVPORT_TEST_MODULES;

class LibrariesTest : public testing::Test {
protected:
    // A module file under another name in the test's own folder.
    std::string Place(const std::string& name, const std::string& module = "good") {
        std::string path = folder / name;
        fs::create_directories(fs::path(path).parent_path());
        fs::copy_file(kModules + "/" + module + ".so", path);
        return path;
    }
    static OpacTavLibrary* Load(const std::string& name) { return TavLoadLibrary(Wide(name).c_str()); }
    // What the function of a loaded module says; -1 when there is none. Frees the module.
    static int AnswerOf(OpacTavLibrary* library) {
        auto answer = reinterpret_cast<int (*)()>(TavGetProcAddress(library, "ModuleAnswer"));
        int result = answer ? answer() : -1;
        TavFreeLibrary(library);
        return result;
    }
    static bool IsLoaded() { return getenv("TAVPORT_TEST_MODULE") != nullptr; }

    TemporaryFolder folder;
};

// A folder called Contents beside the running program, which is in no bundle.
class ApplicationContents {
public:
    ApplicationContents() : path_(fs::read_symlink("/proc/self/exe").parent_path() / "Contents") {
        fs::create_directories(path_);
    }
    ~ApplicationContents() { fs::remove_all(path_); }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    fs::path path_;
};

} // namespace

TEST_F(LibrariesTest, SharedObjectFileIsLoaded) {
    EXPECT_EQ(AnswerOf(Load(Place("plug.so"))), 42);
}

TEST_F(LibrariesTest, BundleIsLoadedByTheNameOfItsFolder) {
    Place("Plug.bundle/Contents/MacOS/Plug");
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.bundle")), 42);
}

TEST_F(LibrariesTest, BundleIsLoadedByTheExecutableOfItsPropertyList) {
    Place("Plug.bundle/Contents/MacOS/Real & Code");
    WriteFile(folder / "Plug.bundle/Contents/Info.plist",
              "<plist><dict>\n<key>CFBundleName</key><string>no</string>\n"
              "<key>CFBundleExecutable</key>\n\t<string>Real &amp; Code</string></dict></plist>");
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.bundle")), 42);
}

TEST_F(LibrariesTest, PropertyListWithAPathAsExecutableIsNotFollowed) {
    Place("elsewhere");
    Place("Plug.bundle/Contents/MacOS/Plug");
    WriteFile(folder / "Plug.bundle/Contents/Info.plist",
              "<key>CFBundleExecutable</key><string>../../../elsewhere</string>");
    OpacTavLibrary* library = Load(folder / "Plug.bundle");
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(AnswerOf(library), 42); // of Plug, by the folder's name
    fs::remove(folder / "Plug.bundle/Contents/MacOS/Plug");
    EXPECT_EQ(Load(folder / "Plug.bundle"), nullptr);
}

TEST_F(LibrariesTest, FrameworkIsLoaded) {
    Place("Plug.framework/Versions/A/Plug");
    fs::create_directory_symlink("A", folder / "Plug.framework/Versions/Current");
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.framework")), 42);
}

TEST_F(LibrariesTest, NamesAreFoundInAnotherLetterCase) {
    Place("Upper.SO");
    EXPECT_EQ(AnswerOf(Load(folder / "upper.so")), 42);
    Place("Mixed.bundle/contents/MacOS/Mixed");
    EXPECT_EQ(AnswerOf(Load(folder / "MIXED.BUNDLE")), 42);
}

TEST_F(LibrariesTest, NameInsideTheApplicationWinsOverThePath) {
    ApplicationContents contents;
    fs::copy_file(kModules + "/good.so", contents / "plug.so");
    WriteFile(folder / "plug.so", "no module");
    fs::current_path(folder.path());
    EXPECT_EQ(AnswerOf(Load("plug.so")), 42);
    fs::remove(contents / "plug.so");
    EXPECT_EQ(AnswerOf(Load("plug.so")), -1);
}

TEST_F(LibrariesTest, NameWithoutASlashIsAPathAndNotSearchedFor) {
    EXPECT_EQ(Load("libc.so.6"), nullptr);
    Place("plug.so");
    fs::current_path(folder.path());
    EXPECT_EQ(AnswerOf(Load("plug.so")), 42);
}

TEST_F(LibrariesTest, NamesWithDotDotArePaths) {
    Place("plug.so");
    fs::create_directory(folder / "sub");
    EXPECT_EQ(AnswerOf(Load(folder / "sub/../plug.so")), 42);
    EXPECT_EQ(Load("../../../../../../../../nothing/here.so"), nullptr);
}

TEST_F(LibrariesTest, NameOfNothingIsNull) {
    EXPECT_EQ(Load(folder / "missing.so"), nullptr);
    EXPECT_EQ(Load(""), nullptr);
    EXPECT_EQ(TavLoadLibrary(nullptr), nullptr);
}

TEST_F(LibrariesTest, FolderWithoutCodeIsNoModule) {
    fs::create_directories(folder / "Empty.bundle/Contents/MacOS");
    EXPECT_EQ(Load(folder / "Empty.bundle"), nullptr);
}

TEST_F(LibrariesTest, PipeIsNoModuleAndIsNotOpened) {
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Load(folder / "pipe"), nullptr);
}

TEST_F(LibrariesTest, ModuleWhoseCodeCannotBeLoadedIsReturnedWithoutFunctions) {
    WriteFile(folder / "text.so", "this is no module");
    WriteFile(folder / "empty.so", "");
    for (const std::string& path :
         {folder / "text.so", folder / "empty.so", Place("u.so", "unresolved"), Place("o.so", "orphan")}) {
        OpacTavLibrary* library = Load(path);
        ASSERT_NE(library, nullptr) << path;
        EXPECT_EQ(AnswerOf(library), -1) << path;
    }
}

TEST_F(LibrariesTest, MissingSymbolIsNull) {
    OpacTavLibrary* library = Load(Place("plug.so"));
    EXPECT_EQ(TavGetProcAddress(library, "Nothing"), nullptr);
    EXPECT_EQ(TavGetProcAddress(library, ""), nullptr);
    EXPECT_EQ(TavGetProcAddress(library, nullptr), nullptr);
    EXPECT_EQ(TavGetProcAddress(library, "\xE9\x80"), nullptr);
    TavFreeLibrary(library);
}

TEST_F(LibrariesTest, NullHandleHasNoFunctionsAndIsFreed) {
    EXPECT_EQ(TavGetProcAddress(nullptr, "ModuleAnswer"), nullptr);
    EXPECT_EQ(TavFreeLibrary(nullptr), 1);
}

TEST_F(LibrariesTest, CodeIsLoadedAtOnceAndUnloadedWithTheLastRelease) {
    std::string path = Place("plug.so");
    ASSERT_FALSE(IsLoaded());
    OpacTavLibrary* first = Load(path);
    EXPECT_TRUE(IsLoaded());
    OpacTavLibrary* second = Load(path);
    EXPECT_EQ(first, second);
    EXPECT_EQ(TavFreeLibrary(first), 1);
    EXPECT_TRUE(IsLoaded());
    EXPECT_EQ(AnswerOf(second), 42);
    EXPECT_FALSE(IsLoaded());
}
