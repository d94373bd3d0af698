#include "platform/linux/bare_objects.h"

#include "platform/catalog.h"
#include "platform/references.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>

// An object whose last change is long past.
static struct statx OldObject(uint64_t inode) {
    struct statx facts = {};
    facts.stx_mask = STATX_BASIC_STATS;
    facts.stx_ino = inode;
    facts.stx_ctime.tv_sec = 1'000'000'000;
    facts.stx_ctime.tv_nsec = 5;
    return facts;
}

TEST(BareObjects, Remembered_IsKnownUntilItChanges) {
    struct statx facts = OldObject(7);
    EXPECT_FALSE(IsKnownBare(facts));
    RememberBare(facts, true);
    EXPECT_TRUE(IsKnownBare(facts));
    struct statx changed = facts;
    ++changed.stx_ctime.tv_nsec;
    EXPECT_FALSE(IsKnownBare(changed));
    changed = facts;
    ++changed.stx_ctime.tv_sec;
    EXPECT_FALSE(IsKnownBare(changed));
}

TEST(BareObjects, AnotherObjectWithTheSameTime_IsNotKnown) {
    RememberBare(OldObject(8), true);
    EXPECT_FALSE(IsKnownBare(OldObject(9)));
    struct statx elsewhere = OldObject(8);
    elsewhere.stx_dev_minor = 1;
    EXPECT_FALSE(IsKnownBare(elsewhere));
}

TEST(BareObjects, ObjectOnACoarseVolume_IsNotRemembered) {
    RememberBare(OldObject(10), false);
    EXPECT_FALSE(IsKnownBare(OldObject(10)));
}

TEST(BareObjects, ObjectChangedJustNow_IsNotRemembered) {
    struct statx facts = OldObject(11);
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    facts.stx_ctime.tv_sec = now.tv_sec;
    facts.stx_ctime.tv_nsec = static_cast<uint32_t>(now.tv_nsec);
    RememberBare(facts, true);
    EXPECT_FALSE(IsKnownBare(facts));
}

TEST(BareObjects, FactsWithoutChangeTime_AreNeverKnown) {
    struct statx facts = OldObject(12);
    RememberBare(facts, true);
    facts.stx_mask = STATX_TYPE | STATX_INO;
    EXPECT_FALSE(IsKnownBare(facts));
}

// Far more than there is room for: what is known was remembered, and the latest is among it.
TEST(BareObjects, MoreThanThereIsRoomFor_LatestIsKnown) {
    for (uint64_t inode = 1000; inode < 200'000; ++inode) {
        RememberBare(OldObject(inode), true);
        ASSERT_TRUE(IsKnownBare(OldObject(inode)));
    }
    unsigned known = 0;
    for (uint64_t inode = 1000; inode < 200'000; ++inode) known += IsKnownBare(OldObject(inode));
    EXPECT_GT(known, 1000u);
    for (uint64_t inode = 200'000; inode < 300'000; ++inode) ASSERT_FALSE(IsKnownBare(OldObject(inode)));
}

// A file that rests is asked once; the lock that somebody sets then shows all the same.
TEST(BareObjects, AttributeSetAfterTheFirstLook_Shows) {
    TemporaryFolder folder;
    const std::string path = folder / "file";
    WriteFile(path, "x");
    struct statx facts;
    do ASSERT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &facts), 0);
    while (RememberBare(facts, true), !IsKnownBare(facts));

    FSRef ref;
    ASSERT_EQ(FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr), noErr);
    FSCatalogInfo info = {};
    ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(info.nodeFlags & kFSNodeLockedMask, 0);
    info.nodeFlags |= kFSNodeLockedMask;
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info), noErr);
    ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(info.nodeFlags & kFSNodeLockedMask, kFSNodeLockedMask);
}
