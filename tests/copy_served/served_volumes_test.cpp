// Copies on file servers. The linker puts a server of the tests' own in place of the calls that ask one: for
// the facts of volumes, the user's rights to a folder, and a copy.
#include "copy/file_copy.h"
#include "copy/object_copy.h"
#include "copy/volume_facts.h"
#include "platform/catalog.h"
#include "platform/volumes.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct VolumeFacts {
    int32_t serverAddress = 0;
    int32_t attributes = 0;
    int32_t grade = 0;
};

struct Request {
    std::string name, copyName; // "(none)" for null
    FSVolumeRefNum volume, destVolume;
    int32_t folder, destFolder;
};

struct Server {
    FSVolumeRefNum sourceVolume = 0; // any other volume is the destination's
    VolumeFacts source, dest;
    OSErr accessResult = paramErr;
    uint32_t access = 0;
    OSErr copyResult = noErr;
    OSErr namingResult = noErr;
    std::string destFolder; // where the server puts its copies
    std::vector<Request> rightsAsked, copies;
};
Server server;

std::string Text(const uint8_t* name) {
    return name ? std::string(reinterpret_cast<const char*>(name) + 1, name[0]) : "(none)";
}

Request Noted(const HParamBlockRec& block) {
    return {Text(block.ioNamePtr), Text(block.ioCopyName), block.ioVRefNum,
            block.ioDstVRefNum,    block.ioDirID,          block.ioNewDirID};
}

} // namespace

extern "C" {

OSErr __real_FSMakeFSSpec(FSVolumeRefNum, int32_t, const uint8_t*, FSSpec*);

OSErr __wrap_FSMakeFSSpec(FSVolumeRefNum volume, int32_t folder, const uint8_t* name, FSSpec* spec) {
    return server.namingResult != noErr ? server.namingResult
                                        : __real_FSMakeFSSpec(volume, folder, name, spec);
}

OSErr __wrap_PBHGetVolParmsSync(HParamBlockRec* block) {
    const VolumeFacts& facts = block->ioVRefNum == server.sourceVolume ? server.source : server.dest;
    GetVolParmsInfoBuffer parms{};
    parms.vMAttrib = facts.attributes;
    parms.vMServerAdr = facts.serverAddress;
    parms.vMVolumeGrade = facts.grade;
    block->ioActCount = std::min<ByteCount>(block->ioReqCount, sizeof parms);
    std::memcpy(block->ioBuffer, &parms, block->ioActCount);
    return noErr;
}

OSErr __wrap_PBHGetDirAccessSync(HParamBlockRec* block) {
    server.rightsAsked.push_back(Noted(*block));
    block->ioACAccess = server.access;
    return server.accessResult;
}

// What the server makes can be told from what is copied by hand.
OSErr __wrap_PBHCopyFileSync(HParamBlockRec* block) {
    server.copies.push_back(Noted(*block));
    if (server.copyResult != noErr) return server.copyResult;
    const std::string name = Text(block->ioCopyName ? block->ioCopyName : block->ioNamePtr);
    WriteFile(server.destFolder + "/" + name, "by the server");
    return noErr;
}

} // extern "C"

namespace {

// A folder to copy from and one on another volume to copy to.
class ServedVolumes : public testing::Test {
protected:
    void SetUp() override {
        server = {};
        fs::create_directory(folder / "from");
        to = "/dev/shm/tavport-served-XXXXXX";
        if (!mkdtemp(to.data())) {
            to.clear();
            GTEST_SKIP() << "no /dev/shm to be the other volume";
        }
        source = Reference(folder / "from");
        dest = Reference(to);
        FSVolumeRefNum destVolume;
        ASSERT_EQ(FSGetVRefNum(&source, &server.sourceVolume), noErr);
        ASSERT_EQ(FSGetVRefNum(&dest, &destVolume), noErr);
        if (destVolume == server.sourceVolume) GTEST_SKIP() << "/dev/shm is no volume of its own";
        server.destFolder = to;
    }
    void TearDown() override {
        if (!to.empty()) fs::remove_all(to);
    }
    std::string From(const std::string& name) { return folder / ("from/" + name); }
    std::string To(const std::string& name) { return to + "/" + name; }

    // What the preflight finds out about a copy from one volume to the other.
    CopyParams Preflight() {
        CopyParams params{};
        HFSUniStr255 name = Name(u"name");
        FSCatalogInfo info;
        Boolean isFolder, isReplacing;
        FSRef setAside;
        EXPECT_EQ(FSCopyObjectPreflight(&source, &dest, kDupeActionStandard, &params, &name, &info, &isFolder,
                                        &setAside, &isReplacing),
                  noErr);
        DisposePtr(params.copyBuffer);
        return params;
    }
    OSErr Copy(const std::string& name, const std::u16string& newName = u"", FSRef* copy = nullptr) {
        FSRef object = Reference(From(name));
        HFSUniStr255 given = Name(newName);
        return FSCopyObject(&object, &dest, 0, kFSCatInfoNone, kDupeActionStandard,
                            newName.empty() ? nullptr : &given, false, false, nullptr, nullptr, copy,
                            nullptr);
    }
    void ServeBoth() { server.source = server.dest = {7, kVolParmsHasCopyFile, 0}; }

    TemporaryFolder folder;
    std::string to;
    FSRef source, dest;
};

uint32_t NodeNumber(const FSRef& ref) {
    FSCatalogInfo info;
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeID, &info, nullptr, nullptr, nullptr), noErr);
    return info.nodeID;
}

} // namespace

// ---- What the preflight makes of the volumes' facts

TEST_F(ServedVolumes, ServerCopiesOnlyWithinItselfAndIfTheSourceVolumeCan) {
    constexpr int32_t can = kVolParmsHasCopyFile;
    const struct {
        VolumeFacts source, dest;
        bool isLocal, copies;
    } rows[] = {
        {{0, can}, {0, can}, true, false},  {{7, can}, {0, can}, true, false},
        {{0, can}, {7, can}, false, false}, {{8, can}, {7, can}, false, false},
        {{7, 0}, {7, can}, false, false},   {{7, ~can}, {7, ~can}, false, false},
        {{7, can}, {7, 0}, false, true},    {{-7, can}, {-7, 0}, false, true},
        {{7, ~0}, {7, ~0}, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.source.serverAddress << "/" << row.source.attributes << " to "
                                        << row.dest.serverAddress << "/" << row.dest.attributes);
        server.source = row.source;
        server.dest = row.dest;
        CopyParams params = Preflight();
        EXPECT_EQ(params.copyingToLocalVolume, row.isLocal);
        EXPECT_EQ(params.volHasCopyFile, row.copies);
    }
}

TEST_F(ServedVolumes, BufferIsThatOfTheSlowerVolume) {
    const struct {
        int32_t source, dest;
        ByteCount size;
    } rows[] = {{0, 0, 262144},
                {-1000, 0, 1024},
                {0, -1000, 1024},
                {-1000, -6144, 1024},
                {-100000000, -6144, 1536},
                {-100000000, 0, 262144},
                {-100000000, 5, 262144},
                {-100000000, -100000000, 2097152}};
    for (const auto& row : rows) {
        server.source.grade = row.source;
        server.dest.grade = row.dest;
        EXPECT_EQ(Preflight().copyBufferSize, row.size) << row.source << " to " << row.dest;
    }
}

// ---- Rights

TEST_F(ServedVolumes, DropBoxIsWhereTheUserMayOnlyMakeChanges) {
    const struct {
        uint32_t access;
        bool isDropBox;
    } rows[] = {{0x04000000, true},  {0x00000000, false}, {0x01000000, false}, {0x02000000, false},
                {0x03000000, false}, {0x05000000, false}, {0x06000000, false}, {0x07000000, false},
                {0x84070707, true},  {0x87070707, false}, {0xF8FFFFFF, false}, {0xFCFFFFFF, true}};
    server.accessResult = noErr;
    for (const auto& row : rows) {
        server.access = row.access;
        EXPECT_EQ(Preflight().copyingToDropBox, row.isDropBox) << std::hex << row.access;
    }
}

TEST_F(ServedVolumes, RightsThatAServerTellsPrevailOverTheMode) {
    ASSERT_EQ(chmod(to.c_str(), 0733), 0);
    server.accessResult = noErr;
    server.access = 0x07000000;
    EXPECT_FALSE(Preflight().copyingToDropBox);
    server.accessResult = paramErr;
    EXPECT_TRUE(Preflight().copyingToDropBox);
}

TEST_F(ServedVolumes, RightsAreAskedForTheFolderByVolumeParentAndName) {
    Preflight();
    ASSERT_EQ(server.rightsAsked.size(), 1u);
    FSVolumeRefNum volume;
    ASSERT_EQ(FSGetVRefNum(&dest, &volume), noErr);
    EXPECT_EQ(server.rightsAsked[0].volume, volume);
    EXPECT_EQ(server.rightsAsked[0].name, to.substr(to.rfind('/') + 1));
    EXPECT_EQ(server.rightsAsked[0].folder, static_cast<int32_t>(NodeNumber(Reference("/dev/shm"))));
}

// ---- Copies

TEST_F(ServedVolumes, FileIsCopiedByTheServerAndByNobodyElse) {
    WriteFile(From("file"), "content");
    ServeBoth();
    FSRef copy;
    ASSERT_EQ(Copy("file", u"", &copy), noErr);
    EXPECT_EQ(ReadFile(To("file")), "by the server");
    EXPECT_EQ(PathOf(copy), To("file"));
    ASSERT_EQ(server.copies.size(), 1u);
    const Request& request = server.copies[0];
    EXPECT_EQ(request.name, "file");
    EXPECT_EQ(request.copyName, "file");
    EXPECT_EQ(request.volume, server.sourceVolume);
    EXPECT_NE(request.destVolume, server.sourceVolume);
    EXPECT_EQ(request.folder, static_cast<int32_t>(NodeNumber(source)));
    EXPECT_EQ(request.destFolder, static_cast<int32_t>(NodeNumber(dest)));
}

TEST_F(ServedVolumes, ServerIsToldTheNewName) {
    WriteFile(From("file"), "content");
    ServeBoth();
    FSRef copy;
    ASSERT_EQ(Copy("file", u"other", &copy), noErr);
    EXPECT_EQ(ReadFile(To("other")), "by the server");
    EXPECT_EQ(PathOf(copy), To("other"));
}

TEST_F(ServedVolumes, WithoutANewNameTheServerKeepsTheSourcesAndBothWaysOfNamingTheCopyAreGiven) {
    WriteFile(From("file"), "content");
    FSRef object = Reference(From("file")), copy, fromSpec;
    FSSpec spec;
    ASSERT_EQ(FSUsePBHCopyFile(&object, &dest, kTextEncodingUnknown, nullptr, &copy, &spec), noErr);
    ASSERT_EQ(server.copies.size(), 1u);
    EXPECT_EQ(server.copies[0].copyName, "(none)");
    EXPECT_EQ(PathOf(copy), To("file"));
    ASSERT_EQ(FSpMakeFSRef(&spec, &fromSpec), noErr);
    EXPECT_EQ(PathOf(fromSpec), To("file"));
}

TEST_F(ServedVolumes, EveryFileOfATreeIsCopiedByTheServer) {
    fs::create_directories(From("tree/sub"));
    WriteFile(From("tree/one"), "1");
    WriteFile(From("tree/two"), "2");
    ServeBoth();
    server.destFolder = To("tree");
    ASSERT_EQ(Copy("tree"), noErr);
    EXPECT_EQ(server.copies.size(), 2u);
    EXPECT_EQ(ReadFile(To("tree/one")), "by the server");
    EXPECT_EQ(ReadFile(To("tree/two")), "by the server");
    EXPECT_TRUE(fs::is_directory(To("tree/sub")));
}

TEST_F(ServedVolumes, CopyThatTheServerFailsToMakeIsMadeByHand) {
    WriteFile(From("file"), "content");
    ServeBoth();
    for (OSErr failure : {ioErr, dskFulErr, afpAccessDenied, dupFNErr, paramErr}) {
        server.copyResult = failure;
        EXPECT_EQ(Copy("file"), noErr) << failure;
        EXPECT_EQ(ReadFile(To("file")), "content") << failure;
        fs::remove(To("file"));
    }
    EXPECT_EQ(server.copies.size(), 5u);
}

// It would stand in the way of the copy by hand.
TEST_F(ServedVolumes, CopyThatTheServerMadeAndNobodyCanNameIsMadeByHand) {
    WriteFile(From("file"), "content");
    ServeBoth();
    server.namingResult = ioErr;
    FSRef copy;
    EXPECT_EQ(Copy("file", u"", &copy), noErr);
    EXPECT_EQ(server.copies.size(), 1u);
    EXPECT_EQ(ReadFile(To("file")), "content");
    EXPECT_EQ(PathOf(copy), To("file"));
}

TEST_F(ServedVolumes, CopyThatKeepsTheSourcesNameAndCannotBeNamedIsRemoved) {
    WriteFile(From("file"), "content");
    server.namingResult = ioErr;
    FSRef object = Reference(From("file")), copy;
    FSSpec spec;
    EXPECT_EQ(FSUsePBHCopyFile(&object, &dest, kTextEncodingUnknown, nullptr, &copy, nullptr), ioErr);
    EXPECT_FALSE(fs::exists(To("file")));
    EXPECT_EQ(FSUsePBHCopyFile(&object, &dest, kTextEncodingUnknown, nullptr, nullptr, &spec), ioErr);
    EXPECT_FALSE(fs::exists(To("file")));
    EXPECT_EQ(ReadFile(From("file")), "content");
}

// Mac Roman would put the letter and its accent together: the name of another file.
TEST_F(ServedVolumes, FileWhoseNameWouldReadBackAsAnotherIsCopiedByHand) {
    const std::string apart = "e\xCC\x81", composed = "\xC3\xA9";
    WriteFile(From(apart), "apart");
    WriteFile(From(composed), "composed");
    ServeBoth();
    ASSERT_EQ(Copy(apart), noErr);
    EXPECT_EQ(server.copies.size(), 0u);
    EXPECT_EQ(ReadFile(To(apart)), "apart");
    EXPECT_FALSE(fs::exists(To(composed)));
}

TEST_F(ServedVolumes, FileWhoseNameTheServerCannotBeToldIsCopiedByHand) {
    WriteFile(From("\xE4\xB8\xAD"), "content");
    ServeBoth();
    ASSERT_EQ(Copy("\xE4\xB8\xAD"), noErr);
    EXPECT_EQ(server.copies.size(), 0u);
    EXPECT_EQ(ReadFile(To("\xE4\xB8\xAD")), "content");
}

TEST_F(ServedVolumes, LocalCopyNeverAsksAServer) {
    WriteFile(From("file"), "content");
    server.source = server.dest = {0, kVolParmsHasCopyFile, 0};
    ASSERT_EQ(Copy("file"), noErr);
    EXPECT_EQ(server.copies.size(), 0u);
    EXPECT_EQ(ReadFile(To("file")), "content");
}
