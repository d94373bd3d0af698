// Short forms for the tests of metadata and forks: places, attributes, sidecars, and volumes of a test's own.
#pragma once

#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/linux/metadata.h"
#include "platform/linux/references.h"
#include "references_support.h"
#include "support/files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

inline constexpr char kAttribute[] = "user.org.netatalk.Metadata";

inline Place PlaceOf(const std::string& path) {
    Place place;
    EXPECT_EQ(Locate(RefTo(path), place), noErr) << path;
    return place;
}

inline std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}
inline std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}
inline std::string SidecarOf(const std::string& path) {
    return FolderOf(path) + "/._" + NameOf(path);
}

// The reference that an iterator would give, which stands for a link itself.
inline FSRef EntryRef(const std::string& path) {
    FSRef ref = {};
    EXPECT_EQ(ChildRef(RefTo(FolderOf(path)), Wide(NameOf(path)), ref), noErr) << path;
    return ref;
}

inline bool Exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

inline struct stat StatusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

inline bool HasAttribute(const std::string& path, const char* name = kAttribute) {
    return lgetxattr(path.c_str(), name, nullptr, 0) >= 0;
}

inline std::string GetAttribute(const std::string& path) {
    char bytes[65536];
    const ssize_t size = lgetxattr(path.c_str(), kAttribute, bytes, sizeof(bytes));
    return size < 0 ? "" : std::string(bytes, static_cast<size_t>(size));
}

inline void SetAttribute(const std::string& path, const std::string& bytes) {
    ASSERT_EQ(setxattr(path.c_str(), kAttribute, bytes.data(), bytes.size(), 0), 0) << std::strerror(errno);
}

inline std::string Big16(uint32_t value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}
inline std::string Big32(uint32_t value) {
    return Big16(value >> 16) + Big16(value & 0xFFFF);
}

// AppleDouble bytes with the given entries, each content at its offset.
struct TestEntry {
    uint32_t id, offset;
    std::string content;
};
inline std::string AppleDouble(const std::vector<TestEntry>& entries) {
    std::string bytes = Big32(0x00051607) + Big32(0x00020000) + std::string("Mac OS X        ") +
                        Big16(static_cast<uint32_t>(entries.size()));
    for (const TestEntry& entry : entries) {
        bytes += Big32(entry.id) + Big32(entry.offset) + Big32(static_cast<uint32_t>(entry.content.size()));
    }
    for (const TestEntry& entry : entries) {
        if (bytes.size() < entry.offset + entry.content.size())
            bytes.resize(entry.offset + entry.content.size());
        bytes.replace(entry.offset, entry.content.size(), entry.content);
    }
    return bytes;
}

inline std::string FinderInfo(const std::string& typeAndCreator) {
    return typeAndCreator + std::string(32 - typeAndCreator.size(), '\0');
}

inline FSCatalogInfo GetInfo(const FSRef& ref, FSCatalogInfoBitmap which) {
    FSCatalogInfo info = {};
    EXPECT_EQ(FSGetCatalogInfo(&ref, which, &info, nullptr, nullptr, nullptr), noErr);
    return info;
}
inline FSCatalogInfo GetInfo(const std::string& path, FSCatalogInfoBitmap which) {
    return GetInfo(RefTo(path), which);
}
inline OSErr SetInfo(const std::string& path, FSCatalogInfoBitmap which, const FSCatalogInfo& info) {
    const FSRef ref = RefTo(path);
    return FSSetCatalogInfo(&ref, which, &info);
}

inline OSErr SetLock(const std::string& path, bool locked) {
    FSCatalogInfo info = {};
    info.nodeFlags = locked ? kFSNodeLockedMask : 0;
    return SetInfo(path, kFSCatInfoNodeFlags, info);
}
inline bool GetLock(const std::string& path) {
    return GetInfo(path, kFSCatInfoNodeFlags).nodeFlags & kFSNodeLockedMask;
}

inline OSErr SetType(const std::string& path, const std::string& typeAndCreator) {
    FSCatalogInfo info = {};
    std::memcpy(info.finderInfo, typeAndCreator.data(), typeAndCreator.size());
    return SetInfo(path, kFSCatInfoFinderInfo, info);
}
inline std::string GetType(const FSRef& ref) {
    const FSCatalogInfo info = GetInfo(ref, kFSCatInfoFinderInfo);
    return {reinterpret_cast<const char*>(info.finderInfo), 8};
}
inline std::string GetType(const std::string& path) {
    return GetType(RefTo(path));
}
inline const std::string kNoType = std::string(8, '\0');

inline int64_t SecondsOf(const UTCDateTime& date) {
    return static_cast<int64_t>(date.highSeconds) << 32 | date.lowSeconds;
}
inline UTCDateTime DateAt(int64_t secondsFrom1904, uint16_t fraction = 0) {
    return {static_cast<uint16_t>(secondsFrom1904 >> 32), static_cast<uint32_t>(secondsFrom1904), fraction};
}
inline constexpr int64_t k1970 = 2082844800;

// Opens, reads, writes and closes by path; the fork is the resource fork where `resource` says so.
inline OSErr OpenByRef(const FSRef& ref, bool resource, int8_t permission, FSForkRefNum& number) {
    HFSUniStr255 name;
    resource ? FSGetResourceForkName(&name) : FSGetDataForkName(&name);
    return FSOpenFork(&ref, name.length, name.unicode, permission, &number);
}
inline OSErr MakeResourceFork(const FSRef& ref) {
    HFSUniStr255 name;
    FSGetResourceForkName(&name);
    return FSCreateFork(&ref, name.length, name.unicode);
}
inline OSErr WriteWhole(const FSRef& ref, bool resource, const std::string& content) {
    FSForkRefNum number = 0;
    OSErr result = OpenByRef(ref, resource, fsWrPerm, number);
    if (result != noErr) return result;
    result =
        FSWriteFork(number, fsFromStart, 0, static_cast<ByteCount>(content.size()), content.data(), nullptr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    return result;
}
inline std::string ReadWhole(const FSRef& ref, bool resource) {
    FSForkRefNum number = 0;
    EXPECT_EQ(OpenByRef(ref, resource, fsRdPerm, number), noErr);
    int64_t size = 0;
    EXPECT_EQ(FSGetForkSize(number, &size), noErr);
    std::string content(static_cast<size_t>(size), '?');
    EXPECT_EQ(FSReadFork(number, fsFromStart, 0, static_cast<ByteCount>(size), content.data(), nullptr),
              noErr);
    EXPECT_EQ(FSCloseFork(number), noErr);
    return content;
}

// A volume that only this process sees, in a folder of its own; gone with the process.
class OwnVolume {
public:
    explicit OwnVolume(const char* type, const char* options = "") {
        mkdir(path().c_str(), 0755);
        if (geteuid() != 0) {
            reason_ = "mounting a volume needs the superuser";
        } else if (unshare(CLONE_NEWNS) < 0 ||
                   mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0 ||
                   mount("none", path().c_str(), type, 0, options) < 0) {
            reason_ = std::string("no volume of type ") + type + ": " + std::strerror(errno);
        }
    }
    ~OwnVolume() {
        if (reason_.empty()) umount2(path().c_str(), MNT_DETACH);
    }

    const std::string& reason() const { return reason_; } // why it cannot be had; empty when it can
    std::string path() const { return folder_ / "volume"; }
    std::string operator/(const std::string& name) const { return path() + "/" + name; }
    int MakeReadOnly() { return mount("none", path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr); }

private:
    TemporaryFolder folder_;
    std::string reason_;
};

// The process without the superuser's rights, for as long as it lives.
class AsPlainUser {
public:
    static constexpr uid_t kUser = 12345;
    static bool IsPossible() { return geteuid() == 0; }
    AsPlainUser() {
        EXPECT_EQ(setgroups(0, nullptr), 0);
        EXPECT_EQ(setegid(kUser), 0);
        EXPECT_EQ(seteuid(kUser), 0);
    }
    ~AsPlainUser() {
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_EQ(setegid(0), 0);
    }
};

// A folder in which a plain user may work.
inline void GiveToPlainUser(const std::string& path) {
    ASSERT_EQ(lchown(path.c_str(), AsPlainUser::kUser, AsPlainUser::kUser), 0);
}
