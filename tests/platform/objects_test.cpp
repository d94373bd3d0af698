#include "platform/objects.h"

#include "platform/catalog.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/mounts.h"
#include "support/no_descriptors.h"
#include "support/references.h"
#include "support/sidecars.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

OSErr CreateFile(const std::string& folder, const std::u16string& name, FSRef* newRef = nullptr,
                 FSCatalogInfoBitmap whichInfo = kFSCatInfoNone, const FSCatalogInfo* info = nullptr) {
    const FSRef parent = Reference(folder);
    return FSCreateFileUnicode(&parent, static_cast<UniCharCount>(name.size()), name.data(), whichInfo, info,
                               newRef, nullptr);
}

OSErr CreateFolder(const std::string& folder, const std::u16string& name, FSRef* newRef = nullptr,
                   FSCatalogInfoBitmap whichInfo = kFSCatInfoNone, const FSCatalogInfo* info = nullptr) {
    const FSRef parent = Reference(folder);
    return FSCreateDirectoryUnicode(&parent, static_cast<UniCharCount>(name.size()), name.data(), whichInfo,
                                    info, newRef, nullptr, nullptr);
}

OSErr Delete(const std::string& path) {
    const FSRef ref = Reference(path);
    return FSDeleteObject(&ref);
}

OSErr Move(const std::string& path, const std::string& folder, FSRef* newRef = nullptr) {
    const FSRef ref = Reference(path), destination = Reference(folder);
    return FSMoveObject(&ref, &destination, newRef);
}

OSErr Rename(const FSRef& ref, const std::u16string& name, FSRef* newRef = nullptr) {
    return FSRenameUnicode(&ref, static_cast<UniCharCount>(name.size()), name.data(), kTextEncodingUnknown,
                           newRef);
}

OSErr Rename(const std::string& path, const std::u16string& name, FSRef* newRef = nullptr) {
    return Rename(Reference(path), name, newRef);
}

// The reference of a link itself, wherever it leads.
FSRef LinkReference(const std::string& path) {
    FSRef ref{};
    EXPECT_EQ(FSPathMakeRefWithOptions(reinterpret_cast<const uint8_t*>(path.c_str()),
                                       kFSPathMakeRefDoNotFollowLeafSymlink, &ref, nullptr),
              noErr);
    return ref;
}

bool Exists(const std::string& path) {
    return fs::exists(fs::symlink_status(path));
}

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

ino_t InodeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_ino;
}

void SetLock(const std::string& path, bool locked) {
    const FSRef ref = Reference(path);
    FSCatalogInfo info{};
    info.nodeFlags = locked ? kFSNodeLockedMask : 0;
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
}

class Objects : public testing::Test {
protected:
    TemporaryFolder folder;
    const std::string top = folder.path().string();
};

class Creation : public Objects {};
class Deletion : public Objects {};
class Moving : public Objects {};
class Renaming : public Objects {};

} // namespace

// ---- Creating

TEST_F(Creation, FileOfNewName_IsEmptyAndHasReference) {
    FSRef made;
    EXPECT_EQ(CreateFile(top, u"näme", &made), noErr);
    EXPECT_EQ(PathOf(made), folder / "näme");
    EXPECT_TRUE(fs::is_regular_file(folder / "näme"));
    EXPECT_EQ(fs::file_size(folder / "näme"), 0u);
}

TEST_F(Creation, FolderOfNewName_IsEmptyAndHasReference) {
    FSRef made;
    EXPECT_EQ(CreateFolder(top, u"näme", &made), noErr);
    EXPECT_EQ(PathOf(made), folder / "näme");
    EXPECT_TRUE(fs::is_directory(folder / "näme"));
    EXPECT_TRUE(fs::is_empty(folder / "näme"));
}

TEST_F(Creation, SlashInName_BecomesColonOnTheHost) {
    EXPECT_EQ(CreateFile(top, u"a/b"), noErr);
    EXPECT_TRUE(Exists(folder / "a:b"));
}

TEST_F(Creation, Spec_LeadsToTheNewObject) {
    const FSRef parent = Reference(top);
    FSSpec spec{};
    ASSERT_EQ(FSCreateFileUnicode(&parent, 1, u"f", kFSCatInfoNone, nullptr, nullptr, &spec), noErr);
    EXPECT_EQ(PathOf(spec.ref), folder / "f");
    ASSERT_EQ(FSCreateDirectoryUnicode(&parent, 1, u"d", kFSCatInfoNone, nullptr, nullptr, &spec, nullptr),
              noErr);
    EXPECT_EQ(PathOf(spec.ref), folder / "d");
}

TEST_F(Creation, NewFolder_TellsItsNodeID) {
    const FSRef parent = Reference(top);
    uint32_t newDirID = 0;
    FSRef made;
    ASSERT_EQ(FSCreateDirectoryUnicode(&parent, 1, u"d", kFSCatInfoNone, nullptr, &made, nullptr, &newDirID),
              noErr);
    FSCatalogInfo info{};
    ASSERT_EQ(FSGetCatalogInfo(&made, kFSCatInfoNodeID, &info, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(newDirID, info.nodeID);
    EXPECT_NE(newDirID, 0u);
}

TEST_F(Creation, ReferenceOfParentMayBeTheNewOne) {
    FSRef ref = Reference(top);
    EXPECT_EQ(FSCreateFileUnicode(&ref, 1, u"f", kFSCatInfoNone, nullptr, &ref, nullptr), noErr);
    EXPECT_EQ(PathOf(ref), folder / "f");
}

TEST_F(Creation, WithoutPermissions_HonoursUmask) {
    const mode_t before = umask(027);
    EXPECT_EQ(CreateFile(top, u"f"), noErr);
    EXPECT_EQ(CreateFolder(top, u"d"), noErr);
    umask(before);
    EXPECT_EQ(ModeOf(folder / "f"), 0640u);
    EXPECT_EQ(ModeOf(folder / "d"), 0750u);
}

TEST_F(Creation, WithPermissions_TakesThemWhateverTheUmask) {
    FSCatalogInfo info{};
    info.permissions.userID = getuid();
    info.permissions.groupID = getgid();
    info.permissions.mode = 0666;
    const mode_t before = umask(077);
    EXPECT_EQ(CreateFile(top, u"f", nullptr, kFSCatInfoPermissions, &info), noErr);
    info.permissions.mode = 0777;
    EXPECT_EQ(CreateFolder(top, u"d", nullptr, kFSCatInfoPermissions, &info), noErr);
    umask(before);
    EXPECT_EQ(ModeOf(folder / "f"), 0666u);
    EXPECT_EQ(ModeOf(folder / "d"), 0777u);
}

// Some can be given when the object is made, some only afterwards.
TEST_F(Creation, EveryKindOfMode_IsAsGivenWhateverTheUmask) {
    FSCatalogInfo info{};
    info.permissions.userID = getuid();
    info.permissions.groupID = getgid();
    int number = 0;
    for (const mode_t mask : {0u, 022u, 077u, 0777u}) {
        for (const uint16_t mode : {0744, 0644, 0600, 0640, 0604, 0622, 0444, 0077, 0, 04755, 02755, 01777}) {
            const std::string name = std::to_string(++number);
            info.permissions.mode = mode;
            const mode_t before = umask(mask);
            EXPECT_EQ(CreateFile(top, Wide("f" + name).c_str(), nullptr, kFSCatInfoPermissions, &info),
                      noErr);
            EXPECT_EQ(CreateFolder(top, Wide("d" + name).c_str(), nullptr, kFSCatInfoPermissions, &info),
                      noErr);
            umask(before);
            EXPECT_EQ(ModeOf(folder / ("f" + name)), mode) << std::oct << mode << " under " << mask;
            EXPECT_EQ(ModeOf(folder / ("d" + name)), mode) << std::oct << mode << " under " << mask;
        }
    }
}

TEST_F(Creation, LockGiven_NewFileIsLocked) {
    FSCatalogInfo info{};
    info.nodeFlags = kFSNodeLockedMask;
    EXPECT_EQ(CreateFile(top, u"f", nullptr, kFSCatInfoNodeFlags, &info), noErr);
    EXPECT_EQ(Delete(folder / "f"), fLckdErr);
}

TEST_F(Creation, FactsThatCannotBeSet_LeaveNothingBehind) {
    FSCatalogInfo info{};
    EXPECT_EQ(CreateFile(top, u"f", nullptr, kFSCatInfoValence, &info), paramErr);
    EXPECT_EQ(CreateFolder(top, u"d", nullptr, kFSCatInfoValence, &info), paramErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(Creation, TakenName_IsRefusedAndLeftAlone) {
    WriteFile(folder / "file", "mine");
    fs::create_directory(folder / "folder");
    fs::create_symlink("nowhere", folder / "link");
    for (const char16_t* name : {u"file", u"folder", u"link"}) {
        EXPECT_EQ(CreateFile(top, name), dupFNErr);
        EXPECT_EQ(CreateFolder(top, name), dupFNErr);
    }
    EXPECT_EQ(ReadFile(folder / "file"), "mine");
    EXPECT_FALSE(Exists(folder / "nowhere"));
}

TEST_F(Creation, OtherLetterCase_IsAnotherName) {
    EXPECT_EQ(CreateFile(top, u"name"), noErr);
    EXPECT_EQ(CreateFile(top, u"NAME"), noErr);
    EXPECT_NE(InodeOf(folder / "name"), InodeOf(folder / "NAME"));
}

TEST_F(Creation, BadNames_AreRefused) {
    const std::u16string longest(255, u'n'), longer(256, u'n'), wide(200, u'ä');
    for (const std::u16string& name : {std::u16string(), longer, wide, std::u16string(u"a:b")}) {
        EXPECT_EQ(CreateFile(top, name), bdNamErr) << name.size();
        EXPECT_EQ(CreateFolder(top, name), bdNamErr) << name.size();
    }
    EXPECT_TRUE(fs::is_empty(top));
    FSRef made;
    EXPECT_EQ(CreateFile(top, longest, &made), noErr);
    EXPECT_EQ(PathOf(made), folder / std::string(255, 'n'));
}

TEST_F(Creation, ParentGone_IsNotFound) {
    fs::create_directory(folder / "d");
    const FSRef parent = Reference(folder / "d");
    fs::remove(folder / "d");
    EXPECT_EQ(FSCreateFileUnicode(&parent, 1, u"f", kFSCatInfoNone, nullptr, nullptr, nullptr), fnfErr);
    EXPECT_EQ(FSCreateDirectoryUnicode(&parent, 1, u"f", kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr),
              fnfErr);
}

TEST_F(Creation, ParentIsFile_IsNoFolder) {
    WriteFile(folder / "f", "");
    EXPECT_EQ(CreateFile(folder / "f", u"x"), errFSNotAFolder);
    EXPECT_EQ(CreateFolder(folder / "f", u"x"), errFSNotAFolder);
}

TEST_F(Creation, ParentIsLinkToFolder_CreatesInTheTarget) {
    fs::create_directory(folder / "target");
    fs::create_directory_symlink("target", folder / "link");
    EXPECT_EQ(CreateFile(folder / "link", u"x"), noErr);
    EXPECT_TRUE(Exists(folder / "target/x"));
}

TEST_F(Creation, OrphanedSidecarBesideTheName_IsNotAdopted) {
    WriteFile(folder / "._x", EmptySidecar());
    EXPECT_EQ(CreateFile(top, u"x"), noErr);
    EXPECT_EQ(Delete(folder / "x"), noErr);
    EXPECT_EQ(ReadFile(folder / "._x"), EmptySidecar());
}

TEST_F(Creation, MissingArguments_AreRefused) {
    const FSRef parent = Reference(top);
    EXPECT_EQ(FSCreateFileUnicode(nullptr, 1, u"f", kFSCatInfoNone, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(FSCreateFileUnicode(&parent, 1, nullptr, kFSCatInfoNone, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(FSCreateFileUnicode(&parent, 1, u"f", kFSCatInfoNodeFlags, nullptr, nullptr, nullptr),
              paramErr);
    EXPECT_EQ(FSCreateDirectoryUnicode(nullptr, 1, u"f", kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr),
              paramErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(Creation, OnReadOnlyVolume_IsRefused) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    MountTmpfs(top, "");
    WriteFile(folder / "f", "kept");
    fs::create_directory(folder / "d");
    MakeReadOnly(top);
    EXPECT_EQ(CreateFile(top, u"x"), wPrErr);
    EXPECT_EQ(CreateFolder(top, u"x"), wPrErr);
    EXPECT_EQ(Delete(folder / "f"), wPrErr);
    EXPECT_EQ(Delete(folder / "d"), wPrErr);
    EXPECT_EQ(Rename(folder / "f", u"g"), wPrErr);
    EXPECT_EQ(Move(folder / "f", folder / "d"), wPrErr);
    EXPECT_EQ(ReadFile(folder / "f"), "kept");
    Unmount(top);
}

TEST_F(Creation, OnFullVolume_IsRefusedAndLeavesNothing) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    MountTmpfs(top, "nr_inodes=4");
    while (CreateFile(top, u"file " + Wide(std::to_string(std::distance(fs::directory_iterator(top), {})))) ==
           noErr) {
    }
    const auto count = std::distance(fs::directory_iterator(top), {});
    EXPECT_EQ(CreateFile(top, u"x"), dskFulErr);
    EXPECT_EQ(CreateFolder(top, u"x"), dskFulErr);
    EXPECT_EQ(std::distance(fs::directory_iterator(top), {}), count);
    Unmount(top);
}

TEST_F(Creation, NoDescriptorLeft_CachedOnesMakeRoom) {
    fs::create_directory(folder / "other");
    WriteFile(folder / "other/f", "");
    WriteFile(folder / "f", "");
    FSRef parent = Reference(top), made;
    for (const char* name : {"other/f", "f"}) {
        const FSRef ref = Reference(folder / name);
        FSCatalogInfo info;
        ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr), noErr);
    }
    const NoDescriptors none;
    ASSERT_TRUE(none.isSet());
    EXPECT_EQ(FSCreateFileUnicode(&parent, 1, u"x", kFSCatInfoNone, nullptr, &made, nullptr), noErr);
}

// ---- Deleting

TEST_F(Deletion, FileAndEmptyFolder_Go) {
    WriteFile(folder / "f", "x");
    fs::create_directory(folder / "d");
    EXPECT_EQ(Delete(folder / "f"), noErr);
    EXPECT_EQ(Delete(folder / "d"), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(Deletion, PipesAndSockets_GoUnopened) {
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    (folder / "s").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(Delete(folder / "pipe"), noErr);
    EXPECT_EQ(Delete(folder / "s"), noErr);
    close(listener);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(Deletion, FullFolder_IsBusyAndKept) {
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "x");
    EXPECT_EQ(Delete(folder / "d"), fBsyErr);
    EXPECT_TRUE(Exists(folder / "d/f"));
}

TEST_F(Deletion, Root_IsBusy) {
    EXPECT_EQ(Delete("/"), fBsyErr);
}

TEST_F(Deletion, OfWhatIsGone_IsNotFound) {
    WriteFile(folder / "f", "x");
    const FSRef ref = Reference(folder / "f");
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
}

TEST_F(Deletion, InventedReference_IsNotFound) {
    FSRef ref;
    std::memset(&ref, 0xA5, sizeof ref);
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
    std::memset(&ref, 0, sizeof ref);
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
    EXPECT_EQ(FSDeleteObject(nullptr), paramErr);
}

TEST_F(Deletion, OtherObjectUnderTheName_IsNotTouched) {
    WriteFile(folder / "f", "old");
    const FSRef ref = Reference(folder / "f");
    WriteFile(folder / "g", "new");
    fs::rename(folder / "g", folder / "f");
    EXPECT_EQ(FSDeleteObject(&ref), fnfErr);
    EXPECT_EQ(ReadFile(folder / "f"), "new");
}

TEST_F(Deletion, OfLink_LeavesItsTarget) {
    WriteFile(folder / "file", "x");
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/inside", "x");
    fs::create_symlink("file", folder / "to file");
    fs::create_directory_symlink("d", folder / "to folder");
    EXPECT_EQ(Delete(folder / "to file"), noErr);
    EXPECT_EQ(Delete(folder / "to folder"), noErr);
    EXPECT_FALSE(Exists(folder / "to file"));
    EXPECT_FALSE(Exists(folder / "to folder"));
    EXPECT_TRUE(Exists(folder / "file"));
    EXPECT_TRUE(Exists(folder / "d/inside"));
}

TEST_F(Deletion, OfDanglingLink_RemovesIt) {
    fs::create_symlink("nowhere", folder / "link");
    const FSRef ref = LinkReference(folder / "link");
    EXPECT_EQ(FSDeleteObject(&ref), noErr);
    EXPECT_FALSE(Exists(folder / "link"));
}

TEST_F(Deletion, OfOneLinkToAFile_LeavesTheOther) {
    WriteFile(folder / "a", "x");
    fs::create_hard_link(folder / "a", folder / "b");
    EXPECT_EQ(Delete(folder / "b"), noErr);
    EXPECT_FALSE(Exists(folder / "b"));
    EXPECT_EQ(ReadFile(folder / "a"), "x");
}

TEST_F(Deletion, LockedObject_IsRefusedUntilUnlocked) {
    WriteFile(folder / "f", "x");
    fs::create_directory(folder / "d");
    for (const char* name : {"f", "d"}) {
        SetLock(folder / name, true);
        EXPECT_EQ(Delete(folder / name), fLckdErr) << name;
        EXPECT_TRUE(Exists(folder / name));
        SetLock(folder / name, false);
        EXPECT_EQ(Delete(folder / name), noErr) << name;
    }
}

TEST_F(Deletion, Sidecar_GoesWithItsFile) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    EXPECT_EQ(Delete(folder / "f"), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(Deletion, OrdinaryFileWithASidecarsName_Stays) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", "no sidecar");
    EXPECT_EQ(Delete(folder / "f"), noErr);
    EXPECT_EQ(ReadFile(folder / "._f"), "no sidecar");
}

TEST_F(Deletion, RefusedDelete_KeepsTheSidecar) {
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "x");
    WriteFile(folder / "._d", EmptySidecar());
    EXPECT_EQ(Delete(folder / "d"), fBsyErr);
    EXPECT_TRUE(Exists(folder / "._d"));
}

TEST_F(Deletion, MountPoint_IsBusy) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    fs::create_directory(folder / "d");
    fs::create_directory(folder / "mount");
    WriteFile(folder / "file", "x");
    WriteFile(folder / "other", "y");
    MountTmpfs(folder / "mount", "");
    MountAgain(folder / "other", folder / "file");
    EXPECT_EQ(Delete(folder / "mount"), fBsyErr);
    EXPECT_EQ(Delete(folder / "file"), fBsyErr);
    EXPECT_EQ(Move(folder / "mount", folder / "d"), fBsyErr);
    EXPECT_EQ(Rename(folder / "mount", u"other name"), fBsyErr);
    Unmount(folder / "mount");
    Unmount(folder / "file");
    EXPECT_TRUE(Exists(folder / "mount"));
    EXPECT_EQ(ReadFile(folder / "file"), "x");
}

TEST_F(Deletion, WithoutPermission_IsDenied) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become someone without rights";
    WriteFile(folder / "f", "x");
    fs::permissions(top, fs::perms(0755));
    const FSRef ref = Reference(folder / "f");
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(FSDeleteObject(&ref), afpAccessDenied);
    EXPECT_EQ(Rename(ref, u"g"), afpAccessDenied);
    EXPECT_EQ(CreateFile(top, u"x"), afpAccessDenied);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_TRUE(Exists(folder / "f"));
}

// ---- Moving

TEST_F(Moving, IntoAnotherFolder_KeepsNameAndContent) {
    WriteFile(folder / "f", "x");
    fs::create_directory(folder / "d");
    const FSRef old = Reference(folder / "f");
    FSRef moved;
    EXPECT_EQ(Move(folder / "f", folder / "d", &moved), noErr);
    EXPECT_EQ(ReadFile(folder / "d/f"), "x");
    EXPECT_FALSE(Exists(folder / "f"));
    EXPECT_EQ(PathOf(moved), folder / "d/f");
    EXPECT_EQ(PathOf(old), folder / "d/f");
    EXPECT_EQ(FSCompareFSRefs(&old, &moved), noErr);
}

TEST_F(Moving, Folder_TakesReferencesIntoItAlong) {
    fs::create_directories(folder / "a/b");
    WriteFile(folder / "a/b/f", "x");
    fs::create_directory(folder / "d");
    const FSRef inside = Reference(folder / "a/b"), file = Reference(folder / "a/b/f");
    EXPECT_EQ(Move(folder / "a", folder / "d"), noErr);
    EXPECT_EQ(PathOf(inside), folder / "d/a/b");
    EXPECT_EQ(PathOf(file), folder / "d/a/b/f");
    EXPECT_EQ(FSDeleteObject(&file), noErr);
    EXPECT_FALSE(Exists(folder / "d/a/b/f"));
}

TEST_F(Moving, ToTakenName_ChangesNothing) {
    WriteFile(folder / "f", "mine");
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "theirs");
    EXPECT_EQ(Move(folder / "f", folder / "d"), dupFNErr);
    EXPECT_EQ(ReadFile(folder / "f"), "mine");
    EXPECT_EQ(ReadFile(folder / "d/f"), "theirs");
}

TEST_F(Moving, OfFolderOntoEmptyFolder_IsRefused) {
    fs::create_directories(folder / "a/in");
    fs::create_directories(folder / "d/a");
    EXPECT_EQ(Move(folder / "a", folder / "d"), dupFNErr);
    EXPECT_TRUE(Exists(folder / "a/in"));
}

TEST_F(Moving, ToWhereItIs_ChangesNothingAndSucceeds) {
    WriteFile(folder / "f", "x");
    FSRef moved;
    EXPECT_EQ(Move(folder / "f", top, &moved), noErr);
    EXPECT_EQ(PathOf(moved), folder / "f");
    EXPECT_EQ(ReadFile(folder / "f"), "x");
}

TEST_F(Moving, FolderIntoItself_IsRefused) {
    fs::create_directories(folder / "a/b");
    EXPECT_EQ(Move(folder / "a", folder / "a/b"), paramErr);
    EXPECT_EQ(Move(folder / "a", folder / "a"), paramErr);
    EXPECT_TRUE(Exists(folder / "a/b"));
}

TEST_F(Moving, IntoFile_IsRefused) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "g", "y");
    EXPECT_EQ(Move(folder / "f", folder / "g"), errFSNotAFolder);
}

TEST_F(Moving, IntoLinkToFolder_UsesTheTarget) {
    WriteFile(folder / "f", "x");
    fs::create_directory(folder / "target");
    fs::create_directory_symlink("target", folder / "link");
    EXPECT_EQ(Move(folder / "f", folder / "link"), noErr);
    EXPECT_EQ(ReadFile(folder / "target/f"), "x");
}

TEST_F(Moving, Link_MovesItself) {
    WriteFile(folder / "f", "x");
    fs::create_directory(folder / "d");
    fs::create_symlink("../f", folder / "link");
    const FSRef ref = LinkReference(folder / "link"), destination = Reference(folder / "d");
    EXPECT_EQ(FSMoveObject(&ref, &destination, nullptr), noErr);
    EXPECT_TRUE(fs::is_symlink(folder / "d/link"));
    EXPECT_TRUE(Exists(folder / "f"));
}

TEST_F(Moving, DanglingLink_MovesItself) {
    fs::create_directory(folder / "d");
    fs::create_symlink("nowhere", folder / "link");
    const FSRef ref = LinkReference(folder / "link"), destination = Reference(folder / "d");
    EXPECT_EQ(FSMoveObject(&ref, &destination, nullptr), noErr);
    EXPECT_FALSE(Exists(folder / "link"));
    EXPECT_EQ(fs::read_symlink(folder / "d/link"), "nowhere");
}

TEST_F(Moving, ToAnotherVolume_IsRefused) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    fs::create_directory(folder / "volume");
    MountTmpfs(folder / "volume", "");
    WriteFile(folder / "f", "x");
    EXPECT_EQ(Move(folder / "f", folder / "volume"), diffVolErr);
    EXPECT_TRUE(Exists(folder / "f"));
    EXPECT_TRUE(fs::is_empty(folder / "volume"));
    Unmount(folder / "volume");
}

TEST_F(Moving, Sidecar_MovesAlong) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    fs::create_directory(folder / "d");
    EXPECT_EQ(Move(folder / "f", folder / "d"), noErr);
    EXPECT_EQ(ReadFile(folder / "d/._f"), EmptySidecar());
    EXPECT_FALSE(Exists(folder / "._f"));
}

TEST_F(Moving, SidecarsPlaceTaken_MovesNeither) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/._f", "someone's");
    EXPECT_EQ(Move(folder / "f", folder / "d"), dupFNErr);
    EXPECT_TRUE(Exists(folder / "f"));
    EXPECT_EQ(ReadFile(folder / "._f"), EmptySidecar());
    EXPECT_FALSE(Exists(folder / "d/f"));
    EXPECT_EQ(ReadFile(folder / "d/._f"), "someone's");
}

TEST_F(Moving, MissingArguments_AreRefused) {
    const FSRef ref = Reference(top);
    EXPECT_EQ(FSMoveObject(nullptr, &ref, nullptr), paramErr);
    EXPECT_EQ(FSMoveObject(&ref, nullptr, nullptr), paramErr);
}

TEST_F(Moving, GoneObjectOrFolder_IsNotFound) {
    WriteFile(folder / "f", "x");
    fs::create_directory(folder / "d");
    const FSRef file = Reference(folder / "f"), destination = Reference(folder / "d");
    fs::remove(folder / "d");
    EXPECT_EQ(FSMoveObject(&file, &destination, nullptr), fnfErr);
    fs::remove(folder / "f");
    const FSRef there = Reference(top);
    EXPECT_EQ(FSMoveObject(&file, &there, nullptr), fnfErr);
}

// ---- Renaming

TEST_F(Renaming, ToFreeName_OldAndNewReferenceFollow) {
    WriteFile(folder / "f", "x");
    const FSRef old = Reference(folder / "f");
    FSRef renamed;
    EXPECT_EQ(Rename(old, u"g", &renamed), noErr);
    EXPECT_EQ(ReadFile(folder / "g"), "x");
    EXPECT_FALSE(Exists(folder / "f"));
    EXPECT_EQ(PathOf(renamed), folder / "g");
    EXPECT_EQ(PathOf(old), folder / "g");
}

TEST_F(Renaming, OutputMayBeTheInput) {
    WriteFile(folder / "f", "x");
    FSRef ref = Reference(folder / "f");
    EXPECT_EQ(Rename(ref, u"g", &ref), noErr);
    EXPECT_EQ(PathOf(ref), folder / "g");
}

TEST_F(Renaming, Folder_TakesReferencesIntoItAlong) {
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/f", "x");
    const FSRef file = Reference(folder / "d/f");
    EXPECT_EQ(Rename(folder / "d", u"e"), noErr);
    EXPECT_EQ(PathOf(file), folder / "e/f");
}

TEST_F(Renaming, ManyTimes_FirstReferenceStillFollows) {
    WriteFile(folder / "f0", "x");
    const FSRef ref = Reference(folder / "f0");
    for (int i = 1; i <= 20; ++i) ASSERT_EQ(Rename(ref, u"f" + Wide(std::to_string(i))), noErr) << i;
    EXPECT_EQ(PathOf(ref), folder / "f20");
}

TEST_F(Renaming, ToTakenName_ChangesNothing) {
    WriteFile(folder / "f", "mine");
    WriteFile(folder / "g", "theirs");
    fs::create_directory(folder / "empty");
    fs::create_directory(folder / "d");
    fs::create_symlink("nowhere", folder / "link");
    EXPECT_EQ(Rename(folder / "f", u"g"), dupFNErr);
    EXPECT_EQ(Rename(folder / "f", u"empty"), dupFNErr);
    EXPECT_EQ(Rename(folder / "f", u"link"), dupFNErr);
    EXPECT_EQ(Rename(folder / "d", u"empty"), dupFNErr);
    EXPECT_EQ(ReadFile(folder / "f"), "mine");
    EXPECT_EQ(ReadFile(folder / "g"), "theirs");
}

TEST_F(Renaming, ToItsOwnName_ChangesNothingAndSucceeds) {
    WriteFile(folder / "f", "x");
    FSRef renamed;
    EXPECT_EQ(Rename(folder / "f", u"f", &renamed), noErr);
    EXPECT_EQ(PathOf(renamed), folder / "f");
}

TEST_F(Renaming, ToAnotherLetterCase_TakesIt) {
    WriteFile(folder / "name", "x");
    EXPECT_EQ(Rename(folder / "name", u"NAME"), noErr);
    EXPECT_EQ(ReadFile(folder / "NAME"), "x");
    EXPECT_FALSE(Exists(folder / "name"));
}

TEST_F(Renaming, ToAnotherLetterCaseThatExists_IsRefused) {
    WriteFile(folder / "name", "x");
    WriteFile(folder / "NAME", "y");
    EXPECT_EQ(Rename(folder / "name", u"NAME"), dupFNErr);
    EXPECT_EQ(ReadFile(folder / "NAME"), "y");
}

TEST_F(Renaming, WhereLetterCaseDoesNotCount_RespellsTheName) {
    if (std::string reason = EnterPrivateMounts(); !reason.empty()) GTEST_SKIP() << reason;
    try {
        MountTmpfs(top, "casefold");
    } catch (const std::exception&) {
        GTEST_SKIP() << "the kernel has no tmpfs that folds letter case";
    }
    fs::create_directory(folder / "d");
    std::string command = "chattr +F ";
    command.append(folder / "d");
    if (system(command.c_str()) != 0) GTEST_SKIP() << "no folder without letter case here";
    WriteFile(folder / "d/name", "x");
    WriteFile(folder / "d/other", "y");
    EXPECT_EQ(Rename(folder / "d/name", u"NAME"), noErr);
    EXPECT_EQ(fs::directory_iterator(folder / "d")->path().filename().string().size(),
              fs::path("other").string().size());
    EXPECT_EQ(ReadFile(folder / "d/NAME"), "x");
    EXPECT_EQ(Rename(folder / "d/NAME", u"OTHER"), dupFNErr);
    Unmount(top);
}

TEST_F(Renaming, ToAnotherLinkOfTheSameFile_IsRefused) {
    WriteFile(folder / "a", "x");
    fs::create_hard_link(folder / "a", folder / "b");
    EXPECT_EQ(Rename(folder / "a", u"b"), dupFNErr);
    EXPECT_TRUE(Exists(folder / "a"));
    EXPECT_TRUE(Exists(folder / "b"));
}

TEST_F(Renaming, ToBadNames_IsRefused) {
    WriteFile(folder / "f", "x");
    for (const std::u16string& name : {std::u16string(), std::u16string(256, u'n'), std::u16string(200, u'ä'),
                                       std::u16string(u"a:b"), std::u16string(u"."), std::u16string(u"..")})
        EXPECT_EQ(Rename(folder / "f", name), bdNamErr) << name.size();
    EXPECT_TRUE(Exists(folder / "f"));
}

TEST_F(Renaming, DanglingLink_IsRenamedItself) {
    fs::create_symlink("nowhere", folder / "link");
    const FSRef ref = LinkReference(folder / "link");
    FSRef renamed;
    EXPECT_EQ(Rename(ref, u"renamed", &renamed), noErr);
    EXPECT_EQ(fs::read_symlink(folder / "renamed"), "nowhere");
    EXPECT_EQ(FSDeleteObject(&renamed), noErr);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(Renaming, LinkMadeFromAPath_StillStandsForItsTarget) {
    fs::create_directory(folder / "target");
    fs::create_directory_symlink("target", folder / "link");
    FSRef renamed;
    EXPECT_EQ(Rename(folder / "link", u"renamed", &renamed), noErr);
    EXPECT_EQ(FSCreateFileUnicode(&renamed, 1, u"f", kFSCatInfoNone, nullptr, nullptr, nullptr), noErr);
    EXPECT_TRUE(Exists(folder / "target/f"));
}

TEST_F(Renaming, Sidecar_TakesTheNameToo) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    EXPECT_EQ(Rename(folder / "f", u"g"), noErr);
    EXPECT_EQ(ReadFile(folder / "._g"), EmptySidecar());
    EXPECT_FALSE(Exists(folder / "._f"));
}

TEST_F(Renaming, NoDescriptorLeft_FileAndSidecarStayTogether) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    const FSRef ref = Reference(folder / "f");
    OSErr result;
    {
        const NoDescriptors none;
        ASSERT_TRUE(none.isSet());
        result = Rename(ref, u"g");
    }
    const bool isMoved = result == noErr; // a folder that was only kept open may have made room
    EXPECT_TRUE(isMoved || result == tmfoErr) << result;
    EXPECT_EQ(Exists(folder / "g"), isMoved);
    EXPECT_EQ(Exists(folder / "._g"), isMoved);
    EXPECT_EQ(Exists(folder / "f"), !isMoved);
    EXPECT_EQ(Exists(folder / "._f"), !isMoved);
}

TEST_F(Renaming, SidecarsNameTaken_RenamesNeither) {
    WriteFile(folder / "f", "x");
    WriteFile(folder / "._f", EmptySidecar());
    WriteFile(folder / "._g", "someone's");
    EXPECT_EQ(Rename(folder / "f", u"g"), dupFNErr);
    EXPECT_TRUE(Exists(folder / "f"));
    EXPECT_TRUE(Exists(folder / "._f"));
    EXPECT_EQ(ReadFile(folder / "._g"), "someone's");
}

TEST_F(Renaming, Root_IsRefused) {
    EXPECT_EQ(Rename("/", u"x"), fBsyErr);
}

TEST_F(Renaming, MissingArguments_AreRefused) {
    const FSRef ref = Reference(top);
    EXPECT_EQ(FSRenameUnicode(nullptr, 1, u"x", kTextEncodingUnknown, nullptr), paramErr);
    EXPECT_EQ(FSRenameUnicode(&ref, 1, nullptr, kTextEncodingUnknown, nullptr), paramErr);
}

TEST_F(Renaming, NameThatIsNotUtf8_ComesThroughThere) {
    FSRef made;
    ASSERT_EQ(CreateFile(top, u"f", &made), noErr);
    EXPECT_EQ(Rename(made, u"a\xDCFF"), noErr);
    EXPECT_TRUE(Exists(folder / "a\xFF"));
}
