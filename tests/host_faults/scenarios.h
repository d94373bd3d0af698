// What the scenarios of files share: a tree that is made anew before every run, and results as text.
#pragma once

#include "platform/linux/folders.h"
#include "platform/metadata_support.h"
#include "support/failing_host.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

using host_faults::FailEachCall;
using host_faults::InterruptEachCall;
using host_faults::Outcome;
using host_faults::Scenario;

// A folder with a file, one with Finder information, a resource fork in a sidecar, a folder, and links.
class HostFaults : public testing::Test {
protected:
    HostFaults() {
        scenario.prepare = [this] { MakeTree(); };
        scenario.look = [this] { return host_faults::TreeAt(folder.path()); };
    }

    void MakeTree() {
        namespace fs = std::filesystem;
        for (const auto& entry : fs::directory_iterator(folder.path())) fs::remove_all(entry.path());
        WriteFile(folder / "plain", "some content");
        WriteFile(folder / "typed", "more content");
        EXPECT_EQ(SetType(folder / "typed", "TEXTttxt"), noErr);
        WriteFile(folder / "forked", "data");
        const FSRef forked = RefTo(folder / "forked");
        EXPECT_EQ(MakeResourceFork(forked), noErr);
        EXPECT_EQ(WriteWhole(forked, true, "resources"), noErr);
        fs::create_directories(folder / "sub/inner");
        WriteFile(folder / "sub/inner/leaf", "leaf");
        for (const char* name : {"plain", "typed", "forked", "sub", "sub/inner", "sub/inner/leaf"})
            SetCreationDate(folder / name);
        fs::create_symlink("plain", folder / "link");
        fs::create_directory_symlink("sub", folder / "linked");
        CloseIdleDescriptors(); // so that each run finds its way anew
        MakeMore();
    }
    virtual void MakeMore() {}

    // One that is the same in every run, so that copies are.
    static void SetCreationDate(const std::string& path) {
        FSCatalogInfo info = {};
        info.createDate = DateAt(k1970 + 86400);
        EXPECT_EQ(SetInfo(path, kFSCatInfoCreateDate, info), noErr);
    }

    // Both sweeps; that there was something to sweep.
    void Sweep() {
        EXPECT_GT(InterruptEachCall(scenario), 0u);
        EXPECT_GT(FailEachCall(scenario), 0u);
    }

    TemporaryFolder folder;
    Scenario scenario;
};

// Another program may take away an entry, a sidecar say, at any moment: then it is missing, and that is that.
inline bool SaysGone(const Outcome& outcome) {
    return outcome.failed.ends_with("No such file or directory");
}

inline std::string Told(OSStatus result) {
    return result == noErr ? "done" : "error " + std::to_string(result);
}
