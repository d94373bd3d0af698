#include "platform/linux/attributes.h"

#include "metadata_support.h"
#include "support/sanitizers.h"
#include "system_call_faults.h"

#include <atomic>
#include <dlfcn.h>

namespace {
constexpr long kGetAttributeAt = 464;
std::atomic<bool> refusesEmptyPaths = false;
} // namespace

// Stands before the C library's function for everything in the executable.
extern "C" int utimensat(int folder, const char* path, const timespec* times, int flags) noexcept {
    // The header gives this function the name of the form with 64-bit times.
    static constexpr const char* kName = sizeof(long) == 4 ? "__utimensat64" : "utimensat";
    static auto real = reinterpret_cast<decltype(&utimensat)>(dlsym(RTLD_NEXT, kName));
    if (refusesEmptyPaths && (flags & AT_EMPTY_PATH)) {
        errno = EINVAL;
        return -1;
    }
    return real(folder, path, times, flags);
}

namespace {
class Attributes : public testing::Test {
protected:
    void SetUp() override { WriteFile(file_, "12345"); }

    // Everything that goes through attributes, modes and dates.
    void ExpectThatFactsCanBeKept() {
        FSCatalogInfo info = {};
        std::memcpy(info.finderInfo, "TEXTttxt", 8);
        info.contentModDate = DateAt(k1970 + 1000000000);
        info.permissions = {geteuid(), getegid(), 0, 0, 0640, 0};
        ASSERT_EQ(SetInfo(file_, kFSCatInfoFinderInfo | kFSCatInfoContentMod | kFSCatInfoPermissions, info),
                  noErr);
        EXPECT_EQ(GetType(file_), "TEXTttxt");
        EXPECT_EQ(StatusOf(file_).st_mtim.tv_sec, 1000000000);
        EXPECT_EQ(StatusOf(file_).st_mode & 07777, 0640u);
        ASSERT_EQ(SetType(file_, kNoType), noErr);
        EXPECT_FALSE(HasAttribute(file_));
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
};
} // namespace

TEST_F(Attributes, KernelWithoutTheCallByName_IsAskedThroughProc) {
    for (const int error : {ENOSYS, EPERM}) {
        const DeniedCall denied(kGetAttributeAt, error);
        ExpectThatFactsCanBeKept();
    }
}

TEST_F(Attributes, MissingCall_IsTriedOnce) {
    const DeniedCall denied(kGetAttributeAt, ENOSYS);
    EXPECT_EQ(GetType(file_), kNoType);
    EXPECT_EQ(GetType(file_), kNoType);
    EXPECT_EQ(denied.times(), 1);
}

TEST_F(Attributes, WithoutProc_TheObjectIsOpened) {
    if (kAddressSanitizer) GTEST_SKIP() << "the leak sanitizer needs /proc";
    const OwnVolume namespaceOfItsOwn("tmpfs");
    if (!namespaceOfItsOwn.reason().empty()) GTEST_SKIP() << namespaceOfItsOwn.reason();
    const FSRef ref = RefTo(file_);
    ASSERT_EQ(umount2("/proc", MNT_DETACH), 0);
    const DeniedCall denied(kGetAttributeAt, ENOSYS);
    ExpectThatFactsCanBeKept();
    EXPECT_EQ(Find(ref), noErr);
}

// Another program puts them there between two looks.
TEST_F(Attributes, WithoutProc_WhatIsNoFileIsMissing) {
    if (kAddressSanitizer) GTEST_SKIP() << "the leak sanitizer needs /proc";
    const OwnVolume namespaceOfItsOwn("tmpfs");
    if (!namespaceOfItsOwn.reason().empty()) GTEST_SKIP() << namespaceOfItsOwn.reason();
    ASSERT_EQ(symlink("file", (folder_ / "link").c_str()), 0);
    ASSERT_EQ(mknod((folder_ / "socket").c_str(), S_IFSOCK | 0600, 0), 0);
    const int folder = open(folder_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(umount2("/proc", MNT_DETACH), 0);
    const DeniedCall denied(kGetAttributeAt, ENOSYS);
    for (const char* name : {"link", "socket", "nothing"}) {
        EXPECT_EQ(GetAttributeAt(folder, name, kAttribute, nullptr, 0), -1) << name;
        EXPECT_EQ(LastError(), fnfErr) << name;
    }
    close(folder);
}

TEST_F(Attributes, KernelThatWantsANameForDates_IsGivenOne) {
    refusesEmptyPaths = true;
    ExpectThatFactsCanBeKept();
    const std::string link = folder_ / "link";
    ASSERT_EQ(symlink("file", link.c_str()), 0);
    FSCatalogInfo info = {};
    info.contentModDate = DateAt(k1970 + 1100000000);
    ASSERT_EQ(SetInfo(link, kFSCatInfoContentMod, info), noErr);
    EXPECT_EQ(StatusOf(link).st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(StatusOf(file_).st_mtim.tv_sec, 1000000000);
}

TEST_F(Attributes, FactsThatTheStatusTells_ReadNoAttribute) {
    const Place place = PlaceOf(file_);
    FSCatalogInfo info;
    const int before = CallsOf(kGetAttributeAt);
    ASSERT_EQ(FillCatalogInfo(place,
                              kFSCatInfoContentMod | kFSCatInfoAttrMod | kFSCatInfoAccessDate |
                                  kFSCatInfoPermissions | kFSCatInfoDataSizes | kFSCatInfoVolume |
                                  kFSCatInfoParentDirID | kFSCatInfoNodeID | kFSCatInfoUserPrivs |
                                  kFSCatInfoValence | kFSCatInfoTextEncoding,
                              info),
              noErr);
    EXPECT_EQ(CallsOf(kGetAttributeAt), before);
}

TEST_F(Attributes, AllFactsTogether_ReadTheAttributeOnce) {
    ASSERT_EQ(SetType(file_, "TEXTttxt"), noErr);
    const Place place = PlaceOf(file_);
    FSCatalogInfo info;
    const int before = CallsOf(kGetAttributeAt);
    ASSERT_EQ(FillCatalogInfo(place, kFSCatInfoGettableInfo, info), noErr);
    EXPECT_EQ(CallsOf(kGetAttributeAt), before + 1);
}

TEST_F(Attributes, LinksAndPipes_AreNotAskedForAny) {
    ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    const Place place = PlaceOf(folder_ / "pipe");
    FSCatalogInfo info;
    const int before = CallsOf(kGetAttributeAt);
    ASSERT_EQ(FillCatalogInfo(place, kFSCatInfoGettableInfo, info), noErr);
    EXPECT_EQ(CallsOf(kGetAttributeAt), before);
}

TEST_F(Attributes, SameObject_ComparesWhatBothKnow) {
    const struct statx facts = PlaceOf(file_).facts;
    struct statx other = facts;
    EXPECT_TRUE(SameObject(facts, other));
    ++other.stx_ino;
    EXPECT_FALSE(SameObject(facts, other));
    other.stx_mask &= ~static_cast<unsigned>(STATX_INO);
    EXPECT_TRUE(SameObject(facts, other));
    other.stx_mode = static_cast<uint16_t>((other.stx_mode & ~S_IFMT) | S_IFDIR);
    EXPECT_FALSE(SameObject(facts, other));
    other = facts;
    ++other.stx_dev_minor;
    EXPECT_FALSE(SameObject(facts, other));
    other = facts;
    ++other.stx_btime.tv_nsec;
    EXPECT_EQ(SameObject(facts, other), !(facts.stx_mask & STATX_BTIME));
}
