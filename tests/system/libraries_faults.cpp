#include "TavPort.h"

#include "support/faults.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

const std::filesystem::path kModule = std::filesystem::path(TAVPORT_TEST_MODULES) / "good.so";

// Loads a module with each of those calls failing in turn: null or a module, never a crash, and nothing is left open.
// How many failed.
unsigned LoadWhileFailing(const std::string& calls, const std::string& place) {
    const std::u16string path = Wide(place);
    OpacTavLibrary* library = nullptr;
    TavProc answer = nullptr;
    return faults::FailEachCall({
        .fault = {.operation = calls},
        .scenario =
            [&] {
                library = TavLoadLibrary(path.c_str());
                answer = TavGetProcAddress(library, "ModuleAnswer");
            },
        .check =
            [&](const std::string& failed) {
                if (failed.empty()) {
                    EXPECT_NE(answer, nullptr);
                }
                if (!library) {
                    EXPECT_EQ(answer, nullptr);
                }
                TavFreeLibrary(library);
            },
    });
}

} // namespace

TEST(TavLoadLibrary, EachCallFails_GivesNullOrAModule) {
    TemporaryFolder folder;
    std::filesystem::copy_file(kModule, folder / "plug.so");
    EXPECT_GT(LoadWhileFailing("seam", folder / "plug.so"), 5u);
}

TEST(TavLoadLibrary, EachBlockRefused_GivesNullOrAModule) {
    TemporaryFolder folder;
    const std::string contents = folder / "A bundle whose path no short string holds.bundle/Contents";
    std::filesystem::create_directories(contents + "/MacOS");
    std::filesystem::copy_file(kModule, contents + "/MacOS/Code & more, in a rather long name");
    WriteFile(
        contents + "/Info.plist",
        "<dict><key>CFBundleExecutable</key><string>Code &amp; more, in a rather long name</string></dict>");
    EXPECT_GT(LoadWhileFailing("memory", std::filesystem::path(contents).parent_path()), 20u);
}
