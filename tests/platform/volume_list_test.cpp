#include "platform/linux/volume_list.h"

#include "platform/linux/system_calls.h"
#include "platform/volumes.h"
#include "support/no_descriptors.h"
#include "support/private_mounts.h"
#include "support/references.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using Names = std::vector<std::string>;

static Names Roots() {
    auto table = CurrentVolumes();
    Names roots;
    for (size_t index = 1; table->ByIndex(index); ++index) roots.push_back(table->ByIndex(index)->root);
    return roots;
}

static FSVolumeRefNum NumberOf(const std::string& path) {
    struct statx facts {};
    EXPECT_EQ(FactsAt(AT_FDCWD, path.c_str(), 0, facts), 0) << path;
    return VolumeNumber(facts);
}

class VolumeListTest : public testing::Test {
protected:
    void SetUp() override { SKIP_IF_MISSING(mounts.Missing()); }
    PrivateMounts mounts;
};

TEST_F(VolumeListTest, NothingMounted_IsTheStartupVolumeAlone) {
    EXPECT_EQ(Roots(), Names{"/"});
}

TEST_F(VolumeListTest, Mounts_FollowTheStartupVolumeInMountOrder) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Zebra"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Apple"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Zebra", "/Volumes/Apple"}));
}

TEST_F(VolumeListTest, AwkwardNames_AreKept) {
    for (const char* folder : {"/Volumes/Two Words",
                               "/Volumes/\xC3\x9C"
                               "berma\xC3\x9F",
                               "/Volumes/back\\slash", "/Volumes/new\nline"})
        SKIP_IF_MISSING(mounts.MountTmpfs(folder));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Two Words",
                              "/Volumes/\xC3\x9C"
                              "berma\xC3\x9F",
                              "/Volumes/back\\slash", "/Volumes/new\nline"}));
}

TEST_F(VolumeListTest, NestedMount_IsAVolumeOfItsOwn) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Outer"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Outer/Inner"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Outer", "/Volumes/Outer/Inner"}));
    EXPECT_NE(NumberOf("/Volumes/Outer"), NumberOf("/Volumes/Outer/Inner"));
}

TEST_F(VolumeListTest, RealFileSystems_AreVolumes) {
    SKIP_IF_MISSING(mounts.MountImage("/Volumes/Ext", "ext4"));
    SKIP_IF_MISSING(mounts.MountImage("/Volumes/Xfs", "xfs"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Ext", "/Volumes/Xfs"}));
}

TEST_F(VolumeListTest, Fuse_IsAVolume) {
    SKIP_IF_MISSING(mounts.MountImage("/Volumes/Fuse", "fuse2fs"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Fuse"}));
}

TEST_F(VolumeListTest, SystemFolders_HideMemoryButNotMedia) {
    ASSERT_EQ(mount("run", "/run", "tmpfs", 0, nullptr), 0);
    SKIP_IF_MISSING(mounts.MountTmpfs("/run/lock"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/dev/shm"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/run/media/ann/Stick"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/runway"));
    EXPECT_EQ(Roots(), (Names{"/", "/run/media/ann/Stick", "/runway"}));
}

TEST_F(VolumeListTest, KernelFileSystemElsewhere_IsNoVolume) {
    std::filesystem::create_directories("/Volumes/Proc");
    ASSERT_EQ(mount("proc", "/Volumes/Proc", "proc", 0, nullptr), 0);
    EXPECT_EQ(Roots(), Names{"/"});
}

TEST_F(VolumeListTest, MountOnAFile_IsNotListedButKnownByNumber) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    ASSERT_TRUE(
        RunCommand("touch /Volumes/Data/source /target && mount --bind /Volumes/Data/source /target"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Data"}));
    const Volume* volume = CurrentVolumes()->ByNumber(NumberOf("/target"));
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->type, "tmpfs");
}

TEST_F(VolumeListTest, MountOverAnother_HidesIt) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data/Deep"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Data"}));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Data"}));
    EXPECT_EQ(CurrentVolumes()->ByIndex(2)->number, NumberOf("/Volumes/Data"));
}

TEST_F(VolumeListTest, MountsMadeAndUndone_AreNoticed) {
    EXPECT_EQ(Roots(), Names{"/"});
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Data"}));
    mounts.Unmount("/Volumes/Data");
    EXPECT_EQ(Roots(), Names{"/"});
}

TEST_F(VolumeListTest, NothingChanged_IsNotReadAgain) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    auto table = CurrentVolumes();
    EXPECT_EQ(CurrentVolumes(), table);
    mounts.Unmount("/Volumes/Data");
    EXPECT_NE(CurrentVolumes(), table);
}

// ---- What cannot be read or reached for a while

TEST_F(VolumeListTest, MountsThatCouldNotBeRead_AreReadByTheNextCaller) {
    EXPECT_EQ(Roots(), Names{"/"});
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    {
        const NoDescriptors none;
        EXPECT_EQ(Roots(), Names{"/"});
    }
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Data"}));
}

TEST_F(VolumeListTest, MountsThatCouldNotBeWatched_AreWatchedLater) {
    // The sanitizer needs a descriptor to look at a table for the first time.
    (void)std::make_shared<VolumeTable>();
    {
        const NoDescriptors none;
        EXPECT_EQ(Roots(), Names{"/"});
    }
    EXPECT_EQ(CurrentVolumes(), CurrentVolumes());
}

namespace {
// Acts for somebody whom folders keep out.
class AsNobody {
public:
    AsNobody() { EXPECT_EQ(seteuid(65534), 0); }
    ~AsNobody() { EXPECT_EQ(seteuid(0), 0); }
};
} // namespace

TEST_F(VolumeListTest, VolumeBehindAClosedFolder_IsThereForWhoMayReachIt) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Closed/Data"));
    ASSERT_EQ(chmod("/Closed", 0700), 0);
    {
        const AsNobody nobody;
        EXPECT_EQ(Roots(), Names{"/"});
    }
    EXPECT_EQ(Roots(), (Names{"/", "/Closed/Data"}));
}

TEST_F(VolumeListTest, VolumeBehindAFolderThatOpens_AppearsSoon) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Closed/Data"));
    ASSERT_EQ(chmod("/Closed", 0700), 0);
    const auto nobodysRoots = [] {
        const AsNobody nobody;
        return Roots();
    };
    EXPECT_EQ(nobodysRoots(), Names{"/"});
    ASSERT_EQ(chmod("/Closed", 0755), 0);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (nobodysRoots().size() < 2 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_EQ(nobodysRoots(), (Names{"/", "/Closed/Data"}));
}

TEST_F(VolumeListTest, ThreadInAnotherNamespace_SeesItsOwnMounts) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Shared"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Shared"}));
    Names elsewhere;
    bool moved = false;
    std::thread([&] {
        moved = unshare(CLONE_FS | CLONE_NEWNS) == 0 && mounts.MountTmpfs("/Volumes/Own").empty();
        elsewhere = Roots();
    }).join();
    ASSERT_TRUE(moved);
    EXPECT_EQ(elsewhere, (Names{"/", "/Volumes/Shared", "/Volumes/Own"}));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Shared"}));
}

TEST_F(VolumeListTest, Child_SeesChangesWithoutTakingThemFromItsParent) {
    EXPECT_EQ(Roots(), Names{"/"});
    int made[2];
    ASSERT_EQ(pipe(made), 0);
    pid_t child = fork();
    if (child == 0) {
        char byte;
        if (read(made[0], &byte, 1) != 1) _exit(2);
        _exit(Roots() == Names{"/", "/Volumes/Data"} ? 0 : 1);
    }
    std::string failed = mounts.MountTmpfs("/Volumes/Data");
    EXPECT_EQ(write(made[1], "x", 1), 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    close(made[0]);
    close(made[1]);
    SKIP_IF_MISSING(failed);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Data"}));
}

TEST_F(VolumeListTest, Number_IsTheSameFromTheListAndFromAnObject) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Data"));
    auto table = CurrentVolumes();
    EXPECT_EQ(table->ByIndex(1)->number, NumberOf("/"));
    EXPECT_EQ(table->ByIndex(2)->number, NumberOf("/Volumes/Data"));
    EXPECT_EQ(table->ByNumber(NumberOf("/Volumes/Data")), table->ByIndex(2));
    EXPECT_LT(table->ByIndex(1)->number, 0);
}

TEST_F(VolumeListTest, NumberAndIndexOfNothing_AreNotFound) {
    auto table = CurrentVolumes();
    EXPECT_EQ(table->ByIndex(0), nullptr);
    EXPECT_EQ(table->ByIndex(2), nullptr);
    EXPECT_EQ(table->ByNumber(0), nullptr);
    EXPECT_EQ(table->ByNumber(32767), nullptr);
}

TEST_F(VolumeListTest, DroppedVolume_ComesBackWithTheNextChange) {
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/One"));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Two"));
    DropVolume(CurrentVolumes(), NumberOf("/Volumes/One"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/Two"}));
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Three"));
    EXPECT_EQ(Roots(), (Names{"/", "/Volumes/One", "/Volumes/Two", "/Volumes/Three"}));
}

// A FUSE file system with nobody behind it: its server ended without unmounting.
TEST_F(VolumeListTest, DeadServer_IsLeftOut) {
    std::filesystem::create_directories("/Volumes/Dead");
    int device = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (device < 0) GTEST_SKIP() << "no /dev/fuse";
    std::string options = "fd=" + std::to_string(device) + ",rootmode=40000,user_id=0,group_id=0";
    ASSERT_EQ(mount("nobody", "/Volumes/Dead", "fuse", 0, options.c_str()), 0);
    close(device);
    SKIP_IF_MISSING(mounts.MountTmpfs("/Volumes/Live"));
    Names roots = Roots();
    EXPECT_EQ(std::count(roots.begin(), roots.end(), "/Volumes/Live"), 1);
    // The list is read without asking servers; the walk, which asks for the roots, passes the dead one over.
    Names shown;
    FSRef root;
    for (ItemCount i = 1; FSGetVolumeInfo(0, i, nullptr, kFSVolInfoNone, nullptr, nullptr, &root) == noErr;
         ++i)
        shown.push_back(PathOf(root));
    EXPECT_EQ(shown, (Names{"/", "/Volumes/Live"}));
    EXPECT_EQ(umount2("/Volumes/Dead", MNT_DETACH), 0);
}

// FUSE lets anybody name a type and a source, so that network mounts can be had without a network.
TEST_F(VolumeListTest, NetworkMounts_HaveTheirServersAddress) {
    const char* sources[] = {"ann@files.example:/home", "bob@FILES.example:", "ann@other.example:/home"};
    int devices[3];
    int32_t addresses[3];
    for (int i = 0; i < 3; ++i) {
        std::string folder = "/Volumes/Net" + std::to_string(i);
        std::filesystem::create_directories(folder);
        devices[i] = open("/dev/fuse", O_RDWR | O_CLOEXEC);
        if (devices[i] < 0) GTEST_SKIP() << "no /dev/fuse";
        std::string options = "fd=" + std::to_string(devices[i]) + ",rootmode=40000,user_id=0,group_id=0";
        ASSERT_EQ(mount(sources[i], folder.c_str(), "fuse.sshfs", 0, options.c_str()), 0);
        close(devices[i]);
        auto table = CurrentVolumes();
        auto found = std::find_if(table->volumes.begin(), table->volumes.end(),
                                  [&](const Volume& volume) { return volume.root == folder; });
        ASSERT_NE(found, table->volumes.end());
        addresses[i] = found->serverAddress;
        EXPECT_FALSE(found->serverCopies);
        EXPECT_EQ(umount2(folder.c_str(), MNT_DETACH), 0);
    }
    EXPECT_NE(addresses[0], 0);
    EXPECT_EQ(addresses[0], addresses[1]) << "one host, whoever logs in and however it is written";
    EXPECT_NE(addresses[0], addresses[2]);
    EXPECT_EQ(CurrentVolumes()->ByIndex(1)->serverAddress, 0);
}
