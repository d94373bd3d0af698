// What the catalog tells: flags, dates, permissions, Finder information and sizes of a place, from statx, the
// metadata, the sidecar and the table of open forks. Each is asked only if a fact that is wanted needs it,
// the attribute at most once.
//
// A link is a file of type "slnk" and creator "rhap" with its text as data; it has no other metadata. The
// volume is the mount's number, the node ID a folder's number or the low bits of a file's inode. User
// privileges and access come from the mode, for the superuser too. The valence counts what a listing shows,
// so it costs a listing. There is no text encoding hint to keep: it is unknown.
//
// Sections: simple facts, metadata, sizes, the whole.
#include "platform/linux/metadata.h"

#include "platform/linux/dates.h"
#include "platform/linux/entries.h"
#include "platform/linux/errors.h"
#include "platform/linux/fork_table.h"
#include "platform/linux/links.h"
#include "platform/linux/mac_roman.h"
#include "platform/linux/names.h"
#include "platform/linux/object_facts.h"
#include "platform/linux/sidecar.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/volume_numbers.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using appledouble::Facts;

// ---- Simple facts

static bool IsFolder(const Place& place) {
    return S_ISDIR(place.facts.stx_mode);
}

static OSErr NodeID(const Place& place, uint32_t& id) {
    if (IsFolder(place)) return FolderNumber(place, id);
    id = static_cast<uint32_t>(place.facts.stx_ino);
    return noErr;
}

static bool IsInGroup(gid_t group) {
    if (group == getegid()) return true;
    gid_t groups[65536 / sizeof(gid_t)];
    const int count = getgroups(std::size(groups), groups);
    return count > 0 && std::find(groups, groups + count, group) != groups + count;
}

// The read, write and search bits that the mode gives this user.
static uint8_t UserAccess(const struct statx& facts) {
    if (facts.stx_uid == geteuid()) return facts.stx_mode >> 6 & 7;
    return (IsInGroup(facts.stx_gid) ? facts.stx_mode >> 3 : facts.stx_mode) & 7;
}

// What the user may not do with a folder; files have no such bits.
static uint8_t UserPrivileges(const struct statx& facts) {
    constexpr uint8_t kNoSeeFolders = 0x01, kNoSeeFiles = 0x02, kNoMakeChanges = 0x04, kNotOwner = 0x80;
    if (!S_ISDIR(facts.stx_mode)) return 0;
    const uint8_t access = UserAccess(facts);
    return static_cast<uint8_t>((access & 4 ? 0 : kNoSeeFolders | kNoSeeFiles) |
                                (access & 2 ? 0 : kNoMakeChanges) |
                                (facts.stx_uid == geteuid() ? 0 : kNotOwner));
}

static FSPermissionInfo Permissions(const struct statx& facts) {
    return {facts.stx_uid, facts.stx_gid, 0, UserAccess(facts), facts.stx_mode, 0};
}

// A folder that may not be listed shows nothing.
static OSErr CountEntries(const Place& place, uint32_t& count) {
    FolderHandle folder;
    count = 0;
    OSErr result = OpenFolder(place, folder);
    if (result == noErr) {
        result = VisitEntries(folder, [&](const DirectoryEntry& entry) {
            if (!IsSidecar(folder.descriptor(), entry.name)) ++count;
            return false;
        });
    }
    if (result != noErr) count = 0;
    return result == afpAccessDenied ? noErr : result;
}

// ---- Metadata

constexpr FSCatalogInfoBitmap kFinderFacts = kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo;
constexpr FSCatalogInfoBitmap kMetadataFacts =
    kFSCatInfoNodeFlags | kFSCatInfoCreateDate | kFSCatInfoBackupDate | kFinderFacts;

// Open forks are told by the inode, which a caller that wants only flags may not have asked for.
static uint16_t ForkFlags(const Place& place) {
    if (!AnyForkIsOpen()) return 0;
    if (place.facts.stx_mask & STATX_INO) return OpenForkFlags(place.facts);
    struct statx facts;
    const int result = FactsAt(place.folder.descriptor(), place.name, AT_SYMLINK_NOFOLLOW, facts);
    return result == 0 ? OpenForkFlags(facts) : 0;
}

static UTCDateTime CreateDate(const Place& place, const Facts& kept) {
    if (kept.createDate != appledouble::kNoDate) return DateFromMetadataDate(kept.createDate);
    return place.facts.stx_mask & STATX_BTIME ? DateFromTimestamp(place.facts.stx_btime) : UTCDateTime{};
}

static OSErr FillMetadata(const Place& place, FSCatalogInfoBitmap whichInfo, FSCatalogInfo& info,
                          bool mayHaveSidecar, int file) {
    Facts kept;
    const bool inSidecar = mayHaveSidecar && (whichInfo & kFinderFacts);
    const Look look = inSidecar ? Look::kFinderInfoInSidecar : Look::kAttributeOnly;
    const OSErr result = LoadFacts(place, look, kept, file);
    if (result != noErr) kept = {};
    if (place.isLink) FillLinkFinderInfo(kept.finderInfo);
    if (whichInfo & kFSCatInfoNodeFlags) {
        info.nodeFlags = static_cast<uint16_t>((kept.locked ? kFSNodeLockedMask : 0) |
                                               (IsFolder(place) ? kFSNodeIsDirectoryMask : ForkFlags(place)));
    }
    if (whichInfo & kFSCatInfoCreateDate) info.createDate = CreateDate(place, kept);
    if (whichInfo & kFSCatInfoBackupDate) info.backupDate = DateFromMetadataDate(kept.backupDate);
    if (whichInfo & kFSCatInfoFinderInfo) std::memcpy(info.finderInfo, kept.finderInfo, 16);
    if (whichInfo & kFSCatInfoFinderXInfo) std::memcpy(info.extFinderInfo, kept.finderInfo + 16, 16);
    return result;
}

OSErr CheckUnlocked(const Place& place, OSErr refusal) {
    Facts kept;
    const OSErr result = LoadFacts(place, Look::kAttributeOnly, kept);
    return result == noErr && kept.locked ? refusal : result;
}

// ---- Sizes

static void FillDataSizes(const Place& place, FSCatalogInfo& info) {
    const bool hasData = !IsFolder(place);
    info.dataLogicalSize = hasData ? place.facts.stx_size : 0;
    info.dataPhysicalSize = hasData ? place.facts.stx_blocks * 512 : 0;
}

// A resource fork that may not be seen, or makes no sense, has no size.
static OSErr FillResourceSizes(const Place& place, FSCatalogInfo& info) {
    info.rsrcLogicalSize = info.rsrcPhysicalSize = 0;
    Sidecar sidecar;
    if (!S_ISREG(place.facts.stx_mode)) return noErr;
    const OSErr result = sidecar.Open(place, false);
    if (result == fnfErr || result == afpAccessDenied || sidecar.IsBroken()) return noErr;
    if (result != noErr) return result;
    const auto fork = sidecar.ResourceFork();
    struct statx facts;
    if (!fork) return noErr;
    if (FactsAt(sidecar.descriptor(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    info.rsrcLogicalSize = fork->length;
    info.rsrcPhysicalSize = facts.stx_blocks * 512;
    return noErr;
}

// ---- The whole

static void FillFromStatus(const Place& place, FSCatalogInfoBitmap whichInfo, FSCatalogInfo& info) {
    const struct statx& facts = place.facts;
    if (whichInfo & kFSCatInfoTextEncoding) info.textEncodingHint = kTextEncodingUnknown;
    if (whichInfo & kFSCatInfoVolume) info.volume = VolumeNumber(facts);
    if (whichInfo & kFSCatInfoParentDirID) info.parentDirID = place.folderID;
    if (whichInfo & kFSCatInfoContentMod) info.contentModDate = DateFromTimestamp(facts.stx_mtime);
    if (whichInfo & kFSCatInfoAttrMod) info.attributeModDate = DateFromTimestamp(facts.stx_ctime);
    if (whichInfo & kFSCatInfoAccessDate) info.accessDate = DateFromTimestamp(facts.stx_atime);
    if (whichInfo & (kFSCatInfoPermissions | kFSCatInfoUserAccess)) info.permissions = Permissions(facts);
    if (whichInfo & kFSCatInfoSharingFlags) info.sharingFlags = 0;
    if (whichInfo & kFSCatInfoUserPrivs) info.userPrivileges = UserPrivileges(facts);
    if (whichInfo & kFSCatInfoDataSizes) FillDataSizes(place, info);
}

OSErr FillCatalogInfo(const Place& place, FSCatalogInfoBitmap whichInfo, FSCatalogInfo& info,
                      bool mayHaveSidecar, int file) {
    FillFromStatus(place, whichInfo, info);
    OSErr result = noErr;
    const auto note = [&result](OSErr part) { result = result == noErr ? part : result; };
    if (whichInfo & kFSCatInfoValence) {
        info.valence = 0;
        if (IsFolder(place)) note(CountEntries(place, info.valence));
    }
    if (whichInfo & kFSCatInfoRsrcSizes) note(FillResourceSizes(place, info));
    if (whichInfo & kFSCatInfoNodeID) note(NodeID(place, info.nodeID));
    if (whichInfo & kMetadataFacts) note(FillMetadata(place, whichInfo, info, mayHaveSidecar, file));
    return result;
}

// The name in Mac Roman with its length in front; empty when it has no such name or a longer one. A name
// whose characters Mac Roman only has in another form has none: read back, it would mean another object.
static void FillRomanName(const char* bytes, uint8_t (&roman)[64]) {
    HFSUniStr255 name;
    NameFromBytes(bytes, name);
    size_t length = 0;
    for (size_t at = 0; at < name.length;) {
        const UniChar unit = name.unicode[at];
        const int character = mac_roman::Encode(name.unicode, name.length, at);
        const bool isTheUnit = character >= 0 && mac_roman::Decode(static_cast<uint8_t>(character)) == unit;
        if (!isTheUnit || length == sizeof(roman) - 1) {
            length = 0;
            break;
        }
        roman[++length] = static_cast<uint8_t>(character);
    }
    roman[0] = static_cast<uint8_t>(length);
}

OSErr FillSpec(const Place& place, const FSRef& ref, FSSpec& spec) {
    spec = {};
    spec.vRefNum = VolumeNumber(place.facts);
    spec.parID = static_cast<int32_t>(place.folderID);
    FillRomanName(place.name, spec.name);
    spec.ref = ref;
    return noErr;
}
