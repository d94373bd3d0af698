// The calls that give a copied file its facts, and their order. The linker puts a recorder in front of them.
#include "copy/file_copy.h"
#include "platform/forks.h"
#include "platform/objects.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

static std::vector<std::string> calls;

static std::string TypeAndLock(const FSCatalogInfo& info) {
    const std::string type(reinterpret_cast<const char*>(info.finderInfo), 4);
    return (type == std::string(4, '\0') ? "" : " '" + type + "'") +
           (info.nodeFlags & kFSNodeLockedMask ? " locked" : "");
}

static std::string Which(FSCatalogInfoBitmap whichInfo) {
    char text[16];
    snprintf(text, sizeof text, " 0x%X", static_cast<unsigned>(whichInfo));
    return text;
}

extern "C" {

OSErr __real_FSCreateFileUnicode(const FSRef*, UniCharCount, const UniChar*, FSCatalogInfoBitmap,
                                 const FSCatalogInfo*, FSRef*, FSSpec*);
OSErr __real_FSSetCatalogInfo(const FSRef*, FSCatalogInfoBitmap, const FSCatalogInfo*);
OSErr __real_FSpSetFInfo(const FSSpec*, const FInfo*);

OSErr __wrap_FSCreateFileUnicode(const FSRef* parent, UniCharCount length, const UniChar* name,
                                 FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* info, FSRef* ref,
                                 FSSpec* spec) {
    calls.push_back("create" + Which(whichInfo) + TypeAndLock(*info));
    return __real_FSCreateFileUnicode(parent, length, name, whichInfo, info, ref, spec);
}

OSErr __wrap_FSSetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* info) {
    calls.push_back("set" + Which(whichInfo) + TypeAndLock(*info));
    return __real_FSSetCatalogInfo(ref, whichInfo, info);
}

OSErr __wrap_FSpSetFInfo(const FSSpec* spec, const FInfo* info) {
    calls.push_back("turn into '" + std::string(reinterpret_cast<const char*>(info->bytes), 4) + "'");
    return __real_FSpSetFInfo(spec, info);
}

} // extern "C"

namespace {

class FileCopyCalls : public testing::Test {
protected:
    FileCopyCalls() { fs::create_directory(folder / "to"); }

    // The calls of a copy of `name` into the folder "to".
    std::vector<std::string> CallsOfCopy(const std::string& name) {
        const FSRef source = FolderEntry(name), dest = Reference(folder / "to");
        const HFSUniStr255 newName = Name(Wide(name));
        FSCatalogInfo info;
        EXPECT_EQ(FSGetCatalogInfo(&source, kFSCatInfoSettableInfo, &info, nullptr, nullptr, nullptr), noErr);
        CopyParams params{buffer, sizeof buffer, false, true, false, kDupeActionStandard};
        calls.clear();
        EXPECT_EQ(CopyFile(&source, &info, &dest, &newName, &params, nullptr, nullptr), noErr);
        return calls;
    }

    // An entry itself, even when it is a link.
    FSRef FolderEntry(const std::string& name) {
        const FSRef parent = Reference(folder.path());
        const HFSUniStr255 text = Name(Wide(name));
        FSRef ref = {};
        EXPECT_EQ(FSMakeFSRefUnicode(&parent, text.length, text.unicode, kTextEncodingUnknown, &ref), noErr);
        return ref;
    }

    void Lock(const std::string& name) {
        const FSRef ref = FolderEntry(name);
        FSCatalogInfo info = {};
        info.nodeFlags = kFSNodeLockedMask;
        ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
    }

    void WriteResources(const std::string& name) {
        const FSRef ref = FolderEntry(name);
        HFSUniStr255 fork;
        FSForkRefNum number = 0;
        ASSERT_EQ(FSGetResourceForkName(&fork), noErr);
        ASSERT_EQ(FSCreateFork(&ref, fork.length, fork.unicode), noErr);
        ASSERT_EQ(FSOpenFork(&ref, fork.length, fork.unicode, fsWrPerm, &number), noErr);
        EXPECT_EQ(FSWriteFork(number, fsAtMark, 0, 9, "resources", nullptr), noErr);
        EXPECT_EQ(FSCloseFork(number), noErr);
    }

    static uint64_t ResourceBytes(const FSRef& ref) {
        FSCatalogInfo info = {};
        EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoRsrcSizes, &info, nullptr, nullptr, nullptr), noErr);
        return info.rsrcLogicalSize;
    }

    TemporaryFolder folder;
    char buffer[1024];
};

} // namespace

using Calls = std::vector<std::string>;

TEST_F(FileCopyCalls, FileIsMadeBusyAndGetsFlagsPermissionsAndTypeAtOnceAtTheEnd) {
    WriteFile(folder / "file", "content");
    EXPECT_EQ(CallsOfCopy("file"), (Calls{"create 0x1FE3 'bzy '", "set 0xC02"}));
}

TEST_F(FileCopyCalls, LockComesBackAtTheEndWithTheResourceForkThere) {
    WriteFile(folder / "file", "content");
    WriteResources("file");
    Lock("file");
    EXPECT_EQ(CallsOfCopy("file"), (Calls{"create 0x1FE3 'bzy '", "set 0xC02 locked"}));
    EXPECT_EQ(ResourceBytes(Reference(folder / "to/file")), 9u);
}

TEST_F(FileCopyCalls, LinkGetsFlagsAndPermissionsAndThenTheTypeThatTurnsItIntoALink) {
    fs::create_symlink("nowhere", folder / "link");
    EXPECT_EQ(CallsOfCopy("link"), (Calls{"create 0x1FE3 'bzy '", "set 0x402 'slnk'", "turn into 'slnk'"}));
    EXPECT_EQ(fs::read_symlink(folder / "to/link"), "nowhere");
}
