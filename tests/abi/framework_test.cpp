// The framework as it lies in the build folder, and an application bundle that carries it.
#include "support/files.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>

namespace fs = std::filesystem;

static const fs::path kFramework = TAVPORT_FRAMEWORK;
static const fs::path kBundle = TAVPORT_CLIENT_BUNDLE;

// What a shell command prints; its exit status goes into `status`.
static std::string Output(const std::string& command, int& status) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return {};
    std::array<char, 4096> buffer;
    for (size_t count; (count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        text.append(buffer.data(), count);
    int ended = pclose(pipe);
    status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
    return text;
}

static std::string Dynamic(const fs::path& file) {
    int status;
    return Output("readelf -W -d '" + file.string() + "'", status);
}

TEST(Framework, TopLevelLinks_LeadThroughTheCurrentVersion) {
    EXPECT_EQ(fs::read_symlink(kFramework / "Versions/Current"), "A");
    EXPECT_EQ(fs::read_symlink(kFramework / "TavPort"), "Versions/Current/TavPort");
    EXPECT_EQ(fs::read_symlink(kFramework / "Headers"), "Versions/Current/Headers");
    EXPECT_EQ(fs::read_symlink(kFramework / "Resources"), "Versions/Current/Resources");
    EXPECT_TRUE(fs::is_regular_file(kFramework / "TavPort"));
}

TEST(Framework, Header_IsTheExportedOne) {
    EXPECT_EQ(ReadFile((kFramework / "Headers/TavPort.h").string()), ReadFile(TAVPORT_HEADER));
}

TEST(Framework, PropertyList_NamesTheLibrary) {
    std::string list = ReadFile((kFramework / "Resources/Info.plist").string());
    auto value = [&](const std::string& key) {
        size_t at = list.find("<key>" + key + "</key>");
        if (at == std::string::npos) return std::string("no key");
        at = list.find("<string>", at) + 8;
        return list.substr(at, list.find("</string>", at) - at);
    };
    EXPECT_EQ(value("CFBundleExecutable"), "TavPort");
    EXPECT_EQ(value("CFBundleName"), "TavPort");
    EXPECT_EQ(value("CFBundlePackageType"), "FMWK");
    EXPECT_EQ(value("CFBundleShortVersionString"), TAVPORT_VERSION);
    EXPECT_EQ(value("CFBundleVersion"), TAVPORT_VERSION);
    EXPECT_NE(value("CFBundleIdentifier"), "no key");
}

TEST(Framework, Library_AsksForNoWritableCodeOrExecutableStack) {
    int status;
    std::string headers = Output("readelf -W -l '" + (kFramework / "TavPort").string() + "'", status);
    ASSERT_NE(headers.find("GNU_STACK"), std::string::npos);
    std::string stack = headers.substr(headers.find("GNU_STACK"));
    EXPECT_EQ(stack.substr(0, stack.find('\n')).find("RWE"), std::string::npos);
    EXPECT_EQ(Dynamic(kFramework / "TavPort").find("TEXTREL"), std::string::npos);
}

TEST(Bundle, RunPath_IsRelativeToTheProgram) {
    std::string dynamic = Dynamic(kBundle / "Contents/MacOS/abi_client");
    EXPECT_NE(dynamic.find("$ORIGIN/../Frameworks/TavPort.framework/Versions/A"), std::string::npos)
        << dynamic;
    EXPECT_EQ(dynamic.find(kFramework.parent_path().string()), std::string::npos) << dynamic;
    EXPECT_NE(dynamic.find("[TavPort]"), std::string::npos) << dynamic;
}

TEST(Bundle, MovedElsewhere_FindsItsOwnFramework) {
    TemporaryFolder folder;
    fs::path moved = folder / "Moved There.app";
    fs::copy(kBundle, moved, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    int status = -1;
    std::string program = TAVPORT_EMULATOR " '" + (moved / "Contents/MacOS/abi_client").string() + "'";
    EXPECT_EQ(Output(program, status), "6\n");
    EXPECT_EQ(status, 0);
    fs::remove(moved / "Contents/Frameworks/TavPort.framework/Versions/A/TavPort");
    Output(program + " 2>/dev/null", status);
    EXPECT_NE(status, 0);
}
