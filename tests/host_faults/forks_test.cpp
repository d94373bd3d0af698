// Forks: making, opening, reading, writing, sizes and lists.
#include "host_faults/scenarios.h"

namespace {

// A fork that is open while the scenario runs.
class OpenedFork {
public:
    OpenedFork(const std::string& path, bool isResource, int8_t permission) {
        FSRef ref = {};
        result_ = PathToRef(path, ref);
        if (result_ == noErr) result_ = OpenByRef(ref, isResource, permission, number_);
    }
    ~OpenedFork() { Close(); }
    OSStatus result() const { return result_; }
    FSForkRefNum number() const { return number_; }
    OSErr Close() {
        const OSErr result = number_ ? FSCloseFork(number_) : noErr;
        number_ = 0;
        return result;
    }

private:
    OSStatus result_;
    FSForkRefNum number_ = 0;
};

class ForkFaults : public HostFaults {
protected:
    std::string MakeResource(const std::string& path) {
        FSRef ref = {};
        const OSStatus result = PathToRef(path, ref);
        return Told(result == noErr ? MakeResourceFork(ref) : result);
    }

    std::string Read(const std::string& path, bool isResource) {
        OpenedFork fork(path, isResource, fsRdPerm);
        if (fork.result() != noErr) return Told(fork.result());
        char bytes[100];
        ByteCount count = 0;
        const OSErr result = FSReadFork(fork.number(), fsFromStart, 2, sizeof bytes, bytes, &count);
        if (result != eofErr) return Told(result);
        return std::string(bytes, count);
    }

    std::string Write(const std::string& path, bool isResource) {
        OpenedFork fork(path, isResource, fsWrPerm);
        if (fork.result() != noErr) return Told(fork.result());
        ByteCount count = 0;
        const OSErr result = FSWriteFork(fork.number(), fsFromStart, 4, 10, "0123456789", &count);
        const OSErr closed = fork.Close();
        return Told(result != noErr ? result : closed);
    }

    // What was written before the failure stays, and the length tells of it.
    bool HoldsAStartOf(const std::string& path, bool isResource, const std::string& whole,
                       const std::string& old) {
        const std::string now = ReadWhole(RefTo(path), isResource);
        return now == old || (now.size() <= whole.size() && whole.starts_with(now));
    }
};

// A sidecar that cannot be given its file's mode is for its owner alone.
TEST_F(ForkFaults, MakingAResourceForkWithItsSidecar) {
    scenario.accepts = [&](const Outcome& outcome) {
        return outcome.result == "done" && (StatusOf(folder / "._plain").st_mode & 077) == 0;
    };
    scenario.act = [&] { return MakeResource(folder / "plain"); };
    Sweep();
}

// One that is made and cannot be looked at any more is an empty fork.
TEST_F(ForkFaults, MakingAResourceForkInASidecarThatHasNone) {
    scenario.accepts = [&](const Outcome& outcome) {
        OpenedFork fork(folder / "plain", true, fsRdPerm);
        int64_t size = -1;
        return outcome.result != "done" && FSGetForkSize(fork.number(), &size) == noErr && size == 0;
    };
    scenario.prepare = [&] {
        MakeTree();
        WriteFile(folder / "._plain", AppleDouble({{9, 50, FinderInfo("TEXTttxt")}}));
    };
    scenario.act = [&] { return MakeResource(folder / "plain"); };
    Sweep();
}

// The old one stays until the new one is whole and flushed.
TEST_F(ForkFaults, MakingAResourceForkInASidecarWithoutRoom_WritesItAnewAndFlushesItFirst) {
    scenario.prepare = [&] {
        MakeTree();
        WriteFile(folder / "._plain", AppleDouble({{9, 38, FinderInfo("TEXTttxt")}}));
    };
    scenario.act = [&] { return MakeResource(folder / "plain"); };
    bool flushFailed = false;
    scenario.accepts = [&](const Outcome& outcome) {
        if (outcome.failed == "fdatasync: Input/output error") {
            flushFailed = outcome.result == "error -36";
            return flushFailed && ReadFile(folder / "._plain").size() == 38 + 32;
        }
        // A mode that cannot be given to the new sidecar leaves it to its owner.
        if (outcome.failed.starts_with("fch")) return outcome.result == "done";
        // One that has taken the place and cannot be looked at any more has an empty fork.
        OpenedFork fork(folder / "plain", true, fsRdPerm);
        int64_t size = -1;
        return outcome.result != "done" && FSGetForkSize(fork.number(), &size) == noErr && size == 0;
    };
    Sweep();
    EXPECT_TRUE(flushFailed);
}

TEST_F(ForkFaults, ReadingData) {
    scenario.act = [&] { return Read(folder / "plain", false); };
    Sweep();
}

TEST_F(ForkFaults, ReadingResources) {
    scenario.act = [&] { return Read(folder / "forked", true); };
    Sweep();
}

TEST_F(ForkFaults, ReadingALink) {
    FSRef ref = {};
    scenario.prepare = [&] {
        MakeTree();
        ref = EntryRef(folder / "link");
        CloseIdleDescriptors();
    };
    scenario.act = [&] {
        FSForkRefNum number = 0;
        const OSErr result = OpenByRef(ref, false, fsRdPerm, number);
        if (result != noErr) return Told(result);
        char text[10] = {};
        ByteCount count = 0;
        FSReadFork(number, fsFromStart, 0, sizeof text, text, &count);
        FSCloseFork(number);
        return std::string(text, count);
    };
    Sweep();
}

TEST_F(ForkFaults, WritingData) {
    scenario.act = [&] { return Write(folder / "plain", false); };
    scenario.accepts = [&](const Outcome& outcome) {
        return outcome.result != "done" &&
               HoldsAStartOf(folder / "plain", false, "some0123456789", "some content");
    };
    Sweep();
}

TEST_F(ForkFaults, WritingResources) {
    scenario.act = [&] { return Write(folder / "forked", true); };
    scenario.accepts = [&](const Outcome& outcome) {
        if (outcome.result == "done") return false;
        const std::string now = ReadWhole(RefTo(folder / "forked"), true);
        return now == "reso01234" || now == "reso0123456789"; // as long as it was, or as it became
    };
    Sweep();
}

TEST_F(ForkFaults, GrowingAndCuttingData) {
    scenario.act = [&] {
        OpenedFork fork(folder / "plain", false, fsRdWrPerm);
        if (fork.result() != noErr) return Told(fork.result());
        OSErr result = FSAllocateFork(fork.number(), 0, fsFromStart, 0, 100000, nullptr);
        if (result == noErr) result = FSSetForkSize(fork.number(), fsFromStart, 20);
        int64_t size = 0, position = 0;
        if (result == noErr) result = FSGetForkSize(fork.number(), &size);
        if (result == noErr) result = FSSetForkPosition(fork.number(), fsFromLEOF, -3);
        if (result == noErr) result = FSGetForkPosition(fork.number(), &position);
        if (result != noErr) return Told(result);
        return std::to_string(size) + " " + std::to_string(position);
    };
    scenario.accepts = [&](const Outcome& outcome) {
        return outcome.result.starts_with("error") &&
               (ReadFile(folder / "plain") == "some content" ||
                ReadFile(folder / "plain") == std::string("some content") + std::string(8, '\0'));
    };
    Sweep();
}

TEST_F(ForkFaults, GrowingResources) {
    scenario.act = [&] {
        OpenedFork fork(folder / "forked", true, fsRdWrPerm);
        if (fork.result() != noErr) return Told(fork.result());
        return Told(FSSetForkSize(fork.number(), fsFromStart, 20));
    };
    scenario.accepts = [&](const Outcome& outcome) {
        return outcome.result.starts_with("error") &&
               ReadWhole(RefTo(folder / "forked"), true) == "resources";
    };
    Sweep();
}

TEST_F(ForkFaults, CuttingResources) {
    scenario.act = [&] {
        OpenedFork fork(folder / "forked", true, fsRdWrPerm);
        if (fork.result() != noErr) return Told(fork.result());
        return Told(FSSetForkSize(fork.number(), fsFromStart, 3));
    };
    scenario.accepts = [&](const Outcome& outcome) {
        return outcome.result.starts_with("error") && ReadWhole(RefTo(folder / "forked"), true) == "res";
    };
    Sweep();
}

TEST_F(ForkFaults, ListingForks_NeverHidesOneThatCannotBeReadNow) {
    scenario.accepts = SaysGone;
    scenario.act = [&] {
        FSRef ref = {};
        OSErr result = static_cast<OSErr>(PathToRef(folder / "forked", ref));
        CatPositionRec position = {};
        std::string text;
        while (result == noErr) {
            HFSUniStr255 name;
            int64_t size = 0;
            result = FSIterateForks(&ref, &position, &name, &size, nullptr);
            if (result == noErr) text += std::to_string(name.length) + ":" + std::to_string(size) + " ";
        }
        return result == errFSNoMoreItems ? text : Told(result);
    };
    Sweep();
}

} // namespace
