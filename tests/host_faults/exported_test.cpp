// Families that the exported functions make of many operations: copies, trees, searches, drives, threads,
// waits and modules.
#include "host_faults/scenarios.h"

#include "TavPort.h"
#include "copy/recursive_delete.h"

#include <algorithm>
#include <fcntl.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string Said(bool succeeded) {
    return succeeded ? "done" : "error";
}

class ExportedFaults : public HostFaults {};

// ---- Copying

class CopyFaults : public ExportedFaults {
protected:
    // The tree without what copies are made of.
    std::string WithoutCopies() {
        std::istringstream lines(host_faults::TreeAt(folder.path()));
        std::string text;
        for (std::string line; std::getline(lines, line);)
            if (!line.starts_with("/target/")) text += line + "\n";
        return text;
    }

    void CopyTo(const std::string& source, const std::string& target, const char* old) {
        scenario.prepare = [=, this] {
            MakeTree();
            fs::create_directory(folder / "target");
            if (old) WriteFile(folder / target, old);
            before_ = WithoutCopies();
        };
        scenario.act = [=, this] {
            return Said(
                TavCopyFile(Wide(folder / source).c_str(), Wide(folder / target).c_str(), old == nullptr));
        };
        // The source is never touched, and a failure leaves the old target or a whole new one reachable. Facts
        // that could not be copied are missing from a copy; bytes never are.
        scenario.accepts = [=, this](const Outcome& outcome) {
            if (WithoutCopies() != before_) return false;
            const std::string place = Exists(folder / target) ? folder / target : folder / "target/.DeleteMe";
            const std::string expected = ReadFile(folder / source);
            if (!old && Exists(folder / target) && ReadFile(folder / target) != expected) return false;
            if (outcome.result == "done")
                return Exists(folder / target) && ReadFile(folder / target) == expected;
            return !old || (Exists(place) && (ReadFile(place) == old || ReadFile(place) == expected));
        };
    }

    // Copies a file that has an old date, which a copy that is told to be done has, too.
    void CopyDated(uid_t owner) {
        CopyTo("plain", "target/copy", nullptr);
        scenario.prepare = [=, this, prepare = scenario.prepare] {
            prepare();
            const timespec old[2] = {{1'000'000'000, 0}, {1'000'000'000, 5000}};
            ASSERT_EQ(chown((folder / "plain").c_str(), owner, static_cast<gid_t>(-1)), 0);
            ASSERT_EQ(utimensat(AT_FDCWD, (folder / "plain").c_str(), old, 0), 0);
        };
        scenario.look = [&] {
            struct stat copy = {};
            const bool exists = stat((folder / "target/copy").c_str(), &copy) == 0;
            return exists ? std::to_string(copy.st_mtim.tv_sec) + "\n" : "none\n";
        };
        scenario.accepts = [](const Outcome& outcome) {
            return outcome.result == "error" || SaysGone(outcome);
        };
        EXPECT_GT(FailEachCall(scenario), 0u);
    }

    void SetUp() override { scenario.mostWays = 2; }

    std::string before_;
};

TEST_F(CopyFaults, FileWithInformation) {
    CopyTo("typed", "target/copy", nullptr);
    Sweep();
}

TEST_F(CopyFaults, FileWithAResourceFork_NeverLosesItSilently) {
    CopyTo("forked", "target/copy", nullptr);
    const auto accepts = scenario.accepts;
    scenario.accepts = [&, accepts](const Outcome& outcome) {
        return accepts(outcome) &&
               (outcome.result == "error" || SaysGone(outcome) || Exists(folder / "target/._copy"));
    };
    Sweep();
}

TEST_F(CopyFaults, FileWithADate_NeverLosesItSilently) {
    CopyDated(geteuid());
}

TEST_F(CopyFaults, DateOfAnotherOwnersFile_IsNeverLostSilently) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file to another owner";
    CopyDated(12345);
}

TEST_F(CopyFaults, FileOntoAnother_KeepsTheOldOrTheNewOne) {
    CopyTo("forked", "target/forked", "old content");
    Sweep();
}

TEST_F(CopyFaults, Folder) {
    scenario.prepare = [&] {
        MakeTree();
        fs::create_directory(folder / "target");
        before_ = WithoutCopies();
    };
    scenario.act = [&] {
        return Said(TavCopyFile(Wide(folder / "sub").c_str(), Wide(folder / "target/sub").c_str(), 1));
    };
    // Items that cannot be copied are skipped; what is there is whole.
    scenario.accepts = [&](const Outcome&) {
        const std::string leaf = folder / "target/sub/inner/leaf";
        return WithoutCopies() == before_ && (!Exists(leaf) || ReadFile(leaf) == "leaf");
    };
    Sweep();
}

// ---- Deleting

TEST_F(ExportedFaults, DeletingATree_TakesNothingElse) {
    const auto rest = [this] {
        std::istringstream lines(host_faults::TreeAt(folder.path()));
        std::string text;
        for (std::string line; std::getline(lines, line);)
            if (!line.starts_with("/sub")) text += line + "\n";
        return text;
    };
    std::string before;
    scenario.prepare = [&] {
        MakeTree();
        fs::create_directory_symlink(folder.path(), folder / "sub/inner/up");
        before = rest();
    };
    scenario.act = [&] {
        FSRef ref = {};
        const OSStatus result = PathToRef(folder / "sub", ref);
        return Told(result == noErr ? FSDeleteObjects(&ref) : result);
    };
    scenario.accepts = [&](const Outcome& outcome) {
        return rest() == before && outcome.result.starts_with("error") && Exists(folder / "sub");
    };
    Sweep();
}

// ---- Searching

TEST_F(ExportedFaults, Searching) {
    scenario.act = [&] {
        TavFindDataW found;
        TavFindSearch* search = TavFindFirstFile(Wide(folder.path().string() + "/*").c_str(), &found);
        if (search == TAV_INVALID_FIND) return std::string("error");
        std::multiset<std::string> names;
        do names.insert(Narrow(found.cFileName));
        while (TavFindNextFile(search, &found));
        TavFindClose(search);
        std::string text;
        for (const std::string& name : names) text += name + " ";
        return text;
    };
    // A search cannot tell why it ended: it may end early.
    scenario.accepts = [&](const Outcome& outcome) { return !outcome.result.starts_with("error"); };
    Sweep();
}

// ---- Drives

std::vector<std::string> Roots() {
    TavChar list[4096] = {};
    TavGetLogicalDriveStrings(4096, list);
    std::vector<std::string> roots;
    for (const TavChar* root = list; *root != 0; root += tav_wcslen(root) + 1) roots.push_back(Narrow(root));
    return roots;
}

TEST_F(ExportedFaults, Drives) {
    const std::vector<std::string> all = Roots();
    const int32_t type = TavGetDriveType(u"/");
    ASSERT_EQ(all.at(0), "/");
    std::vector<std::string> found;
    int32_t foundType = 0;
    scenario.act = [&] {
        found = Roots();
        foundType = TavGetDriveType(u"/");
        // Not all of them: a list that lacks one is good for a second.
        return "first " + (found.empty() ? "" : found[0]) + " type " + std::to_string(foundType);
    };
    // The list ends at a volume that cannot be asked, and lacks one whose path cannot be told, be it the first.
    scenario.accepts = [&](const Outcome&) {
        const bool hasNothingElse = std::ranges::all_of(
            found, [&](const std::string& root) { return std::ranges::count(all, root) == 1; });
        return hasNothingElse && (foundType == type || foundType == TAV_DRIVE_UNKNOWN);
    };
    Sweep();
}

// ---- Threads and waits

uint32_t SetEvent(void* event) {
    TavSetEvent(static_cast<OpacTavEvent*>(event));
    return 7;
}

TEST_F(ExportedFaults, ThreadsAndWaits) {
    scenario.look = [] { return std::string(); };
    scenario.act = [&] {
        OpacTavEvent* event = TavCreateEvent(0, 0);
        OpacTavThread* thread = TavCreateThread(SetEvent, event, 0, 0);
        std::string text = "error";
        if (thread) {
            text = "woken " + std::to_string(TavWaitEvent(event, -1));
            TavWaitThread(thread, -1);
            TavCloseThreadRef(thread);
        }
        TavSleep(1);
        TavCloseEvent(event);
        return text;
    };
    Sweep();
}

// ---- Modules

TEST_F(ExportedFaults, Modules) {
    scenario.prepare = [&] {
        MakeTree();
        fs::copy_file(fs::path(TAVPORT_TEST_MODULES) / "good.so", folder / "plug.so");
    };
    scenario.look = [] { return std::string(); };
    scenario.act = [&] {
        OpacTavLibrary* library = TavLoadLibrary(Wide(folder / "plug.so").c_str());
        const TavProc answer = TavGetProcAddress(library, "ModuleAnswer");
        TavFreeLibrary(library);
        return Said(answer != nullptr);
    };
    Sweep();
}

} // namespace
