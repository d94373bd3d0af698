#include "TavPort.h"

#include "support/faults.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <filesystem>

// Every call of loading a module failing in turn: null or a module, never a crash, and nothing is left open.
TEST(TavLoadLibrary, EachCallFails_GivesNullOrAModule) {
    TemporaryFolder folder;
    std::filesystem::copy_file(std::filesystem::path(TAVPORT_TEST_MODULES) / "good.so", folder / "plug.so");
    const std::u16string path = Wide(folder / "plug.so");
    OpacTavLibrary* library = nullptr;
    TavProc answer = nullptr;
    unsigned runs = faults::FailEachCall({
        .fault = {.operation = "seam"},
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
    EXPECT_GT(runs, 5u);
}
