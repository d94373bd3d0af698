// References: paths to them and back, children, and finding objects that others moved.
#include "host_faults/scenarios.h"

namespace fs = std::filesystem;

namespace {

// Makes a reference of a path and tells which path it leads back to.
std::string ThereAndBack(const std::string& path) {
    FSRef ref = {};
    Boolean isFolder = false;
    OSStatus result = PathToRef(path, ref, &isFolder);
    if (result != noErr) return Told(result);
    uint8_t back[1024];
    result = FSRefMakePath(&ref, back, sizeof back);
    if (result != noErr) return Told(result);
    return std::string(reinterpret_cast<const char*>(back)) + (isFolder ? " folder" : " file");
}

class ReferenceFaults : public HostFaults {};

TEST_F(ReferenceFaults, PathAsWritten) {
    scenario.act = [&] { return ThereAndBack(folder / "sub/inner/leaf"); };
    Sweep();
}

TEST_F(ReferenceFaults, PathThroughALink) {
    scenario.act = [&] { return ThereAndBack(folder / "linked/inner/leaf"); };
    Sweep();
}

TEST_F(ReferenceFaults, PathInOtherLetterCase) {
    scenario.act = [&] { return ThereAndBack(folder / "SUB/Inner/LEAF"); };
    Sweep();
}

TEST_F(ReferenceFaults, PathWithDots) {
    scenario.act = [&] { return ThereAndBack(folder / "sub/../sub/./inner"); };
    Sweep();
}

TEST_F(ReferenceFaults, PathThatLeadsNowhere_IsNeverFound) {
    scenario.act = [&] {
        const std::string result = ThereAndBack(folder / "sub/none");
        EXPECT_TRUE(result.starts_with("error")) << result;
        return result;
    };
    Sweep();
}

TEST_F(ReferenceFaults, Child) {
    scenario.act = [&] {
        FSRef sub = {}, child = {};
        OSErr result = static_cast<OSErr>(PathToRef(folder / "sub", sub));
        if (result == noErr) result = ChildRef(sub, u"inner", child);
        return result == noErr ? PathOf(child) : Told(result);
    };
    Sweep();
}

TEST_F(ReferenceFaults, ObjectsThatOthersRenamed) {
    FSRef leaf = {};
    scenario.prepare = [&] {
        MakeTree();
        leaf = RefTo(folder / "sub/inner/leaf");
        fs::rename(folder / "sub/inner/leaf", folder / "sub/inner/other");
        fs::rename(folder / "sub/inner", folder / "sub/moved");
        CloseIdleDescriptors();
    };
    scenario.act = [&] {
        uint8_t path[1024];
        const OSStatus result = FSRefMakePath(&leaf, path, sizeof path);
        return result == noErr ? std::string(reinterpret_cast<const char*>(path)) : Told(result);
    };
    Sweep();
}

} // namespace
