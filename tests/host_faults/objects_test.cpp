// Creating, deleting, moving and renaming.
#include "host_faults/scenarios.h"

#include "platform/objects.h"

namespace {

FSCatalogInfo SettableInfo() {
    FSCatalogInfo info = {};
    std::memcpy(info.finderInfo, "TEXTttxt", 8);
    info.permissions.mode = 0640;
    info.permissions.userID = geteuid();
    info.permissions.groupID = getegid();
    info.createDate = DateAt(k1970 + 86400);
    info.contentModDate = info.accessDate = DateAt(k1970 + 90000);
    return info;
}

// A mode that the volume refuses is dropped.
bool RefusesMode(const Outcome& outcome) {
    return outcome.failed.ends_with("chmod: Operation not permitted");
}

class ObjectFaults : public HostFaults {
protected:
    // Taken by the library in its own calls, which are to fail as well.
    std::string With(const std::string& path, auto operation) {
        FSRef ref = {};
        const OSStatus result = PathToRef(path, ref);
        return Told(result == noErr ? operation(ref) : result);
    }

    static OSErr MakeFile(const FSRef& parent, const std::u16string& name, FSCatalogInfoBitmap which) {
        const FSCatalogInfo info = SettableInfo();
        FSRef made;
        return FSCreateFileUnicode(&parent, static_cast<UniCharCount>(name.size()),
                                   reinterpret_cast<const UniChar*>(name.data()), which, &info, &made,
                                   nullptr);
    }
    static OSErr MakeFolder(const FSRef& parent, const std::u16string& name, FSCatalogInfoBitmap which) {
        const FSCatalogInfo info = SettableInfo();
        FSRef made;
        uint32_t id;
        return FSCreateDirectoryUnicode(&parent, static_cast<UniCharCount>(name.size()),
                                        reinterpret_cast<const UniChar*>(name.data()), which, &info, &made,
                                        nullptr, &id);
    }
    static OSErr Rename(const FSRef& ref, const std::u16string& name) {
        FSRef renamed;
        return FSRenameUnicode(&ref, static_cast<UniCharCount>(name.size()),
                               reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown, &renamed);
    }
};

TEST_F(ObjectFaults, CreatingAFile) {
    scenario.act = [&] {
        return With(folder / "sub",
                    [](const FSRef& parent) { return MakeFile(parent, u"new", kFSCatInfoNone); });
    };
    Sweep();
}

TEST_F(ObjectFaults, CreatingAFileWithInformation) {
    scenario.accepts = RefusesMode;
    scenario.act = [&] {
        return With(folder / "sub",
                    [](const FSRef& parent) { return MakeFile(parent, u"new", kFSCatInfoSettableInfo); });
    };
    Sweep();
}

TEST_F(ObjectFaults, CreatingAFolder) {
    scenario.act = [&] {
        return With(folder / "sub",
                    [](const FSRef& parent) { return MakeFolder(parent, u"new", kFSCatInfoNone); });
    };
    Sweep();
}

TEST_F(ObjectFaults, CreatingAFolderWithInformation) {
    scenario.accepts = RefusesMode;
    scenario.act = [&] {
        return With(folder / "sub",
                    [](const FSRef& parent) { return MakeFolder(parent, u"new", kFSCatInfoSettableInfo); });
    };
    Sweep();
}

TEST_F(ObjectFaults, DeletingAFile) {
    scenario.act = [&] {
        return With(folder / "typed", [](const FSRef& ref) { return FSDeleteObject(&ref); });
    };
    Sweep();
}

TEST_F(ObjectFaults, DeletingAFileWithASidecar_TellsWhenItHadToLeaveTheSidecar) {
    scenario.accepts = [&](const Outcome& outcome) {
        return !Exists(folder / "forked") && (outcome.result != "done" || SaysGone(outcome));
    };
    scenario.act = [&] {
        return With(folder / "forked", [](const FSRef& ref) { return FSDeleteObject(&ref); });
    };
    Sweep();
}

TEST_F(ObjectFaults, DeletingAnEmptyFolder) {
    scenario.prepare = [&] {
        MakeTree();
        std::filesystem::remove(folder / "sub/inner/leaf");
    };
    scenario.act = [&] {
        return With(folder / "sub/inner", [](const FSRef& ref) { return FSDeleteObject(&ref); });
    };
    Sweep();
}

TEST_F(ObjectFaults, MovingAFileWithASidecar) {
    scenario.accepts = SaysGone;
    scenario.act = [&] {
        return With(folder / "forked", [&](const FSRef& ref) {
            FSRef target = {}, moved;
            const OSStatus result = PathToRef(folder / "sub/inner", target);
            return result == noErr ? FSMoveObject(&ref, &target, &moved) : result;
        });
    };
    Sweep();
}

TEST_F(ObjectFaults, MovingAFolder) {
    scenario.act = [&] {
        return With(folder / "sub/inner", [&](const FSRef& ref) {
            FSRef target = {}, moved;
            const OSStatus result = PathToRef(folder.path(), target);
            return result == noErr ? FSMoveObject(&ref, &target, &moved) : result;
        });
    };
    Sweep();
}

TEST_F(ObjectFaults, RenamingAFileWithASidecar) {
    scenario.accepts = SaysGone;
    scenario.act = [&] {
        return With(folder / "forked", [](const FSRef& ref) { return Rename(ref, u"other"); });
    };
    Sweep();
}

TEST_F(ObjectFaults, RenamingToATakenName_NeverReplaces) {
    scenario.act = [&] {
        const std::string result =
            With(folder / "forked", [](const FSRef& ref) { return Rename(ref, u"plain"); });
        EXPECT_NE(result, "done");
        return result;
    };
    Sweep();
}

} // namespace
