#include "TavPort.h"

#include "support/files.h"
#include "support/processes.h"
#include "support/users.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

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

// Loading from a program of its own, which stands where the test puts it.
class ApplicationTest : public LibrariesTest {
protected:
    std::string PlaceProgram(const std::string& name) {
        std::string path = folder / name;
        fs::create_directories(fs::path(path).parent_path());
        fs::copy_file(kModules + "/module_loader", path);
        return path;
    }
    // What the module's function says to the program, which runs in the test's folder; 1 when there is no
    // module, 2 when it has no such function.
    int AnswerTo(const std::string& program, const std::string& module) {
        fs::current_path(folder.path());
        std::string command = TAVPORT_EMULATOR " '" + program + "' '" + module + "'";
        int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

} // namespace

TEST_F(LibrariesTest, SharedObjectFileIsLoaded) {
    EXPECT_EQ(AnswerOf(Load(Place("plug.so"))), 42);
}

TEST_F(LibrariesTest, BundleIsLoadedByTheNameOfItsFolder) {
    Place("Plug.bundle/Contents/MacOS/Plug");
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.bundle")), 42);
    Place(".bundle/Contents/MacOS/.bundle");
    EXPECT_EQ(AnswerOf(Load(folder / ".bundle")), 42);
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
              "<dict><key>CFBundleExecutable</key><string>../../../elsewhere</string></dict>");
    OpacTavLibrary* library = Load(folder / "Plug.bundle");
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(AnswerOf(library), 42); // of Plug, by the folder's name
    fs::remove(folder / "Plug.bundle/Contents/MacOS/Plug");
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.bundle")), -1);
}

TEST_F(LibrariesTest, CommentInAPropertyListIsNotRead) {
    Place("Plug.bundle/Contents/MacOS/Real");
    WriteFile(folder / "Plug.bundle/Contents/Info.plist",
              "<plist><dict><!-- <key>CFBundleExecutable</key><string>Old</string> -->"
              "<key>CFBundleExecutable</key><!-- now --><string>Real</string></dict></plist>");
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.bundle")), 42);
}

TEST_F(LibrariesTest, FrameworkIsLoadedByTheExecutableOfItsPropertyList) {
    const std::string list = "<plist><dict><key>CFBundleExecutable</key><string>Code</string></dict></plist>";
    Place("Plug.framework/Versions/A/Code");
    fs::create_directory_symlink("A", folder / "Plug.framework/Versions/Current");
    fs::create_directory(folder / "Plug.framework/Versions/A/Resources");
    WriteFile(folder / "Plug.framework/Versions/A/Resources/Info.plist", list);
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.framework")), 42);
    Place("Flat.framework/Code");
    fs::create_directory(folder / "Flat.framework/Resources");
    WriteFile(folder / "Flat.framework/Resources/Info.plist", list);
    EXPECT_EQ(AnswerOf(Load(folder / "Flat.framework")), 42);
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

TEST_F(LibrariesTest, InnerNamesAreFoundInAnotherLetterCase) {
    Place("Plug.bundle/CONTENTS/macos/PLUG");
    EXPECT_EQ(AnswerOf(Load(folder / "Plug.bundle")), 42);
}

TEST_F(ApplicationTest, NameInsideTheApplicationWinsOverThePath) {
    std::string program = PlaceProgram("App.app/Contents/MacOS/App");
    Place("App.app/Contents/PlugIns/plug.so");
    fs::create_directory(folder / "PlugIns");
    WriteFile(folder / "PlugIns/plug.so", "no module");
    EXPECT_EQ(AnswerTo(program, "PlugIns/plug.so"), 42);
    fs::remove(folder / "App.app/Contents/PlugIns/plug.so");
    EXPECT_EQ(AnswerTo(program, "PlugIns/plug.so"), 2);
    fs::remove(folder / "PlugIns/plug.so");
    EXPECT_EQ(AnswerTo(program, "PlugIns/plug.so"), 1);
}

TEST_F(ApplicationTest, InnerFoldersInAnotherLetterCaseAreFound) {
    const std::string program = PlaceProgram("App.app/contents/macos/App");
    Place("App.app/contents/PlugIns/plug.so");
    EXPECT_EQ(AnswerTo(program, "PlugIns/plug.so"), 42);
}

TEST_F(ApplicationTest, AbsoluteNameInsideTheApplicationWinsOverThePath) {
    const std::string program = PlaceProgram("App.app/Contents/MacOS/App"), outer = folder / "x/plug.so";
    fs::create_directory(folder / "x");
    WriteFile(outer, "no module");
    Place("App.app/Contents" + outer);
    EXPECT_EQ(AnswerTo(program, outer), 42);
    fs::remove(folder / ("App.app/Contents" + outer));
    EXPECT_EQ(AnswerTo(program, outer), 2);
}

TEST_F(ApplicationTest, BundleInsideTheApplicationWinsEvenWithoutCode) {
    std::string program = PlaceProgram("App.app/Contents/MacOS/App");
    fs::create_directories(folder / "App.app/Contents/Plug.bundle/Contents");
    WriteFile(folder / "App.app/Contents/Plug.bundle/Contents/Info.plist", "<plist><dict/></plist>");
    Place("Plug.bundle/Contents/MacOS/Plug");
    EXPECT_EQ(AnswerTo(program, "Plug.bundle"), 2);
}

TEST_F(ApplicationTest, ProgramInNoBundleHasItsOwnFolderForOne) {
    std::string program = PlaceProgram("tools/MacOS/app");
    Place("tools/MacOS/CONTENTS/plug.so");
    EXPECT_EQ(AnswerTo(program, "plug.so"), 42);
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

TEST_F(LibrariesTest, FolderWithNeitherCodeNorPropertyListIsNoModule) {
    fs::create_directories(folder / "Empty.bundle/Contents/MacOS");
    EXPECT_EQ(Load(folder / "Empty.bundle"), nullptr);
}

TEST_F(LibrariesTest, BundleWithAPropertyListOnlyIsReturnedWithoutFunctions) {
    for (std::string name :
         {"A.bundle/Contents", "B.framework/Versions/Current/Resources", "C.framework/Resources"}) {
        fs::create_directories(folder / name);
        WriteFile(folder / (name + "/Info.plist"),
                  "<dict><key>CFBundleExecutable</key><string>Missing</string></dict>");
        OpacTavLibrary* library = Load(folder / name.substr(0, name.find('/')));
        ASSERT_NE(library, nullptr) << name;
        EXPECT_EQ(AnswerOf(library), -1) << name;
    }
}

TEST_F(LibrariesTest, UnreadableModuleIsReturnedWithoutFunctions) {
    if (!CanBecomeAnotherUser()) GTEST_SKIP() << "becoming another user needs root";
    fs::permissions(folder.path(), fs::perms::all);
    fs::permissions(Place("plug.so"), fs::perms::none);
    fs::permissions(Place("Plug.bundle/Contents/MacOS/Plug"), fs::perms::none);
    EXPECT_TRUE(AsAnotherUser([&] {
        OpacTavLibrary* file = Load(folder / "plug.so");
        OpacTavLibrary* bundle = Load(folder / "Plug.bundle");
        return file && AnswerOf(file) == -1 && bundle && AnswerOf(bundle) == -1;
    }));
}

TEST_F(LibrariesTest, UnreadableFolderHoldsNoModule) {
    if (!CanBecomeAnotherUser()) GTEST_SKIP() << "becoming another user needs root";
    Place("Shut.bundle/Contents/MacOS/Shut");
    Place("Inner.bundle/Contents/MacOS/Inner");
    fs::permissions(folder.path(), fs::perms::all);
    fs::permissions(folder / "Shut.bundle", fs::perms::none);
    fs::permissions(folder / "Inner.bundle/Contents", fs::perms::none);
    EXPECT_TRUE(
        AsAnotherUser([&] { return !Load(folder / "Shut.bundle") && !Load(folder / "Inner.bundle"); }));
}

TEST_F(LibrariesTest, UnreadablePropertyListNamesNothing) {
    if (!CanBecomeAnotherUser()) GTEST_SKIP() << "becoming another user needs root";
    fs::permissions(folder.path(), fs::perms::all);
    Place("Plug.bundle/Contents/MacOS/Plug");
    WriteFile(folder / "Plug.bundle/Contents/Info.plist",
              "<dict><key>CFBundleExecutable</key><string>Other</string></dict>");
    fs::permissions(folder / "Plug.bundle/Contents/Info.plist", fs::perms::none);
    EXPECT_TRUE(AsAnotherUser([&] { return AnswerOf(Load(folder / "Plug.bundle")) == 42; }));
}

// In a process of its own, because the loader stays as the exception left it.
TEST_F(LibrariesTest, ModuleWhoseInitialiserThrowsNeverHasFunctions) {
    const std::string path = Place("plug.so", "throwing");
    EXPECT_TRUE(InChild([&] {
        OpacTavLibrary* first = Load(path);
        bool withoutFunctions = first && !TavGetProcAddress(first, "ModuleAnswer");
        OpacTavLibrary* second = Load(path);
        bool shared = first == second && AnswerOf(second) == -1 && TavFreeLibrary(first) == 1;
        return withoutFunctions && shared && AnswerOf(Load(path)) == -1;
    }));
}

TEST_F(LibrariesTest, ModuleWhoseInitialiserEndsTheThreadEndsItInOrder) {
    const std::string path = Place("plug.so", "throwing");
    EXPECT_TRUE(InChild([&] {
        setenv("TAVPORT_TEST_END_THREAD", "1", 1);
        bool loaded = false, unwound = false;
        std::thread([&] {
            struct Unwound {
                bool& flag;
                ~Unwound() { flag = true; }
            } watch{unwound};
            Load(path);
            loaded = true;
        }).join();
        return unwound && !loaded;
    }));
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

TEST_F(LibrariesTest, SymbolIsMacRoman) {
    OpacTavLibrary* library = Load(Place("plug.so"));
    auto answer = reinterpret_cast<int (*)()>(TavGetProcAddress(library, "caf\x8E"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 43);
    EXPECT_EQ(TavGetProcAddress(library, "caf\xC3\xA9"), nullptr);
    TavFreeLibrary(library);
}

TEST_F(LibrariesTest, SymbolsOfOtherLibrariesAreNotTheModules) {
    OpacTavLibrary* library = Load(Place("plug.so"));
    for (const char* symbol : {"setenv", "malloc", "puts", "_ZSt4cout"})
        EXPECT_EQ(TavGetProcAddress(library, symbol), nullptr) << symbol;
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

TEST_F(LibrariesTest, EverySpellingOfAPlaceGivesTheSameModule) {
    Place("Plug.bundle/Contents/MacOS/Plug");
    fs::create_directory(folder / "sub");
    fs::create_directory_symlink("Plug.bundle", folder / "Linked.bundle");
    fs::create_directory_symlink(".", folder / "here");
    fs::current_path(folder.path());
    OpacTavLibrary* library = Load(folder / "Plug.bundle");
    ASSERT_NE(library, nullptr);
    for (const std::string& name :
         {folder / "plug.BUNDLE", folder / "sub/../Plug.bundle", folder / "here/Plug.bundle",
          folder / "Linked.bundle", folder / "Plug.bundle/", std::string("Plug.bundle"),
          std::string("./sub/../PLUG.bundle")}) {
        EXPECT_EQ(Load(name), library) << name;
        TavFreeLibrary(library);
    }
    EXPECT_EQ(AnswerOf(library), 42);
    EXPECT_FALSE(IsLoaded());
}

TEST_F(LibrariesTest, ModuleIsLoadedThroughALinkUnderItsOwnName) {
    fs::create_symlink(Place("lib.so.1"), folder / "plug.so");
    OpacTavLibrary* library = Load(folder / "plug.so");
    OpacTavLibrary* same = Load(folder / "lib.so.1");
    EXPECT_EQ(library, same);
    TavFreeLibrary(same);
    EXPECT_EQ(AnswerOf(library), 42);
}
